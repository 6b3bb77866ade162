"""Exact values of HTB out of the kernel's own dumps, over a raw rtnetlink socket.

tc rounds rates and bursts to units and prints classes as text; the dump carries rates in bytes per
second, bursts as the time they take at that rate in ticks of 64 ns, and 64-bit counters.
"""

import socket
import struct
from dataclasses import dataclass

_NLMSG_ERROR, _NLMSG_DONE = 2, 3
_RTM_GETQDISC, _RTM_GETTCLASS = 38, 42
_NLM_F_REQUEST, _NLM_F_DUMP = 1, 0x300
_TCA_KIND, _TCA_OPTIONS, _TCA_STATS2 = 1, 2, 7
_HTB_PARMS, _HTB_INIT, _HTB_RATE64, _HTB_CEIL64 = 1, 2, 6, 7
_STATS_BASIC, _STATS_RATE, _STATS_QUEUE, _STATS_PKT64 = 1, 2, 3, 8

_TICK_NS = 64
_HEADER = struct.Struct("=IHHII")
_TCMSG = struct.Struct("=BxxxiIII")
# struct tc_htb_opt: two struct tc_ratespec (the last of their fields is the rate), then buffer,
# cbuffer, quantum, level, prio.
_HTB_OPT = struct.Struct("=8xI8xIIIIII")


@dataclass(frozen=True)
class HtbClass:
    """Rates in bytes per second, bursts and quantum in bytes, handles as 32-bit numbers."""

    handle: int
    parent: int
    rate: int
    ceil: int
    burst: int
    cburst: int
    quantum: int
    packets: int
    bytes: int
    queued: int
    queued_bytes: int
    drops: int
    overlimits: int
    # What the kernel's rate estimator says, 0 without one.
    bytes_per_second: int
    packets_per_second: int

    @property
    def arrived(self):
        """Packets that were put into the class, whatever became of them."""
        return self.packets + self.queued + self.drops


def _attributes(data):
    found, offset = {}, 0
    while offset + 4 <= len(data):
        length, kind = struct.unpack_from("=HH", data, offset)
        if length < 4:
            break
        found[kind & 0x3FFF] = data[offset + 4 : offset + length]
        offset += (length + 3) & ~3
    return found


def _messages(sock):
    """Yields the payload of each message of a dump until its end."""
    while True:
        data, offset = sock.recv(1 << 18), 0
        while offset < len(data):
            length, kind, _, _, _ = _HEADER.unpack_from(data, offset)
            payload = data[offset + _HEADER.size : offset + length]
            offset += (length + 3) & ~3
            if kind == _NLMSG_DONE:
                return
            if kind == _NLMSG_ERROR:
                raise OSError(-struct.unpack_from("=i", payload)[0], "netlink dump refused")
            yield payload


def _dump(request, ifindex):
    """(handle, parent, attributes) of each object of the device."""
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE) as sock:
        sock.bind((0, 0))
        body = _TCMSG.pack(0, ifindex, 0, 0, 0)
        flags = _NLM_F_REQUEST | _NLM_F_DUMP
        sock.send(_HEADER.pack(_HEADER.size + len(body), request, flags, 1, 0) + body)
        for payload in _messages(sock):
            _, index, handle, parent, _ = _TCMSG.unpack_from(payload)
            if index == ifindex:
                yield handle, parent, _attributes(payload[_TCMSG.size :])


def _is_htb(attributes):
    return attributes.get(_TCA_KIND, b"").rstrip(b"\0") == b"htb"


def _burst_bytes(ticks, rate):
    return round(ticks * _TICK_NS * rate / 1e9)


def _htb_class(handle, parent, attributes):
    options = _attributes(attributes[_TCA_OPTIONS])
    rate, ceil, buffer, cbuffer, quantum, *_ = _HTB_OPT.unpack_from(options[_HTB_PARMS])
    if _HTB_RATE64 in options:
        rate = struct.unpack("=Q", options[_HTB_RATE64])[0]
    if _HTB_CEIL64 in options:
        ceil = struct.unpack("=Q", options[_HTB_CEIL64])[0]
    stats = _attributes(attributes[_TCA_STATS2])
    octets, packets = struct.unpack_from("=QI", stats[_STATS_BASIC])
    if _STATS_PKT64 in stats:
        packets = struct.unpack("=Q", stats[_STATS_PKT64])[0]
    queued, queued_bytes, drops, _, overlimits = struct.unpack_from("=IIIII", stats[_STATS_QUEUE])
    return HtbClass(handle, parent, rate, ceil, _burst_bytes(buffer, rate),
                    _burst_bytes(cbuffer, ceil), quantum, packets, octets, queued, queued_bytes,
                    drops, overlimits,
                    *struct.unpack_from("=II", stats.get(_STATS_RATE, bytes(8))))


def htb_classes(device):
    """The HTB classes of a device by their 32-bit handles, in the order of the dump."""
    found = {}
    for handle, parent, attributes in _dump(_RTM_GETTCLASS, socket.if_nametoindex(device)):
        if _is_htb(attributes):
            found[handle] = _htb_class(handle, parent, attributes)
    return found


def leaf_drops(device):
    """What the leaf under each class has dropped, by the handle of the class."""
    return {parent: struct.unpack_from("=IIIII", _attributes(attributes[_TCA_STATS2])[_STATS_QUEUE])[2]
            for _, parent, attributes in _dump(_RTM_GETQDISC, socket.if_nametoindex(device))
            if parent >> 16 == 0x8000}


def htb_direct_packets(device):
    """Packets that HTB let through unshaped because no class took them."""
    for _, _, attributes in _dump(_RTM_GETQDISC, socket.if_nametoindex(device)):
        if _is_htb(attributes):
            init = _attributes(attributes[_TCA_OPTIONS])[_HTB_INIT]
            return struct.unpack_from("=IIIII", init)[4]
    return 0
