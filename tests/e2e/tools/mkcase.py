#!/usr/bin/env python3
"""Writes one end-to-end case from a Python description, bytes exact.

    mkcase.py CASE_DIR < description.py

The description defines: args (list of str), and optionally src, tgt,
expected_tgt (dicts of relative path -> bytes), tree (list of paths),
stdout, stderr (bytes), status (str), setup (list of str).
"""
import os
import shutil
import sys


def write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, 'wb') as f:
        f.write(data)


def main():
    case = sys.argv[1]
    ns = {}
    exec(sys.stdin.read(), ns)
    shutil.rmtree(case, ignore_errors=True)
    os.makedirs(case)
    write(os.path.join(case, 'args'), ''.join(a + '\n' for a in ns['args']).encode())
    if ns.get('setup'):
        write(os.path.join(case, 'setup'), ''.join(s + '\n' for s in ns['setup']).encode())
    for tree in ('src', 'tgt'):
        for rel, data in ns.get(tree, {}).items():
            write(os.path.join(case, tree, rel), data)
    exp = os.path.join(case, 'expected')
    os.makedirs(exp)
    if ns.get('stdout'):
        write(os.path.join(exp, 'stdout'), ns['stdout'])
    if ns.get('stderr'):
        write(os.path.join(exp, 'stderr'), ns['stderr'])
    if ns.get('stderr_regex'):
        write(os.path.join(exp, 'stderr.regex'), ns['stderr_regex'].encode())
    write(os.path.join(exp, 'status'), (ns.get('status', '0') + '\n').encode())
    if 'tree' in ns:
        write(os.path.join(exp, 'tree'), ''.join(p + '\n' for p in sorted(ns['tree'])).encode())
        for rel, data in ns.get('expected_tgt', {}).items():
            write(os.path.join(exp, 'tgt', rel), data)


main()
