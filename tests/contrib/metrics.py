"""The names of the metrics that "quenbyctl export" writes, out of its source: a run would look at
the machine that the tests run on."""

import pathlib
import re

SOURCE = pathlib.Path(__file__).resolve().parents[2] / "ctl/prometheus_output.cpp"


def written():
    names = set()
    for name in re.findall(r'\{"([a-z_]+)", "(?:counter|gauge)"', SOURCE.read_text()):
        own = name.startswith("quenby_")
        names |= {name} if own else {"quenby_tariff_" + name, "quenby_line_" + name}
    return names
