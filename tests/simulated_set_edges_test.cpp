// The simulated set where users and programs are slow, late, killed or in each other's way.
#include <fa_platform/simulation.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>

#include "support/simulated_set.h"

namespace
{

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

std::vector<std::string> arrived;

void Collect(ProtocolData_s* data)
{
    const auto stored = static_cast<std::size_t>(std::min(data->iSize, 256));
    arrived.emplace_back(reinterpret_cast<const char*>(data->p_data), stored);
}

int SendRjp(const Bytes& bytes)
{
    return automation_send_rjp_data(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

// Bytes whose place shows in their value, whatever the cut.
Bytes Pattern(std::size_t count)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(i % 251 + 1);
    }
    return bytes;
}

class SimulatedSetEdgesTest : public SimulatedSetTest
{
protected:
    SimulatedSetEdgesTest()
    {
        fa_platform::SetLogSink([](int, int, const std::string&, const std::string&) {});
    }
};

TEST_F(SimulatedSetEdgesTest, CallsThatDoNotWaitAreServedInOrder)
{
    constexpr unsigned int kCalls = 2000;
    Start({"--quiet"});
    g_autoptr(GDBusConnection) connection = bus.Connect();
    Bytes sent;
    for (unsigned int i = 0; i < kCalls; ++i) {
        const guint32 elements[] = {1 + i / 200, 1 + i % 200};
        sent.insert(sent.end(), std::begin(elements), std::end(elements));
        GVariant* data = g_variant_new_fixed_array(G_VARIANT_TYPE_UINT32, elements, 2, 4);
        g_dbus_connection_call(connection, "org.kavra.tv.automation-service", "/KVFacAutoObj",
                               "org.kavra.tv.automationservice", "SendRjpData",
                               g_variant_new("(i@au)", 2, data), nullptr, G_DBUS_CALL_FLAGS_NONE,
                               -1, nullptr, nullptr, nullptr);
    }
    const int rjp = OpenLine("rjp");
    EXPECT_TRUE(Read(rjp, sent.size()) == sent);
    close(rjp);
}

TEST_F(SimulatedSetEdgesTest, DataWaitsForWhoeverListensLate)
{
    Start();
    const int ep = OpenLine("ep");
    ASSERT_EQ(write(ep, "early", 5), 5);
    EXPECT_TRUE(
        Wait([this] { return TextOf(In("output")).find("received") != std::string::npos; }));
    ASSERT_EQ(automation_register_callback_ep_protocol(Collect), 0);
    EXPECT_TRUE(Wait([] { return arrived.size() == 1; }));
    EXPECT_THAT(arrived, ElementsAre("early"));

    // Nor does a fault of the fetch lose what it is about.
    const Words faults[] = {{"GetEpProtocolData", "error", "times", "1"},
                            {"GetEpProtocolData", "result", "0", "times", "1"},
                            {"service", "leave", "50"}};
    for (const Words& fault : faults) {
        arrived.clear();
        Fault(fault);
        ASSERT_EQ(write(ep, "late", 4), 4);
        EXPECT_TRUE(Wait([] { return !arrived.empty(); }));
        EXPECT_THAT(arrived, ElementsAre("late")) << fault[1];
    }
    close(ep);
}

TEST_F(SimulatedSetEdgesTest, SlowReadersLoseNothing)
{
    Start({"--quiet"});
    const Bytes packet = Pattern(251);
    Bytes accepted;
    while (accepted.size() < 3'000'000 && SendRjp(packet) == 0) {
        accepted.insert(accepted.end(), packet.begin(), packet.end());
    }
    EXPECT_GT(accepted.size(), 1'000'000U);
    EXPECT_LT(accepted.size(), 1'500'000U);  // refused from there on
    const int rjp = OpenLine("rjp");
    EXPECT_TRUE(Read(rjp, accepted.size()) == accepted);
    EXPECT_EQ(SendRjp({1}), 0);
    close(rjp);

    // The UART hangs up behind its last words.
    const int uart = OpenLine("uart");
    EXPECT_EQ(automation_send_message_by_ex_uart(packet.data(), 251), 0);
    EXPECT_EQ(automation_close_ex_uart(), 0);
    pollfd hangUp{uart, 0, 0};
    EXPECT_EQ(poll(&hangUp, 1, 100), 0);
    EXPECT_EQ(Read(uart, 251), packet);
    EXPECT_EQ(Read(uart, 1), Bytes{});
    close(uart);
}

TEST_F(SimulatedSetEdgesTest, SlowApplicationsLoseNothing)
{
    Start({"--quiet"});
    ASSERT_EQ(automation_register_callback_rjp_protocol(Collect), 0);
    const int rjp = OpenLine("rjp");
    fcntl(rjp, F_SETFL, O_NONBLOCK);
    const Bytes bytes = Pattern(500'000);
    std::size_t written = 0;
    const auto writeMore = [&] {
        const ssize_t count = write(rjp, bytes.data() + written, bytes.size() - written);
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    };
    // The writer is held up long before it is done.
    pollfd writable{rjp, POLLOUT, 0};
    while (written < bytes.size() && poll(&writable, 1, 500) == 1) {
        writeMore();
    }
    EXPECT_LT(written, bytes.size() / 2);
    Bytes fetched;
    EXPECT_TRUE(Wait([&] {
        writeMore();
        for (const std::string& packet : arrived) {
            fetched.insert(fetched.end(), packet.begin(), packet.end());
        }
        arrived.clear();
        return fetched.size() >= bytes.size();
    }));
    EXPECT_TRUE(fetched == bytes);
    close(rjp);
}

// Who is away for a while gets each packet once, and is not sent after packets that are not there.
TEST_F(SimulatedSetEdgesTest, SlowApplicationsFetchLittleInVain)
{
    Start({"--quiet", "--record", In("record")});
    ASSERT_EQ(automation_register_callback_serial_source(Collect), 0);
    Fault({"ss", "burst", "100"});
    g_usleep(2'500'000);
    EXPECT_TRUE(Wait([] { return arrived.size() == 100; }));
    EXPECT_TRUE(Wait([] { return g_main_context_pending(nullptr) == FALSE; }));
    const std::string record = TextOf(In("record"));
    int fetches = 0;
    for (std::size_t at = 0; (at = record.find("GetSs", at)) != std::string::npos; ++at) {
        ++fetches;
    }
    EXPECT_LE(fetches, 103);
}

TEST_F(SimulatedSetEdgesTest, LinksAreLeftToTheirOwners)
{
    std::ofstream(In("mine")) << "mine";
    EXPECT_EQ(RunProgram({FA_SET_SIMULATOR, "-q", "--line", "ss=" + In("mine")}, In("out")), 1);
    EXPECT_TRUE(std::filesystem::is_regular_file(In("mine")));

    Start();
    EXPECT_EQ(RunProgram({FA_SET_SIMULATOR, "-q", "--line", "rjp=" + In("rjp")}, In("out")), 1);
    EXPECT_EQ(SendRjp({1}), 0);
    const int rjp = OpenLine("rjp");
    EXPECT_EQ(Read(rjp, 1), Bytes{1});
    close(rjp);

    // A killed set leaves its links, and the next one takes them over.
    kill(set, SIGKILL);
    EXPECT_TRUE(Wait([this] { return waitpid(set, nullptr, WNOHANG) == set; }));
    set = 0;
    EXPECT_TRUE(std::filesystem::is_symlink(In("rjp")));
    Start();
    EXPECT_EQ(SendRjp({1}), 0);
}

TEST_F(SimulatedSetEdgesTest, EndsAreNoticed)
{
    for (const int signal : {SIGINT, SIGHUP}) {
        Start();
        Stop(signal);
    }
    Start({"--record", "/dev/full"});
    EXPECT_EQ(SendRjp({1}), 0);
    Stop(SIGTERM, 1);
    Start({"--quiet"});
    bus.Stop();
    Stop(0, 1);
    EXPECT_THAT(TextOf(In("output")), MatchesRegex("fa-set-simulator: the bus is gone[^\n]*\n"));
}

TEST_F(SimulatedSetEdgesTest, AKilledRunTakesItsBusAlong)
{
    setenv("TMPDIR", In("").c_str(), 1);
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // who is left behind becomes a child of the test
    const std::string script = "ps -o pid= --ppid $PPID > " + In("children") + "; kill -KILL $PPID";
    EXPECT_EQ(RunProgram({FA_SET_SIMULATOR, "run", "-q", "sh", "-c", script}), 128 + SIGKILL);
    std::ifstream children(In("children"));
    int count = 0;
    for (pid_t child = 0; children >> child; ++count) {
        EXPECT_TRUE(Wait([child] { return waitpid(child, nullptr, WNOHANG) == child; })) << child;
    }
    EXPECT_EQ(count, 2);  // the bus and the command
}

}  // namespace
