// What the user may have meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qmr {

// The candidate that is at most a third of its letters away, or begins with the word; empty when there is none.
std::string Nearest(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace qmr
