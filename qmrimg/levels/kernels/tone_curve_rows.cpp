#include "qmrimg/levels/kernels/tone_curve_rows.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace qmr {
namespace {

// dst[x] = value(index(src[x]), src[x]) in groups: the indices are computed across pixels, then looked up one by one.
template <class Index, class Value>
void MapGroups(std::span<const float> src, std::span<float> dst, Index index, Value value) {
  constexpr std::size_t kGroup = 512;
  int indices[kGroup];
  for (std::size_t begin = 0; begin < src.size(); begin += kGroup) {
    const std::size_t count = std::min(kGroup, src.size() - begin);
    const float* const from = src.data() + begin;
    float* const to = dst.data() + begin;
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) indices[i] = index(from[i]);
    for (std::size_t i = 0; i < count; ++i) to[i] = value(indices[i], from[i]);
  }
}

}  // namespace

// The line starts from the level of the last entry and not from input 255, on purpose: it meets the curve only where
// that ends like the identity, and saturated pixels of existing images depend on it.
double ToneBeyond(const float* table, int last, double v) {
  if (!table || last < 0 || v < 0.0) return 0.0;
  const double top = table[last];
  const double before = last > 0 ? static_cast<double>(table[last - 1]) : top;
  if (top == before) return top * 255.0;
  const double rise = (top - before) * last;
  return (v - top * 255.0) * (rise < 0.0 ? 0.0 : rise) + top * 255.0;
}

double ToneNormal(double v, double indexFactor, const float* table, int last) {
  if (!(v >= 0.0 && v <= 255.0) || !table || last < 0) return ToneBeyond(table, last, v);
  const double at = v * indexFactor;
  // The comparison holds for not-a-number and for factors of any size.
  return table[at >= 0.0 && at < last ? static_cast<int>(at) : (at >= last ? last : 0)] * 255.0;
}

ToneMap::ToneMap(const float* first, const float* second, int last, double levelMin, double levelRange)
    : first_(first),
      second_(second),
      last_(last),
      indexFactor_(last / 255.0),
      min_(static_cast<float>(levelMin)),
      range_(static_cast<float>(levelRange)),
      scale_(255.0 / static_cast<double>(range_)),
      results_(static_cast<std::size_t>(last) + 2) {
  for (int i = 0; i <= last; ++i) {
    double t = first[i] * 255.0;
    if (second) t = ToneNormal(t, indexFactor_, second, last);
    results_[static_cast<std::size_t>(i)] = static_cast<float>(t / scale_ + min_);
  }
  results_.back() = Result(-1.0);
}

float ToneMap::Result(double t) const {
  double v = ToneNormal(t, indexFactor_, first_, last_);
  if (second_) v = ToneNormal(v, indexFactor_, second_, last_);
  return static_cast<float>(v / scale_ + min_);
}

void ToneMap::Row(std::span<const float> src, std::span<float> dst) const {
  const float min = min_;
  const double scale = scale_;
  const double factor = indexFactor_;
  const double last = last_;
  const double below = last_ + 1.0;
  // A pixel at LevelMax takes the last entry even where the rounded scale misses 255 by a bit.
  const double whole = static_cast<double>(range_) * scale;
  const double low = std::min(255.0, whole);
  const double high = std::max(255.0, whole);
  const float* const results = results_.data();
  const auto scaled = [=](float v) { return static_cast<double>(v - min) * scale; };
  MapGroups(
      src, dst,
      [=](float v) {
        const double t = scaled(v);
        const double inside = t < 0.0 ? below : t * factor;
        const double entry = t >= low ? last : inside;
        return static_cast<int>(t <= high ? entry : -1.0);
      },
      [=, this](int index, float v) { return index >= 0 ? results[index] : Result(scaled(v)); });
}

ToneSteps::ToneSteps(int tones, double levelMin, double levelRange)
    : tones_(tones), min_(levelMin), scale_(255.0 / levelRange) {
  for (int q = 0; q < tones; ++q)
    results_[static_cast<std::size_t>(q)] = static_cast<float>(static_cast<double>(q) / tones * 255.0 / scale_ + min_);
  results_[static_cast<std::size_t>(tones)] = std::numeric_limits<float>::quiet_NaN();
}

// The division by 256 and not 255 keeps LevelMax in the top step, on purpose.
void ToneSteps::Row(std::span<const float> src, std::span<float> dst) const {
  const double min = min_;
  const double scale = scale_;
  const double tones = tones_;
  const float* const results = results_.data();
  MapGroups(
      src, dst,
      [=](float v) {
        const double t = (static_cast<double>(v) - min) * scale;
        const double raised = t < 0.0 ? 0.0 : t;
        const double limited = raised > 255.0 ? 255.0 : raised;
        return static_cast<int>(t == t ? limited * 0.00390625 * tones : tones);
      },
      [=](int index, float) { return results[index]; });
}

}  // namespace qmr
