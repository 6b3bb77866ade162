"""`quenbyctl export`: its formats, and a file that is replaced whole or not at all. The WAN interface
is the only one of this network, "lo", which holds no classes."""

import csv
import io
import json
import os
import pathlib
import stat
import subprocess
import time

import surroundings as s
from surroundings import FOLDER, TARIFF_FILE

LINE = "[global]\nwan=lo\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
A = "[a, \"quoted\"]\nid=4\nip=10.0.0.1\naggregation=2\ndownload_speed=1000\nupload_speed=500\n"
B = "[b\\c]\nid=5\nip=10.0.0.2\ndownload_speed=20000\nupload_speed=fast\n"
PLACE = pathlib.Path("/tmp/out.prom")


def export(*arguments, **options):
    return s.run("export", *arguments, program="/quenbyctl", **options)


class Export(s.SurroundingsTest):
    def setUp(self):
        super().setUp()
        self.store(LINE, A + B)

    def exported(self, *arguments):
        result = export(*arguments)
        self.assertEqual((result.status, result.err), (0, ""), result)
        return result.out


class Formats(Export):
    def test_json(self):
        before = int(time.time())
        found = json.loads(self.exported("--format", "json"))
        self.assertTrue(before <= found["time"] <= time.time())
        self.assertEqual((found["enabled"], found["tariffs"]), (True, 2))
        self.assertGreater(found["differences"], 1)
        self.assertEqual([(c["direction"], c["number"]) for c in found["classes"]],
                         [(way, number) for way in ("upload", "download")
                          for number in (1, 2, 4, 5)])
        self.assertEqual({c["packets"] for c in found["classes"]}, {None})
        fast = found["classes"][3]
        self.assertEqual((fast["configured_ceiling"], fast["ceiling"], fast["guarantee"]),
                         (None, 625000, 8))
        scaled = found["classes"][6]
        self.assertEqual((scaled["configured_guarantee"], scaled["guarantee"]), (62500, 30487))

    def test_json_has_a_short_form(self):
        long, short = (json.loads(self.exported(*options))
                       for options in (("--format", "json"), ("--json",)))
        self.assertEqual(long["classes"], short["classes"])

    def test_csv(self):
        rows = list(csv.DictReader(io.StringIO(self.exported("--format", "csv"))))
        self.assertEqual([row["name"] for row in rows],
                         ["root", "system", 'a, "quoted"', "b\\c"] * 2)
        self.assertEqual(rows[6]["ceiling"], "125000")
        self.assertEqual(rows[6]["packets"], "")

    def test_prometheus(self):
        text = self.exported()
        self.assertIn('{direction="upload",number="4",tariff="a, \\"quoted\\""} 62500\n', text)
        self.assertIn('{direction="download",number="5",tariff="b\\\\c"} 2500000\n', text)
        self.assertIn('\nquenby_missing_classes{direction="upload"} 4\n', text)

    def test_an_interface_that_is_not_there(self):
        for wan, metric, member in (("wan=lo\n", ["quenby_wan_present 1"], True),
                                    ("wan=eth9\n", ["quenby_wan_present 0"], False), ("", [], None)):
            self.store(LINE.replace("wan=lo\n", wan), A)
            lines = self.exported().splitlines()
            self.assertEqual(metric, [line for line in lines if line.startswith("quenby_wan_present")])
            self.assertEqual(member, json.loads(self.exported("--json"))["wan_present"])

    def test_promtool_finds_nothing_to_say(self):
        for line, tariffs in ((LINE, A + B), (LINE.replace("wan=lo", "wan=eth9"), A), (s.DISABLED, None),
                              (LINE, "[" + "".join(map(chr, range(32, 91))) + "]\nid=4\nip=1.2.3.4\n"
                               "download_speed=1\nupload_speed=1\n")):
            self.store(line, tariffs)
            done = subprocess.run(["promtool", "check", "metrics"], input=self.exported(), text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_promtool_finds_what_is_wrong(self):
        text = self.exported().replace("quenby_tariffs", "quenby_tariffs_total")
        done = subprocess.run(["promtool", "check", "metrics"], input=text, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertNotEqual(done.returncode, 0)

    def test_names_of_any_bytes(self):
        TARIFF_FILE.write_bytes(A.replace("quoted", "K#the").encode().replace(b"#", b"\xe4"))
        for options in ((), ("--json",)):
            self.assertIn("K\ufffdthe", self.exported(*options))


class Output(Export):
    def written(self, path=PLACE):
        self.assertEqual(self.exported("--output", str(path)), "")
        return path.read_text()

    def test_is_what_would_be_printed(self):
        def without_time(text):
            return [line for line in text.splitlines() if "timestamp_seconds " not in line]

        self.assertEqual(without_time(self.written()), without_time(self.exported()))
        self.assertEqual(s.names_in("/tmp"), ["out.prom"])

    def test_anyone_may_read_a_new_file(self):
        umask = os.umask(0o022)
        self.addCleanup(os.umask, umask)
        self.written()
        self.assertEqual(stat.S_IMODE(PLACE.stat().st_mode), 0o644)

    def test_a_file_keeps_its_mode(self):
        PLACE.write_text("old")
        PLACE.chmod(0o640)
        self.assertIn("quenby_enabled 1", self.written())
        self.assertEqual(stat.S_IMODE(PLACE.stat().st_mode), 0o640)

    def fails(self, path):
        before = s.state()
        result = export("--output", str(path))
        self.assertEqual((result.status, result.out), (2, ""), result)
        self.assertTrue(result.err.startswith("quenbyctl: "), result)
        self.assertEqual(s.state(), before)

    def test_only_files_are_replaced(self):
        os.mkfifo("/tmp/pipe")
        pathlib.Path("/tmp/link").symlink_to("/dev/null")
        for path in ("/tmp", "/tmp/pipe", "/tmp/link", "/dev/full"):
            self.fails(path)
        self.assertTrue(pathlib.Path("/tmp/link").is_symlink())

    def test_a_folder_that_is_missing(self):
        self.fails("/tmp/none/out.prom")

    def test_a_full_disk_leaves_the_old_file(self):
        place = FOLDER / "out.prom"
        place.write_text("old\n")
        self.fill(FOLDER)
        self.fails(place)
        self.assertEqual(place.read_text(), "old\n")

    def fill(self, folder):
        with open(folder / "filler", "wb", buffering=0) as filler:
            try:
                while True:
                    filler.write(bytes(4096))
            except OSError:
                pass

    def test_a_call_that_fails_leaves_the_old_file(self):
        for call in ("write,writev", "fchmod", "fsync", "rename"):
            PLACE.write_text("old\n")
            with self.subTest(call):
                result, line = self.injected(call + ":error=EIO")
                self.assertIsNotNone(line)
                self.assertEqual((result.status, result.out), (2, ""), result)
                self.assertEqual((PLACE.read_text(), s.names_in("/tmp")), ("old\n", ["out.prom"]))

    def injected(self, call):
        return s.run_with(call, "export", "--output", str(PLACE), program="/quenbyctl")

    def test_a_kill_leaves_the_old_file_or_the_new_one(self):
        for call in ("write,writev", "fchmod", "fsync", "rename"):
            PLACE.write_text("old\n")
            with self.subTest(call):
                self.injected(call + ":signal=KILL:when=1")
                text = PLACE.read_text()
                self.assertTrue(text == "old\n" or "\nquenby_enabled 1\n" in text)


class Refusals(Export):
    def test_a_file_that_quenby_refuses(self):
        TARIFF_FILE.write_text("wrong\n")
        PLACE.write_text("old\n")
        for options in ((), ("--output", str(PLACE))):
            self.assertEqual(export(*options), s.Result(
                1, "", "quenbyctl: quenby refuses this: wrong current tariff configuration\n"
                "/config/tc/tc_tariff.ini:1:1: no \"=\" in this line\n"))
        self.assertEqual(PLACE.read_text(), "old\n")

    def test_a_wrong_call(self):
        for options in (("--format", "xml"), ("--format",), ("--json", "--format", "csv"), ("x",)):
            result = export(*options)
            self.assertEqual((result.status, result.out), (2, ""), result)

    def test_output_that_nobody_takes(self):
        with open("/dev/full", "w") as full:
            done = subprocess.run(["/quenbyctl", "export"], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(done.returncode, 2)
