// A recording made on a bus with a real set and a real application, changing neither.
#pragma once

#include <string>

namespace fa::set
{

// Listens as a monitor of the bus that DBUS_SYSTEM_BUS_ADDRESS names, and writes what it hears of
// the service into the file until a signal comes. Returns the exit status. Throws Failure.
int Capture(const std::string& path);

}  // namespace fa::set
