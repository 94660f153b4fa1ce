r"""A pytest plugin: a simulated television set for each test that asks for one.

Name it with "-p fa_api_pytest", or in conftest.py: pytest_plugins = ["fa_api_pytest"]. Then

    @pytest.mark.fa_set("--profile", "line3.ini")  # options of fa-set-simulator run
    def test_greeting(fa_set):
        device = fa_set.open_line("rjp")
        program = fa_set.start(["./greet"])
        assert device.read(2) == b"\x02\x10"

The set is a process of its own, fa-set-simulator, found by PATH or by the environment variable
FA_SET_SIMULATOR. It ends with the test, or with pytest, however that ends. While it runs, it is
named in os.environ, so every program that the test starts works on it. What it says, a line for
each call, is shown where a test fails.

A test that needs more sets makes them itself: "with SimulatedSet(options...) as other:".

What cannot be carried out raises SetFailure; what waits gives up after DEADLINE seconds.
"""

import ast
import contextlib
import ctypes
import json
import os
import re
import select
import signal
import subprocess
import sys
import tempfile
import time

import pytest

__tracebackhide__ = True  # a failure is shown in the test's own line
DEADLINE = 20  # seconds

_VARIABLES = ("DBUS_SYSTEM_BUS_ADDRESS", "FA_PLATFORM_PROFILE", "FA_SET_UART", "FA_SET_SS",
              "FA_SET_RJP", "FA_SET_EP")
# Prints the variables, and lives until its standard input ends: we hold the other end.
_ANNOUNCE = (r"printf '%s\0' " + " ".join(f'"${name}"' for name in _VARIABLES) +
             "; exec cat >/dev/null")


class SetFailure(Exception):
    """What went wrong, and what to do about it."""


def _end_with_pytest():
    """In a program that starts: it is killed when pytest is."""
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)  # 1 is PR_SET_PDEATHSIG


class SetLine:
    """The device's end of a serial line of the set; open_line opens one."""

    def __init__(self, name, path):
        self._name = name
        self._descriptor = os.open(path, os.O_RDWR | os.O_NOCTTY | os.O_CLOEXEC | os.O_NONBLOCK)

    def fileno(self):
        return self._descriptor

    def read(self, count):
        """Waits for so many bytes of what the set sends."""
        data = b""
        deadline = time.monotonic() + DEADLINE
        while len(data) < count:
            reason = f"no more in {DEADLINE} s"
            part = b""
            if select.select([self], [], [], max(0, deadline - time.monotonic()))[0]:
                reason = "then the set closed the line"
                try:
                    part = os.read(self._descriptor, count - len(data))
                except OSError:  # as a terminal reports it
                    pass
            if not part:
                raise SetFailure(f"line {self._name}: read {len(data)} of {count} bytes, {reason}: "
                                 f"{data.hex(' ')}")
            data += part
        return data

    def write(self, data):
        """Writes into the set. The silence that follows makes a packet of it."""
        while data:
            if not select.select([], [self], [], DEADLINE)[1]:
                raise SetFailure(f"line {self._name}: {len(data)} bytes are left to write, and the "
                                 f"set has read none in {DEADLINE} s")
            data = data[os.write(self._descriptor, data):]

    def close(self):
        if self._descriptor >= 0:
            os.close(self._descriptor)
            self._descriptor = -1


class SimulatedSet:
    """A set that runs with options of "fa-set-simulator run", from now to finish()."""

    def __init__(self, *options):
        program = os.environ.get("FA_SET_SIMULATOR", "fa-set-simulator")
        self._errors = tempfile.TemporaryFile()
        self._programs = []
        self._lines = []
        self._finished = False
        try:
            self._process = subprocess.Popen(
                [program, "run", *options, "--", "sh", "-c", _ANNOUNCE], stdin=subprocess.PIPE,
                stdout=subprocess.PIPE, stderr=self._errors, start_new_session=True)
        except OSError as error:
            raise SetFailure(
                f"{program}: {error.strerror}. Install the package fa-api-tools, or put the folder "
                "of fa-set-simulator into PATH, or name the program in FA_SET_SIMULATOR") from None
        try:
            self.environment = dict(zip(_VARIABLES, self._read_words(len(_VARIABLES))))
        except BaseException:
            self._process.terminate()
            self.finish()
            raise

    def _read_words(self, count):
        data = b""
        deadline = time.monotonic() + DEADLINE
        output = self._process.stdout
        while data.count(b"\0") < count:
            if not select.select([output], [], [], max(0, deadline - time.monotonic()))[0]:
                raise SetFailure(f"the set is not ready after {DEADLINE} s\n{self.said()}")
            part = os.read(output.fileno(), 4096)
            if not part:
                status = self._process.wait(DEADLINE)
                raise SetFailure(f"the set is not ready; it ended with status {status}\n"
                                 f"{self.said()}")
            data += part
        return [os.fsdecode(word) for word in data.split(b"\0")[:count]]

    def __enter__(self):
        return self

    def __exit__(self, kind, _value, _trace):
        """Raises SetFailure where the set has failed and no other failure is on its way, unless
        finish() has told it."""
        told = self._finished
        status = self.finish()
        sys.stderr.write(self.said())
        if status != 0 and not told and kind is None:
            raise SetFailure(f"the set ended with status {status}\n{self.said()}")

    def said(self):
        """What the set has said so far, a line for each call."""
        self._errors.seek(0)
        return self._errors.read().decode("utf-8", "replace")

    def run(self, command, **arguments):
        """Runs a program on the set to its end, as subprocess.run does, for DEADLINE at most."""
        arguments.setdefault("timeout", DEADLINE)
        return subprocess.run(command, env={**os.environ, **self.environment}, check=False,
                              preexec_fn=_end_with_pytest, **arguments)

    def start(self, command, **arguments):
        """Starts a program on the set, as subprocess.Popen does. It is killed with the set, and so
        are the programs that it starts."""
        program = subprocess.Popen(command, env={**os.environ, **self.environment},
                                   preexec_fn=_end_with_pytest, start_new_session=True,
                                   **arguments)
        self._programs.append(program)
        return program

    def open_line(self, name):
        """The line "uart", "ss", "rjp" or "ep"."""
        path = self.environment.get("FA_SET_" + name.upper())
        if path is None:
            raise SetFailure(f'a line is uart, ss, rjp or ep, not "{name}"')
        self._check("open_line")
        line = SetLine(name, path)
        self._lines.append(line)
        return line

    def write_packet(self, line, packet):
        """Puts exactly one packet, of 1 to 256 bytes, into the line "ss", "rjp" or "ep"."""
        self._ask("WritePacket", json.dumps(line), f"@ay {list(packet)}")

    def add_rules(self, *rules):
        """Adds rules: dictionaries, or texts as in a scenario file. Where one of them is wrong,
        none is added."""
        texts = [rule if isinstance(rule, str) else json.dumps(rule) for rule in rules]
        self._ask("AddRules", json.dumps("\n".join(texts), ensure_ascii=False))

    def clear_rules(self):
        """Takes back all rules, those of the options too."""
        self._ask("ClearRules")

    def calls(self, method=""):
        """The calls so far, or since forget_calls(), as dictionaries with the record's keys."""
        reply = self._ask("GetCalls", json.dumps(method)).replace("@as ", "", 1)
        return [json.loads(line) for line in ast.literal_eval(reply)[0]]

    def wait_for_calls(self, count, method=""):
        """Waits until there are so many such calls or more."""
        deadline = time.monotonic() + DEADLINE
        while len(calls := self.calls(method)) < count:
            if time.monotonic() > deadline:
                raise SetFailure(f"{len(calls)} of {count} calls after {DEADLINE} s: {calls}")
            time.sleep(0.01)
        return calls

    def forget_calls(self):
        self._ask("ForgetCalls")

    def _check(self, what):
        if self._process.poll() is not None:
            raise SetFailure(f"{what}: the set has ended, with status {self._process.returncode}\n"
                             f"{self.said()}")

    def _ask(self, method, *arguments):
        """Calls the set's control interface; arguments and result are GVariant texts."""
        self._check(method)
        command = ["gdbus", "call", "--address", self.environment["DBUS_SYSTEM_BUS_ADDRESS"],
                   "--dest", "org.kavra.tv.automation-service", "--object-path", "/KVFacAutoObj",
                   "--method", f"org.kavra.tv.automationservice.Simulator.{method}", *arguments]
        done = subprocess.run(command, env={**os.environ, "LC_ALL": "C.UTF-8"}, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8")
        if done.returncode != 0:
            with contextlib.suppress(subprocess.TimeoutExpired):
                self._process.wait(0 if "InvalidArgs" in done.stderr else 2)  # it may be ending
            self._check(method)
            reason = re.sub(r"^Error: (GDBus\.Error:\S+: )?", "", done.stderr)
            raise SetFailure(f"{method}: " + reason.partition("\n(According to")[0])
        return done.stdout

    def finish(self):
        """Ends the set and returns the status of "fa-set-simulator run", 0 when all is well."""
        self._finished = True
        for program in self._programs:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(program.pid, signal.SIGKILL)
            program.wait()
        for line in self._lines:
            line.close()
        self._programs, self._lines = [], []
        self._process.stdin.close()
        self._process.stdout.close()
        try:
            return self._process.wait(DEADLINE)
        except subprocess.TimeoutExpired:
            self._process.kill()
            return self._process.wait()


def pytest_configure(config):
    config.addinivalue_line("markers",
                            "fa_set(*options): options of fa-set-simulator run for the set")


@pytest.fixture
def fa_set(request, monkeypatch):
    """A set for the test, with the options of its marker fa_set. A set that fails, as a replay
    that differs from its recording does, fails the test, unless that has called finish()."""
    marker = request.node.get_closest_marker("fa_set")
    with SimulatedSet(*(marker.args if marker else ())) as simulated:
        for name, value in simulated.environment.items():
            monkeypatch.setenv(name, value)
        yield simulated
