"""An interactive shell on a terminal of its own, for what a key press leads to."""

import os
import pathlib
import pty
import select
import subprocess
import time

COMPLETION = pathlib.Path(__file__).resolve().parents[2] / "completion"
DEADLINE = 60
# Takes the place of the program: says what it was given, each word on a line.
STAND_IN = "quenby() { printf '\\n<%s>' \"$@\"; echo; }; quenbyctl() { quenby \"$@\"; }"


def typed(command, setup, keys, directory):
    """What the stand-in was given after `keys` were typed into a shell.

    `setup` are lines that the shell runs first; the keys end with a line feed.
    """
    terminal, other_side = pty.openpty()
    variables = dict(os.environ, TERM="dumb", INPUTRC="/dev/null", HISTFILE="/dev/null")
    shell = subprocess.Popen(command, stdin=other_side, stdout=other_side, stderr=other_side,
                             cwd=directory, env=variables, start_new_session=True)
    os.close(other_side)
    try:
        for line in [*setup, STAND_IN]:
            os.write(terminal, (line + "; echo ready-$((6 * 7))\n").encode())
            read_until(terminal, "ready-42")
        os.write(terminal, keys.encode())
        os.write(terminal, b"echo done-$((6 * 7))\n")
        output = read_until(terminal, "done-42")
    finally:
        shell.kill()
        shell.wait()
        os.close(terminal)
    lines = output.replace("\r", "").splitlines()
    return [line[1:-1] for line in lines if line.startswith("<") and line.endswith(">")]


def read_until(terminal, mark):
    """Everything that the shell prints up to `mark`."""
    output, end = b"", time.monotonic() + DEADLINE
    while mark.encode() not in output:
        ready, _, _ = select.select([terminal], [], [], max(0, end - time.monotonic()))
        if not ready:
            raise TimeoutError("no %s in %r" % (mark, output))
        output += os.read(terminal, 4096)
    return output.decode(errors="replace")
