#include "automation_interface/connection.h"

#include <mutex>

#include "common/log.h"

std::atomic<AutomationProxy*> AutomationProxyPtr{nullptr};

namespace
{

constexpr char kBusName[] = "org.kavra.tv.automation-service";
constexpr char kObjectPath[] = "/KVFacAutoObj";

std::atomic<bool> bIpcConnected{false};

// Guards the making of the shared proxy and the two values below.
std::mutex connectionMutex;
// Only the library iterates this context, so what the bus tells waits here for the next look.
GMainContext* ownerContext = nullptr;
// The service's unique name on the bus, as of the last look; null while nobody is the service.
char* owner = nullptr;

void OnOwnerChanged(GDBusConnection* /*bus*/, const char* /*sender*/, const char* /*path*/,
                    const char* /*interface*/, const char* /*signal*/, GVariant* names,
                    gpointer /*data*/)
{
    const char* newOwner = nullptr;
    g_variant_get(names, "(&s&s&s)", nullptr, nullptr, &newOwner);
    g_free(owner);
    owner = *newOwner != '\0' ? g_strdup(newOwner) : nullptr;
}

// A look polls nothing, because no source of the context has a descriptor, and the system call
// would be most of what a look costs.
int SkipPoll(GPollFD* /*descriptors*/, unsigned int /*count*/, int /*timeout*/)
{
    return 0;
}

// Costs nothing on the bus, because every proxy of the name asks for the very same signal.
void WatchOwner(GDBusConnection* bus)
{
    if (ownerContext != nullptr) {
        return;
    }
    // A bus that goes away makes calls fail; it must not end the application.
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    ownerContext = g_main_context_new();
    g_main_context_set_poll_func(ownerContext, SkipPoll);
    g_main_context_push_thread_default(ownerContext);
    g_dbus_connection_signal_subscribe(bus, "org.freedesktop.DBus", "org.freedesktop.DBus",
                                       "NameOwnerChanged", "/org/freedesktop/DBus", kBusName,
                                       G_DBUS_SIGNAL_FLAGS_NONE, OnOwnerChanged, nullptr, nullptr);
    g_main_context_pop_thread_default(ownerContext);
}

// A proxy that sends to `name` and hears no signals.
AutomationProxy* NewProxyForOneCall(const char* name, GError** error)
{
    constexpr auto kCallsOnly = static_cast<GDBusProxyFlags>(
        G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES | G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS |
        G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START_AT_CONSTRUCTION);
    // What it leaves to be freed is freed by the next look, whatever the application iterates.
    g_main_context_push_thread_default(ownerContext);
    AutomationProxy* proxy = automation_proxy_proxy_new_for_bus_sync(
        G_BUS_TYPE_SYSTEM, kCallsOnly, name, kObjectPath, nullptr, error);
    g_main_context_pop_thread_default(ownerContext);
    return proxy;
}

}  // namespace

int _automation_init_service()
{
    const std::lock_guard<std::mutex> lock(connectionMutex);
    if (AutomationProxyPtr != nullptr) {
        return 0;
    }

    // The watch begins before the proxy asks for the owner, so that no change falls in between.
    // A bus that is missing is reported by the constructor.
    g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    if (bus != nullptr) {
        WatchOwner(bus);
    }
    g_autoptr(GError) error = nullptr;
    AutomationProxy* proxy = automation_proxy_proxy_new_for_bus_sync(
        G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_NONE, kBusName, kObjectPath, nullptr, &error);
    AutomationProxyPtr = proxy;
    if (error != nullptr) {
        FA_LOG(fa::kError, "ERR: Failed to create proxy: %s", error->message);
        return -1;
    }
    WatchOwner(g_dbus_proxy_get_connection(G_DBUS_PROXY(proxy)));  // the bus came up in between
    owner = g_dbus_proxy_get_name_owner(G_DBUS_PROXY(proxy));
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

AutomationProxy* ProxyForCall(GError** error)
{
    AutomationProxy* shared = AutomationProxyPtr;
    if (shared == nullptr) {
        return nullptr;
    }
    // What the shared proxy knows is asked first, so that it is never newer than the look.
    g_autofree char* known = g_dbus_proxy_get_name_owner(G_DBUS_PROXY(shared));
    const std::lock_guard<std::mutex> lock(connectionMutex);
    while (g_main_context_iteration(ownerContext, FALSE)) {
    }
    // A proxy that knows of no owner addresses the name itself, and the bus may start the service.
    if (known == nullptr || g_strcmp0(known, owner) == 0) {
        return AUTOMATION_PROXY(g_object_ref(shared));
    }
    // The exception: the shared proxy sends to a process that is the service no longer, because a
    // proxy learns of that only while the application iterates its main context, and not every
    // application does.
    return NewProxyForOneCall(owner != nullptr ? owner : kBusName, error);
}

}  // namespace fa
