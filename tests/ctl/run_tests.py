"""Runs quenbyctl as it is called, in a private root of this machine. Needs no guest.

Call: tests/ctl/run_tests.py [NAME...] PROGRAM
      NAME as unittest takes it, for example test_check.Answer; PROGRAM is quenby, beside which
      quenbyctl was built
"""

import os
import pathlib
import sys
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "surroundings"))
import private_root  # noqa: E402

MODULES = ["test_apply", "test_apply_faults", "test_check", "test_differences", "test_export",
           "test_plan", "test_top", "test_verdicts"]


def main(names, program):
    tests = unittest.defaultTestLoader.loadTestsFromNames(names or MODULES)
    private_root.enter(os.path.abspath(program))
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(tests)
    return 0 if result.wasSuccessful() and result.testsRun > 0 else 1


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1:-1], sys.argv[-1]))
