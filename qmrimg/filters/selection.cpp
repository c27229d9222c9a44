#include "qmrimg/filters/selection.h"

#include <cfloat>

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

void BlendRow(const Selection& selection, std::span<const float> source, std::span<const float> filtered,
              std::span<float> out) {
  const Selection s = selection;
  const float* const pixels = source.data();
  const float* const values = filtered.data();
  float* const to = out.data();
  const std::size_t width = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    // As Selection::Blend, with selects in the place of branches.
    const float pixel = pixels[x];
    const float value = values[x];
    const float above = (s.d - pixel) / s.wc;
    const float below = (pixel - s.b) / s.wa;
    const float t = pixel >= s.a ? above : below;
    const float ramp = (1.0f - t) * pixel + t * value;
    const float inside = ((pixel >= s.a) & (pixel <= s.c)) ? value : ramp;
    to[x] = ((pixel >= s.b) & (pixel <= s.d)) ? inside : pixel;
  }
}

}  // namespace qmr
