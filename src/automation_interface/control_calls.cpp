// The calls that control the serial side of the set and the copying of its logs.
#include <fa_api/automation_api.h>

#include "automation_interface/call_frame.h"

namespace
{

using fa::ReplyRule;

constexpr fa::ServiceCall kCopyLogToUsb = {
    {"automation_copy_log_to_usb", "automation_proxy_call_copy_log_to_usb_sync",
     "execute_command_sync" /* sic */, fa::kError},
    ReplyRule::kNonZeroSucceeds};

constexpr fa::ServiceCall kChangePacketLength = {
    {"automation_change_packet_length_serial_source",
     "automation_proxy_call_change_packet_length_serial_source_sync",
     "execute_command_sync" /* sic */, fa::kError},
    ReplyRule::kNonZeroSucceeds};

constexpr fa::ServiceCall kChangeBaudRate = {
    {"automation_change_baud_rate_ex_uart", "automation_proxy_call_change_baud_rate_ex_uart_sync",
     "execute_command_sync" /* sic */, fa::kError},
    ReplyRule::kNonZeroSucceeds};

constexpr fa::ServiceCall kCloseExUart = {
    {"automation_close_ex_uart", "automation_proxy_close_ex_uart_sync" /* sic */,
     "close_ex_uart_sync", fa::kError},
    ReplyRule::kNonZeroSucceeds};

}  // namespace

int automation_copy_log_to_usb(void)
{
    _automation_check_ipc_connection();
    return fa::CallService(kCopyLogToUsb, automation_proxy_call_copy_log_to_usb_sync);
}

int automation_change_packet_length_serial_source(unsigned int uiLen)
{
    const int length = static_cast<int>(uiLen);
    FA_LOG(fa::kDebug, "uiLen[%d]", length);
    _automation_check_ipc_connection();
    return fa::CallService(kChangePacketLength,
                           automation_proxy_call_change_packet_length_serial_source_sync, length);
}

int automation_change_baud_rate_ex_uart(unsigned int uibdRate)
{
    const int baudRate = static_cast<int>(uibdRate);
    FA_LOG(fa::kDebug, "uibdRate[%d]", baudRate);
    if (uibdRate != 9600 && uibdRate != 115200) {
        FA_LOG(fa::kDebug, "uibdRate[%d]", baudRate);  // sic
        return -1;
    }
    _automation_check_ipc_connection();
    return fa::CallService(kChangeBaudRate, automation_proxy_call_change_baud_rate_ex_uart_sync,
                           baudRate);
}

int automation_close_ex_uart(void)
{
    FA_LOG(fa::kDebug, "automation_close_ex_uart");
    _automation_check_ipc_connection();
    return fa::CallService(kCloseExUart, automation_proxy_call_close_ex_uart_sync);
}
