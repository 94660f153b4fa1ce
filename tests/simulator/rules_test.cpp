// What the set does when it is told to, and what commands change in it.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "simulator/set_fixture.h"

namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kFetch[] = "GetSsProtocolData";
constexpr char kOnDemand[] = "Fault: a fault on demand";

std::string Quoted(const std::string& text)
{
    g_autoptr(GVariant) value = g_variant_ref_sink(g_variant_new("(s)", text.c_str()));
    g_autofree char* printed = g_variant_print(value, FALSE);
    return printed;
}

TEST_F(SetTest, FaultsChangeTheAnswersThatTheyAreFor)
{
    Start({"--quiet", "--fault", "CopyLogToUsb error times 1"});
    EXPECT_EQ(Call("CopyLogToUsb"), kOnDemand);
    const std::string send = "(1, [1])";
    const struct {
        Words faults;
        Words answers;  // of so many calls of SendRjpData
    } cases[] = {
        {{"('SendRjpData', 'result', 0, 2)"}, {"(0,)", "(0,)", "(1,)"}},
        {{"('SendRjpData', 'result', -7, 1)"}, {"(-7,)", "(1,)"}},
        {{"('SendRjpData', 'error', 0, 3)"}, {kOnDemand, kOnDemand, kOnDemand, "(1,)"}},
        {{"('all', 'result', 5, 2)", "('SendRjpData', 'result', 6, 1)"},
         {"(6,)", "(5,)", "(5,)", "(1,)"}},
        {{"('SendRjpData', 'result', 8, 1)", "('all', 'result', 7, 1)"}, {"(8,)", "(7,)", "(1,)"}},
        {{"('SendRjpData', 'result', 3, 0)", "('SendRjpData', 'result', 4, 1)"}, {"(4,)", "(1,)"}},
        {{"('CloseExUart', 'error', 0, 1)"}, {"(1,)"}},
        {{"('all', 'error', 0, 0)"}, {kOnDemand, kOnDemand, kOnDemand}},
    };
    for (const auto& each : cases) {
        for (const std::string& fault : each.faults) {
            EXPECT_EQ(Ask("SetFault", fault), "");
        }
        for (const std::string& answer : each.answers) {
            EXPECT_EQ(Call("SendRjpData", send), answer) << each.faults[0];
        }
        EXPECT_EQ(Ask("ClearFaults"), "");
        EXPECT_EQ(Call("CloseExUart"), "(1,)");
    }
    // What is done goes by the result: nothing by 0 and errors, all by others.
    EXPECT_EQ(Call("SendRjpData", "(1, [2])"), "(1,)");
    EXPECT_EQ(Read("rjp", 15), std::string(14, '\x01') + '\x02');
}

TEST_F(SetTest, RefusesFaultsThatCannotBe)
{
    Start();
    const char* const cases[][2] = {
        {"('Nope', 'error', 0, 0)", "there is no method Nope"},
        {"('uart', 'burst', 1, 0)", "there is no method uart"},
        {"('ss', 'error', 0, 0)", "ss has no fault error"},
        {"('CloseExUart', 'empty', 0, 0)", "CloseExUart has no fault empty"},
        {"('all', 'long', 0, 0)", "all has no fault long"},
        {"('CloseExUart', 'delay', -1, 0)", "delay takes no value -1"},
        {"('CloseExUart', 'delay', 600001, 0)", "delay takes no value 600001"},
        {"('ss', 'burst', 0, 0)", "burst takes no value 0"},
        {"('ss', 'burst', 1, 2)", "burst happens once and takes no times"},
        {"('service', 'leave', 1, 1)", "leave happens once and takes no times"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(Ask("SetFault", each[0]), std::string("InvalidArgs: fault: ") + each[1]);
    }
    EXPECT_EQ(Call("CloseExUart"), "(1,)");
}

TEST_F(SetTest, ADelayDelaysAndALateAnswerLosesNothing)
{
    Start({"--fault", "CloseExUart delay 300 times 1"});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Call("CloseExUart"), "(1,)");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
    // In the meantime the set is there for others.
    EXPECT_EQ(Ask("SetFault", "('CopyLogToUsb', 'delay', 600000, 1)"), "");
    g_dbus_connection_call(connection, "org.kavra.tv.automation-service", "/KVFacAutoObj",
                           "org.kavra.tv.automationservice", "CopyLogToUsb", nullptr, nullptr,
                           G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    EXPECT_EQ(Call("CloseExUart"), "(1,)");
    // Who has given up waiting for a packet gets it by the next fetch.
    Write("ss", "x");
    AwaitAnnouncements(1);
    EXPECT_EQ(Ask("SetFault", "('GetSsProtocolData', 'delay', 30000, 1)"), "");
    g_dbus_connection_call(connection, "org.kavra.tv.automation-service", "/KVFacAutoObj",
                           "org.kavra.tv.automationservice", kFetch, nullptr, nullptr,
                           G_DBUS_CALL_FLAGS_NONE, 100, nullptr, nullptr, nullptr);
    AwaitAnnouncements(1);
    EXPECT_EQ(Call(kFetch), "[1, 120], (1,)");
}

TEST_F(SetTest, ScenariosAnswerForADevice)
{
    WriteText(In("scenario"), R"({"out": {"rjp": "02 10"}, "delay": 5, "in": {"rjp": "06"}}
{"out": {"rjp": "03 .. ff *"}, "in": {"ss": "15 00", "ep": "16"}}
{"out": {"uart": "*"}, "skip": 1, "times": 1, "burst": {"ep": 3}}

{"start": true, "in": {"ss": "aa bb"}}
)");
    Start({"--scenario", In("scenario")});
    EXPECT_EQ(Call(kFetch), "[2, 170, 187], (1,)");
    Announcements();
    const struct {
        const char* method;
        const char* arguments;
        Words announced;
    } cases[] = {
        {"SendRjpData", "(2, [2, 16])", {"rjp 1 bytes on rjp"}},
        {"SendRS232Ack", "(2, 2, [2, 16])", {"rjp 1 bytes on rjp"}},
        {"SendRjpData", "(1, [2])", {}},
        {"SendRjpData", "(3, [2, 16, 0])", {}},
        {"SendRS232Ack", "(3, 2, [2, 16])", {}},
        {"SendRjpData", "(3, [3, 9, 255])", {"ep 1 bytes on ep", "ss 2 bytes on ss"}},
        {"SendRjpData", "(4, [3, 0, 255, 1])", {"ep 1 bytes on ep", "ss 2 bytes on ss"}},
        {"SendRjpData", "(3, [3, 9, 254])", {}},
        {"SendMessageByExUart", "(1, [1])", {}},
        {"SendMessageByExUart",
         "(1, [1])",
         {"ep 2 bytes on ep", "ep 2 bytes on ep", "ep 2 bytes on ep"}},
        {"SendMessageByExUart", "(1, [1])", {}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(Call(each.method, each.arguments), "(1,)");
        Words announced = AwaitAnnouncements(each.announced.size());
        std::sort(announced.begin(), announced.end());
        EXPECT_EQ(announced, each.announced) << each.method << each.arguments;
    }
    EXPECT_EQ(Call("GetRjpProtocolData"), "[1, 6], (1,)");
    EXPECT_EQ(Call("GetSsProtocolData"), "[2, 21, 0], (1,)");
    EXPECT_EQ(Ask("ClearRules"), "");
    EXPECT_EQ(Call("SendRjpData", "(2, [2, 16])"), "(1,)");
    g_usleep(50'000);
    EXPECT_THAT(Announcements(), ElementsAre());
}

TEST_F(SetTest, RulesHoldInOrderForTheCallsThatTheyAreFor)
{
    Start({"--seed", "7"});
    EXPECT_EQ(
        Ask("AddRules",
            Quoted(
                R"({"method": "ExecuteCommand", "arguments": {"data0": 32, "data1": 3}, "skip": 2, "times": 1, "error": "busy"}
{"method": "ExecuteCommand", "arguments": {"data0": 32}, "result": 5}
{"method": "ExecuteCommand", "times": 1, "result": 6, "in": {"ss": "01"}}
{"method": "all", "result": 9}
{"method": "SendRjpData", "arguments": {"pData": "01 *"}, "delay": 1}
{"method": "GetSsProtocolData", "times": 1, "data": [5, 170, 511]}
{"method": "GetSsProtocolData", "times": 1, "data": "aa bb", "result": -2})")),
        "");
    const char* const cases[][3] = {
        {"ExecuteCommand", "(32, 3)", "(5,)"},
        {"ExecuteCommand", "(32, 4)", "(5,)"},
        {"ExecuteCommand", "(32, 3)", "(5,)"},
        {"ExecuteCommand", "(32, 3)", "Fault: busy"},
        {"ExecuteCommand", "(32, 3)", "(5,)"},
        {"ExecuteCommand", "(33, 3)", "(6,)"},
        {"ExecuteCommand", "(33, 3)", "(9,)"},
        {"SendRjpData", "(2, [1, 2])", "(1,)"},
        {"SendRjpData", "(1, [2])", "(9,)"},
        {"GetSsProtocolData", "()", "[5, 170, 511], (1,)"},
        {"GetSsProtocolData", "()", "[2, 170, 187], (-2,)"},
        {"GetSsProtocolData", "()", "[1, 1], (9,)"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(Call(each[0], each[1]), each[2]) << each[0] << each[1];
    }
    // A fault goes before the rules, and leaves them alone.
    EXPECT_EQ(Ask("SetFault", "('ExecuteCommand', 'error', 0, 0)"), "");
    EXPECT_EQ(Call("ExecuteCommand", "(32, 3)"), kOnDemand);
    EXPECT_EQ(Ask("ClearFaults"), "");
    EXPECT_EQ(Call("ExecuteCommand", "(32, 3)"), "(5,)");

    // Chance goes by the seed.
    std::string first;
    for (int run = 0; run < 2; ++run) {
        Stop();
        Start({"--seed", "7"});
        EXPECT_EQ(Ask("AddRules", Quoted(R"({"method": "all", "chance": 0.5, "result": 2})")), "");
        std::string results;
        for (int i = 0; i < 40; ++i) {
            results += Call("CloseExUart");
        }
        EXPECT_THAT(results, ::testing::AllOf(HasSubstr("(1,)"), HasSubstr("(2,)")));
        EXPECT_EQ(results, run == 0 ? results : first);
        first = results;
    }
    EXPECT_THAT(Output(), HasSubstr("set: chance goes by --seed 7\n"));
}

TEST_F(SetTest, RefusesRulesThatCannotBe)
{
    Start();
    const char* const cases[][2] = {
        {R"({"start": true)", "no JSON: "},
        {R"([])", "no JSON object"},
        {R"({"result": 1})", "a rule has one condition"},
        {R"({"start": true, "out": {"ss": "*"}, "in": {"ss": "01"}})", "a rule has one condition"},
        {R"({"method": "Nope", "result": 1})", "there is no method \"Nope\""},
        {R"({"method": "ExecuteCommand", "arguments": {"data2": 1}, "result": 1})",
         "\"data2\" does not belong here"},
        {R"({"method": "ExecuteCommand", "arguments": {"data0": "x"}, "result": 1})",
         "\"data0\" is no number"},
        {R"({"method": "ExecuteCommand"})", "nothing happens"},
        {R"({"method": "ExecuteCommand", "result": 4294967296})", "\"result\" is no number"},
        {R"({"method": "ExecuteCommand", "result": 1, "error": "x"})", "a call has one answer"},
        {R"({"method": "ExecuteCommand", "data": "01"})", "only a Get"},
        {R"({"method": "GetSsProtocolData", "data": [1, -1]})",
         "an element is no number from 0 to 4294967295"},
        {R"({"method": "ExecuteCommand", "result": 1, "results": 1})",
         "\"results\" does not belong here"},
        {R"({"out": {"usb": "01"}, "in": {"ss": "01"}})", "there is no line \"usb\""},
        {R"({"out": {"ss": "1"}, "in": {"ss": "01"}})", "\"1\" is no byte"},
        {R"({"out": {"ss": "* 01"}, "in": {"ss": "01"}})", "\"*\" can only be the last"},
        {R"({"out": {"ss": "*"}, "in": {"uart": "01"}})", "packets come in on ss, rjp and ep"},
        {R"({"out": {"ss": "*"}, "in": {"ss": ""}})", "a packet has 1 to 256 bytes"},
        {R"({"out": {"ss": "*"}, "result": 1})", "\"result\" needs a \"method\""},
        {R"({"out": {"ss": "*"}, "delay": 1})", "nothing happens"},
        {R"({"start": true, "times": 2, "leave": 1})", "the start comes once"},
        {R"({"out": {"ss": "*"}, "chance": 2, "leave": 1})", "\"chance\" is no number"},
        {R"({"out": {"ss": "*"}, "times": 0, "leave": 1})", "\"times\" is no number"},
    };
    for (const auto& each : cases) {
        const std::string text = std::string("{\"method\": \"all\", \"result\": 0}\n\n") + each[0];
        EXPECT_THAT(Ask("AddRules", Quoted(text)),
                    StartsWith(std::string("InvalidArgs: rules:3: ") + each[1]));
        WriteText(In("scenario"), text);
        EXPECT_EQ(RunSet({"--scenario", In("scenario")}, In("refused")), 1);
    }
    EXPECT_THAT(TextOf(In("refused")), HasSubstr("scenario " + In("scenario") + ":3: no JSON: "));
    EXPECT_EQ(Call("CloseExUart"), "(1,)");  // not one of the rules is there
}

TEST_F(SetTest, TheLocalSetChangesTheProfileAndNothingElse)
{
    std::filesystem::create_directory(In("real"));
    std::filesystem::rename(In("profile.ini"), In("real/profile.ini"));
    std::filesystem::create_symlink(In("real/profile.ini"), In("profile.ini"));
    chmod(In("real/profile.ini").c_str(), 0664);
    Start();
    const std::string profile = TextOf(In("profile.ini"));
    const auto change = [this](const std::string& name) {
        std::string data;
        for (const char letter : name) {
            data += (data.empty() ? "" : ",") + std::to_string(letter);
        }
        return Call("ExecuteCommandWithData",
                    "(82, 1, [" + data + "], " + std::to_string(name.size()) + ")");
    };
    EXPECT_EQ(change("NOWHERE"), "(0,)");
    EXPECT_EQ(change("LOCALSET_ERR"), "(0,)");
    EXPECT_EQ(Ask("SetFault", "('ExecuteCommandWithData', 'result', 0, 1)"), "");
    EXPECT_EQ(change("JAPAN"), "(0,)");
    EXPECT_EQ(Call("ExecuteCommandWithData", "(82, 2, [74], 1)"), "(1,)");
    EXPECT_EQ(Call("ExecuteCommandWithData", "(1, 1, [], 0)"), "(0,)");
    EXPECT_EQ(TextOf(In("profile.ini")), profile);
    EXPECT_EQ(change("JAPAN"), "(1,)");
    EXPECT_EQ(TextOf(In("real/profile.ini")), "# a comment\n\n[system_info_int]\n869=1\n284=95\n");
    EXPECT_TRUE(std::filesystem::is_symlink(In("profile.ini")));
    struct stat status {
    };
    stat(In("profile.ini").c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777U, 0664U);
}

TEST_F(SetTest, LogsAreCopiedAsAStickTakesThem)
{
    std::filesystem::create_directories(In("logs/inner"));
    std::filesystem::create_directory(In("usb"));
    WriteText(In("logs/a.log"), "hello");
    WriteText(In("logs/inner/b.log"), "there");
    std::filesystem::create_symlink("/etc/passwd", In("logs/link"));
    ASSERT_EQ(mkfifo(In("logs/fifo").c_str(), 0600), 0);
    Start({"--log-dir", In("logs"), "--usb-dir", In("usb")});
    EXPECT_EQ(Call("CopyLogToUsb"), "(1,)");
    WriteText(In("logs/a.log"), "hello again");
    EXPECT_EQ(Call("CopyLogToUsb"), "(1,)");
    EXPECT_EQ(TextOf(In("usb/logs/a.log")), "hello again");
    EXPECT_EQ(TextOf(In("usb/logs/inner/b.log")), "there");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(In("usb/logs/link"))));
    EXPECT_FALSE(std::filesystem::exists(In("usb/logs/fifo")));
    // A link in the copy's place would lead it elsewhere.
    std::filesystem::remove_all(In("usb/logs/inner"));
    std::filesystem::create_symlink(In(""), In("usb/logs/inner"));
    EXPECT_EQ(Call("CopyLogToUsb"), "(0,)");
    EXPECT_THAT(Output(), HasSubstr("stops at " + In("usb/logs/inner:")));
    EXPECT_FALSE(std::filesystem::exists(In("b.log")));
    std::filesystem::remove_all(In("usb"));
    EXPECT_EQ(Call("CopyLogToUsb"), "(0,)");
    EXPECT_THAT(Output(), HasSubstr("no logs are copied: no USB storage\n"));
    Stop();
    std::filesystem::create_directories(In("logs/usb"));
    Start({"--log-dir", In("logs"), "--usb-dir", In("logs/usb")});
    EXPECT_EQ(Call("CopyLogToUsb"), "(0,)");
}

}  // namespace
