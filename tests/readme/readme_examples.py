#!/usr/bin/env python3
"""The README's example sessions print what the programs really print.

Each example of the README is an indented block whose lines beginning with
"$ " are commands (a trailing backslash continues one) and whose other lines
are their output; a line "..." stands for any number of lines. This script
runs the commands of every block that names one of the programs, in a work
directory that holds fresh copies of examples/ (the pattern imports of
scripts/run_examples.sh are made first for the blocks that come after them,
as the README tells), and compares.

usage: readme_examples.py README BUILD_DIR EXAMPLES_DIR WORK_DIR
"""
import os
import shutil
import subprocess
import sys

readme, build, examples, work = (os.path.abspath(a) for a in sys.argv[1:5])
programs = ('project_manager', 'project_inspect', 'project_patch')


def blocks(text):
    """The README's indented blocks that hold a command, as lists of lines."""
    out, cur = [], []
    for line in text.split('\n') + ['']:
        if line.startswith('    '):
            cur.append(line[4:])
            continue
        if line == '' and cur:
            cur.append('')
            continue
        while cur and cur[-1] == '':
            cur.pop()
        if any(l.startswith('$ ') for l in cur):
            out.append(cur)
        cur = []
    return out


def sessions(block):
    """(command, expected output lines) pairs of a block."""
    out, i = [], 0
    while i < len(block):
        if not block[i].startswith('$ '):
            i += 1
            continue
        cmd = block[i][2:]
        while cmd.endswith('\\'):
            i += 1
            cmd = cmd[:-1] + ' ' + block[i].strip()
        i += 1
        lines = []
        while i < len(block) and not block[i].startswith('$ '):
            lines.append(block[i])
            i += 1
        out.append((cmd.split('#')[0].strip(), lines))
    return out


def matches(expected, actual):
    """Whether actual fits expected, each "..." taking any number of lines."""
    if not expected:
        return not actual
    if expected[0] == '...':
        return any(matches(expected[1:], actual[k:]) for k in range(len(actual) + 1))
    return bool(actual) and expected[0] == actual[0] and matches(expected[1:], actual[1:])


def fresh(where):
    shutil.rmtree(where, ignore_errors=True)
    os.makedirs(where)
    shutil.copytree(examples, os.path.join(where, 'examples'))
    for song in ('bassline_sketch', 'new_song'):
        shutil.copytree(os.path.join(examples, song), os.path.join(where, song))


def run(cmd, cwd):
    argv = cmd.split()
    argv[0] = os.path.join(build, argv[0])
    p = subprocess.run(argv, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return p.stdout.decode().split('\n')[:-1]


failures, checked = [], 0
fresh(work)
patterns_imported = False
for block in blocks(open(readme).read()):
    for cmd, expected in sessions(block):
        name = cmd.split()[0] if cmd else ''
        if name not in programs:
            continue
        if name == 'project_patch' and not patterns_imported:
            # The instruments come after the pattern imports of the examples.
            for args in ('--source_track 0 --target_track 0 --whole_track', '--source_track 1 --target_track 1 -p 02'):
                run('project_manager --project_src bassline_sketch --project_tgt new_song ' + args, work)
            patterns_imported = True
        if not expected:
            run(cmd, work)
            continue
        checked += 1
        actual = run(cmd, work)
        if not matches(expected, actual):
            failures.append(f'$ {cmd}\n--- README\n' + '\n'.join(expected) + '\n--- printed\n' + '\n'.join(actual))
        if name == 'project_inspect' and '--project_src' in cmd:
            fresh(work)

for f in failures:
    print('MISMATCH', f, sep='\n')
print(f'{checked} examples checked, {len(failures)} mismatches')
sys.exit(1 if failures or checked == 0 else 0)
