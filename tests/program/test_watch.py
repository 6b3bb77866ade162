"""`quenbyctl export` and `quenbyctl top` on a real kernel: their counters are those of an independent
reading of its dumps, and the live screen is what a terminal shows."""

import json
import os
import pathlib
import re
import subprocess
import sys
import time

import quenby_program as q
from test_statistics import DEFAULTS, GLOBAL, LINE, mark, send

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "kernel"))

from tc_dump import htb_classes, leaf_drops  # noqa: E402

SLOW = 64
TARIFFS = "".join(
    "[%s]\nid=%d\nip=10.0.0.%d\ndownload_speed=%d\nupload_speed=%d\nqueuing_discipline=%s\n"
    % (name, number, number, speed, speed, queue) for name, number, speed, queue in
    (("fair", 5, SLOW, "sfq"), ("first", 4, SLOW, "pfifo"), ("timed", 6, SLOW, "fq_codel"),
     ("usual", 7, SLOW, "none"), ("quick", 9, 8000, "pfifo")))
CROWD = 10000


def quenbyctl(*arguments):
    program = str(pathlib.Path(q.program).with_name("quenbyctl"))
    done = subprocess.run([program, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=60, text=True,
                          env=q.environment("succeed", ""))
    return q.Result(done.returncode, done.stdout, done.stderr)


class Watched(q.ProgramTest):
    """The default class takes packets of no tariff; the address set and the firewall play no part."""

    def setUp(self):
        super().setUp()
        q.make_link("eth1", "dummy")
        q.make_set()
        self.load(GLOBAL % LINE + DEFAULTS, TARIFFS)

    def exported(self):
        result = quenbyctl("export", "--format", "json")
        self.assertEqual((result.status, result.err), (0, ""))
        return {(c["device"], c["number"]): c for c in json.loads(result.out)["classes"]}


class Counters(Watched):
    def compare(self, device, found, counted):
        drops = leaf_drops(device)
        for handle, entry in counted.items():
            one = found[device, handle & 0x3fff]
            with self.subTest(device=device, number=one["number"]):
                self.assertEqual(
                    (one["packets"], one["bytes"], one["overlimits"], one["backlog_packets"],
                     one["backlog_bytes"], one["drops"], one["guarantee"], one["ceiling"]),
                    (entry.packets, entry.bytes, entry.overlimits, entry.queued, entry.queued_bytes,
                     max(entry.drops, drops.get(handle, 0)), entry.rate, entry.ceil))

    def steady(self):
        """What two equal readings of the kernel have between them."""
        end = time.monotonic() + 60
        while True:
            before = {name: htb_classes(name) for name in ("eth1", "ifb_ingr")}
            found = self.exported()
            if before == {name: htb_classes(name) for name in before}:
                return found, before
            self.assertLess(time.monotonic(), end, "the counters do not stand still")
            time.sleep(0.2)

    def test_are_the_kernels(self):
        for number in (4, 5, 6, 7):
            send("eth1", 12, mark(number))
        send("ifb_ingr", 7, mark(9), size=250)
        send("eth1", 3)
        found, before = self.steady()
        self.assertEqual(len(found), 16)
        for device, counted in before.items():
            self.compare(device, found, counted)
        self.assertEqual([found["eth1", number]["packets"] for number in (1, 2, 3, 4, 5, 9)],
                         [51, 3, 0, 12, 12, 0])
        self.assertEqual(found["ifb_ingr", 9]["bytes"], 7 * 250)

    def test_names_and_units_are_as_prometheus_asks(self):
        """All samples are there, which only a kernel with our classes gives."""
        text = quenbyctl("export").out
        self.assertIn('quenby_tariff_bytes_total{direction="upload",number="5",tariff="fair"} ', text)
        done = subprocess.run(["promtool", "check", "metrics"], input=text, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_a_queue_shows_its_drops_and_what_waits(self):
        """HTB knows what its leaf refuses, but not what the leaf has taken and drops later."""
        for number, count in ((4, 600), (5, 300), (6, 600), (7, 1300)):
            send("eth1", count, mark(number), waits=False)
        # New flows push out what the old one has in the queue, which holds 127.
        for last in range(8):
            send("eth1", 10, mark(5), source="10.0.1.%d" % last, waits=False)
        # Time for CoDel to see that its queue does not empty.
        time.sleep(3)
        found = self.exported()
        own = {handle & 0x3fff: entry.drops for handle, entry in htb_classes("eth1").items()}
        leaves = {handle & 0x3fff: drops for handle, drops in leaf_drops("eth1").items()}
        drops = {number: found["eth1", number]["drops"] for number in (4, 5, 6, 7)}
        self.assertEqual((drops[4], own[4]), (0, 0))
        self.assertGreater(own[5], 100)
        self.assertEqual(drops[5], leaves[5])
        self.assertGreater(drops[5], own[5] + 40)
        self.assertEqual(own[6], 0)
        self.assertTrue(0 < drops[6] <= leaves[6], (drops, leaves))
        self.assertGreater(drops[7], 200)
        self.assertEqual(drops[7], own[7])
        waiting = found["eth1", 4]
        self.assertGreater(waiting["backlog_packets"], 100)
        self.assertEqual(waiting["backlog_bytes"], 100 * waiting["backlog_packets"])

    def test_of_a_class_that_has_gone(self):
        q.command("tc", "class", "delete", "dev", "eth1", "classid", "8000:5")
        q.command("ip", "link", "delete", "ifb_ingr")
        found = self.exported()
        self.assertEqual([found["eth1", number]["packets"] for number in (4, 5)], [0, None])
        self.assertIsNone(found["ifb_ingr", 1]["packets"])
        self.assertIn('quenby_missing_classes{direction="upload"} 1\n'
                      'quenby_missing_classes{direction="download"} 8\n', quenbyctl("export").out)


class Imq(q.ProgramTest):
    """An ifb device stands in for the IMQ device, which holds both directions."""

    def test_both_directions(self):
        q.make_link("imq0", "ifb")
        self.load("[global]\nenabled=true\n" + LINE + DEFAULTS, TARIFFS)
        send("imq0", 2, source="10.0.0.4", destination="192.0.2.1")
        send("imq0", 3, source="192.0.2.1", destination="10.0.0.9")
        time.sleep(1)
        result = quenbyctl("export", "--json")
        found = {(c["direction"], c["name"]): c["packets"]
                 for c in json.loads(result.out)["classes"]}
        self.assertEqual((found["upload", "first"], found["download", "first"],
                          found["upload", "quick"], found["download", "quick"]), (2, 0, 0, 3))
        self.assertEqual((found["download", "defaultQoSIPQueue"], len(found)), (0, 13))


class Pane:
    """A terminal of our own with a program in it."""

    def __init__(self, width, height, command):
        self.tmux = ["tmux", "-u", "-L", "watch", "-f", "/dev/null"]
        self.run("new-session", "-d", "-x", str(width), "-y", str(height),
                 command + "; echo \"ended $?\"; sleep 1000")

    def run(self, *words):
        return subprocess.run([*self.tmux, *words], stdout=subprocess.PIPE, check=True, text=True,
                              env=dict(q.environment("succeed", ""), LC_ALL="C.UTF-8", TERM="xterm")).stdout

    def keys(self, *keys):
        self.run("send-keys", *keys)

    def lines(self):
        return [line.rstrip() for line in self.run("capture-pane", "-p").splitlines()]

    def resize(self, width, height):
        self.run("resize-window", "-x", str(width), "-y", str(height))

    def wait(self, wanted):
        """The screen, once it is as wanted."""
        end = time.monotonic() + 30
        while not wanted(lines := self.lines()):
            if time.monotonic() > end:
                raise AssertionError("\n".join(lines))
            time.sleep(0.1)
        return lines

    def close(self):
        subprocess.run([*self.tmux, "kill-server"], stderr=subprocess.DEVNULL, check=False)


KEYS = "q quit  / filter  Tab direction  i idle  space pause  sort: r rate s share p pac"
IDLE = """\
upload       0 of 10.0M bit/s [          ]   0%     0 pkt/s  7 shown: 0
download     0 of 20.0M bit/s [          ]   0%     0 pkt/s  7 shown: 0
NAME                WAY   BIT/S CEILING              SHARE  PKT/S DROP/S BACKLOG
system              up        0   10.0M [          ]    0%      0      0       0
defaultQoSIPQueue   up        0   1.00M [          ]    0%      0      0       0
fair                up        0   64.0k [          ]    0%      0      0       0
first               up        0   64.0k [          ]    0%      0      0       0
quick               up        0   8.00M [          ]    0%      0      0       0
timed               up        0   64.0k [          ]    0%      0      0       0
usual               up        0   64.0k [          ]    0%      0      0       0
system              down      0   20.0M [          ]    0%      0      0       0
defaultQoSIPQueue   down      0   2.00M [          ]    0%      0      0       0
fair                down      0   64.0k [          ]    0%      0      0       0
first               down      0   64.0k [          ]    0%      0      0       0
quick               down      0   8.00M [          ]    0%      0      0       0
timed               down      0   64.0k [          ]    0%      0      0       0
usual               down      0   64.0k [          ]    0%      0      0       0
""".splitlines()


class Screen(Watched):
    def start(self, width=80, height=24, options="--interval 0.2"):
        program = pathlib.Path(q.program).with_name("quenbyctl")
        pane = Pane(width, height, "%s top %s" % (program, options))
        self.addCleanup(pane.close)
        pane.wait(lambda lines: lines[-1].startswith("q quit"))
        return pane

    def test_when_nothing_passes(self):
        lines = self.start().wait(lambda lines: len(lines) == 24)
        self.assertRegex(lines[0], r"^quenbyctl top  \d\d:\d\d:\d\d  every 0\.2 s  5 tariffs$")
        self.assertEqual(lines[1:], IDLE + [""] * (22 - len(IDLE)) + [KEYS])

    def test_traffic(self):
        pane = self.start()
        send("eth1", 1500, mark(4))
        lines = pane.wait(lambda lines: lines[4].startswith("first")
                          and re.search(r" \d{2,}%", lines[4]))
        self.assertRegex(lines[4], r"^first +up +[5-7]\d\.\dk +64\.0k \[[| ]{10}\] +\d+% +\d\d ")
        self.assertRegex(lines[4], r" [1-9]\d*\.?\dk$")
        self.assertRegex(lines[1], r"^upload +[5-7]\d\.\dk of 10\.0M bit/s ")

    def test_keys(self):
        pane = self.start()
        pane.keys("n")
        self.assertEqual([line.split()[0] for line in pane.wait(
            lambda lines: lines[4].startswith("defaultQ"))[4:12:2]],
            ["defaultQoSIPQueue", "fair", "first", "quick"])
        pane.keys("Tab", "/", "fi")
        lines = pane.wait(lambda lines: lines[-1] == "filter: fi_" and lines[5] == "")
        self.assertEqual(lines[4].split()[:2], ["first", "up"])
        self.assertIn("filter: fi", lines[0])
        pane.keys("Enter", "Escape", "Space")
        pane.wait(lambda lines: "paused" in lines[0] and lines[10] != "")
        pane.keys("Tab", "End")
        lines = pane.wait(lambda lines: lines[4].split()[1:2] == ["down"])
        self.assertEqual(lines[10].split()[0], "usual")

    def test_the_window_may_change(self):
        pane = self.start()
        pane.resize(50, 12)
        lines = pane.wait(lambda lines: len(lines) == 12 and lines[-1].startswith("q quit"))
        self.assertEqual(lines[3], "NAME              WAY   BIT/S SHARE DROP/S BACKLOG")
        self.assertNotEqual(lines[10], "")
        pane.keys("PageDown")
        pane.wait(lambda lines: lines[4].startswith("system") and " down " in lines[4])
        pane.resize(120, 40)
        lines = pane.wait(lambda lines: len(lines) == 40 and lines[-1].endswith("n name"))
        self.assertIn("[" + " " * 29 + "]", lines[4])
        self.assertEqual(lines[4].split()[0], "system")

    def test_files_and_devices_may_change(self):
        pane = self.start()
        self.succeeds("--tariff-del", "fair")
        pane.wait(lambda lines: "4 tariffs" in lines[0] and "fair" not in "".join(lines))
        q.TARIFF_FILE.write_text("wrong\n")
        pane.wait(lambda lines: "wrong current tariff" in lines[0])
        q.store(tariff_text=TARIFFS)
        pane.wait(lambda lines: "5 tariffs" in lines[0] and "1 missing" in self.wide(pane)[1])
        q.command("ip", "link", "delete", "eth1")
        pane.wait(lambda lines: lines[1] == "upload   not shaped")

    def wide(self, pane):
        pane.resize(120, 40)
        return pane.lines()

    def test_classes_on_the_screen_are_looked_at_more_often(self):
        """A look at all reads the files when they have changed, which many tariffs make long."""
        crowd = "".join("[c%04d]\nid=%d\nip=10.1.%d.%d\n" % (i, 10 + i, i >> 8, i & 255)
                        for i in range(CROWD))
        q.store(tariff_text=TARIFFS + crowd)
        pane = self.start(options="--interval 0.1")
        seldom = re.compile(r"every 0\.\d s, all every (\d+\.?\d*) s  %d tariffs$" % (CROWD + 5))
        rates, end = [], time.monotonic() + 60
        # Three rates of a class in half the time between two looks at all.
        while len(rates) < 3 or rates[-1][0] - rates[-3][0] >= rates[-1][2] / 2:
            self.assertLess(time.monotonic(), end, rates)
            title, *lines = pane.lines()
            all_every = seldom.search(title)
            if not all_every or float(all_every[1]) < 1:
                os.utime(q.TARIFF_FILE)
                continue
            send("eth1", 40 + len(rates) % 7, mark(9), waits=False)
            rate = [line.split()[2] for line in lines if re.match("quick +up ", line)]
            if rate and [rate[0]] != [known for _, known, _ in rates[-1:]]:
                rates.append((time.monotonic(), rate[0], float(all_every[1])))
        self.assertNotIn("failed to", pane.lines()[0])

    def test_what_a_tool_says_does_not_disturb_it(self):
        pane = self.start()
        q.write_script(q.HARDWARE_TOOL, "#!/bin/sh\necho disturbing >&2\n")
        self.succeeds("--tariff-del", "fair")
        lines = pane.wait(lambda lines: "4 tariffs" in lines[0])
        self.assertNotIn("disturbing", "".join(lines))
        self.assertTrue(lines[1].startswith("upload "))

    def test_leaves_the_terminal_as_it_was(self):
        pane = self.start()
        pane.keys("q")
        lines = pane.wait(lambda lines: lines[0].startswith("ended"))
        self.assertEqual(lines[0], "ended 0")
        self.assertEqual(set(lines[1:]), {""})
