// Pieces of arrays that change between lines side by side and lines one below the other.
#pragma once

#include <cstddef>

namespace qmr {

// to[j][i] = from[i][j] for i < rows, j < columns, both multiples of 4; rows are the pitches apart, in floats.
//
// The side with the longer pitch is finished four rows after four: its rows often fall into one cache set, which does
// not hold more.
void Transpose(const float* from, std::ptrdiff_t fromPitch, int rows, int columns, float* to, std::ptrdiff_t toPitch);

}  // namespace qmr
