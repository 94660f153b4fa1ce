#include "support/observed_library.h"

#include <dlfcn.h>

#include <cstring>
#include <utility>

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

template <typename Function>
static Function* Real(Function* /*replacement*/, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

extern "C" {

AutomationProxy* automation_proxy_proxy_new_for_bus_sync(GBusType type, GDBusProxyFlags flags,
                                                         const gchar* name, const gchar* path,
                                                         GCancellable* cancellable, GError** error)
{
    Note(Format("new proxy on bus %d with flags %d: %s %s", type, flags, name, path));
    std::exchange(library.beforeConstruction, [] {})();
    AutomationProxy* proxy = Real(automation_proxy_proxy_new_for_bus_sync, __func__)(
        type, flags, name, path, cancellable, error);
    if (flags == G_DBUS_PROXY_FLAGS_NONE) {
        library.proxy = proxy;
    }
    std::exchange(library.afterConstruction, [] {})();
    return proxy;
}

GVariant* g_dbus_proxy_call_sync(GDBusProxy* proxy, const gchar* method, GVariant* parameters,
                                 GDBusCallFlags flags, gint timeout, GCancellable* cancellable,
                                 GError** error)
{
    const gint limit = timeout != -1 ? timeout : g_dbus_proxy_get_default_timeout(proxy);
    if (flags != 0 || limit != -1) {
        Note(Format("call of %s: flags %d, timeout %d", method, flags, limit));
    }
    if (static_cast<void*>(proxy) != library.proxy) {
        Note(Format("past the shared proxy: %s", method));
    }
    return Real(g_dbus_proxy_call_sync, __func__)(proxy, method, parameters, flags, timeout,
                                                  cancellable, error);
}

gulong g_signal_connect_data(gpointer object, const gchar* signal, GCallback handler, gpointer data,
                             GClosureNotify notify, GConnectFlags flags)
{
    const gulong id =
        Real(g_signal_connect_data, __func__)(object, signal, handler, data, notify, flags);
    if (object != nullptr && object == library.proxy && std::strstr(signal, "-handler")) {
        library.connections.push_back(id);
        Note(Format("connected to %s, flags %d", signal, flags));
    }
    return id;
}

void g_signal_handler_disconnect(gpointer object, gulong id)
{
    if (object == library.proxy) {
        Note(Format("disconnected %lu", id));
    }
    Real(g_signal_handler_disconnect, __func__)(object, id);
}

}  // extern "C"
