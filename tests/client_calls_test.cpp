// The calls of the service: what each function logs, sends and returns.
#include <array>
#include <numeric>

#include "support/client_test.h"

// Compiled as C.
extern "C" int ChangeBaudRateFromC(unsigned int rate);

namespace
{

constexpr std::array<unsigned char, 3> kPacket = {0x7F, 0x00, 0xFF};

struct ClientCall {
    std::string function;
    std::string entry;     // logged before the connection is made
    Texts bytes;           // logged between that and the call
    std::string received;  // by the service
    std::string failed;    // logged when the call fails,
    std::string detail;    // and in front of the error's text
    bool zeroSucceeds;
    std::function<int()> call;
};

const Texts kNone;
const Texts kPacketBytes = {"D data[7f]", "D data[0]", "D data[ff]"};
const Texts kCommandBytes = {"D command data[0]: 127", "D command data[1]: 0",
                             "D command data[2]: 255"};

const ClientCall kCalls[] = {
    {"automation_copy_log_to_usb", "", kNone, "CopyLogToUsb ()",
     "automation_proxy_call_copy_log_to_usb_sync", "E execute_command_sync", false,
     automation_copy_log_to_usb},
    {"automation_change_packet_length_serial_source", "D uiLen[0]", kNone,
     "ChangePacketLengthSerialSource (0,)",
     "automation_proxy_call_change_packet_length_serial_source_sync", "E execute_command_sync",
     false, [] { return automation_change_packet_length_serial_source(0); }},
    {"automation_change_baud_rate_ex_uart", "D uibdRate[9600]", kNone,
     "ChangeBaudRateExUart (9600,)", "automation_proxy_call_change_baud_rate_ex_uart_sync",
     "E execute_command_sync", false, [] { return automation_change_baud_rate_ex_uart(9600); }},
    {"automation_close_ex_uart", "D automation_close_ex_uart", kNone, "CloseExUart ()",
     "automation_proxy_close_ex_uart_sync", "E close_ex_uart_sync", false,
     automation_close_ex_uart},
    {"automation_execute_command", "D Data0[5a] Data1[0]", kNone, "ExecuteCommand (90, 0)",
     "automation_proxy_call_execute_command_sync", "E execute_command_sync", true,
     [] { return automation_execute_command(0x5A, 0); }},
    {"automation_execute_command_with_data", "D Data0[1] Data1[fffffffe], length[3]", kCommandBytes,
     "ExecuteCommandWithData (1, -2, [127, 0, 255], 3)",
     "automation_proxy_call_execute_command_with_data_sync", "E execute_command_with_data_sync",
     true, [] { return automation_execute_command_with_data(1, -2, kPacket.data(), 3); }},
    {"automation_send_message_by_ex_uart", "D ulLength[3]", kPacketBytes,
     "SendMessageByExUart (3, [127, 0, 255])", "automation_proxy_call_send_message_by_ex_uart_sync",
     "I send_message_by_ex_uart", false,
     [] { return automation_send_message_by_ex_uart(kPacket.data(), 3); }},
    {"automation_send_rjp_data", "D ulLength[3]", kPacketBytes, "SendRjpData (3, [127, 0, 255])",
     "automation_proxy_call_send_rjp_data_sync", "I automation_proxy_call_send_rjp_data_sync",
     false, [] { return automation_send_rjp_data(kPacket.data(), 3); }},
    {"automation_send_rs232_ack", "D eProtocolType[4] ulLength[3]", kPacketBytes,
     "SendRS232Ack (4, 3, [127, 0, 255])", "automation_proxy_call_send_rs232_ack_sync",
     "I send_rs232_ack_sync", false,
     [] { return automation_send_rs232_ack(4, 3, kPacket.data()); }},
};

class CallTest : public ClientTest, public ::testing::WithParamInterface<ClientCall>
{
};

// The application never iterates a main context here, and still finds the service that restarts.
TEST_P(CallTest, JudgesEveryOutcome)
{
    const ClientCall& row = GetParam();
    const std::string method = row.received.substr(0, row.received.find(' '));
    const auto ok = [](const char* value) {
        return Texts{std::string("D OK retVal[") + value + "]"};
    };
    const auto failed = [&](const std::string& text) {
        return Texts{"E ERR: " + row.failed + " return false", row.detail + " err[" + text + "]"};
    };
    const struct {
        const char* answer;
        int result;
        Texts lines;
    } outcomes[] = {
        {"((1,),)", 0, ok("1")},
        {"((0,),)", row.zeroSucceeds ? 0 : -1,
         row.zeroSucceeds ? ok("0") : Texts{"E NG retVal[0]"}},
        {"((-5,),)", 0, ok("-5")},
        {"!not today", -1, failed("GDBus.Error:test.Refused: not today")},
        {"('text',)", -1,
         failed("Method “" + method + "” returned type “(s)”, but expected “((i))”")},
        {"exit", -1,
         failed("GDBus.Error:org.freedesktop.DBus.Error.NoReply: Message recipient disconnected "
                "from message bus without replying")},
        {"((1,),)", 0, ok("1")},
    };
    Texts connecting = {kConnected};
    for (const auto& outcome : outcomes) {
        service.Answer(method, outcome.answer);
        Expect(row.call, outcome.result,
               By(row.function, {row.entry}) + connecting + By(row.function, row.bytes) +
                   By(row.function, outcome.lines),
               {row.received});
        connecting.clear();
        if (outcome.answer == std::string("exit")) {
            service.Join();
            Settle();
        }
    }
}

TEST_P(CallTest, FailsWithoutABusUntilThereIsOne)
{
    const ClientCall& row = GetParam();
    const auto lines = [&](const std::string& connection, const std::string& verdict) {
        return By(row.function, {row.entry}) + Texts{connection} + By(row.function, row.bytes) +
               By(row.function, {verdict});
    };
    HideBus();
    Expect(row.call, -1, lines(kNoConnection, "E ERR: " + row.failed + " return false"));
    Expect(row.call, -1, lines(kNoConnection, "E ERR: " + row.failed + " return false"));
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    Expect(row.call, 0, lines(kConnected, "D OK retVal[1]"), {row.received});
}

INSTANTIATE_TEST_SUITE_P(Client, CallTest, ::testing::ValuesIn(kCalls),
                         [](const auto& instance) { return instance.param.function; });

using CallsTest = ClientTest;

TEST_F(CallsTest, RefuseBadArgumentsAndConnectFirstOnlyForPackets)
{
    HideBus();
    const unsigned char* bytes = kPacket.data();
    const unsigned char* zero = kPacket.data() + 1;
    const char execute[] = "automation_execute_command_with_data";
    const char null[] = "E parameter is null";
    const char exUart[] = "automation_send_message_by_ex_uart";
    const char rjp[] = "automation_send_rjp_data";
    const char ack[] = "automation_send_rs232_ack";
    const char baudRate[] = "automation_change_baud_rate_ex_uart";
    const struct {
        std::string function;
        std::string entry;
        std::string refusal;  // none where the packet is wrong
        std::function<int()> call;
    } cases[] = {
        {baudRate, "D uibdRate[57600]", "D uibdRate[57600]",
         [] { return ChangeBaudRateFromC(57600); }},
        {baudRate, "D uibdRate[-1]", "D uibdRate[-1]",
         [] { return automation_change_baud_rate_ex_uart(0xFFFFFFFF); }},
        {"automation_execute_command", "", null, [] { return automation_execute_command(0, 1); }},
        {execute, "", null, [=] { return automation_execute_command_with_data(0, 1, bytes, 1); }},
        {execute, "", null, [=] { return automation_execute_command_with_data(1, 1, bytes, 0); }},
        {execute, "", null, [] { return automation_execute_command_with_data(1, 1, nullptr, 1); }},
        {exUart, "D ulLength[0]", "", [=] { return automation_send_message_by_ex_uart(bytes, 0); }},
        {exUart, "D ulLength[2]", "", [=] { return automation_send_message_by_ex_uart(zero, 2); }},
        {exUart, "D ulLength[-2147483648]", "",
         [] { return automation_send_message_by_ex_uart(nullptr, 0x80000000); }},
        {rjp, "D ulLength[0]", "", [] { return automation_send_rjp_data(nullptr, 0); }},
        {rjp, "D ulLength[1]", "", [=] { return automation_send_rjp_data(zero, 1); }},
        {ack, "D eProtocolType[5] ulLength[1]", "",
         [=] { return automation_send_rs232_ack(5, 1, bytes); }},
        {ack, "D eProtocolType[4] ulLength[0]", "",
         [=] { return automation_send_rs232_ack(4, 0, bytes); }},
        {ack, "D eProtocolType[-1] ulLength[1]", "",
         [=] { return automation_send_rs232_ack(-1, 1, zero); }},
        {ack, "D eProtocolType[0] ulLength[1]", "",
         [] { return automation_send_rs232_ack(0, 1, nullptr); }},
    };
    for (const auto& row : cases) {
        const bool isPacket = row.refusal.empty();
        Expect(row.call, -1,
               By(row.function, {row.entry}) + (isPacket ? Texts{kNoConnection} : Texts{}) +
                   By(row.function,
                      {isPacket ? "E " + row.function + "-Wrong Parameters" : row.refusal}));
    }
}

TEST_F(CallsTest, SendTheWholeRangeOfArguments)
{
    std::string text(300, '\0');
    std::iota(text.begin(), text.end(), '\1');
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const struct {
        std::string received;
        std::function<int()> call;
    } cases[] = {
        {"ChangeBaudRateExUart (115200,)",
         [] { return automation_change_baud_rate_ex_uart(115200); }},
        {"ChangePacketLengthSerialSource (-1,)",
         [] { return automation_change_packet_length_serial_source(0xFFFFFFFF); }},
        {"ExecuteCommand (-2147483648, 2147483647)",
         [] { return automation_execute_command(G_MININT32, G_MAXINT32); }},
        {"ExecuteCommandWithData (-1, 0, " + ByteList(text.substr(0, 255)) + ", 255)",
         [=] { return automation_execute_command_with_data(-1, 0, bytes, 255); }},
        {"SendMessageByExUart (300, " + ByteList(text.substr(0, 300)) + ")",
         [=] { return automation_send_message_by_ex_uart(bytes, 300); }},
        {"SendRjpData (1, [1])", [=] { return automation_send_rjp_data(bytes, 1); }},
        {"SendRS232Ack (-1, 256, " + ByteList(text.substr(0, 256)) + ")",
         [=] { return automation_send_rs232_ack(-1, 256, bytes); }},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(row.call(), 0);
        EXPECT_EQ(service.TakeCalls(), Texts{row.received});
    }
}

}  // namespace
