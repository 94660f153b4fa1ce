#include "support/scripted_service.h"

#include <stdexcept>
#include <utility>

#include "support/trace.h"

ScriptedService::ScriptedService(const PrivateBus& theBus) : bus(theBus)
{
    // Asked before the skeleton's own handlers, for every method alike.
    g_signal_connect(skeleton, "g-authorize-method", G_CALLBACK(OnCall), this);
    thread = std::thread([this] {
        g_main_context_push_thread_default(context);
        g_main_loop_run(loop);
        g_main_context_pop_thread_default(context);
    });
    Join();
}

ScriptedService::~ScriptedService()
{
    Leave();
    RunInThread([this] { g_main_loop_quit(loop); });
    thread.join();
    g_object_unref(skeleton);
    g_main_loop_unref(loop);
    g_main_context_unref(context);
}

void ScriptedService::Answer(const std::string& method, const std::string& answer)
{
    const std::lock_guard<std::mutex> lock(mutex);
    answers[method] = answer;
}

void ScriptedService::Emit(const std::string& signal)
{
    RunInThread([&] {
        g_signal_emit_by_name(skeleton, signal.c_str(), "for people");
        AwaitBus(connection);
    });
}

void ScriptedService::Leave()
{
    RunInThread([this] { Disconnect(); });
}

void ScriptedService::Join()
{
    RunInThread([this] {
        g_autoptr(GError) error = nullptr;
        Disconnect();
        connection = bus.Connect();
        g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(skeleton), connection,
                                         "/KVFacAutoObj", &error);
        [[maybe_unused]] g_autoptr(GVariant) owned = g_dbus_connection_call_sync(
            connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName", g_variant_new("(su)", "org.kavra.tv.automation-service", 0), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        if (error != nullptr) {
            throw std::runtime_error(error->message);
        }
    });
}

gboolean ScriptedService::OnCall(GDBusInterfaceSkeleton* /*skeleton*/,
                                 GDBusMethodInvocation* invocation, gpointer self)
{
    auto* service = static_cast<ScriptedService*>(self);
    const std::string method = g_dbus_method_invocation_get_method_name(invocation);
    g_autofree char* arguments =
        g_variant_print(g_dbus_method_invocation_get_parameters(invocation), TRUE);
    Note("service: " + method + " " + arguments);
    std::string answer = "((1,),)";
    {
        const std::lock_guard<std::mutex> lock(service->mutex);
        const auto scripted = service->answers.find(method);
        answer = scripted != service->answers.end() ? scripted->second : answer;
    }
    service->Reply(invocation, answer);
    g_object_unref(invocation);
    return FALSE;
}

void ScriptedService::Reply(GDBusMethodInvocation* invocation, const std::string& answer)
{
    // GIO asks in a thread of its own, so nothing of the service's thread is touched here.
    GDBusConnection* caller = g_dbus_method_invocation_get_connection(invocation);
    if (answer == "exit") {
        g_dbus_connection_close_sync(caller, nullptr, nullptr);
        return;
    }
    // Answered by hand: the skeleton would not send a reply of another type than its method's.
    GDBusMessage* call = g_dbus_method_invocation_get_message(invocation);
    const bool refuses = answer[0] == '!';
    g_autoptr(GDBusMessage) reply =
        refuses ? g_dbus_message_new_method_error_literal(call, "test.Refused", answer.c_str() + 1)
                : g_dbus_message_new_method_reply(call);
    if (!refuses) {
        g_dbus_message_set_body(
            reply, g_variant_parse(nullptr, answer.c_str(), nullptr, nullptr, nullptr));
    }
    g_dbus_connection_send_message(caller, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
}

void ScriptedService::Disconnect()
{
    if (connection != nullptr) {
        g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(skeleton));
        g_dbus_connection_close_sync(connection, nullptr, nullptr);
        g_clear_object(&connection);
    }
}

void ScriptedService::RunInThread(std::function<void()> work)
{
    std::future<void> done;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        task = std::packaged_task<void()>(std::move(work));
        done = task.get_future();
    }
    const auto run = [](gpointer self) -> gboolean {
        auto* service = static_cast<ScriptedService*>(self);
        std::unique_lock<std::mutex> lock(service->mutex);
        std::packaged_task<void()> taken = std::move(service->task);
        lock.unlock();
        taken();
        return G_SOURCE_REMOVE;
    };
    g_main_context_invoke(context, run, this);
    done.get();
}
