#include "support/scripted_service.h"

#include <stdexcept>

#include "support/trace.h"

static constexpr char kPath[] = "/KVFacAutoObj";
static constexpr char kInterface[] = "org.kavra.tv.automationservice";

void ScriptedService::Answer(const std::string& method, const std::string& answer)
{
    const std::lock_guard<std::mutex> lock(mutex);
    answers[method] = answer;
}

void ScriptedService::Emit(const std::string& signal)
{
    g_dbus_connection_emit_signal(connection, nullptr, kPath, kInterface, signal.c_str(),
                                  g_variant_new("(s)", "for people"), nullptr);
    AwaitBus(connection);
}

void ScriptedService::Leave()
{
    if (connection != nullptr) {
        g_dbus_connection_close_sync(connection, nullptr, nullptr);
        g_clear_object(&connection);
        // What the connection's thread did is seen from here on, which ThreadSanitizer knows of our
        // mutex only.
        const std::lock_guard<std::mutex> lock(mutex);
    }
}

void ScriptedService::Join()
{
    Leave();
    connection = bus.Connect();
    g_dbus_connection_add_filter(connection, OnMessage, this, nullptr);
    g_autoptr(GVariant) owned = CallBus(
        connection, "RequestName", g_variant_new("(su)", "org.kavra.tv.automation-service", 0));
    if (owned == nullptr) {
        throw std::runtime_error("the name of the service is not to be had");
    }
}

GDBusMessage* ScriptedService::OnMessage(GDBusConnection* connection, GDBusMessage* message,
                                         gboolean incoming, gpointer self)
{
    if (incoming == FALSE || g_strcmp0(g_dbus_message_get_interface(message), kInterface) != 0 ||
        g_strcmp0(g_dbus_message_get_path(message), kPath) != 0) {
        return message;
    }
    const std::string method = g_dbus_message_get_member(message);
    GVariant* body = g_dbus_message_get_body(message);
    g_autofree char* arguments = body != nullptr ? g_variant_print(body, TRUE) : g_strdup("()");
    Note("service: " + method + " " + arguments);
    auto* service = static_cast<ScriptedService*>(self);
    std::unique_lock<std::mutex> lock(service->mutex);
    const std::string answer = service->answers.emplace(method, "((1,),)").first->second;
    lock.unlock();
    const char* text = answer.c_str();
    if (answer == "exit") {
        g_dbus_connection_close(connection, nullptr, nullptr, nullptr);
    } else {
        g_autoptr(GDBusMessage) reply = text[0] == '!' ? g_dbus_message_new_method_error_literal(
                                                             message, "test.Refused", text + 1)
                                                       : g_dbus_message_new_method_reply(message);
        if (text[0] != '!') {
            g_dbus_message_set_body(reply,
                                    g_variant_parse(nullptr, text, nullptr, nullptr, nullptr));
        }
        g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       nullptr);
    }
    g_object_unref(message);
    return nullptr;
}
