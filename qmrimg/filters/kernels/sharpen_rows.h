// Rows of the sharpening filters. Rows of one call have one length, that of the output; the output may be any of the
// inputs.
#pragma once

#include <span>

namespace qmr {

struct SharpenSelection;

// Unsharp mask: where the ratio of blurred pixel to pixel differs from 1 by `threshold` or more, their difference
// times `gain` is added to the pixel.
void UnSharpRow(std::span<const float> source, std::span<const float> blurred, double gain, double threshold,
                std::span<float> out);

// The same for the pixels that the selection chooses, without the ratio: its ramps scale the gain, and the darkening
// limit comes after them.
void UnSharpSelectedRow(const SharpenSelection& selection, std::span<const float> source,
                        std::span<const float> blurred, double gain, std::span<float> out);

// Blends two rows by an edge response, in units of `range`: one that is not below 0 takes `strong`, one below 0 takes
// of it the square of the response, and `weak` for the rest.
void EdgeBlendRow(std::span<const float> response, double range, std::span<const float> weak,
                  std::span<const float> strong, std::span<float> out);

// A band of a multi-scale mask: its blurred row, null for a band that counts as the source itself.
struct MaskBand {
  const float* blurred;
  float gain;
};

// The mean over the bands of (source - blurred) * gain + source. `out` is none of the other rows.
void BandMeanRow(std::span<const float> source, std::span<const MaskBand> bands, std::span<float> out);

}  // namespace qmr
