// Factory commands, and the switch of the set's local set that is built on them.
#include <fa_api/automation_api.h>
#include <fa_platform/system_info.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "automation_interface/call_frame.h"
#include "automation_interface/local_sets.h"

namespace
{

constexpr fa::ServiceCall kExecuteCommand = {
    {"automation_execute_command", "automation_proxy_call_execute_command_sync",
     "execute_command_sync", fa::kError},
    fa::ReplyRule::kAnySucceeds};

constexpr fa::ServiceCall kExecuteCommandWithData = {
    {"automation_execute_command_with_data", "automation_proxy_call_execute_command_with_data_sync",
     "execute_command_with_data_sync", fa::kError},
    fa::ReplyRule::kAnySucceeds};

constexpr int kProjectorCommand = 806;
constexpr int kLocalSetData0 = 82;
constexpr int kLocalSetData1 = 1;
constexpr int kFastBootKey = 869;
constexpr int kLocalSetKey = 284;
constexpr int kLocalSetReadings = 5;
constexpr std::chrono::milliseconds kLocalSetPause{200};

bool HasFastBoot()
{
    int available = 0;
    return system_info_get_value_int(kFastBootKey, &available) == 0 && available != 0;
}

}  // namespace

int automation_execute_command(int data0, int data1)
{
    if (data0 == 0) {
        FA_LOG(fa::kError, "parameter is null");  // sic
        return -1;
    }
    FA_LOG(fa::kDebug, "Data0[%x] Data1[%x]", static_cast<unsigned int>(data0),
           static_cast<unsigned int>(data1));
    _automation_check_ipc_connection();
    return fa::CallService(kExecuteCommand, automation_proxy_call_execute_command_sync, data0,
                           data1);
}

int automation_execute_command_with_data(int data0, int data1, const unsigned char* data,
                                         unsigned char length)
{
    if (length == 0 || data0 == 0 || data == nullptr) {
        FA_LOG(fa::kError, "parameter is null");  // sic
        return -1;
    }
    FA_LOG(fa::kDebug, "Data0[%x] Data1[%x], length[%d]", static_cast<unsigned int>(data0),
           static_cast<unsigned int>(data1), length);
    _automation_check_ipc_connection();
    for (int k = 0; k < length; ++k) {
        FA_LOG(fa::kDebug, "command data[%d]: %d", k, data[k]);
    }
    g_autoptr(GVariant) bytes = fa::NewByteArray(data, length);
    return fa::CallService(kExecuteCommandWithData,
                           automation_proxy_call_execute_command_with_data_sync, data0, data1,
                           bytes, int{length});
}

int automation_execute_command_with_projector(int command, unsigned int option)
{
    if (command != kProjectorCommand) {
        FA_LOG(fa::kError, "parameter is null");  // sic
        return -1;
    }
    if (!HasFastBoot()) {
        FA_LOG(fa::kError, "fastboot is not available");
        return -1;
    }
    if (option >= fa::kLocalSetCount) {
        FA_LOG(fa::kError, "localset enum is not available in localset range");
        return -1;
    }
    const char* name = fa::kLocalSets[option];
    if (std::strcmp(name, fa::kNoLocalSet) == 0) {
        FA_LOG(fa::kError, "localset string is not available");
        return -1;
    }
    const auto length = static_cast<unsigned char>(std::strlen(name));
    FA_LOG(fa::kInfo, "local set[%s], length[%d]", name, length);
    // What counts is the local set that the platform reports, not the command's result.
    automation_execute_command_with_data(kLocalSetData0, kLocalSetData1,
                                         reinterpret_cast<const unsigned char*>(name), length);

    int observed = -1;
    for (int reading = 0; reading < kLocalSetReadings; ++reading) {
        int value = observed;
        if (system_info_get_value_int(kLocalSetKey, &value) == 0) {
            observed = value;
            if (observed == static_cast<int>(option)) {
                return 0;
            }
        }
        std::this_thread::sleep_for(kLocalSetPause);
    }
    FA_LOG(fa::kError, "localset string is not set, countryId[%d],option[%d]", observed,
           static_cast<int>(option));
    return -1;
}
