"""What happens to a router besides commands that succeed: requests that fail, runs that are killed,
devices that come and go, and an editor in somebody's hand."""

import re
from dataclasses import dataclass

# Every change of the kernel is a request and its answer. What is not sent has no effect; what
# cannot be received had one. (A failing sendmsg is no choice: the library waits for the answer to a
# list of links even when it could not ask.)
_REQUEST, _ANSWER = "sendmsg", "recvmsg"
_FILE_CALLS = ("write,writev,pwrite64,fsync,fdatasync,rename,renameat,renameat2,unlink,unlinkat,"
               "ftruncate,copy_file_range,sendfile")


@dataclass(frozen=True)
class Fault:
    """The program's call number `when`, among the calls of one kind, fails or kills it."""

    calls: str
    effect: str
    when: int

    @property
    def kills(self):
        return self.effect.startswith("signal")

    @property
    def spares_files(self):
        """Files are written last, so that a run which ends among its requests has written none."""
        return self.calls != _FILE_CALLS

    @property
    def command(self):
        """What starts a program that is to have the fault. Its children have none."""
        return ("strace", "-qq", "-o", "/dev/null", "-e", f"trace={self.calls}",
                "-e", f"inject={self.calls}:{self.effect}:when={self.when}")

    def __str__(self):
        calls = self.calls if self.spares_files else "change of a file"
        return f"{self.effect} at {calls} {self.when}"


def make_fault(random):
    """Mostly among the first: an edit in place has twenty requests, a build three times as many.
    An answer takes two calls, of which the first looks at its size."""
    if random.random() < 0.25:
        return Fault(_FILE_CALLS, "signal=KILL", random.randint(1, 4))
    number = 2 ** random.uniform(0, 6)
    if random.random() < 0.4:
        return Fault(_REQUEST, "signal=KILL", int(number))
    return Fault(_ANSWER, random.choice(("error=ENOMEM", "error=EBUSY")), int(2 * number))


@dataclass(frozen=True)
class Device:
    """A device appears or vanishes, without a command."""

    name: str
    up: bool

    def __str__(self):
        return f"the device {self.name} {'appears' if self.up else 'vanishes'}"


@dataclass(frozen=True)
class HandEdit:
    """Somebody edits the stored files. The kernel notices nothing."""

    what: str
    settings: str
    tariffs: str

    def __str__(self):
        return f"by hand: {self.what}"


def _with_lines(section, key, *values):
    """The section with these lines of a key in place of its own."""
    kept = [line for line in section.splitlines() if not line.startswith(key + "=")]
    return "\n".join([*kept, *(f"{key}={value}" for value in values), ""])


def _number(section):
    return re.search(r"^id=(\d+)$", section, re.M)[1]


_ODD_VALUES = (
    # The stored form has whole kbit/s.
    ("download_speed", "1000.5"), ("upload_speed", "999.999"), ("upload_speed", "0.5"),
    ("download_speed", "2e3 and more"), ("download_burst_rate", "1999.9"),
    # The first has a factor of 5 still, the last none.
    ("aggregation", "5", "0"), ("aggregation", "0", "5"), ("aggregation", "2.5", "0"),
    # 32 bits of it are stored: 5000, 2147483647.
    ("download_burst_size", "4294972296"), ("upload_burst_size", "6442450943"),
    ("upload_burst_size", "2147483647"), ("upload_burst_size", "1500.9"))


class Editor:
    """Edits of the stored sections, each a text of all tariffs. `known` maps names to sections, of
    which there are enough."""

    def __init__(self, random, known):
        self._random = random
        self._known = known

    def _replaced(self, name, section):
        return "".join({**self._known, name: section}.values())

    def odd_value(self):
        name = self._random.choice(list(self._known))
        key, *values = self._random.choice(_ODD_VALUES)
        return (f"{key} of {name} is {', then '.join(values)}",
                self._replaced(name, _with_lines(self._known[name], key, *values)))

    def unstorable(self):
        """Written back, the number would be negative, which no reader takes."""
        name = self._random.choice(list(self._known))
        size = self._random.choice(("2147483648", "3000000000", "7000000000"))
        section = _with_lines(self._known[name], "download_burst_size", size)
        return f"the burst of {name} is {size}", self._replaced(name, section)

    def unfit_number(self):
        """Another tariff's, or one that no tariff may have."""
        name, *others = self._random.sample(list(self._known), min(2, len(self._known)))
        number = _number(self._known[others[0]]) if others else "3"
        return (f"the number of {name} is {number}",
                self._replaced(name, _with_lines(self._known[name], "id", number)))

    def second_section(self, name, address):
        number = max(int(_number(section)) for section in self._known.values()) + 1
        section = _with_lines(_with_lines(self._known[name], "id", number), "ip", address)
        return f"a second section {name}", "".join(self._known.values()) + section
