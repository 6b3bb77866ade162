"""check-files refuses the stored files that a load refuses, and no other; each refusal has its
place, and nothing is changed."""

import pathlib
import random
import subprocess
import sys

import surroundings as s
from surroundings import GLOBAL_FILE, TARIFF_FILE

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "program"))
from test_bad_files import WRONG_GLOBAL, WRONG_SYNTAX, WRONG_TARIFF, random_bytes

# What a load says when it refuses a file. It may fail by other things too.
REFUSALS = ("wrong global configuration", "wrong current tariff configuration",
            "wrong tariff configuration")

GOOD_GLOBAL = ["", " \n\t\n", s.DISABLED, "[global]\nwan=eth9\nenabled=true\n",
               " [ global ] text\n\t Enabled =  true \r\n WAN\t=eth9", "[defaultqosipqueue]\n",
               "[global]\n" + "enabled=false".ljust(4095) + "wan=eth9\n"]
GOOD_TARIFF = ["", "\n", s.TARIFFS, "[a]\nid=1\n", "[b]\nid=9\n[a]\nid=9\n", "[a]\nid=15999\n",
               "[a]\nid=4\n[a]\nid=5\n", "[a]\nid=4\nupload_burst_size=3e9\n",
               "[a]\nid=4\nip=10.0.0.0/99\nqueuing_discipline=cake\n"]
# Refused after they were read, when all are numbered again.
LATE = ["".join("[%d]\nid=4\n" % i for i in range(15997)),
        "[a]\nid=1\nupload_burst_size=3e9\n", "[b]\nid=4\n[a]\nid=4\ndownload_burst_size=3e9\n"]

SAMPLES = 150


def samples():
    """What the reader itself is tried with."""
    folder = pathlib.Path("/samples")
    folder.mkdir(exist_ok=True)
    subprocess.run(["/ini_samples", folder, str(SAMPLES)], check=True)
    return [(folder / str(i)).read_bytes() for i in range(SAMPLES)]


def check(*arguments):
    done = subprocess.run(["/check-files", *arguments], timeout=60, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    return s.Result(done.returncode, done.stdout.decode(errors="replace"),
                    done.stderr.decode(errors="replace"))


def data(text):
    return text if isinstance(text, bytes) else text.encode()


class Agreement(s.SurroundingsTest):
    def verdict_on(self, path, text):
        """Whether both accept this file, which is stored."""
        before = path.read_bytes()
        checked = check()
        self.assertEqual(path.read_bytes(), before)
        loaded = s.run("--load")
        refused = loaded.err in ["Error: %s\n" % message for message in REFUSALS]
        self.assertEqual(checked.status, 1 if refused else 0, (text[:200], checked, loaded))
        place = r"\A%s(:[1-9]\d*:[1-9]\d*)?: [^\n]+\n\Z" % path
        self.assertRegex(checked.err, place if refused else r"\A\Z")
        self.assertEqual(checked.out, "")
        return not refused

    def agree_on_global(self, text):
        self.store(None, None)
        GLOBAL_FILE.write_bytes(data(text))
        return self.verdict_on(GLOBAL_FILE, text)

    def agree_on_tariffs(self, text):
        self.store(tariff_text=None)
        TARIFF_FILE.write_bytes(data(text))
        return self.verdict_on(TARIFF_FILE, text)

    def test_good_files(self):
        for text in GOOD_GLOBAL:
            self.assertTrue(self.agree_on_global(text), text)
        for text in GOOD_TARIFF:
            self.assertTrue(self.agree_on_tariffs(text), text)

    def test_bad_files(self):
        for text in [*WRONG_SYNTAX.values(), *WRONG_GLOBAL.values(), random_bytes(1)]:
            self.assertFalse(self.agree_on_global(text), text)
        for text in [*WRONG_SYNTAX.values(), *WRONG_TARIFF.values(), random_bytes(2), *LATE]:
            self.assertFalse(self.agree_on_tariffs(text), text)

    def test_any_bytes(self):
        texts = [*samples(), *(random.Random(seed).randbytes(2000) for seed in range(8))]
        # The reader's tests change a good tariff file with a good global one below it.
        changed = [text.partition(b"[global]") for text in texts if b"[global]" in text]
        self.assertEqual({self.agree_on_global(text) for text in
                          [*texts, *(b"".join(parts[1:]) for parts in changed)]}, {True, False})
        self.assertEqual({self.agree_on_tariffs(text) for text in
                          [*texts, *(parts[0] for parts in changed)]}, {True, False})


class Answer(s.SurroundingsTest):
    def test_both_files_are_named(self):
        self.store("[global]\n wan\n", "[a]\nid=4\nip=10.0.0\n")
        self.assertEqual(check(), s.Result(1, "", (
            '%s:2:2: no "=" in this line\n%s:3:4: "10.0.0" is not an IPv4 address\n'
            % (GLOBAL_FILE, TARIFF_FILE))))

    def test_a_directory(self):
        self.store(tariff_text=None)
        TARIFF_FILE.mkdir()
        self.assertEqual(check(), s.Result(1, "", "%s: is a directory\n" % TARIFF_FILE))

    def test_a_file_that_cannot_be_read(self):
        self.store()
        done = s.run_with("read:error=EIO:when=2", path=TARIFF_FILE, program="/check-files")[0]
        self.assertEqual(done, s.Result(1, "", "%s: cannot be read: Input/output error\n"
                                        % TARIFF_FILE))

    def test_no_files(self):
        self.store(None, None)
        self.assertEqual(check(), s.Result(0, "", ""))
        self.assertEqual(check("--summary"),
                         s.Result(0, "wan=\nenabled=true\ntariffs=0\naddresses=0\n", ""))

    def test_summary(self):
        self.store("[global]\nwan = my wan=0\n",
                   "[a]\nid=4\nip=10.0.0.1\nip=10.0.0.1/24\nip=10.0.0.2\n[b]\nid=5\nip=10.0.0.2\n")
        self.assertEqual(check("--summary"), s.Result(
            0, "wan=my wan=0\nenabled=false\ntariffs=2\naddresses=2\n", ""))

    def test_summary_of_ipv6(self):
        self.store("[global]\nwan=eth1\nenabled=true\nipv6=true\n",
                   "[a]\nid=4\nip6=2001:db8::7/64\nip6=2001:db8::7\n[b]\nid=5\nip6=2001:db8::/64\n")
        self.assertEqual(check("--summary"), s.Result(
            0, "wan=eth1\nenabled=true\nipv6=true\ntariffs=2\naddresses=0\nprefixes=2\n", ""))

    def test_summary_of_the_accepted_file(self):
        self.store("[global]\nwan=eth1\n", "[a]\n")
        result = check("--summary")
        self.assertEqual(result.out, "wan=eth1\nenabled=false\n")
        self.assertEqual((result.status, result.err),
                         (1, '%s:1:2: section "a" has no id\n' % TARIFF_FILE))

    def test_wrong_calls(self):
        self.store("hello\n")
        for arguments in (["--load"], ["--summary", "x"], [""], ["x", "--summary"]):
            self.assertEqual(check(*arguments), s.Result(2, "", "Usage: check-files [--summary]\n"))

    def test_neither_kernel_nor_lock(self):
        """What it links, and the files that it opens."""
        linked = subprocess.run(["ldd", "/check-files"], check=True, stdout=subprocess.PIPE,
                                text=True).stdout
        self.assertNotIn("libnl", linked)
        self.assertIn("libc.so", linked)
        self.store()
        s.run_with("ioctl:error=EIO", program="/check-files")
        calls = s.LOG.read_text()
        self.assertNotRegex(calls, r"(?m)^(socket|flock|unlink|rename|mkdir|fork|clone)\w*\(")
        self.assertNotRegex(calls, r"O_WRONLY|O_RDWR|O_CREAT")
        self.assertIn(str(TARIFF_FILE), calls)
