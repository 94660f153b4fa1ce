# fa-set-simulator as a person calls it: its outputs and exit statuses, and how it ends.
import ctypes
import fcntl
import os
import pathlib
import pty
import select
import signal
import socket
import subprocess
import termios
import time

import simulator
from simulator import CALL, PROFILE, PROGRAM, RECORDING, text_of, wait


class Ends(simulator.SetTest):
    def test_status_and_reason(self):
        pathlib.Path("bin").mkdir()
        pathlib.Path("bin/dbus-daemon").write_text("#!/bin/sh\necho 'no bus today' >&2\nexit 1\n")
        pathlib.Path("bin/dbus-daemon").chmod(0o755)
        for row in (
                (0, "", "", "run -q -l ss=a sh -c 'cd /; true <$FA_SET_SS <$FA_PLATFORM_PROFILE'"),
                (7, "out\n", "err\n", "run -q sh -c 'echo out; echo err >&2; exit 7'"),
                (0, "", "set: the service is on the bus\n", "run true"),
                (0, "", "GetSsProtocolData long 300\n", "run -f 'GetSsProtocolData long' true"),
                (0, "((0,),)\n", "",
                 f"run -q sh -c '{PROGRAM} fault CloseExUart result 0; {CALL}CloseExUart'"),
                (0, "((1,),)\n", "",
                 f"run -q sh -c 'echo > $FA_PLATFORM_PROFILE; {CALL}CopyLogToUsb'"),
                (0, PROFILE, "", f"run -q sh -c '{PROGRAM} run -q cat /dev/fd/5 5<profile'"),
                (137, "", "ended by a signal: Killed\n", "run -q -- sh -c 'kill -9 $$'"),
                *((128 + number, "", "", f"run -q sh -c 'kill -{number} $PPID; exec sleep 200'")
                  for number in (1, 2, 15)),
                (1, "", "bus is gone", "run -q sh -c 'pkill -P $PPID dbus-daemon; exec sleep 200'"),
                (124, "", "is ended after 200 ms\n", "run -q --timeout 0.2 "
                 "sh -c 'trap exit TERM; while :; do sleep 0.1; done'"),
                (127, "", "Failed to execute child process", "run -q nowhere/program"),
                (126, "", "Permission denied", "run -q ./profile"),
                (1, "", "bus: dbus-daemon does not start: no bus today\n",
                 f"run -q env PATH=bin {PROGRAM} run true"),
                (1, "", "fa-set-simulator: fault: no set is on this bus\n", "fault clear"),
                (0, "", "", f"run -q -r /dev/null {PROGRAM} run -q -r /dev/null true"),
                # Who is told so late that nothing comes, finds the packet again.
                (0, "([uint32 2, 0, 0], ", "NoReply", "run -q -f 'ss burst 1' --reply-timeout 300 "
                 "-f 'GetSsProtocolData delay 900 times 1' "
                 f"sh -c '{CALL}GetSsProtocolData || {CALL}GetSsProtocolData'"),
                (1, "", "record /dev/full: No space left on device\n", "run -q timeout "
                 f"--preserve-status -s INT 1 {PROGRAM} capture /dev/full"),
                (0, "fa-set-simulator ", "", "--version"),
                (0, "--reply-timeout=MS", "", "--help")):
            self.run_program(*row)

    def test_command_lines_that_are_refused(self):
        # By the reason, and separated by "; ".
        for status, refusals in (2, {
                "fa-set-simulator: run needs a command (--help tells more)\n": "run",
                "the word run comes first": "-q run true",
                'unknown word "cook"': "cook",
                "capture needs one file": "capture; capture a b; capture ''",
                "two lines cannot both be ./x": "--line ss=x --line rjp=./x",
                "--line takes uart, ss, rjp or ep": "--line usb=x; --line ss=; --line ss",
                ": fault: ss has no fault error (--help tells more)\n": "fault ss error",
                "result needs a value": "fault all result",
                "fault: “x” is not a signed number": "fault all result x",
                "fault: Number “0” is out of bounds": "fault all error times 0",
                "a fault is TARGET KIND [VALUE] [times N]": "fault all",
                "needs a path": "--record=; --profile=; --usb-dir=; --log-dir=; -s ''; --replay=",
                "--gap takes 0 to 10000": "--gap -1; --gap 10001",
                "--seed takes a number": "--seed x; --seed 4294967296; --seed -1",
                "--timeout takes": "run --timeout 0 x; run --timeout -1 x; run --timeout 1000001 x",
                "--bus needs an address": "run --bus '' true",
                "Unknown option --scenario": "capture --scenario profile",
                "--record would write over the": "--record ./profile --replay profile",
                "--reply-timeout takes": "run --reply-timeout 0 x; run --reply-timeout 1000001 x",
                "--log-priority takes one of": "run --log-priority X x; run --log-priority VD x",
                "are options": "--timeout 1; --bus x; --reply-timeout 5; --log x; --log-priority V",
                "--speed is fast or real": "--speed fast; --replay x --speed slow",
                "recording alone": "--replay x -f 'all error'; --replay x -s profile"}), (1, {
                "there is no folder nowhere": "--usb-dir nowhere; run --log-dir nowhere true",
                "fa-set-simulator: profile nowhere: No such file": "-p nowhere",
                "profile /dev/null: ": "-p /dev/null",
                f"profile {PROGRAM}: ": f"run -p {PROGRAM} true",
                "record nowhere/record: No such file": "--record nowhere/record",
                "log nowhere/log: No such file": "run --log nowhere/log true",
                "replay nowhere: ": "run --replay nowhere true"}):
            for reason, lines in refusals.items():
                for words in lines.split("; "):
                    self.run_program(status, "", reason, words)
        self.run_program(1, "", "bus unix:path=none: Could not connect: No such file or directory "
                         "(DBUS_SYSTEM_BUS_ADDRESS names the bus; fa-set-simulator run makes one",
                         "-q", env=os.environ | {"DBUS_SYSTEM_BUS_ADDRESS": "unix:path=none"})
        self.assertEqual(text_of("profile"), PROFILE)

    def test_recordings_that_are_not_whole(self):
        for found, replacement, reason in (
                ('"conversation":1', '"conversation":2', "1: a recording of version 2, not 1\n"),
                ('{"conversation":1}\n', "", "1: no recording: "),
                ('{"time":604,"end":true}\n', "", "8: the end is missing"),
                ('06"}', '06"', "4: no JSON: "),
                ('06"}', '06"} {}', "4: no JSON: "),
                ('06"}', '06"}, {}', "4: no JSON object\n"),
                ('{"conversation":1}\n{"time":1,', '\n{"conversation":1}\n{', '3: "time" is mis'),
                ('"data0":16', '"data0":"x"', '2: "data0" is no number'),
                ('"data0":16,', "", '2: "data0" is missing'),
                ('"data0":16', '"data9":1,"data0":16', '2: "data9" does not belong here'),
                ('"ExecuteCommand"', '"Execute"', "2: there is no method"),
                ('"time":1,', "", '2: "time" is missing'),
                ('"out":"uart"', '"out":"usb"', "3: there is no line"),
                ("01 02", "1 2", '3: "1" is no byte'),
                ('"announced":"rjp"', '"announced":"uart"', "5: there is no protocol"),
                ('"data":[1,6]', '"data":[1,-6]', "6: an element is no number"),
                ('"data":[1,6],', "", '6: "data" is no array'),
                ('"arguments":{}}', '"arguments":{},"result":1,"error":"a.b: c"}', "7: a call has"),
                ('"end":true}\n', '"end":true}\n{"time":1,"bus":"left"}\n', "9: something foll")):
            self.assertIn(found, RECORDING)
            pathlib.Path("bad").write_text(RECORDING.replace(found, replacement, 1))
            self.run_program(1, "", f"fa-set-simulator: replay bad:{reason}",
                             "run -q --replay bad true")

    def test_what_is_inherited_does_not_matter(self):
        def block_and_ignore():
            signal.signal(signal.SIGCHLD, signal.SIG_IGN)
            signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())

        self.run_program(7, "", "", "run -q sh -c 'exit 7'", preexec_fn=block_and_ignore)
        self.run_program(124, "", "is ended", "run -q --timeout 0.2 sleep 200",
                         preexec_fn=block_and_ignore)
        # A set and its command under nohup stay so.
        words = "run -q sh -c 'kill -HUP $$ $PPID; kill -TERM $PPID; exec sleep 200'"
        self.run_program(143, "", "", words,
                         preexec_fn=lambda: (block_and_ignore(),
                                             signal.signal(signal.SIGHUP, signal.SIG_IGN)))

    def test_a_set_ends_that_nobody_reads(self):
        full, held = os.pipe(), pty.openpty()
        os.write(full[1], bytes(fcntl.fcntl(full[1], fcntl.F_SETPIPE_SZ, 4096)))
        termios.tcflow(held[1], termios.TCOOFF)
        for _, writer in full, held:
            run = self.spawn("run", "sleep", "200", stderr=writer)
            wait(lambda: os.system("gdbus introspect -a unix:path=$(echo tmp/*/bus) -o / "
                                   "-d org.freedesktop.DBus >introspected 2>&1") == 0)
            run.send_signal(signal.SIGTERM)
            self.assertEqual(run.wait(30), 143)
        # The record goes into a pipe that is full.
        os.mkfifo("fifo")
        for option in "--record", "--log":
            self.run_program(1, "", "fifo: nobody reads from it\n", f"run -q {option} fifo true")
        full = os.open("fifo", os.O_RDWR)
        fcntl.fcntl(full, fcntl.F_SETPIPE_SZ, 4096)
        run = self.spawn("run", "-q", "--record", "fifo", "-f", "ss burst 1000", "sleep", "200")
        wait(lambda: not select.select([], [full], [], 0)[1])
        run.send_signal(signal.SIGINT)
        self.assertIn("fifo: nobody has read all of it\n", run.communicate(timeout=30)[1])
        self.assertEqual(run.returncode, 1)

    def test_a_set_ends_whose_bus_does_not_answer(self):
        with socket.socket(socket.AF_UNIX) as mute:
            mute.bind("mute")
            mute.listen()
            os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=mute"
            for words, number, status in (
                    ("-q", signal.SIGINT, 0), ("-q", signal.SIGTERM, 0), ("-q", signal.SIGHUP, 0),
                    ("capture file", signal.SIGTERM, -15),
                    ("run --bus unix:path=mute true", signal.SIGTERM, 143)):
                waiting = self.spawn(*words.split())
                with mute.accept()[0]:
                    waiting.send_signal(number)
                    self.assertEqual(waiting.wait(30), status)

    def test_interrupts_reach_the_command_once(self):
        # Ctrl-C is the whole foreground's, and a signal for the run alone is passed on.
        script = ("trap 'echo int >>ints' INT; touch up; "
                  "while [ ! -e done ]; do sleep 0.05; done; exit 3")
        for typed in (True, False):
            child, terminal = pty.fork()
            if child == 0:
                os.execl(PROGRAM, PROGRAM, "run", "-q", "sh", "-c", script)
            wait(pathlib.Path("up").exists)
            os.write(terminal, b"\x03") if typed else os.kill(child, signal.SIGINT)
            wait(pathlib.Path("ints").exists)
            time.sleep(0.2)
            pathlib.Path("done").touch()
            self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 3)
            self.assertEqual(text_of("ints"), "int\n")
            os.close(terminal)
            os.system("rm up ints done")

    def test_no_end_leaves_a_bus(self):
        # Ended at any moment, a run leaves nobody; killed, its command and its folder.
        ctypes.CDLL(None).prctl(36, 1)  # PR_SET_CHILD_SUBREAPER: who is left becomes our child
        children = pathlib.Path(f"/proc/self/task/{os.getpid()}/children")
        for i in range(24):
            run = self.spawn("run", "-q", "--", "sleep", "200", stderr=subprocess.DEVNULL,
                             stdout=subprocess.DEVNULL)
            time.sleep(i * 0.0025)
            run.send_signal(signal.SIGTERM if i % 2 else signal.SIGKILL)
            self.assertIn(run.wait(30), (-9, -15, 143))
            while left := set(children.read_text().split()) - {str(self.bus.pid)}:
                for child in left:
                    if pathlib.Path(f"/proc/{child}/comm").read_text() == "sleep\n":
                        self.assertEqual(run.returncode, -9)
                        os.kill(int(child), signal.SIGKILL)
                    os.waitpid(int(child), os.WNOHANG)
            self.assertEqual(os.listdir("tmp") if run.returncode != -9 else [], [])
            os.system("rm -rf tmp/*")


simulator.main()
