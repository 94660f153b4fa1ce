// The store of detail texts: what it keeps, answers, logs and prints.

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

TEST(DetailStore, KeepsLogsAndPrintsOneTextForEachCodePair)
{
    const std::string most(99, 'x');
    const struct {
        bool append;
        unsigned char code1, code2;
        std::string message;
        std::string text;  // what there is then
    } rows[] = {
        {true, 0x80, 0x01, "a,b", "a.b"},
        {true, 0x80, 0x01, ",%s", "a.b.%s"},
        {true, 0x00, 0x01, "low", "low"},
        {false, 0x01, 0x80, "old", "old"},
        {true, 0x01, 0x00, "low", "low"},
        {false, 0x01, 0x80, "new,", "new."},
        {true, 0xFF, 0x00, "", "unknown"},
        {false, 0x01, 0x80, "", "new."},
        {true, 0x80, 0x02, std::string("\0,", 2), std::string("\0.", 2)},
        {true, 0x01, 0x02, most, most},
        {true, 0x01, 0x02, ",yz", most + "."},
        {true, 0x01, 0x02, "z", most + "."},
        {false, 0x01, 0x02, std::string(150, ','), std::string(100, '.')},
    };
    std::string log;
    std::string printed;
    const auto store = [&] {
        EXPECT_FALSE(Store::ClearOneInspectionLog(0x80, 0x01));
        for (const auto& [append, code1, code2, message, text] : rows) {
            EXPECT_EQ(append ? Store::AppendInspectionLog(code1, code2, message)
                             : Store::AssignInspectionLog(code1, code2, message),
                      !message.empty());
            EXPECT_EQ(TextOf(code1, code2), text);
            const std::string function = append ? "AppendInspectionLog" : "AssignInspectionLog";
            log += Logged("InspectionLogger", function,
                          message.empty() ? "E t_AppendInspectionLog messge empty"
                                          : Format("I %s[%zu][%s]", function.c_str(), text.size(),
                                                   text.c_str()));
        }
        EXPECT_TRUE(Store::ClearOneInspectionLog(0x80, 0x01));
        EXPECT_EQ(TextOf(0x80, 0x01) + "/" + TextOf(0x01, 0x80), "/new.");
        EXPECT_TRUE(Store::ClearAllInspectionLog() && Store::ClearAllInspectionLog());
        EXPECT_EQ(TextOf(0x80, 0x01) + "/" + TextOf(0x01, 0x80), "unknown/unknown");
    };
    // At a time whose milliseconds begin with a zero, on a thread whose id is not the process's.
    while (std::chrono::steady_clock::now().time_since_epoch() % std::chrono::seconds(1) >
           std::chrono::milliseconds(90)) {
    }
    std::thread([&] { printed = Printed(store); }).join();
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
    testing::internal::CaptureStdout();
    setvbuf(stdout, nullptr, _IONBF, 0);  // leaves other threads time in the middle of a line
    for (Store*& instance : instances) {
        writers.emplace_back([&] {
            const PelkoItem_s item = MakeItem("Item", 1, 2);
            for (--waiting; waiting > 0;) {
            }
            // Not by Line(), because regular expressions race in libstdc++.
            const std::string section = Section(Logger::MODE_RAW, item);
            EXPECT_NE(section.find("failed=^text^\n"), std::string::npos) << section;
            instance = Store::GetInstance();
            for (int i = 0; i < 5000; ++i) {
                Store::AppendInspectionLog(0, 0, "");
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    const std::regex line(
        R"(AUTOMATION\[\d+\.\d+\]\[T \d+\] t_AppendInspectionLog messge empty\n)");
    EXPECT_EQ(std::regex_replace(testing::internal::GetCapturedStdout(), line, ""), "");
    EXPECT_EQ(instances, std::vector<Store*>(8, Store::GetInstance()));
}

}  // namespace
