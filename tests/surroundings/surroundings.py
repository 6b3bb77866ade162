"""What every test of the program in hostile surroundings needs: the stored files on a disk of their
own, the program's run, and a run in which a system call fails or ends it."""

import collections
import pathlib
import re
import shutil
import subprocess
import unittest

import private_root

FOLDER = pathlib.Path("/config/tc")
GLOBAL_FILE = FOLDER / "tc_global.ini"
TARIFF_FILE = FOLDER / "tc_tariff.ini"
GIVEN = pathlib.Path("/given.ini")
LOG = pathlib.Path("/strace.log")

# Disabled, so that an edit changes files alone.
DISABLED = "[global]\nenabled=false\n"

Result = collections.namedtuple("Result", "status out err")


def tariff(name, number=None, speed=1000):
    return "[%s]\n%sdownload_speed=%d\nupload_speed=%d\n" % (
        name, "" if number is None else "id=%d\n" % number, speed, speed)


# Long enough for several reads and writes.
TARIFFS = "".join(tariff("t%03d" % i, 4 + i) for i in range(300))


def run(*arguments, wrapper=(), program="/quenby", **options):
    done = subprocess.run([*wrapper, program, *arguments], timeout=60, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          **({"stdin": subprocess.DEVNULL} | options))
    return Result(done.returncode, done.stdout, done.stderr)


def run_with(injection, *arguments, path=None, program="/quenby"):
    """Runs the program with a system call that strace tampers with, on `path` alone if it is given.
    Returns the result and the line of strace's log, None when the call was not made."""
    watched = [] if path is None else ["-P", str(path)]
    result = run(*arguments, wrapper=("strace", "-y", "-o", str(LOG), *watched, "-e",
                                      "inject=" + injection), program=program)
    lines = LOG.read_text(errors="replace").splitlines()
    injected = [line for line in lines if "(INJECTED)" in line]
    # A call that ends the program comes last.
    if not injected and any(line.startswith("+++ killed by") for line in lines):
        injected = [line for line in lines if not line.startswith("+++")][-1:]
    return result, injected[0] if injected else None


def on_our_files(line):
    return re.search(r"/config\b|/tmp/kavo", line) is not None


def content(path):
    return path.read_text() if path.is_file() else None


def many_users():
    """Whether this process's user namespace has more than its root."""
    return int(pathlib.Path("/proc/self/uid_map").read_text().split()[2]) > 1


def names_in(folder):
    return sorted(path.name for path in pathlib.Path(folder).iterdir())


def state():
    """Names and contents of all that a run could leave."""
    return {str(path): content(path)
            for folder in ("/config", "/tmp") for path in sorted(pathlib.Path(folder).rglob("*"))}


def given(text):
    GIVEN.write_text(text)
    return str(GIVEN)


class SurroundingsTest(unittest.TestCase):
    """A test with an empty /config/tc, which is a disk of its own, and an empty /tmp."""

    maxDiff = None

    def setUp(self):
        for path in pathlib.Path("/tmp").iterdir():
            path.unlink()
        self.config_disk("1m")

    def config_disk(self, size, folder=FOLDER):
        """Mounts a disk of this size, empty, in the place of what was there."""
        folder.mkdir(parents=True, exist_ok=True)
        private_root.mount("-t", "tmpfs", "-o", "size=" + size, "tmpfs", folder)
        self.addCleanup(private_root.unmount, folder)

    def read_only(self):
        private_root.mount("-o", "remount,bind,ro", FOLDER)
        self.addCleanup(private_root.mount, "-o", "remount,bind,rw", FOLDER)

    def store(self, global_text=DISABLED, tariff_text=TARIFFS):
        """Makes these the stored files, alone; None is no file."""
        for path in [*FOLDER.iterdir(), *pathlib.Path("/tmp").iterdir()]:
            shutil.rmtree(path) if path.is_dir() and not path.is_symlink() else path.unlink()
        for path, text in ((GLOBAL_FILE, global_text), (TARIFF_FILE, tariff_text)):
            if text is not None:
                path.write_text(text)

    def succeeds(self, *arguments, **options):
        self.assertEqual(run(*arguments, **options), Result(0, "", ""))

    def fails(self, message, *arguments, **options):
        """Ends with status 1 and this one line, and changes nothing. `message` is an expression."""
        before = state()
        self.assert_failed(message, run(*arguments, **options))
        self.assertEqual(state(), before)

    def assert_failed(self, message, result):
        self.assertEqual((result.status, result.out), (1, ""), result)
        self.assertRegex(result.err, r"\AError: %s\n\Z" % message)
