// The methods of restoration behind one form of call each.
#pragma once

#include "host/operations/destination.h"

namespace qmr::calls {

Result RestoreByLucy(OperationJob& job);
Result RestoreByMem(OperationJob& job);
Result RestoreByWiener(OperationJob& job);

}  // namespace qmr::calls
