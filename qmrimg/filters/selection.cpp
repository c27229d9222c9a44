#include "qmrimg/filters/selection.h"

#include <cfloat>
#include <cstddef>

namespace qmr {
namespace {

float ToRaw(const CImage& source, int plane, double level) {
  return static_cast<float>(level / 255.0 * source.GetLevelRange(plane) + source.GetLevelMin(plane));
}

}  // namespace

Selection::Selection(const CImage& source, int plane, const SelectionLimits& limits)
    : a(limits.minOn ? ToRaw(source, plane, limits.min) : -FLT_MAX),
      b(limits.minOn ? ToRaw(source, plane, limits.min - limits.minBuf) : -FLT_MAX),
      c(limits.maxOn ? ToRaw(source, plane, limits.max) : FLT_MAX),
      d(limits.maxOn ? ToRaw(source, plane, limits.max + limits.maxBuf) : FLT_MAX),
      wa(a - b),
      wc(d - c) {}

DarkeningLimit::DarkeningLimit(int brighterOn, double brighter)
    : on(brighterOn != 0),
      // Every value from 0 upwards acts as 100, on purpose: callers' settings rely on any of them to keep pixels from
      // darkening.
      b(static_cast<float>((brighter < 0.0 ? brighter : 100.0) / 100.0)) {}

std::vector<SelectionLimits> LimitsOfPlanes(int planes, const int* minOn, const double* min, const double* minBuf,
                                            const int* maxOn, const double* max, const double* maxBuf) {
  std::vector<SelectionLimits> limits;
  for (int p = 0; p < planes; ++p) limits.push_back({minOn[p], min[p], minBuf[p], maxOn[p], max[p], maxBuf[p]});
  return limits;
}

std::vector<SharpenLimits> LimitsOfPlanes(int planes, const int* minOn, const double* min, const double* minBuf,
                                          const int* maxOn, const double* max, const double* maxBuf,
                                          const int* brighterOn, const double* brighter) {
  std::vector<SharpenLimits> limits;
  for (const SelectionLimits& levels : LimitsOfPlanes(planes, minOn, min, minBuf, maxOn, max, maxBuf)) {
    const std::size_t p = limits.size();
    limits.push_back({levels, brighterOn[p], brighter[p]});
  }
  return limits;
}

namespace {

// out[x] = pixel(source[x], filtered[x])
template <class Pixel>
inline void ForPixels(std::span<const float> source, std::span<const float> filtered, std::span<float> out,
                      Pixel pixel) {
  const float* const pixels = source.data();
  const float* const values = filtered.data();
  float* const to = out.data();
  const std::size_t width = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) to[x] = pixel(pixels[x], values[x]);
}

}  // namespace

void BlendRow(const Selection& selection, std::span<const float> source, std::span<const float> filtered,
              std::span<float> out) {
  ForPixels(source, filtered, out, [s = selection](float c, float f) { return s.Blend(c, f); });
}

void LimitThenBlendRow(const SharpenSelection& selection, std::span<const float> source,
                       std::span<const float> filtered, std::span<float> out) {
  ForPixels(source, filtered, out,
            [s = selection](float c, float f) { return s.levels.Blend(c, s.darkening.Apply(c, f)); });
}

void BlendThenLimitRow(const SharpenSelection& selection, std::span<const float> source,
                       std::span<const float> filtered, std::span<float> out) {
  ForPixels(source, filtered, out,
            [s = selection](float c, float f) { return s.darkening.Apply(c, s.levels.Blend(c, f)); });
}

}  // namespace qmr
