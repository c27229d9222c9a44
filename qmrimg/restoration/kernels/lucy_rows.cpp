#include "qmrimg/restoration/kernels/lucy_rows.h"

#include <algorithm>

namespace qmr {
namespace {

constexpr std::size_t kLanes = 16;

// Calls body(x, lane) for each column.
template <class Body>
inline __attribute__((always_inline)) void AcrossLanes(std::size_t count, Body body) {
  const std::size_t whole = count - count % kLanes;
  for (std::size_t x = 0; x < whole; x += kLanes) {
#pragma omp simd
    for (std::size_t i = 0; i < kLanes; ++i) body(x + i, i);
  }
  for (std::size_t x = whole; x < count; ++x) body(x, x - whole);
}

double Total(const double (&lanes)[kLanes]) {
  double total = 0.0;
  for (const double lane : lanes) total += lane;
  return total;
}

// Sums of the two terms that terms(x, first, second) sets for each column.
template <class Terms>
inline __attribute__((always_inline)) LucySums SumTerms(std::size_t count, Terms terms) {
  double a[kLanes] = {}, b[kLanes] = {};
  for (std::size_t x = 0; x < count; x += kLanes) {
    const std::size_t lanes = std::min(kLanes, count - x);
    // A loop of their own for the elements: mixed with the sums it would not become vectors.
    float first[kLanes] = {}, second[kLanes] = {};
    if (lanes == kLanes) {
#pragma omp simd
      for (std::size_t i = 0; i < kLanes; ++i) terms(x + i, first[i], second[i]);
    } else {
      for (std::size_t i = 0; i < lanes; ++i) terms(x + i, first[i], second[i]);
    }
#pragma omp simd
    for (std::size_t i = 0; i < kLanes; ++i) {
      a[i] += first[i];
      b[i] += second[i];
    }
  }
  return {Total(a), Total(b)};
}

}  // namespace

LucySums MeanRow(const float* data, const float* mask, std::size_t count) {
  double sum[kLanes] = {}, weight[kLanes] = {};
  AcrossLanes(count, [=, &sum, &weight](std::size_t x, std::size_t i) {
    sum[i] += static_cast<double>(mask[x]) * data[x];
    weight[i] += mask[x];
  });
  return {Total(sum), Total(weight)};
}

float LargestOfRow(const float* row, std::size_t count) {
  float largest[kLanes];
  std::fill_n(largest, kLanes, -std::numeric_limits<float>::infinity());
  AcrossLanes(count,
              [=, &largest](std::size_t x, std::size_t i) { largest[i] = row[x] > largest[i] ? row[x] : largest[i]; });
  return *std::max_element(largest, largest + kLanes);
}

void FloorRow(float floor, float* norm, float* estimate, std::size_t count) {
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) {
    const bool low = norm[x] < floor;
    norm[x] = low ? 1.0f : norm[x];
    estimate[x] = low ? 0.0f : estimate[x];
  }
}

void RatioRow(const float* data, const float* mask, const float* blurred, const LucyNoise& noise, float* ratio,
              std::size_t count) {
  const double c = noise.constant, b = noise.background;
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) {
    const float d = static_cast<float>(blurred[x] + c + b);
    ratio[x] = static_cast<float>(data[x] + c + b) / (d == 0.0f ? 1.0f : d) * mask[x];
  }
}

void CorrectRow(const float* correlation, const float* norm, float* estimate, std::size_t count) {
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) estimate[x] *= correlation[x] / norm[x];
}

void StepRow(const float* estimate, const float* norm, float* correlation, std::size_t count) {
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) correlation[x] = estimate[x] * (correlation[x] / norm[x]) - estimate[x];
}

LucySums ConjugateRow(const float* blurredStep, const float* previous, const float* mask, const float* data,
                      const float* estimate, const LucyNoise& noise, std::size_t count) {
  const double c = noise.constant, gain = noise.gain;
  double a[kLanes] = {}, b[kLanes] = {};
  AcrossLanes(count, [=, &a, &b](std::size_t x, std::size_t i) {
    const double p = previous[x];
    const double weighted = p * mask[x] * gain;
    const double signal = data[x] + c;
    // The estimate itself and not the blurred one, on purpose: the choice of steps rests on it.
    const double model = (estimate[x] + c) * (estimate[x] + c);
    const double divisor = model != 0.0 ? model : 1.0;
    const double used = model != 0.0 ? weighted : 0.0;
    a[i] += blurredStep[x] * used * signal / divisor;
    b[i] += p * used * signal / divisor;
  });
  return {Total(a), Total(b)};
}

void CombineRow(const float* step, float factor, float* previous, std::size_t count) {
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) previous[x] = step[x] + factor * previous[x];
}

LucyRange RangeRow(float* estimate, float* step, std::size_t count) {
  const LucyRange none;
  float largest[kLanes], smallest[kLanes];
  std::fill_n(largest, kLanes, none.largest);
  std::fill_n(smallest, kLanes, none.smallest);
  AcrossLanes(count, [=, &largest, &smallest](std::size_t x, std::size_t i) {
    const bool negative = estimate[x] < 0.0f;
    const float e = negative ? 0.0f : estimate[x];
    const float s = negative ? 0.0f : step[x];
    const float factor = -e / (s != 0.0f ? s : 1.0f);
    largest[i] = s < 0.0f && factor < largest[i] ? factor : largest[i];
    smallest[i] = s > 0.0f && factor > smallest[i] ? factor : smallest[i];
    estimate[x] = e;
    step[x] = s;
  });
  return {*std::min_element(largest, largest + kLanes), *std::max_element(smallest, smallest + kLanes)};
}

LucySums NewtonRow(const float* data, const float* mask, const float* blurred, const float* blurredStep, float factor,
                   const LucyNoise& noise, std::size_t count) {
  const float c = static_cast<float>(noise.constant), b = static_cast<float>(noise.background);
  return SumTerms(count, [=](std::size_t x, float& slope, float& bend) {
    const float m = mask[x];
    const float signal = (data[x] + b) * m + c;
    const float model = (blurred[x] + b + blurredStep[x] * factor) * m + c;
    // Without read noise a dark pixel has no model to be compared with.
    const float relative = model != 0.0f ? blurredStep[x] * m / model : 0.0f;
    slope = (signal - model) * relative;
    bend = relative * relative * signal;
  });
}

void AdvanceRow(float factor, float* step, float* sum, std::size_t count) {
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) {
    const float s = step[x] * factor;
    step[x] = s;
    sum[x] += s;
  }
}

double ChiRow(const float* data, const float* mask, const float* blurred, const LucyNoise& noise, std::size_t count) {
  const float gain = static_cast<float>(noise.gain), b = static_cast<float>(noise.background);
  const float readVariance = noise.readVariance;
  const auto term = [=](std::size_t x, float& chi, float& none) {
    const float weight = mask[x] * gain;
    const float error = (blurred[x] - data[x]) * weight;
    const float variance = (blurred[x] + b) * weight + readVariance;
    chi = variance != 0.0f ? error * error / variance : 0.0f;
    none = 0.0f;
  };
  return SumTerms(count, term).first;
}

}  // namespace qmr
