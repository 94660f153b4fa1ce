// The longest packet.
#include <sys/mman.h>

#include <algorithm>

#include "client/client_test.h"

namespace
{

TEST_F(ClientTest, EightMillionBytesAreSentAndOneMoreIsRefused)
{
    std::size_t bytes = 0;
    WatchLog([&bytes](const std::string& line) {
        const bool byte = line == "D packets automation_send_rjp_data: data[7f]";
        byte ? static_cast<void>(++bytes) : Note(line);
    });
    const std::vector<unsigned char> longest(8000000, 0x7F);
    Call([&] { return automation_send_rjp_data(longest.data(), 8000000); });
    EXPECT_EQ(bytes, longest.size());
    std::string sent = "service: SendRjpData (8000000, [uint32 127";
    for (std::size_t i = 1; i < longest.size(); ++i) {
        sent += ", 127";
    }
    EXPECT_TRACE(Logged("packets", "automation_send_rjp_data", "D ulLength[8000000]") +
                 Connected() + sent + "])\n" +
                 Logged("call_frame", "automation_send_rjp_data", "D OK retVal[1]") + "= 0\n");

    // The length decides: not even the first byte can be read.
    const auto* packet = static_cast<unsigned char*>(
        mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    Call([=] { return automation_send_message_by_ex_uart(packet, 8000001); });
    Call([=] { return automation_send_rjp_data(packet, 8000001); });
    Call([=] { return automation_send_rs232_ack(0, 4294967295, packet); });
    EXPECT_TRACE(
        Logged("packets", "automation_send_message_by_ex_uart",
               "D ulLength[8000001]\nE automation_send_message_by_ex_uart-Wrong Parameters") +
        "= -1\n" +
        Logged("packets", "automation_send_rjp_data",
               "D ulLength[8000001]\nE automation_send_rjp_data-Wrong Parameters") +
        "= -1\n" +
        Logged("packets", "automation_send_rs232_ack",
               "D eProtocolType[0] ulLength[-1]\n"
               "E automation_send_rs232_ack-Wrong Parameters") +
        "= -1\n");
}

}  // namespace
