"""Draws a recorded screen of "quenbyctl top": text with the colours that a terminal was sent, as
"tmux capture-pane -p -e" prints it.

Call: python3 top.py <top.txt >top.svg
"""

import re
import sys
from xml.sax.saxutils import escape

CELL_WIDTH, LINE_HEIGHT, MARGIN = 8, 17, 12
PAPER, INK = "#1c1f24", "#d8dce2"
COLOURS = {"31": "#ff6b64", "33": "#e6c34a"}


class Look:
    """What the last codes have switched on."""

    def __init__(self):
        self.codes = set()

    def obey(self, codes):
        for code in codes.split(";"):
            if code in ("", "0"):
                self.codes.clear()
            elif code in ("39", "49"):
                self.codes -= set(COLOURS)
            else:
                self.codes.add(code)

    def style(self):
        colour = next((COLOURS[code] for code in sorted(self.codes) if code in COLOURS), INK)
        if "7" in self.codes:
            colour = PAPER
        return 'fill="%s"%s%s' % (colour, ' font-weight="bold"' if "1" in self.codes else "",
                                  ' opacity="0.6"' if "2" in self.codes else "")


def draw(lines):
    width = 2 * MARGIN + CELL_WIDTH * max(len(re.sub(r"\033\[[\d;]*m", "", line)) for line in lines)
    height = 2 * MARGIN + LINE_HEIGHT * len(lines)
    yield ('<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" font-family="DejaVu Sans '
           'Mono, monospace" font-size="13">' % (width, height))
    yield '<rect width="100%%" height="100%%" rx="6" fill="%s"/>' % PAPER
    look = Look()
    for number, line in enumerate(lines):
        yield from draw_line(line, MARGIN + LINE_HEIGHT * number, look)
    yield "</svg>"


def draw_line(line, top, look):
    column = 0
    for codes, text in re.findall(r"(?:\033\[([\d;]*)m)?([^\033]*)", line):
        if codes or not text:
            look.obey(codes)
        if not text:
            continue
        left, length = MARGIN + CELL_WIDTH * column, CELL_WIDTH * len(text)
        if "7" in look.codes:
            yield '<rect x="%d" y="%d" width="%d" height="%d" fill="%s"/>' % (
                left, top, length, LINE_HEIGHT, INK)
        yield '<text x="%d" y="%d" textLength="%d" xml:space="preserve" %s>%s</text>' % (
            left, top + 13, length, look.style(), escape(text))
        column += len(text)


if __name__ == "__main__":
    print("\n".join(draw(sys.stdin.read().rstrip("\n").split("\n"))))
