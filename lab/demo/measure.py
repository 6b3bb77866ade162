"""Measures subscribers in both directions and judges the result."""

from plan import DIRECTIONS, groups
from traffic import Transfer

# The first seconds show the bursts (240 ms of traffic) and how TCP finds its rate.
SETTLE = 2.0
LENGTH = 5.0
SLOW_LENGTH = 8.0
LOWEST_SHARE = 0.85
HIGHEST_SHARE = 1.03
# What is measured at once, kbit/s: well below what an emulated machine forwards.
TOGETHER = 26000


def say(text):
    print(text, flush=True)


def judge(share):
    return LOWEST_SHARE <= share <= HIGHEST_SHARE


class Pass:
    """One measurement of some subscribers at the same time in one direction."""

    def __init__(self, meter, subscribers, direction, length=LENGTH):
        self.meter = meter
        self.direction = direction
        self.subscribers = subscribers
        self.length = length

    def run(self):
        names = ", ".join(subscriber.name for subscriber in self.subscribers)
        say(f"  {self.direction}: {names}")
        self.transfer = Transfer(self.subscribers, self.direction)
        self.window = self.transfer.window(SETTLE, self.length)
        self.transfer.run(lambda _: self.window.closed())
        self.difference = self.meter.difference()
        self.problems = self.difference.misplaced(self.subscribers) + self._uncounted()
        return self

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

    def rate(self, subscriber):
        return self.window.rate(subscriber.name)

    def share(self, subscriber):
        return self.rate(subscriber) / subscriber.speed(self.direction)

    def record(self):
        return {"direction": self.direction, "window": self.window.record(),
                "samples": self.transfer.series(), "problems": self.problems}


def _slow(measurement):
    return [subscriber for subscriber in measurement.subscribers
            if measurement.share(subscriber) < LOWEST_SHARE]


def _again(measurement, subscriber):
    say(f"    {subscriber.name} reached {measurement.share(subscriber) * 100:.1f} %; "
        "once more, alone and longer:")
    return Pass(measurement.meter, [subscriber], measurement.direction, SLOW_LENGTH).run()


def run_passes(meter, subscribers):
    """Measures everybody in both directions. A subscriber who was too slow in
    company is measured once more alone, which tells a busy machine from a wrong
    class; the later measurement then counts."""
    passes = []
    for direction in DIRECTIONS:
        for group in groups(subscribers, direction, TOGETHER):
            measurement = Pass(meter, group, direction).run()
            passes.append(measurement)
            passes += [_again(measurement, subscriber) for subscriber in _slow(measurement)]
    return passes


def row(subscriber, passes):
    """One line of the table: rates by direction, packets of all its passes."""
    own = [measurement for measurement in passes if subscriber in measurement.subscribers]
    result = {"subscriber": subscriber}
    for direction in DIRECTIONS:
        last = [measurement for measurement in own if measurement.direction == direction][-1]
        result[direction] = {
            "configured": subscriber.speed(direction),
            "measured": last.rate(subscriber),
            "share": last.share(subscriber),
            "packets": sum(
                measurement.difference.counted(direction, subscriber.class_number).packets
                for measurement in own),
        }
    return result


def row_problems(line):
    """What is wrong with the rates of a line."""
    name = line["subscriber"].name
    return [f"{name}: {direction} at {line[direction]['share'] * 100:.1f} % of "
            f"{line[direction]['configured']} kbit/s, not within "
            f"{LOWEST_SHARE * 100:.0f} % and {HIGHEST_SHARE * 100:.0f} %"
            for direction in DIRECTIONS if not judge(line[direction]["share"])]
