// The serial lines of the simulated set, and the packets that come in on them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <random>

#include "simulator/set_fixture.h"
#include "support/resident_memory.h"

namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Bytes of all values whose place shows in them, whatever the cut.
std::string Pattern(std::size_t count, std::size_t begin = 0)
{
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<char>((begin + i) % 251 + (begin + i) / 251 % 5);
    }
    return bytes;
}

std::string ToArray(const std::string& bytes)
{
    std::string text;
    for (const char byte : bytes) {
        text += (text.empty() ? "[" : ",") + std::to_string(static_cast<unsigned char>(byte));
    }
    return text + "]";
}

// What a fetch gives for the packet.
std::string Fetched(const std::string& packet)
{
    std::string text = "[" + std::to_string(packet.size());
    for (const char byte : packet) {
        text += ", " + std::to_string(static_cast<unsigned char>(byte));
    }
    return text + "], (1,)";
}

const char kNothing[] = "[], (0,)";

TEST_F(SetTest, WhatIsSentComesOutOfItsLine)
{
    Start();
    const struct {
        const char* method;
        const char* arguments;
        const char* line;  // null: refused, and nothing comes out
        std::string bytes;
    } cases[] = {
        {"SendMessageByExUart", "(3, [0, 255, 17])", "uart", {"\x00\xFF\x11", 3}},
        {"SendRjpData", "(1, [10])", "rjp", "\n"},
        {"SendRS232Ack", "(0, 2, [6, 0])", "uart", {"\x06\x00", 2}},
        {"SendRS232Ack", "(1, 2, [6, 1])", "ss", "\x06\x01"},
        {"SendRS232Ack", "(2, 2, [6, 2])", "rjp", "\x06\x02"},
        {"SendRS232Ack", "(3, 2, [6, 3])", "ep", "\x06\x03"},
        {"SendRS232Ack", "(4, 2, [6, 4])", "uart", "\x06\x04"},
        {"SendRS232Ack", "(5, 1, [7])", nullptr, ""},
        {"SendRS232Ack", "(-1, 1, [7])", nullptr, ""},
        {"SendRjpData", "(2, [7])", nullptr, ""},
        {"SendRjpData", "(1, [7, 7])", nullptr, ""},
        {"SendRjpData", "(1, [256])", nullptr, ""},
        {"SendRjpData", "(0, [])", nullptr, ""},
        {"SendRjpData", "(1, [9])", "rjp", "\t"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(Call(each.method, each.arguments), each.line != nullptr ? "(1,)" : "(0,)");
        if (each.line != nullptr) {
            EXPECT_EQ(Read(each.line, each.bytes.size()), each.bytes) << each.arguments;
        }
    }
    EXPECT_EQ(Call("GetRjpProtocolData"), kNothing);
    EXPECT_THAT(Call("NoMethod"), HasSubstr("UnknownMethod: "));
}

TEST_F(SetTest, WhatComesInIsCutIntoPackets)
{
    Start({"--gap", "150"});
    const std::string bytes = Pattern(300);
    const char* const fetches[][2] = {
        {"rjp", "GetRjpProtocolData"}, {"ep", "GetEpProtocolData"}, {"ss", "GetSsProtocolData"}};
    for (const auto& [line, fetch] : fetches) {
        Write(line, bytes);
        EXPECT_THAT(AwaitAnnouncements(2), ElementsAre(std::string(line) + " 256 bytes on " + line,
                                                       std::string(line) + " 44 bytes on " + line));
        EXPECT_EQ(Call(fetch), Fetched(bytes.substr(0, 256)));
        EXPECT_EQ(Call(fetch), Fetched(bytes.substr(256)));
        EXPECT_EQ(Call(fetch), kNothing);
    }

    // With a length no silence ends a packet, and a new length cuts what has come in part.
    EXPECT_EQ(Call("ChangePacketLengthSerialSource", "(3,)"), "(1,)");
    Write("ss", "abcde");
    EXPECT_THAT(AwaitAnnouncements(1), ElementsAre("ss 3 bytes on ss"));
    g_usleep(300'000);
    EXPECT_THAT(Announcements(), ElementsAre());
    EXPECT_EQ(Call("ChangePacketLengthSerialSource", "(1,)"), "(1,)");
    EXPECT_THAT(AwaitAnnouncements(2), ElementsAre("ss 1 bytes on ss", "ss 1 bytes on ss"));
    for (const char* packet : {"abc", "d", "e"}) {
        EXPECT_EQ(Call("GetSsProtocolData"), Fetched(packet));
    }
    EXPECT_EQ(Call("ChangePacketLengthSerialSource", "(257,)"), "(0,)");
    EXPECT_EQ(Call("ChangePacketLengthSerialSource", "(-1,)"), "(0,)");
    EXPECT_EQ(Call("ChangePacketLengthSerialSource", "(256,)"), "(1,)");
    Write("ss", "fg");
    EXPECT_EQ(Call("ChangePacketLengthSerialSource", "(0,)"), "(1,)");
    EXPECT_THAT(AwaitAnnouncements(1), ElementsAre("ss 2 bytes on ss"));

    // A test says itself where a packet ends.
    EXPECT_EQ(Ask("WritePacket", "('ss', [1, 0])"), "");
    EXPECT_EQ(Ask("WritePacket", "('ss', [2])"), "");
    EXPECT_THAT(AwaitAnnouncements(2), ElementsAre("ss 2 bytes on ss", "ss 1 bytes on ss"));
    EXPECT_THAT(Ask("WritePacket", "('uart', [2])"), HasSubstr("InvalidArgs: packets come"));
    EXPECT_THAT(Ask("WritePacket", "('ss', [])"), HasSubstr("InvalidArgs: a packet has 1"));
}

// A packet that was not given away is announced again, until somebody has it; one that was is not.
TEST_F(SetTest, PacketsStayUntilTheyAreFetched)
{
    Start();
    Write("ep", "early");
    EXPECT_THAT(AwaitAnnouncements(2), ElementsAre("ep 5 bytes on ep", "ep 5 bytes on ep"));
    EXPECT_EQ(Call("GetEpProtocolData"), Fetched("early"));
    EXPECT_EQ(Call("GetEpProtocolData"), kNothing);
    const struct {
        const char* fault;
        const char* answer;
    } cases[] = {
        {"('GetEpProtocolData', 'error', 0, 1)", "Fault: a fault on demand"},
        {"('GetEpProtocolData', 'result', 0, 1)", "[], (0,)"},
        {"('GetEpProtocolData', 'empty', 0, 1)", "[], (1,)"},
        {"('GetEpProtocolData', 'long', 3, 1)", "[3, 0, 1, 2], (1,)"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(Ask("SetFault", each.fault), "");
        Write("ep", "late");
        AwaitAnnouncements(1);
        EXPECT_EQ(Call("GetEpProtocolData"), each.answer);
        EXPECT_THAT(AwaitAnnouncements(1), ElementsAre("ep 4 bytes on ep"));
        EXPECT_EQ(Call("GetEpProtocolData"), Fetched("late")) << each.fault;
    }
    EXPECT_EQ(Ask("SetFault", "('service', 'leave', 50, uint32 0)"), "");
    Write("ep", "away");
    AwaitAnnouncements(1);
    EXPECT_EQ(Call("GetEpProtocolData"), Fetched("away"));
    g_usleep(1'500'000);
    EXPECT_THAT(Announcements(), ElementsAre());
}

// Who is away for a while is not sent after packets that are not there.
TEST_F(SetTest, AFullQueueHoldsUpItsWriterAndKeepsOrder)
{
    Start({"--gap", "0"});
    const int rjp = OpenLine("rjp");
    fcntl(rjp, F_SETFL, O_NONBLOCK);
    const std::string bytes = Pattern(200'000);
    std::size_t written = 0;
    pollfd writable{rjp, POLLOUT, 0};
    const auto writeMore = [&](int patience) {
        while (written < bytes.size() && poll(&writable, 1, patience) == 1) {
            const ssize_t count = write(rjp, bytes.data() + written, bytes.size() - written);
            written += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
    };
    writeMore(500);
    EXPECT_LT(written, bytes.size() / 2);
    std::size_t announced = Announcements().size();
    std::size_t fetches = 0;
    std::string fetched;
    EXPECT_TRUE(Wait([&] {
        writeMore(0);
        for (announced += Announcements().size(); announced > 0; --announced, ++fetches) {
            g_autoptr(GError) error = nullptr;
            g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
                connection, "org.kavra.tv.automation-service", "/KVFacAutoObj",
                "org.kavra.tv.automationservice", "GetRjpProtocolData", nullptr, nullptr,
                G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
            g_autoptr(GVariant) data = g_variant_get_child_value(reply, 0);
            gsize count = 0;
            const auto* elements = static_cast<const guint32*>(
                g_variant_get_fixed_array(data, &count, sizeof(guint32)));
            for (gsize i = 1; i < count; ++i) {
                fetched += static_cast<char>(elements[i]);
            }
        }
        return fetched.size() >= bytes.size();
    }));
    EXPECT_TRUE(fetched == bytes);
    close(rjp);
}

TEST_F(SetTest, UnreadBytesWaitUpToAMegabyte)
{
    Start({"--quiet"});
    const std::string packet = Pattern(8192);
    const std::string arguments = "(8192, " + ToArray(packet) + ")";
    std::string accepted;
    while (accepted.size() < 3'000'000 && Call("SendRjpData", arguments) == "(1,)") {
        accepted += packet;
    }
    EXPECT_GT(accepted.size(), 1'000'000U);
    EXPECT_LT(accepted.size(), 1'500'000U);
    EXPECT_TRUE(Read("rjp", accepted.size()) == accepted);
    EXPECT_EQ(Call("SendRjpData", "(1, [1])"), "(1,)");
}

TEST_F(SetTest, TheUartHasASpeedAndCanBeClosed)
{
    Start();
    const auto speedOf = [](int line) {
        termios settings{};
        tcgetattr(line, &settings);
        return cfgetospeed(&settings);
    };
    int uart = OpenLine("uart");
    EXPECT_EQ(speedOf(uart), speed_t{B115200});
    EXPECT_EQ(Call("ChangeBaudRateExUart", "(9600,)"), "(1,)");
    EXPECT_EQ(speedOf(uart), speed_t{B9600});
    EXPECT_EQ(Call("ChangeBaudRateExUart", "(57600,)"), "(0,)");
    EXPECT_EQ(speedOf(uart), speed_t{B9600});
    // It hangs up after its last words, and takes no more.
    EXPECT_EQ(Call("SendMessageByExUart", "(2, [1, 2])"), "(1,)");
    EXPECT_EQ(Call("CloseExUart"), "(1,)");
    EXPECT_EQ(Call("SendMessageByExUart", "(1, [3])"), "(0,)");
    pollfd hangUp{uart, 0, 0};
    EXPECT_EQ(poll(&hangUp, 1, 100), 0);
    EXPECT_EQ(Read(uart, 3), "\x01\x02");
    close(uart);
    EXPECT_EQ(Call("ChangeBaudRateExUart", "(115200,)"), "(1,)");
    EXPECT_EQ(Call("SendMessageByExUart", "(1, [4])"), "(1,)");
    EXPECT_EQ(Read("uart", 1), "\x04");
    // Opened again at once, it still has what nobody has read yet.
    EXPECT_EQ(Call("SendMessageByExUart", "(1, [5])"), "(1,)");
    EXPECT_EQ(Call("CloseExUart"), "(1,)");
    EXPECT_EQ(Call("ChangeBaudRateExUart", "(9600,)"), "(1,)");
    EXPECT_EQ(Read("uart", 1), "\x05");
    // Nobody reads the last ones, which is said.
    EXPECT_EQ(Call("SendMessageByExUart", "(3, [6, 6, 6])"), "(1,)");
    EXPECT_EQ(Call("CloseExUart"), "(1,)");
    EXPECT_TRUE(Wait([&] {
        return Output().find("line uart: nobody has read the last 3 bytes\n") != std::string::npos;
    }));
}

TEST_F(SetTest, ClosingLosesNothingAndLeaksNothing)
{
    Start({"--quiet"});
    const auto openFiles = [this] {
        const std::filesystem::directory_iterator files("/proc/" + std::to_string(set) + "/fd");
        return std::distance(begin(files), end(files));
    };
    const auto before = openFiles();
    for (unsigned int i = 0; i < 60; ++i) {
        const std::string bytes = Pattern(1 + i * 50, i);
        const int uart = OpenLine("uart");
        EXPECT_EQ(Call("SendMessageByExUart",
                       "(" + std::to_string(bytes.size()) + ", " + ToArray(bytes) + ")"),
                  "(1,)");
        EXPECT_EQ(Call("CloseExUart"), "(1,)");
        EXPECT_EQ(Read(uart, bytes.size() + 1), bytes);
        close(uart);
        EXPECT_TRUE(Wait([this] { return !std::filesystem::exists(In("uart")); }));
        EXPECT_EQ(Call("ChangeBaudRateExUart", "(9600,)"), "(1,)");
    }
    EXPECT_EQ(openFiles(), before);
}

TEST_F(SetTest, ATerminalProgramLeavesTheLineToOthers)
{
    Start();
    const int program = OpenLine("ss");
    const int other = OpenLine("ss");
    EXPECT_EQ(ioctl(program, TIOCEXCL), 0);
    close(program);
    int exclusive = 1;
    EXPECT_TRUE(Wait([&] { return ioctl(other, TIOCGEXCL, &exclusive) == 0 && exclusive == 0; }));
    close(other);
}

TEST_F(SetTest, LinksAreLeftToTheirOwners)
{
    // One that is somebody else's file, or leads elsewhere.
    WriteText(In("mine"), "mine");
    EXPECT_EQ(RunSet({"-q", "--line", "ss=" + In("mine")}, In("out")), 1);
    EXPECT_EQ(TextOf(In("mine")), "mine");
    std::filesystem::create_symlink(In("mine"), In("link"));
    EXPECT_EQ(RunSet({"-q", "--line", "ss=" + In("link")}, In("out")), 1);
    EXPECT_EQ(std::filesystem::read_symlink(In("link")), In("mine"));

    // One of a set that lives, on this bus or on another.
    Start();
    for (const Words& words : {Words{"-q"}, Words{"run", "-q"}}) {
        Words all = words;
        all.insert(all.end(), {"--line", "rjp=" + In("rjp"), "--", "true"});
        all.resize(words.size() == 1 ? all.size() - 2 : all.size());
        EXPECT_EQ(RunSet(all, In("refused")), 1);
        EXPECT_THAT(TextOf(In("refused")), HasSubstr("rjp is another set's\n"));
    }
    EXPECT_EQ(RunSet({"-q"}, In("taken")), 1);
    EXPECT_THAT(TextOf(In("taken")), HasSubstr("automation-service is taken by another process\n"));
    EXPECT_EQ(Call("SendRjpData", "(1, [1])"), "(1,)");
    EXPECT_EQ(Read("rjp", 1), "\x01");

    // A killed set leaves its links, and the next one takes them over.
    kill(set, SIGKILL);
    WaitFor(set);
    EXPECT_TRUE(std::filesystem::is_symlink(In("rjp")));
    Start();
    EXPECT_EQ(Call("SendRjpData", "(1, [2])"), "(1,)");
    EXPECT_EQ(Read("rjp", 1), "\x02");

    // One that somebody has put in the place of the set's own stays.
    std::filesystem::remove(In("ep"));
    std::filesystem::create_symlink(In("mine"), In("ep"));
    kill(set, SIGTERM);
    EXPECT_EQ(WaitFor(std::exchange(set, 0)), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(In("ep")));
    EXPECT_FALSE(std::filesystem::is_symlink(In("ss")));
}

// Packets of random lengths on all lines at once, both ways: nothing is lost, doubled or out of
// order, and the set does not grow.
TEST_F(SetTest, LosesNothingUnderLoad)
{
    constexpr int kRounds = 300;
    Start({"--quiet"});
    std::mt19937 random(1);
    std::array<int, 4> lines{};
    const char* const names[] = {"uart", "ss", "rjp", "ep"};
    std::transform(std::begin(names), std::end(names), lines.begin(),
                   [this](const char* name) { return OpenLine(name); });
    std::size_t place = 0;
    long before = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::array<std::string, 4> sent;
        std::vector<std::pair<std::size_t, std::string>> packets;
        for (int i = 0; i < 8; ++i) {
            const std::string packet = Pattern(1 + random() % 255, place += 7);
            const std::size_t line = random() % 4;
            EXPECT_EQ(Call("SendRS232Ack", "(" + std::to_string(line) + ", " +
                                               std::to_string(packet.size()) + ", " +
                                               ToArray(packet) + ")"),
                      "(1,)");
            sent[line] += packet;
            if (line != 0) {
                std::string bytes = "[";
                for (const char byte : packet) {
                    bytes += (bytes.size() > 1 ? "," : "byte ") +
                             std::to_string(static_cast<unsigned char>(byte));
                }
                EXPECT_EQ(
                    Ask("WritePacket", std::string("('") + names[line] + "', " + bytes + "])"), "");
                packets.emplace_back(line, packet);
            }
        }
        const char* const fetches[] = {"", "GetSsProtocolData", "GetRjpProtocolData",
                                       "GetEpProtocolData"};
        for (const auto& [line, packet] : packets) {
            ASSERT_EQ(Call(fetches[line]), Fetched(packet));
        }
        for (std::size_t line = 0; line < 4; ++line) {
            ASSERT_EQ(Read(lines[line], sent[line].size()), sent[line]);
        }
        before = round == kRounds / 10 ? ResidentKilobytes(set) : before;
    }
    // The set keeps its latest calls; a sanitizer keeps freed memory back on purpose.
    EXPECT_LT(ResidentKilobytes(set), before + (FA_SANITIZED ? 2'000'000 : 20'000));
    std::for_each(lines.begin(), lines.end(), close);
}

}  // namespace
