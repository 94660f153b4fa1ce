// A conversation with a set: every kind of call that a factory test application makes, and data
// that arrives on the serial protocols. On a desk, run it on a simulated set:
//
//   fa-set-simulator run -- fa-conversation
#include <fa_api/automation_api.h>
#include <fcntl.h>
#include <glib.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace
{

constexpr int kLocalSetCommand = 806;
constexpr unsigned int kLocalSetTurkey = 15;
constexpr int kAckOnSs = 1;
constexpr unsigned int kSsPacketLength = 4;
const std::vector<unsigned char> kPacket = {0x02, 0x10, 0xFF, 0x03};

// Opens the other end of a serial line of the simulated set, whose path is in the environment.
int OpenLine(const char* variable)
{
    const char* path = std::getenv(variable);
    const int line = path != nullptr ? open(path, O_RDWR | O_NOCTTY | O_CLOEXEC) : -1;
    if (line < 0) {
        std::printf("   no serial line in %s: is this run by fa-set-simulator?\n", variable);
    }
    return line;
}

std::string Describe(const unsigned char* bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char byte[4];
        std::snprintf(byte, sizeof byte, " %02X", bytes[i]);
        text += byte;
    }
    return text.empty() ? " nothing" : text;
}

// Plays the device that a packet is for: reads it at the other end of the line.
int ReadOn(const char* variable)
{
    constexpr int kPatienceMs = 5000;
    unsigned char bytes[16];
    pollfd line{OpenLine(variable), POLLIN, 0};
    ssize_t count = 0;
    if (line.fd >= 0 && poll(&line, 1, kPatienceMs) == 1) {
        count = read(line.fd, bytes, sizeof bytes);
    }
    close(line.fd);
    const std::size_t received = count > 0 ? std::size_t(count) : 0;
    std::printf("   the other end received:%s\n", Describe(bytes, received).c_str());
    return received > 0 ? 0 : -1;
}

std::string arrived;

// A callback gets a record that is overwritten by the next data, so it copies what it needs. Data
// can be announced twice; whoever comes for it a second time gets none.
void Remember(ProtocolData_s* data)
{
    const int stored = std::clamp(data->iSize, 0, 256);
    if (stored > 0) {
        arrived = Describe(data->p_data, std::size_t(stored));
    }
}

// Plays the device that sends: writes to the line, and waits until the library has handed the bytes
// to the callback.
int ReceiveOn(const char* variable)
{
    constexpr gint64 kPatience = gint64{5} * G_USEC_PER_SEC;
    const int line = OpenLine(variable);
    arrived.clear();
    const bool written = write(line, kPacket.data(), kPacket.size()) == ssize_t(kPacket.size());
    // Callbacks arrive while the application iterates its main context, and at no other time.
    const gint64 deadline = g_get_monotonic_time() + kPatience;
    while (written && arrived.empty() && g_get_monotonic_time() < deadline) {
        if (!g_main_context_iteration(nullptr, FALSE)) {
            g_usleep(1000);
        }
    }
    close(line);
    std::printf("   the callback received:%s\n", arrived.empty() ? " nothing" : arrived.c_str());
    return arrived.empty() ? -1 : 0;
}

struct Step {
    const char* what;
    std::function<int()> run;  // 0 when it went well, as all functions of the library
};

const std::vector<Step> kSteps = {
    {"execute command 0x10/0x01", [] { return automation_execute_command(0x10, 0x01); }},
    {"execute command 0x10/0x02 with the data 02 10 FF 03",
     [] {
         return automation_execute_command_with_data(0x10, 0x02, kPacket.data(),
                                                     static_cast<unsigned char>(kPacket.size()));
     }},
    {"switch the set to local set 15, EU_TURKEY",
     [] { return automation_execute_command_with_projector(kLocalSetCommand, kLocalSetTurkey); }},
    {"set the external UART to 115200 bits per second",
     [] { return automation_change_baud_rate_ex_uart(115200); }},
    {"send 02 10 FF 03 over the external UART",
     [] { return automation_send_message_by_ex_uart(kPacket.data(), unsigned(kPacket.size())); }},
    {"read it as the device on the UART does", [] { return ReadOn("FA_SET_UART"); }},
    {"send 02 10 FF 03 as RJP data",
     [] { return automation_send_rjp_data(kPacket.data(), unsigned(kPacket.size())); }},
    {"read it as the device on the RJP line does", [] { return ReadOn("FA_SET_RJP"); }},
    {"send 02 10 FF 03 as an RS-232 acknowledgement",
     [] { return automation_send_rs232_ack(kAckOnSs, unsigned(kPacket.size()), kPacket.data()); }},
    {"read it as the device on the SS line does", [] { return ReadOn("FA_SET_SS"); }},
    {"make serial source (SS) packets 4 bytes long",
     [] { return automation_change_packet_length_serial_source(kSsPacketLength); }},
    {"register a callback for SS",
     [] { return automation_register_callback_serial_source(Remember); }},
    {"register a callback for RJP",
     [] { return automation_register_callback_rjp_protocol(Remember); }},
    {"register a callback for EP",
     [] { return automation_register_callback_ep_protocol(Remember); }},
    {"receive 4 bytes on the SS line", [] { return ReceiveOn("FA_SET_SS"); }},
    {"receive 4 bytes on the RJP line", [] { return ReceiveOn("FA_SET_RJP"); }},
    {"receive 4 bytes on the EP line", [] { return ReceiveOn("FA_SET_EP"); }},
    {"unregister the SS callback", automation_unregister_callback_serial_source},
    {"unregister the RJP callback", automation_unregister_callback_rjp_protocol},
    {"unregister the EP callback", automation_unregister_callback_ep_protocol},
    {"copy the set's logs to USB storage", automation_copy_log_to_usb},
    {"close the external UART", automation_close_ex_uart},
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 1) {
        const bool help = std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0;
        std::fputs(
            "usage: fa-conversation [--help]\n\n"
            "Makes every kind of call to the factory automation service on the system bus, and\n"
            "receives data on the three serial protocols, step by step. Without a set:\n"
            "  fa-set-simulator run -- fa-conversation\n\n"
            "  -h, --help  print this text\n\n"
            "Exit status: 0 when every step went well, 1 when one failed, which is named; 2 for a\n"
            "wrong command line.\n",
            help ? stdout : stderr);
        return help ? EXIT_SUCCESS : 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    int number = 0;
    for (const Step& step : kSteps) {
        std::printf("%2d. %s\n", ++number, step.what);
        if (step.run() != 0) {
            std::printf("FAILED at step %d: %s. The platform log on standard error says why.\n",
                        number, step.what);
            return EXIT_FAILURE;
        }
    }
    std::printf("All %d steps went well.\n", number);
    return EXIT_SUCCESS;
}
