// What the library does through GLib, seen from underneath: functions of the same names in the test
// program take the place of the binding's and of GLib's, and call the real ones. Each proxy that is
// made is noted, so that a call through the shared one is no news and one past it is.
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
