// Runs summed up one by one, in memory that grows with units and items, not with runs.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "reader/report_files.h"
#include "reader/report_reader.h"
#include "statistics/duration_counts.h"
#include "statistics/exact_sums.h"
#include "statistics/histogram.h"
#include "statistics/summary.h"

namespace fa
{

class Collector
{
public:
    // `by`: the information key by whose values runs are grouped too; empty for none.
    explicit Collector(std::string by = "");

    void Take(RunOrder order, const Run& run);

    // Adds what another collector of the same key has taken. Which runs each of them took makes
    // no difference.
    void Merge(Collector&& other);

    Summary Finish() const;

    // Implementation details.
private:
    struct Limits {
        SpecKind kind = SpecKind::kValue;
        std::int64_t low = 0;  // in hundredths, where the kind has it
        std::int64_t high = 0;

        auto Key() const { return std::tie(kind, low, high); }
    };

    struct ValueKey {
        int code = -1;
        int position = 0;
        std::string label;
        Limits limits;

        bool operator<(const ValueKey& other) const
        {
            const auto mine = limits.Key();
            const auto others = other.limits.Key();
            return std::tie(position, code, label, mine) <
                   std::tie(other.position, other.code, other.label, others);
        }
    };

    struct ValueSums {
        ExactSums sums;
        Histogram histogram;  // of values that have limits
        std::uint64_t others = 0;

        void Add(std::string_view text, bool limited);
    };

    struct ItemSums {
        std::string name;
        std::optional<CodePair> codes;
        std::uint64_t results[3] = {};  // by ItemResult
        std::uint64_t passedOnRetry = 0;
        DurationCounts durations;
        std::map<ValueKey, ValueSums> values;

        // Of the report before: the next one mostly has the same.
        std::string lastNameLine;
        std::string lastSpec;
        ReportMode lastMode = ReportMode::kSimple;
        bool lastNumeric = false;
        Limits lastLimits;
        std::vector<std::map<ValueKey, ValueSums>::value_type*> lastValues;  // by position
    };

    struct Mark {
        std::uint64_t start = 0;
        RunOrder order = 0;
        std::array<std::uint32_t, 2> groups = {};
        bool passed = false;

        bool IsBefore(const Mark& other) const
        {
            return std::tie(start, order) < std::tie(other.start, other.order);
        }
    };

    struct Unit {
        Mark first;
        Mark last;
    };

    // The values of one thing that runs have in common, numbered as they come.
    struct Grouping {
        std::unordered_map<std::string, std::uint32_t> numbers;
        std::vector<Yield> yields;

        std::uint32_t Number(const std::string& value);
    };

    ItemSums& Find(const Item& item, std::size_t index);
    void TakeItem(ItemSums& sums, const Item& item, ReportMode mode);
    void TakeValues(ItemSums& sums, const Item& item, ReportMode mode);
    void ReadLimits(ItemSums& sums, const Item& item, ReportMode mode);
    void AddUnit(std::string_view serial, const Mark& first, const Mark& last);
    std::vector<ItemSummary> ItemSummaries() const;
    std::vector<ValueSummary> ValueSummaries() const;
    std::vector<GroupSummary> GroupSummaries(std::size_t grouping) const;

    std::string by_;
    Summary totals_;  // the plain counts
    std::unordered_map<std::string, Unit> units_;
    std::vector<std::uint64_t> fingerprints_;  // of each run's serial number and start
    std::array<Grouping, 2> groupings_;        // days, and the values of `by`
    std::unordered_map<std::string, std::unique_ptr<ItemSums>> items_;  // by codes or name
    std::vector<ItemSums*> previous_;                                   // by place in a report
    std::vector<Value> values_;
};

// What all runs of the files come to. `refused` gets the files that could not be read, a line each.
// `also` is given each run too, as ReadAll gives it.
Summary Collect(const ReportFiles& files, const std::string& by, std::vector<std::string>& refused,
                const std::function<void(std::size_t, RunOrder, const Run&)>& also = nullptr);

}  // namespace fa
