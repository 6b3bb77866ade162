"""The router under test and its twin.

Both are network namespaces with the same devices and what the platform sets up. The router's lasts
for a sequence of commands; a twin's is new for each comparison, and --load runs in it on the very
same files. Few processes are started: their start is what costs time in an emulated machine.
"""

import contextlib
import ctypes
import os
import pathlib
import shutil
import socket
import subprocess
import sys

TREE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TREE / "tests/kernel"))

from router import use_legacy_iptables  # noqa: E402
from router_state import read_state  # noqa: E402

GLOBAL_FILE = pathlib.Path("/config/tc/tc_global.ini")
TARIFF_FILE = pathlib.Path("/config/tc/tc_tariff.ini")
LINES = ("eth1", "ppp0")
DEVICES = (*LINES, "ifb_ingr", "imq0")

_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def _checked(result, what):
    if result != 0:
        raise OSError(ctypes.get_errno(), what)


def _enter_new_network():
    """Leaves the network namespace; without a process in it, it is gone."""
    _checked(_libc.unshare(_CLONE_NEWNET), "unshare")


@contextlib.contextmanager
def _new_network():
    """A network namespace for the block."""
    home = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
    try:
        _enter_new_network()
        try:
            yield
        finally:
            _checked(_libc.setns(home, _CLONE_NEWNET), "setns")
    finally:
        os.close(home)


def _run(*command, text=None):
    return subprocess.run(command, input=text, text=True, check=True, stdout=subprocess.PIPE).stdout


def read_file(path):
    return path.read_text(encoding="ascii") if path.exists() else None


def _write_file(path, text):
    if text is None:
        path.unlink(missing_ok=True)
    else:
        path.write_text(text, encoding="ascii")


def _cable(device):
    return f"link add {device} type veth peer name {device}-far\nlink set {device} up\n"


def _use_plain_sudo():
    """Puts the program behind iptables in the place of sudo: it takes the command's name from its
    first argument, so that "sudo iptables ..." is one process instead of two, and sudo's own start
    takes many times longer than iptables. It does not run the platform's script, whose work is done
    already; that is a complaint on standard error, as the missing IMQ target is."""
    folder = pathlib.Path("/run/plain-sudo")
    folder.mkdir()
    (folder / "sudo").symlink_to(pathlib.Path(shutil.which("iptables")).resolve())
    os.environ["PATH"] = f"{folder}:{os.environ['PATH']}"


class Machine:
    """The router. Only one exists, in the lab."""

    def __init__(self, program):
        self._program = program
        self._twins = {}
        # Without this the module makes two devices of its own when it is loaded.
        _run("modprobe", "ifb", "numifbs=0")
        use_legacy_iptables()
        _run(str(TREE / "platform/firewall.init"), "start", "opt-qos")
        _use_plain_sudo()
        self._rules, self._sets = _run("iptables-save"), _run("ipset", "save")
        self.reset()
        self.bare = self.state()

    def reset(self):
        """A clean router without files, at the start of a sequence."""
        _enter_new_network()
        self._present = {"eth1"}
        self._set_up()
        self._twins.clear()
        for path in (GLOBAL_FILE, TARIFF_FILE):
            path.unlink(missing_ok=True)

    def _set_up(self):
        _run("iptables-restore", text=self._rules)
        _run("ipset", "restore", text=self._sets)
        self._make_devices()

    def _make_devices(self):
        """The IMQ device is stood in for by an ifb device of its name."""
        _run("ip", "-batch", "-", text="link add imq0 type ifb\nlink set imq0 up\n"
             + "".join(map(_cable, sorted(self._present))))

    def set_device(self, name, up):
        """A line's device, which a twin has too, or the shaper's own one."""
        if up == (name in (interface for _, interface in socket.if_nameindex())):
            return
        made = _cable(name) if name in LINES else f"link add {name} type ifb\nlink set {name} up\n"
        _run("ip", "-batch", "-", text=made if up else f"link del {name}\n")
        if name in LINES:
            (self._present.add if up else self._present.remove)(name)

    @property
    def program(self):
        return self._program

    def run(self, *options, wrapper=()):
        """Exit status and both outputs of the program."""
        try:
            result = subprocess.run([*wrapper, self._program, *options], capture_output=True,
                                    text=True, check=False, timeout=180)
        except subprocess.TimeoutExpired as failure:
            raise AssertionError("the program does not end") from failure
        return result.returncode, result.stdout, result.stderr

    @staticmethod
    def state():
        return read_state(DEVICES)

    @staticmethod
    def files():
        return read_file(GLOBAL_FILE), read_file(TARIFF_FILE)

    @staticmethod
    def write_files(settings, tariffs):
        _write_file(GLOBAL_FILE, settings)
        _write_file(TARIFF_FILE, tariffs)

    def twin(self, settings):
        """What --load builds on a clean machine from the stored tariffs and these settings."""
        files = self.files()
        key = (settings, files[1], frozenset(self._present))
        if key not in self._twins:
            _write_file(GLOBAL_FILE, settings)
            self._twins[key] = self._load_twin((settings, files[1]))
            _write_file(GLOBAL_FILE, files[0])
        return self._twins[key]

    def _load_twin(self, files):
        with _new_network():
            self._set_up()
            status, output, errors = self.run("--load")
            if status != 0 or output:
                raise AssertionError(f"--load on the twin: status {status}, {output}{errors}")
            if self.files() != files:
                raise AssertionError("--load on the twin changed the files")
            return self.state()
