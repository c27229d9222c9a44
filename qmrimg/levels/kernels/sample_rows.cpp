#include "qmrimg/levels/kernels/sample_rows.h"

#include <algorithm>
#include <cstddef>

#include "qmrimg/image/pixel_math.h"

namespace qmr {
namespace {

// Extremes don't depend on their order, so several run side by side.
constexpr std::size_t kSideBySide = 16;
constexpr std::size_t kPiece = 256;

// The terms are made across samples, without branches; those out of range add nothing.
template <class Term>
void AddInRange(std::span<const float> samples, float low, float high, SampleSums& sums, Term term) {
  SampleSums total = sums;
  double terms[kPiece];
  std::int32_t inside[kPiece];
  for (std::size_t start = 0; start < samples.size(); start += kPiece) {
    const float* const from = samples.data() + start;
    const std::size_t count = std::min(kPiece, samples.size() - start);
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) {
      const float v = from[x];
      const bool in = (v >= low) & (v <= high);
      const double value = term(static_cast<double>(v));
      terms[x] = in ? value : 0.0;
      inside[x] = in ? 1 : 0;
    }
    for (std::size_t x = 0; x < count; ++x) total.sum += terms[x];
    for (std::size_t x = 0; x < count; ++x) total.count += inside[x];
  }
  sums = total;
}

}  // namespace

void RawLuminanceRow(std::span<const float> r, std::span<const float> g, std::span<const float> b,
                     std::span<float> out) {
  const float* const red = r.data();
  const float* const green = g.data();
  const float* const blue = b.data();
  float* const to = out.data();
  const std::size_t width = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) to[x] = static_cast<float>(BrightInPlaneOrder(red[x], green[x], blue[x]));
}

void AddSamples(std::span<const float> samples, SampleSums& sums) {
  double sum = sums.sum;
  for (const float v : samples) sum += v;
  sums = {sum, sums.count + static_cast<std::int64_t>(samples.size())};
}

void AddSquares(std::span<const float> samples, double centre, SampleSums& sums) {
  double sum = sums.sum;
  for (const float v : samples) sum += (v - centre) * (v - centre);
  sums = {sum, sums.count + static_cast<std::int64_t>(samples.size())};
}

void AddSamplesInRange(std::span<const float> samples, float low, float high, SampleSums& sums) {
  AddInRange(samples, low, high, sums, [](double v) { return v; });
}

void AddSquaresInRange(std::span<const float> samples, float low, float high, double centre, SampleSums& sums) {
  AddInRange(samples, low, high, sums, [centre](double v) { return (v - centre) * (v - centre); });
}

void TakeExtremes(std::span<const float> samples, SampleExtremes& extremes) {
  const float* const from = samples.data();
  const std::size_t width = samples.size();
  float low[kSideBySide], high[kSideBySide];
  std::fill_n(low, kSideBySide, std::numeric_limits<float>::infinity());
  std::fill_n(high, kSideBySide, -std::numeric_limits<float>::infinity());
  std::size_t x = 0;
  for (; x + kSideBySide <= width; x += kSideBySide) {
#pragma omp simd
    for (std::size_t i = 0; i < kSideBySide; ++i) {
      const float v = from[x + i];
      low[i] = v < low[i] ? v : low[i];
      high[i] = v > high[i] ? v : high[i];
    }
  }
  for (; x < width; ++x) {
    low[0] = from[x] < low[0] ? from[x] : low[0];
    high[0] = from[x] > high[0] ? from[x] : high[0];
  }
  extremes.min = std::min<double>(extremes.min, *std::min_element(low, low + kSideBySide));
  extremes.max = std::max<double>(extremes.max, *std::max_element(high, high + kSideBySide));
}

void TakeLuminanceExtremes(std::span<const float> r, std::span<const float> g, std::span<const float> b,
                           const RowLevels (&levels)[3], SampleExtremes& extremes) {
  const RowLevels l0 = levels[0], l1 = levels[1], l2 = levels[2];
  SampleExtremes found = extremes;
  double piece[kPiece];
  for (std::size_t start = 0; start < r.size(); start += kPiece) {
    const float* const red = r.data() + start;
    const float* const green = g.data() + start;
    const float* const blue = b.data() + start;
    const std::size_t count = std::min(kPiece, r.size() - start);
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) {
      const auto r256 = static_cast<float>(To256(red[x], l0.min, l0.range));
      const auto g256 = static_cast<float>(To256(green[x], l1.min, l1.range));
      const auto b256 = static_cast<float>(To256(blue[x], l2.min, l2.range));
      piece[x] = BrightInPlaneOrder(r256, g256, b256);
    }
    for (std::size_t x = 0; x < count; ++x) {
      found.min = piece[x] < found.min ? piece[x] : found.min;
      found.max = piece[x] > found.max ? piece[x] : found.max;
    }
  }
  extremes = found;
}

void AddToBlocks(std::span<const float> samples, std::size_t first, int block, std::span<float> sums) {
  const auto b = static_cast<std::size_t>(block);
  std::size_t i = 0;
  for (std::size_t at = first / b; i < samples.size() && at < sums.size(); ++at) {
    const std::size_t end = std::min(samples.size(), (at + 1) * b - first);
    float sum = sums[at];
    for (; i < end; ++i) sum += samples[i];
    sums[at] = sum;
  }
}

void StretchRow(std::span<const float> src, std::span<float> dst, const Stretch& stretch) {
  const float* const from = src.data();
  float* const to = dst.data();
  const std::size_t width = dst.size();
  const Stretch s = stretch;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x)
    to[x] = static_cast<float>((from[x] - s.offsetIn) * s.scale + static_cast<double>(s.offsetOut));
}

}  // namespace qmr
