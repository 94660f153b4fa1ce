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

struct Protocol {
    const char* registerFunction;
    const char* registerText;
    const char* argumentName;
    const char* unregisterFunction;
    const char* unregisterText;
    const char* proxySignal;
    const char* busSignal;
    fa::CallNames fetchNames;
    decltype(&automation_proxy_call_get_ss_protocol_data_sync) fetch;
    const char* methodName;
    GCallback handler;
    const char* recordName;
    ProtocolData_s* record;
    const char* callbackName;
    ProtocolCallback_fp* callback;
    const char* idName;
    std::atomic<unsigned int>* id;
};

constexpr Protocol kSs = {
    "automation_register_callback_serial_source",
    "automation_register_callback_serial_source",
    "callback_fp_ss",
    "automation_unregister_callback_serial_source",
    "automation_unregister_callback_serial_source",
    "ss-handler",
    "ss_handler",
    {"_autoamtion_signal_handler_ss", "automation_proxy_call_get_ss_protocol_data_sync",
     "get_ss_protocol_data_sync", fa::kError},
    automation_proxy_call_get_ss_protocol_data_sync,
    "GetSsProtocolData",
    _autoamtion_signal_handler_ss,
    "ssData",
    &ssData,
    "cbfp_ss",
    &cbfp_ss,
    "ulSigHandlerSS",
    &ulSigHandlerSS,
};

constexpr Protocol kRjp = {
    "automation_register_callback_rjp_protocol",
    "automation_register_callback_rjp_protocol",
    "callback_fp_rjp",
    "automation_unregister_callback_rjp_protocol",
    "automation_unregister_callback_rjp_protocol",
    "rjp-handler",
    "rjp_handler",
    {"_autoamtion_signal_handler_rjp", "automation_proxy_call_get_rjp_protocol_data_sync",
     "get_rjp_protocol_data_sync", fa::kError},
    automation_proxy_call_get_rjp_protocol_data_sync,
    "GetRjpProtocolData",
    _autoamtion_signal_handler_rjp,
    "rjpData",
    &rjpData,
    "cbfp_rjp",
    &cbfp_rjp,
    "ulSigHandlerRJP",
    &ulSigHandlerRJP,
};

constexpr Protocol kEp = {
    "automation_register_callback_ep_protocol",
    "register_callback_ep_protocol",
    "callback_fp_ep",
    "automation_unregister_callback_ep_protocol",
    "unregister_callback_ep_protocol",
    "ep-handler",
    "ep_handler",
    {"_autoamtion_signal_handler_ep", "automation_proxy_call_get_ep_protocol_data_sync",
     "get_ep_protocol_data_sync", fa::kError},
    automation_proxy_call_get_ep_protocol_data_sync,
    "GetEpProtocolData",
    _autoamtion_signal_handler_ep,
    "epData",
    &epData,
    "cbfp_ep",
    &cbfp_ep,
    "ulSigHandlerEP",
    &ulSigHandlerEP,
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
    __atomic_store_n(protocol.callback, callback, __ATOMIC_SEQ_CST);
}

int Register(const Protocol& protocol, ProtocolCallback_fp callback)
{
    const char* function = protocol.registerFunction;
    FA_LOG_FOR(function, fa::kDebug, "%s %s[%x]", protocol.registerText, protocol.argumentName,
               Address(callback));
    if (callback == nullptr) {
        return -1;
    }
    _automation_check_ipc_connection();
    StoreCallback(protocol, callback);
    AutomationProxy* proxy = AutomationProxyPtr;
    const auto id = proxy == nullptr ? 0U
                                     : static_cast<unsigned int>(g_signal_connect(
                                           proxy, protocol.proxySignal, protocol.handler, nullptr));
    *protocol.id = id;
    if (id == 0) {
        StoreCallback(protocol, nullptr);
        FA_LOG_FOR(function, fa::kInfo, "g_signal_connect return Fails %s[%x]", protocol.idName,
                   id);
        return -1;
    }
    FA_LOG_FOR(function, fa::kInfo, "g_signal_connect return Success %s[%x]", protocol.idName, id);
    return 0;
}

int Unregister(const Protocol& protocol)
{
    const char* function = protocol.unregisterFunction;
    FA_LOG_FOR(function, fa::kInfo, "%s AutomationProxyPtr[%x] %s[%d]", protocol.unregisterText,
               Address(AutomationProxyPtr.load()), protocol.idName,
               static_cast<int>(protocol.id->load()));
    _automation_check_ipc_connection();
    StoreCallback(protocol, nullptr);
    AutomationProxy* proxy = AutomationProxyPtr;
    const unsigned int id = *protocol.id;
    if (proxy != nullptr && id != 0) {
        g_signal_handler_disconnect(proxy, id);
        FA_LOG_FOR(function, fa::kInfo, "g_signal_handler_disconnect AutomationProxyPtr[%x] %s[%d]",
                   Address(proxy), protocol.idName, static_cast<int>(id));
    }
    return 0;
}

// Copies fetched data, the size first, into the protocol's record.
void StoreData(const Protocol& protocol, GVariant* data)
{
    const char* function = protocol.fetchNames.function;
    ProtocolData_s& record = *protocol.record;
    gsize count = 0;
    const auto* elements =
        static_cast<const guint32*>(g_variant_get_fixed_array(data, &count, sizeof(guint32)));

    record.iSize = count == 0 ? 0 : static_cast<int>(elements[0]);
    FA_LOG_FOR(function, fa::kInfo, "%s.iSize[%d]", protocol.recordName, record.iSize);

    const gsize arrived = count == 0 ? 0 : count - 1;
    const gsize stored = std::min(arrived, sizeof(record.p_data));
    for (gsize i = 0; i < stored; ++i) {
        record.p_data[i] = static_cast<unsigned char>(elements[i + 1]);
        FA_LOG_FOR(function, fa::kDebug, "%s.p_data[0X%02X]", protocol.recordName,
                   record.p_data[i]);
    }
    if (arrived > stored) {
        FA_LOG_FOR(function, fa::kError, "%s is full, %zu bytes dropped", protocol.recordName,
                   arrived - stored);
    }
}

void HandleSignal(const Protocol& protocol)
{
    const char* function = protocol.fetchNames.function;
    FA_LOG_FOR(function, fa::kInfo, "Signal Rx %s", protocol.busSignal);
    _automation_check_ipc_connection();

    g_autoptr(GVariant) data = nullptr;
    g_autoptr(GVariant) ret = nullptr;
    g_autoptr(GError) error = nullptr;
    AutomationProxy* proxy = fa::ProxyForCall();
    if (proxy == nullptr || !protocol.fetch(proxy, &data, &ret, nullptr, &error)) {
        fa::LogFailedCall(protocol.fetchNames, error);
        return;
    }
    gint32 retVal = 0;
    g_variant_get(ret, "(i)", &retVal);
    if (retVal == 0) {
        FA_LOG_FOR(function, fa::kError, "%s Fails retVal[%d]", protocol.methodName, retVal);
        return;
    }
    FA_LOG_FOR(function, fa::kDebug, "%s Success retVal[%d]", protocol.methodName, retVal);
    StoreData(protocol, data);

    const ProtocolCallback_fp callback = __atomic_load_n(protocol.callback, __ATOMIC_SEQ_CST);
    if (callback == nullptr) {
        FA_LOG_FOR(function, fa::kError, "%s is NULL [%x], call back NG", protocol.callbackName,
                   0U);
        return;
    }
    FA_LOG_FOR(function, fa::kInfo, "%s is not NULL [%x], call back OK", protocol.callbackName,
               Address(callback));
    callback(protocol.record);
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
