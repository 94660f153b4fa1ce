#include "reader/report_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "reader/report_parser.h"
#include "reader/text.h"

namespace fa
{

namespace
{

// A report that is longer is none: a whole record gives less than 20 kB.
constexpr std::size_t kLargestWindow = 64 << 20;

struct SystemError {
    std::string reason;
};

std::string Describe(const std::string& file, std::uint64_t line, const std::string& reason)
{
    return ValidText(file) + ":" + (line > 0 ? std::to_string(line) + ":" : "") + " " +
           ValidText(reason);
}

std::size_t ReadSome(int fd, char* into, std::size_t size)
{
    ssize_t got = 0;
    do {
        got = read(fd, into, size);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        throw SystemError{std::strerror(errno)};
    }
    return static_cast<std::size_t>(got);
}

}  // namespace

RefusedFile::RefusedFile(const std::string& file, std::uint64_t line, const std::string& reason)
    : std::runtime_error(Describe(file, line, reason))
{
}

std::string_view Run::Value(std::string_view key) const
{
    const auto found = std::find_if(information.begin(), information.end(),
                                    [&](const Information& entry) { return entry.key == key; });
    return found != information.end() ? found->value : std::string_view();
}

// An open file and the piece of it that is in memory: whole reports, from where the next one
// begins.
class ReportReader::Window
{
public:
    explicit Window(std::size_t size) : memory_(size + kTextPadding) {}

    ~Window() { Close(); }

    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    void Open(const std::string& file)
    {
        Close();
        const bool standardInput = file == "-";
        fd_ = standardInput ? dup(STDIN_FILENO) : open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ < 0) {
            throw SystemError{std::strerror(errno)};
        }
        if (lseek(fd_, 0, SEEK_CUR) < 0 && errno == ESPIPE) {
            KeepCopy();
        }
        first_ = lseek(fd_, 0, SEEK_CUR);
        Rewind();
    }

    void Close()
    {
        if (fd_ >= 0) {
            close(fd_);
            fd_ = -1;
        }
    }

    void Rewind()
    {
        lseek(fd_, first_, SEEK_SET);
        begin_ = end_ = 0;
        lines_ = 0;
        Read();
    }

    // Reads the next report; false where there is none.
    bool Next(Run& run)
    {
        for (;;) {
            ReportParser parser(memory_.data() + begin_, memory_.data() + end_, complete_);
            try {
                const bool found = parser.Read(run);
                begin_ = static_cast<std::size_t>(parser.Position() - memory_.data());
                return found;
            } catch (const NeedsMoreText&) {
                ReadOn();
            }
        }
    }

    // Whether nothing follows but empty lines. False where that would take reading on.
    bool IsDone() const
    {
        return complete_ && std::all_of(memory_.data() + begin_, memory_.data() + end_,
                                        [](char c) { return c == '\n'; });
    }

    const char* Rest() const { return memory_.data() + begin_; }

    std::uint64_t LineOf(const char* at) const { return lines_ + Lines(memory_.data(), at) + 1; }

private:
    static std::uint64_t Lines(const char* begin, const char* end)
    {
        return static_cast<std::uint64_t>(std::count(begin, end, '\n'));
    }

    // What can be read only once is kept in a file without a name.
    void KeepCopy()
    {
        std::FILE* copy = std::tmpfile();
        if (copy == nullptr) {
            throw SystemError{std::strerror(errno)};
        }
        try {
            while (const std::size_t got = ReadSome(fd_, memory_.data(), memory_.size())) {
                if (std::fwrite(memory_.data(), 1, got, copy) != got) {
                    throw SystemError{std::strerror(errno)};
                }
            }
            if (std::fflush(copy) != 0 || dup2(fileno(copy), fd_) < 0) {
                throw SystemError{std::strerror(errno)};
            }
        } catch (...) {
            std::fclose(copy);
            throw;
        }
        std::fclose(copy);
        lseek(fd_, 0, SEEK_SET);
    }

    // Fills the window from its end.
    void Read()
    {
        complete_ = false;
        const std::size_t size = memory_.size() - kTextPadding;
        while (end_ < size && !complete_) {
            const std::size_t got = ReadSome(fd_, memory_.data() + end_, size - end_);
            end_ += got;
            complete_ = got == 0;
        }
        std::memset(memory_.data() + end_, 0, kTextPadding);
    }

    // Makes room after the report that has begun, and reads on.
    void ReadOn()
    {
        if (begin_ > 0) {
            lines_ += Lines(memory_.data(), memory_.data() + begin_);
            std::memmove(memory_.data(), memory_.data() + begin_, end_ - begin_);
            end_ -= begin_;
            begin_ = 0;
        } else if (memory_.size() >= kLargestWindow) {
            throw Unreadable{memory_.data(), "what begins here is too long for a report"};
        } else {
            memory_.resize((memory_.size() - kTextPadding) * 2 + kTextPadding);
        }
        Read();
    }

    int fd_ = -1;
    off_t first_ = 0;
    std::vector<char> memory_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool complete_ = false;
    std::uint64_t lines_ = 0;  // in front of the window
};

ReportReader::ReportReader(std::size_t windowSize) : window_(std::make_unique<Window>(windowSize))
{
}

ReportReader::~ReportReader() = default;

void ReportReader::Read(const std::string& file, const Take& take)
{
    const std::string name = file == "-" ? "standard input" : file;
    std::size_t count = 0;
    try {
        window_->Open(file);
        while (window_->Next(run_)) {
            ++count;
            if (count == 1 && window_->IsDone()) {
                take(run_);
                return;
            }
        }
        if (count == 0) {
            throw Unreadable{window_->Rest(), "no report: there is nothing here"};
        }
        // All are sound. What has been written after them since then is not read.
        for (window_->Rewind(); count > 0 && window_->Next(run_); --count) {
            take(run_);
        }
    } catch (const Unreadable& refused) {
        throw RefusedFile(name, window_->LineOf(refused.at), refused.reason);
    } catch (const SystemError& error) {
        throw RefusedFile(name, 0, error.reason);
    }
}

}  // namespace fa
