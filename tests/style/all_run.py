#!/usr/bin/env python3
"""Every test runs: each test file is one that ctest starts or compiles, and none can be skipped or
turned off, as ctest counts such a test as passed.

Call: tests/style/all_run.py BUILD_FOLDER
"""

import json
import pathlib
import re
import subprocess
import sys

TREE = pathlib.Path(__file__).resolve().parents[2]
TESTS = TREE / "tests"

# Words in a test that would make it pass without running.
_SKIPS = re.compile(r"GTEST_SKIP|\bDISABLED_|skipTest|SkipTest|unittest\.skip|skip(If|Unless)\(|"
                    r"expectedFailure|SKIP_RETURN_CODE|\bexit 77\b")
_SOURCES = (".py", ".sh", ".cpp", ".h", ".txt")


def relative(path):
    return path.relative_to(TREE)


def known_tests(folder):
    text = subprocess.run(["ctest", "--test-dir", folder, "--show-only=json-v1"],
                          stdout=subprocess.PIPE, check=True, text=True).stdout
    return json.loads(text)["tests"]


def not_compiled():
    """C++ tests that no CMakeLists.txt beside them names."""
    for path in TESTS.glob("*/*_test.cpp"):
        words = (path.parent / "CMakeLists.txt").read_text(encoding="utf-8").split()
        if path.name not in [word.strip("()") for word in words]:
            yield f"{relative(path)} is not compiled"


def not_started(tests):
    """Scripts that neither ctest starts nor a script beside them that it starts."""
    words = {word for test in tests for word in test.get("command", ())}
    started = {str(pathlib.Path(word).name) for word in words} | words
    scripts = [*TESTS.glob("*/*_test.sh"), *TESTS.glob("*/*_test.py")]
    for path in scripts:
        callers = [other for other in path.parent.glob("*.sh") if other.name in started]
        if path.name not in started and not any(
                str(relative(path)) in other.read_text(encoding="utf-8") for other in callers):
            yield f"{relative(path)} is never started"
    for path in TESTS.glob("program/test_*.py"):
        if path.stem not in started:
            yield f"{relative(path)} is never started"


def without_tests():
    """unittest passes when it finds no test. Some are made of a table."""
    a_test = re.compile(r"^    def test_\w+\(self|^ +setattr\(\w+, *\S*test", re.M)
    for path in [*TESTS.glob("*/*_test.py"), *TESTS.glob("program/test_*.py")]:
        if not a_test.search(path.read_text(encoding="utf-8")):
            yield f"{relative(path)} has no test"


def skipped(tests):
    for test in tests:
        if test["name"].endswith("_NOT_BUILT"):
            yield f"{test['name']}: its tests are unknown"
        for entry in test["properties"]:
            if entry["name"] in ("DISABLED", "SKIP_RETURN_CODE"):
                yield f"{test['name']}: {entry['name']}"
    for path in sorted(TESTS.rglob("*")):
        if path.suffix not in _SOURCES or path == pathlib.Path(__file__).resolve():
            continue
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            if _SKIPS.search(line):
                yield f"{relative(path)}:{number}: a test that may be skipped: {line.strip()}"


def main(folder):
    tests = known_tests(folder)
    findings = [*not_compiled(), *not_started(tests), *without_tests(), *skipped(tests)]
    print("\n".join(findings))
    return 1 if findings else 0


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1]))
