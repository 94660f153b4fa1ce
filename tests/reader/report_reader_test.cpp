// Reports written from records and read back, and what is refused.
#include "reader/report_reader.h"

#include <fa_api/InspectionLogger.h>
#include <fa_platform/factory.h>
#include <fa_platform/system_info.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>

#include "PelkoAppClientLogger/sub_item_names.h"
#include "reader/text.h"
#include "support/records.h"

namespace
{

std::string option;
bool bluetooth = false;

}  // namespace

// The platform's answers that decide over lines of the information section.
extern "C" int factory_get_option_string_data(int, char* buffer, unsigned int*)
{
    std::snprintf(buffer, 128, "%s", option.c_str());
    return 0;
}

int system_info_get_custom_bool(const char*, bool* value)
{
    *value = bluetooth;
    return 0;
}

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
    PelkoTestInfo_s info{};
    std::vector<PelkoItem_s> items;
    std::vector<std::string> notes;
    std::vector<std::string> details;
};

PelkoTestItemValue_s RandomValue(PelkoValueType_e type)
{
    switch (type) {
        case VALUE_INTEGER:
            return Num(Random(-2000000000, 2000000000));
        case VALUE_FLOAT:
            return Num(static_cast<float>(Random(-99999, 99999)) / 7);
        case VALUE_HEX:
            return Bytes(Random(1, 8), RandomText(8));
        default:
            return Bytes(0, RandomText(20));
    }
}

std::string TextOf(const PelkoTestItemValue_s& value, PelkoValueType_e type)
{
    char text[100] = "0x";
    if (type == VALUE_INTEGER) {
        std::snprintf(text, sizeof(text), "%d", value.stNValue.iValue);
    } else if (type == VALUE_FLOAT) {
        std::snprintf(text, sizeof(text), "%.2f", static_cast<double>(value.stNValue.fValue));
    } else if (type == VALUE_HEX) {
        for (int i = 0; i < value.stCValue.iLength; ++i) {
            std::snprintf(text + 2 + 2 * i, 3, "%02x", value.stCValue.aucData[i]);
        }
    } else {
        return reinterpret_cast<const char*>(value.stCValue.aucData);
    }
    return text;
}

Record RandomRecord()
{
    Record record;
    option = RandomText(9);
    for (int commas = Random(0, 5); commas > 0; --commas) {
        option += "," + RandomText(9);
    }
    bluetooth = Random(0, 1) == 1;
    record.info.iItemCount = Random(0, 12);
    record.info.iRetryCount = Random(-1, 3);
    record.info.stStartTime = {126, 11, 17, static_cast<signed char>(Random(0, 23)), 5, 9, {}};
    Put(record.info.szSerialNumber, RandomText(27));
    record.info.iRunState = Random(2, 5);
    record.info.iFailCount = Random(0, 1);
    record.info.ulDuration = static_cast<unsigned int>(Random(0, 2000000000)) * 2U;
    record.info.iLinkType = Random(0, 3);
    InspectionLogger::ClearAllInspectionLog();
    PelkoAppClientLogger::ClearFailedLog();
    for (int i = 0; i < record.info.iItemCount; ++i) {
        const bool multiple =
            Random(0, 7) == 0;  // the item of which a simple report selects a value
        PelkoItem_s item = MakeItem(RandomText(40), multiple ? 0xCC : 0x20,
                                    multiple ? 0x11 : static_cast<unsigned char>(i));
        Put(item.szImqs, RandomText(60));
        item.ulResult = static_cast<unsigned int>(Random(1, 5));
        item.ulErrorFlag = Random(0, 5) == 0 ? static_cast<unsigned int>(Random(1, 7)) : 0;
        item.eMsgDataType = VALUE_STRING;
        item.stMsgData = Bytes(Random(0, 1), RandomText(20)).stCValue;
        item.ulDuration = static_cast<unsigned int>(Random(0, 99999));
        item.iRetryCount = Random(0, 3);
        item.iSpecType = Random(SPEC_NONE, SPEC_LIST);
        item.eSpecValueType = static_cast<PelkoValueType_e>(Random(0, 3));
        item.iSpecCount = Random(1, 20);
        for (PelkoTestItemValue_s& value : item.astSpec) {
            value = RandomValue(item.eSpecValueType);
        }
        item.eMeasureValueType = static_cast<PelkoValueType_e>(Random(0, 3));
        item.iMeasureCount = Random(0, 8);
        item.iExtraCount = Random(0, 3);
        const int count = item.iMeasureCount + item.iExtraCount;
        item.iSelectIndex = Random(-1, count - 1);
        for (PelkoTestItemValue_s& value : item.astMeasure) {
            value = RandomValue(item.eMeasureValueType);
        }
        item.iListCount = Random(0, 1) == 0                        ? 0
                          : item.eMeasureValueType == VALUE_STRING ? count
                                                                   : Random(0, count);
        for (unsigned char& code : item.aucList) {
            code = static_cast<unsigned char>(Random(0, 255));
        }
        item.iSkipCount = Random(0, 3);
        item.iErrorCount = Random(0, 3);
        Put(item.aucSkip, "\x08\x09\xFF");
        Put(item.aucError, "\x14\x01\x15");
        item.eInspType = static_cast<PelkoInspectionType_e>(Random(0, 1));
        item.iTid = Random(0, 12);
        item.lTid = Random(-5, 99999);
        item.ulStartTime = static_cast<unsigned int>(Random(0, 99999));
        record.notes.emplace_back();
        record.details.emplace_back();
        if (!multiple && Random(0, 2) == 0) {
            PelkoAppClientLogger::RecordFailedItem(&item, INSPECTION_AUTO);
            record.notes.back() = "auto;" + std::to_string(item.ulStartTime) + ";" +
                                  std::to_string(item.ulDuration) + ";" + std::to_string(item.lTid);
            record.details.back() = RandomText(60);
            InspectionLogger::AssignInspectionLog(item.ucCode1, item.ucCode2,
                                                  record.details.back());
        }
        record.items.push_back(item);
    }
    return record;
}

std::string Joined(const unsigned char* codes, int count)
{
    std::string names;
    for (int i = 0; i < count; ++i) {
        names.append(i > 0 ? "," : "").append(fa::SubItemName(codes[i]));
    }
    return names;
}

// What the mode shows of an item, from its record; each value on a line of its own.
std::string Expected(const Record& record, std::size_t index, Logger::Mode_e mode)
{
    const PelkoItem_s& item = record.items[index];
    const bool raw = mode == Logger::MODE_RAW;
    const bool simple = mode == Logger::MODE_SIMPLE;
    std::string text = std::string("name ") + item.szName;
    if (raw) {
        text += " codes " + std::to_string(item.ucCode1) + " " + std::to_string(item.ucCode2) +
                " imqs " + item.szImqs;
    }
    if (item.ulResult <= 1) {
        return text;
    }
    if (item.ulErrorFlag != 0) {
        return text + " fail wrong " + std::to_string(item.ulErrorFlag);
    }
    text += item.ulResult <= 3 ? " pass" : " fail";
    if (item.stMsgData.iLength > 0) {
        text += std::string(" data ") + reinterpret_cast<const char*>(item.stMsgData.aucData);
    }
    if (!simple) {
        const int tid = item.iTid >= 1 && item.iTid <= 9 ? item.iTid : item.lTid;
        text += " " + std::to_string(item.ulDuration) + " " + std::to_string(item.iRetryCount) +
                (item.eInspType == INSPECTION_AUTO ? " auto " : " normal ") + std::to_string(tid) +
                " " + std::to_string(item.ulStartTime);
    }
    text += " skip " + Joined(item.aucSkip, item.iSkipCount);
    text += " error " + Joined(item.aucError, item.iErrorCount);
    if (raw) {
        text += " note " + record.notes[index] + " detail " + record.details[index];
    }
    const bool selects = simple && item.ucCode1 == 0xCC && item.ucCode2 == 0x11;
    if (selects && item.iSelectIndex == -1) {
        return text;
    }
    const int count = item.iMeasureCount + item.iExtraCount;
    if (item.iSpecType != SPEC_NONE) {
        const int limits = item.iSpecType == SPEC_RANGE ? 2
                           : item.iSpecType == SPEC_LIST
                               ? (simple ? std::min(item.iSpecCount, 14) : item.iSpecCount)
                               : 1;
        const int kind =
            item.iSpecType == SPEC_LIST && item.iSpecCount == 1 ? SPEC_VALUE : item.iSpecType;
        text += " spec " + std::to_string(kind);
        for (int i = 0; i < limits; ++i) {
            text += " " + TextOf(item.astSpec[i], item.eSpecValueType);
        }
        text += simple && item.iSpecType == SPEC_LIST && item.iSpecCount > 14 ? " and more" : "";
    } else if (item.iMeasureCount > 0) {
        text += " spec 1 ";
    }
    if (!selects && item.iSpecType != SPEC_NONE && item.iMeasureCount == 0) {
        return text;
    }
    for (int i = selects ? item.iSelectIndex : 0; i < (selects ? item.iSelectIndex + 1 : count);
         ++i) {
        text += "\n" + TextOf(item.astMeasure[i], item.eMeasureValueType);
        if (raw && i < item.iListCount) {
            text += " code " + std::to_string(item.aucList[i]);
        }
        if (raw ? i < item.iListCount : item.iListCount > 0) {
            text += std::string(" label ") + fa::SubItemName(item.aucList[i]);
        }
    }
    return text;
}

// The same of an item that has been read.
std::string Describe(const fa::Item& item, fa::ReportMode mode)
{
    std::string text = "name " + std::string(item.name);
    if (item.codes) {
        text += " codes " + std::to_string(item.codes->code1) + " " +
                std::to_string(item.codes->code2) + " imqs " + std::string(item.imqs);
    }
    if (item.result == fa::ItemResult::kNone) {
        return text;
    }
    text += item.result == fa::ItemResult::kPass ? " pass" : " fail";
    if (item.hasErrorForm) {
        return text + " wrong " +
               std::to_string((item.specError ? 1 : 0) + (item.dataError ? 2 : 0) +
                              (item.listError ? 4 : 0));
    }
    if (item.data) {
        text += " data " + std::string(*item.data);
    }
    if (item.timed) {
        text += " " + std::to_string(item.duration) + " " + std::to_string(item.retries) +
                (item.automatic ? " auto " : " normal ") + std::to_string(item.tid) + " " +
                std::to_string(item.startTime);
    }
    text += " skip " + std::string(item.skip) + " error " + std::string(item.error);
    if (mode == fa::ReportMode::kRaw) {
        text += " note " + std::string(item.failureNote) + " detail " + std::string(item.detail);
    }
    if (item.spec) {
        const fa::Spec spec = fa::ReadSpec(*item.spec, mode);
        text += " spec " + std::to_string(static_cast<int>(spec.kind) + 1);
        for (const std::string_view limit : spec.limits) {
            text += " " + std::string(limit);
        }
        text += spec.truncated ? " and more" : "";
    }
    std::vector<fa::Value> values;
    fa::SplitValues(item, mode, values);
    for (const fa::Value& value : values) {
        text += "\n" + std::string(value.text);
        text += value.code >= 0 ? " code " + std::to_string(value.code) : "";
        text += value.label ? " label " + std::string(*value.label) : "";
    }
    return text;
}

class ReportReaderTest : public testing::Test
{
protected:
    ReportReaderTest()
    {
        std::string form = testing::TempDir() + "report-XXXXXX";
        path_ = mkdtemp(form.data()) + std::string("/run.txt");
    }

    ~ReportReaderTest() override
    {
        std::filesystem::remove_all(std::filesystem::path(path_).parent_path());
    }

    void Write(const std::string& text) const
    {
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << text;
    }

    // Why a file that holds the text is refused: "LINE: REASON"; "" where it is read.
    std::string Refusal(const std::string& text, std::size_t window = 1 << 16)
    {
        Write(text);
        try {
            fa::ReportReader(window).Read(path_, [&](const fa::Run&) { ++taken_; });
        } catch (const fa::RefusedFile& refused) {
            EXPECT_EQ(std::string(refused.what()).substr(0, path_.size() + 1), path_ + ":");
            return refused.what() + path_.size() + 1;
        }
        return "";
    }

    std::string path_;
    int taken_ = 0;
};

std::string Written(Record& record, Logger::Mode_e mode)
{
    std::string report;
    Logger(mode).GetLog(report, &record.info, &record.items);
    return report;
}

// Runs, each in a mode of its own, come back as their records have them, in whatever pieces the
// file is read.
TEST_F(ReportReaderTest, ReadsWhatTheLibraryWrites)
{
    for (int round = 0; round < 150; ++round) {
        std::string file;
        std::vector<std::string> expected;
        const int runs = Random(1, 3);
        for (int i = 0; i < runs; ++i) {
            const auto mode = static_cast<Logger::Mode_e>(Random(0, 2));
            Record record = RandomRecord();
            file +=
                Written(record, mode) + std::string(static_cast<std::size_t>(Random(0, 2)), '\n');
            constexpr const char* kResults[] = {"", "pass", "timeout", "stop", "fail"};
            const int state = record.info.iRunState;
            expected.push_back(std::string(record.info.szSerialNumber) + " option " + option +
                               " took " + std::to_string(record.info.ulDuration) + " retries " +
                               std::to_string(record.info.iRetryCount) + " result " +
                               kResults[state == 3 && record.info.iFailCount > 0 ? 4 : state - 2] +
                               " bt " + (bluetooth ? "BLUETOOTH-VER-0012" : "Not Supported"));
            for (std::size_t item = 0; item < record.items.size(); ++item) {
                expected.push_back(Expected(record, item, mode));
            }
        }
        Write(file);
        std::vector<std::string> read;
        fa::ReportReader reader(static_cast<std::size_t>(Random(1, 3000)));
        reader.Read(path_, [&](const fa::Run& run) {
            constexpr const char* kResults[] = {"", "pass", "fail", "timeout", "stop"};
            read.push_back(
                std::string(run.SerialNumber()) + " option " +
                fa::JoinedLines(run.Value("option")) + " took " + std::to_string(run.duration) +
                " retries " + std::to_string(run.retries) + " result " +
                kResults[static_cast<int>(run.result)] + " bt " + std::string(run.Value("bt")));
            for (const fa::Item& item : run.items) {
                read.push_back(Describe(item, run.mode));
            }
        });
        ASSERT_EQ(read, expected) << file;
    }
}

// No beginning of a report passes for one, nor does it with another report in front of it.
TEST_F(ReportReaderTest, RefusesWhatIsCutOff)
{
    for (const int mode : {0, 1, 2}) {
        Record record = RandomRecord();
        record.info.iItemCount = std::min<int>(3, static_cast<int>(record.items.size()));
        const std::string report = Written(record, static_cast<Logger::Mode_e>(mode));
        for (std::size_t length = 0; length < report.size(); ++length) {
            const std::string piece = report.substr(0, length);
            ASSERT_NE(Refusal(piece), "") << piece;
            if (piece.find_first_not_of('\n') != std::string::npos) {
                ASSERT_NE(Refusal(report + piece, 100), "") << piece;
            }
        }
    }
    EXPECT_EQ(taken_, 0) << "runs of a file that was refused";
}

// A sound report with one thing changed, and the line that is named.
TEST_F(ReportReaderTest, RefusesByLineAndReason)
{
    option = "A,B,C,D";
    bluetooth = true;
    PelkoItem_s item = MakeItem("Supply", 0x10, 0x01);
    item.iSpecType = SPEC_LESS;
    item.iMeasureCount = 1;
    item.iListCount = 1;
    Record record;
    record.info.iItemCount = 2;
    record.items = {item, item};
    const std::string raw = Written(record, Logger::MODE_RAW);
    const std::string detail = Written(record, Logger::MODE_DETAIL);
    ASSERT_EQ(Refusal(raw), "");
    const struct {
        const std::string& report;
        const char* part;  // a regular expression; its first match is replaced
        const char* by;
        const char* refusal;
    } kCases[] = {
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
        {raw, "option=[^\n]*", "option=A,B,C\n    D",
         "13: only a simple report's option has a second line"},
        {raw, "\\[002\\]", "[003]", "37: [002] expected"},
        {raw, "\\[001\\]", "[1]", "23: [001] expected"},
        {raw, "name=Supply, 0x10 01", "name=Sup\nply, 0x10 01", "25: result= expected"},
        {detail, "name=Supply", "name=Sup\nply", "25: result= expected"},
        {raw, "imqs=", "imqs=two\nlines", "26: result= expected"},
        {raw, "(spec=[^\n]*\n)(measure=[^\n]*\n)", "$2$1", "30: insptype= expected"},
        {raw, "list=00", "list=0", "31: list= holds no codes of two hexadecimal digits"},
        {raw, "insptype=normal", "insptype=odd", "32: unknown insptype"},
        {raw, "tid=0", "tid=x", "33: tid= is not followed by a number that a report can hold"},
        {raw, "failed=\\^\\^", "failed=^", "35: failed= holds no note and detail text between ^"},
        {raw, "failed=\\^\\^", "failed=^two\nlines^",
         "35: failed= holds no note and detail text between ^"},
        {detail, "starttime=0\n\n", "starttime=0\nmore=1\n\n", "33: an empty line ends the item"},
    };
    for (const auto& row : kCases) {
        const std::string changed = std::regex_replace(row.report, std::regex(row.part), row.by,
                                                       std::regex_constants::format_first_only);
        EXPECT_EQ(Refusal(changed), row.refusal) << row.part << " by " << row.by;
        EXPECT_EQ(Refusal(changed, 40), row.refusal) << "read in small pieces";
        const std::string refusal = row.refusal;
        const std::size_t colon = refusal.find(':');
        const std::string line = std::to_string(std::stoi(refusal) + 51);
        EXPECT_EQ(Refusal(raw + "\n" + changed, 40), line + refusal.substr(colon))
            << "behind a report of 50 lines and an empty one";
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
