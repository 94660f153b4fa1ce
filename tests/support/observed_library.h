// What the library does through GLib, seen from underneath: functions of the same names in the test
// program take the place of the binding's and of GLib's, note what they are asked for, and call the
// real ones. A call through the shared proxy is no news; one past it is noted.
#pragma once

#include <fa_api/automation_api_binding.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

struct ObservedLibrary {
    std::atomic<AutomationProxy*> proxy{nullptr};  // the shared one, once it is made
    std::vector<gulong> connections;               // the ids of its connections to signals
    // What a test does in the middle of the next construction.
    std::function<void()> beforeConstruction = [] {};
    std::function<void()> afterConstruction = [] {};
};

extern ObservedLibrary library;

// The trace of a call that connects, and of one that cannot.
std::string Connected();
extern const std::string kNoBus;

// The low 32 bits of an address, as log lines show it.
template <typename Pointer>
unsigned int Low(Pointer pointer)
{
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pointer));
}
