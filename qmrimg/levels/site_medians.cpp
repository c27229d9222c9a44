#include "qmrimg/levels/site_medians.h"

#include <span>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"

namespace qmr {
namespace {

// The usable part of an undeveloped frame.
struct Frame {
  int left, top, width, height;
};

// Median of the sums of blocks of one site of the repeating cell, over the samples of a block. Samples are `cell`
// pixels apart and blocks hold `block` by `block` of them.
double MedianOfSite(const CImage& image, const Frame& frame, int cell, int row, int column, int block) {
  const int step = cell * block;
  const int across = frame.width > 0 ? frame.width / step : 0;
  const int down = frame.height > 0 ? frame.height / step : 0;
  if (across == 0 || down == 0) return 0.0;
  std::vector<double> sums(static_cast<std::size_t>(across) * static_cast<std::size_t>(down));
  ForRows(0, down, [&](int by) {
    double* const to = sums.data() + static_cast<std::size_t>(by) * static_cast<std::size_t>(across);
    for (int j = 0; j < block; ++j) {
      const int y = frame.top + (by * block + j) * cell + row;
      const std::span<const float> pixels = ReadRow(image, y, 0, frame.left, frame.left + frame.width);
      if (pixels.empty()) continue;
      const float* from = pixels.data() + column;
      for (int bx = 0; bx < across; ++bx)
        for (int i = 0; i < block; ++i, from += cell) to[bx] += *from;
    }
  });
  return UpperMedian(sums) / (static_cast<double>(block) * block);
}

}  // namespace

void MedianBayer(const CImage& image, float* result, int subsample) {
  const std::int64_t pixels = static_cast<std::int64_t>(image.GetWidth()) * image.GetHeight();
  int block = 1;
  if (subsample && pixels > kMedianSamples) {
    const int whole = TruncateToInt(std::sqrt(static_cast<double>(pixels / kMedianSamples)) + 0.5);
    block = std::max(TruncateToInt(whole * 0.5), 1);
  }
  for (int site = 0; site < 4; ++site)
    result[site] = static_cast<float>(
        MedianOfSite(image, {0, 0, image.GetWidth(), image.GetHeight()}, 2, site / 2, site % 2, block));
}

bool HasHoneycombBorder(const CImage& image) {
  CString model = image.GetHeader()->GetCameraModel();
  return model.MakeLower().Find(kHoneycombBorderedModel) >= 0;
}

HoneycombSite HoneycombOrigin(const CImage& image) {
  return HasHoneycombBorder(image) ? HoneycombSite{kHoneycombBorderRows, kHoneycombBorderColumns} : HoneycombSite{0, 0};
}

void HoneycombGains(const CImage& image, double* result, int subsample) {
  const HoneycombSite origin = HoneycombOrigin(image);
  const Frame frame{origin.column, origin.row, image.GetWidth() - 2 * origin.column,
                    image.GetHeight() - 2 * origin.row};
  const double pixels = static_cast<double>(std::max(frame.width, 0)) * std::max(frame.height, 0);
  int block = 1;
  if (subsample && pixels > kMedianSamples)
    block = std::max(TruncateToInt(std::sqrt(pixels * 0.0625 / static_cast<double>(kMedianSamples)) + 0.5), 1);
  double largest = 0.0;
  for (std::size_t i = 0; i < kHoneycombSites.size(); ++i) {
    const auto [row, column] = kHoneycombSites[i];
    result[i] = MedianOfSite(image, frame, kHoneycombCell, row, column, block);
    if (i == 0 || result[i] > largest) largest = result[i];
  }
  for (std::size_t i = 0; i < kHoneycombSites.size(); ++i) result[i] = largest / result[i];
}

}  // namespace qmr
