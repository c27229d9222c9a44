// Bayer development, row by row.
//
// Rows are kept split by column parity, so that all sites of one class lie side by side: entry k of half 0 is column
// 2k, entry k of half 1 is column 2k + 1. The pointers of a half may be read one entry before the first and behind
// the last. `count` is the number of entries of a half. No output row may be one of the inputs.
#pragma once

#include <cstddef>
#include <span>

namespace qmr {

struct SplitRow {
  const float* half[2];
};

void SplitBayerRow(std::span<const float> row, float* even, float* odd);

// The reverse: columns left, left + 1, ... into `out`.
void JoinBayerRow(const SplitRow& row, int left, std::span<float> out);

// What the sites of one row read.
struct BayerNeighbours {
  // Mosaic rows above, here and below.
  SplitRow above, here, below;
  // Means of the four diagonal neighbours at the colour sites of the same rows: the colour that the row lacks.
  const float* diagonalsAbove;
  const float* diagonals;
  const float* diagonalsBelow;
  // Parity of the colour columns of this row, and whether their colour is the first.
  int colourColumn;
  bool isFirst;
};

// One half of a developed row: luminance, and the colours less the luminance in output order.
struct BayerSites {
  float* luminance;
  double* difference[3];
};

// Diagonal means of the row between the two; `colourColumn` is that of the row itself.
void DiagonalMeans(const SplitRow& above, const SplitRow& below, int colourColumn, float* means, std::size_t count);

// Luminance is the smooth one: at green sites each colour is the mean of four neighbours, two of which are diagonal
// means. Colours come from the one or two nearest pairs alone. The two are meant to differ at green sites.
void DevelopColourSites(const BayerNeighbours& n, const BayerSites& sites, std::size_t count);
void DevelopGreenSites(const BayerNeighbours& n, const BayerSites& sites, std::size_t count);
// The luminance alone.
void LuminanceAtColourSites(const BayerNeighbours& n, float* luminance, std::size_t count);
void LuminanceAtGreenSites(const BayerNeighbours& n, float* luminance, std::size_t count);

// Differences of one plane in three rows: the half of the sites themselves and the half of the columns beside them.
struct BayerBox {
  const double* same[3];
  const double* beside[3];
};

// Luminance plus the mean of the differences in the 3 by 3 neighbourhood of the sites of column parity `column`,
// summed in double, row by row.
void SynthesizeHalf(const BayerBox& box, const float* luminance, int column, float* out, std::size_t count);

}  // namespace qmr
