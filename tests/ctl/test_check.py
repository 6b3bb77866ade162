"""`quenbyctl check`: what it prints, where, and how it ends. It changes nothing and needs nobody's
rights but to read the files."""

import json
import os
import pty
import subprocess

import surroundings as s
from surroundings import GLOBAL_FILE, TARIFF_FILE

LINE = "[global]\nwan=eth9\nenabled=true\ndownload_speed=1000\n"
TARIFF = "[a]\nid=4\nip=10.0.0.1\ndownload_speed=1000\nupload_speed=1000\n"
# Takes all that root may and others may not.
POWERLESS = ("setpriv", "--bounding-set=-all", "--inh-caps=-all")

HELP = """\
Say where the program would refuse a file, and what is surely not meant
Usage: quenbyctl check [OPTIONS]

Options:
  -h,--help                   Print this help message and exit
  --global FILE               A global file, in the stored one's place
  --tariffs FILE              A tariff file, in the stored one's place
  --kind TEXT:{named,stored}  How the program would be given the files
  --json                      Print JSON

"""


def check(*arguments, **options):
    return s.run("check", *arguments, program="/quenbyctl", **options)


def warning(path, line, column, text, source):
    return "%s:%d:%d: warning: %s\n%s\n%s^\n" % (path, line, column, text, source,
                                                  " " * (column - 1))


class Answer(s.SurroundingsTest):
    def test_nothing_to_say(self):
        self.store(LINE, TARIFF)
        self.assertEqual(check(), s.Result(0, "", ""))
        self.assertEqual(check("--json"), s.Result(0, '{\n  "findings": []\n}\n', ""))

    def test_ipv6(self):
        self.store(LINE, TARIFF + "ip6=2001:DB8::7/64\nip6=fe80::1\n")
        self.assertEqual(check(), s.Result(
            1, warning(TARIFF_FILE, 6, 5, '"2001:DB8::7/64" is stored as 2001:db8::/64: the bits after'
                       " the prefix are cleared", "ip6=2001:DB8::7/64")
            + '%s:7:5: error: "fe80::1" is not an IPv6 address or prefix of a subscriber, with a'
            ' length from 1 to 128\nip6=fe80::1\n    ^\n' % TARIFF_FILE, ""))
        prefix = TARIFF + "ip6=2001:db8::/64\n"
        self.store(LINE + "ipv6=true\n", prefix)
        self.assertEqual(check(), s.Result(0, "", ""))
        self.store(LINE, prefix)
        self.assertEqual(check(), s.Result(1, warning(
            TARIFF_FILE, 6, 5, 'no "ip6" has an effect: the line has no "ipv6=true"',
            "ip6=2001:db8::/64"), ""))
        self.assertEqual(check("--global", str(GLOBAL_FILE)), s.Result(0, "", ""))
        alone = "[global]\nenabled=true\nipv6=true\n"
        self.assertEqual(check("--global", s.given(alone)), s.Result(1, warning(
            s.GIVEN, 3, 6, 'ipv6=true has no effect without "wan": IPv6 is shaped on a WAN interface'
            " alone", "ipv6=true"), ""))

    def test_no_files(self):
        self.store(None, None)
        self.assertEqual(check(), s.Result(0, "", ""))

    def test_errors_and_warnings(self):
        self.store("[global]\n wan\n", TARIFF + "aggregation=0\nip=10.0.0\n")
        self.assertEqual(check(), s.Result(
            1, '%s:2:2: error: no "=" in this line\n wan\n ^\n' % GLOBAL_FILE
            + warning(TARIFF_FILE, 6, 13, "an aggregation of 0 changes nothing", "aggregation=0")
            + '%s:7:4: error: "10.0.0" is not an IPv4 address\nip=10.0.0\n   ^\n' % TARIFF_FILE,
            ""))

    def test_json(self):
        self.store(LINE, "[a\xff]\nid=4\nip=10.0.0.1\nupload_speed=1\ndownload_speed=7k\n")
        TARIFF_FILE.write_bytes(TARIFF_FILE.read_text().encode("latin-1"))
        result = check("--json")
        self.assertEqual((result.status, result.err), (1, ""))
        self.assertEqual(json.loads(result.out), {"findings": [{
            "file": str(TARIFF_FILE), "line": 5, "column": 16, "severity": "warning",
            "code": "text-after-number",
            "text": '"7k" is read as 7 kbit/s: "k" is ignored'}]})

    def test_a_directory(self):
        self.store(tariff_text=None)
        TARIFF_FILE.mkdir()
        self.assertEqual(check(), s.Result(1, "%s: error: is a directory\n" % TARIFF_FILE, ""))

    def test_a_file_that_cannot_be_read(self):
        self.store(LINE, TARIFF)
        result = s.run_with("read:error=EIO", "check", path=TARIFF_FILE, program="/quenbyctl")[0]
        self.assertEqual(result, s.Result(
            1, "%s: error: cannot be read: Input/output error\n" % TARIFF_FILE, ""))

    def test_nothing_is_changed(self):
        self.store("[global]\nenabled=true\n", "[a]\nid=1\nid=16000\n")
        before = s.state()
        s.run_with("ioctl:error=EIO", "check", program="/quenbyctl")
        self.assertEqual(s.state(), before)
        calls = s.LOG.read_text()
        self.assertNotRegex(calls, r"(?m)^(socket|flock|unlink|rename|mkdir|fork|clone|vfork)\w*\(")
        self.assertNotRegex(calls, r"O_WRONLY|O_RDWR|O_CREAT")
        self.assertIn(str(TARIFF_FILE), calls)


class Files(s.SurroundingsTest):
    def test_a_named_file_takes_the_place_of_the_stored_one(self):
        self.store("wrong\n", "wrong\n")
        self.assertEqual(check("--tariffs", s.given(TARIFF)).status, 0)
        self.assertEqual(check("--global", s.given(LINE)).status, 0)
        self.assertEqual(check("--global", s.given(LINE), "--tariffs", s.given("wrong")).status, 1)

    def test_the_stored_file_completes_a_named_one(self):
        self.store("[global]\nupload_speed=500\n", None)
        result = check("--tariffs", s.given(TARIFF))
        self.assertEqual(result, s.Result(1, warning(
            s.GIVEN, 5, 14, "the guarantees of upload come to 1000 kbit/s, the limit is 500 kbit/s:"
            " each tariff keeps 0.5 of its own, and the default tariff none",
            "upload_speed=1000"), ""))

    def test_the_kinds(self):
        twice = "[a]\nid=4\nip=10.0.0.1\nupload_speed=1\ndownload_speed=1\n"
        twice += twice.replace("=4", "=5").replace("0.1", "0.2")
        self.store(LINE, None)
        self.assertEqual(check("--tariffs", s.given(twice)).status, 1)
        self.assertEqual(check("--tariffs", s.given(twice), "--kind", "named").status, 1)
        self.assertEqual(check("--tariffs", s.given(twice), "--kind", "stored").status, 0)
        self.store(LINE, twice)
        self.assertEqual(check().status, 0)
        self.assertEqual(check("--tariffs", str(TARIFF_FILE)).status, 0)
        self.assertEqual(check("--kind", "named").status, 1)

    def test_a_file_without_numbers_is_no_stored_one(self):
        text = TARIFF.replace("id=4\n", "")
        self.assertEqual(check("--tariffs", s.given(text)).status, 0)
        self.assertEqual(check("--kind", "stored", "--tariffs", s.given(text)), s.Result(
            1, '%s:1:2: error: section "a" has no id\n[a]\n ^\n' % s.GIVEN, ""))

    def test_a_pipe(self):
        result = check("--tariffs", "/dev/stdin", stdin=None, input=TARIFF + "[a]\n")
        self.assertEqual(result, s.Result(
            1, '/dev/stdin:6:2: error: section "a" is in the file twice\n[a]\n ^\n', ""))


class Calls(s.SurroundingsTest):
    def test_help(self):
        self.assertEqual(check("--help"), s.Result(0, HELP, ""))

    def test_version(self):
        ours = s.run("--version").out.splitlines()[1]
        self.assertEqual(s.run("--version", program="/quenbyctl"),
                         s.Result(0, ours.replace("Quenby version", "quenbyctl") + "\n", ""))

    def test_wrong_calls(self):
        for arguments in (["x"], ["--kind", "other"], ["--global"], ["--bogus"]):
            result = check(*arguments)
            self.assertEqual((result.status, result.out), (2, ""), arguments)
            self.assertIn("Run with --help for more information.\n", result.err)
        self.assertEqual(s.run(program="/quenbyctl"), s.Result(
            2, "", "A subcommand is required\nRun with --help for more information.\n"))

    def test_output_that_goes_nowhere(self):
        self.store(LINE, "[a]\n")
        with open("/dev/full", "w") as full:
            done = subprocess.run(["/quenbyctl", "check"], stdout=full, stderr=subprocess.PIPE,
                                  timeout=60)
        self.assertEqual((done.returncode, done.stderr),
                         (2, b"quenbyctl: cannot write to standard output\n"))

    def test_without_root(self):
        self.store(LINE, TARIFF)
        self.assertEqual(check(wrapper=POWERLESS), s.Result(0, "", ""))
        TARIFF_FILE.chmod(0)
        self.assertEqual(check(wrapper=POWERLESS), s.Result(
            2, "", "quenbyctl: %s: Permission denied\n" % TARIFF_FILE))
        # Where it is only to complete another one, that is looked at alone.
        self.assertEqual(check("--global", str(GLOBAL_FILE), wrapper=POWERLESS),
                         s.Result(0, "", ""))


class Colours(s.SurroundingsTest):
    def on_terminal(self, **variables):
        main, other = pty.openpty()
        environment = {**os.environ, "TERM": "xterm", **variables}
        done = subprocess.run(["/quenbyctl", "check"], stdout=other, env=environment, timeout=60)
        self.assertEqual(done.returncode, 1)
        os.close(other)
        text = os.read(main, 65536).decode().replace("\r\n", "\n")
        os.close(main)
        return text

    def test_on_a_terminal_alone(self):
        self.store(LINE, "[a]\n")
        plain = check().out
        self.assertNotIn("\033", plain)
        coloured = self.on_terminal()
        self.assertIn("\033[1;31merror:\033[m", coloured)
        self.assertEqual(self.on_terminal(TERM="dumb"), plain)
        self.assertEqual(self.on_terminal(NO_COLOR="1"), plain)
