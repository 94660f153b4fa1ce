// The section of one item: every line at and past its edges, and the notes of failed items.
#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "support/records.h"

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
        Logger::Mode_e mode;
        Change change;
        const char* key;
        std::string text;
    } cases[] = {
        {D, Spec(SPEC_VALUE, VALUE_INTEGER, {Num(INT_MIN)}), "spec", "-2147483648"},
        {D, Spec(SPEC_NOT_EQUAL, VALUE_INTEGER, {Num(-5)}), "spec", "-5!="},
        {D, Spec(SPEC_GREATER_EQUAL, VALUE_FLOAT, {Num(1.005F)}), "spec", "1.00>="},
        {D, Spec(SPEC_LESS_EQUAL, VALUE_FLOAT, {Num(-0.5F)}), "spec", "-0.50<="},
        {D, Spec(SPEC_GREATER, VALUE_FLOAT, {Num(1e10F)}), "spec", "10000000000.00>"},
        {D, Spec(SPEC_LESS, VALUE_HEX, {Bytes(2, "\x0A\xFF")}), "spec", "0x0aff<"},
        {D, Spec(SPEC_LESS, VALUE_HEX, {Bytes(33, full)}), "spec", "0x" + full + full + "<"},
        {D, Spec(SPEC_LESS, VALUE_HEX, {Bytes(0, full)}), "spec", "<"},
        {D, Spec(9, VALUE_HEX, {Bytes(INT_MIN, full)}), "spec", ""},
        {D, Spec(-1, VALUE_STRING, {Bytes(0, "odd, = text")}), "spec", "odd, = text"},
        {D, Spec(SPEC_RANGE, VALUE_STRING, {Bytes(1, full), Bytes(9, "y")}), "spec", full + "~y"},
        {D, Spec(SPEC_VALUE, -1, {}), "spec", ""},
        {S, Spec(SPEC_LIST, VALUE_INTEGER, {}, 13), "spec", thirteen},
        {S, Spec(SPEC_LIST, VALUE_INTEGER, {}, 14), "spec", thirteen + "\n    14..."},
        {S, Spec(SPEC_LIST, VALUE_INTEGER, {}, 15), "spec", thirteen + "\n    14\n    ..."},
        {D, Values(2, 3, 1), "measure", "HDMI1:1,HDMI2:2,HDMI3:3,:4,:5"},
        {D, Values(-1, 3, -1), "measure", "1,2"},
        {D, Values(0, 1, 0), "spec", "none"},
        {D, Values(0, 1, 0), "measure", "1"},
        {D, Values(0, 2, 0, SPEC_LESS), "spec", "1<"},
        {D, Values(0, 2, 0, SPEC_LESS), "measure", ""},
        {D, Values(1, -1, 0), "spec", ""},
        {D, Values(1, -1, 0), "measure", "none"},
        {S, Values(1, 2, 3, SPEC_LESS, 2, 3), "measure", "HDMI3:3"},
        {S, Values(1, 1, 3, SPEC_LESS, 2, 0), "measure", "HDMI3:"},
        {S, Values(2, 1, 3, SPEC_LESS, 2, 4), "measure", "HDMI3:"},
        {S, Values(3, 0, 0, SPEC_LESS, 4, -1), "measure", "5"},
        {S, Values(1, 0, 1, SPEC_LESS, 0), "measure", "HDMI1:1"},
        {S, Values(3, 0, 3, SPEC_LESS, 95), "measure", ":96"},
        {S, Values(INT_MAX, INT_MAX, 3, SPEC_LESS, 96), "measure", ""},
        {S, Values(3, 0, 3, SPEC_LESS, INT_MIN), "measure", ""},
        {S, Values(0, 0, 3, SPEC_LESS, 2), "measure", ""},
        {S, Values(3, 0, 3, SPEC_LESS, -1), "measure", "none"},
        {D, Values(2, 0, 1, SPEC_LESS, -1), "measure", "HDMI1:1,HDMI2:2"},
        {S, [](auto& i) { i.ulResult = 1; }, "result", "none"},
        {S, [](auto& i) { i.ulResult = 3; }, "result", "pass"},
        {S, [](auto& i) { i.ulResult = 4; }, "result", "fail"},
        {S, [](auto& i) { i.ulErrorFlag = 1; }, "spec", "error"},
        {S, [](auto& i) { i.ulErrorFlag = 2; }, "data", "error"},
        {S, [](auto& i) { i.ulErrorFlag = 6; }, "spec", "none"},
        {S, [](auto& i) { i.ulErrorFlag = 5; }, "data", "none"},
        {S, [](auto& i) { i.ulErrorFlag = 3; }, "list", "none"},
        {S, [](auto& i) { i.ulErrorFlag = 4; }, "list", "error"},
        {R, [](auto& i) { i.ulErrorFlag = 8; }, "tid", "none"},
        {S, Message(VALUE_INTEGER, 1, "\xFF\xFF\xFF\xFE"), "data", "-2"},
        {S, Message(VALUE_INTEGER, 0, "text"), "data", "none"},
        {S, Message(VALUE_HEX, 4, "text"), "data", ""},
        {S, Message(VALUE_STRING, 99, full), "data", full},
        {R, [](auto& i) { i.iTid = 0; }, "tid", "-4"},
        {R, [](auto& i) { i.iTid = 1; }, "tid", "1"},
        {D, [](auto& i) { i.iTid = 9; }, "tid", "9"},
        {D, [](auto& i) { i.iTid = 10; }, "tid", "-4"},
        {D, [](auto& i) { i.eInspType = PelkoInspectionType_e(2); }, "insptype", "normal"},
        {S, [](auto& i) { i.iSkipCount = 5; }, "skip", "HDMI1,HDMI2,HDMI3,,"},
    };
    for (const auto& c : cases) {
        Item item = NumberedItem();
        c.change(item);
        EXPECT_EQ(Line(Section(c.mode, item), c.key), c.text) << "case " << &c - cases;
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
    Item item = MakeItem("Item", 1, 2);
    item.iSkipCount = 7;
    Put(item.aucSkip, std::string_view("\x00\x01\x1B\x40\x87\xFE\xFF", 7));
    EXPECT_EQ(Line(Section(S, item), "skip"),
              ",AV(EXT)1,WiFi MAC(Wifi Pelko),CPU PLL MIN VAL,EMAC PLL MAX ERROR,Data,");
    // The whole table: FNV-1a over all names, a line each.
    item.iSkipCount = 1;
    unsigned long long hash = 0xCBF29CE484222325;
    for (int code = 0; code <= 0xFF; ++code) {
        item.aucSkip[0] = static_cast<unsigned char>(code);
        for (const char c : Line(Section(S, item), "skip") + "\n") {
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
        }
    }
    EXPECT_EQ(hash, 0x1A9816B4909D2BFAULL);
}

// It leaves nothing out as a simple report does, and adds nothing of the other two.
TEST(ItemSection, AModeOutsideTheEnumerationHasNoLinesOfItsOwn)
{
    Item item = NumberedItem();
    Values(1, 1, 2, SPEC_LIST, 0, 3)(item);
    item.iSpecCount = 15;
    item.stMsgData.iLength = 0;
    for (const int mode : {-1, 3}) {
        EXPECT_EQ(Section(static_cast<Logger::Mode_e>(mode), item),
                  "[001]\nname=Item\nresult=pass\n"
                  "spec=1,2,3,4,5,6,7,8,9,10,11,12,13,14,15\nmeasure=HDMI1:1,HDMI2:2\n");
    }
}

std::string Note(unsigned char code1, unsigned char code2)
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
        EXPECT_EQ(Note(0x80, 0x01) + Note(0x80, 0x02) + Note(0x01, 0x80) + Note(0x80, 0x03),
                  "auto;4294967295;1;-2147483648^^ normal;4294967295;3;-2147483648^^ ^^ ^^ ");
    }
    EXPECT_EQ(Line(Section(S, item), "failed") + Line(Section(D, item), "failed"), "nonenone");
    EXPECT_TRUE(Logger::ClearFailedLog() && Logger::ClearFailedLog());
    EXPECT_EQ(Note(0x80, 0x01) + Note(0x80, 0x02), "^^ ^^ ");
}

}  // namespace
