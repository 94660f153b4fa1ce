// What takes threads to show: who makes the connection, and where callbacks arrive.
#include <fa_api/automation_api.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "support/log_capture.h"
#include "support/private_bus.h"
#include "support/scripted_service.h"

namespace
{

std::vector<std::thread::id> received;

void Receive(ProtocolData_s* /*data*/)
{
    received.push_back(std::this_thread::get_id());
}

TEST(ConnectionTest, FirstCallsAtOnceMakeOneProxy)
{
    const PrivateBus bus;
    ScriptedService service(bus);
    LogCapture log;
    std::atomic<int> waiting{8};
    std::atomic<int> failures{0};
    std::vector<std::thread> callers(8);
    for (std::thread& caller : callers) {
        caller = std::thread([&] {
            for (--waiting; waiting > 0;) {
            }
            for (int i = 0; i < 20; ++i) {
                failures -= automation_copy_log_to_usb();
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    const std::vector<std::string> lines = log.Take();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(lines.size(), 161U);
    EXPECT_EQ(lines.at(0).find("I _automation_init_service: Proxy created: 0x"), 0U);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "D automation_copy_log_to_usb: OK retVal[1]"),
              160);
}

TEST(ConnectionTest, CallbacksArriveInTheContextOfTheFirstCaller)
{
    const PrivateBus bus;
    ScriptedService service(bus);
    service.Answer("GetEpProtocolData", "(@au [5, 6], (1,))");
    std::thread first([&] {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        ASSERT_EQ(automation_close_ex_uart(), 0);
        std::thread([] { EXPECT_EQ(automation_register_callback_ep_protocol(Receive), 0); }).join();
        service.Emit("ep_handler");
        while (received.empty()) {
            g_main_context_iteration(context, TRUE);
        }
        EXPECT_EQ(received[0], std::this_thread::get_id());
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    });
    first.join();
}

}  // namespace
