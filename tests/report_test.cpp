// Whole reports in the three modes, and what writing them asks of the platform, logs and prints.
#include <fa_api/InspectionLogger.h>
#include <fa_platform/factory.h>
#include <fa_platform/simulation.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <locale>
#include <optional>
#include <sstream>

#include "support/log_capture.h"
#include "support/records.h"

namespace
{

std::string trace;  // platform calls and log lines, in their order
std::optional<std::string> linkTarget;

}  // namespace

// Stands in for the C library's: the link's folder is not ours to write to.
ssize_t readlink(const char* path, char* buffer, size_t size)
{
    trace += "readlink(" + std::string(path) + ", " + std::to_string(size) + ")\n";
    return linkTarget ? static_cast<ssize_t>(linkTarget->copy(buffer, size)) : -1;
}

namespace
{

// Each line with the modes it belongs to: simple, detail, raw.
constexpr char kReport[] = R"(
SDR|[summary]
SDR|starttime=20261117001329
SDR|duration=4294967295
SDR|result=fail
SDR|pelko=wifi, 192, 168, 0, 1007
SDR|testnum=6
SDR|retrycount=-2000
SDR|
SDR|[information]
SDR|s/n=0123456789ABCDEFGHIJKLMNOPQR
SDR|model=SIM-55
S  |option=SIM55,AB,2026
S  |    PANEL-A,FHD
 DR|option=SIM55,AB,2026,PANEL-A,FHD
SDR|mm=T-SIMAKUC-1001.3
SDR|sm=SIM-M-2.10
SDR|ss=SIM-S-0.7
SDR|mt=TCON-0042
SDR|bt=BLUETOOTH-VER-0012
 DR|ld1=0001A2B3
 DR|ld2=Not Supported
S  |dnso=1.2.3
 DR|
SDR|
SDR|
SDR|[001]
SD |name=Inputs
  R|name=Inputs, 0x0a f0
  R|imqs=Q-7
SDR|data=AV & HDMI
SDR|result=fail
 DR|duration=1035
 DR|retrycount=2
SDR|spec=2.50~1000.00
S  |measure=HDMI1:1.00
S  |    HDMI2:2000.13
 D |measure=HDMI1:1.00,HDMI2:2000.13
  R|measure=1.00,2000.13
SDR|skip=PC,S-VIDEO
SDR|error=HDMI2
  R|list=0809
 DR|insptype=auto
 DR|tid=-70000
 DR|starttime=3000000000
  R|failed=normal;3000000000;35;-70000^low. twice^
SDR|
SDR|[002]
SD |name=Keys
  R|name=Keys, 0xcc 11
  R|imqs=
SDR|result=pass
 DR|duration=0
 DR|retrycount=0
SDR|spec=0x00ff!=
S  |measure=BT MAC:0x02
 D |measure=WiFi MAC:0x01,BT MAC:0x02
  R|measure=0x01,0x02
  R|list=1718
 DR|insptype=normal
 DR|tid=9
 DR|starttime=0
  R|failed=^^
SDR|
SDR|[003]
SD |name=Broken
  R|name=Broken, 0x0b 01
  R|imqs=
SDR|result=fail
SDR|data=error
SDR|list=error
SDR|
)";

constexpr char kTrace[] = R"(
SDR|FCBlockProfiler(PelkoAppClientLogger.cpp, GetLog)
SDR|system_info_get_value_string(0)
SDR|factory_get_option_string_data(254)
SDR|4 information_section: GetInfoLog > bufOption: SIM55,AB,2026,PANEL-A,FHD
SDR|system_info_get_value_string(128)
SDR|system_info_get_value_string(133)
SDR|IDisplayPanel::getInstance
SDR|getTconDataVersion(40)
SDR|system_info_get_custom_bool(com.velmora/featureconf/bluetooth.support)
SDR|bt_adapter_get_chip_version
 DR|ve_start_local_dimming_test(7)
 DR|ve_start_local_dimming_test(8)
S  |readlink(/opt/usr/apps/libPelkoInspect.so, 1024)
S  |4 version_probes: m_GetSoVersion > strOut=1.2.3
SDR|4 item_values: m_ValueToString > cData[0]: integer 0
SDR|4 item_values: m_ValueToString > cData[1]: integer 255
 DR|4 item_values: m_ValueToString > cData[0]: integer 1
SDR|4 item_values: m_ValueToString > cData[0]: integer 2
S  |4 PelkoAppClientLogger: GetLog > log mode: 0, len: LENGTH
 D |4 PelkoAppClientLogger: GetLog > log mode: 1, len: LENGTH
  R|4 PelkoAppClientLogger: GetLog > log mode: 2, len: LENGTH
SDR|~FCBlockProfiler
)";

// The lines of a mode, from a text as above.
std::string Column(const char* text, Logger::Mode_e mode)
{
    std::istringstream lines(text + 1);
    std::string column;
    for (std::string line; std::getline(lines, line);) {
        if (line[static_cast<std::size_t>(mode)] != ' ') {
            column += line.substr(4) + "\n";
        }
    }
    return column;
}

PelkoTestInfo_s MakeInfo()
{
    PelkoTestInfo_s info{};
    info.iItemCount = 3;
    info.iRetryCount = -2000;
    info.stStartTime = {126, 11, 17, 0, 13, 29, {99, 99}};
    Put(info.szSerialNumber, "0123456789ABCDEFGHIJKLMNOPQR");
    info.iRunState = 3;
    info.iFailCount = 1;
    info.ulDuration = 4294967295;
    info.iLinkType = 2;
    info.aulLinkValue[0] = 192;
    info.aulLinkValue[1] = 168;
    info.aulLinkValue[3] = 1007;
    return info;
}

std::vector<PelkoItem_s> MakeItems()
{
    PelkoItem_s inputs = MakeItem("Inputs", 0x0A, 0xF0);
    Put(inputs.szImqs, "Q-7");
    inputs.iTid = -5;
    inputs.lTid = -70000;
    inputs.eInspType = INSPECTION_AUTO;
    inputs.eMsgDataType = VALUE_STRING;
    inputs.stMsgData = Bytes(1, "AV & HDMI").stCValue;
    inputs.ulResult = 4;
    inputs.iRetryCount = 2;
    inputs.ulStartTime = 3000000000;
    inputs.iSpecType = SPEC_RANGE;
    inputs.eSpecValueType = inputs.eMeasureValueType = VALUE_FLOAT;
    inputs.astSpec[0] = Num(2.5F);
    inputs.astSpec[1] = Num(1000.0F);
    inputs.iMeasureCount = inputs.iExtraCount = inputs.iErrorCount = 1;
    inputs.iSkipCount = inputs.iListCount = 2;
    inputs.astMeasure[0] = Num(1.0F);
    inputs.astMeasure[1] = Num(2000.126F);
    Put(inputs.aucSkip, "\x07\x04");
    Put(inputs.aucError, "\x09");
    Put(inputs.aucList, "\x08\x09");
    inputs.ulDuration = 35;
    Logger::RecordFailedItem(&inputs, INSPECTION_NORMAL);
    inputs.ulDuration = 1035;
    InspectionLogger::AssignInspectionLog(0x0A, 0xF0, "low, twice");

    PelkoItem_s keys = MakeItem("Keys", 0xCC, 0x11);
    keys.iTid = 9;
    keys.iSpecType = SPEC_NOT_EQUAL;
    keys.eSpecValueType = keys.eMeasureValueType = VALUE_HEX;
    keys.astSpec[0] = Bytes(2, std::string_view("\0\xFF", 2));
    keys.iMeasureCount = 2;
    keys.iSelectIndex = 1;
    keys.astMeasure[0] = Bytes(1, "\x01");
    keys.astMeasure[1] = Bytes(1, "\x02");
    keys.iListCount = 2;
    Put(keys.aucList, "\x17\x18");

    PelkoItem_s broken = MakeItem("Broken", 0x0B, 0x01);
    broken.ulErrorFlag = ERROR_FLAG_DATA | ERROR_FLAG_LIST;
    return {inputs, keys, broken};
}

// Starts the trace, and the capture of standard output.
void Observe()
{
    trace.clear();
    fa_platform::SetLogSink([](int, int priority, const std::string&, const std::string& text) {
        trace +=
            std::to_string(priority) + " " + std::regex_replace(text, std::regex("\\(\\d+\\)"), "");
    });
    fa_platform::SetQueryObserver([](const std::string& query) { trace += query + "\n"; });
    testing::internal::CaptureStdout();
}

// What was printed since, with ">" for the time and the thread.
std::string Printed()
{
    fa_platform::SetLogSink({});
    fa_platform::SetQueryObserver({});
    return std::regex_replace(testing::internal::GetCapturedStdout(),
                              std::regex("AUTOMATION\\[\\d+\\.\\d{3}\\]\\[T \\d+\\] "), "> ");
}

void ExpectTheReports()
{
    linkTarget = "../lib/libPelkoInspect.so.1.2.3";
    for (const auto mode : {Logger::MODE_SIMPLE, Logger::MODE_DETAIL, Logger::MODE_RAW}) {
        PelkoTestInfo_s info = MakeInfo();
        std::vector<PelkoItem_s> items = MakeItems();
        std::string report = "replaced";
        Observe();
        EXPECT_TRUE(Logger(mode).GetLog(report, &info, &items));
        const std::string length = std::to_string(report.size());
        EXPECT_EQ(Printed(), "> log mode: " + std::to_string(mode) + ", len: " + length + "\n");
        EXPECT_EQ(report, Column(kReport, mode));
        EXPECT_EQ(trace, std::regex_replace(Column(kTrace, mode), std::regex("LENGTH"), length));
    }
}

TEST(Report, IsCompleteInEachMode)
{
    ExpectTheReports();
}

TEST(Report, DoesNotDependOnTheLocale)
{
    struct Grouping : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    std::locale::global(std::locale(std::locale::classic(), new Grouping));
    std::setlocale(LC_ALL, "de_DE.UTF-8");  // where there is one
    ExpectTheReports();
}

TEST(Report, EndsWhereAnItemIsMissing)
{
    linkTarget = "libPelkoInspect.so.1.2.3";
    PelkoTestInfo_s info = MakeInfo();
    std::vector<PelkoItem_s> items = MakeItems();
    items.pop_back();
    const std::string whole = Column(kReport, Logger::MODE_RAW);
    std::string report;
    Observe();
    EXPECT_THROW(Logger(Logger::MODE_RAW).GetLog(report, &info, &items), std::out_of_range);
    EXPECT_EQ(Printed(), "");
    EXPECT_EQ(report, whole.substr(0, whole.find("[003]")));
    EXPECT_EQ(trace.substr(trace.rfind("cData")), "cData[0]: integer 2\n~FCBlockProfiler\n");
    for (const int count : {0, -1}) {
        info.iItemCount = count;
        EXPECT_TRUE(Logger(Logger::MODE_RAW).GetLog(report, &info, &items));
        EXPECT_EQ(Line(report, "testnum"), std::to_string(count + 3));
        EXPECT_EQ(report.size(), whole.find("[001]"));
    }
}

TEST(InformationSection, SummaryWords)
{
    const struct {
        PelkoInfoTime_s time;
        int runState, failCount, linkType;
        const char* text;
    } cases[] = {
        {{-128, 1, 5, 0, 0, 0, {}}, 3, 0, 0, "17720105000000 pass uart"},
        {{127, -1, -12, 100, 9, 10, {}}, 3, -1, 1, "2027-1-121000910 pass bt, 192, 168, 0, 1007"},
        {{0, 12, 31, 23, 59, 59, {}}, 4, 1, 3, "19001231235959 timeout "},
        {{99, 12, 31, 23, 59, 59, {}}, 5, 1, -1, "19991231235959 stop "},
        {{100, 0, 0, 0, 0, 0, {}}, 2, 1, 7, "20000000000000  "},
    };
    for (const auto& c : cases) {
        PelkoTestInfo_s info = MakeInfo();
        info.stStartTime = c.time;
        info.iRunState = c.runState;
        info.iFailCount = c.failCount;
        info.iLinkType = c.linkType;
        std::string text;
        EXPECT_TRUE(Logger(Logger::MODE_RAW).GetInfoLog(text, &info));
        EXPECT_EQ(Line(text, "starttime") + " " + Line(text, "result") + " " + Line(text, "pelko"),
                  c.text);
    }
}

// The information section on a set with this profile and link: what follows "s/n=".
std::string Information(Logger::Mode_e mode, const std::string& profile,
                        std::optional<std::string> link = "libPelkoInspect.so.7")
{
    linkTarget = std::move(link);
    fa_platform::UseProfileText(profile.c_str());
    PelkoTestInfo_s info = MakeInfo();
    std::string text;
    Logger(mode).GetInfoLog(text, &info);
    return text.substr(text.find("model="));
}

TEST(InformationSection, MasksAndVersions)
{
    const std::string bluetooth = "[custom_bool]\ncom.velmora/featureconf/bluetooth.support=true\n";
    const struct {
        std::string profile;
        const char* text;
    } cases[] = {
        {"", R"(
SDR|model=
SDR|option=
SDR|mm=*****
SDR|sm=*****
SDR|ss=*****
SDR|mt=*****
SDR|bt=Not Supported
SDR|
 DR|ld1=*****
 DR|ld2=*****
S  |dnso=7
 DR|
)"},
        {bluetooth + "[system_info_string]\n0=M\n133=ABC\\n\n[display_panel]\npresent=true\n"
                     "[local_dimming]\n7=0xFFFFFFFE\n8=0xFFFFFFFF\n[factory_option]\n254=,a,b,c\n",
         R"(
SDR|model=M
SDR|option=,a,b,c
SDR|mm=*****
SDR|sm=ABC
SDR|ss=Not Supported
SDR|mt=*****
SDR|bt=*****
SDR|
 DR|ld1=FFFFFFFE
 DR|ld2=*****
S  |dnso=7
 DR|
)"},
        {bluetooth + "[bluetooth]\nchip_version=-5\n[factory_option]\n254=a,b,c,\n"
                     "[system_info_string]\n133=\\nABC\n",
         R"(
SDR|model=
S  |option=a,b,c
S  |    
 DR|option=a,b,c,
SDR|mm=*****
SDR|sm=
SDR|ABC
SDR|ss=Not Supported
SDR|mt=*****
SDR|bt=BLUETOOTH-VER-00-5
 DR|ld1=*****
 DR|ld2=*****
S  |dnso=7
 DR|
)"}};
    for (const auto& c : cases) {
        for (const auto mode : {Logger::MODE_SIMPLE, Logger::MODE_DETAIL, Logger::MODE_RAW}) {
            EXPECT_EQ(Information(mode, c.profile), Column(c.text, mode));
        }
    }
    const std::string more =
        Information(Logger::MODE_SIMPLE,
                    "[system_info_string]\n133=\\n\\nA\\n\\nB\\nC\n[bluetooth]\n"
                    "chip_version=12345\n" +
                        bluetooth);
    EXPECT_EQ(Line(more, "sm") + Line(more, "ss") + Line(more, "bt"), "ABBLUETOOTH-VER-12345");
}

TEST(InformationSection, TheOptionWrapsAtItsThirdComma)
{
    for (const std::size_t comma : {125, 126}) {
        std::string option = "a,b," + std::string(comma - 4, 'x') + ",";
        option.resize(127, 'y');
        const std::string section =
            Information(Logger::MODE_SIMPLE, "[factory_option]\n254=" + option + "\n");
        if (comma == 125) {
            option.replace(comma, 1, "\n    ");
        }
        EXPECT_EQ(Line(section, "option"), option);
    }
}

TEST(InformationSection, TheInspectionLibraryIsKnownByItsLink)
{
    const struct {
        std::optional<std::string> link;
        std::string version, log;
    } cases[] = {
        {std::nullopt, "none", "6 failed to get SO version"},
        {"/opt/other.so.1", "none", "6 failed to find so. file"},
        {"libPelkoInspect.so.1/libPelkoInspect.so.2.5", "2.5", "4 strOut=2.5"},
        {"libPelkoInspect.so.", "", "4 strOut="},
        {std::string(1003, 'x') + "libPelkoInspect.so.78", "7", "4 strOut=7"},
    };
    for (const auto& c : cases) {
        Observe();
        const std::string section = Information(Logger::MODE_SIMPLE, "", c.link);
        const std::string printed = Printed();
        EXPECT_EQ(Line(section, "dnso"), c.version);
        const std::string message = c.log.substr(2) + "\n";
        const std::string log = c.log.substr(0, 2) + "version_probes: m_GetSoVersion > " + message;
        EXPECT_EQ(trace.substr(trace.find(", 1024)\n") + 8), log);
        EXPECT_EQ(printed, "> getTconDataVersion err.\n" + (c.log[0] == '6' ? "> " + message : ""));
    }
}

}  // namespace
