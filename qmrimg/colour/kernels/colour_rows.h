// Rows of the colour operations. Source and result may be the same rows.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "qmrimg/colour/palettes.h"
#include "qmrimg/image/kernels/level_rows.h"

namespace qmr {

// One line of the planes red, green and blue, all of one width.
using RgbSource = std::array<std::span<const float>, 3>;
using RgbResult = std::array<std::span<float>, 3>;

// dst = src + offset in float; the streaming form writes past the cache and has the same pixels. `column` is the column
// of the first pixel.
void OffsetRow(std::span<const float> src, std::span<float> dst, float offset);
void OffsetRowStreaming(std::span<const float> src, std::span<float> dst, int column, float offset);

// Correction about a level, raw scale, limited to the positive floats; not-a-number stays.
struct CorrectionAbout {
  double m[3][3];
  double level;
  double strength;
};
void CorrectRow(const RgbResult& rows, const CorrectionAbout& correction);

// Correction from the levels of the source into those of the result.
struct CorrectionBetween {
  double m[3][3];
  RowLevels from[3];
  RowLevels to[3];
  double strength;
};
void CorrectRow(const RgbSource& src, const RgbResult& dst, const CorrectionBetween& correction);

// The smallest pixel of the row and `least`; not-a-number does not count.
float LeastOfRow(std::span<const float> row, float least);

// False colour. The pixels' levels and those of the result are the result's; `low` is on the 256-scale of the source.
struct FalseColour {
  RowLevels levels[3];
  double low;
  float scale;
  const Palette* palette;  // null for grey
  int repeat;
};
void FalseColourRow(const RgbSource& src, const RgbResult& dst, const FalseColour& colour);
// A monochrome source.
void FalseColourRow(std::span<const float> src, const RgbResult& dst, const FalseColour& colour);

}  // namespace qmr
