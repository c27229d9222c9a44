// What an operation has to tell beside its picture.
#pragma once

#include <string>
#include <vector>

namespace qmr {

// Lines for the user.
using Remarks = std::vector<std::string>;

}  // namespace qmr
