#!/usr/bin/env python3
"""Makes the file for `quenby --update` from a billing system's list of subscribers.

Call: billing.py [--allow-empty] OUTPUT csv FILE [--delimiter CHARACTER]
      billing.py [--allow-empty] OUTPUT sqlite DATABASE QUERY

The columns are the keys of quenby.ini(5):

  name                what --tariff-del and --stat call the subscriber
  ip                  IPv4 addresses, separated by blanks
  ip6                 may be left out or empty: IPv6 prefixes as 2001:db8:0:1200::/56; where there
                      is one, ip may be empty. They count with ipv6=true in the global file
  download_speed      in kbit/s, whole numbers
  upload_speed
  aggregation         may be left out or empty: 1
  queuing_discipline  may be left out or empty: the kernel's own queue

Rows of one name are one tariff: they may differ in ip and ip6 alone. Everything that the program would take
for something else is refused, each fault with its row, and then OUTPUT stays as it is: status 1.
--update deletes every tariff that its file does not have, so an empty list is refused too, unless
--allow-empty says that it is meant.
"""

import argparse
import csv
import ipaddress
import os
import pathlib
import re
import sqlite3
import sys
import tempfile
import urllib.parse

REQUIRED = ("name", "ip", "download_speed", "upload_speed")
OPTIONAL = ("ip6", "aggregation", "queuing_discipline")

# The kernel gets 32 bits of bytes/s, each address set and the class numbers end there.
FASTEST = 34359738
MOST_ADDRESSES = 65536
MOST_TARIFFS = 14997

# "]" ends a section's name in the file, a comma ends it in the output of --stat, and a word that
# begins with "-" is an option to --tariff-del.
NAME = re.compile(r"[A-Za-z0-9][A-Za-z0-9 ._:@/+#()-]{0,199}", re.ASCII)
TAKEN = ("root", "system", "defaultQoSIPQueue")
KINDS = ("fq_codel", "sfq", "pfifo")


class Refused(Exception):
    """One fault; its text says where and what."""


def checked_name(text):
    if not text:
        raise Refused("name: empty")
    if not NAME.fullmatch(text):
        raise Refused(f"name {text!r}: only letters, digits, blanks and ._:@/+#()- are possible, a "
                      "letter or digit first, 200 at most")
    if text in TAKEN:
        raise Refused(f"name {text!r}: --stat calls a class of its own so")
    return text


def checked_address(text):
    if ":" in text:
        raise Refused(f"ip {text!r}: IPv6 stands in the column ip6")
    single = text[:-3] if text.endswith("/32") else text
    if "/" in single:
        raise Refused(f"ip {text!r}: just its first address would be shaped; list each one")
    try:
        address = ipaddress.IPv4Address(single)
    except ValueError:
        raise Refused(f"ip {text!r}: no IPv4 address") from None
    if address.is_unspecified or address.is_loopback or address.is_multicast:
        raise Refused(f"ip {text!r}: no subscriber's address")
    return str(address)


def checked_prefix(text):
    """A single address has no length, as in the stored file."""
    try:
        if "%" in text:
            raise ValueError("a zone")
        network = ipaddress.IPv6Network(text)
    except ValueError as error:
        what = "bits after the prefix" if "host bits" in str(error) else "no IPv6 prefix"
        raise Refused(f"ip6 {text!r}: {what}") from None
    first = network.network_address
    if (first.is_unspecified or first.is_loopback or first.is_multicast or first.is_link_local
            or first.ipv4_mapped or network.prefixlen == 0):
        raise Refused(f"ip6 {text!r}: no subscriber's prefix")
    return str(first) if network.prefixlen == network.max_prefixlen else str(network)


def checked_addresses(row):
    """(key, address) of each in the order of the file."""
    addresses = [("ip", checked_address(word)) for word in row["ip"].split()]
    addresses += [("ip6", checked_prefix(word)) for word in row.get("ip6", "").split()]
    if not addresses:
        raise Refused("ip: empty; a tariff without an address shapes nothing")
    return addresses


def checked_speed(key, text):
    if not text:
        raise Refused(f"{key}: empty, which would cut the subscriber off like 0")
    if not re.fullmatch("[0-9]{1,8}", text) or int(text) > FASTEST:
        raise Refused(f"{key} {text!r}: not a whole number of kbit/s up to {FASTEST}")
    return int(text)


def checked_aggregation(text):
    if not re.fullmatch(r"[0-9]{1,6}(\.[0-9]{1,3})?", text) or float(text) == 0:
        raise Refused(f"aggregation {text!r}: not a number above 0")
    return text


def checked_kind(text):
    if text not in KINDS:
        raise Refused(f"queuing_discipline {text!r}: none of {', '.join(KINDS)}")
    return text


def checked_settings(row):
    """What rows of one name must agree in, in the order of the file."""
    settings = {key: checked_speed(key, row[key]) for key in ("download_speed", "upload_speed")}
    if row.get("aggregation"):
        settings["aggregation"] = checked_aggregation(row["aggregation"])
    if row.get("queuing_discipline"):
        settings["queuing_discipline"] = checked_kind(row["queuing_discipline"])
    return settings


def check_columns(columns):
    missing = [column for column in REQUIRED if column not in columns]
    if missing:
        raise Refused(f"no column {', '.join(missing)}")
    for column in columns:
        if column not in REQUIRED + OPTIONAL:
            raise Refused(f"column {column!r}: none of {', '.join(REQUIRED + OPTIONAL)}")
        if columns.count(column) > 1:
            raise Refused(f"column {column!r}: there twice")


def csv_rows(path, delimiter):
    """Yields the columns' names, then (place, values) of each row, all of them text."""
    with open(path, newline="", encoding="utf-8-sig") as file:
        reader = csv.reader(file, delimiter=delimiter, strict=True)
        yield [column.strip() for column in next(reader, [])]
        for values in reader:
            if values:
                yield f"line {reader.line_num}", values


def sql_text(value):
    """A value as the file would have it; a speed may be stored as 5000.0."""
    if value is None:
        return ""
    if isinstance(value, float) and value.is_integer():
        return str(int(value))
    return repr(value) if isinstance(value, bytes) else str(value)


def sqlite_rows(path, query):
    """As csv_rows. The database is opened for reading only."""
    source = f"file:{urllib.parse.quote(str(path))}?mode=ro"
    connection = sqlite3.connect(source, uri=True)
    try:
        cursor = connection.execute(query)
        yield [column[0] for column in cursor.description or ()]
        for number, values in enumerate(cursor, 1):
            yield f"row {number}", [sql_text(value) for value in values]
    finally:
        connection.close()


class Tariffs:
    """The list as far as it has been read."""

    def __init__(self):
        self.addresses = {}
        self._settings = {}
        self._owners = {"ip": {}, "ip6": {}}

    def add(self, row):
        name = checked_name(row["name"])
        addresses, settings = checked_addresses(row), checked_settings(row)
        if self._settings.setdefault(name, settings) != settings:
            raise Refused(f"{name}: differs from an earlier row in more than ip and ip6")
        for key, address in addresses:
            owner = self._owners[key].setdefault(address, name)
            if owner != name:
                raise Refused(f"{key} {address}: {owner} has it already")
            self.addresses.setdefault(name, {})[key, address] = None

    def check_size(self, allow_empty):
        if not self.addresses and not allow_empty:
            raise Refused("no subscriber; --update would delete all (--allow-empty if that is meant)")
        if len(self.addresses) > MOST_TARIFFS:
            raise Refused(f"{len(self.addresses)} tariffs, {MOST_TARIFFS} at most")
        for kind, owners in zip(("addresses", "prefixes"), self._owners.values()):
            if len(owners) > MOST_ADDRESSES:
                raise Refused(f"{len(owners)} {kind}, {MOST_ADDRESSES} at most")

    def ini(self):
        lines = []
        for name in sorted(self.addresses):
            lines.append(f"[{name}]")
            # Addresses before prefixes, as in the stored file.
            lines += [f"{key}={address}" for key, address in sorted(
                self.addresses[name], key=lambda entry: entry[0])]
            lines += [f"{key}={value}" for key, value in self._settings[name].items()]
        return "".join(line + "\n" for line in lines)


def read_tariffs(rows):
    """The tariffs, and what is wrong with the rows."""
    tariffs, faults = Tariffs(), []
    columns = next(rows)
    check_columns(columns)
    for place, values in rows:
        try:
            if len(values) != len(columns):
                raise Refused(f"{len(values)} values for {len(columns)} columns")
            tariffs.add(dict(zip(columns, (value.strip() for value in values))))
        except Refused as fault:
            faults.append(f"{place}: {fault}")
    return tariffs, faults


def write_whole(path, text):
    """All of it or nothing, readable for the owner alone."""
    descriptor, temporary = tempfile.mkstemp(dir=path.parent, prefix=path.name)
    try:
        with open(descriptor, "w", encoding="ascii") as file:
            file.write(text)
        os.replace(temporary, path)
    except BaseException:
        os.unlink(temporary)
        raise


def parsed(arguments):
    parser = argparse.ArgumentParser(usage="\n".join(__doc__.split("\n")[2:4]).replace("Call: ", ""),
                                     description="quenby.ini(5) explains the columns.")
    parser.add_argument("--allow-empty", action="store_true")
    parser.add_argument("output", type=pathlib.Path)
    kinds = parser.add_subparsers(dest="kind", required=True)
    of_csv = kinds.add_parser("csv")
    of_csv.add_argument("source")
    of_csv.add_argument("--delimiter", default=",")
    of_sqlite = kinds.add_parser("sqlite")
    of_sqlite.add_argument("source")
    of_sqlite.add_argument("query")
    return parser.parse_args(arguments)


def main(arguments):
    call = parsed(arguments)
    try:
        rows = (csv_rows(call.source, call.delimiter) if call.kind == "csv" else
                sqlite_rows(call.source, call.query))
        tariffs, faults = read_tariffs(rows)
        if not faults:
            tariffs.check_size(call.allow_empty)
            write_whole(call.output, tariffs.ini())
    except (Refused, OSError, UnicodeError, csv.Error, sqlite3.Error, TypeError) as fault:
        faults = [str(fault)]
    for fault in faults:
        print(f"Error: {call.source}: {fault}", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
