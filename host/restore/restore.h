// Pictures with the blur taken out of them: the table of the methods.
#pragma once

#include <vector>

#include "host/operations/operation.h"

namespace qmr {

// Richardson-Lucy, maximum entropy and Wiener's filter, for RunOperation.
const std::vector<OperationSpec>& Restorations();

}  // namespace qmr
