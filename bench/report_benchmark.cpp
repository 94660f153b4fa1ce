// GetLog of 200 items with long value lists, in turn with a writer that makes the same bytes with
// snprintf. Fails where the bytes differ, where GetLog takes more than half of that writer's time,
// or where it allocates more than 8 times an item.
#include <benchmark/benchmark.h>
#include <fa_api/PelkoAppClientLogger.h>
#include <fa_platform/display_panel.h>
#include <fa_platform/dlog.h>
#include <fa_platform/system_info.h>
#include <fa_platform/video_enhance.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

namespace
{

constexpr int kItems = 200;
constexpr double kMostAllocations = 8;
constexpr double kMostTime = 0.5;

std::size_t allocations = 0;
bool failed = false;

}  // namespace

__attribute__((noinline)) void* operator new(std::size_t size)
{
    ++allocations;
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

__attribute__((noinline)) void operator delete(void* memory) noexcept
{
    std::free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

// A platform without answers and without a log: what is measured is the writing.
int __dlog_print(int, int, const char*, const char*, ...)
{
    return 0;
}

int system_info_get_value_string(int, char**)
{
    return -1;
}

int system_info_get_custom_bool(const char*, bool*)
{
    return -1;
}

int ve_start_local_dimming_test(unsigned char, unsigned int*)
{
    return -1;
}

extern "C" int factory_get_option_string_data(int, char*, unsigned int*)
{
    return -1;
}

IDisplayPanel* IDisplayPanel::getInstance()
{
    return nullptr;
}

namespace
{

using Logger = PelkoAppClientLogger;

const char* const kNames[] = {"",        "AV(EXT)1",   "AV(EXT)2",   "AV(EXT)3",
                              "S-VIDEO", "Component1", "Component2", "PC",
                              "HDMI1",   "HDMI2",      "HDMI3",      "HDMI4"};

PelkoTestItemValue_s MakeValue(PelkoValueType_e type, int number)
{
    PelkoTestItemValue_s value{};
    if (type == VALUE_FLOAT) {
        value.stNValue.fValue = static_cast<float>(number) / 7;
    } else if (type == VALUE_INTEGER) {
        value.stNValue.iValue = number * 1009;
    } else if (type == VALUE_HEX) {
        value.stCValue.iLength = 6;
        std::memset(value.stCValue.aucData, number & 0xFF, 6);
    } else {
        std::memcpy(value.stCValue.aucData, "measured text", 13);
    }
    return value;
}

std::vector<PelkoItem_s> MakeItems()
{
    std::vector<PelkoItem_s> items(kItems);
    for (int n = 0; n < kItems; ++n) {
        PelkoItem_s& item = items[static_cast<std::size_t>(n)];
        const auto type = static_cast<PelkoValueType_e>(n % 4);
        std::memcpy(item.szName, "Item with a name", 16);
        item.ucCode1 = static_cast<unsigned char>(n);
        item.lTid = 100000 + n;
        item.ulResult = n % 10 == 0 ? 4 : 2;
        item.ulStartTime = static_cast<unsigned int>(n) * 1000;
        item.ulDuration = 950;
        item.iSpecType = SPEC_LIST;
        item.eSpecValueType = item.eMeasureValueType = type;
        item.iSpecCount = 20;
        item.iMeasureCount = item.iListCount = 96;
        item.iSkipCount = item.iErrorCount = 2;
        for (int i = 0; i < 96; ++i) {
            item.astMeasure[i] = MakeValue(type, n * 96 + i);
            item.astSpec[i % 20] = item.astMeasure[i];
            item.aucList[i] = static_cast<unsigned char>(i % 12);
        }
        item.aucSkip[1] = item.aucError[0] = 8;
    }
    return items;
}

__attribute__((format(printf, 2, 3))) void Print(std::string& text, const char* format, ...)
{
    char piece[256];
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(piece, sizeof(piece), format, values);
    va_end(values);
    text.append(piece, static_cast<std::size_t>(length));
}

void PrintValue(std::string& text, const PelkoTestItemValue_s& value, PelkoValueType_e type)
{
    if (type == VALUE_FLOAT) {
        Print(text, "%.2f", static_cast<double>(value.stNValue.fValue));
    } else if (type == VALUE_INTEGER) {
        Print(text, "%d", value.stNValue.iValue);
    } else if (type == VALUE_HEX) {
        text += "0x";
        for (int i = 0; i < value.stCValue.iLength; ++i) {
            Print(text, "%02x", value.stCValue.aucData[i]);
        }
    } else {
        Print(text, "%s", reinterpret_cast<const char*>(value.stCValue.aucData));
    }
}

void PrintItem(std::string& text, Logger::Mode_e mode, const PelkoItem_s& item, int index)
{
    const bool simple = mode == Logger::MODE_SIMPLE;
    const bool raw = mode == Logger::MODE_RAW;
    const char* separator = simple ? "\n    " : ",";
    Print(text, "[%03d]\nname=%s", index + 1, item.szName);
    if (raw) {
        Print(text, ", 0x%02x %02x\nimqs=%s", item.ucCode1, item.ucCode2, item.szImqs);
    }
    Print(text, "\nresult=%s\n", item.ulResult <= 3 ? "pass" : "fail");
    if (!simple) {
        Print(text, "duration=%u\nretrycount=%d\n", item.ulDuration, item.iRetryCount);
    }
    text += "spec=";
    for (int i = 0; i < item.iSpecCount; ++i) {
        PrintValue(text, item.astSpec[i], item.eSpecValueType);
        text += i < item.iSpecCount - 1 ? separator : "";
        if (simple && i == 13) {
            text += "...";
            break;
        }
    }
    text += "\nmeasure=";
    for (int i = 0; i < item.iMeasureCount; ++i) {
        if (!raw) {
            Print(text, "%s:", kNames[item.aucList[i]]);
        }
        PrintValue(text, item.astMeasure[i], item.eMeasureValueType);
        text += i < item.iMeasureCount - 1 ? separator : "";
    }
    Print(text, "\nskip=%s,%s\n", kNames[item.aucSkip[0]], kNames[item.aucSkip[1]]);
    Print(text, "error=%s,%s\n", kNames[item.aucError[0]], kNames[item.aucError[1]]);
    if (raw) {
        text += "list=";
        for (int i = 0; i < item.iListCount; ++i) {
            Print(text, "%02x", item.aucList[i]);
        }
        text += "\n";
    }
    if (!simple) {
        Print(text, "insptype=normal\ntid=%d\nstarttime=%u\n", item.lTid, item.ulStartTime);
    }
    text += raw ? "failed=^^\n\n" : "\n";
}

void PrintReport(std::string& text, Logger::Mode_e mode, const std::vector<PelkoItem_s>& items)
{
    text.clear();
    Print(text, "[summary]\nstarttime=19000000000000\nduration=0\nresult=\npelko=uart\n");
    Print(text, "testnum=%d\nretrycount=0\n\n[information]\ns/n=\nmodel=\noption=\n", kItems + 3);
    Print(text, "mm=*****\nsm=*****\nss=*****\nmt=*****\nbt=Not Supported\n\n");
    text += mode == Logger::MODE_SIMPLE ? "\n\n" : "ld1=*****\nld2=*****\n\n\n\n";
    for (int i = 0; i < kItems; ++i) {
        PrintItem(text, mode, items[static_cast<std::size_t>(i)], i);
    }
}

void Fail(benchmark::State& state, const char* reason)
{
    state.SkipWithError(reason);
    failed = true;
}

void GetLog(benchmark::State& state)
{
    using Clock = std::chrono::steady_clock;
    const auto mode = static_cast<Logger::Mode_e>(state.range(0));
    Logger logger(mode);
    PelkoTestInfo_s info{};
    info.iItemCount = kItems;
    std::vector<PelkoItem_s> items = MakeItems();
    // The best of all iterations: what else runs on the machine takes no part in the comparison.
    Clock::duration ownTime = Clock::duration::max();
    Clock::duration snprintfTime = Clock::duration::max();
    std::size_t ownAllocations = 0;
    for (auto _ : state) {
        std::string expected;
        std::string report;
        const Clock::time_point start = Clock::now();
        PrintReport(expected, mode, items);
        const Clock::time_point between = Clock::now();
        const std::size_t before = allocations;
        logger.GetLog(report, &info, &items);
        const Clock::time_point end = Clock::now();
        ownAllocations += allocations - before;
        snprintfTime = std::min(snprintfTime, between - start);
        ownTime = std::min(ownTime, end - between);
        state.SetIterationTime(std::chrono::duration<double>(end - between).count());
        if (report != expected) {
            Fail(state, "the reports differ");
            return;
        }
    }
    const double share = std::chrono::duration<double>(ownTime) / snprintfTime;
    const double each =
        static_cast<double>(ownAllocations) / static_cast<double>(state.iterations()) / kItems;
    using Microseconds = std::chrono::duration<double, std::micro>;
    state.counters["best_us"] = Microseconds(ownTime).count();
    state.counters["best_snprintf_us"] = Microseconds(snprintfTime).count();
    state.counters["share_of_snprintf"] = share;
    state.counters["allocations_per_item"] = each;
    if (share > kMostTime) {
        Fail(state, "takes more than half of the time of snprintf");
    } else if (each > kMostAllocations) {
        Fail(state, "allocates too often");
    }
}

BENCHMARK(GetLog)->DenseRange(0, 2)->ArgName("mode")->Iterations(150)->UseManualTime()->Unit(
    benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    stdout = std::fopen("/dev/null", "w");  // for the library's lines; std::cout stays as it is
    benchmark::RunSpecifiedBenchmarks();
    return failed ? 1 : 0;
}
