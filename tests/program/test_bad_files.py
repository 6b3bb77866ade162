"""Stored files that cannot be read: one line of error, status 1, nothing changed."""

import random

import quenby_program as q

GLOBAL = "[global]\nwan=eth1\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
TARIFF = ("[gold]\nid=4\nip=10.0.0.1\ndownload_speed=2000\nupload_speed=1000\n"
          "queuing_discipline=sfq\n")

WRONG_SYNTAX = {
    "a word": "hello\n",
    "a comment": "; comment\n",
    "a comment with a hash": "# comment\n",
    "a header without its end": "[global\nenabled=true\n",
    "an empty header": "[]\n",
    "a blank header": "[ \t ]\n",
    "an empty value": "[global]\nwan=\n",
    "a blank value": "[global]\nwan= \t\n",
    "an empty key": "[global]\n=eth1\n",
    "a blank key": "[global]\n \t=eth1\n",
    "no equals sign": "[global]\nenabled true\n",
    "an unknown key": "[global]\nspeed=1\n",
    "bytes of a program": b"\x7fELF\x02\x01\x01\x00\x00\x00\x00\n\xff\xfe\xfd",
    "a NUL before the equals sign": b"[global]\nwan\0=eth1\n",
    "a line of 100000 letters": "a" * 100000 + "\n",
    "a value that goes on in a second piece": "[global]\nwan=" + "a" * 5000 + "\n",
    "a word after good lines": "[global]\nwan=eth1\nenabled=true\nhello\n",
}

WRONG_GLOBAL = {
    "a section in capital letters": "[Global]\nenabled=true\n",
    "a section of another kind": "[gold]\n",
    "a key before any section": "wan=eth1\n",
    "a key of a tariff": "[global]\nid=4\n",
    "a global key in the default section": "[defaultqosipqueue]\nwan=eth1\n",
    "the flag in the default section": "[defaultqosipqueue]\nenabled=true\n",
    "a flag in capital letters": "[global]\nenabled=TRUE\n",
    "a flag that is a number": "[global]\nenabled=1\n",
    "a speed beyond 64 bits": "[global]\ndownload_speed=1e300\n",
    "a default speed beyond 64 bits": "[defaultqosipqueue]\nupload_speed=1e300\n",
}

WRONG_TARIFF = {
    "no identifier": "[gold]\nip=10.0.0.1\n[silver]\nid=5\n",
    "no identifier in the last section": "[gold]\nid=4\n[silver]\nip=10.0.0.1\n",
    "no identifier in the only section": "[gold]\nip=10.0.0.1\n",
    "identifier 0": "[gold]\nid=0\n",
    "identifier 16000": "[gold]\nid=16000\n",
    "a negative identifier": "[gold]\nid=-3\n",
    "an identifier of letters": "[gold]\nid=four\n",
    "an identifier beyond 32 bits": "[gold]\nid=1e12\n",
    "an IPv6 address": "[gold]\nid=4\nip=2001:db8::1\n",
    "an address of three parts": "[gold]\nid=4\nip=10.0.0\n",
    "an address part of 256": "[gold]\nid=4\nip=10.0.0.256\n",
    "a prefix without address": "[gold]\nid=4\nip=/24\n",
    "a negative aggregation": "[gold]\nid=4\naggregation=-1\n",
    "an aggregation of letters": "[gold]\nid=4\naggregation=ten\n",
    "a negative burst size": "[gold]\nid=4\ndownload_burst_size=-1\n",
    "a burst size of letters": "[gold]\nid=4\nupload_burst_size=big\n",
    "a speed beyond 64 bits": "[gold]\nid=4\nupload_speed=1e300\n",
    "a burst rate beyond 64 bits": "[gold]\nid=4\ndownload_burst_rate=1e300\n",
    "a global key": "[gold]\nid=4\nenabled=true\n",
    "a key with a blank in it": "[gold]\nid=4\ndownload speed=1\n",
}


def random_bytes(seed, length=3000):
    """Bytes of which no line can be a good one: no bracket and no equals sign."""
    numbers = random.Random(seed)
    allowed = bytes(set(range(256)) - set(b"[]=\n"))
    return b"x" + bytes(numbers.choice(allowed) for _ in range(length))


class BadFile(q.ProgramTest):
    """A shaped router, whose state nothing below may change."""

    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        self.load(GLOBAL, TARIFF)
        self.assertEqual(q.set_entries(), ["add kavo_opt_shaper 10.0.0.1 skbmark "
                                           "0x80000004/0x80003fff"])
        # Compared once a test: a snapshot takes longer than ten runs.
        self.addCleanup(self.kernel_is, q.kernel_state())

    def kernel_is(self, before):
        self.assertEqual(q.kernel_state(), before)

    def refused(self, message, *arguments, **options):
        files = q.files_state()
        self.fails(message, *arguments, **options)
        self.assertEqual(q.files_state(), files)
        self.assertEqual(q.shell_texts(), [])
        self.assertEqual(q.sudo_calls(), [])

    def refuses_each(self, texts, message, operations, **stored):
        for name, text in texts.items():
            for operation in operations:
                with self.subTest(name, operation=operation):
                    q.store(**{key: value or text for key, value in stored.items()})
                    self.refused(message, operation)


class BadGlobalFile(BadFile):
    def test_wrong_syntax(self):
        self.refuses_each(WRONG_SYNTAX, "wrong global configuration", ["--load"],
                          global_text=None)

    def test_wrong_content(self):
        self.refuses_each(WRONG_GLOBAL, "wrong global configuration", ["--load"],
                          global_text=None)

    def test_stop_and_clear_read_it_too(self):
        texts = {"a word": "hello\n", "a section of another kind": "[gold]\n"}
        self.refuses_each(texts, "wrong global configuration", ["--stop", "--clear"],
                          global_text=None)

    def test_random_bytes(self):
        texts = {"seed %d" % seed: random_bytes(seed) for seed in range(6)}
        self.refuses_each(texts, "wrong global configuration", ["--load"], global_text=None)

    def test_it_is_read_before_the_tariff_file(self):
        q.store("hello\n", "hello\n")
        self.refused("wrong global configuration", "--load")


class BadTariffFile(BadFile):
    def test_wrong_syntax(self):
        self.refuses_each(WRONG_SYNTAX, "wrong current tariff configuration", ["--load"],
                          tariff_text=None)

    def test_wrong_content(self):
        self.refuses_each(WRONG_TARIFF, "wrong current tariff configuration", ["--load"],
                          tariff_text=None)

    def test_random_bytes(self):
        texts = {"seed %d" % seed: random_bytes(seed) for seed in range(6)}
        self.refuses_each(texts, "wrong current tariff configuration", ["--load"],
                          tariff_text=None)

    def test_any_random_bytes_end_in_an_orderly_way(self):
        q.store("[global]\nenabled=false\n")
        for seed in range(8):
            with self.subTest(seed=seed):
                q.store(tariff_text=random.Random(seed).randbytes(2000))
                result = q.run("--load")
                self.assertIn(result, (q.Result(0, "", ""), q.Result(
                    1, "", "Error: wrong current tariff configuration\n")))

    def test_disabled_shaping_does_not_hide_it(self):
        q.store("[global]\nenabled=false\n", "hello\n")
        self.refused("wrong current tariff configuration", "--load")


class UnreadableFile(BadFile):
    """Root without the right to read everybody's files, as in a confined service."""

    CONFINED = ("setpriv", "--bounding-set", "-dac_override,-dac_read_search")

    def test_global_file(self):
        q.GLOBAL_FILE.chmod(0)
        self.refused("wrong global configuration", "--load", wrapper=self.CONFINED)
        self.refused("wrong global configuration", "--stop", wrapper=self.CONFINED)
        self.refused("wrong global configuration", "--clear", wrapper=self.CONFINED)

    def test_tariff_file(self):
        q.TARIFF_FILE.chmod(0)
        self.refused("wrong current tariff configuration", "--load", wrapper=self.CONFINED)

    def test_the_same_root_reads_readable_files(self):
        self.succeeds("--load", wrapper=self.CONFINED)


class BadTariffFileUnread(q.ProgramTest):
    """Operations that have no use for the tariffs do not look at them."""

    def setUp(self):
        super().setUp()
        q.make_set()
        q.store(GLOBAL, "hello\n")

    def test_stop(self):
        self.succeeds("--stop")
        self.assertEqual(q.TARIFF_FILE.read_text(), "hello\n")

    def test_clear(self):
        self.succeeds("--clear")
        self.assertEqual(q.files_state().keys(), {"/config/tc"})


class StrangeFile(q.ProgramTest):
    """What is at a path but is no file, and files that look wrong but are not."""

    def test_directory_is_a_wrong_file(self):
        q.TARIFF_FILE.mkdir(parents=True)
        self.fails("wrong current tariff configuration", "--load")
        q.GLOBAL_FILE.mkdir()
        self.fails("wrong global configuration", "--load")
        self.assertEqual(q.shell_texts(), [])
        self.assertTrue(q.GLOBAL_FILE.is_dir() and q.TARIFF_FILE.is_dir())

    def test_clear_leaves_a_directory_where_it_is(self):
        q.TARIFF_FILE.mkdir(parents=True)
        self.succeeds("--clear")
        self.assertTrue(q.TARIFF_FILE.is_dir())

    def test_dangling_links_are_missing_files(self):
        q.GLOBAL_FILE.parent.mkdir(parents=True)
        q.GLOBAL_FILE.symlink_to("/nowhere")
        q.TARIFF_FILE.symlink_to("/nowhere")
        self.succeeds("--load")
        self.assertEqual(len(q.shell_texts()), 1)

    def test_empty_and_blank_files(self):
        for text in ("", "\n \n\t\n", " " * 9000 + "\n"):
            with self.subTest(text[:8]):
                q.store(text, text)
                self.succeeds("--load")
                self.assertEqual(len(q.shell_texts()), 1)

    def test_a_long_line_is_read_in_pieces_of_4095_characters(self):
        q.store("[global]\n" + "enabled=true".ljust(4095) + "wan=eth7\n")
        self.succeeds("--load")
        self.assertIn("/usr/sbin/kavo-hal isSfpPlus eth7 2>&1", q.shell_texts())

    def test_keys_in_capitals_blanks_and_text_after_a_header(self):
        q.store("  [ global ] text\n\t Enabled =  true \r\n WAN\t=eth7")
        self.succeeds("--load")
        self.assertIn("/usr/sbin/kavo-hal isSfpPlus eth7 2>&1", q.shell_texts())


class Renumbering(q.ProgramTest):
    """Identifiers that --load replaces, and those that it leaves alone."""

    DISABLED = "[global]\nwan=eth1\nenabled=false\n"

    def rewritten(self, before, after):
        q.make_set()
        q.store(self.DISABLED, before)
        self.succeeds("--load")
        self.assertEqual(q.TARIFF_FILE.read_text(), after)

    def test_reserved_identifiers(self):
        for number in (1, 2, 3):
            with self.subTest(number):
                q.clean_router()
                self.rewritten("[b]\nid=9\n[a]\nid=%d\n" % number,
                               "[a]\nid=4\ndownload_speed=0\nupload_speed=0\n"
                               "[b]\nid=5\ndownload_speed=0\nupload_speed=0\n")

    def test_identifier_beyond_the_limit(self):
        self.rewritten("[b]\nid=15001\nip=10.0.0.0/24\nqueuing_discipline=pfifo\n[a]\nid=7\n",
                       "[a]\nid=4\ndownload_speed=0\nupload_speed=0\n"
                       "[b]\nid=5\nip=10.0.0.0/24\ndownload_speed=0\nupload_speed=0\n"
                       "queuing_discipline=pfifo\n")

    def test_an_identifier_that_stands_twice(self):
        for number in (4, 9, 15000):
            with self.subTest(number):
                q.clean_router()
                self.rewritten("[b]\nid=%d\n[a]\nid=5\n[c]\nid=%d\n" % (number, number),
                               "[a]\nid=4\ndownload_speed=0\nupload_speed=0\n"
                               "[b]\nid=5\ndownload_speed=0\nupload_speed=0\n"
                               "[c]\nid=6\ndownload_speed=0\nupload_speed=0\n")

    def test_good_identifiers_leave_the_file_as_it_is(self):
        # Two sections of one name are no matter of numbers.
        for text in ("[b]\nid=15000\n\n [a] \nid=4", "[a]\nid=9\n[b]\nid=4\n",
                     "[a]\nid=4\n[a]\nid=5\n"):
            with self.subTest(text):
                q.clean_router()
                q.make_set()
                q.store(self.DISABLED, text)
                files = q.files_state()
                self.succeeds("--load")
                self.assertEqual(q.files_state(), files)

    def test_the_file_is_saved_before_the_shaping_is_built(self):
        q.store("[global]\nenabled=true\nupload_speed=1000\n", "[a]\nid=3\n")
        # No kernel of the lab has the device type, so building fails.
        self.fails("imq0 failed to add interface(Operation not supported)", "--load")
        self.assertEqual(q.shell_texts()[0], "sync")
        self.assertEqual(q.TARIFF_FILE.read_text(),
                         "[a]\nid=4\ndownload_speed=0\nupload_speed=0\n")

    def test_a_file_that_cannot_be_saved_ends_the_run_before_anything_is_built(self):
        q.make_link("eth1")
        q.store(GLOBAL, "[a]\nid=3\n")
        (q.TARIFF_FILE.parent / "tc_tariff.ini.tmp").mkdir()
        kernel = q.kernel_state()
        self.fails("failed to save configuration", "--load")
        self.assertEqual(q.TARIFF_FILE.read_text(), "[a]\nid=3\n")
        self.assertEqual(q.kernel_state(), kernel)
        self.assertEqual(q.shell_texts(), [])
