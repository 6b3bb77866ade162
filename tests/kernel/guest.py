"""What every test that runs the program in the lab's guest needs: commands, the program's run, the
stored files and faster stand-ins for what the program starts."""

import collections
import os
import pathlib
import subprocess
import sys

TREE = pathlib.Path(__file__).resolve().parents[2]
CONFIG = pathlib.Path("/config/tc")
GLOBAL_FILE = CONFIG / "tc_global.ini"
TARIFF_FILE = CONFIG / "tc_tariff.ini"

Result = collections.namedtuple("Result", "status out err")


def only_in_lab(places=("guest", "here")):
    if os.environ.get("QUENBY_IN_LAB") not in places:
        sys.exit(f"Error: only inside the lab: scripts/lab {sys.argv[0]} PROGRAM")


def program_path():
    """The program under test, the last argument of the call; taken off for unittest."""
    if len(sys.argv) < 2:
        sys.exit(f"Call: scripts/lab {sys.argv[0]} PROGRAM")
    return str(pathlib.Path(sys.argv.pop()).resolve())


def command(*words, text=None, check=True):
    """Output of a command of the lab itself."""
    done = subprocess.run(words, input=text, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=False)
    if check and done.returncode != 0:
        raise RuntimeError(f"{words}: status {done.returncode}: {done.stderr}")
    return done.stdout


def run(program, *options, wrapper=(), env=None, timeout=180):
    """Exit status and both outputs of the program, byte for byte."""
    try:
        done = subprocess.run([*wrapper, program, *options], stdin=subprocess.DEVNULL,
                              capture_output=True, env=env, timeout=timeout, check=False)
    except subprocess.TimeoutExpired as failure:
        raise AssertionError("the program does not end") from failure
    return Result(done.returncode, *(output.decode(errors="surrogateescape")
                                     for output in (done.stdout, done.stderr)))


def load(program):
    """Loads the stored files. What the firewall says on the way does not matter."""
    result = run(program, "--load")
    if (result.status, result.out) != (0, ""):
        raise AssertionError(f"--load: {result}")


def make_device(name, kind="dummy"):
    command("ip", "link", "add", name, "up", "type", kind)


def renew_devices(*names):
    """Deletes what there is of these names and makes dummies instead."""
    command("ip", "-force", "-batch", "-", check=False, text="".join(
        f"link del {name}\nlink add {name} type dummy\nlink set {name} up\n" for name in names))


def write_file(path, text):
    """Bytes are taken as they are; None stands for a file that is not there."""
    if text is None:
        path.unlink(missing_ok=True)
    else:
        path.write_bytes(text if isinstance(text, bytes) else text.encode())


def write_files(global_text, tariff_text):
    CONFIG.mkdir(parents=True, exist_ok=True)
    write_file(GLOBAL_FILE, global_text)
    write_file(TARIFF_FILE, tariff_text)


def use_plain_sudo(stand_in="/usr/bin/env"):
    """Puts env(1) in the place of sudo: the tests are root already, and sudo's own start takes
    many times longer than the command that it starts."""
    folder = pathlib.Path("/run/plain-sudo")
    folder.mkdir()
    (folder / "sudo").symlink_to(stand_in)
    os.environ["PATH"] = f"{folder}:{os.environ['PATH']}"


def use_idle_sudo():
    """For tests of many runs that are not about firewall rules: no run changes any. Shells take a
    function for it, as starting a process for each rule costs more than all the rest."""
    use_plain_sudo("/usr/bin/true")
    os.environ["BASH_FUNC_sudo%%"] = "() { :; }"
    command("mount", "--bind", "/bin/bash", os.path.realpath("/bin/sh"))


def use_legacy_iptables():
    """The back end whose processes start faster; other tests use Debian's usual one."""
    for name in ("iptables", "ip6tables"):
        command("update-alternatives", "--set", name, f"/usr/sbin/{name}-legacy")
