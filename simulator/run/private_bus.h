// A message bus for one run, with nobody on it but the set and the command.
#pragma once

#include <gio/gio.h>

#include <string>

namespace fa::set
{

class PrivateBus
{
public:
    // Starts the bus with its socket in the folder; calls without an answer fail on it after
    // `replyTimeoutMs`, or never where that is 0. Throws Failure.
    PrivateBus(const std::string& folder, unsigned int replyTimeoutMs);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // Waits for the bus to accept connections. Throws Failure. Returns no address where a signal
    // that ends the program has come meanwhile.
    std::string WaitForAddress() const;

    // Ends the bus for everybody; to be gone, it takes the destructor.
    void End();

private:
    std::string ReadAddress() const;

    const std::string complaints_;  // path of what it says
    GSubprocess* daemon_ = nullptr;
};

}  // namespace fa::set
