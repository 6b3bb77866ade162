"""Times the operations of both programs on the lab's router as tariffs grow, and weighs
the tariffs' leaf queues. scripts/benchmark runs it; emulation makes every figure larger
than on a router, so compare figures with each other.

Call: python3 lab/benchmark.py QUENBY [TARIFFS...]
"""

import os
import pathlib
import pty
import select
import subprocess
import sys
import time

CONFIG = pathlib.Path("/config/tc")
PLAIN = pathlib.Path("/run/plain-sudo")
ADDED = pathlib.Path("/run/benchmark.ini")
KINDS = ("none", "pfifo", "sfq", "fq_codel")
WEIGHED = 500  # tariffs; each has two leaves


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def tariff(number, kind, identifier=True):
    """A section; its address is 10.0.Y.Z out of the number. The guarantees of 3,000 fit the line, so
    that changes are made in place."""
    lines = [f"[t{number:05}]", f"ip=10.0.{number // 250}.{number % 250 + 1}",
             "aggregation=10", "download_speed=2000", "upload_speed=1000",
             f"queuing_discipline={kind}"]
    return "\n".join(lines + [f"id={number + 4}"] * identifier) + "\n"


def store(count, kind, line="", prefixes=()):
    CONFIG.mkdir(parents=True, exist_ok=True)
    (CONFIG / "tc_global.ini").write_text("[global]\nenabled=true\nwan=eth1\n"
                                          f"download_speed=900000\nupload_speed=900000\n{line}")
    (CONFIG / "tc_tariff.ini").write_text("".join(
        tariff(n, kind) + "".join(f"ip6={prefix}\n" for prefix in prefixes[n::count])
        for n in range(count)))


def seconds(*command, text=None):
    begin = time.monotonic()
    # quenbyctl returns 1 for findings, which some of the lists give it.
    status = subprocess.run(command, check=False, stdout=subprocess.DEVNULL, input=text,
                            encoding="ascii").returncode
    if status > ("quenbyctl" in command[0]):
        sys.exit(f"Error: {' '.join(command)}: status {status}")
    return time.monotonic() - begin


def timed_row(quenby, count):
    """Seconds of a load, of one tariff more, of one less, of the statistics and of the end."""
    store(count, "pfifo")
    ADDED.write_text(tariff(count, "pfifo", identifier=False))
    steps = (("--load",), ("--tariff-add", str(ADDED)), ("--tariff-del", f"t{count:05}"),
             ("--stat",), ("--stop",))
    return [seconds(quenby, *options) for options in steps]


def damage(count):
    """Gives so many tariffs' upload classes another rate."""
    lines = "".join(f"class change dev eth1 parent 8000:1 classid 8000:{n + 4:x} htb rate 8kbit\n"
                    for n in range(count))
    subprocess.run(["tc", "-batch", "-"], input=lines, text=True, check=True)


def processor_time(process):
    """Seconds that it has taken, in user mode and in the kernel."""
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    return sum(map(int, fields[11:13])) / os.sysconf("SC_CLK_TCK")


def read_for(terminal, duration):
    end = time.monotonic() + duration
    while (left := end - time.monotonic()) > 0:
        if select.select([terminal], [], [], left)[0]:
            os.read(terminal, 65536)


def top_share(ctl):
    """Per cent of a processor that the live screen takes at one second, once it has settled."""
    ours, theirs = pty.openpty()
    process = subprocess.Popen([ctl, "top"], stdin=theirs, stdout=theirs, stderr=theirs,
                               start_new_session=True, env=dict(os.environ, TERM="xterm"))
    read_for(ours, 20)
    begin, before = time.monotonic(), processor_time(process)
    read_for(ours, 60)
    share = 100 * (processor_time(process) - before) / (time.monotonic() - begin)
    os.write(ours, b"q")
    process.wait()
    os.close(ours)
    os.close(theirs)
    return share


def watched_row(quenby, count):
    """Seconds of quenbyctl's subcommands beside those of the statistics, of repairs, and the share
    of the live screen."""
    ctl = str(pathlib.Path(quenby).with_name("quenbyctl"))
    store(count, "pfifo")
    load = seconds(quenby, "--load")
    times = [seconds(quenby, "--stat")]
    times += [seconds(ctl, *words) for words in (
        ("check",), ("plan",), ("who", "10.0.0.1"), ("verify",), ("export",))]
    times.append(load)
    for differences in (0, 1, 100):
        damage(min(differences, count))
        times.append(seconds(ctl, "repair"))
    times.append(top_share(ctl))
    run(quenby, "--stop")
    return times


def print_watched(quenby, counts):
    columns = ("--stat", "check", "plan", "who", "verify", "export", "--load", "repair 0",
               "repair 1", "repair 100", "top, %")
    print("seconds of     " + " ".join(f"{name:>10}" for name in columns))
    for count in counts:
        row = " ".join(f"{time:10.2f}" for time in watched_row(quenby, count))
        print(f"{count:6} tariffs {row}", flush=True)


def print_prefixes(quenby):
    """Of as many prefixes as a set holds: seconds of a load with and without IPv6, and of ipset(8)
    for the set alone."""
    prefixes = [f"2001:db8:{number:x}::/48" for number in range(65536)]
    times = {}
    for name, line in {"without IPv6": "", "with": "ipv6=true\n"}.items():
        store(100, "pfifo", line, prefixes)
        times[name] = seconds(quenby, "--load")
        run(quenby, "--stop")
    run("ipset", "create", "alone", "hash:net", "family", "inet6", "skbinfo")
    mark = "skbmark 0x80000004/0x80003fff"
    times["ipset restore"] = seconds("ipset", "restore", text="".join(
        f"add alone {prefix} {mark}\n" for prefix in prefixes))
    print("65,536 prefixes of 100 tariffs:",
          ", ".join(f"{name} {time:.2f} s" for name, time in times.items()), flush=True)


def used_kib():
    """Kernel and user memory in use, without caches of files."""
    values = dict(line.split(":") for line in
                  pathlib.Path("/proc/meminfo").read_text().splitlines())
    kib = {name: int(value.split()[0]) for name, value in values.items()}
    return kib["MemTotal"] - kib["MemFree"] - kib["Buffers"] - kib["Cached"]


def weighed(quenby, kind):
    """KiB of one leaf and its class."""
    store(WEIGHED, kind)
    before = used_kib()
    run(quenby, "--load")
    weight = used_kib() - before
    run(quenby, "--stop")
    return weight / (2 * WEIGHED)


def plain_sudo():
    """Puts env(1) in the place of sudo, whose start would hide what is measured."""
    PLAIN.mkdir()
    (PLAIN / "sudo").symlink_to("/usr/bin/env")
    os.environ["PATH"] = f"{PLAIN}:{os.environ['PATH']}"


def main():
    quenby = str(pathlib.Path(sys.argv[1]).resolve())
    run("lab/network.sh", "up")
    run("lab/network.sh", "platform")
    run("/opt/ostrea/sbin/firewall.init", "start", "opt-qos")
    plain_sudo()
    # The first load brings the kernel's modules in.
    timed_row(quenby, 1)
    print("seconds of    --load  --tariff-add  --tariff-del  --stat  --stop")
    for count in map(int, sys.argv[2:]):
        load, add, delete, stat, stop = timed_row(quenby, count)
        print(f"{count:6} tariffs {load:6.2f} {add:13.2f} {delete:13.2f} {stat:7.2f} {stop:7.2f}",
              flush=True)
    print_watched(quenby, map(int, sys.argv[2:]))
    print_prefixes(quenby)
    for kind in KINDS:
        print(f"KiB of a class with leaf {kind}: {weighed(quenby, kind):.1f}", flush=True)


main()
