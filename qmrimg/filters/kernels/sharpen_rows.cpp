#include "qmrimg/filters/kernels/sharpen_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "qmrimg/filters/selection.h"

namespace qmr {

void UnSharpRow(std::span<const float> source, std::span<const float> blurred, double gain, double threshold,
                std::span<float> out) {
  const float* const pixels = source.data();
  const float* const means = blurred.data();
  float* const to = out.data();
  const std::size_t width = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float c = pixels[x];
    // A pixel of 0 has an infinite ratio, and passes.
    const float ratio = means[x] / c;
    const bool passes = std::fabs(static_cast<double>(ratio) - 1.0) >= threshold;
    const float sharpened = static_cast<float>(static_cast<double>(c - means[x]) * gain + static_cast<double>(c));
    to[x] = passes ? sharpened : c;
  }
}

void UnSharpSelectedRow(const SharpenSelection& selection, std::span<const float> source,
                        std::span<const float> blurred, double gain, std::span<float> out) {
  const Selection levels = selection.levels;
  const DarkeningLimit darkening = selection.darkening;
  const float* const pixels = source.data();
  const float* const means = blurred.data();
  float* const to = out.data();
  const std::size_t width = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float c = pixels[x];
    const double g = levels.Full(c) ? gain : gain * static_cast<double>(levels.Ramp(c));
    const float sharpened = static_cast<float>(static_cast<double>(c - means[x]) * g + static_cast<double>(c));
    const float limited = darkening.Apply(c, sharpened);
    to[x] = levels.Inside(c) ? limited : c;
  }
}

void EdgeBlendRow(std::span<const float> response, double range, std::span<const float> weak,
                  std::span<const float> strong, std::span<float> out) {
  const float* const responses = response.data();
  const float* const weaks = weak.data();
  const float* const strongs = strong.data();
  float* const to = out.data();
  const std::size_t width = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const double e = static_cast<double>(responses[x]) / range;
    // On purpose no clamp to 1: a response of 0 or above, or none that is a number, means full strength, and the small
    // negative ones next to none.
    const double edge = e < 0.0 ? e : 1.0;
    const float w = static_cast<float>(edge * edge);
    to[x] = (1.0f - w) * weaks[x] + w * strongs[x];
  }
}

void BandMeanRow(std::span<const float> source, std::span<const MaskBand> bands, std::span<float> out) {
  const float* const pixels = source.data();
  float* const to = out.data();
  const std::size_t width = out.size();
  bool started = false;
  for (const MaskBand& band : bands) {
    const float* const means = band.blurred;
    const float gain = band.gain;
    if (!started && means) {
#pragma omp simd
      for (std::size_t x = 0; x < width; ++x) to[x] = (pixels[x] - means[x]) * gain + pixels[x];
    } else if (!started) {
      std::copy_n(pixels, width, to);
    } else if (means) {
#pragma omp simd
      for (std::size_t x = 0; x < width; ++x) to[x] += (pixels[x] - means[x]) * gain + pixels[x];
    } else {
#pragma omp simd
      for (std::size_t x = 0; x < width; ++x) to[x] += pixels[x];
    }
    started = true;
  }
  const float count = static_cast<float>(bands.size());
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) to[x] /= count;
}

}  // namespace qmr
