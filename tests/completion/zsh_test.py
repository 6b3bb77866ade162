"""Completion for zsh: what the program is given after a key press.

Call: python3 tests/completion/zsh_test.py
"""

import pathlib
import subprocess
import tempfile
import unittest

import interactive

STORED = " [ gold 4711 ] best\nid=4\n[silver]\n[$(touch x)]\n[half\n[]\n[a'b\"c]\n"
SETUP = ["PS1='> '", "unsetopt beep prompt_cr prompt_sp",
         "fpath=(%s $fpath)" % interactive.COMPLETION,
         "_quenby_tariff_file() { print -r -- $PWD/tariffs.ini }",
         "_quenbyctl_tariff_file() { print -r -- $PWD/tariffs.ini }",
         "autoload -Uz compinit", "compinit -u -D"]


class KeyPress(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.stored = self.folder / "tariffs.ini"
        self.stored.write_text(STORED)

    def given(self, keys, *words):
        """The program is given these words after the keys."""
        received = interactive.typed(["zsh", "-f", "-i"], SETUP, keys + "\n", self.folder)
        self.assertEqual(received, list(words))

    def test_syntax(self):
        subprocess.run(["zsh", "-n", interactive.COMPLETION / "_quenby"], check=True)

    def test_options(self):
        for keys, option in (("--st\t", "--st"), ("--sta\t", "--stat"), ("--ver\t", "--version"),
                             ("--load --rel\t", "--reload"), ("--ta\t", "--tariff")):
            with self.subTest(keys):
                self.given("quenby " + keys, *keys.split()[:-1], option)

    def test_option_that_was_given_already(self):
        self.given("quenby --load --lo\t", "--load", "--load")

    def test_tariffs(self):
        for start, name in (("go", "gold 4711"), ("gold\\ ", "gold 4711"), ("'go", "gold 4711"),
                            ("si", "silver"), ("\\$", "$(touch x)"), ("'$", "$(touch x)"),
                            ("a", "a'b\"c"), ("half", "half")):
            with self.subTest(start):
                self.given("quenby --tariff-del %s\t" % start, "--tariff-del", name)
        self.assertFalse((self.folder / "x").exists())

    def test_tariffs_of_the_other_program(self):
        for keys, words in (("plan tariff-del go\t", ("plan", "tariff-del", "gold 4711")),
                            ("apply --confirm=60 tariff-del si\t",
                             ("apply", "--confirm=60", "tariff-del", "silver")),
                            ("--ver\t", ("--version",))):
            with self.subTest(keys):
                self.given("quenbyctl " + keys, *words)

    def test_tariff_after_an_equals_sign(self):
        self.given("quenby --tariff-del=go\t", "--tariff-del=gold 4711")

    def test_missing_file(self):
        self.stored.unlink()
        self.given("quenby --tariff-del go\t", "--tariff-del", "go")

    def test_folder_in_its_place(self):
        self.stored.unlink()
        self.stored.mkdir()
        self.given("quenby --tariff-del go\t", "--tariff-del", "go")

    def test_interfaces(self):
        self.given("quenby --if-name l\t", "--if-name", "lo")

    def test_files(self):
        (self.folder / "new files").mkdir()
        (self.folder / "new files/a b.ini").touch()
        for option in ("--update", "--tariff-add", "--tariff-update", "--global-update"):
            with self.subTest(option):
                self.given("quenby %s new\\ files/\t" % option, option, "new files/a b.ini")

    def test_no_other_words(self):
        self.given("quenby --stat tar\t", "--stat", "tar")
        self.given("quenby -- --st\t", "--", "--st")


if __name__ == "__main__":
    unittest.main()
