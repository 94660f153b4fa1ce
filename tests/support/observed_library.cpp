#include "support/observed_library.h"

#include <dlfcn.h>

#include <cstring>
#include <mutex>
#include <utility>

#include "support/trace.h"

ObservedLibrary library;

const std::string kNoBus =
    "E connection _automation_init_service: ERR: Failed to create proxy: "
    "Could not connect: No such file or directory\n";

std::string Connected()
{
    return Format("I connection _automation_init_service: Proxy created: %p\n",
                  static_cast<void*>(library.proxy));
}

namespace
{

std::mutex mutex;

template <typename Function>
Function* Real(Function* /*replacement*/, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

AutomationProxy* automation_proxy_proxy_new_for_bus_sync(GBusType type, GDBusProxyFlags flags,
                                                         const gchar* name, const gchar* path,
                                                         GCancellable* cancellable, GError** error)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        library.constructions.emplace_back(name);
    }
    const bool shared = flags == G_DBUS_PROXY_FLAGS_NONE;
    if (type != G_BUS_TYPE_SYSTEM || cancellable != nullptr || *error != nullptr ||
        (shared && std::strcmp(name, "org.kavra.tv.automation-service") != 0) ||
        std::strcmp(path, "/KVFacAutoObj") != 0) {
        Note(Format("construction of another proxy: %d %d %s %s", type, flags, name, path));
    }
    std::exchange(library.beforeConstruction, [] {})();
    AutomationProxy* proxy = Real(automation_proxy_proxy_new_for_bus_sync, __func__)(
        type, flags, name, path, cancellable, error);
    if (shared) {
        library.proxy = proxy;
    }
    std::exchange(library.afterConstruction, [] {})();
    return proxy;
}

GVariant* g_dbus_proxy_call_sync(GDBusProxy* proxy, const gchar* method, GVariant* parameters,
                                 GDBusCallFlags flags, gint timeout, GCancellable* cancellable,
                                 GError** error)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        library.called.insert(proxy);
    }
    if (flags != 0 || timeout != -1 || cancellable != nullptr) {
        Note(Format("call of %s: flags %d, timeout %d", method, flags, timeout));
    }
    if (static_cast<void*>(proxy) != library.proxy) {
        Note(std::string("past the shared proxy: ") + method);
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
        library.connection = id;
        Note(Format("connected to %s", signal));
        if (data != nullptr || notify != nullptr || flags != 0) {
            Note(Format("with data %p, flags %d", data, flags));
        }
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
