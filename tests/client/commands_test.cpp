// Every function that makes one call of the service, as a row: what it is called, how it is logged,
// what its arguments become on the bus, and what it refuses. One check takes each row through every
// answer that a service gives, through no bus at all and the first connection, and compares all
// that happens.
#include <optional>

#include "client/client_test.h"

// Compiled as C.
extern "C" int ChangeBaudRateFromC(unsigned int rate);

namespace
{

using namespace std::string_literals;

// One way to call a function.
struct Use {
    std::function<int()> call;
    std::string before;                // logged before the library looks for its connection
    std::optional<std::string> after;  // and after; none where it never looks
    std::string arguments = {};        // on the bus; empty where the call is refused
};

enum Rule { kAnyResult, kNonZeroResult };

struct Row {
    Row(const char* theFunction, const char* theSource, const char* theMethod, const char* theCall,
        const char* theError, Rule theRule, std::vector<Use> theUses,
        int theLine = __builtin_LINE())
        : function(theFunction),
          source(theSource),
          method(theMethod),
          call(theCall),
          error(theError),
          rule(theRule),
          uses(std::move(theUses)),
          line(theLine)
    {
    }

    std::string function;
    std::string source;  // the file that logs its arguments
    std::string method;
    std::string call;   // named where the call fails
    std::string error;  // and the priority and the name of the error's text
    Rule rule;          // which of the service's results succeed
    std::vector<Use> uses;
    int line;
};

void PrintTo(const Row& row, std::ostream* stream)
{
    *stream << row.function;
}

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

Bytes Counted(unsigned int count)
{
    Bytes bytes(count);
    for (unsigned int i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(i + 1);
    }
    return bytes;
}

// A packet that is sent. `logged` and `type` are what a function has of its own before the length.
Use Sends(std::function<int(const unsigned char*, unsigned int)> send, const Bytes& packet,
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
        bytes += Format("%sD command data[%zu]: %d", k > 0 ? "\n" : "", k, data[k]);
    }
    return {[=] { return automation_execute_command_with_data(data0, data1, data.data(), length); },
            Format("D Data0[%x] Data1[%x], length[%d]", unsigned(data0), unsigned(data1), length),
            bytes,
            Format("(%d, %d, [uint32 ", data0, data1) + Each("%u", data, ", ") +
                Format("], %d)", length)};
}

int Ack4(const unsigned char* packet, unsigned int length)
{
    return automation_send_rs232_ack(4, length, packet);
}

int AckMinus1(const unsigned char* packet, unsigned int length)
{
    return automation_send_rs232_ack(-1, length, packet);
}

const unsigned char* const kBytes = reinterpret_cast<const unsigned char*>("\x01\x02");
const unsigned char* const kZeroFirst = reinterpret_cast<const unsigned char*>("\0\x02");
const std::string kNoUart = "E automation_send_message_by_ex_uart-Wrong Parameters";
const std::string kNoRjp = "E automation_send_rjp_data-Wrong Parameters";
const std::string kNoAck = "E automation_send_rs232_ack-Wrong Parameters";
const std::string kNull = "E parameter is null";

const Row kRows[] = {
    {"automation_copy_log_to_usb",
     "control_calls",
     "CopyLogToUsb",
     "automation_proxy_call_copy_log_to_usb_sync",
     "E execute_command_sync",
     kNonZeroResult,
     {{automation_copy_log_to_usb, "", "", "()"}}},
    {"automation_change_packet_length_serial_source",
     "control_calls",
     "ChangePacketLengthSerialSource",
     "automation_proxy_call_change_packet_length_serial_source_sync",
     "E execute_command_sync",
     kNonZeroResult,
     {{[] { return automation_change_packet_length_serial_source(0); }, "D uiLen[0]", "", "(0,)"},
      {[] { return automation_change_packet_length_serial_source(0xFFFFFFFF); }, "D uiLen[-1]", "",
       "(-1,)"}}},
    {"automation_change_baud_rate_ex_uart",
     "control_calls",
     "ChangeBaudRateExUart",
     "automation_proxy_call_change_baud_rate_ex_uart_sync",
     "E execute_command_sync",
     kNonZeroResult,
     {{[] { return ChangeBaudRateFromC(9600); }, "D uibdRate[9600]", "", "(9600,)"},
      {[] { return ChangeBaudRateFromC(115200); }, "D uibdRate[115200]", "", "(115200,)"},
      {[] { return ChangeBaudRateFromC(57600); }, "D uibdRate[57600]\nD uibdRate[57600]", {}},
      {[] { return ChangeBaudRateFromC(0xFFFFFFFF); }, "D uibdRate[-1]\nD uibdRate[-1]", {}}}},
    {"automation_close_ex_uart",
     "control_calls",
     "CloseExUart",
     "automation_proxy_close_ex_uart_sync",
     "E close_ex_uart_sync",
     kNonZeroResult,
     {{automation_close_ex_uart, "D automation_close_ex_uart", "", "()"}}},
    {"automation_execute_command",
     "commands",
     "ExecuteCommand",
     "automation_proxy_call_execute_command_sync",
     "E execute_command_sync",
     kAnyResult,
     {{[] { return automation_execute_command(0x5A, 0); }, "D Data0[5a] Data1[0]", "", "(90, 0)"},
      {[] { return automation_execute_command(-1, -2); }, "D Data0[ffffffff] Data1[fffffffe]", "",
       "(-1, -2)"},
      {[] { return automation_execute_command(0, 1); }, kNull, {}}}},
    {"automation_execute_command_with_data",
     "commands",
     "ExecuteCommandWithData",
     "automation_proxy_call_execute_command_with_data_sync",
     "E execute_command_with_data_sync",
     kAnyResult,
     {SendsWithData(1, 2, {0x10, 0xFF}),
      SendsWithData(-1, 0, {0}),
      SendsWithData(90, -2, Counted(255)),
      {[] { return automation_execute_command_with_data(0, 1, kBytes, 2); }, kNull, {}},
      {[] { return automation_execute_command_with_data(1, 1, kBytes, 0); }, kNull, {}},
      {[] { return automation_execute_command_with_data(1, 1, nullptr, 2); }, kNull, {}}}},
    {"automation_send_message_by_ex_uart",
     "packets",
     "SendMessageByExUart",
     "automation_proxy_call_send_message_by_ex_uart_sync",
     "I send_message_by_ex_uart",
     kNonZeroResult,
     {Sends(automation_send_message_by_ex_uart, {0x7F, 0, 0xFF, 0x80}),
      Sends(automation_send_message_by_ex_uart, Counted(258)),
      {[] { return automation_send_message_by_ex_uart(kBytes, 0); }, "D ulLength[0]", kNoUart},
      {[] { return automation_send_message_by_ex_uart(kZeroFirst, 2); }, "D ulLength[2]", kNoUart},
      {[] { return automation_send_message_by_ex_uart(nullptr, 1); }, "D ulLength[1]", kNoUart},
      {[] { return automation_send_message_by_ex_uart(nullptr, 0x80000000); },
       "D ulLength[-2147483648]", kNoUart}}},
    {"automation_send_rjp_data",
     "packets",
     "SendRjpData",
     "automation_proxy_call_send_rjp_data_sync",
     "I automation_proxy_call_send_rjp_data_sync",
     kNonZeroResult,
     {Sends(automation_send_rjp_data, {0x7F}),
      Sends(automation_send_rjp_data, {0xFF, 0, 0, 1}),
      {[] { return automation_send_rjp_data(kBytes, 0); }, "D ulLength[0]", kNoRjp},
      {[] { return automation_send_rjp_data(kBytes, 8000001); }, "D ulLength[8000001]", kNoRjp},
      {[] { return automation_send_rjp_data(kZeroFirst, 1); }, "D ulLength[1]", kNoRjp}}},
    {"automation_send_rs232_ack",
     "packets",
     "SendRS232Ack",
     "automation_proxy_call_send_rs232_ack_sync",
     "I send_rs232_ack_sync",
     kNonZeroResult,
     {Sends(Ack4, {0x7F, 0}, "eProtocolType[4] ", "4, "),
      Sends(AckMinus1, {0xFF}, "eProtocolType[-1] ", "-1, "),
      {[] { return automation_send_rs232_ack(5, 2, kBytes); }, "D eProtocolType[5] ulLength[2]",
       kNoAck},
      {[] { return Ack4(kBytes, 0); }, "D eProtocolType[4] ulLength[0]", kNoAck},
      {[] { return Ack4(kZeroFirst, 2); }, "D eProtocolType[4] ulLength[2]", kNoAck}}},
};

// What a service answers, and what follows.
struct Outcome {
    std::string answer;
    std::function<std::string(const Row&)> log;
    std::function<int(const Row&)> result;
};

int Failure(const Row& /*row*/)
{
    return -1;
}

int Success(const Row& /*row*/)
{
    return 0;
}

std::string Failed(const Row& row, const std::string& error)
{
    return Logged("call_frame", row.function,
                  "E ERR: " + row.call + " return false" +
                      (error.empty() ? "" : "\n" + row.error + " err[" + error + "]"));
}

const Outcome kOutcomes[] = {
    {"((1,),)", [](auto& row) { return Logged("call_frame", row.function, "D OK retVal[1]"); },
     Success},
    {"((-5,),)", [](auto& row) { return Logged("call_frame", row.function, "D OK retVal[-5]"); },
     Success},
    {"((0,),)",
     [](auto& row) {
         return Logged("call_frame", row.function,
                       row.rule == kAnyResult ? "D OK retVal[0]" : "E NG retVal[0]");
     },
     [](auto& row) { return row.rule == kAnyResult ? 0 : -1; }},
    {"!not today", [](auto& row) { return Failed(row, "GDBus.Error:test.Refused: not today"); },
     Failure},
    {"('text',)",
     [](auto& row) {
         return Failed(row,
                       "Method “" + row.method + "” returned type “(s)”, but expected “((i))”");
     },
     Failure},
};

class CommandTest : public ClientTest, public testing::WithParamInterface<Row>
{
protected:
    // Expects all that a use does; `connection` is what connecting logs, `outcome` null without a
    // bus.
    void Expect(const Row& row, const Use& use, const std::string& connection,
                const Outcome* outcome)
    {
        const testing::ScopedTrace where(
            __FILE__, row.line,
            row.function + ", use " + std::to_string(&use - row.uses.data() + 1));
        if (outcome != nullptr) {
            service.Answer(row.method, outcome->answer);
        }
        Call(use.call);
        std::string expected = Logged(row.source, row.function, use.before);
        int result = -1;
        if (use.after) {
            expected += connection == "first" ? Connected() : connection;
            expected += Logged(row.source, row.function, *use.after);
        }
        if (!use.arguments.empty()) {
            if (outcome != nullptr) {
                expected += "service: " + row.method + " " + use.arguments + "\n";
            }
            expected += outcome != nullptr ? outcome->log(row) : Failed(row, "");
            result = outcome != nullptr ? outcome->result(row) : -1;
        }
        EXPECT_TRACE(expected + "= " + std::to_string(result) + "\n");
    }
};

TEST_P(CommandTest, IsLoggedSentJudgedAndRefusedAsItsRowSays)
{
    const Row& row = GetParam();
    HideBus();
    for (const Use& use : row.uses) {
        Expect(row, use, kNoBus, nullptr);
    }
    ShowBus();
    for (const Use& use : row.uses) {
        for (const Outcome& outcome : kOutcomes) {
            const bool first = &use == &row.uses[0] && &outcome == &kOutcomes[0];
            Expect(row, use, first ? "first" : "", &outcome);
        }
    }
}

std::string NameOf(const testing::TestParamInfo<Row>& row)
{
    return row.param.method;
}

INSTANTIATE_TEST_SUITE_P(Client, CommandTest, testing::ValuesIn(kRows), NameOf);

}  // namespace
