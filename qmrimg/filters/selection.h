// The limits that choose which pixels a filter may change, by their level in the source, and how much darker the
// sharpening filters may make them.
#pragma once

#include <span>
#include <vector>

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

  // Selects stand in the place of branches, so that loops over pixels vectorise. Not-a-number is not inside.
  bool Inside(float pixel) const { return (pixel >= b) & (pixel <= d); }
  bool Full(float pixel) const { return (pixel >= a) & (pixel <= c); }
  // Strength in a ramp; elsewhere it means nothing.
  float Ramp(float pixel) const {
    const float above = (d - pixel) / wc;
    const float below = (pixel - b) / wa;
    return pixel >= a ? above : below;
  }
  // `filtered` as the selection lets it through.
  float Blend(float pixel, float filtered) const {
    const float t = Ramp(pixel);
    const float faded = (1.0f - t) * pixel + t * filtered;
    const float inside = Full(pixel) ? filtered : faded;
    return Inside(pixel) ? inside : pixel;
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

// Arguments of one plane of a filter that may be kept from darkening.
struct SharpenLimits {
  SelectionLimits levels;
  int brighterOn;
  double brighter;
};

// Draws a result that is darker than its pixel back to the pixel.
struct DarkeningLimit {
  DarkeningLimit(int brighterOn, double brighter);

  float Apply(float pixel, float filtered) const {
    const float drawn = filtered + (pixel - filtered) * b;
    return (on & (filtered < pixel)) ? drawn : filtered;
  }

  bool on;
  // 1 draws all the way; a negative one pushes the result further away.
  float b;
};

// The arrays of a full form as one list, one entry a plane.
std::vector<SelectionLimits> LimitsOfPlanes(int planes, const int* minOn, const double* min, const double* minBuf,
                                            const int* maxOn, const double* max, const double* maxBuf);
std::vector<SharpenLimits> LimitsOfPlanes(int planes, const int* minOn, const double* min, const double* minBuf,
                                          const int* maxOn, const double* max, const double* maxBuf,
                                          const int* brighterOn, const double* brighter);

struct SharpenSelection {
  SharpenSelection(const CImage& source, int plane, const SharpenLimits& limits)
      : levels(source, plane, limits.levels), darkening(limits.brighterOn, limits.brighter) {}

  Selection levels;
  DarkeningLimit darkening;
};

// As BlendRow, with the darkening limit put on the filtered pixel before it is blended, or on the blended one. The
// filters differ in this order on purpose: it shows in the ramps.
void LimitThenBlendRow(const SharpenSelection& selection, std::span<const float> source,
                       std::span<const float> filtered, std::span<float> out);
void BlendThenLimitRow(const SharpenSelection& selection, std::span<const float> source,
                       std::span<const float> filtered, std::span<float> out);

}  // namespace qmr
