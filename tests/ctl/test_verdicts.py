"""500 files, good and bad, as each of the four kinds of file that there are: quenby refuses those
for which `quenbyctl check` has an error, and no other."""

import json
import random

import surroundings as s
from surroundings import GLOBAL_FILE, TARIFF_FILE

FILES, SEED = 500, 20261122

REFUSALS = ["Error: wrong %sconfiguration\n" % words for words in
            ("", "global ", "new global ", "tariff ", "new tariff ", "current tariff ")]

SPEEDS = ["64", "1000.5", "0", "-5", "fast", "100mbit", "1e3", "2e6", "9.3e15", "inf", "nan", "",
          " 7 ", "0x10"]
WORDS = {
    "download_speed": SPEEDS, "upload_speed": SPEEDS,
    "aggregation": ["1", "2.5", "0", "-1", "x", "1e9"],
    "download_burst_size": ["3000", "0", "-1", "3e9", "1500.9", "many"],
    "upload_burst_rate": ["8000", "0.5", "9.3e15", "-2", "x"],
    "ip": ["10.0.0.1", "10.0.0.0/24", "10.0.0.0/x", "10.0.0", "010.0.0.1", "::1", " 10.0.0.2 "],
    "ip6": ["2001:db8::7", "2001:DB8:0:1::9/56", "2001:db8::/0", "2001:db8::1/129", "fe80::1",
            "::ffff:10.0.0.1", "ff02::1/16", "::", "10.0.0.1", "2001:db8::/x", "::/1",
            " 2001:db8::/1 "],
    "queuing_discipline": ["sfq", "SFQ", "cake"],
    "id": ["4", "5", "15999", "16000", "0", "1.5", "x"],
    "enabled": ["true", "false", "yes", "True"],
    "ipv6": ["false", "true", "", "yes", "True", "1"],
    "wan": ["eth1", "eth 9;x"],
}
TARIFF_KEYS = [key for key in WORDS if key not in ("enabled", "ipv6", "wan")]
SECTION_KEYS = {"global": ["wan", "enabled", "ipv6", "download_speed", "upload_speed"],
                "defaultqosipqueue": ["download_speed", "upload_speed"]}
NOISE = ["# a comment", "[", "[]", "=", "key", "x=", "=x", "\t", "[c", "[ d ] e", "\0", "\xff=\xfe",
         "ip" * 3000 + "=1"]


class Maker:
    """Files of which about a half are good."""

    def __init__(self, seed):
        self._random = random.Random(seed)

    def _line(self, key):
        values = WORDS[key]
        # The first two of each are good.
        value = self._random.choice(values if self._random.random() < 0.1 else values[:2])
        return "%s%s=%s" % (self._random.choice(("", "", " ")),
                            self._random.choice((key, key, key.upper())), value)

    def _section(self, name, keys, always=()):
        chosen = self._random.sample(keys, self._random.randint(0, len(keys)))
        return ["[%s]" % name, *always, *map(self._line, chosen)]

    def text(self, kind):
        r, lines = self._random, []
        if kind == "global":
            for name in r.sample([*SECTION_KEYS, "other"], r.randint(0, 2)):
                lines += self._section(name, SECTION_KEYS.get(name, ["wan"]))
        else:
            for number, name in enumerate(r.sample("abcdefgh", r.randint(0, 4)), 4):
                numbered = ["id=%d" % number] if r.random() < 0.9 else []
                lines += self._section(r.choice((name,) * 12 + ("a",)), TARIFF_KEYS, numbered)
        if r.random() < 0.15:
            lines.insert(r.randint(0, len(lines)), r.choice(NOISE))
        return "\n".join(lines).encode("latin-1") + r.choice((b"\n", b"", b"\r\n"))


def errors(*arguments):
    result = s.run("check", "--json", *arguments, program="/quenbyctl")
    findings = json.loads(result.out)["findings"]
    assert result.err == "" and result.status == (1 if findings else 0), result
    return [finding for finding in findings if finding["severity"] == "error"]


class Verdicts(s.SurroundingsTest):
    def named_global(self, text):
        self.store(None, None)
        return self.named(text, "--global", "--global-update")

    def named_tariffs(self, text):
        self.store(tariff_text=None)
        return self.named(text, "--tariffs", "--update")

    def named(self, text, option, program_option):
        s.GIVEN.write_bytes(text)
        return errors(option, str(s.GIVEN)), s.run(program_option, str(s.GIVEN))

    def stored_global(self, text):
        self.store(None, None)
        return self.stored(text, GLOBAL_FILE)

    def stored_tariffs(self, text):
        self.store(tariff_text=None)
        return self.stored(text, TARIFF_FILE)

    def stored(self, text, path):
        path.write_bytes(text)
        return errors(), s.run("--load")

    def test_500_files(self):
        ways = {"global": [self.named_global, self.stored_global],
                "tariffs": [self.named_tariffs, self.stored_tariffs]}
        maker, counts = Maker(SEED), {}
        for number in range(FILES):
            kind = ("global", "tariffs", "tariffs")[number % 3]
            text, way = maker.text(kind), ways[kind][number // 3 % 2]
            found, run = way(text)
            refused = run.err in REFUSALS
            self.assertEqual(bool(found), refused, (way.__name__, text, found, run))
            counts[way.__name__, refused] = counts.get((way.__name__, refused), 0) + 1
        # Of each kind there are enough of both.
        self.assertEqual(len(counts), 8)
        self.assertGreater(min(counts.values()), 15, counts)
