// The platform underneath the library, as a test says: each answer is a result and, apart from it,
// what is written. Every query is noted with its arguments and what its output holds before.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>

template <typename Value>
struct Answer {
    int result = -1;
    std::optional<Value> written = {};
};

struct ScriptedPlatform {
    std::deque<Answer<int>> ints;  // one for each query of a number
    // By what is asked: a string's key, "bluetooth", "chip", "panel", "tcon", a local-dimming
    // selector, "option", and "link", which is the target of every symbolic link. Numbers stand
    // here as texts, and a text that fills its buffer is not terminated there.
    std::map<std::string, Answer<std::string>> answers;
};

extern ScriptedPlatform platform;
