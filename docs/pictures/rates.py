"""Turns the demo's record of a change under traffic into a table for rates.gp.

Call: python3 docs/pictures/rates.py JSON-FILE >docs/pictures/rates.dat

The first block has one line per sample: seconds, then Mbit/s that arrived at each
subscriber since the sample before. The second is the command's begin and end.
The third has the changed tariff's speed, before and after, and the other one's, in Mbit/s.
"""

import json
import sys


def sample_rates(samples):
    """(seconds, [Mbit/s of each subscriber]) of neighbouring samples."""
    for before, after in zip(samples, samples[1:]):
        seconds = after["seconds"] - before["seconds"]
        yield after["seconds"], [
            (after["bytes"][name] - before["bytes"][name]) * 8 / 1e6 / seconds
            for name in after["bytes"]]


def table(change):
    samples = change["samples"]
    yield "seconds " + " ".join(f'"{name}"' for name in samples[0]["bytes"])
    for seconds, rates in sample_rates(samples):
        yield f"{seconds:.3f} " + " ".join(f"{rate:.3f}" for rate in rates)
    configured = change["configured"]
    yield f"\n\n{change['command_started']} {change['command_ended']}"
    yield "\n\n" + " ".join(str(configured[key] / 1000) for key in ("before", "after", "other"))


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        print("\n".join(table(json.load(file)["change"])))


main()
