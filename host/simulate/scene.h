#pragma once

#include <vector>

#include "host/simulate/nebula.h"
#include "host/simulate/options.h"
#include "host/simulate/truth.h"

namespace qmr::sim {

// What stands in the sky: stars and nebula, without noise, seen by any frame of the night.
class Scene {
 public:
  // Checked options; `threads` at least 1.
  Scene(const SimulateOptions& options, int threads);

  // A star as it falls on one frame: its middle, peak electrons before colour, and the square of its disc's radius.
  struct Image {
    double x = 0, y = 0;
    double peak = 0;
    double reach2 = 0;
    const double* colour = nullptr;  // of the star, three values
  };
  // The stars that shine into one frame, in the order of Stars().
  struct View {
    TruthFrame frame;
    double scale = 1;  // of the profile: alpha squared, or sigma squared
    std::vector<Image> images;
  };
  View See(const TruthFrame& frame) const;

  // Adds the light of stars and nebula in electrons, before transparency, to rows firstRow..firstRow + rows - 1 of
  // the frame. `out` holds these rows, `width` floats each. `colour` 0..2 gives that colour at every pixel, -1 what
  // the sensor's filters pass. Fit for several threads at once; allocates nothing.
  void AddRows(const View& view, int firstRow, int rows, int colour, float* out) const;

  // All stars, brightest first, those outside the reference frame included.
  const std::vector<TruthStar>& Stars() const { return stars_; }

 private:
  void MakeArea();
  void MakeNebula(int threads);
  void MakeStars(int threads);
  void AddStar(const View& view, const Image& image, int firstRow, int rows, int colour, float* out) const;
  void AddNebulaRow(const TruthFrame& frame, int y, int colour, float* out) const;

  const SimulateOptions options_;
  NebulaShape shape_;
  double centreX_ = 0;
  double centreY_ = 0;
  double halfWidth_ = 0;  // of the part of the reference plane that frames can show, about the centre
  double halfHeight_ = 0;
  std::vector<TruthStar> stars_;
  // Coefficients of a uniform cubic B-spline on a grid of `GridStep` pixels, a plane a colour (one on mono).
  int gridWidth_ = 0;
  int gridHeight_ = 0;
  std::vector<std::vector<float>> grid_;
};

}  // namespace qmr::sim
