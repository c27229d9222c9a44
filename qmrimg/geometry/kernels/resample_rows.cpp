#include "qmrimg/geometry/kernels/resample_rows.h"

#include <algorithm>
#include <cmath>

#include "qmrimg/geometry/kernels/window_columns.h"

namespace qmr {
namespace {

// Columns that are worked on together; their pixels and weights stay in the first-level cache.
constexpr int kBlock = 64;

std::size_t PaddedToBlocks(int count) {
  return (static_cast<std::size_t>(count) + kBlock - 1) / kBlock * kBlock;
}

}  // namespace

// ---- Two by two pixels ---------------------------------------------------------------------------------------------

LinearPlace LinearRowPlace(int sourceHeight, float y) {
  const int last = sourceHeight - 1;
  const int row = static_cast<int>(y);
  const float fraction = y - static_cast<float>(row);
  const auto limited = [last](int r) { return std::clamp(r, 0, last); };
  if (fraction == 0.0f || last == 0) return {limited(row), limited(row), fraction};
  if (static_cast<float>(row) >= static_cast<float>(last))
    return {limited(row - 1), limited(row), y - static_cast<float>(row - 1)};
  return {limited(row), limited(row + 1), fraction};
}

LinearColumns::LinearColumns(int sourceWidth, float step, int width) : single_(sourceWidth == 1) {
  const float last = static_cast<float>(sourceWidth - 1);
  first_.assign(PaddedToBlocks(width), 0);
  fraction_.assign(first_.size(), 0.0f);
  for (int i = 0; i < width; ++i) {
    const float x = static_cast<float>(i) * step;
    int column = static_cast<int>(x);
    if (static_cast<float>(column) >= last) --column;
    fraction_[static_cast<std::size_t>(i)] = x - static_cast<float>(column);
    first_[static_cast<std::size_t>(i)] = std::clamp(column, 0, std::max(sourceWidth - 2, 0));
  }
}

void LinearColumns::Row(const float* upper, const float* lower, float fy, std::span<float> to) const {
  // The only column of a source is its own neighbour.
  const float doubled[2][2] = {{upper[0], upper[0]}, {lower[0], lower[0]}};
  const float* const rows[2] = {single_ ? doubled[0] : upper, single_ ? doubled[1] : lower};
  float pixels[2][2][kBlock];
  float samples[kBlock];
  for (std::size_t start = 0; start < to.size(); start += kBlock) {
    for (int r = 0; r < 2; ++r) GatherColumns<2, kBlock>(rows[r], first_.data() + start, pixels[r][0]);
    const float* const fraction = fraction_.data() + start;
#pragma omp simd
    for (int i = 0; i < kBlock; ++i) {
      const float fx = fraction[i];
      const float cross = fx * fy;
      const float p00 = pixels[0][0][i];
      const float sum = (1.0f - fx) * (1.0f - fy) * p00 + (fy - cross) * pixels[1][0][i] +
                        (fx - cross) * pixels[0][1][i] + cross * pixels[1][1][i];
      samples[i] = fx == 0.0f && fy == 0.0f ? p00 : sum;
    }
    std::copy_n(samples, std::min<std::size_t>(kBlock, to.size() - start), to.data() + start);
  }
}

// ---- Four by four pixels -------------------------------------------------------------------------------------------

namespace {

// Keys (1981) with a = -0.1. Exactly 0 at 1, where the sum of the terms would leave 3e-17 of a neighbour. The weights
// of a pixel sum to 1 within a few 1e-16: the result, which is a float by then, divided by them is itself.
double CubicKernel(double t) {
  if (t < 1.0) return 1.0 - 2.9 * t * t + 1.9 * t * t * t;
  return t > 1.0 && t < 2.0 ? 0.4 - 0.8 * t + 0.5 * t * t - 0.1 * t * t * t : 0.0;
}

}  // namespace

int CubicIndex(int index, int size) {
  const int last = size - 1;
  if (index > last) return 0;
  if (index >= 0) return index;
  return -index > last ? 0 : -index;
}

CubicPlace CubicPlaceOf(double position) {
  CubicPlace place;
  place.first = static_cast<int>(position) - 1;
  for (int k = 0; k < kCubicTaps; ++k)
    place.weights[static_cast<std::size_t>(k)] = CubicKernel(std::fabs(place.first + k - position));
  return place;
}

CubicColumns::CubicColumns(int sourceWidth, double step, int width) : sourceWidth_(sourceWidth), width_(width) {
  first_.assign(PaddedToBlocks(width) + kBlock, 0);
  for (std::vector<double>& weights : weights_) weights.assign(first_.size(), 0.0);
  for (int i = 0; i < width; ++i) {
    const std::size_t column = static_cast<std::size_t>(i);
    const CubicPlace place = CubicPlaceOf(i * step);
    first_[column] = place.first;
    for (std::size_t k = 0; k < kCubicTaps; ++k) weights_[k][column] = place.weights[k];
    if (place.first < 0) begin_ = i + 1;
    if (place.first + kCubicTaps <= sourceWidth) end_ = i + 1;
  }
  end_ = std::max(begin_, end_);
}

void CubicColumns::BorderPixel(std::span<const CubicLine> lines, const std::array<double, kCubicTaps>& rowWeights,
                               int i) const {
  const std::size_t column = static_cast<std::size_t>(i);
  for (const CubicLine& line : lines) {
    double sum = 0.0;
    for (std::size_t r = 0; r < kCubicTaps; ++r) {
      for (std::size_t k = 0; k < kCubicTaps; ++k) {
        if (rowWeights[r] == 0.0 || weights_[k][column] == 0.0) continue;
        const int x = CubicIndex(static_cast<int>(first_[column]) + static_cast<int>(k), sourceWidth_);
        sum += rowWeights[r] * weights_[k][column] * static_cast<double>(line.rows[r][x]);
      }
    }
    line.to[i] = static_cast<float>(sum);
  }
}

namespace {

// A value for each tap and each column of a block.
using Taps = float[kCubicTaps][kBlock];

using CubicSums = double[kCubicLines][kBlock];

// Adds the four columns of one row to the sums of all lines. A tap of weight 0 is left out where `guarded`: else
// infinite and blank pixels under it make the sum not-a-number.
template <int lines, bool guarded>
void AddTaps(double wy, const std::array<const double*, kCubicTaps>& columnWeights, const Taps (&pixels)[kCubicLines],
             CubicSums& sums) {
  const double* const wx[] = {columnWeights[0], columnWeights[1], columnWeights[2], columnWeights[3]};
#pragma omp simd
  for (int i = 0; i < kBlock; ++i) {
    double sum0 = sums[0][i], sum1 = 0.0, sum2 = 0.0;
    if constexpr (lines > 1) sum1 = sums[1][i];
    if constexpr (lines > 2) sum2 = sums[2][i];
    const auto add = [&](int k) {
      const double weight = wy * wx[k][i];
      const auto term = [&](int line) {
        return guarded && weight == 0.0 ? 0.0 : weight * static_cast<double>(pixels[line][k][i]);
      };
      sum0 += term(0);
      if constexpr (lines > 1) sum1 += term(1);
      if constexpr (lines > 2) sum2 += term(2);
    };
    // A loop over taps would keep the compilers from vectorising.
    add(0);
    add(1);
    add(2);
    add(3);
    sums[0][i] = sum0;
    if constexpr (lines > 1) sums[1][i] = sum1;
    if constexpr (lines > 2) sums[2][i] = sum2;
  }
}

bool HasNan(const double (&sums)[kBlock]) {
  // Infinities make their difference to themselves not-a-number, too: they are looked at twice in vain.
  double mixed[4] = {};
  for (int i = 0; i < kBlock; i += 4) {
    for (int k = 0; k < 4; ++k) mixed[k] += sums[i + k] - sums[i + k];
  }
  return !(mixed[0] + mixed[1] + mixed[2] + mixed[3] == 0.0);
}

}  // namespace

void CubicColumns::Row(std::span<const CubicLine> lines, const std::array<double, kCubicTaps>& rowWeights) const {
  for (int i = 0; i < begin_; ++i) BorderPixel(lines, rowWeights, i);
  for (int i = end_; i < width_; ++i) BorderPixel(lines, rowWeights, i);
  if (lines.size() == 1) WholeWindows<1>(lines, rowWeights);
  if (lines.size() == 2) WholeWindows<2>(lines, rowWeights);
  if (lines.size() == 3) WholeWindows<3>(lines, rowWeights);
}

template <int count>
void CubicColumns::WholeWindows(std::span<const CubicLine> lines,
                                const std::array<double, kCubicTaps>& rowWeights) const {
  std::ptrdiff_t corner[kBlock];
  std::array<const double*, kCubicTaps> columnWeights;
  Taps pixels[kCubicLines];
  CubicSums sums;
  for (int start = begin_; start < end_; start += kBlock) {
    const int columns = std::min(kBlock, end_ - start);
    // Behind the end lie padding and border columns: they take a place that exists and are not stored.
    for (int i = 0; i < kBlock; ++i) corner[i] = first_[static_cast<std::size_t>(start + std::min(i, columns - 1))];
    for (std::size_t k = 0; k < kCubicTaps; ++k) columnWeights[k] = weights_[k].data() + start;
    const auto add = [&](auto addTaps) {
      for (int line = 0; line < count; ++line) std::fill_n(sums[line], kBlock, 0.0);
      for (std::size_t r = 0; r < kCubicTaps; ++r) {
        if (rowWeights[r] == 0.0) continue;
        for (std::size_t line = 0; line < count; ++line)
          GatherColumns<kCubicTaps, kBlock>(lines[line].rows[r], corner, pixels[line][0]);
        addTaps(rowWeights[r], columnWeights, pixels, sums);
      }
    };
    add(AddTaps<count, false>);
    if (std::any_of(sums, sums + count, HasNan)) add(AddTaps<count, true>);
    for (int line = 0; line < count; ++line) {
      const double* const sum = sums[line];
      float* const to = lines[static_cast<std::size_t>(line)].to + start;
#pragma omp simd
      for (int i = 0; i < columns; ++i) to[i] = static_cast<float>(sum[i]);
    }
  }
}

// ---- Sums ----------------------------------------------------------------------------------------------------------

namespace {

template <int Bin>
void AddWholeBlocks(const float* from, std::ptrdiff_t count, float* to) {
#pragma omp simd
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    float sum = to[i];
    for (int k = 0; k < Bin; ++k) sum += from[i * Bin + k];
    to[i] = sum;
  }
}

}  // namespace

void AddBinnedRow(std::span<const float> from, int bin, std::span<float> to) {
  const std::size_t size = static_cast<std::size_t>(bin);
  const std::size_t whole = std::min(from.size() / size, to.size());
  const std::ptrdiff_t count = static_cast<std::ptrdiff_t>(whole);
  switch (bin) {
    case 1:
      AddWholeBlocks<1>(from.data(), count, to.data());
      break;
    case 2:
      AddWholeBlocks<2>(from.data(), count, to.data());
      break;
    case 3:
      AddWholeBlocks<3>(from.data(), count, to.data());
      break;
    case 4:
      AddWholeBlocks<4>(from.data(), count, to.data());
      break;
    default:
      for (std::size_t i = 0; i < whole; ++i) {
        for (std::size_t k = 0; k < size; ++k) to[i] += from[i * size + k];
      }
      break;
  }
  // The incomplete block.
  if (whole < to.size()) {
    for (std::size_t i = whole * size; i < from.size(); ++i) to[whole] += from[i];
  }
}

}  // namespace qmr
