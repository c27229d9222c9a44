#include "host/night/registration/spline.h"

#include <algorithm>
#include <cstddef>

namespace qmr {

namespace {

constexpr float kPole = -0.26794919243112270f;  // sqrt(3) - 2
constexpr float kGain = 6.0f;
constexpr int kHorizon = 12;  // the pole's 12th power is 1e-7

// Start of the causal filter: the mirrored samples' sum of powers.
float CausalStart(const float* v, int count, std::ptrdiff_t stride) {
  float sum = v[0], power = kPole;
  for (int i = 1; i < std::min(count, kHorizon); ++i) {
    sum += power * v[i * stride];
    power *= kPole;
  }
  return sum;
}

}  // namespace

void SmoothLightly(float* plane, int width, int height, float* scratch) {
  if (width < 2 || height < 2) return;
  const auto row = [&](int y) { return plane + static_cast<std::ptrdiff_t>(y) * width; };
  for (int y = 0; y < height; ++y) {
    float* v = row(y);
    std::copy(v, v + width, scratch);
    v[0] = 0.25f * (3.0f * scratch[0] + scratch[1]);
    v[width - 1] = 0.25f * (3.0f * scratch[width - 1] + scratch[width - 2]);
#pragma omp simd
    for (int x = 1; x < width - 1; ++x) v[x] = 0.25f * (scratch[x - 1] + scratch[x + 1]) + 0.5f * scratch[x];
  }
  // `scratch` keeps the row above as it was.
  std::copy(plane, plane + width, scratch);
  for (int y = 0; y < height; ++y) {
    float* v = row(y);
    const float* below = row(std::min(y + 1, height - 1));
#pragma omp simd
    for (int x = 0; x < width; ++x) {
      const float here = v[x];
      v[x] = 0.25f * (scratch[x] + below[x]) + 0.5f * here;
      scratch[x] = here;
    }
  }
}

void SplineCoefficients(float* plane, int width, int height) {
  constexpr float kEnd = kPole / (kPole * kPole - 1.0f);
  if (width > 1) {
    for (int y = 0; y < height; ++y) {
      float* v = plane + static_cast<std::ptrdiff_t>(y) * width;
      v[0] = CausalStart(v, width, 1);
      for (int x = 1; x < width; ++x) v[x] += kPole * v[x - 1];
      v[width - 1] = kEnd * (v[width - 1] + kPole * v[width - 2]);
      for (int x = width - 2; x >= 0; --x) v[x] = kPole * (v[x + 1] - v[x]);
      for (int x = 0; x < width; ++x) v[x] *= kGain;
    }
  }
  if (height < 2) return;
  const auto row = [&](int y) { return plane + static_cast<std::ptrdiff_t>(y) * width; };
  for (int x = 0; x < width; ++x) plane[x] = CausalStart(plane + x, height, width);
  for (int y = 1; y < height; ++y) {
    float* v = row(y);
    const float* before = row(y - 1);
#pragma omp simd
    for (int x = 0; x < width; ++x) v[x] += kPole * before[x];
  }
  float* last = row(height - 1);
  const float* beforeLast = row(height - 2);
#pragma omp simd
  for (int x = 0; x < width; ++x) last[x] = kEnd * (last[x] + kPole * beforeLast[x]);
  for (int y = height - 2; y >= 0; --y) {
    float* v = row(y);
    const float* after = row(y + 1);
#pragma omp simd
    for (int x = 0; x < width; ++x) v[x] = kPole * (after[x] - v[x]);
  }
  const std::ptrdiff_t count = static_cast<std::ptrdiff_t>(width) * height;
#pragma omp simd
  for (std::ptrdiff_t i = 0; i < count; ++i) plane[i] *= kGain;
}

}  // namespace qmr
