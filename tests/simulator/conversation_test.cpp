// The conversation with a set: recorded, captured, played back.
#include <fa_api/automation_api.h>
#include <fa_platform/simulation.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "simulator/set_fixture.h"

namespace
{

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string story;

void Tell(const char* protocol, const ProtocolData_s* data)
{
    story += protocol;
    for (int i = 0; i < std::min(data->iSize, 256); ++i) {
        story += " " + std::to_string(data->p_data[i]);
    }
    story += "\n";
}

// An application that talks to a device over RJP, and what came of it. It takes part in what the
// device scenario says.
class ConversationTest : public SetTest
{
protected:
    ConversationTest()
    {
        fa_platform::SetLogSink([](int, int, const std::string&, const std::string&) {});
        WriteText(In("device"), R"({"out": {"rjp": "02 10"}, "delay": 5, "in": {"rjp": "06 00"}}
{"out": {"rjp": "02 11"}, "in": {"rjp": "15", "ss": "01 02 03"}}
{"method": "CopyLogToUsb", "skip": 1, "times": 1, "error": "the stick is \"full\""}
{"method": "ChangeBaudRateExUart", "delay": 40}
{"method": "GetEpProtocolData", "times": 1, "data": [3, 9, 511]}
{"out": {"uart": "07"}, "leave": 30}
)");
        std::filesystem::create_directory(In("logs"));
        std::filesystem::create_directory(In("usb"));
        Subscribe(
            "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
            [](GDBusConnection*, const char*, const char*, const char*, const char*,
               GVariant* values, gpointer count) {
                const char* name = nullptr;
                g_variant_get(values, "(&s&s&s)", &name, nullptr, nullptr);
                *static_cast<int*>(count) += *name != ':' ? 1 : 0;
            },
            &changes);
    }

    void StartWith(const Words& options)
    {
        Words words{"--log-dir", In("logs"), "--usb-dir", In("usb")};
        words.insert(words.end(), options.begin(), options.end());
        Start(words);
    }

    // The application; its results and the local set that it finds, as a text.
    std::string Converse()
    {
        story.clear();
        const auto result = [](const char* what, int value) {
            story += std::string(what) + " " + std::to_string(value) + "\n";
        };
        const auto sendRjp = [&](unsigned char last) {
            const unsigned char bytes[] = {2, last};
            result("send", automation_send_rjp_data(bytes, 2));
        };
        automation_register_callback_rjp_protocol([](ProtocolData_s* data) { Tell("rjp", data); });
        automation_register_callback_serial_source([](ProtocolData_s* data) { Tell("ss", data); });
        automation_register_callback_ep_protocol([](ProtocolData_s* data) { Tell("ep", data); });
        result("command", automation_execute_command(0x10, 1));
        sendRjp(0x10);
        EXPECT_TRUE(Wait([] { return story.find("rjp 6 0\n") != std::string::npos; }));
        sendRjp(0x11);
        EXPECT_TRUE(Wait([] {
            return story.find("rjp 21\n") != std::string::npos &&
                   story.find("ss 1 2 3\n") != std::string::npos;
        }));
        result("rate", automation_change_baud_rate_ex_uart(9600));
        result("copy", automation_copy_log_to_usb());
        result("copy", automation_copy_log_to_usb());
        _autoamtion_signal_handler_ep();
        const unsigned char region[] = {'K', 'O', 'R'};
        result("local set", automation_execute_command_with_data(82, 1, region, 3));
        story += TextOf(In("profile.ini"));
        const unsigned char leave[] = {7};
        const int before = changes;
        result("uart", automation_send_message_by_ex_uart(leave, 1));
        // The service goes, and comes back.
        EXPECT_TRUE(Wait([&] { return changes >= before + 2; }));
        result("close", automation_close_ex_uart());
        automation_unregister_callback_rjp_protocol();
        automation_unregister_callback_serial_source();
        automation_unregister_callback_ep_protocol();
        return story;
    }

    // Starts the set with these options, lets the application talk to it, and stops it.
    std::string ConverseWith(const Words& options)
    {
        WriteText(In("profile.ini"), "[system_info_int]\n284=6\n");
        StartWith(options);
        const std::string told = Converse();
        Stop();
        return told;
    }

    int changes = 0;  // of the owner of the service's name
};

TEST_F(ConversationTest, ARecordingIsPlayedBackAsItWas)
{
    const std::string told = ConverseWith({"--scenario", In("device"), "--record", In("1")});
    EXPECT_THAT(told, HasSubstr("send 0\nrjp 6 0\nsend 0\nrjp 21\nss 1 2 3\nrate 0\ncopy 0\n"
                                "copy -1\nep 9 255 0\nlocal set 0\n[system_info_int]\n284=2\n"
                                "uart 0\nclose 0\n"));
    EXPECT_EQ(ConverseWith({"--replay", In("1"), "--record", In("2")}), told);
    EXPECT_EQ(WithoutTimes(TextOf(In("2"))), WithoutTimes(TextOf(In("1"))));
    EXPECT_EQ(WithoutTimes(TextOf(In("1"))), R"({"conversation":1}
{"method":"ExecuteCommand","arguments":{"data0":16,"data1":1},"result":1}
{"method":"SendRjpData","arguments":{"pLen":2,"pData":[2,16]},"result":1}
{"out":"rjp","bytes":"02 10"}
{"in":"rjp","bytes":"06 00"}
{"announced":"rjp","text":"2 bytes on rjp"}
{"method":"GetRjpProtocolData","arguments":{},"data":[2,6,0],"result":1}
{"method":"SendRjpData","arguments":{"pLen":2,"pData":[2,17]},"result":1}
{"out":"rjp","bytes":"02 11"}
{"in":"rjp","bytes":"15"}
{"announced":"rjp","text":"1 bytes on rjp"}
{"in":"ss","bytes":"01 02 03"}
{"announced":"ss","text":"3 bytes on ss"}
{"method":"GetRjpProtocolData","arguments":{},"data":[1,21],"result":1}
{"method":"GetSsProtocolData","arguments":{},"data":[3,1,2,3],"result":1}
{"method":"ChangeBaudRateExUart","arguments":{"bdrate":9600},"result":1,"fault":"delay"}
{"method":"CopyLogToUsb","arguments":{},"result":1}
{"method":"CopyLogToUsb","arguments":{},"error":"org.kavra.tv.automationservice.Simulator.Fault: the stick is \"full\"","fault":"error"}
{"method":"GetEpProtocolData","arguments":{},"data":[3,9,511],"result":1,"fault":"data"}
{"method":"ExecuteCommandWithData","arguments":{"data0":82,"data1":1,"data":[75,79,82],"len":3},"result":1}
{"method":"SendMessageByExUart","arguments":{"pLen":1,"pData":[7]},"result":1}
{"out":"uart","bytes":"07"}
{"bus":"left"}
{"bus":"joined"}
{"method":"CloseExUart","arguments":{},"result":1}
{"end":true}
)");
}

TEST_F(ConversationTest, ACaptureIsPlayedBackWithTheSameResults)
{
    const pid_t capture = Spawn({"capture", In("captured")}, In("listening"), In("listening"));
    EXPECT_TRUE(Wait([this] { return !TextOf(In("listening")).empty(); }));
    const std::string told = ConverseWith({"--scenario", In("device")});
    kill(capture, SIGINT);
    EXPECT_EQ(WaitFor(capture), 0) << TextOf(In("listening"));
    EXPECT_EQ(ConverseWith({"--replay", In("captured"), "--record", In("replayed")}), told);
    EXPECT_EQ(TextOf(In("output")).find("differ"), std::string::npos);
    // The first thing is that the service comes.
    EXPECT_THAT(WithoutTimes(TextOf(In("captured"))),
                StartsWith("{\"conversation\":1}\n{\"bus\":\"joined\"}\n{\"method\":\"Exec"));
    Start({"--replay", In("captured")});
    EXPECT_THAT(Ask("SetFault", "('all', 'error', 0, 0)"),
                "InvalidArgs: a replay goes by its recording alone");
    Stop(SIGTERM, 123);
}

constexpr char kRecording[] = R"({"conversation":1}
{"time":1,"method":"ExecuteCommand","arguments":{"data0":16,"data1":1},"result":1}
{"time":2,"out":"uart","bytes":"01 02"}
{"time":2,"in":"rjp","bytes":"06"}
{"time":602.5,"announced":"rjp","text":"a byte"}
{"time":603,"method":"GetRjpProtocolData","arguments":{},"data":[1,6],"result":1}
{"time":604,"method":"CloseExUart","arguments":{}}
{"time":604,"end":true}
)";

TEST_F(SetTest, AReplayGoesAsFastAsItCanOrAsItWas)
{
    WriteText(In("recording"), kRecording);
    for (const char* speed : {"fast", "real"}) {
        Start({"--replay", In("recording"), "--speed", speed});
        EXPECT_EQ(Call("ExecuteCommand", "(16, 1)"), "(1,)");
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_THAT(AwaitAnnouncements(1), ::testing::ElementsAre("rjp a byte"));
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_EQ(took >= std::chrono::milliseconds(500), std::string(speed) == "real");
        EXPECT_EQ(Read("uart", 2), "\x01\x02");
        // Nobody comes for it, so it is announced once more; and once too often is no difference.
        AwaitAnnouncements(1);
        EXPECT_EQ(Call("GetRjpProtocolData"), "[1, 6], (1,)");
        EXPECT_EQ(Call("GetRjpProtocolData"), "[], (0,)");
        g_dbus_connection_call(connection, "org.kavra.tv.automation-service", "/KVFacAutoObj",
                               "org.kavra.tv.automationservice", "CloseExUart", nullptr, nullptr,
                               G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
        AwaitBus(connection);
        EXPECT_TRUE(Wait(
            [this] { return Output().find("CloseExUart() -> nothing") != std::string::npos; }));
        Stop();
    }
}

TEST_F(SetTest, TheFirstDifferenceIsShown)
{
    WriteText(In("recording"), kRecording);
    const Words lines{
        R"({"time":1,"method":"ExecuteCommand","arguments":{"data0":16,"data1":1},"result":1})",
        R"({"time":2,"out":"uart","bytes":"01 02"})",
        R"({"time":603,"method":"GetRjpProtocolData","arguments":{},"data":[1,6],"result":1})"};
    const struct {
        std::function<void()> act;
        std::string shown;
    } cases[] = {
        {[this] { Call("ExecuteCommand", "(16, 2)"); },
         ":2: another call comes\n  {\"conversation\":1}\n- " + lines[0] +
             "\n+ {\"method\":\"ExecuteCommand\",\"arguments\":{\"data0\":16,\"data1\":2}}\n  " +
             lines[1] + "\n"},
        {[this] { Call("CloseExUart"); }, ":2: another call comes\n"},
        {[this] {
             Call("ExecuteCommand", "(16, 1)");
             Call("ExecuteCommand", "(16, 1)");
         },
         ":6: another call comes\n"},
        {[this] {
             Call("ExecuteCommand", "(16, 1)");
             kill(set, SIGTERM);
         },
         ":6: a call is missing\n"},
        {[this] { Write("ep", "x"); },
         ":2: bytes come into a line that the recording plays\n  {\"conversation\":1}\n- " +
             lines[0] + "\n+ {\"in\":\"ep\",\"bytes\":\"78\"}\n"},
        {[this] {
             Call("ExecuteCommand", "(16, 1)");
             Call("GetRjpProtocolData");
             g_dbus_connection_call(connection, "org.kavra.tv.automation-service", "/KVFacAutoObj",
                                    "org.kavra.tv.automationservice", "CloseExUart", nullptr,
                                    nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
             Call("CloseExUart");
         },
         ":8: one call is too many\n"},
    };
    for (const auto& each : cases) {
        Start({"--replay", In("recording"), "--record", In("other")});
        each.act();
        EXPECT_EQ(WaitFor(std::exchange(set, 0)), 123) << Output();
        EXPECT_THAT(Output(),
                    HasSubstr("fa-set-simulator: replay: " + In("recording") + each.shown));
        EXPECT_THAT(TextOf(In("other")), HasSubstr("\"end\":true"));
    }
}

TEST_F(SetTest, RefusesRecordingsThatAreNotWhole)
{
    const struct {
        const char* found;
        const char* replacement;
        const char* reason;
    } cases[] = {
        {"\"conversation\":1", "\"conversation\":2", ":1: a recording of version 2, not 1\n"},
        {"{\"conversation\":1}\n", "", ":1: no recording: "},
        {"{\"time\":604,\"end\":true}\n", "", ":8: the end is missing"},
        {"06\"}", "06\"", ":4: no JSON: "},
        {"\"data0\":16", "\"data0\":\"x\"", ":2: \"data0\" is no number"},
        {"\"data0\":16,", "", ":2: \"data0\" is missing"},
        {"\"data0\":16", "\"data9\":1,\"data0\":16", ":2: \"data9\" does not belong here"},
        {"\"ExecuteCommand\"", "\"Execute\"", ":2: there is no method"},
        {"\"time\":1,", "", ":2: \"time\" is missing"},
        {"\"out\":\"uart\"", "\"out\":\"usb\"", ":3: there is no line"},
        {"01 02", "1 2", ":3: \"1\" is no byte"},
        {"\"announced\":\"rjp\"", "\"announced\":\"uart\"", ":5: there is no protocol"},
        {"\"data\":[1,6]", "\"data\":[1,-6]", ":6: an element is no number"},
        {"\"data\":[1,6],", "", ":6: \"data\" is no array"},
        {"\"arguments\":{}}", "\"arguments\":{},\"result\":1,\"error\":\"a.b: c\"}",
         ":7: a call has"},
        {"\"end\":true}\n", "\"end\":true}\n{\"time\":1,\"bus\":\"left\"}\n",
         ":9: something follows"},
    };
    for (const auto& each : cases) {
        std::string text = kRecording;
        const auto at = text.find(each.found);
        ASSERT_NE(at, std::string::npos) << each.found;
        WriteText(In("recording"),
                  text.replace(at, std::string(each.found).size(), each.replacement));
        std::filesystem::remove(In("refused"));
        EXPECT_EQ(RunSet({"run", "-q", "--replay", In("recording"), "true"}, In("refused")), 1);
        EXPECT_THAT(TextOf(In("refused")),
                    StartsWith("fa-set-simulator: replay " + In("recording") + each.reason));
    }
    EXPECT_EQ(RunSet({"run", "-q", "--replay", In("none"), "true"}, In("none.err")), 1);
}

TEST_F(SetTest, ARecordIsWholeOrSaysThatItIsNot)
{
    Start({"--record", In("record")});
    EXPECT_EQ(Call("CloseExUart"), "(1,)");
    // Somebody empties it, and another set wants it.
    EXPECT_EQ(truncate(In("record").c_str(), 0), 0);
    EXPECT_EQ(Call("CopyLogToUsb"), "(0,)");
    for (const Words& words :
         {Words{"--record", In("record")}, Words{"run", "--record", In("record"), "--", "true"}}) {
        EXPECT_EQ(RunSet(words, In("refused")), 1);
        EXPECT_THAT(TextOf(In("refused")), HasSubstr("record: another set writes it\n"));
    }
    EXPECT_THAT(WithoutTimes(TextOf(In("record"))),
                "{\"method\":\"CopyLogToUsb\",\"arguments\":{},\"result\":0}\n");
    Stop();

    // What a set that is refused finds stays as it is.
    Start();
    WriteText(In("old"), "old");
    EXPECT_EQ(RunSet({"--record", In("old")}, In("taken")), 1);
    EXPECT_EQ(TextOf(In("old")), "old");
    Stop();

    Start({"--quiet", "--record", "/dev/full"});
    EXPECT_EQ(Call("CloseExUart"), "(1,)");
    Stop(SIGTERM, 1);
    EXPECT_EQ(Output(), "fa-set-simulator: record /dev/full: No space left on device\n");
    ASSERT_EQ(mkfifo(In("fifo").c_str(), 0600), 0);
    EXPECT_EQ(RunSet({"--record", In("fifo")}, In("fifo.err")), 1);
    EXPECT_THAT(TextOf(In("fifo.err")), HasSubstr("fifo: nobody reads from it\n"));
}

TEST_F(SetTest, TheSetTellsOfItsCalls)
{
    Start();
    Words called;
    Subscribe(
        "org.kavra.tv.automation-service", "org.kavra.tv.automationservice.Simulator", "Called",
        [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* values,
           gpointer calls) {
            const char* json = nullptr;
            g_variant_get(values, "(&s)", &json);
            static_cast<Words*>(calls)->push_back(WithoutTimes(json));
        },
        &called);
    EXPECT_EQ(Call("SendRjpData", "(1, [5])"), "(1,)");
    EXPECT_EQ(Ask("SetFault", "('all', 'error', 0, 1)"), "");
    EXPECT_EQ(Call("GetEpProtocolData"), "Fault: a fault on demand");
    const std::string first =
        R"({"method":"SendRjpData","arguments":{"pLen":1,"pData":[5]},"result":1})";
    const std::string second =
        R"({"method":"GetEpProtocolData","arguments":{},"error":"org.kavra.tv.automationservice.Simulator.Fault: a fault on demand","fault":"error"})";
    EXPECT_EQ(WithoutTimes(Ask("GetCalls", "('',)")), "['" + first + "', '" + second + "']");
    EXPECT_TRUE(Wait([&] { return called.size() == 2; }));
    EXPECT_EQ(called, (Words{first, second}));
    EXPECT_EQ(Ask("ForgetCalls"), "");
    EXPECT_EQ(Ask("GetCalls", "('',)"), "[]");
}

}  // namespace
