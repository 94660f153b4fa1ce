#include "reader/report_files.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "reader/text.h"

namespace fa
{

namespace
{

namespace fs = std::filesystem;

constexpr std::size_t kMostThreads = 4;

// How far long work has come, on a terminal.
class Progress
{
public:
    Progress(std::size_t count, bool wanted)
        : count_(count), shown_(wanted && isatty(STDERR_FILENO) == 1)
    {
    }

    ~Progress()
    {
        if (printed_) {
            std::fprintf(stderr, "\r\033[K");
        }
    }

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Of one thread only.
    void Tell(std::size_t done)
    {
        const auto now = Clock::now();
        if (shown_ && now >= next_) {
            next_ = now + std::chrono::milliseconds(200);
            std::fprintf(stderr, "\r%zu of %zu files", done, count_);
            printed_ = true;
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    std::size_t count_;
    bool shown_;
    bool printed_ = false;
    Clock::time_point next_ = Clock::now() + std::chrono::seconds(1);
};

}  // namespace

ReportFiles::ReportFiles(const std::vector<std::string>& names, std::string output)
    : output_(std::move(output))
{
    for (const std::string& name : names) {
        std::error_code error;
        if (name != "-" && fs::is_directory(name, error)) {
            const std::size_t before = Count() + problems_.size();
            AddFolder(name);
            if (Count() + problems_.size() == before) {
                problems_.push_back(ValidText(name) + ": no file in this folder");
            }
        } else {
            AddFile(name);
        }
    }
}

void ReportFiles::AddFile(const std::string& path)
{
    offsets_.push_back(paths_.size());
    paths_.append(path).push_back('\0');
}

void ReportFiles::AddFolder(const std::string& path)
{
    std::vector<std::pair<std::string, bool>> entries;  // and whether they are folders
    std::error_code error;
    fs::directory_iterator entry(path, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        std::error_code ignored;
        const bool folder = entry->is_directory(ignored) && !entry->is_symlink(ignored);
        // A link that leads nowhere is refused when it is read.
        const bool file = entry->is_regular_file(ignored) ||
                          (entry->is_symlink(ignored) && !entry->exists(ignored));
        if (name[0] != '.' && (folder || file)) {
            entries.emplace_back(name, folder);
        }
    }
    if (error) {
        problems_.push_back(ValidText(path) + ": " + error.message());
    }
    std::sort(entries.begin(), entries.end());
    for (const auto& [name, folder] : entries) {
        const std::string full = (fs::path(path) / name).string();
        if (!output_.empty() && fs::equivalent(full, output_, error)) {
            continue;
        }
        if (folder) {
            AddFolder(full);
        } else {
            AddFile(full);
        }
    }
}

std::size_t ReadingThreads()
{
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, kMostThreads);
}

std::vector<std::string> ReadAll(const ReportFiles& files,
                                 const std::function<void(std::size_t, RunOrder, const Run&)>& take)
{
    std::atomic<std::size_t> next = 0;
    std::mutex mutex;  // of both that follow
    std::map<std::size_t, std::string> refused;
    std::exception_ptr failure;
    Progress progress(files.Count(), true);
    const auto work = [&](std::size_t thread) {
        try {
            ReportReader reader;
            for (std::size_t file = next++; file < files.Count(); file = next++) {
                RunOrder order = static_cast<RunOrder>(file) << 32;
                try {
                    reader.Read(files.At(file),
                                [&](const Run& run) { take(thread, order++, run); });
                } catch (const RefusedFile& refusal) {
                    const std::lock_guard<std::mutex> lock(mutex);
                    refused.emplace(file, refusal.what());
                }
                if (thread == 0) {
                    progress.Tell(file);
                }
            }
        } catch (...) {
            next = files.Count();
            const std::lock_guard<std::mutex> lock(mutex);
            failure = std::current_exception();
        }
    };
    std::vector<std::thread> others;
    for (std::size_t thread = 1; thread < std::min(ReadingThreads(), files.Count()); ++thread) {
        others.emplace_back(work, thread);
    }
    work(0);
    for (std::thread& other : others) {
        other.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    std::vector<std::string> lines = files.Problems();
    for (auto& [file, line] : refused) {
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<std::string> ReadInOrder(
    const ReportFiles& files, bool showsProgress,
    const std::function<void(const std::string&, const Run&)>& take)
{
    std::vector<std::string> lines = files.Problems();
    ReportReader reader;
    Progress progress(files.Count(), showsProgress);
    for (std::size_t file = 0; file < files.Count(); ++file) {
        const std::string path = files.At(file);
        try {
            reader.Read(path, [&](const Run& run) { take(path, run); });
        } catch (const RefusedFile& refusal) {
            lines.emplace_back(refusal.what());
        }
        progress.Tell(file);
    }
    return lines;
}

}  // namespace fa
