"""A root folder, mounts and a network of this process's own, so that /config, /tmp, /run and a full
or read-only disk are none of the machine's, nor of a test that runs at the same time."""

import ctypes
import os
import pathlib
import subprocess

CLONE_NEWNS, CLONE_NEWUSER, CLONE_NEWNET = 0x20000, 0x10000000, 0x40000000

# The firewall is not what is tested here, and the machine's disks need not be waited for.
STAND_INS = ("sudo", "sync")

# Folders that are empty at first.
OWN = ("config", "run", "tmp")

# What is built beside the program and tried with it.
BESIDE = ("check-files", "ini_samples", "quenbyctl")


def enter(program):
    """Moves this process into the private root, where `program` is /quenby and those beside it are
    in / too. Everything that is to be imported has been by then. Ends the process where that is
    not possible."""
    try:
        # The programs may lie below /tmp, which is another one from here on.
        codes = {name: (pathlib.Path(program).parent / name).read_bytes() for name in BESIDE}
        codes["quenby"] = pathlib.Path(program).read_bytes()
        leave_machine()
        root = make_root()
        for name, code in codes.items():
            write_program(root / name, code)
        os.chroot(root)
        os.chdir("/")
    except (OSError, subprocess.CalledProcessError) as error:
        raise SystemExit("Error: no private root for the tests: %s" % error)
    os.environ["PATH"] = "/stand-in:/usr/sbin:/usr/bin:/sbin:/bin"


def unshare(spaces):
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(spaces) != 0:
        raise OSError(ctypes.get_errno(), "unshare")


def leave_machine():
    """Root keeps its user namespace; anyone else becomes root in a new one."""
    user, group = os.geteuid(), os.getegid()
    if user == 0:
        unshare(CLONE_NEWNS | CLONE_NEWNET)
    else:
        unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET)
        pathlib.Path("/proc/self/setgroups").write_text("deny")
        pathlib.Path("/proc/self/uid_map").write_text("0 %d 1" % user)
        pathlib.Path("/proc/self/gid_map").write_text("0 %d 1" % group)
    mount("--make-rprivate", "/")


def make_root():
    """Everything of the machine's root but what is in OWN."""
    mount("-t", "tmpfs", "tmpfs", "/tmp")
    root = pathlib.Path("/tmp/root")
    root.mkdir()
    for entry in pathlib.Path("/").iterdir():
        if entry.name not in OWN:
            show(entry, root / entry.name)
    for name in (*OWN, "stand-in"):
        (root / name).mkdir()
    for name in STAND_INS:
        write_program(root / "stand-in" / name, b"#!/bin/sh\nexit 0\n")
    return root


def write_program(path, text):
    path.write_bytes(text)
    path.chmod(0o755)


def show(entry, place):
    if entry.is_symlink():
        place.symlink_to(os.readlink(entry))
    elif entry.is_dir():
        place.mkdir()
        mount("--rbind", entry, place)


def mount(*arguments):
    subprocess.run(["mount", *map(str, arguments)], check=True)


def unmount(place):
    subprocess.run(["umount", str(place)], check=True)
