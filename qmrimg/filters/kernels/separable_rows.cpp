#include "qmrimg/filters/kernels/separable_rows.h"

#include <algorithm>

#include "qmrimg/filters/kernels/lanes.h"

namespace qmr {
namespace {

// Vectors side by side in the horizontal pass: enough sums to hide the latency of an addition.
constexpr int kAlong = 4;
// Vectors side by side in the vertical pass, beside kRowsAtOnce rows.
constexpr int kAcross = 2;

static_assert(kColumnsAtOnce % (kAlong * kLanes) == 0 && kColumnsAtOnce % (kAcross * kLanes) == 0);

// Adds row `i` of the window to the sums of the outputs that have it as a tap; `All`: all of them have.
template <int Rows, bool All>
inline void AddRow(DoubleLanes (&sums)[Rows][kAcross], const float* row, const double* kernel, int size, int i) {
  DoubleLanes pixels[kAcross];
  for (int b = 0; b < kAcross; ++b) pixels[b] = LoadLanes(row + b * kLanes);
  for (int r = 0; r < Rows; ++r) {
    const int k = i - r;
    if (!All && (k < 0 || k >= size)) continue;
    const double tap = kernel[k];
    for (int b = 0; b < kAcross; ++b) sums[r][b] += pixels[b] * tap;
  }
}

template <int Rows>
void AcrossRows(const float* const* rows, const double* kernel, int size, std::size_t width, float* const* out) {
  for (std::size_t x = 0; x < width; x += kAcross * kLanes) {
    DoubleLanes sums[Rows][kAcross] = {};
    int i = 0;
    for (; i < Rows - 1; ++i) AddRow<Rows, false>(sums, rows[i] + x, kernel, size, i);
    for (; i < size; ++i) AddRow<Rows, true>(sums, rows[i] + x, kernel, size, i);
    for (; i < size + Rows - 1; ++i) AddRow<Rows, false>(sums, rows[i] + x, kernel, size, i);
    for (int r = 0; r < Rows; ++r)
      for (int b = 0; b < kAcross; ++b) StoreLanes(out[r] + x + b * kLanes, sums[r][b]);
  }
}

}  // namespace

int SeparableSourceRow(std::int64_t y, int height) {
  const std::int64_t h = height;
  std::int64_t r = y % (2 * h);
  if (r < 0) r = -r;
  if (r >= h) r = 2 * h - r - 1;
  return static_cast<int>(r);
}

void WidenRow(std::span<const float> src, int left, int radius, std::span<double> out) {
  const std::int64_t width = static_cast<std::int64_t>(src.size());
  const std::int64_t count = static_cast<std::int64_t>(out.size());
  const std::int64_t start = static_cast<std::int64_t>(left) - radius;
  // Output positions whose column lies inside the row.
  const std::int64_t first = std::clamp<std::int64_t>(-start, 0, count);
  const std::int64_t last = std::clamp<std::int64_t>(width - start, first, count);
  const float* const from = src.data();
  double* const to = out.data();
  std::fill(to, to + first, static_cast<double>(src.front()));
#pragma omp simd
  for (std::int64_t x = first; x < last; ++x) to[x] = static_cast<double>(from[start + x]);
  std::fill(to + last, to + count, static_cast<double>(src.back()));
}

void FilterAlongRow(const double* src, std::span<const double> kernel, std::span<float> out) {
  const double* const taps = kernel.data();
  const int size = static_cast<int>(kernel.size());
  float* const to = out.data();
  const std::size_t width = out.size();
  for (std::size_t x = 0; x < width; x += kAlong * kLanes) {
    DoubleLanes sums[kAlong] = {};
    for (int k = 0; k < size; ++k) {
      const double tap = taps[k];
      for (int b = 0; b < kAlong; ++b) sums[b] += LoadLanes(src + x + k + b * kLanes) * tap;
    }
    for (int b = 0; b < kAlong; ++b) StoreLanes(to + x + b * kLanes, sums[b]);
  }
}

void FilterAcrossRows(const float* const* rows, std::span<const double> kernel, int count, std::size_t width,
                      float* const* out) {
  const int size = static_cast<int>(kernel.size());
  if (count == kRowsAtOnce) {
    AcrossRows<kRowsAtOnce>(rows, kernel.data(), size, width, out);
    return;
  }
  for (int r = 0; r < count; ++r) AcrossRows<1>(rows + r, kernel.data(), size, width, out + r);
}

}  // namespace qmr
