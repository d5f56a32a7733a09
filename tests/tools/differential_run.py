#!/usr/bin/env python3
"""Whole runs of two builds of project_manager, compared byte for byte.

usage: differential_run.py OLD_BINARY NEW_BINARY WORK_DIR
                           [--full SOURCE TARGET] [--cases CASES_DIR]
                           [--full-runs N] [--case-runs N] [--seed S]
                           [--timeout SECONDS]

Each run lays out one input tree (a source project `src/` and a target
project `tgt/`, and the arguments), then lets each binary work on its own
fresh copy of it, at the same path, and compares what the two did: exit
status, standard output, standard error, and every file and directory of
the tree afterwards (type, mode and content). Any difference is kept under
WORK_DIR/differences/NNN (the tree before the run, the arguments and what
each binary printed) and the run counts as failed. The source line that an
assertion message names is not compared.

Runs, in this order:
- with --full: the benchmark's full project (SOURCE, as bench/run_bench
  leaves it with KELVANE_BENCH_KEEP=1, and its TARGET template) as it is,
  imported whole-track, then --full-runs corrupted copies of both, with the
  mutations and argument changes of mutation_run.py;
- with --cases: --case-runs corrupted copies of the end-to-end cases, as
  mutation_run.py makes them.
Everything is derived from --seed and the run number.
"""

import argparse
import hashlib
import os
import random
import re
import shutil
import stat
import subprocess
import sys

sys.dont_write_bytecode = True  # nothing written into the source tree
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from mutation_run import (Mutator, apply_mutations, build_line_pool, load_cases, prepare,  # noqa: E402
                          read, write, enc)

FULL_TRACK = "5"  # the source track of the benchmark's whole-track import


def tree_state(root):
    """Every entry below root: its type and mode, and a digest of a file's bytes."""
    state = {}
    if not os.path.lexists(root):
        return state
    for base, dirs, files in os.walk(root):
        for name in dirs + files:
            p = os.path.join(base, name)
            rel = os.path.relpath(p, root)
            st = os.lstat(p)
            if stat.S_ISREG(st.st_mode):
                with open(p, "rb") as fh:
                    digest = hashlib.sha1(fh.read()).hexdigest()
                state[rel] = ("file", st.st_mode, digest)
            elif stat.S_ISLNK(st.st_mode):
                state[rel] = ("link", st.st_mode, os.readlink(p))
            else:
                state[rel] = ("other", st.st_mode, "")
    return state


def copy_tree(src, dst):
    if os.path.lexists(dst):
        shutil.rmtree(dst)
    subprocess.run(["cp", "-a", src, dst], check=True)


def run_binary(binary, prep, run_dir, args, timeout):
    copy_tree(prep, run_dir)
    try:
        proc = subprocess.run(["project_manager"] + args, executable=binary, cwd=run_dir,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              timeout=timeout)
        outcome = (proc.returncode, proc.stdout, proc.stderr)
    except subprocess.TimeoutExpired as e:
        outcome = ("timeout", e.stdout or b"", e.stderr or b"")
    return outcome, tree_state(run_dir)


# An assertion names the line of the source it stands on, which moves
# whenever the code above it changes: the line is no part of the behaviour.
ASSERTION_LINE = re.compile(rb"^((?:[^:\n]*: )?(?:src|include)/[\w/.]+):\d+:", re.M)


def without_assertion_lines(err):
    return ASSERTION_LINE.sub(rb"\1:LINE:", err)


def differences(old, new):
    (old_rc, old_out, old_err), old_tree = old
    (new_rc, new_out, new_err), new_tree = new
    found = []
    if old_rc != new_rc:
        found.append("status %s / %s" % (old_rc, new_rc))
    if old_out != new_out:
        found.append("stdout")
    if without_assertion_lines(old_err) != without_assertion_lines(new_err):
        found.append("stderr")
    for rel in sorted(set(old_tree) | set(new_tree)):
        if old_tree.get(rel) != new_tree.get(rel):
            found.append("tree " + rel)
    return found


class Campaign:
    def __init__(self, ns):
        self.ns = ns
        self.old = os.path.abspath(ns.old_binary)
        self.new = os.path.abspath(ns.new_binary)
        self.work = os.path.abspath(ns.work_dir)
        self.prep = os.path.join(self.work, "prep")
        self.run_dir = os.path.join(self.work, "run")
        self.diff_dir = os.path.join(self.work, "differences")
        os.makedirs(self.diff_dir, exist_ok=True)
        self.runs = 0
        self.statuses = {}
        self.failed = []

    def compare(self, label, args, log):
        old = run_binary(self.old, self.prep, self.run_dir, args, self.ns.timeout)
        new = run_binary(self.new, self.prep, self.run_dir, args, self.ns.timeout)
        self.runs += 1
        rc = old[0][0]
        key = "signal %d" % -rc if isinstance(rc, int) and rc < 0 else "status %s" % rc
        self.statuses[key] = self.statuses.get(key, 0) + 1
        found = differences(old, new)
        if not found:
            return
        n = len(os.listdir(self.diff_dir))
        keep = os.path.join(self.diff_dir, "%03d" % n)
        os.makedirs(keep)
        copy_tree(self.prep, os.path.join(keep, "before"))
        write(os.path.join(keep, "args"), enc("\n".join(args) + "\n"))
        for name, ((rc_, out, err), _) in (("old", old), ("new", new)):
            write(os.path.join(keep, name + ".stdout"), out)
            write(os.path.join(keep, name + ".stderr"), err)
            write(os.path.join(keep, name + ".status"), enc("%s\n" % rc_))
        write(os.path.join(keep, "info"), enc("%s\n%s\n%s\n" % (label, "\n".join(found[:50]), "\n".join(log))))
        self.failed.append(label)
        print("DIFFERENCE %03d %s: %s" % (n, label, ", ".join(found[:5])), flush=True)

    def full_runs(self, source, target, line_pool):
        base_args = ["--project_src", "src", "--project_tgt", "tgt", "--source_track", FULL_TRACK,
                     "--target_track", FULL_TRACK, "--whole_track"]
        for run in range(-1, self.ns.full_runs):
            if os.path.lexists(self.prep):
                shutil.rmtree(self.prep)
            os.makedirs(self.prep)
            subprocess.run(["cp", "-a", source, os.path.join(self.prep, "src")], check=True)
            subprocess.run(["cp", "-a", target, os.path.join(self.prep, "tgt")], check=True)
            args = list(base_args)
            log = ["full project"]
            if run >= 0:
                rng = random.Random("full %d/%d" % (self.ns.seed, run))
                mutator = Mutator(rng, self.prep, line_pool)
                mutator.log = log
                args = apply_mutations(rng, mutator, args, rng.randint(1, 8), 0.15, 0.35)
            self.compare("full %d" % run, args, log)
            if (run + 2) % 25 == 0:
                print("... full project: %d runs" % (run + 2), flush=True)

    def case_runs(self, cases, line_pool):
        for run in range(self.ns.case_runs):
            rng = random.Random("%d/%d" % (self.ns.seed, run))
            case = rng.choice(cases)
            prepare(case, self.prep)
            log = ["case %s" % case[0]]
            args = list(case[2])
            mutator = Mutator(rng, self.prep, line_pool)
            mutator.log = log
            args = apply_mutations(rng, mutator, args, rng.randint(1, 5), 0.2, 0.4)
            self.compare("case %d %s" % (run, case[0]), args, log)
            if (run + 1) % 250 == 0:
                print("... cases: %d runs" % (run + 1), flush=True)


def sample_lines(root, rng, count):
    """Some lines of the files below root, for the splice mutation."""
    files = []
    for base, _, names in os.walk(root):
        files += [os.path.join(base, n) for n in names]
    lines = set()
    for f in rng.sample(sorted(files), min(len(files), 200)):
        for line in read(f).split(b"\n"):
            if line and len(line) < 400:
                lines.add(line)
    return rng.sample(sorted(lines), min(len(lines), count))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("old_binary")
    ap.add_argument("new_binary")
    ap.add_argument("work_dir")
    ap.add_argument("--full", nargs=2, metavar=("SOURCE", "TARGET"))
    ap.add_argument("--cases")
    ap.add_argument("--full-runs", type=int, default=100)
    ap.add_argument("--case-runs", type=int, default=1000)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--timeout", type=float, default=60.0)
    ns = ap.parse_args()

    campaign = Campaign(ns)
    cases = load_cases(ns.cases) if ns.cases else []
    line_pool = build_line_pool(cases)
    if ns.full:
        source, target = (os.path.abspath(p) for p in ns.full)
        full_pool = line_pool + sample_lines(source, random.Random(ns.seed), 2000)
        campaign.full_runs(source, target, full_pool)
    if cases:
        campaign.case_runs(cases, line_pool)
    for d in (campaign.prep, campaign.run_dir):
        if os.path.lexists(d):
            shutil.rmtree(d)

    print("=" * 70)
    print("runs compared: %d (seed %d)" % (campaign.runs, ns.seed))
    for key in sorted(campaign.statuses):
        print("    %5d  %s" % (campaign.statuses[key], key))
    print("differences: %d" % len(campaign.failed))
    for label in campaign.failed[:20]:
        print("    " + label)
    return 1 if campaign.failed else 0


if __name__ == "__main__":
    sys.exit(main())
