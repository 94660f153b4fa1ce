"""The tests of the pytest plugin run it, and see what is left."""
import os
import signal


def test_killed(fa_set):
    fa_set.start(["sleep", "600"])
    os.kill(os.getpid(), signal.SIGKILL)
