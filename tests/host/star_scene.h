// A sky that is known between its pixels, for tests that lay pictures on one another.
#pragma once

#include <cmath>
#include <numbers>
#include <vector>

#include "tests/support/images.h"

namespace qmr::test {

class StarScene {
 public:
  StarScene(double width, double height, int count, std::uint64_t seed) {
    Random random(seed);
    for (int i = 0; i < count; ++i)
      stars_.push_back({random.Uniform(0, width), random.Uniform(0, height), random.Uniform(100, 1000)});
  }
  double operator()(double x, double y) const {
    double v = 800.0 + 0.2 * x - 0.1 * y;
    for (const Star& star : stars_) {
      const double r2 = (x - star.x) * (x - star.x) + (y - star.y) * (y - star.y);
      if (r2 < 200.0) v += star.peak * std::exp(-r2 / 8.0);
    }
    return v;
  }
  // The frame that shows the scene when it lies at (dx, dy) and is turned by `angle` degrees about its middle, from
  // right to down.
  CVynImage Frame(int width, int height, double dx, double dy, double angle, double noise = 0.0,
                  std::uint64_t seed = 1) const {
    CVynImage image;
    Shape(image, width, height, 1);
    Random random(seed);
    const double turn = angle * std::numbers::pi / 180.0, c = std::cos(turn), s = std::sin(turn);
    const double cx = (width - 1) / 2.0, cy = (height - 1) / 2.0;
    Fill(image, [&](int, int x, int y) {
      const double u = x - cx, v = y - cy;
      return static_cast<float>((*this)(c * u - s * v + cx + dx, s * u + c * v + cy + dy) + noise * random.Normal());
    });
    return image;
  }

 private:
  struct Star {
    double x, y, peak;
  };
  std::vector<Star> stars_;
};

}  // namespace qmr::test
