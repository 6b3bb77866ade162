"""The alert rules do what their tests say, and rules and dashboard ask for nothing that "quenbyctl
export" does not write.
"""

import json
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import metrics

TREE = pathlib.Path(__file__).resolve().parents[2]
RULES = TREE / "contrib/prometheus"
DASHBOARD = TREE / "contrib/grafana/quenby.json"


def asked_for(text):
    return set(re.findall(r"\bquenby_\w+", text))


def promtool(*words, folder=RULES):
    done = subprocess.run(["promtool", *words], cwd=folder, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True)
    return done.returncode, done.stdout


class Rules(unittest.TestCase):
    def rules(self):
        return (RULES / "quenby.rules.yml").read_text()

    def test_are_rules(self):
        status, out = promtool("check", "rules", "quenby.rules.yml")
        self.assertEqual(status, 0, out)

    def test_fire_when_they_should(self):
        status, out = promtool("test", "rules", "quenby.test.yml")
        self.assertEqual(status, 0, out)

    def test_each_is_tested_both_ways(self):
        test = (RULES / "quenby.test.yml").read_text()
        for name in re.findall(r"alert: (\w+)", self.rules()):
            self.assertRegex(test, r"- \{alertname: %s, eval_time: \w+\}" % name)
            self.assertRegex(test, r"- alertname: %s\n +eval_time: \w+\n +exp_alerts:\n +- exp" % name)

    def test_a_rule_that_never_fires_is_seen(self):
        with tempfile.TemporaryDirectory() as folder:
            shutil.copytree(RULES, folder, dirs_exist_ok=True)
            place = pathlib.Path(folder, "quenby.rules.yml")
            place.write_text(self.rules().replace("quenby_differences > 0", "quenby_differences > 9"))
            status, out = promtool("test", "rules", "quenby.test.yml", folder=folder)
            self.assertNotEqual(status, 0)
            self.assertIn("QuenbyDrift", out)

    def test_ask_for_what_is_exported(self):
        rules = re.sub(r"description:.*?(?=\n +- alert|\Z)", "", self.rules(), flags=re.S)
        self.assertGreater(len(asked_for(rules)), 8)
        self.assertEqual(asked_for(rules) - metrics.written(), set())


class Dashboard(unittest.TestCase):
    def panels(self):
        return json.loads(DASHBOARD.read_text())["panels"]

    def expressions(self):
        board = json.loads(DASHBOARD.read_text())
        return [target["expr"] for panel in board["panels"] for target in panel["targets"]] + [
            variable["definition"] for variable in board["templating"]["list"]
            if "definition" in variable]

    def test_asks_for_what_is_exported(self):
        names = asked_for("\n".join(self.expressions()))
        self.assertGreater(len(names), 12)
        self.assertEqual(names - metrics.written(), set())

    def test_a_name_that_nobody_writes_is_seen(self):
        self.assertEqual(asked_for("rate(quenby_tariff_byte_total[5m])") - metrics.written(),
                         {"quenby_tariff_byte_total"})

    def test_expressions_are_understood(self):
        """As rules, with Grafana's variables filled in."""
        board = [text for text in self.expressions() if not text.startswith("label_values")]
        rules = [{"record": "r%d" % number, "expr": text.replace("$__rate_interval", "5m")}
                 for number, text in enumerate(board)]
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "r.yml").write_text(
                json.dumps({"groups": [{"name": "board", "rules": rules}]}))
            status, out = promtool("check", "rules", "--lint=none", "r.yml", folder=folder)
        self.assertEqual(status, 0, out)

    def test_panels_have_their_own_numbers_and_places(self):
        numbers = [panel["id"] for panel in self.panels()]
        self.assertEqual(len(set(numbers)), len(numbers))
        cells = [(x, y) for panel in self.panels() for place in [panel["gridPos"]]
                 for x in range(place["x"], place["x"] + place["w"])
                 for y in range(place["y"], place["y"] + place["h"])]
        self.assertEqual(len(set(cells)), len(cells))
        self.assertLess(max(x for x, y in cells), 24)


if __name__ == "__main__":
    unittest.main()
