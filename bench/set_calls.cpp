// Calls for bench/set_benchmark, and a service to compare the simulated set with:
//
//     set_calls serve     the service, which does nothing but answer
//     set_calls COUNT     calls the service of this bus so often; prints the microseconds of a
//     call,
//                         those of the service's processor, and the service's memory in KiB
#include <fa_api/automation_api.h>
#include <fa_api/automation_api_binding.h>
#include <fa_platform/dlog.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "resident_memory.h"

// Takes the platform log's place: nobody reads so many lines.
int __dlog_print(int, int, const char*, const char*, ...)
{
    return 0;
}

namespace
{

constexpr char kBusName[] = "org.kavra.tv.automation-service";

GDBusConnection* Connect()
{
    g_autoptr(GError) error = nullptr;
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (connection == nullptr) {
        std::puts(error->message);
        std::exit(EXIT_FAILURE);
    }
    return connection;
}

gboolean Accept(AutomationProxy* service, GDBusMethodInvocation* invocation, int, int)
{
    automation_proxy_complete_execute_command(service, invocation, g_variant_new("(i)", 1));
    return TRUE;
}

int Serve()
{
    GDBusConnection* connection = Connect();
    AutomationProxy* service = automation_proxy_skeleton_new();
    g_signal_connect(service, "handle-execute-command", G_CALLBACK(Accept), nullptr);
    g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(service), connection,
                                     "/KVFacAutoObj", nullptr);
    g_bus_own_name_on_connection(connection, kBusName, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr,
                                 nullptr, nullptr, nullptr);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return EXIT_SUCCESS;
}

pid_t ServicePid()
{
    g_autoptr(GVariant) pid = nullptr;
    while (pid == nullptr) {
        pid = g_dbus_connection_call_sync(Connect(), "org.freedesktop.DBus", "/",
                                          "org.freedesktop.DBus", "GetConnectionUnixProcessID",
                                          g_variant_new("(s)", kBusName), G_VARIANT_TYPE("(u)"),
                                          G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        g_usleep(1000);
    }
    guint32 number = 0;
    g_variant_get(pid, "(u)", &number);
    return static_cast<pid_t>(number);
}

// Of the process, user's and system's together, in microseconds.
double ProcessorTime(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string word;
    double ticks = 0;
    for (int field = 1; file >> word; ++field) {
        if (field == 14 || field == 15) {
            ticks += std::stod(word);
        }
    }
    return ticks * 1e6 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "serve") == 0) {
        return Serve();
    }
    const long count = argc == 2 ? std::atol(argv[1]) : 0;
    if (count <= 0) {
        std::puts("usage: set_calls serve | COUNT");
        return 2;
    }
    using Clock = std::chrono::steady_clock;
    const pid_t service = ServicePid();
    const double before = ProcessorTime(service);
    const Clock::time_point begin = Clock::now();
    for (long i = 0; i < count; ++i) {
        if (automation_execute_command(0x10, 1) != 0) {
            std::puts("a call failed");
            return EXIT_FAILURE;
        }
    }
    const std::chrono::duration<double, std::micro> time = Clock::now() - begin;
    const auto calls = static_cast<double>(count);
    std::printf("%.1f %.1f %ld\n", time.count() / calls, (ProcessorTime(service) - before) / calls,
                ResidentKilobytes(service));
}
