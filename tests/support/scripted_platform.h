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
    std::deque<Answer<int>> ints;  // one for each query
    std::map<int, Answer<std::string>> strings;
    Answer<bool> bluetooth;
    Answer<int> chipVersion;
    bool hasPanel = false;
    Answer<std::string> tconVersion;  // not terminated where it fills the buffer
    std::map<int, Answer<unsigned int>> localDimming;
    Answer<std::string> option;       // the same
    std::optional<std::string> link;  // the target of every symbolic link
};

extern ScriptedPlatform platform;
