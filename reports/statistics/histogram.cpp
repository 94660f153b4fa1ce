#include "statistics/histogram.h"

#include <algorithm>

namespace fa
{

namespace
{

constexpr std::int64_t kOne = 100;  // hundredths
constexpr std::int64_t kFewestBars = 5;

std::int64_t FloorOf(std::int64_t number, std::int64_t width)
{
    return number / width - (number % width < 0 ? 1 : 0);
}

std::int64_t CeilingOf(std::int64_t number, std::int64_t width)
{
    return -FloorOf(-number, width);
}

// 1, 5, 10, 50, 100, ...: each divides the next.
std::int64_t WiderThan(std::int64_t width)
{
    std::int64_t digit = width;
    while (digit % 10 == 0) {
        digit /= 10;
    }
    return digit == 1 ? width * 5 : width * 2;
}

}  // namespace

bool HasLimits(SpecKind kind)
{
    return HasLowLimit(kind) || HasHighLimit(kind);
}

void Histogram::Add(std::int64_t number)
{
    whole_ = whole_ && number % kOne == 0;
    Count(FloorOf(number, width_), 1);
}

void Histogram::Count(std::int64_t index, std::uint64_t count)
{
    const auto found =
        std::lower_bound(places_.begin(), places_.end(), index,
                         [](const Place& place, std::int64_t i) { return place.index < i; });
    if (found != places_.end() && found->index == index) {
        found->count += count;
        return;
    }
    places_.insert(found, {index, count});
    while (places_.size() > kMostPlaces) {
        Widen();
    }
}

void Histogram::Widen()
{
    const std::int64_t wider = WiderThan(width_);
    std::vector<Place> narrow;
    narrow.swap(places_);
    for (const Place& place : narrow) {
        const std::int64_t index = FloorOf(place.index, wider / width_);
        if (places_.empty() || places_.back().index != index) {
            places_.push_back({index, 0});
        }
        places_.back().count += place.count;
    }
    width_ = wider;
}

void Histogram::Merge(const Histogram& other)
{
    whole_ = whole_ && other.whole_;
    while (width_ < other.width_) {
        Widen();
    }
    for (const Place& place : other.places_) {
        Count(FloorOf(place.index * other.width_, width_), place.count);
    }
}

// Where the places begin that hold the lowest and the highest number of all but half a percent on
// each side.
Histogram::Range Histogram::Most() const
{
    std::uint64_t all = 0;
    for (const Place& place : places_) {
        all += place.count;
    }
    const auto end = [few = all / 200, this](auto place) {
        for (std::uint64_t before = place->count; before <= few; before += place->count) {
            ++place;
        }
        return place->index * width_;
    };
    return {end(places_.begin()), end(places_.rbegin())};
}

Bars Histogram::ToBars(SpecKind kind, std::int64_t lowLimit, std::int64_t highLimit) const
{
    const std::int64_t step = whole_ ? kOne : 1;  // between neighbouring numbers
    std::optional<std::int64_t> allowedFrom;
    std::optional<std::int64_t> allowedBelow;
    if (kind == SpecKind::kGreater) {
        allowedFrom = (FloorOf(lowLimit, step) + 1) * step;
    } else if (kind == SpecKind::kGreaterEqual || kind == SpecKind::kRange) {
        allowedFrom = CeilingOf(lowLimit, step) * step;
    }
    if (kind == SpecKind::kLess) {
        allowedBelow = CeilingOf(highLimit, step) * step;
    } else if (kind == SpecKind::kLessEqual || kind == SpecKind::kRange) {
        allowedBelow = (FloorOf(highLimit, step) + 1) * step;
    }
    const auto withLimits = [&](Range range) {
        const std::int64_t low = allowedFrom.value_or(range.from);
        const std::int64_t high = allowedBelow ? *allowedBelow - step : range.to;
        return Range{std::min({range.from, low, high}), std::max({range.to, low, high})};
    };
    const Range all = {places_.front().index * width_, places_.back().index * width_};
    const Range most = Most();  // all but a few far away
    const std::int64_t narrowest = std::max(width_, step);
    const auto barsOf = [](const Range& range, std::int64_t width) {
        return FloorOf(range.to, width) - FloorOf(range.from, width) + 1;
    };
    const std::int64_t wanted = std::min(kFewestBars, barsOf(most, narrowest));
    Range range = all;
    std::int64_t width = narrowest;
    for (const Range& candidate : {withLimits(all), withLimits(most), all, most}) {
        range = candidate;
        width = narrowest;
        while (barsOf(range, width) > kMostBars) {
            width = WiderThan(width);
        }
        if (barsOf(most, width) >= wanted) {
            break;
        }
    }

    Bars bars;
    const std::int64_t first = FloorOf(range.from, width);
    const std::int64_t count = barsOf(range, width);
    const auto unscaled = [](std::int64_t number) { return static_cast<double>(number) / kOne; };
    bars.from = unscaled(first * width);
    bars.width = unscaled(width);
    bars.counts.resize(static_cast<std::size_t>(count));
    for (const Place& place : places_) {
        const std::int64_t bar = FloorOf(place.index * width_, width) - first;
        if (bar < 0) {
            bars.below += place.count;
        } else if (bar >= count) {
            bars.above += place.count;
        } else {
            bars.counts[static_cast<std::size_t>(bar)] += place.count;
        }
    }
    const auto within = [&](const std::optional<std::int64_t>& number) {
        return number && *number >= first * width && *number <= (first + count) * width
                   ? std::optional<double>(unscaled(*number))
                   : std::nullopt;
    };
    bars.allowedFrom = within(allowedFrom);
    bars.allowedBelow = within(allowedBelow);
    return bars;
}

}  // namespace fa
