"""What `quenbyctl plan` says before a step, whether the kernel holds it afterwards, and what
`quenbyctl verify` finds then."""

import json
import pathlib
import re
import subprocess

from router_state import differences

PLANNED = ("--load", "--tariff-add", "--tariff-update", "--tariff-del", "--update",
           "--global-update")

_CLASS = re.compile(r"(\S+ class \S+) .*(rate \d+ ceil \d+ burst \d+ cburst \d+)")
_LEAF = re.compile(r"(\S+) qdisc \S+ parent (8000:\S+) (\S+)")
_ADDRESS = re.compile(r"set kavo_opt_shaper6? (\S+) skbmark (0x[0-9a-f]+)/")


def plan(program, options):
    """Status and plan of a step that is planned; the plan is None where quenby would refuse it."""
    command, *arguments = options
    done = subprocess.run([pathlib.Path(program).with_name("quenbyctl"), "plan", "--json",
                           command[2:], *arguments], capture_output=True, text=True, check=False)
    return done.returncode, json.loads(done.stdout) if done.stdout else None


def _handle(number):
    return f"{number >> 16:x}:{number & 0xFFFF:x}"


def _planned_lines(planned):
    for c in planned["classes"]:
        key = f"{c['device']} class {_handle(c['handle'])}"
        yield (f"{key} rate {c['rate']} ceil {c['ceiling']} burst {c['burst']} "
               f"cburst {c['ceiling_burst']}")
        if c["leaf"]:
            yield f"{c['device']} leaf {_handle(c['handle'])} {c['leaf']}"


def _found_lines(state):
    for line in state:
        if match := _CLASS.match(line):
            yield f"{match[1]} {match[2]}"
        elif match := _LEAF.match(line):
            yield f"{match[1]} leaf {match[2]} {match[3]}"


def plan_differences(planned, state):
    """One line for each class, leaf or address of the set that is not as the plan has it."""
    lines = differences(list(_planned_lines(planned)), list(_found_lines(state)))
    marks = dict(match.groups() for match in map(_ADDRESS.match, state) if match)
    wanted = {}
    for c in planned["classes"]:
        for address in (*c["addresses"], *c.get("prefixes", ())) if c["mark"] else ():
            wanted.setdefault(address, set()).add(f"0x{c['mark']:x}")
    lines += [f"{address}: one of {sorted(owners)} was planned, the set has {marks.get(address)}"
              for address, owners in wanted.items() if marks.get(address) not in owners]
    return lines


def drift(program):
    """In what the kernel differs from the files. The guest's kernel has no IMQ target."""
    done = subprocess.run([pathlib.Path(program).with_name("quenbyctl"), "verify"],
                          capture_output=True, text=True, check=False)
    lines = [line for line in done.stdout.splitlines() if "-j IMQ" not in line]
    return lines + [f"status {done.returncode}: {done.stderr}"] * (done.returncode > 1)
