// Data that the service announces: registration, fetching, the record and the callback.
#include <array>
#include <cstdint>
#include <cstring>

#include "support/client_test.h"

namespace
{

struct Protocol {
    std::string suffix;  // of the functions that register and unregister
    std::string prefix;  // of their names in their first lines
    std::string lower, camel, upper;
    int (*enrol)(ProtocolCallback_fp);
    int (*withdraw)();
    void (*handle)();
    ProtocolCallback_fp* callback;
};

const Protocol kProtocols[] = {
    {"serial_source", "automation_", "ss", "Ss", "SS", automation_register_callback_serial_source,
     automation_unregister_callback_serial_source, _autoamtion_signal_handler_ss, &cbfp_ss},
    {"rjp_protocol", "automation_", "rjp", "Rjp", "RJP", automation_register_callback_rjp_protocol,
     automation_unregister_callback_rjp_protocol, _autoamtion_signal_handler_rjp, &cbfp_rjp},
    {"ep_protocol", "", "ep", "Ep", "EP", automation_register_callback_ep_protocol,
     automation_unregister_callback_ep_protocol, _autoamtion_signal_handler_ep, &cbfp_ep},
};

std::vector<ProtocolData_s*> received;

void Receive(ProtocolData_s* data)
{
    received.push_back(data);
}

std::string Format(const char* format, unsigned int value)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

template <typename Pointer>
std::string Address(Pointer pointer)
{
    return Format("%x", static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pointer)));
}

// A fetch's answer, with the array's elements behind each other.
std::string Data(const std::vector<unsigned int>& elements)
{
    std::string list;
    for (const unsigned int element : elements) {
        list += (list.empty() ? "" : ", ") + std::to_string(element);
    }
    return "(@au [" + list + "], (1,))";
}

class ProtocolTest : public ClientTest, public ::testing::WithParamInterface<Protocol>
{
protected:
    ~ProtocolTest() override { g_object_unref(impostor); }

    Texts Enrolling(const std::string& message) const
    {
        return By("automation_register_callback_" + p.suffix,
                  {"D " + p.prefix + "register_callback_" + p.suffix + " callback_fp_" + p.lower +
                   message});
    }

    // The outcome's lines for the connection that comes next; ids differ in hexadecimal.
    Texts Enrolled() const
    {
        return By(
            "automation_register_callback_" + p.suffix,
            {Format(("I g_signal_connect return Success ulSigHandler" + p.upper + "[%x]").c_str(),
                    NextId())});
    }

    Texts Withdrawing(const std::string& who, unsigned int id) const
    {
        return By("automation_unregister_callback_" + p.suffix,
                  {"I " + who + " AutomationProxyPtr[" + Address(proxy) + "] ulSigHandler" +
                   p.upper + "[" + std::to_string(id) + "]"});
    }

    Texts Handling(const Texts& messages) const
    {
        return By("_autoamtion_signal_handler_" + p.lower,
                  Texts{"I Signal Rx " + p.lower + "_handler"} + messages);
    }

    // The messages of a fetch that delivers these elements, which it also puts into the record.
    Texts Storing(const std::vector<unsigned int>& elements)
    {
        record.iSize = elements.empty() ? 0 : static_cast<int>(elements[0]);
        Texts messages = {"D Get" + p.camel + "ProtocolData Success retVal[1]",
                          "I " + p.lower + "Data.iSize[" + std::to_string(record.iSize) + "]"};
        for (std::size_t i = 1; i < elements.size() && i <= 256; ++i) {
            record.p_data[i - 1] = static_cast<unsigned char>(elements[i]);
            messages.push_back("D " + p.lower +
                               Format("Data.p_data[0X%02X]", record.p_data[i - 1]));
        }
        if (elements.size() > 257) {
            messages.push_back("E " + p.lower + "Data is full, " +
                               std::to_string(elements.size() - 257) + " bytes dropped");
        }
        return messages;
    }

    Texts CallingBack() const
    {
        return {"I cbfp_" + p.lower + " is not NULL [" + Address(Receive) + "], call back OK"};
    }
    Texts NotCallingBack() const { return {"E cbfp_" + p.lower + " is NULL [0], call back NG"}; }

    // The id that the signal library gives next, beyond ten so that number bases tell apart.
    static unsigned int NextId()
    {
        g_autoptr(GCancellable) object = g_cancellable_new();
        gulong id = 0;
        while ((id = g_signal_connect(object, "cancelled", G_CALLBACK(Receive), nullptr)) < 20) {
        }
        return static_cast<unsigned int>(id) + 1;
    }

    // The library's signal from somebody who is not the service.
    void Impersonate(const char* destination)
    {
        g_dbus_connection_emit_signal(
            impostor, destination, "/KVFacAutoObj", "org.kavra.tv.automationservice",
            (p.lower + "_handler").c_str(), g_variant_new("(s)", "false"), nullptr);
        Settle(impostor);
    }

    // Announces data behind signals that must not be heard, and compares what comes of it.
    void Deliver(const std::string& answer, const Texts& messages, int handlers = 1)
    {
        service.Answer("Get" + p.camel + "ProtocolData", answer);
        for (const Protocol& other : kProtocols) {
            if (other.lower != p.lower) {
                service.Emit(other.lower + "_handler");
            }
        }
        Impersonate(nullptr);
        Impersonate(g_dbus_connection_get_unique_name(LibraryConnection()));
        service.Emit(p.lower + "_handler");
        Texts lines;
        Texts calls;
        for (int i = 0; i < handlers; ++i) {
            lines = lines + Handling(messages);
            calls.push_back("Get" + p.camel + "ProtocolData ()");
        }
        ExpectLines(lines);
        EXPECT_EQ(service.TakeCalls(), calls);
    }

    const Protocol& p = GetParam();
    const std::string withdraw = p.prefix + "unregister_callback_" + p.suffix;
    GDBusConnection* impostor = bus.Connect();
    ProtocolData_s record{};
};

TEST_P(ProtocolTest, FetchesStoresAndCallsBack)
{
    Expect(p.withdraw, 0, Withdrawing(withdraw, 0) + Texts{kConnected});
    Expect([&] { return p.enrol(nullptr); }, -1, Enrolling("[0]"));
    const Texts enrolled = Enrolling("[" + Address(Receive) + "]") + Enrolled();
    Expect([&] { return p.enrol(Receive); }, 0, enrolled);
    Expect([&] { return p.enrol(nullptr); }, -1, Enrolling("[0]"));

    const std::string fetch = "automation_proxy_call_get_" + p.lower + "_protocol_data_sync";
    const std::string method = "Get" + p.camel + "ProtocolData";
    const std::string failed = "E ERR: " + fetch + " return false";
    const std::string detail = "E get_" + p.lower + "_protocol_data_sync err[";
    const std::vector<unsigned int> arrays[] = {{3, 0x10, 0x20, 0x30},
                                                {5, 0x1FF},
                                                {0xFFFFFFFF},
                                                std::vector<unsigned int>(257, 7),
                                                std::vector<unsigned int>(300, 0xEE),
                                                {},
                                                {1, 0x80}};
    for (const auto& elements : arrays) {
        const Texts stored = Storing(elements);
        Deliver(Data(elements), stored + CallingBack());
        EXPECT_EQ(std::memcmp(received.back(), &record, sizeof(record)), 0);
        Deliver("(@au [9, 9], (0,))", {"E " + method + " Fails retVal[0]"});
        Deliver("!not today", {failed, detail + "GDBus.Error:test.Refused: not today]"});
        Deliver("((1,),)", {failed, detail + "Method “" + method +
                                        "” returned type “((i))”, but expected “(au(i))”]"});
        EXPECT_EQ(std::memcmp(received.back(), &record, sizeof(record)), 0);
    }
    EXPECT_EQ(received, std::vector<ProtocolData_s*>(std::size(arrays), received[0]));

    // No record was written behind: the others are still as they were when the library was loaded.
    record = {};
    for (const Protocol& other : kProtocols) {
        if (other.lower != p.lower) {
            other.enrol(Receive);
            service.Answer("Get" + other.camel + "ProtocolData", "(@au [], (1,))");
            other.handle();
            EXPECT_EQ(std::memcmp(received.back(), &record, sizeof(record)), 0);
        }
    }
}

TEST_P(ProtocolTest, UnregisteringEndsTheLatestConnectionOnly)
{
    automation_close_ex_uart();
    ExpectLines({"D automation_close_ex_uart: automation_close_ex_uart", kConnected,
                 "D automation_close_ex_uart: OK retVal[1]"});
    service.TakeCalls();
    for (int i = 0; i < 2; ++i) {
        const Texts enrolled = Enrolling("[" + Address(Receive) + "]") + Enrolled();
        Expect([&] { return p.enrol(Receive); }, 0, enrolled);
    }
    const unsigned int latest = NextId() - 2;
    Deliver(Data({1, 2}), Storing({1, 2}) + CallingBack(), 2);
    for (int i = 0; i < 2; ++i) {
        Expect(p.withdraw, 0,
               Withdrawing(withdraw, latest) + Withdrawing("g_signal_handler_disconnect", latest));
        EXPECT_EQ(*p.callback, nullptr);
        Deliver(Data({3}), Storing({3}) + NotCallingBack());
        ExpectWarnings(i == 0 ? Texts{}
                              : Texts{"../../../gobject/gsignal.c:2735: instance 'ADDRESS' has no "
                                      "handler with id '" +
                                      std::to_string(latest) + "'"});
    }
}

TEST_P(ProtocolTest, FailsWithoutABus)
{
    HideBus();
    Expect([&] { return p.enrol(Receive); }, -1,
           Enrolling("[" + Address(Receive) + "]") + Texts{kNoConnection} +
               By("automation_register_callback_" + p.suffix,
                  {"I g_signal_connect return Fails ulSigHandler" + p.upper + "[0]"}));
    EXPECT_EQ(*p.callback, nullptr);
    Expect(p.withdraw, 0, Withdrawing(withdraw, 0) + Texts{kNoConnection});
    p.handle();
    ExpectLines(
        Handling({}) + Texts{kNoConnection} +
        By("_autoamtion_signal_handler_" + p.lower,
           {"E ERR: automation_proxy_call_get_" + p.lower + "_protocol_data_sync return false"}));
}

INSTANTIATE_TEST_SUITE_P(Client, ProtocolTest, ::testing::ValuesIn(kProtocols),
                         [](const auto& instance) { return instance.param.upper; });

}  // namespace
