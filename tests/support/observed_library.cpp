#include "support/observed_library.h"

#include <dlfcn.h>

#include "support/trace.h"

ObservedLibrary library;

static const std::string kNewProxy =
    "new proxy on bus 1 with flags 0: org.kavra.tv.automation-service /KVFacAutoObj\n";

const std::string kNoBus = kNewProxy +
                           "E connection _automation_init_service: ERR: Failed to create proxy: "
                           "Could not connect: No such file or directory\n";

std::string Connected()
{
    return kNewProxy + Format("I connection _automation_init_service: Proxy created: %p\n",
                              static_cast<void*>(library.proxy));
}

// The function that this program's takes the place of.
#define REAL(name) reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

AutomationProxy* automation_proxy_proxy_new_for_bus_sync(GBusType type, GDBusProxyFlags flags,
                                                         const gchar* name, const gchar* path,
                                                         GCancellable* cancellable, GError** error)
{
    Note(Format("new proxy on bus %d with flags %d: %s %s", type, flags, name, path));
    std::exchange(library.beforeConstruction, [] {})();
    AutomationProxy* proxy =
        REAL(automation_proxy_proxy_new_for_bus_sync)(type, flags, name, path, cancellable, error);
    if (flags == G_DBUS_PROXY_FLAGS_NONE) {
        library.proxy = proxy;
    } else {
        g_object_weak_ref(
            G_OBJECT(proxy), [](gpointer, GObject*) { Note("proxy released"); }, nullptr);
    }
    std::exchange(library.afterConstruction, [] {})();
    return proxy;
}

gulong g_signal_connect_data(gpointer object, const gchar* signal, GCallback handler, gpointer data,
                             GClosureNotify notify, GConnectFlags flags)
{
    const gulong id = REAL(g_signal_connect_data)(object, signal, handler, data, notify, flags);
    if (object != nullptr && object == library.proxy && std::strstr(signal, "-handler")) {
        library.connections.push_back(id);
    }
    return id;
}
