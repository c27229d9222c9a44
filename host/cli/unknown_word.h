// What the user may have meant.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace qmr {

// One line on the first word that the program did not understand, with the option or command that comes nearest to it;
// empty when all words were understood.
std::string UnknownWord(const CLI::App& program);

}  // namespace qmr
