// The section of one item: every line at and past its edges, and the notes of failed items.
#include <gtest/gtest.h>

#include <climits>
#include <fstream>
#include <functional>
#include <sstream>

#include "support/records.h"
#include "support/trace.h"

namespace
{

constexpr auto S = Logger::MODE_SIMPLE;
constexpr auto D = Logger::MODE_DETAIL;
constexpr auto R = Logger::MODE_RAW;
constexpr auto kNoType = static_cast<PelkoValueType_e>(4);
using Item = PelkoItem_s;
using Change = std::function<void(Item&)>;

Change Spec(int kind, int type, const std::vector<PelkoTestItemValue_s>& values, int count = 0)
{
    return [=](Item& item) {
        item.iSpecType = kind;
        item.eSpecValueType = static_cast<PelkoValueType_e>(type);
        item.iSpecCount = count;
        std::copy(values.begin(), values.end(), item.astSpec);
    };
}

// Result values; those of the multiple-data item where one is selected.
Change Values(int measureCount, int extraCount, int listCount, int kind = SPEC_NONE,
              int selected = INT_MAX, int expectCount = 0)
{
    return [=](Item& item) {
        item.iMeasureCount = measureCount;
        item.iExtraCount = extraCount;
        item.iListCount = listCount;
        item.iSpecType = kind;
        item.iSelectIndex = selected;
        item.iExpectCount = expectCount;
        if (selected != INT_MAX) {
            std::swap(item.ucCode1, item.ucCode2);
        }
    };
}

Change Message(PelkoValueType_e type, int length, std::string_view bytes)
{
    return [=](Item& item) {
        item.eMsgDataType = type;
        item.stMsgData = Bytes(length, bytes).stCValue;
        item.ulResult = 0x21212121;
    };
}

// Three named codes in each list, and the numbers 1, 2, 3 ... as specification and result values.
Item NumberedItem()
{
    Item item = MakeItem("Item", 0x11, 0xCC);
    item.lTid = -4;
    item.stMsgData = Bytes(1, "left over").stCValue;
    for (unsigned char* codes : {item.aucSkip, item.aucError, item.aucList}) {
        std::copy_n("\x08\x09\x0A\xFF", 4, codes);
    }
    for (int i = 0; i < 96; ++i) {
        item.astMeasure[i] = Num(i + 1);
        item.astSpec[std::min(i, 19)] = Num(i + 1);
    }
    return item;
}

TEST(ItemSection, EveryLineAndItsEdges)
{
    const std::string full(32, '3');
    const std::string thirteen =
        "1\n    2\n    3\n    4\n    5\n    6\n    7\n    8\n    9\n    10\n"
        "    11\n    12\n    13";
    const struct {
        int line;
        Logger::Mode_e mode;
        Change change;
        const char* key;
        std::string text;
    } rows[] = {
        {__LINE__, D, Spec(SPEC_VALUE, VALUE_INTEGER, {Num(INT_MIN)}), "spec", "-2147483648"},
        {__LINE__, D, Spec(SPEC_NOT_EQUAL, VALUE_INTEGER, {Num(-5)}), "spec", "-5!="},
        {__LINE__, D, Spec(SPEC_GREATER_EQUAL, VALUE_FLOAT, {Num(1.005F)}), "spec", "1.00>="},
        {__LINE__, D, Spec(SPEC_LESS_EQUAL, VALUE_FLOAT, {Num(-0.5F)}), "spec", "-0.50<="},
        {__LINE__, D, Spec(SPEC_GREATER, VALUE_FLOAT, {Num(1e10F)}), "spec", "10000000000.00>"},
        {__LINE__, D, Spec(SPEC_LESS, VALUE_HEX, {Bytes(2, "\x0A\xFF")}), "spec", "0x0aff<"},
        {__LINE__, D, Spec(SPEC_LESS, VALUE_HEX, {Bytes(33, full)}), "spec",
         "0x" + full + full + "<"},
        {__LINE__, D, Spec(SPEC_LESS, VALUE_HEX, {Bytes(0, full)}), "spec", "<"},
        {__LINE__, D, Spec(9, VALUE_HEX, {Bytes(INT_MIN, full)}), "spec", ""},
        {__LINE__, D, Spec(-1, VALUE_STRING, {Bytes(0, "odd, = text")}), "spec", "odd, = text"},
        {__LINE__, D, Spec(SPEC_RANGE, VALUE_STRING, {Bytes(1, full), Bytes(9, "y")}), "spec",
         full + "~y"},
        {__LINE__, D, Spec(SPEC_VALUE, -1, {}), "spec", ""},
        {__LINE__, S, Spec(SPEC_LIST, VALUE_INTEGER, {}, 13), "spec", thirteen},
        {__LINE__, S, Spec(SPEC_LIST, VALUE_INTEGER, {}, 14), "spec", thirteen + "\n    14..."},
        {__LINE__, S, Spec(SPEC_LIST, VALUE_INTEGER, {}, 15), "spec",
         thirteen + "\n    14\n    ..."},
        {__LINE__, D, Values(2, 3, 1), "measure", "HDMI1:1,HDMI2:2,HDMI3:3,:4,:5"},
        {__LINE__, D, Values(-1, 3, -1), "measure", "1,2"},
        {__LINE__, D, Values(0, 1, 0), "spec", "none"},
        {__LINE__, D, Values(0, 1, 0), "measure", "1"},
        {__LINE__, D, Values(0, 2, 0, SPEC_LESS), "spec", "1<"},
        {__LINE__, D, Values(0, 2, 0, SPEC_LESS), "measure", ""},
        {__LINE__, D, Values(1, -1, 0), "spec", ""},
        {__LINE__, D, Values(1, -1, 0), "measure", "none"},
        {__LINE__, S, Values(1, 2, 3, SPEC_LESS, 2, 3), "measure", "HDMI3:3"},
        {__LINE__, S, Values(1, 1, 3, SPEC_LESS, 2, 0), "measure", "HDMI3:"},
        {__LINE__, S, Values(2, 1, 3, SPEC_LESS, 2, 4), "measure", "HDMI3:"},
        {__LINE__, S, Values(3, 0, 0, SPEC_LESS, 4, -1), "measure", "5"},
        {__LINE__, S, Values(1, 0, 1, SPEC_LESS, 0), "measure", "HDMI1:1"},
        {__LINE__, S, Values(3, 0, 3, SPEC_LESS, 95), "measure", ":96"},
        {__LINE__, S, Values(INT_MAX, INT_MAX, 3, SPEC_LESS, 96), "measure", ""},
        {__LINE__, S, Values(3, 0, 3, SPEC_LESS, INT_MIN), "measure", ""},
        {__LINE__, S, Values(0, 0, 3, SPEC_LESS, 2), "measure", ""},
        {__LINE__, S, Values(3, 0, 3, SPEC_LESS, -1), "measure", "none"},
        {__LINE__, D, Values(2, 0, 1, SPEC_LESS, -1), "measure", "HDMI1:1,HDMI2:2"},
        {__LINE__, S, [](auto& i) { i.ulResult = 1; }, "result", "none"},
        {__LINE__, S, [](auto& i) { i.ulResult = 3; }, "result", "pass"},
        {__LINE__, S, [](auto& i) { i.ulResult = 4; }, "result", "fail"},
        {__LINE__, S, [](auto& i) { i.ulErrorFlag = 1; }, "spec", "error"},
        {__LINE__, S, [](auto& i) { i.ulErrorFlag = 2; }, "data", "error"},
        {__LINE__, S, [](auto& i) { i.ulErrorFlag = 6; }, "spec", "none"},
        {__LINE__, S, [](auto& i) { i.ulErrorFlag = 5; }, "data", "none"},
        {__LINE__, S, [](auto& i) { i.ulErrorFlag = 3; }, "list", "none"},
        {__LINE__, S, [](auto& i) { i.ulErrorFlag = 4; }, "list", "error"},
        {__LINE__, R, [](auto& i) { i.ulErrorFlag = 8; }, "tid", "none"},
        {__LINE__, S, Message(VALUE_INTEGER, 1, "\xFF\xFF\xFF\xFE"), "data", "-2"},
        {__LINE__, S, Message(VALUE_INTEGER, 0, "text"), "data", "none"},
        {__LINE__, D, Message(VALUE_STRING, -1, "text"), "data", "none"},
        {__LINE__, R, Message(VALUE_STRING, INT_MIN, "text"), "data", "none"},
        {__LINE__, R, Message(VALUE_STRING, 1, "text"), "data", "text"},
        {__LINE__, S, Message(VALUE_HEX, 4, "text"), "data", ""},
        {__LINE__, S, Message(VALUE_STRING, 99, full), "data", full},
        {__LINE__, R, [](auto& i) { i.iTid = 0; }, "tid", "-4"},
        {__LINE__, R, [](auto& i) { i.iTid = 1; }, "tid", "1"},
        {__LINE__, D, [](auto& i) { i.iTid = 9; }, "tid", "9"},
        {__LINE__, D, [](auto& i) { i.iTid = 10; }, "tid", "-4"},
        {__LINE__, D, [](auto& i) { i.eInspType = PelkoInspectionType_e(2); }, "insptype",
         "normal"},
        {__LINE__, S, [](auto& i) { i.iSkipCount = 5; }, "skip", "HDMI1,HDMI2,HDMI3,,"},
    };
    for (const auto& row : rows) {
        Item item = NumberedItem();
        row.change(item);
        EXPECT_EQ(Line(Section(row.mode, item), row.key), row.text) << "in line " << row.line;
    }
}

TEST(ItemSection, CountsStayInsideTheirFields)
{
    const std::tuple<int Item::*, const char*, int> fields[] = {
        {&Item::iSkipCount, "skip", 16},     {&Item::iErrorCount, "error", 64},
        {&Item::iListCount, "list", 96},     {&Item::iMeasureCount, "measure", 96},
        {&Item::iExtraCount, "measure", 96}, {&Item::iSpecCount, "spec", 20}};
    for (const auto& [count, key, capacity] : fields) {
        Item item = MakeItem("Item", 1, 2);
        item.iSpecType = count == &Item::iSpecCount ? SPEC_LIST : SPEC_NONE;
        item.eSpecValueType = VALUE_STRING;
        item.eMeasureValueType = kNoType;
        for (const int given : {INT_MIN, -1, capacity - 1, capacity, capacity + 1, 255, INT_MAX}) {
            item.*count = given;
            const auto shown = static_cast<std::size_t>(std::clamp(given, 0, capacity));
            std::string text = count == &Item::iListCount
                                   ? std::string(shown * 2, '0')
                                   : std::string(shown, ',').substr(given > 0);
            EXPECT_EQ(Line(Section(R, item), key),
                      given > 0 || item.iSpecType != 0 ? text : "none");
        }
    }
}

TEST(ItemSection, ARefusalLeavesTheTextAlone)
{
    Item item = NumberedItem();
    item.iExtraCount = item.iSpecCount = 2;
    item.eSpecValueType = item.eMeasureValueType = kNoType;
    std::string text = "untouched";
    for (item.iSpecType = SPEC_LIST; item.iSpecType > SPEC_NONE; --item.iSpecType) {
        EXPECT_FALSE(Logger(D).GetSpecLog(text, &item) || Logger(D).GetResultLog(text, &item));
    }
    EXPECT_FALSE(Logger(D).GetSpecLog(text, &item));
    item.iExtraCount = 0;
    EXPECT_FALSE(Logger(D).GetResultLog(text, &item));
    EXPECT_EQ(text, "untouched");
    item.iExtraCount = 2;
    item.iListCount = 1;
    EXPECT_TRUE(Logger(D).GetResultLog(text, &item));
    EXPECT_EQ(text, "HDMI1:,HDMI2:");
}

TEST(ItemSection, HeadersAndFullTexts)
{
    Item item = MakeItem(std::string(62, 'n'), 0xCC, 0x01);
    item.ulErrorFlag = 0x21212127;
    Put(item.szImqs, std::string(776, 'i'));
    EXPECT_EQ(Section(R, item), "[001]\nname=" + std::string(62, 'n') +
                                    ", 0xcc 01\nimqs=" + std::string(776, 'i') +
                                    "\nresult=fail\ndata=error\nspec=error\nlist=error\n");
    item = MakeItem("Foo", 0, 0);
    item.ulResult = 0;
    EXPECT_EQ(Section(D, item, 8) + Section(S, item, 999) + Section(D, item, -6),
              "[009]\nname=Foo\n[1000]\nname=Foo\n[0-5]\nname=Foo\n");
}

TEST(ItemSection, NamesOfSubItems)
{
    std::ifstream rows(TEST_REPORTS "sub_item_names.txt");  // eight in each, after the first's code
    int code = 0;
    std::string name;
    for (std::string row; std::getline(rows, row);) {
        std::istringstream cells(row + "|");
        std::getline(cells, name, '|');
        ASSERT_EQ(name, Format("%02X", static_cast<unsigned int>(code)));
        for (; std::getline(cells, name, '|'); ++code) {
            Item item = MakeItem("Item", 1, 2);
            item.iSkipCount = item.iErrorCount = item.iListCount = item.iMeasureCount = 1;
            item.aucSkip[0] = item.aucError[0] = item.aucList[0] = static_cast<unsigned char>(code);
            const std::string section = Section(D, item);
            EXPECT_EQ(Line(section, "skip"), name) << code;
            EXPECT_EQ(Line(section, "error"), name) << code;
            EXPECT_EQ(Line(section, "measure"), name + ":0") << code;
        }
    }
    EXPECT_EQ(code, 256);
}

std::string NoteOf(unsigned char code1, unsigned char code2)
{
    return Line(Section(R, MakeItem("Item", code1, code2)), "failed") + " ";
}

TEST(FailedItems, NotesShowTheLastCopyOfEachCodePair)
{
    Item item = MakeItem("Item", 0x80, 0x01);
    item.ulStartTime = 4294967295;
    item.lTid = INT_MIN;
    for (const int type : {1, 1, 5}) {
        ++item.ulDuration;
        EXPECT_TRUE(Logger::RecordFailedItem(&item, static_cast<PelkoInspectionType_e>(type)));
        item.ucCode2 = 0x02;
    }
    item.lTid = 99;
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(NoteOf(0x80, 0x01) + NoteOf(0x80, 0x02) + NoteOf(0x01, 0x80) + NoteOf(0x80, 0x03),
                  "auto;4294967295;1;-2147483648^^ normal;4294967295;3;-2147483648^^ ^^ ^^ ");
    }
    EXPECT_EQ(Line(Section(S, item), "failed") + Line(Section(D, item), "failed"), "nonenone");
    EXPECT_TRUE(Logger::ClearFailedLog() && Logger::ClearFailedLog());
    EXPECT_EQ(NoteOf(0x80, 0x01) + NoteOf(0x80, 0x02), "^^ ^^ ");
}

}  // namespace
