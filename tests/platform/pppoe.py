"""A PPPoE port as pppd makes it in the kernel, without anybody at the other end."""

import ctypes
import fcntl
import os
import socket
import struct

AF_PPPOX = 24
PX_PROTO_OE = 0
PPPIOCGCHAN = 0x80047437
PPPIOCATTCHAN = 0x40047438
PPPIOCCONNECT = 0x4004743A
PPPIOCNEWUNIT = 0xC004743E

libc = ctypes.CDLL(None, use_errno=True)


def connect(session, device):
    """The session's descriptor; the address is a struct sockaddr_pppox."""
    descriptor = libc.socket(AF_PPPOX, socket.SOCK_STREAM, PX_PROTO_OE)
    address = struct.pack("=HI", AF_PPPOX, PX_PROTO_OE) + struct.pack(
        "!H6s16s", session, bytes((2, 0, 0, 0, 9, session)), device.encode())
    if descriptor < 0 or libc.connect(descriptor, address, len(address)) != 0:
        raise OSError(ctypes.get_errno(), "no PPPoE session on " + device)
    return descriptor


def number(descriptor, request, value=0):
    """Carries out a request of the PPP driver and returns the number that it leaves."""
    return struct.unpack("i", fcntl.ioctl(descriptor, request, struct.pack("i", value)))[0]


class Port:
    """The port ppp0, ppp1, ... over a session on `device`, until close()."""

    def __init__(self, session, device):
        self._descriptors = [connect(session, device)]
        channel = number(self._descriptors[0], PPPIOCGCHAN)
        self._descriptors += [os.open("/dev/ppp", os.O_RDWR) for _ in range(2)]
        unit = number(self._descriptors[1], PPPIOCNEWUNIT, -1)
        number(self._descriptors[2], PPPIOCATTCHAN, channel)
        number(self._descriptors[2], PPPIOCCONNECT, unit)
        self.name = "ppp%d" % unit

    def close(self):
        for descriptor in reversed(self._descriptors):
            os.close(descriptor)
