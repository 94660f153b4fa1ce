#include <algorithm>
#include <cstdio>
#include <iterator>

#include "outputs/summary.h"
#include "outputs/terminal.h"
#include "outputs/words.h"

namespace fa
{

namespace
{

constexpr std::size_t kMostRows = 10;
constexpr std::size_t kNameColumns = 36;

std::string Count(std::uint64_t count)
{
    return std::to_string(count);
}

std::string Heading(const Summary& summary)
{
    std::string text = Counted(summary.yield.runs, "run") + " of " + Counted(summary.units, "unit");
    std::string first;
    std::string last;
    for (const GroupSummary& day : summary.days) {
        if (!day.value.empty()) {
            first = first.empty() ? day.value : first;
            last = day.value;
        }
    }
    if (!first.empty()) {
        text += first == last ? ", " + first : ", " + first + " to " + last;
    }
    return text + "\n";
}

std::string YieldRow(const std::string& name, std::uint64_t passed, std::uint64_t all)
{
    return "  " + Left(name, kNameColumns) + Right(Count(passed), 10) + Right(Count(all), 10) +
           Right(Percent(Share(passed, all)), 12) + "\n";
}

std::string Yields(const Summary& summary)
{
    const Yield& yield = summary.yield;
    std::string text = Left("Yield", kNameColumns + 2) + Right("passed", 10) + Right("of", 10) +
                       Right("yield", 12) + "\n";
    text += YieldRow("units in their first run", yield.firstPassed, yield.firstRuns);
    text += YieldRow("units in their last run", yield.lastPassed, yield.lastRuns);
    text += YieldRow("runs", yield.passed, yield.runs);
    constexpr struct {
        RunResult result;
        const char* word;
    } kOthers[] = {{RunResult::kFail, "failed"},
                   {RunResult::kTimeout, "timed out"},
                   {RunResult::kStop, "stopped"},
                   {RunResult::kNone, "without a result"}};
    std::string others;
    for (const auto& row : kOthers) {
        const std::uint64_t count = summary.results[static_cast<std::size_t>(row.result)];
        if (count > 0) {
            others += (others.empty() ? "  " : ", ") + Count(count) + " " + row.word;
        }
    }
    return text + (others.empty() ? "" : others + "\n");
}

std::string Notes(const Summary& summary, std::size_t refused)
{
    std::string text;
    const auto note = [&](const char* what, std::uint64_t count, const char* things) {
        text +=
            count > 0 ? std::string("Note: ") + what + ": " + Counted(count, things) + "\n" : "";
    };
    note("not read, and not counted here", refused, "name");
    note("without a serial number, so of no unit", summary.withoutSerial, "run");
    note("without a start time, so taken as a unit's first", summary.withoutStart, "run");
    note("with the serial number and start time of another", summary.repeated, "run");
    return text;
}

// "The rest" of a list that is cut.
std::string More(std::size_t all)
{
    return all > kMostRows ? "  and " + Count(all - kMostRows) + " more (--json has all)\n" : "";
}

std::string Groups(const Summary& summary, const std::string& by)
{
    const std::vector<GroupSummary>& groups = summary.groups;
    std::string text = "\n" + Left("By " + by + ", the lowest yield first", kNameColumns + 2) +
                       Right("runs", 10) + Right("yield", 12) + Right("first runs", 18) + "\n";
    const auto row = [&](const GroupSummary& group) {
        const Yield& yield = group.yield;
        text += "  " + Left(group.value.empty() ? "(none)" : group.value, kNameColumns) +
                Right(Count(yield.runs), 10) + Right(Percent(Share(yield.passed, yield.runs)), 12) +
                Right(Percent(Share(yield.firstPassed, yield.firstRuns)), 18) + "\n";
    };
    for (std::size_t i = 0; i < groups.size() && i < kMostRows; ++i) {
        row(groups[i]);
    }
    if (groups.size() > kMostRows) {
        text += "  and " + Count(groups.size() - kMostRows) + " more (--json has all), the best\n";
        row(groups.back());
    }
    return text;
}

std::string Failing(const Summary& summary)
{
    const auto end = std::find_if(summary.items.begin(), summary.items.end(),
                                  [](const ItemSummary& item) { return item.failures == 0; });
    const auto count = static_cast<std::size_t>(end - summary.items.begin());
    if (count == 0) {
        return "\nNo item failed.\n";
    }
    std::string text = "\n" + Left("Items that failed, the worst first", kNameColumns + 2) +
                       Right("failures", 10) + Right("of runs", 10) + Right("share", 10) +
                       Right("together", 10) + "\n";
    for (std::size_t i = 0; i < count && i < kMostRows; ++i) {
        const ItemSummary& item = summary.items[i];
        text += "  " + Left(item.name + CodesText(item.codes), kNameColumns) +
                Right(Count(item.failures), 10) + Right(Count(item.runs), 10) +
                Right(Percent(item.share), 10) + Right(Percent(item.cumulativeShare), 10) + "\n";
    }
    return text + More(count);
}

std::string Retried(const Summary& summary)
{
    std::vector<ItemSummary> items;
    std::copy_if(summary.items.begin(), summary.items.end(), std::back_inserter(items),
                 [](const ItemSummary& item) { return item.passedOnRetry > 0; });
    if (items.empty()) {
        return "";
    }
    std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) {
        return a.passedOnRetry > b.passedOnRetry;
    });
    std::string text = "\n" + Left("Items that passed only on a retry", kNameColumns + 2) +
                       Right("passes", 10) + Right("of runs", 10) + Right("share", 10) + "\n";
    for (std::size_t i = 0; i < items.size() && i < kMostRows; ++i) {
        text += "  " + Left(items[i].name + CodesText(items[i].codes), kNameColumns) +
                Right(Count(items[i].passedOnRetry), 10) + Right(Count(items[i].runs), 10) +
                Right(Percent(Share(items[i].passedOnRetry, items[i].runs)), 10) + "\n";
    }
    return text + More(items.size());
}

std::string Slow(const Summary& summary)
{
    std::vector<ItemSummary> items;
    std::copy_if(summary.items.begin(), summary.items.end(), std::back_inserter(items),
                 [](const ItemSummary& item) { return item.medianDuration.has_value(); });
    if (items.empty()) {
        return "";
    }
    std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) {
        return *a.medianDuration > *b.medianDuration;
    });
    std::string text = "\n" + Left("Durations, the longest first", kNameColumns + 2) +
                       Right("median", 20) + Right("95 % within", 20) + "\n";
    for (std::size_t i = 0; i < items.size() && i < kMostRows; ++i) {
        text += "  " + Left(items[i].name + CodesText(items[i].codes), kNameColumns) +
                Right(Digits(*items[i].medianDuration, 10), 20) +
                Right(Digits(*items[i].duration95, 10), 20) + "\n";
    }
    return text + More(items.size());
}

std::string LimitText(const ValueSummary& value)
{
    const std::string low = value.low ? Digits(*value.low, 10) : "";
    const std::string high = value.high ? Digits(*value.high, 10) : "";
    switch (value.kind) {
        case SpecKind::kRange:
            return low + " to " + high;
        case SpecKind::kValue:
        case SpecKind::kList:
            return std::string("a ") + KindName(value.kind);
        default:
            return std::string(KindName(value.kind)) + " " + low + high;
    }
}

std::string ValueName(const ValueSummary& value)
{
    std::string name = value.item + CodesText(value.codes);
    if (!value.label.empty()) {
        name += ": " + value.label;
    } else if (value.position > 1) {
        name += ": value " + std::to_string(value.position);
    }
    return name;
}

std::string ValueRows(const ValueSummary& value)
{
    const bool measured = value.count > 0;
    std::string cp = "-";
    std::string cpk = "-";
    if (value.capability) {
        char text[64];
        const Index& index = value.capability->cpk;
        std::snprintf(text, sizeof(text), "%.2f (%.2f to %.2f)", index.value, index.low,
                      index.high);
        cpk = text;
        if (value.capability->cp) {
            std::snprintf(text, sizeof(text), "%.2f", value.capability->cp->value);
            cp = text;
        }
    }
    const std::string range = Digits(value.min, 10) + " to " + Digits(value.max, 10);
    const auto count = static_cast<std::uint64_t>(value.count);
    return "  " + Left(ValueName(value), 41) + Right(measured ? range : "-", 26) + " " +
           Right(cp, 10) + "\n    " + Left(LimitText(value), 20) + Right(Count(count), 8) +
           Right(measured ? Digits(value.mean) : "-", 13) +
           Right(value.count > 1 ? Digits(value.deviation, 4) : "-", 12) + " " + Right(cpk, 22) +
           "\n";
}

std::string Values(const Summary& summary)
{
    const std::vector<ValueSummary>& values = summary.values;
    if (values.empty()) {
        return "";
    }
    std::string text = "\n" + Left("Measured values, the closest to their limits first", 50) +
                       Right("min to max", 19) + Right("Cp", 11) + "\n    " + Left("limit", 20) +
                       Right("n", 8) + Right("mean", 13) + Right("deviation", 12) +
                       Right("Cpk (95 % within)", 23) + "\n";
    for (std::size_t i = 0; i < values.size() && i < kMostRows; ++i) {
        text += ValueRows(values[i]);
    }
    const auto ranked = static_cast<std::size_t>(
        std::count_if(values.begin(), values.end(),
                      [](const ValueSummary& value) { return value.capability.has_value(); }));
    text += More(values.size());
    if (ranked > kMostRows) {
        text += "  the one farthest from its limits:\n" + ValueRows(values[ranked - 1]);
    }
    return text;
}

}  // namespace

std::string SummaryText(const Summary& summary, const std::string& by, std::size_t refused)
{
    std::string text = Heading(summary) + "\n" + Yields(summary) + Notes(summary, refused);
    if (!by.empty()) {
        text += Groups(summary, by);
    }
    return text + Failing(summary) + Retried(summary) + Values(summary) + Slow(summary);
}

}  // namespace fa
