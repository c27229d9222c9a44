// The shape of one star, by least squares.
#pragma once

#include <cmath>
#include <optional>

#include "host/measure/star_plane.h"

namespace qmr {

// How stars fall off: (1 + q)^-beta, q a quadratic form of the distance (Moffat, "A Theoretical Investigation of Focal
// Stellar Images ...", 1969). A beta of 0 stands for exp(-q), the Gaussian.
struct FittedStar {
  double x = 0.0, y = 0.0;          // pixels of the plane
  double amplitude = 0.0;           // above the background
  double major = 0.0, minor = 0.0;  // FWHM along the axes of the ellipse, pixels of the plane
  double angle = 0.0;               // of the major axis, degrees from +x towards +y, above -90 to 90
  double residual = 0.0;            // root of the mean squared residual over that of the star

  // Of the disc of the same area.
  double Fwhm() const { return std::sqrt(major * minor); }
};

struct FitStart {
  double x = 0.0, y = 0.0;
  double fwhm = 2.0;
  double background = 0.0;
  double radius = 3.0;  // pixels within this distance of (x, y) count
};

// Nothing where there is no star of such a shape: the fit does not settle, runs off, or leaves the plane.
std::optional<FittedStar> FitStar(const StarPlane& plane, const FitStart& start, double beta);

}  // namespace qmr
