"""What every test of the whole program needs: the program's run with stand-ins
for sudo and the hardware tool, a recorder in place of /bin/sh, the stored files
and snapshots of the router's kernel state.

Only for the lab's guest: it replaces /bin/sh and deletes every network device.
"""

import os
import pathlib
import shutil
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "kernel"))

import guest  # noqa: E402
from guest import GLOBAL_FILE, TARIFF_FILE, Result, command  # noqa: E402
from guest import make_device as make_link  # noqa: E402
from router_state import read_state  # noqa: E402
from tc_dump import htb_classes  # noqa: E402

WORK = pathlib.Path("/run/quenby-program")
SHELL_LOG = WORK / "shell.log"
SUDO_LOG = WORK / "sudo.log"
HARDWARE_LOG = WORK / "hardware.log"
HARDWARE_ANSWERS = WORK / "hardware"
HARDWARE_TOOL = pathlib.Path("/usr/sbin/kavo-hal")

# The recorders' own shell is the real one, so they do not record themselves.
RECORDING_SHELL = r"""#!/usr/bin/busybox sh
if [ -n "$QUENBY_SHELL_LOG" ] && [ "$1" = -c ]; then
  text=$2
  [ "$text" != -- ] || text=$3
  printf '%s\0' "$text" >>"$QUENBY_SHELL_LOG"
fi
exec /usr/bin/dash "$@"
"""

# Each call is a number of arguments and the arguments, each ended by a NUL.
STAND_IN_SUDO = r"""#!/usr/bin/busybox sh
printf '%s\0' "$#" "$@" >>"$QUENBY_SUDO_LOG"
case "$*" in
  $QUENBY_SUDO_FAILS) exit 1 ;;
esac
[ "$QUENBY_SUDO" != run ] || exec "$@"
exit 0
"""

STAND_IN_HARDWARE_TOOL = r"""#!/usr/bin/busybox sh
printf '%s\0' "$#" "$@" >>"$QUENBY_HARDWARE_LOG"
[ ! -e "$QUENBY_HARDWARE/$1" ] || cat "$QUENBY_HARDWARE/$1"
"""

program = None


def install(path):
    """Prepares the guest once; `path` is the program."""
    global program
    guest.only_in_lab(("guest",))
    program = path
    (WORK / "bin").mkdir(parents=True)
    HARDWARE_ANSWERS.mkdir()
    write_script("/usr/bin/sh.recording", RECORDING_SHELL)
    os.replace("/usr/bin/sh.recording", "/usr/bin/sh")
    write_script(WORK / "bin/sudo", STAND_IN_SUDO)
    # Devices without IPv6 send nothing on their own.
    command("sysctl", "-q", "-w", "net.ipv6.conf.all.disable_ipv6=1",
            "net.ipv6.conf.default.disable_ipv6=1")


def write_script(path, text):
    pathlib.Path(path).write_text(text)
    os.chmod(path, 0o755)


def make_set():
    """The address set, which the platform's firewall script makes before any teardown."""
    command("ipset", "create", "kavo_opt_shaper", "hash:ip", "family", "inet", "skbinfo")


def devices():
    return [name for name in sorted(os.listdir("/sys/class/net")) if name != "lo"]


def kernel_state():
    """Everything of the kernel that the program may change, without counters. What is made again
    has another link number."""
    return {"links": command("ip", "-o", "link"), "objects": read_state(devices())}


def class_numbers(device):
    """The minors of the HTB classes."""
    return {handle & 0xFFFF for handle in htb_classes(device)}


def filters(device):
    return [command("tc", "filter", "show", "dev", device, "parent", parent, check=False)
            for parent in ("8000:", "ffff:")]


def set_entries():
    """The entries of the address set, sorted, as ipset writes them."""
    lines = command("ipset", "save", "kavo_opt_shaper", check=False).splitlines()
    return sorted(line for line in lines if line.startswith("add "))


def clean_router():
    shutil.rmtree("/config", ignore_errors=True)
    if devices():
        command("ip", "-force", "-batch", "-", check=False,
                text="".join("link delete %s\n" % name for name in devices()))
    command("ipset", "destroy", "kavo_opt_shaper", check=False)


def answer_hardware(**answers):
    """Installs the hardware tool with these exact outputs, nothing for all others."""
    write_script(HARDWARE_TOOL, STAND_IN_HARDWARE_TOOL)
    for file in HARDWARE_ANSWERS.iterdir():
        file.unlink()
    for query, output in answers.items():
        (HARDWARE_ANSWERS / query).write_text(output)


def store(global_text=None, tariff_text=None):
    """Writes the stored files, or one of them."""
    GLOBAL_FILE.parent.mkdir(parents=True, exist_ok=True)
    for path, text in ((GLOBAL_FILE, global_text), (TARIFF_FILE, tariff_text)):
        if text is not None:
            guest.write_file(path, text)


def given(text):
    """Path of a file with this text, for an option that takes one."""
    path = WORK / "given.ini"
    path.write_text(text)
    return str(path)


def files_state():
    """Name, bytes, inode and modification time of everything below /config."""
    state = {}
    for path in sorted(pathlib.Path("/config").rglob("*")):
        facts = path.lstat()
        content = path.read_bytes() if path.is_file() else None
        state[str(path)] = (content, facts.st_ino, facts.st_mtime_ns)
    return state


def records(log):
    """The NUL-ended texts of a log."""
    if not log.exists():
        return []
    return log.read_bytes().decode(errors="surrogateescape").split("\0")[:-1]


def calls(log):
    """The argument lists of a log of calls."""
    words, result = records(log), []
    while words:
        count = int(words[0])
        result.append(words[1:1 + count])
        words = words[1 + count:]
    return result


def shell_texts():
    return records(SHELL_LOG)


def sudo_calls():
    return calls(SUDO_LOG)


def hardware_calls():
    return calls(HARDWARE_LOG)


def forget_calls():
    for log in (SHELL_LOG, SUDO_LOG, HARDWARE_LOG):
        log.unlink(missing_ok=True)


def environment(sudo, sudo_fails):
    # The sanitizers' own exit status is 1 as well without these.
    return dict(os.environ, PATH="%s:%s" % (WORK / "bin", os.environ["PATH"]),
                QUENBY_SHELL_LOG=str(SHELL_LOG), QUENBY_SUDO_LOG=str(SUDO_LOG),
                QUENBY_HARDWARE_LOG=str(HARDWARE_LOG), QUENBY_HARDWARE=str(HARDWARE_ANSWERS),
                QUENBY_SUDO=sudo, QUENBY_SUDO_FAILS=sudo_fails,
                ASAN_OPTIONS="exitcode=99", UBSAN_OPTIONS="exitcode=99:halt_on_error=1")


def run(*arguments, sudo="succeed", sudo_fails="", wrapper=(), variables=None):
    """Runs the program. `sudo` is "succeed" or "run"; a call whose words match the shell pattern
    `sudo_fails` exits with 1."""
    forget_calls()
    return guest.run(program, *arguments, wrapper=wrapper, timeout=120,
                     env=variables or environment(sudo, sudo_fails))


class ProgramTest(unittest.TestCase):
    """A test on a router without devices of its own, stored files or address set."""

    maxDiff = None

    def setUp(self):
        clean_router()
        answer_hardware()

    def succeeds(self, *arguments, out="", **options):
        self.assertEqual(run(*arguments, **options), Result(0, out, ""))

    def fails(self, message, *arguments, out="", **options):
        """Ends with status 1 and this one line."""
        self.assertEqual(run(*arguments, **options), Result(1, out, "Error: " + message + "\n"))

    def addresses(self, **numbers):
        """The address set has these addresses, 10.0.0.x, with these class numbers."""
        self.assertEqual(["add kavo_opt_shaper 10.0.0.%s skbmark 0x8000000%d/0x80003fff"
                          % (name[1:], number) for name, number in numbers.items()],
                         set_entries())

    def load(self, global_text, tariff_text=None, **options):
        store(global_text, tariff_text)
        self.succeeds("--load", **options)
