#include "bus/control.h"

#include <algorithm>
#include <iterator>

#include "bus/contract.h"
#include "bus/service.h"
#include "simulator_control.h"

namespace fa::set
{

namespace
{

// Each takes the arguments and returns the reply, or null for an empty one.
GVariant* SetFault(Service& service, GVariant* arguments)
{
    const char* target = nullptr;
    const char* kind = nullptr;
    gint32 value = 0;
    guint32 times = 0;
    g_variant_get(arguments, "(&s&siu)", &target, &kind, &value, &times);
    service.SetFault({target, kind, value, times});
    return nullptr;
}

GVariant* ClearFaults(Service& service, GVariant* /*arguments*/)
{
    service.ClearFaults();
    return nullptr;
}

GVariant* AddRules(Service& service, GVariant* arguments)
{
    const char* json = nullptr;
    g_variant_get(arguments, "(&s)", &json);
    service.AddRules("rules", json);
    return nullptr;
}

GVariant* ClearRules(Service& service, GVariant* /*arguments*/)
{
    service.ClearRules();
    return nullptr;
}

GVariant* GetCalls(Service& service, GVariant* arguments)
{
    const char* name = nullptr;
    g_variant_get(arguments, "(&s)", &name);
    const std::string method = name;
    if (!method.empty() && FindMethod(method) == nullptr) {
        throw Failure("there is no method \"" + method + "\"");
    }
    const std::string wanted = method.empty() ? "" : "\"method\":\"" + method + "\"";
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("as"));
    for (const std::string& call : service.Calls().Calls()) {
        if (call.find(wanted) != std::string::npos) {
            g_variant_builder_add(&builder, "s", call.c_str());
        }
    }
    return g_variant_new("(as)", &builder);
}

GVariant* ForgetCalls(Service& service, GVariant* /*arguments*/)
{
    service.Calls().ForgetCalls();
    return nullptr;
}

GVariant* WritePacket(Service& service, GVariant* arguments)
{
    const char* line = nullptr;
    g_autoptr(GVariant) bytes = nullptr;
    g_variant_get(arguments, "(&s@ay)", &line, &bytes);
    gsize count = 0;
    const auto* elements =
        static_cast<const guint8*>(g_variant_get_fixed_array(bytes, &count, sizeof(guint8)));
    service.WritePacket(line, Bytes(elements, elements + count));
    return nullptr;
}

const struct {
    const char* method;
    GVariant* (*handle)(Service& service, GVariant* arguments);
} kRequests[] = {
    {"SetFault", SetFault},       {"ClearFaults", ClearFaults}, {"AddRules", AddRules},
    {"ClearRules", ClearRules},   {"GetCalls", GetCalls},       {"ForgetCalls", ForgetCalls},
    {"WritePacket", WritePacket},
};

}  // namespace

GDBusInterfaceInfo* ControlInterface()
{
    return simulator_control_interface_info();
}

void Control(Service& service, const Presence::Invocation& invocation)
{
    const std::string method = g_dbus_method_invocation_get_method_name(invocation.get());
    const auto* const request = std::find_if(std::begin(kRequests), std::end(kRequests),
                                             [&](const auto& row) { return method == row.method; });
    auto* const answered = G_DBUS_METHOD_INVOCATION(g_object_ref(invocation.get()));
    try {
        GVariant* reply =
            request->handle(service, g_dbus_method_invocation_get_parameters(invocation.get()));
        g_dbus_method_invocation_return_value(answered, reply);
    } catch (const Failure& failure) {
        g_dbus_method_invocation_return_dbus_error(
            answered, "org.freedesktop.DBus.Error.InvalidArgs", failure.what());
    }
}

}  // namespace fa::set
