"""Random small configurations, as the texts of the program's two kinds of file."""

import re

NAMES = ("a", "ab", "abc", "B", "Zed", "k-9", "m2", "two words", "x", "10")
WANS = ("eth1", "ppp0", "")

# Third octets that share a bucket of the upper hash table (0, 16, 32; 15, 31, 255), last octets at
# both ends, and equal last octets in different networks.
ADDRESSES = ("10.0.0.0", "10.0.0.1", "10.0.16.1", "10.1.0.1", "10.0.32.0", "10.0.1.1", "10.0.1.255",
             "10.0.15.15", "10.0.31.15", "10.0.255.255", "10.9.16.0", "10.9.0.7", "172.16.0.1",
             "192.168.1.16")

# Single addresses and networks within one another, the outermost and the innermost among them.
PREFIXES = ("2001:db8::/48", "2001:db8:0:1200::/56", "2001:db8:0:1203::/64", "2001:db8:0:1203::5",
            "2001:db8:0:1203::6", "2001:db8:0:1300::/56", "2001:db8:1::/48", "2001:db8:1:1::/64",
            "fd00:1::7", "2000::/3")

_TAME_SPEEDS = ("64", "128.5", "500", "1000", "2000", "4000")
# Nothing, closed, no number (which means "as fast as the line"), under 1 kbit/s, above the line.
_WILD_SPEEDS = (None, "0", "abc", "-5", "0.5", "0.001", "90000", "2000000")
_LEAVES = (None, "none", "pfifo", "sfq", "fq_codel", "codel")
_AGGREGATIONS = (None, None, "1", "2", "4", "10.5", "0", "1e9")
_BURSTS = ((None, None), (None, "3000"), ("8000", "20000"), ("100", "2000000"), ("0.5", "1500.9"),
           (None, "4294967297"))
# The links are taken to be 1 Gbit/s: below, equal, above.
_LINE_SPEEDS = ("20000", "20000", "100000", "300000.7", "1000000", "2000000")


def section_names(text):
    return re.findall(r"^\[(.*)\]$", text or "", re.M)


def sections(text):
    """The text of each section by its name."""
    parts = re.split(r"^(?=\[)", text or "", flags=re.M)
    return {section_names(part)[0]: part for part in parts if section_names(part)}


def wan_of(settings):
    found = re.search(r"^wan=(.*)$", settings or "", re.M)
    return found[1] if found else ""


def _section(name, pairs):
    lines = [f"{key}={value}" for key, value in pairs if value is not None]
    return "\n".join([f"[{name}]", *lines, ""])


class Maker:
    """Makes configurations. How wild they are belongs to the whole sequence: with tame ones the
    guarantees fit the line, so that changes are made in place."""

    def __init__(self, random):
        self._random = random
        self._wildness = random.choice((0.04, 0.12, 0.3))
        self._shared = random.random() < 0.2

    def _wild(self):
        return self._random.random() < self._wildness

    def _speed(self):
        return self._random.choice(_WILD_SPEEDS if self._wild() else _TAME_SPEEDS)

    def _addresses(self, free):
        """Mostly addresses that no other tariff has; they are taken off the list."""
        if self._shared and self._wild():
            return self._random.choices(ADDRESSES, k=2)
        count = min(self._random.choice((0, 1, 1, 1, 2, 3)), len(free))
        return [free.pop(self._random.randrange(len(free))) for _ in range(count)]

    def _prefixes(self, free):
        """The same for prefixes, in several ways to write them."""
        if self._shared and self._wild():
            return self._random.choices(PREFIXES, k=2)
        count = min(self._random.choice((0, 0, 1, 1, 2)), len(free))
        taken = [free.pop(self._random.randrange(len(free))) for _ in range(count)]
        return [self._written(prefix) for prefix in taken]

    def _written(self, prefix):
        if "/" not in prefix:
            return prefix + self._random.choice(("", "/128"))
        return self._random.choice((prefix, prefix.upper(), prefix.replace("::", "::9")))

    def tariff(self, name, free, free_prefixes):
        r = self._random
        down_burst, up_burst = r.choice(_BURSTS), r.choice(_BURSTS)
        pairs = [("ip", a + r.choice(("", "", "/32", "/24"))) for a in self._addresses(free)]
        pairs += [("ip6", prefix) for prefix in self._prefixes(free_prefixes)]
        pairs += [("id", r.choice((None, None, "7"))), ("aggregation", r.choice(_AGGREGATIONS)),
                  ("download_speed", self._speed()), ("upload_speed", self._speed()),
                  ("download_burst_rate", down_burst[0]), ("download_burst_size", down_burst[1]),
                  ("upload_burst_rate", up_burst[0]), ("upload_burst_size", up_burst[1]),
                  ("queuing_discipline", r.choice(_LEAVES))]
        r.shuffle(pairs)
        return _section(name, pairs)

    def tariffs(self, names, others):
        """Sections in random order; `others` is the text of tariffs that stay beside them."""
        free = [address for address in ADDRESSES if address not in others]
        free_prefixes = [prefix for prefix in PREFIXES if f"ip6={prefix}\n" not in others]
        return "".join(self.tariff(name, free, free_prefixes)
                       for name in self._random.sample(names, len(names)))

    def changed(self, section):
        """A stored section with one of its values changed, or none."""
        r = self._random
        key, value = r.choice((("queuing_discipline", r.choice(_LEAVES)),
                               ("download_speed", self._speed()), ("upload_speed", self._speed()),
                               ("upload_burst_size", "5000"), ("aggregation", "3"),
                               ("ip6", r.choice(PREFIXES)), ("", None)))
        if value is None:
            return section
        kept = [line for line in section.splitlines() if not line.startswith(key + "=")]
        return "\n".join([*kept, f"{key}={value}", ""])

    def _line_speed(self):
        if self._random.random() < 0.25:
            return None
        return "0" if self._wild() else self._random.choice(_LINE_SPEEDS)

    def _line_speeds(self):
        """Download and upload. Often one direction is left alone, or closed."""
        one, other = self._line_speed(), self._random.choice((None, None, "0"))
        return self._random.choice(((one, self._line_speed()), (one, self._line_speed()),
                                    (one, other), (other, one)))

    def settings(self):
        """A file of global settings, each of the two sections present or not."""
        r, parts = self._random, []
        download, upload = self._line_speeds()
        if r.random() < 0.93:
            parts.append(_section("global", [
                ("wan", r.choice(WANS[:1] * 5 + WANS[1:2] * 3 + WANS[2:] * 2) or None),
                ("enabled", r.choice(("true",) * 8 + ("false", None))),
                ("ipv6", r.choice(("true",) * 5 + ("false", None))),
                ("download_speed", download), ("upload_speed", upload)]))
        if r.random() < 0.5:
            parts.append(_section("defaultqosipqueue", [
                ("download_speed", self._speed()), ("upload_speed", self._speed())]))
        r.shuffle(parts)
        return "".join(parts)
