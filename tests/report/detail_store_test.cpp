// The store of detail texts: what it keeps, answers, logs and prints.
#include <fa_api/InspectionLogger.h>

#include <atomic>
#include <thread>

#include "support/platform_log.h"
#include "support/printed.h"
#include "support/records.h"

namespace
{

using Store = InspectionLogger;
static_assert(!std::is_copy_constructible_v<Store> && !std::is_copy_assignable_v<Store>);
static_assert(!std::is_copy_assignable_v<Logger>, "the mode is for good");

std::string TextOf(unsigned char code1, unsigned char code2)
{
    std::string text = "unknown";
    const bool found = Store::GetInspectionLog(text, code1, code2);
    return found == (text != "unknown") ? text : "result and text differ";
}

TEST(DetailStore, KeepsOneTextForEachCodePair)
{
    EXPECT_FALSE(Store::ClearOneInspectionLog(0x80, 0x01));
    EXPECT_TRUE(Store::ClearAllInspectionLog());
    EXPECT_TRUE(Store::AppendInspectionLog(0x80, 0x01, "a,b"));
    EXPECT_TRUE(Store::AppendInspectionLog(0x80, 0x01, ",c"));
    EXPECT_TRUE(Store::AssignInspectionLog(0x01, 0x80, "old"));
    EXPECT_TRUE(Store::AssignInspectionLog(0x01, 0x80, "new,"));
    EXPECT_FALSE(Store::AppendInspectionLog(0xFF, 0x00, ""));
    EXPECT_FALSE(Store::AssignInspectionLog(0x01, 0x80, ""));
    const auto texts = [] { return TextOf(0x80, 0x01) + "/" + TextOf(0x01, 0x80); };
    EXPECT_EQ(texts() + "/" + TextOf(0xFF, 0x00), "a.b.c/new./unknown");
    EXPECT_TRUE(Store::ClearOneInspectionLog(0x80, 0x01));
    EXPECT_EQ(texts(), "/new.");
    EXPECT_TRUE(Store::ClearAllInspectionLog());
    EXPECT_EQ(texts(), "unknown/unknown");
}

TEST(DetailStore, CutsATextToItsFirst100Bytes)
{
    const std::string most(99, 'x');
    Store::AppendInspectionLog(1, 2, most);
    for (int again = 0; again < 2; ++again) {
        Store::AppendInspectionLog(1, 2, ",yz");
        EXPECT_EQ(TextOf(1, 2), most + ".");
    }
    Store::AssignInspectionLog(1, 2, std::string(150, ','));
    EXPECT_EQ(TextOf(1, 2), std::string(100, '.'));
}

// On a thread whose id is not the process's.
TEST(DetailStore, LogsAndPrintsEachStoredTextAndRefusal)
{
    std::string printed;
    std::thread([&] {
        printed = Printed([] {
            Store::AppendInspectionLog(1, 2, "a,");
            Store::AppendInspectionLog(1, 2, "b");
            Store::AssignInspectionLog(1, 2, "%s");
            Store::AssignInspectionLog(1, 2, "");
            Store::AppendInspectionLog(1, 2, "");
            Store::ClearOneInspectionLog(1, 2);
            Store::ClearAllInspectionLog();
        });
    }).join();
    const std::string log =
        Logged("InspectionLogger", "AppendInspectionLog",
               "I AppendInspectionLog[2][a.]\nI AppendInspectionLog[3][a.b]") +
        Logged("InspectionLogger", "AssignInspectionLog",
               "I AssignInspectionLog[2][%s]\nE t_AppendInspectionLog messge empty") +
        Logged("InspectionLogger", "AppendInspectionLog", "E t_AppendInspectionLog messge empty");
    EXPECT_TRACE(log);
    EXPECT_TRUE(Same(std::regex_replace(log, std::regex("[IE] [^:]*: "), "> "), printed));
}

// ThreadSanitizer runs this too.
TEST(DetailStoreThreads, RawReportsAtOnceMakeOneInstance)
{
    Store::AssignInspectionLog(1, 2, "text");
    std::atomic<int> waiting{8};
    std::vector<Store*> instances(8);
    std::vector<std::thread> writers;
    for (Store*& instance : instances) {
        writers.emplace_back([&] {
            const PelkoItem_s item = MakeItem("Item", 1, 2);
            for (--waiting; waiting > 0;) {
            }
            // Not by Line(), because regular expressions race in libstdc++.
            const std::string section = Section(Logger::MODE_RAW, item);
            EXPECT_NE(section.find("failed=^text^\n"), std::string::npos) << section;
            instance = Store::GetInstance();
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(instances, std::vector<Store*>(8, Store::GetInstance()));
}

}  // namespace
