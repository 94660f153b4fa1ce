#include "support/output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/signals.h"

namespace fa::set
{

namespace
{

// A socket cannot be opened a second time, so it does not block for this once.
ssize_t WriteSome(int descriptor, const char* data, std::size_t size)
{
    const ssize_t sent = send(descriptor, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent >= 0 || errno != ENOTSOCK ? sent : write(descriptor, data, size);
}

// False where a signal has come instead.
bool AwaitWritable(int descriptor)
{
    pollfd waits[] = {{descriptor, POLLOUT, 0}, {SignalDescriptor(), POLLIN, 0}};
    while (poll(waits, 2, -1) < 0 && errno == EINTR) {
    }
    return waits[1].revents == 0;
}

}  // namespace

int OpenOutput(int descriptor)
{
    struct stat status {
    };
    if (fstat(descriptor, &status) != 0 || !(S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode))) {
        return descriptor;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    const int own = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    return own >= 0 ? own : descriptor;
}

int WriteAll(int descriptor, const std::string& text, std::size_t& written)
{
    for (written = 0; written < text.size();) {
        const ssize_t count = WriteSome(descriptor, text.data() + written, text.size() - written);
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            if (!AwaitWritable(descriptor)) {
                return EINTR;
            }
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

}  // namespace fa::set
