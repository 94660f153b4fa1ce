// The bars of the page's histograms.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "statistics/histogram.h"

namespace
{

using fa::SpecKind;

// A number counts in the bar that it belongs to, is on the right side of the limits, and a few far
// away leave the others the bars that they need.
TEST(PageTest, BarsShowEveryNumberAndTheLimits)
{
    std::mt19937 random(20261117);
    int withLimits = 0;
    for (int round = 0; round < 400; ++round) {
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
        std::vector<std::uint64_t> counts(bars.counts.size() + 2);  // the first and last: beyond
        for (const std::int64_t number : numbers) {
            const auto value = static_cast<double>(number);
            const double bar = std::floor((value - from) / width) + 1;
            const auto last = static_cast<double>(counts.size() - 1);
            ++counts[static_cast<std::size_t>(std::clamp(bar, 0.0, last))];
            const bool isAbove = !bars.allowedFrom || value >= std::round(*bars.allowedFrom * 100);
            const bool isBelow = !bars.allowedBelow || value < std::round(*bars.allowedBelow * 100);
            const bool obeysLow = kind == SpecKind::kGreater ? number > low : number >= low;
            const bool obeysHigh = kind == SpecKind::kLess ? number < high : number <= high;
            if (drawn) {
                ASSERT_EQ(isAbove && isBelow, (!hasLow || obeysLow) && (!hasHigh || obeysHigh));
            }
        }
        std::vector<std::uint64_t> shown = bars.counts;
        shown.insert(shown.begin(), bars.below);
        shown.push_back(bars.above);
        ASSERT_EQ(shown, counts) << round;
        ASSERT_TRUE(farAway || bars.below + bars.above < 1 + numbers.size() / 50);
        if (numbers.size() > 100) {
            ASSERT_GE(std::count_if(counts.begin(), counts.end(), [](auto n) { return n > 0; }), 4);
        }
    }
    EXPECT_GT(withLimits, 300);
}

}  // namespace
