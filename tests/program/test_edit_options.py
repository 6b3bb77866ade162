"""Restore, statistics and the edit commands: what they refuse and what they give to the shell."""

import quenby_program as q

GLOBAL = "[global]\nwan=eth1\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
GOLD = "[gold]\nid=4\nip=10.0.0.1\ndownload_speed=2000\nupload_speed=1000\n"
TEARDOWN = "sudo /opt/ostrea/sbin/firewall.init start opt-qos;"
FILE_OPTIONS = {"--update": "wrong tariff configuration",
                "--tariff-add": "wrong tariff configuration",
                "--tariff-update": "wrong new tariff configuration",
                "--global-update": "wrong new global configuration"}
STORED_READERS = ("--load", "--reload", "--tariffs-del", "--global-del", "--stat",
                  "--restore-if-cfg", "--tariff-del=gold")


class Unshaped(q.ProgramTest):
    """Options that have nothing to do on a router without files."""

    def does_nothing(self, *arguments):
        kernel = q.kernel_state()
        self.succeeds(*arguments)
        self.assertEqual(q.shell_texts(), [])
        self.assertEqual(q.files_state(), {})
        self.assertEqual(q.kernel_state(), kernel)

    def test_restore(self):
        self.does_nothing("--restore-if-cfg", "--if-name", "eth1")
        self.does_nothing("--restore-if-cfg", "--if-name", "")
        self.does_nothing("--restore-if-cfg")

    def test_statistics(self):
        self.does_nothing("--stat")

    def test_interface_name_alone(self):
        self.does_nothing("--if-name", "eth1")

    def test_statistics_of_an_empty_tariff_file(self):
        q.store(GLOBAL, "")
        self.succeeds("--stat")
        self.assertEqual(q.shell_texts(), [])


class Restore(q.ProgramTest):
    def setUp(self):
        super().setUp()
        q.make_set()
        q.make_link("eth1")
        q.store(GLOBAL, "[gold]\nid=9\nip=10.0.0.1\ndownload_speed=2000\nupload_speed=1000\n")

    def test_reloads_wherever_the_name_stands(self):
        for arguments in (("--restore-if-cfg", "--if-name", "eth1"),
                          ("--if-name", "eth1", "--restore-if-cfg"),
                          ("--restore-if-cfg", "--if-name=eth9", "--if-name=eth1"),
                          ("-restore", "-if=eth1")):
            with self.subTest(arguments):
                self.succeeds(*arguments)
                self.assertTrue(q.shell_texts()[0].startswith(TEARDOWN))
                self.assertEqual(q.shell_texts()[-1], "sync")
                self.assertEqual(q.TARIFF_FILE.read_text(), GOLD)

    def test_other_names_do_nothing(self):
        files, kernel = q.files_state(), q.kernel_state()
        for arguments in (("--restore-if-cfg", "--if-name", "eth9"),
                          ("--restore-if-cfg", "--if-name", "eth"),
                          ("--restore-if-cfg", "--if-name", "eth11"),
                          ("--restore-if-cfg", "--if-name", "ETH1"),
                          ("--restore-if-cfg", "--if-name", "eth1", "--if-name", "eth9"),
                          ("--if-name", "eth1"), ("--restore-if-cfg",)):
            with self.subTest(arguments):
                self.succeeds(*arguments)
                self.assertEqual(q.shell_texts(), [])
        self.assertEqual(q.files_state(), files)
        self.assertEqual(q.kernel_state(), kernel)

    def test_given_twice_it_restores_once(self):
        self.succeeds("--restore-if-cfg", "--restore-if-cfg", "--if-name", "eth1")
        self.assertEqual(len([t for t in q.shell_texts() if t.startswith(TEARDOWN)]), 1)

    def test_after_an_operation_that_stands_after_it(self):
        # Without the files nothing is left to be restored.
        self.succeeds("--restore-if-cfg", "--if-name", "eth1", "--clear")
        self.assertEqual(len([t for t in q.shell_texts() if t.startswith(TEARDOWN)]), 1)

    def test_not_after_a_fatal_error(self):
        self.fails("tariff does not exist", "--restore-if-cfg", "--if-name", "eth1",
                   "--tariff-del", "silver")
        self.assertEqual(q.shell_texts(), [])

    def test_complaint_does_not_keep_it_from_running(self):
        self.assertEqual(q.run("--restore-if-cfg", "--nothing", "--if-name", "eth1").status, 1)
        self.assertTrue(q.shell_texts()[0].startswith(TEARDOWN))


class Statistics(q.ProgramTest):
    def test_after_a_load_that_stands_after_it(self):
        q.make_link("eth1")
        q.store(GLOBAL, GOLD)
        result = q.run("--stat", "--load")
        self.assertEqual((result.status, result.err), (0, ""))
        # Nothing was sent, so that the counters are known.
        lines = [line for line in result.out.splitlines() if "gold" in line]
        self.assertEqual(sorted(lines), ["download gold,0,0,0,0,0,0", "upload gold,0,0,0,0,0,0"])

    def test_given_twice_they_are_printed_once(self):
        q.make_link("eth1")
        self.load(GLOBAL, GOLD)
        result = q.run("--stat", "--stat")
        self.assertEqual(len([x for x in result.out.splitlines() if "upload gold," in x]), 1)


class Refusals(q.ProgramTest):
    """Each ends with status 1 and leaves files and kernel as they were."""

    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        self.load(GLOBAL, GOLD)
        self.given = q.WORK / "given.ini"
        self.kernel = q.kernel_state()

    def refused(self, message, *arguments):
        files = q.files_state()
        self.fails(message, *arguments)
        self.assertEqual(q.files_state(), files)
        self.assertEqual(q.shell_texts(), [])
        self.assertEqual(q.sudo_calls(), [])

    def tearDown(self):
        self.assertEqual(q.kernel_state(), self.kernel)

    def test_missing_file(self):
        for option, message in FILE_OPTIONS.items():
            for path in ("/nowhere", ""):
                with self.subTest(option, path=path):
                    self.refused(message, option, path)

    def test_file_that_cannot_be_read(self):
        for text in ("hello\n", "[gold\n", "[gold]\nspeed=1\n", "=1\n", "x" * 9000):
            self.given.write_text(text)
            for option, message in FILE_OPTIONS.items():
                with self.subTest(text[:20], option=option):
                    self.refused(message, option, str(self.given))

    def test_stored_global_file(self):
        self.given.write_text(GOLD)
        q.store("hello\n")
        for arguments in [(option,) for option in STORED_READERS] + [
                ("--update", str(self.given)), ("--tariff-add", str(self.given)),
                ("--tariff-update", str(self.given))]:
            with self.subTest(arguments):
                self.refused("wrong global configuration", *arguments)

    def test_stored_tariff_file(self):
        self.given.write_text(GOLD)
        q.store(tariff_text="hello\n")
        for arguments in (("--load",), ("--reload",), ("--global-del",), ("--stat",),
                          ("--restore-if-cfg", "--if-name", "eth1"), ("--tariff-del", "gold"),
                          ("--update", str(self.given)), ("--tariff-add", str(self.given)),
                          ("--tariff-update", str(self.given))):
            with self.subTest(arguments):
                self.refused("wrong current tariff configuration", *arguments)
        self.given.write_text(GLOBAL)
        self.refused("wrong current tariff configuration", "--global-update", str(self.given))

    def test_tariff_that_is_stored_already(self):
        self.given.write_text("[silver]\nip=10.0.0.2\n[gold]\nip=10.0.0.3\n")
        self.refused("wrong tariff configuration: already exists",
                     "--tariff-add", str(self.given))

    def test_tariff_that_is_not_stored(self):
        self.given.write_text("[gold]\nip=10.0.0.3\n[silver]\nip=10.0.0.2\n")
        self.refused("wrong new tariff configuration", "--tariff-update", str(self.given))
        for name in ("silver", "Gold", "gol", ""):
            with self.subTest(name):
                self.refused("tariff does not exist", "--tariff-del", name)

    def test_identifiers_that_have_run_out(self):
        q.store(tariff_text="[gold]\nid=15000\nip=10.0.0.1\n")
        self.given.write_text("".join("[t%d]\n" % number for number in range(1000)))
        self.refused("wrong tariff configuration: already exists",
                     "--tariff-add", str(self.given))
        self.refused("wrong new tariff configuration", "--update", str(self.given))
