// The platform log, in the platform's place.
#pragma once

#include "support/trace.h"

// A log line is noted as "D control_calls automation_close_ex_uart: OK retVal[1]": the priority's
// letter, the source file, the function, the message. One that breaks the form all lines share, or
// whose line number does not lead to where the source logs, stands as it came, after "BAD ".

// Called with each line instead of noting it; an empty function goes back to that.
void WatchLog(std::function<void(const std::string& line)> watcher);

// Lines as they are noted: `messages` has one in each line, after its priority's letter.
std::string Logged(const std::string& source, const std::string& function,
                   const std::string& messages);

// Whether the source file has the text in this line; or nearby, as a call takes a few lines and
// compilers differ in which of them they count.
bool SourceHolds(const std::string& source, int line, const std::string& text);
