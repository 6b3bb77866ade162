"""Measures subscribers in both directions and judges the result."""

from plan import DIRECTIONS, FAMILIES, groups
from traffic import Transfer

# The first seconds show the bursts (240 ms of traffic) and how TCP finds its rate.
SETTLE = 2.0
LENGTH = 5.0
# By what a subscriber's connections go at a time, one after the other.
ALONE_AND_TOGETHER = {"IPv4": ("IPv4",), "IPv6": ("IPv6",), "both": FAMILIES}
TOGETHER_ALONE = {"both": FAMILIES}
SLOW_LENGTH = 8.0
LOWEST_SHARE = 0.85
HIGHEST_SHARE = 1.03
# What is measured at once, kbit/s: well below what an emulated machine forwards.
TOGETHER = 18000


def say(text):
    print(text, flush=True)


def judge(share):
    return LOWEST_SHARE <= share <= HIGHEST_SHARE


def too_slow(share):
    return share < LOWEST_SHARE


class Pass:
    """One measurement of some subscribers at the same time in one direction, for each of `ways`."""

    def __init__(self, meter, subscribers, direction, ways, length=LENGTH):
        self.meter = meter
        self.direction = direction
        self.subscribers = subscribers
        self.length = length
        self._ways = ways
        self._windows = {}

    def run(self):
        names = ", ".join(subscriber.name for subscriber in self.subscribers)
        say(f"  {self.direction}: {names}")
        self.transfer = Transfer(self.subscribers, self.direction)
        self.transfer.run(self._step)
        self.difference = self.meter.difference()
        self.problems = self.difference.misplaced(self.subscribers) + self._uncounted()
        return self

    def _step(self, now):
        """Opens the next window when the last one is closed; true when there is none."""
        if not all(window.closed() for window in self._windows.values()):
            return False
        for way, families in self._ways.items():
            if way not in self._windows:
                self.transfer.send_over(families)
                self._windows[way] = self.transfer.window(now + SETTLE, self.length)
                return False
        return True

    def _uncounted(self):
        """Classes that counted less than what was received."""
        problems = []
        for subscriber in self.subscribers:
            counted = self.difference.counted(self.direction, subscriber.class_number)
            received = self.transfer.total(subscriber.name)
            if counted.bytes < received:
                problems.append(f"{self.direction} class {subscriber.class_number} counted "
                                f"{counted.bytes} bytes, {subscriber.name} received {received}")
        return problems

    def rate(self, subscriber, way):
        return self._windows[way].rate(subscriber.name)

    def share(self, subscriber, way):
        return self.rate(subscriber, way) / subscriber.speed(self.direction)

    def is_slow(self, subscriber):
        return any(too_slow(self.share(subscriber, way)) for way in self._ways)

    def record(self):
        return {"direction": self.direction,
                "windows": {way: window.record() for way, window in self._windows.items()},
                "samples": self.transfer.series(), "problems": self.problems}


def _slow(measurement):
    return [subscriber for subscriber in measurement.subscribers
            if measurement.is_slow(subscriber)]


def _measure(meter, subscribers, direction, ways, limit, length):
    return [Pass(meter, group, direction, ways, length).run()
            for group in groups(subscribers, direction, limit)]


def _measure_direction(meter, subscribers, direction, ways):
    """The passes of one direction. Who was too slow is measured again, in less
    company and then alone, which tells a busy machine from a wrong class; the
    last measurement counts. Too fast stays too fast."""
    passes = _measure(meter, subscribers, direction, ways, TOGETHER, LENGTH)
    last = passes
    for limit in (TOGETHER // 2, 0):
        slow = [subscriber for measurement in last for subscriber in _slow(measurement)]
        if not slow:
            break
        say(f"    too slow, measuring again: {', '.join(member.name for member in slow)}")
        last = _measure(meter, slow, direction, ways, limit, SLOW_LENGTH)
        passes += last
    return passes


def run_passes(meter, subscribers, ways):
    """Measures everybody in both directions, each of `ways`."""
    return [measurement for direction in DIRECTIONS
            for measurement in _measure_direction(meter, subscribers, direction, ways)]


def row(subscriber, way, passes):
    """One line of the table: rates by direction, packets of all its passes."""
    own = [measurement for measurement in passes if subscriber in measurement.subscribers]
    result = {"subscriber": subscriber, "over": way}
    for direction in DIRECTIONS:
        last = [measurement for measurement in own if measurement.direction == direction][-1]
        result[direction] = {
            "configured": subscriber.speed(direction),
            "measured": last.rate(subscriber, way),
            "share": last.share(subscriber, way),
            "packets": sum(
                measurement.difference.counted(direction, subscriber.class_number).packets
                for measurement in own),
        }
    return result


def row_problems(line):
    """What is wrong with the rates of a line."""
    name = line["subscriber"].name
    return [f"{name}: {direction} over {line['over']} at {line[direction]['share'] * 100:.1f} % of "
            f"{line[direction]['configured']} kbit/s, not within "
            f"{LOWEST_SHARE * 100:.0f} % and {HIGHEST_SHARE * 100:.0f} %"
            for direction in DIRECTIONS if not judge(line[direction]["share"])]
