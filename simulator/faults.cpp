#include "faults.h"

#include <algorithm>
#include <iterator>

namespace fa
{

namespace
{

enum class Target { kMethod, kFetch, kProtocol, kService };

struct Row {
    const char* name;
    FaultKind kind;
    Target target;
    int least;
    int most;
    std::optional<int> usual;  // the value where none is given
};

constexpr int kMostMs = 600'000;

const Row kRows[] = {
    {"result", FaultKind::kResult, Target::kMethod, G_MININT, G_MAXINT, std::nullopt},
    {"delay", FaultKind::kDelay, Target::kMethod, 0, kMostMs, std::nullopt},
    {"error", FaultKind::kError, Target::kMethod, 0, 0, 0},
    {"no-answer", FaultKind::kNoAnswer, Target::kMethod, 0, 0, 0},
    {"empty", FaultKind::kEmpty, Target::kFetch, 0, 0, 0},
    {"long", FaultKind::kLong, Target::kFetch, 0, 100'000, 300},
    {"burst", FaultKind::kBurst, Target::kProtocol, 1, 10'000, std::nullopt},
    {"leave", FaultKind::kLeave, Target::kService, 0, kMostMs, std::nullopt},
};

Target FindTarget(const std::string& name)
{
    if (name == "service") {
        return Target::kService;
    }
    if (name == "ss" || name == "rjp" || name == "ep") {
        return Target::kProtocol;
    }
    return name.rfind("Get", 0) == 0 ? Target::kFetch : Target::kMethod;
}

int ReadNumber(const std::string& word, gint64 least, gint64 most)
{
    gint64 number = 0;
    GError* error = nullptr;
    if (!g_ascii_string_to_signed(word.c_str(), 10, least, most, &number, &error)) {
        const std::string reason = error->message;
        g_error_free(error);
        throw UsageError("fault: " + reason);
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

Fault CheckFault(const FaultRequest& request)
{
    const auto* const row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& each) {
        return request.kind == each.name;
    });
    const Target target = FindTarget(request.target);
    if (row == std::end(kRows) ||
        !(target == row->target || (target == Target::kFetch && row->target == Target::kMethod))) {
        throw UsageError("fault: " + request.target + " has no fault " + request.kind);
    }
    if (!request.value && !row->usual) {
        throw UsageError("fault: " + request.kind + " needs a value");
    }
    if (request.times != 0 && (target == Target::kProtocol || target == Target::kService)) {
        throw UsageError("fault: " + request.kind + " happens once and takes no times");
    }
    const int value = request.value ? *request.value : *row->usual;
    if (value < row->least || value > row->most) {
        throw UsageError("fault: " + request.kind + " takes no value " + std::to_string(value));
    }
    return {row->kind, row->name, value, request.times};
}

std::string Describe(const Fault& fault)
{
    const bool valued = fault.kind == FaultKind::kResult || fault.kind == FaultKind::kDelay ||
                        fault.kind == FaultKind::kLong;
    return fault.name + (valued ? " " + std::to_string(fault.value) : "") +
           (fault.times != 0 ? " times " + std::to_string(fault.times) : "");
}

std::optional<Fault> Faults::Take(const std::string& method)
{
    const auto found = faults.find(method);
    if (found == faults.end()) {
        return std::nullopt;
    }
    const Fault fault = found->second;
    if (fault.times == 1) {
        faults.erase(found);
    } else if (fault.times > 1) {
        --found->second.times;
    }
    return fault;
}

}  // namespace fa
