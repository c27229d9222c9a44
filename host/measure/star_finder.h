// Where stars are in a plane.
#pragma once

#include <vector>

#include "host/measure/sky_map.h"
#include "host/measure/star_plane.h"

namespace qmr {

struct StarPlace {
  int x, y;       // pixel of the plane
  double height;  // above the sky, in the smoothed plane
};

// The stars of a plane, found on a copy that is smoothed by a Gaussian about as wide as they are, so that the faint are
// found and the rings of defocused stars count as one.
class StarFinder {
 public:
  // `threshold`: least height over the sky, in units of the noise of the smoothed plane.
  StarFinder(const StarPlane& plane, const SkyMap& sky, double threshold);

  // The highest first. Single bright pixels are left out.
  const std::vector<StarPlace>& Stars() const { return stars_; }
  int HotPixels() const { return hot_; }
  // Typical FWHM as the half level area of bright stars tells it, pixels of the plane.
  double Width() const { return width_; }
  // The smoothed peak that is reached by climbing from a place.
  StarPlace Climb(double x, double y) const;

 private:
  bool IsHot(int x, int y) const;
  std::vector<StarPlace> Peaks(const SkyMap& sky, double threshold);
  double WidthOf(const SkyMap& sky, const std::vector<StarPlace>& peaks) const;

  const StarPlane& plane_;
  const SkyMap& sky_;
  CVynImage smooth_;
  double width_ = 2.0;
  int hot_ = 0;
  std::vector<StarPlace> stars_;
};

}  // namespace qmr
