"""Every text that the other commands give to the shell, from one known start."""

import quenby_program as q
from test_clear_commands import BOARD_QUERY, TEARDOWN
from test_create_commands import (IMQ_RULES, MARKING, REDIRECT, REDIRECT_WITHOUT_MARKS, REMOVAL,
                                  SFP_QUERY, TRACK)

GLOBAL = "[global]\nwan=eth1\nenabled=true\ndownload_speed=10000\nupload_speed=5000\n"
GOLD = "[gold]\nid=4\nip=10.0.0.1\ndownload_speed=2000\nupload_speed=1000\n"
IRON = "[iron]\nid=5\nip=10.0.0.2\ndownload_speed=1000\nupload_speed=500\n"
TIN = "[tin]\nip=10.0.0.3\ndownload_speed=1000\nupload_speed=500\n"

CLEARED = [TEARDOWN, BOARD_QUERY]
RULES = TRACK + ";" + MARKING
BUILT = [SFP_QUERY, REMOVAL, BOARD_QUERY, REDIRECT, RULES]
BUILT_WITHOUT_TARIFFS = [SFP_QUERY, REMOVAL, BOARD_QUERY, REDIRECT_WITHOUT_MARKS, RULES]


class EditTexts(q.ProgramTest):
    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        self.load(GLOBAL, GOLD + IRON)

    def texts_of(self, *arguments):
        self.succeeds(*arguments)
        return q.shell_texts()

    def test_changes_in_place_leave_the_firewall_alone(self):
        self.assertEqual([SFP_QUERY], self.texts_of("--tariff-add", q.given(TIN)))
        self.assertEqual([SFP_QUERY], self.texts_of("--tariff-del", "iron"))
        changed = q.given(GOLD.replace("2000", "3000"))
        self.assertEqual([SFP_QUERY, "sync"], self.texts_of("--tariff-update", changed))
        self.assertEqual([SFP_QUERY, "sync"], self.texts_of("--update", changed))

    def test_equal_tariffs_are_compared_and_saved(self):
        kernel = q.kernel_state()
        self.assertEqual([SFP_QUERY, "sync"], self.texts_of("--update", q.given(IRON + GOLD)))
        self.assertEqual(GOLD + IRON, q.TARIFF_FILE.read_text())
        # What is given goes to the end of the file.
        self.assertEqual([SFP_QUERY, "sync"], self.texts_of("--tariff-update", q.given(GOLD)))
        self.assertEqual(IRON + GOLD, q.TARIFF_FILE.read_text())
        self.assertEqual(kernel, q.kernel_state())

    def test_no_tariffs_given(self):
        kernel = q.kernel_state()
        self.assertEqual([SFP_QUERY], self.texts_of("--tariff-add", q.given("")))
        self.assertEqual([SFP_QUERY, "sync"], self.texts_of("--tariff-update", q.given("")))
        self.assertEqual(GOLD + IRON, q.TARIFF_FILE.read_text())
        self.assertEqual(kernel, q.kernel_state())

    def test_last_and_first_tariff(self):
        self.texts_of("--tariff-del", "iron")
        self.assertEqual([SFP_QUERY, REDIRECT_WITHOUT_MARKS, REMOVAL, RULES],
                         self.texts_of("--tariff-del", "gold"))
        self.assertEqual(CLEARED + BUILT + ["sync"],
                         self.texts_of("--tariff-add", q.given(TIN)))

    def test_oversubscribing_builds_everything(self):
        self.assertEqual([SFP_QUERY] + BUILT,
                         self.texts_of("--tariff-add", q.given(TIN.replace("1000", "9000"))))

    def test_all_tariffs_at_once(self):
        self.assertEqual(CLEARED + BUILT_WITHOUT_TARIFFS, self.texts_of("--tariffs-del"))

    def test_reload_and_restore(self):
        self.assertEqual(CLEARED + BUILT + ["sync"], self.texts_of("--reload"))
        self.assertEqual(CLEARED + BUILT + ["sync"],
                         self.texts_of("--restore-if-cfg", "--if-name", "eth1"))

    def test_global_file(self):
        self.assertEqual(CLEARED + BUILT + ["sync"],
                         self.texts_of("--global-update", q.given(GLOBAL)))
        disabled = q.given(GLOBAL.replace("true", "false"))
        self.assertEqual(CLEARED + ["sync"], self.texts_of("--global-update", disabled))
        self.assertEqual([], self.texts_of("--tariff-del", "iron"))

    def test_no_global_file(self):
        q.make_link("imq0", "ifb")
        self.assertEqual(CLEARED + ["/usr/sbin/kavo-hal isSfpPlus  2>&1", REMOVAL, IMQ_RULES],
                         self.texts_of("--global-del"))
        self.assertFalse(q.GLOBAL_FILE.exists())
        self.assertEqual(GOLD + IRON, q.TARIFF_FILE.read_text())

    def test_statistics_ask_the_shell_nothing(self):
        self.assertEqual(0, q.run("--stat").status)
        self.assertEqual([], q.shell_texts())

    def test_several_in_one_run_with_the_deferred_ones_last(self):
        result = q.run("--stat", "--restore-if-cfg", "--tariff-add", q.given(TIN),
                       "--tariff-del", "iron", "--if-name", "eth1")
        self.assertEqual((0, ""), (result.status, result.err))
        self.assertEqual([SFP_QUERY, SFP_QUERY] + CLEARED + BUILT + ["sync"], q.shell_texts())
        # The statistics came before the restore, which numbers again and counts from nothing.
        names = [line.split(",")[0] for line in result.out.splitlines()]
        self.assertEqual(["upload gold", "upload tin"],
                         sorted(name for name in names if name in
                                ("upload gold", "upload iron", "upload tin")))
        self.assertEqual(GOLD + TIN.replace("[tin]\n", "[tin]\nid=5\n"), q.TARIFF_FILE.read_text())
