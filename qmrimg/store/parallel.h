// Threads and processor capability.
#pragma once

#include "qmrimg/platform/export.h"

class QMR_API CParallel {
 public:
  // The greatest number of threads that a parallel region will use; at least 1.
  static int GetMaxThreads();
  // The number of the calling thread within its region, 0 outside of one.
  static int GetThreadNum();
};

// Processor capability.
class QMR_API CKorSys {
 public:
  // Bit value 2: the vector routines may run. No other bit is used.
  static unsigned SIMD();
};

namespace qmr {

// Sets the number of threads of later parallel regions, for the whole process; 0 or less brings back the default
// (OMP_NUM_THREADS, or the number of processors).
QMR_API void SetMaxThreads(int threads);

// Forces the bit set that CKorSys::SIMD() gives; a negative value brings back what the processor can do.
QMR_API void ForceSimd(int bits);

}  // namespace qmr
