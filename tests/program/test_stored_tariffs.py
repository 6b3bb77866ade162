"""Stored tariffs that somebody wrote by hand: one number twice, one name twice, values that a save
would change or that no save can write."""

import quenby_program as q
from test_edit_commands import GLOBAL, GOLD, IRON, TIN
from test_edit_cases import DISABLED, numbered

TWIN = "[gold]\nid=6\nip=10.0.0.4\ndownload_speed=3000\nupload_speed=1000\n"


class StoredTariffs(q.ProgramTest):
    def setUp(self):
        super().setUp()
        q.make_link("eth1")
        q.make_set()

    def stored(self, text):
        self.assertEqual(text, q.TARIFF_FILE.read_text())

    def as_after_a_load(self):
        """The kernel holds what building from the saved files gives."""
        held, files = q.kernel_state(), q.files_state()
        self.succeeds("--stop", "--load")
        self.assertEqual(files, q.files_state())
        built = q.kernel_state()
        # The new ifb device has another index and link number.
        del held["links"], built["links"]
        self.assertEqual(built, held)


class NumberTwice(StoredTariffs):
    """Gold and iron have the number 4. Nobody's class goes with somebody else's tariff."""

    FILE = IRON.replace("id=5", "id=4") + GOLD + numbered(TIN, 5)

    def setUp(self):
        super().setUp()
        self.load(GLOBAL, GOLD + IRON + numbered(TIN, 6))
        q.store(tariff_text=self.FILE)

    def check(self, text, *arguments, **numbers):
        self.succeeds(*arguments)
        self.stored(text)
        self.addresses(**numbers)
        self.as_after_a_load()

    def test_load(self):
        self.check(GOLD + IRON + numbered(TIN, 6), "--load", x1=4, x2=5, x3=6)

    def test_delete(self):
        self.check(IRON.replace("id=5", "id=4") + numbered(TIN, 5), "--tariff-del", "gold",
                   x2=4, x3=5)

    def test_change(self):
        changed = GOLD.replace("2000", "3000")
        self.check(changed + IRON + numbered(TIN, 6), "--tariff-update", q.given(changed),
                   x1=4, x2=5, x3=6)

    def test_add(self):
        zinc = "[zinc]\nip=10.0.0.5\ndownload_speed=1000\nupload_speed=500\n"
        self.check(GOLD + IRON + numbered(TIN, 6) + numbered(zinc, 7), "--tariff-add",
                   q.given(zinc), x1=4, x2=5, x3=6, x5=7)

    def test_replace(self):
        self.check(IRON.replace("id=5", "id=4") + numbered(TIN, 5), "--update",
                   q.given(TIN + IRON), x2=4, x3=5)

    def test_global_file(self):
        self.check(GOLD + IRON + numbered(TIN, 6), "--global-update", q.given(GLOBAL),
                   x1=4, x2=5, x3=6)

    def test_delete_the_only_one_whose_number_is_reserved(self):
        q.store(tariff_text=numbered(GOLD, 3))
        self.succeeds("--tariff-del", "gold")
        self.assertFalse(q.TARIFF_FILE.exists())
        self.addresses()

    def test_disabled_edits_touch_the_text_alone(self):
        q.store(DISABLED)
        kernel = q.kernel_state()
        self.succeeds("--tariff-del", "gold")
        self.stored(IRON.replace("id=5", "id=4") + numbered(TIN, 5))
        self.assertEqual(kernel, q.kernel_state())

    def test_what_is_not_stored(self):
        files, kernel = q.files_state(), q.kernel_state()
        self.fails("tariff does not exist", "--tariff-del", "zinc")
        self.fails("wrong new tariff configuration", "--tariff-update", q.given("[zinc]\n"))
        self.fails("wrong tariff configuration: already exists", "--tariff-add", q.given(TIN))
        self.assertEqual((files, kernel), (q.files_state(), q.kernel_state()))


class NameTwice(StoredTariffs):
    """Two sections of one name, each with a number of its own, are two classes."""

    def setUp(self):
        super().setUp()
        self.load(GLOBAL, GOLD + IRON + TWIN)
        self.stored(GOLD + IRON + TWIN)
        self.addresses(x1=4, x2=5, x4=6)

    def leaves(self, text, numbers, *arguments, **addresses):
        self.succeeds(*arguments)
        self.stored(text)
        self.addresses(**addresses)
        self.as_after_a_load()
        for device in ("eth1", "ifb_ingr"):
            self.assertEqual(numbers, q.class_numbers(device) & {4, 5, 6})

    def test_delete(self):
        self.leaves(IRON, {5}, "--tariff-del", "gold", x2=5)

    def test_delete_with_nobody_else(self):
        self.succeeds("--tariff-del", "iron")
        self.succeeds("--tariff-del", "gold")
        self.assertFalse(q.TARIFF_FILE.exists())
        self.addresses()

    def one_gold(self, text):
        """One section is left, with either number."""
        number = 4 if "[gold]\nid=4\n" in q.TARIFF_FILE.read_text() else 6
        return numbered(text, number), {number, 5}, number

    def replaced_by_one(self, *arguments, first):
        self.succeeds(*arguments)
        one, numbers, number = self.one_gold(GOLD)
        self.stored(one + IRON if first else IRON + one)
        self.addresses(x1=number, x2=5)
        for device in ("eth1", "ifb_ingr"):
            self.assertEqual(numbers, q.class_numbers(device) & {4, 5, 6})
        self.as_after_a_load()

    def test_change(self):
        self.replaced_by_one("--tariff-update", q.given(GOLD), first=False)

    def test_replace(self):
        self.replaced_by_one("--update", q.given(GOLD + IRON), first=True)

    def test_replace_by_others(self):
        self.leaves(IRON, {5}, "--update", q.given(IRON), x2=5)

    def test_file_of_an_option(self):
        self.fails("wrong new tariff configuration", "--tariff-update", q.given(GOLD + TWIN))
        self.fails("wrong tariff configuration", "--update", q.given(GOLD + TWIN))
        self.fails("wrong tariff configuration", "--tariff-add", q.given(TIN + TIN))


class Unstorable(StoredTariffs):
    """A burst size that would be written as a negative number."""

    HUGE = GOLD.replace("upload", "download_burst_size=3000000000\nupload")

    def refused(self, *arguments):
        files, kernel = q.files_state(), q.kernel_state()
        self.fails("wrong current tariff configuration", *arguments)
        self.assertEqual([], q.shell_texts())
        self.assertEqual((files, kernel), (q.files_state(), q.kernel_state()))

    def test_saves_of_the_whole_list(self):
        self.load(GLOBAL, GOLD + IRON)
        q.store(tariff_text=self.HUGE + IRON)
        self.refused("--reload")
        self.refused("--restore-if-cfg", "--if-name", "eth1")
        q.store(DISABLED)
        self.refused("--tariff-add", q.given(TIN))
        q.store(GLOBAL, self.HUGE + numbered(IRON, 4))
        self.refused("--load")
        self.refused("--tariff-add", q.given(TIN))
        self.refused("--tariff-del", "iron")
        self.refused("--tariff-update", q.given(IRON))
        self.refused("--global-update", q.given(GLOBAL))
        self.refused("--global-del")

    def test_what_does_not_write_it(self):
        self.load(GLOBAL, self.HUGE + IRON)
        self.succeeds("--tariff-add", q.given(TIN))
        self.stored(self.HUGE + IRON + numbered(TIN, 6))
        self.succeeds("--tariff-update", q.given(IRON))
        self.stored(self.HUGE + numbered(TIN, 6) + IRON)
        self.succeeds("--tariff-del", "iron")
        self.stored(self.HUGE + numbered(TIN, 6))
        self.assertEqual(0, q.run("--stat").status)
        self.succeeds("--global-update", q.given(GLOBAL))
        self.succeeds("--stop")
        self.stored(self.HUGE + numbered(TIN, 6))

    def test_ways_out(self):
        for arguments in (("--tariff-update", q.given(GOLD)), ("--tariff-del", "gold"),
                          ("--tariffs-del",)):
            q.store(GLOBAL, self.HUGE + IRON)
            self.succeeds("--load", *arguments, "--reload")
        q.store(GLOBAL, self.HUGE + IRON)
        self.succeeds("--update", q.given(GOLD + IRON))
        self.stored(GOLD + IRON)


class Rounding(StoredTariffs):
    """A save of the whole list gives the kernel what a later run reads."""

    BEFORE = ("[b]\nid=%d\nip=10.0.0.1/24\naggregation=5\naggregation=0\n"
              "download_speed=1000.9\nupload_speed=1.5\ndownload_burst_rate=2000.9\n"
              "download_burst_size=40000.9\nupload_burst_rate=-1\nupload_burst_size=5000000000\n"
              "[a]\nid=%d\nip=10.0.0.2\nupload_speed=700.7\nqueuing_discipline=SFQ\n"
              "download_burst_size=1e300\n")
    AFTER = ("[a]\nid=4\nip=10.0.0.2\ndownload_speed=0\nupload_speed=700\n"
             "[b]\nid=5\nip=10.0.0.1/24\naggregation=0\ndownload_speed=1000\n"
             "download_burst_rate=2000\ndownload_burst_size=40000\nupload_speed=1\n"
             "upload_burst_size=705032704\n")

    def rounds(self, numbers, *arguments):
        q.store(GLOBAL, self.BEFORE % numbers)
        self.succeeds(*arguments)
        self.stored(self.AFTER)
        self.addresses(x1=5, x2=4)
        self.as_after_a_load()

    def test_reload(self):
        self.rounds((4, 5), "--reload")

    def test_restore(self):
        self.rounds((4, 5), "--restore-if-cfg", "--if-name", "eth1")

    def test_load_that_numbers_again(self):
        for numbers in ((3, 5), (9, 9), (4, 15001)):
            with self.subTest(numbers):
                self.rounds(numbers, "--load")

    def test_load_that_does_not_leaves_the_text(self):
        q.store(GLOBAL, self.BEFORE % (4, 5))
        self.succeeds("--load")
        self.stored(self.BEFORE % (4, 5))
        self.as_after_a_load()

    def test_edits(self):
        self.load(GLOBAL, GOLD)
        self.succeeds("--tariff-add", q.given(self.BEFORE % (7, 8)))
        self.stored(GOLD + self.AFTER.replace("id=5", "id=6").replace("id=4", "id=5"))
        self.as_after_a_load()
        self.succeeds("--update", q.given(self.BEFORE % (7, 8)))
        self.stored(self.AFTER.replace("id=5", "id=6").replace("id=4", "id=5"))
        self.as_after_a_load()
        self.succeeds("--tariff-update", q.given(self.BEFORE % (7, 8)))
        self.as_after_a_load()
