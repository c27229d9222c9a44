// Rows whose pixels change places. Source and destination are different memory.
#pragma once

#include <span>

namespace qmr {

// to[i] = from[size - 1 - i].
void ReverseRow(std::span<const float> from, std::span<float> to);

// to[c][toColumn + r] = from[r][fromColumn + c] for r < rows and c < columns: a block turned on its side.
void TransposeBlock(const float* const* from, int fromColumn, int rows, float* const* to, int toColumn, int columns);

}  // namespace qmr
