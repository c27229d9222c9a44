// The stars of a frame, and what they say of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/measure/star_meter.h"
#include "host/measure/star_plane.h"

namespace qmr {

enum class StarOrder { kFlux, kSnr, kFwhm, kX, kY };

struct MeasureOptions {
  struct Place {
    double x, y;
  };
  std::optional<std::string> bayer;
  Brightness brightness = Brightness::kLuminance;
  double threshold = 10.0;              // noise units
  std::size_t stars = 100;              // the brightest so many are told
  double minFwhm = 0.0, maxFwhm = 0.0;  // pixels of the file; 0: half and twice the usual
  StarOrder order = StarOrder::kFlux;
  std::vector<Place> at;  // tell of the stars there instead
};

struct FrameMeasure {
  std::string path;
  int width = 0, height = 0;
  std::string plane;  // what was measured
  std::int64_t blankPixels = 0;

  double sky = 0.0, noise = 0.0;  // level and standard deviation of a pixel, medians over the tiles of the SkyMap
  int found = 0, saturated = 0, hotPixels = 0;
  // Medians over the stars that are clear of the noise and not saturated, and how many these are. Without any, 0.
  int medianOf = 0;
  double fwhm = 0.0, ellipticity = 0.0, halfFlux = 0.0;
  double profileFwhm = 0.0;  // median of class PSF over them
  double focus = 0.0;
  double aperture = 0.0;  // radius in which fluxes are taken, pixels of the file
  double beta = 0.0;      // how the stars fall off: Moffat's exponent, 0 for Gaussians

  std::vector<MeasuredStar> stars;
  // One entry a place of the options; empty where no star is.
  std::vector<std::optional<MeasuredStar>> at;
};

// A Failure where the file holds nothing to measure.
FrameMeasure MeasureFrame(const std::string& path, const MeasureOptions& options);
// The same of a frame that is read already; takes its pixels.
FrameMeasure MeasureFrame(LightFrame& frame, const MeasureOptions& options);

// The frame with the least FWHM among those with at least five stars in it, or else with any; nothing without stars.
std::optional<std::size_t> Sharpest(const std::vector<FrameMeasure>& frames);

}  // namespace qmr
