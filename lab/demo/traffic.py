"""TCP connections between subscribers and the internet host, all driven by one
process: it makes each socket inside the right network namespace and keeps it.

One loop moves the data of all connections and takes their counts at the same
moment, so the rates of several connections add up to their class's rate. It
wakes up every TICK only: the kernel's socket buffers carry the traffic in
between, which costs an emulated machine far less than one wake-up per packet.
"""

import ctypes
import os
import socket
import time
from contextlib import contextmanager

from plan import FAMILIES, family

INTERNET_ADDRESSES = {"IPv4": "198.51.100.2", "IPv6": "2001:db8:ffff:1::2"}
SOCKETS = {"IPv4": socket.AF_INET, "IPv6": socket.AF_INET6}
INTERNET_NAMESPACE = "inet"
LAN_NAMESPACE = "lan"

TICK = 0.05
SAMPLE_PERIOD = 0.25
CLOSE_LIMIT = 10
# A turn of the loop that takes longer than HOLD_UP means that the machine was
# held up; STEADY seconds without one make a steady moment, which is waited for
# STEADY_LIMIT seconds at most.
HOLD_UP = 0.15
STEADY = 0.5
STEADY_LIMIT = 5
# Bounds what waits in the shaper's queue: at 2 Mbit/s 160 KB are 0.6 s. A class
# of 10 Mbit/s needs 63 KB a tick.
SEND_BUFFER = 128 * 1024
# No window ever closes because the receiving end sleeps between two ticks.
RECEIVE_BUFFER = 208 * 1024

_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)
_zeros = memoryview(bytes(64 * 1024))
_sink = bytearray(256 * 1024)


def _enter(descriptor):
    if _libc.setns(descriptor, _CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "setns")


@contextmanager
def namespace(name):
    """Sockets made in this context belong to the network namespace NAME."""
    home = os.open("/proc/self/ns/net", os.O_RDONLY)
    try:
        target = os.open(f"/run/netns/{name}", os.O_RDONLY)
        try:
            _enter(target)
        finally:
            os.close(target)
        yield
    finally:
        _enter(home)
        os.close(home)


def _connect(address):
    """A connection that ADDRESS opens to the internet host: (its end, the host's end)."""
    kind = family(address)
    with namespace(INTERNET_NAMESPACE):
        listener = socket.create_server((INTERNET_ADDRESSES[kind], 0), family=SOCKETS[kind])
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BUFFER)
    with namespace(LAN_NAMESPACE):
        near = socket.socket(SOCKETS[kind])
        near.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BUFFER)
    with listener:
        listener.settimeout(CLOSE_LIMIT)
        near.settimeout(CLOSE_LIMIT)
        near.bind((address, 0))
        near.connect(listener.getsockname()[:2])
        far, _ = listener.accept()
    return near, far


class Flow:
    """One connection of a subscriber that carries data in one direction."""

    def __init__(self, address, direction):
        self.family = family(address)
        near, far = _connect(address)
        self.sender, self.receiver = (far, near) if direction == "download" else (near, far)
        self.sender.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, SEND_BUFFER)
        self.sender.setblocking(False)
        self.receiver.setblocking(False)
        self.received = 0
        self.ended = False

    def push(self):
        try:
            while self.sender.send(_zeros) > 0:
                pass
        except BlockingIOError:
            pass

    def pull(self):
        try:
            while not self.ended:
                count = self.receiver.recv_into(_sink)
                self.received += count
                self.ended = count == 0
        except BlockingIOError:
            pass

    def finish(self):
        self.sender.shutdown(socket.SHUT_WR)

    def close(self):
        self.sender.close()
        self.receiver.close()


def _close_all(flows):
    """Ends connections in good order, so that nothing stays in any queue."""
    for flow in flows:
        flow.finish()
    limit = time.monotonic() + CLOSE_LIMIT
    while not all(flow.ended for flow in flows) and time.monotonic() < limit:
        for flow in flows:
            flow.pull()
        time.sleep(TICK)
    for flow in flows:
        flow.close()


class Window:
    """A stretch of time in which rates are measured.

    A busy host may hold the whole machine up for half a second; the packets that
    were due then come in a burst afterwards. Inside the window that evens out,
    at its edges it would not, so it opens and closes at steady moments only.
    """

    def __init__(self, begin, length):
        self.begin = begin
        self.length = length
        self.first = None
        self.last = None

    def closed(self):
        return self.last is not None

    def update(self, now, steady_for, counts):
        if self.first is None:
            if self._due(now, self.begin, steady_for):
                self.first = (now, counts())
        elif self.last is None and self._due(now, self.first[0] + self.length, steady_for):
            self.last = (now, counts())

    @staticmethod
    def _due(now, moment, steady_for):
        return now >= moment and (steady_for >= STEADY or now >= moment + STEADY_LIMIT)

    def rate(self, name):
        """The goodput in kbit/s."""
        (begin, low), (end, high) = self.first, self.last
        return (high[name] - low[name]) * 8 / 1000 / (end - begin)

    def record(self):
        """Its edges in a form for JSON."""
        return {"begin": round(self.first[0], 3), "end": round(self.last[0], 3)}


class Transfer:
    """The flows of several subscribers in one direction, and what arrived when."""

    def __init__(self, subscribers, direction):
        self.samples = []  # (seconds, {name: bytes received so far})
        self._windows = []
        self._families = FAMILIES
        self._flows = {
            subscriber.name: [Flow(address, direction) for address in subscriber.addresses]
            for subscriber in subscribers
        }

    def send_over(self, families):
        """Others pause from now on, and what still arrives of them is in no window."""
        self._families = families

    def window(self, begin, length):
        """Asks for a measurement; begin and length in seconds."""
        self._windows.append(Window(begin, length))
        return self._windows[-1]

    def run(self, until):
        """Sends until UNTIL(seconds since the start) is true."""
        flows = [flow for group in self._flows.values() for flow in group]
        start = time.monotonic()
        now = due = held_up = 0.0
        while not until(now):
            for flow in flows:
                if flow.family in self._families:
                    flow.push()
                flow.pull()
            before, now = now, time.monotonic() - start
            held_up = now if now - before > HOLD_UP else held_up
            for window in self._windows:
                window.update(now, now - held_up, self._counts)
            if now >= due:
                self.samples.append((now, {name: self.total(name) for name in self._flows}))
                due = now + SAMPLE_PERIOD
            time.sleep(TICK)
        _close_all(flows)

    def _counts(self):
        return {name: sum(flow.received for flow in flows if flow.family in self._families)
                for name, flows in self._flows.items()}

    def total(self, name):
        return sum(flow.received for flow in self._flows[name])

    def series(self):
        """The samples in a form for JSON."""
        return [{"seconds": round(now, 3), "bytes": counts} for now, counts in self.samples]
