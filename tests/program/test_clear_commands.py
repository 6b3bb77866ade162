"""--stop, --clear and the --load that clears: texts for the shell, files and state."""

import quenby_program as q
from router_state import rule_lines

GLOBAL = "[global]\nwan=eth1\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
TARIFF = "[gold]\nid=4\nip=10.0.0.1\ndownload_speed=2000\nupload_speed=1000\n"
BOARD_QUERY = "/usr/sbin/kavo-hal getBoardShortName"
TEARDOWN = ("sudo /opt/ostrea/sbin/firewall.init start opt-qos;"
            "sudo iptables -t mangle -F KAVO_QOS_FW_OUT_HOOK;"
            "sudo iptables -t mangle -F KAVO_QOS_FW_IN_HOOK;"
            "sudo iptables -t filter -D OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK>/dev/null 2>&1;"
            "sudo iptables -t filter -D OSTREA_FW_IN_HOOK -j KAVO_OPT_QOS_HOOK>/dev/null 2>&1"
            " || true;"
            "sudo iptables -t filter -F KAVO_OPT_QOS_HOOK>/dev/null 2>&1;"
            "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN")


class Teardown(q.ProgramTest):
    def gives_to_the_shell(self, *texts):
        self.assertEqual(q.shell_texts(), list(texts))

    def test_wan_set(self):
        q.make_set()
        for present in (False, True):
            if present:
                q.make_link("eth1")
            for operation in ("--stop", "--clear"):
                with self.subTest(operation, present=present):
                    q.store(GLOBAL, TARIFF)
                    self.succeeds(operation)
                    self.gives_to_the_shell(TEARDOWN, BOARD_QUERY)

    def test_wan_empty(self):
        for present in (False, True):
            if present:
                q.make_link("imq0", "ifb")
            with self.subTest(present=present):
                q.store("[global]\nenabled=true\nupload_speed=5000\n", TARIFF)
                self.succeeds("--stop")
                self.gives_to_the_shell(TEARDOWN)

    def test_speeds_change_nothing(self):
        q.make_set()
        for text in ("upload_speed=0\n", "download_speed=0\n", "upload_speed=0\ndownload_speed=0\n",
                     "[defaultqosipqueue]\nupload_speed=0\ndownload_speed=0\n"):
            with self.subTest(text):
                q.store("[global]\nwan=eth1\n" + text)
                self.succeeds("--stop")
                self.gives_to_the_shell(TEARDOWN, BOARD_QUERY)

    def test_no_files(self):
        for operation in ("--stop", "--clear", "--load"):
            with self.subTest(operation):
                self.succeeds(operation)
                self.gives_to_the_shell(TEARDOWN)
                self.assertEqual(q.files_state(), {})

    def test_calls(self):
        self.succeeds("--stop")
        self.assertEqual(q.sudo_calls(), [
            ["/opt/ostrea/sbin/firewall.init", "start", "opt-qos"],
            ["iptables", "-t", "mangle", "-F", "KAVO_QOS_FW_OUT_HOOK"],
            ["iptables", "-t", "mangle", "-F", "KAVO_QOS_FW_IN_HOOK"],
            ["iptables", "-t", "filter", "-D", "OSTREA_FW_OUT_HOOK", "-j", "KAVO_OPT_QOS_HOOK"],
            ["iptables", "-t", "filter", "-D", "OSTREA_FW_IN_HOOK", "-j", "KAVO_OPT_QOS_HOOK"],
            ["iptables", "-t", "filter", "-F", "KAVO_OPT_QOS_HOOK"],
            ["iptables", "-t", "raw", "-R", "QOS_CONNTRACK", "1", "-j", "RETURN"],
        ])

    def test_disabled_load_clears(self):
        q.make_set()
        # A global section says "enabled=true" or it is off.
        for flag in ("enabled=false\n", ""):
            with self.subTest(flag):
                q.store("[global]\nwan=eth1\nupload_speed=5000\n" + flag, TARIFF)
                files = q.files_state()
                self.succeeds("--load")
                self.gives_to_the_shell(TEARDOWN, BOARD_QUERY)
                self.assertEqual(q.files_state(), files)

    def test_missing_address_set(self):
        q.store(GLOBAL, TARIFF)
        files = q.files_state()
        self.fails("failed to delete ipset ack(Object not found)", "--clear")
        self.assertEqual(q.files_state(), files)


class Effects(q.ProgramTest):
    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        self.load(GLOBAL, TARIFF)

    def nothing_shaped(self):
        self.assertEqual(q.set_entries(), [])
        self.assertEqual(q.class_numbers("eth1"), set())
        self.assertEqual(q.filters("eth1"), ["", ""])
        queues = q.command("tc", "qdisc", "show")
        self.assertNotIn("htb", queues)
        self.assertNotIn("ingress", queues)
        self.assertNotIn("ifb_ingr", q.command("ip", "-o", "link"))

    def test_stop_keeps_the_files(self):
        files = q.files_state()
        self.succeeds("--stop")
        self.nothing_shaped()
        self.assertEqual(q.files_state(), files)

    def test_clear_removes_both_files(self):
        self.succeeds("--clear")
        self.nothing_shaped()
        self.assertEqual(list(q.files_state()), ["/config/tc"])

    def test_clear_with_one_file(self):
        for missing in (q.GLOBAL_FILE, q.TARIFF_FILE):
            with self.subTest(missing.name):
                q.store(GLOBAL, TARIFF)
                missing.unlink()
                self.succeeds("--clear")
                self.assertEqual(list(q.files_state()), ["/config/tc"])

    def test_disabled_load(self):
        q.store(GLOBAL.replace("true", "false"))
        self.succeeds("--load")
        self.nothing_shaped()

    def test_stop_and_load_in_one_run(self):
        before = q.kernel_state()
        self.succeeds("--stop", "--load")
        after = q.kernel_state()
        # The new ifb device has another index and link number.
        del before["links"], after["links"]
        self.assertEqual(after, before)

    def test_statistics_after_a_clear_print_nothing(self):
        self.succeeds("--stat", "--clear")
        self.nothing_shaped()


class RealFirewall(q.ProgramTest):
    """With the reference firewall script, iptables and the system's own sudo, and without a
    hardware tool: a generic router."""

    def setUp(self):
        super().setUp()
        q.HARDWARE_TOOL.unlink()
        q.command("lab/network.sh", "platform")
        self.platform("start")
        self.addCleanup(self.platform, "stop")

    def platform(self, action):
        q.command("/opt/ostrea/sbin/firewall.init", action, "opt-qos")

    def rules(self, table, chain):
        return q.command("iptables", "-t", table, "-S", chain).splitlines()[1:]

    def operate(self, *arguments):
        """With the real sudo, the stand-in being out of the path."""
        result = q.run(*arguments, variables=dict(q.os.environ, ASAN_OPTIONS="exitcode=99"))
        self.assertEqual(result.status, 0, result)
        self.assertEqual(result.out, "")
        self.assertEqual(result.err, "")

    def test_load_twice_gives_the_same_state(self):
        q.make_link("eth1")
        q.store(GLOBAL, TARIFF)
        self.operate("--load")
        once = q.kernel_state()
        self.assertEqual(self.rules("raw", "QOS_CONNTRACK"), ["-A QOS_CONNTRACK -j ACCEPT"])
        self.assertEqual(len(self.rules("mangle", "KAVO_QOS_FW_OUT_HOOK")), 7)
        self.operate("--load")
        self.assertEqual(q.kernel_state(), once)

    def test_load_stop_load_clear(self):
        q.make_link("eth1")
        q.store(GLOBAL.replace("upload_speed=5000", "upload_speed=0"), TARIFF)
        before = q.kernel_state()
        self.operate("--load")
        self.assertEqual(self.rules("filter", "KAVO_OPT_QOS_HOOK"),
                         ["-A KAVO_OPT_QOS_HOOK -o eth1 -j DROP"])
        self.assertEqual(self.rules("filter", "OSTREA_FW_OUT_HOOK"),
                         ["-A OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK"])
        loaded = list(rule_lines())
        self.operate("--stop")
        self.assertEqual(q.kernel_state(), before)
        self.operate("--load")
        self.assertEqual(list(rule_lines()), loaded)
        self.operate("--clear")
        self.assertEqual(q.kernel_state(), before)
        self.assertEqual(list(q.files_state()), ["/config/tc"])

    def test_missing_wan(self):
        q.store(GLOBAL, TARIFF)
        self.operate("--load")
        self.assertEqual(q.set_entries(),
                         ["add kavo_opt_shaper 10.0.0.1 skbmark 0x80000004/0x80003fff"])
        self.assertEqual(self.rules("raw", "QOS_CONNTRACK"), ["-A QOS_CONNTRACK -j RETURN"])
        self.assertEqual(self.rules("mangle", "KAVO_QOS_FW_OUT_HOOK"), [])

    def test_disabled_load_clears(self):
        before = q.kernel_state()
        q.store(GLOBAL, TARIFF)
        self.operate("--load")
        q.store(GLOBAL.replace("true", "false"))
        self.operate("--load")
        self.assertEqual(q.kernel_state(), before)

    def test_stop_and_clear_of_nothing(self):
        before = q.kernel_state()
        self.operate("--stop")
        self.operate("--clear")
        self.assertEqual(q.kernel_state(), before)
