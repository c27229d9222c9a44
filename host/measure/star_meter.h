// Measures single stars of a plane.
#pragma once

#include <optional>
#include <vector>

#include "host/measure/sky_map.h"
#include "host/measure/star_finder.h"
#include "host/measure/star_fit.h"
#include "host/measure/star_plane.h"

namespace qmr {

// Lengths are pixels of the file, values those of the file.
struct MeasuredStar {
  double x = 0.0, y = 0.0;
  double fwhm = 0.0;                // of the disc of the same area as the ellipse at half maximum
  double major = 0.0, minor = 0.0;  // its axes
  double angle = 0.0;               // of the major one, degrees from +x towards +y
  double halfFlux = 0.0;            // diameter that holds half of the flux
  double peak = 0.0;                // brightest pixel above the background
  double background = 0.0;
  double flux = 0.0;  // in the aperture, above the background
  double snr = 0.0;   // flux over its noise
  bool saturated = false;

  double Ellipticity() const { return 1.0 - minor / major; }
};

// Knows how wide the stars of a frame are and how they fall off, and measures each with that: place and widths by a fit
// near the peak, flux in an aperture of one size for all, the background in a ring around it.
class StarMeter {
 public:
  // `threshold` in units of the noise of the smoothed plane. `electrons` a unit of the file, where known: then the SNR
  // counts the star's own photon noise. The plane must outlive the object.
  StarMeter(const StarPlane& plane, double threshold, std::optional<double> electrons);

  // What was found by its light, the greatest flux first, one entry of two that lie within half a width. Only stars of
  // least..most pixels of the file; a limit of 0 is half or twice the usual width.
  std::vector<MeasuredStar> AllStars(double least, double most) const;
  // The star at a place of the file, within two widths.
  std::optional<MeasuredStar> StarAt(double x, double y) const;
  // Where bright stars are that are not saturated and look like the others, at most 60.
  const std::vector<StarPlace>& BrightPlaces() const { return bright_; }

  int HotPixels() const { return finder_.HotPixels(); }
  // Radius of the aperture, pixels of the file.
  double Aperture() const { return plane_.scale * ApertureOfPlane(); }
  double Beta() const { return beta_; }
  const SkyMap& Sky() const { return sky_; }

 private:
  struct Ring {
    double level;
    int pixels;
  };
  double ApertureOfPlane() const;
  double FitRadius() const;
  Ring RingAround(double x, double y) const;
  bool IsSaturated(int x, int y, double background) const;
  std::optional<FittedStar> Fit(const StarPlace& place, double beta, double radius) const;
  bool IsStar(const FittedStar& star) const;
  void FindShape();
  double FallOf(const std::vector<StarPlace>& places) const;
  std::optional<MeasuredStar> Measure(const StarPlace& place) const;
  bool AddLight(const FittedStar& at, int ringPixels, MeasuredStar& star) const;
  std::vector<MeasuredStar> WithoutTwins(const std::vector<MeasuredStar>& stars) const;

  const StarPlane& plane_;
  const std::optional<double> electrons_;
  const SkyMap sky_;
  const StarFinder finder_;
  double greatest_ = 0.0;
  // What is usual: FWHM in pixels of the plane, and the shorter axis over the longer.
  double width_ = 2.0;
  double roundness_ = 1.0;
  std::vector<StarPlace> bright_;
  double beta_ = 0.0;
};

}  // namespace qmr
