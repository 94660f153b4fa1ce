// Data that arrives on the serial protocols: registered for, announced, fetched, handed over. What
// is done and what happens then is told by the stories of protocol_events.txt, each of which goes
// for each of the three protocols, whose names are rows.

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
int (*unregister)() = nullptr;             // what C calls

// Notes the whole record, but for the zeros at its end.
void NoteRecord(const char* receiver, const ProtocolData_s* record)
{
    std::string line = Format("%s: size %d,", receiver, record->iSize);
    for (const unsigned char byte : record->p_data) {
        line += Format(" %02x", byte);
    }
    line = std::regex_replace(line, std::regex("( 00)+$"), "");
    Note(line + (received == nullptr || received == record ? "" : " in another record"));
    received = record;
}

const ProtocolCallback_fp A = [](ProtocolData_s* data) { NoteRecord("A", data); };
const ProtocolCallback_fp B = [](ProtocolData_s* data) { NoteRecord("B", data); };

// Ends its own registration and goes on working with the library.
const ProtocolCallback_fp C = [](ProtocolData_s* data) {
    NoteRecord("C", data);
    unregister();
    automation_execute_command(data->iSize, data->p_data[0]);
};

const std::map<std::string, ProtocolCallback_fp> kCallbacks = {
    {"A", A}, {"B", B}, {"C", C}, {"null", nullptr}};

// The low 32 bits of an address, as log lines show it.
template <typename Pointer>
std::string Low(Pointer pointer)
{
    return Format("%x", static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pointer)));
}

class StoryTest : public ClientTest,
                  public testing::WithParamInterface<std::tuple<std::string, int>>
{
protected:
    StoryTest() { unregister = p->unregisterCallback; }

    // Does what a line of a story says, "register A".
    void Do(const std::string& line)
    {
        std::istringstream words(line);
        std::string verb, object;
        std::getline(words >> verb >> std::ws, object);
        if (verb == "register" || verb == "unregister") {
            Call([&] {
                return verb == "register" ? p->registerCallback(kCallbacks.at(object))
                                          : p->unregisterCallback();
            });
            Note("registered: " + Low(*p->global));
        } else if (verb == "announce") {  // and answers so when it is fetched
            service.Answer("Get" + p->capital + "ProtocolData", object);
            service.Emit(p->low + "_handler");
            Iterate();
        } else if (verb == "signal") {  // which waits for the library to look
            service.Emit(p->low + "_handler");
        } else if (verb == "others-announce") {  // and a stranger who tells the library only
            for (const Protocol& each : kProtocols) {
                each.low != p->low ? service.Emit(each.low + "_handler") : void();
            }
            g_autoptr(GDBusConnection) own = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
            const char* receiver = g_dbus_connection_get_unique_name(own);
            ScriptedService(bus).Emit(p->low + "_handler", receiver);
            Iterate();
        } else if (verb == "other") {
            std::swap(p, other);
            Do(object);
            std::swap(p, other);
        } else if (verb == "handle") {
            p->handle();
        } else if (verb == "record") {
            NoteRecord("the record", received);
        } else if (verb == "hide-bus") {
            HideBus();
        } else if (verb == "show-bus") {
            ShowBus();
        } else if (verb == "race") {
            // Threads register and unregister at the worst moments: one while data is fetched, one
            // after the test for null, before the call.
            WatchLog([this](const std::string& logged) {
                Note(logged);
                const bool fetched = logged.find("Success") != std::string::npos;
                const bool called = logged.find("not NULL") != std::string::npos;
                *p->global = called ? nullptr : fetched && *p->global == A ? B : *p->global;
            });
        } else {
            ADD_FAILURE() << "no story knows how to " << line;
        }
    }

    // With the words in braces filled in.
    std::string Filled(std::string text) const
    {
        std::map<std::string, std::string> words = {
            {"A", Low(A)},
            {"B", Low(B)},
            {"C", Low(C)},
            {"ss", p->low},
            {"SS", p->upper},
            {"Ss", p->capital},
            {"source", p->source},
            {"automation_", p->prefix},
            {"connected", Connected()},
            {"handler", "protocol_events _autoamtion_signal_handler_{ss}"},
            {"fetch", "I {handler}: Signal Rx {ss}_handler\nservice: Get{Ss}ProtocolData ()"},
            {"fetched", "{fetch}\nD {handler}: Get{Ss}ProtocolData Success retVal[1]"},
            {"no bus", kNoBus},
            {"proxy", Low(library.proxy.load())},
            {"proxy's address", Format("%p", static_cast<void*>(library.proxy))},
            {"256 numbers", "300"}};
        for (int i = 0; i < 256; ++i) {
            const int byte = i ^ 0x5A;  // the last is not zero
            words["256 numbers"] += Format(", %d", byte);
            words["256 lines"] += Format("D {handler}: {ss}Data.p_data[0X%02X]\n", byte);
            words["256 bytes"] += Format(" %02x", byte);
        }
        for (std::size_t i = 0; i < library.connections.size(); ++i) {
            words[Format("id %zu", i + 1)] = Format("%lu", library.connections[i]);
            words[Format("id %zu in hex", i + 1)] = Format("%lx", library.connections[i]);
        }
        for (std::size_t open = 0; (open = text.find('{', open)) != std::string::npos;) {
            const std::size_t close = text.find('}', open);
            const std::string& value = words.at(text.substr(open + 1, close - open - 1));
            text.replace(open, close + 1 - open, value, 0, value.find_last_not_of('\n') + 1);
        }
        return text;
    }

    const Protocol* p = &kProtocols[std::get<1>(GetParam())];
    const Protocol* other = &kProtocols[(std::get<1>(GetParam()) + 1) % 3];
};

TEST_P(StoryTest, GoesAsItIsTold)
{
    const std::string story = Section(TESTS "client/protocol_events.txt", std::get<0>(GetParam()));
    std::string happened;
    for (const std::string& line : Split(story)) {
        if (line.rfind("-- ", 0) == 0) {
            const std::string action = Filled(line);
            const bool given = action.rfind("-- given ", 0) == 0;
            Do(action.substr(given ? 9 : 3));
            const std::string trace = TakeTrace();
            happened += action + "\n" + (given ? "" : trace);
        }
    }
    EXPECT_TRUE(Same(Filled(story), happened));
}

std::vector<std::string> Titles()
{
    std::stringstream file;
    file << std::ifstream(TESTS "client/protocol_events.txt").rdbuf();
    const std::string stories = file.str();
    const std::regex title("== (\\w+)");
    return {std::sregex_token_iterator(stories.begin(), stories.end(), title, 1), {}};
}

INSTANTIATE_TEST_SUITE_P(Client, StoryTest,
                         testing::Combine(testing::ValuesIn(Titles()), testing::Range(0, 3)),
                         [](const auto& story) {
                             return std::get<0>(story.param) + "_" +
                                    kProtocols[std::get<1>(story.param)].upper;
                         });

}  // namespace
