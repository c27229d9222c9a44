// Medians of images and of undeveloped frames. Sums of blocks bound the work, and make the median robust against
// single hot pixels.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/auto_level.h"
#include "qmrimg/levels/level_samples.h"
#include "qmrimg/levels/site_medians.h"
#include "qmrimg/platform/truncate.h"

float qmr::MedianOf(const CVynImage& image, int subsample, Sampling sampling, int plane, const CRect* pRect) {
  const Area area(image, pRect);
  const std::int64_t pixels = area.Pixels();
  int block = 1;
  if (subsample && pixels > kMedianSamples)
    block = TruncateToInt(std::sqrt(static_cast<double>(pixels / kMedianSamples)) + 0.5);
  const int across = area.Width() / block;
  const int down = area.Height() / block;
  std::vector<float> sums(static_cast<std::size_t>(across) * static_cast<std::size_t>(down));
  const LevelSamples samples(image, sampling, image.IsColor() ? plane : 0);
  ForRows(0, across ? down : 0, [&](int by) {
    const std::span<float> row(sums.data() + static_cast<std::size_t>(by) * static_cast<std::size_t>(across),
                               static_cast<std::size_t>(across));
    for (int j = 0; j < block; ++j) {
      samples.ForRow(area.top + by * block + j, area.left, area.left + across * block,
                     [&](std::size_t first, std::span<const float> piece) { AddToBlocks(piece, first, block, row); });
    }
  });
  return static_cast<float>(UpperMedian(sums) / (static_cast<double>(block) * block));
}

void CImgAutoLevel::GetMedian(float* result, int subsample, int useLuminance, int nPlane, const CRect* pRect) {
  const qmr::Sampling sampling = useLuminance ? qmr::Sampling::kRawLuminance : qmr::Sampling::kPlane;
  *result = qmr::MedianOf(*this, subsample, sampling, nPlane, pRect);
}

void CImgAutoLevel::GetMedianBayer(float* result, int subsample) {
  qmr::MedianBayer(*this, result, subsample);
}

void CImgAutoLevel::GetMedianHoneyComb(double* result, int subsample) {
  qmr::HoneycombGains(*this, result, subsample);
}
