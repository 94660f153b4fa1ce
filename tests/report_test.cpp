// Whole reports in the three modes, and what writing them asks of the platform, logs and prints.
// In the files they are compared with, each line stands behind the letters of its modes: simple,
// detail, raw.
#include <dlfcn.h>
#include <fa_api/InspectionLogger.h>
#include <fa_platform/factory.h>
#include <fa_platform/simulation.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <fstream>
#include <locale>
#include <optional>

#include "support/records.h"

static std::string trace;  // platform calls and log lines, in their order
static std::optional<std::string> linkTarget = "../lib/libPelkoInspect.so.1.2.3";
static bool endlessOption = false;

// Stands in for the C library's: the link's folder is not ours to write to.
ssize_t readlink(const char* path, char* buffer, size_t size)
{
    trace += "readlink(" + std::string(path) + ", " + std::to_string(size) + ")\n";
    return linkTarget ? static_cast<ssize_t>(linkTarget->copy(buffer, size)) : -1;
}

// Stands in for the platform's where a case wants an option without an end.
extern "C" int factory_get_option_string_data(int option, char* buffer, unsigned int* length)
{
    if (endlessOption) {
        std::memset(buffer, 'x', 128);
        return -1;
    }
    using Query = decltype(&factory_get_option_string_data);
    return reinterpret_cast<Query>(dlsym(RTLD_NEXT, __func__))(option, buffer, length);
}

namespace
{

constexpr Logger::Mode_e kModes[] = {Logger::MODE_SIMPLE, Logger::MODE_DETAIL, Logger::MODE_RAW};

std::string Column(const char* file, Logger::Mode_e mode)
{
    std::ifstream lines(std::string(TEST_REPORTS) + file);
    std::string column;
    for (std::string line; std::getline(lines, line);) {
        if (line.at(static_cast<std::size_t>(mode)) != ' ') {
            column += line.substr(4) + "\n";
        }
    }
    return column;
}

PelkoTestInfo_s MakeInfo()
{
    PelkoTestInfo_s info{2,  {}, -2000, {}, {126, 11, 17, 0, 13, 29, {9, 9}}, "", 3, 1,
                         {}, 0,  2,     {}};
    Put(info.szSerialNumber, "0123456789ABCDEFGHIJKLMNOPQR");
    info.ulDuration = 4294967295;
    for (unsigned int i = 0; i < 4; ++i) {
        info.aulLinkValue[i] = 1000 * i;
    }
    return info;
}

std::vector<PelkoItem_s> MakeItems()
{
    PelkoItem_s inputs = MakeItem("Inputs", 0x0A, 0xF0);
    Put(inputs.szImqs, "Q-7");
    inputs.lTid = -70000;
    inputs.eInspType = INSPECTION_AUTO;
    inputs.eMsgDataType = VALUE_STRING;
    inputs.stMsgData = Bytes(1, "AV & HDMI").stCValue;
    inputs.ulResult = 4;
    inputs.ulStartTime = 3000000000;
    inputs.iSpecType = SPEC_RANGE;
    inputs.eSpecValueType = inputs.eMeasureValueType = VALUE_FLOAT;
    inputs.astSpec[0] = inputs.astMeasure[0] = Num(2.5F);
    inputs.astSpec[1] = inputs.astMeasure[1] = Num(2000.126F);
    inputs.iMeasureCount = inputs.iExtraCount = inputs.iErrorCount = 1;
    inputs.iSkipCount = inputs.iListCount = inputs.iRetryCount = 2;
    Put(inputs.aucSkip, "\x07\x04");
    Put(inputs.aucError, "\x09");
    Put(inputs.aucList, "\x08\x09");
    Logger::RecordFailedItem(&inputs, INSPECTION_NORMAL);
    inputs.ulDuration = 1035;
    InspectionLogger::AssignInspectionLog(0x0A, 0xF0, "low, twice");

    PelkoItem_s keys = MakeItem("Keys", 0xCC, 0x11);
    keys.iSpecType = SPEC_NOT_EQUAL;
    keys.eSpecValueType = keys.eMeasureValueType = VALUE_HEX;
    keys.astSpec[0] = Bytes(2, std::string_view("\0\xFF", 2));
    keys.iMeasureCount = keys.iListCount = 2;
    keys.iSelectIndex = 1;
    keys.astMeasure[0] = Bytes(1, "\x01");
    keys.astMeasure[1] = Bytes(1, "\x02");
    Put(keys.aucList, "\x17\x18");
    return {inputs, keys};
}

// Starts the trace, and the capture of standard output.
void Observe()
{
    trace.clear();
    fa_platform::SetLogSink([](int, int priority, const auto&, const std::string& text) {
        trace +=
            std::to_string(priority) + " " + std::regex_replace(text, std::regex("\\(\\d+\\)"), "");
    });
    fa_platform::SetQueryObserver([](const std::string& query) { trace += query + "\n"; });
    testing::internal::CaptureStdout();
}

// What was printed since, with ">" for the time and the thread.
std::string Printed()
{
    return std::regex_replace(testing::internal::GetCapturedStdout(),
                              std::regex("AUTOMATION\\[\\d+\\.\\d{3}\\]\\[T \\d+\\] "), "> ");
}

void ExpectTheReports()
{
    for (const auto mode : kModes) {
        PelkoTestInfo_s info = MakeInfo();
        std::vector<PelkoItem_s> items = MakeItems();
        std::string report = "replaced";
        Observe();
        EXPECT_TRUE(Logger(mode).GetLog(report, &info, &items));
        const std::string length = std::to_string(report.size());
        EXPECT_EQ(Printed(), "> log mode: " + std::to_string(mode) + ", len: " + length + "\n");
        EXPECT_EQ(report, Column("run.txt", mode));
        EXPECT_EQ(std::regex_replace(trace, std::regex("len: " + length), "len: LENGTH"),
                  Column("run_trace.txt", mode));
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
    PelkoTestInfo_s info = MakeInfo();
    std::vector<PelkoItem_s> items = {MakeItems().front()};
    const std::string whole = Column("run.txt", Logger::MODE_RAW);
    std::string report;
    Observe();
    EXPECT_THROW(Logger(Logger::MODE_RAW).GetLog(report, &info, &items), std::out_of_range);
    EXPECT_EQ(Printed(), "");
    EXPECT_EQ(report, whole.substr(0, whole.find("[002]")));
    EXPECT_EQ(trace.substr(trace.rfind("ve_")),
              "ve_start_local_dimming_test(8)\n~FCBlockProfiler\n");
    info.iItemCount = -1;
    EXPECT_TRUE(Logger(Logger::MODE_RAW).GetLog(report, &info, &items));
    EXPECT_EQ(Line(report, "testnum"), "2");
    EXPECT_EQ(report.size(), whole.find("[001]"));
}

TEST(InformationSection, Summary)
{
    const struct {
        PelkoInfoTime_s time;
        int runState, failCount, linkType;
        const char* text;
    } cases[] = {
        {{-128, 1, 5, 0, 0, 0, {}}, 3, 0, 0, "17720105000000 pass uart"},
        {{127, -1, -12, 100, 9, 10, {}}, 3, -1, 1, "2027-1-121000910 pass bt, 0, 1000, 2000, 3000"},
        {{0, 12, 31, 23, 59, 59, {}}, 4, 1, 3, "19001231235959 timeout "},
        {{99, 12, 31, 23, 59, 59, {}}, 5, 1, -1, "19991231235959 stop "},
        {{100, 0, 0, 0, 0, 0, {}}, 2, 1, 7, "20000000000000  "},
    };
    for (const auto& c : cases) {
        PelkoTestInfo_s info{0,          {},          0,  {}, c.time,     "",
                             c.runState, c.failCount, {}, 0,  c.linkType, {0, 1000, 2000, 3000}};
        std::string text;
        EXPECT_TRUE(Logger(Logger::MODE_RAW).GetInfoLog(text, &info));
        EXPECT_EQ(Line(text, "starttime") + " " + Line(text, "result") + " " + Line(text, "pelko"),
                  c.text);
    }
}

// The information section on a set with this profile: from "model=" on, with "|" as line feeds.
std::string Information(Logger::Mode_e mode, const std::string& profile)
{
    fa_platform::UseProfileText(profile.c_str());
    PelkoTestInfo_s info = MakeInfo();
    std::string text;
    Logger(mode).GetInfoLog(text, &info);
    std::replace(text.begin(), text.end(), '\n', '|');
    return text.substr(text.find("model="));
}

TEST(InformationSection, MasksAndVersions)
{
    const std::string bluetooth = "[custom_bool]\ncom.velmora/featureconf/bluetooth.support=true\n";
    const struct {
        Logger::Mode_e mode;
        std::string profile, text;
    } cases[] = {
        {Logger::MODE_SIMPLE, "",
         "model=|option=|mm=*****|sm=*****|ss=*****|mt=*****|bt=Not Supported||dnso=1.2.3|"},
        {Logger::MODE_RAW, "",
         "model=|option=|mm=*****|sm=*****|ss=*****|mt=*****|bt=Not Supported||"
         "ld1=*****|ld2=*****||"},
        {Logger::MODE_DETAIL,
         bluetooth + "[system_info_string]\n0=M\n133=ABC\\n\n[display_panel]\npresent=true\n"
                     "[local_dimming]\n7=0xFFFFFFFE\n8=0xFFFFFFFF\n[factory_option]\n254=a,b,c,d\n",
         "model=M|option=a,b,c,d|mm=*****|sm=ABC|ss=Not Supported|mt=*****|bt=*****||"
         "ld1=FFFFFFFE|ld2=*****||"},
        {Logger::MODE_SIMPLE,
         bluetooth + "[bluetooth]\nchip_version=-5\n[system_info_string]\n128=\n133=\\nABC\n"
                     "[factory_option]\n254=a,b,c,\n",
         "model=|option=a,b,c|    |mm=|sm=|ABC|ss=Not Supported|mt=*****|bt=BLUETOOTH-VER-00-5|"
         "dnso=1.2.3|"},
        {Logger::MODE_SIMPLE,
         bluetooth + "[bluetooth]\nchip_version=12345\n[system_info_string]\n"
                     "133=\\n\\nA\\n\\nB\\nC\n[factory_option]\n254=,a,b,c\n",
         "model=|option=,a,b,c|mm=*****|sm=A|ss=B|mt=*****|bt=BLUETOOTH-VER-12345|dnso=1.2.3|"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Information(c.mode, c.profile), c.text);
    }
    for (const std::size_t comma : {125U, 126U}) {
        std::string option = "a,b," + std::string(comma - 4, 'x') + ",";
        option.resize(127, 'y');
        const std::string profile = "[factory_option]\n254=" + option + "\n";
        option.replace(comma, 1, comma == 125 ? "|    " : ",");
        EXPECT_EQ(Information(Logger::MODE_SIMPLE, profile).find("option=" + option + "|mm="), 7U);
    }
    endlessOption = true;
    EXPECT_EQ(Information(Logger::MODE_RAW, "").find("|mm="), 7 + 7 + 127U);
}

TEST(InformationSection, TheInspectionLibraryIsKnownByItsLink)
{
    const std::tuple<std::optional<std::string>, const char*, std::string> cases[] = {
        {std::nullopt, "|", "6failed to get SO version"},
        {"/opt/other.so.1", "|", "6failed to find so. file"},
        {"libPelkoInspect.so.1/libPelkoInspect.so.2.5", "dnso=2.5|", "4strOut=2.5"},
        {"libPelkoInspect.so.", "dnso=|", "4strOut="},
        {"", "|", "6failed to find so. file"},
        {std::string(1003, 'x') + "libPelkoInspect.so.78", "dnso=7|", "4strOut=7"},
    };
    for (const auto& [target, line, log] : cases) {
        linkTarget = target;
        Observe();
        const std::string section = Information(Logger::MODE_SIMPLE, "");
        EXPECT_EQ(section.substr(section.find("||") + 2 - (line[0] == '|')), line);
        const std::string text = log.substr(1) + "\n";
        EXPECT_NE(trace.find("6 version_probes: m_GetVersionInfo > getTconDataVersion err.\n"),
                  std::string::npos);
        EXPECT_EQ(Printed(), "> getTconDataVersion err.\n" + (log[0] == '6' ? "> " + text : ""));
        EXPECT_EQ(trace.substr(trace.find(", 1024)\n") + 8),
                  log.substr(0, 1) + " version_probes: m_GetSoVersion > " + text);
    }
}

}  // namespace
