// Reports written from records and read back, and what is refused.
#include "reader/report_reader.h"

#include <fa_api/InspectionLogger.h>
#include <fa_platform/simulation.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <fstream>
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

struct Record {
    std::string option;
    int bluetooth = 0;  // an index of kBluetooth
    PelkoTestInfo_s info{};
    std::vector<PelkoItem_s> items;
    std::vector<std::string> notes;
    std::vector<std::string> details;
};

constexpr const char* kBluetooth[] = {"Not Supported", "*****", "BLUETOOTH-VER-0012"};

PelkoTestItemValue_s RandomValue(int type)
{
    return type == VALUE_INTEGER ? Num(Random(-2000000000, 2000000000))
           : type == VALUE_FLOAT ? Num(static_cast<float>(Random(-99999, 99999)) / 7)
                                 : Bytes(Random(1, 8), Random(0, 1) == 0 ? "error" : RandomText(8));
}

// A text field as far as its end.
template <typename Byte, std::size_t N>
std::string Chars(const Byte (&field)[N])
{
    return {field, std::find(field, field + N, '\0')};
}

// A value as a specification of it alone has it.
std::string TextOf(const PelkoTestItemValue_s& value, int type)
{
    PelkoItem_s item = MakeItem("", 0, 0, Format("spec=1 spectype=%d", type));
    item.astSpec[0] = value;
    std::string text;
    Logger(Logger::MODE_DETAIL).GetSpecLog(text, &item);
    return text;
}

// A count for a field: mostly a few, now and then at and past the field's edges.
int RandomCount(int capacity, int few = 3)
{
    const int edges[] = {-1, capacity - 1, capacity, capacity + 1, INT_MAX};
    return Random(0, 9) == 0 ? edges[Random(0, 4)] : Random(0, few);
}

// As many values as the record holds of those that it claims.
int Measured(const PelkoItem_s& item)
{
    return static_cast<int>(std::clamp(0LL + item.iMeasureCount + item.iExtraCount, 0LL, 96LL));
}

PelkoItem_s RandomItem(int index)
{
    // The item of which a simple report selects a value is one in eight.
    const bool multiple = Random(0, 7) == 0;
    PelkoItem_s item = MakeItem(RandomText(62), multiple ? 0xCC : 0x20,
                                multiple ? 0x11 : static_cast<unsigned char>(index));
    Set(item, Format("result=%d flags=%d datatype=2 datalength=%d insptype=%d retries=%d spec=%d "
                     "spectype=%d specs=%d select=%d expect=%d",
                     Random(1, 5), Random(0, 5) == 0 ? Random(1, 7) : 0, Random(-1, 1),
                     Random(0, 1), Random(0, 3), Random(SPEC_NONE, SPEC_LIST), Random(0, 3),
                     RandomCount(20, 20), Random(-1, 95), Random(-1, 4)));
    Set(item, Format("tid=%d ltid=%d starttime=%d duration=%d skips=%d errors=%d measures=%d "
                     "extras=%d type=%d codes=%d",
                     Random(0, 12), Random(-5, 99999), Random(0, 99999), Random(0, 99999),
                     RandomCount(16), RandomCount(64), RandomCount(96, 8), RandomCount(96),
                     Random(0, 3), RandomCount(96, 8)));
    if (item.eMeasureValueType == VALUE_STRING) {
        item.iListCount = Measured(item);  // else it cannot be told where a text ends
    }
    Put(item.szImqs, RandomText(776));
    Put(item.stMsgData.aucData, RandomText(32));
    for (unsigned char* codes : {item.aucSkip, item.aucError, item.aucList}) {
        std::generate_n(codes,
                        codes == item.aucSkip    ? 16
                        : codes == item.aucError ? 64
                                                 : 96,
                        [] { return static_cast<unsigned char>(Random(0, 255)); });
    }
    for (PelkoTestItemValue_s& value : item.astSpec) {
        value = RandomValue(item.eSpecValueType);
    }
    for (PelkoTestItemValue_s& value : item.astMeasure) {
        value = RandomValue(item.eMeasureValueType);
    }
    return item;
}

Record RandomRecord()
{
    Record record;
    record.option = RandomText(9);
    for (int commas = Random(0, 5); commas > 0; --commas) {
        record.option += "," + RandomText(9);
    }
    record.bluetooth = Random(0, 2);
    record.info.iItemCount = Random(-1, 12);
    record.info.iRetryCount = Random(-1, 3);
    record.info.stStartTime = {126, 11, 17, 0, 5, 9, {}};
    if (Random(0, 2) == 0) {
        PelkoInfoTime_s& odd = record.info.stStartTime;
        for (signed char* field : {&odd.cYear, &odd.cMonth, &odd.cDay, &odd.cHour, &odd.cMinute}) {
            *field = static_cast<signed char>(Random(-128, 125));
        }
    }
    Put(record.info.szSerialNumber, RandomText(28));
    record.info.iRunState = Random(2, 6);
    record.info.iFailCount = Random(-1, 1);
    record.info.ulDuration = static_cast<unsigned int>(Random(0, 2000000000)) * 2U;
    record.info.iLinkType = Random(-1, 3);
    for (unsigned int& value : record.info.aulLinkValue) {
        value = static_cast<unsigned int>(Random(INT_MIN, INT_MAX));
    }
    InspectionLogger::ClearAllInspectionLog();
    Logger::ClearFailedLog();
    for (int i = 0; i < record.info.iItemCount; ++i) {
        PelkoItem_s item = record.items.emplace_back(RandomItem(i));
        record.notes.emplace_back();
        record.details.emplace_back();
        if (item.ucCode1 != 0xCC && Random(0, 2) == 0) {
            Logger::RecordFailedItem(&item, INSPECTION_AUTO);
            record.notes.back() =
                Format("auto;%u;%u;%d", item.ulStartTime, item.ulDuration, item.lTid);
            record.details.back() = RandomText(100);
            InspectionLogger::AssignInspectionLog(item.ucCode1, item.ucCode2,
                                                  record.details.back());
        }
    }
    return record;
}

std::string Written(Record& record, int mode)
{
    const std::string option = std::regex_replace(record.option, std::regex(" "), "\\s");
    fa_platform::UseProfileText(
        Format("[factory_option]\n254=%s\n[custom_bool]\ncom.velmora/featureconf/bluetooth.support="
               "%s\n[bluetooth]\n%s\n",
               option.c_str(), record.bluetooth > 0 ? "true" : "false",
               record.bluetooth > 1 ? "chip_version=12" : "")
            .c_str());
    std::string report;
    Logger(static_cast<Logger::Mode_e>(mode)).GetLog(report, &record.info, &record.items);
    return report;
}

template <std::size_t N>
std::string Joined(const unsigned char (&codes)[N], int claimed)
{
    std::string names;
    for (int i = 0; i < std::clamp<int>(claimed, 0, N); ++i) {
        names.append(i > 0 ? "," : "").append(fa::SubItemName(codes[i]));
    }
    return names;
}

void ExpectSpec(const fa::Spec& spec, const PelkoItem_s& item, bool simple)
{
    const bool list = item.iSpecType == SPEC_LIST;
    const int listed = list ? std::clamp(item.iSpecCount, 0, 20) : 0;
    const bool empty = item.iSpecType == SPEC_NONE || (list && listed == 0);
    const int count = list ? std::max(listed, 1) : item.iSpecType == SPEC_RANGE ? 2 : 1;
    const int kind = empty || (list && count == 1) ? SPEC_VALUE : item.iSpecType;
    EXPECT_EQ(static_cast<int>(spec.kind), kind - SPEC_VALUE);
    EXPECT_EQ(spec.truncated, simple && count > 14);
    ASSERT_EQ(spec.limits.size(), static_cast<std::size_t>(spec.truncated ? 14 : count));
    for (std::size_t i = 0; i < spec.limits.size(); ++i) {
        EXPECT_EQ(spec.limits[i], empty ? "" : TextOf(item.astSpec[i], item.eSpecValueType));
    }
}

// All that the mode shows of an item is as in its record.
void ExpectItem(const fa::Item& read, fa::ReportMode mode, const Record& record)
{
    const bool raw = mode == fa::ReportMode::kRaw;
    const bool simple = mode == fa::ReportMode::kSimple;
    const std::size_t index = static_cast<std::size_t>(read.position) - 1;
    const PelkoItem_s& item = record.items.at(index);
    EXPECT_EQ(read.name, Chars(item.szName));
    EXPECT_EQ(read.imqs, raw ? Chars(item.szImqs) : "");
    EXPECT_EQ(read.codes ? read.codes->code1 << 8 | read.codes->code2 : -1,
              raw ? item.ucCode1 << 8 | item.ucCode2 : -1);
    const bool none = item.ulResult <= 1;
    const bool wrong = !none && item.ulErrorFlag != 0;
    EXPECT_EQ(read.result, none                         ? fa::ItemResult::kNone
                           : wrong || item.ulResult > 3 ? fa::ItemResult::kFail
                                                        : fa::ItemResult::kPass);
    EXPECT_EQ(read.hasErrorForm, wrong);
    EXPECT_EQ((read.specError ? 1U : 0) + (read.dataError ? 2U : 0) + (read.listError ? 4U : 0),
              wrong ? item.ulErrorFlag : 0);
    const bool whole = !none && !wrong;
    const bool hasData = whole && item.stMsgData.iLength > 0;
    EXPECT_EQ(read.data.value_or("none"), hasData ? Chars(item.stMsgData.aucData) : "none");
    EXPECT_EQ(read.timed, whole && !simple);
    if (read.timed) {
        EXPECT_EQ(read.duration, item.ulDuration);
        EXPECT_EQ(read.retries, item.iRetryCount);
        EXPECT_EQ(read.automatic, item.eInspType == INSPECTION_AUTO);
        EXPECT_EQ(read.tid, item.iTid >= 1 && item.iTid <= 9 ? item.iTid : item.lTid);
        EXPECT_EQ(read.startTime, item.ulStartTime);
    }
    EXPECT_EQ(read.skip, whole ? Joined(item.aucSkip, item.iSkipCount) : "");
    EXPECT_EQ(read.error, whole ? Joined(item.aucError, item.iErrorCount) : "");
    EXPECT_EQ(read.failureNote, whole && raw ? record.notes[index] : "");
    EXPECT_EQ(read.detail, whole && raw ? record.details[index] : "");

    const bool selects = simple && item.ucCode1 == 0xCC;
    const bool shown = whole && !(selects && item.iSelectIndex == -1);
    const bool hasSpec = item.iSpecType != SPEC_NONE;
    ASSERT_EQ(read.spec.has_value(), shown && (hasSpec || item.iMeasureCount > 0));
    if (read.spec) {
        ExpectSpec(fa::ReadSpec(*read.spec, mode), item, simple);
    }
    const bool enough =
        0LL + item.iMeasureCount + item.iExtraCount >= std::max(item.iListCount, item.iExpectCount);
    const bool hasValues =
        shown && Measured(item) > 0 &&
        (selects ? enough || item.iListCount > 0 : !hasSpec || item.iMeasureCount > 0);
    std::vector<fa::Value> values;
    fa::SplitValues(read, mode, values);
    ASSERT_EQ(values.size(), static_cast<std::size_t>(!hasValues ? 0
                                                      : selects  ? 1
                                                                 : Measured(item)));
    for (const fa::Value& value : values) {
        const int i = selects ? item.iSelectIndex : value.position - 1;
        const bool coded = raw && i < item.iListCount;
        EXPECT_EQ(value.text,
                  selects && !enough ? "" : TextOf(item.astMeasure[i], item.eMeasureValueType));
        EXPECT_EQ(value.code, coded ? item.aucList[i] : -1);
        EXPECT_EQ(value.label.value_or("none"), coded || (!raw && item.iListCount > 0)
                                                    ? fa::SubItemName(item.aucList[i])
                                                    : "none");
    }
}

void ExpectRun(const fa::Run& run, const Record& record)
{
    const PelkoTestInfo_s& info = record.info;
    const PelkoInfoTime_s& time = info.stStartTime;
    EXPECT_EQ(run.startTime, Format("%d%02d%02d%02d%02d09", time.cYear + 1900, time.cMonth,
                                    time.cDay, time.cHour, time.cMinute));
    if (time.cYear == 126) {
        EXPECT_EQ(run.start, 20261117000509U);
    }
    EXPECT_EQ(run.duration, info.ulDuration);
    EXPECT_EQ(run.result, info.iRunState == RUN_STATE_TIMED_OUT   ? fa::RunResult::kTimeout
                          : info.iRunState == RUN_STATE_STOPPED   ? fa::RunResult::kStop
                          : info.iRunState != RUN_STATE_COMPLETED ? fa::RunResult::kNone
                          : info.iFailCount > 0                   ? fa::RunResult::kFail
                                                                  : fa::RunResult::kPass);
    const auto& link = info.aulLinkValue;
    const std::string values = Format(", %u, %u, %u, %u", link[0], link[1], link[2], link[3]);
    EXPECT_EQ(run.link, info.iLinkType == LINK_TYPE_UART        ? "uart"
                        : info.iLinkType == LINK_TYPE_BLUETOOTH ? "bt" + values
                        : info.iLinkType == LINK_TYPE_WIFI      ? "wifi" + values
                                                                : "");
    EXPECT_EQ(run.retries, info.iRetryCount);
    EXPECT_EQ(run.SerialNumber(), Chars(info.szSerialNumber));
    EXPECT_EQ(fa::JoinedLines(run.Value("option")), record.option);
    EXPECT_EQ(run.Value("bt"), kBluetooth[record.bluetooth]);
}

class ReportReaderTest : public testing::Test
{
protected:
    ~ReportReaderTest() override { unlink(path_.c_str()); }

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

    std::string path_ = testing::TempDir() + Format("report-%d.txt", getpid());
};

// Runs, each in a mode of its own, come back as their records have them, in whatever pieces the
// file is read.
TEST_F(ReportReaderTest, ReadsWhatTheLibraryWrites)
{
    for (int round = 0; round < 150 && !HasFailure(); ++round) {
        std::string file;
        std::vector<std::pair<int, Record>> records(static_cast<std::size_t>(Random(1, 3)));
        for (auto& [mode, record] : records) {
            mode = Random(0, 2);
            record = RandomRecord();
            file +=
                Written(record, mode) + std::string(static_cast<std::size_t>(Random(0, 2)), '\n');
        }
        const testing::ScopedTrace where(__FILE__, __LINE__, file);
        auto next = records.begin();
        const auto take = [&](const fa::Run& run) {
            ASSERT_NE(next, records.end());
            const auto& [mode, record] = *next++;
            // A detailed and a raw report without items are the same.
            EXPECT_EQ(static_cast<int>(run.mode), run.items.empty() ? std::min(mode, 1) : mode);
            ExpectRun(run, record);
            ASSERT_EQ(run.items.size(), record.items.size());
            for (const fa::Item& item : run.items) {
                ExpectItem(item, run.mode, record);
            }
        };
        EXPECT_EQ(Refusal(file, static_cast<std::size_t>(Random(1, 3000)), take), "");
        EXPECT_EQ(next, records.end());
    }
}

// No beginning of a report passes for one, nor does it with another report in front of it.
TEST_F(ReportReaderTest, RefusesWhatIsCutOff)
{
    for (const int mode : {0, 1, 2}) {
        Record record = RandomRecord();
        record.info.iItemCount = std::min<int>(3, static_cast<int>(record.items.size()));
        const std::string report = Written(record, mode);
        for (std::size_t length = 0; length < report.size(); ++length) {
            const std::string piece = report.substr(0, length);
            ASSERT_NE(Refusal(piece), "") << piece;
            if (piece.find_first_not_of('\n') != std::string::npos) {
                ASSERT_NE(Refusal(report + piece, 100), "") << piece;
            }
        }
    }
}

// A sound report with one thing changed, and the line that is named; by itself, and after a report
// of 50 lines and an empty one.
TEST_F(ReportReaderTest, RefusesByLineAndReason)
{
    Record record;
    record.option = "A,B,C,D";
    record.bluetooth = 2;
    record.info.iItemCount = 2;
    record.items.assign(2, MakeItem("Supply", 0x10, 0x01, "spec=6 measures=1 codes=1"));
    const std::string raw = Written(record, Logger::MODE_RAW);
    const std::string detail = Written(record, Logger::MODE_DETAIL);
    ASSERT_EQ(Refusal(raw), "");
    const struct {
        const std::string& report;
        const char* part;  // a regular expression; its first match is replaced
        const char* by;
        const char* refusal;
    } rows[] = {
        {raw, "^", "\xEF\xBB\xBF", "1: no report begins here: [summary] expected"},
        {raw, "testnum=5", "testnum=4",
         "37: testnum counts 1 items, and no more may follow them here"},
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
        {raw, "option=[^\n]*", "option=A,B,C\n    D",
         "13: only a simple report's option has a second line"},
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
    EXPECT_EQ(Refusal(raw + "junk\n"),
              "51: testnum counts 2 items, and no more may follow them here");
    EXPECT_EQ(Refusal(raw + "\njunk\n"), "52: no report begins here: [summary] expected");
    path_ += "/none";
    EXPECT_EQ(Refusal(""), " Not a directory");
}

// Values whose text holds what separates them.
TEST(ItemValues, AreNotSplitByGuessing)
{
    using Mode = fa::ReportMode;
    const struct {
        Mode mode;
        const char* measure;
        const char* list;
        std::vector<std::string> values;
    } kCases[] = {
        {Mode::kDetail, "HDMI1:a,b,HDMI2:c:d", "", {"a,b", "c:d"}},
        {Mode::kDetail, ":1,PC:2", "", {"1", "2"}},
        {Mode::kDetail, "12:30,13:30", "", {"12:30", "13:30"}},
        {Mode::kSimple, "a,b\n    c", "", {"a,b", "c"}},
        {Mode::kRaw, "a,b,c", "0809", {"a,b,c"}},
        {Mode::kRaw, "a,b", "0809", {"a", "b"}},
        {Mode::kRaw, "1,-2.00,0xff", "08", {"1", "-2.00", "0xff"}},
        {Mode::kRaw, "", "", {}},
    };
    for (const auto& row : kCases) {
        fa::Item item;
        item.measure = row.measure;
        item.list = row.list;
        std::vector<fa::Value> values;
        fa::SplitValues(item, row.mode, values);
        std::vector<std::string> texts;
        for (const fa::Value& value : values) {
            texts.emplace_back(value.text);
        }
        EXPECT_EQ(texts, row.values) << row.measure;
    }
}

TEST(Text, IsValidWhateverTheBytes)
{
    EXPECT_EQ(fa::ValidText("a\xFFz\xC3\xA4"), "a\xEF\xBF\xBDz\xC3\xA4");
    EXPECT_EQ(fa::ValidText("\x1B[2J\t\x7F\xC2\x9B\xEF\xBF\xBE"),
              "\xEF\xBF\xBD[2J\t\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(fa::ValidText(std::string_view("a\0b", 3)),
              "a\xEF\xBF\xBD"
              "b");
}

}  // namespace
