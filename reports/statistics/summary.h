// What many runs come to: the numbers that every output shows.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reader/report_reader.h"
#include "statistics/capability.h"
#include "statistics/histogram.h"

namespace fa
{

// Runs and units (serial numbers); a unit's first and last run are those by start time.
struct Yield {
    std::uint64_t runs = 0;
    std::uint64_t passed = 0;
    std::uint64_t firstRuns = 0;  // units whose first run is among these runs
    std::uint64_t firstPassed = 0;
    std::uint64_t lastRuns = 0;  // units whose last run is
    std::uint64_t lastPassed = 0;
};

// Passed of all; nothing of none.
inline std::optional<double> Share(std::uint64_t passed, std::uint64_t all)
{
    return all > 0 ? std::optional<double>(static_cast<double>(passed) / static_cast<double>(all))
                   : std::nullopt;
}

// The runs that have one thing in common.
struct GroupSummary {
    std::string value;  // empty: those that do not tell
    Yield yield;
};

struct ItemSummary {
    std::string name;
    std::optional<CodePair> codes;
    std::uint64_t runs = 0;  // with a result
    std::uint64_t failures = 0;
    std::uint64_t withoutResult = 0;
    std::optional<double> share;            // of all items' failures
    std::optional<double> cumulativeShare;  // its own and those of the items before it
    // Of detailed and raw reports.
    std::uint64_t passedOnRetry = 0;
    std::optional<double> medianDuration;
    std::optional<double> duration95;
};

// A measured value that has a numeric specification.
struct ValueSummary {
    std::string item;
    std::optional<CodePair> codes;
    std::string label;  // of its sub-item; empty where it has none
    int code = -1;      // of its sub-item in raw reports, or -1
    int position = 0;   // in its item's list, from 1; of a value with a code 0
    SpecKind kind = SpecKind::kValue;
    std::optional<double> low;  // limits, of kinds that have them
    std::optional<double> high;
    std::int64_t count = 0;
    std::uint64_t others = 0;  // texts that are no numbers
    double mean = 0;
    double deviation = 0;
    double min = 0;
    double max = 0;
    std::optional<Capability> capability;
    std::optional<Bars> bars;  // of values with limits
};

struct Summary {
    Yield yield;
    std::uint64_t units = 0;
    std::uint64_t withoutSerial = 0;   // runs that belong to no unit
    std::uint64_t withoutStart = 0;    // runs whose start is no date and time
    std::uint64_t repeated = 0;        // runs with serial number and start of another
    std::uint64_t results[5] = {};     // runs, by RunResult
    std::vector<GroupSummary> days;    // "2026-11-17", in their order
    std::vector<GroupSummary> groups;  // by the information key, the lowest yield first
    std::vector<ItemSummary> items;    // the most failures first
    std::vector<ValueSummary> values;  // the lowest Cpk first, then other limits, then the rest
};

}  // namespace fa
