"""Packet steering and the link speed, as the hardware tool answers."""

import quenby_program as q

BOARD_QUERY = "/usr/sbin/kavo-hal getBoardShortName"
MASKS = {"eth1": "0F00", "eth2": "1700", "eth3": "2700", "eth4": "4780", "eth5": "8740",
         "eth6": "0780", "eth7": "0740", "eth8": "0720"}
UNSTEERED = ("eth0", "eth9", "eth10", "ppp0")


def mask_file(port):
    return q.pathlib.Path("/sys/class/net/%s/queues/rx-0/rps_cpus" % port)


def mask(port):
    """The mask in force; the kernel shows only processors that are there."""
    return int(mask_file(port).read_text().replace(",", ""), 16)


def store_port(port):
    q.store("[global]\nenabled=true\nwan=%s\nupload_speed=1000\n" % port)


def echoes():
    return [text for text in q.shell_texts() if text.startswith("echo")]


class Steering(q.ProgramTest):
    def loads(self, port, *expected):
        store_port(port)
        self.succeeds("--load")
        self.assertIn(BOARD_QUERY, q.shell_texts())
        self.assertEqual(echoes(), list(expected))

    def test_each_port_of_the_board(self):
        q.answer_hardware(getBoardShortName="KX-6-TR")
        for port, value in MASKS.items():
            with self.subTest(port):
                q.clean_router()
                q.make_link(port)
                self.loads(port,
                           "echo %s > /sys/class/net/%s/queues/rx-0/rps_cpus" % (value, port))
                self.assertEqual(mask(port), int(value, 16))

    def test_texts_word_by_word(self):
        q.answer_hardware(getBoardShortName="KX-6-TR")
        q.make_link("eth5")
        self.loads("eth5", "echo 8740 > /sys/class/net/eth5/queues/rx-0/rps_cpus")
        q.answer_hardware(getBoardShortName="Infinity\n")
        self.succeeds("--stop")
        self.assertEqual(echoes(), ["echo 0000 > /sys/class/net/eth5/queues/rx-0/rps_cpus"])

    def test_other_ports(self):
        q.answer_hardware(getBoardShortName="KX-6-TR")
        for port in UNSTEERED:
            with self.subTest(port):
                q.clean_router()
                q.make_link(port)
                self.loads(port)
                self.assertEqual(mask(port), 0)

    def test_other_answers(self):
        q.make_link("eth1")
        for answer in ("KX-6-TR\n", " KX-6-TR", "KX-6-TRX", "KX-6", "kx-6-tr", "Infinity\n", ""):
            with self.subTest(answer):
                q.answer_hardware(getBoardShortName=answer)
                self.loads("eth1")
                self.assertEqual(mask("eth1"), 0)

    def test_missing_port_ends_the_run(self):
        q.answer_hardware(getBoardShortName="KX-6-TR")
        store_port("eth5")
        result = q.run("--load", "--version")
        self.assertEqual((result.status, result.out), (1, ""))
        # The shell's own words, and nothing of the program's.
        self.assertRegex(result.err, r"\A[^\n]*sh: 1: cannot create /sys/class/net/eth5/queues/"
                                     r"rx-0/rps_cpus: Directory nonexistent\n\Z")
        self.assertEqual(q.shell_texts()[-1],
                         "echo 8740 > /sys/class/net/eth5/queues/rx-0/rps_cpus")


class SteeringReset(q.ProgramTest):
    def setUp(self):
        super().setUp()
        q.make_set()

    def stops(self, port, *expected):
        store_port(port)
        mask_file(port).write_text("3")
        self.succeeds("--stop")
        self.assertIn(BOARD_QUERY, q.shell_texts())
        self.assertEqual(echoes(), list(expected))

    def test_each_port(self):
        q.answer_hardware(getBoardShortName="Infinity\n")
        for port in MASKS:
            with self.subTest(port):
                q.make_link(port)
                self.stops(port, "echo 0000 > /sys/class/net/%s/queues/rx-0/rps_cpus" % port)
                self.assertEqual(mask(port), 0)

    def test_other_ports(self):
        q.answer_hardware(getBoardShortName="Infinity\n")
        for port in UNSTEERED:
            with self.subTest(port):
                q.make_link(port)
                self.stops(port)
                self.assertEqual(mask(port), 3)

    def test_other_answers(self):
        q.make_link("eth1")
        for answer in ("Infinity", "Infinity\n\n", " Infinity\n", "infinity\n", "KX-6-TR",
                       "KX-6-TR\n", ""):
            with self.subTest(answer):
                q.answer_hardware(getBoardShortName=answer)
                self.stops("eth1")
                self.assertEqual(mask("eth1"), 3)


class LinkSpeed(q.ProgramTest):
    """A tariff without a usable speed gets the link's, and the root class with it."""

    # Bytes per second are multiples of 1000 bits here, which tc shows without rounding.
    CASES = (
        ({}, "1Gbit"),
        ({"isSfpPlus": "0", "getEthPhysical": "Speed: 2500"}, "1Gbit"),
        ({"isSfpPlus": "1\n", "getEthPhysical": "Speed: 2500"}, "1Gbit"),
        ({"isSfpPlus": "1", "getEthPhysical": "Speed: 10000Mb/s"}, "10Gbit"),
        ({"isSfpPlus": "1", "getEthPhysical": "Duplex: full\nSpeed: 2500Mb/s\n"}, "2500Mbit"),
        ({"isSfpPlus": "1", "getEthPhysical": "Speed: 100"}, "100Mbit"),
        ({"isSfpPlus": "1", "getEthPhysical": "Speed: 0"}, "10Gbit"),
        ({"isSfpPlus": "1", "getEthPhysical": "Duplex: full\n"}, "10Gbit"),
        ({"isSfpPlus": "1", "getEthPhysical": "Speed: Unknown!\nDuplex: -\n"}, "10Gbit"),
        ({"isSfpPlus": "1", "getEthPhysical": "Speed: -1"}, "10Gbit"),
        ({"isSfpPlus": "1"}, "10Gbit"),
    )

    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        q.store("[global]\nenabled=true\nwan=eth1\n", "[max]\nid=4\nip=10.0.0.1\nupload_speed=max\n")

    def root_class(self):
        lines = q.command("tc", "class", "show", "dev", "eth1").splitlines()
        return [line for line in lines if line.startswith("class htb 8000:1 root ")]

    def test_ceiling_of_the_root_class(self):
        for answers, rate in self.CASES:
            with self.subTest(answers):
                q.answer_hardware(**answers)
                self.succeeds("--load")
                self.assertEqual(len(self.root_class()), 1)
                self.assertIn(" rate %s ceil %s " % (rate, rate), self.root_class()[0])

    def test_queries(self):
        q.answer_hardware(isSfpPlus="1", getEthPhysical="Speed: 10000\n")
        self.succeeds("--load")
        self.assertEqual(q.shell_texts()[:2], [
            "/usr/sbin/kavo-hal isSfpPlus eth1 2>&1",
            "/usr/sbin/kavo-hal getEthPhysical eth1  2>&1 | grep Speed | awk '{print $2}'",
        ])
        self.assertEqual(q.hardware_calls(), [["isSfpPlus", "eth1"], ["getEthPhysical", "eth1"],
                                              ["getBoardShortName"]])

    def test_no_second_query_for_another_port(self):
        self.succeeds("--load")
        self.assertEqual(q.hardware_calls(), [["isSfpPlus", "eth1"], ["getBoardShortName"]])

    def test_missing_tool(self):
        q.HARDWARE_TOOL.unlink()
        self.succeeds("--load")
        self.assertIn(" ceil 1Gbit ", self.root_class()[0])
