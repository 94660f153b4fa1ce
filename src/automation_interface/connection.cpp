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
// This second proxy lives in a context that the library iterates itself, so it always knows.
GMainContext* ownerContext = nullptr;
std::atomic<AutomationProxy*> ownerProxy{nullptr};

void FollowOwner(GDBusConnection* connection)
{
    ownerContext = g_main_context_new();
    g_main_context_push_thread_default(ownerContext);
    constexpr auto kOwnerOnly = static_cast<GDBusProxyFlags>(
        G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES | G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS |
        G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START);
    ownerProxy = automation_proxy_proxy_new_sync(connection, kOwnerOnly, kBusName, kObjectPath,
                                                 nullptr, nullptr);
    g_main_context_pop_thread_default(ownerContext);
}

}  // namespace

int _automation_init_service()
{
    const std::lock_guard<std::mutex> lock(connectionMutex);
    if (AutomationProxyPtr != nullptr) {
        return 0;
    }

    g_autoptr(GError) error = nullptr;
    AutomationProxy* proxy = automation_proxy_proxy_new_for_bus_sync(
        G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_NONE, kBusName, kObjectPath, nullptr, &error);
    if (error != nullptr) {
        FA_LOG(fa::kError, "ERR: Failed to create proxy: %s", error->message);
        return -1;
    }

    GDBusConnection* connection = g_dbus_proxy_get_connection(G_DBUS_PROXY(proxy));
    // A bus that goes away makes calls fail; it must not end the application.
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    FollowOwner(connection);
    AutomationProxyPtr = proxy;
    FA_LOG(fa::kInfo, "Proxy created: %p", static_cast<void*>(proxy));
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
    AutomationProxy* shared = AutomationProxyPtr;
    AutomationProxy* current = ownerProxy;
    if (shared == nullptr || current == nullptr) {
        return shared;
    }
    while (g_main_context_iteration(ownerContext, FALSE)) {
    }
    g_autofree char* owner = g_dbus_proxy_get_name_owner(G_DBUS_PROXY(current));
    g_autofree char* known = g_dbus_proxy_get_name_owner(G_DBUS_PROXY(shared));
    return owner != nullptr && g_strcmp0(owner, known) != 0 ? current : shared;
}

}  // namespace fa
