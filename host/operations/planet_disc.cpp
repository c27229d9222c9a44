#include "host/operations/planet_disc.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "qmrimg/image/row_access.h"

namespace qmr {
namespace {

// The mean of all planes and of 3 x 3 pixels, which takes the edge off noise and hot pixels.
std::vector<float> Smoothed(const CVynImage& image) {
  const auto width = static_cast<std::size_t>(image.GetWidth());
  const auto height = static_cast<std::size_t>(image.GetHeight());
  std::vector<float> along(width * height), smooth(width * height);
  std::vector<float> sum(width);
  for (std::size_t y = 0; y < height; ++y) {
    std::fill(sum.begin(), sum.end(), 0.0f);
    for (int p = 0; p < image.GetPlanes(); ++p) {
      const std::span<const float> row = ReadRow(image, static_cast<int>(y), p, 0, image.GetWidth());
      for (std::size_t x = 0; x < row.size(); ++x) sum[x] += row[x];
    }
    for (std::size_t x = 0; x < width; ++x)
      along[y * width + x] = sum[x > 0 ? x - 1 : 0] + sum[x] + sum[std::min(x + 1, width - 1)];
  }
  const float share = 1.0f / static_cast<float>(9 * image.GetPlanes());
  for (std::size_t y = 0; y < height; ++y) {
    const float* above = &along[(y > 0 ? y - 1 : 0) * width];
    const float* below = &along[std::min(y + 1, height - 1) * width];
    for (std::size_t x = 0; x < width; ++x)
      smooth[y * width + x] = (above[x] + along[y * width + x] + below[x]) * share;
  }
  return smooth;
}

float MedianOf(std::vector<float> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Halfway from the sky to the disc.
float Threshold(const std::vector<float>& values, std::size_t width) {
  // A disc that counts does not reach the border, which so is sky.
  std::vector<float> border(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(width));
  border.insert(border.end(), values.end() - static_cast<std::ptrdiff_t>(width), values.end());
  const float sky = MedianOf(std::move(border));
  const float middle = (sky + *std::max_element(values.begin(), values.end())) / 2.0f;
  std::vector<float> bright;
  for (const float v : values)
    if (v > middle) bright.push_back(v);
  return bright.empty() ? middle : (sky + MedianOf(std::move(bright))) / 2.0f;
}

struct Region {
  double count = 0.0, x = 0.0, y = 0.0;  // sums
  std::size_t left = SIZE_MAX, right = 0, top = SIZE_MAX, bottom = 0;
};

// The region around a pixel; its pixels are taken out of `bright`.
Region Take(std::vector<std::uint8_t>& bright, std::size_t width, std::size_t start, std::vector<std::size_t>& stack) {
  Region region;
  const std::size_t height = bright.size() / width;
  const auto visit = [&](std::size_t at) {
    if (!bright[at]) return;
    bright[at] = 0;
    stack.push_back(at);
  };
  visit(start);
  while (!stack.empty()) {
    const std::size_t at = stack.back();
    stack.pop_back();
    const std::size_t x = at % width;
    const std::size_t y = at / width;
    region.count += 1.0;
    region.x += static_cast<double>(x);
    region.y += static_cast<double>(y);
    region.left = std::min(region.left, x);
    region.right = std::max(region.right, x);
    region.top = std::min(region.top, y);
    region.bottom = std::max(region.bottom, y);
    if (x > 0) visit(at - 1);
    if (x + 1 < width) visit(at + 1);
    if (y > 0) visit(at - width);
    if (y + 1 < height) visit(at + width);
  }
  return region;
}

}  // namespace

std::optional<PlanetDisc> FindPlanetDisc(const CVynImage& image) {
  const auto width = static_cast<std::size_t>(image.GetWidth());
  const auto height = static_cast<std::size_t>(image.GetHeight());
  const std::vector<float> values = Smoothed(image);
  const float threshold = Threshold(values, width);
  std::vector<std::uint8_t> bright(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) bright[i] = values[i] > threshold;
  Region largest;
  std::vector<std::size_t> stack;
  for (std::size_t i = 0; i < bright.size(); ++i) {
    if (!bright[i]) continue;
    const Region region = Take(bright, width, i, stack);
    if (region.count > largest.count) largest = region;
  }
  if (largest.count == 0.0) return std::nullopt;
  const auto across = static_cast<double>(largest.right - largest.left + 1);
  const auto down = static_cast<double>(largest.bottom - largest.top + 1);
  constexpr double kSmallest = 8.0;
  // An ellipse fills pi / 4 of its box where its axes lie along it, more than 0.7 where they do not.
  constexpr double kLeastFill = 0.68, kMostFill = 0.88, kLeastAspect = 0.85;
  const double fill = largest.count / (across * down);
  const bool inside = largest.left > 0 && largest.top > 0 && largest.right + 1 < width && largest.bottom + 1 < height;
  if (!inside || std::min(across, down) < kSmallest || fill < kLeastFill || fill > kMostFill ||
      std::min(across, down) < kLeastAspect * std::max(across, down))
    return std::nullopt;
  return PlanetDisc{largest.x / largest.count, largest.y / largest.count, largest.count};
}

}  // namespace qmr
