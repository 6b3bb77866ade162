"""`quenbyctl plan`: what it says of each command, and that quenby then does that to the firewall and
the files. The WAN interface is the only one of this network, "lo"; what quenby runs has none."""

import json
import pathlib
import re

import surroundings as s
from surroundings import GLOBAL_FILE, TARIFF_FILE

LINE = "[global]\nwan=lo\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
A = "[a]\nid=4\nip=10.0.0.1\naggregation=2\ndownload_speed=1000\nupload_speed=500\n"
B = "[b c]\nid=5\nip=10.0.0.2\nip=10.0.0.3\ndownload_speed=2000\nupload_speed=1000\n" \
    "queuing_discipline=sfq\n"
NEW = "[n]\nip=10.0.0.9\ndownload_speed=3000\nupload_speed=64\nqueuing_discipline=pfifo\n"
LOG = pathlib.Path("/sudo.log")
SUDO = pathlib.Path("/stand-in/sudo")


# For anybody but root nothing is taken to be missing, as it all is here.
ANYBODY = ("setpriv", "--reuid=65534", "--clear-groups", "--inh-caps=+dac_override",
           "--ambient-caps=+dac_override")


def plan(*arguments, wrapper=ANYBODY):
    return s.run("plan", *arguments, program="/quenbyctl", wrapper=wrapper)


def planned(*arguments, **options):
    result = plan("--json", *arguments, **options)
    assert (result.status, result.err) == (0, ""), result
    return json.loads(result.out)


class Text(s.SurroundingsTest):
    def setUp(self):
        super().setUp()
        self.store(LINE, A + B)

    def says(self, lines, *arguments):
        self.assertEqual(plan(*arguments), s.Result(0, "".join(line + "\n" for line in lines), ""))

    def test_add(self):
        self.says(["in place: only the changed tariffs' own objects differ",
                   "add [n]",
                   'class 1 "root" upload on lo: rate 5000 kbit/s, ceiling 5000 kbit/s,'
                   " burst 150000 bytes, queue of the kernel",
                   'class 6 "n" upload on lo: rate 64 kbit/s, ceiling 64 kbit/s,'
                   " burst 1920 bytes, queue pfifo, mark 0x80000006, addresses 10.0.0.9",
                   'class 1 "root" download on ifb_ingr: rate 10000 kbit/s, ceiling 10000 kbit/s,'
                   " burst 300000 bytes, queue of the kernel",
                   'class 6 "n" download on ifb_ingr: rate 3000 kbit/s, ceiling 3000 kbit/s,'
                   " burst 90000 bytes, queue pfifo, mark 0x80000006, addresses 10.0.0.9"],
                  "tariff-add", s.given(NEW))

    def test_delete(self):
        lines = plan("tariff-del", "b c").out.splitlines()
        self.assertEqual(lines[:2], ["in place: only the changed tariffs' own objects differ",
                                     "remove [b c]"])
        self.assertEqual([line.split()[1] for line in lines[2:]], ["1", "1"])

    def test_change(self):
        changed = A.replace("1000", "2000").replace("aggregation=2\n", "") + "ip=10.0.0.8\n"
        lines = plan("tariff-update", s.given(changed)).out.splitlines()
        self.assertEqual(lines[1:5], [
            'change [a] aggregation: "2" to nothing',
            'change [a] download_speed: "1000" to "2000"',
            'change [a] ip: "10.0.0.1" to "10.0.0.1, 10.0.0.8"',
            'class 1 "root" upload on lo: rate 5000 kbit/s, ceiling 5000 kbit/s, burst 150000 bytes,'
            ' queue of the kernel'])
        self.assertEqual(lines[-1], 'class 4 "a" download on ifb_ingr: rate 2000 kbit/s, ceiling '
                         "2000 kbit/s, burst 60000 bytes, queue of the kernel, mark 0x80000004, "
                         "addresses 10.0.0.1 10.0.0.8")

    def test_global_update(self):
        lines = plan("global-update", s.given(LINE.replace("10000", "400"))).out.splitlines()
        self.assertEqual(lines[:2], ["anew: the line is another one",
                                     'change [global] download_speed: "10000" to "400"'])
        # 500 and 2000 kbit/s are guaranteed of 400.
        self.assertIn('class 4 "a" download on ifb_ingr: rate 80 kbit/s, ceiling 400 kbit/s, burst '
                      "2400 bytes, queue of the kernel, mark 0x80000004, addresses 10.0.0.1", lines)
        self.assertEqual(lines[-1], "run sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j CONNMARK "
                         "--save-mark --nfmask 0x80003fff --ctmask 0x80003fff")

    def test_disabled(self):
        self.store(s.DISABLED, A)
        self.says(["nothing: shaping is not enabled: the files alone change", "add [n]"],
                  "tariff-add", s.given(NEW))
        lines = plan().out.splitlines()
        self.assertEqual(lines[0], "removal: shaping is not enabled")
        self.assertTrue(all(line.startswith("run sudo ") for line in lines[1:]), lines)


class Ways(s.SurroundingsTest):
    """In place or anew, and why."""

    def expect(self, way, reason, line, tariffs, *arguments):
        self.store(line, tariffs)
        found = planned(*arguments)
        self.assertEqual((found["way"], found["reason"]), (way, reason))

    def test_each(self):
        new = s.given(NEW)
        in_place = "only the changed tariffs' own objects differ"
        slow = LINE.replace("10000", "400")
        fresh = "the list is new, or its class numbers do not fit"
        for expected in (
                ("in place", in_place, LINE, A, "tariff-add", new),
                ("in place", in_place, LINE, A + B, "update", s.given(A)),
                ("anew", "rebuild: the guarantees exceed a limit", slow, A, "tariff-add", new),
                ("anew", "rebuild: there was no tariff", LINE, "", "tariff-add", new),
                ("anew", "rebuild: the WAN interface is missing", LINE.replace("=lo", "=eth9"), A + B,
                 "tariff-del", "a"),
                ("anew", "line only: no tariff is left", LINE, A, "tariff-del", "a"),
                ("anew", fresh, LINE, None, "tariff-add", new),
                ("anew", fresh, LINE, A + B.replace("5\n", "4\n", 1), "tariff-add", new),
                ("anew", "the class numbers are handed out again", LINE,
                 A + B.replace("5\n", "4\n", 1), "tariff-del", "a"),
                ("anew", "the class numbers are handed out again", LINE, None, "update", new),
                ("anew", "a load builds everything", LINE, A),
                ("anew", "a load builds everything", LINE, None, "load"),
                ("removal", "nothing is left to shape", None, A, "tariff-del", "a"),
                ("removal", "shaping is not enabled", LINE, A, "global-update",
                 s.given(NEW and s.DISABLED)),
                ("nothing", "shaping is not enabled: the files alone change", s.DISABLED, A,
                 "tariff-del", "a")):
            with self.subTest(expected[:2], arguments=expected[4:]):
                if expected[-1] == str(s.GIVEN):
                    s.given({"update": A if expected[3] == A + B else NEW,
                             "global-update": s.DISABLED}.get(expected[-2], NEW))
                self.expect(*expected)

    def test_nothing_stands(self):
        self.store(LINE, A)
        found = planned("tariff-add", s.given(NEW), wrapper=())
        self.assertEqual((found["way"], found["reason"]),
                         ("anew", "rebuild: something that a change relies on is missing"))
        self.assertIn("sudo iptables -t raw -R QOS_CONNTRACK 1 -j ACCEPT", found["commands"])


def as_run(command):
    """What a stand-in for sudo is given of a command of the plan."""
    words = command.split("||")[0].replace(">/dev/null 2>&1", "").split()
    return " ".join(words[1:])


class Doing(s.SurroundingsTest):
    """quenby itself does what the plan said."""

    def setUp(self):
        super().setUp()
        before = SUDO.read_text()
        self.addCleanup(SUDO.write_text, before)
        SUDO.write_text("#!/bin/sh\necho \"$*\" >>%s\n" % LOG)

    def does(self, line, tariffs, *arguments, text=None):
        line = line and line.replace("wan=lo", "wan=eth9")
        self.store(line, tariffs)
        if text is not None:
            arguments = (*arguments, s.given(text))
        found, before = planned(*arguments), s.state()
        self.assertEqual(s.state(), before)
        LOG.write_text("")
        command, *rest = arguments or ("load",)
        self.succeeds("--" + command, *rest)
        ran = LOG.read_text().splitlines()
        self.assertEqual([as_run(command) for command in found["commands"]], ran)
        names = re.findall(r"^\[(.*)\]$", s.content(TARIFF_FILE) or "", re.M)
        stored = re.findall(r"^\[(.*)\]$", tariffs or "", re.M)
        self.assertEqual(sorted(names), sorted(
            (set(stored) | set(found["tariffs"]["added"])) - set(found["tariffs"]["removed"])))
        return found

    def test_load(self):
        self.does(LINE, A + B)
        self.does(LINE, None)
        self.does(s.DISABLED, A)
        self.does(LINE.replace("10000", "0"), A)

    def test_edits(self):
        for line in (LINE, LINE.replace("10000", "700"), LINE.replace("upload_speed=5000", ""),
                     s.DISABLED, LINE.replace("10000", "0")):
            self.does(line, A, "tariff-add", text=NEW)
            self.does(line, A + B, "tariff-update", text=B.replace("2000", "500"))
            self.does(line, A + B, "tariff-del", "a")
            self.does(line, A, "tariff-del", "a")
            self.does(line, A + B, "update", text=NEW + A)
            self.does(line, A + B, "update", text="")

    def test_ipv6(self):
        six, prefix = LINE + "ipv6=true\n", "ip6=2001:db8::/56\n"
        for line in (six, six.replace("10000", "0"), LINE):
            self.does(line, A + prefix + B)
            self.does(line, A, "tariff-add", text=NEW + prefix)
            self.does(line, A + prefix, "tariff-del", "a")
        self.does(six, A, "global-update", text=LINE.replace("=lo", "=eth9"))
        self.does(LINE, A, "global-update", text=six.replace("=lo", "=eth9"))
        self.does(six, A, "global-update", text=s.DISABLED)

    def test_new_lists(self):
        for line in (LINE, LINE.replace("true", "false")):
            self.does(line, None, "tariff-add", text=NEW)
            self.does(line, None, "update", text=NEW)
            self.does(line, A.replace("id=4", "id=1"), "tariff-add", text=NEW)

    def test_lines(self):
        self.does(LINE, A, "global-update", text=LINE.replace("=lo", "=eth9").replace("10000", "500"))
        self.does(LINE, A, "global-update", text=s.DISABLED)
        self.does(s.DISABLED, A, "global-update", text=LINE.replace("wan=lo", "wan=eth8"))


class Refusals(s.SurroundingsTest):
    def refused(self, text, *arguments):
        before = s.state()
        self.assertEqual(plan(*arguments), s.Result(1, "", "quenbyctl: quenby refuses this: " + text))
        self.assertEqual(s.state(), before)
        run = s.run("--" + arguments[0], *arguments[1:])
        self.assertEqual(run.err, "Error: " + text.split("\n")[0] + "\n")

    def test_as_quenby_does(self):
        self.store(s.DISABLED, A)
        self.refused("tariff does not exist\n", "tariff-del", "x")
        self.refused("wrong tariff configuration: already exists\n", "tariff-add", s.given(A))
        self.refused('wrong tariff configuration\n%s:1:1: no "=" in this line\n' % s.GIVEN,
                     "update", s.given("x"))
        self.refused("wrong new tariff configuration\n", "tariff-update", s.given(NEW))
        self.refused('wrong new global configuration\n%s:1:1: no "=" in this line\n' % s.GIVEN,
                     "global-update", s.given("x"))
        self.store("x\n", A)
        self.refused('wrong global configuration\n%s:1:1: no "=" in this line\n' % GLOBAL_FILE,
                     "load")
        self.store(LINE, "x\n")
        self.refused('wrong current tariff configuration\n%s:1:1: no "=" in this line\n'
                     % TARIFF_FILE, "load")

    def test_wrong_calls(self):
        self.store(LINE, A)
        for arguments, text in ((["tariff-add"], "plan tariff-add needs an argument"),
                                (["load", "x"], "plan load takes no argument")):
            self.assertEqual(plan(*arguments), s.Result(2, "", "quenbyctl: %s\n" % text))
        for arguments in (["stop"], ["tariff-del", "a", "b"], ["--bogus"]):
            self.assertEqual(plan(*arguments).status, 2)
        TARIFF_FILE.chmod(0)
        powerless = ("setpriv", "--bounding-set=-all", "--inh-caps=-all")
        self.assertEqual(plan(wrapper=powerless), s.Result(
            2, "", "quenbyctl: %s: Permission denied\n" % TARIFF_FILE))

    def test_nothing_is_changed(self):
        self.store(LINE, A)
        before = s.state()
        s.run_with("ioctl:error=EIO", "plan", "tariff-del", "a", program="/quenbyctl")
        self.assertEqual(s.state(), before)
        calls = s.LOG.read_text()
        self.assertNotRegex(calls, r"(?m)^(flock|unlink|rename|mkdir|sendmsg|sendto)\w*\(")
        self.assertNotRegex(calls, r"/config.*(O_WRONLY|O_RDWR|O_CREAT)")
