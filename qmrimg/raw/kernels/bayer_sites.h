// Arithmetic of one site of a Bayer mosaic.
#pragma once

namespace qmr {

// Parities of the sites of the two colours in a 2 by 2 cell: the first colour ends up in plane 0, the second, which
// always stands diagonally from it, in plane 2. The other two sites are green.
struct BayerLayout {
  int firstRow;
  int firstColumn;

  // `pattern` 1 to 4.
  static constexpr BayerLayout Of(int pattern) {
    constexpr BayerLayout kLayouts[4] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    return kLayouts[pattern - 1];
  }
  static constexpr bool IsPattern(int pattern) { return pattern >= 1 && pattern <= 4; }
  bool IsFirstRow(int row) const { return (row & 1) == firstRow; }
  // Parity of the columns of a row that hold a colour and not green.
  int ColourColumn(int row) const { return IsFirstRow(row) ? firstColumn : 1 - firstColumn; }
};

// Means are formed in double and rounded once.
inline float MeanOf2(float a, float b) {
  return static_cast<float>((static_cast<double>(a) + b) * 0.5);
}
inline float MeanOf4(float a, float b, float c, float d) {
  return static_cast<float>((static_cast<double>(a) + b + c + d) * 0.25);
}

// The sum in float, divided by 3 in double and rounded. A float division gives the same value for every sum: double
// has more than twice the digits, and a third of a denormal never lies near the middle of two floats.
inline float BayerLuminance(float first, float green, float second) {
  return (first + green + second) / 3.0f;
}

}  // namespace qmr
