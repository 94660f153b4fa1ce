// A dialogue on standard input and output, played as written.
#pragma once

#include <functional>
#include <string>

// A terminal takes whole lines and shows no echo; a stream is a script's.
enum Input { kTerminal, kUnbufferedTerminal, kStream };

// Runs `program` in a process of its own and expects the session to go as the script says: what the
// program shows, with each entry typed at its place in braces, once all before it is there. Returns
// the status that the program ends with.
int Play(Input input, const std::function<int()>& program, const std::string& script);
