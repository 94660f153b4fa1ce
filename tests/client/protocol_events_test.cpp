// Data that arrives on the serial protocols: registered for, announced, fetched, handed over. Every
// test runs for each of the three, whose names are rows; what happens in it is told in
// protocol_events.txt, under the test's name.
#include <map>

#include "client/client_test.h"

namespace
{

struct Protocol {
    int (*registerCallback)(ProtocolCallback_fp);
    int (*unregisterCallback)();
    void (*handle)();
    ProtocolCallback_fp* global;
    std::string low, upper, capital;  // in names: ss_handler, ulSigHandlerSS, GetSsProtocolData
    std::string source, prefix;       // in those of the functions, and before them in the log
};

const Protocol kProtocols[] = {
    {automation_register_callback_serial_source, automation_unregister_callback_serial_source,
     _autoamtion_signal_handler_ss, &cbfp_ss, "ss", "SS", "Ss", "serial_source", "automation_"},
    {automation_register_callback_rjp_protocol, automation_unregister_callback_rjp_protocol,
     _autoamtion_signal_handler_rjp, &cbfp_rjp, "rjp", "RJP", "Rjp", "rjp_protocol", "automation_"},
    {automation_register_callback_ep_protocol, automation_unregister_callback_ep_protocol,
     _autoamtion_signal_handler_ep, &cbfp_ep, "ep", "EP", "Ep", "ep_protocol", ""},
};

const ProtocolData_s* received = nullptr;  // what a callback was given last
const Protocol* ended = nullptr;           // what C ends

// Notes the whole record, but for the zeros at its end.
void NoteRecord(const char* receiver, const ProtocolData_s* record)
{
    std::string line = Format("%s: size %d,", receiver, record->iSize);
    for (const unsigned char byte : record->p_data) {
        line += Format(" %02x", byte);
    }
    while (line.substr(line.size() - 3) == " 00") {
        line.resize(line.size() - 3);
    }
    Note(line + (received == nullptr || received == record ? "" : " in another record"));
    received = record;
}

const ProtocolCallback_fp A = [](ProtocolData_s* data) { NoteRecord("A", data); };
const ProtocolCallback_fp B = [](ProtocolData_s* data) { NoteRecord("B", data); };

// Ends its own registration and goes on working with the library.
const ProtocolCallback_fp C = [](ProtocolData_s* data) {
    NoteRecord("C", data);
    ended->unregisterCallback();
    automation_execute_command(data->iSize, data->p_data[0]);
};

class ProtocolTest : public ClientTest, public testing::WithParamInterface<int>
{
protected:
    void Register(ProtocolCallback_fp callback)
    {
        Note("-- register");
        Call([&] { return p.registerCallback(callback); });
        Note(Format("registered: %x", Low(*p.global)));
    }

    void Unregister()
    {
        Note("-- unregister");
        Call(p.unregisterCallback);
        Note(Format("registered: %x", Low(*p.global)));
    }

    // The service announces data, and answers so when it is fetched.
    void Announce(const std::string& answer)
    {
        Note("-- announce " + answer);
        service.Answer("Get" + p.capital + "ProtocolData", answer);
        service.Emit(p.low + "_handler");
        Iterate();
    }

    // Expects the test's story, its words in braces filled in.
    void ExpectStory(std::map<std::string, std::string> words = {})
    {
        words.insert({{"A", Format("%x", Low(A))},
                      {"B", Format("%x", Low(B))},
                      {"C", Format("%x", Low(C))},
                      {"ss", p.low},
                      {"SS", p.upper},
                      {"Ss", p.capital},
                      {"source", p.source},
                      {"automation_", p.prefix},
                      {"connected", Connected()},
                      {"handler", "protocol_events _autoamtion_signal_handler_{ss}"},
                      {"no bus", kNoBus},
                      {"proxy", Format("%x", Low(library.proxy.load()))},
                      {"proxy's address", Format("%p", static_cast<void*>(library.proxy))}});
        for (std::size_t i = 0; i < library.connections.size(); ++i) {
            words[Format("id %zu", i + 1)] = Format("%lu", library.connections[i]);
            words[Format("id %zu in hex", i + 1)] = Format("%lx", library.connections[i]);
        }
        const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
        std::string story =
            Section(TEST_STORIES "protocol_events.txt", name.substr(0, name.find('/')));
        for (std::size_t open = 0; (open = story.find('{', open)) != std::string::npos;) {
            const std::size_t close = story.find('}', open);
            const std::string& value = words.at(story.substr(open + 1, close - open - 1));
            story.replace(open, close + 1 - open, value, 0, value.find_last_not_of('\n') + 1);
        }
        EXPECT_TRACE(story);
    }

    const Protocol& p = kProtocols[GetParam()];
    const Protocol& other = kProtocols[GetParam() == 0 ? 1 : 0];
};

TEST_P(ProtocolTest, DataReachesTheCallbackInTheProtocolsRecord)
{
    Register(A);
    Announce("(@au [3, 16, 32, 48], (1,))");
    Announce("(@au [5, 511], (-1,))");
    Announce("(@au [4294967295], (1,))");
    ExpectStory();
}

TEST_P(ProtocolTest, ARecordIsFilledToItsEndAndNoFurther)
{
    std::string data = "300";
    std::map<std::string, std::string> words;
    for (int i = 0; i < 256; ++i) {
        const int byte = i ^ 0x5A;  // the last is not zero
        data += Format(", %d", byte);
        words["256 lines"] += Format("D {handler}: {ss}Data.p_data[0X%02X]\n", byte);
        words["256 bytes"] += Format(" %02x", byte);
    }
    words["256 numbers"] = data;
    Register(A);
    TakeTrace();
    Announce("(@au [" + data + "], (1,))");
    Announce("(@au [" + data + ", 1, 2], (1,))");
    Announce("(@au [], (1,))");
    ExpectStory(words);
}

TEST_P(ProtocolTest, WhatIsNotDeliveredLeavesCallbackAndRecordAlone)
{
    Register(A);
    Announce("(@au [2, 7, 8], (1,))");
    TakeTrace();
    for (const char* answer :
         {"(@au [9, 9], (0,))", "!not today", "((1,),)", "(@au [2], (1,))", "exit"}) {
        Announce(answer);
    }
    ExpectStory();
}

TEST_P(ProtocolTest, OnlyTheServiceAndOnlyThisProtocolIsHeard)
{
    Register(A);
    TakeTrace();
    for (const Protocol& each : kProtocols) {
        each.low != p.low ? service.Emit(each.low + "_handler") : void();
    }
    g_autoptr(GDBusConnection) own = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    g_autoptr(GDBusConnection) impostor = bus.Connect();
    g_dbus_connection_emit_signal(impostor, g_dbus_connection_get_unique_name(own), "/KVFacAutoObj",
                                  "org.kavra.tv.automationservice", (p.low + "_handler").c_str(),
                                  g_variant_new("(s)", "a lie"), nullptr);
    AwaitBus(impostor);
    Iterate();
    EXPECT_TRACE("");
}

TEST_P(ProtocolTest, ANullCallbackChangesNothing)
{
    Register(nullptr);
    Register(A);
    Register(nullptr);
    Announce("(@au [0], (1,))");
    ExpectStory();
}

TEST_P(ProtocolTest, WithoutABusNothingIsRegisteredAndUnregisteringSucceeds)
{
    HideBus();
    Register(A);
    Unregister();
    p.handle();
    ShowBus();
    Unregister();
    Register(A);
    ExpectStory();
}

TEST_P(ProtocolTest, RegisteredTwiceIsHandledTwiceUntilOneIsTakenBack)
{
    Register(A);
    Register(B);
    TakeTrace();
    Announce("(@au [1, 1], (1,))");
    Unregister();
    Announce("(@au [2, 2], (1,))");
    Unregister();
    NoteRecord("the record", received);
    ExpectStory();
}

TEST_P(ProtocolTest, ProtocolsAreRegisteredAndUnregisteredApart)
{
    p.registerCallback(A);
    other.registerCallback(B);
    Announce("(@au [1, 1], (1,))");
    const ProtocolData_s* const record = received;
    service.Answer("Get" + other.capital + "ProtocolData", "(@au [0], (1,))");
    service.Emit(other.low + "_handler");
    Iterate();
    EXPECT_NE(received, record);
    EXPECT_EQ(received->iSize + received->p_data[0], 0);
    p.unregisterCallback();
    EXPECT_EQ(*other.global, B);
}

// A thread that unregisters at the worst moment: after the test for null, before the call.
TEST_P(ProtocolTest, TheCallbackIsReadOnceForEachSignal)
{
    Register(A);
    TakeTrace();
    WatchLog([&](const std::string& line) {
        Note(line);
        *p.global = line.find("is not NULL") != std::string::npos ? nullptr : *p.global;
    });
    Announce("(@au [1, 1], (1,))");
    Announce("(@au [0], (1,))");
    ExpectStory();
}

TEST_P(ProtocolTest, ACallbackMayUnregisterItselfAndCallTheLibrary)
{
    ended = &p;
    Register(C);
    TakeTrace();
    service.Emit(p.low + "_handler");
    Announce("(@au [5, 6], (1,))");
    ExpectStory();
}

INSTANTIATE_TEST_SUITE_P(Client, ProtocolTest, testing::Range(0, 3),
                         [](const auto& index) { return kProtocols[index.param].upper; });

}  // namespace
