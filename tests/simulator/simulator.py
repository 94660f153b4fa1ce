# What the tests of fa-set-simulator share: a folder, a bus, and a set on it.
#
# usage: ..._test.py FA-SET-SIMULATOR [TEST...]
import contextlib
import os
import pathlib
import re
import select
import shlex
import subprocess
import sys
import tempfile
import time
import unittest

from gi.repository import Gio, GLib

PROGRAM = os.path.abspath(sys.argv[1])
SERVICE, OBJECT = "org.kavra.tv.automation-service", "/KVFacAutoObj"
CONTRACT = "org.kavra.tv.automationservice"
LINES = ("uart", "ss", "rjp", "ep")
CALL = f"gdbus call --system -d {SERVICE} -o {OBJECT} -m {CONTRACT}."
NOTHING = ([], 0)
PROFILE = "# a comment\n\n[system_info_int]\n869=1\n284=6\n"


def packet(data):
    # What a fetch gives for it.
    return [len(data), *data], 1


def text_of(name):
    return pathlib.Path(name).read_text()


HERE = pathlib.Path(__file__).resolve().parent
RECORDING = text_of(HERE / "recording.jsonl")
METHODS = {}  # of both interfaces: the interface, and the types of the arguments
for path in HERE.parents[1].glob("s*/**/org.kavra.tv.automationservice*.xml"):
    for described in Gio.DBusNodeInfo.new_for_xml(text_of(path)).interfaces:
        for each in described.methods:
            types = "".join(argument.signature for argument in each.in_args)
            METHODS[each.name] = described.name, f"({types})"


def without_times(text):
    return re.sub(r'"time":[0-9]+\.[0-9]{3},', "", text)


def wait(condition):
    # Until it holds; callbacks arrive meanwhile.
    deadline = time.monotonic() + 30
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError
        if not GLib.MainContext.default().iteration(False):
            time.sleep(0.001)


def connect(address):
    flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
             Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
    return Gio.DBusConnection.new_for_address_sync(address, flags, None, None)


def catch_up(connection):
    # Receives all that has been sent to it.
    connection.call_sync("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId", None, None,
                         0, -1, None)
    while GLib.MainContext.default().iteration(False):
        pass


class SetTest(unittest.TestCase):
    # In a folder of its own. A run leaves nothing in the folder tmp, a set none of its links.

    def setUp(self):
        self.set, self.announcements = None, []
        os.chdir(self.enterContext(tempfile.TemporaryDirectory(prefix="fa, set ")))
        os.mkdir("tmp")
        pathlib.Path("profile").write_text(PROFILE)
        self.bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"],
                                    stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(self.bus.communicate)
        self.addCleanup(self.bus.kill)
        address = self.bus.stdout.readline().strip()
        os.environ.update(TMPDIR=os.path.abspath("tmp"), FA_PLATFORM_PROFILE="profile",
                          DBUS_SYSTEM_BUS_ADDRESS=address)
        self.connection = connect(address)
        self.subscribe(CONTRACT, lambda name, text: self.announcements.append(
            name.removesuffix("_handler") + " " + text))

    def tearDown(self):
        if self.set:
            self.stop()
        self.assertEqual(os.listdir("tmp"), [])

    def subscribe(self, interface, function):
        # Calls it with the name and the values of each signal of the interface.
        self.connection.signal_subscribe(
            None, interface, None, None, None, Gio.DBusSignalFlags.NONE,
            lambda *signal: function(signal[4], *signal[5].unpack()))

    def spawn(self, *words, **how):
        how = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True} | how
        process = subprocess.Popen([PROGRAM, *words], start_new_session=True, **how)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def run_program(self, status, output, complaint, words, **how):
        # Runs it to its end. The texts are parts of its outputs; an empty one is the whole.
        process = self.spawn(*shlex.split(words), **how)
        printed = process.communicate(timeout=60)
        with self.subTest(words=words, printed=printed):
            self.assertEqual(process.returncode, status)
            for text, part in zip(printed, (output, complaint)):
                self.assertIn(part, text)
                self.assertEqual(not part, not text)

    def start(self, *options):
        # A set whose lines are links of their names; what it says is in the file err.
        words = ["--gap", "1", *(word for line in LINES for word in ("-l", f"{line}={line}"))]
        with open("out", "w") as out, open("err", "w") as err:
            self.set = self.spawn(*words, *options, stdout=out, stderr=err)
        wait(lambda: self.set.poll() is not None or isinstance(self.call("GetCalls", ""), list))
        self.assertIsNone(self.set.poll(), text_of("err"))

    def stop(self, status=0):
        self.set.terminate()
        self.see_end(status)

    def see_end(self, status):
        process, self.set = self.set, None
        self.assertEqual((process.wait(30), text_of("out")), (status, ""), text_of("err"))
        self.assertFalse([line for line in LINES if os.path.islink(line)])

    def call(self, method, *arguments):
        # Of either interface. Gives the result; of a fetch, the data and the result; or the error,
        # such as "Fault: busy".
        interface, kind = METHODS[method]
        if not (arguments and isinstance(arguments[0], GLib.Variant)):
            arguments = [GLib.Variant(kind, arguments)]
        try:
            reply = self.connection.call_sync(SERVICE, OBJECT, interface, method, arguments[0],
                                              None, 0, -1, None).unpack()
        except GLib.Error as error:
            name, _, text = error.message.removeprefix("GDBus.Error:").partition(": ")
            return f"{name.rpartition('.')[2]}: {text}"
        values = tuple(value[0] if isinstance(value, tuple) else value for value in reply)
        return values if len(values) > 1 else values[0] if values else None

    def call_without_reply(self, method):
        self.connection.call(SERVICE, OBJECT, METHODS[method][0], method, None, None, 0, -1, None,
                             lambda *_: None)

    def check(self, *rows):
        # Makes the calls; each row ends with what is expected.
        for *call, expected in rows:
            self.assertEqual(self.call(*call), expected, call)

    def take_announcements(self):
        catch_up(self.connection)
        taken, self.announcements = self.announcements, []
        return taken

    def hear(self, *expected):
        # Waits for announcements, each a line and a number of bytes; for none: up to now.
        wait(lambda: len(self.announcements) >= len(expected))
        self.assertEqual(self.take_announcements(),
                         [f"{line} {count} bytes on {line}" for line, count in expected])

    def open(self, line):
        return os.open(line, os.O_RDWR | os.O_NOCTTY)

    def write(self, line, data):
        pathlib.Path(line).write_bytes(data)

    def read(self, line, count):
        # Up to so many bytes, fewer where it hangs up or nothing comes.
        file = line if isinstance(line, int) else self.open(line)
        data, part = b"", b"."
        with contextlib.suppress(OSError):  # of a terminal that hangs up
            while part and len(data) < count and select.select([file], [], [], 20)[0]:
                part = os.read(file, count - len(data))
                data += part
        if file != line:
            os.close(file)
        return data


def main():
    unittest.main(argv=sys.argv[1:], verbosity=2)
