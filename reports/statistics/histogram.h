// How measured values are spread, counted in memory that stays small however many there are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "reader/report_reader.h"

namespace fa
{

// Bars of equal width, side by side. A value belongs to the bar that begins at or below it.
struct Bars {
    double from = 0;  // where the first bar begins
    double width = 0;
    std::vector<std::uint64_t> counts;
    std::uint64_t below = 0;  // values on the left of the first bar
    std::uint64_t above = 0;  // values on the right of the last bar
    // The smallest value that the limits allow, and the smallest above those. Nothing where there
    // is no such limit, or it is farther away than the bars reach.
    std::optional<double> allowedFrom;
    std::optional<double> allowedBelow;
};

// Numbers are hundredths, as ReadNumber gives them. They are counted by place on a grid that is as
// fine as leaves at most kMostPlaces places with a count, so neither the order of the numbers nor
// how they are spread over collectors makes a difference.
class Histogram
{
public:
    static constexpr std::size_t kMostPlaces = 128;

    void Add(std::int64_t number);

    void Merge(const Histogram& other);

    // At most kMostBars bars of the numbers, of which there is at least one, and of the limits of
    // the kind. What is so far away that the other numbers would be left with a few bars only is
    // not within them.
    Bars ToBars(SpecKind kind, std::int64_t lowLimit, std::int64_t highLimit) const;

    static constexpr std::int64_t kMostBars = 60;

    // Implementation details.
private:
    struct Place {
        std::int64_t index;
        std::uint64_t count;
    };

    struct Range {
        std::int64_t from;
        std::int64_t to;
    };

    void Count(std::int64_t index, std::uint64_t count);
    void Widen();
    Range Most() const;

    std::vector<Place> places_;  // by index
    std::int64_t width_ = 1;     // of a place: 1, 5, 10, 50, 100, ...
    bool whole_ = true;          // no number has decimals
};

// Whether values of such a specification have limits to be within.
bool HasLimits(SpecKind kind);

}  // namespace fa
