// What an application's test does with a set of its own.
#include <fa_api/automation_api.h>
#include <fa_api/testing/simulated_set.h>
#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <numeric>

#include "support/private_bus.h"

using Bytes = fa::SetLine::Bytes;
using fa::SimulatedSet;

namespace
{

const int named = setenv("FA_SET_SIMULATOR", SIMULATOR, 1);

auto Fails(const char* text)
{
    return testing::ThrowsMessage<fa::SetFailure>(testing::HasSubstr(text));
}

std::vector<Bytes> received;
Bytes stream;

void OnRjp(ProtocolData_s* data)
{
    received.emplace_back(data->p_data, data->p_data + data->iSize);
    stream.insert(stream.end(), received.back().begin(), received.back().end());
}

TEST(SetFixture, TalksOverLinesAndTellsTheCalls)
{
    // Callbacks come in the context of the thread, which waiting lets work.
    g_autoptr(GMainContext) own = g_main_context_new();
    g_main_context_push_thread_default(own);
    SimulatedSet set;
    ASSERT_EQ(automation_register_callback_rjp_protocol(OnRjp), 0);
    fa::SetLine rjp{std::move(*std::make_unique<fa::SetLine>(set.OpenLine("rjp")))};
    Bytes all(256);
    std::iota(all.rbegin(), all.rend(), static_cast<unsigned char>(0));
    EXPECT_EQ(automation_send_rjp_data(all.data(), 128), 0);
    EXPECT_EQ(automation_send_rjp_data(all.data() + 128, 128), 0);
    EXPECT_EQ(rjp.Read(256), all);
    rjp.Write(all);
    EXPECT_TRUE(SimulatedSet::Wait([] { return !received.empty(); }));
    set.WritePacket("rjp", {7, 0});
    set.WritePacket("rjp", {8});
    EXPECT_EQ(set.WaitForCalls(3, "GetRjpProtocolData").size(), 3U);
    EXPECT_EQ(received, (std::vector<Bytes>{all, {7, 0}, {8}}));
    EXPECT_EQ(set.Calls("SendRjpData").size(), 2U);
    EXPECT_EQ(set.WaitForCalls(1).size(), 5U);
    set.ForgetCalls();
    EXPECT_TRUE(set.Calls().empty());
    // More than the line takes at once.
    all.resize(1 << 17);
    stream.clear();
    rjp.Write(all);
    EXPECT_TRUE(SimulatedSet::Wait([&] { return stream == all; }));
    // Of many calls, there are the latest.
    for (int i = 0; i <= 10000; ++i) {
        automation_execute_command(i + 1, 0);
    }
    EXPECT_EQ(set.Calls().size(), 10000U);
    EXPECT_THAT(set.Calls().front(), testing::HasSubstr("\"data0\":2,"));
    g_main_context_pop_thread_default(own);
    EXPECT_EQ(set.Finish(), 0);
}

// The client keeps its connection, so the second set has to be on the first one's bus.
TEST(SetFixture, GivesEachTestOfAProcessAFreshSet)
{
    setenv("FA_SET_SS", "/earlier", 1);
    for (const char* fault : {"CloseExUart no-answer times 1", "CloseExUart error times 1"}) {
        SimulatedSet set({"--fault", fault, "--reply-timeout", "1000"});
        EXPECT_STRNE(getenv("FA_SET_SS"), "/earlier");
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(automation_close_ex_uart(), -1);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
        EXPECT_EQ(automation_execute_command_with_projector(806, 15), 0);
        set.AddRules("{\"method\": \"all\", \"result\": 0}\n");
        EXPECT_EQ(automation_close_ex_uart(), -1);
        set.ClearRules();
        EXPECT_EQ(automation_close_ex_uart(), 0);
        EXPECT_EQ(set.Calls().size(), 4U);
    }
    EXPECT_STREQ(getenv("FA_SET_SS"), "/earlier");
    EXPECT_EQ(getenv("FA_SET_RJP"), nullptr);
    EXPECT_EQ(SimulatedSet({"--reply-timeout=1000"}).Finish(), 0);
    EXPECT_THAT([] { SimulatedSet(); }, Fails("give them the same --reply-timeout"));
}

TEST(SetFixture, SaysWhyASetDoesNotStart)
{
    EXPECT_THAT(([] {
                    SimulatedSet({"--profile", "/none"});
                }),
                Fails("status 1\nfa-set-simulator: profile /none: No such"));
    {
        const PrivateBus other;
        EXPECT_EQ(automation_close_ex_uart(), -1);
        EXPECT_THAT([] { SimulatedSet(); }, Fails("make the first set before"));
    }
    setenv("FA_SET_SIMULATOR", "no-such-program", 1);
    EXPECT_THAT([] { SimulatedSet(); }, Fails("name the program in FA_SET_SIMULATOR"));
    setenv("FA_SET_SIMULATOR", TESTS "testing/hanging_set", 1);
    SimulatedSet::deadline = std::chrono::milliseconds(100);
    EXPECT_THAT([] { SimulatedSet(); }, Fails("is not ready after 100 ms"));
    EXPECT_NE(std::system("pgrep -P $PPID sleep"), 0) << "the program is left";
}

TEST(SetFixture, SaysWhatIsWrong)
{
    SimulatedSet set;
    fa::SetLine rjp = set.OpenLine("rjp");
    fa::SetLine uart = set.OpenLine("uart");
    EXPECT_EQ(automation_close_ex_uart(), 0);
    EXPECT_THAT([&] { uart.Read(1); }, Fails("uart: read 0 of 1 bytes, then the set closed"));
    EXPECT_THAT([&] { set.OpenLine("uart"); }, Fails("line uart: No such file"));
    EXPECT_EQ(automation_send_rjp_data(Bytes{2}.data(), 1), 0);
    SimulatedSet::deadline = std::chrono::milliseconds(500);
    EXPECT_THAT([&] { rjp.Read(2); }, Fails("rjp: read 1 of 2 bytes, no more in 500 ms: 02"));
    EXPECT_THAT([&] { rjp.Write(Bytes(1 << 20)); }, Fails("bytes, no more in 500 ms"));
    EXPECT_THAT([&] { set.WaitForCalls(3); }, Fails("2 of 3 calls after 500 ms\n{\"time\":"));
    EXPECT_THAT([&] { set.Calls("SendRjp"); }, Fails("there is no method \"SendRjp\""));
    EXPECT_THAT([&] { set.AddRules("{\"start\": true, \"leave\": 1}\n{}"); }, Fails(":2: "));
    EXPECT_THAT([&] { set.OpenLine("simulator"); }, Fails("not \"simulator\""));
    EXPECT_THAT([&] { set.WritePacket("uart", {1}); }, Fails("come in on ss, rjp and ep"));
    EXPECT_THAT([] { SimulatedSet(); }, Fails("has a set already"));
}

// Such as a replay that differs from its recording.
TEST(SetFixture, TellsAFailureOfTheSet)
{
    const std::vector<std::string> options{"--replay", TESTS "testing/difference.jsonl"};
    SimulatedSet set(options);
    EXPECT_EQ(automation_execute_command(1, 1), -1);
    EXPECT_THAT([&] { set.WaitForCalls(2); }, Fails("not answer; it ended with status 123\n"));
    EXPECT_EQ(set.Finish(), 123);
    EXPECT_EQ(set.Finish(), 123);
    EXPECT_THAT([&] { set.ClearRules(); }, Fails("after Finish()"));
    // Who is on the way out for another reason keeps that.
    EXPECT_THROW((SimulatedSet{options}, throw 1), int);

    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(SimulatedSet{options}, "ended with status 123\n(.*\n)*.*CloseExUart");
    const auto withoutStatus = [] {
        std::signal(SIGCHLD, SIG_IGN);
        SimulatedSet();
    };
    EXPECT_DEATH(withoutStatus(), "status -1, which is unknown where SIGCHLD is ignored");
}

}  // namespace
