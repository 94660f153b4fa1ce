// Sums that neither overflow nor round, so that the order of the numbers makes no difference.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace fa
{

// A 128-bit number in two's complement.
class WideNumber
{
public:
    WideNumber() = default;
    explicit WideNumber(std::int64_t number)
        : high_(number < 0 ? ~std::uint64_t{0} : 0), low_(static_cast<std::uint64_t>(number))
    {
    }

    WideNumber& operator+=(WideNumber other)
    {
        low_ += other.low_;
        high_ += other.high_ + (low_ < other.low_ ? 1 : 0);
        return *this;
    }

    friend WideNumber operator-(WideNumber a, WideNumber b)
    {
        WideNumber difference;
        difference.low_ = a.low_ - b.low_;
        difference.high_ = a.high_ - b.high_ - (a.low_ < b.low_ ? 1 : 0);
        return difference;
    }

    // The product, as far as it fits.
    WideNumber Times(std::int64_t factor) const
    {
        const std::uint64_t magnitude = factor < 0 ? 0 - static_cast<std::uint64_t>(factor)
                                                   : static_cast<std::uint64_t>(factor);
        WideNumber product = Multiply(low_, magnitude);
        product.high_ += high_ * magnitude;
        return factor < 0 ? WideNumber() - product : product;
    }

    double ToDouble() const
    {
        const WideNumber magnitude = IsNegative() ? WideNumber() - *this : *this;
        const double number = std::ldexp(static_cast<double>(magnitude.high_), 64) +
                              static_cast<double>(magnitude.low_);
        return IsNegative() ? -number : number;
    }

private:
    bool IsNegative() const { return high_ >> 63 != 0; }

    static WideNumber Multiply(std::uint64_t a, std::uint64_t b)
    {
        constexpr std::uint64_t kLowHalf = 0xFFFFFFFF;
        const std::uint64_t low = (a & kLowHalf) * (b & kLowHalf);
        const std::uint64_t middle1 = (a >> 32) * (b & kLowHalf) + (low >> 32);
        const std::uint64_t middle2 = (a & kLowHalf) * (b >> 32) + (middle1 & kLowHalf);
        WideNumber product;
        product.high_ = (a >> 32) * (b >> 32) + (middle1 >> 32) + (middle2 >> 32);
        product.low_ = middle2 << 32 | (low & kLowHalf);
        return product;
    }

    std::uint64_t high_ = 0;
    std::uint64_t low_ = 0;
};

// Mean and deviation of numbers of up to 10^15.
class ExactSums
{
public:
    void Add(std::int64_t number)
    {
        ++count_;
        sum_ += WideNumber(number);
        squares_ += WideNumber(number).Times(number);
        min_ = std::min(min_, number);
        max_ = std::max(max_, number);
    }

    void Merge(const ExactSums& other)
    {
        count_ += other.count_;
        sum_ += other.sum_;
        squares_ += other.squares_;
        min_ = std::min(min_, other.min_);
        max_ = std::max(max_, other.max_);
    }

    std::int64_t Count() const { return count_; }

    std::int64_t Min() const { return min_; }

    std::int64_t Max() const { return max_; }

    double Mean() const
    {
        const std::int64_t near = NearMean();
        return static_cast<double>(near) + Remainder(near) / static_cast<double>(count_);
    }

    // Of a sample: divided by the count less one. 0 of fewer than two numbers.
    double Deviation() const
    {
        if (count_ < 2 || min_ == max_) {
            return 0;
        }
        // The squares about a whole number near the mean are small and still exact.
        const std::int64_t near = NearMean();
        const double remainder = Remainder(near);
        WideNumber about = squares_ - sum_.Times(2 * near);
        about += WideNumber(near).Times(near).Times(count_);
        const auto count = static_cast<double>(count_);
        return std::sqrt((about.ToDouble() - remainder * remainder / count) / (count - 1));
    }

private:
    std::int64_t NearMean() const
    {
        return std::llround(sum_.ToDouble() / static_cast<double>(count_));
    }

    // The sum less the count times `near`.
    double Remainder(std::int64_t near) const
    {
        return (sum_ - WideNumber(near).Times(count_)).ToDouble();
    }

    std::int64_t count_ = 0;
    WideNumber sum_;
    WideNumber squares_;
    std::int64_t min_ = std::numeric_limits<std::int64_t>::max();
    std::int64_t max_ = std::numeric_limits<std::int64_t>::min();
};

}  // namespace fa
