"""Edits of a configuration that is not an ordinary running one: class numbers that do not fit, no
tariffs yet, shaping disabled, no global section, another WAN device."""

import quenby_program as q
from test_clear_commands import BOARD_QUERY, TEARDOWN
from test_create_commands import IMQ_RULES, REMOVAL, SFP_QUERY
from test_edit_commands import (BUILT, BUILT_WITHOUT_TARIFFS, CLEARED, GLOBAL, GOLD, IRON, TIN)

DISABLED = GLOBAL.replace("true", "false")
IMQ_QUERY = "/usr/sbin/kavo-hal isSfpPlus  2>&1"


def numbered(tariff, number):
    """A tariff's section as it is stored."""
    lines = [line for line in tariff.splitlines(True) if not line.startswith("id=")]
    return "".join([lines[0], "id=%d\n" % number, *lines[1:]])


class EditCase(q.ProgramTest):
    def operates(self, texts, *arguments):
        """Succeeds and gives these texts to the shell."""
        self.succeeds(*arguments)
        self.assertEqual(texts, q.shell_texts())

    def stored(self, text):
        self.assertEqual(text, q.TARIFF_FILE.read_text())


class WithWan(EditCase):
    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        q.make_set()


class NumbersThatDoNotFit(WithWan):
    """Everything is numbered again, in the order of names, and built again."""

    def setUp(self):
        super().setUp()
        q.store(GLOBAL, IRON + numbered(GOLD, 3))

    def test_replacing_the_list(self):
        self.operates(CLEARED + BUILT + ["sync"], "--update", q.given(TIN + GOLD))
        self.stored(GOLD + numbered(TIN, 5))
        self.addresses(x1=4, x3=5)

    def test_replacing_the_list_by_itself(self):
        self.operates(CLEARED + BUILT + ["sync"], "--update", q.given(GOLD + IRON))
        self.stored(GOLD + IRON)
        self.addresses(x1=4, x2=5)

    def test_adding(self):
        self.operates(CLEARED + BUILT + ["sync"], "--tariff-add", q.given(TIN))
        self.stored(GOLD + IRON + numbered(TIN, 6))
        self.addresses(x1=4, x2=5, x3=6)

    def test_a_number_beyond_the_limit(self):
        q.store(GLOBAL, GOLD + numbered(IRON, 15001))
        self.operates(CLEARED + BUILT + ["sync"], "--tariff-add", q.given(TIN))
        self.stored(GOLD + IRON + numbered(TIN, 6))

    def test_adding_what_is_stored_changes_nothing(self):
        files, kernel = q.files_state(), q.kernel_state()
        self.fails("wrong tariff configuration: already exists", "--tariff-add",
                   q.given(TIN + GOLD))
        self.assertEqual([], q.shell_texts())
        self.assertEqual((files, kernel), (q.files_state(), q.kernel_state()))


class WithoutHardwareTool(WithWan):
    def test_the_board_is_not_asked(self):
        q.HARDWARE_TOOL.unlink()
        q.store(GLOBAL, GOLD)
        self.operates([text for text in BUILT if text != BOARD_QUERY], "--load")
        self.operates([TEARDOWN], "--stop")


class NoTariffsYet(WithWan):
    def test_replacing_the_list(self):
        q.store(GLOBAL)
        self.operates(CLEARED + BUILT + ["sync"], "--update", q.given(TIN + IRON))
        self.stored(numbered(IRON, 4) + numbered(TIN, 5))
        self.addresses(x2=4, x3=5)

    def test_replacing_the_list_by_nothing(self):
        q.store(GLOBAL)
        self.operates(CLEARED + BUILT_WITHOUT_TARIFFS, "--update", q.given(""))
        self.assertFalse(q.TARIFF_FILE.exists())

    def test_replacing_the_list_of_a_disabled_configuration(self):
        q.store(DISABLED)
        kernel = q.kernel_state()
        self.operates(CLEARED + ["sync"], "--update", q.given(TIN))
        self.stored(numbered(TIN, 4))
        self.assertEqual(kernel, q.kernel_state())

    def test_first_tariffs_are_built_even_when_shaping_is_disabled(self):
        q.store(DISABLED)
        self.operates(CLEARED + BUILT + ["sync"], "--tariff-add", q.given(TIN))
        self.stored(numbered(TIN, 4))
        self.addresses(x3=4)

    def test_reload_without_files(self):
        self.operates([TEARDOWN], "--reload")
        self.assertEqual({}, q.files_state())

    def test_reload_without_tariffs(self):
        q.store(GLOBAL)
        self.operates(CLEARED + BUILT_WITHOUT_TARIFFS, "--reload")
        self.assertFalse(q.TARIFF_FILE.exists())

    def test_deleting_the_global_file_ends_after_the_teardown(self):
        q.store(GLOBAL)
        self.operates(CLEARED, "--global-del")
        self.assertEqual(["/config/tc"], list(q.files_state()))
        self.assertNotIn("imq0", q.command("ip", "-o", "link"))

    def test_nothing_to_change_or_delete(self):
        q.store(GLOBAL)
        files, kernel = q.files_state(), q.kernel_state()
        self.fails("wrong new tariff configuration", "--tariff-update", q.given(TIN))
        self.fails("tariff does not exist", "--tariff-del", "tin")
        self.assertEqual((files, kernel), (q.files_state(), q.kernel_state()))


class ShapingDisabled(WithWan):
    """Edits change the file alone."""

    def setUp(self):
        super().setUp()
        q.store(DISABLED, GOLD + IRON)
        self.addCleanup(self.kernel_is, q.kernel_state())

    def kernel_is(self, before):
        self.assertEqual(before, q.kernel_state())

    def test_add(self):
        self.operates(["sync"], "--tariff-add", q.given(TIN))
        self.stored(GOLD + IRON + numbered(TIN, 6))

    def test_delete(self):
        self.operates([], "--tariff-del", "gold")
        self.stored(IRON)
        self.operates([], "--tariff-del", "iron")
        self.assertFalse(q.TARIFF_FILE.exists())

    def test_change(self):
        self.operates(["sync"], "--tariff-update", q.given(GOLD.replace("2000", "3000")))
        self.stored(IRON + GOLD.replace("2000", "3000"))

    def test_replacing_the_list(self):
        self.operates(["sync"], "--update", q.given(TIN + GOLD))
        self.stored(GOLD + numbered(TIN, 6))

    def test_delete_all(self):
        self.operates(CLEARED, "--tariffs-del")
        self.assertFalse(q.TARIFF_FILE.exists())

    def test_reload_numbers_again(self):
        q.store(tariff_text=IRON + numbered(GOLD, 9))
        self.operates(CLEARED + ["sync"], "--reload")
        self.stored(GOLD + IRON)

    def test_refusals(self):
        files = q.files_state()
        self.fails("wrong tariff configuration: already exists", "--tariff-add", q.given(GOLD))
        self.fails("wrong new tariff configuration", "--tariff-update", q.given(TIN))
        self.fails("tariff does not exist", "--tariff-del", "tin")
        self.assertEqual(files, q.files_state())


class WithoutWan(EditCase):
    """On the IMQ device, for which an ifb device stands in. There is no address set, so that any
    message about one would end the run."""

    def setUp(self):
        super().setUp()
        q.make_link("imq0", "ifb")

    def unshaped(self):
        self.assertNotIn("htb", q.command("tc", "qdisc", "show"))

    def test_last_tariff_without_a_global_section(self):
        self.load(None, GOLD)
        self.operates([IMQ_QUERY, TEARDOWN], "--tariff-del", "gold")
        self.unshaped()
        self.assertFalse(q.TARIFF_FILE.exists())

    def test_all_tariffs_without_a_global_section(self):
        self.load(None, GOLD + IRON)
        self.operates([TEARDOWN], "--tariffs-del")
        self.unshaped()

    def test_all_tariffs_with_a_default_section(self):
        self.load("[defaultqosipqueue]\ndownload_speed=800\nupload_speed=400\n", GOLD)
        self.operates([TEARDOWN, IMQ_QUERY, REMOVAL, IMQ_RULES], "--tariffs-del")
        self.assertIn("htb", q.command("tc", "qdisc", "show", "dev", "imq0"))

    def test_changes_in_place_need_no_address_set(self):
        self.load(GLOBAL.replace("wan=eth1\n", ""), GOLD + IRON)
        self.operates([IMQ_QUERY], "--tariff-add", q.given(TIN))
        changed = numbered(TIN, 6).replace("10.0.0.3", "10.0.0.9")
        self.operates([IMQ_QUERY, "sync"], "--tariff-update", q.given(changed))
        self.operates([IMQ_QUERY], "--tariff-del", "iron")
        self.operates([IMQ_QUERY, "sync"], "--update", q.given(changed))
        self.stored(changed)
        self.assertEqual("", q.command("ipset", "save"))


class GlobalFile(WithWan):
    def setUp(self):
        super().setUp()
        q.make_link("eth2")
        self.load(GLOBAL, GOLD)

    def test_another_wan_device(self):
        moved = GLOBAL.replace("eth1", "eth2")
        self.operates(CLEARED + [text.replace("eth1", "eth2") for text in BUILT] + ["sync"],
                      "--global-update", q.given(moved))
        self.assertNotIn("htb", q.command("tc", "qdisc", "show", "dev", "eth1"))
        self.assertIn("htb 8000:", q.command("tc", "qdisc", "show", "dev", "eth2"))
        self.addresses(x1=4)

    def test_stored_file_that_cannot_be_read_is_not_replaced(self):
        q.store("hello\n")
        files, kernel = q.files_state(), q.kernel_state()
        self.fails("wrong global configuration", "--global-update", q.given(GLOBAL))
        self.assertEqual([], q.shell_texts())
        self.assertEqual((files, kernel), (q.files_state(), q.kernel_state()))

    def test_tariff_file_given_as_a_global_file(self):
        files, kernel = q.files_state(), q.kernel_state()
        self.fails("wrong new global configuration", "--global-update", q.given(GOLD))
        self.assertEqual((files, kernel), (q.files_state(), q.kernel_state()))

    def test_empty_file_with_tariffs_moves_them_to_the_imq_device(self):
        q.make_link("imq0", "ifb")
        self.operates(CLEARED + [IMQ_QUERY, REMOVAL, IMQ_RULES, "sync"], "--global-update",
                      q.given(""))
        self.assertEqual("[global]\nenabled=true\n", q.GLOBAL_FILE.read_text())
