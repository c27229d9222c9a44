// Analytic models of an uneven illumination. Coordinates are those of the pixel in the image, values are raw scale,
// everything is computed in double.
#pragma once

#include <span>

namespace qmr {

// Linear along a direction: slope * t + base, t = x * dirX + y * dirY - mid.
struct LineIllumination {
  double slope, base, dirX, dirY, mid;
};

// gradX * x + gradY * y + constant.
struct PlaneIllumination {
  double gradX, gradY, constant;
};

// curve * r * r + peak about a centre.
struct RadialIllumination {
  double curve, peak;
  int centreX, centreY;
};

// curve * (x * x + y * y) + gradX * x + gradY * y + constant; `vertex` is its value at the vertex, the level that
// the correction keeps.
struct ParaboloidIllumination {
  double curve, gradX, gradY, constant, vertex;
};

// How a model is taken out of an image.
struct IlluminationMode {
  enum class Kind { kSubtract, kDivide, kClear };
  Kind kind;
  // Added to pixels and model before the division, so that it can't meet a value near zero; not used otherwise.
  double offset;
};

// `left` is the column of the first pixel, `y` the row; `to` may be `from` and is as long.
void IlluminationRow(std::span<const float> from, std::span<float> to, int left, int y, const IlluminationMode& mode,
                     const LineIllumination& model);
void IlluminationRow(std::span<const float> from, std::span<float> to, int left, int y, const IlluminationMode& mode,
                     const PlaneIllumination& model);
void IlluminationRow(std::span<const float> from, std::span<float> to, int left, int y, const IlluminationMode& mode,
                     const RadialIllumination& model);
void IlluminationRow(std::span<const float> from, std::span<float> to, int left, int y, const IlluminationMode& mode,
                     const ParaboloidIllumination& model);

}  // namespace qmr
