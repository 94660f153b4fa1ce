// An automation service that answers as a test scripts it.
#pragma once

#include <fa_api/automation_api_binding.h>

#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "support/private_bus.h"

// Lives on the bus under a connection and in a thread of its own, from construction on. Each call
// is noted, as "service: SendRjpData (2, [uint32 16, 255])".
class ScriptedService
{
public:
    explicit ScriptedService(const PrivateBus& bus);
    ~ScriptedService();

    // How `method` is answered from now on: with this reply body, in GVariant's text form and sent
    // as it is, whatever the method's types; with a D-Bus error of the text behind a "!"; or, for
    // "exit", by leaving the bus in the middle of the call. Until then a method answers "((1,),)".
    void Answer(const std::string& method, const std::string& answer);

    // Announces data; the bus has passed the signal on when this returns.
    void Emit(const std::string& signal);
    void Leave();
    // Joins the bus anew, under another unique name, and owns the service's name on return.
    void Join();

private:
    static gboolean OnCall(GDBusInterfaceSkeleton* skeleton, GDBusMethodInvocation* invocation,
                           gpointer self);
    static void Reply(GDBusMethodInvocation* invocation, const std::string& answer);
    void Disconnect();
    void RunInThread(std::function<void()> work);

    const PrivateBus& bus;
    GMainContext* context = g_main_context_new();
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    GDBusConnection* connection = nullptr;
    AutomationProxy* skeleton = automation_proxy_skeleton_new();
    std::mutex mutex;
    std::map<std::string, std::string> answers;
    std::packaged_task<void()> task;
    std::thread thread;
};
