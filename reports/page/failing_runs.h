// The runs that did not pass, with their reasons.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "reader/report_files.h"
#include "reader/report_reader.h"

namespace fa
{

// Valid texts; those that are very long are cut.
struct FailingRun {
    std::string start;
    std::string serialNumber;
    std::string result;
    std::string group;                 // its value of the information key
    std::vector<std::string> reasons;  // of the first items that failed
    std::size_t moreReasons = 0;       // of the others
};

// Keeps the latest runs, so memory stays small however many fail.
class FailingRuns
{
public:
    static constexpr std::size_t kMostRuns = 500;

    // By start time; between equal times by the order of reading.
    using Latest = std::map<std::pair<std::uint64_t, RunOrder>, FailingRun>;

    // `by`: the information key whose values are kept.
    explicit FailingRuns(std::string by) : by_(std::move(by)) {}

    void Take(RunOrder order, const Run& run);

    void Merge(FailingRuns&& other);

    std::uint64_t Count() const { return count_; }

    const Latest& Kept() const { return kept_; }

    // Implementation details.
private:
    void Limit();

    std::string by_;
    std::uint64_t count_ = 0;
    Latest kept_;
};

}  // namespace fa
