// Rows of filtered pixels blended with the pixels that they come from.
#pragma once

#include <span>

namespace qmr {

// The raw level up to which the background reaches, and the width of the ramp below it in which smoothing fades out.
struct BackgroundLevels {
  float high;
  float width;
};

// Pixels above the level stay; others become the smoothed value, limited to the level. All in float. The rows may be
// one.
void BackgroundRow(std::span<const float> source, std::span<const float> smooth, std::span<float> out,
                   const BackgroundLevels& levels);

// source * (1 - mix) + filtered * mix, the second product rounded to float, the rest in double. The rows may be one.
void MixRow(std::span<const float> source, std::span<const float> filtered, std::span<float> out, double mix);

}  // namespace qmr
