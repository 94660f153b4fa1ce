// The signals that end the program: SIGINT, SIGTERM and SIGHUP.
#pragma once

#include <optional>

namespace fa::set
{

// Collects them from now on, whatever was inherited; a SIGHUP that is ignored, as under nohup,
// stays so. Once per process, before other threads begin.
void CatchSignals();

// Readable while a signal waits to be taken; -1 where none are caught.
int SignalDescriptor();
bool SignalWaits();

struct Signal {
    int number;
    bool fromTerminal;  // then the whole foreground has it
};
std::optional<Signal> TakeSignal();

}  // namespace fa::set
