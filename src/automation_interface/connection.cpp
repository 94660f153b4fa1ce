#include "automation_interface/connection.h"

#include <mutex>

#include "common/log.h"

std::atomic<AutomationProxy*> AutomationProxyPtr{nullptr};

namespace
{

constexpr char kBusName[] = "org.kavra.tv.automation-service";
constexpr char kObjectPath[] = "/KVFacAutoObj";

std::mutex connectionMutex;
std::atomic<bool> bIpcConnected{false};

// The shared proxy sends to the owner of the service's name that it last heard of, and hears of a
// new one only while the application iterates its main context, which not every application does.
// This second proxy makes the calls: it lives in a context that the library iterates itself, so it
// always knows; while the name has no owner it addresses the name, so that the bus can start the
// service.
GMainContext* ownerContext = nullptr;
std::atomic<AutomationProxy*> ownerProxy{nullptr};

// Returns the second proxy, or null with an error.
AutomationProxy* FollowOwner(GDBusConnection* connection, GError** error)
{
    if (ownerContext == nullptr) {
        ownerContext = g_main_context_new();
    }
    g_main_context_push_thread_default(ownerContext);
    constexpr auto kOwnerOnly = static_cast<GDBusProxyFlags>(
        G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES | G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS |
        G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START_AT_CONSTRUCTION);
    AutomationProxy* follower = automation_proxy_proxy_new_sync(connection, kOwnerOnly, kBusName,
                                                                kObjectPath, nullptr, error);
    g_main_context_pop_thread_default(ownerContext);
    return follower;
}

}  // namespace

int _automation_init_service()
{
    const std::lock_guard<std::mutex> lock(connectionMutex);
    if (AutomationProxyPtr != nullptr) {
        return 0;
    }

    g_autoptr(GError) error = nullptr;
    g_autoptr(AutomationProxy) proxy = automation_proxy_proxy_new_for_bus_sync(
        G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_NONE, kBusName, kObjectPath, nullptr, &error);
    if (error == nullptr) {
        GDBusConnection* connection = g_dbus_proxy_get_connection(G_DBUS_PROXY(proxy));
        // A bus that goes away makes calls fail; it must not end the application.
        g_dbus_connection_set_exit_on_close(connection, FALSE);
        ownerProxy = FollowOwner(connection, &error);
    }
    if (error != nullptr) {
        FA_LOG(fa::kError, "ERR: Failed to create proxy: %s", error->message);
        return -1;
    }

    AutomationProxyPtr = g_steal_pointer(&proxy);
    FA_LOG(fa::kInfo, "Proxy created: %p", static_cast<void*>(AutomationProxyPtr.load()));
    return 0;
}

void _automation_check_ipc_connection()
{
    if (bIpcConnected) {
        return;
    }
    if (_automation_init_service() == 0) {
        bIpcConnected = true;
    }
}

namespace fa
{

AutomationProxy* ProxyForCall()
{
    AutomationProxy* follower = ownerProxy;
    if (follower != nullptr) {
        while (g_main_context_iteration(ownerContext, FALSE)) {
        }
    }
    return follower;
}

}  // namespace fa
