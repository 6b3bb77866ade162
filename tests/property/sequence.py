"""The commands of a random sequence, and what each of them must leave.

What a command leaves is known without looking at how the program does it. In general it is what
--load builds from the stored files on a clean machine; `Outcome` names the other cases. This holds

- after every command that succeeds, whatever devices have gone or come back before it and whatever
  was torn down: a change in place where something is missing builds everything instead;
- after a command that failed or was killed, once the same command, or --stop and then --load, has
  succeeded;
- after an edit by hand, once a command has built everything (--load, --reload, an edit after
  --stop, an edit of a list that is numbered again). Until then nobody knows, as the files no longer
  tell what the kernel was given; so such a command always comes next.

Not drawn, because neither files nor kernel tell what is ours on a device that the files do not
name: a WAN interface that is renamed by hand while no redirection leads back to the old one, or
while that has the plain queue of a closed line; and --stop after a failed change of the WAN
interface. There the same command is repeated. On "imq0" an edit that failed is not repeated at
once, as it may give an address a second filter to the same class: no packet goes another way.
"""

import enum
import random
from dataclasses import dataclass, replace

from accidents import Device, Editor, Fault, HandEdit, make_fault
from configs import NAMES, Maker, section_names, sections, wan_of


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
    names: tuple = None
    # The text of the file that the last option names.
    file: str = None
    fails: bool = False
    fault: Fault = None
    program: str = "quenby"

    @property
    def command(self):
        return self.options[-1] if self.options[0] == "--if-name" else self.options[0]

    def __str__(self):
        text = f"{self.program} " + " ".join(repr(o) if " " in o else o for o in self.options)
        text += f" with {self.fault}" if self.fault else ""
        return text if self.file is None else f"{text} FILE, with the FILE\n{self.file}"


@dataclass(frozen=True)
class Stored:
    """The two files; None is one that does not exist."""

    settings: str
    tariffs: str
    # What the kernel holds of them; nothing when it is known to hold something else.
    state: tuple = ()

    @property
    def names(self):
        return section_names(self.tariffs)

    @property
    def enabled(self):
        return self.settings is None or "enabled=true" in self.settings

    @property
    def wan(self):
        return wan_of(self.settings)

    @property
    def redirected(self):
        """What comes in is led to "ifb_ingr"."""
        return any(" redirect ifb_ingr" in line for line in self.state)

    @property
    def queue_of_closed_line(self):
        return any(" qdisc 1: root " in line for line in self.state)


IN_PLACE = ("--tariff-add", "--tariff-del", "--tariff-update", "--update")


def sorted_names(names):
    return tuple(sorted(names))


class Sequence:
    LINE = "ppp0"
    WAN = "eth1"

    def __init__(self, seed):
        self._random = random.Random(seed)
        self._maker = Maker(self._random)
        self._pending = [self._settings_change, self._add]
        self._line_up = False
        self._after_fault = []

    def next(self, stored):
        if self._pending:
            return self._pending.pop(0)(stored)
        return self._with_fault(self._any(stored), stored)

    def _any(self, stored):
        makers, weights = zip(*self._WEIGHTS)
        return self._random.choices(makers, weights)[0](self, stored)

    def _any_edit(self, stored):
        return self._random.choice((self._add, self._delete, self._change, self._replace))(stored)

    # Runs that end before they are done.

    def _with_fault(self, step, stored):
        if (self._random.random() > 0.2 or not isinstance(step, Step) or step.fails
                or step.program != "quenby"
                or step.outcome is Outcome.UNTOUCHED):
            return step
        step = replace(step, fault=make_fault(self._random))
        self._after_fault = self._follow_up(step, stored)
        return step

    def _follow_up(self, step, stored):
        """What puts right what the step may leave half-made."""
        repeated = [lambda _: replace(step, fault=None)]
        recovery = self._random.choice(([self._stop, self._load], [self._repair]))
        changes_wan = {"--global-update": wan_of(step.file) != stored.wan,
                       "--global-del": stored.wan != ""}
        if changes_wan.get(step.command):
            return repeated
        if not stored.wan and step.command in IN_PLACE:
            return recovery
        # What is stored already cannot be added or deleted again.
        if not step.fault.spares_files and step.command in ("--tariff-add", "--tariff-del"):
            return recovery
        return self._random.choice((repeated, recovery))

    def step_failed(self):
        """The fault of the last step has struck."""
        self._pending[:0] = self._after_fault

    # In place, or not at all when shaping is disabled.

    def _edit(self, stored, option, text, names):
        outcome = Outcome.LOADED if stored.enabled else Outcome.UNTOUCHED
        return Step((option,), outcome, sorted_names(names), text)

    def _unused(self, stored):
        return [name for name in NAMES if name not in stored.names]

    def _add(self, stored):
        unused = self._unused(stored)
        count = min(self._random.choice((0, 1, 1, 1, 2, 3, 5)), len(unused))
        added = self._random.sample(unused, count)
        text, names = self._maker.tariffs(added, stored.tariffs or ""), {*stored.names, *added}
        if stored.tariffs is None:
            return Step(("--tariff-add",), Outcome.LOADED_ENABLED, sorted_names(names), text)
        return self._edit(stored, "--tariff-add", text, names)

    def _delete(self, stored):
        if not stored.names:
            return self._add(stored)
        name = self._random.choice(stored.names)
        outcome = Outcome.LOADED if stored.enabled else Outcome.UNTOUCHED
        return Step(("--tariff-del", name), outcome, sorted_names(set(stored.names) - {name}))

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

    def _repair(self, stored):
        """Brings what stands to what a load makes, whatever has happened."""
        return Step(("repair",), Outcome.LOADED, sorted_names(stored.names), program="quenbyctl")

    def _reload(self, stored):
        return Step(("--reload",), Outcome.LOADED, sorted_names(stored.names))

    def _restore(self, stored):
        other = self._random.choice(("eth9", "eth", "", None))
        name = stored.wan if self._random.random() < 0.6 else other
        named = () if name is None else ("--if-name", name)
        options = ("--restore-if-cfg", *named)
        if self._random.random() < 0.5:
            options = (*named, "--restore-if-cfg")
        if name and name == stored.wan:
            return Step(options, Outcome.LOADED, sorted_names(stored.names))
        return Step(options, Outcome.UNTOUCHED)

    def _restore_line(self, stored):
        matches = stored.wan == self.LINE
        return Step(("--restore-if-cfg", "--if-name", self.LINE),
                    Outcome.LOADED if matches else Outcome.UNTOUCHED,
                    sorted_names(stored.names) if matches else None)

    def _settings_change(self, stored):
        text = self._maker.settings()
        # Without a section and without tariffs there is nothing to build.
        outcome = Outcome.LOADED if text or stored.names else Outcome.BARE
        return Step(("--global-update",), outcome, sorted_names(stored.names), text)

    def _settings_delete(self, stored):
        return Step(("--global-del",), Outcome.LOADED, sorted_names(stored.names))

    def _delete_all(self, _):
        return Step(("--tariffs-del",), Outcome.LOADED, ())

    def _stop(self, _):
        return Step(("--stop",), Outcome.BARE)

    def _clear(self, _):
        return Step(("--clear",), Outcome.BARE, ())

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

    # Devices come and go.

    def _line(self, _):
        self._line_up = not self._line_up
        if self._line_up and self._random.random() < 0.6:
            self._pending.append(self._restore_line)
        return Device(self.LINE, self._line_up)

    def _wan(self, _):
        """Comes back after some steps. Sometimes nothing is done about it."""
        self._pending += [self._any_edit] * self._random.choice((0, 1, 1, 2))
        self._pending.append(lambda _: Device(self.WAN, True))
        if self._random.random() < 0.3:
            self._pending.append(self._load)
        return Device(self.WAN, False)

    def _virtual(self, stored):
        """Deleted by hand, and sometimes made again, with nothing on it."""
        if self._random.random() < 0.3 and stored.redirected:
            self._pending.append(lambda _: Device("ifb_ingr", True))
        if self._random.random() < 0.7:
            self._pending.append(self._any_edit)
        return Device("ifb_ingr", False)

    def _stop_before_edit(self, stored):
        self._pending.append(self._any_edit)
        return self._stop(stored)

    # Edits by hand, each with what must follow it.

    def _edited(self, stored, edit, *followers):
        what, text = edit
        self._pending[:0] = followers
        return HandEdit(what, stored.settings, text)

    def _building(self):
        return self._random.choice(([self._load], [self._repair], [self._reload],
                                    [self._stop, self._any_edit]))

    def _hand_edit(self, stored):
        known = sections(stored.tariffs)
        if not known:
            return self._add(stored)
        editor, kind = Editor(self._random, known), self._random.choices(
            ("odd", "unstorable", "unfit", "second", "wan", "ipv6"), (5, 1, 2, 2, 3, 3))[0]
        if kind == "unstorable":
            return self._edited(stored, editor.unstorable(), self._refused_reload,
                                lambda _: HandEdit("undone", stored.settings, stored.tariffs))
        if kind == "unfit":
            return self._edited(stored, editor.unfit_number(), self._random.choice(
                (self._renumbering_load, self._reload, self._renumbering_add)))
        if kind == "second":
            return self._second_section(stored, editor)
        if kind == "ipv6" and stored.settings:
            return self._other_families(stored)
        if kind == "wan" and stored.redirected and not stored.queue_of_closed_line:
            return self._other_wan(stored)
        return self._edited(stored, editor.odd_value(), *self._building())

    def _refused_reload(self, _):
        return Step(("--reload",), Outcome.UNTOUCHED, fails=True)

    def _renumbering_load(self, stored):
        return Step(("--load",), Outcome.LOADED, sorted_names(stored.names))

    def _renumbering_add(self, stored):
        """Builds everything, even when the global settings disable shaping."""
        return replace(self._add(stored), outcome=Outcome.LOADED_ENABLED)

    def _second_section(self, stored, editor):
        """Goes with the first, or one takes the place of both."""
        name = self._random.choice(stored.names)
        outcome = Outcome.LOADED if stored.enabled else Outcome.UNTOUCHED
        names = set(stored.names)
        delete = Step(("--tariff-del", name), outcome, sorted_names(names - {name}))
        change = Step(("--tariff-update",), outcome, sorted_names(names),
                      self._maker.tariffs([name], ""))
        last = self._random.choice((delete, change))
        return self._edited(stored, editor.second_section(name, "10.20.0.1"),
                            self._random.choice((self._load, self._reload)), lambda _: last)

    def _other_wan(self, stored):
        """The old device must be left without a trace."""
        other = self.LINE if stored.wan == self.WAN else self.WAN
        self._pending[:0] = self._random.choice(([self._reload], [self._stop, self._load]))
        settings = stored.settings.replace(f"wan={stored.wan}\n", f"wan={other}\n")
        return HandEdit(f"wan={other}", settings, stored.tariffs)

    def _other_families(self, stored):
        """IPv6 is switched on or off."""
        line = "ipv6=true\n"
        settings = stored.settings.replace(line, "")
        if line not in stored.settings:
            settings = settings.replace("[global]\n", "[global]\n" + line)
        self._pending[:0] = self._building()
        return HandEdit("ipv6 is " + ("off" if line in stored.settings else "on"), settings,
                        stored.tariffs)

    _WEIGHTS = ((_add, 4), (_delete, 3), (_change, 4), (_replace, 3), (_settings_change, 3),
                (_settings_delete, 0.7), (_delete_all, 0.7), (_load, 0.5), (_reload, 0.5), (_repair, 1),
                (_restore, 1), (_stop, 0.4), (_clear, 0.4), (_statistics, 0.7), (_refused, 1),
                (_line, 1.5), (_wan, 1.2), (_virtual, 2), (_stop_before_edit, 1.5),
                (_hand_edit, 4))
