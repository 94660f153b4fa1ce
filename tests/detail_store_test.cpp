// The store of detail texts: what it keeps, answers, logs and prints.
#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>
#include <fa_platform/simulation.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <regex>
#include <thread>

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
    EXPECT_EQ(TextOf(0x80, 0x01), "unknown");
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
}

TEST(DetailStore, LogsAndPrintsEachStoredTextAndRefusal)
{
    std::string log;
    fa_platform::SetLogSink([&log](int buffer, int priority, const auto& tag, const auto& text) {
        log += std::to_string(buffer) + tag + std::to_string(priority) + " " +
               std::regex_replace(text, std::regex("\\(\\d+\\)"), "");
    });
    testing::internal::CaptureStdout();
    Store::AppendInspectionLog(1, 2, "a,");
    Store::AppendInspectionLog(1, 2, "b");
    Store::AssignInspectionLog(1, 2, "%s");
    Store::AssignInspectionLog(1, 2, "");
    Store::AppendInspectionLog(1, 2, "");
    TextOf(1, 2);
    Store::ClearOneInspectionLog(1, 2);
    const std::string printed = testing::internal::GetCapturedStdout();
    fa_platform::SetLogSink({});
    EXPECT_EQ(log, R"(2FA_API4 InspectionLogger: AppendInspectionLog > AppendInspectionLog[2][a.]
2FA_API4 InspectionLogger: AppendInspectionLog > AppendInspectionLog[3][a.b]
2FA_API4 InspectionLogger: AssignInspectionLog > AssignInspectionLog[2][%s]
2FA_API6 InspectionLogger: AssignInspectionLog > t_AppendInspectionLog messge empty
2FA_API6 InspectionLogger: AppendInspectionLog > t_AppendInspectionLog messge empty
)");
    const std::string prefix =
        "AUTOMATION\\[\\d+\\.\\d{3}\\]\\[T " + std::to_string(gettid()) + "\\] ";
    EXPECT_EQ(std::regex_replace(printed, std::regex(prefix), "> "),
              "> AppendInspectionLog[2][a.]\n> AppendInspectionLog[3][a.b]\n"
              "> AssignInspectionLog[2][%s]\n> t_AppendInspectionLog messge empty\n"
              "> t_AppendInspectionLog messge empty\n");
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
