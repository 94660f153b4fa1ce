// A long run on the simulated set: calls and protocol events by the hundred thousand, with nothing
// lost and no memory kept. The numbers are arguments:
//
//     fa-set-simulator run --quiet -- soak 1000000 100000
#include <fa_api/automation_api.h>
#include <fa_platform/dlog.h>
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "resident_memory.h"

// Takes the platform log's place: nobody reads so many lines.
int __dlog_print(int, int, const char*, const char*, ...)
{
    return 0;
}

namespace
{

constexpr int kPacketLength = 16;
constexpr int kPacketsAtOnce = 32;

long received = 0;
bool inOrder = true;

// The packets are numbered in their first four bytes.
void Count(ProtocolData_s* data)
{
    long number = 0;
    for (int i = 3; i >= 0; --i) {
        number = number << 8 | data->p_data[i];
    }
    inOrder = inOrder && data->iSize == kPacketLength && number == received;
    ++received;
}

bool Call(long number)
{
    const unsigned char packet[kPacketLength] = {1};
    switch (number % 4) {
        case 0:
            return automation_execute_command(0x10, 1) == 0;
        case 1:
            return automation_execute_command_with_data(0x10, 2, packet, kPacketLength) == 0;
        case 2:
            return automation_change_baud_rate_ex_uart(115200) == 0;
        default:
            return automation_change_packet_length_serial_source(kPacketLength) == 0;
    }
}

bool Exchange(int line, long already)
{
    unsigned char packets[kPacketsAtOnce * kPacketLength] = {};
    for (long i = 0; i < kPacketsAtOnce; ++i) {
        for (int byte = 0; byte < 4; ++byte) {
            packets[i * kPacketLength + byte] =
                static_cast<unsigned char>((already + i) >> (8 * byte));
        }
    }
    if (write(line, packets, sizeof(packets)) != static_cast<ssize_t>(sizeof(packets))) {
        return false;
    }
    const gint64 deadline = g_get_monotonic_time() + gint64{10} * G_USEC_PER_SEC;
    while (received < already + kPacketsAtOnce && g_get_monotonic_time() < deadline) {
        if (g_main_context_iteration(nullptr, FALSE) == FALSE) {
            g_usleep(50);
        }
    }
    return received == already + kPacketsAtOnce && inOrder;
}

}  // namespace

int main(int argc, char** argv)
{
    const long calls = argc > 1 ? std::atol(argv[1]) : 1000000;
    const long events = argc > 2 ? std::atol(argv[2]) : 100000;
    const char* path = std::getenv("FA_SET_SS");
    const int line = path != nullptr ? open(path, O_WRONLY | O_NOCTTY | O_CLOEXEC) : -1;
    if (line < 0 || !Call(3) || automation_register_callback_serial_source(Count) != 0) {
        std::puts("no simulated set: run this by fa-set-simulator");
        return EXIT_FAILURE;
    }
    constexpr int kSteps = 10;
    for (int step = 1; step <= kSteps; ++step) {
        for (long i = 0; i < calls / kSteps; ++i) {
            if (!Call(i)) {
                std::printf("call %ld of step %d failed\n", i, step);
                return EXIT_FAILURE;
            }
        }
        while (received < events * step / kSteps) {
            if (!Exchange(line, received)) {
                std::printf("event %ld is lost or out of order\n", received);
                return EXIT_FAILURE;
            }
        }
        std::printf("%ld calls, %ld events; resident: %ld KiB here, %ld KiB the set\n",
                    calls / kSteps * step, received, ResidentKilobytes(getpid()),
                    ResidentKilobytes(getppid()));
        std::fflush(stdout);
    }
    return EXIT_SUCCESS;
}
