#include "serial_line.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "event_sources.h"

namespace fa
{

namespace
{

constexpr std::size_t kMostWaiting = 1U << 20U;
constexpr guint kCloseStepMs = 10;
constexpr int kCloseSteps = 100;

}  // namespace

SerialLine::SerialLine(std::string lineName, std::string linkPath, Receiver lineReceiver)
    : name(std::move(lineName)), link(std::move(linkPath)), receiver(std::move(lineReceiver))
{
}

SerialLine::~SerialLine()
{
    HangUp();
}

void SerialLine::Open()
{
    // Unread() does not see yet what has only just been written.
    if (state == State::kClosing) {
        StopSource(closeTimer);
        state = State::kOpen;
        return;
    }
    HangUp();
    master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    std::array<char, 128> path{};
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, path.data(), path.size()) != 0) {
        const std::string reason = g_strerror(errno);
        HangUp();
        throw Failure("line " + name + ": no pseudo-terminal: " + reason);
    }
    device = path.data();
    terminal = open(path.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    if (terminal < 0 || tcgetattr(terminal, &settings) != 0) {
        const std::string reason = g_strerror(errno);
        HangUp();
        throw Failure("line " + name + ": " + device + ": " + reason);
    }
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    tcsetattr(terminal, TCSANOW, &settings);
    state = State::kOpen;
    if (!link.empty()) {
        MakeLink();
    }
    SetReading(reading);
    Say("line %s is %s", name.c_str(), link.empty() ? device.c_str() : link.c_str());
}

// A link to a pseudo-terminal is what a killed simulator has left behind; anything else is
// somebody's.
void SerialLine::MakeLink()
{
    std::error_code error;
    if (std::filesystem::read_symlink(link, error).parent_path() == "/dev/pts") {
        std::filesystem::remove(link, error);
    }
    std::filesystem::create_symlink(device, link, error);
    if (error) {
        HangUp();
        throw Failure("line " + name + ": " + link + ": " + error.message());
    }
}

void SerialLine::Close()
{
    if (state != State::kOpen) {
        return;
    }
    state = State::kClosing;
    closeSteps = 0;
    closeTimer = g_timeout_add(kCloseStepMs, OnClosing, this);
}

gboolean SerialLine::OnClosing(gpointer self)
{
    auto* line = static_cast<SerialLine*>(self);
    if (line->Unread() > 0 && ++line->closeSteps < kCloseSteps) {
        return G_SOURCE_CONTINUE;
    }
    line->closeTimer = 0;
    line->HangUp();
    return G_SOURCE_REMOVE;
}

bool SerialLine::SetSpeed(speed_t speed)
{
    termios settings{};
    return tcgetattr(terminal, &settings) == 0 && cfsetspeed(&settings, speed) == 0 &&
           tcsetattr(terminal, TCSANOW, &settings) == 0;
}

bool SerialLine::Send(const Bytes& bytes)
{
    if (state != State::kOpen || output.size() + bytes.size() > kMostWaiting) {
        return false;
    }
    output.insert(output.end(), bytes.begin(), bytes.end());
    Flush();
    return true;
}

void SerialLine::Flush()
{
    std::size_t done = 0;
    ssize_t written = 0;
    while (done < output.size() &&
           (written = write(master, output.data() + done, output.size() - done)) > 0) {
        done += static_cast<std::size_t>(written);
    }
    output.erase(output.begin(), output.begin() + static_cast<std::ptrdiff_t>(done));
    if (!output.empty() && writeWatch == 0) {
        writeWatch = g_unix_fd_add(master, G_IO_OUT, OnWritable, this);
    }
}

gboolean SerialLine::OnWritable(gint, GIOCondition, gpointer self)
{
    auto* line = static_cast<SerialLine*>(self);
    line->Flush();
    if (!line->output.empty()) {
        return G_SOURCE_CONTINUE;
    }
    line->writeWatch = 0;
    return G_SOURCE_REMOVE;
}

void SerialLine::SetReading(bool on)
{
    reading = on;
    if (!on) {
        StopSource(readWatch);
    } else if (master >= 0 && readWatch == 0) {
        readWatch = g_unix_fd_add(master, G_IO_IN, OnReadable, this);
    }
}

gboolean SerialLine::OnReadable(gint, GIOCondition, gpointer self)
{
    auto* line = static_cast<SerialLine*>(self);
    Bytes bytes(4096);
    const ssize_t count = read(line->master, bytes.data(), bytes.size());
    if (count > 0) {
        bytes.resize(static_cast<std::size_t>(count));
        line->receiver(bytes);
    }
    // The receiver may have turned reading off, which has removed this source already.
    return line->readWatch != 0 ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

std::size_t SerialLine::Unread() const
{
    int waiting = 0;
    ioctl(terminal, FIONREAD, &waiting);
    return output.size() + static_cast<std::size_t>(waiting);
}

void SerialLine::HangUp()
{
    StopSource(readWatch);
    StopSource(writeWatch);
    StopSource(closeTimer);
    if (state != State::kClosed && Unread() > 0) {
        Say("line %s: nobody has read the last %zu bytes", name.c_str(), Unread());
    }
    std::error_code error;
    if (!device.empty() && std::filesystem::read_symlink(link, error) == device) {
        std::filesystem::remove(link, error);
    }
    for (int* descriptor : {&terminal, &master}) {
        if (*descriptor >= 0) {
            close(std::exchange(*descriptor, -1));
        }
    }
    output.clear();
    device.clear();
    state = State::kClosed;
}

}  // namespace fa
