"""A WAN name is one word for the shell, whatever it holds."""

import quenby_program as q

TRAP = q.pathlib.Path("/run/x")
# No device can have these names; the rules for a closed download name it even so.
IMPOSSIBLE = ("eth1;touch /run/x", "$(touch /run/x)", "`touch /run/x`", "eth1 && touch /run/x",
              "eth1|touch /run/x", "eth1>/run/x", "'; touch /run/x; '", "'$(touch /run/x)'",
              "\"; touch /run/x; \"", "\"$(touch /run/x)\"", "eth1 eth2", "a\\'; touch /run/x #",
              "eth1\ttouch", "*", "/*", "~", "${PATH}", "!!", "#eth1", "\xe9th1", "\\", "-o")
# A kernel lets a device have these.
POSSIBLE = ("a;reboot", "$(id)", "`id`", "x'y\"z", "a&b|c", "*?[a]", "~root", "$HOME", "a>b<c",
            "a\\b", "#1", "!{a,b}")
ORDINARY = ("eth1.100", "ppp_0", "wan-1", "eth0@if3", "a:b", "WAN", "br0")


class HostileNames(q.ProgramTest):
    def setUp(self):
        super().setUp()
        TRAP.unlink(missing_ok=True)

    def rules_for(self, flag):
        return [call[call.index(flag) + 1] for call in q.sudo_calls() if flag in call]

    def load_with(self, name, download):
        q.store("[global]\nenabled=true\nwan=%s\ndownload_speed=%d\nupload_speed=1000\n"
                % (name, download), "[gold]\nid=4\nip=10.0.0.1\nupload_speed=500\n")
        self.succeeds("--load")

    def test_names_without_a_device(self):
        for name in IMPOSSIBLE:
            with self.subTest(name):
                self.load_with(name, 0)
                self.assertEqual(q.hardware_calls(), [["isSfpPlus", name], ["getBoardShortName"]])
                self.assertEqual(self.rules_for("-i"), [name])
                self.assertFalse(TRAP.exists())

    def test_names_of_devices(self):
        for name in POSSIBLE:
            with self.subTest(name):
                q.make_link(name)
                self.load_with(name, 2000)
                self.assertEqual(q.hardware_calls(), [["isSfpPlus", name], ["getBoardShortName"]])
                self.assertEqual(self.rules_for("-o"), [name])
                self.assertIn("mirred (Egress Redirect to device ifb_ingr)", q.filters(name)[1])
                q.clean_router()

    def test_second_query(self):
        q.answer_hardware(isSfpPlus="1", getEthPhysical="Speed: 10000")
        self.load_with("$(touch /run/x)", 0)
        self.assertEqual(q.hardware_calls()[:2], [["isSfpPlus", "$(touch /run/x)"],
                                                  ["getEthPhysical", "$(touch /run/x)"]])
        self.assertFalse(TRAP.exists())

    def test_steering(self):
        q.answer_hardware(getBoardShortName="KX-6-TR")
        self.load_with("eth1;touch /run/x", 0)
        self.assertFalse(TRAP.exists())
        self.assertFalse([text for text in q.shell_texts() if text.startswith("echo")])

    def test_single_quotes_around_a_name_that_is_not_ordinary(self):
        self.load_with("eth1;touch /run/x", 0)
        self.assertEqual(q.shell_texts()[0],
                         "/usr/sbin/kavo-hal isSfpPlus 'eth1;touch /run/x' 2>&1")
        self.assertEqual(q.shell_texts()[-1],
                         "sudo iptables -t filter -I OSTREA_FW_IN_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
                         "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -i 'eth1;touch /run/x'"
                         " -j DROP;sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN")

    def test_ordinary_names_stand_as_they_are(self):
        for name in ORDINARY:
            with self.subTest(name):
                self.load_with(name, 0)
                self.assertEqual(q.shell_texts()[0], "/usr/sbin/kavo-hal isSfpPlus " + name +
                                 " 2>&1")
                self.assertIn(" -i " + name + " -j DROP;", q.shell_texts()[-1])
