#include "conversation/conversation.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "support/output.h"

namespace fa::set
{

namespace
{

constexpr std::size_t kMaxCalls = 10'000;

bool IsRegular(int file)
{
    struct stat status {
    };
    return fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

Conversation::Conversation(std::string path) : path_(std::move(path))
{
    if (path_.empty()) {
        return;
    }
    // A FIFO without a reader is refused here, where blocking would be for good.
    file_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                 0666);
    if (file_ < 0) {
        throw Failure("record " + path_ + ": " +
                      (errno == ENXIO ? "nobody reads from it" : g_strerror(errno)));
    }
    if (IsRegular(file_) && flock(file_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        close(file_);
        throw Failure("record " + path_ + ": another set writes it");
    }
}

Conversation::~Conversation()
{
    if (file_ >= 0) {
        close(file_);
    }
}

void Conversation::Begin()
{
    if (file_ >= 0) {
        if (IsRegular(file_) && ftruncate(file_, 0) != 0) {
            shortfall_ = "record " + path_ + ": " + g_strerror(errno);
            Complain(shortfall_);
        }
        Write(FirstLine());
    }
}

void Conversation::End()
{
    if (file_ >= 0) {
        Write(LastLine(Now()));
    }
}

const std::string& Conversation::Add(Event event)
{
    static const std::string nothing;
    event.time = Now();
    if (event.kind != Event::Kind::kCall) {
        AddTimed(event);
        return nothing;
    }
    if (calls_.size() == kMaxCalls) {
        calls_.pop_front();
    }
    calls_.push_back(ToJson(event));
    Write(calls_.back());
    return calls_.back();
}

void Conversation::AddTimed(const Event& event)
{
    if (file_ >= 0) {
        Write(ToJson(event));
    }
}

void Conversation::Write(const std::string& line)
{
    // Where a line is missing, there are none after it.
    if (file_ < 0 || !shortfall_.empty()) {
        return;
    }
    std::size_t written = 0;
    const int error = WriteAll(file_, line + "\n", written);
    if (error == 0) {
        return;
    }
    shortfall_ = "record " + path_ + ": " +
                 (error == EINTR ? "nobody has read all of it" : g_strerror(error));
    Complain(shortfall_);
    struct stat status {
    };
    if (fstat(file_, &status) == 0 && S_ISREG(status.st_mode) &&
        ftruncate(file_, status.st_size - static_cast<off_t>(written)) != 0) {
        Complain(shortfall_ + ", and its last line is cut off");
    }
}

}  // namespace fa::set
