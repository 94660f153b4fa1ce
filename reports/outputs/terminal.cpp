#include "outputs/terminal.h"

#include <glib.h>

#include <cmath>
#include <cstdio>

namespace fa
{

namespace
{

constexpr char kCut[] = "...";

std::size_t ColumnsOf(gunichar character)
{
    return g_unichar_iszerowidth(character) ? 0 : g_unichar_iswide(character) ? 2 : 1;
}

// As much of the text as fits into the columns; how many it takes.
std::string Fitting(std::string_view text, std::size_t columns, std::size_t& taken)
{
    std::string fitting;
    taken = 0;
    const char* const end = text.data() + text.size();
    for (const char* next = text.data(); next < end;) {
        const char* const after = g_utf8_next_char(next);
        const std::size_t wide = ColumnsOf(g_utf8_get_char(next));
        if (taken + wide > columns) {
            break;
        }
        taken += wide;
        fitting.append(next, after);
        next = after;
    }
    return fitting;
}

std::string Fit(std::string_view text, std::size_t columns, std::size_t& taken)
{
    std::string whole = Fitting(text, columns, taken);
    if (whole.size() == text.size()) {
        return whole;
    }
    constexpr std::size_t kCutColumns = sizeof(kCut) - 1;
    std::string cut = Fitting(text, columns - kCutColumns, taken) + kCut;
    taken += kCutColumns;
    return cut;
}

}  // namespace

std::string Left(std::string_view text, std::size_t columns)
{
    std::size_t taken = 0;
    std::string fitted = Fit(text, columns, taken);
    return fitted + std::string(columns - taken, ' ');
}

std::string Right(std::string_view text, std::size_t columns)
{
    std::size_t taken = 0;
    const std::string fitted = Fit(text, columns, taken);
    return std::string(columns - taken, ' ') + fitted;
}

std::string Digits(double number, int significant)
{
    char digits[40];
    std::snprintf(digits, sizeof(digits), "%.*g", significant, number);
    return digits;
}

std::string Percent(const std::optional<double>& share)
{
    if (!share) {
        return "-";
    }
    char digits[40];
    std::snprintf(digits, sizeof(digits), "%.2f %%", std::floor(*share * 10'000 + 1e-9) / 100);
    return digits;
}

std::string Counted(std::uint64_t count, const std::string& what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace fa
