// The files that a command line names, and their reports read by several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "reader/report_reader.h"

namespace fa
{

// Files in the order in which they were named, those of a folder by name, its folders too, with
// all that is in them. Names that begin with a dot, what is neither file nor folder, and the output
// are left out. Links to files are followed, links to folders are not. "-" is standard input.
class ReportFiles
{
public:
    // A name that does not lead to a file is a problem, one line each.
    // `output`: a file or folder that may be in one of the folders, and holds none of the reports.
    explicit ReportFiles(const std::vector<std::string>& names, std::string output = "");

    std::size_t Count() const { return offsets_.size(); }

    std::string At(std::size_t index) const { return &paths_[offsets_[index]]; }

    const std::vector<std::string>& Problems() const { return problems_; }

    // Implementation details.
private:
    void AddFile(const std::string& path);
    void AddFolder(const std::string& path);

    std::string output_;
    std::string paths_;  // each with its NUL: a hundred thousand strings would take far more memory
    std::vector<std::size_t> offsets_;
    std::vector<std::string> problems_;
};

// Orders all runs of one call: files first, then the place within a file.
using RunOrder = std::uint64_t;

// The index of the file that the run is of.
inline std::size_t FileOf(RunOrder order)
{
    return static_cast<std::size_t>(order >> 32);
}

// How many threads read at a time.
std::size_t ReadingThreads();

// Gives every run to `take`, which is called by ReadingThreads() threads at the same time, each
// with its number from 0. Returns what was refused, a line each, in the order of the files. What
// `take` throws is thrown on, once all threads have ended.
std::vector<std::string> ReadAll(
    const ReportFiles& files,
    const std::function<void(std::size_t thread, RunOrder order, const Run& run)>& take);

// The same by the calling thread alone, in the order of the files. `showsProgress`: on a
// terminal.
std::vector<std::string> ReadInOrder(
    const ReportFiles& files, bool showsProgress,
    const std::function<void(const std::string& file, const Run& run)>& take);

}  // namespace fa
