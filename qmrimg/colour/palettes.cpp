#include "qmrimg/colour/palettes.h"

#include <algorithm>

namespace qmr {
namespace {

constexpr int kColours = 256;

struct Row {
  int r;
  int g;
  int b;
};

constexpr void SetColour(Palette& palette, int i, const Row& row) {
  palette.colours[static_cast<std::size_t>(i)] = {static_cast<float>(row.r), static_cast<float>(row.g),
                                                  static_cast<float>(row.b), 0.0f};
}

template <std::size_t count>
constexpr Palette FromAnchors(double step, double blend, const Row (&anchors)[count]) {
  Palette palette{step, blend, {}};
  for (std::size_t i = 0; i < count; ++i) SetColour(palette, static_cast<int>(i), anchors[i]);
  SetColour(palette, static_cast<int>(count), anchors[count - 1]);
  return palette;
}

// The other 240 colours lie on straight lines between the sixteen, rounded to whole numbers.
constexpr Palette FromSixteenRows(const Row (&rows)[16]) {
  constexpr int kStep = 17;
  const auto between = [](int a, int b, int part) { return (a * (kStep - part) + b * part + kStep / 2) / kStep; };
  Palette palette{1.0, 1.0, {}};
  for (int i = 0; i <= kColours; ++i) {
    const int n = i < kColours ? i / kStep : 15;
    const int part = i < kColours ? i % kStep : 0;
    const Row& a = rows[n];
    const Row& b = rows[n < 15 ? n + 1 : n];
    SetColour(palette, i, {between(a.r, b.r, part), between(a.g, b.g, part), between(a.b, b.b, part)});
  }
  return palette;
}

// One channel after the other rises.
constexpr Palette Fire() {
  const auto rise = [](int from, int i) { return std::clamp(3 * (i - from), 0, 255); };
  Palette palette{1.0, 1.0, {}};
  for (int i = 0; i <= kColours; ++i) SetColour(palette, i, {rise(0, i), rise(85, i), rise(170, i)});
  return palette;
}

constexpr Palette kPalettes[] = {
    FromAnchors(63.75, 63.75, {{0, 0, 255}, {0, 255, 255}, {0, 255, 0}, {255, 255, 0}, {255, 0, 0}}),
    // The blend divides by 64 though the step is 42.5, on purpose: it stops short of the next colour and jumps there.
    FromAnchors(42.5, 64.0,
                {{0, 0, 0}, {0, 0, 255}, {0, 255, 255}, {0, 255, 0}, {255, 255, 0}, {255, 0, 0}, {255, 255, 255}}),
    FromAnchors(63.75, 63.75, {{0, 0, 0}, {0, 0, 128}, {0, 0, 255}, {128, 128, 255}, {255, 255, 255}}),
    FromSixteenRows({{0, 0, 0},
                     {0, 10, 14},
                     {0, 25, 34},
                     {0, 43, 57},
                     {0, 65, 82},
                     {0, 86, 109},
                     {0, 109, 135},
                     {10, 131, 157},
                     {33, 154, 177},
                     {61, 174, 193},
                     {94, 193, 209},
                     {132, 208, 220},
                     {166, 222, 231},
                     {197, 234, 239},
                     {225, 244, 246},
                     {246, 252, 252}}),
    FromSixteenRows({{0, 0, 0},
                     {21, 0, 0},
                     {48, 0, 0},
                     {81, 0, 0},
                     {113, 2, 0},
                     {143, 7, 0},
                     {172, 18, 0},
                     {194, 34, 11},
                     {209, 58, 35},
                     {221, 90, 63},
                     {230, 123, 98},
                     {237, 153, 131},
                     {243, 183, 167},
                     {247, 210, 198},
                     {251, 232, 226},
                     {253, 249, 248}}),
    Fire(),
};

}  // namespace

const Palette* FindPalette(int number) {
  return number >= 0 && number < static_cast<int>(std::size(kPalettes)) ? &kPalettes[number] : nullptr;
}

PaletteColour ColourOf(float value, const Palette* palette, int repeat) {
  double v = LimitTo255(value);
  if (repeat > 0) v = LimitTo255(Wrap(repeat * v));
  if (!palette) {
    const float grey = static_cast<float>(v);
    return {grey, grey, grey};
  }
  const int i = IndexOf(v, palette->step);
  const double way = WayOf(v, i, palette->step, palette->blend);
  const auto& from = palette->colours[static_cast<std::size_t>(i)];
  const auto& to = palette->colours[static_cast<std::size_t>(i) + 1];
  return {Blend(from[0], to[0], way), Blend(from[1], to[1], way), Blend(from[2], to[2], way)};
}

}  // namespace qmr
