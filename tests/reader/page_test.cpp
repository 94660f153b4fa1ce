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
    const auto hundredths = [](double number) { return std::round(number * 100); };
    std::mt19937 random(20261117);
    int withLimits = 0;
    for (int round = 0; round < 400; ++round) {
        const std::int64_t step = round % 2 == 0 ? 100 : 1;
        const double deviation = std::pow(10, round % 4);
        std::normal_distribution<double> normal(round % 3 * 40 - 40, deviation);
        const auto draw = [&] { return std::llround(normal(random)) * step; };
        std::vector<std::int64_t> numbers;
        std::generate_n(std::back_inserter(numbers), std::max(1, round * 10), draw);
        const bool farAway = round >= 200;
        std::fill_n(numbers.begin(), farAway ? numbers.size() / 200 : 0,
                    round % 40 == 0 ? -999'999'900 : 999'999'900);
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

        const bool drawn = fa::HasLowLimit(kind) == bars.allowedFrom.has_value() &&
                           fa::HasHighLimit(kind) == bars.allowedBelow.has_value();
        withLimits += drawn ? 1 : 0;
        std::vector<std::uint64_t> counts(bars.counts.size() + 2);  // the first and last: beyond
        for (const std::int64_t number : numbers) {
            const auto value = static_cast<double>(number);
            const double bar = std::floor((value - hundredths(bars.from)) / hundredths(bars.width));
            const auto last = static_cast<double>(bars.counts.size() + 1);
            ++counts[static_cast<std::size_t>(std::clamp(bar + 1, 0.0, last))];
            const bool tooLow = kind == SpecKind::kGreater ? number <= low : number < low;
            const bool tooHigh = kind == SpecKind::kLess ? number >= high : number > high;
            const bool isOutside = value < hundredths(bars.allowedFrom.value_or(-1e12)) ||
                                   value >= hundredths(bars.allowedBelow.value_or(1e12));
            ASSERT_TRUE(!drawn || isOutside == ((fa::HasLowLimit(kind) && tooLow) ||
                                                (fa::HasHighLimit(kind) && tooHigh)));
        }
        std::vector<std::uint64_t> shown = bars.counts;
        shown.insert(shown.begin(), bars.below);
        shown.push_back(bars.above);
        ASSERT_EQ(shown, counts) << round;
        ASSERT_TRUE(farAway || bars.below + bars.above < 1 + numbers.size() / 50);
        const auto empty = static_cast<std::size_t>(std::count(counts.begin(), counts.end(), 0U));
        ASSERT_TRUE(numbers.size() <= 100 || counts.size() - empty >= 4);
    }
    EXPECT_GT(withLimits, 300);
}

}  // namespace
