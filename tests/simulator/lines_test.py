# The serial lines of the simulated set, and the packets that come in on them.
import fcntl
import os
import pathlib
import random
import select
import termios
import time

from gi.repository import GLib

import simulator
from simulator import LINES, NOTHING, packet, text_of, wait

FETCHES = {"ss": "GetSsProtocolData", "rjp": "GetRjpProtocolData", "ep": "GetEpProtocolData"}


def pattern(count, begin=0):
    # Bytes of all values whose place shows in them, whatever the cut.
    return bytes((i % 251 + i // 251 % 5) % 256 for i in range(begin, begin + count))


class Lines(simulator.SetTest):
    def test_what_is_sent_comes_out_of_its_line(self):
        self.start()
        for line, data, *call in (
                ("uart", b"\0\xff\x11", "SendMessageByExUart", 3, [0, 255, 17]),
                ("rjp", b"\n", "SendRjpData", 1, [10]),
                ("uart", b"\6\0", "SendRS232Ack", 0, 2, [6, 0]),
                ("ss", b"\6\1", "SendRS232Ack", 1, 2, [6, 1]),
                ("rjp", b"\6\2", "SendRS232Ack", 2, 2, [6, 2]),
                ("ep", b"\6\3", "SendRS232Ack", 3, 2, [6, 3]),
                ("uart", b"\6\4", "SendRS232Ack", 4, 2, [6, 4]),
                (None, b"", "SendRS232Ack", 5, 1, [7]),
                (None, b"", "SendRS232Ack", -1, 1, [7]),
                (None, b"", "SendRjpData", 2, [7]),
                (None, b"", "SendRjpData", 1, [7, 7]),
                (None, b"", "SendRjpData", 1, [256]),
                (None, b"", "SendRjpData", 0, []),
                ("rjp", b"\t", "SendRjpData", 1, [9])):
            self.check((*call, 1 if line else 0))
            self.assertEqual(self.read(line, len(data)) if line else b"", data, call)
        self.check(("GetRjpProtocolData", NOTHING))
        self.assertRegex(text_of("err"), "refused: no line has the protocol type 5\n(.*\n)*.*"
                         "refused: a length of 2 beside 1 elements, or an element is no byte\n")

    def test_what_comes_in_is_cut_into_packets(self):
        self.start("--gap", "150")
        data = pattern(300)
        for line, fetch in FETCHES.items():
            self.write(line, data)
            self.hear((line, 256), (line, 44))
            self.check((fetch, packet(data[:256])), (fetch, packet(data[256:])), (fetch, NOTHING))
        # With a length no silence ends a packet, and a new length cuts what has come in part.
        self.write("ss", b"abc")
        self.check(("ChangePacketLengthSerialSource", 3, 1))
        self.write("ss", b"de")
        self.hear(("ss", 3))
        time.sleep(0.3)
        self.hear()
        self.check(("ChangePacketLengthSerialSource", 1, 1))
        self.hear(("ss", 1), ("ss", 1))
        self.check(("GetSsProtocolData", packet(b"abc")), ("GetSsProtocolData", packet(b"d")),
                   ("GetSsProtocolData", packet(b"e")),
                   ("ChangePacketLengthSerialSource", 257, 0),
                   ("ChangePacketLengthSerialSource", -1, 0),
                   ("ChangePacketLengthSerialSource", 256, 1))
        self.assertIn("refused: a packet of 0 (no fixed length) to 256 bytes", text_of("err"))
        self.write("ss", b"fg")
        self.check(("ChangePacketLengthSerialSource", 0, 1))
        self.hear(("ss", 2))
        # A test says itself where a packet ends.
        self.check(("WritePacket", "ss", [1, 0], None), ("WritePacket", "ss", [2], None))
        self.hear(("ss", 2), ("ss", 1))
        for data in [], [1] * 257:
            self.assertRegex(self.call("WritePacket", "ss", data), "^InvalidArgs: a packet has")

    def test_packets_stay_until_they_are_fetched(self):
        # What was not given away is announced again, until somebody has it; what was is not.
        self.start("--record", "record")
        fetch = "GetEpProtocolData"
        self.write("ep", b"late")
        self.hear(("ep", 4))
        for kind, value, answer in (("error", 0, "Fault: a fault on demand"),
                                    ("result", 0, NOTHING), ("empty", 0, ([], 1)),
                                    ("long", 3, ([3, 0, 1, 2], 1)), ("no-answer", 0, None)):
            self.check(("SetFault", fetch, kind, value, 1, None))
            self.check((fetch, answer)) if answer else self.call_without_reply(fetch)
        self.hear(("ep", 4))
        self.check((fetch, packet(b"late")), (fetch, NOTHING))
        self.check(("SetFault", "service", "leave", 50, 0, None))
        self.write("ep", b"away")
        self.hear(("ep", 4))
        self.assertRegex(text_of("record"), r'"left"}\n(.*"in".*\n)*.*"joined"')
        self.check((fetch, packet(b"away")))
        self.assertRegex(text_of("err"), r" long 3 times 1\n.* -> \[03 00 01 02\], 1, fault: long\n"
                         r"(.*\n)*set: the service leaves the bus for 50 ms\n")
        # The other line's second announcement comes when one of this line would have been.
        self.write("ss", b"other")
        self.hear(("ss", 5), ("ss", 5))

    def test_a_full_queue_holds_up_its_writer_and_keeps_order(self):
        # Who is away for a while is not sent after packets that are not there.
        self.start("--quiet")
        # 64 packets wait, and no more is read.
        self.check(*[("WritePacket", "ep", [1], None)] * 64)
        self.write("ep", b"xy")
        time.sleep(0.2)
        self.assertEqual({*self.take_announcements()}, {"ep 1 bytes on ep"})
        self.check(("ChangePacketLengthSerialSource", 250, 1))
        data, written, fetched, vain = pattern(100_000), 0, 0, 0
        ss = self.open("ss")
        os.set_blocking(ss, False)
        while written < len(data) and select.select([], [ss], [], 0.5)[1]:
            written += os.write(ss, data[written:])
        self.assertLess(written, len(data) // 2)
        heard = self.take_announcements()
        wait(lambda: self.announcements)  # the oldest packet, once more
        self.announcements += heard
        while fetched < len(data):
            wait(lambda: self.announcements)
            for _ in self.take_announcements():
                found = self.call("GetSsProtocolData")
                if found == NOTHING:
                    vain += 1
                else:
                    self.assertEqual(found, packet(data[fetched:fetched + 250]))
                    fetched += 250
            if select.select([], [ss], [], 0)[1]:
                written += os.write(ss, data[written:])
        self.assertLess(vain, 100)  # of 400 packets: a busy machine is slow to fetch
        os.close(ss)

    def test_unread_bytes_wait_up_to_a_megabyte(self):
        self.start("--quiet")
        accepted, part = b"", pattern(8192)
        sending = GLib.Variant("(iau)", (len(part), list(part)))
        while len(accepted) < 3_000_000 and self.call("SendRjpData", sending):
            accepted += part
        self.assertTrue(1_000_000 < len(accepted) < 1_500_000, len(accepted))
        self.assertTrue(self.read("rjp", len(accepted)) == accepted)
        self.check(("SendRjpData", 1, [1], 1))
        # A set that loses its bus ends, whatever waits.
        self.bus.kill()
        self.see_end(1)
        self.assertRegex(text_of("err"), "^fa-set-simulator: the bus is gone.*\n$")

    def test_the_uart_has_a_speed_and_can_be_closed(self):
        self.start()
        send = "SendMessageByExUart"
        uart = self.open("uart")
        self.assertEqual(termios.tcgetattr(uart)[5], termios.B115200)
        self.check(("ChangeBaudRateExUart", 9600, 1), ("ChangeBaudRateExUart", 57600, 0))
        self.assertEqual(termios.tcgetattr(uart)[5], termios.B9600)
        os.write(uart, b"?")
        wait(lambda: "line uart received [3f], which nobody asked for\n" in text_of("err"))
        # It hangs up after its last words, and takes no more.
        self.check((send, 2, [1, 2], 1), ("CloseExUart", 1), (send, 1, [3], 0))
        poll = select.poll()
        poll.register(uart, 0)
        self.assertEqual(poll.poll(100), [])
        self.assertEqual(self.read(uart, 3), b"\1\2")
        os.close(uart)
        self.check(("ChangeBaudRateExUart", 115200, 1), (send, 1, [4], 1))
        self.assertEqual(self.read("uart", 1), b"\4")
        # Opened again at once, it still has what nobody has read yet.
        self.check((send, 1, [5], 1), ("CloseExUart", 1), ("ChangeBaudRateExUart", 9600, 1))
        self.assertEqual(self.read("uart", 1), b"\5")
        # Nobody reads the last ones, which is said; those of before are not among them.
        for count in 99999, 3:
            self.check(("ChangeBaudRateExUart", 9600, 1), (send, count, [6] * count, 1))
            self.check(("CloseExUart", 1))
            wait(lambda: not os.path.islink("uart"))
        told = r"(?s)uart: nobody has read the last \d+ bytes or more\n.* the last 3 bytes\n"
        self.assertRegex(text_of("err"), told)

    def test_lines_and_links_are_left_to_others(self):
        # A link that is somebody else's file, or leads elsewhere.
        pathlib.Path("mine").write_text("mine")
        os.symlink("mine", "link")
        for name in "mine", "link":
            self.run_program(1, "", f"line ss: {name}: File exists\n", f"-q -l ss={name}")
            self.assertEqual(text_of(name), "mine")
        # A terminal program that has a line for itself has it until it ends.
        self.start()
        for _ in "at once", "later":
            program, other = self.open("ss"), self.open("ss")
            fcntl.ioctl(program, termios.TIOCEXCL)
            os.close(program)
            # The request is TIOCGEXCL.
            wait(lambda: fcntl.ioctl(other, 0x80045440, b"yes?") == bytes(4))
            os.close(other)
        # A link of a set that lives, on this bus or on another.
        for words in "-q -l rjp=rjp", "run -q -l rjp=rjp true":
            self.run_program(1, "", "rjp is another set's\n", words)
        self.run_program(1, "", "automation-service is taken by another process\n", "-q")
        self.check(("SendRjpData", 1, [1], 1))
        self.assertEqual(self.read("rjp", 1), b"\1")
        # A killed set leaves its links, and the next one takes them over.
        self.set.kill()
        self.set.wait()
        self.assertTrue(os.path.islink("rjp"))
        self.start()
        self.check(("SendRjpData", 1, [2], 1))
        self.assertEqual(self.read("rjp", 1), b"\2")
        # One that somebody has put in the place of the set's own stays.
        os.unlink("ep")
        os.symlink("mine", "ep")
        self.set.terminate()
        self.assertEqual(self.set.wait(), 0)
        self.assertEqual([line for line in LINES if os.path.islink(line)], ["ep"])
        self.set = None

    def test_the_bus_of_a_run_takes_many_clients_and_calls(self):
        run = self.spawn("run", "-q", "-f", "CloseExUart no-answer", "sh", "-c",
                         "echo $DBUS_SYSTEM_BUS_ADDRESS; exec sleep 200")
        address, failed = run.stdout.readline().strip(), []
        clients = [simulator.connect(address) for _ in range(300)]
        for _ in clients:
            clients[0].call(simulator.SERVICE, simulator.OBJECT, simulator.CONTRACT, "CloseExUart",
                            None, None, 0, -1, None, lambda *result: failed.append(result))
        simulator.catch_up(clients[0])
        self.assertEqual(failed, [])
        run.terminate()
        self.assertEqual(run.wait(), 143)
        wait(lambda: len(failed) == 300)

    def test_loses_nothing_under_load(self):
        # Packets of random lengths on all lines at once, both ways, and the UART closed: nothing
        # is lost, doubled or out of order, and the set does not grow.
        self.start("--quiet")
        chance, place, used = random.Random(1), 0, []
        for _ in range(60):
            sent, fetches, uart = dict.fromkeys(LINES, b""), [], self.open("uart")
            for _ in range(8):
                line, place = chance.choice(LINES), place + 7
                data = pattern(chance.randint(1, 255), place)
                self.check(("SendRS232Ack", LINES.index(line), len(data), list(data), 1))
                sent[line] += data
                if line in FETCHES:
                    self.check(("WritePacket", line, list(data), None))
                    fetches.append((FETCHES[line], packet(data)))
            self.check(*fetches, ("CloseExUart", 1))
            self.assertEqual(self.read(uart, 3000), sent.pop("uart"))
            os.close(uart)
            for line, data in sent.items():
                self.assertEqual(self.read(line, len(data)), data)
            wait(lambda: not os.path.islink("uart"))
            self.check(("ChangeBaudRateExUart", 9600, 1))
            kilobytes = int(text_of(f"/proc/{self.set.pid}/statm").split()[1]) * 4
            used.append((kilobytes, len(os.listdir(f"/proc/{self.set.pid}/fd"))))
        # The set keeps its latest calls; a sanitizer keeps freed memory back on purpose.
        growth = 2_000_000 if os.environ.get("SANITIZED") else 20_000
        self.assertLess(used[-1][0], used[6][0] + growth)
        self.assertEqual(used[-1][1], used[6][1])


simulator.main()
