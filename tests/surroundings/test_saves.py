"""A save that fails, or a run that is killed, at each of its system calls: the stored file is the
old one or the new one, and status 0 means the new one."""

import itertools
import pathlib
import re
import signal

import surroundings as s
from surroundings import TARIFF_FILE

# What may write. A call that a run does not make is not tampered with.
CALLS = ["openat", "write", "writev", "fsync", "rename", "unlink", "ftruncate", "fchmod", "fchown",
         "mkdir"]
ERRORS = {call: ["EIO", "ENOSPC"] for call in ("openat", "write", "writev", "fsync")}

# What a run that is killed may leave, and the package removes.
LEFTOVER = re.compile(r"/config/tc/tc_tariff\.ini(\.tmp|-[0-9a-f]{4})|"
                      r"/tmp/kavo-qos-shaper-[0-9a-f]{4}")

REPLACED = {"openat", "write", "fsync", "rename", "fchmod"}
FAILED = "failed to (save|copy|update) configuration(:.*)?"


def without(text, name):
    return "".join("[" + section for section in text.split("[")[1:]
                   if not section.startswith(name + "]"))


CHANGED = s.tariff("t007", speed=9)
CHANGED_STORED = s.tariff("t007", 11, speed=9)
ADDED_STORED = s.tariff("z", 304)
# Numbers with a gap, which a reload closes.
GAP = without(s.TARIFFS, "t000")


class Sweep(s.SurroundingsTest):
    def start(self):
        """The files before each run. A mode that is not the usual one has to be given again."""
        self.store(tariff_text=self.old)
        s.given(self.text)
        if self.old is not None:
            TARIFF_FILE.chmod(0o640)

    def sweep(self, arguments, old, new, calls, text=""):
        """Checks a run that changes the tariff file from `old` to `new`, None for no file, and
        makes `calls` on our files, and no other."""
        self.arguments, self.old, self.new, self.text = arguments, old, new, text
        self.start()
        self.succeeds(*arguments)
        self.assertEqual(s.content(TARIFF_FILE), new)
        for check in (self.fails_at, self.is_killed_at):
            # Which of the two it is depends on the length of the text.
            reached = {"write" if call == "writev" else call for call in CALLS if check(call)}
            self.assertEqual(reached, set(calls), check.__name__)

    def each(self, tampering, check):
        """Runs with each call tampered with, until there is none left. Whether one was on our
        files."""
        reached = False
        for number in itertools.count(1):
            self.start()
            result, line = s.run_with("%s:when=%d" % (tampering, number), *self.arguments)
            if line is None:
                self.assertEqual(result, s.Result(0, "", ""))
                return reached
            with self.subTest(tampering, line=line):
                self.assertIn(s.content(TARIFF_FILE), (self.old, self.new))
                if s.content(TARIFF_FILE) != self.new:
                    self.assertNotEqual(result.status, 0)
                if s.on_our_files(line):
                    reached = True
                    check(result, line)

    def fails_at(self, call):
        """Whether the call was made on our files."""
        return any([self.each("%s:error=%s" % (call, error), self.check_failure)
                    for error in ERRORS.get(call, ["EIO"])])

    def check_failure(self, result, line):
        # A name that was to be free, or freed, may stay; the file is the new one then.
        if result.status != 0 or not line.startswith("unlink"):
            self.assert_failed(FAILED + "|wrong.*", result)
        if not line.startswith("unlink"):
            self.assertEqual(self.leftovers(), [])

    def is_killed_at(self, call):
        return self.each("%s:signal=KILL" % call, self.check_kill)

    def check_kill(self, result, _):
        self.assertEqual(result.status, -signal.SIGKILL)
        for path in self.leftovers():
            self.assertRegex(path, LEFTOVER)
            if path.startswith("/tmp"):
                self.assertEqual(pathlib.Path(path).stat().st_mode & 0o777, 0o600)
        self.goes_on()

    def goes_on(self):
        """What a killed run leaves is in nobody's way."""
        if s.content(TARIFF_FILE) != self.new:
            self.succeeds(*self.arguments)
            self.assertEqual(s.content(TARIFF_FILE), self.new)

    def leftovers(self):
        return [path for path in s.state()
                if path not in map(str, (s.FOLDER, TARIFF_FILE, s.GLOBAL_FILE))]


class EachCall(Sweep):
    def test_tariff_del(self):
        self.sweep(["--tariff-del", "t007"], s.TARIFFS, without(s.TARIFFS, "t007"),
                   REPLACED | {"unlink"})

    def test_tariff_del_of_the_last(self):
        self.sweep(["--tariff-del", "a"], s.tariff("a", 4), None, {"openat", "fsync", "unlink"})

    def test_tariff_add_to_a_disabled_line(self):
        self.sweep(["--tariff-add", str(s.GIVEN)], s.TARIFFS, s.TARIFFS + ADDED_STORED,
                   REPLACED | {"unlink"}, text=s.tariff("z"))

    def test_tariff_update(self):
        self.sweep(["--tariff-update", str(s.GIVEN)], s.TARIFFS,
                   without(s.TARIFFS, "t007") + CHANGED_STORED, REPLACED | {"unlink"},
                   text=CHANGED)

    def test_update(self):
        self.sweep(["--update", str(s.GIVEN)], s.TARIFFS, CHANGED_STORED, REPLACED | {"unlink"},
                   text=CHANGED)

    def test_update_with_an_empty_list(self):
        self.sweep(["--update", str(s.GIVEN)], s.TARIFFS, None, {"openat", "fsync", "unlink"})

    def test_update_without_a_file(self):
        self.sweep(["--update", str(s.GIVEN)], None, s.tariff("a", 4), REPLACED | {"unlink"},
                   text=s.tariff("a"))

    def test_reload(self):
        renumbered = "".join(s.tariff("t%03d" % number, 3 + number) for number in range(1, 300))
        self.sweep(["--reload"], GAP, renumbered, REPLACED | {"unlink"})

    def test_load(self):
        self.sweep(["--load"], s.tariff("a", 1) + s.tariff("b", 9),
                   s.tariff("a", 4) + s.tariff("b", 5), REPLACED | {"unlink"})

    def test_tariffs_del(self):
        self.sweep(["--tariffs-del"], s.TARIFFS, None, {"openat", "fsync", "unlink"})
