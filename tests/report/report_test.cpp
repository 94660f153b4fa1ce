// Whole reports in the three modes, and what writing them asks of the platform, logs and prints.
// In the files they are compared with, each line stands after the letters of its modes: simple,
// detail, raw.
#include <fa_api/InspectionLogger.h>

#include <clocale>
#include <fstream>
#include <locale>
#include <sstream>

#include "support/platform_log.h"
#include "support/printed.h"
#include "support/records.h"
#include "support/scripted_platform.h"

namespace
{

constexpr auto S = Logger::MODE_SIMPLE;
constexpr auto D = Logger::MODE_DETAIL;
constexpr auto R = Logger::MODE_RAW;

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

// A platform that has everything.
const std::map<std::string, Answer<std::string>> kFullPlatform = {
    {"0", {0, "SIM-55"}},
    {"128", {0, "MM"}},
    {"133", {0, "SM\nSS"}},
    {"bluetooth", {0, "1"}},
    {"chip", {0, "12"}},
    {"panel", {0, ""}},
    {"tcon", {0, "TCON"}},
    {"7", {0, "0x1A2B3"}},
    {"8", {0, "0"}},
    {"option", {0, "a,b,c,d,e"}},
    {"link", {0, "../lib/libPelkoInspect.so.1.2.3"}}};

PelkoTestInfo_s MakeInfo()
{
    PelkoTestInfo_s info{};
    info.iItemCount = 2;
    info.iRetryCount = -2000;
    info.stStartTime = {126, 11, 17, 0, 13, 29, {9, 9}};
    Put(info.szSerialNumber, "0123456789ABCDEFGHIJKLMNOPQR");
    info.iRunState = RUN_STATE_COMPLETED;
    info.iFailCount = 1;
    info.ulDuration = 4294967295;
    info.iLinkType = LINK_TYPE_WIFI;
    for (unsigned int i = 0; i < 4; ++i) {
        info.aulLinkValue[i] = 1000 * i;
    }
    return info;
}

std::vector<PelkoItem_s> MakeItems()
{
    PelkoItem_s inputs = MakeItem("Inputs", 0x0A, 0xF0,
                                  "ltid=-70000 insptype=1 datatype=2 result=4 retries=2 "
                                  "starttime=3000000000 spec=7 spectype=3 type=3 measures=1 "
                                  "extras=1");
    Put(inputs.szImqs, "Q-7");
    inputs.stMsgData = Bytes(1, "AV & HDMI").stCValue;
    inputs.astSpec[0] = inputs.astMeasure[0] = Num(2.5F);
    inputs.astSpec[1] = inputs.astMeasure[1] = Num(2000.126F);
    inputs.iSkipCount = Put(inputs.aucSkip, "\x07\x04");
    inputs.iErrorCount = Put(inputs.aucError, "\x09");
    inputs.iListCount = Put(inputs.aucList, "\x08\x09");
    Logger::RecordFailedItem(&inputs, INSPECTION_NORMAL);
    inputs.ulDuration = 1035;
    InspectionLogger::AssignInspectionLog(0x0A, 0xF0, "low, twice");

    PelkoItem_s keys = MakeItem("Keys", 0xCC, 0x11, "spec=2 spectype=1 type=1 measures=2 select=1");
    keys.astSpec[0] = Bytes(2, std::string_view("\0\xFF", 2));
    keys.astMeasure[0] = Bytes(1, "\x01");
    keys.astMeasure[1] = Bytes(1, "\x02");
    keys.iListCount = Put(keys.aucList, "\x17\x18");
    return {inputs, keys};
}

void ExpectTheReports()
{
    platform.answers = kFullPlatform;
    for (const auto mode : {S, D, R}) {
        PelkoTestInfo_s info = MakeInfo();
        std::vector<PelkoItem_s> items = MakeItems();
        std::string report = "replaced";
        TakeTrace();
        const std::string printed =
            Printed([&] { EXPECT_TRUE(Logger(mode).GetLog(report, &info, &items)); });
        const std::string end = Format("log mode: %d, len: %zu\n", mode, report.size());
        EXPECT_EQ(printed, "> " + end);
        EXPECT_TRUE(Same(Column("run.txt", mode), report));
        EXPECT_TRACE(Column("run_trace.txt", mode) +
                     Logged("PelkoAppClientLogger", "GetLog", "I " + end) +
                     "platform: ~FCBlockProfiler\n");
    }
}

TEST(Report, IsCompleteInEachMode)
{
    ExpectTheReports();
}

// Not by its decimal comma, nor by its groups of digits; the build makes the locale.
// Streams ask this, and printf asks the C library's locale.
class GroupedNumbers : public std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(Report, DoesNotDependOnTheLocale)
{
    setenv("LOCPATH", TEST_LOCALES, 1);
    ASSERT_STREQ(std::setlocale(LC_ALL, "de_DE.UTF-8"), "de_DE.UTF-8");
    std::locale::global(std::locale(std::locale::classic(), new GroupedNumbers));
    ASSERT_EQ(Format("%.1f", 0.5), "0,5");
    std::ostringstream stream;
    stream << 1234.5;
    ASSERT_EQ(stream.str(), "1.234,5");
    ExpectTheReports();
}

TEST(Report, EndsWhereAnItemIsMissing)
{
    platform.answers = kFullPlatform;
    PelkoTestInfo_s info = MakeInfo();
    std::vector<PelkoItem_s> items = {MakeItems().front()};
    const std::string whole = Column("run.txt", R);
    std::string report;
    TakeTrace();
    const std::string printed =
        Printed([&] { EXPECT_THROW(Logger(R).GetLog(report, &info, &items), std::out_of_range); });
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(Same(whole.substr(0, whole.find("[002]")), report));
    const std::string trace = TakeTrace();
    EXPECT_EQ(trace.substr(trace.rfind("platform: ve_")),
              "platform: ve_start_local_dimming_test(8, FFFFFFFF)\nplatform: ~FCBlockProfiler\n");
    info.iItemCount = 2147483647;
    EXPECT_TRUE(Logger(R).GetInfoLog(report, &info));
    EXPECT_EQ(Line(report, "testnum"), "2147483650");
    info.iItemCount = -1;
    EXPECT_TRUE(Logger(R).GetLog(report, &info, &items));
    EXPECT_EQ(Line(report, "testnum"), "2");
    EXPECT_EQ(report.size(), whole.find("[001]"));
}

TEST(Report, TheItemCountIsReadAgainForEachItem)
{
    for (const int changed : {2, 1}) {
        PelkoTestInfo_s info = MakeInfo();
        std::vector<PelkoItem_s> items(3, MakeItems().back());
        info.iItemCount = changed == 2 ? 1 : 3;
        WatchLog([&](const std::string& line) {
            if (line.find(": cData") != std::string::npos) {
                info.iItemCount = changed;
            }
        });
        std::string report;
        EXPECT_TRUE(Logger(S).GetLog(report, &info, &items));
        EXPECT_EQ(report.find("\n[002]\n") != std::string::npos, changed == 2);
        EXPECT_EQ(report.find("\n[003]\n"), std::string::npos);
        WatchLog({});
    }
}

// The text with the lines in `changes` in the place of its own; one without a value goes.
std::string Changed(std::string text, const std::string& changes)
{
    std::istringstream stream(changes);
    for (std::string change; std::getline(stream, change, '|');) {
        const std::string key = change.substr(0, change.find('='));
        text = std::regex_replace(text, std::regex("\n" + key + "=[^\n]*(\n [^\n]*)*"),
                                  key == change ? "" : "\n" + change);
    }
    return text;
}

const std::string kTconError = "E version_probes m_GetVersionInfo: getTconDataVersion err.\n";
const std::string kNoLink = "E version_probes m_GetSoVersion: failed to get SO version\n";
const std::string kOddLink = "E version_probes m_GetSoVersion: failed to find so. file\n";

// One answer of the platform is not the full one's, and these lines differ.
TEST(Information, WhatThePlatformAnswersOrNot)
{
    const std::string comma125 = "a,b," + std::string(121, 'x') + ",y";
    const std::string full(40, 't');
    const std::string tooLong(128, 'o');
    const std::string longLink = std::string(1003, 'x') + "libPelkoInspect.so.78";
    const std::string comma126 = "a,b," + std::string(122, 'x') + ",";
    const struct {
        int line;
        Logger::Mode_e mode;
        const char* query;
        int result;
        const char* written;
        std::string text;
        std::string log = {};
    } rows[] = {
        {__LINE__, S, "0", -1, nullptr, "model="},
        {__LINE__, R, "0", -1, "M", "model=M"},
        {__LINE__, D, "128", -1, nullptr, "mm=*****"},
        {__LINE__, S, "128", 0, nullptr, "mm=*****"},
        {__LINE__, S, "128", 0, "", "mm="},
        {__LINE__, S, "133", -1, nullptr, "sm=*****|ss=*****"},
        {__LINE__, S, "133", 0, nullptr, "sm=*****|ss=*****"},
        {__LINE__, S, "133", 0, "A", "sm=A|ss=Not Supported"},
        {__LINE__, S, "133", 0, "\nA", "sm=\nA|ss=Not Supported"},
        {__LINE__, S, "133", 0, "", "sm=|ss=Not Supported"},
        {__LINE__, S, "133", 0, "\n\nA\n\nB\nC", "sm=A|ss=B"},
        {__LINE__, S, "panel", -1, nullptr, "mt=*****", kTconError},
        {__LINE__, R, "tcon", 1, "T", "mt=*****", kTconError},
        {__LINE__, S, "tcon", 0, full.c_str(), "mt=" + full},
        {__LINE__, S, "bluetooth", -1, "1", "bt=Not Supported\n"},
        {__LINE__, D, "bluetooth", 0, nullptr, "bt=Not Supported\n"},
        {__LINE__, S, "chip", 1, "5", "bt=*****\n"},
        {__LINE__, R, "chip", -1, nullptr, "bt=*****\n"},
        {__LINE__, S, "chip", 0, "-5", "bt=BLUETOOTH-VER-00-5"},
        {__LINE__, S, "chip", 0, "12345", "bt=BLUETOOTH-VER-12345"},
        {__LINE__, D, "7", 0, "0xFFFFFFFF", "ld1=*****"},
        {__LINE__, D, "7", 0, nullptr, "ld1=*****"},
        {__LINE__, D, "7", -1, "0xFFFFFFFE", "ld1=FFFFFFFE"},
        {__LINE__, R, "8", 0, "1", "ld2=00000001"},
        {__LINE__, S, "option", -1, "a,b,c,", "option=a,b,c\n    "},
        {__LINE__, S, "option", 0, ",a,b,c", "option=,a,b,c"},
        {__LINE__, S, "option", 0, ",,,,", "option=,,,\n    "},
        {__LINE__, S, "option", 0, nullptr, "option="},
        {__LINE__, S, "option", 0, comma125.c_str(),
         "option=" + comma125.substr(0, 125) + "\n    y"},
        {__LINE__, S, "option", 0, comma126.c_str(), "option=" + comma126},
        {__LINE__, R, "option", 0, tooLong.c_str(), "option=" + tooLong.substr(1)},
        {__LINE__, S, "link", -1, nullptr, "dnso", kNoLink},
        {__LINE__, S, "link", 0, "libPelkoInspect.so", "dnso", kOddLink},
        {__LINE__, S, "link", 0, "libPelkoInspect.so.", "dnso="},
        {__LINE__, S, "link", 0, "libPelkoInspect.so.1/libPelkoInspect.so.2.5", "dnso=2.5"},
        {__LINE__, S, "link", 0, longLink.c_str(), "dnso=7"},
    };
    for (const auto& row : rows) {
        platform.answers = kFullPlatform;
        platform.answers[row.query] = {row.result, {}};
        if (row.written != nullptr) {
            platform.answers[row.query].written = row.written;
        }
        const testing::ScopedTrace where(__FILE__, row.line, "row");
        std::string log;
        WatchLog([&](const std::string& line) { log += line[0] == 'E' ? line + "\n" : ""; });
        PelkoTestInfo_s info = MakeInfo();
        std::string text = "replaced";
        const std::string printed =
            Printed([&] { EXPECT_TRUE(Logger(row.mode).GetInfoLog(text, &info)); });
        const std::string whole = Column("run.txt", row.mode);
        const std::string section = whole.substr(0, whole.find("\n\n[001]"));
        EXPECT_TRUE(Same(Changed(section, row.text), text));
        EXPECT_EQ(log, row.log);
        EXPECT_EQ(printed, row.log.empty() ? "" : "> " + row.log.substr(row.log.find(": ") + 2));
    }
}

}  // namespace
