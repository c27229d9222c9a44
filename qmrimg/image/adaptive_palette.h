// A palette of 256 colours made for one image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qmrimg/platform/bitmap_header.h"

namespace qmr {

// Colours are counted in cells of 5 bits a channel: index red << 10 | green << 5 | blue.
inline constexpr std::size_t kColourCells = 32768;

// The cell of a word 0x00RRGGBB.
inline std::uint32_t CellOfWord(std::uint32_t word) {
  return (word >> 9 & 0x7C00u) | (word >> 6 & 0x3E0u) | (word >> 3 & 0x1Fu);
}

struct AdaptivePalette {
  RGBQUAD colours[256];
  // The palette entry of each cell that occurs.
  std::vector<std::uint8_t> entryOfCell;
};

// From the number of pixels in each cell. 240 entries go to eight bands of lightness by the square root of their
// pixels, within limits for each band, to the cells with most pixels; the last 16 to the colours that are worst served
// so far. Entries without a cell are black.
AdaptivePalette MakeAdaptivePalette(const std::vector<std::uint32_t>& counts);

}  // namespace qmr
