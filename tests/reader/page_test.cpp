// The bars of the page's histograms.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "statistics/histogram.h"

namespace
{

using fa::SpecKind;

bool Allows(SpecKind kind, std::int64_t low, std::int64_t high, std::int64_t number)
{
    switch (kind) {
        case SpecKind::kGreaterEqual:
            return number >= low;
        case SpecKind::kLessEqual:
            return number <= high;
        case SpecKind::kGreater:
            return number > low;
        case SpecKind::kLess:
            return number < high;
        default:
            return number >= low && number <= high;
    }
}

// A number counts in the bar that it belongs to, is on the right side of the limits, and a few far
// away leave the others the bars that they need.
TEST(PageTest, BarsShowEveryNumberAndTheLimits)
{
    std::mt19937 random(20261117);
    int withLimits = 0;
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        const std::int64_t step = round % 2 == 0 ? 100 : 1;
        const double deviation = std::pow(10, round % 4);
        std::normal_distribution<double> normal(round % 3 * 40 - 40, deviation);
        const auto draw = [&] { return std::llround(normal(random)) * step; };
        std::vector<std::int64_t> numbers;
        std::generate_n(std::back_inserter(numbers), 1 + round * 10, draw);
        const bool farAway = round >= 200;
        numbers[0] = farAway ? 999'999'900 : numbers[0];
        const auto kind = static_cast<SpecKind>(2 + round % 5);
        const std::int64_t low = draw() - step / 2;
        const std::int64_t high = round % 50 == 0 ? 99'999'999'900 : low + std::abs(draw()) * 3;

        fa::Histogram parts[2];
        fa::Histogram whole;
        for (const std::int64_t number : numbers) {
            parts[random() % 2].Add(number);
            whole.Add(number);
        }
        parts[0].Merge(parts[1]);
        const fa::Bars bars = parts[0].ToBars(kind, low, high);
        ASSERT_EQ(bars.counts, whole.ToBars(kind, low, high).counts);

        const bool hasLow = kind != SpecKind::kLess && kind != SpecKind::kLessEqual;
        const bool hasHigh = kind != SpecKind::kGreater && kind != SpecKind::kGreaterEqual;
        const bool drawn =
            hasLow == bars.allowedFrom.has_value() && hasHigh == bars.allowedBelow.has_value();
        withLimits += drawn ? 1 : 0;
        const double from = std::round(bars.from * 100);
        const double width = std::round(bars.width * 100);
        const auto count = static_cast<double>(bars.counts.size());
        std::vector<std::uint64_t> counts(bars.counts.size());
        std::uint64_t beyond[2] = {};
        for (const std::int64_t number : numbers) {
            const auto value = static_cast<double>(number);
            const double bar = std::floor((value - from) / width);
            ++(bar < 0 || bar >= count ? beyond[bar < 0 ? 0 : 1]
                                       : counts[static_cast<std::size_t>(bar)]);
            const bool isAbove = !bars.allowedFrom || value >= std::round(*bars.allowedFrom * 100);
            const bool isBelow = !bars.allowedBelow || value < std::round(*bars.allowedBelow * 100);
            if (drawn) {
                ASSERT_EQ(isAbove && isBelow, Allows(kind, low, high, number)) << number;
            }
        }
        ASSERT_EQ(bars.counts, counts);
        ASSERT_EQ(bars.below, beyond[0]);
        ASSERT_EQ(bars.above, beyond[1]);
        ASSERT_LE(bars.counts.size(), 60U);
        ASSERT_TRUE(farAway || beyond[0] + beyond[1] < 1 + numbers.size() / 50);
        if (numbers.size() > 100) {
            ASSERT_GE(std::count_if(counts.begin(), counts.end(), [](auto n) { return n > 0; }), 4);
        }
    }
    EXPECT_GT(withLimits, 300);
}

}  // namespace
