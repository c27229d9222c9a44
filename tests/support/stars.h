// Skies of round stars whose places are known.
#pragma once

#include <cstdint>
#include <vector>

#include "qmrimg/image/vyn_image.h"

namespace qmr::test {

struct Star {
  double x, y, peak;
};

// The light of Gaussian stars at real positions, row by row.
std::vector<double> StarLight(int width, int height, const std::vector<Star>& stars, double sigma);

// Stars on a jittered grid over a square of `span` pixels about (0, 0); none lies within 12 pixels of another.
std::vector<Star> StarField(double span, std::uint64_t seed);

// How a frame lies against the sky: turned by `degrees` about its middle (counter-clockwise as it is seen, rows run
// downwards), then moved.
struct Motion {
  double dx = 0.0, dy = 0.0, degrees = 0.0;
};

constexpr double kSkyLevel = 100.0;

// A frame of a field, on a level of 100 with noise of its own.
CVynImage SkyFrame(int width, int height, const std::vector<Star>& field, const Motion& motion, double noise,
                   std::uint64_t seed, double sigma = 1.4);

}  // namespace qmr::test
