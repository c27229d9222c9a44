#include "tests/raw/bayer_twin.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "tests/support/images.h"

namespace qmr::test {
namespace {

using Rows = std::vector<std::vector<float>>;

enum class Site { kFirst, kSecond, kGreenBesideFirst, kGreenBesideSecond };

Site SiteOf(int pattern, int row, int column) {
  // The cell as (row, column) of the first colour.
  const int firstRow = pattern == 3 || pattern == 4;
  const int firstColumn = pattern == 2 || pattern == 3;
  const bool sameRow = row % 2 == firstRow;
  const bool sameColumn = column % 2 == firstColumn;
  if (sameRow) return sameColumn ? Site::kFirst : Site::kGreenBesideFirst;
  return sameColumn ? Site::kGreenBesideSecond : Site::kSecond;
}

// Replaces the sites of one class by a mean of neighbours, in place.
void Interpolate(Rows& t, int pattern, Site site, std::vector<std::pair<int, int>> neighbours) {
  const int width = static_cast<int>(t[0].size()) / 2 * 2;
  for (int r = 1; r <= 6; ++r) {
    for (int c = 1; c <= width - 2; ++c) {
      if (SiteOf(pattern, r, c) != site) continue;
      double sum = 0.0;
      for (const auto& [dy, dx] : neighbours) sum += t[r + dy][c + dx];
      t[r][c] = static_cast<float>(sum / static_cast<double>(neighbours.size()));
    }
  }
}

const std::vector<std::pair<int, int>> kRow = {{0, -1}, {0, 1}};
const std::vector<std::pair<int, int>> kColumn = {{-1, 0}, {1, 0}};
const std::vector<std::pair<int, int>> kCross = {{0, -1}, {-1, 0}, {0, 1}, {1, 0}};
const std::vector<std::pair<int, int>> kDiagonal = {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}};

std::vector<Rows> Colours(const Rows& band, int pattern) {
  std::vector<Rows> planes(3, band);
  Interpolate(planes[0], pattern, Site::kGreenBesideFirst, kRow);
  Interpolate(planes[0], pattern, Site::kGreenBesideSecond, kColumn);
  Interpolate(planes[0], pattern, Site::kSecond, kDiagonal);
  Interpolate(planes[2], pattern, Site::kGreenBesideSecond, kRow);
  Interpolate(planes[2], pattern, Site::kGreenBesideFirst, kColumn);
  Interpolate(planes[2], pattern, Site::kFirst, kDiagonal);
  Interpolate(planes[1], pattern, Site::kFirst, kCross);
  Interpolate(planes[1], pattern, Site::kSecond, kCross);
  return planes;
}

Rows Luminance(const Rows& band, int pattern) {
  std::vector<Rows> planes(3, band);
  Interpolate(planes[2], pattern, Site::kFirst, kDiagonal);
  Interpolate(planes[0], pattern, Site::kSecond, kDiagonal);
  Interpolate(planes[0], pattern, Site::kGreenBesideFirst, kCross);
  Interpolate(planes[0], pattern, Site::kGreenBesideSecond, kCross);
  Interpolate(planes[1], pattern, Site::kFirst, kCross);
  Interpolate(planes[1], pattern, Site::kSecond, kCross);
  Interpolate(planes[2], pattern, Site::kGreenBesideFirst, kCross);
  Interpolate(planes[2], pattern, Site::kGreenBesideSecond, kCross);
  Rows y = band;
  for (std::size_t r = 0; r < y.size(); ++r) {
    for (std::size_t c = 0; c < y[r].size(); ++c) {
      const float sum = planes[0][r][c] + planes[1][r][c] + planes[2][r][c];
      y[r][c] = static_cast<float>(static_cast<double>(sum) / 3.0);
    }
  }
  return y;
}

float Gained(float v, double gain, bool knee, bool clip, float lo, float hi) {
  if (!knee) {
    const auto product = static_cast<float>(v * gain);
    return clip ? std::min(hi, std::max(lo, product)) : product;
  }
  if (clip && v < lo) return lo;
  if (clip && v > hi) return hi;
  if (!clip && (v <= lo || v >= hi)) return v;
  const double range = hi - lo;
  const double k1 = range / (gain + 1.0);
  const double k2 = gain * range / (gain + 1.0);
  const float d = v - lo;
  if (k1 > v) return static_cast<float>(gain * d) + lo;
  return static_cast<float>((d - k1) * ((range - k2) / (range - k1)) + k2) + lo;
}

void Range(const Rows& rows, double& min, double& max) {
  min = max = rows[0][0];
  for (const auto& row : rows) {
    for (const float v : row) {
      min = std::min<double>(min, v);
      max = std::max<double>(max, v);
    }
  }
}

}  // namespace

void DevelopSlowly(const CVynImage& mosaic, const tagBayerStruct& bayer, CVynImage& result) {
  const int width = mosaic.GetWidth();
  const int height = mosaic.GetHeight();
  Rows samples(static_cast<std::size_t>(height), std::vector<float>(static_cast<std::size_t>(width)));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x)
      samples[y][x] = At(mosaic, 0, x, y) - (bayer.subtractBlack ? bayer.blackLevel : 0.0f);
  }
  double min = 0.0;
  double max = 0.0;
  if (bayer.srcBits != -32) {
    max = std::pow(2.0, bayer.srcBits) - 1.0;
    if (bayer.autoRange) Range(samples, min, max);
    const double scale = 65535.0 / (max - min);
    for (auto& row : samples)
      for (float& v : row) v = static_cast<float>(std::clamp((v - min) * scale, 0.0, 65535.0));
    min = 0.0;
    max = 65535.0;
  } else {
    min = mosaic.GetLevelMin(0);
    max = mosaic.GetLevelMax(0);
  }
  if (bayer.autoRange) Range(samples, min, max);
  const auto lo = static_cast<float>(min);
  const auto hi = static_cast<float>(max);
  if (bayer.useGain) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        float& v = samples[y][x];
        v = Gained(v, bayer.gains[y % 2 * 2 + x % 2], bayer.useKnee, bayer.clip, lo, hi);
      }
    }
  }

  const int newWidth = width - bayer.leftMargin - bayer.rightMargin;
  const int newHeight = height - bayer.topMargin - bayer.bottomMargin;
  Shape(result, newWidth, newHeight, bayer.isMono ? 1 : 3);
  for (int y = 3; y < height - 4; y += 2) {
    if (y < bayer.topMargin / 2 * 2 + 1 || y > (height - bayer.bottomMargin) / 2 * 2 - 1) continue;
    const Rows band(samples.begin() + (y - 3), samples.begin() + (y + 5));
    const Rows luminance = Luminance(band, bayer.pattern);
    const std::vector<Rows> colours = Colours(band, bayer.pattern);
    for (int r = 3; r <= 4; ++r) {
      const int row = y - bayer.topMargin + r - 3;
      if (row < 0 || row >= newHeight) continue;
      for (int p = 0; p < result.GetPlanes(); ++p) {
        for (int x = 0; x < newWidth; ++x) {
          const int c = x + bayer.leftMargin;
          float v = luminance[r][c];
          if (!bayer.isMono) {
            double sum = 0.0;
            for (int j = r - 1; j <= r + 1; ++j)
              for (int i = c - 1; i <= c + 1; ++i) sum += static_cast<double>(colours[p][j][i]) - luminance[j][i];
            v = static_cast<float>(v + sum / 9.0);
          }
          if (bayer.clip) v = std::min(hi, std::max(lo, v));
          result.SetPixelGrayRaw(x, row, v, p);
        }
      }
    }
  }
}

}  // namespace qmr::test
