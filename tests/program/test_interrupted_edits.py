"""Edits that end before they are done: what has happened until then, what the files hold, and that
a reload puts everything right."""

import quenby_program as q
from test_edit_commands import GLOBAL, GOLD, IRON, TIN


class Interrupted(q.ProgramTest):
    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        self.load(GLOBAL, GOLD + IRON)

    def ends(self, message, *arguments):
        """The run ends with this message and leaves the files as they were."""
        files = q.files_state()
        self.fails(message, *arguments)
        self.assertEqual(files, q.files_state())

    def has_class(self, device, number):
        return number in q.class_numbers(device)


class Order(Interrupted):
    """Without the address set the first message about what leaves it ends the run."""

    def setUp(self):
        super().setUp()
        q.command("ipset", "destroy", "kavo_opt_shaper")
        self.before = q.kernel_state()

    def test_addresses_leave_before_their_classes(self):
        self.ends("failed to del ipset ip ack(Object not found)", "--tariff-del", "iron")
        self.assertEqual(self.before, q.kernel_state())

    def test_addresses_of_a_changed_tariff_leave_before_its_class(self):
        self.ends("failed to del ipset ip ack(Object not found)", "--tariff-update",
                  q.given(IRON.replace("1000", "1500")))
        self.assertEqual(self.before, q.kernel_state())

    def test_a_set_that_nothing_leaves_is_made_again(self):
        self.succeeds("--tariff-add", q.given(TIN))
        self.assertEqual(3, len(q.set_entries()))

    def test_addresses_of_the_last_tariff_leave_before_the_line_is_built(self):
        self.ends("failed to del ipset ip ack(Object not found)", "--update", q.given(""))
        self.assertEqual(self.before, q.kernel_state())


class FullSet(Interrupted):
    """There is no room for another address."""

    def setUp(self):
        super().setUp()
        entries = q.set_entries()
        q.command("ipset", "destroy", "kavo_opt_shaper")
        q.command("ipset", "create", "kavo_opt_shaper", "hash:ip", "skbinfo", "maxelem",
                  str(len(entries)))
        for entry in entries:
            q.command("ipset", *entry.split())

    def test_addresses_come_after_their_classes(self):
        self.ends("failed to add ipset ip ack(Unspecific failure)", "--tariff-add", q.given(TIN))
        self.assertTrue(self.has_class("eth1", 6) and self.has_class("ifb_ingr", 6))


class BusyClass(Interrupted):
    """A filter of somebody else keeps iron's class from being deleted."""

    def make_busy(self, device):
        q.command("tc", "filter", "add", "dev", device, "parent", "8000:", "protocol", "ip",
                  "prio", "5", "u32", "match", "u32", "0", "0", "flowid", "8000:5")

    def test_upload_is_changed_before_the_download(self):
        self.make_busy("ifb_ingr")
        self.ends("ifb_ingr failed to delete 5 cls(Object busy)", "--tariff-del", "iron")
        self.assertFalse(self.has_class("eth1", 5))
        self.assertTrue(self.has_class("ifb_ingr", 5))

    def test_download_is_left_alone_when_the_upload_fails(self):
        self.make_busy("eth1")
        self.ends("eth1 failed to delete 5 cls(Object busy)", "--tariff-update",
                  q.given(IRON.replace("1000", "1500")))
        self.assertTrue(self.has_class("eth1", 5) and self.has_class("ifb_ingr", 5))

    def test_reload_puts_everything_right(self):
        before = q.kernel_state()
        self.make_busy("ifb_ingr")
        self.ends("ifb_ingr failed to delete 5 cls(Object busy)", "--tariff-del", "iron")
        self.assertEqual(1, len(q.set_entries()))
        self.succeeds("--reload")
        after = q.kernel_state()
        # The new ifb device has another index and link number.
        del before["links"], after["links"]
        self.assertEqual(before, after)


class FailingFirewall(Interrupted):
    """A list of commands that fails ends the run without a word of the program's own."""

    HUGE = TIN.replace("1000", "9000")

    def ends_silently(self, *arguments):
        files = q.files_state()
        self.assertEqual(q.Result(1, "", ""), q.run(*arguments, sudo_fails="*"))
        self.assertEqual(files, q.files_state())

    def test_oversubscribing(self):
        self.ends_silently("--tariff-add", q.given(self.HUGE))

    def test_last_tariff(self):
        self.succeeds("--tariff-del", "iron")
        self.ends_silently("--tariff-del", "gold")
        self.assertEqual([], q.set_entries())

    def test_teardown_before_an_edit(self):
        kernel = q.kernel_state()
        for arguments in (("--tariffs-del",), ("--global-del",), ("--reload",),
                          ("--global-update", q.given(GLOBAL))):
            with self.subTest(arguments[0]):
                self.ends_silently(*arguments)
                self.assertEqual(kernel, q.kernel_state())

    def test_changes_in_place_ask_no_firewall(self):
        for arguments in (("--tariff-add", q.given(TIN)), ("--tariff-del", "iron")):
            self.succeeds(*arguments, sudo_fails="*")


class NumbersRunOut(q.ProgramTest):
    """There are 15996 numbers, 4 to 15999."""

    NAMES = ["[t%05d]\n" % number for number in range(15997)]

    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        q.store(GLOBAL)
        self.addCleanup(self.kernel_is, q.kernel_state())

    def kernel_is(self, before):
        self.assertEqual(before, q.kernel_state())

    def refused(self, message, *arguments):
        files = q.files_state()
        self.fails(message, *arguments)
        self.assertEqual([], q.shell_texts())
        self.assertEqual(files, q.files_state())

    def test_stored_tariffs_that_cannot_be_numbered_again(self):
        numbers = ["id=1\n"] + ["id=7\n"] * 15996
        q.store(tariff_text="".join(map("".join, zip(self.NAMES, numbers))))
        for arguments in (("--load",), ("--reload",), ("--tariff-add", q.given(TIN)),
                          ("--restore-if-cfg", "--if-name", "eth1")):
            with self.subTest(arguments[0]):
                self.refused("wrong tariff configuration", *arguments)
        self.refused("wrong tariff configuration", "--update", q.given("[t00000]\n"))

    def test_given_tariffs_that_cannot_be_numbered(self):
        path = q.given("".join(self.NAMES))
        self.refused("wrong new tariff configuration", "--update", path)
        self.refused("wrong tariff configuration: already exists", "--tariff-add", path)
