// Memory that runs out: each allocation of an operation fails in turn. Nothing but std::bad_alloc
// leaves, nothing leaks, what the headers promise holds, and the next call is right. The simulated
// platform runs out of memory too; what it takes from the C library, AddressSanitizer looks after.
#include <fa_platform/dlog.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>

#include "support/records.h"

static long untilFailure = -1;  // allocations that still succeed; negative: all do
static long live = 0;           // allocations that are not released

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    if (untilFailure >= 0 && untilFailure-- == 0) {
        return nullptr;
    }
    ++live;
    return std::malloc(size);
}

void* operator new(std::size_t size)
{
    void* memory = operator new(size, std::nothrow);
    return memory != nullptr ? memory : throw std::bad_alloc();
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

// Whether the operation fails where so many allocations succeed; with -1, all do.
bool Fails(long allocations, const std::function<void()>& operation)
{
    bool failed = false;
    testing::internal::CaptureStdout();
    untilFailure = allocations;
    try {
        operation();
    } catch (const std::bad_alloc&) {
        failed = true;
    }
    untilFailure = -1;
    testing::internal::GetCapturedStdout();
    return failed;
}

std::string text;  // what operations write into

// All that an operation may change: entries, notes and details of two items, and the text.
std::string State()
{
    std::string state;
    for (const PelkoItem_s& item : {MakeItem("Item", 1, 2), MakeItem("Item", 3, 2)}) {
        std::string detail;
        state += Store::GetInspectionLog(detail, item.ucCode1, 2) ? "entry " : "none ";
        state += Line(Section(Logger::MODE_RAW, item), "failed") + "\n";
    }
    return state + text;
}

// A report that fails holds whole items; the next one would begin with its number.
bool HasGrownByItems(const std::string& state, const std::string& after)
{
    return after.rfind(state, 0) == 0 && after.compare(state.size(), 2, "[0") == 0;
}

void Clear()
{
    EXPECT_TRUE(Store::ClearAllInspectionLog() && Logger::ClearFailedLog());
    std::string().swap(text);
}

void Prepare()
{
    PelkoItem_s item = MakeItem("Item", 1, 2);
    Store::AssignInspectionLog(1, 2, std::string(40, 'o'));
    Logger::RecordFailedItem(&item, INSPECTION_NORMAL);
    text = "as it was";
}

// An item of every kind of line, longer than any room that is reserved.
PelkoItem_s LongItem()
{
    PelkoItem_s longest = MakeItem(std::string(61, 'n'), 1, 2,
                                   "spec=8 specs=20 measures=96 codes=96 spectype=2 type=2");
    std::fill_n(longest.astSpec, 20, Bytes(0, std::string(32, 's')));
    std::fill_n(longest.astMeasure, 96, Bytes(0, std::string(32, 'm')));
    return longest;
}

TEST(Allocation, WhatFailsLeavesAllAsItWas)
{
    static std::vector<PelkoItem_s> items = {LongItem(), LongItem(), MakeItem("Last", 3, 2)};
    static const std::string added(60, 'a');
    struct Operation {
        std::string name;
        std::function<void()> run;
        bool allocates = true;
    };
    std::vector<Operation> operations = {
        {"append", [] { Store::AppendInspectionLog(1, 2, added); }},
        {"assign", [] { Store::AssignInspectionLog(1, 2, added); }},
        {"append the first", [] { Store::AppendInspectionLog(3, 2, added); }},
        {"assign the first", [] { Store::AssignInspectionLog(3, 2, "new"); }},
        {"get", [] { Store::GetInspectionLog(text, 1, 2); }},
        {"record", [] { Logger::RecordFailedItem(&items[2], INSPECTION_AUTO); }},
        {"record again", [] { Logger::RecordFailedItem(&items[0], INSPECTION_AUTO); }, false},
    };
    for (const auto mode : {Logger::MODE_SIMPLE, Logger::MODE_DETAIL, Logger::MODE_RAW}) {
        PelkoTestInfo_s info{};
        info.iItemCount = mode + 1;  // with one item, the room that is reserved is what it needs
        operations.push_back({"info", [=]() mutable { Logger(mode).GetInfoLog(text, &info); }});
        operations.push_back(
            {"report", [=]() mutable { Logger(mode).GetLog(text, &info, &items); }});
        operations.push_back({"section", [=] { Logger(mode).GetItemLog(text, &items[0], 0); }});
    }
    Store::GetInstance();  // stays for good
    for (const auto& [name, run, allocates] : operations) {
        const testing::ScopedTrace where(__FILE__, __LINE__, name);
        Prepare();
        const std::string before = State();
        EXPECT_FALSE(Fails(-1, run));
        const std::string after = State();
        EXPECT_NE(after, before);
        Clear();
        const long lived = live;
        long allocations = -1;
        for (bool failed = true; failed;) {
            Prepare();
            failed = Fails(++allocations, run);
            EXPECT_TRUE(State() == (failed ? before : after) ||
                        (failed && name == "report" && HasGrownByItems(State(), after)))
                << allocations << " allocations: " << State();
            Clear();
            EXPECT_EQ(live, lived) << allocations << " allocations";
        }
        EXPECT_EQ(allocations > 0, allocates);
    }
}

TEST(Allocation, TheInstanceIsNullAndThenThere)
{
    Store::AssignInspectionLog(1, 2, "detail");
    PelkoItem_s item = MakeItem("Item", 1, 2);
    const auto section = [&] { Logger(Logger::MODE_RAW).GetItemLog(text, &item, 0); };
    for (long allocations = 0; Fails(allocations, section); ++allocations) {
    }
    // There was no memory for the instance alone.
    EXPECT_EQ(Line(text, "failed"), "^^");
    const Store* instance = nullptr;
    EXPECT_FALSE(Fails(0, [&] { instance = Store::GetInstance(); }));
    EXPECT_EQ(instance, nullptr);
    EXPECT_NE(Store::GetInstance(), nullptr);
}

}  // namespace
