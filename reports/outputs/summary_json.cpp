#include <iterator>

#include "outputs/json_writer.h"
#include "outputs/summary.h"
#include "outputs/words.h"

namespace fa
{

namespace
{

void AddPassed(JsonWriter& writer, const char* name, std::uint64_t passed, std::uint64_t all)
{
    writer.Object(name, [&] {
        writer.Count("all", all);
        writer.Count("passed", passed);
        writer.Number("yield", Share(passed, all));
    });
}

void AddYield(JsonWriter& writer, const Yield& yield)
{
    AddPassed(writer, "runs", yield.passed, yield.runs);
    AddPassed(writer, "first_runs", yield.firstPassed, yield.firstRuns);
    AddPassed(writer, "last_runs", yield.lastPassed, yield.lastRuns);
}

void AddCodes(JsonWriter& writer, const std::optional<CodePair>& codes)
{
    if (codes) {
        writer.Count("code1", codes->code1);
        writer.Count("code2", codes->code2);
    }
}

void AddItem(JsonWriter& writer, const ItemSummary& item)
{
    writer.Object(nullptr, [&] {
        writer.Text("name", item.name);
        AddCodes(writer, item.codes);
        writer.Count("runs", item.runs);
        writer.Count("failures", item.failures);
        writer.Number("share", item.share);
        writer.Number("cumulative_share", item.cumulativeShare);
        writer.Count("passed_on_retry", item.passedOnRetry);
        writer.Count("without_result", item.withoutResult);
        writer.Number("median_duration", item.medianDuration);
        writer.Number("duration_95", item.duration95);
    });
}

void AddIndex(JsonWriter& writer, const char* name, const Index& index)
{
    writer.Object(name, [&] {
        writer.Number("value", index.value);
        writer.Number("low", index.low);
        writer.Number("high", index.high);
    });
}

void AddBars(JsonWriter& writer, const Bars& bars)
{
    writer.Object("histogram", [&] {
        writer.Number("from", bars.from);
        writer.Number("width", bars.width);
        writer.List("counts", bars.counts,
                    [&](std::uint64_t count) { writer.Count(nullptr, count); });
        writer.Count("below", bars.below);
        writer.Count("above", bars.above);
        writer.Number("allowed_from", bars.allowedFrom);
        writer.Number("allowed_below", bars.allowedBelow);
    });
}

void AddValue(JsonWriter& writer, const ValueSummary& value)
{
    writer.Object(nullptr, [&] {
        writer.Text("item", value.item);
        AddCodes(writer, value.codes);
        writer.Text("label", value.label);
        if (value.code >= 0) {
            writer.Count("code", static_cast<std::uint64_t>(value.code));
        } else {
            writer.Count("position", static_cast<std::uint64_t>(value.position));
        }
        writer.Text("limit", KindName(value.kind));
        writer.Number("low", value.low);
        writer.Number("high", value.high);
        writer.Count("n", static_cast<std::uint64_t>(value.count));
        writer.Count("not_numbers", value.others);
        if (value.count > 0) {
            writer.Number("mean", value.mean);
            writer.Number("deviation",
                          value.count > 1 ? std::optional<double>(value.deviation) : std::nullopt);
            writer.Number("min", value.min);
            writer.Number("max", value.max);
        }
        if (value.bars) {
            AddBars(writer, *value.bars);
        }
        if (value.capability) {
            if (value.capability->cp) {
                AddIndex(writer, "cp", *value.capability->cp);
            }
            AddIndex(writer, "cpk", value.capability->cpk);
        }
    });
}

}  // namespace

void AddSummary(JsonWriter& writer, const Summary& summary, const std::string& by,
                const std::vector<std::string>& refused)
{
    const auto group = [&](const char* name) {
        return [&writer, name](const GroupSummary& row) {
            writer.Object(nullptr, [&] {
                writer.Text(name, row.value);
                AddYield(writer, row.yield);
            });
        };
    };
    AddYield(writer, summary.yield);
    writer.Count("units", summary.units);
    writer.Object("results", [&] {
        constexpr const char* kNames[] = {"none", "pass", "fail", "timeout", "stop"};
        for (std::size_t i = 0; i < std::size(kNames); ++i) {
            writer.Count(kNames[i], summary.results[i]);
        }
    });
    writer.Count("without_serial_number", summary.withoutSerial);
    writer.Count("without_start_time", summary.withoutStart);
    writer.Count("repeated", summary.repeated);
    writer.List("days", summary.days, group("day"));
    if (!by.empty()) {
        writer.Text("by", by);
        writer.List("groups", summary.groups, group("value"));
    }
    writer.List("items", summary.items, [&](const ItemSummary& item) { AddItem(writer, item); });
    writer.List("values", summary.values,
                [&](const ValueSummary& value) { AddValue(writer, value); });
    writer.List("refused", refused, [&](const std::string& line) { writer.Text(nullptr, line); });
}

std::string SummaryJson(const Summary& summary, const std::string& by,
                        const std::vector<std::string>& refused)
{
    JsonWriter writer;
    writer.Object(nullptr, [&] { AddSummary(writer, summary, by, refused); });
    return writer.Finish(true);
}

}  // namespace fa
