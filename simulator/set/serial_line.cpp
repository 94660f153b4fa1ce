#include "set/serial_line.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <tuple>
#include <utility>

namespace fa::set
{

namespace
{

constexpr std::size_t kMaxWaiting = 1U << 20U;
constexpr guint kWatchAfterMs = 100;
constexpr guint kCloseStepMs = 10;
constexpr int kCloseSteps = 100;
constexpr std::size_t kTold = 4095;  // by a terminal at most, of bytes to be read; more may follow

// Whether the device that the link was made for is still there. One of that name which is younger
// than the link is another one.
bool LeadsToLiving(const std::string& link)
{
    struct stat made {
    };
    struct stat device {
    };
    if (lstat(link.c_str(), &made) != 0 || stat(link.c_str(), &device) != 0) {
        return false;
    }
    return std::tie(device.st_ctim.tv_sec, device.st_ctim.tv_nsec) <=
           std::tie(made.st_mtim.tv_sec, made.st_mtim.tv_nsec);
}

}  // namespace

SerialLine::SerialLine(std::string name, std::string link, LeaveWatch& leaveWatch,
                       Receiver receiver)
    : name_(std::move(name)),
      link_(std::move(link)),
      leaveWatch_(leaveWatch),
      receiver_(std::move(receiver))
{
}

SerialLine::~SerialLine()
{
    HangUp();
}

void SerialLine::Open()
{
    if (state_ == State::kClosing) {
        closing_.Stop();
        state_ = State::kOpen;
        return;
    }
    HangUp();
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    std::array<char, 128> path{};
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 ||
        ptsname_r(master_, path.data(), path.size()) != 0) {
        const std::string reason = g_strerror(errno);
        HangUp();
        throw Failure("line " + name_ + ": no pseudo-terminal: " + reason);
    }
    device_ = path.data();
    terminal_ = open(path.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    if (terminal_ < 0 || tcgetattr(terminal_, &settings) != 0) {
        const std::string reason = g_strerror(errno);
        HangUp();
        throw Failure("line " + name_ + ": " + path.data() + ": " + reason);
    }
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    tcsetattr(terminal_, TCSANOW, &settings);
    state_ = State::kOpen;
    if (!link_.empty()) {
        MakeLink();
    }
    // The run of a short command ends sooner without a watch.
    watching_.StartTimer(kWatchAfterMs, [this] { KeepShared(); });
    SetReading(reading_);
    Say("line %s is %s", name_.c_str(), link_.empty() ? device_.c_str() : link_.c_str());
}

// A link to a pseudo-terminal that is gone is what a killed simulator has left behind; anything
// else is somebody's.
void SerialLine::MakeLink()
{
    std::error_code error;
    const std::filesystem::path target = std::filesystem::read_symlink(link_, error);
    if (target.parent_path() == "/dev/pts") {
        if (LeadsToLiving(link_)) {
            HangUp();
            throw Failure("line " + name_ + ": " + link_ + " is another set's");
        }
        std::filesystem::remove(link_, error);
    }
    std::filesystem::create_symlink(device_, link_, error);
    if (error) {
        HangUp();
        throw Failure("line " + name_ + ": " + link_ + ": " + error.message());
    }
}

// A terminal program may leave the device to itself alone, which our hold on it would keep up.
void SerialLine::KeepShared()
{
    leaveId_ = leaveWatch_.Add(device_, [this] { ioctl(terminal_, TIOCNXCL); });
    ioctl(terminal_, TIOCNXCL);  // it may have left by now
}

void SerialLine::Close()
{
    if (state_ == State::kOpen) {
        state_ = State::kClosing;
        CloseWhenRead(kCloseSteps);
    }
}

void SerialLine::CloseWhenRead(int steps)
{
    closing_.StartTimer(kCloseStepMs, [this, steps] {
        if (steps > 0 && Unread() > 0) {
            CloseWhenRead(steps - 1);
        } else {
            HangUp();
        }
    });
}

bool SerialLine::SetSpeed(speed_t speed)
{
    termios settings{};
    return tcgetattr(terminal_, &settings) == 0 && cfsetspeed(&settings, speed) == 0 &&
           tcsetattr(terminal_, TCSANOW, &settings) == 0;
}

bool SerialLine::Send(const Bytes& bytes)
{
    if (state_ != State::kOpen || output_.size() + bytes.size() > kMaxWaiting) {
        return false;
    }
    output_.insert(output_.end(), bytes.begin(), bytes.end());
    Flush();
    return true;
}

void SerialLine::Flush()
{
    std::size_t done = 0;
    ssize_t written = 0;
    while (done < output_.size() &&
           (written = write(master_, output_.data() + done, output_.size() - done)) > 0) {
        done += static_cast<std::size_t>(written);
    }
    output_.erase(output_.begin(), output_.begin() + static_cast<std::ptrdiff_t>(done));
    if (output_.empty()) {
        writable_.Stop();
    } else if (!writable_.IsActive()) {
        writable_.StartWatch(master_, G_IO_OUT, [this] { Flush(); });
    }
}

void SerialLine::SetReading(bool on)
{
    reading_ = on;
    if (!on) {
        readable_.Stop();
    } else if (master_ >= 0 && !readable_.IsActive()) {
        readable_.StartWatch(master_, G_IO_IN, [this] { Read(); });
    }
}

void SerialLine::Read()
{
    Bytes bytes(4096);
    const ssize_t count = read(master_, bytes.data(), bytes.size());
    if (count > 0) {
        bytes.resize(static_cast<std::size_t>(count));
        receiver_(bytes);
    }
}

// What the other end has yet to read. The kernel delivers to it in the background: looking for
// something to read waits for that, without which a busy machine would count too little.
std::size_t SerialLine::Unread() const
{
    pollfd deliver{terminal_, POLLIN, 0};
    poll(&deliver, 1, 0);
    int waiting = 0;
    ioctl(terminal_, FIONREAD, &waiting);
    return output_.size() + static_cast<std::size_t>(waiting);
}

void SerialLine::HangUp()
{
    for (EventSource* source : {&readable_, &writable_, &closing_, &watching_}) {
        source->Stop();
    }
    leaveWatch_.Remove(std::exchange(leaveId_, -1));
    if (state_ != State::kClosed) {
        const std::size_t unread = Unread();
        if (unread > 0) {
            Say("line %s: nobody has read the last %zu bytes%s", name_.c_str(), unread,
                unread >= kTold ? " or more" : "");
        }
    }
    std::error_code error;
    if (!device_.empty() && std::filesystem::read_symlink(link_, error) == device_) {
        std::filesystem::remove(link_, error);
    }
    for (int* descriptor : {&terminal_, &master_}) {
        if (*descriptor >= 0) {
            close(std::exchange(*descriptor, -1));
        }
    }
    output_.clear();
    device_.clear();
    state_ = State::kClosed;
}

}  // namespace fa::set
