# The pytest plugin and the CMake function, and what they say where something is wrong.
import glob
import os
import pathlib
import re
import select
import signal
import subprocess
import sys
import time

import fa_api_pytest
import pytest
from fa_api_pytest import SetFailure, SimulatedSet

pytest_plugins = ["pytester"]
HERE = pathlib.Path(__file__).parent


def call(fa_set, method, *arguments):
    # By the bus, as no application is needed for that.
    fa_set.run(["gdbus", "call", "--system", "-d", "org.kavra.tv.automation-service",
                "-o", "/KVFacAutoObj", "-m", "org.kavra.tv.automationservice." + method,
                *map(str, arguments)])


def send(fa_set, data):
    call(fa_set, "SendRjpData", len(data), list(data))


@pytest.mark.fa_set("--fault", "SendRjpData result 0 times 1")
def test_talks_over_lines_and_tells_the_calls(fa_set):
    everything = bytes(range(256))
    device = fa_set.open_line("rjp")
    with SimulatedSet() as other:  # a set beside it
        for data in b"\0", everything[:128], everything[128:] * 40:
            send(fa_set, data)
        assert other.calls() == []
        words, pipe = ["printenv", "FA_SET_RJP"], {"stdout": subprocess.PIPE}
        printed = other.run(words, **pipe).stdout, other.start(words, **pipe).stdout.read()
        assert {*printed} == {other.environment["FA_SET_RJP"].encode() + b"\n"}
    # A terminal gives no more than 4095 bytes at once.
    assert os.environ["FA_SET_RJP"] == fa_set.environment["FA_SET_RJP"]
    assert device.read(5000) + device.read(248) == everything[:128] + everything[128:] * 40
    device.write(b"\x06")
    fa_set.write_packet("ss", everything)
    fa_set.add_rules({"out": {"rjp": "07"}, "in": {"ep": "06"}}, '{"method": "all", "result": 5}')
    send(fa_set, b"\x07")
    fa_set.clear_rules()
    call(fa_set, "CloseExUart")
    send(fa_set, b"\x08")
    calls = fa_set.wait_for_calls(5, "SendRjpData")
    assert [call["result"] for call in calls] == [0, 1, 1, 5, 1]
    assert calls[1]["arguments"] == {"pLen": 128, "pData": list(range(128))}
    for line in "rjp received [06]", "ss received [00", "256 in all]", "ep received [06]":
        assert line in fa_set.said()
    fa_set.forget_calls()
    assert fa_set.calls() == []


@pytest.mark.parametrize("deadline, do, text", [
    (20, lambda s: s.add_rules({"start": True, "in": {"ss": "01"}}, {"metod": 1}), ":2: "),
    (20, lambda s: s.write_packet("uart", b"1"), "WritePacket: packets come in on ss, rjp and ep"),
    (20, lambda s: s.calls("SendRjp"), 'GetCalls: there is no method "SendRjp"'),
    (20, lambda s: s.open_line("simulator"), 'uart, ss, rjp or ep, not "simulator"'),
    (.2, lambda s: s.wait_for_calls(1), "0 of 1 calls after 0.2 s: []"),
    (.2, lambda s: s.open_line("rjp").read(1), "line rjp: read 0 of 1 bytes, no more in 0.2 s"),
    (.2, lambda s: s.open_line("rjp").write(bytes(1 << 20)), "has read none in 0.2 s"),
    (.2, lambda s: s.run(["sleep", "600"]), "'600']' timed out after 0."),
    (20, lambda s: (uart := s.open_line("uart"), call(s, "CloseExUart"), uart.read(1)),
     "line uart: read 0 of 1 bytes, then the set closed the line"),
    (20, lambda s: (s.finish(), s.open_line("rjp")), "open_line: the set has ended, with status 0"),
    (20, lambda s: (s._process.terminate(), s.wait_for_calls(1)), "set has ended, with status 143"),
])
def test_failures_name_the_reason(fa_set, monkeypatch, deadline, do, text):
    program = fa_set.start(["sh", "-c", "sleep 600 & wait"], stdout=subprocess.PIPE)
    with monkeypatch.context() as short, pytest.raises(Exception) as failure:
        short.setattr(fa_api_pytest, "DEADLINE", deadline)
        do(fa_set)
    assert text in str(failure.value)
    fa_set.finish()
    assert program.returncode == -signal.SIGKILL
    assert select.select([program.stdout], [], [], 20)[0]  # its end: no child holds it any more


@pytest.mark.parametrize("program, deadline, text", [
    (os.environ["FA_SET_SIMULATOR"], 20, "status 1\nfa-set-simulator: profile /none: No such file"),
    ("/none", 20, "name the program in FA_SET_SIMULATOR"),
    (HERE / "hanging_set", 0.2, "not ready after 0.2 s")])
def test_a_set_that_cannot_start_says_why(monkeypatch, program, deadline, text):
    monkeypatch.setenv("FA_SET_SIMULATOR", str(program))
    monkeypatch.setattr(fa_api_pytest, "DEADLINE", deadline)
    with pytest.raises(SetFailure, match=text):
        SimulatedSet("--profile", "/none")
    assert os.system(f"pgrep -P {os.getpid()} sleep") != 0


@pytest.mark.parametrize("command", [
    [sys.executable, "-m", "pytest", "-p", "fa_api_pytest", HERE / "killed.py"],
    [os.environ["KILLED"]], ["sh", "-c", "$KILLED ends && kill -KILL $$"]])
def test_nothing_is_left_of_tests_that_are_killed(command, monkeypatch, tmp_path):
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    assert subprocess.run(command, check=False).returncode == -signal.SIGKILL
    # grep ends with 0 where it finds a process that has the variable.
    grep = ["grep", "-qsa", f"TMPDIR={tmp_path}", *glob.glob("/proc/[0-9]*/environ")]
    deadline = time.monotonic() + 20
    while list(tmp_path.iterdir()) or subprocess.run(grep, env={}, check=False).returncode == 0:
        assert time.monotonic() < deadline, list(tmp_path.iterdir())


def test_a_failure_of_the_test_goes_before_one_of_the_set():
    with pytest.raises(ZeroDivisionError), SimulatedSet("--replay", HERE / "difference.jsonl"):
        1 / 0


def test_a_failure_of_the_set_fails_the_test(pytester):
    pytester.makepyfile(f"""
        import pytest
        pytestmark = pytest.mark.fa_set("--replay", "{HERE}/difference.jsonl")
        def test_no_more(fa_set):
            pass
        def test_asks(fa_set):
            assert fa_set.finish() == 123
        def test_fails(fa_set):
            fa_set.calls("x")
        """)
    shown = pytester.runpytest_subprocess("-p", "fa_api_pytest", "-rA").stdout.str()
    assert sorted(re.findall(r"^(PASSED|ERROR|FAILED) .*::test_(\w+)", shown, re.M)) == [
        ("ERROR", "fails"), ("ERROR", "no_more"), ("FAILED", "fails"), ("PASSED", "asks"),
        ("PASSED", "no_more")]
    assert "- Captured stderr teardown -" in shown


def test_ctest_shows_how_a_program_and_its_set_end(tmp_path):
    cmake = ["cmake", "-S", HERE / "set_tests", "-B", tmp_path,
             f"-DFA_API_SET_SIMULATOR={os.environ['FA_SET_SIMULATOR']}"]
    for wrong in "SCENARIO", "PROFILE;none.ini", "TIMEOUT;0.5", "FAULT;all":
        done = subprocess.run([*cmake, f"-DWRONG={wrong}"], check=False, stderr=subprocess.PIPE)
        assert b"fa_api_add_set_test" in done.stderr
    subprocess.run([*cmake, "-DWRONG="], check=True, stdout=subprocess.DEVNULL)
    done = subprocess.run(["ctest", "-V"], cwd=tmp_path, capture_output=True, encoding="utf-8")
    told = re.findall(r"Start \d+: (\w+)$(.*?)(?=^ +Start|\Z)", done.stdout, re.S | re.M)
    assert [name for name, text in told if "Passed" in text] == ["passes"]
    reasons = {"passes": "two words", "fails": "***Failed", "crashes": "Segmentation fault",
               "hangs": "ended after 1000 ms", "is_missing": "“no-such-program” (No such file",
               "differs": '"CloseExUart"', "has_bad_rules": "CMakeLists.txt:1: no JSON",
               "has_options": "no fault eror"}
    assert [(name, reasons[name]) for name, text in told if reasons[name] in text] == list(
        reasons.items())
