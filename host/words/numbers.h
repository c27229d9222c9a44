// Numbers in the user's words.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace qmr {

// "1,-2.5,3e2" without blanks; nothing when a part is no finite number.
std::optional<std::vector<double>> SplitNumbers(std::string_view text);

}  // namespace qmr
