// The limits that choose which pixels a filter may change, by their level in the source.
#pragma once

#include <cstddef>
#include <span>

#include "qmrimg/store/image.h"

namespace qmr {

// Arguments of one plane, on the 256-scale.
struct SelectionLimits {
  int minOn;
  double min;
  double minBuf;
  int maxOn;
  double max;
  double maxBuf;
};

// A pixel below `b` or above `d` is copied, one within a..c is filtered fully, and over the ramps between them the
// filter fades. Raw scale; a limit that is off lies at the end of the floats.
struct Selection {
  Selection(const CImage& source, int plane, const SelectionLimits& limits);

  // Not-a-number is not inside.
  bool Inside(float pixel) const { return pixel >= b && pixel <= d; }
  bool Full(float pixel) const { return pixel >= a && pixel <= c; }
  // Strength in a ramp.
  float Ramp(float pixel) const { return pixel >= a ? (d - pixel) / wc : (pixel - b) / wa; }
  // `filtered` as the selection lets it through.
  float Blend(float pixel, float filtered) const {
    if (!Inside(pixel)) return pixel;
    if (Full(pixel)) return filtered;
    const float t = Ramp(pixel);
    return (1.0f - t) * pixel + t * filtered;
  }

  float a;
  float b;
  float c;
  float d;
  // Widths of the lower and the upper ramp.
  float wa;
  float wc;
};

// out[x] = what the selection makes of source[x] and filtered[x]. The rows may be one.
void BlendRow(const Selection& selection, std::span<const float> source, std::span<const float> filtered,
              std::span<float> out);

}  // namespace qmr
