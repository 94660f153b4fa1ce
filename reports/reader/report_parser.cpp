#include "reader/report_parser.h"

#include <glib.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "PelkoAppClientLogger/report_words.h"

namespace fa
{

namespace
{

constexpr char kNoReport[] = "no report begins here: [summary] expected";
constexpr char kCutLine[] = "the report is cut off within this line";
constexpr std::string_view kIndent = "    ";

// The keys of the information section in their order. Others may stand between them.
constexpr std::string_view kInformationKeys[] = {"s/n", "model", "option", "mm",  "sm",  "ss",
                                                 "mt",  "bt",    "ld1",    "ld2", "dnso"};
constexpr std::size_t kOption = 2;
constexpr std::size_t kBt = 7;
constexpr std::size_t kLd1 = 8;
constexpr std::size_t kLd2 = 9;
constexpr std::size_t kDnso = 10;
constexpr std::size_t kComplete = 11;

constexpr struct {
    std::string_view word;
    RunResult result;
} kRunResults[] = {
    {"", RunResult::kNone},        {kPassWord, RunResult::kPass},
    {kFailWord, RunResult::kFail}, {kTimeoutWord, RunResult::kTimeout},
    {kStopWord, RunResult::kStop},
};

bool IsDigit(char character)
{
    return character >= '0' && character <= '9';
}

int HexDigit(char digit)
{
    return IsDigit(digit) ? digit - '0' : digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

bool IsHex(std::string_view digits)
{
    return std::all_of(digits.begin(), digits.end(), [](char c) { return HexDigit(c) >= 0; });
}

unsigned char HexByte(const char* digits)
{
    return static_cast<unsigned char>(HexDigit(digits[0]) * 16 + HexDigit(digits[1]));
}

// The date and time as one number, or 0.
std::uint64_t ReadStart(std::string_view text)
{
    std::uint64_t start = 0;
    if (text.size() != 14 || !std::all_of(text.begin(), text.end(), IsDigit)) {
        return 0;
    }
    std::from_chars(text.data(), text.data() + text.size(), start);
    const auto second = start % 100;
    const auto minute = start / 100 % 100;
    const auto hour = start / 10'000 % 100;
    const auto day = start / 1'000'000 % 100;
    const auto month = start / 100'000'000 % 100;
    const auto year = start / 10'000'000'000;
    const bool valid = second <= 60 && minute < 60 && hour < 24 &&
                       g_date_valid_dmy(static_cast<GDateDay>(day), static_cast<GDateMonth>(month),
                                        static_cast<GDateYear>(year)) != FALSE;
    return valid ? start : 0;
}

}  // namespace

bool ReportParser::Read(Run& run)
{
    while (!AtEnd() && *next_ == '\n') {
        ++next_;
    }
    if (AtEnd()) {
        return false;
    }
    ReadSummary(run);
    ReadInformation(run);
    const auto count = static_cast<std::size_t>(itemCount_);
    std::size_t read = 0;
    // The vector keeps the memory of earlier reports; it grows by what is there, not by what a
    // report claims.
    for (; read < count; ++read) {
        if (read == run.items.size()) {
            run.items.emplace_back();
        }
        Item& item = run.items[read];
        item = Item();
        item.position = static_cast<int>(read) + 1;
        ReadItem(item, run.mode);
    }
    run.items.resize(read);
    if (!AtEnd() && *next_ != '\n' && !Sees("[summary]\n")) {
        Refuse(next_, "testnum counts " + std::to_string(count) +
                          " items, and no more may follow them here");
    }
    return true;
}

void ReportParser::ReadSummary(Run& run)
{
    Expect("[summary]\n", kNoReport);
    const char* const startTime = next_;
    run.startTime = Text("starttime=");
    if (!std::all_of(run.startTime.begin(), run.startTime.end(),
                     [](char c) { return IsDigit(c) || c == '-'; })) {
        Refuse(startTime, "starttime is no date and time");
    }
    run.start = ReadStart(run.startTime);
    run.duration = ReadInteger<std::uint32_t>("duration=");
    const char* const resultLine = next_;
    const std::string_view word = Text("result=");
    const auto* const found = std::find_if(std::begin(kRunResults), std::end(kRunResults),
                                           [&](const auto& row) { return row.word == word; });
    if (found == std::end(kRunResults)) {
        Refuse(resultLine, "unknown result");
    }
    run.result = found->result;
    run.link = Text("pelko=");
    itemCount_ = std::max(0LL, ReadInteger<long long>("testnum=") - 3);
    run.retries = ReadInteger<int>("retrycount=");
    Expect("\n", "an empty line ends the summary");
}

void ReportParser::ReadInformation(Run& run)
{
    Expect("[information]\n", "[information] expected");
    run.information.clear();
    std::size_t nextKey = 0;
    bool detailed = false;
    bool afterMask = false;  // an empty line follows it
    int emptyLines = 0;
    const char* continued = nullptr;
    while (!AtEnd() && *next_ != '[') {
        if (*next_ == '\n') {
            ++emptyLines;
            ++next_;
            continue;
        }
        if (emptyLines != (afterMask ? 1 : 0)) {
            Refuse(next_, emptyLines > 0 ? "a line after the end of the information section"
                                         : "an empty line is missing in front of it");
        }
        emptyLines = 0;
        afterMask = false;
        const char* const line = next_;
        const std::string_view text = RestOfLine();
        const std::size_t equals = text.find('=');
        if (equals == 0 || equals == std::string_view::npos ||
            text.substr(0, equals).find_first_of(" \t") != std::string_view::npos) {
            Refuse(line, "no key=value line of the information section");
        }
        Information entry{text.substr(0, equals), text.substr(equals + 1)};
        const auto key = static_cast<std::size_t>(
            std::find(std::begin(kInformationKeys), std::end(kInformationKeys), entry.key) -
            std::begin(kInformationKeys));
        if (key != std::size(kInformationKeys)) {
            if (key != nextKey && !(key == kDnso && nextKey == kLd1)) {
                Refuse(line, std::string(entry.key) + "= has no place here");
            }
            nextKey = key == kLd2 ? kComplete : key + 1;
            detailed = detailed || key == kLd2;
            afterMask = key == kBt && (entry.value == kUnknown || entry.value == kNotSupported);
            if (key == kOption && Sees(kIndent)) {
                continued = next_;
                const std::string_view second = RestOfLine();
                const char* const value = entry.value.data();
                entry.value = {value,
                               static_cast<std::size_t>(second.data() + second.size() - value)};
            }
        }
        run.information.push_back(entry);
    }
    if (nextKey != kLd1 && nextKey != kComplete) {
        Refuse(next_, std::string(kInformationKeys[nextKey]) + "= expected");
    }
    if (detailed && continued != nullptr) {
        Refuse(continued, "only a simple report's option has a second line");
    }
    const int wanted = detailed ? 3 : afterMask ? 3 : 2;
    if (emptyLines < wanted || (itemCount_ > 0 && emptyLines > wanted)) {
        Refuse(next_, std::to_string(wanted) + " empty lines end the information section");
    }
    run.mode = ReportMode::kSimple;
    if (detailed) {
        run.mode = ReportMode::kDetail;
        const char* const item = next_;
        if (itemCount_ > 0 && Sees("[001]\nname=")) {
            RestOfLine();
            RestOfLine();
            run.mode = Sees("imqs=") ? ReportMode::kRaw : ReportMode::kDetail;
        }
        next_ = item;
    }
}

void ReportParser::ReadItem(Item& item, ReportMode mode)
{
    char heading[16];
    const int length = std::snprintf(heading, sizeof(heading), "[%03d]\n", item.position);
    const std::string_view line(heading, static_cast<std::size_t>(length));
    if (!Skip(line)) {
        Refuse(next_, std::string(line.substr(0, line.size() - 1)) + " expected");
    }
    item.name = item.nameLine = Text("name=");
    if (mode == ReportMode::kRaw) {
        ReadCodes(item);
        item.imqs = Text("imqs=");
    }
    if (Skip("\n")) {
        return;
    }
    if (Sees("data=")) {
        item.data = Text("data=");
    }
    const char* const resultLine = next_;
    const std::string_view word = Text("result=");
    if (word != kPassWord && word != kFailWord) {
        Refuse(resultLine, "unknown result");
    }
    item.result = word == kPassWord ? ItemResult::kPass : ItemResult::kFail;
    if (!item.data && item.result == ItemResult::kFail && BeginsErrorForm(mode)) {
        ReadErrorForm(item);
    } else {
        ReadMeasured(item, mode);
    }
    Expect("\n", "an empty line ends the item");
}

void ReportParser::ReadCodes(Item& item)
{
    constexpr std::string_view kForm = ", 0x.. ..";
    const std::string_view line = item.nameLine;
    const std::size_t length = line.size() - std::min(line.size(), kForm.size());
    const std::string_view codes = line.substr(length);
    if (codes.size() != kForm.size() || codes.substr(0, 4) != kForm.substr(0, 4) ||
        codes[6] != ' ' || !IsHex(codes.substr(4, 2)) || !IsHex(codes.substr(7))) {
        Refuse(line.data(), "the item's codes are missing after its name");
    }
    item.name = line.substr(0, length);
    item.codes = CodePair{HexByte(&codes[4]), HexByte(&codes[7])};
}

// After "result=fail": what an item shows whose record is wrong. In a simple report a failed item
// may look the same; "spec=error" is such an item's where a list goes on or values follow, which an
// error has none of.
bool ReportParser::BeginsErrorForm(ReportMode mode)
{
    if (mode != ReportMode::kSimple) {
        return !Sees("duration=");
    }
    constexpr std::string_view kSpecLine = "spec=error\n";
    const char* const after = next_ + kSpecLine.size();
    return Sees("data=error\n") || Sees("list=error\n") ||
           (Sees(kSpecLine) && (*after == '\n' || *after == 'l'));
}

void ReportParser::ReadErrorForm(Item& item)
{
    item.hasErrorForm = true;
    item.dataError = Skip("data=error\n");
    item.specError = Skip("spec=error\n");
    item.listError = Skip("list=error\n");
}

void ReportParser::ReadMeasured(Item& item, ReportMode mode)
{
    const bool raw = mode == ReportMode::kRaw;
    if (mode != ReportMode::kSimple) {
        item.timed = true;
        item.duration = ReadInteger<std::uint32_t>("duration=");
        item.retries = ReadInteger<int>("retrycount=");
    }
    if (Skip("spec=")) {
        item.spec = Lines(mode);
    }
    if (Skip("measure=")) {
        item.measure = Lines(mode);
    }
    if (Sees("skip=")) {
        item.skip = Text("skip=");
    }
    if (Sees("error=")) {
        item.error = Text("error=");
    }
    if (raw && Sees("list=")) {
        const char* const line = next_;
        item.list = Text("list=");
        if (item.list.size() % 2 != 0 || !IsHex(item.list)) {
            Refuse(line, "list= holds no codes of two hexadecimal digits");
        }
    }
    if (mode != ReportMode::kSimple) {
        const char* const line = next_;
        const std::string_view type = Text("insptype=");
        item.automatic = type == kAuto;
        if (!item.automatic && type != kNormal) {
            Refuse(line, "unknown insptype");
        }
        item.tid = ReadInteger<int>("tid=");
        item.startTime = ReadInteger<std::uint32_t>("starttime=");
    }
    if (raw && !Skip("failed=^^\n")) {
        ReadFailure(item);
    }
}

void ReportParser::ReadFailure(Item& item)
{
    const char* const line = next_;
    const std::string_view text = Text("failed=");
    const std::size_t first = text.find('^');
    if (first == std::string_view::npos || text.back() != '^' || first + 1 == text.size()) {
        Refuse(line, "failed= holds no note and detail text between ^");
    }
    item.failureNote = text.substr(0, first);
    item.detail = text.substr(first + 1, text.size() - first - 2);
}

bool ReportParser::AtEnd()
{
    if (next_ == end_ && !complete_) {
        throw NeedsMoreText();
    }
    return next_ == end_;
}

// No literal holds a zero, so none matches what stands after the text.
inline bool ReportParser::Sees(std::string_view literal) const
{
    return std::memcmp(next_, literal.data(), literal.size()) == 0;
}

inline bool ReportParser::Skip(std::string_view literal)
{
    if (!Sees(literal)) {
        return false;
    }
    next_ += literal.size();
    return true;
}

void ReportParser::Expect(std::string_view line, const char* what)
{
    if (!Skip(line)) {
        Refuse(next_, what);
    }
}

inline std::string_view ReportParser::RestOfLine()
{
    const auto* lineEnd =
        static_cast<const char*>(std::memchr(next_, '\n', static_cast<std::size_t>(end_ - next_)));
    if (lineEnd == nullptr) {
        if (!complete_) {
            throw NeedsMoreText();
        }
        throw Unreadable{next_, kCutLine};
    }
    const std::string_view text(next_, static_cast<std::size_t>(lineEnd - next_));
    next_ = lineEnd + 1;
    return text;
}

inline std::string_view ReportParser::Text(std::string_view key)
{
    if (!Skip(key)) {
        Refuse(next_, std::string(key) + " expected");
    }
    return RestOfLine();
}

// The rest of this line, with the indented lines after it in a simple report.
inline std::string_view ReportParser::Lines(ReportMode mode)
{
    std::string_view text = RestOfLine();
    while (mode == ReportMode::kSimple && Skip(kIndent)) {
        RestOfLine();
        text = {text.data(), static_cast<std::size_t>(next_ - 1 - text.data())};
    }
    return text;
}

template <typename Number>
inline Number ReportParser::ReadInteger(std::string_view key)
{
    const char* const line = next_;
    if (!Skip(key)) {
        Refuse(line, std::string(key) + " expected");
    }
    Number number = 0;
    const std::from_chars_result result = std::from_chars(next_, end_, number);
    if (result.ptr == end_ && !complete_) {
        throw NeedsMoreText();
    }
    if (result.ec != std::errc() || *result.ptr != '\n') {
        Refuse(line, std::string(key) + " is not followed by a number that a report can hold");
    }
    next_ = result.ptr + 1;
    return number;
}

void ReportParser::Refuse(const char* at, std::string reason)
{
    const auto rest = static_cast<std::size_t>(end_ - at);
    // What is compared is shorter than the padding, so a longer rest has been seen whole.
    if (rest < kTextPadding && std::memchr(at, '\n', rest) == nullptr) {
        if (!complete_) {
            throw NeedsMoreText();
        }
        reason = rest > 0 ? kCutLine : "the report is cut off: " + reason;
    }
    throw Unreadable{at, std::move(reason)};
}

}  // namespace fa
