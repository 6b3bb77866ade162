#!/usr/bin/env python3
"""Loading twice changes nothing; --stop, --clear and a load of a disabled configuration leave
nothing of ours, and traffic goes on.

Call: scripts/lab tests/kernel/lifecycle_test.py PROGRAM
"""

import unittest

import router_state
from cases import load_cases
from packets import Connection
from router import (GLOBAL_FILE, TARIFF_FILE, Router, program_path, shell, use_legacy_iptables,
                    use_plain_sudo)

ROUTER = None
CASES = {case.name: case for case in load_cases()}


class Lifecycle(unittest.TestCase):
    def setUp(self):
        ROUTER.reset()

    def assert_same(self, wanted, found):
        lines = router_state.differences(wanted, found)
        self.assertFalse(lines, "\n" + "\n".join(lines))

    def load_case(self, name):
        return ROUTER.load(CASES[name].global_text, CASES[name].tariff_text)

    def run_program(self, option):
        status, output, _ = ROUTER.run(option)
        self.assertEqual((0, ""), (status, output))

    def assert_untouched(self):
        self.assert_same(ROUTER.pristine, router_state.read_state())
        with Connection("10.0.0.4") as connection:
            self.assertEqual((3, 3), (connection.upload(3), connection.answer(3)))


class MarkTest(Lifecycle):
    def check_twice(self, name):
        first = self.load_case(name)
        self.assertNotEqual(ROUTER.pristine, first)
        self.run_program("--load")
        self.assert_same(first, router_state.read_state())

    def check_twice_then_stop(self, name):
        self.check_twice(name)
        self.run_program("--stop")
        self.assert_untouched()
        self.assertEqual(CASES[name].global_text.strip(), GLOBAL_FILE.read_text().strip())
        self.assertEqual(CASES[name].tariff_text.strip(), TARIFF_FILE.read_text().strip())

    def test_every_leaf_kind(self):
        self.check_twice_then_stop("leaf_kinds")

    def test_upload_blocked(self):
        self.check_twice_then_stop("upload_zero")

    def test_download_blocked(self):
        self.check_twice("download_zero")

    def test_default_tariff_blocked(self):
        self.check_twice("default_drop_download")

    def test_root_burst_raised(self):
        self.check_twice("bursts")

    def test_wan_missing(self):
        self.check_twice_then_stop("wan_missing")

    def test_clear_removes_the_files_too(self):
        self.load_case("oversubscribed")
        self.run_program("--clear")
        self.assert_untouched()
        self.assertFalse(GLOBAL_FILE.exists() or TARIFF_FILE.exists())

    def test_stop_and_clear_with_nothing_loaded(self):
        ROUTER.configure(None, None)
        self.run_program("--stop")
        self.assert_untouched()
        self.run_program("--clear")
        self.assert_untouched()

    def test_disabled_configuration_removes_the_shaping(self):
        self.load_case("leaf_kinds")
        ROUTER.load("[global]\nwan=eth1\ndownload_speed=8000\n", CASES["leaf_kinds"].tariff_text)
        self.assert_untouched()

    def test_nothing_configured_touches_nothing(self):
        ROUTER.load(None, None)
        self.assert_untouched()

    def test_bad_file_touches_nothing(self):
        loaded = self.load_case("leaf_kinds")
        ROUTER.configure(CASES["leaf_kinds"].global_text, "[a]\nid=4\nip=10.0.0.300\n")
        self.assertEqual((1, "", "Error: wrong current tariff configuration\n"),
                         ROUTER.run("--load"))
        self.assert_same(loaded, router_state.read_state())


class ImqTest(Lifecycle):
    """On the stand-in of the IMQ device, which feeds itself by an ingress qdisc on the WAN."""

    def setUp(self):
        ROUTER.reset()
        shell("imq_standin_up")
        self.addCleanup(shell, "imq_standin_down")

    def test_twice_then_stop(self):
        before = router_state.read_state()
        first = self.load_case("imq_tree")
        self.run_program("--load")
        self.assert_same(first, router_state.read_state())
        self.run_program("--stop")
        self.assert_same(before, router_state.read_state())


if __name__ == "__main__":
    use_plain_sudo()
    use_legacy_iptables()
    ROUTER = Router(program_path())
    unittest.main(verbosity=2)
