# What the simulated set does when it is told to, and what commands change in it.
import os
import pathlib
import time

import simulator
from simulator import HERE, NOTHING, PROFILE, packet, text_of

ON_DEMAND = "Fault: a fault on demand"


class Rules(simulator.SetTest):
    def test_faults_change_the_answers_that_they_are_for(self):
        self.start("--quiet", "--fault", "CopyLogToUsb error times 1")
        self.check(("CopyLogToUsb", ON_DEMAND), ("CopyLogToUsb", 0))
        for faults, answers in (
                ([("SendRjpData", "result", 0, 2)], [0, 0, 1]),
                ([("SendRjpData", "result", -7, 1)], [-7, 1]),
                ([("SendRjpData", "error", 0, 3)], [ON_DEMAND] * 3 + [1]),
                ([("all", "result", 5, 2), ("SendRjpData", "result", 6, 1)], [6, 5, 5, 1]),
                ([("SendRjpData", "result", 8, 1), ("all", "result", 7, 1)], [8, 7, 1]),
                ([("SendRjpData", "result", 3, 0), ("SendRjpData", "result", 4, 1)], [4, 1]),
                ([("CloseExUart", "error", 0, 1)], [1]),
                ([("all", "error", 0, 0)], [ON_DEMAND] * 3)):
            for fault in faults:
                self.check(("SetFault", *fault, None))
            self.assertEqual([self.call("SendRjpData", 1, [1]) for _ in answers], answers, faults)
            self.check(("ClearFaults", None), ("CloseExUart", 1))
        # What is done goes by the result: nothing by 0 and errors, all by others.
        self.check(("SendRjpData", 1, [2], 1))
        self.assertEqual(self.read("rjp", 15), b"\1" * 14 + b"\2")
        self.check(("SetFault", "ss", "burst", 258, 0, None))
        self.hear(*[("ss", 2)] * 258)
        self.check(*(("GetSsProtocolData", packet(divmod(i, 256))) for i in range(258)))
        # What cannot be is refused.
        for *fault, reason in (
                ("Nope", "error", 0, 0, "there is no method Nope"),
                ("uart", "burst", 1, 0, "there is no method uart"),
                ("ss", "error", 0, 0, "ss has no fault error"),
                ("CloseExUart", "empty", 0, 0, "CloseExUart has no fault empty"),
                ("all", "long", 0, 0, "all has no fault long"),
                ("CloseExUart", "delay", -1, 0, "delay takes no value -1"),
                ("GetSsProtocolData", "long", 100001, 0, "long takes no value 100001"),
                ("CloseExUart", "delay", 600001, 0, "delay takes no value 600001"),
                ("ss", "burst", 0, 0, "burst takes no value 0"),
                ("ss", "burst", 1, 2, "burst happens once and takes no times"),
                ("service", "leave", 1, 1, "leave happens once and takes no times")):
            self.check(("SetFault", *fault, f"InvalidArgs: fault: {reason}"))

    def test_a_delay_delays_and_a_late_answer_loses_nothing(self):
        self.start("--fault", "CloseExUart delay 300 times 1")
        # All that a rule says is late, and in the meantime the set is there for others.
        self.check(("AddRules", """\
{"method": "CopyLogToUsb", "times": 1, "delay": 600000, "result": 2, "in": {"ep": "02"}}
{"method": "CopyLogToUsb", "delay": 300, "result": 3, "in": {"ep": "03"}}
{"method": "CloseExUart", "delay": 300, "error": "late", "in": {"ep": "04"}}
{"method": "ChangeBaudRateExUart", "delay": 600000, "in": {"ss": "05"}}
{"method": "ExecuteCommand", "delay": 600000, "leave": 5}""", None))
        # Where it has no answer, that does not wait.
        self.check(("ChangeBaudRateExUart", 9600, 1), ("ExecuteCommand", 1, 1, 1))
        self.call_without_reply("CopyLogToUsb")
        begin = time.monotonic()
        self.check(("CloseExUart", 1), ("CopyLogToUsb", 3), ("CloseExUart", "Fault: late"))
        self.assertGreaterEqual(time.monotonic() - begin, 0.9)
        self.hear(("ep", 1), ("ep", 1))
        self.check(("GetEpProtocolData", packet(b"\3")), ("GetEpProtocolData", packet(b"\4")))
        # Who has given up waiting for a packet gets it by the next fetch.
        self.write("ss", b"x")
        self.hear(("ss", 1))
        self.check(("SetFault", "GetSsProtocolData", "delay", 30000, 1, None))
        self.call_without_reply("GetSsProtocolData")
        self.hear(("ss", 1))
        self.check(("GetSsProtocolData", packet(b"x")))

    def test_scenarios_answer_for_a_device(self):
        pathlib.Path("scenario").write_text("""\
{"out": {"rjp": "02 10"}, "delay": 200, "in": {"rjp": "06"}}
{"out": {"rjp": "03 .. ff *"}, "in": {"ss": "15 00", "ep": "16"}}
{"out": {"uart": "*"}, "skip": 1, "times": 1, "burst": {"ep": 3}}

{"start": true, "in": {"ss": "aa bb"}}
""")
        self.start("--scenario", "scenario")
        self.check(("GetSsProtocolData", packet(b"\xaa\xbb")))
        self.take_announcements()
        answer, both = [("rjp", 1)], [("ss", 2), ("ep", 1)]
        for heard, *call in (
                (answer, "SendRjpData", 2, [2, 16]), (answer, "SendRS232Ack", 2, 2, [2, 16]),
                ([], "SendRjpData", 1, [2]), ([], "SendRjpData", 3, [2, 16, 0]),
                ([], "SendRS232Ack", 3, 2, [2, 16]), (both, "SendRjpData", 3, [3, 9, 255]),
                (both, "SendRjpData", 4, [3, 0, 255, 1]), ([], "SendRjpData", 3, [3, 9, 254]),
                ([], "SendMessageByExUart", 1, [1]),
                ([("ep", 2)] * 3, "SendMessageByExUart", 1, [1]),
                ([], "SendMessageByExUart", 1, [1])):
            begin = time.monotonic()
            self.check((*call, 1))
            self.hear(*heard)
            self.assertEqual(time.monotonic() - begin >= 0.2 or heard != answer, True)
        self.check(("GetRjpProtocolData", packet([6])), ("GetSsProtocolData", packet([0x15, 0])),
                   ("ClearRules", None), ("SendRjpData", 2, [2, 16], 1))
        time.sleep(0.3)
        self.hear()

    def test_rules_hold_in_order_for_the_calls_that_they_are_for(self):
        rules = """\
{"method": "ExecuteCommand", "arguments": {"data0": 32, "data1": 3}, "skip": 2, "times": 1, \
"error": "busy"}
{"method": "ExecuteCommand", "arguments": {"data0": 32}, "result": 5}
{"method":"ExecuteCommand","arguments":{"data1":3},"skip":4,"times":1,"result":6,"in":{"ss":"01"}}
{"method": "all", "result": 9}
{"method": "SendRjpData", "arguments": {"pData": "01 *"}, "delay": 1}
{"method": "GetSsProtocolData", "times": 1, "data": [5, 170, 511]}
{"method": "GetSsProtocolData", "times": 1, "data": "aa bb", "result": -2}"""
        self.start()
        self.check(
            ("AddRules", rules, None), ("ExecuteCommand", 32, 3, 5), ("ExecuteCommand", 32, 4, 5),
            ("ExecuteCommand", 32, 3, 5), ("ExecuteCommand", 32, 3, "Fault: busy"),
            ("ExecuteCommand", 32, 3, 5), ("ExecuteCommand", 33, 3, 6),
            ("ExecuteCommand", 33, 3, 9), ("SendRjpData", 2, [1, 2], 1), ("SendRjpData", 1, [2], 9),
            ("GetSsProtocolData", ([5, 170, 511], 1)), ("GetSsProtocolData", ([2, 170, 187], -2)),
            ("GetSsProtocolData", ([1, 1], 9)),
            # A fault goes before the rules, and leaves them alone.
            ("SetFault", "ExecuteCommand", "error", 0, 0, None),
            ("SetFault", "all", "result", 4, 0, None), ("ExecuteCommand", 32, 3, ON_DEMAND),
            ("CloseExUart", 4), ("ClearFaults", None), ("CloseExUart", 9),
            ("ExecuteCommand", 32, 3, 5), ("ClearRules", None), ("ExecuteCommand", 32, 3, 1))
        # Chance goes by the seed.
        results = []
        for seed in "4294967295", "4294967295", "8":
            self.stop()
            self.start("--seed", seed)
            self.call("AddRules", '{"method": "all", "chance": 0.5, "times": 20, "result": 2}')
            results.append([self.call("CloseExUart") for _ in range(40)])
            self.assertIn(f"set: chance goes by --seed {seed}\n", text_of("err"))
        self.assertEqual(results[0], results[1])
        self.assertNotEqual(results[0], results[2])
        self.assertEqual((set(results[0][:20]), set(results[0][20:])), ({1, 2}, {1}))

    def test_refuses_rules_that_cannot_be(self):
        self.start()
        for row in text_of(HERE / "refused_rules.txt").splitlines():
            rule, reason = row.split(" -- ")
            text = '\n{"method": "all", "result": 0}\n' + rule
            answer = self.call("AddRules", text)
            self.assertEqual(answer[:len(reason) + 22], "InvalidArgs: rules:3: " + reason)
            pathlib.Path("scenario").write_text(text)
            self.run_program(1, "", f"scenario scenario:3: {reason}", "--scenario scenario")
        self.check(("CloseExUart", 1))  # not one of the rules is there

    def test_the_local_set_changes_the_profile_and_nothing_else(self):
        os.mkdir("real")
        os.rename("profile", "real/profile")
        os.symlink("real/profile", "profile")
        os.chmod("real/profile", 0o664)
        self.start()

        def change(name):
            return self.call("ExecuteCommandWithData", 82, 1, list(name), len(name))
        self.assertEqual((change(b"NOWHERE"), change(b"LOCALSET_ERR")), (0, 0))
        self.check(("SetFault", "ExecuteCommandWithData", "result", 0, 1, None))
        self.assertEqual(change(b"JAPAN"), 0)
        self.check(("ExecuteCommandWithData", 82, 2, [74], 1, 1),
                   ("ExecuteCommandWithData", 1, 1, [], 0, 0))
        self.assertEqual(text_of("profile"), PROFILE)
        self.assertEqual(change(b"JAPAN"), 1)
        self.assertEqual(text_of("real/profile"), PROFILE.replace("284=6", "284=95"))
        self.assertTrue(os.path.islink("profile"))
        self.assertEqual(os.stat("profile").st_mode & 0o7777, 0o664)
        self.assertRegex(text_of("err"), "no such local set\n(.*\n)*.*the local set is 95 now\n")

    def test_logs_are_copied_as_a_stick_takes_them(self):
        os.makedirs("logs/inner")
        os.mkdir("usb")
        pathlib.Path("logs/a.log").write_text("hello")
        pathlib.Path("logs/inner/b.log").write_text("there")
        os.symlink("/etc/passwd", "logs/link")
        os.mkfifo("logs/fifo")
        self.start("--log-dir", "logs", "--usb-dir", "usb")
        self.check(("CopyLogToUsb", 1))
        pathlib.Path("logs/a.log").write_text("hello again")
        os.utime("logs/a.log", (1, 1))  # as one that is moved there
        self.check(("CopyLogToUsb", 1))
        usb = {str(file): file.is_dir() or text_of(file) for file in pathlib.Path("usb").rglob("*")}
        self.assertEqual(usb, {"usb/logs": True, "usb/logs/a.log": "hello again",
                               "usb/logs/inner": True, "usb/logs/inner/b.log": "there"})
        # A link in the copy's place would lead it elsewhere.
        os.rename("usb/logs/inner", "inner")
        os.symlink("../..", "usb/logs/inner")
        self.check(("CopyLogToUsb", 0))
        self.assertIn("stops at usb/logs/inner:", text_of("err"))
        self.assertFalse(os.path.exists("b.log"))
        os.rename("usb", "elsewhere")
        self.check(("CopyLogToUsb", 0))
        self.assertIn("no logs are copied: no USB storage\n", text_of("err"))
        self.stop()
        os.mkdir("logs/usb")
        self.start("--log-dir", "logs", "--usb-dir", "logs/usb")
        self.check(("CopyLogToUsb", 0))


simulator.main()
