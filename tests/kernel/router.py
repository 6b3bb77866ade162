"""The lab's router for the kernel tests: build it, load configurations, put it back.

Runs in the lab only. start() builds the miniature network and the platform's chains once;
Router.load() writes the two configuration files and runs the program on them; Router.reset() takes
away what a load leaves behind, without the program and in few processes, since starting a process
is what costs time in an emulated machine.
"""

import os
import pathlib
import subprocess
import sys

import router_state
from tc_dump import htb_classes

TREE = pathlib.Path(__file__).resolve().parents[2]
CONFIG = pathlib.Path("/config/tc")
GLOBAL_FILE = CONFIG / "tc_global.ini"
TARIFF_FILE = CONFIG / "tc_tariff.ini"
NET_DEVICES = pathlib.Path("/sys/class/net")
WAN, IFB, IMQ = "eth1", "ifb_ingr", "imq0"

SUBSCRIBERS = ("10.0.0.0/12",)


def shell(commands):
    """Runs bash commands with the functions of lab/network.sh."""
    subprocess.run(["bash", "-c", f"set -euo pipefail; source lab/network.sh; {commands}"],
                   cwd=TREE, check=True)


def use_plain_sudo(stand_in="/usr/bin/env"):
    """Puts env(1) in the place of sudo: the tests are root already, and sudo's own start takes
    many times longer than the command behind it."""
    folder = pathlib.Path("/run/plain-sudo")
    folder.mkdir()
    (folder / "sudo").symlink_to(stand_in)
    os.environ["PATH"] = f"{folder}:{os.environ['PATH']}"


def use_idle_sudo():
    """For tests of many runs that are not about firewall rules: no run changes any."""
    use_plain_sudo("/usr/bin/true")


def use_legacy_iptables():
    """The back end whose processes start faster; other tests use Debian's usual one."""
    for name in ("iptables", "ip6tables"):
        subprocess.run(["update-alternatives", "--set", name, f"/usr/sbin/{name}-legacy"],
                       stdout=subprocess.DEVNULL, check=True)


def program_path():
    """The program under test, the last argument of the call; taken off for unittest."""
    if len(sys.argv) < 2:
        sys.exit(f"Call: scripts/lab {sys.argv[0]} PROGRAM")
    return str(pathlib.Path(sys.argv.pop()).resolve())


class Router:
    def __init__(self, program):
        if not os.environ.get("QUENBY_IN_LAB"):
            sys.exit(f"Error: only inside the lab: scripts/lab {sys.argv[0]} PROGRAM")
        self.program = program
        subscribers = " ".join(SUBSCRIBERS)
        shell(f"network_up; platform_install; network_add_subscribers {subscribers}; "
              "/opt/ostrea/sbin/firewall.init start opt-qos")
        self._rules = subprocess.run(["iptables-save"], capture_output=True, check=True).stdout
        self.pristine = router_state.read_state()

    def run(self, *options):
        """Exit status and both outputs of the program."""
        result = subprocess.run([self.program, *options], capture_output=True, text=True,
                                check=False)
        return result.returncode, result.stdout, result.stderr

    @staticmethod
    def configure(global_text, tariff_text):
        """Writes the two files; None stands for a file that is not there."""
        CONFIG.mkdir(parents=True, exist_ok=True)
        for path, text in ((GLOBAL_FILE, global_text), (TARIFF_FILE, tariff_text)):
            if text is None:
                path.unlink(missing_ok=True)
            else:
                path.write_text(text, encoding="ascii")

    def load(self, global_text, tariff_text):
        """Loads a configuration and returns the state that it makes."""
        self.configure(global_text, tariff_text)
        status, output, errors = self.run("--load")
        if status != 0 or output:
            raise AssertionError(f"--load: status {status}, output {output!r}, errors {errors!r}")
        return router_state.read_state()

    def reset(self, imq=False):
        """Back to what the platform's set-up leaves: no qdisc, class, rule or entry. With the
        IMQ stand-in, the ingress qdisc of the WAN device is the lab's and stays."""
        subprocess.run(["iptables-restore"], input=self._rules, check=True)
        subprocess.run(["ipset", "flush"], check=True)
        places = [f"{IMQ} root"] if imq else [f"{WAN} root", f"{WAN} ingress"]
        qdiscs = "".join(f"qdisc del dev {place}\n" for place in places)
        subprocess.run(["tc", "-force", "-batch", "-"], input=qdiscs, text=True,
                       capture_output=True, check=False)
        if (NET_DEVICES / IFB).exists():
            subprocess.run(["ip", "link", "del", IFB], check=True)


def arrivals(device):
    """Packets that each class of the device has got so far, by its minor number."""
    return {handle & 0xFFFF: entry.arrived for handle, entry in htb_classes(device).items()}
