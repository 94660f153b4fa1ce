// The switch of the local set: what it asks the platform, sends, and waits for.
#include <sstream>

#include "client/client_test.h"
#include "support/scripted_platform.h"

namespace
{

// The names by their numbers; "-" where a number has none.
constexpr char kLocalSets[] =
    "- US KOR SD_MEXICO SD_CANADA - EU EU_ITALY EU_GER EU_BENELUX EU_SPAIN EU_UK CIS_CA_MS "
    "CIS_RUSSIA CIS_UKR EU_TURKEY EU_AFRICA EU_ALGERIA EU_S_AFR CIS_CA_UZ EU_RS_AFR EU_ISRAEL - "
    "AD_AU2 AD_NZ2 AD_SIN2 EA_VIET EA_THAI EA_INA EA_CHINA EA_INDIA EA_SRI EA_NEPAL EA_BANGLA "
    "EA_IRAN EA_EGYPT EA_LIBYA EA_M_ASIA EA_SAUDI EA_PAK EA_E_ASIA EA_AFR EA_S_AFR EA_MAL EA_PHI "
    "EA_UAE ED_IRAN ED_VIET ED_INA ED_INDIA ED_THAI ED_PHI ED_EGYPT ED_LIBYA ED_M_ASIA ED_SAUDI "
    "ED_PAK ED_AFR ED_MYAN ED_MAL ED_UAE ED_M_ASIA2 ED_ALGERIA COLOMBIA TAIWAN CHI_DTV HKG_DTV "
    "CUBA_DTV - BRA_DTV CHILE_DTV PERU_DTV ARG_DTV URU_DTV PAR_DTV SA_ATV SELA - SA_BOLIVIA "
    "ECUADOR PANAMA - EA_PHI2 - - - - - - - - - - - - JAPAN EU_TOTAL";

constexpr char kFastBoot[] = "platform: system_info_get_value_int(869, 0)\n";
constexpr char kFunction[] = "automation_execute_command_with_projector";

// The trace as far as the local-set command; `outcome` is what its call logs.
std::string Commanded(const std::string& name, const std::string& connection,
                      const std::string& outcome = "D OK retVal[1]", bool arrives = true)
{
    const std::string length = std::to_string(name.size());
    std::string log;
    std::string bytes;
    for (std::size_t k = 0; k < name.size(); ++k) {
        log += Format("D command data[%zu]: %d\n", k, name[k]);
        bytes += Format(k > 0 ? ", %d" : "%d", name[k]);
    }
    const char* inner = "automation_execute_command_with_data";
    return kFastBoot +
           Logged("commands", kFunction, "I local set[" + name + "], length[" + length + "]") +
           Logged("commands", inner, "D Data0[52] Data1[1], length[" + length + "]") + connection +
           Logged("commands", inner, log) +
           (arrives ? "service: ExecuteCommandWithData (82, 1, [uint32 " + bytes + "], " + length +
                          ")\n"
                    : "") +
           Logged("call_frame", inner, outcome);
}

std::string Reading(int before)
{
    return Format("platform: system_info_get_value_int(284, %d)\n", before);
}

constexpr char kPause[] = "pause of 200 ms\n";

class ProjectorTest : public ClientTest
{
protected:
    // Runs the command on a platform that answers so, fast boot first.
    static void Switch(unsigned int option, const std::deque<Answer<int>>& answers)
    {
        platform.ints = answers;
        Call([=] { return automation_execute_command_with_projector(806, option); });
    }
};

TEST_F(ProjectorTest, SendsTheNameOfEveryLocalSet)
{
    std::istringstream names(kLocalSets);
    unsigned int option = 0;
    std::string connection = "none yet";
    for (std::string name; names >> name; ++option) {
        Switch(option, {{0, 1}, {0, static_cast<int>(option)}});
        if (name == "-") {
            EXPECT_TRACE(kFastBoot +
                         Logged("commands", kFunction, "E localset string is not available") +
                         "= -1\n");
        } else {
            connection = connection.empty() ? "" : Connected();
            EXPECT_TRACE(Commanded(name, connection) + Reading(-1) + "= 0\n");
            connection = "";
        }
    }
    EXPECT_EQ(option, 97U);
}

TEST_F(ProjectorTest, RefusesBeforeItConnects)
{
    HideBus();
    Call([] { return automation_execute_command_with_projector(805, 1); });
    EXPECT_TRACE(Logged("commands", kFunction, "E parameter is null") + "= -1\n");
    const struct {
        Answer<int> fastBoot;
        unsigned int option;
        const char* message;
    } rows[] = {
        {{-1, 1}, 97, "fastboot is not available"},
        {{1, 1}, 1, "fastboot is not available"},
        {{0, 0}, 97, "fastboot is not available"},
        {{0, {}}, 1, "fastboot is not available"},
        {{0, -1}, 97, "localset enum is not available in localset range"},
        {{0, 2}, 0xFFFFFFFF, "localset enum is not available in localset range"},
    };
    for (const auto& row : rows) {
        Switch(row.option, {row.fastBoot});
        EXPECT_TRACE(kFastBoot + Logged("commands", kFunction, std::string("E ") + row.message) +
                     "= -1\n")
            << "row " << &row - rows;
    }
}

TEST_F(ProjectorTest, WhatThePlatformReportsCountsAndNotTheCommand)
{
    const std::string failed =
        "E ERR: automation_proxy_call_execute_command_with_data_sync return false";
    HideBus();
    Switch(1, {{0, 1}, {0, 1}});
    EXPECT_TRACE(Commanded("US", kNoBus, failed, false) + Reading(-1) + "= 0\n");
    ShowBus();
    service.Answer("ExecuteCommandWithData", "!not today");
    Switch(1, {{0, 1}, {0, 1}});
    EXPECT_TRACE(Commanded("US", Connected(),
                           failed + "\nE execute_command_with_data_sync err[GDBus.Error:"
                                    "test.Refused: not today]") +
                 Reading(-1) + "= 0\n");
}

TEST_F(ProjectorTest, WaitsForFiveReadings)
{
    service.Answer("ExecuteCommandWithData", "((0,),)");
    const std::string command = Commanded("US", "", "D OK retVal[0]");
    Switch(1, {{0, 1}, {0, 1}});
    EXPECT_TRACE(Commanded("US", Connected(), "D OK retVal[0]") + Reading(-1) + "= 0\n");
    // What a reading writes counts only where it succeeds.
    Switch(1, {{0, 1}, {0, 6}, {-1, 1}, {1, 1}, {0, -7}, {0, 1}});
    EXPECT_TRACE(command + Reading(-1) + kPause + Reading(6) + kPause + Reading(6) + kPause +
                 Reading(6) + kPause + Reading(-7) + "= 0\n");
    Switch(1, {{0, 1}, {0, 6}, {0, 6}, {0, 7}, {-1, 1}, {-1, 1}, {0, 1}});
    EXPECT_TRACE(
        command + Reading(-1) + kPause + Reading(6) + kPause + Reading(6) + kPause + Reading(7) +
        kPause + Reading(7) + kPause +
        Logged("commands", kFunction, "E localset string is not set, countryId[7],option[1]") +
        "= -1\n");
    Switch(1, {{0, 1}});
    std::string expected = command;
    for (int reading = 0; reading < 5; ++reading) {
        expected += Reading(-1) + kPause;
    }
    EXPECT_TRACE(
        expected +
        Logged("commands", kFunction, "E localset string is not set, countryId[-1],option[1]") +
        "= -1\n");
}

}  // namespace
