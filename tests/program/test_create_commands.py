"""Every text that --load gives to the shell, byte for byte and in order."""

import quenby_program as q

SFP_QUERY = "/usr/sbin/kavo-hal isSfpPlus eth1 2>&1"
BOARD_QUERY = "/usr/sbin/kavo-hal getBoardShortName"
REMOVAL = ("sudo iptables -t mangle -F KAVO_QOS_FW_OUT_HOOK;"
           "sudo iptables -t mangle -F KAVO_QOS_FW_IN_HOOK;"
           "sudo iptables -t filter -D OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK>/dev/null 2>&1;"
           "sudo iptables -t filter -D OSTREA_FW_IN_HOOK -j KAVO_OPT_QOS_HOOK>/dev/null 2>&1"
           " || true")
REMOVAL_AND_CHAIN = (REMOVAL +
                     ";sudo iptables -t filter -F KAVO_OPT_QOS_HOOK>/dev/null 2>&1 || "
                     "sudo iptables -t filter -N KAVO_OPT_QOS_HOOK>/dev/null 2>&1")
REDIRECT = ("/sbin/tc filter add dev eth1 parent ffff: protocol ip pref 1 u32 match u32 0 0 "
            "action connmark action mirred egress redirect dev ifb_ingr")
REDIRECT_WITHOUT_MARKS = ("/sbin/tc filter add dev eth1 parent ffff: protocol ip pref 1 "
                          "u32 match u32 0 0 action mirred egress redirect dev ifb_ingr")
TRACK = "sudo iptables -t raw -R QOS_CONNTRACK 1 -j ACCEPT"
TRACK_AS_BEFORE = "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN"
MARKING = ("sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN;"
           "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -m addrtype --src-type=LOCAL"
           " -j RETURN;"
           "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j CONNMARK --restore-mark"
           " --nfmask 0x80003fff --ctmask 0x80003fff;"
           "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -m mark ! --mark 0/0x80003fff"
           " -j RETURN;"
           "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j MARK --set-xmark"
           " 0x80000003/0x80003fff;"
           "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j SET --map-set kavo_opt_shaper src"
           " --map-mark;"
           "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j CONNMARK --save-mark"
           " --nfmask 0x80003fff --ctmask 0x80003fff")
UPLOAD_DROP = ("sudo iptables -t filter -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
               "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -o eth1 -j DROP")
DOWNLOAD_DROP = ("sudo iptables -t filter -I OSTREA_FW_IN_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
                 "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -j DROP;"
                 "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN")
UPLOAD_DEFAULT_DROP = ("sudo iptables -t filter -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
                       "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -o eth1 -j CONNMARK"
                       " --restore-mark --nfmask 0x80003fff --ctmask 0x80003fff;"
                       "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -o eth1 -m mark --mark"
                       " 0x80000003/0x80003fff -j DROP;")
DOWNLOAD_DEFAULT_DROP = ("sudo iptables -t filter -I OSTREA_FW_IN_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
                         "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -j CONNMARK"
                         " --restore-mark --nfmask 0x80003fff --ctmask 0x80003fff;"
                         "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -m mark --mark"
                         " 0x80000003/0x80003fff -j DROP;"
                         "sudo iptables -t raw -R QOS_CONNTRACK 1 -j ACCEPT")
IMQ_RULES = ("sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -m addrtype --src-type=LOCAL"
             " -j RETURN;"
             "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j IMQ --todev 0;"
             "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN")
TARIFF = "[gold]\nid=4\nip=10.0.0.1\ndownload_speed=2000\nupload_speed=1000\n"


def global_section(download=None, upload=None, wan="eth1"):
    lines = ["[global]", "enabled=true"]
    lines += ["wan=" + wan] if wan else []
    return "\n".join(lines + speeds(download, upload)) + "\n"


def default_section(download=None, upload=None):
    return "\n".join(["[defaultqosipqueue]"] + speeds(download, upload)) + "\n"


def speeds(download, upload):
    return (([] if download is None else ["download_speed=%d" % download]) +
            ([] if upload is None else ["upload_speed=%d" % upload]))


class LoadTexts(q.ProgramTest):
    def gives_to_the_shell(self, *texts):
        self.assertEqual(q.shell_texts(), list(texts))


class PresentWan(LoadTexts):
    def setUp(self):
        super().setUp()
        q.make_link("eth1")

    def test_tariffs_with_both_speeds(self):
        self.load(global_section(10000, 5000), TARIFF)
        self.gives_to_the_shell(SFP_QUERY, REMOVAL, BOARD_QUERY, REDIRECT, TRACK + ";" + MARKING)

    def test_the_firewall_list_is_split_into_these_calls(self):
        self.load(global_section(10000, 5000), TARIFF)
        rule = ["iptables", "-t", "mangle", "-A", "KAVO_QOS_FW_OUT_HOOK"]
        masks = ["--nfmask", "0x80003fff", "--ctmask", "0x80003fff"]
        self.assertEqual(q.sudo_calls(), [
            ["iptables", "-t", "mangle", "-F", "KAVO_QOS_FW_OUT_HOOK"],
            ["iptables", "-t", "mangle", "-F", "KAVO_QOS_FW_IN_HOOK"],
            ["iptables", "-t", "filter", "-D", "OSTREA_FW_OUT_HOOK", "-j", "KAVO_OPT_QOS_HOOK"],
            ["iptables", "-t", "filter", "-D", "OSTREA_FW_IN_HOOK", "-j", "KAVO_OPT_QOS_HOOK"],
            ["iptables", "-t", "raw", "-R", "QOS_CONNTRACK", "1", "-j", "ACCEPT"],
            rule + ["!", "-o", "eth1", "-j", "RETURN"],
            rule + ["-m", "addrtype", "--src-type=LOCAL", "-j", "RETURN"],
            rule + ["-j", "CONNMARK", "--restore-mark"] + masks,
            rule + ["-m", "mark", "!", "--mark", "0/0x80003fff", "-j", "RETURN"],
            rule + ["-j", "MARK", "--set-xmark", "0x80000003/0x80003fff"],
            rule + ["-j", "SET", "--map-set", "kavo_opt_shaper", "src", "--map-mark"],
            rule + ["-j", "CONNMARK", "--save-mark"] + masks,
        ])

    def test_no_tariffs_and_no_default_section_restore_no_marks(self):
        self.load(global_section(10000, 5000))
        self.gives_to_the_shell(SFP_QUERY, REMOVAL, BOARD_QUERY, REDIRECT_WITHOUT_MARKS,
                                TRACK + ";" + MARKING)

    def test_default_section_alone_restores_marks(self):
        self.load(global_section(10000, 5000) + default_section(800, 400))
        self.gives_to_the_shell(SFP_QUERY, REMOVAL, BOARD_QUERY, REDIRECT, TRACK + ";" + MARKING)

    def test_unset_speeds_are_those_of_the_tariffs(self):
        self.load(global_section(), TARIFF)
        self.gives_to_the_shell(SFP_QUERY, REMOVAL, BOARD_QUERY, REDIRECT, TRACK + ";" + MARKING)

    def test_nothing_but_the_wan(self):
        self.load(global_section())
        self.gives_to_the_shell(SFP_QUERY, REMOVAL, BOARD_QUERY, TRACK + ";" + MARKING)

    def test_upload_zero(self):
        for tariffs in (None, TARIFF):
            with self.subTest(tariffs=tariffs):
                self.load(global_section(10000, 0), tariffs)
                self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY,
                                        REDIRECT if tariffs else REDIRECT_WITHOUT_MARKS,
                                        TRACK + ";" + UPLOAD_DROP)

    def test_download_zero(self):
        for tariffs in (None, TARIFF):
            with self.subTest(tariffs=tariffs):
                self.load(global_section(0, 5000), tariffs)
                self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY,
                                        DOWNLOAD_DROP + ";" + MARKING)

    def test_both_zero(self):
        self.load(global_section(0, 0), TARIFF)
        self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY,
                                DOWNLOAD_DROP + ";" + UPLOAD_DROP)

    def test_default_drop_of_uploads(self):
        self.load(global_section(10000, None) + default_section(800, 0))
        self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY, REDIRECT,
                                TRACK + ";" + UPLOAD_DEFAULT_DROP + MARKING)

    def test_default_drop_of_downloads(self):
        self.load(global_section(None, 5000) + default_section(0, 400))
        self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY,
                                DOWNLOAD_DEFAULT_DROP + ";" + MARKING)

    def test_default_drop_of_both(self):
        self.load(global_section() + default_section(0, 0))
        self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY,
                                DOWNLOAD_DEFAULT_DROP + ";" + UPLOAD_DEFAULT_DROP + MARKING)

    def test_default_speed_zero_with_a_global_speed_drops_nothing(self):
        self.load(global_section(10000, 5000) + default_section(0, 0))
        self.gives_to_the_shell(SFP_QUERY, REMOVAL, BOARD_QUERY, REDIRECT, TRACK + ";" + MARKING)

    def test_unset_default_speed_drops_nothing(self):
        self.load(global_section(10000, None) + default_section(800, None))
        self.gives_to_the_shell(SFP_QUERY, REMOVAL, BOARD_QUERY, REDIRECT, TRACK + ";" + MARKING)

    def test_upload_zero_and_default_drop_of_downloads(self):
        self.load(global_section(None, 0) + default_section(0, 0))
        self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY,
                                DOWNLOAD_DEFAULT_DROP + ";" + UPLOAD_DROP)


class MissingWan(LoadTexts):
    def test_rules(self):
        self.load(global_section(10000, 5000), TARIFF)
        self.gives_to_the_shell(SFP_QUERY, REMOVAL, BOARD_QUERY, TRACK_AS_BEFORE)

    def test_address_set_is_filled_and_no_device_made(self):
        self.load(global_section(10000, 5000), TARIFF + "[silver]\nid=9\nip=192.0.2.255/24\n")
        self.assertEqual(q.set_entries(),
                         ["add kavo_opt_shaper 10.0.0.1 skbmark 0x80000004/0x80003fff",
                          "add kavo_opt_shaper 192.0.2.255 skbmark 0x80000009/0x80003fff"])
        self.assertNotIn("ifb_ingr", q.command("ip", "-o", "link"))

    def test_upload_zero(self):
        self.load(global_section(10000, 0), TARIFF)
        self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY, TRACK_AS_BEFORE)

    def test_download_zero(self):
        self.load(global_section(0, 5000), TARIFF)
        self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY, DOWNLOAD_DROP)

    def test_default_drop_of_both(self):
        self.load(global_section() + default_section(0, 0))
        self.gives_to_the_shell(SFP_QUERY, REMOVAL_AND_CHAIN, BOARD_QUERY, DOWNLOAD_DEFAULT_DROP)


class EmptyWan(LoadTexts):
    """Both directions pass "imq0", for which an ifb device stands in."""

    QUERY = "/usr/sbin/kavo-hal isSfpPlus  2>&1"

    def setUp(self):
        super().setUp()
        q.make_link("imq0", "ifb")

    def test_rules(self):
        self.load(global_section(10000, 5000, wan=""), TARIFF)
        self.gives_to_the_shell(self.QUERY, REMOVAL, IMQ_RULES)

    def test_no_address_set(self):
        self.load(global_section(10000, 5000, wan=""), TARIFF)
        self.assertEqual(q.command("ipset", "save"), "")

    def test_no_drop_rules_whatever_the_speeds(self):
        for text in (global_section(10000, 0, wan=""), global_section(0, 5000, wan=""),
                     global_section(wan="") + default_section(0, 0)):
            with self.subTest(text):
                self.load(text)
                self.gives_to_the_shell(self.QUERY, REMOVAL, IMQ_RULES)

    def test_tariffs_without_a_global_file(self):
        self.load(None, TARIFF)
        self.gives_to_the_shell(self.QUERY, REMOVAL, IMQ_RULES)

    def test_default_section_alone(self):
        self.load(default_section(800, 400))
        self.gives_to_the_shell(self.QUERY, REMOVAL, IMQ_RULES)


class FailingFirewall(q.ProgramTest):
    """A list that fails ends the run with status 1 and without a word of the program's own."""

    GLOBAL = global_section(10000, 5000)

    def setUp(self):
        super().setUp()
        q.make_link("eth1")

    def ends_silently(self, *arguments, fails="*"):
        self.assertEqual(q.run(*arguments, sudo_fails=fails), q.Result(1, "", ""))

    def test_rules_of_a_load(self):
        q.store(self.GLOBAL, TARIFF)
        self.ends_silently("--load", "--version")
        # The removal never fails; what comes before the rules stays.
        self.assertEqual(len(q.set_entries()), 1)
        self.assertIn("htb 8000: dev eth1", q.command("tc", "qdisc", "show"))

    def test_chain_of_a_load(self):
        q.store(global_section(10000, 0), TARIFF)
        kernel = q.kernel_state()
        self.ends_silently("--load")
        self.assertEqual(q.shell_texts(), [SFP_QUERY, REMOVAL_AND_CHAIN])
        self.assertEqual(q.kernel_state(), kernel)

    def test_chain_is_made_when_it_cannot_be_flushed(self):
        q.store(global_section(10000, 0))
        self.succeeds("--load", sudo_fails="*-F KAVO_OPT_QOS_HOOK")
        self.assertEqual(q.sudo_calls()[4:6],
                         [["iptables", "-t", "filter", "-F", "KAVO_OPT_QOS_HOOK"],
                          ["iptables", "-t", "filter", "-N", "KAVO_OPT_QOS_HOOK"]])

    def test_chain_is_not_made_when_it_was_flushed(self):
        q.store(global_section(10000, 0))
        self.succeeds("--load")
        self.assertNotIn(["iptables", "-t", "filter", "-N", "KAVO_OPT_QOS_HOOK"], q.sudo_calls())

    def test_hooks_that_are_absent(self):
        q.store(self.GLOBAL)
        self.succeeds("--load", sudo_fails="* -D *")

    def test_only_the_last_command_of_a_list_counts(self):
        q.store(self.GLOBAL)
        self.succeeds("--load", sudo_fails="* -R *")
        self.ends_silently("--load", fails="*--save-mark*")

    def test_teardown(self):
        self.load(self.GLOBAL, TARIFF)
        kernel, files = q.kernel_state(), q.files_state()
        for operation in ("--stop", "--clear"):
            with self.subTest(operation):
                self.ends_silently(operation)
                self.assertEqual(len(q.sudo_calls()), 7)
                self.assertEqual(q.kernel_state(), kernel)
                self.assertEqual(q.files_state(), files)

    def test_redirection(self):
        tool = q.pathlib.Path("/usr/sbin/tc")
        tool.rename("/usr/sbin/tc.real")
        self.addCleanup(q.pathlib.Path("/usr/sbin/tc.real").rename, tool)
        q.write_script(tool, "#!/usr/bin/dash\nexit 2\n")
        q.store(self.GLOBAL, TARIFF)
        self.ends_silently("--load", fails="")
        self.assertEqual(q.shell_texts(), [SFP_QUERY, REMOVAL, BOARD_QUERY, REDIRECT])
