"""Files that cannot be read to their end, and what is no file: nothing is lost and no run waits."""

import itertools
import os
import pathlib
import socket
import subprocess

import surroundings as s
from surroundings import GLOBAL_FILE, TARIFF_FILE

CURRENT = "wrong current tariff configuration"
GLOBAL = "wrong global configuration"
NEW = s.tariff("new")
CHANGED = s.tariff("t007", speed=9)

# Each operation with the files that it reads and what it says when it cannot.
READERS = [
    (["--load"], "", {GLOBAL_FILE: GLOBAL, TARIFF_FILE: CURRENT}),
    (["--reload"], "", {GLOBAL_FILE: GLOBAL, TARIFF_FILE: CURRENT}),
    (["--stop"], "", {GLOBAL_FILE: GLOBAL}),
    (["--clear"], "", {GLOBAL_FILE: GLOBAL}),
    (["--restore-if-cfg", "--if-name", "eth1"], "", {GLOBAL_FILE: GLOBAL}),
    (["--stat"], "", {GLOBAL_FILE: GLOBAL, TARIFF_FILE: CURRENT}),
    (["--update", str(s.GIVEN)], NEW,
     {GLOBAL_FILE: GLOBAL, TARIFF_FILE: CURRENT, s.GIVEN: "wrong tariff configuration"}),
    (["--tariff-add", str(s.GIVEN)], NEW,
     {GLOBAL_FILE: GLOBAL, TARIFF_FILE: CURRENT, s.GIVEN: "wrong tariff configuration"}),
    (["--tariff-del", "t007"], "", {GLOBAL_FILE: GLOBAL, TARIFF_FILE: CURRENT}),
    (["--tariff-update", str(s.GIVEN)], CHANGED,
     {GLOBAL_FILE: GLOBAL, TARIFF_FILE: CURRENT, s.GIVEN: "wrong new tariff configuration"}),
    (["--tariffs-del"], "", {GLOBAL_FILE: GLOBAL}),
    (["--global-update", str(s.GIVEN)], s.DISABLED,
     {GLOBAL_FILE: GLOBAL, TARIFF_FILE: CURRENT, s.GIVEN: "wrong new global configuration"}),
    (["--global-del"], "", {GLOBAL_FILE: GLOBAL, TARIFF_FILE: CURRENT}),
]

# An edit reads the stored file again to copy the other sections.
COPYING = "failed to update configuration"


class ReadError(s.SurroundingsTest):
    """An I/O error at each read of each file, one at a time."""

    def sweep(self, arguments, text, path, message):
        """The number of reads of the file."""
        for number in itertools.count(1):
            self.store()
            s.given(text)
            before = s.state()
            result, line = s.run_with("read:error=EIO:when=%d" % number, *arguments, path=path)
            if line is None:
                self.assertNotIn("wrong", result.err)
                return number - 1
            with self.subTest(arguments[0], path=path, number=number):
                self.assert_failed("%s|%s" % (message, COPYING), result)
                self.assertEqual(s.state(), before)

    def test_each_read_of_each_operation(self):
        for arguments, text, files in READERS:
            for path, message in files.items():
                # The end of a file is a read too.
                least = 2 + len(s.TARIFFS) // 4096 if path == TARIFF_FILE else 2
                self.assertGreaterEqual(self.sweep(arguments, text, path, message), least)

    def test_a_file_whose_status_cannot_be_read_is_not_missing(self):
        for arguments, text, files in READERS:
            for path, message in files.items():
                with self.subTest(arguments[0], path=path):
                    self.store()
                    s.given(text)
                    before = s.state()
                    result, line = s.run_with("newfstatat,stat,statx:error=EIO",
                                              *arguments, path=path)
                    self.assertIsNotNone(line)
                    self.assert_failed(message, result)
                    self.assertEqual(s.state(), before)

    def test_reads_of_the_stored_file_for_the_copy(self):
        for arguments in (["--tariff-del", "t007"], ["--tariff-update", s.given(CHANGED)]):
            self.store()
            reads = self.sweep(["--stat"], "", TARIFF_FILE, CURRENT)
            result, _ = s.run_with("read:error=EIO:when=%d" % (reads + 2), *arguments,
                                   path=TARIFF_FILE)
            self.assert_failed(COPYING, result)


class NoFile(s.SurroundingsTest):
    """What is at a path in the place of a file, made by each of these functions."""

    def directory(self, path):
        path.mkdir()

    def full_directory(self, path):
        (path / "more").mkdir(parents=True)

    def link_to_directory(self, path):
        path.symlink_to("/etc")

    def device(self, path):
        path.symlink_to("/dev/null")

    def endless_device(self, path):
        path.symlink_to("/dev/zero")

    def socket(self, path):
        with socket.socket(socket.AF_UNIX) as end:
            end.bind(str(path))

    def pipe(self, path):
        os.mkfifo(path)

    NAMED = [directory, full_directory, link_to_directory, device, endless_device, socket]
    STORED = NAMED + [pipe]

    def refused(self, message, *arguments):
        before = s.names_in(s.FOLDER)
        self.assert_failed(message, s.run(*arguments))
        self.assertEqual(s.names_in(s.FOLDER), before)

    def test_stored(self):
        for make in self.STORED:
            for arguments, text, files in READERS:
                s.given(text)
                for path, message in files.items():
                    if path != s.GIVEN:
                        with self.subTest(make.__name__, arguments=arguments, path=path):
                            self.store()
                            path.unlink()
                            make(self, path)
                            self.refused(message, *arguments)

    def test_named(self):
        for make in self.NAMED:
            for arguments, _, files in READERS:
                if s.GIVEN in files:
                    with self.subTest(make.__name__, arguments=arguments):
                        self.store()
                        path = pathlib.Path("/tmp/named")
                        make(self, path)
                        self.refused(files[s.GIVEN], arguments[0], str(path))
                        self.assertEqual(TARIFF_FILE.read_text(), s.TARIFFS)

    def test_a_missing_named_file(self):
        self.store()
        for arguments, _, files in READERS:
            if s.GIVEN in files:
                self.fails(files[s.GIVEN], arguments[0], "/tmp/missing")

    def test_removing_operations_do_not_read_the_tariffs(self):
        self.store(tariff_text=None)
        TARIFF_FILE.mkdir()
        self.fails("failed to update configuration:.*Is a directory.*", "--tariffs-del")


class NamedPipe(s.SurroundingsTest):
    """An operator may hand over the output of a command."""

    def setUp(self):
        super().setUp()
        self.store(tariff_text=s.tariff("old", 4))

    def test_standard_input(self):
        self.succeeds("--update", "/dev/stdin", stdin=None, input=NEW)
        self.assertEqual(TARIFF_FILE.read_text(), s.tariff("new", 5))

    def test_standard_input_from_a_file(self):
        with open(s.given(NEW)) as file:
            self.succeeds("--update", "/dev/stdin", stdin=file)
        self.assertEqual(TARIFF_FILE.read_text(), s.tariff("new", 5))

    def test_standard_input_from_nothing(self):
        self.fails("wrong tariff configuration", "--update", "/dev/stdin")

    def test_more_than_a_pipe_holds(self):
        names = ["n%05d" % number for number in range(5000)]
        text = "".join(s.tariff(name) for name in names)
        self.succeeds("--tariff-add", "/dev/stdin", stdin=None, input=text)
        self.assertEqual(TARIFF_FILE.read_text().count("[n"), 5000)

    def test_a_late_writer_is_waited_for(self):
        os.mkfifo("/tmp/fifo")
        with subprocess.Popen(["sh", "-c", "sleep 0.3; cat >/tmp/fifo"], text=True,
                              stdin=subprocess.PIPE) as writer:
            writer.stdin.write(NEW)
            writer.stdin.close()
            self.succeeds("--update", "/tmp/fifo")
        self.assertEqual(TARIFF_FILE.read_text(), s.tariff("new", 5))
