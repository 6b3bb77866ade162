"""Loads the example files on the lab's router, sends TCP for every subscriber,
changes tariffs and measures again. scripts/demo runs it inside the lab.

Call: python3 lab/demo QUENBY [JSON-FILE]      in the top folder of the tree
"""

import json
import os
import shlex
import subprocess
import sys
from dataclasses import asdict, replace

from change import LiveChange
from counters import DEVICES, ROOT_CLASS, Meter, parse_classes, watch_addresses
from measure import ALONE_AND_TOGETHER, TOGETHER_ALONE, row, row_problems, run_passes, say
from plan import class_numbers, default_subscriber, read_tariffs
from report import table

EXAMPLES = "examples"
STORED = "/config/tc/tc_tariff.ini"
LINE = "/tmp/line.ini"
SUBSCRIBERS = "/tmp/subscribers.ini"
FREE_ADDRESSES = ("10.0.200.9", "2001:db8:0:c800::9")
CHANGED_FILE = f"{EXAMPLES}/tariff_update.ini"
ADDED_FILE = f"{EXAMPLES}/tariff_add.ini"
DELETED = "4714 Weaver"
BYSTANDER = "4713 School"  # downloads during the change of another tariff


def run(*command):
    subprocess.run(command, check=True)


class Demo:
    def __init__(self, quenby):
        self.quenby = quenby
        self.problems = []
        self.record = {"tables": []}
        self.tariffs = read_tariffs(f"{EXAMPLES}/tc_tariff.ini.example")
        self.changed = read_tariffs(CHANGED_FILE)
        self.added = read_tariffs(ADDED_FILE)
        self.without = default_subscriber(
            f"{EXAMPLES}/tc_global.ini.example", "(no tariff)", FREE_ADDRESSES)

    def command(self, *options):
        """Runs the program and shows how."""
        say(f"  $ quenby {shlex.join(options)}")
        run(self.quenby, *options)

    def addresses(self):
        subscribers = [*self.tariffs.values(), *self.added.values(), self.without]
        return [address for subscriber in subscribers for address in subscriber.addresses]

    def build_network(self):
        say("Building the network: internet host, router, subscribers")
        run("lab/network.sh", "up")
        run("lab/network.sh", "ipv6")
        run("lab/network.sh", "subscribers", *self.addresses())
        run("lab/network.sh", "platform")
        watch_addresses(self.addresses())

    def load(self):
        say("Setting the examples up")
        copy_example("tc_global.ini", LINE)
        copy_example("tc_tariff.ini", SUBSCRIBERS)
        self.command("--global-update", LINE, "--update", SUBSCRIBERS)
        self.tariffs = with_numbers(self.tariffs)
        self.meter = Meter()

    def measure(self, title, subscribers, ways):
        say(title)
        passes = run_passes(self.meter, subscribers, ways)
        rows = [row(subscriber, way, passes) for subscriber in subscribers for way in ways]
        say("\n" + "\n".join(table(rows)) + "\n")
        for measurement in passes:
            self.problems += measurement.problems
        for line in rows:
            self.problems += row_problems(line)
        self.record["tables"].append({
            "title": title,
            "rows": [{**line, "subscriber": asdict(line["subscriber"])} for line in rows],
            "passes": [measurement.record() for measurement in passes]})

    def change_live(self):
        """Changes a tariff during its own download and somebody else's."""
        say("Changing a tariff while it and another one download")
        (name, new), = self.changed.items()
        say(f"  $ quenby --tariff-update {CHANGED_FILE}")
        live = LiveChange(self.meter, [self.quenby, "--tariff-update", CHANGED_FILE],
                          self.tariffs[name], new, self.tariffs[BYSTANDER])
        live.run()
        for subscriber, when, rate, speed in live.rates():
            say(f"  {subscriber} {when}: {rate / 1000:.2f} of {speed / 1000:.2f} Mbit/s")
        say("  packets while the class was replaced (download, upload): "
            + ", ".join(map(str, live.unclassified().values())))
        self.problems += live.problems()
        self.record["change"] = live.record()

    def edit(self):
        self.change_live()
        say("Adding a tariff and deleting one")
        self.command("--tariff-add", ADDED_FILE)
        self.command("--tariff-del", DELETED)

    def after_edits(self):
        """The subscribers as they are now; speeds are those of the files given."""
        tariffs = {**self.tariffs, **self.changed, **self.added}
        gone = tariffs.pop(DELETED)
        former = replace(self.without, name=f"({gone.name}, deleted)", addresses=gone.addresses)
        return [*with_numbers(tariffs).values(), former]

    def statistics(self):
        say("  $ quenby --stat")
        text = subprocess.run([self.quenby, "--stat"], stdout=subprocess.PIPE, text=True,
                              check=True).stdout
        say(text)
        self.record["stat"] = text
        self.problems += wrong_statistics(text)

    def run(self):
        self.build_network()
        self.load()
        self.measure("Measuring every tariff and addresses without one",
                     [*self.tariffs.values(), self.without], ALONE_AND_TOGETHER)
        self.edit()
        self.measure("Measuring again", self.after_edits(), TOGETHER_ALONE)
        self.statistics()


def copy_example(name, path):
    """Copies an example as its own text says: without its comments."""
    with open(f"{EXAMPLES}/{name}.example", encoding="utf-8") as source, \
            open(path, "w", encoding="utf-8") as target:
        target.writelines(line for line in source if not line.startswith("#"))


def with_numbers(tariffs):
    """The subscribers with the class numbers that the program has stored."""
    numbers = class_numbers(STORED)
    return {name: replace(tariff, class_number=numbers[name])
            for name, tariff in tariffs.items()}


def wrong_statistics(text):
    """Compares the counters that --stat printed with those of tc."""
    printed = sorted(line.rsplit(",", 6)[1:3] for line in text.splitlines())
    kernel = []
    for device in DEVICES.values():
        output = subprocess.run(["tc", "-s", "class", "show", "dev", device],
                                stdout=subprocess.PIPE, text=True, check=True).stdout
        kernel += [[str(count.packets), str(count.bytes)]
                   for number, count in parse_classes(output).items() if number != ROOT_CLASS]
    return [] if printed == sorted(kernel) else ["--stat printed other counters than tc"]


def main():
    demo = Demo(os.path.abspath(sys.argv[1]))
    try:
        demo.run()
    except (OSError, RuntimeError, subprocess.CalledProcessError) as error:
        demo.problems.append(str(error))
    if len(sys.argv) > 2:
        with open(sys.argv[2], "w", encoding="utf-8") as file:
            json.dump({**demo.record, "problems": demo.problems}, file, indent=1)
    for problem in demo.problems:
        print(f"Error: {problem}", file=sys.stderr)
    if not demo.problems:
        say("Every rate is within 85 % and 103 %; every packet was counted in its own class.")
    return 1 if demo.problems else 0


sys.exit(main())
