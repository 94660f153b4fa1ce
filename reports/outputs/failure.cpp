#include "outputs/failure.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "reader/text.h"

namespace fa
{

namespace
{

constexpr std::size_t kMostValues = 8;

std::string SpecText(const Spec& spec)
{
    std::string first = ValidText(spec.limits[0]);
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

}  // namespace

std::vector<std::string> FailureLines(const Item& item, ReportMode mode)
{
    std::vector<std::string> lines;
    if (item.hasErrorForm) {
        std::string text = "its record is wrong";
        text += item.dataError ? ", the data" : "";
        text += item.specError ? ", the specification" : "";
        text += item.listError ? ", the list of sub-items" : "";
        lines.push_back(text);
        return lines;
    }
    if (item.measure || item.spec) {
        lines.push_back(Measured(item, mode));
    }
    if (!item.error.empty()) {
        lines.push_back("in error: " + Names(item.error));
    }
    if (!item.skip.empty()) {
        lines.push_back("left out: " + Names(item.skip));
    }
    if (item.retries != 0) {
        lines.push_back("retries: " + std::to_string(item.retries));
    }
    if (item.data) {
        lines.push_back("data: " + ValidText(*item.data));
    }
    if (!item.failureNote.empty()) {
        lines.push_back("noted: " + ValidText(item.failureNote));
    }
    if (!item.detail.empty()) {
        lines.push_back("detail: " + ValidText(item.detail));
    }
    return lines;
}

}  // namespace fa
