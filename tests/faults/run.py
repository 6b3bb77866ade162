#!/usr/bin/env python3
"""Puts deliberate faults into the sources, one at a time, and tells which unit test catches each.

Call: tests/faults/run.py [--check] [WORD...]

With words, only the faults whose names contain one of them. With --check nothing is built: each
fault's text has to stand in its file exactly once. Status 1 when a fault is not caught, does not
compile or does not apply. The faults are those of faults.txt; work goes on in build/faults.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

TREE = pathlib.Path(__file__).resolve().parents[2]
LIST = pathlib.Path(__file__).with_name("faults.txt")
COPY = TREE / "build/faults/source"
BUILD = TREE / "build/faults/build"

# The tests that are likely to notice a fault of a layer, first. The others follow.
PROGRAMS = ("model_test", "tc_test", "shaper_test", "golden", "ini_test", "stored_files_test",
            "cli_test", "process_test", "ctl_test")
LIKELY = {"config": ("ini_test", "stored_files_test"), "cli": ("cli_test", "process_test"),
          "ctl": ("ctl_test",), "shaper": ("shaper_test", "golden"), "tc": ("tc_test", "golden")}
SECONDS = 120


def faults():
    """Name, file, text and other text of each entry."""
    for entry in LIST.read_text(encoding="utf-8").split("\n\n"):
        lines = [line for line in entry.strip("\n").split("\n") if not line.startswith("#")]
        if lines and lines != [""]:
            name, place = lines[0], lines[1]
            without, instead = (line[2:] for line in (lines[2], lines[3]))
            yield name, place, without, instead


def changed(tree, fault):
    """The text of the faulty file; none when the fault does not apply."""
    _, place, without, instead = fault
    text = (tree / place).read_text(encoding="utf-8")
    return text.replace(without, instead) if text.count(without) == 1 else None


def copy_sources():
    """Brings the copy up to date; files that are the same keep their times."""
    names = subprocess.run(["git", "-C", TREE, "ls-files", "-z", "-co", "--exclude-standard"],
                           check=True, stdout=subprocess.PIPE, text=True).stdout.split("\0")
    for name in filter(None, names):
        source, target = TREE / name, COPY / name
        if source.is_file() and not (target.is_file() and
                                     target.read_bytes() == source.read_bytes()):
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)


def configure():
    subprocess.run(["cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                    "-DCMAKE_CXX_FLAGS=-O0 -D_GLIBCXX_ASSERTIONS"],
                   check=True, stdout=subprocess.DEVNULL)


def built(program):
    return subprocess.run(["cmake", "--build", BUILD, "--target", program],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                          text=True)


def failure(program):
    """The first test of a program that fails; none when all pass."""
    try:
        result = subprocess.run([BUILD / program, "--gtest_fail_fast"],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                                timeout=SECONDS, text=True, errors="replace", cwd=COPY)
    except subprocess.TimeoutExpired:
        return "a test that does not end"
    if result.returncode == 0:
        return None
    # A test that ends the program is the last one that began.
    failed = re.findall(r"^\[  FAILED  \] ([\w./]+)", result.stdout, re.M)
    begun = re.findall(r"^\[ RUN      \] ([\w./]+)", result.stdout, re.M)
    return [*failed, *begun[-1:], f"status {result.returncode}"][0]


def verdict(fault):
    """Whether the fault is caught, and by what."""
    likely = LIKELY.get(fault[1].split("/")[0], ())
    for program in [*likely, *(other for other in PROGRAMS if other not in likely)]:
        result = built(program)
        if result.returncode != 0:
            return False, "does not compile: " + "".join(
                re.findall(r"error: .*", result.stdout)[:1])
        test = failure(program)
        if test is not None:
            return True, f"{program}: {test}"
    return False, "NOT CAUGHT"


def try_out(fault):
    place = COPY / fault[1]
    sound = place.read_text(encoding="utf-8")
    text = changed(COPY, fault)
    if text is None:
        return False, "does not apply"
    place.write_text(text, encoding="utf-8")
    try:
        return verdict(fault)
    finally:
        place.write_text(sound, encoding="utf-8")


def check(wanted):
    wrong = [fault[0] for fault in wanted if changed(TREE, fault) is None]
    for name in wrong:
        print(f"{name}: does not apply")
    return 1 if wrong else 0


def run(wanted):
    copy_sources()
    configure()
    for program in PROGRAMS:
        result = built(program)
        if result.returncode != 0 or failure(program) is not None:
            sys.exit(f"{program} does not pass without a fault\n{result.stdout[-2000:]}")
    caught = 0
    for fault in wanted:
        start = time.monotonic()
        is_caught, by = try_out(fault)
        caught += is_caught
        print(f"{fault[0]} ({fault[1]}): {by} [{time.monotonic() - start:.0f} s]", flush=True)
    print(f"{caught} of {len(wanted)} caught")
    return 0 if caught == len(wanted) else 1


def main(arguments):
    words = [word for word in arguments if word != "--check"]
    wanted = [fault for fault in faults()
              if not words or any(word in fault[0] for word in words)]
    if not wanted:
        sys.exit("no such fault")
    return check(wanted) if "--check" in arguments else run(wanted)


if __name__ == "__main__":
    os.umask(0o022)
    sys.exit(main(sys.argv[1:]))
