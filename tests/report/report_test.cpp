// Whole reports in the three modes, and what writing them asks of the platform, logs and prints.
// In the files they are compared with, each line stands after the letters of its modes: simple,
// detail, raw.

#include <clocale>
#include <locale>

#include "support/platform_log.h"
#include "support/printed.h"
#include "support/records.h"
#include "support/scripted_platform.h"

namespace
{

std::string Column(const char* file, Logger::Mode_e mode)
{
    std::ifstream lines(std::string(TESTS "report/") + file);
    std::string column;
    for (std::string line; std::getline(lines, line);) {
        if (line.at(static_cast<std::size_t>(mode)) != ' ') {
            column += line.substr(4) + "\n";
        }
    }
    return column;
}

// What the platform answers, as in "128:0=MM|133:-1": to what, with which result, and what it
// writes.
void LetAnswer(const std::string& answers)
{
    static const std::regex kForm("([^|:]+):(-?[0-9]+)(=([^|]*))?");
    std::sregex_iterator answer(answers.begin(), answers.end(), kForm);
    for (; answer != std::sregex_iterator(); ++answer) {
        const std::smatch& part = *answer;
        platform.answers[part[1]] = {std::stoi(part[2]), {}};
        if (part[3].matched) {
            platform.answers[part[1]].written = part[4];
        }
    }
}

// Of a platform that has everything.
const std::string kAllAnswers =
    "0:0=SIM-55|128:0=MM|133:0=SM\nSS|bluetooth:0=1|chip:0=12|panel:0|tcon:0=TCON|7:0=0x1A2B3|8:0="
    "0|"
    "option:0=a,b,c,d,e|link:0=../lib/libPelkoInspect.so.1.2.3";

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
        info.aulLinkValue[i] = 1000000000 * i;
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
    LetAnswer(kAllAnswers);
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

// A decimal comma and groups of digits for streams; printf asks the C library's locale, which the
// build makes. As a locale of streams, it would leak memory of the C library.
class GroupedNumbers : public std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(Report, IsCompleteInEachModeWhateverTheLocale)
{
    ExpectTheReports();
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
    LetAnswer(kAllAnswers);
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
    info.iItemCount = info.iFailCount = -1;
    EXPECT_TRUE(Logger(R).GetLog(report, &info, &items));
    EXPECT_EQ(Line(report, "result"), "pass");
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

TEST(Information, SumsUpTheRun)
{
    PelkoTestInfo_s info = MakeInfo();
    info.stStartTime = {-128, 1, 5, 100, -1, 9, {}};
    info.iFailCount = 0;
    std::string words;
    for (int i = -1; i < 7; ++i) {
        info.iRunState = info.iLinkType = i;
        info.iItemCount = i == 6 ? 2147483647 : i;
        std::string text;
        EXPECT_TRUE(Logger(D).GetInfoLog(text, &info));
        EXPECT_EQ(Line(text, "starttime"), "17720105100-109");
        words +=
            Line(text, "result") + "|" + Line(text, "pelko") + "|" + Line(text, "testnum") + "\n";
    }
    EXPECT_EQ(words,
              "||2\n|uart|3\n|bt, 0, 1000000000, 2000000000, 3000000000|4\n"
              "|wifi, 0, 1000000000, 2000000000, 3000000000|5\npass||6\n"
              "timeout||7\nstop||8\n||2147483650\n");
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

// A platform that does not answer as the full one does, and the lines that differ then.
TEST(Information, WhatThePlatformAnswersOrNot)
{
    const std::string tcon = "E version_probes m_GetVersionInfo: getTconDataVersion err.\n";
    const std::string noLink = "E version_probes m_GetSoVersion: failed to get SO version\n";
    const std::string oddLink = "E version_probes m_GetSoVersion: failed to find so. file\n";
    const std::string full(40, 't');
    const std::string comma125 = "a,b," + std::string(121, 'x') + ",y";
    const std::string comma126 = "a,b," + std::string(122, 'x') + ",";
    const std::string tooLong(128, 'o');
    const std::string longLink = std::string(1003, 'x') + "libPelkoInspect.so.78";
    const struct {
        Logger::Mode_e mode;
        std::string answers;
        std::string changes;
        std::string log = {};
    } rows[] = {
        // Failures without anything written, and in spite of it; successes with nothing, and empty.
        {S, "0:-1|option:-1|128:-1|133:-1|panel:-1|link:-1",
         "model=|option=|mm=*****|sm=*****|ss=*****|mt=*****|dnso", tcon + noLink},
        {S, "0:-1=M|option:-1=a,b,c,|128:-1=M|133:-1=A\nB|bluetooth:-1=1",
         "model=M|option=a,b,c\n    |mm=*****|sm=*****|ss=*****|bt=Not Supported\n"},
        {R, "tcon:1=T|chip:1=5|7:-1=0xFFFFFFFE|8:0=1",
         "mt=*****|bt=*****\n|ld1=FFFFFFFE|ld2=00000001", tcon},
        {D, "0:0|option:0|128:0|133:0|bluetooth:0|7:0",
         "model=|option=|mm=*****|sm=*****|ss=*****|bt=Not Supported\n|ld1=*****"},
        {S, "128:0=|133:0=|tcon:0=|chip:-1", "mm=|sm=|ss=Not Supported|mt=|bt=*****\n"},
        // Texts at their edges.
        {S, "133:0=A|chip:0=-5|link:0=libPelkoInspect.so.",
         "sm=A|ss=Not Supported|bt=BLUETOOTH-VER-00-5|dnso="},
        {S, "133:0=\nA|chip:0=12345|link:0=libPelkoInspect.so",
         "sm=\nA|ss=Not Supported|bt=BLUETOOTH-VER-12345|dnso", oddLink},
        {S, "133:0=\n\nA\n\nB\nC|link:0=libPelkoInspect.so.1/libPelkoInspect.so.2.5",
         "sm=A|ss=B|dnso=2.5"},
        {D, "tcon:0=" + full + "|7:0=0xFFFFFFFF", "mt=" + full + "|ld1=*****"},
        {S, "option:0=,a,b,c|link:0=" + longLink, "option=,a,b,c|dnso=7"},
        {S, "option:0=,,,,", "option=,,,\n    "},
        {S, "option:0=" + comma125, "option=" + comma125.substr(0, 125) + "\n    y"},
        {S, "option:0=" + comma126, "option=" + comma126},
        {R, "option:0=" + tooLong, "option=" + tooLong.substr(1)},
    };
    for (const auto& row : rows) {
        LetAnswer(kAllAnswers + "|" + row.answers);
        std::string log;
        WatchLog([&](const std::string& line) { log += line[0] == 'E' ? line + "\n" : ""; });
        PelkoTestInfo_s info = MakeInfo();
        std::string text = "replaced";
        const std::string printed =
            Printed([&] { EXPECT_TRUE(Logger(row.mode).GetInfoLog(text, &info)); });
        const std::string whole = Column("run.txt", row.mode);
        const std::string section = whole.substr(0, whole.find("\n\n[001]"));
        EXPECT_TRUE(Same(Changed(section, row.changes), text));
        EXPECT_EQ(log, row.log);
        EXPECT_EQ(printed, std::regex_replace(log, std::regex("E [^:]*: "), "> "));
    }
}

}  // namespace
