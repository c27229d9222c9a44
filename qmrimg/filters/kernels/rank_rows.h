// What the filters make of a row of rank selections.
#pragma once

#include <span>

namespace qmr {

// Which pixels count as cool and hot: those that differ from their median by more than a fraction of themselves.
struct NoiseRule {
  bool cool;
  double coolThreshold;
  bool hot;
  double hotThreshold;
};

// out[x] = the median where the rule finds a noisy pixel, otherwise the pixel. The rows may be one.
void NoiseCutRow(std::span<const float> source, std::span<const float> medians, const NoiseRule& rule,
                 std::span<float> out);

// Which pixels a star filter leaves alone.
struct PeakRule {
  // Those that equal the greatest of their window.
  bool keepPeaks;
  // Those whose result is nearer than this fraction to the greatest; 0 for none.
  double threshold;
};

// out[x] = low + (high - low) * fraction, the pixel where the rule says so. `greatest` may be empty when the rule
// keeps nothing, `high` when the fraction plays no part. The rows may be one.
void StarSharpRow(std::span<const float> source, std::span<const float> low, std::span<const float> high,
                  float fraction, std::span<const float> greatest, const PeakRule& rule, std::span<float> out);

}  // namespace qmr
