// Reports written from records and read back, and what is refused.
#include "reader/report_reader.h"

#include <fa_platform/simulation.h>
#include <sys/mman.h>

#include <climits>
#include <random>

#include "PelkoAppClientLogger/sub_item_names.h"
#include "reader/text.h"
#include "support/records.h"
#include "support/trace.h"

namespace
{

std::mt19937 engine(20261117);

int Random(int low, int high)
{
    return std::uniform_int_distribution<int>(low, high)(engine);
}

std::string RandomText(int longest)
{
    std::string text;
    for (int length = Random(1, longest); length > 0; --length) {
        text += "aZ09 .;-_/^=[]\xC3\xA4"[Random(0, 15)];
    }
    return text;
}

template <typename Field, typename Value>
void Fill(Field& field, Value value)
{
    std::generate(std::begin(field), std::end(field), value);
}

PelkoTestItemValue_s RandomValue()
{
    PelkoTestItemValue_s value = Bytes(Random(1, 8), Random(0, 1) == 0 ? "error" : RandomText(8));
    value.stNValue = Num(static_cast<float>(Random(-99999, 99999)) / 7).stNValue;
    return value;
}

PelkoItem_s RandomItem(unsigned char code2)
{
    // The item of which a simple report selects a value is one in eight.
    const bool multiple = Random(0, 7) == 0;
    std::string settings = Format("result=%d flags=%d datatype=2 spectype=%d type=%d", Random(0, 5),
                                  Random(0, 5) == 0 ? Random(1, 7) : 0, Random(0, 3), Random(0, 3));
    std::istringstream names(
        "datalength insptype retries tid ltid starttime duration spec specs "
        "skips errors measures extras codes select expect");
    for (std::string name; names >> name;) {
        settings += Format(" %s=%d", name.c_str(), Random(-1, 20));
    }
    PelkoItem_s item =
        MakeItem(RandomText(62), multiple ? 0xCC : 0x20, multiple ? 0x11 : code2, settings);
    if (item.eMeasureValueType == VALUE_STRING) {
        item.iListCount = item.iMeasureCount + item.iExtraCount;  // else a text has no clear end
    }
    Put(item.szImqs, RandomText(776));
    Put(item.stMsgData.aucData, RandomText(32));
    const auto code = [] { return static_cast<unsigned char>(Random(0, 255)); };
    Fill(item.aucSkip, code);
    Fill(item.aucError, code);
    Fill(item.aucList, code);
    item.aucSkip[0] = item.aucError[0] = 0x08;  // has a name, so that no line of them is empty
    Fill(item.astSpec, RandomValue);
    Fill(item.astMeasure, RandomValue);
    return item;
}

// `bluetooth`: 0 without, 1 with an unknown version, 2 with one.
std::string Written(int mode, const std::string& option, int bluetooth, PelkoTestInfo_s info,
                    std::vector<PelkoItem_s> items)
{
    fa_platform::UseProfileText(
        Format("[factory_option]\n254=%s\n[custom_bool]\ncom.velmora/featureconf/bluetooth.support="
               "%s\n[bluetooth]\n%s\n",
               std::regex_replace(option, std::regex(" "), "\\s").c_str(),
               bluetooth > 0 ? "true" : "false", bluetooth > 1 ? "chip_version=12" : "")
            .c_str());
    std::string report;
    Logger(static_cast<Logger::Mode_e>(mode)).GetLog(report, &info, &items);
    return report;
}

struct Report {
    int mode = Random(0, 2);
    std::string option = RandomText(9);
    std::string text = {};
};

Report RandomReport(int mostItems = 12)
{
    Report report;
    for (int commas = Random(0, 5); commas > 0; --commas) {
        report.option += "," + RandomText(9);
    }
    PelkoTestInfo_s info{};
    info.iRetryCount = Random(-1, 3);
    info.stStartTime = {126, 11, 17, 0, 5, 9, {}};
    if (Random(0, 2) == 0) {
        info.stStartTime.cDay = info.stStartTime.cHour =
            static_cast<signed char>(Random(-128, 125));
    }
    Put(info.szSerialNumber, RandomText(28));
    info.iRunState = Random(2, 6);
    info.iFailCount = Random(-1, 1);
    info.ulDuration = static_cast<unsigned int>(Random(0, 2000000000)) * 2U;
    info.iLinkType = Random(-1, 3);
    Fill(info.aulLinkValue, [] { return static_cast<unsigned int>(Random(INT_MIN, INT_MAX)); });
    std::vector<PelkoItem_s> items(static_cast<std::size_t>(Random(0, mostItems)));
    info.iItemCount = items.empty() ? -1 : static_cast<int>(items.size());
    for (PelkoItem_s& item : items) {
        item = RandomItem(static_cast<unsigned char>(&item - items.data()));
        if (Random(0, 2) == 0) {
            Logger::RecordFailedItem(&item, INSPECTION_AUTO);
            InspectionLogger::AssignInspectionLog(item.ucCode1, item.ucCode2, RandomText(100));
        }
    }
    report.text = Written(report.mode, report.option, Random(0, 2), info, items);
    return report;
}

// The text of a specification again, from its parts.
std::string Rewritten(const fa::Spec& spec, fa::ReportMode mode)
{
    constexpr const char* kSigns[] = {"", "!=", ">=", "<=", ">", "<", "", ""};
    const bool simple = mode == fa::ReportMode::kSimple;
    const std::string separator = spec.kind == fa::SpecKind::kRange ? "~" : simple ? "\n    " : ",";
    std::string text;
    for (const std::string_view& limit : spec.limits) {
        EXPECT_EQ(limit.find_first_of("!<>~,\n"), std::string::npos) << limit;
        text.append(&limit == &spec.limits.front() ? "" : separator).append(limit);
    }
    return text + kSigns[static_cast<int>(spec.kind)] +
           (spec.truncated                       ? separator + "..."
            : simple && spec.limits.size() == 14 ? "..."
                                                 : "");
}

// The text of the values again, from each.
std::string RewrittenValues(const fa::Item& item, fa::ReportMode mode)
{
    std::vector<fa::Value> values;
    fa::SplitValues(item, mode, values);
    std::string text;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const fa::Value& value = values[i];
        EXPECT_EQ(value.position, static_cast<int>(i) + 1);
        EXPECT_EQ(value.text.find_first_of(",:\n"), std::string::npos) << value.text;
        const bool coded = i < item.list.size() / 2;
        const int code =
            coded ? std::stoi(std::string(item.list.substr(i * 2, 2)), nullptr, 16) : -1;
        EXPECT_EQ(value.code, code);
        if (coded) {
            EXPECT_EQ(value.label, fa::SubItemName(static_cast<unsigned char>(code)));
        }
        text += i == 0 ? "" : mode == fa::ReportMode::kSimple ? "\n    " : ",";
        text += value.label && !coded ? std::string(*value.label) + ":" : "";
        text += value.text;
    }
    return text;
}

// A report again, from what was read of it.
void Rewrite(const fa::Run& run, std::ostringstream& text)
{
    constexpr const char* kResults[] = {"", "pass", "fail", "timeout", "stop"};
    const bool raw = run.mode == fa::ReportMode::kRaw;
    const auto line = [&](bool there, const char* key, const auto& value) {
        if (there) {
            text << key << "=" << value << "\n";
        }
    };
    text << "[summary]\nstarttime=" << run.startTime << "\nduration=" << run.duration
         << "\nresult=" << kResults[static_cast<int>(run.result)] << "\npelko=" << run.link
         << "\ntestnum=" << (run.items.empty() ? 2 : run.items.size() + 3)
         << "\nretrycount=" << run.retries << "\n\n[information]\n";
    for (const auto& [key, value] : run.information) {
        text << key << "=" << value << "\n";
        text << (key == "bt" && (value == "*****" || value == "Not Supported") ? "\n" : "");
    }
    text << (run.mode == fa::ReportMode::kSimple ? "\n\n" : "\n\n\n");
    for (const fa::Item& item : run.items) {
        const std::string_view codes = item.nameLine.substr(item.name.size());
        ASSERT_EQ(item.codes.has_value(), raw);
        EXPECT_EQ(codes, raw ? Format(", 0x%02x %02x", item.codes->code1, item.codes->code2) : "");
        text << Format("[%03d]\nname=", item.position) << item.name << codes << "\n";
        line(raw, "imqs", item.imqs);
        line(item.data.has_value(), "data", item.data.value_or(""));
        line(item.result != fa::ItemResult::kNone, "result",
             kResults[static_cast<int>(item.result)]);
        line(item.dataError, "data", "error");
        line(item.specError, "spec", "error");
        line(item.listError, "list", "error");
        line(item.timed, "duration", item.duration);
        line(item.timed, "retrycount", item.retries);
        line(item.spec.has_value(), "spec",
             Rewritten(fa::ReadSpec(item.spec.value_or(""), run.mode), run.mode));
        line(item.measure.has_value(), "measure", RewrittenValues(item, run.mode));
        line(!item.skip.empty(), "skip", item.skip);
        line(!item.error.empty(), "error", item.error);
        line(!item.list.empty(), "list", item.list);
        line(item.timed, "insptype", item.automatic ? "auto" : "normal");
        line(item.timed, "tid", item.tid);
        line(item.timed, "starttime", item.startTime);
        line(raw && item.timed, "failed",
             std::string(item.failureNote) + "^" + std::string(item.detail) + "^");
        text << "\n";
        EXPECT_EQ(item.hasErrorForm, item.dataError || item.specError || item.listError);
        EXPECT_EQ(item.failureNote.find('^'), std::string::npos);
    }
}

class ReportReaderTest : public testing::Test
{
protected:
    // Why a file that holds the text is refused: "LINE: REASON"; "" where it is read.
    std::string Refusal(
        const std::string& text, std::size_t window = 1 << 16,
        const fa::ReportReader::Take& take = [](const fa::Run&) {})
    {
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << text;
        bool taken = false;
        try {
            fa::ReportReader(window).Read(path_, [&](const fa::Run& run) {
                taken = true;
                take(run);
            });
        } catch (const fa::RefusedFile& refused) {
            EXPECT_FALSE(taken) << "a run of a file that is refused";
            EXPECT_EQ(std::string(refused.what()).substr(0, path_.size() + 1), path_ + ":");
            return refused.what() + path_.size() + 1;
        }
        return "";
    }

    std::string path_ = Format("/proc/self/fd/%d", memfd_create("report", 0));
};

// Nothing is lost or in the place of another: runs, each in a mode of its own, can be written again
// from what is read of them, in whatever pieces the file is read.
TEST_F(ReportReaderTest, ReadsWhatTheLibraryWrites)
{
    for (int round = 0; round < 150 && !HasFailure(); ++round) {
        std::string file;
        std::vector<Report> reports(static_cast<std::size_t>(Random(1, 3)));
        for (Report& report : reports) {
            report = RandomReport();
            file += report.text + std::string(static_cast<std::size_t>(Random(0, 2)), '\n');
        }
        auto next = reports.begin();
        const auto take = [&](const fa::Run& run) {
            ASSERT_NE(next, reports.end());
            const auto& [mode, option, text] = *next++;
            std::ostringstream rewritten;
            Rewrite(run, rewritten);
            EXPECT_TRUE(Same(text, rewritten.str()));
            // A detailed and a raw report without items are the same.
            EXPECT_EQ(static_cast<int>(run.mode), run.items.empty() ? std::min(mode, 1) : mode);
            EXPECT_EQ(fa::JoinedLines(run.Value("option")), option);
            EXPECT_EQ(run.SerialNumber(), run.information.at(0).value);
            EXPECT_TRUE(run.start == 20261117000509U || run.startTime != "20261117000509");
        };
        EXPECT_EQ(Refusal(file, static_cast<std::size_t>(Random(1, 3000)), take), "") << file;
        EXPECT_EQ(next, reports.end());
    }
}

// No beginning of a report passes for one, nor does it with another report in front of it.
TEST_F(ReportReaderTest, RefusesWhatIsCutOff)
{
    for (int round = 0; round < 12; ++round) {
        const std::string report = RandomReport(2).text;
        for (std::size_t length = 0; length < report.size(); ++length) {
            const std::string piece = report.substr(0, length);
            ASSERT_NE(Refusal(piece), "") << piece;
            ASSERT_TRUE(piece.empty() || !Refusal(report + piece, 100).empty()) << piece;
        }
    }
}

// A sound report with one thing changed, and the line that is named; by itself, and after a report
// of 50 lines and an empty one.
TEST_F(ReportReaderTest, RefusesByLineAndReason)
{
    PelkoTestInfo_s info{};
    info.iItemCount = 2;
    const std::vector items(2, MakeItem("Supply", 0x10, 0x01, "spec=6 measures=1 codes=1"));
    const std::string raw = Written(Logger::MODE_RAW, "A,B,C,D", 2, info, items);
    const std::string detail = Written(Logger::MODE_DETAIL, "A,B,C,D", 2, info, items);
    ASSERT_EQ(Refusal(raw), "");
    const struct {
        const std::string& report;
        const char* part;  // a regular expression; its first match is replaced
        const char* by;
        const char* refusal;
    } rows[] = {
        {raw, "^", "\xEF\xBB\xBF", "1: no report begins here: [summary] expected"},
        {raw, "$", "junk\n", "51: testnum counts 2 items, and no more may follow them here"},
        {raw, "$", "\njunk\n", "52: no report begins here: [summary] expected"},
        {raw, "num=5", "num=4", "37: testnum counts 1 items, and no more may follow them here"},
        {raw, "testnum=5", "testnum=6", "51: the report is cut off: [003] expected"},
        {raw, "testnum=5", "testnum=99999999999999999999",
         "6: testnum= is not followed by a number that a report can hold"},
        {raw, "result=", "result=maybe", "4: unknown result"},
        {raw, "model=", "model=A\nB\nC=", "12: no key=value line of the information section"},
        {raw, "mm=[^\n]*\n", "", "13: sm= has no place here"},
        {raw, "(mm=[^\n]*\n)", "$1$1", "14: mm= has no place here"},
        {raw, "ld2=[^\n]*\n", "", "22: ld2= expected"},
        {raw, "\n\n\n\n", "\n\n\n", "22: 3 empty lines end the information section"},
        {raw, "\n\n\n\n\\[", "\n\n\n\n\n[", "24: 3 empty lines end the information section"},
        {raw, "0x10 01", "0x10_01", "24: the item's codes are missing after its name"},
        {raw, "C,D", "C\n    D", "13: only a simple report's option has a second line"},
        {raw, "\\[002\\]", "[003]", "37: [002] expected"},
        {raw, "name=Supply, 0x10 01", "name=Sup\nply, 0x10 01", "25: result= expected"},
        {detail, "name=Supply", "name=Sup\nply", "25: result= expected"},
        {raw, "(spec=[^\n]*\n)(measure=[^\n]*\n)", "$2$1", "30: insptype= expected"},
        {raw, "list=00", "list=0", "31: list= holds no codes of two hexadecimal digits"},
        {raw, "insptype=normal", "insptype=odd", "32: unknown insptype"},
        {raw, "failed=\\^\\^", "failed=^", "35: failed= holds no note and detail text between ^"},
        {detail, "starttime=0\n\n", "starttime=0\nmore=1\n\n", "33: an empty line ends the item"},
    };
    for (const auto& row : rows) {
        const std::string changed = std::regex_replace(row.report, std::regex(row.part), row.by,
                                                       std::regex_constants::format_first_only);
        const std::string reason = std::strchr(row.refusal, ':');
        for (const std::size_t window : {std::size_t{1} << 16, std::size_t{40}}) {
            EXPECT_EQ(Refusal(changed, window), row.refusal) << row.part << " by " << row.by;
            EXPECT_EQ(Refusal(raw + "\n" + changed, window),
                      std::to_string(std::stoi(row.refusal) + 51) + reason);
        }
    }
    path_ += "/none";
    EXPECT_EQ(Refusal(""), " Not a directory");
}

// Values whose text holds what separates them, each after a bar.
TEST(ItemValues, AreNotSplitByGuessing)
{
    using Mode = fa::ReportMode;
    const struct {
        Mode mode;
        const char *measure, *list, *values;
    } kCases[] = {
        {Mode::kDetail, "HDMI1:a,b,HDMI2:c:d", "", "|a,b|c:d"},
        {Mode::kDetail, ":1,PC:2", "", "|1|2"},
        {Mode::kDetail, "12:30,13:30", "", "|12:30|13:30"},
        {Mode::kSimple, "a,b\n    c", "", "|a,b|c"},
        {Mode::kRaw, "a,b,c", "0809", "|a,b,c"},
        {Mode::kRaw, "a,b", "0809", "|a|b"},
        {Mode::kRaw, "1,-2.00,0xff", "08", "|1|-2.00|0xff"},
        {Mode::kRaw, "", "", ""},
    };
    for (const auto& row : kCases) {
        fa::Item item;
        item.measure = row.measure;
        item.list = row.list;
        std::vector<fa::Value> values;
        fa::SplitValues(item, row.mode, values);
        std::string texts;
        for (const fa::Value& value : values) {
            texts.append("|").append(value.text);
        }
        EXPECT_EQ(texts, row.values);
    }
}

}  // namespace
