"""The Ansible role on a router of its own, a private root of this machine: what a check shows and
leaves alone, what a run changes, and that a second run changes nothing. The package is taken for
installed, and systemd is not there.

Call: python3 -B tests/contrib/ansible_test.py PROGRAM     PROGRAM: quenby, beside it quenbyctl
"""

import json
import os
import pathlib
import subprocess
import sys
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(TREE / "tests/surroundings"))
import private_root  # noqa: E402

LINE = "[global]\nwan=eth9\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
HILL = "[4711 Hill]\nip=10.0.0.1\ndownload_speed=1000\nupload_speed=500\n"
MILL = "[4712 Mill]\nip=10.0.0.2\ndownload_speed=2000\nupload_speed=500\n"
PLAYBOOK = [{"hosts": "all", "gather_facts": False, "roles": [{
    "role": "quenby", "quenby_install": False, "quenby_service": False,
    "quenby_wanted": "/tmp/wanted", "quenby_line": "/tmp/line.ini",
    "quenby_subscribers": "/tmp/subscribers.ini"}]}]
APPLIED = pathlib.Path("/tmp/applied")
STORED = pathlib.Path("/config/tc")

# The safe way to apply is tried elsewhere: here it is the program itself.
QUENBYCTL = """#!/bin/sh
[ "$1" = apply ] || exec /quenbyctl "$@"
echo "$2" >>/tmp/applied
exec /quenby "--$2" "$3"
"""


class Role(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        for path in (*STORED.glob("*"), APPLIED):
            path.unlink(missing_ok=True)
        self.want(LINE, HILL)

    def want(self, line, subscribers):
        pathlib.Path("/tmp/line.ini").write_text(line)
        pathlib.Path("/tmp/subscribers.ini").write_text(subscribers)

    def play(self, *options):
        """Exit status, output, and the numbers of the recap."""
        pathlib.Path("/tmp/play.yml").write_text(json.dumps(PLAYBOOK))
        done = subprocess.run(
            ["ansible-playbook", "-i", "router,", "-c", "local", *options, "/tmp/play.yml"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=300,
            env=dict(os.environ, HOME="/tmp", ANSIBLE_ROLES_PATH="/tmp/roles", LC_ALL="C.UTF-8",
                     ANSIBLE_NOCOLOR="1", ANSIBLE_PIPELINING="1",
                     ANSIBLE_PYTHON_INTERPRETER="/usr/bin/python3"))
        recap = done.stdout.split("PLAY RECAP")[-1].split()
        return done.returncode, done.stdout, dict(
            word.split("=") for word in recap if "=" in word)

    def applied(self):
        return APPLIED.read_text().split() if APPLIED.exists() else []

    def stored(self):
        return {path.name: path.read_text() for path in sorted(STORED.glob("*"))}

    def test_a_life(self):
        status, out, recap = self.play("--check")
        self.assertEqual((status, recap["changed"], self.applied(), self.stored()),
                         (0, "2", [], {}), out)
        self.assertIn("add [4711 Hill]", out)

        status, out, recap = self.play()
        self.assertEqual((status, recap["changed"], self.applied()),
                         (0, "2", ["global-update", "update"]), out)
        self.assertIn("[4711 Hill]", self.stored()["tc_tariff.ini"])

        before = self.stored()
        status, out, recap = self.play()
        self.assertEqual((status, recap["changed"], len(self.applied()), self.stored()),
                         (0, "0", 2, before), out)

        self.want(LINE, HILL + MILL)
        status, out, recap = self.play("--check")
        self.assertEqual((status, recap["changed"], len(self.applied()), self.stored()),
                         (0, "1", 2, before), out)
        self.assertIn("add [4712 Mill]", out)
        self.assertNotIn("add [4711 Hill]", out)

        # A file that quenby refuses changes nothing.
        self.want(LINE, HILL + "x\n")
        status, out, recap = self.play()
        self.assertEqual((status, recap["failed"], self.stored()), (2, "1", before), out)
        self.assertIn("subscribers.ini:5:1", out)


def main(program):
    roles = TREE / "contrib/ansible/roles"
    files = {path.relative_to(roles): path.read_bytes()
             for path in roles.rglob("*") if path.is_file()}
    private_root.enter(program)
    private_root.write_program(pathlib.Path("/stand-in/quenbyctl"), QUENBYCTL.encode())
    for name, text in files.items():
        place = pathlib.Path("/tmp/roles") / name
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_bytes(text)
    STORED.mkdir()
    unittest.main()


if __name__ == "__main__":
    main(os.path.abspath(sys.argv.pop(1)))
