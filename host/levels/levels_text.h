// Levels as text.
#pragma once

#include <string>

#include "host/levels/find_levels.h"

namespace qmr {

// One line a plane under a head line, then what gives the same levels.
std::string LevelsTable(const LevelsReport& report);
std::string LevelsJson(const LevelsReport& report, const std::string& file);
// The methods with their parameters, for a help text.
std::string MethodsText();

}  // namespace qmr
