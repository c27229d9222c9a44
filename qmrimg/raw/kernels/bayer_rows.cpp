#include "qmrimg/raw/kernels/bayer_rows.h"

#include <algorithm>

#include "qmrimg/raw/kernels/bayer_sites.h"

namespace qmr {

void SplitBayerRow(std::span<const float> row, float* even, float* odd) {
  const float* const from = row.data();
  const std::size_t pairs = row.size() / 2;
  float* const e = even;
  float* const o = odd;
#pragma omp simd
  for (std::size_t k = 0; k < pairs; ++k) {
    e[k] = from[2 * k];
    o[k] = from[2 * k + 1];
  }
  if (row.size() % 2 != 0) even[pairs] = row.back();
}

void JoinBayerRow(const SplitRow& row, int left, std::span<float> out) {
  if (out.empty()) return;
  float* to = out.data();
  std::size_t width = out.size();
  std::size_t first = static_cast<std::size_t>(left) / 2;
  if (left % 2 != 0) {
    *to++ = row.half[1][first++];
    --width;
  }
  const float* const e = row.half[0] + first;
  const float* const o = row.half[1] + first;
  const std::size_t pairs = width / 2;
  float* const pixels = to;
#pragma omp simd
  for (std::size_t k = 0; k < pairs; ++k) {
    pixels[2 * k] = e[k];
    pixels[2 * k + 1] = o[k];
  }
  if (width % 2 != 0) pixels[2 * pairs] = e[pairs];
}

void DiagonalMeans(const SplitRow& above, const SplitRow& below, int colourColumn, float* means, std::size_t count) {
  // Of a site in column 2k + parity the column to the left is entry k - 1 + parity of the other half.
  const float* const north = above.half[1 - colourColumn] + colourColumn;
  const float* const south = below.half[1 - colourColumn] + colourColumn;
  const float* const northWest = north - 1;
  const float* const southWest = south - 1;
  float* const to = means;
#pragma omp simd
  for (std::size_t k = 0; k < count; ++k) to[k] = MeanOf4(northWest[k], north[k], southWest[k], south[k]);
}

namespace {

// Rows of a colour site: its own colour, the four nearest green sites, and the diagonal mean.
template <bool kFirst, bool kColour>
void ColourSites(const BayerNeighbours& n, const BayerSites& sites, std::size_t count) {
  const int c = n.colourColumn;
  const float* const own = n.here.half[c];
  const float* const other = n.diagonals;
  const float* const east = n.here.half[1 - c] + c;
  const float* const west = east - 1;
  const float* const north = n.above.half[c];
  const float* const south = n.below.half[c];
  float* const luminance = sites.luminance;
  double* const d0 = sites.difference[0];
  double* const d1 = sites.difference[1];
  double* const d2 = sites.difference[2];
#pragma omp simd
  for (std::size_t k = 0; k < count; ++k) {
    const float first = kFirst ? own[k] : other[k];
    const float second = kFirst ? other[k] : own[k];
    const float green = MeanOf4(west[k], north[k], east[k], south[k]);
    const float y = BayerLuminance(first, green, second);
    luminance[k] = y;
    if constexpr (kColour) {
      d0[k] = static_cast<double>(first) - y;
      d1[k] = static_cast<double>(green) - y;
      d2[k] = static_cast<double>(second) - y;
    }
  }
}

// Rows of a green site: the row's own colour stands to the left and right, the other one above and below.
template <bool kFirst, bool kColour>
void GreenSites(const BayerNeighbours& n, const BayerSites& sites, std::size_t count) {
  const int g = 1 - n.colourColumn;
  const float* const here = n.here.half[g];
  const float* const east = n.here.half[1 - g] + g;
  const float* const west = east - 1;
  const float* const north = n.above.half[g];
  const float* const south = n.below.half[g];
  const float* const diagonalEast = n.diagonals + g;
  const float* const diagonalWest = diagonalEast - 1;
  const float* const diagonalNorth = n.diagonalsAbove;
  const float* const diagonalSouth = n.diagonalsBelow;
  float* const luminance = sites.luminance;
  double* const d0 = sites.difference[0];
  double* const d1 = sites.difference[1];
  double* const d2 = sites.difference[2];
#pragma omp simd
  for (std::size_t k = 0; k < count; ++k) {
    const float along = MeanOf4(west[k], diagonalNorth[k], east[k], diagonalSouth[k]);
    const float across = MeanOf4(diagonalWest[k], north[k], diagonalEast[k], south[k]);
    const float y = BayerLuminance(kFirst ? along : across, here[k], kFirst ? across : along);
    luminance[k] = y;
    if constexpr (kColour) {
      const float beside = MeanOf2(west[k], east[k]);
      const float stacked = MeanOf2(north[k], south[k]);
      d0[k] = static_cast<double>(kFirst ? beside : stacked) - y;
      d1[k] = static_cast<double>(here[k]) - y;
      d2[k] = static_cast<double>(kFirst ? stacked : beside) - y;
    }
  }
}

}  // namespace

void DevelopColourSites(const BayerNeighbours& n, const BayerSites& sites, std::size_t count) {
  n.isFirst ? ColourSites<true, true>(n, sites, count) : ColourSites<false, true>(n, sites, count);
}

void DevelopGreenSites(const BayerNeighbours& n, const BayerSites& sites, std::size_t count) {
  n.isFirst ? GreenSites<true, true>(n, sites, count) : GreenSites<false, true>(n, sites, count);
}

void LuminanceAtColourSites(const BayerNeighbours& n, float* luminance, std::size_t count) {
  const BayerSites sites{luminance, {nullptr, nullptr, nullptr}};
  n.isFirst ? ColourSites<true, false>(n, sites, count) : ColourSites<false, false>(n, sites, count);
}

void LuminanceAtGreenSites(const BayerNeighbours& n, float* luminance, std::size_t count) {
  const BayerSites sites{luminance, {nullptr, nullptr, nullptr}};
  n.isFirst ? GreenSites<true, false>(n, sites, count) : GreenSites<false, false>(n, sites, count);
}

void SynthesizeHalf(const BayerBox& box, const float* luminance, int column, float* out, std::size_t count) {
  const double* const east0 = box.beside[0] + column;
  const double* const east1 = box.beside[1] + column;
  const double* const east2 = box.beside[2] + column;
  const double* const west0 = east0 - 1;
  const double* const west1 = east1 - 1;
  const double* const west2 = east2 - 1;
  const double* const middle0 = box.same[0];
  const double* const middle1 = box.same[1];
  const double* const middle2 = box.same[2];
  const float* const y = luminance;
  float* const to = out;
#pragma omp simd
  for (std::size_t k = 0; k < count; ++k) {
    const double sum =
        west0[k] + middle0[k] + east0[k] + west1[k] + middle1[k] + east1[k] + west2[k] + middle2[k] + east2[k];
    to[k] = static_cast<float>(y[k] + sum / 9.0);
  }
}

}  // namespace qmr
