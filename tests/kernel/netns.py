"""Do something inside another network namespace without a process of its own.

with entered("lan"): sockets that are opened and commands that are started in the block belong to
the namespace, and sockets stay in it after the block. entered(None) stays where it is.
"""

import contextlib
import ctypes
import os

_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def _checked(result, what):
    if result != 0:
        code = ctypes.get_errno()
        raise OSError(code, f"{what}: {os.strerror(code)}")


def _enter(descriptor):
    _checked(_libc.setns(descriptor, _CLONE_NEWNET), "setns")


def enter_new():
    """Leaves the network namespace for one of its own. Without a process in it the old one is
    gone."""
    _checked(_libc.unshare(_CLONE_NEWNET), "unshare")


@contextlib.contextmanager
def _away(enter):
    home = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
    try:
        enter()
        try:
            yield
        finally:
            _enter(home)
    finally:
        os.close(home)


@contextlib.contextmanager
def entered(name):
    if name is None:
        yield
        return
    away = os.open("/run/netns/" + name, os.O_RDONLY)
    try:
        with _away(lambda: _enter(away)):
            yield
    finally:
        os.close(away)


def new_network():
    """A network namespace for the block."""
    return _away(enter_new)
