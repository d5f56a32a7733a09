#!/usr/bin/env bash
# Imports chains as long as a project has slots: 1296 tables each naming
# the next, whose last one calls the first of 1296 programs each calling the
# next; and 1296 patterns each pulling in the next through a program
# operand. Both must import completely, with every slot in the target.
#
# usage: long_chains.sh PROJECT_MANAGER WORK_DIR
set -euo pipefail
bin=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work"

digits=0123456789abcdefghijklmnopqrstuvwxyz
zz() { printf '%s%s' "${digits:$(($1 / 36)):1}" "${digits:$(($1 % 36)):1}"; }
n=1296
fail() { echo "FAILED: $*"; exit 1; }

# The table and program chains.
mkdir -p a/src/tables a/src/programs a/src/patterns a/tgt
: > a/tgt/sequencer.txt
for ((i = 0; i < n; i++)); do
  t=a/src/tables/table_$(zz $i).txt
  p=a/src/programs/program_$(zz $i).txt
  if ((i + 1 < n)); then
    printf '#version 1\n!steps table\n0 op_code 0 tble0%s\\xb0\\xb0\n' "$(zz $((i + 1)))" > "$t"
    printf '#version 1\n!steps program\n0 op_code_program 0 call%s\\xb0\\xb0\\xb0\\xb0\n' "$(zz $((i + 1)))" > "$p"
  else
    printf '#version 1\n!steps table\n0 op_code 0 call00\\xb0\\xb0\\xb0\n' > "$t"
    printf '#version 1\n!steps program\n0 op_code_program 0 retn\\xb0\\xb0\\xb0\\xb0\\xb0\\xb0\n' > "$p"
  fi
done
printf '#version 1\n!steps MIDI\n0 table_idx 0 00\n' > a/src/patterns/pattern_00.txt
printf '0 0 00\n' > a/src/sequencer.txt
(cd a && "$bin" --project_src src --project_tgt tgt --target_track 0 -p 00 > out.txt 2> err.txt) ||
  fail "table and program chain: status $?"
[ ! -s a/err.txt ] || fail "table and program chain: $(head -3 a/err.txt)"
[ "$(grep -c '^requesting table' a/out.txt)" = $n ] || fail "table requests"
[ "$(grep -c '^requesting program' a/out.txt)" = $n ] || fail "program requests"
[ "$(ls a/tgt/tables | wc -l)" = $n ] || fail "tables written"
[ "$(ls a/tgt/programs | wc -l)" = $n ] || fail "programs written"
# Depth first: the last program finishes first, the first table last.
grep -q '^ProgramIdx zz -> 00$' a/out.txt || fail "first program result"
[ "$(grep -A 3 '^TableIdx 00 -> zz$' a/out.txt | tail -n 1)" = "PatternIdx 00 -> 00" ] || fail "last table result"
grep -q '^0 op_code 0 tble0zy' a/tgt/tables/table_zz.txt || fail "rewritten table reference"

# The pattern chain: pattern i's start callback is program i, whose operand
# names pattern i + 1.
mkdir -p b/src/patterns b/src/programs b/tgt
: > b/tgt/sequencer.txt
for ((i = 0; i < n; i++)); do
  pat=b/src/patterns/pattern_$(zz $i).txt
  printf '#version 1\nstart_callback %s\n!steps MIDI\n' "$(zz $i)" > "$pat"
  if ((i + 1 < n)); then
    printf '#version 1\n!steps program\n0 memory_address 0 P%s\\xb0\\xb0\\xb0\n' "$(zz $((i + 1)))" \
      > b/src/programs/program_$(zz $i).txt
  else
    printf '#version 1\n!steps program\n' > b/src/programs/program_$(zz $i).txt
  fi
done
printf '0 0 00\n' > b/src/sequencer.txt
(cd b && "$bin" --project_src src --project_tgt tgt --target_track 0 -p 00 > out.txt 2> err.txt) ||
  fail "pattern chain: status $?"
[ ! -s b/err.txt ] || fail "pattern chain: $(head -3 b/err.txt)"
[ "$(ls b/tgt/patterns | wc -l)" = $n ] || fail "patterns written"
[ "$(ls b/tgt/programs | wc -l)" = $n ] || fail "programs of the pattern chain written"
grep -q '^PatternIdx zz -> 00$' b/out.txt || fail "first pattern result"
[ "$(tail -n 2 b/out.txt | head -n 1)" = "PatternIdx 00 -> zz" ] || fail "last pattern result"
# Each pattern plays on the default patch, which it finds in the target.
[ "$(grep -c '^PatchIdx 00 -> 00$' b/out.txt)" = $((2 * n)) ] || fail "default patch lines"
echo "long chains imported"
