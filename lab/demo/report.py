"""Tables of measured rates and counted packets."""

from plan import DIRECTIONS, FAMILIES, family

_TITLES = ("tariff", "queue", "over", "addr.", "Mbit/s", "measured", "share", "Mbit/s", "measured",
           "share", "down", "up")
_LEFT = 3  # columns that are aligned to the left
_GROUPS = ((3, "download"), (3, "upload"), (2, "packets counted"))


def _cells(row):
    subscriber = row["subscriber"]
    families = FAMILIES if row["over"] == "both" else (row["over"],)
    count = sum(family(address) in families for address in subscriber.addresses)
    cells = [subscriber.name, subscriber.queue, row["over"], str(count)]
    for direction in DIRECTIONS:
        measured = row[direction]
        cells += [f"{measured['configured'] / 1000:.2f}", f"{measured['measured'] / 1000:.2f}",
                  f"{measured['share'] * 100:.1f} %"]
    return cells + [str(row[direction]["packets"]) if row["over"] == "both" else ""
                    for direction in DIRECTIONS]


def _widths(lines):
    return [max(map(len, column)) for column in zip(*lines)]


def _line(cells, widths):
    return "  ".join(cell.ljust(width) if index < _LEFT else cell.rjust(width)
                     for index, (cell, width) in enumerate(zip(cells, widths)))


def _heading(widths):
    column = len(widths) - sum(count for count, _ in _GROUPS)
    parts = [" " * (sum(widths[:column]) + 2 * (column - 1))]
    for count, title in _GROUPS:
        width = sum(widths[column:column + count]) + 2 * (count - 1)
        parts.append(f" {title} ".center(width, "-"))
        column += count
    return "  ".join(parts)


def table(rows):
    """The lines of a table, headings included."""
    lines = [_TITLES] + [_cells(row) for row in rows]
    widths = _widths(lines)
    return [_heading(widths), *(_line(line, widths) for line in lines)]
