// Rules as a scenario file holds them: a JSON object a line.
#pragma once

#include <string>
#include <vector>

#include "rules/rule.h"

namespace fa::set
{

// The rules, in order. `name` is what a complaint calls the text. Throws Failure with the line.
std::vector<Rule> ReadScenario(const std::string& name, const std::string& text);

}  // namespace fa::set
