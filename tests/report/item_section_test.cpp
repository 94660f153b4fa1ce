// The section of one item: which lines there are, what they are made of, and the notes of failed
// items.

#include <climits>

#include "support/records.h"
#include "support/trace.h"

namespace
{

constexpr auto kOther = static_cast<Logger::Mode_e>(3);
using Item = PelkoItem_s;

// Three named codes in each list, the numbers 1, 2, 3 ... as specification and result values, and
// the bytes as the text of the first specification value and of the message data.
Item NumberedItem(const std::string& settings, std::string_view bytes = "left over")
{
    Item item = MakeItem("Item", 0xCC, 0x10, "ltid=-4");
    for (unsigned char* codes : {item.aucSkip, item.aucError, item.aucList}) {
        std::copy_n("\x08\x09\x0A\xFF", 4, codes);
    }
    for (int i = 95; i >= 0; --i) {
        item.astMeasure[i] = Num(i + 1);
        item.astSpec[std::min(i, 19)] = Num(i + 1);
    }
    Put(item.astSpec[0].stCValue.aucData, bytes);
    Put(item.stMsgData.aucData, bytes);
    Set(item, settings);
    // Only the multiple-data item knows of a selected value.
    item.ucCode2 = settings.find("select=") == std::string::npos ? 0x10 : 0x11;
    return item;
}

// Lines of a section; where one has no value, there is no such line.
TEST(ItemSection, LinesAtTheirEdges)
{
    const std::string full(32, '3');
    const std::string thirteen =
        "spec=1\n    2\n    3\n    4\n    5\n    6\n    7\n    8\n    9\n    10\n    11\n    12\n  "
        "  13";
    const struct {
        Logger::Mode_e mode;
        std::string settings;
        std::string lines;
        std::string_view bytes = "left over";
    } rows[] = {
        {S, "", "result=pass|imqs|data|duration|spec|measure|skip|error|list|tid|failed"},
        {D, "retries=-1 insptype=2", "imqs|duration=0|retrycount=-1|list|insptype=normal|failed"},
        {S, "result=1 flags=7 measures=1 datalength=1", "result|data|spec|measure"},
        {R, "result=0 measures=1", "imqs=|result|duration|measure|tid|failed"},
        {D, "flags=1 measures=1 skips=1", "result=fail|spec=error|data|list|measure|skip|tid"},
        {S, "flags=6 datalength=1", "result=fail|data=error|list=error|spec"},
        {R, "flags=8", "result=fail|data|spec|list|tid|failed"},
        {S, "result=4294967295", "result=fail"},
        {D, "spec=1 limit=-2147483648", "spec=-2147483648|measure="},
        {D, "spec=2 limit=-5", "spec=-5!="},
        {D, "spec=3 spectype=3 limit=1.005", "spec=1.00>="},
        {D, "spec=4 spectype=3 limit=-0.125", "spec=-0.12<="},
        {D, "spec=5 spectype=3 limit=3.4e38", "spec=339999995214436424907732413799364296704.00>"},
        {D, "spec=6 spectype=1 limitlength=2", "spec=0x0aff<", "\x0A\xFF"},
        {D, "spec=6 spectype=1 limitlength=33", "spec=0x" + full + full + "<", full},
        {D, "spec=6 spectype=1 limitlength=0", "spec=<"},
        {D, "spec=9 spectype=1 limitlength=-2147483648", "spec="},
        {D, "spec=-1 spectype=2", "spec=odd, = text", "odd, = text"},
        {D, "spec=7 spectype=2", "spec=" + full + "~!!!", full},
        {D, "spec=1 spectype=-1", "spec="},
        {D, "datatype=2 datalength=1 spec=1 spectype=4", "data=left over|spec="},
        {D, "spec=8 specs=21", "spec=1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20"},
        {S, "spec=8 specs=13", thirteen},
        {S, "spec=8 specs=14", thirteen + "\n    14..."},
        {S, "spec=8 specs=15", thirteen + "\n    14\n    ..."},
        {D, "measures=2 extras=3 codes=1", "spec=|measure=HDMI1:1,HDMI2:2,HDMI3:3,:4,:5"},
        {S, "extras=2", "spec|measure=1\n    2"},
        {S, "measures=1 extras=-1", "spec=|measure"},
        {D, "extras=2 spec=6", "spec=1<|measure="},
        {D, "measures=2147483647 extras=2147483647 type=4", "measure=" + std::string(95, ',')},
        {S, "measures=3 spec=6 select=-1", "spec|measure"},
        {D, "measures=3 spec=6 select=-1", "spec=1<|measure=1,2,3"},
        {S, "measures=1 extras=2 codes=3 spec=6 expect=3 select=2", "spec=1<|measure=HDMI3:3"},
        {S, "measures=1 extras=1 codes=3 spec=6 select=1", "measure=HDMI2:"},
        {S, "measures=3 codes=3 spec=6 expect=4 select=1", "measure=HDMI2:"},
        {S, "measures=3 codes=3 spec=6 select=95", "measure=:96"},
        {S, "measures=2147483647 extras=2147483647 codes=3 select=2", "measure=HDMI3:3"},
        {S, "measures=2147483647 extras=2147483647 codes=3 select=96", "measure="},
        {S, "measures=3 select=1", "measure=2"},
        {S, "codes=3 spec=6 select=2", "measure="},
        {S, "measures=3 codes=3 spec=6 select=-2147483648", "measure="},
        {S, "datatype=0 datalength=1", "data=-2", "\xFF\xFF\xFF\xFE"},
        {R, "datatype=2 datalength=-2147483648", "data"},
        {S, "datatype=1 datalength=4 spec=8 specs=-1", "data=|spec="},
        {S, "datatype=2 datalength=99", "data=" + full, full},
        {D, "skips=17 tid=10 result=3", "result=pass|skip=HDMI1,HDMI2,HDMI3,,,,,,,,,,,,,|tid=-4"},
        {D, "errors=65 tid=9", "error=HDMI1,HDMI2,HDMI3" + std::string(61, ',') + "|tid=9"},
        {R, "codes=97 tid=1", "list=08090aff" + std::string(184, '0') + "|tid=1"},
        {R, "skips=-1 errors=-1 codes=-1", "skip|error|list"},
        {kOther, "measures=2 codes=2", "measure=HDMI1:1,HDMI2:2|tid"},
    };
    for (const auto& row : rows) {
        const std::string section = Section(row.mode, NumberedItem(row.settings, row.bytes));
        std::istringstream lines(row.lines);
        for (std::string line; std::getline(lines, line, '|');) {
            const std::size_t key = line.find('=');
            EXPECT_EQ(Line(section, line.substr(0, key)),
                      key == std::string::npos ? "none" : line.substr(key + 1))
                << row.settings;
        }
    }
}

TEST(ItemSection, ARefusalLeavesTheTextAlone)
{
    std::string text = "untouched";
    Item item = NumberedItem("extras=2 specs=2 type=4 spectype=4");
    for (item.iSpecType = SPEC_LIST; item.iSpecType >= SPEC_NONE; --item.iSpecType) {
        EXPECT_FALSE(Logger(D).GetSpecLog(text, &item));
        EXPECT_EQ(text, "untouched");
        EXPECT_EQ(Logger(D).GetResultLog(text, &item), item.iSpecType == SPEC_NONE);
    }
    Item empty = NumberedItem("");
    EXPECT_FALSE(Logger(D).GetResultLog(text, &empty));
    EXPECT_EQ(text, ",");
}

TEST(ItemSection, HeadersAndFullTexts)
{
    Item item = MakeItem(std::string(62, 'n'), 0xCC, 0x01, "flags=7");
    Put(item.szImqs, std::string(776, 'i'));
    EXPECT_EQ(Section(R, item), "[001]\nname=" + std::string(62, 'n') +
                                    ", 0xcc 01\nimqs=" + std::string(776, 'i') +
                                    "\nresult=fail\ndata=error\nspec=error\nlist=error\n");
    item = MakeItem("Foo", 0, 0, "result=0");
    EXPECT_EQ(Section(D, item, 8) + Section(S, item, 999) + Section(D, item, -6),
              "[009]\nname=Foo\n[1000]\nname=Foo\n[0-5]\nname=Foo\n");
}

TEST(ItemSection, NamesOfSubItems)
{
    std::string table;  // sixteen names in each row, after the first one's code
    for (unsigned int code = 0; code < 256; ++code) {
        Item item = MakeItem("Item", 1, 2, "skips=1 errors=2 codes=1 measures=1");
        item.aucSkip[0] = item.aucError[0] = item.aucList[0] = static_cast<unsigned char>(code);
        const std::string section = Section(D, item);
        const std::string name = Line(section, "skip");
        EXPECT_EQ(Line(section, "error") + Line(section, "measure"), name + "," + name + ":0")
            << code;
        table +=
            (code % 16 == 0 ? Format("%02X|", code) : "|") + name + (code % 16 == 15 ? "\n" : "");
    }
    std::stringstream file;
    file << std::ifstream(TESTS "report/sub_item_names.txt").rdbuf();
    EXPECT_TRUE(Same(file.str(), table));
}

TEST(FailedItems, NotesShowTheLastCopyOfEachCodePair)
{
    const auto notes = [] {
        std::string text;
        for (Item item : {MakeItem("", 0x80, 1), MakeItem("", 0x80, 2), MakeItem("", 1, 0x80)}) {
            text += Line(Section(R, item), "failed") + " ";
        }
        return text;
    };
    Item item = MakeItem("Item", 0x80, 1, "starttime=-1 duration=-9 tid=7 ltid=-7 insptype=1");
    for (const int type : {1, 1, 5}) {
        ++item.ulDuration;
        EXPECT_TRUE(Logger::RecordFailedItem(&item, static_cast<PelkoInspectionType_e>(type)));
        item.ucCode2 = 2;
    }
    item.lTid = 99;
    const std::string all = "auto;4294967295;4294967288;-7^^ normal;4294967295;4294967290;-7^^ ^^ ";
    EXPECT_EQ(notes() + notes(), all + all);
    EXPECT_EQ(Line(Section(S, item), "failed") + Line(Section(D, item), "failed"), "nonenone");
    EXPECT_TRUE(Logger::ClearFailedLog() && Logger::ClearFailedLog());
    EXPECT_EQ(notes(), "^^ ^^ ^^ ");
}

}  // namespace
