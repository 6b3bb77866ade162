"""Completion for bash: what it offers, and what the program is given after a key press.

Call: python3 tests/completion/bash_test.py
"""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import interactive

OPTIONS = ["--update", "--clear", "--stop", "--load", "--reload", "--restore-if-cfg",
           "--tariff-add", "--tariff-del", "--tariff-update", "--tariffs-del", "--global-update",
           "--global-del", "--stat", "--version", "--if-name"]
STORED = (" [ gold 4711 ] best\nid=4\nip=10.0.0.17\n[silver]\n\n[$(touch x)]\n[half\n[]\n[ ]\n"
          "aggregation=[none]\n[a'b\"c]\n[n]o]\n[ü;!|:=]\n[`\\]\n")
SCRIPT = r"""
source "$1"
_quenby_tariff_file() { printf '%s\n' "$PWD/tariffs.ini"; }
shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_quenby
((${#COMPREPLY[@]} == 0)) || printf '%s\0' "${COMPREPLY[@]}"
"""
NOBODY = 65534


class Completion(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = self.new_folder()
        # Another user need not be able to enter the folder that this tree lies in.
        self.script = shutil.copy(interactive.COMPLETION / "quenby.bash", self.new_folder())
        self.stored = self.folder / "tariffs.ini"
        self.stored.write_text(STORED)

    def new_folder(self):
        """One that everybody can read."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = pathlib.Path(folder.name)
        path.chmod(0o755)
        return path

    def offers(self, *words, **options):
        """The replies for the last of the words, the cursor being at its end."""
        done = subprocess.run(
            ["bash", "--norc", "-c", SCRIPT, "bash", self.script, "quenby", *words],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd=self.folder, **options)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return done.stdout.decode().split("\0")[:-1]

    def typed(self, keys):
        setup = ["PS1='> '", "source %s" % (interactive.COMPLETION / "quenby.bash"),
                 "_quenby_tariff_file() { echo tariffs.ini; }"]
        return interactive.typed(["bash", "--norc", "--noprofile", "-i"], setup, keys,
                                 self.folder)


class Options(Completion):
    def test_all(self):
        self.assertEqual(self.offers("--"), OPTIONS)
        self.assertEqual(self.offers("-"), OPTIONS)
        self.assertEqual(self.offers(""), OPTIONS)

    def test_prefix(self):
        self.assertEqual(self.offers("--ta"), ["--tariff-add", "--tariff-del", "--tariff-update",
                                               "--tariffs-del"])

    def test_after_others(self):
        self.assertEqual(self.offers("--stat", "--l"), ["--load"])
        self.assertEqual(self.offers("--if-name", "eth1", "--res"), ["--restore-if-cfg"])
        self.assertEqual(self.offers("--stat", ""), OPTIONS)
        self.assertEqual(self.offers("--if-name", "eth1", ""), OPTIONS)

    def test_no_other_words(self):
        self.assertEqual(self.offers("ta"), [])
        self.assertEqual(self.offers("--stat", "e"), [])
        self.assertEqual(self.offers("--if-name", "eth1", "/"), [])

    def test_none_after_two_dashes(self):
        self.assertEqual(self.offers("--load", "--", "--st"), [])


class Tariffs(Completion):
    QUOTED = [r"gold\ 4711", "silver", r"\$\(touch\ x\)", r"a\'b\"c", "n", r"ü\;\!\|\:\=",
              r"\`\\"]

    def test_names_as_the_program_reads_them(self):
        self.assertEqual(self.offers("--tariff-del", ""), self.QUOTED)

    def test_ways_to_write_the_option(self):
        for words in (["-tariff-del"], ["--tariff-d"], ["--tariff-del", "="]):
            with self.subTest(words):
                self.assertEqual(self.offers(*words, "go"), [r"gold\ 4711"])
        self.assertEqual(self.offers("--tariff-del", "="), self.QUOTED)

    def test_ambiguous_option(self):
        self.assertEqual(self.offers("--tariff", "si"), [])

    def test_argument_that_looks_like_an_option(self):
        self.assertEqual(self.offers("--tariff-del", "--stat", "si"), [])
        self.assertEqual(self.offers("--if-name", "--tariff-del", "si"), [])

    def test_between_quotes(self):
        self.assertEqual(self.offers("--tariff-del", "'"),
                         ["gold 4711", "silver", "$(touch x)", "a'\\''b\"c", "n", "ü;!|:=",
                          "`\\"])
        # Nothing keeps a "!" from being history between these.
        self.assertEqual(self.offers("--tariff-del", '"'),
                         ["gold 4711", "silver", r"\$(touch x)", "a'b\\\"c", "n", r"\`\\"])

    def test_missing_file(self):
        self.stored.unlink()
        self.assertEqual(self.offers("--tariff-del", ""), [])

    def test_unreadable_file(self):
        self.stored.chmod(0)
        other_user = {"user": NOBODY, "group": NOBODY} if os.geteuid() == 0 else {}
        self.assertEqual(self.offers("--tariff-del", "", **other_user), [])

    def test_folder_in_its_place(self):
        self.stored.unlink()
        self.stored.mkdir()
        self.assertEqual(self.offers("--tariff-del", ""), [])


class OtherArguments(Completion):
    def test_interfaces(self):
        devices = sorted(os.listdir("/sys/class/net"))
        self.assertIn("lo", devices)
        self.assertEqual(sorted(self.offers("--if-name", "")),
                         [name for name in devices if name != "bonding_masters"])
        self.assertEqual(self.offers("--if-name", "lo"), ["lo"])

    def test_files(self):
        (self.folder / "new").mkdir()
        for name in ("a b.ini", "new/first.ini", "new/second.ini"):
            (self.folder / name).touch()
        for option in ("--update", "--tariff-add", "--tariff-update", "--global-update"):
            with self.subTest(option):
                self.assertEqual(sorted(self.offers(option, "")), ["a b.ini", "new", "tariffs.ini"])
                self.assertEqual(sorted(self.offers(option, "new/")),
                                 ["new/first.ini", "new/second.ini"])
                self.assertEqual(self.offers(option, "=", "new/f"), ["new/first.ini"])


class KeyPress(Completion):
    def test_name_with_a_blank(self):
        for start in ("go", r"gold\ ", "'go", '"go', "'gold 4"):
            with self.subTest(start):
                self.assertEqual(self.typed("quenby --tariff-del %s\t\n" % start),
                                 ["--tariff-del", "gold 4711"])

    def test_name_after_an_equals_sign(self):
        self.assertEqual(self.typed("quenby --tariff-del=go\t\n"), ["--tariff-del=gold 4711"])

    def test_name_that_is_a_command(self):
        for start in (r"\$", "'$", r'"\$'):
            with self.subTest(start):
                self.assertEqual(self.typed("quenby --tariff-del %s\t\n" % start),
                                 ["--tariff-del", "$(touch x)"])
        self.assertFalse((self.folder / "x").exists())

    def test_file_with_a_blank(self):
        (self.folder / "new files").mkdir()
        (self.folder / "new files/a b.ini").touch()
        for start in ("ne\t", "new\\ files/", "'new files/", '"new files/'):
            with self.subTest(start):
                self.assertEqual(self.typed("quenby --tariff-add %s\t\n" % start),
                                 ["--tariff-add", "new files/a b.ini"])


if __name__ == "__main__":
    unittest.main()
