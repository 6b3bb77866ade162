"""What `quenbyctl plan` says of the firewall is what quenby runs on a line that exists, command by
command."""

import json
import pathlib

import quenby_program as q
from test_edit_commands import GLOBAL, GOLD, IRON, TIN
from test_watch import quenbyctl

NOTE = pathlib.Path("/run/quenby-ipv6")
SIX = GLOBAL + "ipv6=true\n"
CLOSED = GLOBAL.replace("upload_speed=5000", "upload_speed=0")
DEFAULT = "[defaultqosipqueue]\ndownload_speed=500\nupload_speed=0\n"
UNNAMED = GLOBAL.replace("wan=eth1\n", "")
LINES = {"a line": GLOBAL, "IPv6": SIX, "a closed direction": CLOSED + "ipv6=true\n",
         "a closed default tariff": GLOBAL.split("download")[0] + DEFAULT}
# Of a day's steps.
WAYS = {"a line": ["anew", "in place", "in place", "anew", "anew", "anew"],
        "a closed default tariff": ["anew", "in place", "in place", "in place", "anew", "anew"]}
PREFIX = "ip6=2001:db8::/56\n"


def ran():
    """What the shell was given, without what asks the hardware and what makes filters."""
    texts = [text for text in q.shell_texts()
             if text != "sync" and not text.startswith(("/usr/sbin/kavo-hal ", "/sbin/tc "))]
    return [command for text in texts for command in text.split(";")]


class Plan(q.ProgramTest):
    def setUp(self):
        super().setUp()
        NOTE.unlink(missing_ok=True)
        self.addCleanup(NOTE.unlink, missing_ok=True)
        q.make_link("eth1")

    def foretells(self, command, *arguments):
        """How it is done, and the commands."""
        result = quenbyctl("plan", "--json", command, *arguments)
        self.assertEqual((0, ""), (result.status, result.err), result.out)
        plan = json.loads(result.out)
        self.succeeds("--" + command, *arguments)
        self.assertEqual(plan["commands"], ran())
        return plan["way"], plan["commands"]

    def test_a_day(self):
        for name, line in LINES.items():
            with self.subTest(name):
                q.store(line, GOLD + PREFIX + IRON)
                done = [self.foretells("load"),
                        self.foretells("tariff-add", q.given(TIN + PREFIX)),
                        self.foretells("tariff-del", "tin"),
                        self.foretells("tariff-update", q.given(GOLD.replace("2000", "20000"))),
                        self.foretells("update", q.given("")),
                        self.foretells("tariff-add", q.given(TIN))]
                # The guarantees of a closed direction exceed it.
                ways = ["anew"] * 6 if "direction" in name else WAYS.get(name, WAYS["a line"])
                self.assertEqual(ways, [way for way, _ in done])
                self.assertEqual(ways, ["anew" if commands else "in place" for _, commands in done])

    def test_lines(self):
        q.store(GLOBAL, GOLD + IRON)
        self.foretells("load")
        for line in (*LINES.values(), GLOBAL.replace("eth1", "eth9"), GLOBAL):
            self.assertEqual("anew", self.foretells("global-update", q.given(line))[0])
        off = GLOBAL.replace("true", "false")
        self.assertEqual("removal", self.foretells("global-update", q.given(off))[0])

    def test_without_a_name(self):
        q.make_link("imq0")
        q.store(UNNAMED, GOLD + IRON)
        self.assertEqual("anew", self.foretells("load")[0])
        self.assertEqual("in place", self.foretells("tariff-del", "iron")[0])
        self.assertEqual("anew", self.foretells("global-update", q.given(GLOBAL))[0])
