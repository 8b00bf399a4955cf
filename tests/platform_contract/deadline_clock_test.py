"""Setting the system's clock does not move the deadline of a wait.

Usage: deadline_clock_test.py CONTRACT_TESTS [unittest argument...]
"""

import subprocess
import sys
import unittest

_CONTRACT_TESTS = None


class DeadlineClockTest(unittest.TestCase):
    """On Linux, each wait tells the kernel to which clock its deadline refers."""

    def test_no_wait_is_on_the_wall_clock(self):
        run = subprocess.run(
            ["strace", "-f", "-e", "trace=futex", _CONTRACT_TESTS,
             "--gtest_filter=ClockContract.WaitUntilEndsAtTheDeadlineAndNotBefore"],
            capture_output=True, text=True, check=True, timeout=60)
        waits = [line for line in run.stderr.splitlines() if "tv_sec" in line]
        self.assertTrue(waits)
        for wait in waits:
            self.assertIn("FUTEX_WAIT_BITSET", wait)
            self.assertNotIn("FUTEX_CLOCK_REALTIME", wait)


if __name__ == "__main__":
    _CONTRACT_TESTS = sys.argv.pop(1)
    unittest.main()
