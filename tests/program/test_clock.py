"""The clock of the kernel's packet scheduler: the smallest burst of a class is one tick's worth of
traffic above 1600 bytes, and the program asks the kernel how long a tick is."""

import os

import quenby_program as q
from tc_dump import htb_classes

GLOBAL = "[global]\nwan=eth1\nenabled=true\ndownload_speed=20000\nupload_speed=20000\n"
# 2000 and 1000 bytes/s: 240 ms of that are 480 and 240 bytes, so that the tick decides.
TARIFF = "[slow]\nid=4\nip=10.0.0.4\ndownload_speed=8\nupload_speed=16\n"
CLOCK = q.WORK / "psched"


def clock(ticks_per_second):
    """The environment of a run for which the kernel's clock has this frequency. The library reads
    it from the named file: nanoseconds a microsecond, nanoseconds a tick of the times in its
    messages, 1,000,000 and the frequency."""
    CLOCK.write_text("000003e8 00000040 000f4240 %08x\n" % ticks_per_second)
    return dict(q.environment("succeed", ""), PROC_NET_PSCHED=str(CLOCK))


class Clock(q.ProgramTest):
    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        q.make_set()

    def bursts(self, variables):
        self.load(GLOBAL, TARIFF, variables=variables)
        found = [htb_classes(device)[0x80000004] for device in ("eth1", "ifb_ingr")]
        for entry in found:
            self.assertEqual(entry.burst, entry.cburst)
        return [entry.burst for entry in found]

    def test_the_kernels_own(self):
        self.assertNotIn("PROC_NET_PSCHED", os.environ)
        self.assertEqual([1600, 1600], self.bursts(None))

    def test_ten_ticks_a_second(self):
        self.assertEqual([1800, 1700], self.bursts(clock(10)))

    def test_one_tick_a_second(self):
        self.assertEqual([3600, 2600], self.bursts(clock(1)))

    def test_edits_ask_too(self):
        self.load(GLOBAL, variables=clock(10))
        self.succeeds("--tariff-add", q.given(TARIFF), variables=clock(10))
        self.succeeds("--tariff-update", q.given(TARIFF.replace("=16", "=24")),
                      variables=clock(10))
        self.assertEqual([1900, 1700], [htb_classes(device)[0x80000004].burst
                                        for device in ("eth1", "ifb_ingr")])
