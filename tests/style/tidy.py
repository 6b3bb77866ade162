#!/usr/bin/env python3
"""Every source file of the program passes clang-tidy.

The files of a layer are read together, in the batches in which they are compiled: most of the
time would go into the headers that they share. A batch is written as one file, since the analyzer
passes over functions that are included; its shallow mode takes a third of the time.

Call: tests/style/tidy.py     (in the top folder)
"""

import concurrent.futures
import json
import pathlib
import re
import subprocess
import sys
import tempfile

TREE = pathlib.Path.cwd()
LAYERS = ("cli", "ctl", "model", "config", "tc", "shaper")
INCLUDED = re.compile(r'^#include "(/.*\.cpp)"$', re.M)
SHALLOW = [f"--extra-arg={word}"
           for word in ("-Xclang", "-analyzer-config", "-Xclang", "mode=shallow")]


def configure(folder):
    done = subprocess.run(["cmake", "--preset", "asan", "-B", folder, "-DQUENBY_TESTS=OFF"],
                          capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(done.stdout + done.stderr)


class Batch:
    """A file that the compiler is given, and the place of each of its lines."""

    def __init__(self, path):
        self.path = path
        sources = INCLUDED.findall(pathlib.Path(path).read_text()) or [path]
        self.places = [(source, number) for source in sources for number, _ in
                       enumerate(pathlib.Path(source).read_text().splitlines(), 1)]
        if sources != [path]:
            pathlib.Path(path).write_text("".join(pathlib.Path(s).read_text() for s in sources))

    def sources(self):
        return {source for source, _ in self.places}

    def translated(self, text):
        """Places in the batch become those in its sources."""
        return re.sub(rf"^{re.escape(self.path)}:(\d+):",
                      lambda match: "%s:%d:" % self.places[int(match[1]) - 1], text, flags=re.M)

    def check(self, folder):
        """Whether all is well, and what is not."""
        done = subprocess.run(["clang-tidy-14", "--quiet", "-p", folder, "--config-file=.clang-tidy",
                               *SHALLOW, self.path],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                              check=False)
        return done.returncode == 0, self.translated(done.stdout)


def main():
    with tempfile.TemporaryDirectory(prefix="quenby-tidy.") as folder:
        configure(folder)
        with open(f"{folder}/compile_commands.json", encoding="utf-8") as commands:
            batches = [Batch(entry["file"]) for entry in json.load(commands)]
        read = set().union(*(batch.sources() for batch in batches))
        wanted = {str(path) for layer in LAYERS for path in (TREE / layer).glob("**/*.cpp")}
        if read != wanted:
            sys.exit(f"Error: not read, or no source: {sorted(read ^ wanted)}")
        # The longest first, so that neither processor is left without work at the end.
        batches.sort(key=lambda batch: len(batch.places), reverse=True)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            results = list(pool.map(lambda batch: batch.check(folder), batches))
    print("".join(text for _, text in results), end="")
    sys.exit(not all(well for well, _ in results))


main()
