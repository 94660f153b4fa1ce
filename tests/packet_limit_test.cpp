// The longest packet. It is sent byte by byte into the log, so this program takes the log's place.
#include <fa_api/automation_api.h>
#include <fa_platform/dlog.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "support/private_bus.h"
#include "support/scripted_service.h"

static unsigned long bytesLogged = 0;
static std::string errors;

int __dlog_print(int /*log_id*/, int priority, const char* /*tag*/, const char* format, ...)
{
    if (std::strstr(format, "data[%x]") != nullptr) {
        ++bytesLogged;
    } else if (priority == 6) {
        char line[200];
        va_list values;
        va_start(values, format);
        std::vsnprintf(line, sizeof(line), format, values);
        va_end(values);
        errors += std::strchr(line, '>');
    }
    return 0;
}

TEST(PacketLimit, EightMillionBytesAreSentAndOneMoreIsRefused)
{
    const PrivateBus bus;
    ScriptedService service(bus);
    const std::vector<unsigned char> longest(8000000, 0x7F);
    EXPECT_EQ(automation_send_rjp_data(longest.data(), 8000000), 0);
    const std::vector<std::string> calls = service.TakeCalls();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].substr(0, 37), "SendRjpData (8000000, [127, 127, 127,");
    EXPECT_EQ(std::count(calls[0].begin(), calls[0].end(), ','), 8000000);
    EXPECT_EQ(bytesLogged, 8000000U);

    // The length decides: not even the first byte can be read.
    const auto* packet = static_cast<unsigned char*>(
        mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    EXPECT_EQ(automation_send_message_by_ex_uart(packet, 8000001), -1);
    EXPECT_EQ(automation_send_rjp_data(packet, 8000001), -1);
    EXPECT_EQ(automation_send_rs232_ack(0, 4294967295, packet), -1);
    EXPECT_EQ(errors,
              "> automation_send_message_by_ex_uart-Wrong Parameters\n"
              "> automation_send_rjp_data-Wrong Parameters\n"
              "> automation_send_rs232_ack-Wrong Parameters\n");
    EXPECT_EQ(bytesLogged, 8000000U);
    EXPECT_TRUE(service.TakeCalls().empty());
}
