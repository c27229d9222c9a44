// Honeycomb development, row by row.
//
// Rows are kept split into quarters by column modulo 4, so that all sites of one place in the cell lie side by side:
// entry k of quarter q is column 4k + q. Entries -1 to `count` are computed, so one cell beyond both ends; sources
// have one entry more at both ends. No output may be one of the inputs. Values are formed in double and rounded
// once each.
#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace qmr {

template <class T>
struct QuarterRow {
  std::array<T*, 4> quarter;

  // Entry k of the result is column 4k + column; `column` may be beyond 0..3.
  T* At(int column) const { return quarter[static_cast<std::size_t>(column & 3)] + (column >> 2); }
};

// How the values that a site lacks are formed: by pairs of samples along rows, along columns, or the mean of both.
enum class HoneycombPairs { kRows, kColumns, kBoth };

// A value of a colour between the sites: half of the nearest sample and a quarter of each of two that lie opposite to
// it on average, so that a linear scene comes out exactly. A sample may be the nearest and one of the two.
struct HoneycombFill {
  const float* nearest;
  const float* first;
  const float* second;
};
using HoneycombPair = std::array<const float*, 2>;

// What one kernel reads for a place between the sites, at a red or blue site.
struct GapTaps {
  HoneycombFill red, blue;
};
struct ColourTaps {
  HoneycombPair green, other;
};

// Luminance, and red and blue less the luminance, of one quarter.
struct HoneycombQuarter {
  float* luminance;
  // Null when only the luminance is wanted.
  double* red;
  double* blue;
};

// Index 0 of `taps` are pairs along rows, index 1 pairs along columns; what `pairs` does not name is not read.
void DevelopGaps(const std::array<GapTaps, 2>& taps, const HoneycombPair& green, HoneycombPairs pairs,
                 const HoneycombQuarter& out, std::size_t count);
void DevelopColourSites(const float* own, bool isRed, const std::array<ColourTaps, 2>& taps, HoneycombPairs pairs,
                        const HoneycombQuarter& out, std::size_t count);
// Green sites have one pair of each colour on their diagonals.
void DevelopGreenSites(const float* own, const HoneycombPair& red, const HoneycombPair& blue,
                       const HoneycombQuarter& out, std::size_t count);

// Differences of one colour in the 3 by 3 neighbourhood, row by row.
using HoneycombBox = std::array<std::array<const double*, 3>, 3>;

// Red and blue: luminance plus the mean difference, summed in double; green from the rest. Entries 0 to count - 1.
void SynthesizeQuarter(const HoneycombBox& red, const HoneycombBox& blue, const float* luminance,
                       const std::array<float*, 3>& out, std::size_t count);

// One quarter of a row, and the reverse: columns left, left + 1, ... into `out`.
void SplitQuarter(std::span<const float> row, int quarter, float* out);
void JoinQuarters(const QuarterRow<const float>& row, int left, std::span<float> out);

}  // namespace qmr
