"""Full and read-only disks, /tmp and /config on different ones, and modes and owners of files."""

import os
import pathlib

import surroundings as s
from surroundings import GLOBAL_FILE, TARIFF_FILE

FEW = s.tariff("a", 4) + s.tariff("b", 5)
READ_ONLY = "failed to update configuration:.*Read-only file system.*"


class TwoDisks(s.SurroundingsTest):
    def setUp(self):
        super().setUp()
        self.config_disk("1m", pathlib.Path("/tmp"))

    def test_tariff_del(self):
        self.store()
        self.succeeds("--tariff-del", "t000")
        self.assertEqual(TARIFF_FILE.read_text(), s.TARIFFS[len(s.tariff("t000", 4)):])
        self.assertEqual(s.names_in("/tmp"), [])

    def test_tariff_del_of_the_last(self):
        self.store(tariff_text=s.tariff("a", 4))
        self.succeeds("--tariff-del", "a")
        self.assertEqual(s.names_in(s.FOLDER), ["tc_global.ini"])


class FullDisk(s.SurroundingsTest):
    """Two pages, one for each of the stored files."""

    def setUp(self):
        super().setUp()
        self.config_disk("8k")
        self.store(tariff_text=FEW)

    def test_edits(self):
        self.fails("failed to update configuration:.*No space left on device.*",
                   "--tariff-del", "a")
        self.fails("failed to update configuration", "--tariff-update", s.given(s.tariff("a")))
        self.fails("failed to save configuration", "--tariff-add", s.given(s.tariff("c")))
        self.fails("failed to save configuration", "--update", s.given(s.tariff("c")))
        self.fails("failed to save configuration", "--reload")
        self.fails("failed to save configuration", "--global-update", s.given(s.DISABLED))

    def test_what_removes_files_works(self):
        self.succeeds("--tariffs-del")
        self.succeeds("--clear")
        self.assertEqual(s.names_in(s.FOLDER), [])


class FullTemporaryDisk(s.SurroundingsTest):
    def test_tariff_del(self):
        self.store(tariff_text=FEW)
        self.config_disk("4k", pathlib.Path("/tmp"))
        pathlib.Path("/tmp/filler").write_text("x" * 4096)
        self.fails("failed to update configuration", "--tariff-del", "a")


class ReadOnlyDisk(s.SurroundingsTest):
    def protected(self, **files):
        self.store(**files)
        self.read_only()

    def test_edits(self):
        self.protected(tariff_text=FEW)
        self.fails("failed to update configuration", "--tariff-update", s.given(s.tariff("a")))
        self.fails(READ_ONLY, "--tariff-del", "a")
        self.fails("failed to save configuration", "--tariff-add", s.given(s.tariff("c")))
        self.fails("failed to save configuration", "--update", s.given(s.tariff("c")))
        self.fails("failed to save configuration", "--reload")
        self.fails("failed to save configuration", "--global-update", s.given(s.DISABLED))

    def test_removals(self):
        self.protected(tariff_text=s.tariff("a", 4))
        self.fails(READ_ONLY, "--tariff-del", "a")
        self.fails(READ_ONLY, "--tariffs-del")
        self.fails(READ_ONLY, "--update", s.given(""))

    def test_removal_of_the_global_file(self):
        self.protected(tariff_text=None)
        self.fails(READ_ONLY, "--global-del")

    def test_clear_looks_at_no_result(self):
        self.protected(tariff_text=FEW)
        self.succeeds("--clear")
        self.assertEqual(TARIFF_FILE.read_text(), FEW)

    def test_missing_files_are_no_failure(self):
        self.protected(global_text=None, tariff_text=None)
        for arguments in (["--tariffs-del"], ["--global-del"], ["--clear"], ["--reload"],
                          ["--update", s.given("")]):
            self.succeeds(*arguments)


class Status(s.SurroundingsTest):
    """Mode and owner of the stored file stay with it."""

    EDITS = [("--tariff-del", "a"), ("--tariff-update", s.tariff("a")), ("--update", s.tariff("c")),
             ("--tariff-add", s.tariff("c")), ("--reload",)]

    def after_each_edit(self, path=TARIFF_FILE, edits=EDITS):
        for option, *text in edits:
            self.store(tariff_text=FEW)
            self.prepare(path)
            words = [s.given(*text) if option != "--tariff-del" else "a"] if text else []
            old = path.stat()
            self.succeeds(option, *words)
            self.assertNotEqual(path.stat().st_ino, old.st_ino, option)
            yield path.stat()

    def test_mode(self):
        for mode in (0o600, 0o644, 0o640, 0o666):
            self.prepare = lambda path: path.chmod(mode)
            for status in self.after_each_edit():
                self.assertEqual(status.st_mode & 0o7777, mode)

    def test_mode_of_the_global_file(self):
        self.prepare = lambda path: path.chmod(0o600)
        for status in self.after_each_edit(GLOBAL_FILE, [("--global-update", s.DISABLED)]):
            self.assertEqual(status.st_mode & 0o7777, 0o600)

    def test_owner(self):
        """Only the machine's root has other users here; anyone else sees its own owner kept."""
        other = (1234, 4321) if s.many_users() else (0, 0)
        self.prepare = lambda path: os.chown(path, *other)
        for status in self.after_each_edit():
            self.assertEqual((status.st_uid, status.st_gid), other)
