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
    // `replyTimeoutMs`, or never where that is 0. Throws Failure. Has no address where a signal
    // that ends the program has come meanwhile.
    PrivateBus(const std::string& folder, unsigned int replyTimeoutMs);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& Address() const { return address_; }

private:
    std::string ReadAddress() const;

    std::string address_;
    GSubprocess* daemon_ = nullptr;
};

}  // namespace fa::set
