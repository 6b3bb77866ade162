"""What a change costs those who are online: ten subscribers download evenly while the shaping is
reloaded or repaired; counted are the packets that are lost and the classes that count from nothing
again. scripts/benchmark runs it on the lab's router.

Call: python3 lab/interruption.py QUENBY
"""

import json
import pathlib
import subprocess
import sys
import time

TREE = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(TREE / "tests/kernel"))

# pylint: disable=wrong-import-position
from router import IFB, WAN, Router, command, shell, use_plain_sudo  # noqa: E402
from tc_dump import htb_classes  # noqa: E402

ONLINE = 10
INET = "198.51.100.2"
FIRST_PORT = 5301
SECONDS = 6  # Of each round; the change comes after two.
# A fifth of the ceiling, so that what is lost is not lost for the want of rate.
KBIT, CEILING, DATAGRAM = 200, 1000, 250
GLOBAL = "[global]\nwan=eth1\nenabled=true\ndownload_speed=50000\nupload_speed=50000\n"


def address(number):
    return f"10.0.1.{number + 1}"


def tariffs():
    return "".join(f"[t{n}]\nid={n + 4}\nip={address(n)}\ndownload_speed={CEILING}\n"
                   f"upload_speed={CEILING}\nqueuing_discipline=fq_codel\n" for n in range(ONLINE))


def download(number):
    return subprocess.Popen(
        ["ip", "netns", "exec", "lan", "iperf3", "--json", "--udp", "--reverse", "--client", INET,
         "--bind", address(number), "--port", str(FIRST_PORT + number), "--time", str(SECONDS),
         "--bitrate", f"{KBIT}k", "--length", str(DATAGRAM)], stdout=subprocess.PIPE, text=True)


def counted():
    """Bytes of each class, by device and number."""
    return {(device, handle): entry.bytes
            for device in (WAN, IFB) for handle, entry in htb_classes(device).items()}


def damage_class():
    command("tc", "class", "change", "dev", IFB, "parent", "8000:1", "classid", "8000:4", "htb",
            "rate", "800kbit", "ceil", "800kbit")


def interrupted(change):
    """Lost and sent packets, classes that began again, and how many there are."""
    clients = [download(number) for number in range(ONLINE)]
    time.sleep(2)
    before = counted()
    change()
    after = counted()
    sums = [json.loads(client.communicate(timeout=120)[0])["end"]["sum"] for client in clients]
    again = sum(after.get(name, 0) < count for name, count in before.items())
    return (sum(one["lost_packets"] for one in sums), sum(one["packets"] for one in sums), again,
            len(before))


def main():
    quenby = str(pathlib.Path(sys.argv[1]).resolve())
    ctl = str(pathlib.Path(quenby).with_name("quenbyctl"))
    use_plain_sudo()
    router = Router(quenby)
    shell("network_iperf_start " + " ".join(str(FIRST_PORT + n) for n in range(ONLINE)))
    router.load(GLOBAL, tariffs())

    def repair_class():
        damage_class()
        command(ctl, "repair")

    print(f"{ONLINE} downloads of {KBIT} kbit/s   packets lost   of      counters reset   of")
    for name, change in (("nothing", lambda: None), ("repair, all right", lambda: command(ctl, "repair")),
                         ("repair of a class's rate", repair_class),
                         ("--reload", lambda: command(quenby, "--reload"))):
        lost, sent, again, classes = interrupted(change)
        print(f"{name:31} {lost:9} {sent:7} {again:16} {classes:5}", flush=True)


main()
