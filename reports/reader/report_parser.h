// The grammar of a report: the one place that knows its lines and their order.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "reader/report_reader.h"

namespace fa
{

// The text does not go on far enough to tell.
struct NeedsMoreText {
};

// `at` is the line that has no place.
struct Unreadable {
    const char* at;
    std::string reason;
};

// So many bytes after the text are readable and zero, so that a line is compared without counting.
constexpr std::size_t kTextPadding = 32;

class ReportParser
{
public:
    // `complete`: nothing follows the text. kTextPadding zero bytes follow it.
    ReportParser(const char* begin, const char* end, bool complete)
        : next_(begin), end_(end), complete_(complete)
    {
    }

    // Reads the next report. False where only empty lines are left. Throws NeedsMoreText, not of a
    // complete text, and Unreadable.
    bool Read(Run& run);

    // Where the next report begins.
    const char* Position() const { return next_; }

    // Implementation details.
private:
    void ReadSummary(Run& run);
    void ReadInformation(Run& run);
    void ReadItem(Item& item, ReportMode mode);
    void ReadErrorForm(Item& item);
    void ReadCodes(Item& item);
    bool BeginsErrorForm(ReportMode mode);
    void ReadMeasured(Item& item, ReportMode mode);
    void ReadFailure(Item& item);

    bool AtEnd();
    bool Skip(std::string_view literal);
    bool Sees(std::string_view literal) const;
    void Expect(std::string_view line, const char* what);
    std::string_view RestOfLine();
    std::string_view Text(std::string_view key);
    std::string_view Lines(ReportMode mode);
    template <typename Number>
    Number ReadInteger(std::string_view key);
    [[noreturn]] void Refuse(const char* at, std::string reason);

    const char* next_;
    const char* end_;
    bool complete_;
    long long itemCount_ = 0;
};

}  // namespace fa
