"""The lab's router for the kernel tests: build it, load configurations, put it back.

Runs in the lab only. Router() builds the miniature network and the platform's chains once;
Router.load() writes the two configuration files and runs the program on them; Router.reset() takes
away what a load leaves, without the program and in few processes, since starting a process is what
costs time in an emulated machine.
"""

import pathlib
import subprocess

import guest
import router_state
# Tests of the router take these from here too.
from guest import (CONFIG, GLOBAL_FILE, TARIFF_FILE, TREE, command, make_device,  # noqa: F401
                   program_path, renew_devices, use_idle_sudo, use_legacy_iptables, use_plain_sudo)
from tc_dump import htb_classes

NET_DEVICES = pathlib.Path("/sys/class/net")
WAN, IFB, IMQ = "eth1", "ifb_ingr", "imq0"

SUBSCRIBERS = ("10.0.0.0/12",)


def shell(commands):
    """Runs bash commands with the functions of lab/network.sh."""
    subprocess.run(["bash", "-c", f"set -euo pipefail; source lab/network.sh; {commands}"],
                   cwd=TREE, check=True)


# That objects of IPv6 may stand.
IPV6_NOTE = pathlib.Path("/run/quenby-ipv6")


class Router:
    """With `ipv6` the platform has set up that family too, and a reset brings it back."""

    def __init__(self, program, ipv6=False):
        guest.only_in_lab()
        self.program = program
        if ipv6:
            IPV6_NOTE.touch()
        subscribers = " ".join(SUBSCRIBERS)
        shell(f"network_up; platform_install; network_add_subscribers {subscribers}; "
              "/opt/ostrea/sbin/firewall.init start opt-qos")
        self._rules = command("iptables-save")
        self._ip6_rules = command("ip6tables-save") if ipv6 else None
        self._sets = command("ipset", "save")
        IPV6_NOTE.unlink(missing_ok=True)
        self.pristine = router_state.read_state()

    def run(self, *options, wrapper=()):
        return guest.run(self.program, *options, wrapper=wrapper)

    @staticmethod
    def configure(global_text, tariff_text):
        guest.write_files(global_text, tariff_text)

    def load(self, global_text, tariff_text):
        """Loads a configuration and returns the state that it makes."""
        self.configure(global_text, tariff_text)
        guest.load(self.program)
        return router_state.read_state()

    def reset(self, imq=False):
        """Back to what the platform's set-up leaves: no qdisc, class, rule or entry. With the
        IMQ stand-in, the ingress qdisc of the WAN device is the lab's and stays."""
        command("iptables-restore", text=self._rules)
        if self._ip6_rules:
            command("ip6tables-restore", text=self._ip6_rules)
            IPV6_NOTE.unlink(missing_ok=True)
        command("ipset", "-exist", "restore", text=f"{self._sets}flush\n")
        places = [f"{IMQ} root"] if imq else [f"{WAN} root", f"{WAN} ingress"]
        command("tc", "-force", "-batch", "-", check=False,
                text="".join(f"qdisc del dev {place}\n" for place in places))
        if (NET_DEVICES / IFB).exists():
            command("ip", "link", "del", IFB)


def arrivals(device):
    """Packets that each class of the device has got so far, by its minor number."""
    return {handle & 0xFFFF: entry.arrived for handle, entry in htb_classes(device).items()}
