// Runs the commands of a transcript, the lines that begin with ">", and compares everything that
// happens with the transcript: what the library logs and asks the platform, what it returns, what
// the service receives and callbacks are given, and what GLib warns of. Run the program with
// FA_WRITE_TRANSCRIPTS=1 to write what happens into the transcripts, and read the difference.
//
// Lines in a row that are alike but for their numbers stand as one line that has all of them. What
// follows a table, of lines that begin with "|", happens once for each of its rows, whose cells
// replace the names of their columns in braces; where the rows are named after tests, each in its
// test. What is written has the rows one by one: carry over what differs.
#include <fa_api/automation_api.h>
#include <fa_platform/dlog.h>
#include <fa_platform/system_info.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "support/log_capture.h"
#include "support/private_bus.h"
#include "support/scripted_service.h"

// Compiled as C.
extern "C" int ChangeBaudRateFromC(unsigned int rate);

namespace
{

std::deque<std::pair<int, int>> readings;  // result and value of the platform's next answers

// Puts a line of the test's own in its place among the library's.
void Note(const char* who, const std::string& text)
{
    __dlog_print(2, 5, "FA_API", "%s: %s(%d) > %s\n", "test", who, 0, text.c_str());
}

}  // namespace

// Takes the platform's place.
int system_info_get_value_int(int key, int* value)
{
    Note("platform", "asked for " + std::to_string(key));
    const std::pair<int, int> reading = readings.at(0);
    readings.pop_front();
    *value = reading.second;
    return reading.first;
}

// Takes the C library's place: a pause is seen, and takes no time.
int nanosleep(const timespec* pause, timespec* /*left*/)
{
    Note("pause", std::to_string(pause->tv_sec * 1000 + pause->tv_nsec / 1000000) + " ms");
    return 0;
}

namespace
{

using Words = std::vector<std::string>;

std::string Format(const char* format, unsigned int value)
{
    char text[16];
    std::snprintf(text, sizeof(text), format, value);
    return text;
}

template <typename Pointer>
std::string Address(Pointer pointer)
{
    return Format("%x", static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pointer)));
}

// Shows the record whole, and which of the records it is, by the order in which they appear.
void Receive(ProtocolData_s* data)
{
    static std::vector<ProtocolData_s*> records;
    auto place = std::find(records.begin(), records.end(), data);
    place = place == records.end() ? records.insert(place, data) : place;
    std::string text = "record " + std::to_string(place - records.begin()) + ", iSize " +
                       std::to_string(data->iSize) + ",";
    for (int i = 0, same = 1; i < 256; ++i, ++same) {
        if (i == 255 || data->p_data[i] != data->p_data[i + 1]) {
            text += Format(" %02X", data->p_data[i]) + "x" + std::to_string(same);
            same = 0;
        }
    }
    Note("callback", text);
}

// Ends its own registration and goes on working with the library.
void ReceiveOnce(ProtocolData_s* data)
{
    Receive(data);
    automation_unregister_callback_ep_protocol();
    automation_execute_command(data->iSize, data->p_data[0]);
}

// A word of a command, as whatever argument it is to be: a number; "null", "once" or another name
// of a callback; or bytes: two digits each, "null", or "#300" for so many that count up from 1.
struct Argument {
    const std::string& word;

    explicit operator unsigned int() const
    {
        return static_cast<unsigned int>(std::stoll(word, nullptr, 0));
    }
    explicit operator int() const { return static_cast<int>(operator unsigned int()); }
    explicit operator unsigned char() const
    {
        return static_cast<unsigned char>(operator unsigned int());
    }
    explicit operator ProtocolCallback_fp() const
    {
        return word == "null" ? nullptr : word == "once" ? ReceiveOnce : Receive;
    }
    explicit operator const unsigned char*() const
    {
        static std::vector<unsigned char> bytes;
        const bool counting = word[0] == '#';
        bytes.resize(counting ? std::stoul(word.substr(1)) : word.size() / 2);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<unsigned char>(
                counting ? i + 1 : std::strtoul(word.substr(2 * i, 2).c_str(), nullptr, 16));
        }
        bytes.shrink_to_fit();  // reading past the last byte shows
        return word == "null" ? nullptr : bytes.data();
    }
};

using Function = std::function<int(const Words&)>;

template <typename... Types>
Function Caller(int (*function)(Types...))
{
    return [function]([[maybe_unused]] const Words& words) {
        [[maybe_unused]] std::size_t i = 0;
        return std::apply(function, std::tuple<Types...>{Types(Argument{words.at(++i)})...});
    };
}

const std::map<std::string, Function> kFunctions = {
    {"copy_log_to_usb", Caller(automation_copy_log_to_usb)},
    {"change_packet_length_serial_source", Caller(automation_change_packet_length_serial_source)},
    {"change_baud_rate_ex_uart", Caller(ChangeBaudRateFromC)},
    {"close_ex_uart", Caller(automation_close_ex_uart)},
    {"execute_command", Caller(automation_execute_command)},
    {"execute_command_with_data", Caller(automation_execute_command_with_data)},
    {"execute_command_with_projector", Caller(automation_execute_command_with_projector)},
    {"send_message_by_ex_uart", Caller(automation_send_message_by_ex_uart)},
    {"send_rjp_data", Caller(automation_send_rjp_data)},
    {"send_rs232_ack", Caller(automation_send_rs232_ack)},
    {"register_callback_serial_source", Caller(automation_register_callback_serial_source)},
    {"register_callback_rjp_protocol", Caller(automation_register_callback_rjp_protocol)},
    {"register_callback_ep_protocol", Caller(automation_register_callback_ep_protocol)},
    {"unregister_callback_serial_source", Caller(automation_unregister_callback_serial_source)},
    {"unregister_callback_rjp_protocol", Caller(automation_unregister_callback_rjp_protocol)},
    {"unregister_callback_ep_protocol", Caller(automation_unregister_callback_ep_protocol)},
    {"handle_ss", [](auto&) { return _autoamtion_signal_handler_ss(), 0; }},
    {"handle_rjp", [](auto&) { return _autoamtion_signal_handler_rjp(), 0; }},
    {"handle_ep", [](auto&) { return _autoamtion_signal_handler_ep(), 0; }},
};

// The transcript for the test, with the rows of its table written out.
std::string Transcript(const std::string& path, const std::string& test)
{
    std::ifstream file(path);
    std::string once;
    std::string each;
    std::vector<Words> table;
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '|') {
            std::istringstream cells(line.substr(1));
            table.emplace_back();
            for (std::string cell; cells >> std::ws && std::getline(cells, cell, '|');) {
                table.back().push_back(cell.substr(0, cell.find_last_not_of(' ') + 1));
            }
        } else {
            (table.empty() ? once : each) += line + "\n";
        }
    }
    for (std::size_t row = 1; row < table.size(); ++row) {
        std::string text = each;
        for (std::size_t column = 0; column < table[0].size(); ++column) {
            const std::regex name("\\{" + table[0][column] + "\\}");
            text = std::regex_replace(text, name, table[row].at(column));
        }
        once += table[0][0] != "test" || table[row][0] == test ? text : "";
    }
    return once;
}

// The numbers, with "7 x 3" for equal ones and "7..9" for such that count up.
std::string Sequence(const Words& numbers)
{
    std::string text;
    for (std::size_t i = 0, n = 1; i < numbers.size(); i += n) {
        std::string part = numbers[i];
        n = 1;
        for (const char* format : {"%s", "%u", "%x"}) {
            const bool equal = format[1] == 's';
            const auto first = std::strtoul(part.c_str(), nullptr, format[1] == 'u' ? 10 : 16);
            unsigned int run = 0;
            while (i + run < numbers.size() &&
                   numbers[i + run] ==
                       (equal ? numbers[i] : Format(format, unsigned(first) + run))) {
                ++run;
            }
            if (run > 2 && run > n) {
                n = run;
                part = numbers[i] + (equal ? " x " + std::to_string(n) : ".." + numbers[i + n - 1]);
            }
        }
        text += (text.empty() ? "" : ", ") + part;
    }
    return text;
}

// The lines, with one for those in a row that are alike but for their numbers.
std::string Folded(const Words& lines)
{
    static const std::regex number("-?\\b[0-9A-FXa-f]+(?=\\]|$)");
    std::string text;
    for (std::size_t i = 0, alike = 0; i < lines.size(); i += alike) {
        const std::string shape = std::regex_replace(lines[i], number, "#");
        std::vector<Words> columns;
        for (alike = 0;
             i + alike < lines.size() && std::regex_replace(lines[i + alike], number, "#") == shape;
             ++alike) {
            std::sregex_iterator found(lines[i + alike].begin(), lines[i + alike].end(), number);
            for (std::size_t column = 0; found != std::sregex_iterator(); ++found, ++column) {
                columns.resize(std::max(columns.size(), column + 1));
                columns[column].push_back(found->str());
            }
        }
        std::string line = shape;
        for (const Words& column : columns) {
            line.replace(line.find('#'), 1, Sequence(column));
        }
        text += (alike > 1 ? "(" + std::to_string(alike) + " lines) " : "") + line + "\n";
    }
    return text;
}

class TranscriptTest : public ::testing::TestWithParam<const char*>
{
protected:
    TranscriptTest()
    {
        const auto note = [](const char*, GLogLevelFlags level, const char* message, gpointer) {
            if ((level & G_LOG_LEVEL_MASK) <= G_LOG_LEVEL_WARNING) {
                Note("GLib", message);
            }
        };
        g_log_set_default_handler(note, nullptr);
    }
    ~TranscriptTest() override { g_log_set_default_handler(g_log_default_handler, nullptr); }

    // The id that GLib gives to the next signal connection, of three digits.
    static unsigned int NextId()
    {
        g_autoptr(GCancellable) object = g_cancellable_new();
        gulong id = 0;
        while ((id = g_signal_connect(object, "cancelled", G_CALLBACK(Receive), nullptr)) < 256) {
        }
        return static_cast<unsigned int>(id) + 1;
    }

    // Calls the function and describes its result.
    std::string Call(const Function& function, const Words& words)
    {
        const unsigned int id = NextId();
        const std::string name = std::to_string(++ids);
        if (words[0].find("register") == 0) {
            names[Format("[%x]", id)] = "[HEX ID " + name + "]";
            names[Format("[%u]", id)] = names["'" + std::to_string(id) + "'"] = "[ID " + name + "]";
        }
        return "= " + std::to_string(function(words)) + "\n";
    }

    // Obeys a command that is no function of the library.
    void Obey(const Words& words, const std::string& rest)
    {
        if (words[0] == "answer") {
            service.Answer(words[1], rest.substr(words[1].size() + 1));
        } else if (words[0] == "platform") {
            std::istringstream text(rest);
            for (int result = 0, value = 0; text >> result >> value;) {
                readings.emplace_back(result, value);
            }
        } else if (words[0] == "announce") {
            service.Emit(rest);
        } else if (words[0] == "impersonate") {
            Impersonate(rest);
        } else if (words[0] == "leave") {
            service.Leave();
        } else if (words[0] == "join") {
            service.Join();
        } else if (words[0] == "describe") {
            g_autoptr(GString) xml = g_string_new(nullptr);
            g_dbus_interface_info_generate_xml(automation_proxy_interface_info(), 0, xml);
            Note("interface", std::string(xml->str, xml->len - 1));
            return;
        } else if (words[0] == "stop-bus") {
            bus.Stop();
        } else if (words[0] == "bus") {
            const std::string address =
                rest == "visible" ? bus.Address() : "unix:path=/nonexistent";
            setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
            return;
        } else if (words[0] != "iterate") {
            FAIL() << "unknown command " << words[0];
        }
        // All that was sent is received now, and waits for the application to iterate.
        g_autoptr(GDBusConnection) library = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        AwaitBus(library);
        while (words[0] == "iterate" && g_main_context_iteration(nullptr, FALSE)) {
        }
    }

    // Sends the service's signal from somebody else, to everybody and to the library alone.
    void Impersonate(const std::string& signal) const
    {
        g_autoptr(GDBusConnection) library = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        g_autoptr(GDBusConnection) impostor = bus.Connect();
        const char* const receivers[] = {nullptr, g_dbus_connection_get_unique_name(library)};
        for (const char* receiver : receivers) {
            g_dbus_connection_emit_signal(impostor, receiver, "/KVFacAutoObj",
                                          "org.kavra.tv.automationservice", signal.c_str(),
                                          g_variant_new("(s)", "a lie"), nullptr);
        }
        AwaitBus(impostor);
    }

    // What happened since, with names in the place of addresses and ids.
    std::string Happened()
    {
        Words lines;
        for (std::string line : log.Take()) {
            void* proxy = nullptr;
            if (std::sscanf(line.c_str(), "I _automation_init_service: Proxy created: %p",
                            &proxy) == 1) {
                names["[" + Address(proxy) + "]"] = "[PROXY]";
            }
            for (const auto& [value, name] : names) {
                const std::size_t place = line.find(value);
                if (place != std::string::npos) {
                    line.replace(place, value.size(), name);
                }
            }
            static const std::regex varying("0x[0-9a-f]+|[./]*gsignal.c:[0-9]+: ");
            lines.push_back(std::regex_replace(line, varying, "*"));
        }
        for (const std::string& call : service.TakeCalls()) {
            lines.push_back("service: " + call);
        }
        return Folded(lines);
    }

    PrivateBus bus;
    ScriptedService service{bus};
    LogCapture log;
    int ids = 0;
    std::map<std::string, std::string> names = {{"[" + Address(Receive) + "]", "[RECEIVE]"},
                                                {"[" + Address(ReceiveOnce) + "]", "[ONCE]"}};
};

TEST_P(TranscriptTest, IsWhatHappens)
{
    const std::string test = GetParam();
    const std::string path = FA_TRANSCRIPTS "/" + test.substr(0, test.find('_')) + ".txt";
    const std::string expected = Transcript(path, test);
    std::string happened;
    std::istringstream script(expected);
    for (std::string line; std::getline(script, line);) {
        if (line.empty() || line[0] == '#') {
            happened += line + "\n";
        } else if (line[0] == '>') {
            std::istringstream text(line.substr(2));
            const Words words{std::istream_iterator<std::string>(text), {}};
            const auto function = kFunctions.find(words.at(0));
            std::string result;
            if (function != kFunctions.end()) {
                result = Call(function->second, words);
            } else {
                Obey(words, words.size() > 1 ? line.substr(words[0].size() + 3) : "");
            }
            happened.append(line).append("\n").append(Happened()).append(result);
        }
    }
    EXPECT_EQ(happened, expected);
    EXPECT_FALSE(expected.empty());
    if (happened != expected && std::getenv("FA_WRITE_TRANSCRIPTS") != nullptr) {
        std::ofstream(FA_TRANSCRIPTS "/" + test + ".txt") << happened;
    }
}

INSTANTIATE_TEST_SUITE_P(Client, TranscriptTest,
                         ::testing::Values("calls", "outcomes", "refusals", "contract",
                                           "unreachable", "projector", "events_ss", "events_rjp",
                                           "events_ep", "restarts"),
                         [](const auto& instance) { return std::string(instance.param); });

}  // namespace
