#include "host/night/registration/binned_image.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qmr {

namespace {

constexpr float kLargest = std::numeric_limits<float>::max();

// Adds a row to sums and counts of its finite pixels.
void Accumulate(const float* row, int width, float* sums, float* counts) {
#pragma omp simd
  for (int x = 0; x < width; ++x) {
    const bool finite = std::fabs(row[x]) <= kLargest;
    sums[x] += finite ? row[x] : 0.0f;
    counts[x] += finite ? 1.0f : 0.0f;
  }
}

// Sliding sums along a line of `count` elements that lie `stride` apart, over `radius` to each side.
void BoxSums(const float* from, float* to, int count, std::ptrdiff_t stride, int radius) {
  double sum = 0.0;
  for (int i = 0; i < std::min(radius, count); ++i) sum += from[i * stride];
  for (int i = 0; i < count; ++i) {
    if (i + radius < count) sum += from[(i + radius) * stride];
    if (i - radius - 1 >= 0) sum -= from[(i - radius - 1) * stride];
    to[i * stride] = static_cast<float>(sum);
  }
}

void BoxSums2d(std::vector<float>& plane, int width, int height, int radius) {
  std::vector<float> rows(plane.size());
  for (int y = 0; y < height; ++y) {
    const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(y) * width;
    BoxSums(plane.data() + at, rows.data() + at, width, 1, radius);
  }
  // Down the columns, a row at a time.
  std::vector<double> sums(static_cast<std::size_t>(width), 0.0);
  const auto row = [&](int y) { return rows.data() + static_cast<std::ptrdiff_t>(y) * width; };
  for (int y = 0; y < std::min(radius, height); ++y) {
    for (int x = 0; x < width; ++x) sums[x] += row(y)[x];
  }
  for (int y = 0; y < height; ++y) {
    if (y + radius < height) {
      for (int x = 0; x < width; ++x) sums[x] += row(y + radius)[x];
    }
    if (y - radius - 1 >= 0) {
      for (int x = 0; x < width; ++x) sums[x] -= row(y - radius - 1)[x];
    }
    float* to = plane.data() + static_cast<std::ptrdiff_t>(y) * width;
    for (int x = 0; x < width; ++x) to[x] = static_cast<float>(sums[x]);
  }
}

// The noise of values about 0 by their median magnitude, from a sample; where most of a frame is empty to the last
// bit, a share of the root mean square stands in.
float NoiseOf(const std::vector<float>& values) {
  std::vector<float> sample;
  const std::size_t step = std::max<std::size_t>(1, values.size() / 20000);
  double squares = 0.0;
  for (std::size_t i = 0; i < values.size(); i += step) {
    sample.push_back(std::fabs(values[i]));
    squares += static_cast<double>(values[i]) * values[i];
  }
  if (sample.empty()) return 0.0f;
  const auto middle = sample.begin() + static_cast<std::ptrdiff_t>(sample.size() / 2);
  std::nth_element(sample.begin(), middle, sample.end());
  const double rms = std::sqrt(squares / static_cast<double>(sample.size()));
  return std::max(1.4826f * *middle, static_cast<float>(0.05 * rms));
}

void RemoveRowAndColumnMeans(BinnedImage& image) {
  const int width = image.width, height = image.height;
  std::vector<float> columns(static_cast<std::size_t>(width), 0.0f);
  for (int y = 0; y < height; ++y) {
    float* row = image.Row(y);
    double sum = 0.0;
    for (int x = 0; x < width; ++x) sum += row[x];
    const float mean = static_cast<float>(sum / width);
    for (int x = 0; x < width; ++x) {
      row[x] -= mean;
      columns[x] += row[x];
    }
  }
  for (int y = 0; y < height; ++y) {
    float* row = image.Row(y);
    for (int x = 0; x < width; ++x) row[x] -= columns[x] / static_cast<float>(height);
  }
}

}  // namespace

void DespikeRow(const float* above, const float* row, const float* below, int width, float* scratch, float* out) {
  if (width < 3) {
    std::copy(row, row + width, out);
    return;
  }
  float* low2 = scratch;
  float* high2 = low2 + width;
  float* low3 = high2 + width;
  float* high3 = low3 + width;
  // Comparisons are written so that not-a-number loses where it stands second.
#pragma omp simd
  for (int x = 0; x < width; ++x) {
    const float a = above[x], v = row[x], b = below[x];
    const float low = b < a ? b : a, high = b > a ? b : a;
    low2[x] = low;
    high2[x] = high;
    low3[x] = v < low ? v : low;
    high3[x] = v > high ? v : high;
  }
#pragma omp simd
  for (int x = 1; x < width - 1; ++x) {
    float low = low3[x - 1], high = high3[x - 1];
    low = low3[x + 1] < low ? low3[x + 1] : low;
    high = high3[x + 1] > high ? high3[x + 1] : high;
    low = low2[x] < low ? low2[x] : low;
    high = high2[x] > high ? high2[x] : high;
    float v = row[x];
    v = v > high ? high : v;
    out[x] = v < low ? low : v;
  }
  out[0] = row[0];
  out[width - 1] = row[width - 1];
}

BinnedImage Bin(const Luminance& image, int bin) {
  BinnedImage binned;
  binned.bin = bin;
  binned.width = image.Width() / bin;
  binned.height = image.Height() / bin;
  binned.pixels.resize(static_cast<std::size_t>(binned.width) * static_cast<std::size_t>(binned.height));
  const int width = image.Width();
  const auto columns = static_cast<std::size_t>(width);
  std::vector<float> work(10 * columns);
  float* const ring = work.data();
  float* const scratch = ring + 3 * columns;
  float* const clean = scratch + 4 * columns;
  float* const sums = clean + columns;
  float* const counts = sums + columns;
  const auto row = [&](int y) { return image.Row(y, ring + static_cast<std::size_t>(y % 3) * columns); };

  const int last = image.Height() - 1;
  const float* above = nullptr;
  const float* here = nullptr;
  const float* below = binned.height > 0 ? row(0) : nullptr;
  for (int y = 0; y < binned.height * bin; ++y) {
    above = here ? here : (last > 0 ? row(1) : below);
    here = below;
    below = y < last ? row(y + 1) : above;
    if (y % bin == 0) std::fill(sums, sums + 2 * columns, 0.0f);
    DespikeRow(above, here, below, width, scratch, clean);
    Accumulate(clean, width, sums, counts);
    if (y % bin != bin - 1) continue;
    float* to = binned.Row(y / bin);
    for (int i = 0; i < binned.width; ++i) {
      float sum = 0.0f, count = 0.0f;
      for (int k = i * bin; k < (i + 1) * bin; ++k) {
        sum += sums[k];
        count += counts[k];
      }
      to[i] = sum / count;
    }
  }
  return binned;
}

BinnedImage HalfSize(const BinnedImage& image) {
  BinnedImage half;
  half.bin = 2 * image.bin;
  half.width = image.width / 2;
  half.height = image.height / 2;
  half.pixels.resize(static_cast<std::size_t>(half.width) * static_cast<std::size_t>(half.height));
  for (int y = 0; y < half.height; ++y) {
    const float* a = image.Row(2 * y);
    const float* b = image.Row(2 * y + 1);
    float* to = half.Row(y);
    for (int x = 0; x < half.width; ++x) to[x] = (a[2 * x] + a[2 * x + 1] + b[2 * x] + b[2 * x + 1]) * 0.25f;
  }
  return half;
}

void CleanForCorrelation(BinnedImage& image) {
  constexpr int kRadius = 12;
  constexpr float kKnee = 12.0f;  // in noise units: what is far above grows no further
  std::vector<float>& v = image.pixels;
  std::vector<float> sums(v.size()), counts(v.size());
  for (std::size_t i = 0; i < v.size(); ++i) {
    const bool finite = std::fabs(v[i]) <= kLargest;
    sums[i] = finite ? v[i] : 0.0f;
    counts[i] = finite ? 1.0f : 0.0f;
  }
  BoxSums2d(sums, image.width, image.height, kRadius);
  BoxSums2d(counts, image.width, image.height, kRadius);
  for (std::size_t i = 0; i < v.size(); ++i) {
    v[i] = std::fabs(v[i]) <= kLargest ? v[i] - sums[i] / counts[i] : 0.0f;
  }
  const float noise = NoiseOf(v);
  if (!(noise > 0.0f) || !(noise <= kLargest)) {
    std::fill(v.begin(), v.end(), 0.0f);
    return;
  }
  const float perNoise = 1.0f / noise;
  for (float& value : v) {
    const float t = value * perNoise;
    value = t / (1.0f + std::fabs(t) * (1.0f / kKnee));
  }
  RemoveRowAndColumnMeans(image);
}

}  // namespace qmr
