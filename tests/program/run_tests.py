"""Runs the tests of the whole program.

Call: scripts/lab --cpus 16 --memory 3072 python3 tests/program/run_tests.py PROGRAM [NAME...]
      NAME as unittest takes it, for example test_command_line
"""

import os
import sys
import unittest

import quenby_program


def main(program, names):
    quenby_program.install(os.path.abspath(program))
    here = os.path.dirname(os.path.abspath(__file__))
    loader = unittest.defaultTestLoader
    tests = loader.loadTestsFromNames(names) if names else loader.discover(here, "test_*.py")
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(tests)
    return 0 if result.wasSuccessful() and result.testsRun > 0 else 1


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2:]))
