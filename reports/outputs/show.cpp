// The runs one by one: the outcome first, then what failed and why.
#include <algorithm>
#include <string>

#include "outputs/output_file.h"
#include "outputs/outputs.h"
#include "outputs/terminal.h"
#include "outputs/words.h"
#include "reader/report_files.h"
#include "reader/text.h"

namespace fa
{

namespace
{

constexpr std::size_t kMostValues = 8;

const char* Outcome(RunResult result)
{
    switch (result) {
        case RunResult::kPass:
            return "PASS";
        case RunResult::kFail:
            return "FAIL";
        case RunResult::kTimeout:
            return "TIMEOUT";
        case RunResult::kStop:
            return "STOP";
        case RunResult::kNone:
            break;
    }
    return "NO RESULT";
}

std::string Title(const Item& item)
{
    const std::string position = std::to_string(item.position);
    return std::string(3 - std::min<std::size_t>(position.size(), 3), '0') + position + " " +
           ValidText(item.name) + CodesText(item.codes);
}

std::string SpecText(const Spec& spec)
{
    const std::string first = ValidText(spec.limits[0]);
    switch (spec.kind) {
        case SpecKind::kValue:
            return first;
        case SpecKind::kNotEqual:
            return "not " + first;
        case SpecKind::kGreaterEqual:
            return ">= " + first;
        case SpecKind::kLessEqual:
            return "<= " + first;
        case SpecKind::kGreater:
            return "> " + first;
        case SpecKind::kLess:
            return "< " + first;
        case SpecKind::kRange:
            return first + " to " + ValidText(spec.limits[1]);
        case SpecKind::kList:
            break;
    }
    return "a list";
}

// Whether a value lies outside its limit, as far as numbers tell.
bool Violates(const Value& value, const Spec& spec)
{
    const std::size_t place =
        spec.kind == SpecKind::kList ? static_cast<std::size_t>(value.position) - 1 : 0;
    std::int64_t number = 0;
    std::int64_t limit = 0;
    if (place >= spec.limits.size() || !ReadNumber(value.text, number) ||
        !ReadNumber(spec.limits[place], limit)) {
        return false;
    }
    switch (spec.kind) {
        case SpecKind::kValue:
        case SpecKind::kList:
            return number != limit;
        case SpecKind::kNotEqual:
            return number == limit;
        case SpecKind::kGreaterEqual:
            return number < limit;
        case SpecKind::kLessEqual:
            return number > limit;
        case SpecKind::kGreater:
            return number <= limit;
        case SpecKind::kLess:
            return number >= limit;
        case SpecKind::kRange:
            break;
    }
    std::int64_t high = 0;
    return number < limit || (ReadNumber(spec.limits[1], high) && number > high);
}

// The values that lie outside where some do, else all; of a long list the first ones.
std::string Measured(const Item& item, ReportMode mode)
{
    std::vector<Value> values;
    SplitValues(item, mode, values);
    std::optional<Spec> spec;
    if (item.spec && !item.spec->empty()) {
        spec = ReadSpec(*item.spec, mode);
    }
    std::vector<Value> shown;
    for (const Value& value : values) {
        if (spec && Violates(value, *spec)) {
            shown.push_back(value);
        }
    }
    const bool outside = !shown.empty();
    if (!outside) {
        shown = values;
    }
    std::string text;
    for (std::size_t i = 0; i < shown.size() && i < kMostValues; ++i) {
        const Value& value = shown[i];
        text += i > 0 ? ", " : "";
        if (value.label && !value.label->empty()) {
            text.append(*value.label).append(" ");
        } else if (values.size() > 1) {
            text.append("value ").append(std::to_string(value.position)).append(": ");
        }
        text += ValidText(value.text);
        if (outside && spec->kind == SpecKind::kList) {
            text += " for " + ValidText(spec->limits[static_cast<std::size_t>(value.position) - 1]);
        }
    }
    if (shown.size() > kMostValues) {
        text += " and " + std::to_string(shown.size() - kMostValues) + " more";
    }
    text = text.empty() ? "nothing measured" : (outside ? "outside: " : "measured ") + text;
    return spec ? text + "; limit " + SpecText(*spec) : text;
}

std::string Names(std::string_view line)
{
    std::string text;
    for (const std::string_view name : SplitNames(line)) {
        text += (text.empty() ? "" : ", ") + (name.empty() ? "(no name)" : ValidText(name));
    }
    return text;
}

std::string Failed(const Item& item, ReportMode mode)
{
    const std::string indent = "      ";
    std::string text = "  " + Title(item) + "\n";
    if (item.hasErrorForm) {
        text += indent + "its record is wrong";
        text += item.dataError ? ", the data" : "";
        text += item.specError ? ", the specification" : "";
        text += item.listError ? ", the list of sub-items" : "";
        return text + "\n";
    }
    if (item.measure || item.spec) {
        text += indent + Measured(item, mode) + "\n";
    }
    if (!item.error.empty()) {
        text += indent + "in error: " + Names(item.error) + "\n";
    }
    if (!item.skip.empty()) {
        text += indent + "left out: " + Names(item.skip) + "\n";
    }
    if (item.retries != 0) {
        text += indent + "retries: " + std::to_string(item.retries) + "\n";
    }
    if (item.data) {
        text += indent + "data: " + ValidText(*item.data) + "\n";
    }
    if (!item.failureNote.empty()) {
        text += indent + "noted: " + ValidText(item.failureNote) + "\n";
    }
    if (!item.detail.empty()) {
        text += indent + "detail: " + ValidText(item.detail) + "\n";
    }
    return text;
}

std::string RunText(const std::string& file, const Run& run)
{
    std::uint64_t counts[3] = {};
    std::string failed;
    std::string retried;
    std::string missing;
    for (const Item& item : run.items) {
        ++counts[static_cast<std::size_t>(item.result)];
        if (item.result == ItemResult::kFail) {
            failed += Failed(item, run.mode);
        } else if (item.result == ItemResult::kNone) {
            missing += "  " + Title(item) + "\n";
        } else if (item.retries > 0) {
            retried += "  " + Title(item) + ": " + std::to_string(item.retries) + "\n";
        }
    }
    const std::string serial = ValidText(run.SerialNumber());
    std::string text = Outcome(run.result);
    text += "  " + (serial.empty() ? "(no serial number)" : serial) + ", " + StartText(run) + ", " +
            ValidText(file) + "\n";
    text += std::to_string(counts[static_cast<std::size_t>(ItemResult::kPass)]) + " of " +
            Counted(run.items.size(), "item") + " passed; duration " +
            std::to_string(run.duration) + ", retries " + std::to_string(run.retries) + "\n";
    const auto add = [&](const std::string& title, const std::string& lines) {
        text += lines.empty() ? "" : "\n" + title + "\n" + lines;
    };
    add("Failed:", failed);
    add("Passed on a retry (with how many):", retried);
    add("Without a result:", missing);
    std::string information;
    for (const Information& line : run.information) {
        information += "  " + ValidText(line.key) + "=" + ValidText(JoinedLines(line.value)) + "\n";
    }
    add("Information:", information);
    return text;
}

}  // namespace

ExitStatus Show(const Options& options)
{
    OutputFile output(options.output);
    bool allPassed = true;
    bool first = true;
    const std::vector<std::string> refused =
        ReadInOrder(ReportFiles(options.inputs), [&](const std::string& file, const Run& run) {
            output.Write((first ? "" : "\n\n") + RunText(file, run));
            allPassed = allPassed && run.result == RunResult::kPass;
            first = false;
        });
    output.Close();
    PrintRefused(refused);
    return !refused.empty() ? kNotAllRead : allPassed ? kAllPassed : kNotAllPassed;
}

}  // namespace fa
