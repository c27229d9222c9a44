#include "qmrimg/store/parallel.h"

#include <omp.h>

#include <algorithm>
#include <atomic>

namespace qmr {
namespace {

std::atomic<int> maxThreads{0};
std::atomic<int> forcedSimd{-1};

}  // namespace

void SetMaxThreads(int threads) {
  maxThreads.store(std::max(threads, 0), std::memory_order_relaxed);
}
void ForceSimd(int bits) {
  forcedSimd.store(bits, std::memory_order_relaxed);
}

}  // namespace qmr

int CParallel::GetMaxThreads() {
  const int set = qmr::maxThreads.load(std::memory_order_relaxed);
  return set > 0 ? set : std::max(omp_get_max_threads(), 1);
}

int CParallel::GetThreadNum() {
  return omp_get_thread_num();
}

unsigned CKorSys::SIMD() {
  const int forced = qmr::forcedSimd.load(std::memory_order_relaxed);
  // The vector routines need no more than the baseline that the library is built for.
  return forced >= 0 ? static_cast<unsigned>(forced) : 2u;
}
