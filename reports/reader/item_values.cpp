// What an item's lines hold: values with their labels or codes, names, limits and numbers.
#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>

#include "PelkoAppClientLogger/report_words.h"
#include "PelkoAppClientLogger/sub_item_names.h"
#include "reader/report_reader.h"

namespace fa
{

namespace
{

std::string_view Separator(ReportMode mode)
{
    return mode == ReportMode::kSimple ? kSimpleListSeparator : kListSeparator;
}

// Calls `take` with each piece of a list.
template <typename Take>
void Split(std::string_view list, std::string_view separator, Take take)
{
    for (;;) {
        const std::size_t end = list.find(separator);
        take(list.substr(0, end));
        if (end == std::string_view::npos) {
            return;
        }
        list.remove_prefix(end + separator.size());
    }
}

bool IsSubItemName(std::string_view text)
{
    static const auto kNames = [] {
        std::array<std::string_view, kSubItemNameCount> names;
        std::copy(std::begin(g_subItemName), std::end(g_subItemName), names.begin());
        std::sort(names.begin(), names.end());
        return names;
    }();
    return std::binary_search(kNames.begin(), kNames.end(), text);
}

// The label in front of a value; none where what is there is no sub-item's name.
std::optional<std::string_view> Label(std::string_view piece)
{
    const std::size_t colon = piece.find(':');
    if (colon == std::string_view::npos || !IsSubItemName(piece.substr(0, colon))) {
        return std::nullopt;
    }
    return piece.substr(0, colon);
}

// Labels stand in front of all values or of none: what has none goes on with the value before it.
void SplitLabelled(std::string_view list, std::string_view separator, std::vector<Value>& values)
{
    Split(list, separator, [&](std::string_view piece) {
        const std::optional<std::string_view> label = Label(piece);
        if (label) {
            values.push_back(
                {static_cast<int>(values.size()) + 1, -1, label, piece.substr(label->size() + 1)});
        } else {
            std::string_view& text = values.back().text;
            text = {text.data(),
                    static_cast<std::size_t>(piece.data() + piece.size() - text.data())};
        }
    });
}

int Code(std::string_view list, std::size_t index)
{
    int code = -1;
    if (index * 2 + 2 <= list.size()) {
        std::from_chars(list.data() + index * 2, list.data() + index * 2 + 2, code, 16);
    }
    return code;
}

}  // namespace

void SplitValues(const Item& item, ReportMode mode, std::vector<Value>& values)
{
    values.clear();
    if (!item.measure || item.measure->empty()) {
        return;
    }
    const std::string_view separator = Separator(mode);
    if (mode != ReportMode::kRaw && Label(*item.measure)) {
        SplitLabelled(*item.measure, separator, values);
        return;
    }
    bool numbers = true;
    Split(*item.measure, separator, [&](std::string_view piece) {
        std::int64_t number = 0;
        numbers = numbers && (ReadNumber(piece, number) || piece.substr(0, 2) == "0x");
        const int code = Code(item.list, values.size());
        values.push_back({static_cast<int>(values.size()) + 1, code, std::nullopt, piece});
        if (code >= 0) {
            values.back().label = SubItemName(static_cast<unsigned char>(code));
        }
    });
    if (!numbers && !item.list.empty() && values.size() * 2 != item.list.size()) {
        values.assign(1, {1, -1, std::nullopt, *item.measure});
    }
}

std::vector<std::string_view> SplitNames(std::string_view names)
{
    std::vector<std::string_view> all;
    Split(names, kListSeparator, [&](std::string_view name) { all.push_back(name); });
    return all;
}

std::string JoinedLines(std::string_view lines)
{
    std::string joined;
    Split(lines, kSimpleListSeparator,
          [&](std::string_view line) { joined.append(line).append(kListSeparator); });
    joined.resize(joined.size() - kListSeparator.size());
    return joined;
}

bool ReadNumber(std::string_view text, std::int64_t& hundredths)
{
    constexpr std::size_t kMostDigits = 13;
    const bool negative = !text.empty() && text[0] == '-';
    const std::string_view digits = text.substr(negative ? 1 : 0);
    std::int64_t number = 0;
    std::size_t length = 0;
    for (; length < digits.size() && digits[length] >= '0' && digits[length] <= '9'; ++length) {
        if (length == kMostDigits) {
            return false;
        }
        number = number * 10 + (digits[length] - '0');
    }
    if (length == 0 || (length > 1 && digits[0] == '0')) {
        return false;
    }
    number *= 100;
    if (length != digits.size()) {
        const auto decimal = [&](std::size_t at) { return digits[length + at] - '0'; };
        if (digits.size() != length + 3 || digits[length] != '.' || decimal(1) < 0 ||
            decimal(1) > 9 || decimal(2) < 0 || decimal(2) > 9) {
            return false;
        }
        number += decimal(1) * 10 + decimal(2);
    }
    hundredths = negative ? -number : number;
    return true;
}

Spec ReadSpec(std::string_view text, ReportMode mode)
{
    Spec spec;
    const std::string_view separator = Separator(mode);
    if (text.find(separator) != std::string_view::npos) {
        spec.kind = SpecKind::kList;
        Split(text, separator, [&](std::string_view limit) { spec.limits.push_back(limit); });
        std::string_view& last = spec.limits.back();
        if (mode == ReportMode::kSimple && last.size() >= kSimpleListEnd.size() &&
            last.substr(last.size() - kSimpleListEnd.size()) == kSimpleListEnd) {
            spec.truncated = last == kSimpleListEnd;
            last.remove_suffix(kSimpleListEnd.size());
            if (spec.truncated) {
                spec.limits.pop_back();
            }
        }
        return spec;
    }
    constexpr struct {
        SpecKind kind;
        PelkoSpecType_e type;
    } kOperators[] = {
        {SpecKind::kNotEqual, SPEC_NOT_EQUAL},
        {SpecKind::kGreaterEqual, SPEC_GREATER_EQUAL},
        {SpecKind::kLessEqual, SPEC_LESS_EQUAL},
        {SpecKind::kGreater, SPEC_GREATER},
        {SpecKind::kLess, SPEC_LESS},
    };
    for (const auto& row : kOperators) {
        const std::string_view sign = SpecOperator(row.type);
        if (text.size() >= sign.size() && text.substr(text.size() - sign.size()) == sign) {
            spec.kind = row.kind;
            spec.limits.push_back(text.substr(0, text.size() - sign.size()));
            return spec;
        }
    }
    const std::size_t range = text.find(kSpecRange);
    if (range != std::string_view::npos) {
        spec.kind = SpecKind::kRange;
        spec.limits = {text.substr(0, range), text.substr(range + kSpecRange.size())};
    } else {
        spec.limits = {text};
    }
    return spec;
}

}  // namespace fa
