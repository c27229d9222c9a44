// Memory of the Fourier engines.
#pragma once

#include <cstddef>

#include "qmrimg/store/block.h"

namespace qmr {

// The exponent of a power of two; -1 for any other number.
inline int Log2Exact(int n) {
  if (n < 1 || (n & (n - 1))) return -1;
  int bits = 0;
  while (n >> (bits + 1)) ++bits;
  return bits;
}

// width x height elements of two floats, of no defined content; empty when the memory can't be had or a size is no
// power of two.
inline Block AllocateComplex(int width, int height) {
  if (Log2Exact(width) < 0 || Log2Exact(height) < 0) return Block();
  const std::size_t bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 2 * sizeof(float);
  return Block(bytes, Block::Content::kUndefined);
}

// The two arrays of an engine; both empty, and false, when one of them can't be had. The old ones go first: a second
// engine of the same size must not need twice the memory.
inline bool AllocatePair(int width, int height, Block& a, Block& b) {
  a = Block();
  b = Block();
  a = AllocateComplex(width, height);
  b = AllocateComplex(width, height);
  if (a.Get() && b.Get()) return true;
  a = Block();
  b = Block();
  return false;
}

}  // namespace qmr
