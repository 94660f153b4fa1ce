#include "statistics/capability.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace fa
{

namespace
{

constexpr std::int64_t kFewestValues = 30;
constexpr double kNormal975 = 1.959963984540054;  // the normal distribution's 97.5 % point

// The square root of a chi-square quantile over its degrees of freedom, after Wilson and Hilferty.
double ChiRatio(double degrees, double normal)
{
    const double step = 2 / (9 * degrees);
    return std::pow(1 - step + normal * std::sqrt(step), 1.5);
}

}  // namespace

std::optional<Capability> CapabilityOf(std::int64_t count, double mean, double deviation,
                                       std::optional<double> low, std::optional<double> high)
{
    if (count < kFewestValues || !(deviation > 0) || (!low && !high) ||
        (low && high && *low >= *high)) {
        return std::nullopt;
    }
    const double n = static_cast<double>(count);
    const double none = std::numeric_limits<double>::infinity();
    const double toLow = low ? (mean - *low) / (3 * deviation) : none;
    const double toHigh = high ? (*high - mean) / (3 * deviation) : none;
    Capability capability;
    const double cpk = std::min(toLow, toHigh);
    const double margin = kNormal975 * std::sqrt(1 / (9 * n) + cpk * cpk / (2 * (n - 1)));
    capability.cpk = {cpk, cpk - margin, cpk + margin};
    if (low && high) {
        const double cp = (*high - *low) / (6 * deviation);
        capability.cp =
            Index{cp, cp * ChiRatio(n - 1, -kNormal975), cp * ChiRatio(n - 1, kNormal975)};
    }
    return capability;
}

}  // namespace fa
