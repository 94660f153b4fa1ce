// What a call costs through the library, and on raw GDBus with the same number of log lines,
// against the same service. The platform log does nothing. The column CPU is the calling thread's
// time.
#include <benchmark/benchmark.h>
#include <fa_api/automation_api.h>
#include <fa_api/automation_api_binding.h>
#include <fa_platform/dlog.h>

#include <thread>
#include <vector>

#include "support/private_bus.h"

int __dlog_print(int /*log_id*/, int /*priority*/, const char* /*tag*/, const char* /*format*/, ...)
{
    return 0;
}

namespace
{

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

// Serves for good, in a thread of its own.
void Serve(const PrivateBus& bus)
{
    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    GDBusConnection* connection = bus.Connect();
    AutomationProxy* service = automation_proxy_skeleton_new();
    g_signal_connect(service, "handle-copy-log-to-usb", G_CALLBACK(Accept), nullptr);
    g_signal_connect(service, "handle-send-rjp-data", G_CALLBACK(AcceptData), nullptr);
    g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(service), connection,
                                     "/KVFacAutoObj", nullptr);
    g_bus_own_name_on_connection(connection, "org.kavra.tv.automation-service",
                                 G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr, nullptr, nullptr);
    g_main_loop_run(g_main_loop_new(context, FALSE));
}

std::vector<unsigned char> Packet(const benchmark::State& state)
{
    return std::vector<unsigned char>(static_cast<std::size_t>(state.range(0)), 0x5A);
}

void Library(benchmark::State& state)
{
    const std::vector<unsigned char> packet = Packet(state);
    for ([[maybe_unused]] auto iteration : state) {
        const int result =
            packet.empty()
                ? automation_copy_log_to_usb()
                : automation_send_rjp_data(packet.data(), static_cast<unsigned int>(packet.size()));
        if (result != 0) {
            state.SkipWithError("the call failed");
        }
    }
}

void RawGDBus(benchmark::State& state)
{
    const std::vector<unsigned char> packet = Packet(state);
    static auto* volatile print = &__dlog_print;
    static GDBusProxy* const proxy = g_dbus_proxy_new_for_bus_sync(
        G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_NONE, nullptr, "org.kavra.tv.automation-service",
        "/KVFacAutoObj", "org.kavra.tv.automationservice", nullptr, nullptr);
    for ([[maybe_unused]] auto iteration : state) {
        // As many lines as the library logs; through a pointer, for that hides their emptiness.
        for (std::size_t line = 0; line < packet.size() + (packet.empty() ? 1 : 2); ++line) {
            print(2, 3, "FA_API", "%s: %s(%d) > data[%x]%s", "packets", __func__, __LINE__, 0x5A,
                  "\n");
        }
        GVariant* arguments = packet.empty() ? g_variant_new("()") : nullptr;
        if (!packet.empty()) {
            const std::vector<guint32> elements(packet.begin(), packet.end());
            arguments =
                g_variant_new("(i@au)", static_cast<int>(packet.size()),
                              g_variant_new_fixed_array(G_VARIANT_TYPE_UINT32, elements.data(),
                                                        elements.size(), sizeof(guint32)));
        }
        g_autoptr(GVariant) reply =
            g_dbus_proxy_call_sync(proxy, packet.empty() ? "CopyLogToUsb" : "SendRjpData",
                                   arguments, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        int ret = 0;
        if (reply != nullptr) {
            g_variant_get(reply, "((i))", &ret);
        }
        if (ret == 0) {
            state.SkipWithError("the call failed");
        }
    }
}

BENCHMARK(Library)->Arg(0)->Arg(16)->Arg(255)->Arg(4000);
BENCHMARK(RawGDBus)->Arg(0)->Arg(16)->Arg(255)->Arg(4000);

}  // namespace

int main(int argc, char** argv)
{
    static const PrivateBus bus;
    std::thread(Serve, std::cref(bus)).detach();
    while (automation_copy_log_to_usb() != 0) {
        std::this_thread::yield();
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
