#!/usr/bin/env python3
"""Random sequences of all commands on one router. After each step its state is compared with what
the files, loaded on a clean machine, make of a twin.

Call: scripts/lab tests/property/run.py [--seed N | --seeds A-B] [--steps M] [--verbose] PROGRAM
"""

import argparse
import collections
import os
import pathlib
import re
import signal
import sys
import time

from accidents import Device, HandEdit
from configs import section_names
from machine import Machine
from plans import PLANNED, drift, plan, plan_differences
from prefixes import ip6_differences
from sequence import Outcome, Sequence, Stored, sorted_names

from router_state import differences

FILE = pathlib.Path("/run/property.ini")
MAX_SHOWN = 60

# A line of --stat: the class's tariff and six counters.
STATISTICS = re.compile(r"(?:(?:download|upload) )?(.+?)(?:,\d+){6}")
OTHER_CLASSES = {"root", "system", "defaultQoSIPQueue"}
SETTINGS_COMMANDS = {"--global-update", "--global-del", "--clear"}


class Difference(Exception):
    pass


def expect(condition, text):
    if not condition:
        raise Difference(text)


def _enabled(settings):
    """The same global settings with shaping enabled."""
    return (settings or "[global]\nenabled=true\n").replace("enabled=false", "enabled=true")


def _listed(text):
    return "\n".join(f"    {line}" for line in (text or "(no such file)").splitlines())


class Run:
    """One sequence."""

    def __init__(self, machine, seed, counts):
        self._machine = machine
        self._sequence = Sequence(seed)
        self._counts = counts
        self._files = (None, None)
        self._state = machine.bare
        # Whether the kernel holds what the files say, and whether that is what they ask for.
        self._agrees = True
        self._asked_for = False

    def step(self):
        """Makes one step; gives its text and the check of it."""
        known = tuple(self._state) if self._agrees else ()
        step = self._sequence.next(Stored(*self._files, known))
        if isinstance(step, Device):
            return step, lambda: self._happen(step)
        if isinstance(step, HandEdit):
            return step, lambda: self._edit(step)
        return step, lambda: self._check(step)

    @property
    def files(self):
        return self._files

    def _happen(self, event):
        self._machine.set_device(event.name, event.up)
        self._state = self._machine.state()
        self._agrees = self._asked_for = False
        self._counts["a device appears or vanishes"] += 1

    def _edit(self, edit):
        self._machine.write_files(edit.settings, edit.tariffs)
        self._files = self._machine.files()
        self._agrees = self._asked_for = False
        self._counts["an edit by hand"] += 1

    def _check(self, step):
        before = self._files
        options = step.options
        if step.file is not None:
            FILE.write_text(step.file, encoding="ascii")
            options = (*options, str(FILE))
        planned = self._plan(step, options)
        wrapper = step.fault.command if step.fault else ()
        status, output, errors = self._machine.run(*options, wrapper=wrapper, program=step.program)
        self._files = self._machine.files()
        if step.fault and status != 0:
            self._check_broken(step, status, errors, before)
            return
        self._check_result(step, status, output, errors)
        self._check_files(step, before)
        self._check_state(step)
        self._check_families(step)
        self._check_plan(planned)
        self._check_verify(step)
        self._counts[step.command + (" refused" if step.fails else "")] += 1
        self._counts[step.outcome.value] += 1

    def _plan(self, step, options):
        """What the step is said to do; nothing where that cannot be asked."""
        if step.command not in PLANNED or step.fault:
            return None
        status, planned = plan(self._machine.program, options)
        expect(status == (1 if step.fails else 0), f"the plan has status {status}")
        return planned

    def _check_families(self, step):
        """What a load makes of IPv6 is said without a load, too."""
        if step.outcome not in (Outcome.LOADED, Outcome.LOADED_ENABLED):
            return
        settings, tariffs = self._files
        if step.outcome is Outcome.LOADED_ENABLED:
            settings = _enabled(settings)
        shaped, lines = ip6_differences(settings, tariffs, self._state, self._machine.bare)
        expect(not lines, f"IPv6 {'is' if shaped else 'is not'} to be shaped:\n" + "\n".join(lines))
        self._counts["IPv6 shaped" if shaped else "IPv6 not shaped"] += 1

    def _check_plan(self, planned):
        if planned is None or planned["way"] == "nothing":
            return
        lines = plan_differences(planned, self._state)
        expect(not lines, f"the plan ({planned['way']}: {planned['reason']}) said otherwise:\n"
               + "\n".join(lines))
        self._counts["planned " + planned["way"]] += 1

    def _check_verify(self, step):
        """A stopped shaper is not what the files ask for, nor one that they disable. Settings without
        a section shape nothing, but are stored with one."""
        if step.outcome is not Outcome.UNTOUCHED:
            self._asked_for = step.outcome is Outcome.LOADED or step.command == "--clear"
        elif step.names is not None:
            self._asked_for = False
        if not self._asked_for:
            return
        lines = drift(self._machine.program)
        expect(not lines, "verify finds:\n" + "\n".join(lines))
        self._counts["verified"] += 1

    def _check_broken(self, step, status, errors, before):
        """A run that did not reach its end. What the kernel holds is seen after the next ones."""
        expect(status == (-signal.SIGKILL if step.fault.kills else 1),
               f"status {status}: {errors[:300]}")
        # What the stand-in for sudo complains of comes before it.
        expect(step.fault.kills or "\nError: " in "\n" + errors, f"no message: {errors!r}")
        old, new = self._whole(step, before)
        expect(old or new, "the files are neither the old nor the new ones")
        expect(old or not step.fault.spares_files or step.command == "--load",
               "the files have changed before the kernel")
        self._agrees = self._asked_for = False
        self._sequence.step_failed()
        self._counts[step.command + (" killed" if step.fault.kills else " broken off")] += 1

    def _whole(self, step, before):
        """Whether the files are the old ones, and whether they may be the new ones. Of the global
        file it is seen later, when it is loaded."""
        settings, tariffs = self._files
        names = sorted_names(section_names(tariffs))
        return ((settings, tariffs) == before,
                (settings == before[0] or step.command in SETTINGS_COMMANDS)
                and (tariffs == before[1] or names == step.names) and tariffs != "")

    def _check_result(self, step, status, output, errors):
        if step.program != "quenby":
            return
        expect((status == 1) == step.fails and status in (0, 1), f"status {status}: {errors[:300]}")
        expect(errors.startswith("Error: ") or not step.fails, f"no message: {errors!r}")
        if step.options == ("--stat",):
            self._check_statistics(output)
        else:
            expect(not output, f"output {output!r}")

    def _check_statistics(self, output):
        known = OTHER_CLASSES | set(section_names(self._files[1])) if self._agrees else None
        for line in output.splitlines():
            match = STATISTICS.fullmatch(line)
            expect(match, f"not a line of statistics: {line!r}")
            expect(known is None or match[1] in known, f"an unknown tariff: {line!r}")

    def _check_files(self, step, before):
        if step.names is None:
            expect(self._files == before, "the files changed")
            return
        names = section_names(self._files[1])
        expect(sorted_names(names) == step.names,
               f"the tariff file should hold {step.names}, not {names}")
        expect(self._files[1] is None or names, "an empty tariff file was left")

    def _wanted(self, step):
        if step.outcome is Outcome.UNTOUCHED:
            return self._state
        if step.outcome is Outcome.BARE:
            return self._machine.bare
        enable = step.outcome is Outcome.LOADED_ENABLED
        return self._machine.twin(_enabled(self._files[0]) if enable else self._files[0])

    def _check_state(self, step):
        wanted, found = self._wanted(step), self._machine.state()
        self._state = found
        lines = differences(wanted, found)
        shown = lines[:MAX_SHOWN] + [f"... {len(lines)} lines"] * (len(lines) > MAX_SHOWN)
        if step.outcome is not Outcome.UNTOUCHED:
            self._agrees = True
        elif step.names is not None:
            self._agrees = False
        expect(not lines, f"the kernel should hold {step.outcome.value}:\n" + "\n".join(shown))


def report(arguments, seed, number, step, before, run, failure):
    print(f"\nFAILED: seed {seed}, step {number}: {step}\n{failure}")
    for title, files in (("before", before), ("after", run.files)):
        for name, text in zip(("tc_global.ini", "tc_tariff.ini"), files):
            print(f"  {name} {title}:\n{_listed(text)}")
    program = os.path.relpath(arguments.program)
    print(f"Replay: scripts/lab tests/property/run.py --seed {seed} --steps {number} --verbose "
          f"{program}\n")


def play(machine, seed, arguments, counts):
    """True when every step of the sequence ended as it must."""
    machine.reset()
    run, start = Run(machine, seed, counts), time.monotonic()
    for number in range(1, arguments.steps + 1):
        before = run.files
        step, check = run.step()
        if arguments.verbose:
            print(f"seed {seed}, step {number}: {step}", flush=True)
        try:
            check()
        except (Difference, AssertionError) as failure:
            report(arguments, seed, number, step, before, run, failure)
            return False
    print(f"seed {seed}: {arguments.steps} steps, {time.monotonic() - start:.0f} s", flush=True)
    return True


def seed_range(text):
    first, _, last = text.partition("-")
    return range(int(first), int(last or first) + 1)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--seed", "--seeds", dest="seeds", type=seed_range,
                        default=range(1, 16))
    parser.add_argument("--steps", type=int, default=20)
    parser.add_argument("--verbose", action="store_true", help="print each step")
    parser.add_argument("program")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    if not os.environ.get("QUENBY_IN_LAB"):
        sys.exit("Error: only inside the lab: scripts/lab tests/property/run.py PROGRAM")
    machine = Machine(str(pathlib.Path(arguments.program).resolve()))
    counts = collections.Counter()
    failed = [seed for seed in arguments.seeds if not play(machine, seed, arguments, counts)]
    for name, count in sorted(counts.items()):
        print(f"{count:5} {name}")
    if failed:
        sys.exit(f"FAILED seeds: {failed}")


if __name__ == "__main__":
    main()
