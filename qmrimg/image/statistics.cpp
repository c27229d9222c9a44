// Minima, maxima and means; brightest pixels; moving an image up.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qmrimg/image/kernels/statistics_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"

namespace {

constexpr int kStatPlanes = 3;

// The number of pixels of a sheet, as the divisor of a mean.
std::int64_t Area(int width, int height) {
  return static_cast<std::int64_t>(width) * height;
}

}  // namespace

// The float sums run over a whole plane in one order and can't be split; the planes stand side by side instead.
void CVynImage::CalcMinMax() {
  qmr::ForRows(0, std::min(Planes, kStatPlanes), [this](int p) {
    qmr::PlaneStatistics statistics;
    for (int y = 0; y < Height; ++y) qmr::AddRow(qmr::ReadRow(*this, y, p, 0, Width), y == 0, statistics);
    MinPixel[p] = statistics.min;
    MaxPixel[p] = statistics.max;
    // One row and one column too few, on purpose: this is how the mean is defined, and flat correction uses it.
    AvrPixel[p] = statistics.sum / static_cast<float>(Area(Width - 1, Height - 1));
  });
}

void CVynImage::CalcMinMax(int margin) {
  const auto low = [margin](int size) { return std::max(std::min(margin, size - 1), 0); };
  const auto high = [margin](int size) {
    return static_cast<int>(std::clamp<std::int64_t>(static_cast<std::int64_t>(size) - margin, 0, size));
  };
  const int left = low(Width), right = high(Width), top = low(Height), bottom = high(Height);
  qmr::ForRows(0, std::min(Planes, kStatPlanes), [&](int p) {
    qmr::PlaneStatistics statistics;
    statistics.min = statistics.max = GetPixelGrayRaw(left, top, p);
    for (int y = top; y < bottom; ++y) qmr::AddNonZeroRow(qmr::ReadRow(*this, y, p, left, right), statistics);
    MinPixel[p] = statistics.min;
    MaxPixel[p] = statistics.max;
    AvrPixel[p] = statistics.sum / static_cast<float>(statistics.count);
  });
}

// A row's own sum depends on that row only, so rows may run side by side and be added in order.
float CVynImage::CalcAvr(int plane) const {
  if (plane < 0 || plane >= Planes) return 0.0f;
  const float area = static_cast<float>(Area(Width, Height));
  return qmr::FoldRows(
      0, Height, 0.0f, [&](int y) { return qmr::SumFloat(qmr::ReadRow(*this, y, plane, 0, Width)) / area; },
      [](float total, float row) { return total + row; });
}

float CVynImage::CalcStdDev(int plane, const float* pAvr) const {
  if (plane < 0 || plane >= Planes) return 0.0f;
  const float mean = pAvr ? *pAvr : CalcAvr(plane);
  const double area = static_cast<double>(Area(Width, Height));
  const double total = qmr::FoldRows(
      0, Height, 0.0, [&](int y) { return qmr::SumFloatSquares(qmr::ReadRow(*this, y, plane, 0, Width)) / area; },
      [](double sum, double row) { return sum + row; });
  return static_cast<float>(std::sqrt(total - static_cast<double>(mean * mean)));
}

float CVynImage::GetAvrGrayRaw(int plane) const {
  if (plane < 0 || plane >= Planes) return 0.0f;
  const double sum = qmr::FoldRows(
      0, Height, 0.0, [&](int y) { return qmr::SumDouble(qmr::ReadRow(*this, y, plane, 0, Width)); },
      [](double total, double row) { return total + row; });
  // The same short divisor as in CalcMinMax, on purpose.
  return static_cast<float>(sum / (Width - 1) / (Height - 1));
}

float CVynImage::GetAvrGray(int plane) const {
  return static_cast<float>(GetAvrGrayRaw(plane) - GetLevelMin(plane));
}

float CVynImage::GetAvrGray256f(int plane) const {
  return To256(GetAvrGrayRaw(plane), plane);
}

float CVynImage::GetMaxPixel(int plane, const CRect* pRect, int& x, int& y) const {
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  x = -1;
  y = -1;
  if (left >= right || top >= bottom) return 0.0f;
  // The first pixel is the start and no find: x and y stay -1 when it is the maximum.
  float max = GetPixelGrayRaw(left, top, plane);
  for (int row = top; row < bottom; ++row) {
    const auto pixels = qmr::ReadRow(*this, row, plane, left, right);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
      if (!(pixels[i] > max)) continue;
      max = pixels[i];
      x = left + static_cast<int>(i);
      y = row;
    }
  }
  return max;
}

float CVynImage::Get1stBrighterPixel(int plane, const CRect* pRect, double threshold, int& x, int& y) const {
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  x = -1;
  y = -1;
  const bool rgb = qmr::HasRgb(*this);
  for (int row = top; row < bottom; ++row) {
    const auto first = qmr::ReadRow(*this, row, rgb ? 0 : plane, left, right);
    const auto green = rgb ? qmr::ReadRow(*this, row, 1, left, right) : first;
    const auto blue = rgb ? qmr::ReadRow(*this, row, 2, left, right) : first;
    for (std::size_t i = 0; i < first.size(); ++i) {
      const double v = rgb ? qmr::BrightInPlaneOrder(first[i], green[i], blue[i]) : first[i];
      if (!(v > threshold)) continue;
      x = left + static_cast<int>(i);
      y = row;
      return static_cast<float>(v);
    }
  }
  return 0.0f;
}

void CVynImage::LiftUp(int rows) {
  if (rows <= 0) return;
  const std::size_t bytes = static_cast<std::size_t>(Width) * static_cast<std::size_t>(GetBytesPixel());
  for (int p = 0; p < Planes; ++p) {
    for (int y = rows; y < Height; ++y) {
      const void* from = GetImageAdr(0, y, p, 1, 0, nullptr);
      void* to = GetImageAdr(0, y - rows, p, 0, 0, nullptr);
      if (from && to) std::memcpy(to, from, bytes);
    }
  }
}
