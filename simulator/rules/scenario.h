// Rules as a scenario file holds them: a JSON object a line.
#pragma once

#include <string>
#include <vector>

#include "rules/rule.h"

namespace fa::set
{

// The rules, in order. `name` is what a complaint calls the text. Throws Failure with the line.
std::vector<Rule> ReadScenario(const std::string& name, const std::string& text);

// A packet that comes into the line of that name. Throws Failure where none can.
Rule::Packet ReadPacket(const std::string& line, const Bytes& bytes);

}  // namespace fa::set
