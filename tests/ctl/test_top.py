"""`quenbyctl top` where it needs no classes: what it prints once, and terminals that it cannot use.
The WAN interface is "lo", which holds no classes."""

import json
import os
import pty
import re
import select
import subprocess
import time

import surroundings as s
from surroundings import TARIFF_FILE

LINE = "[global]\nwan=lo\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
TARIFFS = "[a]\nid=4\nip=10.0.0.1\ndownload_speed=1000\nupload_speed=500\n" \
          "[K\u00e4the]\nid=5\nip=10.0.0.2\ndownload_speed=2000\nupload_speed=64\n"


def top(*arguments, **options):
    return s.run("top", "--interval", "0.1", *arguments, program="/quenbyctl", **options)


class Top(s.SurroundingsTest):
    def setUp(self):
        super().setUp()
        self.store(LINE, TARIFFS)


class Once(Top):
    def lines(self, *arguments, language="C.UTF-8"):
        result = top("--once", *arguments, env=dict(os.environ, LC_ALL=language))
        self.assertEqual((result.status, result.err), (0, ""), result)
        return result.out.splitlines()

    def test_the_screen(self):
        lines = self.lines()
        self.assertRegex(lines.pop(0),
                         r"^quenbyctl top  \d\d:\d\d:\d\d  every 0\.1 s  2 tariffs$")
        self.assertEqual(lines, [
            "upload   on lo: missing in the kernel",
            "download on ifb_ingr: missing in the kernel",
            "NAME                WAY   BIT/S CEILING              SHARE  PKT/S DROP/S BACKLOG",
            "system              up        -   5.00M [          ]     -      -      -       -",
            "K\u00e4the               up        -   64.0k [          ]     -      -      -       -",
            "a                   up        -    500k [          ]     -      -      -       -",
            "system              down      -   10.0M [          ]     -      -      -       -",
            "K\u00e4the               down      -   2.00M [          ]     -      -      -       -",
            "a                   down      -   1.00M [          ]     -      -      -       -"])

    def test_order_and_filter(self):
        names = [line.split()[0] for line in self.lines("--sort", "name", "--filter", "A")[4:]]
        self.assertEqual(names, ["a", "a"])

    def test_without_utf_8(self):
        self.assertIn("K?the ", "\n".join(self.lines(language="C")))

    def test_json(self):
        found = json.loads(top("--json", "--filter", "10.0.0.2").out)
        self.assertEqual([(c["direction"], c["number"], c["present"]) for c in found["classes"]],
                         [("upload", 5, False), ("download", 5, False)])
        self.assertEqual([line["name"] for line in found["lines"]], ["root", "root"])
        self.assertGreaterEqual(found["seconds"], 0.1)

    def test_switched_off(self):
        self.store(s.DISABLED, TARIFFS)
        lines = self.lines()
        self.assertIn("shaping is not enabled", lines[0])
        self.assertEqual(lines[1:3], ["upload   not shaped", "download not shaped"])
        self.assertEqual(len(lines), 4)

    def test_refused_files(self):
        TARIFF_FILE.write_text("wrong\n")
        result = top("--once")
        self.assertEqual((result.status, result.out), (1, ""))
        self.assertIn("quenby refuses this: wrong current tariff configuration", result.err)


class Calls(Top):
    def test_wrong_ones(self):
        for options in (("--interval", "0"), ("--interval", "x"), ("--sort", "size"), ("x",)):
            result = s.run("top", *options, program="/quenbyctl")
            self.assertEqual((result.status, result.out), (2, ""), result)

    def test_without_a_terminal(self):
        result = top()
        self.assertEqual(result, s.Result(
            2, "", "quenbyctl: the live screen needs a terminal; --once prints it\n"))


class Terminals(Top):
    """On a terminal of our own."""

    def start(self, terminal):
        ours, theirs = pty.openpty()
        process = subprocess.Popen(["/quenbyctl", "top", "--interval", "0.1"], stdin=theirs,
                                   stdout=theirs, stderr=subprocess.PIPE, start_new_session=True,
                                   env=dict(os.environ, TERM=terminal))
        os.close(theirs)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.addCleanup(process.stderr.close)
        return ours, process

    def test_of_an_unknown_type(self):
        ours, process = self.start("no-such-terminal")
        self.addCleanup(os.close, ours)
        self.assertEqual(process.wait(30), 2)
        self.assertEqual(process.stderr.read(), b"quenbyctl: the terminal's type is not known; "
                         b"--once prints the screen\n")

    def test_that_goes_away(self):
        ours, process = self.start("xterm")
        os.read(ours, 100)
        os.close(ours)
        self.assertNotEqual(process.wait(30), None)

    def test_no_colours_where_they_are_not_wanted(self):
        for variables, coloured in (({}, True), ({"NO_COLOR": "1"}, False)):
            os.environ.update(variables)
            self.addCleanup(os.environ.pop, "NO_COLOR", None)
            ours, process = self.start("xterm-256color")
            text = self.read_until_keys(ours)
            os.write(ours, b"q")
            self.assertEqual(process.wait(30), 0)
            os.close(ours)
            self.assertEqual(re.search(rb"\033\[[0-9;]*31m", text) is not None, coloured)

    def test_the_title_follows_looks_that_take_long(self):
        self.store(LINE, "".join(s.tariff("t%04d" % i, 4 + i) for i in range(5000)))
        ours, process = self.start("xterm")
        self.addCleanup(os.close, ours)
        self.assertRegex(self.read_until_keys(ours), rb"top .* every 0\.1 s  5000 tariffs")
        # The files are read again at each look at all.
        self.read_until(ours, rb" s, all every [1-9]?\d\.?\d? s  5000 tariffs",
                        lambda: os.utime(TARIFF_FILE))
        os.write(ours, b"q")
        self.assertEqual(process.wait(30), 0)

    def read_until_keys(self, ours):
        return self.read_until(ours, b"Tab")

    def read_until(self, ours, pattern, before_each=lambda: None):
        text, end = b"", time.monotonic() + 30
        while not re.search(pattern, text):
            self.assertLess(time.monotonic(), end, text)
            before_each()
            if select.select([ours], [], [], 0.05)[0]:
                text += os.read(ours, 4096)
        return text
