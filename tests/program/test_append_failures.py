"""Adding tariffs on a bad disk. The kernel has them by then; the stored file is the old one or the
new one, as a whole, and status 0 means the new one."""

import itertools
import os
import re
import signal

import quenby_program as q
from test_edit_commands import GLOBAL, GOLD, IRON, TIN

LOG = q.WORK / "strace.log"
FAILED = q.Result(1, "", "Error: failed to save configuration\n")
TIN_STORED = TIN.replace("[tin]\n", "[tin]\nid=6\n")


class Append(q.ProgramTest):
    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        self.load(GLOBAL, GOLD + IRON)

    def add(self, tampering):
        """Adds a tariff to the same state with a system call on the stored file tampered with."""
        q.store(tariff_text=GOLD + IRON)
        result = q.run("--tariff-add", q.given(TIN), wrapper=(
            "strace", "-o", str(LOG), "-P", str(q.TARIFF_FILE), "-P", str(q.TARIFF_FILE.parent),
            "-e", "inject=" + tampering))
        self.assertEqual(sorted(os.listdir(q.TARIFF_FILE.parent)),
                         ["tc_global.ini", "tc_tariff.ini"])
        return result, re.search(r"INJECTED|killed by", LOG.read_text()) is not None

    def each(self, tampering):
        """The results of a run for each call, until there is none left, and what the file held."""
        for number in itertools.count(1):
            result, reached = self.add("%s:when=%d" % (tampering, number))
            stored = q.TARIFF_FILE.read_text()
            if not reached:
                self.assertEqual((result.status, stored), (0, GOLD + IRON + TIN_STORED))
                self.assertGreater(number, 1)
                return
            yield result, stored

    def test_each_call_fails(self):
        for tampering in ("write:error=ENOSPC", "write:error=EIO", "fsync:error=EIO",
                          "fsync:error=ENOSPC", "pread64:error=EIO"):
            for result, stored in self.each(tampering):
                self.assertEqual(result, FAILED)
                self.assertEqual(stored, GOLD + IRON)

    def test_the_file_cannot_be_opened(self):
        messages = {q.Result(1, "", "Error: wrong current tariff configuration\n"), FAILED}
        self.assertEqual({result for result, _ in self.each("openat:error=EIO")}, messages)
        self.assertEqual(q.TARIFF_FILE.read_text(), GOLD + IRON + TIN_STORED)

    def test_a_short_write_is_taken_back(self):
        for result, stored in self.each("write:retval=7"):
            self.assertEqual(result, FAILED)
            self.assertEqual(stored, GOLD + IRON)

    def test_each_call_kills(self):
        for call in ("openat", "read", "write", "fsync"):
            for result, stored in self.each(call + ":signal=KILL"):
                self.assertEqual(result.status, -signal.SIGKILL)
                self.assertIn(stored, (GOLD + IRON, GOLD + IRON + TIN_STORED))

    def test_a_full_disk(self):
        """A page for each stored file, and room for the beginning of a section in the second."""
        q.store(tariff_text="")
        q.command("mount", "-t", "tmpfs", "-o", "size=8k", "tmpfs", str(q.TARIFF_FILE.parent))
        self.addCleanup(q.command, "umount", str(q.TARIFF_FILE.parent))
        text = GOLD + IRON + "\n" * (4096 - 20 - len(GOLD + IRON))
        q.store(GLOBAL, text)
        self.assertEqual(q.run("--tariff-add", q.given(TIN)), FAILED)
        self.assertEqual(q.TARIFF_FILE.read_text(), text)
        self.succeeds("--load")
