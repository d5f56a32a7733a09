#!/usr/bin/env python3
"""project_inspect colours the way terminal tools do: with --color auto (the
default) only when standard output is a terminal and NO_COLOR is unset or
empty; --color always and never decide alone, whatever the output and the
environment. Runs the report of one example project on a pseudo-terminal and
on a pipe.

usage: colour_rules.py PROJECT_INSPECT PROJECT_DIR
"""
import os
import pty
import subprocess
import sys

inspect, project = sys.argv[1:3]
ESC = b'\x1b['


def run(args, terminal, no_color):
    env = {k: v for k, v in os.environ.items() if k != 'NO_COLOR'}
    if no_color is not None:
        env['NO_COLOR'] = no_color
    if not terminal:
        return subprocess.run([inspect] + args + [project], env=env, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL).stdout
    leader, follower = pty.openpty()
    p = subprocess.Popen([inspect] + args + [project], env=env, stdout=follower, stderr=subprocess.DEVNULL)
    os.close(follower)
    out = b''
    while True:
        try:
            chunk = os.read(leader, 65536)
        except OSError:  # the other end is closed
            break
        if not chunk:
            break
        out += chunk
    p.wait()
    os.close(leader)
    return out


failures = []
for args, terminal, no_color, coloured in [
        ([], True, None, True),
        ([], True, '', True),
        ([], True, '1', False),
        ([], False, None, False),
        (['--color', 'auto'], True, None, True),
        (['--color', 'auto'], True, '1', False),
        (['--color', 'always'], False, None, True),
        (['--color', 'always'], True, '1', True),
        (['--color', 'never'], True, None, False),
        (['--color', 'never'], False, None, False)]:
    out = run(args, terminal, no_color)
    if not out.startswith(b'project '):
        failures.append(f'{args} terminal={terminal} NO_COLOR={no_color!r}: no report: {out[:80]!r}')
    elif (ESC in out) != coloured:
        failures.append(f'{args} terminal={terminal} NO_COLOR={no_color!r}: '
                        f'{"escape codes" if ESC in out else "no escape codes"}, expected the other')
for f in failures:
    print('FAIL', f)
print(f'{len(failures)} failures')
sys.exit(1 if failures else 0)
