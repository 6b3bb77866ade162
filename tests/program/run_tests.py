"""Runs the tests of the whole program.

Call: scripts/lab --memory 3072 python3 tests/program/run_tests.py [NAME...] PROGRAM
      NAME as unittest takes it, for example test_command_line; without one all
      tests run, for which the guest needs 16 processors (--cpus 16)
"""

import os
import sys
import unittest

import quenby_program


class PromptResult(unittest.TextTestResult):
    """Shows a failure when it happens: a guest can run out of time before the end."""

    def addError(self, test, err):
        super().addError(test, err)
        self.stream.writeln(self.errors[-1][1])

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self.stream.writeln(self.failures[-1][1])

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self.stream.writeln("%s\n%s" % (subtest, (self.failures + self.errors)[-1][1]))


def main(names, program):
    quenby_program.install(os.path.abspath(program))
    here = os.path.dirname(os.path.abspath(__file__))
    loader = unittest.defaultTestLoader
    tests = loader.loadTestsFromNames(names) if names else loader.discover(here, "test_*.py")
    runner = unittest.TextTestRunner(stream=sys.stdout, verbosity=2, resultclass=PromptResult)
    result = runner.run(tests)
    return 0 if result.wasSuccessful() and result.testsRun > 0 and not result.skipped else 1


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1:-1], sys.argv[-1]))
