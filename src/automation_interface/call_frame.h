// The procedure by which a client function makes one call of the service and judges the outcome.
#pragma once

#include "automation_interface/connection.h"
#include "common/log.h"

namespace fa
{

enum class ReplyRule { kNonZeroSucceeds, kAnySucceeds };

// How a failed call is logged, and on whose behalf.
struct CallNames {
    const char* function;   // the exported function
    const char* call;       // the binding's call, in the line that says that it failed
    const char* errorName;  // what the error's detail line begins with
    LogPriority errorPriority;
};

struct ServiceCall {
    CallNames names;
    ReplyRule rule;
};

// Logs a call that failed; `error` is null where no call was made.
void LogFailedCall(const CallNames& names, const GError* error);

// Applies the reply rule to the service's answer and returns 0 or -1.
int JudgeReply(const ServiceCall& row, GVariant* reply);

// Calls the service through `method`, one of the binding's synchronous calls, and returns 0 or -1.
// The connection check comes first and is the caller's.
template <typename Method, typename... Arguments>
int CallService(const ServiceCall& row, Method method, Arguments... arguments)
{
    g_autoptr(GVariant) reply = nullptr;
    g_autoptr(GError) error = nullptr;
    g_autoptr(AutomationProxy) proxy = ProxyForCall(&error);
    if (proxy == nullptr || !method(proxy, arguments..., &reply, nullptr, &error)) {
        LogFailedCall(row.names, error);
        return -1;
    }
    return JudgeReply(row, reply);
}

// The bus form of a byte string: one 32-bit element for each byte. The caller owns the result.
GVariant* NewByteArray(const unsigned char* bytes, unsigned int length);

}  // namespace fa
