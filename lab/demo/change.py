"""Changes a tariff while traffic flows."""

import subprocess

from counters import SYSTEM_CLASS
from measure import LENGTH, SETTLE, judge, too_slow
from plan import DIRECTIONS
from traffic import Transfer

RECOVER = 1.5  # seconds from the end of the command to the next measurement
ATTEMPTS = 3


class LiveChange:
    """Downloads of the changed subscriber and of another while COMMAND runs."""

    def __init__(self, meter, command, old, new, other):
        self.meter = meter
        self.command = command
        self.old = old
        self.new = new
        self.other = other
        self._process = None
        self._before = []
        self._after = []

    def run(self):
        self.transfer = Transfer([self.old, self.other], "download")
        self._before.append(self.transfer.window(SETTLE, LENGTH))
        self.transfer.run(self._step)
        self.difference = self.meter.difference()
        if self._process.returncode != 0:
            raise subprocess.CalledProcessError(self._process.returncode, self.command)

    def _step(self, now):
        """Starts the command between the measurements; true when both are done."""
        if self._process is None:
            if self._measured(self._before, self.old, now):
                self.started = now
                self._process = subprocess.Popen(self.command)
        elif not self._after:
            if self._process.poll() is not None:
                self.ended = now
                self._after.append(self.transfer.window(now + RECOVER, LENGTH))
        else:
            return self._measured(self._after, self.new, now)
        return False

    def _measured(self, windows, changed, now):
        """True when the last window counts. One that was too slow is measured
        again, since the machine may have been busy."""
        window = windows[-1]
        if not window.closed():
            return False
        slow = any(too_slow(window.rate(tariff.name) / tariff.download)
                   for tariff in (changed, self.other))
        if not slow or len(windows) == ATTEMPTS:
            return True
        windows.append(self.transfer.window(now, LENGTH))
        return False

    def rates(self):
        """(name, when, measured kbit/s, configured kbit/s)"""
        return [(now.name, when, window.rate(now.name), now.download)
                for old, new in ((self.old, self.new), (self.other, self.other))
                for when, window, now in (("before", self._before[-1], old),
                                          ("after", self._after[-1], new))]

    def unclassified(self):
        """Packets that passed while the changed class did not exist: it is removed
        and made again, and meanwhile its packets go to the system class."""
        return {direction: self.difference.counted(direction, SYSTEM_CLASS).packets
                for direction in DIRECTIONS}

    def problems(self):
        # The counters of the changed class began at 0 again. Nobody else's may have
        # been touched, so what the system class got was the changed one's.
        found = self.difference.misplaced(
            [self.old, self.other], without=(self.old.class_number, SYSTEM_CLASS))
        for direction, count in self.unclassified().items():
            if count > self.difference.had(direction, self.old):
                found.append(f"{direction} class {SYSTEM_CLASS} counted {count} packets "
                             f"during the change, more than {self.old.name} had")
        return found + [
            f"{name}: {rate:.0f} kbit/s {when} the change, configured {speed}"
            for name, when, rate, speed in self.rates() if not judge(rate / speed)]

    def record(self):
        return {"direction": "download", "changed": self.old.name,
                "configured": {"before": self.old.download, "after": self.new.download,
                               "other": self.other.download},
                "command_started": round(self.started, 3), "command_ended": round(self.ended, 3),
                "windows": {"before": [window.record() for window in self._before],
                            "after": [window.record() for window in self._after]},
                "rates": self.rates(), "unclassified": self.unclassified(),
                "samples": self.transfer.series(), "problems": self.problems()}
