// Process capability: how far measured values are from their limits.
#pragma once

#include <cstdint>
#include <optional>

namespace fa
{

struct Index {
    double value = 0;
    double low = 0;  // of its 95 % interval
    double high = 0;
};

struct Capability {
    std::optional<Index> cp;  // with two limits
    Index cpk;
};

// Both indices, by the formulas of docs/reading-reports.md. None below 30 values, without a
// deviation, without a limit, and where the limits leave no room.
std::optional<Capability> CapabilityOf(std::int64_t count, double mean, double deviation,
                                       std::optional<double> low, std::optional<double> high);

}  // namespace fa
