"""What can happen to a shaped router, for the tests of edits on one and of its recovery."""

from router import IFB, IMQ

LINE = "ppp0"
DEVICES = (LINE, IFB, IMQ)
DOWN, UP = "download_speed", "upload_speed"


def tariff(name, number, address, keys):
    """A section with a speed in the directions of `keys`; number None: a new one."""
    own = "" if number is None else f"id={number}\n"
    speeds = "".join(f"{key}={4000 if key in keys else 0}\n" for key in (DOWN, UP))
    return f"[{name}]\n{own}ip={address}\n{speeds}queuing_discipline=pfifo\n"


class Mode:
    """Which directions are shaped, and how the device is named."""

    def __init__(self, wan, lines, keys):
        self.settings = f"[global]\n{wan}enabled=true\n{lines}"
        self.tariffs = tariff("amy", 4, "10.0.0.4", keys) + tariff("zed", 5, "10.0.0.5", keys)
        self.added = tariff("bob", None, "10.0.0.6", keys)
        self.stored = self.tariffs + self.added.replace("]\n", "]\nid=6\n")


WAN = f"wan={LINE}\n"
MODES = {
    "both": Mode(WAN, f"{DOWN}=50000\n{UP}=20000\n", (DOWN, UP)),
    "download only": Mode(WAN, f"{DOWN}=50000\n", (DOWN,)),
    "upload only": Mode(WAN, f"{UP}=20000\n", (UP,)),
    "upload blocked": Mode(WAN, f"{DOWN}=50000\n{UP}=0\n", (DOWN,)),
    "imq both": Mode("", f"{DOWN}=50000\n{UP}=20000\n", (DOWN, UP)),
    "imq download only": Mode("", f"{DOWN}=50000\n", (DOWN,)),
}


def killed_load(when):
    """A load that is killed at its request number `when`."""
    return f"strace -qq -o /dev/null -e inject=sendmsg:signal=KILL:when={when} $QUENBY --load"


# What happens to a router: shell commands, whether it was loaded before, in which modes.
FAULTS = {
    "stopped": ("$QUENBY --stop", True, list(MODES)),
    "never loaded": ("", False, ["download only"]),
    "line came back": (f"ip link del {LINE}; ip link add {LINE} type dummy; ip link set {LINE} up",
                       True, ["both", "download only", "upload only"]),
    "load killed at its 5th request": (killed_load(5), False, ["both", "upload only"]),
    "load killed at its 10th request": (killed_load(10), False, ["download only"]),
    "load killed at its 22nd request": (killed_load(22), False, ["both"]),
    # The redirection stands, but the last class does not, or the last address.
    "load killed at its 30th request": (killed_load(30), False, ["both"]),
    "load killed at its 33rd request": (killed_load(33), False, ["both"]),
    "ifb_ingr deleted":
        (f"ip link del {IFB}", True, ["both", "download only", "upload blocked"]),
    "ifb_ingr deleted and made again":
        (f"ip link del {IFB}; ip link add {IFB} type ifb; "
         f"tc qdisc add dev {IFB} root handle 8000: htb", True, ["download only"]),
    "redirection deleted":
        (f"tc filter del dev {LINE} parent ffff:", True, ["both", "download only"]),
    "redirection to another device":
        (f"tc filter del dev {LINE} parent ffff:; tc filter add dev {LINE} parent ffff: protocol "
         "ip pref 1 u32 match u32 0 0 action mirred egress redirect dev eth2", True, ["both"]),
    "ingress qdisc deleted":
        (f"tc qdisc del dev {LINE} ingress", True, ["both", "download only", "upload only"]),
    "root of the line deleted":
        (f"tc qdisc del dev {LINE} root", True, ["both", "upload only", "upload blocked"]),
    "root of the line is another":
        (f"tc qdisc replace dev {LINE} root handle 7: fq_codel", True, ["both"]),
    "root of ifb_ingr deleted":
        (f"tc qdisc del dev {IFB} root", True, ["both", "download only"]),
    "root of imq0 deleted":
        (f"tc qdisc del dev {IMQ} root", True, ["imq both", "imq download only"]),
}
