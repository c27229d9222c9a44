// Rows written with stores that bypass the cache: the vector routines of the point operations. The only intrinsics
// of the library stand here.
#pragma once

#include <cstddef>
#include <span>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qmr {

// The choices of one float as the vector instructions make them: of not-a-number and another value Max gives `b`.
inline float Max(float a, float b) {
  return a > b ? a : b;
}
inline float Select(bool condition, float a, float b) {
  return condition ? a : b;
}

#if defined(__SSE2__)

// Four floats with the arithmetic of one.
struct Float4 {
  __m128 v;
  friend Float4 operator+(Float4 a, Float4 b) { return {_mm_add_ps(a.v, b.v)}; }
  friend Float4 operator-(Float4 a, Float4 b) { return {_mm_sub_ps(a.v, b.v)}; }
  friend Float4 operator*(Float4 a, Float4 b) { return {_mm_mul_ps(a.v, b.v)}; }
  // Comparisons give a mask for Select.
  friend Float4 operator<=(Float4 a, Float4 b) { return {_mm_cmple_ps(a.v, b.v)}; }
  friend Float4 operator>=(Float4 a, Float4 b) { return {_mm_cmpge_ps(a.v, b.v)}; }
  friend Float4 Max(Float4 a, Float4 b) { return {_mm_max_ps(a.v, b.v)}; }
  friend Float4 Select(Float4 mask, Float4 a, Float4 b) {
    return {_mm_or_ps(_mm_and_ps(mask.v, a.v), _mm_andnot_ps(mask.v, b.v))};
  }
};

template <class Vector>
Vector Splat(float value) {
  if constexpr (sizeof(Vector) == sizeof(float))
    return value;
  else
    return Vector{_mm_set1_ps(value)};
}

// dst[i] = formula(src[i]); `formula` takes a float or a Float4. One pixel at a time up to the first column divisible
// by 4, then four with a streaming store, then the rest. `dst` of such a column lies on a 16-byte boundary.
template <class Formula>
void StreamRow(std::span<const float> src, std::span<float> dst, int column, Formula formula) {
  const float* from = src.data();
  float* to = dst.data();
  const std::size_t width = src.size();
  std::size_t x = 0;
  for (; x < width && (static_cast<std::size_t>(column) + x) % 4 != 0; ++x) to[x] = formula(from[x]);
  for (; x + 4 <= width; x += 4) _mm_stream_ps(to + x, formula(Float4{_mm_loadu_ps(from + x)}).v);
  for (; x < width; ++x) to[x] = formula(from[x]);
  // Streaming stores are not ordered with later ones: the row must be visible before its thread goes on.
  _mm_sfence();
}

#else

template <class Vector>
Vector Splat(float value) {
  return value;
}

template <class Formula>
void StreamRow(std::span<const float> src, std::span<float> dst, int column, Formula formula) {
  (void)column;
  for (std::size_t x = 0; x < src.size(); ++x) dst[x] = formula(src[x]);
}

#endif

}  // namespace qmr
