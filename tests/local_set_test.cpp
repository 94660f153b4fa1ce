// The projector command: the switch of the local set, and the table of local sets.
#include <fa_platform/dlog.h>
#include <fa_platform/system_info.h>

#include <chrono>
#include <deque>
#include <sstream>

#include "support/client_test.h"

namespace
{

struct Reading {
    int result;
    int value;
};

const Reading kFastBoot = {0, 1};
std::deque<Reading> readings;

}  // namespace

// Takes the platform's place, and logs each query: that shows where it comes among the lines.
int system_info_get_value_int(int key, int* value)
{
    __dlog_print(2, 3, "FA_API", "%s: %s(%d) > %d\n", "test", "asked", 0, key);
    const Reading reading = readings.at(0);
    readings.pop_front();
    *value = reading.value;
    return reading.result;
}

namespace
{

const char kFunction[] = "automation_execute_command_with_projector";

const Texts kFastBootAsked = {"D asked: 869"};
const char kOutOfRange[] = "E localset enum is not available in localset range";

using LocalSetTest = ClientTest;

TEST_F(LocalSetTest, RefusalsComeBeforeAnyConnection)
{
    const struct {
        std::deque<Reading> readings;
        int command;
        unsigned int option;
        Texts asked;
        const char* line;
    } cases[] = {
        {{}, 805, 1, {}, "E parameter is null"},
        {{{-1, 1}}, 806, 97, kFastBootAsked, "E fastboot is not available"},
        {{{0, 0}}, 806, 97, kFastBootAsked, "E fastboot is not available"},
        {{{0, -1}}, 806, 97, kFastBootAsked, kOutOfRange},
        {{{0, 2}}, 806, 0xFFFFFFFF, kFastBootAsked, kOutOfRange},
        {{kFastBoot}, 806, 0, kFastBootAsked, "E localset string is not available"},
        {{kFastBoot}, 806, 90, kFastBootAsked, "E localset string is not available"},
    };
    HideBus();
    for (const auto& row : cases) {
        readings = row.readings;
        Expect([&] { return automation_execute_command_with_projector(row.command, row.option); },
               -1, row.asked + By(kFunction, {row.line}));
    }
}

TEST_F(LocalSetTest, WaitsForThePlatformToReportTheLocalSet)
{
    const struct {
        std::deque<Reading> readings;
        const char* answer;
        int pauses;  // of 200 ms
        int result;
        const char* observed;  // in the end
    } cases[] = {
        {{kFastBoot, {0, 1}}, "((1,),)", 0, 0, ""},
        {{kFastBoot, {0, 1}}, "!not today", 0, 0, ""},
        {{kFastBoot, {0, 6}, {-1, 1}, {1, 1}, {0, -1}, {0, 1}}, "((0,),)", 4, 0, ""},
        {{kFastBoot, {0, 6}, {0, 7}, {-1, 8}, {-1, 1}, {-1, 9}}, "((1,),)", 5, -1, "7"},
        {{kFastBoot, {-1, 1}, {-1, 2}, {-1, 3}, {-1, 4}, {-1, 5}}, "((1,),)", 5, -1, "-1"},
    };
    automation_execute_command(1, 1);
    log.Take();
    service.TakeCalls();
    for (const auto& row : cases) {
        readings = row.readings;
        service.Answer("ExecuteCommandWithData", row.answer);
        const Texts outcome =
            row.answer[0] == '!'
                ? Texts{"E ERR: automation_proxy_call_execute_command_with_data_sync return false",
                        "E execute_command_with_data_sync err[GDBus.Error:test.Refused: not "
                        "today]"}
                : Texts{std::string("D OK retVal[") + row.answer[2] + "]"};
        const auto start = std::chrono::steady_clock::now();
        Expect([] { return automation_execute_command_with_projector(806, 1); }, row.result,
               kFastBootAsked + By(kFunction, {"I local set[US], length[2]"}) +
                   By("automation_execute_command_with_data",
                      Texts{"D Data0[52] Data1[1], length[2]", "D command data[0]: 85",
                            "D command data[1]: 83"} +
                          outcome) +
                   Texts(row.readings.size() - 1, "D asked: 284") +
                   By(kFunction,
                      {row.result == 0 ? ""
                                       : std::string("E localset string is not set, countryId[") +
                                             row.observed + "],option[1]"}),
               {"ExecuteCommandWithData (82, 1, [85, 83], 2)"});
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        EXPECT_GE(taken.count(), 0.2 * row.pauses);
        EXPECT_LT(taken.count(), 0.2 * row.pauses + 0.19);
    }
}

TEST_F(LocalSetTest, EveryLocalSetIsSentByItsName)
{
    std::istringstream names(
        "- US KOR SD_MEXICO SD_CANADA - EU EU_ITALY EU_GER EU_BENELUX EU_SPAIN EU_UK CIS_CA_MS "
        "CIS_RUSSIA CIS_UKR EU_TURKEY EU_AFRICA EU_ALGERIA EU_S_AFR CIS_CA_UZ EU_RS_AFR EU_ISRAEL "
        "- AD_AU2 AD_NZ2 AD_SIN2 EA_VIET EA_THAI EA_INA EA_CHINA EA_INDIA EA_SRI EA_NEPAL "
        "EA_BANGLA EA_IRAN EA_EGYPT EA_LIBYA EA_M_ASIA EA_SAUDI EA_PAK EA_E_ASIA EA_AFR EA_S_AFR "
        "EA_MAL EA_PHI EA_UAE ED_IRAN ED_VIET ED_INA ED_INDIA ED_THAI ED_PHI ED_EGYPT ED_LIBYA "
        "ED_M_ASIA ED_SAUDI ED_PAK ED_AFR ED_MYAN ED_MAL ED_UAE ED_M_ASIA2 ED_ALGERIA COLOMBIA "
        "TAIWAN CHI_DTV HKG_DTV CUBA_DTV - BRA_DTV CHILE_DTV PERU_DTV ARG_DTV URU_DTV PAR_DTV "
        "SA_ATV SELA - SA_BOLIVIA ECUADOR PANAMA - EA_PHI2 - - - - - - - - - - - - JAPAN EU_TOTAL");
    unsigned int option = 0;
    for (std::string name; names >> name; ++option) {
        readings = {kFastBoot, {0, static_cast<int>(option)}};
        const bool exists = name != "-";
        EXPECT_EQ(automation_execute_command_with_projector(806, option), exists ? 0 : -1);
        const std::string sent = "ExecuteCommandWithData (82, 1, " + ByteList(name) + ", " +
                                 std::to_string(name.size()) + ")";
        EXPECT_EQ(service.TakeCalls(), exists ? Texts{sent} : Texts{});
    }
    EXPECT_EQ(option, 97U);
}

}  // namespace
