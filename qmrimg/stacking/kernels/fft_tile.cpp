#include "qmrimg/stacking/kernels/fft_tile.h"

namespace qmr {
namespace {

using Quad = float __attribute__((vector_size(16), aligned(4), may_alias));

inline void TransposeQuads(const float* f, std::ptrdiff_t fromPitch, float* t, std::ptrdiff_t toPitch) {
  const Quad a = *reinterpret_cast<const Quad*>(f);
  const Quad b = *reinterpret_cast<const Quad*>(f + fromPitch);
  const Quad c = *reinterpret_cast<const Quad*>(f + 2 * fromPitch);
  const Quad d = *reinterpret_cast<const Quad*>(f + 3 * fromPitch);
  const Quad ab0 = __builtin_shufflevector(a, b, 0, 4, 1, 5), ab1 = __builtin_shufflevector(a, b, 2, 6, 3, 7);
  const Quad cd0 = __builtin_shufflevector(c, d, 0, 4, 1, 5), cd1 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
  *reinterpret_cast<Quad*>(t) = __builtin_shufflevector(ab0, cd0, 0, 1, 4, 5);
  *reinterpret_cast<Quad*>(t + toPitch) = __builtin_shufflevector(ab0, cd0, 2, 3, 6, 7);
  *reinterpret_cast<Quad*>(t + 2 * toPitch) = __builtin_shufflevector(ab1, cd1, 0, 1, 4, 5);
  *reinterpret_cast<Quad*>(t + 3 * toPitch) = __builtin_shufflevector(ab1, cd1, 2, 3, 6, 7);
}

}  // namespace

void Transpose(const float* from, std::ptrdiff_t fromPitch, int rows, int columns, float* to, std::ptrdiff_t toPitch) {
  if (fromPitch > toPitch) {
    for (int i = 0; i < rows; i += 4) {
      for (int j = 0; j < columns; j += 4) {
        TransposeQuads(from + i * fromPitch + j, fromPitch, to + j * toPitch + i, toPitch);
      }
    }
  } else {
    for (int j = 0; j < columns; j += 4) {
      for (int i = 0; i < rows; i += 4) {
        TransposeQuads(from + i * fromPitch + j, fromPitch, to + j * toPitch + i, toPitch);
      }
    }
  }
}

}  // namespace qmr
