"""The manual page and both completions have the subcommands and options that quenbyctl has, and
the page has each member of its JSON.

Call: python3 tests/ctl/documents_test.py PROGRAM     PROGRAM: quenbyctl
"""

import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(TREE / "tests/completion"), str(TREE / "tests/contrib")]
import interactive  # noqa: E402
import metrics  # noqa: E402

PAGE = (TREE / "docs/man/quenbyctl.1").read_text()
PROGRAM = None


def help_of(*command):
    return subprocess.run([PROGRAM, *command, "--help"], stdout=subprocess.PIPE, check=True,
                          text=True).stdout


def subcommands():
    return re.findall(r"^  ([a-z]+) ", help_of().split("Subcommands:\n")[1], re.M)


def options(command):
    return sorted(re.findall(r"^  (?:-h,)?(--[a-z-]+)", help_of(command), re.M))


def plan_commands():
    return re.search(r"\{([a-z,-]+)\}", help_of("plan"))[1].split(",")


def bash_offers(*words):
    script = ('source "$1"; shift; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _quenbyctl; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    done = subprocess.run(["bash", "--norc", "-c", script, "bash",
                           TREE / "completion/quenbyctl.bash", "quenbyctl", *words], text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert (done.returncode, done.stderr) == (0, ""), done
    return done.stdout.split()


class Documents(unittest.TestCase):
    def part(self, command):
        return re.search(r"^\.Ss %s\n(.*?)^\.S[sh] " % command, PAGE, re.M | re.S)[1]

    def test_the_page_has_the_subcommands(self):
        described = PAGE.split(".Sh DESCRIPTION")[1].split(".Ss JSON")[0]
        self.assertEqual(re.findall(r"^\.Ss (\w+)$", described, re.M), subcommands())

    def test_the_page_has_the_options(self):
        for command in subcommands():
            found = re.findall(r"^\.It Fl -([a-z-]+)", self.part(command), re.M)
            self.assertEqual(sorted("--" + name for name in found), options(command), command)

    def test_the_page_has_the_commands_of_plan(self):
        self.assertEqual(sorted(re.findall(r"^\.It Cm ([a-z-]+)", self.part("plan"), re.M)),
                         plan_commands())

    def test_the_page_has_the_members_of_a_plan(self):
        source = (TREE / "ctl/plan_output.cpp").read_text()
        members = set(re.findall(r'(?:\{|object\[)"([a-z_]+)"', source))
        described = PAGE.split(".It Cm plan\nAn object")[1].split(".It Cm apply\n")[0]
        self.assertGreater(len(members), 15)
        self.assertEqual(set(re.findall(r"^\.(?:It )?Li ([a-z_]+)", described, re.M)), members)

    def test_the_page_has_the_outcomes_of_a_change(self):
        source = (TREE / "ctl/outcome.cpp").read_text()
        described = PAGE.split(".It Cm apply\nalso")[1].split(".It Cm verify\n")[0]
        members = re.findall(r'\{"([a-z]+)"', source)
        self.assertGreater(len(members), 4)
        self.assertEqual(re.findall(r"^\.It Li ([a-z]+)$", described, re.M), members)
        kinds = re.findall(r'return "([a-z ]+)";', source.split("word(Kind kind)")[1].split("\n}")[0])
        self.assertGreater(len(kinds), 6)
        found = re.findall(r'^\.Li "?([a-z ]+?)"?(?: ,)?$', described, re.M)
        self.assertEqual(sorted(found), sorted(kinds))

    def described(self, begin, end):
        """The words in the page's part about JSON between two lines."""
        text = PAGE.split(".Ss JSON")[1].split(begin)[1].split(end)[0]
        return set(re.findall(r'^\.(?:It )?Li "?([a-z_ ]+?)"?(?: [,)].*)?$', text, re.M))

    def test_the_page_has_the_members_of_a_difference(self):
        source = (TREE / "ctl/kernel_drift.cpp").read_text()
        members = set(re.findall(r'\{"([a-z_]+)"', source))
        self.assertEqual(members, {"differences", "mended", "finding", "place", "object", "detail"})
        self.assertEqual(self.described(".It Cm verify\n", ".It Cm who\n"),
                         members | {"missing", "different", "unwanted"})

    def test_the_page_has_the_members_of_who(self):
        source = (TREE / "ctl/who_output.cpp").read_text()
        members = set(re.findall(r'(?:\{|object\[)"([a-z_]+)"', source)) | {"upload", "download"}
        self.assertGreater(len(members), 20)
        words = set(re.findall(r'return "([a-z ]+)";', source))
        self.assertEqual(len(words), 4)
        self.assertEqual(self.described(".It Cm who\n", ".It Cm export\n"),
                         members | words | {"system"})

    def test_the_page_has_the_codes_of_warnings(self):
        sources = "".join(path.read_text() for path in (TREE / "ctl").glob("*_warnings.cpp"))
        codes = set(re.findall(r'"([a-z][a-z0-9]*(?:-[a-z0-9]+)+|oversubscribed|fraction)",', sources))
        self.assertGreater(len(codes), 10)
        self.assertEqual(set(re.findall(r"^\.It Li ([a-z0-9-]+)$", self.part("check"), re.M)), codes)

    def test_the_page_has_the_members_of_a_finding(self):
        with tempfile.NamedTemporaryFile("w") as file:
            file.write("wrong\n")
            file.flush()
            done = subprocess.run([PROGRAM, "check", "--json", "--tariffs", file.name],
                                  stdout=subprocess.PIPE)
        finding, = json.loads(done.stdout)["findings"]
        described = PAGE.split(".Ss JSON")[1].split(".It Li findings")[1].split("\n.El")[0]
        self.assertEqual(sorted(re.findall(r"^\.It Li (\w+)$", described, re.M)), sorted(finding))


class Export(unittest.TestCase):
    part = Documents.part

    def test_the_page_has_the_metrics(self):
        described = self.part("export").split("The metrics.")[1]
        of_classes, others = described.split("The others,")
        names = re.findall(r"^\.It Li ([a-z_]+)", of_classes, re.M)
        self.assertEqual(len(names), 10)
        wanted = {kind + name for kind in ("tariff_", "line_") for name in names}
        wanted |= set(re.findall(r"^\.It Li quenby_([a-z_]+)", others, re.M))
        self.assertEqual({"quenby_" + name for name in wanted}, metrics.written())

    def test_the_page_has_the_members(self):
        source = (TREE / "ctl/measurement_output.cpp").read_text()
        members = set(re.findall(r'(?:\{|\()"([a-z_]+)"', source)) | {"enabled", "seconds"}
        source = (TREE / "ctl/top_output.cpp").read_text()
        members |= set(re.findall(r'\{"([a-z_]+)"', source))
        described = PAGE.split(".It Cm export\nAn object")[1].split(".Sh ENVIRONMENT")[0]
        self.assertGreater(len(members), 25)
        self.assertEqual(set(re.findall(r"^\.(?:It )?Li ([a-z_]+)", described, re.M)), members)

    def test_the_page_and_the_completions_have_formats_and_orders(self):
        for command, option, kind in (("export", "format", "format"), ("top", "sort", "order")):
            names = re.search(r"--%s TEXT:(?:value in )?\{([^}]*)\}" % option, help_of(command))[1]
            names = {name.split("->")[0] for name in names.split(",")}
            self.assertGreater(len(names), 2)
            described = self.part(command).split(".It Fl -" + option)[1].split("\n.It Fl")[0]
            if command == "export":
                described = self.part(command).split("The formats:")[1].split("\n.El")[0]
            self.assertEqual(set(re.findall(r"^\.(?:It )?Cm ([a-z]+)", described, re.M)), names)
            self.assertEqual(set(bash_offers(command, "--" + option, "")), names)
            text = (TREE / "completion/_quenbyctl").read_text()
            self.assertEqual(set(re.search(r":%s:\(([a-z ]+)\)" % kind, text)[1].split()), names)


class Bash(unittest.TestCase):
    def test_subcommands(self):
        self.assertEqual(bash_offers(""), [*subcommands(), "--help", "--version"])
        self.assertEqual(bash_offers("ch"), ["check"])
        self.assertEqual(bash_offers("p"), ["plan"])
        self.assertEqual(bash_offers("x"), [])

    def test_options(self):
        for command in subcommands():
            self.assertEqual(sorted(bash_offers(command, "--")), options(command))
        for command in ("plan", "apply"):
            self.assertEqual(bash_offers(command, "tariff-a"), ["tariff-add"])
        self.assertEqual(bash_offers("plan", "tariff-add", "/etc/host.c"), ["/etc/host.conf"])
        for command in ("plan", "apply"):
            offered = [word for word in bash_offers(command, "") if not word.startswith("--")]
            self.assertEqual(sorted(offered), sorted(plan_commands()))
        self.assertEqual(bash_offers("check", "--j"), ["--json"])

    def test_arguments(self):
        self.assertEqual(bash_offers("check", "--kind", ""), ["named", "stored"])
        self.assertEqual(bash_offers("apply", "--confirm", ""), [])
        self.assertEqual(bash_offers("check", "--kind", "=", "s"), ["stored"])
        self.assertEqual(bash_offers("check", "--global", "/etc/host.c"), ["/etc/host.conf"])
        self.assertEqual(bash_offers("check", "--json", "--tariffs", "=", "/etc/host.c"),
                         ["/etc/host.conf"])


class Zsh(unittest.TestCase):
    def given(self, keys, *words):
        setup = ["PS1='> '", "unsetopt beep prompt_cr prompt_sp",
                 "fpath=(%s $fpath)" % interactive.COMPLETION, "autoload -Uz compinit",
                 "compinit -u -D", 'quenbyctl() { quenby "$@" }']
        received = interactive.typed(["zsh", "-f", "-i"], setup, "quenbyctl " + keys + "\n", "/")
        self.assertEqual(received, list(words))

    def test_each(self):
        self.given("ch\t", "check")
        self.given("plan tariff-a\t", "plan", "tariff-add")
        self.given("plan update /etc/host.c\t", "plan", "update", "/etc/host.conf")
        self.given("apply --conf\t60 tariff-a\t", "apply", "--confirm=60", "tariff-add")
        self.given("check --js\t", "check", "--json")
        self.given("check --kind st\t", "check", "--kind", "stored")
        self.given("check --tariffs /etc/host.c\t", "check", "--tariffs", "/etc/host.conf")

    def test_has_the_options(self):
        text = (TREE / "completion/_quenbyctl").read_text()
        for command in subcommands():
            part = text.split("_quenbyctl_%s() {" % command)[1].split("\n}")[0]
            found = re.findall(r"'\*?(--[a-z-]+)", part)
            self.assertEqual(sorted(found), options(command))
            self.assertIn(command + r'\:"', text)


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main()
