#include "host/measure/star_finder.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <utility>

#include "host/measure/quantile.h"
#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {
namespace {

constexpr double kFwhmPerSigma = 2.354820045030949;
// The first look, before the width of the stars is known.
constexpr double kFirstSigma = 1.0;
constexpr double kLeastSigma = 0.5, kMostSigma = 12.0;
constexpr std::size_t kBrightOnes = 60;
// A peak whose four neighbours together hold less than this share of it is narrower than any optics draw.
constexpr double kHotShare = 0.25;

void Smooth(const CVynImage& from, double sigma, CVynImage& to) {
  CImgFilterBlur blur;
  blur.Create(from);
  // The operation only reads its source.
  blur.GaussianFilter(sigma, const_cast<CVynImage*>(&from), nullptr, 0);
  to.Swap(&blur);
}

struct Patch {
  int pixels = 0;
  int side = 0;  // of the square around it
  bool whole = false;
};

// The pixels above a level that hang together with a place, each of which is taken once only. One that reaches the
// edge, is too large, or was seen before is not whole.
Patch PatchAbove(const CVynImage& image, int startX, int startY, double level, std::vector<bool>& seen) {
  constexpr int kMostPixels = 20000;
  const int width = image.GetWidth(), height = image.GetHeight();
  std::vector<std::pair<int, int>> open;
  const auto take = [&](int x, int y) {
    std::vector<bool>::reference mark =
        seen[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
    if (mark) return;
    mark = true;
    open.emplace_back(x, y);
  };
  Patch patch;
  int left = startX, right = startX, top = startY, bottom = startY;
  take(startX, startY);
  patch.whole = !open.empty();
  while (!open.empty() && patch.pixels < kMostPixels) {
    const auto [x, y] = open.back();
    open.pop_back();
    ++patch.pixels;
    left = std::min(left, x);
    right = std::max(right, x);
    top = std::min(top, y);
    bottom = std::max(bottom, y);
    if (x == 0 || y == 0 || x == width - 1 || y == height - 1) {
      patch.whole = false;
      continue;
    }
    for (const auto& [i, j] : {std::pair{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}})
      if (image.GetPixelGrayRaw(i, j, 0) > level) take(i, j);
  }
  patch.whole = patch.whole && open.empty();
  patch.side = std::max(right - left, bottom - top) + 1;
  return patch;
}

}  // namespace

StarFinder::StarFinder(const StarPlane& plane, const SkyMap& sky, double threshold) : plane_(plane), sky_(sky) {
  Smooth(plane.image, kFirstSigma, smooth_);
  {
    const SkyMap firstSky(plane, smooth_);
    width_ = WidthOf(firstSky, Peaks(firstSky, std::max(threshold, 10.0)));
  }
  Smooth(plane.image, std::clamp(width_ / kFwhmPerSigma, kLeastSigma, kMostSigma), smooth_);
  stars_ = Peaks(SkyMap(plane, smooth_), threshold);
}

// Peaks of 3 x 3 pixels of the smoothed plane, each pixel of equal ones but the first left out. The hot ones are
// counted.
std::vector<StarPlace> StarFinder::Peaks(const SkyMap& sky, double threshold) {
  const int width = smooth_.GetWidth(), height = smooth_.GetHeight();
  struct RowPeaks {
    std::vector<StarPlace> stars;
    int hot = 0;
  };
  RowPeaks all = FoldRows(
      1, height - 1, RowPeaks{},
      [&](int y) {
        RowPeaks found;
        const float* above = ReadRow(smooth_, y - 1, 0, 0, width).data();
        const float* here = ReadRow(smooth_, y, 0, 0, width).data();
        const float* below = ReadRow(smooth_, y + 1, 0, 0, width).data();
        for (int x = 1; x < width - 1; ++x) {
          const float v = here[x];
          if (!(v > above[x] && v >= below[x] && v > here[x - 1] && v >= here[x + 1] && v > above[x - 1] &&
                v > above[x + 1] && v >= below[x - 1] && v >= below[x + 1]))
            continue;
          const double up = v - sky.Level(x, y);
          if (!(up > threshold * sky.Noise(x, y)) || plane_.IsBlank(x, y)) continue;
          if (IsHot(x, y))
            ++found.hot;
          else
            found.stars.push_back({x, y, up});
        }
        return found;
      },
      [](RowPeaks a, const RowPeaks& b) {
        a.stars.insert(a.stars.end(), b.stars.begin(), b.stars.end());
        a.hot += b.hot;
        return a;
      });
  std::stable_sort(all.stars.begin(), all.stars.end(),
                   [](const StarPlace& a, const StarPlace& b) { return a.height > b.height; });
  hot_ = all.hot;
  return std::move(all.stars);
}

// Whether the brightest pixel about a smoothed peak stands alone.
bool StarFinder::IsHot(int x, int y) const {
  const auto value = [&](int i, int j) {
    i = std::clamp(i, 0, plane_.Width() - 1);
    j = std::clamp(j, 0, plane_.Height() - 1);
    return static_cast<double>(plane_.Row(j)[i]);
  };
  int px = x, py = y;
  for (int j = y - 1; j <= y + 1; ++j) {
    for (int i = x - 1; i <= x + 1; ++i) {
      if (value(i, j) > value(px, py)) px = i, py = j;
    }
  }
  const double sky = sky_.Level(px, py), noise = sky_.Noise(px, py);
  const double peak = value(px, py) - sky;
  const double around = value(px - 1, py) + value(px + 1, py) + value(px, py - 1) + value(px, py + 1) - 4.0 * sky;
  // Four neighbours have twice the noise of one.
  return around < kHotShare * peak + 2.0 * noise && peak > 8.0 * noise;
}

// The median over bright stars of the diameter of the disc of as many pixels as lie above half of the peak, without
// what the smoothing adds.
double StarFinder::WidthOf(const SkyMap& sky, const std::vector<StarPlace>& peaks) const {
  std::vector<bool> seen(static_cast<std::size_t>(plane_.Width()) * static_cast<std::size_t>(plane_.Height()));
  std::vector<double> squares;
  for (const StarPlace& peak : peaks) {
    if (squares.size() >= kBrightOnes) break;
    const Patch patch = PatchAbove(smooth_, peak.x, peak.y, sky.Level(peak.x, peak.y) + 0.5 * peak.height, seen);
    // Diameter squared: 4 pixels / pi. Trails fill less of the square around them than any star.
    if (patch.whole && patch.pixels > 0.3 * patch.side * patch.side)
      squares.push_back(patch.pixels * 4.0 / std::numbers::pi);
  }
  if (squares.empty()) return width_;
  const double added = kFirstSigma * kFwhmPerSigma;
  return std::sqrt(std::max(MedianOf(squares) - added * added, 1.5 * 1.5));
}

StarPlace StarFinder::Climb(double x, double y) const {
  int px = std::clamp(static_cast<int>(std::lround(x)), 0, plane_.Width() - 1);
  int py = std::clamp(static_cast<int>(std::lround(y)), 0, plane_.Height() - 1);
  for (;;) {
    int bx = px, by = py;
    for (int j = std::max(py - 1, 0); j <= std::min(py + 1, plane_.Height() - 1); ++j) {
      for (int i = std::max(px - 1, 0); i <= std::min(px + 1, plane_.Width() - 1); ++i) {
        if (smooth_.GetPixelGrayRaw(i, j, 0) > smooth_.GetPixelGrayRaw(bx, by, 0)) bx = i, by = j;
      }
    }
    if (bx == px && by == py) break;
    px = bx;
    py = by;
  }
  return {px, py, smooth_.GetPixelGrayRaw(px, py, 0) - sky_.Level(px, py)};
}

}  // namespace qmr
