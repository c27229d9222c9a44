// The first two steps of a registration: where frames lie to within a few pixels, with nothing known before.
#pragma once

#include <vector>

#include "host/night/registration/binned_image.h"
#include "host/night/registration/frame_geometry.h"
#include "host/night/registration/phase_correlator.h"

namespace qmr {

struct CoarseCandidate {
  FrameGeometry geometry;
  double height = 0.0;  // of the correlation, in units of its scatter
};

// Whole frames against each other, binned until they fit a small array.
class WholeFrame {
 public:
  // `clean` has been through CleanForCorrelation.
  explicit WholeFrame(BinnedImage clean);

  // Ways in which `frame` (same shape, cleaned) may lie to the reference, the likeliest first: as it is and turned by
  // 180 degrees, each on top of a turn by `thetaDegrees`. `fullWidth` and `fullHeight` are those of the unbinned frame.
  std::vector<CoarseCandidate> Match(const BinnedImage& frame, double thetaDegrees, int fullWidth,
                                     int fullHeight) const;

  const BinnedImage& Image() const { return image_; }

 private:
  std::vector<float> Padded(const BinnedImage& image) const;

  BinnedImage image_;
  int arrayWidth_;
  int arrayHeight_;
  Spectrum spectrum_;
};

// The angle of the motion from reference to frame, modulo 180 degrees, by rotation-invariant correlation; the two
// images are cleaned. Best for angles within 45 degrees of 0.
double CoarseAngle(const BinnedImage& reference, const BinnedImage& frame);

// The frame turned back by 90 degrees: what it shows turned by theta, the result shows turned by theta - 90.
BinnedImage QuarterTurned(const BinnedImage& frame);

// A grid of windowed tiles, those with the most contrast.
class TileGrid {
 public:
  explicit TileGrid(const BinnedImage& clean);

  // What each tile shows against the expectation of `map`; the weight is the square of the peak's height. A tile
  // without a clear peak is left out.
  std::vector<Displacement> Measure(const BinnedImage& clean, const RigidMap& map) const;

  std::size_t Count() const { return tiles_.size(); }

 private:
  struct Tile {
    int x, y;  // of its first binned pixel
    Spectrum spectrum;
  };

  int size_ = 0;
  std::vector<float> window_;
  std::vector<Tile> tiles_;
};

}  // namespace qmr
