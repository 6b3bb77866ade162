"""Runs the program in hostile surroundings: read errors, full and read-only disks, what is no
file, and a kill at each system call; and whether check-files agrees. Needs no guest.

Call: tests/surroundings/run_tests.py [NAME...] PROGRAM
      NAME as unittest takes it, for example test_reads.NamedPipe
"""

import os
import sys
import unittest

import private_root

MODULES = ["test_check_files", "test_disks", "test_reads", "test_saves"]


def main(names, program):
    tests = unittest.defaultTestLoader.loadTestsFromNames(names or MODULES)
    private_root.enter(os.path.abspath(program))
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(tests)
    return 0 if result.wasSuccessful() and result.testsRun > 0 else 1


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1:-1], sys.argv[-1]))
