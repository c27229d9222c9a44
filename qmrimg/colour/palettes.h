// The palettes of false colour.
#pragma once

#include <array>
#include <cstddef>

namespace qmr {

// A list of colours at equal steps over 0..255, 256-scale, the last one twice: a blend never has to ask for the end.
struct Palette {
  double step;
  // What the way from one colour to the next is divided by: the step, except where a blend is to stop short.
  double blend;
  std::array<std::array<float, 4>, 257> colours;
};

// Palette 0..5; null for any other number.
const Palette* FindPalette(int number);

struct PaletteColour {
  float r;
  float g;
  float b;
};

// `value` limited to 0..255, wrapped `repeat` times (0 and below: not at all) and looked up; grey without a palette.
// Not-a-number stays so.
PaletteColour ColourOf(float value, const Palette* palette, int repeat);

// ---- The steps of the look-up, for rows -----------------------------------------------------------------------------

// Literal comparisons: not-a-number stays.
inline double LimitTo255(double v) {
  const double raised = v < 0.0 ? 0.0 : v;
  return raised > 255.0 ? 255.0 : raised;
}

// The remainder of v / 256 for v from 0 to 255 times an int: every step is exact.
inline double Wrap(double v) {
  const double turns = v == v ? v * (1.0 / 256.0) : 0.0;
  return v - 256.0 * static_cast<double>(static_cast<int>(turns));
}

// The colour at or before v, and how far v is on the way to the next; not-a-number starts from the first colour.
inline int IndexOf(double v, double step) {
  return static_cast<int>((v == v ? v : 0.0) / step);
}
inline double WayOf(double v, int index, double step, double blend) {
  return (v - index * step) / blend;
}

inline float Blend(float from, float to, double way) {
  return static_cast<float>(from * (1.0 - way) + to * way);
}

}  // namespace qmr
