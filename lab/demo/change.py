"""Changes a tariff while traffic flows."""

import subprocess

from counters import Difference, settled_snapshot
from measure import SETTLE, judge
from traffic import Transfer

CHANGE_AT = 6.5
AFTER = 1.5  # from the end of the command to the second measurement
WINDOW = 4.5


class LiveChange:
    """Downloads of the changed subscriber and of others while COMMAND runs."""

    def __init__(self, command, old, new, others):
        self.command = command
        self.old = old
        self.new = new
        self.others = others
        self._process = None
        self.started = None
        self.ended = None

    def run(self):
        subscribers = [self.old, *self.others]
        before = settled_snapshot()
        self.transfer = Transfer(subscribers, "download")
        self.transfer.run(self._step)
        self.misplaced = Difference(before, settled_snapshot()).misplaced(subscribers)
        if self._process.returncode != 0:
            raise subprocess.CalledProcessError(self._process.returncode, self.command)

    def _step(self, now):
        """Starts the command in time; true when everything is measured."""
        if self._process is None:
            if now >= CHANGE_AT:
                self.started = now
                self._process = subprocess.Popen(self.command)
        elif self.ended is None and self._process.poll() is not None:
            self.ended = now
        return self.ended is not None and now > self.ended + AFTER + WINDOW

    def _rate(self, name, after):
        begin = self.ended + AFTER if after else SETTLE
        end = begin + WINDOW if after else self.started
        return self.transfer.rate(name, begin, end)

    def lines(self):
        """(name, kbit/s before, configured before, kbit/s after, configured after)"""
        result = [(self.old.name, self._rate(self.old.name, False), self.old.download,
                   self._rate(self.old.name, True), self.new.download)]
        for other in self.others:
            result.append((other.name, self._rate(other.name, False), other.download,
                           self._rate(other.name, True), other.download))
        return result

    def problems(self):
        found = list(self.misplaced)
        for name, before, old, after, new in self.lines():
            for when, rate, speed in (("before", before, old), ("after", after, new)):
                if not judge(rate / speed):
                    found.append(f"{name}: {rate:.0f} kbit/s {when} the change, "
                                 f"configured {speed} kbit/s")
        return found

    def record(self):
        return {"direction": "download", "changed": self.old.name,
                "configured": {"before": self.old.download, "after": self.new.download},
                "command_started": round(self.started, 3), "command_ended": round(self.ended, 3),
                "samples": self.transfer.series(), "problems": self.problems()}
