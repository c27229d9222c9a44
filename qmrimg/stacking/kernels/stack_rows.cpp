#include "qmrimg/stacking/kernels/stack_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace qmr {
namespace {

// Pixels that are worked on together: 64 frames of them fit the first-level cache.
template <class Value>
constexpr int kLanes = 512 / static_cast<int>(sizeof(Value));

constexpr double kMaximumStart = 1.1754943508222875e-38;
constexpr double kMinimumStart = 3.4028234663852886e+38;

template <class Value>
bool NanLast(Value a, Value b) {
  return a < b || (a == a && b != b);
}

double Levelled(double v, const StackLevels& l) {
  return (v - l.offset) * l.gain + l.base;
}

// ---- One pixel -----------------------------------------------------------------------------------------------------

double MedianOf(const double* sorted, int n) {
  return n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) * 0.5;
}

double ClippedMeanOf(const double* sorted, int n, const StackRule& rule) {
  if (n == 1) return sorted[0];
  if (rule.pairRule && n == 2) return rule.kappa >= 1.0 ? (sorted[0] + sorted[1]) / 2.0 : 0.0;
  const double m = MedianOf(sorted, n);
  double sum = 0.0;
  for (int i = 0; i < n; ++i) sum += sorted[i];
  const double mean = sum / n;
  double squares = 0.0;
  for (int i = 0; i < n; ++i) squares += (sorted[i] - mean) * (sorted[i] - mean);
  const double sd = std::sqrt(squares / n);
  const double low = m - sd * rule.kappa;
  const double high = sd * rule.kappa + m;
  double kept = 0.0;
  double count = 0.0;
  for (int i = 0; i < n; ++i) {
    if (low <= sorted[i] && sorted[i] <= high) {
      kept += sorted[i];
      count += 1.0;
    }
  }
  if (count == 0.0) {
    kept = m;
    count = 1.0;
  }
  return rule.dropRejected ? kept / count : (kept + (n - count) * m) / n;
}

// The slow way: many frames, or not-a-number among the values.
template <class Value, class Valid>
float SortedPixel(StackPlan& plan, const Value* const* values, const Valid* const* valid, const StackLevels* levels,
                  int x) {
  double* const pixel = plan.PixelValues();
  int n = 0;
  for (int f = 0; f < plan.Frames(); ++f) {
    if (valid && !valid[f][x]) continue;
    const double v = static_cast<double>(values[f][x]);
    pixel[n++] = levels ? Levelled(v, levels[f]) : v;
  }
  if (n == 0) return 0.0f;
  if (plan.Rule().method == StackMethod::kMedian) {
    std::nth_element(pixel, pixel + n / 2, pixel + n, NanLast<double>);
    if (n % 2 == 0) std::swap(pixel[n / 2 - 1], *std::max_element(pixel, pixel + n / 2, NanLast<double>));
    return static_cast<float>(MedianOf(pixel, n));
  }
  std::sort(pixel, pixel + n, NanLast<double>);
  return static_cast<float>(ClippedMeanOf(pixel, n, plan.Rule()));
}

// ---- Many pixels ---------------------------------------------------------------------------------------------------

// A block of sorted stacks. Value w of pixel i is rows[w * Lanes + i]; behind a pixel's n values stand infinities.
template <class Work>
struct SortBlock {
  static constexpr int kWidth = kLanes<Work>;
  alignas(64) Work rows[StackPlan::kMaxNetwork * kWidth];
  int n[kWidth];
  int notNumber[kWidth];
};

// Frames into rows; false when a value is missing. Lanes beyond `count` repeat the last pixel.
template <class Work, class Value, class Valid>
bool Gather(const StackPlan& plan, const Value* const* values, const Valid* const* valid, const StackLevels* levels,
            int x, int count, SortBlock<Work>* block) {
  constexpr int kWidth = SortBlock<Work>::kWidth;
  constexpr Work kInfinity = std::numeric_limits<Work>::infinity();
  int* const n = block->n;
  int* const notNumber = block->notNumber;
  std::fill_n(n, kWidth, 0);
  std::fill_n(notNumber, kWidth, 0);
  const int frames = plan.Frames();
  for (int f = 0; f < frames; ++f) {
    Work* const row = block->rows + f * kWidth;
    const Value* const from = values[f] + x;
    if (levels) {
      const StackLevels l = levels[f];
#pragma omp simd
      for (int i = 0; i < count; ++i) row[i] = static_cast<Work>(Levelled(static_cast<double>(from[i]), l));
    } else {
#pragma omp simd
      for (int i = 0; i < count; ++i) row[i] = static_cast<Work>(from[i]);
    }
    if (valid) {
      const Valid* const ok = valid[f] + x;
#pragma omp simd
      for (int i = 0; i < count; ++i) {
        row[i] = ok[i] ? row[i] : kInfinity;
        n[i] += ok[i] ? 1 : 0;
      }
    }
#pragma omp simd
    for (int i = 0; i < count; ++i) notNumber[i] |= row[i] == row[i] ? 0 : 1;
    for (int i = count; i < kWidth; ++i) row[i] = row[count - 1];
  }
  if (!valid) std::fill_n(n, count, frames);
  for (int i = count; i < kWidth; ++i) n[i] = n[count - 1];
  int least = frames;
  for (int i = 0; i < count; ++i) least = std::min(least, n[i]);
  return least == frames;
}

// Medians of sorted stacks; 0.0 of none.
template <class Work>
void BlockMedians(const SortBlock<Work>& block, int frames, bool full, double* median) {
  constexpr int kWidth = SortBlock<Work>::kWidth;
  if (full) {
    const Work* const low = block.rows + (frames - 1) / 2 * kWidth;
    const Work* const high = block.rows + frames / 2 * kWidth;
    if (frames % 2) {
#pragma omp simd
      for (int i = 0; i < kWidth; ++i) median[i] = static_cast<double>(high[i]);
    } else {
#pragma omp simd
      for (int i = 0; i < kWidth; ++i) median[i] = (static_cast<double>(low[i]) + static_cast<double>(high[i])) * 0.5;
    }
    return;
  }
  for (int i = 0; i < kWidth; ++i) {
    const int n = block.n[i];
    const auto at = [&](int w) { return static_cast<double>(block.rows[w * kWidth + i]); };
    median[i] = n == 0 ? 0.0 : n % 2 ? at(n / 2) : (at(n / 2 - 1) + at(n / 2)) * 0.5;
  }
}

// The steps of ClippedMeanOf on all pixels at once; Full: every pixel has a value of every frame.
template <bool Full, class Work>
void BlockClippedMeans(const SortBlock<Work>& block, int frames, const StackRule& rule, const double* median,
                       float* out) {
  constexpr int kWidth = SortBlock<Work>::kWidth;
  const Work* const rows = block.rows;
  double n[kWidth], mean[kWidth], low[kWidth], high[kWidth];
  double sum[kWidth] = {}, squares[kWidth] = {}, kept[kWidth] = {}, count[kWidth] = {};
#pragma omp simd
  for (int i = 0; i < kWidth; ++i) n[i] = block.n[i];
  for (int f = 0; f < frames; ++f) {
    const Work* const row = rows + f * kWidth;
    const double wire = f;
#pragma omp simd
    for (int i = 0; i < kWidth; ++i) {
      const double v = static_cast<double>(row[i]);
      sum[i] += Full || wire < n[i] ? v : 0.0;
    }
  }
#pragma omp simd
  for (int i = 0; i < kWidth; ++i) mean[i] = sum[i] / n[i];
  for (int f = 0; f < frames; ++f) {
    const Work* const row = rows + f * kWidth;
    const double wire = f;
#pragma omp simd
    for (int i = 0; i < kWidth; ++i) {
      const double d = static_cast<double>(row[i]) - mean[i];
      const double square = d * d;
      squares[i] += Full || wire < n[i] ? square : 0.0;
    }
  }
  const double kappa = rule.kappa;
#pragma omp simd
  for (int i = 0; i < kWidth; ++i) {
    const double sd = std::sqrt(squares[i] / n[i]);
    low[i] = median[i] - sd * kappa;
    high[i] = sd * kappa + median[i];
  }
  for (int f = 0; f < frames; ++f) {
    const Work* const row = rows + f * kWidth;
    const double wire = f;
#pragma omp simd
    for (int i = 0; i < kWidth; ++i) {
      // One choice after the other: the baseline processor has vector forms of these, not of a joint condition.
      const double v = static_cast<double>(row[i]);
      double one = low[i] <= v ? 1.0 : 0.0;
      one = v <= high[i] ? one : 0.0;
      if constexpr (!Full) one = wire < n[i] ? one : 0.0;
      kept[i] += one != 0.0 ? v : 0.0;
      count[i] += one;
    }
  }
  for (int i = 0; i < kWidth; ++i) {
    const double k = count[i] == 0.0 ? median[i] : kept[i];
    const double c = count[i] == 0.0 ? 1.0 : count[i];
    double value = rule.dropRejected ? k / c : (k + (n[i] - c) * median[i]) / n[i];
    if (rule.pairRule && n[i] == 2.0)
      value = kappa >= 1.0 ? (static_cast<double>(rows[i]) + static_cast<double>(rows[kWidth + i])) / 2.0 : 0.0;
    if (n[i] == 1.0) value = static_cast<double>(rows[i]);
    out[i] = n[i] == 0.0 ? 0.0f : static_cast<float>(value);
  }
}

template <class Work, class Value, class Valid>
void SortedRow(StackPlan& plan, const Value* const* values, const Valid* const* valid, const StackLevels* levels,
               int width, float* out) {
  constexpr int kWidth = SortBlock<Work>::kWidth;
  const int frames = plan.Frames();
  if (frames > StackPlan::kMaxNetwork) {
    for (int x = 0; x < width; ++x) out[x] = SortedPixel(plan, values, valid, levels, x);
    return;
  }
  const bool wantMedian = plan.Rule().method == StackMethod::kMedian;
  SortBlock<Work> block;
  double median[kWidth];
  float result[kWidth];
  for (int x = 0; x < width; x += kWidth) {
    const int count = std::min(kWidth, width - x);
    const bool full = Gather(plan, values, valid, levels, x, count, &block);
    RunNetwork<kWidth>(wantMedian && full ? plan.Median() : plan.Sort(), block.rows);
    BlockMedians(block, frames, full, median);
    if (wantMedian) {
#pragma omp simd
      for (int i = 0; i < kWidth; ++i) result[i] = static_cast<float>(median[i]);
    } else if (full) {
      BlockClippedMeans<true>(block, frames, plan.Rule(), median, result);
    } else {
      BlockClippedMeans<false>(block, frames, plan.Rule(), median, result);
    }
    for (int i = 0; i < count; ++i)
      out[x + i] = block.notNumber[i] ? SortedPixel(plan, values, valid, levels, x + i) : result[i];
  }
}

// Maximum, minimum and mean, frame by frame in their order.
template <class Value, class Valid>
void RunningRow(const StackPlan& plan, const Value* const* values, const Valid* const* valid, int width, float* out) {
  constexpr int kWidth = 64;
  const StackMethod method = plan.Rule().method;
  const double start = method == StackMethod::kMaximum   ? kMaximumStart
                       : method == StackMethod::kMinimum ? kMinimumStart
                                                         : 0.0;
  double state[kWidth];
  double ok[kWidth];
  double n[kWidth];
  for (int x = 0; x < width; x += kWidth) {
    const int count = std::min(kWidth, width - x);
    std::fill_n(state, kWidth, start);
    std::fill_n(ok, kWidth, 1.0);
    std::fill_n(n, kWidth, 0.0);
    for (int f = 0; f < plan.Frames(); ++f) {
      const Value* const v = values[f] + x;
      if (valid) {
        const Valid* const flag = valid[f] + x;
#pragma omp simd
        for (int i = 0; i < count; ++i) ok[i] = flag[i] ? 1.0 : 0.0;
      }
#pragma omp simd
      for (int i = 0; i < count; ++i) n[i] += ok[i];
      if (method == StackMethod::kMaximum) {
#pragma omp simd
        for (int i = 0; i < count; ++i) {
          const double value = static_cast<double>(v[i]);
          const double larger = value > state[i] ? value : state[i];
          state[i] = ok[i] != 0.0 ? larger : state[i];
        }
      } else if (method == StackMethod::kMinimum) {
#pragma omp simd
        for (int i = 0; i < count; ++i) {
          const double value = static_cast<double>(v[i]);
          const double smaller = value < state[i] ? value : state[i];
          state[i] = ok[i] != 0.0 ? smaller : state[i];
        }
      } else {
#pragma omp simd
        for (int i = 0; i < count; ++i) {
          const double value = static_cast<double>(v[i]);
          state[i] += ok[i] != 0.0 ? value : 0.0;
        }
      }
    }
    for (int i = 0; i < count; ++i) {
      const double value = method == StackMethod::kMean ? state[i] / n[i] : state[i];
      out[x + i] = n[i] == 0.0 ? 0.0f : static_cast<float>(value);
    }
  }
}

}  // namespace

StackPlan::StackPlan(const StackRule& rule, int frames)
    : rule_(rule), frames_(std::max(frames, 0)), pixel_(static_cast<std::size_t>(std::max(frames, 1))) {
  if (frames_ > kMaxNetwork) return;
  sort_ = SortNetwork(frames_);
  if (frames_ > 0) median_ = PruneNetwork(sort_, frames_, (frames_ - 1) / 2, frames_ / 2);
}

template <class Value, class Valid>
void StackRow(StackPlan& plan, const Value* const* values, const Valid* const* valid, const StackLevels* levels,
              int width, float* out) {
  const StackMethod method = plan.Rule().method;
  if (plan.Frames() == 0)
    std::fill_n(out, std::max(width, 0), 0.0f);
  else if (method != StackMethod::kMedian && method != StackMethod::kClippedMean)
    RunningRow(plan, values, valid, width, out);
  else if (levels)
    SortedRow<double>(plan, values, valid, levels, width, out);
  else
    SortedRow<Value>(plan, values, valid, levels, width, out);
}

template void StackRow<double, int>(StackPlan&, const double* const*, const int* const*, const StackLevels*, int,
                                    float*);
template void StackRow<float, std::uint8_t>(StackPlan&, const float* const*, const std::uint8_t* const*,
                                            const StackLevels*, int, float*);

}  // namespace qmr
