// The one bus proxy that every client function shares.
#pragma once

#include <fa_api/automation_api_binding.h>

#include <atomic>

// Null until a connection succeeds. Never released or replaced afterwards.
extern std::atomic<AutomationProxy*> AutomationProxyPtr;

// Makes the proxy where there is none. Returns 0 when there is one afterwards, else -1.
int _automation_init_service();

// Connects unless that has succeeded before. Callers go on either way: without a proxy their call
// fails and says so.
void _automation_check_ipc_connection();

namespace fa
{

// Returns the proxy to make a call through, which the caller unreferences: the shared one, unless
// it would send to a process that is the service no longer. Null without a connection, or with an
// error.
AutomationProxy* ProxyForCall(GError** error);

}  // namespace fa
