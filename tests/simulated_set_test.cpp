// The simulated set, with the public library on one side and the serial lines on the other.
#include <fa_platform/simulation.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <thread>

#include "support/resident_memory.h"
#include "support/simulated_set.h"

namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::deque<Bytes> arrived;

void Collect(ProtocolData_s* data)
{
    const int stored = std::min(data->iSize, 256);
    arrived.emplace_back(data->p_data, data->p_data + stored);
}

struct Incoming {
    const char* line;
    int (*enrol)(ProtocolCallback_fp);
};
const Incoming kIncoming[] = {{"ss", automation_register_callback_serial_source},
                              {"rjp", automation_register_callback_rjp_protocol},
                              {"ep", automation_register_callback_ep_protocol}};

int Send(const Bytes& bytes, int (*send)(const unsigned char*, unsigned int))
{
    return send(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

int SendAck(const Bytes& bytes, int type)
{
    return automation_send_rs232_ack(type, static_cast<unsigned int>(bytes.size()), bytes.data());
}

speed_t SpeedOf(int line)
{
    termios settings{};
    tcgetattr(line, &settings);
    return cfgetospeed(&settings);
}

// The calls of a record, without their times.
std::string CallsOf(const std::string& record)
{
    std::string calls;
    std::istringstream lines(record);
    for (std::string line; std::getline(lines, line);) {
        if (line.find("\"method\"") != std::string::npos) {
            calls += "{" + line.substr(line.find(',') + 1) + "\n";
        }
    }
    return calls;
}

TEST_F(SimulatedSetTest, LinesCarryBytesBothWays)
{
    Start();
    const int uart = OpenLine("uart");
    EXPECT_EQ(Send({2, 0xFF, 0, 3}, automation_send_message_by_ex_uart), 0);
    EXPECT_EQ(Read(uart, 4), (Bytes{2, 0xFF, 0, 3}));
    const char* const lines[] = {"uart", "ss", "rjp", "ep", "uart"};
    for (int type = 0; type < 5; ++type) {
        const Bytes bytes{6, static_cast<unsigned char>(type)};
        EXPECT_EQ(SendAck(bytes, type), 0);
        const int line = OpenLine(lines[type]);
        EXPECT_EQ(Read(line, 2), bytes) << type;
        close(line);
    }
    EXPECT_EQ(SendAck({6}, -1), -1);
    EXPECT_EQ(automation_change_packet_length_serial_source(3), 0);
    EXPECT_EQ(automation_change_packet_length_serial_source(257), -1);
    for (const Incoming& incoming : kIncoming) {
        const int line = OpenLine(incoming.line);
        EXPECT_EQ(incoming.enrol(Collect), 0);
        EXPECT_EQ(write(line, "\x11\x00\xFF\x01\x02\x03", 6), 6);
        const bool framed = incoming.enrol == automation_register_callback_serial_source;
        EXPECT_TRUE(Wait([&] { return arrived.size() == (framed ? 2U : 1U); }));
        EXPECT_EQ(arrived[0], framed ? (Bytes{0x11, 0, 0xFF}) : (Bytes{0x11, 0, 0xFF, 1, 2, 3}));
        arrived.clear();
        close(line);
    }
}

TEST_F(SimulatedSetTest, UartHasASpeedAndCanBeClosed)
{
    Start();
    int uart = OpenLine("uart");
    EXPECT_EQ(automation_change_baud_rate_ex_uart(9600), 0);
    EXPECT_EQ(SpeedOf(uart), speed_t{B9600});
    EXPECT_EQ(automation_change_baud_rate_ex_uart(115200), 0);
    EXPECT_EQ(SpeedOf(uart), speed_t{B115200});
    EXPECT_EQ(automation_close_ex_uart(), 0);
    EXPECT_EQ(Read(uart, 1), Bytes{});
    log.Take();
    EXPECT_EQ(Send({1}, automation_send_message_by_ex_uart), -1);
    EXPECT_EQ(log.Take().back(), "E automation_send_message_by_ex_uart: NG retVal[0]");
    close(uart);
    EXPECT_EQ(automation_change_baud_rate_ex_uart(9600), 0);
    uart = OpenLine("uart");
    EXPECT_EQ(Send({1}, automation_send_message_by_ex_uart), 0);
    EXPECT_EQ(Read(uart, 1), Bytes{1});
    // Opened again at once, it still has what nobody has read yet.
    EXPECT_EQ(Send({2}, automation_send_message_by_ex_uart), 0);
    EXPECT_EQ(automation_close_ex_uart(), 0);
    EXPECT_EQ(automation_change_baud_rate_ex_uart(9600), 0);
    EXPECT_EQ(Read(uart, 1), Bytes{2});
    close(uart);
}

TEST_F(SimulatedSetTest, CommandsChangeTheSet)
{
    std::filesystem::create_directories(In("logs/inner"));
    std::filesystem::create_directory(In("usb"));
    std::ofstream(In("logs/inner/a.log")) << "hello";
    Start({"--record", In("record"), "--log-dir", In("logs"), "--usb-dir", In("usb")});
    EXPECT_EQ(automation_execute_command_with_projector(806, 95), 0);
    EXPECT_THAT(TextOf(In("profile.ini")), HasSubstr("284=95\n"));
    EXPECT_EQ(automation_copy_log_to_usb(), 0);
    EXPECT_EQ(TextOf(In("usb/logs/inner/a.log")), "hello");
    std::filesystem::remove_all(In("usb/logs/inner"));
    std::filesystem::create_symlink(In("logs"), In("usb/logs/inner"));
    EXPECT_EQ(automation_copy_log_to_usb(), -1);
    EXPECT_THAT(TextOf(In("output")), HasSubstr("stops at " + In("usb/logs/inner:")));
    std::filesystem::remove_all(In("usb"));
    EXPECT_EQ(automation_copy_log_to_usb(), -1);
    const unsigned char unknown[] = {'X'};
    EXPECT_EQ(automation_execute_command_with_data(82, 1, unknown, 1), 0);
    Stop();
    EXPECT_EQ(CallsOf(TextOf(In("record"))),
              R"({"method":"ExecuteCommandWithData","arguments":{"data0":82,"data1":1,)"
              R"("data":[74,65,80,65,78],"len":5},"result":1})"
              "\n"
              R"({"method":"CopyLogToUsb","arguments":{},"result":1})"
              "\n"
              R"({"method":"CopyLogToUsb","arguments":{},"result":0})"
              "\n"
              R"({"method":"CopyLogToUsb","arguments":{},"result":0})"
              "\n"
              R"({"method":"ExecuteCommandWithData","arguments":{"data0":82,"data1":1,)"
              R"("data":[88],"len":1},"result":0})"
              "\n");
}

TEST_F(SimulatedSetTest, FailsOnDemand)
{
    const struct {
        Words fault;
        int result;
        std::string lastLine;
    } cases[] = {
        {{"CloseExUart", "result", "0", "times", "1"},
         -1,
         "E automation_close_ex_uart: NG retVal[0]"},
        {{"all", "result", "-7", "times", "1"}, 0, "D automation_close_ex_uart: OK retVal[-7]"},
        {{"CloseExUart", "delay", "30", "times", "1"},
         0,
         "D automation_close_ex_uart: OK retVal[1]"},
        {{"CloseExUart", "error", "times", "1"},
         -1,
         "E automation_close_ex_uart: close_ex_uart_sync err[GDBus.Error:org.kavra.tv."
         "automationservice.Simulator.Fault: a fault on demand]"},
    };
    Start({"--fault", "CopyLogToUsb error times 1"});
    EXPECT_EQ(automation_copy_log_to_usb(), -1);
    for (const auto& each : cases) {
        Fault(each.fault);
        log.Take();
        EXPECT_EQ(automation_close_ex_uart(), each.result) << each.lastLine;
        EXPECT_EQ(log.Take().back(), each.lastLine);
        EXPECT_EQ(automation_close_ex_uart(), 0);
    }
    Fault({"all", "no-answer"});
    std::thread leaving([this] { Fault({"service", "leave", "1"}); });
    EXPECT_EQ(automation_close_ex_uart(), -1);
    leaving.join();
    EXPECT_TRUE(Wait([] { return RunProgram({FA_SET_SIMULATOR, "fault", "clear"}) == 0; }));
    EXPECT_EQ(automation_close_ex_uart(), 0);
    EXPECT_EQ(RunProgram({FA_SET_SIMULATOR, "fault", "Nope", "error"}, In("complaint")), 2);
    EXPECT_EQ(TextOf(In("complaint")),
              "fa-set-simulator: fault: there is no method Nope (--help tells more)\n");
}

TEST_F(SimulatedSetTest, AnnouncesOddData)
{
    Start({"--record", In("record")});
    EXPECT_EQ(automation_register_callback_ep_protocol(Collect), 0);
    Fault({"GetEpProtocolData", "empty", "times", "1"});
    Fault({"ep", "burst", "1"});
    // The packet itself stays, and is announced again.
    EXPECT_TRUE(Wait([] { return arrived.size() == 2; }));
    EXPECT_THAT(arrived, ElementsAre(IsEmpty(), ElementsAre(0, 0)));
    arrived.clear();
    Fault({"GetEpProtocolData", "long", "300", "times", "1"});
    log.Take();
    Fault({"ep", "burst", "200"});
    EXPECT_TRUE(Wait([] { return arrived.size() == 201; }));
    EXPECT_EQ(arrived[0].size(), 256U);
    for (unsigned int i = 0; i < 200; ++i) {
        EXPECT_THAT(arrived[i + 1], ElementsAre(0, i));
    }
    EXPECT_THAT(log.Take(), ::testing::Contains("E _autoamtion_signal_handler_ep: epData is full, "
                                                "44 bytes dropped"));
    const std::string call = R"("method":"GetEpProtocolData","arguments":{},"data":[)";
    EXPECT_THAT(TextOf(In("record")), HasSubstr(call + "],\"result\":1,\"fault\":\"empty\"}\n"));
    EXPECT_THAT(TextOf(In("record")), HasSubstr(call + "2,0,1],\"result\":1}\n"));
}

TEST_F(SimulatedSetTest, AnswersWhoAsksIt)
{
    Start();
    g_autoptr(GDBusConnection) connection = bus.Connect();
    const auto ask = [&](const char* method, const char* arguments) {
        GError* error = nullptr;
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            connection, "org.kavra.tv.automation-service", "/KVFacAutoObj",
            "org.kavra.tv.automationservice.Simulator", method, g_variant_new_parsed(arguments),
            nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        g_autofree char* text = reply != nullptr ? g_variant_print(reply, TRUE) : nullptr;
        const std::string answer = reply != nullptr ? text : error->message;
        g_clear_error(&error);
        return std::regex_replace(answer, std::regex(R"("time":[0-9.]+,)"), "");
    };
    EXPECT_EQ(automation_register_callback_serial_source(Collect), 0);
    EXPECT_EQ(automation_change_packet_length_serial_source(2), 0);
    EXPECT_EQ(ask("WritePacket", "('ss', [byte 1, 0, 255])"), "()");
    EXPECT_EQ(ask("WritePacket", "('ss', [byte 4])"), "()");
    EXPECT_TRUE(Wait([] { return arrived.size() == 2; }));
    EXPECT_THAT(arrived, ElementsAre(Bytes{1, 0, 255}, Bytes{4}));
    EXPECT_THAT(ask("WritePacket", "('uart', [byte 4])"), HasSubstr("InvalidArgs: packets come"));
    EXPECT_THAT(ask("WritePacket", "('ss', @ay [])"), HasSubstr("InvalidArgs: a packet has 1"));
    EXPECT_THAT(ask("WritePacket", "('gone', [byte 4])"), HasSubstr("not on \"gone\""));
    const std::string fetch = R"('{"method":"GetSsProtocolData","arguments":{},"data":[)";
    EXPECT_EQ(
        ask("GetCalls", "()"),
        R"((['{"method":"ChangePacketLengthSerialSource","arguments":{"len":2},"result":1}', )" +
            fetch + R"(3,1,0,255],"result":1}', )" + fetch + R"(1,4],"result":1}'],))");
    int called = 0;
    g_dbus_connection_signal_subscribe(
        connection, nullptr, nullptr, "Called", nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* call,
           gpointer count) {
            g_autofree char* text = g_variant_print(call, FALSE);
            EXPECT_THAT(text, HasSubstr(R"("method":"CloseExUart","arguments":{},"result":1}')"));
            ++*static_cast<int*>(count);
        },
        &called, nullptr);
    EXPECT_EQ(ask("ForgetCalls", "()"), "()");
    EXPECT_EQ(ask("GetCalls", "()"), "(@as [],)");
    EXPECT_EQ(automation_close_ex_uart(), 0);
    EXPECT_TRUE(Wait([&] { return called == 1; }));
}

TEST_F(SimulatedSetTest, RunsACommandAndLeavesNothing)
{
    setenv("TMPDIR", In("").c_str(), 1);
    ASSERT_EQ(mkfifo(In("fifo").c_str(), 0600), 0);
    const struct {
        Words words;
        int status;
        std::string output;
    } cases[] = {
        {{"run", "-q", "--", "sh", "-c", "test -w $FA_SET_RJP -a -r $FA_PLATFORM_PROFILE; exit $?"},
         0,
         ""},
        {{"run", "-q", "sh", "-c", "exit 7"}, 7, ""},
        {{"run", "-q", "--", "sh", "-c", "kill -9 $$"}, 137, ""},
        {{"run", "-q", "--", "sh", "-c", "kill -TERM $PPID; sleep 20"}, 143, ""},
        {{"run", "-q", "sh", "-c", "kill -INT $PPID; exec sleep 200"}, 130, ""},
        {{"run", "-q", "sh", "-c", "kill -HUP $PPID; exec sleep 200"}, 129, ""},
        {{"run", "-q", "sh", "-c", "pkill -P $PPID dbus-daemon; exec sleep 200"}, 1, "bus is gone"},
        {{"run", "sh", "-c",
          "echo > $FA_PLATFORM_PROFILE; gdbus call --system -d org.kavra.tv.automation-service "
          "-o /KVFacAutoObj -m org.kavra.tv.automationservice.CopyLogToUsb"},
         0,
         "CopyLogToUsb() -> 1\n"},
        {{"run", "-q", "--", In("nothing")}, 127, "Failed to execute child process"},
        {{"run"}, 2, "fa-set-simulator: run needs a command (--help tells more)\n"},
        {{"-q", "run", "true"}, 2, "the word run comes first"},
        {{"run", "-p", FA_SET_SIMULATOR, "true"}, 1, "profile " FA_SET_SIMULATOR ": "},
        {{"--line", "ss=x", "--line", "rjp=./x"}, 2, "two lines cannot both be ./x"},
        {{"fault", "clear"}, 1, "fa-set-simulator: fault: no set is on this bus\n"},
        {{"fault", "ss", "error"}, 2, ": fault: ss has no fault error (--help tells more)\n"},
        {{"fault", "ss", "burst", "1", "times", "2"}, 2, "burst happens once"},
        {{"--record", In("fifo")}, 1, "record " + In("fifo") + ": nobody reads from it"},
        {{"--line", "usb=x"}, 2, "--line takes uart, ss, rjp or ep"},
        {{"-p", In("none")}, 1, "fa-set-simulator: profile " + In("none") + ": No such file"},
        {{"--record", In("no/record")}, 1, "record " + In("no/record") + ": No such file"},
    };
    for (const auto& each : cases) {
        Words words{FA_SET_SIMULATOR};
        words.insert(words.end(), each.words.begin(), each.words.end());
        EXPECT_EQ(RunProgram(words, In("output")), each.status) << each.output;
        EXPECT_THAT(TextOf(In("output")), HasSubstr(each.output));
    }
    EXPECT_THAT(TextOf(In("profile.ini")), HasSubstr("284=6\n"));
    std::filesystem::remove(In("output"));
    std::filesystem::remove(In("profile.ini"));
    std::filesystem::remove(In("fifo"));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

// Packets of random lengths on all lines, both ways: nothing is lost, doubled or out of order, and
// neither process grows.
TEST_F(SimulatedSetTest, LosesNothingUnderLoad)
{
    constexpr std::size_t kPackets = 10000;
    Start({"--quiet", "--gap", "0"});
    fa_platform::SetLogSink([](int, int, const std::string&, const std::string&) {});
    int lines[3];
    for (int i = 0; i < 3; ++i) {
        lines[i] = OpenLine(kIncoming[i].line);
        ASSERT_EQ(kIncoming[i].enrol(Collect), 0);
    }
    const int uart = OpenLine("uart");
    std::mt19937 random(1);
    long before = 0;
    for (std::size_t packets = 0; packets < kPackets;) {
        const std::size_t length = 1 + random() % 255;
        const auto line = random() % 5;
        // Several packets at once where no silence has to tell them apart.
        std::deque<Bytes> burst(line == 1 || line == 2 ? 1 : 8, Bytes(length));
        Bytes all;
        for (Bytes& bytes : burst) {
            std::generate(bytes.begin(), bytes.end(), [&] { return 1 + random() % 255; });
            all.insert(all.end(), bytes.begin(), bytes.end());
        }
        if (line > 2) {
            const auto send =
                line == 3 ? automation_send_message_by_ex_uart : automation_send_rjp_data;
            for (const Bytes& bytes : burst) {
                ASSERT_EQ(Send(bytes, send), 0);
            }
            ASSERT_EQ(Read(line == 3 ? uart : lines[1], all.size()), all);
        } else {
            automation_change_packet_length_serial_source(static_cast<unsigned int>(length));
            ASSERT_EQ(write(lines[line], all.data(), all.size()), ssize_t(all.size()));
            ASSERT_TRUE(Wait([&] { return arrived.size() >= burst.size(); }));
            ASSERT_EQ(arrived, burst);
            arrived.clear();
        }
        packets += burst.size();
        if (before == 0 && packets > kPackets / 10) {
            before = ResidentKilobytes(set) + ResidentKilobytes(getpid());
        }
    }
    // The set keeps its latest calls; a sanitizer keeps freed memory back on purpose.
    const long allowed = FA_SANITIZED ? 2'000'000 : 12'000;
    EXPECT_LT(ResidentKilobytes(set) + ResidentKilobytes(getpid()), before + allowed);
}

// The service comes and goes while two threads call it without a pause.
TEST_F(SimulatedSetTest, ServiceRestartsUnderLoad)
{
    Start({"--quiet", "--record", In("record")});
    fa_platform::SetLogSink([](int, int, const std::string&, const std::string&) {});
    std::atomic<bool> ended{false};
    std::atomic<int> succeeded{0};
    std::atomic<int> failed{0};
    const auto call = [&] {
        while (!ended) {
            ++(automation_execute_command(0x10, 1) == 0 ? succeeded : failed);
        }
    };
    std::thread callers[] = {std::thread(call), std::thread(call)};
    for (int i = 0; i < 100; ++i) {
        const int already = succeeded;
        EXPECT_TRUE(Wait([] {
            return RunProgram({FA_SET_SIMULATOR, "fault", "service", "leave", "1"}) == 0;
        }));
        EXPECT_TRUE(Wait([&] { return succeeded > already + 5; }));
    }
    ended = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_TRUE(Wait([&] { return automation_execute_command(0x10, 1) == 0; }));
    const std::string record = TextOf(In("record"));
    const auto done = std::count(record.begin(), record.end(), '\n');
    // A call can be done and its answer lost, but no answer comes from nowhere.
    EXPECT_GT(done, succeeded);
    EXPECT_GT(failed, 0);
}

}  // namespace
