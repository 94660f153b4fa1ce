// The serial lines of the set.
#pragma once

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>

namespace fa::set
{

// What comes into a line that has a protocol becomes packets: the service announces each with the
// signal, and a client fetches it with the method. Elsewhere it is dropped.
struct LineRow {
    const char* name;
    const char* signal;
    const char* fetch;

    bool HasProtocol() const { return fetch != nullptr; }
};

// In the order in which they are opened, which is that of the protocol types 0 to 3.
constexpr LineRow kLines[] = {
    {"uart", nullptr, nullptr},
    {"ss", "ss_handler", "GetSsProtocolData"},
    {"rjp", "rjp_handler", "GetRjpProtocolData"},
    {"ep", "ep_handler", "GetEpProtocolData"},
};

// An index of kLines.
using Line = std::size_t;
constexpr Line kUart = 0;
constexpr Line kSs = 1;
constexpr Line kRjp = 2;

// The first line for which it is true.
template <typename Condition>
std::optional<Line> FindLine(Condition condition)
{
    const auto* const found = std::find_if(std::begin(kLines), std::end(kLines), condition);
    return found != std::end(kLines) ? std::optional<Line>(found - kLines) : std::nullopt;
}

inline std::optional<Line> FindLineNamed(const std::string& name)
{
    return FindLine([&](const LineRow& row) { return name == row.name; });
}

inline std::optional<Line> FindLineFetchedBy(const std::string& method)
{
    return FindLine(
        [&](const LineRow& row) { return row.fetch != nullptr && method == row.fetch; });
}

}  // namespace fa::set
