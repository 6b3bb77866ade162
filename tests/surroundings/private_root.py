"""A root folder, mounts and a network of this process's own, so that /config, /tmp and a full or
read-only disk are none of the machine's."""

import ctypes
import os
import pathlib
import shutil
import subprocess
import tempfile

CLONE_NEWNS, CLONE_NEWUSER, CLONE_NEWNET = 0x20000, 0x10000000, 0x40000000

# The firewall is not what is tested here, and the machine's disks need not be waited for.
STAND_INS = ("sudo", "sync")


def enter(program):
    """Moves this process into the private root, where `program` is /quenby. Everything that is to
    be imported has been by then. Ends the process where that is not possible."""
    try:
        leave_machine()
        root = make_root()
        shutil.copy(program, root / "quenby")
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
    """Everything of the machine's root but /config and /tmp."""
    root = pathlib.Path(tempfile.mkdtemp(prefix="quenby-root-"))
    mount("-t", "tmpfs", "tmpfs", root)
    for entry in pathlib.Path("/").iterdir():
        if entry.name not in ("config", "tmp"):
            show(entry, root / entry.name)
    (root / "tmp").mkdir()
    (root / "config").mkdir()
    for name in STAND_INS:
        path = root / "stand-in" / name
        path.parent.mkdir(exist_ok=True)
        path.write_text("#!/bin/sh\nexit 0\n")
        path.chmod(0o755)
    return root


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
