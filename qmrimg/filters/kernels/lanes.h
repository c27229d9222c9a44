// As many doubles, and as many floats, as one vector register of doubles holds at the level this file is compiled
// for. Lanes are pixels side by side: each has its own sum, so that results don't depend on their number.
#pragma once

#include <cstring>

namespace qmr {

#if defined(__AVX512F__)
inline constexpr int kLanes = 8;
#elif defined(__AVX__)
inline constexpr int kLanes = 4;
#else
inline constexpr int kLanes = 2;
#endif

using DoubleLanes = double __attribute__((vector_size(kLanes * sizeof(double))));
using FloatLanes = float __attribute__((vector_size(kLanes * sizeof(float))));

inline DoubleLanes LoadLanes(const double* from) {
  DoubleLanes v;
  std::memcpy(&v, from, sizeof v);
  return v;
}

// Widened to doubles.
inline DoubleLanes LoadLanes(const float* from) {
  FloatLanes v;
  std::memcpy(&v, from, sizeof v);
  return __builtin_convertvector(v, DoubleLanes);
}

// Rounded to floats.
inline void StoreLanes(float* to, DoubleLanes v) {
  const FloatLanes rounded = __builtin_convertvector(v, FloatLanes);
  std::memcpy(to, &rounded, sizeof rounded);
}

}  // namespace qmr
