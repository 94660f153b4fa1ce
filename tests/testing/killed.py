# The tests of the pytest plugin run it, and see what is left.
def test_killed(fa_set):
    fa_set.start(["sleep", "600"])
    fa_set.run(["sh", "-c", "kill -KILL $PPID"])
