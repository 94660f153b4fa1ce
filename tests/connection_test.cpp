// The connection: its makers, the service that comes and goes, and what callbacks may do.
#include <atomic>

#include "support/client_test.h"

namespace
{

using ConnectionTest = ClientTest;

std::vector<std::thread::id> received;

void Receive(ProtocolData_s* /*data*/)
{
    received.push_back(std::this_thread::get_id());
}

// Ends its own registration and goes on working with the library.
void ReceiveOnce(ProtocolData_s* data)
{
    Receive(data);
    automation_unregister_callback_ep_protocol();
    automation_execute_command(data->iSize, data->p_data[0]);
}

TEST_F(ConnectionTest, FirstCallsAtOnceMakeOneProxy)
{
    std::atomic<int> waiting{8};
    std::atomic<int> failures{0};
    std::vector<std::thread> callers(8);
    for (std::thread& caller : callers) {
        caller = std::thread([&] {
            for (--waiting; waiting > 0;) {
            }
            for (int i = 0; i < 20; ++i) {
                failures += automation_copy_log_to_usb() == 0 ? 0 : 1;
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(failures, 0);
    ExpectLines(Texts{kConnected} + Texts(160, "D automation_copy_log_to_usb: OK retVal[1]"));
}

TEST_F(ConnectionTest, CallbacksArriveInTheContextOfTheFirstCaller)
{
    std::thread::id id;
    service.Answer("GetEpProtocolData", "(@au [5, 6], (1,))");
    std::thread owner([&] {
        id = std::this_thread::get_id();
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        automation_register_callback_ep_protocol(ReceiveOnce);
        for (int i = 0; i < 3; ++i) {
            service.Emit("ep_handler");
        }
        Settle();
        while (g_main_context_iteration(context, FALSE) || received.empty()) {
        }
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    });
    owner.join();
    EXPECT_EQ(received, std::vector<std::thread::id>{id});
    EXPECT_EQ(service.TakeCalls(), (Texts{"GetEpProtocolData ()", "ExecuteCommand (5, 6)"}));
}

TEST_F(ConnectionTest, FollowsTheServiceThatRestarts)
{
    service.Answer("GetEpProtocolData", "(@au [5, 6], (1,))");
    ASSERT_EQ(automation_register_callback_ep_protocol(Receive), 0);
    GDBusConnection* impostor = bus.Connect();
    for (int restart = 1; restart <= 3; ++restart) {
        service.Leave();
        Settle();
        EXPECT_EQ(automation_copy_log_to_usb(), -1);
        // Nobody owns the service's name: nobody is the service.
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
        g_dbus_connection_emit_signal(
            impostor, g_dbus_connection_get_unique_name(LibraryConnection()), "/KVFacAutoObj",
            "org.kavra.tv.automationservice", "ep_handler", g_variant_new("(s)", "false"), nullptr);
        Settle(impostor);
        service.Join();
        Settle();
        EXPECT_EQ(automation_copy_log_to_usb(), 0);
        service.Emit("ep_handler");
        Settle();
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
        EXPECT_EQ(received.size(), static_cast<std::size_t>(restart));
        EXPECT_EQ(service.TakeCalls(), (Texts{"CopyLogToUsb ()", "GetEpProtocolData ()"}));
    }
    g_object_unref(impostor);
}

TEST_F(ConnectionTest, OutlivesTheBus)
{
    EXPECT_EQ(automation_close_ex_uart(), 0);
    service.Leave();
    bus.Stop();
    EXPECT_EQ(automation_close_ex_uart(), -1);
    EXPECT_EQ(automation_close_ex_uart(), -1);
}

}  // namespace
