#include "host/night/transparency.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace qmr {
namespace {

constexpr int kTile = 48;  // at most one detail a tile
constexpr int kBox = 6;    // half size of the flux box
constexpr int kRing = 10;  // half size of the box around it that tells the local sky
constexpr std::size_t kFewest = 8;

int PlaneOf(const CVynImage& image) {
  return image.GetPlanes() >= 3 ? 1 : 0;
}

// Flux of the box around (x, y) above the median of the ring; nothing where the ring leaves the image.
std::optional<double> BoxFlux(const CVynImage& image, double x, double y) {
  const int cx = static_cast<int>(std::lround(x));
  const int cy = static_cast<int>(std::lround(y));
  if (cx < kRing || cy < kRing || cx + kRing >= image.GetWidth() || cy + kRing >= image.GetHeight())
    return std::nullopt;
  const int plane = PlaneOf(image);
  std::vector<float> ring;
  double sum = 0.0;
  int count = 0;
  for (int dy = -kRing; dy <= kRing; ++dy) {
    const auto* row = static_cast<const float*>(image.GetImageAdr(cx - kRing, cy + dy, plane, 1, 0, nullptr));
    for (int dx = -kRing; dx <= kRing; ++dx) {
      const float v = row[dx + kRing];
      if (std::isnan(v)) return std::nullopt;
      if (std::abs(dx) <= kBox && std::abs(dy) <= kBox) {
        sum += v;
        ++count;
      } else {
        ring.push_back(v);
      }
    }
  }
  std::nth_element(ring.begin(), ring.begin() + static_cast<std::ptrdiff_t>(ring.size() / 2), ring.end());
  return sum - count * static_cast<double>(ring[ring.size() / 2]);
}

}  // namespace

// The brightest pixel of each tile that stands clear of the noise and is not saturated.
TransparencyReference::TransparencyReference(const LightFrame& reference) {
  const CVynImage& image = *reference.image;
  const int plane = PlaneOf(image);
  const double least = reference.quality.background[plane] + 20.0 * reference.quality.noise[plane];
  double low, high;
  image.GetMinMax(plane, &low, &high);
  const double most = reference.quality.background[plane] + 0.7 * (high - reference.quality.background[plane]);
  for (int top = kRing; top + kTile <= image.GetHeight() - kRing; top += kTile) {
    for (int left = kRing; left + kTile <= image.GetWidth() - kRing; left += kTile) {
      int bestX = -1, bestY = -1;
      float brightest = static_cast<float>(least);
      for (int y = top; y < top + kTile; ++y) {
        const auto* row = static_cast<const float*>(image.GetImageAdr(0, y, plane, 1, 0, nullptr));
        for (int x = left; x < left + kTile; ++x) {
          // A detail is wider than a pixel; a hot pixel is not.
          if (row[x] > brightest && row[x - 1] + row[x + 1] > row[x]) {
            brightest = row[x];
            bestX = x;
            bestY = y;
          }
        }
      }
      if (bestX < 0 || brightest >= most) continue;
      const auto flux = BoxFlux(image, bestX, bestY);
      if (flux && *flux > 0.0) details_.push_back({bestX, bestY, *flux});
    }
  }
}

double TransparencyReference::Ratio(const LightFrame& frame) const {
  const CVynImage& image = *frame.image;
  const double cx = (image.GetWidth() - 1) / 2.0;
  const double cy = (image.GetHeight() - 1) / 2.0;
  const FrameGeometry& g = frame.registration.geometry;
  const double angle = g.thetaDegrees * 3.141592653589793 / 180.0;
  const double c = std::cos(angle);
  const double s = std::sin(angle);
  std::vector<double> ratios;
  for (const Detail& detail : details_) {
    const double px = detail.x - cx;
    const double py = detail.y - cy;
    const auto there = BoxFlux(image, c * px - s * py + cx + g.dx, s * px + c * py + cy + g.dy);
    if (there && *there > 0.0) ratios.push_back(detail.flux / *there);
  }
  if (ratios.size() < kFewest) return 1.0;
  const auto middle = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
  std::nth_element(ratios.begin(), middle, ratios.end());
  return *middle > 0.05 && *middle < 20.0 ? *middle : 1.0;
}

}  // namespace qmr
