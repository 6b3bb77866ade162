"""The commands of a random sequence, and what each of them must leave behind.

What a command leaves is known without looking at how the program does it. In general it is what
--load builds from the stored files on a clean machine; `Outcome` names the other cases.
"""

import enum
import random
from dataclasses import dataclass

from configs import NAMES, Maker, section_names, sections


class Outcome(enum.Enum):
    """What the kernel holds afterwards."""

    LOADED = "what --load builds from the files"
    # The first tariffs are built even when the global settings disable shaping.
    LOADED_ENABLED = "what --load builds from the files with shaping enabled"
    BARE = "nothing of the shaper's"
    UNTOUCHED = "what it held before"


@dataclass(frozen=True)
class Step:
    options: tuple
    outcome: Outcome
    # The names of the stored tariffs afterwards; None: both files stay as they are.
    names: frozenset = None
    # The text of the file that the last option names.
    file: str = None
    fails: bool = False

    @property
    def command(self):
        return self.options[-1] if self.options[0] == "--if-name" else self.options[0]

    def __str__(self):
        text = "quenby " + " ".join(repr(o) if " " in o else o for o in self.options)
        return text if self.file is None else f"{text} FILE, with the FILE\n{self.file}"


@dataclass(frozen=True)
class Device:
    """Something that happens to the router by itself: a line goes down or comes up."""

    name: str
    up: bool

    def __str__(self):
        return f"the device {self.name} {'appears' if self.up else 'vanishes'}"


@dataclass(frozen=True)
class Stored:
    """The two files; None is one that does not exist."""

    settings: str
    tariffs: str

    @property
    def names(self):
        return section_names(self.tariffs)

    @property
    def enabled(self):
        return self.settings is None or "enabled=true" in self.settings

    @property
    def wan(self):
        for line in (self.settings or "").splitlines():
            if line.startswith("wan="):
                return line[len("wan="):]
        return ""


class Sequence:
    LINE = "ppp0"

    def __init__(self, seed):
        self._random = random.Random(seed)
        self._maker = Maker(self._random)
        self._pending = [self._settings_change, self._add]
        self._line_up = False

    def next(self, stored):
        if self._pending:
            return self._pending.pop(0)(stored)
        makers, weights = zip(*self._WEIGHTS)
        return self._random.choices(makers, weights)[0](self, stored)

    # In place, or not at all when shaping is disabled.

    def _edit(self, stored, option, text, names):
        outcome = Outcome.LOADED if stored.enabled else Outcome.UNTOUCHED
        return Step((option,), outcome, frozenset(names), text)

    def _unused(self, stored):
        return [name for name in NAMES if name not in stored.names]

    def _add(self, stored):
        unused = self._unused(stored)
        count = min(self._random.choice((0, 1, 1, 1, 2, 3, 5)), len(unused))
        added = self._random.sample(unused, count)
        text, names = self._maker.tariffs(added, stored.tariffs or ""), {*stored.names, *added}
        if stored.tariffs is None:
            return Step(("--tariff-add",), Outcome.LOADED_ENABLED, frozenset(names), text)
        return self._edit(stored, "--tariff-add", text, names)

    def _delete(self, stored):
        if not stored.names:
            return self._add(stored)
        name = self._random.choice(stored.names)
        outcome = Outcome.LOADED if stored.enabled else Outcome.UNTOUCHED
        return Step(("--tariff-del", name), outcome, frozenset(stored.names) - {name})

    def _change(self, stored):
        # Without a stored file there is nothing to update, and the program says so.
        if not stored.names:
            return self._add(stored)
        known = sections(stored.tariffs)
        count = min(self._random.choice((0, 1, 1, 2, 4)), len(known))
        names = self._random.sample(list(known), count)
        rest = "".join(text for name, text in known.items() if name not in names)
        text = "".join(self._maker.changed(known[name]) if self._random.random() < 0.6
                       else self._maker.tariffs([name], rest) for name in names)
        return self._edit(stored, "--tariff-update", text, stored.names)

    def _replace(self, stored):
        known = sections(stored.tariffs)
        kept = [name for name in known if self._random.random() < 0.7]
        unused = self._unused(stored)
        new = self._random.sample(unused, min(self._random.choice((0, 1, 2)), len(unused)))
        parts = [known[name] if self._random.random() < 0.6 else self._maker.changed(known[name])
                 for name in kept]
        parts.append(self._maker.tariffs(new, "".join(parts)))
        self._random.shuffle(parts)
        step = self._edit(stored, "--update", "".join(parts), [*kept, *new])
        if stored.tariffs is None:
            return Step(step.options, Outcome.LOADED, step.names, step.file)
        return step

    # From the ground up.

    def _load(self, stored):
        return Step(("--load",), Outcome.LOADED)

    def _reload(self, stored):
        return Step(("--reload",), Outcome.LOADED, frozenset(stored.names))

    def _restore(self, stored):
        other = self._random.choice(("eth9", "eth", "", None))
        name = stored.wan if self._random.random() < 0.6 else other
        named = () if name is None else ("--if-name", name)
        options = ("--restore-if-cfg", *named)
        if self._random.random() < 0.5:
            options = (*named, "--restore-if-cfg")
        if name and name == stored.wan:
            return Step(options, Outcome.LOADED, frozenset(stored.names))
        return Step(options, Outcome.UNTOUCHED)

    def _restore_line(self, stored):
        matches = stored.wan == self.LINE
        return Step(("--restore-if-cfg", "--if-name", self.LINE),
                    Outcome.LOADED if matches else Outcome.UNTOUCHED,
                    frozenset(stored.names) if matches else None)

    def _settings_change(self, stored):
        text = self._maker.settings()
        # Without a section and without tariffs there is nothing to build.
        outcome = Outcome.LOADED if text or stored.names else Outcome.BARE
        return Step(("--global-update",), outcome, frozenset(stored.names), text)

    def _settings_delete(self, stored):
        return Step(("--global-del",), Outcome.LOADED, frozenset(stored.names))

    def _delete_all(self, _):
        return Step(("--tariffs-del",), Outcome.LOADED, frozenset())

    def _stop(self, _):
        return Step(("--stop",), Outcome.BARE)

    def _clear(self, _):
        return Step(("--clear",), Outcome.BARE, frozenset())

    def _statistics(self, _):
        return Step(("--stat",), Outcome.UNTOUCHED)

    # Refused.

    def _refused(self, stored):
        name = self._random.choice(stored.names or ["a"])
        known, unknown = f"[{name}]\nid=9\n", "[no such]\nid=9\nip=10.7.7.7\n"
        cases = [("--tariff-update", unknown), ("--tariff-add", "[new]\nspeed=1\n"),
                 ("--update", "[new\n"), ("--global-update", "[wan]\nwan=eth1\n"),
                 ("--global-update", "[global]\nenabled=maybe\n")]
        if stored.names:
            cases += [("--tariff-add", "[new]\nip=10.7.7.7\n" + known)] * 3
            cases += [("--tariff-update", known + unknown)] * 2
        if self._random.random() < 0.25:
            return Step(("--tariff-del", "no such"), Outcome.UNTOUCHED, fails=True)
        option, text = self._random.choice(cases)
        return Step((option,), Outcome.UNTOUCHED, file=text, fails=True)

    def _line(self, _):
        self._line_up = not self._line_up
        if self._line_up and self._random.random() < 0.6:
            self._pending.append(self._restore_line)
        return Device(self.LINE, self._line_up)

    _WEIGHTS = ((_add, 5), (_delete, 4), (_change, 6), (_replace, 4), (_settings_change, 3),
                (_settings_delete, 1), (_delete_all, 1), (_load, 1), (_reload, 1), (_restore, 1),
                (_stop, 1), (_clear, 0.5), (_statistics, 1), (_refused, 1.5), (_line, 2))
