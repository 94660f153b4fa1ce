# The example programs, from the folder EXAMPLES, on a simulated set as a person runs them.
import os
import pathlib
import re
import subprocess
import tempfile

import simulator
from simulator import HERE, text_of, wait, without_times

EXAMPLES = os.environ["EXAMPLES"]
CONVERSATION = EXAMPLES + "/fa-conversation"
SHOWN = text_of(HERE / "conversation.txt")
LOG = "/FA_API: "


def failed(number, reason=""):
    # What the conversation shows that goes as far as the step.
    shown, step = re.match(rf"(?s)(.*?\b{number}\. ([^\n]*)\n)", SHOWN).groups()
    return (f"{shown}{reason}FAILED at step {number}: {step}. The platform log on standard error "
            "says why.\n")


class Examples(simulator.SetTest):
    def test_a_conversation_is_played_back_from_what_was_recorded_and_captured(self):
        capture = self.spawn("capture", "captured")
        self.assertIn("listening", capture.stderr.readline())
        bus = os.environ["DBUS_SYSTEM_BUS_ADDRESS"]
        self.run_program(0, SHOWN, "automation_unregister_callback_ep_protocol",
                         f"run -q --bus {bus} --record recorded {CONVERSATION}")
        wait(lambda: '"left"' in text_of("captured"))
        capture.terminate()
        self.assertEqual(capture.wait(), 0)
        self.assertRegex(text_of("recorded"), '(?s):16,"data1":1}.*:16,"data1":2,.*:115200}.*:4}')
        # The recording is the device, so the program finds files where the lines were.
        pathlib.Path("line").write_bytes(b"\x02\x10\xff\x03")
        lines = "FA_SET_UART=line FA_SET_RJP=line FA_SET_SS=line FA_SET_EP=line"
        for recording in "recorded", "captured":
            self.run_program(0, SHOWN, LOG, f"run -q --replay {recording} --record again "
                                            f"env {lines} {CONVERSATION}")
            self.assertEqual(without_times(text_of("again")), without_times(text_of(recording)))

    def test_a_conversation_names_the_step_that_fails(self):
        for number, reason, words in (
                (9, "", "-f 'SendRS232Ack result 0' env FA_PLATFORM_LOG_PRIORITY=x"),
                (8, "   the other end received: nothing\n", "env FA_SET_RJP=/dev/null"),
                (17, "   no serial line in FA_SET_EP: is this run by fa-set-simulator?\n"
                 "   the callback received: nothing\n", "env -u FA_SET_EP"),
                (2, "", "-f 'ExecuteCommandWithData error' env FA_PLATFORM_LOG=nowhere/log"),
                (1, "", "-f 'ExecuteCommand no-answer' --reply-timeout 300")):
            self.run_program(1, failed(number, reason), LOG, f"run -q {words} {CONVERSATION}")

    def test_what_gives_up_after_five_seconds(self):
        stubborn = self.spawn("run", "-q", "--timeout", "0.2", "sh", "-c",
                              "trap '' TERM; exec sleep 200")
        # An announcement without data is none.
        self.run_program(1, failed(15, "   the callback received: nothing\n"), LOG,
                         f"run -q -f 'GetSsProtocolData empty' {CONVERSATION}")
        self.assertEqual(stubborn.wait(30), 124)

    def test_the_platform_log_of_a_command_goes_where_it_should(self):
        for option, inherited in ("--log-priority E", "V"), ("", "E"):
            words = f"run -q -f 'all error' --log log {option} sh -c 'cd /; $0; $0' {CONVERSATION}"
            self.run_program(1, failed(1), "", words,
                             env=os.environ | {"FA_PLATFORM_LOG_PRIORITY": inherited})
            self.assertRegex(text_of("log"), r"\A(E/FA_API: .*\n){4}\Z")

    def test_the_console_offers_its_dialogues(self):
        session = re.findall(r"([^{]+){(.*?)}", text_of(HERE / "console.txt"), re.S)
        shown = [text for text, _ in session]
        typed = "".join(typed for _, typed in session)
        script = f"{EXAMPLES}/fa-test-menu <typed; echo ends with $?"
        for given, output in (typed, "".join(shown)), ("", shown[0]), ("no line end", shown[0]):
            pathlib.Path("typed").write_text(given)
            self.run_program(0, output + "ends with 0\n", "set: the service is on the bus\n",
                             f"run -f 'all error' sh -c '{script}'")
        # A program that types has read the menu before.
        console = self.spawn("run", "-q", EXAMPLES + "/fa-test-menu", stdin=subprocess.PIPE)
        self.assertEqual(self.read(console.stdout.fileno(), len(shown[0])).decode(), shown[0])
        console.communicate("99\n")

    def test_command_lines(self):
        for program, excess in (("fa-conversation", "1"), ("fa-inspection-run", ". 2"),
                                ("fa-inspection-line", ". 2 3 4 5 6"), ("fa-test-menu", "1")):
            usage = f"usage: {program} [--help]"
            for words in "--help", "-h":
                self.run_program(0, usage, "", f"run -q {EXAMPLES}/{program} {words}")
            for words in "--wrong", excess:
                self.run_program(2, "", usage, f"run -q {EXAMPLES}/{program} {words}")
        profile = f"run -q {EXAMPLES}/../platform/profile/fa-platform-profile "
        self.run_program(0, "fa-platform-profile ", "", profile + "--version")
        self.run_program(2, "", "profile: no arguments are expected (--help", profile + "x")
        self.run_program(0, "\nwritten: ./report-raw.txt\n", LOG,
                         f"run -q {EXAMPLES}/fa-inspection-run")
        os.unlink("report-simple.txt")
        self.run_program(2, "", "RUNS", f"run -q {EXAMPLES}/fa-inspection-line . none")
        for program, file, shown in (("fa-inspection-line", "run-2-000.txt", "log mode"),
                                     ("fa-inspection-run", "report-simple.txt", "Supply 5V")):
            os.symlink("/dev/full", file)
            for folder in "nowhere", ".":
                self.run_program(1, shown, f"{program}: cannot write {folder}/{file}",
                                 f"run -q {EXAMPLES}/{program} {folder}")

    def test_runs_of_a_line_are_judged_by_their_limits_and_one_by_one(self):
        def inspect(words=""):
            folder = tempfile.mkdtemp(dir=".")
            command = f"{EXAMPLES}/fa-inspection-line {folder} {words} >out 2>&1"
            self.assertEqual(os.system(command), 0)
            return {file.name: text_of(file) for file in pathlib.Path(folder).iterdir()}
        self.assertEqual(inspect(), inspect("200 1 2 .41"))
        self.assertNotEqual(inspect("9 1"), inspect("9 2"))
        last, ends, runs, failed = "", [], inspect("999 7 3 .5"), set()
        for n in range(len(runs)):
            day, minute = 3 + n // 40, n % 40 * 12
            text = runs[f"run-{day}-{n % 40:03}.txt"]
            begin = f"202611{day:02}{8 + minute // 60:02}{minute % 60:02}00"
            result, serial = re.search(r"result=(\w+)[^/]*?s/n=0A1B3CDN9(\d{5})\n", text).groups()
            self.assertEqual(text[20:34], begin)
            items = re.findall(r"(?s)\nresult=(\w+)\n(?:(?!result).)*?spec=(.*?)\nmeasure=(.*?)\n"
                               r".*?failed=(.*?);?[^;^]*\^(.*?)\^", text)
            for verdict, spec, measure, note, detail in items:
                low, high, limit, sign = re.match("(.*)~(.*)|([-.0-9]+)(.*)", spec).groups()
                rule = "{0} <= {1} <= {2}" if low else "{1} {3} {4}"
                passes = all(eval(rule.format(low, value, high, sign or "==", limit))
                             for value in measure.split(","))
                self.assertEqual((verdict, detail != "", note[:5]),
                                 ("pass", False, "") if passes else ("fail", True, "auto;"), text)
            self.assertEqual((result, len(items)),
                             ("fail" if "\nresult=fail\nduration" in text else "pass", 6), text)
            ends.append((last[:4], serial == last[4:]))
            last = result + serial
            failed |= {detail for *_, detail in items}
        # Only a set that failed comes back, mostly.
        self.assertEqual((len(runs), len(failed), ends.count(("pass", True))), (999, 7, 0))
        self.assertGreater(ends.count(("fail", True)), ends.count(("fail", False)))


simulator.main()
