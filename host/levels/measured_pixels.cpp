#include "host/levels/measured_pixels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

#include "qmrimg/image/row_access.h"

namespace qmr {
namespace {

// Whether a pixel of the rectangle lacks its value.
bool HasBlank(const CVynImage& image, const CRect& rect) {
  return FoldRows(
      rect.top, rect.bottom, 0,
      [&](int y) {
        int blank = 0;
        for (int p = 0; p < image.GetPlanes(); ++p)
          for (const float v : ReadRow(image, y, p, rect.left, rect.right)) blank |= std::isnan(v);
        return blank;
      },
      [](int a, int b) { return a | b; });
}

// The pixels, plane by plane, in the order of rows.
std::vector<std::vector<float>> Collect(const CVynImage& image, const CRect& rect) {
  const auto planes = static_cast<std::size_t>(image.GetPlanes());
  std::vector<std::vector<float>> values(planes);
  std::vector<std::span<const float>> rows(planes);
  for (int y = rect.top; y < rect.bottom; ++y) {
    for (std::size_t p = 0; p < planes; ++p) rows[p] = ReadRow(image, y, static_cast<int>(p), rect.left, rect.right);
    for (std::size_t x = 0; x < rows[0].size(); ++x) {
      const bool blank = std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return std::isnan(row[x]); });
      if (blank) continue;
      for (std::size_t p = 0; p < planes; ++p) values[p].push_back(rows[p][x]);
    }
  }
  return values;
}

void Lift(CVynImage& image, double by) {
  if (by == 0.0) return;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    ForRows(0, image.GetHeight(), [&](int y) {
      for (float& v : WriteRow(image, y, p, 0, image.GetWidth())) v = static_cast<float>(v + by);
    });
    static_cast<CImage&>(image).SetLevel(p, image.GetLevelMin(p) + by, image.GetLevelMax(p) + by);
  }
}

// The width of rows for that many pixels, whose places don't count: one row for few, else that of the rectangle or
// less, down to half of it, where the fewest are left over. What fills no row is not measured.
std::size_t RowWidth(std::size_t count, std::size_t most) {
  constexpr std::size_t kFew = 50000;
  if (count <= kFew) return count;
  most = std::min(most, count);
  std::size_t best = most;
  for (std::size_t width = most; width > most / 2; --width)
    if (count % width < count % best) best = width;
  return best;
}

// How much brings the least value to 0 or above. A whole number, so that whole numbers stay what they are.
double LiftOf(const CVynImage& image) {
  double least = 0.0;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    double min = 0.0, max = 0.0;
    image.GetMinMax(p, &min, &max);
    least = std::min(least, min);
  }
  return -std::floor(least);
}

void TakeLevels(CVynImage& image, const CVynImage& from, double lift) {
  for (int p = 0; p < image.GetPlanes(); ++p)
    static_cast<CImage&>(image).SetLevel(p, from.GetLevelMin(p) - lift, from.GetLevelMax(p) - lift);
}

}  // namespace

bool MeasureLevels(CVynImage& image, const CRect& rect, bool fromZero, FunctionRef<void(CImgAutoLevel&)> measure) {
  CImgAutoLevel measured;
  const double lift = fromZero ? LiftOf(image) : 0.0;
  const bool whole = rect.Width() == image.GetWidth() && rect.Height() == image.GetHeight();
  if (whole && lift == 0.0 && !HasBlank(image, rect)) {
    measured.Swap(&image);
    measure(measured);
    measured.Swap(&image);
    return true;
  }
  const std::vector<std::vector<float>> values = Collect(image, rect);
  const std::size_t count = values.empty() ? 0 : values[0].size();
  if (count == 0) return false;
  const std::size_t width = RowWidth(count, static_cast<std::size_t>(rect.Width()));
  CVynImage shape(-32, static_cast<int>(width), static_cast<int>(count / width), image.GetPlanes(), 1.0, 0.0, 0);
  for (int p = 0; p < shape.GetPlanes(); ++p) {
    const std::vector<float>& plane = values[static_cast<std::size_t>(p)];
    for (int y = 0; y < shape.GetHeight(); ++y)
      std::copy_n(plane.begin() + static_cast<std::ptrdiff_t>(width) * y, width,
                  WriteRow(shape, y, p, 0, shape.GetWidth()).begin());
  }
  shape.SetOrgBitsPixel(image.GetOrgBitsPixel());
  TakeLevels(shape, image, 0.0);
  Lift(shape, lift);
  measured.Swap(&shape);
  measure(measured);
  TakeLevels(image, measured, lift);
  return true;
}

}  // namespace qmr
