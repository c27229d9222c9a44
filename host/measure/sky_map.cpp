#include "host/measure/sky_map.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>

#include "host/measure/quantile.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {
namespace {

constexpr int kTile = 64;
// Rows and columns that count: a thousand pixels a tile tell enough.
constexpr int kStep = 2;
// The deviation of normal noise is so many times the median of its magnitude.
constexpr double kPerMedian = 1.4826;
// Where most pixels are equal to the last bit, noise counts as this share of what stands out.
constexpr double kLeastShare = 1e-5;

// Fewer pixels tell nothing.
constexpr std::size_t kLeastPixels = 16;
constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

double MeanOfMiddleHalf(std::vector<float>& values) {
  const auto quarter = static_cast<std::ptrdiff_t>(values.size() / 4);
  const auto first = values.begin() + quarter, last = values.end() - quarter;
  std::nth_element(values.begin(), first, values.end());
  std::nth_element(first, last, values.end());
  return std::accumulate(first, last, 0.0) / static_cast<double>(last - first);
}

// Level and noise of values without those beyond three deviations. Medians find these; but pixels are whole numbers
// mostly, and so coarse would be what medians say.
void Measure(std::vector<float>& values, double& level, double& noise) {
  constexpr double kBeyond = 3.0, kPerCut = 1.0136;  // normal noise deviates by so much more than its cut part
  level = noise = kUnknown;
  if (values.size() < kLeastPixels) return;
  std::vector<float> magnitudes;
  for (int round = 0; round < 2; ++round) {
    level = MedianOf(values);
    magnitudes.clear();
    for (const float v : values) magnitudes.push_back(static_cast<float>(std::fabs(v - level)));
    noise = kPerMedian * MedianOf(magnitudes);
    if (noise == 0.0) return;
    std::erase_if(values, [&](float v) { return std::fabs(v - level) > kBeyond * noise; });
  }
  level = MeanOfMiddleHalf(values);
  double squares = 0.0;
  for (const float v : values) squares += (v - level) * (v - level);
  noise = kPerCut * std::sqrt(squares / static_cast<double>(values.size()));
}

double MedianOfKnown(std::vector<double> values) {
  std::erase_if(values, [](double v) { return std::isnan(v); });
  return MedianOf(values);
}

// Each tile becomes the median of the known ones around it, or else of all.
void TakeMediansAround(int columns, int rows, std::vector<double>& tiles) {
  const std::vector<double> from = tiles;
  const double all = MedianOfKnown(from);
  std::vector<double> near;
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < columns; ++x) {
      near.clear();
      for (int j = std::max(y - 1, 0); j <= std::min(y + 1, rows - 1); ++j) {
        for (int i = std::max(x - 1, 0); i <= std::min(x + 1, columns - 1); ++i) {
          const double v = from[static_cast<std::size_t>(j * columns + i)];
          if (!std::isnan(v)) near.push_back(v);
        }
      }
      tiles[static_cast<std::size_t>(y * columns + x)] = near.empty() ? all : MedianOf(near);
    }
  }
}

}  // namespace

SkyMap::SkyMap(const StarPlane& plane, const CVynImage& image)
    : columns_(std::max(1, plane.Width() / kTile)),
      rows_(std::max(1, plane.Height() / kTile)),
      tileWidth_(static_cast<double>(plane.Width()) / columns_),
      tileHeight_(static_cast<double>(plane.Height()) / rows_),
      levels_(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_)),
      noise_(levels_.size()) {
  ForRows(0, rows_, [&](int row) {
    std::vector<float> values;
    for (int column = 0; column < columns_; ++column) {
      values.clear();
      const int left = static_cast<int>(column * tileWidth_), right = static_cast<int>((column + 1) * tileWidth_);
      for (int y = static_cast<int>(row * tileHeight_); y < static_cast<int>((row + 1) * tileHeight_); y += kStep) {
        const auto pixels = ReadRow(image, y, 0, 0, right);
        // Staggered, so that a pattern of pixels without a value does not take all of them.
        for (int x = left + y / kStep % kStep; x < right; x += kStep)
          if (!plane.IsBlank(x, y)) values.push_back(pixels[static_cast<std::size_t>(x)]);
      }
      const auto tile = static_cast<std::size_t>(row * columns_ + column);
      Measure(values, levels_[tile], noise_[tile]);
    }
  });
  TakeMediansAround(columns_, rows_, levels_);
  TakeMediansAround(columns_, rows_, noise_);
  medianLevel_ = MedianOfKnown(levels_);
  medianNoise_ = MedianOfKnown(noise_);
  double least, greatest;
  image.GetMinMax(0, &least, &greatest);
  const double floor = kLeastShare * std::max(greatest - medianLevel_, 0.0);
  for (double& noise : noise_) noise = std::max(noise, floor);
}

SkyMap::Cell SkyMap::CellOf(double position, double tile, int tiles) {
  const double at = std::clamp((position + 0.5) / tile - 0.5, 0.0, static_cast<double>(tiles - 1));
  const int index = std::clamp(static_cast<int>(at), 0, std::max(tiles - 2, 0));
  return {index, tiles > 1 ? at - index : 0.0};
}

double SkyMap::Level(double x, double y) const {
  const Cell column = CellOf(x, tileWidth_, columns_), row = CellOf(y, tileHeight_, rows_);
  const int right = std::min(column.index + 1, columns_ - 1), lower = std::min(row.index + 1, rows_ - 1);
  const auto at = [&](int i, int j) { return levels_[static_cast<std::size_t>(j * columns_ + i)]; };
  const double above = at(column.index, row.index) * (1.0 - column.part) + at(right, row.index) * column.part;
  const double below = at(column.index, lower) * (1.0 - column.part) + at(right, lower) * column.part;
  return above * (1.0 - row.part) + below * row.part;
}

double SkyMap::Noise(double x, double y) const {
  const int column = std::clamp(static_cast<int>((x + 0.5) / tileWidth_), 0, columns_ - 1);
  const int row = std::clamp(static_cast<int>((y + 0.5) / tileHeight_), 0, rows_ - 1);
  return noise_[static_cast<std::size_t>(row * columns_ + column)];
}

}  // namespace qmr
