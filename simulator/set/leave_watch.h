// Tells when somebody closes a device. The kernel takes 10 ms and more to take one away that has
// watched anything, so one serves all lines, and it begins with the first.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "support/event_source.h"

namespace fa::set
{

class LeaveWatch
{
public:
    LeaveWatch() = default;
    ~LeaveWatch();
    LeaveWatch(const LeaveWatch&) = delete;
    LeaveWatch& operator=(const LeaveWatch&) = delete;

    // Calls the function after each closing of the device, until Remove() gets what this returns.
    // Where nothing can be watched, nothing is called.
    int Add(const std::string& device, EventSource::Function onClose);
    void Remove(int id);

private:
    void Read();

    int descriptor_ = -1;
    std::map<int, EventSource::Function> functions_;
    EventSource readable_;
};

}  // namespace fa::set
