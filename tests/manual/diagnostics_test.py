"""The manual pages explain every message that the programs can print, and no other.

Call: python3 tests/manual/diagnostics_test.py
"""

import re
import unittest

import messages

PAGES = [messages.repository() / "docs/man" / name for name in ("quenby.8", "quenbyctl.1")]


def explained():
    """The messages of the pages, "*" for the words in capitals, in their order."""
    items = []
    for page in PAGES:
        section = page.read_text().split("\n.Sh DIAGNOSTICS\n")[1].split("\n.Sh ")[0]
        items += re.findall(r"^\.It (.*)$", section, re.MULTILINE)
    return [re.sub(r"\b(DEVICE|KIND|PARAMETER|NUMBER|TEXT)\b", "*", item) for item in items]


class Reader(unittest.TestCase):
    """The sources are read rightly."""

    def read(self, text):
        return [(function, [messages.value(argument, messages.constants(text))
                            for argument in arguments])
                for function, arguments, _ in messages.calls(messages.without_comments(text))]

    def test_text(self):
        self.assertEqual(self.read('if (x) _error("a (b), c");'), [("_error", ["a (b), c"])])

    def test_sum_over_two_lines(self):
        self.assertEqual(self.read('_error(name() +\n  ": cls " + to_string(f(1, 2)) + " x");'),
                         [("_error", ["*: cls * x"])])

    def test_text_as_an_object(self):
        self.assertEqual(self.read('_error(std::string("set ") + kind() + " type");'),
                         [("_error", ["set * type"])])

    def test_named_text(self):
        self.assertEqual(self.read('const std::string what = f(1) + " cls";\n'
                                   'device.chk_deleted("delete " + what, g(h(), 1));'),
                         [("chk_deleted", ["delete * cls", "*"])])

    def test_declarations_and_comments_are_no_calls(self):
        self.assertEqual(self.read('void _error(const std::string& msg, int code);\n'
                                   '// _error("old")\n'), [])


class Diagnostics(unittest.TestCase):
    maxDiff = None

    def test_every_message_once(self):
        printed, _ = messages.messages(messages.repository())
        self.assertEqual(sorted(explained()), sorted(printed))

    def test_calls_that_hand_on_a_message(self):
        _, handed_on = messages.messages(messages.repository())
        self.assertEqual(handed_on, messages.HANDED_ON)

    def test_nothing_prints_past_them(self):
        texts = {path.name: messages.without_comments(path.read_text())
                 for path in messages.source_files(messages.repository())}
        writers = [name for name in texts if re.search(r"\b(cerr|stderr|perror)\b", texts[name])]
        # check-files is another program, which says what the reader says. What the program says
        # of IPv6 is no failure.
        self.assertEqual(sorted(writers), ["check_files.cpp", "config_commands.cpp", "error.cpp"])
        said = re.search(r'cerr << "(.*)\\n"', texts["config_commands.cpp"])[1]
        self.assertIn(f"\n.Dq {said}\n", PAGES[0].read_text())


if __name__ == "__main__":
    unittest.main()
