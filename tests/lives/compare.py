#!/usr/bin/env python3
"""Checks that two builds of the library behave the same in random programs, and the first one with
the profile on as well.

usage: compare.py FIRST SECOND [--seeds N] [--from SEED] [--keep]

Runs the lives of N seeds, 200 by default, in all three ways, and compares all files that they
leave, and how they end. --keep leaves the folders of the first life that differs.
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

SECONDS = 40  # of a life that hangs

# Beside all other output, the profile tells people of misuse.
MISUSE = re.compile(rb"^qkmem: .* \(event [\d,]+\): .*\n", re.MULTILINE)


def live(program, seed, folder, environment):
    """Runs one life in an empty folder, with nothing else in the environment."""
    folder.mkdir(parents=True)
    with open(folder / "stdout.txt", "wb") as out, open(folder / "stderr.txt", "wb") as err:
        process = subprocess.Popen([program, str(seed)], cwd=folder, env=environment, stdout=out, stderr=err,
                                   stdin=subprocess.DEVNULL, start_new_session=True)
    try:
        end = process.wait(SECONDS)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        end = "hung"
    (folder / "end.txt").write_text(f"{end}\n")


def first_difference(name, one, other):
    """The lines around the first one that differs."""
    one, other = one.splitlines(), other.splitlines()
    at = next((i for i, pair in enumerate(zip(one, other)) if pair[0] != pair[1]),
              min(len(one), len(other)))
    show = lambda lines: b"\n".join(lines[at:at + 3]).decode(errors="replace")
    before = b"\n".join(one[max(0, at - 5):at]).decode(errors="replace")
    return f"{name}:{at + 1}, after\n{before}\n--- first\n{show(one)}\n--- second\n{show(other)}"


def differences(one, other):
    """What differs between the files of two folders, one text for each."""
    names = sorted({path.name for folder in (one, other) for path in folder.iterdir()})
    for name in names:
        texts = [(folder / name).read_bytes() if (folder / name).exists() else None
                 for folder in (one, other)]
        if None in texts:
            yield f"{name} is missing in the {'first' if texts[0] is None else 'second'}"
        elif texts[0] != texts[1]:
            yield first_difference(name, *texts)


def compare(programs, seed, root):
    """Returns the seed, what differs, and the bytes that were compared."""
    ways = {"first": (programs[0], {}), "second": (programs[1], {}),
            "profiled": (programs[0], {"QK_MEM_PROFILE": "SITES PEAK REPORT=/dev/null"})}
    folders = [root / str(seed) / name for name in ways]
    for folder, (program, environment) in zip(folders, ways.values()):
        live(program, seed, folder, environment)
        if environment:
            errors = folder / "stderr.txt"
            errors.write_bytes(MISUSE.sub(b"", errors.read_bytes()))
    size = sum(path.stat().st_size for path in folders[0].iterdir())
    found = [f"{folder.name}: {text}" for folder in folders[1:]
             for text in differences(folders[0], folder)]
    if not found:
        shutil.rmtree(root / str(seed))
    return seed, found, size


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("programs", nargs=2, type=pathlib.Path)
    parser.add_argument("--seeds", type=int, default=200)
    parser.add_argument("--from", dest="first", type=int, default=1)
    parser.add_argument("--keep", action="store_true")
    args = parser.parse_args()
    programs = [program.resolve() for program in args.programs]
    root = pathlib.Path(tempfile.mkdtemp(prefix="lives-"))
    seeds = range(args.first, args.first + args.seeds)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(lambda seed: compare(programs, seed, root), seeds))
    size = sum(result[2] for result in results)
    wrong = [result for result in results if result[1]]
    for seed, found, _ in wrong[:1]:
        print(f"seed {seed}:\n" + "\n\n".join(found[:3]))
    print(f"{len(wrong)} of {len(results)} lives differ; {size} bytes compared")
    if wrong:
        print("seeds:", *[result[0] for result in wrong[:20]])
    if wrong and args.keep:
        print(f"folders: {root / str(wrong[0][0])}")
    else:
        shutil.rmtree(root)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
