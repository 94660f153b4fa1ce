// Memory that runs out: each allocation of an operation fails in turn. Nothing but std::bad_alloc
// leaves, nothing leaks, what the headers promise holds, and the next call is right. The simulated
// platform runs out of memory too; what it takes from the C library, AddressSanitizer looks after.
#include <fa_api/InspectionLogger.h>
#include <fa_platform/dlog.h>
#include <gtest/gtest.h>

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

// The platform's log, which would need this memory itself.
int __dlog_print(int /*buffer*/, int /*priority*/, const char* /*tag*/, const char* /*format*/, ...)
{
    return 0;
}

namespace
{

using Store = InspectionLogger;

// Runs the operation again and again, with one more successful allocation each time, until it
// succeeds; `check` is told whether it failed. The number of failures.
int FailEach(const std::function<void()>& prepare, const std::function<void()>& operation,
             const std::function<void(bool failed)>& check)
{
    const auto clear = [] { return Store::ClearAllInspectionLog() && Logger::ClearFailedLog(); };
    bool failed = true;
    int failures = -1;
    for (; failed; ++failures) {
        const testing::ScopedTrace where(__FILE__, __LINE__, failures + 1);
        const long before = live;
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
        EXPECT_TRUE(clear());
        EXPECT_EQ(live, before);
    }
    return failures;
}

PelkoItem_s item = MakeItem("Item", 1, 2);
PelkoItem_s other = MakeItem("Other", 3, 2);
std::string got;

std::string Detail(unsigned char code)
{
    std::string text = "none";
    Store::GetInspectionLog(text, code, 2);
    return text;
}

std::string NoteOf(const PelkoItem_s& failed)
{
    return Line(Section(Logger::MODE_RAW, failed), "failed");
}

TEST(Allocation, TheStoresAreAsTheyWere)
{
    static const std::string old(40, 'o');
    static const std::string added(60, 'a');
    const struct {
        int line;
        std::function<void()> operation;
        std::function<std::string()> ask;
        std::string before, after;
        bool mayFail = true;
    } rows[] = {
        {__LINE__, [] { Store::AppendInspectionLog(1, 2, added); }, [] { return Detail(1); }, old,
         old + added},
        {__LINE__, [] { Store::AssignInspectionLog(1, 2, added); }, [] { return Detail(1); }, old,
         added},
        {__LINE__, [] { Store::AppendInspectionLog(3, 2, added); }, [] { return Detail(3); },
         "none", added},
        {__LINE__, [] { Store::AssignInspectionLog(3, 2, "new"); }, [] { return Detail(3); },
         "none", "new"},
        {__LINE__, [] { Store::GetInspectionLog(got, 1, 2); }, [] { return got; }, "as it was",
         old},
        {__LINE__, [] { Logger::RecordFailedItem(&other, INSPECTION_AUTO); },
         [] { return NoteOf(other); }, "^^", "auto;0;0;0^^"},
        {__LINE__, [] { Logger::RecordFailedItem(&item, INSPECTION_AUTO); },
         [] { return NoteOf(item); }, "", "auto;0;0;0^" + old + "^", false},
    };
    Store::GetInstance();  // stays for good
    for (const auto& row : rows) {
        const testing::ScopedTrace where(__FILE__, row.line, "row");
        const auto prepare = [] {
            Store::AssignInspectionLog(1, 2, old);
            Logger::RecordFailedItem(&item, INSPECTION_NORMAL);
            got = "as it was";
        };
        const auto check = [&](bool failed) {
            EXPECT_EQ(row.ask(), failed ? row.before : row.after);
            std::string().swap(got);
        };
        EXPECT_EQ(FailEach(prepare, row.operation, check) > 0, row.mayFail);
    }
}

// An item of every kind of line, longer than any room that is reserved.
PelkoItem_s LongItem()
{
    PelkoItem_s longest = MakeItem(std::string(61, 'n'), 1, 2,
                                   "spec=8 specs=20 measures=96 codes=96 spectype=2 type=2");
    for (PelkoTestItemValue_s& value : longest.astSpec) {
        value = Bytes(0, std::string(32, 's'));
    }
    std::fill_n(longest.astMeasure, 96, Bytes(0, std::string(32, 'm')));
    return longest;
}

TEST(Allocation, AReportGrowsByWholeItemsAndASectionNotAtAll)
{
    std::vector<PelkoItem_s> items = {LongItem(), LongItem(), MakeItem("Last", 3, 4)};
    Store::GetInstance();
    for (const auto mode : {Logger::MODE_SIMPLE, Logger::MODE_DETAIL, Logger::MODE_RAW}) {
        Logger logger(mode);
        PelkoTestInfo_s info{};
        info.iItemCount = 3;
        std::string text;
        testing::internal::CaptureStdout();
        logger.GetLog(text, &info, &items);
        testing::internal::GetCapturedStdout();
        std::vector<std::string> whole = {"as it was"};  // what a report may hold, item by item
        for (const char* next : {"[001]", "[002]", "[003]"}) {
            whole.push_back(text.substr(0, text.find(next)));
        }
        whole.push_back(std::move(text));
        FailEach([&] { text = whole[0]; }, [&] { logger.GetLog(text, &info, &items); },
                 [&](bool failed) {
                     const auto end = whole.end() - failed;
                     EXPECT_NE(std::find(whole.begin() + (failed ? 0 : 4), end, text), end);
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
    std::string text;
    FailEach([] { Store::AssignInspectionLog(1, 2, "detail"); },
             [&] { Logger(Logger::MODE_RAW).GetItemLog(text, &item, 0); },
             [&](bool failed) {
                 // The first report that succeeds found no memory for the instance alone.
                 EXPECT_EQ(failed ? text : Line(text, "failed"), failed ? "" : "^^");
                 std::string().swap(text);
             });
    untilFailure = 0;
    const Store* none = Store::GetInstance();
    untilFailure = -1;
    EXPECT_EQ(none, nullptr);
    EXPECT_NE(Store::GetInstance(), nullptr);
}

}  // namespace
