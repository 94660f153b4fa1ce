// Data that arrives on the serial protocols: registered for, announced, fetched, handed over. Every
// test runs for each of the three, whose names are rows.
#include <cstring>

#include "client/client_test.h"

namespace
{

struct Protocol {
    int (*registerCallback)(ProtocolCallback_fp);
    int (*unregisterCallback)();
    void (*handle)();
    ProtocolCallback_fp* global;
    std::string low, upper, capital;   // in names: ss_handler, ulSigHandlerSS, GetSsProtocolData
    std::string function, unregister;  // the functions' full names
    std::string registered, unregistered;  // and how the log calls them
};

const Protocol kProtocols[] = {
    {automation_register_callback_serial_source, automation_unregister_callback_serial_source,
     _autoamtion_signal_handler_ss, &cbfp_ss, "ss", "SS", "Ss",
     "automation_register_callback_serial_source", "automation_unregister_callback_serial_source",
     "automation_register_callback_serial_source", "automation_unregister_callback_serial_source"},
    {automation_register_callback_rjp_protocol, automation_unregister_callback_rjp_protocol,
     _autoamtion_signal_handler_rjp, &cbfp_rjp, "rjp", "RJP", "Rjp",
     "automation_register_callback_rjp_protocol", "automation_unregister_callback_rjp_protocol",
     "automation_register_callback_rjp_protocol", "automation_unregister_callback_rjp_protocol"},
    {automation_register_callback_ep_protocol, automation_unregister_callback_ep_protocol,
     _autoamtion_signal_handler_ep, &cbfp_ep, "ep", "EP", "Ep",
     "automation_register_callback_ep_protocol", "automation_unregister_callback_ep_protocol",
     "register_callback_ep_protocol", "unregister_callback_ep_protocol"},
};

void PrintTo(const Protocol& protocol, std::ostream* stream)
{
    *stream << protocol.upper;
}

ProtocolData_s* received = nullptr;  // what a callback was given last

void Receive(ProtocolData_s* data)
{
    received = data;
    Note("callback: " + std::to_string(data->iSize));
}

void ReceiveElsewhere(ProtocolData_s* data)
{
    received = data;
    Note("the other callback: " + std::to_string(data->iSize));
}

class ProtocolTest : public ClientTest, public testing::WithParamInterface<Protocol>
{
protected:
    const Protocol& p = GetParam();
    const std::string handler = "_autoamtion_signal_handler_" + p.low;
    const std::string method = "Get" + p.capital + "ProtocolData";
    ProtocolData_s record{};  // what the protocol's record has to hold

    void ExpectRegistered(ProtocolCallback_fp callback, const Protocol& q,
                          const std::string& connection = "")
    {
        Call([&] { return q.registerCallback(callback); });
        EXPECT_TRACE(Entry(callback, q) + (connection == "first" ? Connected() : connection) +
                     "connected to " + q.low + "-handler\n" +
                     Logged("protocol_events", q.function,
                            Format("I g_signal_connect return Success ulSigHandler%s[%lx]",
                                   q.upper.c_str(), library.connection)) +
                     "= 0\n");
        EXPECT_EQ(*q.global, callback);
    }

    // Unregisters; `id` is the connection that ends, 0 where none was made, and `known` whether
    // GLib still has it.
    void ExpectUnregistered(const Protocol& q, gulong id, bool known = true,
                            const std::string& connection = "")
    {
        const unsigned int before = connection.empty() ? Low(library.proxy.load()) : 0;
        Call(q.unregisterCallback);
        const std::string stored = Format(" ulSigHandler%s[%lu]", q.upper.c_str(), id);
        std::string expected =
            Logged("protocol_events", q.unregister,
                   "I " + q.unregistered + Format(" AutomationProxyPtr[%x]", before) + stored) +
            (connection == "first" ? Connected() : connection);
        if (id != 0) {
            const std::string unknown = Format("GLib: instance '%p' has no handler with id '%lu'\n",
                                               static_cast<void*>(library.proxy), id);
            expected += Format("disconnected %lu\n", id) + (known ? "" : unknown) +
                        Logged("protocol_events", q.unregister,
                               Format("I g_signal_handler_disconnect AutomationProxyPtr[%x]",
                                      Low(library.proxy.load())) +
                                   stored);
        }
        EXPECT_TRACE(expected + "= 0\n");
        EXPECT_EQ(*q.global, nullptr);
    }

    // What registration logs first.
    static std::string Entry(ProtocolCallback_fp callback, const Protocol& q)
    {
        return Logged(
            "protocol_events", q.function,
            Format("D %s callback_fp_%s[%x]", q.registered.c_str(), q.low.c_str(), Low(callback)));
    }

    // The service has this data, and announces it.
    void Announce(const std::string& data, int verdict = 1)
    {
        service.Answer(method, "(@au [" + data + "], (" + std::to_string(verdict) + ",))");
        service.Emit(p.low + "_handler");
        Iterate();
    }

    std::string Log(const std::string& messages) const
    {
        return Logged("protocol_events", handler, messages);
    }

    std::string Fetched() const
    {
        return Log("I Signal Rx " + p.low + "_handler") + "service: " + method + " ()\n";
    }

    // Expects a signal to have stored `size` and `bytes`, and to have handed the record over; null
    // is nobody.
    void ExpectArrived(int size, const std::string& bytes, ProtocolCallback_fp callback,
                       int verdict = 1, int times = 1, const std::string& surplus = "")
    {
        std::string log = Format("D %s Success retVal[%d]\nI %sData.iSize[%d]\n", method.c_str(),
                                 verdict, p.low.c_str(), size);
        for (const char byte : bytes) {
            log += Format("D %sData.p_data[0X%02X]\n", p.low.c_str(),
                          static_cast<unsigned char>(byte));
        }
        log += surplus;
        log += Format(callback == nullptr ? "E cbfp_%s is NULL [%x], call back NG"
                                          : "I cbfp_%s is not NULL [%x], call back OK",
                      p.low.c_str(), Low(callback));
        std::string expected = Fetched() + Log(log);
        if (callback != nullptr) {
            expected += (callback == Receive ? "callback: " : "the other callback: ") +
                        std::to_string(size) + "\n";
        }
        EXPECT_TRACE(times == 1 ? expected : expected + expected);
        record.iSize = size;
        std::memcpy(record.p_data, bytes.data(), bytes.size());
        ExpectTheRecord();
    }

    void ExpectTheRecord() const
    {
        ASSERT_NE(received, nullptr);
        EXPECT_EQ(std::memcmp(received, &record, sizeof(record)), 0);
    }
};

TEST_P(ProtocolTest, DataReachesTheCallbackInTheProtocolsRecord)
{
    ExpectRegistered(Receive, p, "first");
    Announce("3, 16, 32, 48");
    ExpectArrived(3, "\x10\x20\x30", Receive);
    const ProtocolData_s* place = received;
    Announce("5, 511", -1);
    ExpectArrived(5, "\xFF", Receive, -1);
    Announce("4294967295");
    ExpectArrived(-1, "", Receive);
    EXPECT_EQ(received, place);
}

TEST_P(ProtocolTest, ARecordIsFilledToItsEndAndNoFurther)
{
    ExpectRegistered(Receive, p, "first");
    std::string data = "300";
    for (int i = 0; i < 256; ++i) {
        data += ", " + std::to_string(i ^ 0x5A);
        record.p_data[i] = static_cast<unsigned char>(i ^ 0x5A);
    }
    const std::string bytes(reinterpret_cast<const char*>(record.p_data), 256);
    Announce(data);
    ExpectArrived(300, bytes, Receive);
    Announce(data + ", 1, 2");
    ExpectArrived(300, bytes, Receive, 1, 1, "E " + p.low + "Data is full, 2 bytes dropped\n");
    Announce("");
    ExpectArrived(0, "", Receive);
}

TEST_P(ProtocolTest, WhatIsNotDeliveredLeavesCallbackAndRecordAlone)
{
    ExpectRegistered(Receive, p, "first");
    Announce("2, 7, 8");
    ExpectArrived(2, "\7\x8", Receive);
    Announce("9, 9", 0);
    EXPECT_TRACE(Fetched() + Log("E " + method + " Fails retVal[0]"));
    const std::pair<std::string, std::string> refusals[] = {
        {"!not today", "GDBus.Error:test.Refused: not today"},
        {"((1,),)", "Method “" + method + "” returned type “((i))”, but expected “(au(i))”"},
        {"exit",
         "GDBus.Error:org.freedesktop.DBus.Error.NoReply: Message recipient disconnected from "
         "message bus without replying"},
    };
    for (const auto& [answer, error] : refusals) {
        service.Answer(method, answer);
        service.Emit(p.low + "_handler");
        Iterate();
        EXPECT_TRACE(Fetched() + Logged("call_frame", handler,
                                        "E ERR: automation_proxy_call_get_" + p.low +
                                            "_protocol_data_sync return false\nE get_" + p.low +
                                            "_protocol_data_sync err[" + error + "]"));
    }
    ExpectTheRecord();
}

TEST_P(ProtocolTest, OnlyTheServiceAndOnlyThisProtocolIsHeard)
{
    ExpectRegistered(Receive, p, "first");
    for (const Protocol& other : kProtocols) {
        if (other.low != p.low) {
            service.Emit(other.low + "_handler");
        }
    }
    g_autoptr(GDBusConnection) own = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    g_autoptr(GDBusConnection) impostor = bus.Connect();
    for (const char* receiver :
         {static_cast<const char*>(nullptr), g_dbus_connection_get_unique_name(own)}) {
        g_dbus_connection_emit_signal(
            impostor, receiver, "/KVFacAutoObj", "org.kavra.tv.automationservice",
            (p.low + "_handler").c_str(), g_variant_new("(s)", "a lie"), nullptr);
    }
    AwaitBus(impostor);
    Iterate();
    EXPECT_TRACE("");
}

TEST_P(ProtocolTest, ANullCallbackChangesNothing)
{
    Call([&] { return p.registerCallback(nullptr); });
    EXPECT_TRACE(Entry(nullptr, p) + "= -1\n");
    EXPECT_TRUE(library.constructions.empty());
    ExpectRegistered(Receive, p, "first");
    Call([&] { return p.registerCallback(nullptr); });
    EXPECT_TRACE(Entry(nullptr, p) + "= -1\n");
    EXPECT_EQ(*p.global, Receive);
    Announce("1, 1");
    ExpectArrived(1, "\1", Receive);
}

TEST_P(ProtocolTest, WithoutABusNothingIsRegisteredAndUnregisteringSucceeds)
{
    HideBus();
    Call([&] { return p.registerCallback(Receive); });
    EXPECT_TRACE(Entry(Receive, p) + kNoBus +
                 Logged("protocol_events", p.function,
                        "I g_signal_connect return Fails ulSigHandler" + p.upper + "[0]") +
                 "= -1\n");
    EXPECT_EQ(*p.global, nullptr);
    ExpectUnregistered(p, 0, false, kNoBus);
    p.handle();
    EXPECT_TRACE(
        Log("I Signal Rx " + p.low + "_handler") + kNoBus +
        Logged("call_frame", handler,
               "E ERR: automation_proxy_call_get_" + p.low + "_protocol_data_sync return false"));
    ShowBus();
    ExpectUnregistered(p, 0, false, "first");  // which never was registered
    ExpectRegistered(Receive, p);
}

TEST_P(ProtocolTest, RegisteredTwiceIsHandledTwiceUntilOneIsTakenBack)
{
    ExpectRegistered(Receive, p, "first");
    ExpectRegistered(ReceiveElsewhere, p);
    const gulong second = library.connection;
    Announce("1, 1");
    ExpectArrived(1, "\1", ReceiveElsewhere, 1, 2);
    ExpectUnregistered(p, second);
    Announce("1, 2");
    ExpectArrived(1, "\2", nullptr);
    ExpectUnregistered(p, second, false);  // the id stays as it was
    Announce("1, 3");
    ExpectArrived(1, "\3", nullptr);
}

TEST_P(ProtocolTest, ProtocolsAreRegisteredAndUnregisteredApart)
{
    const Protocol& other = kProtocols[p.low == "ss" ? 1 : 0];
    ExpectRegistered(Receive, p, "first");
    const gulong id = library.connection;
    ExpectRegistered(ReceiveElsewhere, other);
    const gulong otherId = library.connection;
    Announce("1, 1");
    ExpectArrived(1, "\1", Receive);
    const ProtocolData_s* place = received;
    service.Answer("Get" + other.capital + "ProtocolData", "(@au [0], (1,))");
    service.Emit(other.low + "_handler");
    Iterate();
    TakeTrace();
    EXPECT_NE(received, place);
    record = {};  // the other record: as it was when the library was loaded
    ExpectTheRecord();
    ExpectUnregistered(p, id);
    EXPECT_EQ(*other.global, ReceiveElsewhere);
    ExpectUnregistered(other, otherId);
    Announce("1, 1");
    service.Emit(other.low + "_handler");
    Iterate();
    EXPECT_TRACE("");
}

// A thread that unregisters at the worst moment: after the test for null, before the call.
TEST_P(ProtocolTest, TheCallbackIsReadOnceForEachSignal)
{
    ExpectRegistered(Receive, p, "first");
    WatchLog([&](const std::string& line) {
        if (line.find("is not NULL") != std::string::npos) {
            *p.global = nullptr;
        }
    });
    Announce("1, 1");
    WatchLog({});
    EXPECT_TRACE("service: " + method + " ()\ncallback: 1\n");
    Announce("1, 2");
    ExpectArrived(1, "\2", nullptr);
}

// Ends its own registration and goes on working with the library.
void ReceiveOnce(ProtocolData_s* data)
{
    Receive(data);
    automation_unregister_callback_ep_protocol();
    automation_execute_command(data->iSize, data->p_data[0]);
}

TEST_F(ClientTest, ACallbackMayUnregisterItselfAndCallTheLibrary)
{
    automation_register_callback_ep_protocol(ReceiveOnce);
    service.Answer("GetEpProtocolData", "(@au [5, 6], (1,))");
    service.Emit("ep_handler");
    service.Emit("ep_handler");
    Iterate();
    const std::string trace = TakeTrace();
    const std::size_t call = trace.find("callback: 5\n");
    ASSERT_NE(call, std::string::npos);
    const std::string ended = Format(" AutomationProxyPtr[%x] ulSigHandlerEP[%lu]",
                                     Low(library.proxy.load()), library.connection);
    EXPECT_TRUE(Same("callback: 5\n" +
                         Logged("protocol_events", "automation_unregister_callback_ep_protocol",
                                "I unregister_callback_ep_protocol" + ended) +
                         Format("disconnected %lu\n", library.connection) +
                         Logged("protocol_events", "automation_unregister_callback_ep_protocol",
                                "I g_signal_handler_disconnect" + ended) +
                         Logged("commands", "automation_execute_command", "D Data0[5] Data1[6]") +
                         "service: ExecuteCommand (5, 6)\n" +
                         Logged("call_frame", "automation_execute_command", "D OK retVal[1]"),
                     trace.substr(call)));
}

INSTANTIATE_TEST_SUITE_P(Client, ProtocolTest, testing::ValuesIn(kProtocols),
                         [](const auto& protocol) { return protocol.param.upper; });

}  // namespace
