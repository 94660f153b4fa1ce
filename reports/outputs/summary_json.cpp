#include <json-glib/json-glib.h>

#include <iterator>

#include "outputs/summary.h"
#include "outputs/words.h"

namespace fa
{

namespace
{

class Writer
{
public:
    Writer() = default;

    ~Writer() { g_object_unref(builder_); }

    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // A member that is an object or a list, which `fill` fills.
    template <typename Fill>
    void Object(const char* name, Fill fill)
    {
        Name(name);
        json_builder_begin_object(builder_);
        fill();
        json_builder_end_object(builder_);
    }

    template <typename Rows, typename Fill>
    void List(const char* name, const Rows& rows, Fill fill)
    {
        Name(name);
        json_builder_begin_array(builder_);
        for (const auto& row : rows) {
            fill(row);
        }
        json_builder_end_array(builder_);
    }

    void Count(const char* name, std::uint64_t count)
    {
        Name(name);
        json_builder_add_int_value(builder_, static_cast<gint64>(count));
    }

    void Number(const char* name, const std::optional<double>& number)
    {
        Name(name);
        if (number) {
            json_builder_add_double_value(builder_, *number);
        } else {
            json_builder_add_null_value(builder_);
        }
    }

    void Text(const char* name, const std::string& text)
    {
        Name(name);
        json_builder_add_string_value(builder_, text.c_str());
    }

    std::string Finish()
    {
        g_autoptr(JsonNode) root = json_builder_get_root(builder_);
        g_autofree char* text = json_to_string(root, TRUE);
        return std::string(text) + "\n";
    }

private:
    // Rows of a list and the whole have no name.
    void Name(const char* name)
    {
        if (name != nullptr) {
            json_builder_set_member_name(builder_, name);
        }
    }

    JsonBuilder* const builder_ = json_builder_new();
};

void AddPassed(Writer& writer, const char* name, std::uint64_t passed, std::uint64_t all)
{
    writer.Object(name, [&] {
        writer.Count("all", all);
        writer.Count("passed", passed);
        writer.Number("yield", Share(passed, all));
    });
}

void AddYield(Writer& writer, const Yield& yield)
{
    AddPassed(writer, "runs", yield.passed, yield.runs);
    AddPassed(writer, "first_runs", yield.firstPassed, yield.firstRuns);
    AddPassed(writer, "last_runs", yield.lastPassed, yield.lastRuns);
}

void AddCodes(Writer& writer, const std::optional<CodePair>& codes)
{
    if (codes) {
        writer.Count("code1", codes->code1);
        writer.Count("code2", codes->code2);
    }
}

void AddItem(Writer& writer, const ItemSummary& item)
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

void AddIndex(Writer& writer, const char* name, const Index& index)
{
    writer.Object(name, [&] {
        writer.Number("value", index.value);
        writer.Number("low", index.low);
        writer.Number("high", index.high);
    });
}

void AddValue(Writer& writer, const ValueSummary& value)
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
            writer.Number("deviation", value.deviation);
            writer.Number("min", value.min);
            writer.Number("max", value.max);
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

std::string SummaryJson(const Summary& summary, const std::string& by,
                        const std::vector<std::string>& refused)
{
    Writer writer;
    const auto group = [&](const char* name) {
        return [&writer, name](const GroupSummary& row) {
            writer.Object(nullptr, [&] {
                writer.Text(name, row.value);
                AddYield(writer, row.yield);
            });
        };
    };
    writer.Object(nullptr, [&] {
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
        writer.List("items", summary.items,
                    [&](const ItemSummary& item) { AddItem(writer, item); });
        writer.List("values", summary.values,
                    [&](const ValueSummary& value) { AddValue(writer, value); });
        writer.List("refused", refused,
                    [&](const std::string& line) { writer.Text(nullptr, line); });
    });
    return writer.Finish();
}

}  // namespace fa
