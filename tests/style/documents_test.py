#!/usr/bin/env python3
"""Checks tests/style/documents with small repositories made for it: what it takes
and what it refuses, line by line."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

CHECKER = Path(__file__).with_name("documents")

OPTIONS = """    {"load", no_argument, nullptr, kLoad},
    {"tariff-add", required_argument, nullptr, kTariffAdd},
    {nullptr, 0, nullptr, 0},
"""


class DocumentsTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.top = Path(self.folder.name)
        self.write("cli/options.cpp", OPTIONS)
        self.write("model/rate.h", "")
        self.write("scripts/run", "#!/bin/sh\n", 0o755)
        self.write("scripts/packages.sh", "", 0o644)
        self.write("docs/other.md", "# Other\n\n## Two words, `code`\n\n## Same\n\n## Same\n")
        self.write(".gitignore", "/build/\n")

    def write(self, name, text, mode=0o644):
        path = self.top / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(mode)

    def run_checker(self, text, name="README.md"):
        """Status and faults for a repository whose document `name` holds `text`."""
        self.write(name, text)
        run = subprocess.run([sys.executable, "-B", str(CHECKER), str(self.top)],
                             capture_output=True, text=True, check=False)
        self.assertEqual(run.stderr, "")
        *faults, summary = run.stdout.splitlines()
        self.assertTrue(summary.endswith(f" documents, {len(faults)} faults"), summary)
        return run.returncode, faults

    def accepts(self, text, name="README.md"):
        self.assertEqual(self.run_checker(text, name), (0, []), text)

    def refuses(self, text, *faults, name="README.md"):
        self.assertEqual(self.run_checker(text, name), (1, list(faults)), text)


class LinkTest(DocumentsTest):
    def test_accepts(self):
        for text in ("[a](docs/other.md)", "[a](docs)", "[a](/docs/other.md)", "[a](docs/other.md#other)",
                     "[a](docs/other.md#two-words-code)", "[a](docs/other.md#same-1)",
                     "# Here it is\n\n[a](#here-it-is)", "[a](https://example.org/none.md)",
                     "[a](mailto:nobody@example.org)", "[a]: docs/other.md", "`[a](none.md)`",
                     "    [a](none.md)", "```\n[a](none.md)\n```", '[a](docs/other.md "title")'):
            self.accepts(text)

    def test_is_relative_to_the_document(self):
        self.accepts("[a](../model/rate.h)", name="docs/more.md")
        self.refuses("[a](model/rate.h)", "docs/more.md:1: link to model/rate.h: no such file",
                     name="docs/more.md")

    def test_refuses(self):
        for target, fault in (("none.md", "no such file"), ("docs/none.md#other", "no such file"),
                              ("docs/other.md#none", "no such heading"), ("#none", "no such heading"),
                              ("docs/other.md#same-2", "no such heading"),
                              ("model/rate.h#l1", "no such heading")):
            self.refuses(f"text\n[a]({target})", f"README.md:2: link to {target}: {fault}")
        self.refuses("[a]: none.md", "README.md:1: link to none.md: no such file")

    def test_headings_in_code_are_none(self):
        self.refuses("```\n# Code\n```\n[a](#code)", "README.md:4: link to #code: no such heading")


class PathTest(DocumentsTest):
    def test_accepts(self):
        for text in ("`model/rate.h`", "`model/`", "`model/*.h`", "`docs/other.md` and `scripts/run`",
                     "`none/rate.h`", "`rate.h`", "`build/none`", "model/none.h", "``model/rate.h``",
                     "`scripts/packages.sh`", "    `model/none.h`"):
            self.accepts(text)

    def test_refuses(self):
        for path in ("model/none.h", "model/none/", "model/*.cpp", "cli/rate.h", "scripts/none"):
            self.refuses(f"a\n\nb `{path}` c", f"README.md:3: path {path}: does not exist")


class OptionTest(DocumentsTest):
    def test_accepts(self):
        for text in ("    quenby --load", "```\nquenby --tariff-add FILE --load\n```", "`quenby -load`",
                     "    build/dev/quenby --load    # not --none", "    quenby --load | grep --none x",
                     "    cache/quenby.sh --none", "    A=b/quenby run --none", "quenby --none",
                     "    quenby"):
            self.accepts(text)

    def test_refuses(self):
        fault = "README.md:1: option --none: quenby has none of this name"
        for text in ("    quenby --none", "    sudo quenby --load --none", "`quenby --none`",
                     "    true && build/dev/quenby --none x", "    quenby --load; quenby --none"):
            self.refuses(text, fault)
        self.refuses("```\nquenby --tariff\n```",
                     "README.md:2: option --tariff: quenby has none of this name")


class ScriptTest(DocumentsTest):
    def test_accepts(self):
        for text in ("    scripts/run", "    ./scripts/run -x", "```\nscripts/run\n```", "`scripts/run x`",
                     "    source scripts/packages.sh"):
            self.accepts(text)

    def test_refuses(self):
        for text in ("    scripts/packages.sh x", "    $ scripts/packages.sh", "`scripts/packages.sh x`",
                     "    true && scripts/packages.sh"):
            self.refuses(text,
                         "README.md:1: command scripts/packages.sh: not an executable file")
        self.refuses("    scripts/none", "README.md:1: command scripts/none: not an executable file")


class MachinePathTest(DocumentsTest):
    def test_accepts(self):
        for text in ("`/config/tc`", "/proc and /sys/class/net", "bytes/s, 10.0.0.0/8, and/or",
                     "0x1/0x2", "a / b", "<b>x</b>", "https://example.org/home", "~/x", "$HOME/x"):
            self.accepts(text)

    def test_refuses(self):
        for text, first in (("see /home/me/x", "/home"), ("`/root`", "/root"), ("    cd /mnt/x", "/mnt"),
                            ("(/Users/me)", "/Users"), ("```\n/srv/build\n```", "/srv")):
            line = 2 if text.startswith("```") else 1
            self.refuses(text, f"README.md:{line}: path {first}: not one of a router")


class RepositoryTest(DocumentsTest):
    def test_ignored_folders_are_not_read(self):
        self.write("build/none.md", "[a](none)")
        self.accepts("text")

    def test_needs_the_option_table(self):
        self.write("cli/options.cpp", "")
        run = subprocess.run([sys.executable, "-B", str(CHECKER), str(self.top)],
                             capture_output=True, text=True, check=False)
        self.assertEqual((run.returncode, run.stdout), (2, ""))
        self.assertEqual(run.stderr, f"{self.top.resolve()}: no documents or no option table\n")


if __name__ == "__main__":
    unittest.main()
