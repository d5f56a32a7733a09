"""The work directory of an end-to-end case, as the runner lays it out: the
case's src/ and tgt/ trees, its work/ files, then its setup lines
("mkdir P", "file P" for an empty file, "rm P")."""
import os
import shutil


def prepare_case(case_dir, work, setup_lines):
    if os.path.lexists(work):
        shutil.rmtree(work)
    os.makedirs(work)
    for proj in ("src", "tgt"):
        if os.path.isdir(os.path.join(case_dir, proj)):
            shutil.copytree(os.path.join(case_dir, proj), os.path.join(work, proj))
    if os.path.isdir(os.path.join(case_dir, "work")):
        shutil.copytree(os.path.join(case_dir, "work"), work, dirs_exist_ok=True)
    for line in setup_lines:
        verb, _, rel = line.partition(" ")
        p = os.path.join(work, rel)
        if verb == "mkdir":
            os.makedirs(p, exist_ok=True)
        elif verb == "file":
            os.makedirs(os.path.dirname(p), exist_ok=True)
            open(p, "wb").close()
        elif verb == "rm":
            if os.path.isdir(p):
                shutil.rmtree(p)
            elif os.path.lexists(p):
                os.remove(p)


def setup_lines(case_dir):
    path = os.path.join(case_dir, "setup")
    if not os.path.isfile(path):
        return []
    with open(path, "rb") as f:
        return [l for l in f.read().decode("latin-1").split("\n") if l]
