#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz harnesses from the end-to-end fixtures.

    fuzz/make_corpus.py

Each seed is the harness's selector byte followed by a text or a file that a
case of tests/e2e/cases holds. The seeds are kept small and in the repo.
"""
import glob
import hashlib
import os

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CASES = os.path.join(ROOT, 'tests', 'e2e', 'cases')
OUT = os.path.join(ROOT, 'fuzz', 'corpus')


def put(harness, data):
    d = os.path.join(OUT, harness)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, hashlib.sha1(data).hexdigest()[:16]), 'wb') as f:
        f.write(data)


def first(pattern):
    files = sorted(glob.glob(os.path.join(CASES, pattern), recursive=True))
    return open(files[0], 'rb').read() if files else b''


TEXTS = [b'', b'00', b'zz', b'1Z', b'\x04\x04', b'\xf9\xf9', b'C-4', b'A#3', b'[ ]', b' +5', b'-12', b'050%',
         b'streL0a7f', b'bpm\xb0120\xb0\xb0', b'Cif\xb01:2', b'loadACCUM\xb0', b'cmp\xe0IDX_X\xf3', b'exopbpm\xb0',
         b'L0a\xb0\xb0\xb0', b'#   42', b'\x0fsrow\x10', b'tri', b'*2/3', b'amen', b'MonoSampler']
NUM_CELLS = 62
for i in range(NUM_CELLS):
    put('fuzz_cells', bytes([i]) + TEXTS[i % len(TEXTS)])
for t in TEXTS + [b'name a b\\', b'\\x20\\xb0\\x', b'\\q\\']:
    put('fuzz_escape', t)

settings = [first('*/tgt/project_settings.txt') or open(os.path.join(ROOT, 'tests/e2e/initial/project_settings.txt'), 'rb').read(),
            open(os.path.join(ROOT, 'tests/e2e/initial/track_00/track_settings.txt'), 'rb').read(),
            open(os.path.join(ROOT, 'tests/e2e/initial/track_00/track_callbacks.txt'), 'rb').read(),
            open(os.path.join(ROOT, 'tests/e2e/initial/track_00/mix_settings.txt'), 'rb').read(),
            open(os.path.join(ROOT, 'tests/e2e/initial/track_00/mix_modulation_mappings.txt'), 'rb').read(),
            first('*/tgt/patterns/pattern_*.txt'), first('tp_*/tgt/tables/table_*.txt'),
            first('tp_*/tgt/programs/program_*.txt'), first('pt_*/tgt/fx_patches/fx_patch_*.txt'),
            first('*/tgt/program_variables/program_variable_*.txt'), b'chord_memory[3][0] 5\n',
            first('pt_*/tgt/track_03/patch_05.txt')]
for i, data in enumerate(settings):
    put('fuzz_settings', bytes([i]) + data)
for i, name in enumerate(['pt_mono*/tgt/track_*/patch_*.txt', 'pt_poly*/tgt/track_*/patch_*.txt',
                          'pt_fm*/tgt/track_*/patch_*.txt', 'pt_*/tgt/track_00/modulation_00.txt']):
    put('fuzz_settings', bytes([12 + i]) + first(name))

files = [first('sequencer_file_messages/tgt/sequencer.txt'), open(os.path.join(ROOT, 'tests/e2e/initial/track_00/track_settings.txt'), 'rb').read(),
         first('patterns_of_nine_types_survive/tgt/patterns/pattern_01.txt'), first('tp_*/tgt/tables/table_00.txt'),
         first('tp_*/tgt/programs/program_00.txt'), first('tp_memory*/tgt/chord_memory.txt'),
         first('tp_memory*/tgt/modulation_memory.txt'), first('pt_*/tgt/track_*/patch_00.txt'),
         first('pt_*/tgt/fx_patches/fx_patch_*.txt')]
for i, data in enumerate(files):
    put('fuzz_files', bytes([i]) + data)
for t in range(9):
    put('fuzz_files', bytes([7 + 9 * t]) + first('pt_*/tgt/track_*/modulation_*.txt'))

# Whole runs: the request line, then every file of the case's two trees.
def request_line(args):
    opts = {'--source_track': '-1', '--target_track': None, '--seq_target_offset': '0'}
    names, whole, i = [], False, 0
    while i < len(args):
        a = args[i]
        if a in opts and i + 1 < len(args):
            opts[a] = args[i + 1]
            i += 2
        elif a in ('-p', '--pattern') and i + 1 < len(args):
            names += args[i + 1].split(',')
            i += 2
        elif a == '--whole_track':
            whole = True
            i += 1
        else:
            i += 1
    if opts['--target_track'] is None:
        return None
    mode = 'W' if whole else 'L'
    return ' '.join([mode, opts['--source_track'], opts['--target_track'], opts['--seq_target_offset']] + names)


for case in sorted(glob.glob(os.path.join(CASES, '*'))):
    args_file = os.path.join(case, 'args')
    if not os.path.exists(args_file):
        continue
    line = request_line(open(args_file, encoding='latin-1').read().split('\n'))
    if line is None:
        continue
    seed = line.encode('latin-1') + b'\n'
    for side in ('src', 'tgt'):
        root = os.path.join(case, side)
        for path in sorted(glob.glob(os.path.join(root, '**', '*'), recursive=True)):
            if os.path.isfile(path):
                rel = os.path.relpath(path, root)
                seed += b'@' + side[0].encode() + b'/' + rel.encode() + b'\n' + open(path, 'rb').read()
    if len(seed) <= 32768:
        put('fuzz_run', seed)
