"""The messages that the sources can print after "Error: ", read from their calls.

A message is a text in which "*" stands for what is known only at run time.
"""

import pathlib
import re

LAYERS = ("cli", "config", "model", "shaper", "tc")

# Functions that print what they are given, with the message they make of it. {N} is their
# argument N; the second form of a function is the one with more arguments.
PRINTERS = {
    "_error": {1: ("{0}",), 2: ("{0}:*",)},
    "Refused": {1: ("{0}",), 2: ("{0}",)},
    "nl_fatal": {2: ("{0}(*)",)},
    "check_nl_result": {2: ("failed to {0}(*)",)},
    "chk_nl_error": {2: ("* failed to {0}(*)",)},
    "chk_deleted": {2: ("* failed to {0}(*)",)},
    "nl_error": {2: ("* failed to {0}(*)",)},
    "begin_nest": {3: ("{2}",)},
    "send": {4: ("failed to send {2} {3}(*)", "failed to {2} {3} ack(*)")},
}

# The calls by which these functions hand on their own arguments. Their messages are those of
# their callers.
HANDED_ON = {
    ("cli/edit.cpp", "Refused(message, std::move(error))"),
    ("cli/main.cpp", "_error(refused.what())"),
    ("cli/error.cpp", '_error(msg + ":" + e.what())'),
    ("shaper/address_set.cpp", "_error(failure)"),
    ("shaper/address_set.cpp",
     'check_nl_result("send " + subject + " " + object, nl_send_auto(sock.get(), msg.get()))'),
    ("shaper/address_set.cpp",
     'check_nl_result(subject + " " + object + " ack", nl_wait_for_ack(sock.get()))'),
    ("tc/device.cpp", 'nl_fatal(name + " failed to " + what, code)'),
    ("tc/device.cpp", "nl_error(what, code)"),
    ("tc/device.cpp", "chk_nl_error(what, code)"),
    ("tc/htb_intf.cpp", "nl_error(what, code)"),
    ("tc/htb_intf.cpp", "chk_nl_error(what, code)"),
    ("tc/nl_error.cpp", '_error(message + "(" + nl_geterror(code) + ")")'),
    ("tc/nl_error.cpp", 'nl_fatal("failed to " + what, code)'),
}

STRING = r'"(?:[^"\\]|\\.)*"'
CALL = re.compile(r"(?<!\w)(%s)\(" % "|".join(PRINTERS))


def source_files(root):
    return sorted(path for layer in LAYERS for path in (root / layer).glob("*.*")
                  if path.suffix in (".cpp", ".h"))


def without_comments(text):
    return re.sub(r"(%s)|//[^\n]*" % STRING, lambda m: m.group(1) or "", text)


def split(text, separator):
    """Parts of an expression between separators that stand in no string and no parentheses."""
    parts, depth = [""], 0
    for token in re.findall(r"%s|'(?:[^'\\]|\\.)*'|." % STRING, text, re.DOTALL):
        depth += (token in "([{") - (token in ")]}") if len(token) == 1 else 0
        if token == separator and depth == 0:
            parts.append("")
        else:
            parts[-1] += token
    return [part.strip() for part in parts]


def closing_parenthesis(text, start):
    """Where the parenthesis is closed whose inside begins at `start`."""
    depth = 1
    for token in re.finditer(r"%s|[()]" % STRING, text[start:]):
        depth += {"(": 1, ")": -1}.get(token.group(), 0)
        if depth == 0:
            return start + token.start()
    raise ValueError("open parenthesis: " + text[start:start + 40])


def constants(text):
    """The texts that a file gives names to."""
    named = re.findall(r"const (?:std::string|char\* const) (\w+) = ([^;]+);", text)
    named += re.findall(r"constexpr const char\* (\w+) = ([^;]+);", text)
    return {name: expression for name, expression in named}


def value(expression, named):
    """The text of an expression of strings, "*" for its other parts."""
    expression = re.sub(r"std::string\((%s)\)" % STRING, r"\1", expression)
    result = ""
    for part in split(expression, "+"):
        if re.fullmatch(STRING, part):
            result += part[1:-1]
        elif part in named:
            result += value(named[part], {})
        else:
            result += "*"
    return result


def calls(text):
    """Name, arguments and whole text of each call of a printing function."""
    for match in CALL.finditer(text):
        end = closing_parenthesis(text, match.end())
        inside = " ".join(text[match.end():end].split())
        arguments = split(inside, ",")
        # What is declared has types, not values.
        if not any(re.match(r"(const )?[\w:]+ ?[&*]? ?\w+$", part) and " " in part
                   for part in arguments):
            yield match.group(1), arguments, "%s(%s)" % (match.group(1), inside)


def messages(root):
    """What the sources below `root` can print, and the calls that hand on a message."""
    found, handed_on = set(), set()
    for path in source_files(root):
        text = without_comments(path.read_text())
        named, name = constants(text), str(path.relative_to(root))
        for function, arguments, call in calls(text):
            if (name, call) in HANDED_ON:
                handed_on.add((name, call))
            else:
                values = [value(argument, named) for argument in arguments]
                forms = PRINTERS[function][len(arguments)]
                found.update(form.format(*values) for form in forms)
    return found, handed_on


def repository():
    return pathlib.Path(__file__).resolve().parents[2]
