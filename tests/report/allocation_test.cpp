// Memory that runs out: each allocation of an operation fails in turn. Nothing but std::bad_alloc
// leaves, nothing leaks, what the headers promise holds, and the next call is right.
#include <fa_api/InspectionLogger.h>
#include <fa_platform/bluetooth.h>
#include <fa_platform/display_panel.h>
#include <fa_platform/dlog.h>
#include <fa_platform/factory.h>
#include <fa_platform/system_info.h>
#include <fa_platform/video_enhance.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <functional>
#include <new>

#include "support/records.h"

static long untilFailure = -1;  // allocations that still succeed; negative: all do
static long live = 0;           // allocations that are not released

static void* Allocate(std::size_t size)
{
    if (untilFailure >= 0 && untilFailure-- == 0) {
        return nullptr;
    }
    ++live;
    return std::malloc(size);
}

void* operator new(std::size_t size)
{
    void* memory = Allocate(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return Allocate(size);
}

// Not inline, because the compiler would take free() for a mistake.
__attribute__((noinline)) void operator delete(void* memory) noexcept
{
    live -= memory != nullptr;
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}

// A platform that needs no memory but for its texts. These are so long that the C library maps each
// by itself, and counts them.
constexpr std::size_t kLongText = 1 << 20;

int __dlog_print(int /*buffer*/, int /*priority*/, const char* /*tag*/, const char* /*format*/, ...)
{
    return 0;
}

int system_info_get_value_string(int key, char** value)
{
    *value = static_cast<char*>(std::malloc(kLongText));
    std::strcpy(*value, key == 133 ? "SM\nSS" : "a text that does not fit into a string object");
    return 0;
}

int system_info_get_custom_bool(const char* /*key*/, bool* /*value*/)
{
    return 1;
}

IDisplayPanel* IDisplayPanel::getInstance()
{
    return nullptr;
}

int ve_start_local_dimming_test(unsigned char /*selector*/, unsigned int* /*value*/)
{
    return 1;
}

int factory_get_option_string_data(int /*option*/, char* /*buffer*/, unsigned int* /*length*/)
{
    return 1;
}

FCBlockProfiler::FCBlockProfiler(const char* /*file*/, int /*line*/, const char* /*function*/)
{
    ++live;
}

FCBlockProfiler::~FCBlockProfiler()
{
    --live;
}

namespace
{

using Store = InspectionLogger;

// Runs the operation again and again, with one more successful allocation each time, until it
// succeeds; `check` is told whether it failed.
void FailEach(const std::function<void()>& prepare, const std::function<void()>& operation,
              const std::function<void(bool failed)>& check, long fewest = 1)
{
    mallopt(M_MMAP_THRESHOLD, kLongText / 2);
    Store::GetInstance();  // stays for good
    bool failed = true;
    long failures = -1;
    for (; failed; ++failures) {
        Store::ClearAllInspectionLog();
        Logger::ClearFailedLog();
        const long before = live;
        const auto mapped = mallinfo2().hblks;
        prepare();
        failed = false;
        testing::internal::CaptureStdout();
        untilFailure = failures + 1;
        try {
            operation();
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        untilFailure = -1;
        testing::internal::GetCapturedStdout();
        check(failed);
        Store::ClearAllInspectionLog();
        Logger::ClearFailedLog();
        EXPECT_EQ(live, before) << "allocation " << failures + 1;
        EXPECT_EQ(mallinfo2().hblks, mapped) << "allocation " << failures + 1;
    }
    EXPECT_GE(failures, fewest);
}

const std::string kLong(60, 'x');
const std::string kOther(70, 'y');

std::string Text(unsigned char code)
{
    std::string text = "none";
    Store::GetInspectionLog(text, code, 2);
    return text;
}

TEST(Allocation, TheDetailStoreIsAsItWas)
{
    const auto prepare = [] { Store::AssignInspectionLog(1, 2, "old"); };
    const auto check = [](unsigned char code, const char* before, const std::string& after) {
        return [=](bool failed) { EXPECT_EQ(Text(code), failed ? before : after); };
    };
    FailEach(
        prepare, [] { Store::AppendInspectionLog(1, 2, kLong); }, check(1, "old", "old" + kLong));
    FailEach(
        prepare, [] { Store::AssignInspectionLog(1, 2, kOther); }, check(1, "old", kOther));
    FailEach(
        prepare, [] { Store::AppendInspectionLog(3, 2, kLong); }, check(3, "none", kLong));
    FailEach(
        prepare, [] { Store::AssignInspectionLog(3, 2, "short"); }, check(3, "none", "short"));
    FailEach([] { Store::AssignInspectionLog(1, 2, kLong); },
             [] {
                 std::string text;
                 EXPECT_TRUE(Store::GetInspectionLog(text, 1, 2));
             },
             check(1, kLong.c_str(), kLong));
}

std::vector<PelkoItem_s> items;

std::string NoteOf(const PelkoItem_s& item)
{
    return Line(Section(Logger::MODE_RAW, item), "failed");
}

// An item of every kind of line, longer than any room that is reserved.
PelkoItem_s LongItem()
{
    PelkoItem_s item = MakeItem(std::string(61, 'n'), 1, 2);
    item.iSpecType = SPEC_LIST;
    item.iSpecCount = 20;
    item.iMeasureCount = item.iListCount = 96;
    item.eSpecValueType = item.eMeasureValueType = VALUE_STRING;
    for (PelkoTestItemValue_s& value : item.astSpec) {
        value = Bytes(0, std::string(32, 's'));
    }
    for (PelkoTestItemValue_s& value : item.astMeasure) {
        value = Bytes(0, std::string(32, 'm'));
    }
    return item;
}

TEST(Allocation, FailedItemsAreAsTheyWere)
{
    items = {MakeItem("Item", 1, 2), MakeItem("Other", 3, 2)};
    for (PelkoItem_s& item : items) {
        const bool recorded = &item == &items[0];  // takes no memory then
        FailEach([] { Logger::RecordFailedItem(&items[0], INSPECTION_NORMAL); },
                 [&] {
                     item.ulDuration = 7;
                     Logger::RecordFailedItem(&item, INSPECTION_AUTO);
                     item.ulDuration = 0;
                 },
                 [&](bool failed) {
                     const char* before = recorded ? "normal;0;0;0^^" : "^^";
                     EXPECT_EQ(NoteOf(item), failed ? before : "auto;0;7;0^^");
                     EXPECT_FALSE(failed && recorded);
                 },
                 recorded ? 0 : 1);
    }
}

TEST(Allocation, AReportGrowsByWholeItemsAndASectionNotAtAll)
{
    items = {LongItem(), LongItem(), MakeItem("Last", 3, 4)};
    PelkoTestInfo_s info{};
    info.iItemCount = 3;
    for (const auto mode : {Logger::MODE_SIMPLE, Logger::MODE_DETAIL, Logger::MODE_RAW}) {
        std::vector<std::string> whole(1);  // what a report may hold, item by item
        Logger logger(mode);
        testing::internal::CaptureStdout();
        for (info.iItemCount = 0; info.iItemCount < 3; ++info.iItemCount) {
            logger.GetLog(whole.emplace_back(), &info, &items);
        }
        std::string report;
        logger.GetLog(report, &info, &items);
        testing::internal::GetCapturedStdout();
        for (std::string& part : whole) {  // all of the run says that it has three items
            const std::size_t count = part.find("testnum=");
            if (count != std::string::npos) {
                part[count + 8] = '6';
            }
        }
        whole[0] = "as it was";
        whole.push_back(report);
        std::string text;
        FailEach([&] { text = whole[0]; }, [&] { logger.GetLog(text, &info, &items); },
                 [&](bool failed) {
                     EXPECT_NE(std::find(whole.begin(), whole.end() - failed, text),
                               whole.end() - failed);
                     std::string().swap(text);
                 });
        const std::string section = Section(mode, items[0]);
        FailEach([&] { text = whole[0]; }, [&] { logger.GetItemLog(text, &items[0], 0); },
                 [&](bool failed) {
                     EXPECT_EQ(text, failed ? whole[0] : section);
                     std::string().swap(text);
                 });
    }
}

TEST(Allocation, TheInstanceIsNullAndThenThere)
{
    untilFailure = 0;
    const Store* none = Store::GetInstance();
    // A report goes without it.
    PelkoItem_s item = MakeItem("Item", 1, 2);
    std::string section;
    untilFailure = -1;
    EXPECT_EQ(none, nullptr);
    EXPECT_TRUE(Logger(Logger::MODE_RAW).GetItemLog(section, &item, 0));
    EXPECT_NE(Store::GetInstance(), nullptr);
}

}  // namespace
