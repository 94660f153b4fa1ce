# The conversation with a set: recorded, captured, played back.
import os
import pathlib
import re
import signal
import time

from gi.repository import GLib

import simulator
from simulator import CALL, HERE, PROGRAM, RECORDING, text_of, wait, without_times

RECORDED = text_of(HERE / "recorded.jsonl")


class Conversation(simulator.SetTest):
    def converse(self, *options):
        # An application talks to the set. Returns what it was told and its local set, and what
        # the set has told of its calls.
        pathlib.Path("profile").write_text("[system_info_int]\n284=6\n")
        for folder in "logs", "usb":
            os.makedirs(folder, exist_ok=True)
        self.start("--log-dir", "logs", "--usb-dir", "usb", *options)
        owners, told, called = [], [], []
        self.subscribe("org.freedesktop.DBus", lambda name, *values: owners.append(values[0]))
        self.subscribe(simulator.CONTRACT + ".Simulator", lambda name, call: called.append(call))
        told.append(self.call_without_reply("CloseExUart"))
        none, answer, both = [], [("rjp", 2)], [("rjp", 1), ("ss", 3)]
        for heard, *call in (
                (none, "ExecuteCommand", 16, 1), (answer, "SendRjpData", 2, [2, 16]),
                (none, "GetRjpProtocolData"), (both, "SendRjpData", 2, [2, 17]),
                (none, "GetRjpProtocolData"), (none, "GetSsProtocolData"),
                (none, "ChangeBaudRateExUart", 9600), (none, "CopyLogToUsb"),
                (none, "CopyLogToUsb"), (none, "GetEpProtocolData"),
                (none, "ExecuteCommandWithData", 82, 1, list(b"KOR"), 3),
                (none, "ExecuteCommandWithData", 82, 1, list(b"US"), 2),
                (none, "SendMessageByExUart", 1, [7])):
            told.append(self.call(*call))
            self.hear(*heard)
        # The service goes, and comes back.
        wait(lambda: owners.count(simulator.SERVICE) >= 2)
        self.check(("GetCalls", "", called), ("GetCalls", "ExecuteCommand", called[1:2]))
        told.append(self.call("CloseExUart"))
        wait(lambda: len(called) == len(told))
        self.stop()
        return told + [text_of("profile")], called

    def test_a_recording_is_played_back_as_it_was(self):
        told, called = self.converse("--scenario", HERE / "device.jsonl", "--record", "first")
        self.assertEqual(without_times(text_of("first")), RECORDED)
        self.assertEqual(called, re.findall('.*"method".*', text_of("first")))
        self.assertIn("[system_info_int]\n284=2\n", told)
        self.assertEqual(self.converse("--replay", "first", "--record", "second")[0], told)
        self.assertEqual(without_times(text_of("second")), RECORDED)

    def test_a_capture_is_played_back_with_the_same_results(self):
        capture = self.spawn("capture", "captured")
        self.assertIn("listening", capture.stderr.readline())
        # A call that no service takes is none of the set's, nor is what somebody says of its name.
        self.assertRegex(self.call("CloseExUart"), "^ServiceUnknown")
        self.connection.emit_signal(None, "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "NameOwnerChanged",
                                    GLib.Variant("(sss)", (simulator.SERVICE, "", ":1.9")))
        told, _ = self.converse("--scenario", HERE / "device.jsonl")
        wait(lambda: text_of("captured").count('"left"') == 2)
        capture.send_signal(signal.SIGINT)
        self.assertEqual(capture.wait(), 0)
        # The service comes and goes; what goes over the lines, and why, is not heard.
        heard = re.sub('{"(in|out)".*\n', "", re.sub(',"fault":"[a-z-]+"', "", RECORDED))
        heard = heard.replace("\n", '\n{"bus":"joined"}\n', 1)
        heard = heard.replace('{"end"', '{"bus":"left"}\n{"end"')
        self.assertEqual(without_times(text_of("captured")), heard)
        self.assertEqual(self.converse("--replay", "captured")[0], told)
        self.start("--replay", "captured")
        for call in ("SetFault", "", "", 0, 0), ("AddRules", ""), ("WritePacket", "ss", [1]):
            self.check((*call, "InvalidArgs: a replay goes by its recording alone"))
        self.stop(status=123)
        # Two clients number their calls alike.
        capture = self.spawn("capture", "captured")
        self.assertIn("listening", capture.stderr.readline())
        self.start("--fault", "CloseExUart delay 300")
        for _ in range(2):
            self.connection = simulator.connect(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
            self.call_without_reply("CloseExUart")
        wait(lambda: text_of("captured").count('"result":1') == 2)
        # What is yet to be answered at the end is written as well.
        self.call_without_reply("CloseExUart")
        simulator.catch_up(self.connection)
        self.bus.kill()
        self.see_end(1)
        wait(lambda: text_of("captured").count("CloseExUart") == 3)

    def test_a_replay_goes_as_fast_as_it_can_or_as_it_was(self):
        # The announcement comes 0.6 seconds after the call, or would come after days.
        for speed, time_of in ("fast", lambda ms: ms * 10**6), ("real", lambda ms: ms + 10**6):
            pathlib.Path("recording").write_text(
                re.sub('(?<="time":)[0-9]+', lambda ms: str(time_of(int(ms[0]))), RECORDING))
            self.start("--replay", "recording", "--speed", speed)
            begin = time.monotonic()
            self.check(("ExecuteCommand", 16, 1, 1))
            wait(lambda: self.announcements == ["rjp a byte"])
            self.assertGreater(time.monotonic() - begin, 0.5 if speed == "real" else 0)
            self.assertEqual(self.read("uart", 2), b"\1\2")
            # Nobody comes, so it is announced again and again; as many fetches are no difference.
            wait(lambda: self.announcements == ["rjp a byte"] * 3)
            self.check(("GetRjpProtocolData", ([1, 6], 1)), *[("GetRjpProtocolData", ([], 0))] * 2)
            self.call_without_reply("CloseExUart")
            wait(lambda: "CloseExUart() -> nothing" in text_of("err"))
            self.take_announcements()
            if speed == "fast":
                self.stop()
        self.call_without_reply("GetRjpProtocolData")
        self.see_end(123)

    def test_a_replay_announces_again_what_was_fetched_before_its_turn(self):
        lines = RECORDING.splitlines(keepends=True)
        pathlib.Path("recording").write_text("".join([*lines[:5], lines[6], lines[5], lines[7]]))
        self.start("--replay", "recording")
        self.check(("ExecuteCommand", 16, 1, 1))
        wait(lambda: self.announcements == ["rjp a byte"])
        self.check(("GetRjpProtocolData", ([], 0)))
        self.call_without_reply("CloseExUart")
        wait(lambda: self.announcements == ["rjp a byte"] * 2)
        self.check(("GetRjpProtocolData", ([1, 6], 1)))
        self.take_announcements()

    def test_the_first_difference_is_shown(self):
        pathlib.Path("recording").write_text(RECORDING)
        shown = RECORDING.splitlines()
        command = ("ExecuteCommand", 16, 1)
        for act, complaint in (
                (lambda: self.check(("ExecuteCommand", 16, 2,
                                     "Fault: the recording has another call")),
                 f":2: another call comes\n  {shown[0]}\n- {shown[1]}\n"
                 '+ {"method":"ExecuteCommand","arguments":{"data0":16,"data1":2}}\n'
                 f"  {shown[2]}\n"),
                (lambda: (self.call(*command), self.call(*command)), ":6: another call comes\n"),
                (lambda: (self.call(*command), self.set.terminate()), ":6: a call is missing\n"),
                (lambda: self.write("ep", b"x"),
                 ":2: bytes come into a line that the recording plays\n"
                 f"  {shown[0]}\n- {shown[1]}\n+ " '{"in":"ep","bytes":"78"}\n'),
                (lambda: (self.take_announcements(), self.call(*command),
                          self.call("GetRjpProtocolData"), self.call_without_reply("CloseExUart"),
                          [self.call("GetRjpProtocolData") for _ in self.take_announcements()]),
                 ":8: one call is too many\n")):
            self.start("--replay", "recording", "--record", "other")
            act()
            self.see_end(123)
            self.assertIn(f"fa-set-simulator: replay: recording{complaint}", text_of("err"))
            self.assertRegex(text_of("other"), '"end":true}\n$')
        # The command of a run ends with it.
        self.run_program(123, "", "recording:2: another call comes",
                         "run -q --replay recording "
                         f"sh -c '{CALL}CloseExUart >&- 2>&-; exec sleep 200'")
        # One that ends before the service goes, twice, has not made the calls that come after.
        away = '{"time":99999,"bus":"left"}\n{"time":99999,"bus":"joined"}\n'
        late = RECORDING.replace('{"time":1,', 2 * away + '{"time":99999,')
        pathlib.Path("recording").write_text(late)
        self.run_program(123, "", "recording:6: a call is missing",
                         "run -q --replay recording --speed real false")

    def test_a_record_is_whole_or_says_that_it_is_not(self):
        self.start("--record", "record")
        self.check(("CloseExUart", 1))
        # Somebody empties it, and another set wants it.
        os.truncate("record", 0)
        self.check(("CopyLogToUsb", 0))
        for words in "--record record", "run --record record true":
            self.run_program(1, "", "record: another set writes it\n", words)
        self.assertEqual(without_times(text_of("record")),
                         '{"method":"CopyLogToUsb","arguments":{},"result":0}\n')
        # What a set that is refused finds stays as it is.
        pathlib.Path("old").write_text("old")
        self.run_program(1, "", "is taken by another process", "-q --record old")
        self.assertEqual(text_of("old"), "old")
        self.stop()
        self.start("--quiet", "--record", "/dev/full")
        self.check(("CloseExUart", 1))
        self.stop(status=1)
        self.assertEqual(text_of("err"),
                         "fa-set-simulator: record /dev/full: No space left on device\n")
        # A disk that fills up in the middle of a line keeps the lines before it.
        self.run_program(1, "", "record small: File too large\n", "run -q sh -c 'ulimit -f 6; exec "
                         f"{PROGRAM} run -q --record small -f \"ss burst 100\" true'")
        self.assertRegex(text_of("small"), '(?s)^{"conversation":1}\n.*}\n$')
        # A pipe takes a long line in parts.
        data = ",".join(str(i % 256) for i in range(100_000))
        self.run_program(0, f'"data":[100000,{data}],"result":1', "", "run -q --record /dev/stdout "
                         "-f 'GetSsProtocolData long 100000' "
                         f"sh -c '{CALL}GetSsProtocolData >/dev/null'")


simulator.main()
