// Every function that makes one call of the service, as a row: what it is called, how it is logged,
// what its arguments become on the bus, and what it refuses. One check takes each row through every
// answer that a service gives, through no bus at all and the first connection, and compares all
// that happens. The switch of the local set, which is built on one of them, follows.
#include <sys/mman.h>

#include <numeric>

#include "client/client_test.h"
#include "support/scripted_platform.h"

// In an application in C.
extern "C" int ChangeBaudRateFromC(unsigned int rate);

namespace
{

// One way to call a function.
struct Use {
    std::function<int()> call;
    std::string before;                // logged before the library looks for its connection
    std::optional<std::string> after;  // and after; none where it never looks
    std::string arguments = {};        // on the bus; empty where the call is refused
};

// Which of the service's results succeed, by what is logged of 0.
constexpr char kAnyResult[] = "D OK retVal[0]";
constexpr char kNonZeroResult[] = "E NG retVal[0]";

struct Row {
    // The names are: the function without its beginning, the file that logs its arguments, the
    // service's method, the priority and the name of the error's text, and what is named where the
    // call fails, if that is not as with the others.
    Row(const char* names, const char* verdict, std::vector<Use> theUses,
        int theLine = __builtin_LINE())
        : verdictOfZero(verdict), uses(std::move(theUses)), line(theLine)
    {
        std::istringstream words(names);
        words >> function >> source >> method >> priority >> error;
        words >> (call = "automation_proxy_call_" + function + "_sync");
        function = "automation_" + function;
    }

    std::string function, source, method, call, priority, error;
    std::string verdictOfZero;
    std::vector<Use> uses;
    int line;
};

// The bytes in memory of their own, so that reading past the last one shows.
using Bytes = std::vector<unsigned char>;

std::string Each(const char* format, const Bytes& bytes, const char* separator)
{
    std::string text;
    for (const unsigned char byte : bytes) {
        text += (text.empty() ? "" : separator) + Format(format, byte);
    }
    return text;
}

Bytes Counted(std::size_t count)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    return bytes;
}

// A packet that is sent. `logged` and `type` are what a function has of its own before the length.
Use Sends(int (*send)(const unsigned char*, unsigned int), const Bytes& packet,
          const std::string& logged = "", const std::string& type = "")
{
    const auto length = static_cast<unsigned int>(packet.size());
    return {[=] { return send(packet.data(), length); },
            "D " + logged + Format("ulLength[%u]", length), "D " + Each("data[%x]", packet, "\nD "),
            "(" + type + Format("%u, [uint32 ", length) + Each("%u", packet, ", ") + "])"};
}

Use SendsWithData(int data0, int data1, const Bytes& data)
{
    const auto length = static_cast<unsigned char>(data.size());
    std::string bytes;
    for (std::size_t k = 0; k < data.size(); ++k) {
        bytes += Format("D command data[%zu]: %d\n", k, data[k]);
    }
    return {[=] { return automation_execute_command_with_data(data0, data1, data.data(), length); },
            Format("D Data0[%x] Data1[%x], length[%d]", unsigned(data0), unsigned(data1), length),
            bytes,
            Format("(%d, %d, [uint32 ", data0, data1) + Each("%u", data, ", ") +
                Format("], %d)", length)};
}

template <int kType>
int Ack(const unsigned char* packet, unsigned int length)
{
    return automation_send_rs232_ack(kType, length, packet);
}

const auto* const kBytes = reinterpret_cast<const unsigned char*>("\x01\x02");
const auto* const kZeroFirst = reinterpret_cast<const unsigned char*>("\0\x02");
// Where the length decides, not even the first byte is read.
const auto* const kUnreadable = static_cast<const unsigned char*>(
    mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
constexpr char kNoUart[] = "E automation_send_message_by_ex_uart-Wrong Parameters";
constexpr char kNoRjp[] = "E automation_send_rjp_data-Wrong Parameters";
constexpr char kNoAck[] = "E automation_send_rs232_ack-Wrong Parameters";
constexpr char kNull[] = "E parameter is null";

const Row kRows[] = {
    {"copy_log_to_usb control_calls CopyLogToUsb E execute_command_sync",
     kNonZeroResult,
     {{automation_copy_log_to_usb, "", "", "()"}}},
    {"change_packet_length_serial_source control_calls ChangePacketLengthSerialSource E "
     "execute_command_sync",
     kNonZeroResult,
     {{[] { return automation_change_packet_length_serial_source(0); }, "D uiLen[0]", "", "(0,)"},
      {[] { return automation_change_packet_length_serial_source(0xFFFFFFFF); }, "D uiLen[-1]", "",
       "(-1,)"}}},
    {"change_baud_rate_ex_uart control_calls ChangeBaudRateExUart E execute_command_sync",
     kNonZeroResult,
     {{[] { return ChangeBaudRateFromC(9600); }, "D uibdRate[9600]", "", "(9600,)"},
      {[] { return ChangeBaudRateFromC(115200); }, "D uibdRate[115200]", "", "(115200,)"},
      {[] { return ChangeBaudRateFromC(57600); }, "D uibdRate[57600]\nD uibdRate[57600]", {}},
      {[] { return ChangeBaudRateFromC(0xFFFFFFFF); }, "D uibdRate[-1]\nD uibdRate[-1]", {}}}},
    {"close_ex_uart control_calls CloseExUart E close_ex_uart_sync "
     "automation_proxy_close_ex_uart_sync",
     kNonZeroResult,
     {{automation_close_ex_uart, "D automation_close_ex_uart", "", "()"}}},
    {"execute_command commands ExecuteCommand E execute_command_sync",
     kAnyResult,
     {{[] { return automation_execute_command(0x5A, 0); }, "D Data0[5a] Data1[0]", "", "(90, 0)"},
      {[] { return automation_execute_command(-1, -2); }, "D Data0[ffffffff] Data1[fffffffe]", "",
       "(-1, -2)"},
      {[] { return automation_execute_command(0, 1); }, kNull, {}}}},
    {"send_message_by_ex_uart packets SendMessageByExUart I send_message_by_ex_uart",
     kNonZeroResult,
     {Sends(automation_send_message_by_ex_uart, {0x7F, 0, 0xFF, 0x80}),
      Sends(automation_send_message_by_ex_uart, Counted(258)),
      {[] { return automation_send_message_by_ex_uart(kUnreadable, 0); }, "D ulLength[0]", kNoUart},
      {[] { return automation_send_message_by_ex_uart(kUnreadable, 8000001); },
       "D ulLength[8000001]", kNoUart},
      {[] { return automation_send_message_by_ex_uart(kZeroFirst, 2); }, "D ulLength[2]", kNoUart},
      {[] { return automation_send_message_by_ex_uart(nullptr, 1); }, "D ulLength[1]", kNoUart}}},
    {"send_rjp_data packets SendRjpData I automation_proxy_call_send_rjp_data_sync",
     kNonZeroResult,
     {Sends(automation_send_rjp_data, {0x7F}),
      Sends(automation_send_rjp_data, {0xFF, 0, 0, 1}),
      {[] { return automation_send_rjp_data(kUnreadable, 0x80000000); }, "D ulLength[-2147483648]",
       kNoRjp},
      {[] { return automation_send_rjp_data(kZeroFirst, 1); }, "D ulLength[1]", kNoRjp}}},
    {"send_rs232_ack packets SendRS232Ack I send_rs232_ack_sync",
     kNonZeroResult,
     {Sends(Ack<4>, {0x7F, 0}, "eProtocolType[4] ", "4, "),
      Sends(Ack<-1>, {0xFF}, "eProtocolType[-1] ", "-1, "),
      {[] { return Ack<5>(kBytes, 2); }, "D eProtocolType[5] ulLength[2]", kNoAck},
      {[] { return Ack<4>(kUnreadable, 0); }, "D eProtocolType[4] ulLength[0]", kNoAck},
      {[] { return Ack<0>(kUnreadable, 0xFFFFFFFF); }, "D eProtocolType[0] ulLength[-1]", kNoAck},
      {[] { return Ack<4>(kZeroFirst, 2); }, "D eProtocolType[4] ulLength[2]", kNoAck}}},
    {"execute_command_with_data commands ExecuteCommandWithData E execute_command_with_data_sync",
     kAnyResult,
     {SendsWithData(1, 2, {0x10, 0xFF}),
      SendsWithData(-1, 0, {0}),
      SendsWithData(90, -2, Counted(255)),
      {[] { return automation_execute_command_with_data(0, 1, kBytes, 2); }, kNull, {}},
      {[] { return automation_execute_command_with_data(1, 1, kBytes, 0); }, kNull, {}},
      {[] { return automation_execute_command_with_data(1, 1, nullptr, 2); }, kNull, {}}}},
};

// What a service answers, and what is logged of it: the verdict, none where the answer is zero or
// an error, and the error's text, none where it is a result.
struct Reply {
    const char* body;
    const char* verdict;
    const char* error;
};

const Reply kReplies[] = {
    {"((1,),)", "D OK retVal[1]", nullptr},
    {"((-5,),)", "D OK retVal[-5]", nullptr},
    {"((0,),)", nullptr, nullptr},
    {"!not today", nullptr, "GDBus.Error:test.Refused: not today"},
    {"('text',)", nullptr, "Method “%s” returned type “(s)”, but expected “((i))”"},
};

// All that a use logs and sends, and its result; `connection` is what connecting logs, `answer`
// null without a bus.
std::string Happens(const Row& row, const Use& use, const std::string& connection,
                    const Reply* answer)
{
    std::string trace = Logged(row.source, row.function, use.before);
    if (use.after) {
        trace += connection + Logged(row.source, row.function, *use.after);
    }
    if (use.arguments.empty()) {
        return trace + "= -1\n";
    }
    std::string outcome = "E ERR: " + row.call + " return false";
    if (answer != nullptr) {
        trace += "service: " + row.method + " " + use.arguments + "\n";
        if (answer->error != nullptr) {
            outcome += "\n" + row.priority + " " + row.error + " err[" +
                       Format(answer->error, row.method.c_str()) + "]";
        } else {
            outcome = answer->verdict != nullptr ? answer->verdict : row.verdictOfZero;
        }
    }
    return trace + Logged("call_frame", row.function, outcome) +
           (outcome[0] == 'D' ? "= 0\n" : "= -1\n");
}

class CommandTest : public ClientTest, public testing::WithParamInterface<std::size_t>
{
};

TEST_P(CommandTest, IsLoggedSentJudgedAndRefusedAsItsRowSays)
{
    const Row& row = kRows[GetParam()];
    const auto expect = [&](const Use& use, const Reply* reply) {
        const auto number = std::to_string(&use - row.uses.data() + 1);
        const testing::ScopedTrace where(__FILE__, row.line, row.function + ", use " + number);
        const bool connected = library.proxy != nullptr;
        Call(use.call);
        const std::string connection = connected ? "" : reply != nullptr ? Connected() : kNoBus;
        EXPECT_TRACE(Happens(row, use, connection, reply));
    };
    HideBus();
    for (const Use& use : row.uses) {
        expect(use, nullptr);
    }
    ShowBus();
    for (const Use& use : row.uses) {
        for (const Reply& reply : kReplies) {
            service.Answer(row.method, reply.body);
            expect(use, &reply);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Client, CommandTest, testing::Range(std::size_t{0}, std::size(kRows)),
                         [](const auto& index) { return kRows[index.param].method; });

TEST_F(ClientTest, TheLongestPacketIsSent)
{
    Connect();
    auto* const proxy = G_DBUS_PROXY(library.proxy.load());
    EXPECT_EQ(g_dbus_proxy_get_default_timeout(proxy), -1);
    // The service takes its time to write so much down.
    g_dbus_proxy_set_default_timeout(proxy, G_MAXINT);
    const Bytes longest(8000000, 0x7F);
    std::string sent = "service: SendRjpData (8000000, [uint32 127";
    WatchLog([](const std::string&) {});
    EXPECT_EQ(automation_send_rjp_data(longest.data(), 8000000), 0);
    for (std::size_t byte = 1; byte < longest.size(); ++byte) {
        sent += ", 127";
    }
    EXPECT_TRUE(TakeTrace() == sent + "])\n");
}

using LocalSetTest = ClientTest;

constexpr char kSwitch[] = "automation_execute_command_with_projector";

// Switches where the platform's numbers are these, fast boot first, and expects what follows.
void Expect(unsigned int option, const std::deque<Answer<int>>& numbers, const std::string& happens,
            int line = __builtin_LINE())
{
    const testing::ScopedTrace where(__FILE__, line, "here");
    platform.ints = numbers;
    Call([=] { return automation_execute_command_with_projector(806, option); });
    EXPECT_TRACE("platform: system_info_get_value_int(869, 0)\n" + happens);
}

std::string Fails(const std::string& why)
{
    return Logged("commands", kSwitch, "E " + why) + "= -1\n";
}

// The command that sends the name, whose result does not count, and what each reading finds in
// the number's place before.
std::string Sent(const std::string& name, const std::vector<int>& readings,
                 const std::string& connection = "", const Reply* answer = &kReplies[0])
{
    const Use use = SendsWithData(82, 1, Bytes(name.begin(), name.end()));
    std::string trace = Happens(kRows[std::size(kRows) - 1], use, connection, answer);
    trace.erase(trace.rfind("= "));
    for (const int number : readings) {
        trace += Format("platform: system_info_get_value_int(284, %d)\n", number);
        trace += "pause of 200 ms\n";
    }
    const auto info = Format("I local set[%s], length[%zu]", name.c_str(), name.size());
    return Logged("commands", kSwitch, info) + trace;
}

// The last reading finds the local set.
std::string Reached(const std::string& trace)
{
    return trace.substr(0, trace.rfind("pause")) + "= 0\n";
}

TEST_F(LocalSetTest, IsSentByItsName)
{
    Connect();
    // By their numbers; "-" where a number has none.
    std::ifstream names(TESTS "client/local_sets.txt");
    int option = 0;
    for (std::string name; names >> name; ++option) {
        Expect(static_cast<unsigned int>(option), {{0, 1}, {0, option}},
               name == "-" ? Fails("localset string is not available") : Reached(Sent(name, {-1})));
    }
    EXPECT_EQ(option, 97);
}

TEST_F(LocalSetTest, IsRefusedBeforeAnythingConnects)
{
    Call([] { return automation_execute_command_with_projector(805, 1); });
    EXPECT_TRACE(Fails("parameter is null"));
    Expect(97, {{-1, 1}}, Fails("fastboot is not available"));
    Expect(1, {{1, 1}}, Fails("fastboot is not available"));
    Expect(97, {{0, 0}}, Fails("fastboot is not available"));
    Expect(1, {{0, {}}}, Fails("fastboot is not available"));
    Expect(97, {{0, -1}}, Fails("localset enum is not available in localset range"));
    Expect(0xFFFFFFFF, {{0, 2}}, Fails("localset enum is not available in localset range"));
}

TEST_F(LocalSetTest, IsReachedWhenThePlatformReportsItInFiveReadingsWhateverTheCommandDid)
{
    HideBus();
    Expect(1, {{0, 1}, {0, 1}}, Reached(Sent("US", {-1}, kNoBus, nullptr)));
    ShowBus();
    Connect();
    service.Answer("ExecuteCommandWithData", kReplies[3].body);
    Expect(1, {{0, 1}, {0, 1}}, Reached(Sent("US", {-1}, "", &kReplies[3])));
    service.Answer("ExecuteCommandWithData", kReplies[0].body);
    // What a reading writes counts only where it succeeds.
    Expect(1, {{0, 1}, {0, 6}, {-1, 1}, {1, 1}, {0, -7}, {0, 1}},
           Reached(Sent("US", {-1, 6, 6, 6, -7})));
    Expect(
        1, {{0, 1}, {0, 6}, {0, 6}, {0, 7}, {-1, 1}, {-1, 1}, {0, 1}},
        Sent("US", {-1, 6, 6, 7, 7}) + Fails("localset string is not set, countryId[7],option[1]"));
    Expect(1, {{0, 1}},
           Sent("US", {-1, -1, -1, -1, -1}) +
               Fails("localset string is not set, countryId[-1],option[1]"));
}

}  // namespace
