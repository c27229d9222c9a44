#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/simulate/options.h"
#include "host/simulate/random.h"
#include "host/simulate/truth.h"

namespace qmr::sim {

// Charge that lands in one pixel outside the optics: a part of a cosmic-ray track.
struct Deposit {
  int x = 0, y = 0;
  float electrons = 0;
};

// The camera with the vignetting and dust of its optics.
class Detector {
 public:
  // Checked options; `threads` at least 1.
  Detector(const SimulateOptions& options, int threads);

  // Part of the light that reaches and wakes each pixel of a row: 1 without vignetting, dust and defects.
  std::span<const float> Response(int y) const { return Row(response_, y); }
  // Dark current of a row with glow and hot pixels, electrons per second.
  std::span<const float> DarkCurrent(int y) const { return Row(dark_, y); }

  // Turns the mean electrons of row y into data units: photon noise, `deposits` (of any rows, sorted by row), full
  // well, read noise, gain, offset. `stream` and `frame` choose the noise; `mean` is lost. `scratch` holds two rows.
  void Expose(Stream stream, int frame, int y, std::span<float> mean, std::span<const Deposit> deposits,
              std::span<float> scratch, std::span<std::uint16_t> out) const;

  // Cosmic-ray hits of one exposure, sorted by row; `exposure` is any number that tells exposures apart.
  std::vector<Deposit> CosmicRays(int exposure) const;

  const std::vector<TruthPixel>& HotPixels() const { return hot_; }
  const std::vector<TruthPixel>& CoolPixels() const { return cool_; }

 private:
  std::span<const float> Row(const std::vector<float>& plane, int y) const {
    return {plane.data() + static_cast<std::size_t>(y) * width_, static_cast<std::size_t>(width_)};
  }
  std::vector<TruthPixel> Defects(Stream stream, double perMegapixel) const;
  void MakeResponse(int threads);
  void MakeDarkCurrent(int threads);

  const SimulateOptions options_;
  int width_ = 0;
  int height_ = 0;
  std::vector<float> response_;
  std::vector<float> dark_;
  std::vector<float> columnOffset_;  // data units, the offset included
  std::vector<TruthPixel> hot_;
  std::vector<TruthPixel> cool_;
};

}  // namespace qmr::sim
