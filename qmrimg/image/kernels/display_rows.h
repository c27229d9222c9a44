// Rows of pixels into rows of bitmaps: levels to bytes, and bytes to the layouts of the bitmaps.
//
// In between a pixel is a word 0x00RRGGBB: red, green and blue in 8 bits each, blue lowest, as bitmaps of 24 and 32
// bits store it in memory. A gray pixel has its value in all three.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qmrimg/image/pixel_math.h"

namespace qmr {

// Pixels that are worked on at a time: the words stay in the first-level cache.
inline constexpr std::size_t kDisplayChunk = 1024;

void GrayWords(const float* gray, std::size_t count, const DisplayLevels& levels, std::uint32_t* words);
void GrayWords(const float* gray, std::size_t count, const BlockLevels& levels, std::uint32_t* words);
void RgbWords(const float* r, const float* g, const float* b, std::size_t count, const DisplayLevels (&levels)[3],
              std::uint32_t* words);
void RgbWords(const float* r, const float* g, const float* b, std::size_t count, const BlockLevels (&levels)[3],
              std::uint32_t* words);

// The value of gray pixels as an index.
void StoreGray8(const std::uint32_t* words, std::size_t count, std::uint8_t* dst);
// Two bits of blue, three of green, three of red, from the top.
void StoreRgb8(const std::uint32_t* words, std::size_t count, std::uint8_t* dst);
// 5-5-5, red in bits 10 to 14. `phase` is x + y of the first pixel: where it is even, 4 is added to each channel, up
// to 255, which dithers away the lost bits.
void StoreDithered16(const std::uint32_t* words, std::size_t count, int phase, std::uint8_t* dst);
void Store24(const std::uint32_t* words, std::size_t count, std::uint8_t* dst);
// The fourth byte stays.
void Store32(const std::uint32_t* words, std::size_t count, std::uint8_t* dst);

}  // namespace qmr
