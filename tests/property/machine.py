"""The router under test and its twin.

Both are network namespaces with the same devices and what the platform sets up. The router's lasts
for a sequence of commands; a twin's is new for each comparison, and --load runs in it on the very
same files. Few processes are started: their start is what costs time in an emulated machine.
"""

import pathlib
import shutil
import socket
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "kernel"))

import guest  # noqa: E402
from guest import GLOBAL_FILE, TARIFF_FILE, command, write_file  # noqa: E402
from netns import enter_new, new_network  # noqa: E402
from router_state import arrange, ip6_rule_lines, read_state  # noqa: E402

LINES = ("eth1", "ppp0")
DEVICES = (*LINES, "ifb_ingr", "imq0")
# That objects of IPv6 may stand, which they do not after a start of the router.
_IPV6_NOTE = pathlib.Path("/run/quenby-ipv6")


def read_file(path):
    return path.read_text(encoding="ascii") if path.exists() else None


def _cable(device):
    return f"link add {device} type veth peer name {device}-far\nlink set {device} up\n"


class Machine:
    """The router. Only one exists, in the lab."""

    def __init__(self, program):
        self._program = program
        self._twins = {}
        # Without this the module makes two devices of its own when it is loaded.
        command("modprobe", "ifb", "numifbs=0")
        guest.use_legacy_iptables()
        _IPV6_NOTE.touch()
        command(str(guest.TREE / "platform/firewall.init"), "start", "opt-qos")
        # The program that iptables is takes the command's name from its first argument, so that
        # "sudo iptables ..." is one process instead of two. It does not run the platform's script,
        # whose work is done already; that is a complaint on standard error, as the missing IMQ
        # target is.
        guest.use_plain_sudo(pathlib.Path(shutil.which("iptables")).resolve())
        self._rules, self._sets = command("iptables-save"), command("ipset", "save")
        self._ip6_rules = command("ip6tables-save")
        self.reset()
        self.bare = self.state()

    def reset(self):
        """A clean router without files, at the start of a sequence."""
        enter_new()
        self._present = {"eth1"}
        _IPV6_NOTE.unlink(missing_ok=True)
        self._set_up()
        self._twins.clear()
        guest.write_files(None, None)

    def _set_up(self):
        command("iptables-restore", text=self._rules)
        command("ip6tables-restore", text=self._ip6_rules)
        command("ipset", "restore", text=self._sets)
        self._make_devices()

    def _make_devices(self):
        """The IMQ device is stood in for by an ifb device of its name."""
        command("ip", "-batch", "-", text="link add imq0 type ifb\nlink set imq0 up\n"
             + "".join(map(_cable, sorted(self._present))))

    def set_device(self, name, up):
        """A line's device, which a twin has too, or the shaper's own one."""
        if up == (name in (interface for _, interface in socket.if_nameindex())):
            return
        made = _cable(name) if name in LINES else f"link add {name} type ifb\nlink set {name} up\n"
        command("ip", "-batch", "-", text=made if up else f"link del {name}\n")
        if name in LINES:
            (self._present.add if up else self._present.remove)(name)

    @property
    def program(self):
        return self._program

    def run(self, *options, wrapper=(), program="quenby"):
        """The program, or the one beside it."""
        path = pathlib.Path(self._program).with_name(program)
        return guest.run(path, *options, wrapper=wrapper)

    @staticmethod
    def state():
        return arrange([*read_state(DEVICES), *ip6_rule_lines()])

    @staticmethod
    def files():
        return read_file(GLOBAL_FILE), read_file(TARIFF_FILE)

    write_files = staticmethod(guest.write_files)

    def twin(self, settings):
        """What --load builds on a clean machine from the stored tariffs and these settings."""
        files = self.files()
        key = (settings, files[1], frozenset(self._present))
        if key not in self._twins:
            write_file(GLOBAL_FILE, settings)
            self._twins[key] = self._load_twin((settings, files[1]))
            write_file(GLOBAL_FILE, files[0])
        return self._twins[key]

    def _load_twin(self, files):
        with new_network():
            self._set_up()
            guest.load(self._program)
            if self.files() != files:
                raise AssertionError("--load on the twin changed the files")
            return self.state()
