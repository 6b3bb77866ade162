#!/usr/bin/env python3
"""Edits that touch the changed tariffs alone make what a load of the stored files makes, on lines
without configured speeds and for tariffs that share an address. They leave firewall rules alone.

Call: scripts/lab tests/kernel/in_place_test.py PROGRAM
"""

import pathlib
import subprocess
import unittest

import router_state
from router import (IFB, IMQ, TARIFF_FILE, Router, make_device, program_path, renew_devices,
                    use_idle_sudo, use_legacy_iptables)

ROUTER = None
GIVEN = pathlib.Path("/run/given.ini")
LINE = "ppp0"
DEVICES = (LINE, IFB, IMQ)

IMQ_BASE = "[global]\nenabled=true\n"
BASE = f"[global]\nwan={LINE}\nenabled=true\n"
BOTH = ("download_speed", "upload_speed")
DOWN, UP = BOTH[:1], BOTH[1:]


def tariff(name, kbit, address, number=None, keys=BOTH, more=""):
    own = "" if number is None else f"id={number}\n"
    speeds = "".join(f"{key}={kbit}\n" for key in keys)
    return f"[{name}]\n{own}ip={address}\n{speeds}{more}"


def three(keys=BOTH, more=""):
    """The largest and the smallest stand between others in the order of names."""
    return (tariff("bob", 8000, "10.0.0.5", 5, keys, more)
            + tariff("mia", 1000, "10.0.0.6", 6, keys) + tariff("zed", 4000, "10.0.0.4", 4, keys))


DEFAULT = "[defaultqosipqueue]\ndownload_speed=3000\nupload_speed=2000\n"
SHARED = (tariff("ann", 1000, "10.0.0.1", 4) + tariff("bob", 2000, "10.0.0.1", 5)
          + tariff("tom", 3000, "10.0.0.1", 6))
SPEEDS = "download_speed=50000\nupload_speed=20000\n"

ADD, UPDATE, DELETE = "--tariff-add", "--tariff-update", "--tariff-del"

# Settings, tariffs, then option and file or name; whether it is made in place.
EDITS = {
    "add a middle one": (BASE, three(), ADD, tariff("new", 2000, "10.0.0.9"), True),
    "add the largest": (BASE, three(), ADD, tariff("new", 90000, "10.0.0.9"), True),
    "add the smallest": (BASE, three(), ADD, tariff("new", 64, "10.0.0.9"), True),
    "add one without a guarantee":
        (BASE, three(), ADD, tariff("new", "max", "10.0.0.9"), True),
    "add one with a large burst":
        (BASE, three(), ADD, tariff("new", 500, "10.0.0.9", more="download_burst_size=9000000\n"),
         True),
    "delete the largest": (BASE, three(), DELETE, "bob", True),
    "delete the smallest": (BASE, three(), DELETE, "mia", True),
    "delete the one with the largest burst":
        (BASE, three(more="upload_burst_size=9000000\n"), DELETE, "bob", True),
    "change the largest to the smallest":
        (BASE, three(), UPDATE, tariff("bob", 100, "10.0.0.5"), True),
    "change the smallest to the largest":
        (BASE, three(), UPDATE, tariff("mia", 90000, "10.0.0.6"), True),
    "change the leaf alone":
        (BASE, three(), UPDATE, tariff("mia", 1000, "10.0.0.6", more="queuing_discipline=pfifo\n"),
         True),
    "take the address of the largest":
        (BASE, three(), UPDATE, "[bob]\ndownload_speed=8000\nupload_speed=8000\n", True),
    "add beside a default tariff":
        (BASE + DEFAULT, three(), ADD, tariff("new", 2000, "10.0.0.9"), True),
    "delete the largest beside a default tariff": (BASE + DEFAULT, three(), DELETE, "bob", True),
    "download only, add":
        (BASE, three(DOWN), ADD, tariff("new", 90000, "10.0.0.9", keys=DOWN), True),
    "download only, delete the largest": (BASE, three(DOWN), DELETE, "bob", True),
    "upload only, add": (BASE, three(UP), ADD, tariff("new", 90000, "10.0.0.9", keys=UP), True),
    "upload only, change": (BASE, three(UP), UPDATE, tariff("bob", 10, "10.0.0.5", keys=UP), True),
    "imq0, add the largest": (IMQ_BASE, three(), ADD, tariff("new", 90000, "10.0.0.9"), True),
    "imq0, delete the largest": (IMQ_BASE, three(), DELETE, "bob", True),
    "imq0, change the smallest to the largest":
        (IMQ_BASE, three(DOWN), UPDATE, tariff("mia", 90000, "10.0.0.6", keys=DOWN), True),
    "imq0, shared": (IMQ_BASE, SHARED, DELETE, "tom", False),
    "upload begins": (BASE, three(DOWN), ADD, tariff("new", 500, "10.0.0.9"), False),
    "upload ends": (BASE, three(DOWN) + tariff("new", 500, "10.0.0.9", 7), DELETE, "new", False),
    "more than the link has": (BASE, three(), ADD, tariff("new", 999000, "10.0.0.9"), False),
    "first one": (BASE, None, ADD, tariff("new", 500, "10.0.0.9"), False),
    "last one": (BASE, tariff("bob", 500, "10.0.0.5", 5), DELETE, "bob", False),
    "shared, add the first": (BASE + SPEEDS, SHARED, ADD, tariff("aaa", 500, "10.0.0.1"), True),
    "shared, add one between": (BASE + SPEEDS, SHARED, ADD, tariff("eve", 500, "10.0.0.1"), True),
    "shared, add the last": (BASE + SPEEDS, SHARED, ADD, tariff("zed", 500, "10.0.0.1"), True),
    "shared, delete the first": (BASE + SPEEDS, SHARED, DELETE, "ann", True),
    "shared, delete the last": (BASE + SPEEDS, SHARED, DELETE, "tom", True),
    "shared, change one between":
        (BASE + SPEEDS, SHARED, UPDATE, tariff("bob", 700, "10.0.0.1"), True),
    "shared, the last takes another":
        (BASE + SPEEDS, SHARED, UPDATE, tariff("tom", 700, "10.0.0.2"), True),
    "shared, all leave but one":
        (BASE + SPEEDS, SHARED, UPDATE, tariff("tom", 700, "10.0.0.2")
         + tariff("ann", 700, "10.0.0.3"), True),
    "shared, the largest without line speeds": (BASE, SHARED, DELETE, "tom", True),
}

# A class of nobody's: building everything takes it away, a change in place does not.
TRACER = "class {} dev {} parent 8000: classid 8000:3fff"


def tc(words, **options):
    return subprocess.run(["tc", *words.split()], capture_output=True, check=False,
                          **options).returncode == 0


class InPlace(unittest.TestCase):
    """Gets a test for each edit."""

    def reset(self):
        ROUTER.reset(imq=True)
        renew_devices(LINE)

    def read(self):
        return router_state.read_state(DEVICES)

    def check(self, settings, tariffs, option, argument, in_place):
        self.reset()
        ROUTER.load(settings, tariffs)
        traced = [device for device in DEVICES
                  if tc(TRACER.format("add", device) + " htb rate 8kbit")]
        if option != DELETE:
            GIVEN.write_text(argument, encoding="ascii")
            argument = str(GIVEN)
        self.assertEqual((0, ""), ROUTER.run(option, argument)[:2])
        kept = [device for device in traced if tc(TRACER.format("del", device))]
        found = self.read()
        self.reset()
        stored = TARIFF_FILE.read_text(encoding="ascii") if TARIFF_FILE.exists() else None
        ROUTER.load(settings, stored)
        lines = router_state.differences(self.read(), found)
        self.assertFalse(lines, "\n" + "\n".join(lines))
        self.assertEqual(traced if in_place else [], kept)
        self.assertTrue(traced or not in_place)


for edit_name, edit in EDITS.items():
    setattr(InPlace, "test_" + edit_name.replace(" ", "_").replace(",", ""),
            lambda self, arguments=edit: self.check(*arguments))


if __name__ == "__main__":
    use_idle_sudo()
    use_legacy_iptables()
    ROUTER = Router(program_path())
    make_device(IMQ, "ifb")
    unittest.main(verbosity=2)
