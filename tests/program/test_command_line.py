"""The command line itself: order, prefixes, complaints, the version block."""

import subprocess
import sys

import quenby_program as q

GLOBAL = "[global]\nwan=eth1\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
CLEARING = "sudo /opt/ostrea/sbin/firewall.init start opt-qos;"


def library_version():
    """What the netlink command line library says about itself."""
    code = "import ctypes; ctypes.CDLL('libnl-cli-3.so.200').nl_cli_print_version()"
    return q.command(sys.executable, "-c", code)


class VersionBlock(q.ProgramTest):
    def version_block(self):
        return ("Copyright (C) 2026 The Quenby authors\n"
                "Quenby version 0.7\n" + library_version())

    def test_library_part_names_the_library(self):
        self.assertRegex(library_version().splitlines()[0], r"^libnl tools version \d+\.\d+")

    def test_one_dash_two_dashes_and_prefixes(self):
        for option in ("--version", "-version", "--vers", "-vers", "--v", "-v"):
            with self.subTest(option):
                self.succeeds(option, out=self.version_block())

    def test_given_twice_it_prints_twice(self):
        self.succeeds("--version", "--version", out=self.version_block() * 2)

    def test_unknown_option_before_it(self):
        self.assertEqual(q.run("--nothing", "--version"),
                         q.Result(1, self.version_block(),
                                  q.program + ": unrecognized option '--nothing'\n"))

    def test_unknown_option_after_it(self):
        self.assertEqual(q.run("--version", "--nothing"),
                         q.Result(1, self.version_block(),
                                  q.program + ": unrecognized option '--nothing'\n"))

    def test_it_touches_nothing(self):
        q.store(GLOBAL, "")
        files, kernel = q.files_state(), q.kernel_state()
        self.succeeds("--version", out=self.version_block())
        self.assertEqual(q.files_state(), files)
        self.assertEqual(q.kernel_state(), kernel)
        self.assertEqual(q.shell_texts(), [])

    def test_between_two_operations(self):
        q.store("[global]\n")
        self.succeeds("--stop", "--version", "--stop", out=self.version_block())
        self.assertEqual(len(q.shell_texts()), 2)

    def test_output_order_when_both_go_to_one_file(self):
        q.store("nonsense\n")
        done = subprocess.run([q.program, "--version", "--load", "--version"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env=q.environment("succeed", ""))
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout, self.version_block() + "Error: wrong global configuration\n")


class Complaints(q.ProgramTest):
    def complains(self, text, *arguments):
        self.assertEqual(q.run(*arguments), q.Result(1, "", "%s: %s\n" % (q.program, text)))
        self.assertEqual(q.shell_texts(), [])

    def test_no_argument(self):
        self.fails("missing argument")
        self.assertEqual(q.shell_texts(), [])

    def test_unknown_option(self):
        self.complains("unrecognized option '--nothing'", "--nothing")
        self.complains("unrecognized option '-x'", "-x")
        self.complains("unrecognized option '--loads'", "--loads")
        self.complains("unrecognized option '--Load'", "--Load")

    def test_option_without_its_argument(self):
        for option in ("update", "tariff-add", "tariff-del", "tariff-update", "global-update",
                       "if-name"):
            with self.subTest(option):
                self.complains("option '--%s' requires an argument" % option, "--" + option)
                self.complains("option '-%s' requires an argument" % option, "-" + option)

    def test_option_with_an_argument_that_it_does_not_take(self):
        for option in ("clear", "stop", "load", "reload", "restore-if-cfg", "tariffs-del",
                       "global-del", "stat", "version"):
            with self.subTest(option):
                self.complains("option '--%s' doesn't allow an argument" % option,
                               "--%s=x" % option)

    def test_ambiguous_prefixes(self):
        self.complains("option '--st' is ambiguous; possibilities: '--stop' '--stat'", "--st")
        self.complains("option '--re' is ambiguous; possibilities: '--reload' '--restore-if-cfg'",
                       "--re")
        self.complains("option '--global' is ambiguous; possibilities: "
                       "'--global-update' '--global-del'", "--global")
        self.complains("option '--tariff' is ambiguous; possibilities: '--tariff-add' "
                       "'--tariff-del' '--tariff-update' '--tariffs-del'", "--tariff")

    def test_complaint_per_option_and_one_status(self):
        result = q.run("--one", "--two")
        self.assertEqual(result.status, 1)
        self.assertEqual(result.err, "%s: unrecognized option '--one'\n"
                                     "%s: unrecognized option '--two'\n" % ((q.program,) * 2))

    def test_the_name_in_a_complaint_is_the_one_that_was_called(self):
        done = subprocess.run(["other-name", "--nothing"], executable=q.program,
                              stderr=subprocess.PIPE, text=True, env=q.environment("succeed", ""))
        self.assertEqual((done.returncode, done.stderr),
                         (1, "other-name: unrecognized option '--nothing'\n"))


class Order(q.ProgramTest):
    def test_operations_around_a_complaint_are_performed(self):
        q.store("[global]\n")
        for arguments in (("--nothing", "--stop"), ("--stop", "--nothing"),
                          ("--stop", "--tariff-add"), ("--load=x", "--stop")):
            with self.subTest(arguments):
                self.assertEqual(q.run(*arguments).status, 1)
                self.assertEqual(len(q.shell_texts()), 1)
                self.assertTrue(q.shell_texts()[0].startswith(CLEARING))

    def test_same_option_twice_runs_twice(self):
        q.store("[global]\n")
        self.succeeds("--stop", "--stop")
        self.assertEqual(len(q.sudo_calls()), 14)

    def test_one_dash_and_unique_prefix_of_an_operation(self):
        q.store("[global]\n")
        for option in ("--stop", "-stop", "--sto", "-sto"):
            with self.subTest(option):
                self.succeeds(option)
                self.assertEqual(len(q.shell_texts()), 1)

    def test_arguments_without_a_dash_are_ignored(self):
        q.store("[global]\n")
        for arguments in (("word",), ("",), ("-",), ("--",), ("--", "--stop"), ("word", "stop")):
            with self.subTest(arguments):
                self.succeeds(*arguments)
                self.assertEqual(q.shell_texts(), [])
        for arguments in (("word", "--stop"), ("--stop", "word"), ("-", "--stop", "--", "--load")):
            with self.subTest(arguments):
                self.succeeds(*arguments)
                self.assertEqual(len(q.shell_texts()), 1)

    def test_options_after_other_words_whatever_the_environment_wants(self):
        q.store("[global]\n")
        wishes = dict(q.environment("succeed", ""), POSIXLY_CORRECT="1")
        for arguments in (("word", "--stop"), ("--stop", "word", "--nothing"),
                          ("-", "word", "--stop", "--", "--load")):
            with self.subTest(arguments):
                result = q.run(*arguments, variables=wishes)
                self.assertEqual(result.status, 1 if "--nothing" in arguments else 0)
                self.assertEqual(len(q.shell_texts()), 1)
                self.assertTrue(q.shell_texts()[0].startswith(CLEARING))
        self.succeeds("word", "--", "--stop", variables=wishes)
        self.assertEqual(q.shell_texts(), [])

    def test_each_operation_reads_the_files_again(self):
        q.make_link("eth1")
        q.make_set()
        q.store(GLOBAL)
        self.succeeds("--clear", "--load")
        # The second operation finds no file, so it clears what a router without one has.
        self.assertEqual([text[:len(CLEARING)] for text in q.shell_texts()],
                         [CLEARING, "/usr/sbin/kavo-hal getBoardShortName", CLEARING])

    def test_fatal_error_in_the_second_operation_keeps_the_effects_of_the_first(self):
        q.make_link("eth1")
        self.load(GLOBAL, "[gold]\nid=4\nip=10.0.0.1\nupload_speed=1000\ndownload_speed=1000\n")
        q.store(tariff_text="nonsense\n")
        self.fails("wrong current tariff configuration", "--stop", "--load", "--version")
        self.assertEqual(q.set_entries(), [])
        self.assertNotIn("htb", q.command("tc", "qdisc", "show"))
        self.assertTrue(q.TARIFF_FILE.exists())

    def test_fatal_error_in_the_first_operation_ends_the_run(self):
        q.store("nonsense\n", "[gold]\nid=4\n")
        self.fails("wrong global configuration", "--load", "--clear", "--version")
        self.assertTrue(q.GLOBAL_FILE.exists())
        self.assertTrue(q.TARIFF_FILE.exists())
        self.assertEqual(q.shell_texts(), [])

    def test_fatal_error_after_a_complaint(self):
        q.store("nonsense\n")
        self.assertEqual(q.run("--nothing", "--load"),
                         q.Result(1, "", q.program + ": unrecognized option '--nothing'\n"
                                                     "Error: wrong global configuration\n"))
