#include "qmrimg/raw/mosaic_run.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

#include "qmrimg/image/row_access.h"
#include "qmrimg/platform/exception.h"

namespace qmr {

double LargestOf(int bits) {
  return std::pow(2.0, bits) - 1.0;
}

void SubtractBlackLevel(CImage& image, float black) {
  ForRows(0, image.GetHeight(), [&](int y) { SubtractBlackRow(WriteRow(image, y, 0, 0, image.GetWidth()), black); });
}

int CopyMosaic(const CImage& src, CImage* work, int useGain) {
  if (!work || !src.GetVmImage() || src.GetBitsPixel() != -32) return 0;
  const int width = src.GetWidth();
  work->SetBitsPixel(-32);
  work->SetWidth(width);
  work->SetHeight(src.GetHeight());
  work->SetPlanes(useGain ? 2 : 1);
  work->SetBscale(1.0);
  work->SetBzero(0.0);
  if (!work->AllocImage()) return 0;
  work->SetOrgBitsPixel(-32);
  work->SetOrgPlanes(work->GetPlanes());
  for (int p = 0; p < work->GetPlanes(); ++p) {
    const int level = std::min(p, src.GetPlanes() - 1);
    work->SetLevel(p, src.GetLevelMin(level), src.GetLevelMax(level));
    ForRows(0, src.GetHeight(), [&](int y) {
      const std::span<const float> from = ReadRow(src, y, 0, 0, width);
      std::copy(from.begin(), from.end(), WriteRow(*work, y, p, 0, width).begin());
    });
  }
  return 1;
}

void ChangeSampleBits(CImage& image, int srcBits, int dstBits, int autoRange, SampleExtremes extremes) {
  double min = 0.0;
  double max = LargestOf(srcBits);
  if (autoRange) extremes(&min, &max);
  const double newMax = LargestOf(dstBits);
  const BitScale bits{min, newMax / (max - min), newMax, dstBits != -32};
  for (int p = 0; p < image.GetPlanes(); ++p) {
    ForRows(0, image.GetHeight(), [&](int y) { ScaleBitsRow(WriteRow(image, y, p, 0, image.GetWidth()), bits); });
  }
}

SampleRange RangeOfSamples(CImage& work, const CImage& object, int srcBits, int dstBits, int autoRange,
                           SampleExtremes extremes) {
  SampleRange range;
  double min = 0.0;
  double max = 0.0;
  if (autoRange) extremes(&min, &max);
  if (dstBits != -32) {
    if (!autoRange) max = LargestOf(srcBits);
    const double newMax = LargestOf(dstBits);
    const double scale = newMax / (max - min);
    if (scale > 0.0 && std::isfinite(scale)) {
      range.bits = BitScale{min, scale, newMax, true};
      // The scale rises steadily, so the ends of the samples become the ends of the scaled ones.
      min = range.bits->Apply(static_cast<float>(min));
      max = range.bits->Apply(static_cast<float>(max));
    } else {
      ChangeSampleBits(work, srcBits, dstBits, autoRange, extremes);
      extremes(&min, &max);
    }
    if (!autoRange) {
      min = 0.0;
      max = newMax;
    }
  } else if (!autoRange) {
    min = object.GetLevelMin(0);
    max = object.GetLevelMax(0);
  }
  range.lo = static_cast<float>(min);
  range.hi = static_cast<float>(max);
  return range;
}

int CorrectGamma(CVynImage* target, CImage* image, int dstBits, double gamma) {
  if (!image || !image->GetVmImage() || image->GetBitsPixel() != -32) return 0;
  double min = 0.0;
  double max = LargestOf(dstBits);
  const int width = image->GetWidth();
  if (dstBits == -32) {
    // The smallest positive double, negated, and not the lowest double: an image without positive pixels keeps it as
    // its maximum, on purpose.
    struct Range {
      double min = std::numeric_limits<double>::max();
      double max = -std::numeric_limits<double>::min();
    };
    const auto wider = [](Range a, const Range& b) {
      if (b.min < a.min) a.min = b.min;
      if (b.max > a.max) a.max = b.max;
      return a;
    };
    Range range;
    // The last row of an odd number of rows is left out, on purpose.
    const int rows = image->GetHeight() - image->GetHeight() % 2;
    const auto rowRange = [&](int y) {
      Range r;
      for (int p = 0; p < image->GetPlanes(); ++p)
        for (const float v : ReadRow(*image, y, p, 0, width)) r = wider(r, {v, v});
      return r;
    };
    try {
      range = FoldRows(0, rows, range, rowRange, wider);
    } catch (CMemoryException* e) {
      e->Delete();
      return 0;
    }
    min = range.min;
    max = range.max;
  }
  const double exponent = 1.0 / gamma;
  for (int p = 0; p < image->GetPlanes(); ++p) {
    ForRows(
        0, image->GetHeight(), [&](int y) { GammaRow(WriteRow(*image, y, p, 0, width), min, max, exponent); }, target);
  }
  return 1;
}

}  // namespace qmr
