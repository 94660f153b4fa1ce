// The store of detail texts: what it keeps, answers, logs and prints.
#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>

#include <atomic>
#include <thread>

#include "support/platform_log.h"
#include "support/printed.h"

namespace
{

using Store = InspectionLogger;
static_assert(!std::is_copy_constructible_v<Store> && !std::is_copy_assignable_v<Store>);
static_assert(!std::is_copy_assignable_v<PelkoAppClientLogger>, "the mode is for good");

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
    EXPECT_EQ(TextOf(0x80, 0x01) + "/" + TextOf(0x01, 0x80) + "/" + TextOf(0xFF, 0x00),
              "a.b.c/new./unknown");
    EXPECT_TRUE(Store::ClearOneInspectionLog(0x80, 0x01));
    EXPECT_EQ(TextOf(0x80, 0x01) + "/" + TextOf(0x01, 0x80), "/new.");
    EXPECT_TRUE(Store::ClearAllInspectionLog());
    EXPECT_EQ(TextOf(0x80, 0x01) + TextOf(0x01, 0x80), "unknownunknown");
    EXPECT_TRUE(Store::GetInstance() != nullptr && Store::GetInstance() == Store::GetInstance());
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
    Store::AppendInspectionLog(1, 3, std::string(101, 'y'));
    EXPECT_EQ(TextOf(1, 3), std::string(100, 'y'));
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
            TextOf(1, 2);
            TextOf(1, 3);
            Store::ClearOneInspectionLog(1, 2);
            Store::ClearAllInspectionLog();
        });
    }).join();
    EXPECT_TRACE(
        Logged("InspectionLogger", "AppendInspectionLog",
               "I AppendInspectionLog[2][a.]\nI AppendInspectionLog[3][a.b]") +
        Logged("InspectionLogger", "AssignInspectionLog",
               "I AssignInspectionLog[2][%s]\nE t_AppendInspectionLog messge empty") +
        Logged("InspectionLogger", "AppendInspectionLog", "E t_AppendInspectionLog messge empty"));
    EXPECT_TRUE(
        Same("> AppendInspectionLog[2][a.]\n> AppendInspectionLog[3][a.b]\n"
             "> AssignInspectionLog[2][%s]\n> t_AppendInspectionLog messge empty\n"
             "> t_AppendInspectionLog messge empty\n",
             printed));
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
            PelkoItem_s item{};
            item.ucCode1 = 1;
            item.ucCode2 = 2;
            item.ulResult = RESULT_PASS;
            std::string section;
            for (--waiting; waiting > 0;) {
            }
            PelkoAppClientLogger(PelkoAppClientLogger::MODE_RAW).GetItemLog(section, &item, 0);
            EXPECT_NE(section.find("\nfailed=^text^\n"), std::string::npos);
            instance = Store::GetInstance();
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(instances, std::vector<Store*>(8, Store::GetInstance()));
}

}  // namespace
