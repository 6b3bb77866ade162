"""examples/billing.py: what it makes of a list, and what it refuses.

Call: python3 -B tests/examples/billing_test.py
"""

import contextlib
import io
import pathlib
import sqlite3
import subprocess
import sys
import tempfile
import unittest

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"
sys.path.insert(0, str(EXAMPLES))
import billing  # noqa: E402

HEAD = "name,ip,download_speed,upload_speed,aggregation,queuing_discipline\n"
OLD = "[old]\nip=10.9.9.9\ndownload_speed=1\nupload_speed=1\n"


class Billing(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.output = self.folder / "tariffs.ini"
        self.output.write_text(OLD)

    def call(self, *arguments):
        """Exit status and what stands on standard error; standard output stays empty."""
        output, errors = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(errors):
            status = billing.main([str(argument) for argument in arguments])
        self.assertEqual(output.getvalue(), "")
        return status, errors.getvalue()

    def call_csv(self, content, *options, before=()):
        source = self.folder / "list.csv"
        source.write_bytes(content if isinstance(content, bytes) else content.encode())
        return self.call(*before, self.output, "csv", source, *options)

    def makes(self, content, expected, *options, **others):
        self.assertEqual(self.call_csv(content, *options, **others), (0, ""))
        self.assertEqual(self.output.read_text(), expected)

    def refuses(self, content, *messages, **others):
        """One line for each fault; the output keeps what it had."""
        status, errors = self.call_csv(content, **others)
        lines = errors.splitlines()
        self.assertEqual(status, 1)
        self.assertEqual(len(lines), len(messages), errors)
        for line, message in zip(lines, messages):
            self.assertTrue(line.startswith(f"Error: {self.folder / 'list.csv'}: "), line)
            self.assertIn(message, line)
        self.assertEqual(self.output.read_text(), OLD)
        self.assertEqual(list(self.folder.glob("tariffs.ini?*")), [])

    def refuses_row(self, row, message):
        self.refuses(HEAD + row + "\n", "line 2: " + message)


class Accepted(Billing):
    def test_every_key_in_the_order_of_the_names(self):
        self.makes(HEAD + "b,10.0.0.2,5000,3000,2.5,fq_codel\na,10.0.0.1,100,0,,\n",
                   "[a]\nip=10.0.0.1\ndownload_speed=100\nupload_speed=0\n"
                   "[b]\nip=10.0.0.2\ndownload_speed=5000\nupload_speed=3000\n"
                   "aggregation=2.5\nqueuing_discipline=fq_codel\n")

    def test_prefixes(self):
        self.makes("name,ip,ip6,download_speed,upload_speed\n"
                   "a,10.0.0.2 10.0.0.1,2001:DB8:0:1200::/56 2001:db8::7/128,1,1\n"
                   "a,10.0.0.3,,1,1\nb,,2001:db8:0:1201::/64,1,1\n",
                   "[a]\nip=10.0.0.2\nip=10.0.0.1\nip=10.0.0.3\nip6=2001:db8:0:1200::/56\n"
                   "ip6=2001:db8::7\ndownload_speed=1\nupload_speed=1\n"
                   "[b]\nip6=2001:db8:0:1201::/64\ndownload_speed=1\nupload_speed=1\n")

    def test_optional_columns_may_be_missing_and_any_order_will_do(self):
        self.makes("upload_speed,download_speed,ip,name\n1,2,10.0.0.1,x\n",
                   "[x]\nip=10.0.0.1\ndownload_speed=2\nupload_speed=1\n")

    def test_rows_of_one_name_are_one_tariff(self):
        self.makes(HEAD + "a,10.0.0.1 10.0.0.2/32,1,1,,\nb,10.0.0.9,1,1,,\n"
                   "a,10.0.0.3 10.0.0.1,1,1,,\n",
                   "[a]\nip=10.0.0.1\nip=10.0.0.2\nip=10.0.0.3\ndownload_speed=1\nupload_speed=1\n"
                   "[b]\nip=10.0.0.9\ndownload_speed=1\nupload_speed=1\n")

    def test_quotes_blank_lines_white_space_and_a_byte_order_mark(self):
        self.makes(b"\xef\xbb\xbf" + HEAD.encode() +
                   b'\r\n" 4711 Hill Farm (A/B) ", 10.0.0.1 ,"1", 1 ,,\r\n',
                   "[4711 Hill Farm (A/B)]\nip=10.0.0.1\ndownload_speed=1\nupload_speed=1\n")

    def test_another_delimiter(self):
        self.makes("name;ip;download_speed;upload_speed\na;10.0.0.1;1;1\n",
                   "[a]\nip=10.0.0.1\ndownload_speed=1\nupload_speed=1\n", "--delimiter", ";")

    def test_largest_speed(self):
        self.makes(HEAD + "a,10.0.0.1,34359738,34359738,,\n",
                   "[a]\nip=10.0.0.1\ndownload_speed=34359738\nupload_speed=34359738\n")

    def test_as_a_program(self):
        result = subprocess.run([EXAMPLES / "billing.py", self.output, "csv",
                                 EXAMPLES / "subscribers.csv"], check=False, capture_output=True)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b""))
        self.assertEqual(self.output.read_text().count("["), 3)
        self.assertEqual(self.output.stat().st_mode & 0o777, 0o600)

    def test_an_empty_list_that_is_meant(self):
        self.makes(HEAD, "", before=["--allow-empty"])


class RefusedLists(Billing):
    def test_empty_list(self):
        self.refuses(HEAD, "no subscriber; --update would delete all")

    def test_empty_file(self):
        self.refuses("", "no column name, ip, download_speed, upload_speed",
                     before=["--allow-empty"])

    def test_missing_column(self):
        self.refuses("name,ip,download_speed\na,10.0.0.1,1\n", "no column upload_speed")

    def test_unknown_column(self):
        self.refuses(HEAD.strip() + ",agregation\n", "column 'agregation': none of name, ip,")

    def test_repeated_column(self):
        self.refuses(HEAD.strip() + ",ip\n", "column 'ip': there twice")

    def test_every_fault_is_told(self):
        self.refuses(HEAD + "a,10.0.0.1,1,x,,\nb,10.0.0.2,1,1,,\nc,10.0.0,1,1,,\n",
                     "line 2: upload_speed 'x'", "line 4: ip '10.0.0'")

    def test_text_that_is_not_utf8(self):
        self.refuses(HEAD.encode() + b"M\xfcller,10.0.0.1,1,1,,\n", "can't decode byte 0xfc")

    def test_unclosed_quote(self):
        self.refuses(HEAD + '"a,10.0.0.1,1,1,,\n', "unexpected end of data")

    def test_file_that_is_not_there(self):
        status, errors = self.call(self.output, "csv", self.folder / "none.csv")
        self.assertEqual((status, self.output.read_text()), (1, OLD))
        self.assertIn("No such file", errors)

    def test_more_addresses_than_the_set_holds(self):
        rows = "".join(f"a,10.{n >> 16}.{n >> 8 & 255}.{n & 255},1,1,,\n" for n in range(65537))
        self.refuses(HEAD + rows, "65537 addresses, 65536 at most")

    def test_more_tariffs_than_class_numbers(self):
        rows = "".join(f"n{n},10.0.{n >> 8}.{n & 255},1,1,,\n" for n in range(14998))
        self.refuses(HEAD + rows, "14998 tariffs, 14997 at most")


class RefusedRows(Billing):
    def test_names(self):
        for name in ("a]b", "[a", "a=b", "a\tb", "Müller", "-a", ".a", "a;b", "x" * 201, '"a,b"',
                     '"a\nb"', "a\0b"):
            with self.subTest(name=name):
                status, errors = self.call_csv(HEAD + name + ",10.0.0.1,1,1,,\n")
                self.assertEqual((status, self.output.read_text()), (1, OLD))
                self.assertRegex(errors, "only letters, digits, blanks|line contains NUL")

    def test_empty_name(self):
        self.refuses_row(" ,10.0.0.1,1,1,,", "name: empty")

    def test_names_of_other_classes(self):
        for name in ("root", "system", "defaultQoSIPQueue"):
            self.refuses_row(f"{name},10.0.0.1,1,1,,", f"name '{name}': --stat calls")

    def test_addresses(self):
        for address in ("10.0.0", "10.0.0.256", "10.0.0.01", "10.0.0.1.2", "host", "10.0.0.1,",
                        "0x0a000001", "10.0.0.1;10.0.0.2", "١٠.0.0.1"):
            with self.subTest(address=address):
                self.refuses_row(f'a,"{address}",1,1,,', f"ip {address!r}: no IPv4 address")

    def test_no_address(self):
        self.refuses_row("a, ,1,1,,", "ip: empty")

    def test_ipv6(self):
        self.refuses_row("a,2001:db8::1,1,1,,", "ip '2001:db8::1': IPv6 stands in the column ip6")

    def refuses_prefix(self, text, message):
        self.refuses("name,ip,ip6,download_speed,upload_speed\na,10.0.0.1,%s,1,1\n" % text,
                     f"line 2: ip6 {text!r}: {message}")

    def test_ip6(self):
        for text in ("10.0.0.1", "2001:db8::/129", "2001:db8::/x", "2001:db8", "2001:db8::1%eth0",
                     "2001:db8::/64;2001:db8:1::/64", "host", "2001:db8::/-1"):
            with self.subTest(text=text):
                self.refuses_prefix(text, "no IPv6 prefix")

    def test_bits_after_a_prefix(self):
        self.refuses_prefix("2001:db8::1/64", "bits after the prefix")

    def test_prefixes_of_nobody(self):
        for text in ("::", "::/0", "::1", "fe80::1", "fe80::/10", "ff02::1", "ff00::/8",
                     "::ffff:10.0.0.1"):
            with self.subTest(text=text):
                self.refuses_prefix(text, "no subscriber's prefix")

    def test_prefix_of_two(self):
        self.refuses("name,ip,ip6,download_speed,upload_speed\na,,2001:db8::/64,1,1\n"
                     "b,,2001:DB8:0::/64,1,1\n", "line 3: ip6 2001:db8::/64: a has it already")

    def test_neither_address_nor_prefix(self):
        self.refuses("name,ip,ip6,download_speed,upload_speed\na,, ,1,1\n", "line 2: ip: empty")

    def test_prefix(self):
        self.refuses_row("a,10.0.0.0/24,1,1,,", "ip '10.0.0.0/24': just its first address")

    def test_addresses_of_nobody(self):
        for address in ("0.0.0.0", "127.0.0.1", "224.0.0.1"):
            self.refuses_row(f"a,{address},1,1,,", f"ip '{address}': no subscriber's address")

    def test_address_of_two(self):
        self.refuses(HEAD + "a,10.0.0.1,1,1,,\nb,10.0.0.1/32,1,1,,\n",
                     "line 3: ip 10.0.0.1: a has it already")

    def test_rows_of_one_name_that_differ(self):
        self.refuses(HEAD + "a,10.0.0.1,1,1,,\na,10.0.0.2,2,1,,\n",
                     "line 3: a: differs from an earlier row in more than ip")

    def test_speeds(self):
        for speed in ("100mbit", "-1", "1.5", "1e3", "nan", "0x10", "34359739", "1 000", "٣"):
            with self.subTest(speed=speed):
                self.refuses_row(f"a,10.0.0.1,{speed},1,,", f"download_speed {speed!r}: not a whole")

    def test_speed_left_out(self):
        self.refuses_row("a,10.0.0.1,1,,,", "upload_speed: empty, which would cut")

    def test_aggregations(self):
        for text in ("0", "0.0", "-2", "1:4", "x"):
            with self.subTest(text=text):
                self.refuses_row(f"a,10.0.0.1,1,1,{text},", f"aggregation {text!r}: not a number")

    def test_kinds(self):
        for text in ("SFQ", "none", "fq"):
            with self.subTest(text=text):
                self.refuses_row(f"a,10.0.0.1,1,1,,{text}", f"queuing_discipline {text!r}: none of")

    def test_values_too_many_and_too_few(self):
        self.refuses_row("a,10.0.0.1,1,1,,,", "7 values for 6 columns")
        self.refuses_row("a,10.0.0.1,1", "3 values for 6 columns")


class Sqlite(Billing):
    QUERY = ("SELECT s.customer AS name, a.ip, p.down AS download_speed, p.up AS upload_speed "
             "FROM subscriber s JOIN product p ON p.id = s.product "
             "JOIN address a ON a.subscriber = s.id WHERE s.active ORDER BY a.ip")

    def setUp(self):
        super().setUp()
        self.database = self.folder / "billing #1?.db"
        connection = sqlite3.connect(self.database)
        connection.executescript(
            "CREATE TABLE product (id INTEGER, down REAL, up INTEGER);"
            "CREATE TABLE subscriber (id INTEGER, customer TEXT, product INTEGER, active INTEGER);"
            "CREATE TABLE address (subscriber INTEGER, ip TEXT);"
            "INSERT INTO product VALUES (1, 5000.0, 3000);"
            "INSERT INTO subscriber VALUES (1, '4711', 1, 1), (2, '4712', 1, 0);"
            "INSERT INTO address VALUES (1, '10.0.0.2'), (1, '10.0.0.1'), (2, '10.0.0.3');")
        connection.close()

    def refuses_query(self, query, message):
        status, errors = self.call(self.output, "sqlite", self.database, query)
        self.assertEqual((status, self.output.read_text()), (1, OLD))
        self.assertIn(message, errors)

    def test_join(self):
        self.assertEqual(self.call(self.output, "sqlite", self.database, self.QUERY), (0, ""))
        self.assertEqual(self.output.read_text(), "[4711]\nip=10.0.0.1\nip=10.0.0.2\n"
                                                  "download_speed=5000\nupload_speed=3000\n")

    def test_no_row(self):
        self.refuses_query(self.QUERY.replace("s.active", "0"), "no subscriber")

    def test_no_value(self):
        self.refuses_query(self.QUERY.replace("p.up", "NULL"), "row 1: upload_speed: empty")

    def test_fraction_and_bytes(self):
        self.refuses_query(self.QUERY.replace("p.up", "1.5"), "row 1: upload_speed '1.5'")
        self.refuses_query(self.QUERY.replace(", a.ip", ", x'0a' AS ip"), "row 1: ip")

    def test_wrong_call(self):
        with self.assertRaises(SystemExit) as ended, contextlib.redirect_stderr(io.StringIO()):
            billing.main([str(self.output), "mysql", "x"])
        self.assertEqual(ended.exception.code, 2)

    def test_broken_query(self):
        self.refuses_query("SELECT", "incomplete input")

    def test_query_without_result(self):
        self.refuses_query("", "no column name")

    def test_the_database_is_not_written(self):
        self.refuses_query("DELETE FROM subscriber", "readonly database")

    def test_no_database_is_made(self):
        missing = self.folder / "none.db"
        status, errors = self.call(self.output, "sqlite", missing, self.QUERY)
        self.assertEqual((status, missing.exists()), (1, False))
        self.assertIn("unable to open database file", errors)


if __name__ == "__main__":
    unittest.main()
