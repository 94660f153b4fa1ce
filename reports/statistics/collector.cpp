#include "statistics/collector.h"

#include <algorithm>
#include <functional>
#include <tuple>
#include <utility>

#include "reader/text.h"

namespace fa
{

namespace
{

constexpr std::size_t kDays = 0;
constexpr std::size_t kBy = 1;

std::string DayOf(const Run& run)
{
    if (run.start == 0) {
        return "";
    }
    std::string day(run.startTime.substr(0, 8));
    return day.insert(6, "-").insert(4, "-");
}

// What makes an item the same in all reports.
std::string KeyOf(const Item& item)
{
    if (!item.codes) {
        return "n" + std::string(item.name);
    }
    return {'c', static_cast<char>(item.codes->code1), static_cast<char>(item.codes->code2)};
}

double Unscaled(double hundredths)
{
    return hundredths / 100;
}

// Sorted keys, so that every output has one order.
template <typename Map>
auto SortedEntries(const Map& map)
{
    std::vector<const typename Map::value_type*> entries;
    entries.reserve(map.size());
    for (const auto& entry : map) {
        entries.push_back(&entry);
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
    return entries;
}

void Merge(Yield& into, const Yield& from)
{
    into.runs += from.runs;
    into.passed += from.passed;
}

}  // namespace

Collector::Collector(std::string by) : by_(std::move(by)) {}

std::uint32_t Collector::Grouping::Number(const std::string& value)
{
    const auto [found, isNew] = numbers.emplace(value, static_cast<std::uint32_t>(yields.size()));
    if (isNew) {
        yields.emplace_back();
    }
    return found->second;
}

void Collector::ValueSums::Add(std::string_view text, bool limited)
{
    std::int64_t number = 0;
    if (ReadNumber(text, number)) {
        sums.Add(number);
        if (limited) {
            histogram.Add(number);
        }
    } else {
        ++others;
    }
}

void Collector::Take(RunOrder order, const Run& run)
{
    Mark mark;
    mark.start = run.start;
    mark.order = order;
    mark.passed = run.result == RunResult::kPass;
    mark.groups = {groupings_[kDays].Number(DayOf(run)),
                   by_.empty() ? 0 : groupings_[kBy].Number(JoinedLines(run.Value(by_)))};
    const std::uint64_t passed = mark.passed ? 1 : 0;
    ++totals_.yield.runs;
    totals_.yield.passed += passed;
    ++totals_.results[static_cast<std::size_t>(run.result)];
    totals_.withoutStart += run.start == 0 ? 1 : 0;
    for (std::size_t g = 0; g < groupings_.size() - (by_.empty() ? 1 : 0); ++g) {
        Yield& yield = groupings_[g].yields[mark.groups[g]];
        ++yield.runs;
        yield.passed += passed;
    }

    const std::string_view serial = run.SerialNumber();
    if (serial.empty()) {
        ++totals_.withoutSerial;
    } else {
        AddUnit(serial, mark, mark);
        if (run.start != 0) {
            constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
            fingerprints_.push_back(std::hash<std::string_view>()(serial) * kSpread ^ run.start);
        }
    }
    for (std::size_t i = 0; i < run.items.size(); ++i) {
        TakeItem(Find(run.items[i], i), run.items[i], run.mode);
    }
}

void Collector::AddUnit(std::string_view serial, const Mark& first, const Mark& last)
{
    const auto [found, isNew] = units_.emplace(serial, Unit{first, last});
    if (!isNew) {
        Unit& unit = found->second;
        unit.first = first.IsBefore(unit.first) ? first : unit.first;
        unit.last = unit.last.IsBefore(last) ? last : unit.last;
    }
}

// The item's sums. The report before mostly had the same item in the same place.
Collector::ItemSums& Collector::Find(const Item& item, std::size_t index)
{
    if (index < previous_.size() && previous_[index]->lastNameLine == item.nameLine &&
        previous_[index]->codes.has_value() == item.codes.has_value()) {
        return *previous_[index];
    }
    std::unique_ptr<ItemSums>& sums = items_[KeyOf(item)];
    if (!sums) {
        sums = std::make_unique<ItemSums>();
        sums->name = item.name;
        sums->codes = item.codes;
    }
    // Of an item that has been renamed, one name is shown: the same in whichever order they come.
    sums->name = std::min<std::string_view>(sums->name, item.name);
    sums->lastNameLine = item.nameLine;
    previous_.resize(std::max(previous_.size(), index + 1), sums.get());
    previous_[index] = sums.get();
    return *sums;
}

void Collector::TakeItem(ItemSums& sums, const Item& item, ReportMode mode)
{
    ++sums.results[static_cast<std::size_t>(item.result)];
    if (item.timed) {
        sums.durations.Add(item.duration);
        sums.passedOnRetry += item.result == ItemResult::kPass && item.retries > 0 ? 1 : 0;
    }
    if (item.spec && !item.spec->empty() && item.measure) {
        TakeValues(sums, item, mode);
    }
}

void Collector::TakeValues(ItemSums& sums, const Item& item, ReportMode mode)
{
    if (sums.lastSpec != *item.spec || sums.lastMode != mode) {
        ReadLimits(sums, item, mode);
    }
    if (!sums.lastNumeric) {
        return;
    }
    SplitValues(item, mode, values_);
    sums.lastValues.resize(std::max(sums.lastValues.size(), values_.size()));
    for (const Value& value : values_) {
        auto& entry = sums.lastValues[static_cast<std::size_t>(value.position) - 1];
        const std::string_view label = value.label.value_or("");
        if (entry == nullptr || entry->first.code != value.code || entry->first.label != label) {
            const ValueKey key{value.code, value.code < 0 ? value.position : 0, std::string(label),
                               sums.lastLimits};
            entry = &*sums.values.try_emplace(key).first;
        }
        entry->second.Add(value.text, HasLimits(sums.lastLimits.kind));
    }
}

// Values of different limits have different sums. Where every report may have a value of its own
// to compare with, they have not: such a kind has no limits to be far from.
void Collector::ReadLimits(ItemSums& sums, const Item& item, ReportMode mode)
{
    sums.lastSpec = *item.spec;
    sums.lastMode = mode;
    sums.lastValues.clear();
    const Spec spec = ReadSpec(*item.spec, mode);
    std::vector<std::int64_t> numbers(spec.limits.size());
    sums.lastNumeric = true;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        sums.lastNumeric = sums.lastNumeric && ReadNumber(spec.limits[i], numbers[i]);
    }
    sums.lastLimits = Limits{spec.kind};
    if (HasLowLimit(spec.kind)) {
        sums.lastLimits.low = numbers.front();
    }
    if (HasHighLimit(spec.kind)) {
        sums.lastLimits.high = numbers.back();
    }
}

void Collector::Merge(Collector&& other)
{
    fa::Merge(totals_.yield, other.totals_.yield);
    totals_.withoutSerial += other.totals_.withoutSerial;
    totals_.withoutStart += other.totals_.withoutStart;
    for (std::size_t i = 0; i < std::size(totals_.results); ++i) {
        totals_.results[i] += other.totals_.results[i];
    }
    fingerprints_.insert(fingerprints_.end(), other.fingerprints_.begin(),
                         other.fingerprints_.end());

    std::array<std::vector<std::uint32_t>, 2> numbers;  // of the other's groups here
    for (std::size_t g = 0; g < groupings_.size(); ++g) {
        numbers[g].resize(std::max<std::size_t>(other.groupings_[g].yields.size(), 1));
        for (const auto& [value, number] : other.groupings_[g].numbers) {
            numbers[g][number] = groupings_[g].Number(value);
            fa::Merge(groupings_[g].yields[numbers[g][number]], other.groupings_[g].yields[number]);
        }
    }
    const auto renumbered = [&](Mark mark) {
        for (std::size_t g = 0; g < mark.groups.size(); ++g) {
            mark.groups[g] = numbers[g][mark.groups[g]];
        }
        return mark;
    };
    for (auto unit = other.units_.begin(); unit != other.units_.end();) {
        AddUnit(unit->first, renumbered(unit->second.first), renumbered(unit->second.last));
        unit = other.units_.erase(unit);  // both are never there whole
    }

    for (auto& [key, from] : other.items_) {
        std::unique_ptr<ItemSums>& into = items_[key];
        if (!into) {
            into = std::move(from);
            continue;
        }
        into->name = std::min(into->name, from->name);
        into->passedOnRetry += from->passedOnRetry;
        for (std::size_t i = 0; i < std::size(into->results); ++i) {
            into->results[i] += from->results[i];
        }
        into->durations.Merge(from->durations);
        for (auto& [valueKey, value] : from->values) {
            ValueSums& sums = into->values[valueKey];
            sums.sums.Merge(value.sums);
            sums.histogram.Merge(value.histogram);
            sums.others += value.others;
        }
    }
}

std::vector<ItemSummary> Collector::ItemSummaries() const
{
    std::vector<ItemSummary> items;
    std::uint64_t failures = 0;
    for (const auto* entry : SortedEntries(items_)) {
        const ItemSums& sums = *entry->second;
        ItemSummary item;
        item.name = ValidText(sums.name);
        item.codes = sums.codes;
        item.failures = sums.results[static_cast<std::size_t>(ItemResult::kFail)];
        item.runs = item.failures + sums.results[static_cast<std::size_t>(ItemResult::kPass)];
        item.withoutResult = sums.results[static_cast<std::size_t>(ItemResult::kNone)];
        item.passedOnRetry = sums.passedOnRetry;
        if (sums.durations.Count() > 0) {
            item.medianDuration = sums.durations.Quantile(0.5);
            item.duration95 = sums.durations.Quantile(0.95);
        }
        failures += item.failures;
        items.push_back(std::move(item));
    }
    std::stable_sort(items.begin(), items.end(),
                     [](const auto& a, const auto& b) { return a.failures > b.failures; });
    std::uint64_t before = 0;
    for (ItemSummary& item : items) {
        before += item.failures;
        item.share = Share(item.failures, failures);
        item.cumulativeShare = Share(before, failures);
    }
    return items;
}

std::vector<ValueSummary> Collector::ValueSummaries() const
{
    std::vector<ValueSummary> values;
    for (const auto* entry : SortedEntries(items_)) {
        for (const auto& [key, sums] : entry->second->values) {
            ValueSummary value;
            value.item = ValidText(entry->second->name);
            value.codes = entry->second->codes;
            value.label = key.label;
            value.code = key.code;
            value.position = key.position;
            value.kind = key.limits.kind;
            if (HasLowLimit(value.kind)) {
                value.low = Unscaled(static_cast<double>(key.limits.low));
            }
            if (HasHighLimit(value.kind)) {
                value.high = Unscaled(static_cast<double>(key.limits.high));
            }
            value.others = sums.others;
            value.count = sums.sums.Count();
            if (value.count > 0) {
                value.mean = Unscaled(sums.sums.Mean());
                value.deviation = Unscaled(sums.sums.Deviation());
                value.min = Unscaled(static_cast<double>(sums.sums.Min()));
                value.max = Unscaled(static_cast<double>(sums.sums.Max()));
                if (HasLimits(value.kind)) {
                    value.bars = sums.histogram.ToBars(value.kind, key.limits.low, key.limits.high);
                }
            }
            value.capability =
                CapabilityOf(value.count, value.mean, value.deviation, value.low, value.high);
            values.push_back(std::move(value));
        }
    }
    const auto rank = [](const ValueSummary& value) {
        const bool ranked = value.capability.has_value();
        return std::make_tuple(!ranked, ranked ? value.capability->cpk.value : 0,
                               !HasLimits(value.kind));
    };
    std::stable_sort(values.begin(), values.end(),
                     [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
    return values;
}

std::vector<GroupSummary> Collector::GroupSummaries(std::size_t grouping) const
{
    std::vector<Yield> yields = groupings_[grouping].yields;
    for (const auto& [serial, unit] : units_) {
        if (yields.empty()) {
            break;
        }
        Yield& first = yields[unit.first.groups[grouping]];
        ++first.firstRuns;
        first.firstPassed += unit.first.passed ? 1 : 0;
        Yield& last = yields[unit.last.groups[grouping]];
        ++last.lastRuns;
        last.lastPassed += unit.last.passed ? 1 : 0;
    }
    std::vector<GroupSummary> groups;
    for (const auto* entry : SortedEntries(groupings_[grouping].numbers)) {
        groups.push_back({ValidText(entry->first), yields[entry->second]});
    }
    return groups;
}

Summary Collector::Finish() const
{
    Summary summary = totals_;
    summary.units = units_.size();
    summary.days = GroupSummaries(kDays);
    summary.groups = GroupSummaries(kBy);
    std::stable_sort(
        summary.groups.begin(), summary.groups.end(), [](const auto& a, const auto& b) {
            return Share(a.yield.passed, a.yield.runs) < Share(b.yield.passed, b.yield.runs);
        });
    // Every unit has its first and its last run on some day.
    for (const GroupSummary& day : summary.days) {
        summary.yield.firstRuns += day.yield.firstRuns;
        summary.yield.firstPassed += day.yield.firstPassed;
        summary.yield.lastRuns += day.yield.lastRuns;
        summary.yield.lastPassed += day.yield.lastPassed;
    }
    std::vector<std::uint64_t> prints = fingerprints_;
    std::sort(prints.begin(), prints.end());
    summary.repeated =
        prints.size() -
        static_cast<std::uint64_t>(std::unique(prints.begin(), prints.end()) - prints.begin());
    summary.items = ItemSummaries();
    summary.values = ValueSummaries();
    return summary;
}

Summary Collect(const ReportFiles& files, const std::string& by, std::vector<std::string>& refused,
                const std::function<void(std::size_t, RunOrder, const Run&)>& also)
{
    std::vector<Collector> collectors;
    for (std::size_t i = 0; i < ReadingThreads(); ++i) {
        collectors.emplace_back(by);
    }
    refused = ReadAll(files, [&](std::size_t thread, RunOrder order, const Run& run) {
        collectors[thread].Take(order, run);
        if (also) {
            also(thread, order, run);
        }
    });
    for (std::size_t i = 1; i < collectors.size(); ++i) {
        collectors[0].Merge(std::move(collectors[i]));
    }
    return collectors[0].Finish();
}

}  // namespace fa
