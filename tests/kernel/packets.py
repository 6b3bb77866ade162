"""Counted UDP packets between subscribers, router and internet host, from one process.

A connection starts with packets of its inner end; the internet host answers to where they came
from. Sockets are opened in their namespaces and stay there.
"""

import select
import socket
import time

from netns import entered

INET_ADDRESS = "198.51.100.2"
INET_ADDRESS6 = "2001:db8:ffff:1::2"
WAN_ADDRESS = "198.51.100.1"
_PAYLOAD = b"x" * 72
_PATIENCE = 3.0


def _bound(namespace, address):
    with entered(namespace):
        family = socket.AF_INET6 if ":" in address else socket.AF_INET
        sock = socket.socket(family, socket.SOCK_DGRAM)
    sock.bind((address, 0))
    return sock


def _receive(sock, count):
    """Takes up to `count` packets; returns how many came and the sender of the last."""
    end, taken, sender = time.monotonic() + _PATIENCE, 0, None
    while taken < count and select.select([sock], [], [], max(0, end - time.monotonic()))[0]:
        _, sender = sock.recvfrom(2048)
        taken += 1
    return taken, sender


class Connection:
    """One UDP connection from an inner address, of the router when namespace is None."""

    def __init__(self, address, namespace="lan"):
        self._inner = _bound(namespace, address)
        self._outer = _bound("inet", INET_ADDRESS6 if ":" in address else INET_ADDRESS)
        self._peer = None

    def close(self):
        self._inner.close()
        self._outer.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def upload(self, count):
        """Sends packets outwards; returns how many arrived."""
        for _ in range(count):
            self._inner.sendto(_PAYLOAD, self._outer.getsockname())
        taken, sender = _receive(self._outer, count)
        self._peer = sender or self._peer
        return taken

    def answer(self, count):
        """Sends packets back; returns how many arrived."""
        for _ in range(count):
            self._outer.sendto(_PAYLOAD, self._peer or self._inner.getsockname())
        return _receive(self._inner, count)[0]
