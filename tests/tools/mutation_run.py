#!/usr/bin/env python3
"""Mutation campaign against project_manager.

usage: mutation_run.py BINARY CASES_DIR WORK_DIR [--runs N] [--seed S]
                       [--timeout SECONDS] [--minutes M] [--quiet]

Each run picks one end-to-end case directory under CASES_DIR (files `args`,
optional `setup`, `src/`, `tgt/`, `work/`), copies it into a fresh work
directory, applies 1 to 5 random mutations to the project files and/or the
arguments, runs the binary there and classifies the outcome:

  ok                    exit status 0 or 1, no sanitizer report
  allowed assertion     SIGABRT with one of the known assertion messages
  own assertion         SIGABRT with "pattern_idx >= 0" / "program_idx >= 0"
  failure               anything else; a reproducer is kept under
                        WORK_DIR/failures/NNN (tree before the run, args,
                        stdout, stderr, the mutation log)

A run that ends with status 1 must leave the whole work directory (source and
target) unchanged; a run of any outcome must leave the source unchanged.
Everything is derived from --seed and the run number, so that one run can be
repeated with `--only RUN`.
"""

import argparse
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time

sys.dont_write_bytecode = True  # nothing written into the source tree
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from case_work import prepare_case, setup_lines  # noqa: E402

# ---------------------------------------------------------------------------
# outcome classes

ALLOWED_ASSERTIONS = [
    ("pattern_idx < src->allocated_patterns", None),
    ("table_idx >= 0", None),
    ("table_idx < src->allocated_tables", None),
    ("program_idx < src->allocated_programs", None),
    ("int(src->track_settings[track_src].type) == int(tgt->track_settings[track_tgt].type)", None),
    ("!steps[0].patch_idx[0]", None),
    ('!"not implemented"', "include/kelvane/types"),
    ("strlen(s) < sizeof(buf) - 1", "include/kelvane/op_code_definition:153"),
]
OWN_ASSERTIONS = ["pattern_idx >= 0", "program_idx >= 0"]

SANITIZER_MARKS = [
    "ERROR: AddressSanitizer",
    "runtime error:",
    "LeakSanitizer",
    "UndefinedBehaviorSanitizer",
]

ASSERT_RE = re.compile(r"^(?P<where>\S+?): .*Assertion `(?P<expr>.*)' failed\.?$")

# ---------------------------------------------------------------------------
# pools

LONG_CHARS = "abcdefghijklmnopqrstuvwxyz0123456789"


def long_text(rng):
    n = rng.randint(200, 1100)
    kind = rng.randrange(6)
    if kind == 0:
        return "".join(rng.choice(LONG_CHARS) for _ in range(n))
    if kind == 1:
        return "\\xb0" * (n // 4)
    if kind == 2:
        return rng.choice(["call", "L", "G", "V", "P", "T", "loadACCUM", "bpm", "tble"]) + "\\xb0" * (n // 4)
    if kind == 3:
        return "\\x" + "f9" * (n // 2)
    if kind == 4:
        return "z" * n
    return "".join(rng.choice(["\\x20", "\\x04", "\\xf9", "a", "0", "\\"]) for _ in range(n // 3))


def low_base36(rng):
    # texts whose bytes lie below '0' as base 36 digits
    pool = "!\"#$%&'()*+,-./"
    n = rng.randint(1, 4)
    s = "".join(rng.choice(pool + "0z") for _ in range(n))
    if rng.random() < 0.5:
        s = rng.choice(pool) + s
    return s


FIXED_VALUES = [
    "", "\x04\x04", "\xf9\xf9", "\\x04\\x04", "\\xf9\\xf9", "\\x04", "\\xf9",
    "zz", "ZZ", "zZ", "0z", "00", "0", "-1", "127", "128", "255", "256", "1296", "1295",
    "99999999999", "-99999999999", "2147483647", "-2147483648", "ffffffff", "7fffffff",
    "\\x00", "\\x", "\\x0", "\\xzz", "\\\\", "\\x20", "[\\x20]", "\\x20+5", "+127", "-127",
    "type Chiptune", "Chiptune", "#", "c", "p", "f", "P", "T", "V", "L", "G",
    "call\\xb0zz", "call\\xb0\\x04\\x04", "tble\\xb0" "0\\xb0zz", "ptch\\xb03f", "fxpt\\xb03f",
    "chrd\\xb00\\xb03f", "mmem\\xb03f", "strp\\xb0V\\xb03f\\xb03f", "stre\\xb0V\\xb0ff",
    "Pzz\\xb0\\xb0", "Tzz\\xb0\\xb0", "c3f\\xb0\\xb0", "p3f\\xb0\\xb0", "f3f\\xb0\\xb0",
    "\\x7f3f\\xb0", "V3f\\xb0\\xb0\\xb0", "callzz", "call\\xb0\\x00",
    "MIDI", "MonoSampler", "PolySampler", "FMSynth", "BreakBeat", "OneShot", "CVGate",
    "Graphics", "Utility", "table", "program", "chord", "modulation",
]


def pool_value(rng):
    r = rng.random()
    if r < 0.12:
        return long_text(rng)
    if r < 0.22:
        return low_base36(rng)
    return rng.choice(FIXED_VALUES)


ODD_STEPS = ["64", "-1", "63", "99999999999", "-99999999999", "2147483648", "x", "0x1", "1e3"]
ODD_COLUMNS = ["8", "-1", "6", "7", "16", "99999999999", "255", "x"]
ODD_KEYS = ["op_code_midi", "op_code_all", "op_code_mono_sampler", "cond_mask", "patch_idx",
            "table_idx", "op_code", "memory_address", "op_code_program", "line_disable",
            "transpose", "note", "trigger", "num_chord_notes", "modulator_idx", "nonsense",
            "step_length", "table_step_jump", "break_slice", "val_8bit", "sustain"]

SLOT_KINDS = [
    # directory, prefix, suffix, base (36 or 16)
    ("patterns", "pattern_", ".txt", 36),
    ("tables", "table_", ".txt", 36),
    ("programs", "program_", ".txt", 36),
    ("program_variables", "program_variable_", ".txt", 16),
    ("fx_patches", "fx_patch_", ".txt", 16),
    ("fx_patches", "fx_modulation_", ".txt", 16),
    (None, "patch_", ".txt", 16),
    (None, "modulation_", ".txt", 16),
]
B36 = "0123456789abcdefghijklmnopqrstuvwxyz"


def slot_name(n, base):
    if base == 36:
        return B36[n // 36] + B36[n % 36]
    return "%02x" % n


def slot_kind(relpath):
    d, f = os.path.split(relpath)
    parent = os.path.basename(d)
    for kd, prefix, suffix, base in SLOT_KINDS:
        if not f.startswith(prefix) or not f.endswith(suffix):
            continue
        mid = f[len(prefix):-len(suffix)]
        if len(mid) != 2:
            continue
        if kd is None:
            if not parent.startswith("track_"):
                continue
        elif parent != kd:
            continue
        return (kd, prefix, suffix, base)
    return None


# ---------------------------------------------------------------------------
# file helpers


def list_files(root):
    out = []
    for base, dirs, files in os.walk(root):
        dirs.sort()
        for f in sorted(files):
            p = os.path.join(base, f)
            if os.path.isfile(p) and not os.path.islink(p):
                out.append(os.path.relpath(p, root))
    return out


def snapshot(root):
    """Every file (with content) and directory below root."""
    snap = {}
    if not os.path.exists(root):
        return snap
    for base, dirs, files in os.walk(root):
        rel = os.path.relpath(base, root)
        snap[rel + "/"] = None
        for f in files:
            p = os.path.join(base, f)
            try:
                with open(p, "rb") as fh:
                    snap[os.path.relpath(p, root)] = fh.read()
            except OSError:
                snap[os.path.relpath(p, root)] = b"<unreadable>"
    return snap


def restore(snap, root):
    os.makedirs(root, exist_ok=True)
    for rel in sorted(snap):
        if rel.endswith("/"):
            os.makedirs(os.path.join(root, rel), exist_ok=True)
    for rel, data in snap.items():
        if rel.endswith("/"):
            continue
        p = os.path.join(root, rel)
        os.makedirs(os.path.dirname(p), exist_ok=True)
        with open(p, "wb") as fh:
            fh.write(data)


def diff_snap(before, after, prefix):
    changed = []
    for k in sorted(set(before) | set(after)):
        if not k.startswith(prefix):
            continue
        if k not in before:
            changed.append("new " + k)
        elif k not in after:
            changed.append("gone " + k)
        elif before[k] != after[k]:
            changed.append("changed " + k)
    return changed


def read(p):
    with open(p, "rb") as fh:
        return fh.read()


def write(p, data):
    with open(p, "wb") as fh:
        fh.write(data)


def lines_of(data):
    return data.split(b"\n")


def enc(s):
    return s.encode("latin-1")


# ---------------------------------------------------------------------------
# mutations on files


class Mutator:
    def __init__(self, rng, work, line_pool):
        self.rng = rng
        self.work = work
        self.line_pool = line_pool
        self.log = []

    def project_files(self):
        files = []
        for proj in ("src", "tgt"):
            root = os.path.join(self.work, proj)
            if os.path.isdir(root):
                files += [os.path.join(proj, f) for f in list_files(root)]
        return files

    def pick_file(self):
        files = self.project_files()
        if not files:
            return None
        # prefer the files that matter most to the import
        weighted = []
        for f in files:
            w = 1
            if re.search(r"(patterns|tables|programs)/", f):
                w = 4
            elif f.endswith("sequencer.txt") or "memory" in f:
                w = 3
            weighted += [f] * w
        return self.rng.choice(weighted)

    def m_flip(self, f, data):
        if not data:
            return None
        i = self.rng.randrange(len(data))
        b = bytearray(data)
        b[i] ^= 1 << self.rng.randrange(8)
        self.log.append("flip %s @%d" % (f, i))
        return bytes(b)

    def m_insert(self, f, data):
        i = self.rng.randint(0, len(data))
        pool = [b"\n", b" ", b"\\", b"\x00", b"\xf9", b"\x04", b"\xb0", b"\xff", b"\\x", b"0", b"z",
                b"-", b"#"]
        ins = b"".join(self.rng.choice(pool) for _ in range(self.rng.randint(1, 6)))
        self.log.append("insert %s @%d %r" % (f, i, ins))
        return data[:i] + ins + data[i:]

    def m_delete_bytes(self, f, data):
        if not data:
            return None
        i = self.rng.randrange(len(data))
        n = self.rng.randint(1, 16)
        self.log.append("delete bytes %s @%d n=%d" % (f, i, n))
        return data[:i] + data[i + n:]

    def m_line_op(self, f, data):
        ls = lines_of(data)
        if len(ls) < 1:
            return None
        op = self.rng.choice(["delete", "duplicate", "swap", "truncate", "splice"])
        i = self.rng.randrange(len(ls))
        if op == "delete":
            del ls[i]
        elif op == "duplicate":
            ls.insert(i, ls[i])
        elif op == "swap":
            j = self.rng.randrange(len(ls))
            ls[i], ls[j] = ls[j], ls[i]
        elif op == "truncate":
            if self.rng.random() < 0.5:
                self.log.append("truncate %s at line %d" % (f, i))
                return b"\n".join(ls[:i]) + (b"\n" if i else b"")
            k = self.rng.randint(0, len(data))
            self.log.append("truncate %s at byte %d" % (f, k))
            return data[:k]
        elif op == "splice":
            if not self.line_pool:
                return None
            new = self.rng.choice(self.line_pool)
            ls.insert(i, new)
            self.log.append("splice into %s line %d: %r" % (f, i, new[:120]))
            return b"\n".join(ls)
        self.log.append("%s line %s %d" % (op, f, i))
        return b"\n".join(ls)

    def m_value(self, f, data):
        ls = lines_of(data)
        idx = [i for i, l in enumerate(ls) if l.strip()]
        if not idx:
            return None
        i = self.rng.choice(idx)
        fields = ls[i].split(b" ")
        v = enc(pool_value(self.rng))
        if v.startswith(b"type Chiptune") and self.rng.random() < 0.6:
            ls[i] = v
            what = "whole line"
        else:
            # last field is the value; sometimes another one
            k = len(fields) - 1 if self.rng.random() < 0.75 else self.rng.randrange(len(fields))
            fields[k] = v
            ls[i] = b" ".join(fields)
            what = "field %d" % k
        self.log.append("value %s line %d %s := %r" % (f, i, what, v[:60] + (b"..." if len(v) > 60 else b"")))
        return b"\n".join(ls)

    def m_step_line(self, f, data):
        ls = lines_of(data)
        idx = [i for i, l in enumerate(ls) if re.match(rb"^-?\d+ \S+ -?\d+ ", l)]
        if not idx:
            return None
        i = self.rng.choice(idx)
        fields = ls[i].split(b" ")
        which = self.rng.choice(["step", "column", "key"])
        if which == "step":
            fields[0] = enc(self.rng.choice(ODD_STEPS))
        elif which == "column":
            fields[2] = enc(self.rng.choice(ODD_COLUMNS))
        else:
            fields[1] = enc(self.rng.choice(ODD_KEYS))
        ls[i] = b" ".join(fields)
        self.log.append("step line %s line %d %s -> %r" % (f, i, which, ls[i][:100]))
        return b"\n".join(ls)

    def mutate_content(self):
        f = self.pick_file()
        if f is None:
            return
        p = os.path.join(self.work, f)
        data = read(p)
        ops = [self.m_flip, self.m_insert, self.m_delete_bytes, self.m_line_op, self.m_line_op,
               self.m_value, self.m_value, self.m_value, self.m_step_line, self.m_step_line]
        new = self.rng.choice(ops)(f, data)
        if new is not None:
            write(p, new)

    def mutate_tree(self):
        op = self.rng.choice(["dup_slot", "dup_slot", "high_slot", "high_slot", "delete", "to_dir"])
        files = self.project_files()
        if op == "high_slot":
            proj = self.rng.choice(["src", "tgt"])
            kd, prefix, suffix, base = self.rng.choice(SLOT_KINDS[:3] + SLOT_KINDS[3:])
            n = self.rng.choice([35, 36, 63, 1295, 1295, 1294, 100]) if base == 36 else \
                self.rng.choice([63, 62, 32])
            d = kd if kd is not None else "track_%02d" % self.rng.choice([0, 0, 1, 2, 15])
            same = [f for f in files if slot_kind(f) and slot_kind(f)[1] == prefix]
            if same and self.rng.random() < 0.8:
                content = read(os.path.join(self.work, self.rng.choice(same)))
            else:
                content = b"#version 1\n"
            rel = os.path.join(proj, d, prefix + slot_name(n, base) + suffix)
            os.makedirs(os.path.dirname(os.path.join(self.work, rel)), exist_ok=True)
            if os.path.isdir(os.path.join(self.work, rel)):
                return
            write(os.path.join(self.work, rel), content)
            self.log.append("high slot %s" % rel)
            return
        if not files:
            return
        if op == "dup_slot":
            slotted = [f for f in files if slot_kind(f)]
            if not slotted:
                return
            f = self.rng.choice(slotted)
            kd, prefix, suffix, base = slot_kind(f)
            limit = 1296 if base == 36 else 64
            cur = int(os.path.basename(f)[len(prefix):len(prefix) + 2], base)
            n = self.rng.choice([cur + 1, cur + 2, self.rng.randrange(limit), 0, limit - 1])
            n = min(max(n, 0), limit - 1)
            dest = os.path.join(os.path.dirname(f), prefix + slot_name(n, base) + suffix)
            if dest == f or os.path.isdir(os.path.join(self.work, dest)):
                return
            shutil.copyfile(os.path.join(self.work, f), os.path.join(self.work, dest))
            self.log.append("duplicate %s -> %s" % (f, dest))
            return
        f = self.pick_file()
        p = os.path.join(self.work, f)
        os.remove(p)
        if op == "delete":
            self.log.append("delete %s" % f)
        else:
            os.makedirs(p)
            self.log.append("file to directory %s" % f)


# ---------------------------------------------------------------------------
# mutations on arguments

NUMBER_OPTS = ("--target_track", "--source_track", "--seq_target_offset")


def mutate_args(rng, args, log):
    args = list(args)
    op = rng.choice(["number", "number", "name", "name", "drop", "dup", "switch", "add_source"])
    if op == "number":
        pos = [i + 1 for i, a in enumerate(args) if a in NUMBER_OPTS and i + 1 < len(args)]
        if not pos:
            if rng.random() < 0.5:
                args += ["--seq_target_offset", "0"]
                pos = [len(args) - 1]
            else:
                return args
        i = rng.choice(pos)
        args[i] = rng.choice(["-1", "16", "255", "256", "99999"])
        log.append("arg %s := %s" % (args[i - 1], args[i]))
    elif op == "name":
        pos = [i + 1 for i, a in enumerate(args) if a in ("-p", "--pattern") and i + 1 < len(args)]
        if not pos:
            return args
        i = rng.choice(pos)
        args[i] = rng.choice(["ZZZ", "100", "zz", "00,00", "ZZ", "0z,zz", ""])
        log.append("arg pattern := %r" % args[i])
    elif op in ("drop", "dup"):
        opts = [i for i, a in enumerate(args) if a.startswith("-")]
        if not opts:
            return args
        i = rng.choice(opts)
        n = 1 if (i + 1 >= len(args) or args[i + 1].startswith("--") or args[i] in ("--whole_track", "-h", "--help")) else 2
        chunk = args[i:i + n]
        if op == "drop":
            del args[i:i + n]
        else:
            args[i:i] = chunk
        log.append("arg %s %r" % (op, chunk))
    elif op == "switch":
        if "--whole_track" in args:
            i = args.index("--whole_track")
            args[i:i + 1] = ["-p", rng.choice(["00", "01", "00,01", "zz"])]
            log.append("arg --whole_track -> -p")
        else:
            pos = [i for i, a in enumerate(args) if a in ("-p", "--pattern")]
            if not pos:
                return args
            i = pos[0]
            n = 2 if i + 1 < len(args) else 1
            args[i:i + n] = ["--whole_track"]
            if "--source_track" not in args and rng.random() < 0.7:
                args += ["--source_track", rng.choice(["0", "1", "2"])]
            log.append("arg -p -> --whole_track")
    elif op == "add_source":
        if "--source_track" in args:
            i = args.index("--source_track")
            if i + 1 < len(args):
                args[i + 1] = rng.choice(["0", "1", "2", "15"])
        else:
            args += ["--source_track", rng.choice(["0", "1", "2", "15"])]
        log.append("arg source_track set")
    return args


# ---------------------------------------------------------------------------
# case handling


def load_cases(cases_dir):
    cases = []
    for name in sorted(os.listdir(cases_dir)):
        d = os.path.join(cases_dir, name)
        if not os.path.isfile(os.path.join(d, "args")):
            continue
        args = read(os.path.join(d, "args")).decode("latin-1").split("\n")
        if args and args[-1] == "":
            args.pop()
        setup = setup_lines(d)
        cases.append((name, d, args, setup))
    return cases


def build_line_pool(cases):
    pool = set()
    for _, d, _, _ in cases:
        for proj in ("src", "tgt"):
            root = os.path.join(d, proj)
            if not os.path.isdir(root):
                continue
            for f in list_files(root):
                for l in lines_of(read(os.path.join(root, f))):
                    if l and len(l) < 400:
                        pool.add(l)
    return sorted(pool)


def prepare(case, work):
    name, d, args, setup = case
    prepare_case(d, work, setup)


def classify(rc, err_text):
    """Returns (class, detail)."""
    for m in SANITIZER_MARKS:
        if m in err_text:
            # name the first report line
            for l in err_text.split("\n"):
                if m in l:
                    return "failure", "sanitizer: " + l.strip()[:200]
    if rc is None:
        return "failure", "timeout"
    if rc in (0, 1):
        return "ok", "status %d" % rc
    if rc == -signal.SIGABRT:
        lines = [l for l in err_text.split("\n") if l.strip()]
        last = lines[-1] if lines else ""
        m = ASSERT_RE.match(last)
        if m:
            expr, where = m.group("expr"), m.group("where")
            for a, loc in ALLOWED_ASSERTIONS:
                if expr == a and (loc is None or where.startswith(loc)):
                    return "allowed", a
            if expr in OWN_ASSERTIONS:
                return "own", expr
            return "failure", "assertion: " + last[:200]
        return "failure", "abort without assertion line: " + last[:200]
    if rc < 0:
        return "failure", "signal %d" % -rc
    return "failure", "exit status %d" % rc


def failure_signature(detail, err_text):
    """A short key to group failures of one kind."""
    d = re.sub(r"0x[0-9a-f]+", "ADDR", detail)
    d = re.sub(r"==\d+==", "", d)
    d = re.sub(r"pc ADDR.*", "", d)
    # a sanitizer report is grouped by its first frame inside the project
    if detail.startswith("sanitizer"):
        m = re.search(r"#\d+ \S+ in (\S+) (\S*/(?:src|include)/[^\s:]+:\d+)", err_text)
        if m:
            d += " @ " + m.group(2).split("/main/")[-1]
    if detail.startswith("sanitizer") and "runtime error" in detail:
        d = re.sub(r"^sanitizer: (\S+:\d+):\d+: runtime error: ([^0-9'-]*).*$", r"ubsan \1 \2", d)
    return d.strip()


def apply_mutations(rng, mutator, args, count, args_share, tree_share):
    """Applies `count` mutations, each to the arguments (with chance
    args_share), to the layout of the tree (up to tree_share) or to a file's
    content (the rest); returns the arguments. A mutation that a path blocked
    by an earlier one (a file where a directory should be) is left out."""
    for _ in range(count):
        r = rng.random()
        try:
            if r < args_share:
                args = mutate_args(rng, args, mutator.log)
            elif r < tree_share:
                mutator.mutate_tree()
            else:
                mutator.mutate_content()
        except OSError as e:
            mutator.log.append("mutation skipped: %s" % e)
    return args


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("binary")
    ap.add_argument("cases_dir")
    ap.add_argument("work_dir")
    ap.add_argument("--runs", type=int, default=200)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--timeout", type=float, default=20.0)
    ap.add_argument("--minutes", type=float, default=0.0,
                    help="stop after this many minutes even if --runs is not reached")
    ap.add_argument("--only", type=int, default=-1, help="repeat just this run number")
    ap.add_argument("--quiet", action="store_true")
    ns = ap.parse_args()

    binary = os.path.abspath(ns.binary)
    work_dir = os.path.abspath(ns.work_dir)
    os.makedirs(work_dir, exist_ok=True)
    fail_dir = os.path.join(work_dir, "failures")
    os.makedirs(fail_dir, exist_ok=True)
    cases = load_cases(ns.cases_dir)
    if not cases:
        print("no cases found under", ns.cases_dir)
        return 2
    line_pool = build_line_pool(cases)

    env = dict(os.environ)
    env["ASAN_OPTIONS"] = "detect_leaks=1:abort_on_error=0"
    env["UBSAN_OPTIONS"] = "print_stacktrace=1:halt_on_error=1"

    counts = {"ok": 0, "allowed": 0, "own": 0, "failure": 0}
    allowed_kinds = {}
    own_kinds = {}
    ok_status = {0: 0, 1: 0}
    fail_kinds = {}
    nfail = len(os.listdir(fail_dir))
    started = time.time()
    run_dir = os.path.join(work_dir, "run")
    runs_done = 0
    run_numbers = [ns.only] if ns.only >= 0 else range(ns.runs)

    for run in run_numbers:
        if ns.minutes and time.time() - started > ns.minutes * 60:
            break
        rng = random.Random("%d/%d" % (ns.seed, run))
        case = rng.choice(cases)
        prepare(case, run_dir)
        log = ["case %s" % case[0]]
        args = list(case[2])
        mut = Mutator(rng, run_dir, line_pool)
        mut.log = log
        args = apply_mutations(rng, mut, args, rng.randint(1, 5), 0.2, 0.4)

        before = snapshot(run_dir)
        try:
            proc = subprocess.run(["project_manager"] + args, executable=binary, cwd=run_dir, env=env,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, timeout=ns.timeout)
            rc, out, err = proc.returncode, proc.stdout, proc.stderr
        except subprocess.TimeoutExpired as e:
            rc, out, err = None, e.stdout or b"", e.stderr or b""
        after = snapshot(run_dir)
        err_text = err.decode("latin-1")
        cls, detail = classify(rc, err_text)

        # the source is only read
        src_changes = diff_snap(before, after, "src")
        # the source path may be a prefix of the target path (tgt below src): skip then
        src_arg = args[args.index("--project_src") + 1] if "--project_src" in args[:-1] else "src"
        tgt_arg = args[args.index("--project_tgt") + 1] if "--project_tgt" in args[:-1] else "tgt"
        if src_changes and not (tgt_arg.startswith(src_arg.rstrip("/") + "/") or tgt_arg == src_arg):
            cls, detail = "failure", "source changed: " + ", ".join(src_changes[:3])
        if rc == 1 and cls == "ok":
            changes = diff_snap(before, after, "")
            if changes:
                cls, detail = "failure", "status 1 but the tree changed: " + ", ".join(changes[:3])

        counts[cls] += 1
        runs_done += 1
        if cls == "ok":
            ok_status[rc] += 1
        elif cls == "allowed":
            allowed_kinds[detail] = allowed_kinds.get(detail, 0) + 1
        elif cls == "own":
            own_kinds[detail] = own_kinds.get(detail, 0) + 1
        else:
            sig = failure_signature(detail, err_text)
            fail_kinds.setdefault(sig, []).append(nfail)
            fd = os.path.join(fail_dir, "%03d" % nfail)
            if os.path.lexists(fd):
                shutil.rmtree(fd)
            restore(before, os.path.join(fd, "before"))
            write(os.path.join(fd, "args"), enc("\n".join(args) + "\n"))
            write(os.path.join(fd, "stdout"), out)
            write(os.path.join(fd, "stderr"), err)
            write(os.path.join(fd, "info"), enc("seed %d run %d\nstatus %s\n%s\n%s\n" % (
                ns.seed, run, rc, detail, "\n".join(log))))
            print("FAILURE %03d run %d case %s: %s" % (nfail, run, case[0], detail), flush=True)
            nfail += 1
        if not ns.quiet and runs_done % 100 == 0:
            print("... %d runs, %s, %.0f s" % (runs_done, counts, time.time() - started), flush=True)

    if os.path.lexists(run_dir):
        shutil.rmtree(run_dir)
    print("=" * 70)
    print("runs: %d (seed %d, %.0f s)" % (runs_done, ns.seed, time.time() - started))
    print("ok: %d (status 0: %d, status 1: %d)" % (counts["ok"], ok_status[0], ok_status[1]))
    print("allowed assertions: %d" % counts["allowed"])
    for k in sorted(allowed_kinds):
        print("    %5d  %s" % (allowed_kinds[k], k))
    print("own assertions: %d" % counts["own"])
    for k in sorted(own_kinds):
        print("    %5d  %s" % (own_kinds[k], k))
    print("failures: %d" % counts["failure"])
    for k in sorted(fail_kinds, key=lambda k: -len(fail_kinds[k])):
        ids = fail_kinds[k]
        print("    %5d  %s  (e.g. %s)" % (len(ids), k, ", ".join("%03d" % i for i in ids[:5])))
    return 1 if counts["failure"] else 0


if __name__ == "__main__":
    sys.exit(main())
