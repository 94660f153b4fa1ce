// Data that arrives on the serial protocols: one mechanism, and a row of names and state for each
// of the three protocols.
#include <fa_api/automation_api.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "automation_interface/call_frame.h"

ProtocolCallback_fp cbfp_ss = nullptr;
ProtocolCallback_fp cbfp_rjp = nullptr;
ProtocolCallback_fp cbfp_ep = nullptr;

static_assert(sizeof(ProtocolData_s) == 260 && offsetof(ProtocolData_s, p_data) == 4,
              "applications read the record through a pointer");

namespace
{

ProtocolData_s ssData;
ProtocolData_s rjpData;
ProtocolData_s epData;

std::atomic<unsigned int> ulSigHandlerSS{0};
std::atomic<unsigned int> ulSigHandlerRJP{0};
std::atomic<unsigned int> ulSigHandlerEP{0};

// What is different between the protocols: functions and state, and their names in log lines.
struct Protocol {
    struct {
        const char* function;
        const char* text;
        const char* argument;
    } registration;
    struct {
        const char* function;
        const char* text;
    } unregistration;
    struct {
        const char* ofProxy;
        const char* ofBus;
        GCallback handler;
    } signal;
    struct {
        fa::CallNames names;
        decltype(&automation_proxy_call_get_ss_protocol_data_sync) call;
        const char* method;
    } fetch;
    struct {
        const char* name;
        ProtocolData_s* data;
    } record;
    struct {
        const char* name;
        ProtocolCallback_fp* function;
    } callback;
    struct {
        const char* name;
        std::atomic<unsigned int>* id;
    } connection;
};

constexpr Protocol kSs = {
    /* registration */ {"automation_register_callback_serial_source",
                        "automation_register_callback_serial_source", "callback_fp_ss"},
    /* unregistration */
    {"automation_unregister_callback_serial_source",
     "automation_unregister_callback_serial_source"},
    /* signal */ {"ss-handler", "ss_handler", _autoamtion_signal_handler_ss},
    /* fetch */
    {{"_autoamtion_signal_handler_ss" /* sic */, "automation_proxy_call_get_ss_protocol_data_sync",
      "get_ss_protocol_data_sync", fa::kError},
     automation_proxy_call_get_ss_protocol_data_sync,
     "GetSsProtocolData"},
    /* record */ {"ssData", &ssData},
    /* callback */ {"cbfp_ss", &cbfp_ss},
    /* connection */ {"ulSigHandlerSS", &ulSigHandlerSS},
};

constexpr Protocol kRjp = {
    /* registration */ {"automation_register_callback_rjp_protocol",
                        "automation_register_callback_rjp_protocol", "callback_fp_rjp"},
    /* unregistration */
    {"automation_unregister_callback_rjp_protocol", "automation_unregister_callback_rjp_protocol"},
    /* signal */ {"rjp-handler", "rjp_handler", _autoamtion_signal_handler_rjp},
    /* fetch */
    {{"_autoamtion_signal_handler_rjp" /* sic */,
      "automation_proxy_call_get_rjp_protocol_data_sync", "get_rjp_protocol_data_sync", fa::kError},
     automation_proxy_call_get_rjp_protocol_data_sync,
     "GetRjpProtocolData"},
    /* record */ {"rjpData", &rjpData},
    /* callback */ {"cbfp_rjp", &cbfp_rjp},
    /* connection */ {"ulSigHandlerRJP", &ulSigHandlerRJP},
};

constexpr Protocol kEp = {
    /* registration */ {"automation_register_callback_ep_protocol",
                        "register_callback_ep_protocol" /* sic */, "callback_fp_ep"},
    /* unregistration */
    {"automation_unregister_callback_ep_protocol", "unregister_callback_ep_protocol" /* sic */},
    /* signal */ {"ep-handler", "ep_handler", _autoamtion_signal_handler_ep},
    /* fetch */
    {{"_autoamtion_signal_handler_ep" /* sic */, "automation_proxy_call_get_ep_protocol_data_sync",
      "get_ep_protocol_data_sync", fa::kError},
     automation_proxy_call_get_ep_protocol_data_sync,
     "GetEpProtocolData"},
    /* record */ {"epData", &epData},
    /* callback */ {"cbfp_ep", &cbfp_ep},
    /* connection */ {"ulSigHandlerEP", &ulSigHandlerEP},
};

// Addresses in log lines are the low 32 bits.
template <typename Pointer>
unsigned int Address(Pointer pointer)
{
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pointer));
}

// The globals are plain pointers that applications may read, so they are atomic by access.
void StoreCallback(const Protocol& protocol, ProtocolCallback_fp callback)
{
    __atomic_store_n(protocol.callback.function, callback, __ATOMIC_SEQ_CST);
}

int Register(const Protocol& protocol, ProtocolCallback_fp callback)
{
    const char* function = protocol.registration.function;
    FA_LOG_FOR(function, fa::kDebug, "%s %s[%x]", protocol.registration.text,
               protocol.registration.argument, Address(callback));
    if (callback == nullptr) {
        return -1;
    }
    _automation_check_ipc_connection();
    StoreCallback(protocol, callback);
    AutomationProxy* proxy = AutomationProxyPtr;
    const auto id = proxy == nullptr
                        ? 0U
                        : static_cast<unsigned int>(g_signal_connect(
                              proxy, protocol.signal.ofProxy, protocol.signal.handler, nullptr));
    *protocol.connection.id = id;
    if (id == 0) {
        StoreCallback(protocol, nullptr);
        FA_LOG_FOR(function, fa::kInfo, "g_signal_connect return Fails %s[%x]",
                   protocol.connection.name, id);
        return -1;
    }
    FA_LOG_FOR(function, fa::kInfo, "g_signal_connect return Success %s[%x]",
               protocol.connection.name, id);
    return 0;
}

int Unregister(const Protocol& protocol)
{
    const char* function = protocol.unregistration.function;
    FA_LOG_FOR(function, fa::kInfo, "%s AutomationProxyPtr[%x] %s[%d]",
               protocol.unregistration.text, Address(AutomationProxyPtr.load()),
               protocol.connection.name, static_cast<int>(protocol.connection.id->load()));
    _automation_check_ipc_connection();
    StoreCallback(protocol, nullptr);
    AutomationProxy* proxy = AutomationProxyPtr;
    const unsigned int id = *protocol.connection.id;
    if (proxy != nullptr && id != 0) {
        g_signal_handler_disconnect(proxy, id);
        FA_LOG_FOR(function, fa::kInfo, "g_signal_handler_disconnect AutomationProxyPtr[%x] %s[%d]",
                   Address(proxy), protocol.connection.name, static_cast<int>(id));
    }
    return 0;
}

// Copies fetched data, the size first, into the protocol's record.
void StoreData(const Protocol& protocol, GVariant* data)
{
    const char* function = protocol.fetch.names.function;
    ProtocolData_s& record = *protocol.record.data;
    gsize count = 0;
    const auto* elements =
        static_cast<const guint32*>(g_variant_get_fixed_array(data, &count, sizeof(guint32)));

    record.iSize = count == 0 ? 0 : static_cast<int>(elements[0]);
    FA_LOG_FOR(function, fa::kInfo, "%s.iSize[%d]", protocol.record.name, record.iSize);

    const gsize arrived = count == 0 ? 0 : count - 1;
    const gsize stored = std::min(arrived, sizeof(record.p_data));
    for (gsize i = 0; i < stored; ++i) {
        record.p_data[i] = static_cast<unsigned char>(elements[i + 1]);
        FA_LOG_FOR(function, fa::kDebug, "%s.p_data[0X%02X]", protocol.record.name,
                   record.p_data[i]);
    }
    if (arrived > stored) {
        FA_LOG_FOR(function, fa::kError, "%s is full, %zu bytes dropped", protocol.record.name,
                   arrived - stored);
    }
}

void HandleSignal(const Protocol& protocol)
{
    const char* function = protocol.fetch.names.function;
    FA_LOG_FOR(function, fa::kInfo, "Signal Rx %s", protocol.signal.ofBus);
    _automation_check_ipc_connection();

    g_autoptr(GVariant) data = nullptr;
    g_autoptr(GVariant) ret = nullptr;
    g_autoptr(GError) error = nullptr;
    g_autoptr(AutomationProxy) proxy = fa::ProxyForCall(&error);
    if (proxy == nullptr || !protocol.fetch.call(proxy, &data, &ret, nullptr, &error)) {
        fa::LogFailedCall(protocol.fetch.names, error);
        return;
    }
    gint32 retVal = 0;
    g_variant_get(ret, "(i)", &retVal);
    if (retVal == 0) {
        FA_LOG_FOR(function, fa::kError, "%s Fails retVal[%d]", protocol.fetch.method, retVal);
        return;
    }
    FA_LOG_FOR(function, fa::kDebug, "%s Success retVal[%d]", protocol.fetch.method, retVal);
    StoreData(protocol, data);

    const ProtocolCallback_fp callback =
        __atomic_load_n(protocol.callback.function, __ATOMIC_SEQ_CST);
    if (callback == nullptr) {
        FA_LOG_FOR(function, fa::kError, "%s is NULL [%x], call back NG", protocol.callback.name,
                   0U);
        return;
    }
    FA_LOG_FOR(function, fa::kInfo, "%s is not NULL [%x], call back OK", protocol.callback.name,
               Address(callback));
    callback(protocol.record.data);
}

}  // namespace

int automation_register_callback_serial_source(ProtocolCallback_fp callback_fp_ss)
{
    return Register(kSs, callback_fp_ss);
}

int automation_register_callback_rjp_protocol(ProtocolCallback_fp callback_fp_rjp)
{
    return Register(kRjp, callback_fp_rjp);
}

int automation_register_callback_ep_protocol(ProtocolCallback_fp callback_fp_ep)
{
    return Register(kEp, callback_fp_ep);
}

int automation_unregister_callback_serial_source(void)
{
    return Unregister(kSs);
}

int automation_unregister_callback_rjp_protocol(void)
{
    return Unregister(kRjp);
}

int automation_unregister_callback_ep_protocol(void)
{
    return Unregister(kEp);
}

void _autoamtion_signal_handler_ss(void)
{
    HandleSignal(kSs);
}

void _autoamtion_signal_handler_rjp(void)
{
    HandleSignal(kRjp);
}

void _autoamtion_signal_handler_ep(void)
{
    HandleSignal(kEp);
}
