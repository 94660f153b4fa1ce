// Tells when somebody closes a device. One serves all lines, as the kernel takes 10 ms and more to
// take one away.
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
    LeaveWatch();
    ~LeaveWatch();
    LeaveWatch(const LeaveWatch&) = delete;
    LeaveWatch& operator=(const LeaveWatch&) = delete;

    // Calls the function after each closing of the device, until Remove() gets what this returns.
    // Where nothing can be watched, nothing is called.
    int Add(const std::string& device, EventSource::Function onClose);
    void Remove(int id);

private:
    void Read();

    const int descriptor_;
    std::map<int, EventSource::Function> functions_;
    EventSource readable_;
};

}  // namespace fa::set
