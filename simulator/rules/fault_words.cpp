#include "rules/fault_words.h"

#include <algorithm>
#include <iterator>

namespace fa::set
{

namespace
{

enum class Target { kMethod, kFetch, kProtocol, kService };

struct Row {
    const char* kind;
    Target target;
    int min;
    int max;
    std::optional<int> standard;  // the value where none is given
    void (*apply)(Rule& rule, int value);
};

std::vector<guint32> Counting(int count)
{
    std::vector<guint32> elements(static_cast<std::size_t>(count) + 1);
    elements[0] = static_cast<guint32>(count);
    for (std::size_t i = 1; i < elements.size(); ++i) {
        elements[i] = (i - 1) & 0xFF;
    }
    return elements;
}

const Row kRows[] = {
    {"result", Target::kMethod, G_MININT, G_MAXINT, std::nullopt,
     [](Rule& rule, int value) { rule.result = value; }},
    {"delay", Target::kMethod, 0, kMaxMs, std::nullopt,
     [](Rule& rule, int value) { rule.delayMs = static_cast<guint>(value); }},
    {"error", Target::kMethod, 0, 0, 0,
     [](Rule& rule, int /*value*/) { rule.error = "a fault on demand"; }},
    {"no-answer", Target::kMethod, 0, 0, 0,
     [](Rule& rule, int /*value*/) { rule.noAnswer = true; }},
    {"empty", Target::kFetch, 0, 0, 0,
     [](Rule& rule, int /*value*/) { rule.data = Own(NewArray({})); }},
    {"long", Target::kFetch, 0, 100'000, 300,
     [](Rule& rule, int value) { rule.data = Own(NewArray(Counting(value))); }},
    {"burst", Target::kProtocol, 1, kMaxPackets, std::nullopt,
     [](Rule& rule, int value) { AddBurst(rule, rule.line, value); }},
    {"leave", Target::kService, 0, kMaxMs, std::nullopt,
     [](Rule& rule, int value) { rule.leaveMs = static_cast<guint>(value); }},
};

Target FindTarget(const std::string& name)
{
    if (name == "service") {
        return Target::kService;
    }
    const std::optional<Line> line = FindLineNamed(name);
    if (line && kLines[*line].HasProtocol()) {
        return Target::kProtocol;
    }
    if (name != kAllMethods && FindMethod(name) == nullptr) {
        throw UsageError("fault: there is no method " + name);
    }
    return FindLineFetchedBy(name) ? Target::kFetch : Target::kMethod;
}

const Row& FindRow(const FaultRequest& request)
{
    const Target target = FindTarget(request.target);
    const auto* const row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& each) {
        return request.kind == each.kind;
    });
    if (row == std::end(kRows) ||
        !(target == row->target || (target == Target::kFetch && row->target == Target::kMethod))) {
        throw UsageError("fault: " + request.target + " has no fault " + request.kind);
    }
    return *row;
}

int ReadNumber(const std::string& word, gint64 min, gint64 max)
{
    gint64 number = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_ascii_string_to_signed(word.c_str(), 10, min, max, &number, &error)) {
        throw UsageError(std::string("fault: ") + error->message);
    }
    return static_cast<int>(number);
}

}  // namespace

FaultRequest ReadFault(const std::vector<std::string>& words)
{
    const bool limited = words.size() >= 4 && words[words.size() - 2] == "times";
    const std::size_t count = words.size() - (limited ? 2 : 0);
    if (count < 2 || count > 3) {
        throw UsageError("a fault is TARGET KIND [VALUE] [times N]");
    }
    FaultRequest request{words[0], words[1], std::nullopt, 0};
    if (count == 3) {
        request.value = ReadNumber(words[2], G_MININT, G_MAXINT);
    }
    if (limited) {
        request.times = static_cast<unsigned int>(ReadNumber(words.back(), 1, G_MAXINT));
    }
    return request;
}

int CheckFault(const FaultRequest& request)
{
    const Row& row = FindRow(request);
    if (!request.value && !row.standard) {
        throw UsageError("fault: " + request.kind + " needs a value");
    }
    if (request.times != 0 && (row.target == Target::kProtocol || row.target == Target::kService)) {
        throw UsageError("fault: " + request.kind + " happens once and takes no times");
    }
    const int value = request.value ? *request.value : *row.standard;
    if (value < row.min || value > row.max) {
        throw UsageError("fault: " + request.kind + " takes no value " + std::to_string(value));
    }
    return value;
}

Rule ToRule(const FaultRequest& request)
{
    const int value = CheckFault(request);
    const Row& row = FindRow(request);
    Rule rule;
    if (row.target == Target::kMethod || row.target == Target::kFetch) {
        rule.when = Rule::When::kCall;
        rule.method = request.target;
    }
    rule.line = FindLineNamed(request.target).value_or(0);
    rule.times = request.times;
    rule.name = row.kind;
    rule.isFault = true;
    row.apply(rule, value);
    return rule;
}

std::string Describe(const FaultRequest& request)
{
    const Row& row = FindRow(request);
    return request.target + " " + row.kind +
           (row.max > row.min ? " " + std::to_string(CheckFault(request)) : "") +
           (request.times != 0 ? " times " + std::to_string(request.times) : "");
}

void AddBurst(Rule& rule, Line line, int count)
{
    for (int i = 0; i < count; ++i) {
        rule.packets.push_back(
            {line, {static_cast<unsigned char>(i >> 8), static_cast<unsigned char>(i)}});
    }
}

}  // namespace fa::set
