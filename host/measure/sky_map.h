// The background of a frame and its noise, tile by tile.
#pragma once

#include <vector>

#include "host/measure/star_plane.h"

namespace qmr {

// Levels of tiles of 64 pixels a side without what stands out of them, each replaced by the median of the tiles around
// it, with straight lines between their middles: gradients and nebulae stay in it, stars don't. Pixels without a value
// count for nothing; a frame of these has a level and a noise of 0.
class SkyMap {
 public:
  // Of the pixels of a plane.
  explicit SkyMap(const StarPlane& plane) : SkyMap(plane, plane.image) {}
  // Of an image that was made from them pixel by pixel.
  SkyMap(const StarPlane& plane, const CVynImage& image);

  double Level(double x, double y) const;
  // Standard deviation of a pixel in its tile; 0 only where the whole frame is of one value.
  double Noise(double x, double y) const;
  // Over the tiles.
  double MedianLevel() const { return medianLevel_; }
  double MedianNoise() const { return medianNoise_; }

 private:
  struct Cell {
    int index;
    double part;
  };
  static Cell CellOf(double position, double tile, int tiles);

  int columns_, rows_;
  double tileWidth_, tileHeight_;
  std::vector<double> levels_, noise_;
  double medianLevel_, medianNoise_;
};

}  // namespace qmr
