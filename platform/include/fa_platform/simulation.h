// Control of the simulated platform from inside the process, for tests. Not there on a set.
#pragma once

#include <functional>
#include <string>

namespace fa_platform
{

// Answers every query from this profile text instead of the profile file; null goes back to it.
void UseProfileText(const char* text);

// Receives each log line with its line feed instead of standard error; an empty function goes back.
// Called on the thread that logs, one line at a time.
using LogSink =
    std::function<void(int buffer, int priority, const std::string& tag, const std::string& text)>;
void SetLogSink(LogSink sink);

// Called before each query is answered, with the query as text, such as
// "system_info_get_value_int(284)"; the function may change the profile text. Log lines and the
// debug menu are not queries; a profiler scope reports its begin and its end.
using QueryObserver = std::function<void(const std::string& query)>;
void SetQueryObserver(QueryObserver observer);

}  // namespace fa_platform
