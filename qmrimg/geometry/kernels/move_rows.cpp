#include "qmrimg/geometry/kernels/move_rows.h"

#include <cstddef>

#include "qmrimg/geometry/kernels/window_columns.h"

namespace qmr {
namespace {

constexpr int kSide = 4;

// Four rows by four columns.
void TransposeSquare(const float* const* from, int fromColumn, float* const* to, int toColumn) {
  const Float4 a = LoadFour(from[0] + fromColumn), b = LoadFour(from[1] + fromColumn);
  const Float4 c = LoadFour(from[2] + fromColumn), d = LoadFour(from[3] + fromColumn);
  const Float4 ab01 = __builtin_shufflevector(a, b, 0, 4, 1, 5);
  const Float4 ab23 = __builtin_shufflevector(a, b, 2, 6, 3, 7);
  const Float4 cd01 = __builtin_shufflevector(c, d, 0, 4, 1, 5);
  const Float4 cd23 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
  StoreFour(__builtin_shufflevector(ab01, cd01, 0, 1, 4, 5), to[0] + toColumn);
  StoreFour(__builtin_shufflevector(ab01, cd01, 2, 3, 6, 7), to[1] + toColumn);
  StoreFour(__builtin_shufflevector(ab23, cd23, 0, 1, 4, 5), to[2] + toColumn);
  StoreFour(__builtin_shufflevector(ab23, cd23, 2, 3, 6, 7), to[3] + toColumn);
}

}  // namespace

void ReverseRow(std::span<const float> from, std::span<float> to) {
  const std::ptrdiff_t count = static_cast<std::ptrdiff_t>(to.size());
  const float* const in = from.data() + (count - 1);
  float* const out = to.data();
#pragma omp simd
  for (std::ptrdiff_t i = 0; i < count; ++i) out[i] = in[-i];
}

void TransposeBlock(const float* const* from, int fromColumn, int rows, float* const* to, int toColumn, int columns) {
  const int evenRows = rows - rows % kSide;
  const int evenColumns = columns - columns % kSide;
  for (int c = 0; c < evenColumns; c += kSide) {
    for (int r = 0; r < evenRows; r += kSide) TransposeSquare(from + r, fromColumn + c, to + c, toColumn + r);
  }
  for (int c = 0; c < columns; ++c) {
    for (int r = c < evenColumns ? evenRows : 0; r < rows; ++r) to[c][toColumn + r] = from[r][fromColumn + c];
  }
}

}  // namespace qmr
