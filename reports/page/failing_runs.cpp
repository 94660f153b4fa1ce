#include "page/failing_runs.h"

#include <glib.h>

#include "outputs/failure.h"
#include "outputs/words.h"
#include "reader/text.h"

namespace fa
{

namespace
{

constexpr std::size_t kMostReasons = 5;
constexpr glong kMostCharacters = 300;

std::string Cut(const std::string& text)
{
    if (g_utf8_strlen(text.c_str(), -1) <= kMostCharacters) {
        return text;
    }
    g_autofree char* begin = g_utf8_substring(text.c_str(), 0, kMostCharacters);
    return std::string(begin) + "…";
}

std::string Reason(const Item& item, ReportMode mode)
{
    std::string text = ValidText(item.name) + CodesText(item.codes);
    const char* before = ": ";
    for (const std::string& line : FailureLines(item, mode)) {
        text.append(before).append(line);
        before = "; ";
    }
    return text;
}

}  // namespace

void FailingRuns::Take(RunOrder order, const Run& run)
{
    if (run.result == RunResult::kPass) {
        return;
    }
    ++count_;
    const Latest::key_type key(run.start, order);
    if (kept_.size() == kMostRuns && key < kept_.begin()->first) {
        return;
    }
    FailingRun& failing = kept_[key];
    failing.start = Cut(StartText(run));
    failing.serialNumber = Cut(ValidText(run.SerialNumber()));
    failing.result = ResultName(run.result);
    failing.group = Cut(ValidText(JoinedLines(run.Value(by_))));
    for (const Item& item : run.items) {
        if (item.result != ItemResult::kFail) {
            continue;
        }
        if (failing.reasons.size() < kMostReasons) {
            failing.reasons.push_back(Cut(Reason(item, run.mode)));
        } else {
            ++failing.moreReasons;
        }
    }
    Limit();
}

void FailingRuns::Merge(FailingRuns&& other)
{
    count_ += other.count_;
    kept_.merge(other.kept_);
    Limit();
}

void FailingRuns::Limit()
{
    while (kept_.size() > kMostRuns) {
        kept_.erase(kept_.begin());
    }
}

}  // namespace fa
