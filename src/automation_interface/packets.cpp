// Packets that the service sends over the set's serial lines.
#include <fa_api/automation_api.h>

#include "automation_interface/call_frame.h"

namespace
{

constexpr fa::ServiceCall kSendMessageByExUart = {
    {"automation_send_message_by_ex_uart", "automation_proxy_call_send_message_by_ex_uart_sync",
     "send_message_by_ex_uart" /* sic */, fa::kInfo},
    fa::ReplyRule::kNonZeroSucceeds};

constexpr fa::ServiceCall kSendRjpData = {
    {"automation_send_rjp_data", "automation_proxy_call_send_rjp_data_sync",
     "automation_proxy_call_send_rjp_data_sync" /* sic */, fa::kInfo},
    fa::ReplyRule::kNonZeroSucceeds};

constexpr fa::ServiceCall kSendRs232Ack = {
    {"automation_send_rs232_ack", "automation_proxy_call_send_rs232_ack_sync",
     "send_rs232_ack_sync", fa::kInfo},
    fa::ReplyRule::kNonZeroSucceeds};

constexpr int kLastProtocolType = 4;

// A message of more than 32 MiB makes the system bus close the connection, and each byte takes
// four.
constexpr unsigned int kMaxPacketLength = 8000000;

// Connects, checks the packet and sends it; `before` are the arguments in front of the length.
template <typename Method, typename... Before>
int SendPacket(const fa::ServiceCall& row, bool refused, Method method, const unsigned char* packet,
               unsigned int length, Before... before)
{
    _automation_check_ipc_connection();
    if (refused || length == 0 || length > kMaxPacketLength || packet == nullptr ||
        packet[0] == 0) {
        FA_LOG_FOR(row.names.function, fa::kError, "%s-Wrong Parameters", row.names.function);
        return -1;
    }
    for (unsigned int i = 0; i < length; ++i) {
        FA_LOG_FOR(row.names.function, fa::kDebug, "data[%x]", packet[i]);
    }
    g_autoptr(GVariant) bytes = fa::NewByteArray(packet, length);
    return fa::CallService(row, method, before..., static_cast<int>(length), bytes);
}

}  // namespace

int automation_send_message_by_ex_uart(const unsigned char* pData, unsigned int ulLength)
{
    FA_LOG(fa::kDebug, "ulLength[%d]", static_cast<int>(ulLength));
    return SendPacket(kSendMessageByExUart, false,
                      automation_proxy_call_send_message_by_ex_uart_sync, pData, ulLength);
}

int automation_send_rjp_data(const unsigned char* pData, unsigned int ulLength)
{
    FA_LOG(fa::kDebug, "ulLength[%d]", static_cast<int>(ulLength));
    return SendPacket(kSendRjpData, false, automation_proxy_call_send_rjp_data_sync, pData,
                      ulLength);
}

int automation_send_rs232_ack(int eProtocolType, unsigned int ulLength, const unsigned char* pData)
{
    FA_LOG(fa::kDebug, "eProtocolType[%d] ulLength[%d]", eProtocolType, static_cast<int>(ulLength));
    return SendPacket(kSendRs232Ack, eProtocolType > kLastProtocolType,
                      automation_proxy_call_send_rs232_ack_sync, pData, ulLength, eProtocolType);
}
