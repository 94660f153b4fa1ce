// A message bus for one run, with nobody on it but the set and the command.
#pragma once

#include <glib.h>

#include <string>

namespace fa
{

class PrivateBus
{
public:
    // Starts the bus with its socket in the folder. Throws Failure.
    explicit PrivateBus(const std::string& folder);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& Address() const { return address; }

private:
    std::string address;
    GPid daemon = 0;
};

}  // namespace fa
