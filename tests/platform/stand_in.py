"""A stand-in of what the hardware tool looks at: network devices in sysfs, /proc, /run, ethtool.

Only for a mount namespace of one's own: it covers folders of the machine.
"""

import os
import pathlib
import shutil
import subprocess
import tempfile

NET = pathlib.Path("/sys/class/net")
PROC = pathlib.Path("/proc")
RUN = pathlib.Path("/run")
PROGRAMS = pathlib.Path("/usr/sbin")
TOOL = PROGRAMS / "kavo-hal"

ETHTOOL = """#!/bin/sh
printf '%s\\n' "$*" >>/run/ethtool.calls
[ -e "/run/ethtool/$1" ] || { echo "netlink error: No such device" >&2; exit 75; }
cat "/run/ethtool/$1"
"""

# As ethtool 6.1 writes it. The partner offers what this end cannot do.
ETHTOOL_REPORT = """Settings for {name}:
\tSupported ports: [ TP\t FIBRE ]
\tSupported link modes:   {supported}
\tSupported pause frame use: Symmetric Receive-only
\tSupports auto-negotiation: Yes
\tSupported FEC modes: Not reported
\tAdvertised link modes:  {advertised}
\tAdvertised pause frame use: No
\tAdvertised auto-negotiation: Yes
\tAdvertised FEC modes: Not reported
\tLink partner advertised link modes:  10000baseT/Full
\tLink partner advertised auto-negotiation: Yes
\tSpeed: {speed}
\tDuplex: Full
\tAuto-negotiation: on
\tPort: Twisted Pair
\tPHYAD: 1
\tLink detected: yes
"""


def modes(*names):
    return ("\n" + 8 * " " + "\t" + 16 * " ").join(names) if names else "Not reported"


def cover(tool):
    """Puts the stand-ins over the machine's folders, once; `tool` is the tool to test. A sanitizer
    reads /proc/self; that of leaks wants the process's folder by its number, which is not there."""
    os.environ["ASAN_OPTIONS"] = "detect_leaks=0"
    scratch = pathlib.Path(tempfile.mkdtemp())
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", scratch], check=True)
    (scratch / "real").mkdir()
    subprocess.run(["mount", "--rbind", "/proc", scratch / "real"], check=True)
    for folder in (NET, RUN, PROGRAMS, PROC):
        stand_in = scratch / folder.name
        stand_in.mkdir()
        if folder == PROC:
            (stand_in / "self").symlink_to(scratch / "real/self")
        if folder == PROGRAMS:
            shutil.copy(tool, stand_in / "kavo-hal")
        subprocess.run(["mount", "--bind", stand_in, folder], check=True)


def clear():
    for folder in (NET, RUN, PROC):
        for entry in folder.iterdir():
            if entry.is_dir() and not entry.is_symlink():
                shutil.rmtree(entry)
            elif entry != PROC / "self":
                entry.unlink()
    install_ethtool()


def install_ethtool():
    (PROGRAMS / "ethtool").write_text(ETHTOOL)
    os.chmod(PROGRAMS / "ethtool", 0o755)


def ethtool_calls():
    calls = RUN / "ethtool.calls"
    return calls.read_text().splitlines() if calls.exists() else []


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def device(name, speed=None, carrier=1, lower=(), kind=1, folders=(), files=()):
    """A device of any kind. A `speed` or `carrier` of None is a file that cannot be read."""
    folder = NET / name
    folder.mkdir()
    for child in folders:
        (folder / child).mkdir()
    write(folder / "type", "%d\n" % kind)
    for file, value in (("speed", speed), ("carrier", carrier)) + tuple(files):
        if value is not None:
            write(folder / file, "%s\n" % value)
    for member in lower:
        (folder / ("lower_" + member)).symlink_to("../" + member)


def card(name, speed=None, carrier=1, lower=(), member=None):
    """A network card; `member` is its state in a bond, "active" or "backup"."""
    files = () if member is None else (("bonding_slave/mii_status", "up" if carrier else "down"),
                                       ("bonding_slave/state", member))
    device(name, speed, carrier, lower, folders=("device",), files=files)


def ethtool(name, speed="Unknown!", supported=(), advertised=()):
    write(RUN / "ethtool" / name, ETHTOOL_REPORT.format(
        name=name, speed=speed, supported=modes(*supported), advertised=modes(*advertised)))


def bond(name, mode, *members):
    device(name, lower=members, folders=("bonding",), files=(("bonding/mode", mode),))


def bridge(name, *members):
    device(name, lower=members, folders=("bridge",))


def ppp(name, *command, program="pppd"):
    """A PPP port, and its pppd when there is a command line."""
    device(name, kind=512)
    if command:
        write(RUN / (name + ".pid"), "4242\n")
        write(PROC / "4242/comm", program + "\n")
        write(PROC / "4242/cmdline", "".join(word + "\0" for word in command))


def sessions(*devices):
    """The kernel's PPPoE sessions."""
    write(PROC / "net/pppoe", "Id       Address              Device\n" + "".join(
        "%08X 02:00:00:00:00:%02x %8s\n" % (number, number, name)
        for number, name in enumerate(devices, 1)))
