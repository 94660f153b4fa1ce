// Durations counted, in memory that stays small however many there are.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace fa
{

// Durations below 1024 are counted each on its own; above, together with those that share their
// highest ten bits, so a quantile is exact to 0.1 %.
class DurationCounts
{
public:
    void Add(std::uint32_t duration)
    {
        const Place place = PlaceOf(duration);
        std::vector<std::uint32_t>& page = pages_[place.page];
        if (page.empty()) {
            page.resize(kPageSize);
        }
        ++page[place.index];
        ++count_;
    }

    void Merge(const DurationCounts& other)
    {
        for (std::size_t p = 0; p < pages_.size(); ++p) {
            if (pages_[p].empty()) {
                pages_[p] = other.pages_[p];
                continue;
            }
            for (std::size_t i = 0; i < other.pages_[p].size(); ++i) {
                pages_[p][i] += other.pages_[p][i];
            }
        }
        count_ += other.count_;
    }

    std::uint64_t Count() const { return count_; }

    // The smallest duration that at least this share of all do not exceed. 0 without durations.
    double Quantile(double share) const
    {
        const auto rank = static_cast<std::uint64_t>(
            std::ceil(share * static_cast<double>(count_) * (1 - 1e-12)));
        std::uint64_t before = 0;
        for (std::size_t p = 0; p < pages_.size(); ++p) {
            for (std::size_t i = 0; i < pages_[p].size(); ++i) {
                before += pages_[p][i];
                if (before >= rank && before > 0) {
                    return Middle(p, i);
                }
            }
        }
        return 0;
    }

private:
    static constexpr std::size_t kPageBits = 9;
    static constexpr std::size_t kPageSize = 1 << kPageBits;

    struct Place {
        std::size_t page;
        std::size_t index;
    };

    // Page 0 and 1 count single durations; on each further page a count stands for twice as many.
    static Place PlaceOf(std::uint32_t duration)
    {
        std::size_t page = 0;
        while (duration >= 2 * kPageSize) {
            duration >>= 1;
            ++page;
        }
        return {page + (duration >> kPageBits), duration & (kPageSize - 1)};
    }

    static double Middle(std::size_t page, std::size_t index)
    {
        if (page == 0) {
            return static_cast<double>(index);
        }
        const double width = std::ldexp(1, static_cast<int>(page) - 1);
        return static_cast<double>(kPageSize + index) * width + (width - 1) / 2;
    }

    std::array<std::vector<std::uint32_t>, 24> pages_;
    std::uint64_t count_ = 0;
};

}  // namespace fa
