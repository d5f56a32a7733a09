#!/usr/bin/env python3
"""For every end-to-end case of project_manager that ends with status 0 (but
those with bare words on the command line, which the preview refuses), runs
project_inspect with the same arguments on one copy of the case and
project_manager on another, and checks that

- the preview wrote nothing: both trees keep their listing, bytes and
  modification times;
- the preview's standard output begins with exactly what project_manager
  printed, followed by the preview's summary, and its standard error is the
  beginning of project_manager's (which goes on with what the save prints);
- the preview says the real run saves, and exits with status 0;
- its summary agrees with the files project_manager wrote: the new pattern,
  table and program files are exactly the ones it lists as new, what it
  lists as reused was there before, the sequencer cells it lists are exactly
  the new lines of sequencer.txt, and each new patch, FX patch, program
  variable, chord or modulation memory entry shows in a changed file.

usage: preview_agrees.py PROJECT_MANAGER PROJECT_INSPECT CASES_DIR WORK_DIR
"""
import os
import re
import subprocess
import sys

sys.dont_write_bytecode = True  # nothing written into the source tree
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'tools'))
from case_work import prepare_case, setup_lines  # noqa: E402

manager, inspect, cases_dir, work_root = (os.path.abspath(a) for a in sys.argv[1:5])
failures = []


def fail(case, what):
    failures.append(f'{case}: {what}')


def snapshot(root):
    """Every path below root with its bytes and modification time."""
    out = {}
    for dirpath, dirnames, filenames in os.walk(root):
        for d in dirnames:
            p = os.path.join(dirpath, d)
            out[os.path.relpath(p, root) + '/'] = (None, os.stat(p).st_mtime_ns)
        for f in filenames:
            p = os.path.join(dirpath, f)
            with open(p, 'rb') as fh:
                out[os.path.relpath(p, root)] = (fh.read(), os.stat(p).st_mtime_ns)
    return out


def files(root):
    return {k: v[0] for k, v in snapshot(root).items() if v[0] is not None}


def run(binary, args, cwd):
    argv0 = os.path.basename(binary)
    r = subprocess.run([argv0] + args, executable=binary, cwd=cwd, capture_output=True)
    return r.returncode, r.stdout, r.stderr


def bare_words(args):
    """The arguments that are neither an option nor an option's value."""
    with_value = {'--source_track', '--target_track', '--seq_target_offset', '--project_src', '--project_tgt',
                  '-p', '--pattern'}
    bare, i = [], 0
    while i < len(args):
        if args[i] in with_value:
            i += 2
            continue
        if not args[i].startswith('-'):
            bare.append(args[i])
        i += 1
    return bare


def zz_value(text):
    return int(text, 36)


checked = 0
for name in sorted(os.listdir(cases_dir)):
    case_dir = os.path.join(cases_dir, name)
    status_file = os.path.join(case_dir, 'expected', 'status')
    if not os.path.exists(status_file) or open(status_file).read().strip() != '0':
        continue
    args = open(os.path.join(case_dir, 'args'), encoding='latin-1').read().split('\n')
    if args and args[-1] == '':
        args.pop()
    if any(a in ('-h', '--help') or a.startswith('-h') and not a.startswith('--') for a in args):
        continue
    # project_manager passes over bare words; the preview refuses them, since
    # a bare word is how its report form names a directory.
    if bare_words(args):
        continue
    checked += 1
    preview_work = os.path.join(work_root, name, 'preview')
    real_work = os.path.join(work_root, name, 'real')
    prepare_case(case_dir, preview_work, setup_lines(case_dir))
    prepare_case(case_dir, real_work, setup_lines(case_dir))
    before = snapshot(preview_work)
    tgt_before = files(os.path.join(real_work, 'tgt'))

    p_status, p_out, p_err = run(inspect, args, preview_work)
    r_status, r_out, r_err = run(manager, args, real_work)
    tgt_after = files(os.path.join(real_work, 'tgt'))

    if snapshot(preview_work) != before:
        fail(name, 'the preview changed a tree (listing, bytes or modification times)')
    if r_status != 0:
        fail(name, f'project_manager ended with status {r_status}')
        continue
    if p_status != 0:
        fail(name, f'the preview ended with status {p_status}')
    if not p_out.startswith(r_out):
        fail(name, 'the preview does not begin with what project_manager printed')
        continue
    rest = p_out[len(r_out):].decode('latin-1').split('\n')
    if not rest or rest[0] != '--- preview: nothing was written ---':
        fail(name, 'the summary does not follow the run\'s output')
        continue
    if not r_err.startswith(p_err):
        fail(name, 'the preview\'s standard error is not the beginning of project_manager\'s')
    if 'the real run would save the target' not in rest:
        fail(name, 'the preview does not say that the run saves')

    new = {'pattern': set(), 'table': set(), 'program': set()}
    cells = set()
    for line in rest[1:]:
        m = re.fullmatch(r'(new|reused) (pattern|table|program) (\S\S) \(source \S\S\)', line)
        if m:
            path = f'{m.group(2)}s/{m.group(2)}_{m.group(3)}.txt'
            if m.group(1) == 'new':
                new[m.group(2)].add(path)
            elif path in tgt_before and tgt_after.get(path) != tgt_before[path]:
                fail(name, f'reused {path} changed')
            continue
        m = re.fullmatch(r'new (patch (\S\S) of track (\S\S)|FX patch (\S\S)|program variable (\S\S)|'
                         r'chord memory entry \S\S|modulation memory entry \S\S) \(source \S\S\)', line)
        if m:
            if m.group(2):
                changed = [p for p in tgt_after if p.startswith(f'track_{int(m.group(3), 16):02d}/') and
                           p.endswith(f'_{m.group(2)}.txt') and tgt_after[p] != tgt_before.get(p)]
            elif m.group(4):
                changed = [p for p in tgt_after if p.startswith('fx_patches/') and p.endswith(f'_{m.group(4)}.txt')
                           and tgt_after[p] != tgt_before.get(p)]
            elif m.group(5):
                p = f'program_variables/program_variable_{m.group(5)}.txt'
                changed = [p] if p in tgt_after and tgt_after[p] != tgt_before.get(p) else []
            else:
                # An entry that is empty in the source leaves the file as it was.
                p = 'chord_memory.txt' if line.startswith('new chord') else 'modulation_memory.txt'
                changed = [p] if p in tgt_after else []
            if not changed:
                fail(name, f'"{line}" shows in no written file')
            continue
        m = re.fullmatch(r'sequencer cell line (\S\S) of track (\S\S) = (\S+)', line)
        if m:
            text = b'\x04\x04' if m.group(3) == 'magic' else m.group(3).encode()
            cells.add(f'{int(m.group(1), 16)} {int(m.group(2), 16)} '.encode() + text)

    for kind, listed in new.items():
        # The save writes every slot below the counter, gaps included; new
        # slots lie above the highest file there was.
        before_idx = [zz_value(p[-6:-4]) for p in tgt_before if p.startswith(f'{kind}s/{kind}_')]
        counter = max(before_idx) + 1 if before_idx else 0
        written = {p for p in tgt_after if p.startswith(f'{kind}s/{kind}_') and p not in tgt_before
                   and zz_value(p[-6:-4]) >= counter}
        if written != listed:
            fail(name, f'new {kind}s listed {sorted(listed)}, written {sorted(written)}')
    seq_before = set(tgt_before.get('sequencer.txt', b'').split(b'\n')) - {b''}
    seq_after = set(tgt_after.get('sequencer.txt', b'').split(b'\n')) - {b''}
    if seq_after - seq_before != cells:
        fail(name, f'sequencer cells listed {sorted(cells)}, written {sorted(seq_after - seq_before)}')

for f in failures:
    print('FAIL', f)
print(f'{checked} cases checked, {len(failures)} failures')
sys.exit(1 if failures or checked == 0 else 0)
