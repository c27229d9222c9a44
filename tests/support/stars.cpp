#include "tests/support/stars.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "tests/support/images.h"

namespace qmr::test {

std::vector<double> StarLight(int width, int height, const std::vector<Star>& stars, double sigma) {
  constexpr int kReach = 12;
  std::vector<double> light(static_cast<std::size_t>(width) * height);
  for (const Star& s : stars) {
    const int cx = static_cast<int>(s.x), cy = static_cast<int>(s.y);
    for (int y = std::max(cy - kReach, 0); y <= std::min(cy + kReach, height - 1); ++y) {
      for (int x = std::max(cx - kReach, 0); x <= std::min(cx + kReach, width - 1); ++x) {
        const double r2 = (x - s.x) * (x - s.x) + (y - s.y) * (y - s.y);
        light[static_cast<std::size_t>(y) * width + x] += s.peak * std::exp(-r2 / (2.0 * sigma * sigma));
      }
    }
  }
  return light;
}

std::vector<Star> StarField(double span, std::uint64_t seed) {
  Random random(seed);
  std::vector<Star> stars;
  for (double y = -span / 2; y < span / 2; y += 20.0) {
    for (double x = -span / 2; x < span / 2; x += 20.0) {
      const double dx = random.Uniform(-4.0, 4.0), dy = random.Uniform(-4.0, 4.0);
      stars.push_back({x + dx, y + dy, 40.0 + 260.0 * std::pow(random.Uniform(), 2)});
    }
  }
  return stars;
}

CVynImage SkyFrame(int width, int height, const std::vector<Star>& field, const Motion& motion, double noise,
                   std::uint64_t seed, double sigma) {
  std::vector<Star> seen = field;
  const double angle = motion.degrees * std::numbers::pi / 180.0, c = std::cos(angle), s = std::sin(angle);
  for (Star& star : seen) {
    star = {c * star.x + s * star.y + width * 0.5 + motion.dx, -s * star.x + c * star.y + height * 0.5 + motion.dy,
            star.peak};
  }
  const std::vector<double> light = StarLight(width, height, seen, sigma);
  Random random(seed);
  CVynImage image = Shaped(width, height, 1);
  Fill(image, [&](int, int x, int y) {
    return static_cast<float>(kSkyLevel + light[static_cast<std::size_t>(y) * width + x] + noise * random.Normal());
  });
  return image;
}

}  // namespace qmr::test
