"""`quenbyctl verify`, `repair` and `who` where they find something and where they cannot look: their
exit status and their JSON. The WAN interface is "lo", which holds nothing of ours, and no command
of the firewall does anything."""

import json
import pathlib

import private_root
import surroundings as s
from surroundings import TARIFF_FILE

LINE = "[global]\nwan=lo\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
TARIFFS = "[a]\nid=4\nip=10.0.0.1\ndownload_speed=1000\nupload_speed=500\n"
LOCK = pathlib.Path("/run/quenby.lock")
DIFFERENCE = {"finding", "place", "object", "detail"}


def ctl(*arguments, **options):
    return s.run(*arguments, program="/quenbyctl", **options)


class DifferencesTest(s.SurroundingsTest):
    COMMANDS = (("verify",), ("repair",), ("who", "10.0.0.1"))

    def setUp(self):
        super().setUp()
        self.store(LINE, TARIFFS)
        # A network without what a test before has repaired.
        private_root.unshare(private_root.CLONE_NEWNET)

    def found(self, *arguments):
        """What was printed, with status 1."""
        result = ctl(*arguments)
        self.assertEqual(1, result.status, result)
        return json.loads(result.out) if "--json" in arguments else result.out.splitlines()


class Findings(DifferencesTest):
    def test_verify(self):
        lines, read = self.found("verify"), self.found("verify", "--json")
        self.assertEqual({"differences"}, set(read))
        self.assertEqual([DIFFERENCE] * len(lines), [set(one) for one in read["differences"]])
        self.assertIn("missing: lo qdisc 8000:", lines)
        self.assertIn({"finding": "missing", "place": "lo", "object": "qdisc 8000:", "detail": ""},
                      read["differences"])

    def test_repair_leaves_the_firewall(self):
        lines, read = self.found("repair"), self.found("repair", "--json")
        self.assertLessEqual({line.split()[0] for line in lines}, {"mended", "left"})
        self.assertIn("firewall", {line.split()[2] for line in lines if line.startswith("left ")})
        self.assertEqual({"differences", "mended"}, set(read))
        self.assertIn("firewall", {one["place"] for one in read["differences"]})
        for one in read["differences"] + read["mended"]:
            self.assertEqual(DIFFERENCE, set(one))
        # What was mended is no difference any more.
        self.assertEqual([line.removeprefix("left ") for line in lines if line.startswith("left ")],
                         self.found("verify"))

    def test_who(self):
        read = self.found("who", "--json", "10.0.0.1", "2001:db8::1")
        self.assertEqual({"addresses"}, set(read))
        ours, other = read["addresses"]
        members = {"address", "tariffs", "number", "upload", "download", "mark", "set_mark",
                   "classes", "connections", "problems"}
        self.assertEqual((members, members | {"prefix"}), (set(ours), set(other)))
        for one in ours["classes"]:
            self.assertEqual({"direction", "device", "class", "name", "guarantee", "ceiling", "leaf"},
                             set(one))
        self.assertEqual((["a"], 4, "class", "class", 0x80000004, None),
                         (ours["tariffs"], ours["number"], ours["upload"], ours["download"],
                          ours["mark"], ours["set_mark"]))
        self.assertIn("missing: lo qdisc 8000:", ours["problems"])
        self.assertIn("  problem: missing: lo qdisc 8000:", self.found("who", "10.0.0.1"))

    def test_refused_files(self):
        TARIFF_FILE.write_text("wrong\n")
        for command in (*self.COMMANDS, ("plan",), ("export",), ("top", "--once")):
            for options in ((), ("--json",)):
                result = ctl(*command, *options)
                self.assertEqual((1, ""), (result.status, result.out), result)
                self.assertIn("quenby refuses this: wrong current tariff configuration", result.err)


class NothingFound(DifferencesTest):
    def test_where_nothing_is_asked_for(self):
        self.store(s.DISABLED, TARIFFS)
        result = ctl("who", "10.0.0.1")
        self.assertEqual(s.Result(0, '10.0.0.1: tariff "a", number 4\n  upload: unshaped\n'
                                     "  download: unshaped\n", ""), result)


class NotRun(DifferencesTest):
    def fails(self, message, *arguments, **options):
        for more in ((), ("--json",)):
            result = ctl(*arguments, *more, **options)
            self.assertEqual((2, ""), (result.status, result.out), result)
            self.assertEqual(f"quenbyctl: {message}\n", result.err)

    def test_without_the_lock(self):
        LOCK.unlink(missing_ok=True)
        LOCK.mkdir()
        self.addCleanup(LOCK.rmdir)
        for command in self.COMMANDS:
            self.fails("cannot open /run/quenby.lock: Is a directory", *command)

    def test_what_is_no_address(self):
        for text, kind in (("10.0.0.256", "IPv4"), ("2001:db8::x", "IPv6"), ("a", "IPv4"),
                           ("10.0.0.1/32", "IPv4")):
            self.fails(f'"{text}" is no {kind} address', "who", "10.0.0.1", text)

    def test_output_that_cannot_be_written(self):
        for command in self.COMMANDS:
            for options in ((), ("--json",)):
                with open("/dev/full", "w", encoding="ascii") as full:
                    done = s.subprocess.run(["/quenbyctl", *command, *options], stdout=full,
                                            stderr=s.subprocess.PIPE, text=True, check=False)
                self.assertEqual(2, done.returncode, done)
                self.assertIn("quenbyctl: ", done.stderr)

    def test_wrong_calls(self):
        for arguments in (("verify", "x"), ("repair", "--no"), ("who",)):
            result = ctl(*arguments)
            self.assertEqual((2, ""), (result.status, result.out), result)
