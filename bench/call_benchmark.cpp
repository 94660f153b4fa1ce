// What a call and an event cost through the library, beside the same on raw GDBus with as many log
// lines, and beside the floor: as many bytes over bare sockets with as many hops as there are
// through the bus. An event is timed from the service's signal to the application's callback. One
// sample of each follows the other, and the table shows the medians. Fails where the library takes
// more than 1.05 times as long as raw GDBus. The platform log does nothing.
#include <fa_api/automation_api.h>
#include <fa_api/automation_api_binding.h>
#include <fa_platform/dlog.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <thread>
#include <vector>

#include "support/private_bus.h"

int __dlog_print(int /*log_id*/, int /*priority*/, const char* /*tag*/, const char* /*format*/, ...)
{
    return 0;
}

namespace
{

constexpr char kBusName[] = "org.kavra.tv.automation-service";
constexpr char kObjectPath[] = "/KVFacAutoObj";
constexpr char kInterface[] = "org.kavra.tv.automationservice";
constexpr double kMostTime = 1.05;

using Bytes = std::vector<unsigned char>;
using Clock = std::chrono::steady_clock;

const Bytes eventData(16, 0x5A);
std::atomic<Clock::time_point> announced;  // when the service sent the last signal
bool received = false;

void Check(bool good)
{
    if (!good) {
        std::puts("a call failed");
        std::exit(EXIT_FAILURE);
    }
}

// The bus form of a packet, or of fetched data with its size in front.
GVariant* NewArray(const Bytes& bytes, bool withSize)
{
    std::vector<guint32> elements(bytes.begin(), bytes.end());
    if (withSize) {
        elements.insert(elements.begin(), static_cast<guint32>(bytes.size()));
    }
    return g_variant_new_fixed_array(G_VARIANT_TYPE_UINT32, elements.data(), elements.size(),
                                     sizeof(guint32));
}

// --- the service, in a thread of its own ---

GMainContext* serviceContext = g_main_context_new();
GDBusConnection* serviceConnection = nullptr;

gboolean Accept(AutomationProxy* service, GDBusMethodInvocation* invocation)
{
    automation_proxy_complete_copy_log_to_usb(service, invocation, g_variant_new("(i)", 1));
    return TRUE;
}

gboolean AcceptData(AutomationProxy* service, GDBusMethodInvocation* invocation, int /*length*/,
                    GVariant* /*data*/)
{
    return Accept(service, invocation);
}

gboolean Deliver(AutomationProxy* service, GDBusMethodInvocation* invocation)
{
    automation_proxy_complete_get_ss_protocol_data(service, invocation, NewArray(eventData, true),
                                                   g_variant_new("(i)", 1));
    return TRUE;
}

void Serve()
{
    g_main_context_push_thread_default(serviceContext);
    AutomationProxy* service = automation_proxy_skeleton_new();
    g_signal_connect(service, "handle-copy-log-to-usb", G_CALLBACK(Accept), nullptr);
    g_signal_connect(service, "handle-send-rjp-data", G_CALLBACK(AcceptData), nullptr);
    g_signal_connect(service, "handle-get-ss-protocol-data", G_CALLBACK(Deliver), nullptr);
    g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(service), serviceConnection,
                                     kObjectPath, nullptr);
    g_bus_own_name_on_connection(serviceConnection, kBusName, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr,
                                 nullptr, nullptr, nullptr);
    g_main_loop_run(g_main_loop_new(serviceContext, FALSE));
}

// Announces data to one connection only, so that neither side pays for the other's signals, and
// returns how long it takes until the callback runs.
Clock::duration Announce(GDBusConnection* receiver)
{
    const auto emit = [](gpointer name) -> gboolean {
        announced = Clock::now();
        g_dbus_connection_emit_signal(serviceConnection, static_cast<const char*>(name),
                                      kObjectPath, kInterface, "ss_handler",
                                      g_variant_new("(s)", "data"), nullptr);
        return G_SOURCE_REMOVE;
    };
    received = false;
    g_main_context_invoke(serviceContext, emit,
                          const_cast<char*>(g_dbus_connection_get_unique_name(receiver)));
    while (!received) {
        g_main_context_iteration(nullptr, TRUE);
    }
    return Clock::now() - announced.load();
}

void Receive(ProtocolData_s* data)
{
    received = data->iSize == static_cast<int>(eventData.size()) && data->p_data[15] == 0x5A;
}

// --- raw GDBus ---

// Through a pointer, for that hides from the compiler that a line does nothing.
void Log(std::size_t lines)
{
    static auto* volatile print = &__dlog_print;
    for (std::size_t line = 0; line < lines; ++line) {
        print(2, 3, "FA_API", "%s: %s(%d) > data[%x]%s", "packets", __func__, __LINE__, 0x5A, "\n");
    }
}

void CallRaw(GDBusProxy* proxy, const Bytes& packet)
{
    Log(packet.size() + (packet.empty() ? 1 : 2));
    g_autoptr(GVariant) reply = g_dbus_proxy_call_sync(
        proxy, packet.empty() ? "CopyLogToUsb" : "SendRjpData",
        packet.empty()
            ? nullptr
            : g_variant_new("(i@au)", static_cast<int>(packet.size()), NewArray(packet, false)),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    int ret = 0;
    Check(reply != nullptr);
    g_variant_get(reply, "((i))", &ret);
    Check(ret != 0);
}

void FetchRaw(GDBusProxy* proxy)
{
    static ProtocolData_s record;
    Log(eventData.size() + 4);
    g_autoptr(GVariant) reply = g_dbus_proxy_call_sync(
        proxy, "GetSsProtocolData", nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    Check(reply != nullptr);
    g_autoptr(GVariant) data = g_variant_get_child_value(reply, 0);
    gsize count = 0;
    const auto* elements =
        static_cast<const guint32*>(g_variant_get_fixed_array(data, &count, sizeof(guint32)));
    record.iSize = static_cast<int>(elements[0]);
    for (gsize i = 1; i < count; ++i) {
        record.p_data[i - 1] = static_cast<unsigned char>(elements[i]);
    }
    Receive(&record);
}

// --- the floor: a relay in the bus's place, and a thread in the service's ---

void ReadAll(int socket, unsigned char* bytes, std::size_t length)
{
    for (ssize_t n = 0; length > 0; bytes += n, length -= static_cast<std::size_t>(n)) {
        n = read(socket, bytes, length);
        if (n <= 0) {
            _exit(EXIT_SUCCESS);  // the other end is gone
        }
    }
}

void WriteAll(int socket, const unsigned char* bytes, std::size_t length)
{
    for (ssize_t n = 0; length > 0; bytes += n, length -= static_cast<std::size_t>(n)) {
        n = write(socket, bytes, length);
        Check(n > 0);
    }
}

[[noreturn]] void Relay(int one, int other)
{
    static unsigned char bytes[65536];
    pollfd sockets[] = {{one, POLLIN, 0}, {other, POLLIN, 0}};
    for (;;) {
        poll(sockets, 2, -1);
        for (int i = 0; i < 2; ++i) {
            if (sockets[i].revents != 0) {
                const ssize_t n = read(sockets[i].fd, bytes, sizeof(bytes));
                if (n <= 0) {
                    _exit(EXIT_SUCCESS);
                }
                WriteAll(sockets[1 - i].fd, bytes, static_cast<std::size_t>(n));
            }
        }
    }
}

// A message begins with its own length and that of the answer.
struct Lengths {
    std::size_t message;
    std::size_t answer;
};

void Answer(int socket)
{
    for (Bytes bytes;;) {
        Lengths lengths{};
        ReadAll(socket, reinterpret_cast<unsigned char*>(&lengths), sizeof(lengths));
        bytes.resize(std::max(lengths.message, lengths.answer));
        ReadAll(socket, bytes.data(), lengths.message - sizeof(lengths));
        announced = Clock::now();
        WriteAll(socket, bytes.data(), lengths.answer);
    }
}

int floorSocket = -1;

void Exchange(Lengths lengths)
{
    static Bytes bytes;
    bytes.resize(std::max(lengths.message, lengths.answer));
    std::memcpy(bytes.data(), &lengths, sizeof(lengths));
    WriteAll(floorSocket, bytes.data(), lengths.message);
    ReadAll(floorSocket, bytes.data(), lengths.answer);
}

std::size_t LengthOf(GDBusMessage* message, GVariant* body)
{
    g_dbus_message_set_sender(message, ":1.23");
    g_dbus_message_set_serial(message, 1);
    if (body != nullptr) {
        g_dbus_message_set_body(message, body);
    }
    gsize length = 0;
    g_free(g_dbus_message_to_blob(message, &length, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    return length;
}

// What travels for a call of the service.
Lengths LengthsOf(const char* method, GVariant* arguments, GVariant* answer)
{
    g_autoptr(GDBusMessage) call =
        g_dbus_message_new_method_call(":1.23", kObjectPath, kInterface, method);
    const std::size_t length = LengthOf(call, arguments);
    g_autoptr(GDBusMessage) reply = g_dbus_message_new_method_reply(call);
    return {length, LengthOf(reply, answer)};
}

// --- the comparison ---

struct Side {
    std::function<Clock::duration()> sample;
    std::vector<double> times;
    double cpuTime = 0;

    void Take()
    {
        timespec before{};
        timespec after{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
        times.push_back(std::chrono::duration<double, std::micro>(sample()).count());
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
        cpuTime += static_cast<double>(after.tv_sec - before.tv_sec) * 1e6 +
                   static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e3;
    }
    double Median()
    {
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    }
    double CpuTime() const { return cpuTime / static_cast<double>(times.size()); }
};

// How long the work takes.
std::function<Clock::duration()> Timed(std::function<void()> work)
{
    return [work = std::move(work)] {
        const Clock::time_point start = Clock::now();
        work();
        return Clock::now() - start;
    };
}

// Returns whether the library is as fast as it is to be.
bool Compare(const char* name, int samples, Side library, Side raw, Side floor)
{
    Side* sides[] = {&library, &raw, &floor};
    std::sort(std::begin(sides), std::end(sides), std::less<>());
    for (int i = 0; i < samples; ++i) {
        for (Side* side : sides) {
            side->Take();
        }
        // Every order in turn, because a sample takes longer where the bus was idle before it.
        std::next_permutation(std::begin(sides), std::end(sides), std::less<>());
    }
    const double share = library.Median() / raw.Median();
    std::printf("| %s | %.0f µs | %.0f µs | %.2f | %.0f µs | %.0f µs, raw %.0f µs |\n", name,
                library.Median(), raw.Median(), share, floor.Median(), library.CpuTime(),
                raw.CpuTime());
    return share <= kMostTime;
}

}  // namespace

int main(int argc, char** argv)
{
    const int samples = argc > 1 ? std::atoi(argv[1]) : 5000;
    if (samples < 1) {
        std::puts("usage: call_benchmark [SAMPLES]    (5000 of each kind if not given)");
        return std::strcmp(argv[1], "--help") == 0 ? EXIT_SUCCESS : 2;
    }
    int toRelay[2];
    int toService[2];
    Check(socketpair(AF_UNIX, SOCK_STREAM, 0, toRelay) == 0 &&
          socketpair(AF_UNIX, SOCK_STREAM, 0, toService) == 0);
    if (fork() == 0) {
        close(toRelay[0]);
        close(toService[1]);
        Relay(toRelay[1], toService[0]);
    }
    close(toRelay[1]);
    close(toService[0]);
    floorSocket = toRelay[0];
    std::thread(Answer, toService[1]).detach();

    static const PrivateBus bus;
    serviceConnection = bus.Connect();
    std::thread(Serve).detach();
    while (automation_copy_log_to_usb() != 0) {
        std::this_thread::yield();
    }
    GDBusConnection* const library = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    GDBusConnection* const plain = bus.Connect();
    GDBusProxy* const proxy =
        g_dbus_proxy_new_sync(plain, G_DBUS_PROXY_FLAGS_NONE, nullptr, kBusName, kObjectPath,
                              kInterface, nullptr, nullptr);

    std::puts("| | library | raw GDBus | share | bare sockets | CPU time of the caller |");
    std::puts("|---|---|---|---|---|---|");
    bool good = true;
    for (const std::size_t length : {0, 16, 255, 4000}) {
        const Bytes packet(length, 0x5A);
        const auto call = [&] {
            Check((packet.empty() ? automation_copy_log_to_usb()
                                  : automation_send_rjp_data(packet.data(),
                                                             static_cast<unsigned>(length))) == 0);
        };
        GVariant* const answer = g_variant_new("((i))", 1);
        const Lengths lengths =
            packet.empty() ? LengthsOf("CopyLogToUsb", nullptr, answer)
                           : LengthsOf("SendRjpData",
                                       g_variant_new("(i@au)", 0, NewArray(packet, false)), answer);
        char name[64];
        std::snprintf(name, sizeof(name), "call with %zu bytes", length);
        good &=
            Compare(name, samples, {Timed(call), {}}, {Timed([&] { CallRaw(proxy, packet); }), {}},
                    {Timed([&] { Exchange(lengths); }), {}});
    }

    automation_register_callback_serial_source(Receive);
    g_signal_connect(proxy, "g-signal", G_CALLBACK(FetchRaw), nullptr);
    g_autoptr(GDBusMessage) signal =
        g_dbus_message_new_signal(kObjectPath, kInterface, "ss_handler");
    g_dbus_message_set_destination(signal, ":1.23");
    const std::size_t signalLength = LengthOf(signal, g_variant_new("(s)", "data"));
    const Lengths fetchLengths = LengthsOf("GetSsProtocolData", nullptr,
                                           g_variant_new("(@au(i))", NewArray(eventData, true), 1));
    const auto floorEvent = [&] {
        Exchange({sizeof(Lengths), signalLength});
        const Clock::time_point start = announced;
        Exchange(fetchLengths);
        return Clock::now() - start;
    };
    good &= Compare("event of 16 bytes", samples, {[&] { return Announce(library); }, {}},
                    {[&] { return Announce(plain); }, {}}, {floorEvent, {}});
    std::fflush(stdout);
    if (!good) {
        std::printf("more than %.2f times the time of raw GDBus\n", kMostTime);
    }
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
