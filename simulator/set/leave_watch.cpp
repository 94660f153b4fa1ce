#include "set/leave_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <utility>

namespace fa::set
{

LeaveWatch::~LeaveWatch()
{
    readable_.Stop();
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

int LeaveWatch::Add(const std::string& device, EventSource::Function onClose)
{
    if (descriptor_ < 0 && (descriptor_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) >= 0) {
        readable_.StartWatch(descriptor_, G_IO_IN, [this] { Read(); });
    }
    const int id = inotify_add_watch(descriptor_, device.c_str(), IN_CLOSE);
    if (id >= 0) {
        functions_[id] = std::move(onClose);
    }
    return id;
}

void LeaveWatch::Remove(int id)
{
    if (functions_.erase(id) > 0) {
        inotify_rm_watch(descriptor_, id);
    }
}

void LeaveWatch::Read()
{
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    while ((count = read(descriptor_, buffer.data(), buffer.size())) > 0) {
        // No event of a file has a name, so all are of one size.
        for (std::size_t at = 0; at < static_cast<std::size_t>(count);
             at += sizeof(inotify_event)) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const auto found = functions_.find(event.wd);
            if (found != functions_.end()) {
                found->second();
            }
        }
    }
}

}  // namespace fa::set
