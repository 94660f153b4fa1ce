// Inspection reports read back: what a file holds, run by run, or the line at which it is none.
//
//     fa::ReportReader reader;
//     reader.Read("run.txt", [](const fa::Run& run) { ... });
//
// All texts are views of the reader's memory, and hold whatever bytes the file holds: ValidText
// (reader/text.h) makes text of them. A reader is used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fa
{

// What the writer of a report was asked for. A detailed and a raw report without items are the
// same, and read as detailed.
enum class ReportMode { kSimple, kDetail, kRaw };

enum class RunResult { kNone, kPass, kFail, kTimeout, kStop };

enum class ItemResult { kNone, kPass, kFail };

// A line of the information section.
struct Information {
    std::string_view key;
    std::string_view value;  // of a simple report's option, with the second line: see JoinedLines
};

struct CodePair {
    unsigned char code1 = 0;
    unsigned char code2 = 0;
};

// An inspected item. An optional text is there where its line is.
struct Item {
    int position = 0;               // from 1
    std::string_view name;          // without the codes
    std::string_view nameLine;      // with them, as the report has it
    std::optional<CodePair> codes;  // raw
    std::string_view imqs;          // raw
    ItemResult result = ItemResult::kNone;

    // What is wrong with the item's record, which then shows nothing else.
    bool hasErrorForm = false;
    bool dataError = false;
    bool specError = false;
    bool listError = false;

    std::optional<std::string_view> data;
    std::optional<std::string_view> spec;     // ReadSpec takes it apart
    std::optional<std::string_view> measure;  // SplitValues takes it apart
    std::string_view skip;                    // SplitNames
    std::string_view error;                   // SplitNames
    std::string_view list;                    // raw: two hexadecimal digits for each code

    // Detailed and raw, of an item with a result and without an error form.
    bool timed = false;
    std::uint32_t duration = 0;  // in the application's unit, as all times but a run's start
    int retries = 0;
    bool automatic = false;
    int tid = 0;
    std::uint32_t startTime = 0;

    std::string_view failureNote;  // raw
    std::string_view detail;       // raw
};

struct Run {
    ReportMode mode = ReportMode::kSimple;
    std::string_view startTime;  // as written
    // The same as a number, such as 20261117001329; 0 where it is no date and time.
    std::uint64_t start = 0;
    std::uint32_t duration = 0;
    RunResult result = RunResult::kNone;
    std::string_view link;
    int retries = 0;
    std::vector<Information> information;  // unknown keys too, in the report's order
    std::vector<Item> items;

    // The value of an information key; empty where the run has none.
    std::string_view Value(std::string_view key) const;
    std::string_view SerialNumber() const { return Value("s/n"); }
};

// One measured value.
struct Value {
    int position = 0;                       // from 1
    int code = -1;                          // its sub-item's code in a raw report's list, or -1
    std::optional<std::string_view> label;  // its sub-item's name, where the report tells
    std::string_view text;
};

// The values of `item`, in place of what `values` held. In a list without labels, texts that hold
// commas cannot be told from more than one value: such a list counts as one value where a raw
// report's codes are not as many, and is split otherwise.
void SplitValues(const Item& item, ReportMode mode, std::vector<Value>& values);

std::vector<std::string_view> SplitNames(std::string_view names);

// Lines that belong together, such as a simple report's option, as other reports have them.
std::string JoinedLines(std::string_view lines);

// A number of a report, in hundredths, which hold all of them exactly. False where the text is none
// that the writer makes (digits, then nothing or two decimals) or lies outside +-10^13.
bool ReadNumber(std::string_view text, std::int64_t& hundredths);

enum class SpecKind {
    kValue,
    kNotEqual,
    kGreaterEqual,
    kLessEqual,
    kGreater,
    kLess,
    kRange,
    kList
};

// Of the limits of such a Spec, the first is the low one and the last the high one.
inline bool HasLowLimit(SpecKind kind)
{
    return kind == SpecKind::kRange || kind == SpecKind::kGreaterEqual ||
           kind == SpecKind::kGreater;
}

inline bool HasHighLimit(SpecKind kind)
{
    return kind == SpecKind::kRange || kind == SpecKind::kLessEqual || kind == SpecKind::kLess;
}

struct Spec {
    SpecKind kind = SpecKind::kValue;
    std::vector<std::string_view> limits;  // of kRange low and high, of kList all, else one
    bool truncated = false;                // a simple report's list that does not end
};

// The text of "spec=" taken apart. A text value that looks like an operator or a list is one.
Spec ReadSpec(std::string_view text, ReportMode mode);

// A file that is no report or not all of one.
class RefusedFile : public std::runtime_error
{
public:
    RefusedFile(const std::string& file, std::uint64_t line, const std::string& reason);
};

class ReportReader
{
public:
    // `windowSize`: how many bytes are read at once. Longer reports make it grow.
    explicit ReportReader(std::size_t windowSize = 1 << 20);
    ~ReportReader();
    ReportReader(const ReportReader&) = delete;
    ReportReader& operator=(const ReportReader&) = delete;

    using Take = std::function<void(const Run&)>;

    // Gives the runs of a file, or of standard input ("-"), to `take`, in their order, once the
    // whole file is known to hold reports and nothing else. Throws RefusedFile otherwise, whose
    // message names file, line and reason, and passes on what `take` throws.
    void Read(const std::string& file, const Take& take);

    // Implementation details.
private:
    class Window;
    std::unique_ptr<Window> window_;
    Run run_;
};

}  // namespace fa
