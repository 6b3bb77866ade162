"""What is in the built package: documents whose links all lead to something, files where this
Debian has them, and nothing at the platform's own paths.

Call: python3 -B tests/package/contents_test.py PACKAGE-FOLDER
"""

import gzip
import importlib.machinery
import importlib.util
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = "usr/share/doc/quenby"
PACKAGE = None


def checker():
    """The functions that check the links of the tree's own documents."""
    path = str(TREE / "tests/style/documents")
    loader = importlib.machinery.SourceFileLoader("documents", path)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("documents", loader))
    sys.modules["documents"] = module
    loader.exec_module(module)
    return module


documents = checker()


def dead_links(folder):
    """One text for each link of the documents below `folder` that leads to nothing."""
    return [f"{path.relative_to(folder)}:{line.number}: {fault}"
            for path in sorted(folder.rglob("*.md"))
            for line in documents.lines_of(joined(path.read_text(encoding="utf-8")))
            for fault in documents.check_links(folder, path, line)]


def joined(text):
    """The text with links on one line each."""
    return re.sub(r"\[[^\]\n]*\n[^\]]*\]\(", lambda link: link.group().replace("\n", " "), text)


def named_paths(text):
    """The paths below the package's own folder of documents that a text names."""
    return {path.rstrip(".") for path in re.findall(r"/usr/share/doc/quenby/[\w./-]+", text)}


class Contents(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.root = pathlib.Path(folder.name)
        subprocess.run(["dpkg-deb", "-x", PACKAGE, folder.name], check=True)
        cls.documents = cls.root / DOCUMENTS

    def files(self):
        return {str(path.relative_to(self.root)) for path in self.root.rglob("*")
                if not path.is_dir()}


class Documents(Contents):
    def test_links_lead_to_something(self):
        self.assertEqual(dead_links(self.documents), [])

    def test_most_links_are_kept(self):
        text = (self.documents / "README.md").read_text(encoding="utf-8")
        for target in ("operations.md", "design.md", "messages.md", "fits.md",
                       "examples/README.md", "operations.md#recovery"):
            self.assertIn(f"]({target})", text)
        self.assertIn("](../operations.md", (self.documents / "examples/README.md").read_text())

    def test_pictures_are_there(self):
        text = (self.documents / "README.md").read_text(encoding="utf-8")
        pictures = re.findall(r"!\[[^\]]*\]\(([^)]+)\)", text)
        self.assertEqual(sorted(pictures), ["pictures/packet-way.svg", "pictures/rates.svg", "pictures/top.svg"])
        for picture in pictures:
            self.assertEqual((self.documents / picture).read_bytes(),
                             (TREE / "docs" / picture).read_bytes())

    def test_each_document_of_the_tree_is_there(self):
        for path in [TREE / "README.md", TREE / "CHANGELOG.md", *(TREE / "docs").glob("*.md")]:
            self.assertTrue((self.documents / path.name).is_file(), path.name)

    def test_paths_in_texts_exist(self):
        texts = [path.read_text(encoding="utf-8") for path in self.documents.rglob("*.md")]
        texts += [gzip.open(path, "rt", encoding="utf-8").read()
                  for path in (self.root / "usr/share/man").rglob("*.gz")]
        texts.append((self.root / "usr/sbin/quenby-preflight").read_text(encoding="utf-8"))
        named = set().union(*map(named_paths, texts))
        self.assertIn("/usr/share/doc/quenby/operations.md", named)
        self.assertEqual([path for path in sorted(named) if not (self.root / path[1:]).exists()],
                         [])


class Walker(Contents):
    """Faults are found."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.copy = pathlib.Path(folder.name) / "doc"
        shutil.copytree(self.documents, self.copy)

    def faults(self):
        return " ".join(dead_links(self.copy))

    def test_a_picture_that_is_missing(self):
        (self.copy / "pictures/rates.svg").unlink()
        self.assertIn("link to pictures/rates.svg: no such file", self.faults())

    def test_a_document_that_is_compressed(self):
        (self.copy / "operations.md").rename(self.copy / "operations.md.gz")
        self.assertIn("link to operations.md#recovery: no such file", self.faults())

    def test_a_heading_that_is_missing(self):
        path = self.copy / "design.md"
        path.write_text(path.read_text(encoding="utf-8").replace("## Rates", "## Speeds"))
        self.assertIn("link to design.md#rates: no such heading", self.faults())

    def test_a_link_over_two_lines(self):
        (self.copy / "more.md").write_text("a [link\nto](none.md) b\n")
        self.assertEqual(dead_links(self.copy), ["more.md:1: link to none.md: no such file"])

    def test_a_link_out_of_the_folder(self):
        (self.copy / "more.md").write_text("[a](../CONTRIBUTING.md)\n")
        self.assertEqual(dead_links(self.copy),
                         ["more.md:1: link to ../CONTRIBUTING.md: no such file"])


class Places(Contents):
    def unit_folder(self):
        answer = subprocess.run(["pkg-config", "--variable=systemdsystemunitdir", "systemd"],
                                stdout=subprocess.PIPE, text=True, check=True).stdout
        return answer.strip().lstrip("/")

    def test_units(self):
        folder = self.unit_folder()
        for unit in (TREE / "platform/systemd").glob("quenby*.[st]*"):
            self.assertIn(f"{folder}/{unit.name}", self.files())
        for unit in ("quenby.service", "quenby-restore.service"):
            self.assertIn(f"{folder}/{unit}.d/sandbox.conf", self.files())

    def verified(self, root):
        """What systemd says about the package's units in a root folder with nothing but systemd."""
        system = pathlib.Path("/") / self.unit_folder()
        shutil.copytree(self.root, root, symlinks=True)
        shutil.copytree(system, root / self.unit_folder(), symlinks=True, dirs_exist_ok=True)
        for called in ("usr/bin/systemctl", "opt/ostrea/sbin/firewall.init"):
            (root / called).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy("/bin/true", root / called)
        units = ("quenby.service", "quenby-if@eth1.service", "quenby-check.service",
                 "quenby-check.timer", "quenby-restore.service", "quenby-follow@nftables.service",
                 "quenby-export.service", "quenby-export.timer")
        return subprocess.run(["systemd-analyze", "verify", "--man=no", f"--root={root}", *units],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True).stdout

    def test_units_are_understood(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertEqual(self.verified(pathlib.Path(folder) / "root"), "")

    def test_a_program_that_a_unit_lacks_is_seen(self):
        with tempfile.TemporaryDirectory() as folder:
            (self.root / "usr/libexec/quenby/shape").rename(self.root / "shape")
            self.addCleanup((self.root / "shape").rename, self.root / "usr/libexec/quenby/shape")
            self.assertIn("shape is not executable", self.verified(pathlib.Path(folder) / "root"))

    def test_units_outlast_the_wait_for_other_runs(self):
        folder = self.root / self.unit_folder()
        for unit, limit in (("quenby.service", "TimeoutStartSec"),
                            ("quenby.service", "TimeoutStopSec"),
                            ("quenby-restore.service", "TimeoutStartSec")):
            lines = (folder / unit).read_text(encoding="utf-8").splitlines()
            self.assertIn(f"{limit}=10min", lines, unit)

    def test_udev_rule(self):
        rules = [file for file in self.files() if file.endswith("/rules.d/90-quenby.rules")]
        self.assertIn(rules, (["lib/udev/rules.d/90-quenby.rules"],
                              ["usr/lib/udev/rules.d/90-quenby.rules"]))

    def test_nothing_else_is_below_lib(self):
        lib = {file for file in self.files() if file.startswith("lib/")}
        self.assertEqual({file for file in lib
                          if not file.startswith(("lib/systemd/system/", "lib/udev/rules.d/"))},
                         set())
        if self.unit_folder().startswith("usr/"):
            self.assertEqual(lib, set())

    def test_the_platforms_paths_are_no_files_of_the_package(self):
        self.assertEqual([file for file in self.files()
                          if file.startswith("opt/") or file == "usr/sbin/kavo-hal"], [])
        for name in ("firewall.init", "kavo-hal"):
            self.assertEqual((self.root / "usr/libexec/quenby" / name).read_bytes(),
                             (TREE / "platform" / name).read_bytes())


class Control(unittest.TestCase):
    def field(self, name):
        return subprocess.run(["dpkg-deb", "-f", PACKAGE, name], stdout=subprocess.PIPE, text=True,
                              check=True).stdout.strip()

    def test_homepage(self):
        self.assertRegex(self.field("Homepage"), r"^https://[\w.-]+/")

    def test_libraries_are_those_that_it_was_linked_with(self):
        source = (TREE / "debian/control").read_text(encoding="utf-8")
        self.assertIn("${shlibs:Depends}", source)
        binary = source.split("\nPackage: ")[1]
        self.assertEqual(re.findall(r"\blib[\w.+-]*\d[\w.+-]*", binary), [])
        # Packages of headers have no version in their names, but for those of libnl 3
        # and CLI11.
        needed = source.split("Build-Depends:")[1].split("\n\n")[0]
        self.assertEqual(re.findall(r"\blib(?!nl-|cli11-)[a-z+-]*\d[\w.+-]*", needed), [])
        self.assertRegex(self.field("Depends"), r"libnl-3-200.*, ")
        self.assertIn("libboost-filesystem", self.field("Depends"))


if __name__ == "__main__":
    PACKAGE, = map(str, pathlib.Path(sys.argv.pop(1)).glob("quenby_*.deb"))
    unittest.main()
