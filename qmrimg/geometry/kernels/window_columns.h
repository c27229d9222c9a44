// The windows of many pixels turned into columns, so that arithmetic runs across pixels.
#pragma once

#include <cstddef>
#include <cstring>

namespace qmr {

// Four floats; shuffles of this width exist on every processor of the target and cost the same in wider code.
using Float4 = float __attribute__((vector_size(16)));

inline Float4 LoadFour(const float* p) {
  Float4 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline void StoreFour(const Float4& v, float* p) {
  std::memcpy(p, &v, sizeof v);
}

// Two floats from each of two places.
inline Float4 LoadTwoPairs(const float* a, const float* b) {
  double pair[2];
  std::memcpy(&pair[0], a, sizeof pair[0]);
  std::memcpy(&pair[1], b, sizeof pair[1]);
  Float4 v;
  std::memcpy(&v, pair, sizeof v);
  return v;
}

// columns[k * step + i] = from[offset[i] + k] for the four pixels i = 0..3 and k = 0..3.
inline void TransposeFour(const float* from, const std::ptrdiff_t* offset, float* columns, int step) {
  const Float4 a = LoadFour(from + offset[0]), b = LoadFour(from + offset[1]);
  const Float4 c = LoadFour(from + offset[2]), d = LoadFour(from + offset[3]);
  const Float4 ab01 = __builtin_shufflevector(a, b, 0, 4, 1, 5);
  const Float4 ab23 = __builtin_shufflevector(a, b, 2, 6, 3, 7);
  const Float4 cd01 = __builtin_shufflevector(c, d, 0, 4, 1, 5);
  const Float4 cd23 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
  StoreFour(__builtin_shufflevector(ab01, cd01, 0, 1, 4, 5), columns);
  StoreFour(__builtin_shufflevector(ab01, cd01, 2, 3, 6, 7), columns + step);
  StoreFour(__builtin_shufflevector(ab23, cd23, 0, 1, 4, 5), columns + 2 * step);
  StoreFour(__builtin_shufflevector(ab23, cd23, 2, 3, 6, 7), columns + 3 * step);
}

// The same for k = 0, 1.
inline void TransposeTwo(const float* from, const std::ptrdiff_t* offset, float* columns, int step) {
  const Float4 ab = LoadTwoPairs(from + offset[0], from + offset[1]);
  const Float4 cd = LoadTwoPairs(from + offset[2], from + offset[3]);
  StoreFour(__builtin_shufflevector(ab, cd, 0, 2, 4, 6), columns);
  StoreFour(__builtin_shufflevector(ab, cd, 1, 3, 5, 7), columns + step);
}

// columns[k * Count + i] = from[offset[i] + k] for Count pixels, a multiple of four, and Taps = 2, 4 or 6.
template <int Taps, int Count>
void GatherColumns(const float* from, const std::ptrdiff_t* offset, float* columns) {
  static_assert((Taps == 2 || Taps == 4 || Taps == 6) && Count % 4 == 0);
  for (int i = 0; i < Count; i += 4) {
    if constexpr (Taps >= 4) TransposeFour(from, offset + i, columns + i, Count);
    if constexpr (Taps == 6) TransposeTwo(from + 4, offset + i, columns + i + 4 * Count, Count);
    if constexpr (Taps == 2) TransposeTwo(from, offset + i, columns + i, Count);
  }
}

}  // namespace qmr
