"""The whole output of --stat: it is compared, byte for byte, with what an independent reading of
the kernel's class dump gives."""

import pathlib
import socket
import struct
import time

import quenby_program as q
from tc_dump import htb_classes

GLOBAL = "[global]\nwan=eth1\nenabled=true\n%s"
LINE = "download_speed=20000\nupload_speed=10000\n"
DEFAULTS = "[defaultqosipqueue]\ndownload_speed=2000\nupload_speed=1000\n"
# By name amy, bob, old, zed; the numbers ascend with them, as after every renumbering.
TARIFFS = "".join(
    "[%s]\nid=%d\nip=10.0.0.%d\ndownload_speed=64\nupload_speed=64\nqueuing_discipline=pfifo\n"
    % (name, number, number) for name, number in (("amy", 4), ("bob", 9), ("old", 20), ("zed", 21)))
NAMES = {4: "amy", 9: "bob", 20: "old", 21: "zed"}
ROOT = 0x80000001
IMQ_UPLOAD_ROOT = 0x80008001

# Linux's numbers that Python's socket module does not have.
SO_MARK, SO_SNDBUFFORCE, ETH_P_IP = 36, 32, 0x0800


def send(device, count, mark=0, source="10.0.0.1", destination="10.0.0.2", size=100, waits=True):
    """Puts packets of `size` bytes, Ethernet header included, into the device's root queue. One
    that waits has a few hundred in the queue at a time."""
    header = struct.pack("!BBHHHBBH4s4s", 0x45, 0, size - 14, 0, 0, 64, 17, 0,
                         socket.inet_aton(source), socket.inet_aton(destination))
    frame = bytes(12) + struct.pack("!H", ETH_P_IP) + header.ljust(size - 14, b"\0")
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_IP)) as sock:
        sock.setsockopt(socket.SOL_SOCKET, SO_MARK, struct.pack("=I", mark))
        if not waits:
            sock.setsockopt(socket.SOL_SOCKET, SO_SNDBUFFORCE, 1 << 26)
        sock.bind((device, ETH_P_IP))
        for _ in range(count):
            try:
                sock.send(frame)
            except OSError:  # a full queue
                pass


def mark(number):
    return 0x80000000 | number


def line(name, entry):
    return "%s,%d,%d,%d,%d,%d,%d\n" % (
        name, entry.packets, entry.bytes, entry.bytes_per_second, entry.packets_per_second,
        entry.drops, entry.overlimits)


def mark_lines(device, direction):
    """The lines of a device that shapes by mark, out of the kernel's dump and in its order."""
    own = {**NAMES, 1: "root", 2: "system", 3: "defaultQoSIPQueue"}
    return "".join(
        line("%s %s" % (direction, own.get(handle & 0x3fff, str(handle & 0x3fff))), entry)
        for handle, entry in htb_classes(device).items() if entry.parent == ROOT)


def imq_lines():
    lines = ""
    for handle, entry in htb_classes("imq0").items():
        minor = handle & 0xffff
        if minor == 2:
            lines += line("defaultQoSIPQueue", entry)
        elif entry.parent == ROOT:
            lines += line("download " + NAMES.get(minor, str(minor)), entry)
        elif entry.parent == IMQ_UPLOAD_ROOT:
            number = minor - 0x8000
            lines += line("upload " + NAMES.get(number, str(number)), entry)
    return lines


class Statistics(q.ProgramTest):
    """The address set and the firewall play no part; sudo is the stand-in that succeeds."""

    DEVICES = {"eth1": "dummy"}

    def setUp(self):
        super().setUp()
        for name, kind in self.DEVICES.items():
            q.make_link(name, kind)
        q.make_set()

    def wanted(self):
        return mark_lines("eth1", "upload") + mark_lines("ifb_ingr", "download")

    def quiet(self):
        """Waits until nothing is queued, so that the counters stand still."""
        devices = [name for name in ("eth1", "ifb_ingr", "imq0")
                   if pathlib.Path("/sys/class/net", name).exists()]
        end = time.monotonic() + 60
        while any(entry.queued for name in devices for entry in htb_classes(name).values()):
            self.assertLess(time.monotonic(), end, "packets stay in the queues")
            time.sleep(0.2)

    def check(self):
        """The output, once it is known to be what it should be."""
        self.quiet()
        wanted = self.wanted()
        result = q.run("--stat")
        self.assertEqual(wanted, self.wanted(), "the counters did not stand still")
        self.assertEqual(q.Result(0, wanted, ""), result)
        return result.out.splitlines()


class BothDirections(Statistics):
    def setUp(self):
        super().setUp()
        self.load(GLOBAL % LINE + DEFAULTS, TARIFFS)

    def test_without_traffic(self):
        lines = self.check()
        self.assertEqual(12, len(lines))
        self.assertTrue(all(text.endswith(",0,0,0,0,0,0") for text in lines))

    def test_upload_first_and_each_in_the_order_of_the_kernel(self):
        lines = self.check()
        self.assertEqual(["upload"] * 6 + ["download"] * 6, [text.split()[0] for text in lines])
        # The kernel's order is that of its hash table: neither by number nor by name.
        names = [text.split(",")[0] for text in lines[:6]]
        self.assertNotEqual(sorted(names), names)
        numbers = [handle for handle in htb_classes("eth1") if handle != ROOT]
        self.assertNotEqual(sorted(numbers), numbers)

    def test_every_class_with_its_own_counters(self):
        for number, count in ((4, 1), (9, 2), (20, 3), (21, 4), (3, 5)):
            send("eth1", count, mark(number))
            send("ifb_ingr", 10 * count, mark(number), size=200)
        send("eth1", 6)
        lines = self.check()
        for text in ("upload amy,1,100,", "upload zed,4,400,", "upload defaultQoSIPQueue,5,500,",
                     "upload system,6,600,", "download amy,10,2000,", "download old,30,6000,"):
            self.assertEqual(1, sum(found.startswith(text) for found in lines), text)

    def test_drops_and_overlimits(self):
        q.command("tc", "qdisc", "change", "dev", "eth1", "parent", "8000:9", "handle", "8009:",
                  "pfifo", "limit", "5")
        # More than the class's burst, so that the rest has to wait or go.
        send("eth1", 40, mark(9), size=1000)
        bob = [text for text in self.check() if text.startswith("upload bob,")]
        _, packets, octets, _, _, drops, overlimits = bob[0].split(",")
        self.assertEqual(40, int(packets) + int(drops))
        self.assertEqual(int(octets), 1000 * int(packets))
        self.assertGreater(int(drops), 0)
        self.assertGreater(int(overlimits), 0)
        self.assertNotEqual(drops, overlimits)

    def test_classes_that_no_tariff_has(self):
        for device in ("eth1", "ifb_ingr"):
            for number in ("77", "4005", "4009"):
                q.command("tc", "class", "add", "dev", device, "parent", "8000:1", "classid",
                          "8000:" + number, "htb", "rate", "8kbit")
            # Not a child of the root class.
            q.command("tc", "class", "add", "dev", device, "parent", "8000:4", "classid",
                      "8000:88", "htb", "rate", "8kbit")
        names = [text.split(",")[0] for text in self.check()]
        self.assertEqual(18, len(names))
        # A number has 14 bits: 0x4009 is 9, and nobody has 0x4005's 5.
        for name in ("upload 119", "upload 5", "download 119", "download 5"):
            self.assertEqual(1, names.count(name), name)
        self.assertEqual(2, names.count("upload bob"))

    def test_tariffs_that_are_not_built_have_no_line(self):
        q.store(tariff_text=TARIFFS + "[new]\nid=22\nip=10.0.0.22\n")
        self.assertEqual(12, len(self.check()))

    def test_a_class_whose_tariff_is_no_longer_stored(self):
        q.store(tariff_text=TARIFFS.replace("[zed]", "[zoe]").replace("id=21", "id=30"))
        result = q.run("--stat")
        self.assertEqual(self.wanted().replace(" zed,", " 21,"), result.out)
        self.assertIn("upload 21,", result.out)

    def test_a_device_that_has_gone(self):
        q.command("ip", "link", "delete", "ifb_ingr")
        self.succeeds("--stat", out=mark_lines("eth1", "upload"))
        q.command("ip", "link", "delete", "eth1")
        self.succeeds("--stat")

    def test_after_a_stop(self):
        self.succeeds("--stop")
        self.succeeds("--stat")


class OneDirection(Statistics):
    def test_download_only(self):
        self.load(GLOBAL % "download_speed=20000\nupload_speed=0\n" + DEFAULTS, TARIFFS)
        send("ifb_ingr", 3, mark(9))
        self.assertEqual({}, htb_classes("eth1"))
        lines = self.check()
        self.assertEqual(6, len(lines))
        self.assertEqual({"download"}, {text.split()[0] for text in lines})
        self.assertIn("download bob,3,300,0,0,0,0", lines)

    def test_upload_only(self):
        self.load(GLOBAL % "download_speed=0\nupload_speed=20000\n", TARIFFS)
        send("eth1", 3, mark(9))
        lines = self.check()
        # Without a default tariff: the four tariffs and "system".
        self.assertEqual(5, len(lines))
        self.assertEqual({"upload"}, {text.split()[0] for text in lines})
        self.assertIn("upload bob,3,300,0,0,0,0", lines)

    def wanted(self):
        return mark_lines("eth1", "upload") + (
            mark_lines("ifb_ingr", "download") if pathlib.Path("/sys/class/net/ifb_ingr").exists()
            else "")


class Imq(Statistics):
    """An ifb device stands in for the IMQ device. Both directions pass its one queue."""

    DEVICES = {"imq0": "ifb"}

    def wanted(self):
        return imq_lines()

    def setUp(self):
        super().setUp()
        self.load("[global]\nenabled=true\n" + LINE + DEFAULTS, TARIFFS)

    def test_both_directions_in_one_list(self):
        send("imq0", 2, source="10.0.0.4", destination="192.0.2.1")
        send("imq0", 3, source="192.0.2.1", destination="10.0.0.9")
        send("imq0", 4, source="192.0.2.1", destination="192.0.2.2")
        lines = self.check()
        self.assertEqual(9, len(lines))
        self.assertIn("upload amy,2,200,0,0,0,0", lines)
        self.assertIn("download bob,3,300,0,0,0,0", lines)
        self.assertEqual(1, sum(text.startswith("defaultQoSIPQueue,") for text in lines))
        # As the kernel has them, not one direction after the other.
        directions = [text.split()[0] for text in lines if " " in text]
        self.assertNotEqual(sorted(directions), directions)
        self.assertNotEqual(sorted(directions, reverse=True), directions)

    def test_classes_that_no_tariff_has(self):
        for parent, number in (("8000:1", "77"), ("8000:8001", "8077"), ("8000:4", "78")):
            q.command("tc", "class", "add", "dev", "imq0", "parent", parent, "classid",
                      "8000:" + number, "htb", "rate", "8kbit")
        names = [text.split(",")[0] for text in self.check()]
        self.assertEqual(11, len(names))
        self.assertIn("upload 119", names)
        self.assertIn("download 119", names)
