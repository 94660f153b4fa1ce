// One row for each measured value, as CSV or as lines of JSON.
#include <json-glib/json-glib.h>

#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <system_error>

#include "outputs/output_file.h"
#include "outputs/outputs.h"
#include "outputs/words.h"
#include "reader/report_files.h"
#include "reader/text.h"

namespace fa
{

namespace
{

// The columns in their order, and whether they hold numbers.
constexpr struct {
    const char* name;
    bool number;
} kColumns[] = {
    {"file", false},       {"run", true},         {"mode", false},    {"serial_number", false},
    {"start_time", false}, {"run_result", false}, {"model", false},   {"option", false},
    {"mm", false},         {"sm", false},         {"ss", false},      {"mt", false},
    {"bt", false},         {"position", true},    {"item", false},    {"code1", true},
    {"code2", true},       {"result", false},     {"duration", true}, {"retries", true},
    {"value_index", true}, {"sub_item", false},   {"sub_code", true}, {"value", false},
    {"number", true},      {"spec", false},       {"low", true},      {"high", true},
    {"expected", false},
};
constexpr std::size_t kColumnCount = std::size(kColumns);
// Runs, items and values have their columns side by side, in this order.
constexpr std::size_t kItemColumns = 13;
constexpr std::size_t kValueColumns = 20;

// The cells of a row; a number that is not there is empty.
class Row
{
public:
    void Begin(std::size_t column) { next_ = column; }

    void Add(std::string text) { cells_[next_++] = std::move(text); }

    const std::string& Cell(std::size_t column) const { return cells_[column]; }

private:
    std::string cells_[kColumnCount];
    std::size_t next_ = 0;
};

// Rows in one format.
class Format
{
public:
    virtual ~Format() = default;
    virtual std::string Head() const = 0;
    virtual std::string Line(const Row& row) = 0;
};

// RFC 4180: lines end in CR and LF.
class Csv : public Format
{
public:
    std::string Head() const override
    {
        std::string line;
        for (const auto& column : kColumns) {
            line.append(line.empty() ? "" : ",").append(column.name);
        }
        return line + "\r\n";
    }

    std::string Line(const Row& row) override
    {
        std::string line;
        for (std::size_t i = 0; i < kColumnCount; ++i) {
            line += i > 0 ? "," : "";
            AppendField(line, row.Cell(i));
        }
        return line + "\r\n";
    }

private:
    static void AppendField(std::string& line, const std::string& text)
    {
        if (text.find_first_of(",\"\r\n") == std::string::npos) {
            line += text;
            return;
        }
        line += '"';
        for (const char c : text) {
            line.append(c == '"' ? 2 : 1, c);
        }
        line += '"';
    }
};

class JsonLines : public Format
{
public:
    JsonLines() = default;

    ~JsonLines() override { g_object_unref(builder_); }

    JsonLines(const JsonLines&) = delete;
    JsonLines& operator=(const JsonLines&) = delete;

    std::string Head() const override { return ""; }

    std::string Line(const Row& row) override
    {
        json_builder_begin_object(builder_);
        for (std::size_t i = 0; i < kColumnCount; ++i) {
            json_builder_set_member_name(builder_, kColumns[i].name);
            AddValue(row.Cell(i), kColumns[i].number);
        }
        json_builder_end_object(builder_);
        g_autoptr(JsonNode) root = json_builder_get_root(builder_);
        json_builder_reset(builder_);
        g_autofree char* text = json_to_string(root, FALSE);
        return std::string(text) + "\n";
    }

private:
    void AddValue(const std::string& text, bool number)
    {
        if (!number) {
            json_builder_add_string_value(builder_, text.c_str());
        } else if (text.empty()) {
            json_builder_add_null_value(builder_);
        } else if (text.find('.') == std::string::npos) {
            json_builder_add_int_value(builder_, g_ascii_strtoll(text.c_str(), nullptr, 10));
        } else {
            json_builder_add_double_value(builder_, g_ascii_strtod(text.c_str(), nullptr));
        }
    }

    JsonBuilder* const builder_ = json_builder_new();
};

// The one file, or a file for each day below a folder.
class TableFiles
{
public:
    TableFiles(const Options& options, const std::string& head) : options_(options), head_(head)
    {
        if (!options.partitionByDay) {
            files_[""] = std::make_unique<OutputFile>(options.output);
            files_[""]->Write(head_);
        }
    }

    void Write(const Run& run, const std::string& line)
    {
        File(options_.partitionByDay ? Day(run) : "").Write(line);
    }

    void Close()
    {
        for (const auto& [day, file] : files_) {
            if (file) {
                file->Close();
            }
        }
    }

private:
    static constexpr std::size_t kMostOpen = 100;

    // The name by which engines read a column's missing value.
    static std::string Day(const Run& run)
    {
        return run.start == 0 ? "__HIVE_DEFAULT_PARTITION__" : StartText(run).substr(0, 10);
    }

    OutputFile& File(const std::string& day)
    {
        const auto [found, isNew] = files_.try_emplace(day);
        if (!found->second) {
            if (open_ == kMostOpen) {
                CloseAll();
            }
            const std::filesystem::path folder =
                std::filesystem::path(options_.output) / ("day=" + day);
            std::error_code error;
            std::filesystem::create_directories(folder, error);
            if (error) {
                throw Failure(folder.string() + ": " + error.message());
            }
            found->second = std::make_unique<OutputFile>(
                (folder / ("items." + options_.format)).string(), isNew ? "we" : "ae");
            ++open_;
            if (isNew) {
                found->second->Write(head_);
            }
        }
        return *found->second;
    }

    void CloseAll()
    {
        for (auto& [day, file] : files_) {
            if (file) {
                file->Close();
                file.reset();
            }
        }
        open_ = 0;
    }

    const Options& options_;
    std::string head_;
    std::map<std::string, std::unique_ptr<OutputFile>> files_;  // by day; null while closed
    std::size_t open_ = 0;
};

const char* ModeName(ReportMode mode)
{
    return mode == ReportMode::kSimple ? "simple" : mode == ReportMode::kDetail ? "detail" : "raw";
}

std::string NumberText(std::string_view text)
{
    std::int64_t number = 0;
    return ReadNumber(text, number) ? std::string(text) : "";
}

void AddRun(Row& row, const std::string& file, int place, const Run& run)
{
    row.Begin(0);
    row.Add(ValidText(file));
    row.Add(std::to_string(place));
    row.Add(ModeName(run.mode));
    row.Add(ValidText(run.SerialNumber()));
    row.Add(run.start != 0 ? StartText(run) : "");
    row.Add(ResultName(run.result));
    for (const char* key : {"model", "option", "mm", "sm", "ss", "mt", "bt"}) {
        row.Add(ValidText(JoinedLines(run.Value(key))));
    }
}

void AddItem(Row& row, const Item& item)
{
    row.Begin(kItemColumns);
    row.Add(std::to_string(item.position));
    row.Add(ValidText(item.name));
    row.Add(item.codes ? std::to_string(item.codes->code1) : "");
    row.Add(item.codes ? std::to_string(item.codes->code2) : "");
    row.Add(ResultName(item.result));
    row.Add(item.timed ? std::to_string(item.duration) : "");
    row.Add(item.timed ? std::to_string(item.retries) : "");
}

void AddValue(Row& row, const Value& value, const std::optional<Spec>& spec)
{
    row.Begin(kValueColumns);
    row.Add(std::to_string(value.position));
    row.Add(std::string(value.label.value_or("")));
    row.Add(value.code >= 0 ? std::to_string(value.code) : "");
    row.Add(ValidText(value.text));
    row.Add(NumberText(value.text));
    row.Add(spec ? KindName(spec->kind) : "");
    const LimitTexts limits = spec ? LimitsOf(*spec, value.position) : LimitTexts();
    row.Add(NumberText(limits.low));
    row.Add(NumberText(limits.high));
    row.Add(ValidText(limits.expected));
}

}  // namespace

ExitStatus Table(const Options& options)
{
    std::unique_ptr<Format> format;
    if (options.format == "csv") {
        format = std::make_unique<Csv>();
    } else {
        format = std::make_unique<JsonLines>();
    }
    const ReportFiles files(options.inputs, options.output);
    TableFiles tables(options, format->Head());
    Row row;
    std::vector<Value> values;
    std::string lastFile;
    int place = 0;
    const std::vector<std::string> refused =
        ReadInOrder(files, options.progress, [&](const std::string& file, const Run& run) {
            place = file == lastFile ? place + 1 : 1;
            lastFile = file;
            AddRun(row, file, place, run);
            for (const Item& item : run.items) {
                AddItem(row, item);
                std::optional<Spec> spec;
                if (item.spec && !item.spec->empty()) {
                    spec = ReadSpec(*item.spec, run.mode);
                }
                SplitValues(item, run.mode, values);
                for (const Value& value : values) {
                    AddValue(row, value, spec);
                    tables.Write(run, format->Line(row));
                }
            }
        });
    tables.Close();
    PrintRefused(refused);
    return refused.empty() ? kAllPassed : kNotAllRead;
}

}  // namespace fa
