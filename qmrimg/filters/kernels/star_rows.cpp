#include "qmrimg/filters/kernels/star_rows.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qmr {
namespace {

// The response beside the left and right edges, where windows on clamped columns sum in double, rounded after each
// term.
float ResponseAtEdge(const float* const* rows, int width, int x) {
  float sum = 0.0f;
  for (int dy = 0; dy < 3; ++dy) {
    for (int dx = -1; dx <= 1; ++dx) {
      const double tap = dy == 1 && dx == 0 ? 8.0 : -1.0;
      sum = static_cast<float>(sum + tap * rows[dy][std::clamp(x + dx, 0, width - 1)]);
    }
  }
  return std::fabs(sum);
}

}  // namespace

float StarLimit(double threshold, double levelRange) {
  const double limit = threshold * 256.0 / 255.0 * levelRange;
  const auto nearest = static_cast<float>(limit);
  return nearest < limit ? std::nextafter(nearest, std::numeric_limits<float>::infinity()) : nearest;
}

void ResponseRow(const float* const* rows, int width, int first, int last, float* out) {
  const float* const a = rows[0];
  const float* const b = rows[1];
  const float* const c = rows[2];
  const int begin = std::max(first, 1);
  const int end = std::min(last, width - 1);
#pragma omp simd
  for (int x = begin; x < end; ++x)
    out[x] = std::fabs(-a[x - 1] - a[x] - a[x + 1] - b[x - 1] + 8.0f * b[x] - b[x + 1] - c[x - 1] - c[x] - c[x + 1]);
  if (first == 0 && last > 0) out[0] = ResponseAtEdge(rows, width, 0);
  if (last == width && last > first) out[width - 1] = ResponseAtEdge(rows, width, width - 1);
}

void DropBelow(std::span<float> responses, float limit) {
  float* const values = responses.data();
  const std::size_t count = responses.size();
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) values[x] = values[x] < limit ? 0.0f : values[x];
}

void KeepBelow(std::span<const float> pixels, std::span<const float> responses, float limit, std::span<float> values,
               std::span<float> keep) {
  const float* const from = pixels.data();
  const float* const response = responses.data();
  float* const toValues = values.data();
  float* const toKeep = keep.data();
  const std::size_t count = pixels.size();
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) {
    const bool kept = response[x] < limit;
    toValues[x] = kept ? from[x] : 0.0f;
    toKeep[x] = kept ? 1.0f : 0.0f;
  }
}

void MarkDistances(std::span<const float> keep, std::span<int> distances) {
  // Farther than any column.
  constexpr std::ptrdiff_t kFar = std::numeric_limits<int>::max() / 2;
  const float* const from = keep.data();
  int* const to = distances.data();
  const auto count = static_cast<std::ptrdiff_t>(keep.size());
  for (std::ptrdiff_t previous = -kFar, x = 0; x < count;) {
    const std::ptrdiff_t mark = std::find(from + x, from + count, 0.0f) - from;
    const std::ptrdiff_t next = mark < count ? mark : kFar;
#pragma omp simd
    for (std::ptrdiff_t i = x; i < mark; ++i) to[i] = static_cast<int>(std::min(i - previous, next - i));
    if (mark < count) to[mark] = 0;
    previous = mark;
    x = mark + 1;
  }
}

void SetWithin(std::span<const int> distances, int reach, std::span<int> set) {
  const int* const from = distances.data();
  int* const to = set.data();
  const std::size_t count = set.size();
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) to[x] |= from[x] <= reach ? 1 : 0;
}

void WeightedMeanRow(std::span<const float> pixels, std::span<const int> unchanged, std::span<const float> sums,
                     std::span<const float> weights, std::span<float> out) {
  const float* const from = pixels.data();
  const int* const stay = unchanged.data();
  const float* const sum = sums.data();
  const float* const weight = weights.data();
  float* const to = out.data();
  const std::size_t count = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) {
    const float mean = sum[x] / weight[x];
    const bool stays = (stay[x] != 0) | (weight[x] == 0.0f);
    to[x] = stays ? from[x] : mean;
  }
}

void IndicatorRow(std::span<const float> a, std::span<const float> b, float same, float other, std::span<float> out) {
  const float* const left = a.data();
  const float* const right = b.data();
  float* const to = out.data();
  const std::size_t count = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) to[x] = left[x] == right[x] ? same : other;
}

void AbsoluteRow(std::span<float> row) {
  float* const values = row.data();
  const std::size_t count = row.size();
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) values[x] = std::fabs(values[x]);
}

void AddStars(std::span<const float> pixels, std::span<const float> stars, float gain, std::span<float> out) {
  const float* const from = pixels.data();
  const float* const star = stars.data();
  float* const to = out.data();
  const std::size_t count = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) to[x] = from[x] + star[x] * gain;
}

void StarsAlone(std::span<const float> stars, float gain, float ground, std::span<float> out) {
  const float* const star = stars.data();
  float* const to = out.data();
  const std::size_t count = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) to[x] = ground + star[x] * gain;
}

void BlendStars(std::span<const float> pixels, std::span<const float> stars, float gain, float ground,
                std::span<float> out) {
  const float* const from = pixels.data();
  const float* const star = stars.data();
  float* const to = out.data();
  const std::size_t count = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) to[x] = (star[x] * gain + from[x]) * 0.5f + ground;
}

}  // namespace qmr
