// Dark and flat calibration of an image by frames.
#include <algorithm>
#include <cstddef>
#include <span>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/raw/kernels/calibrate_rows.h"

namespace {

constexpr int kMessageFlat = 6105;
constexpr int kMessageDark = 6106;
constexpr int kMessageDarkFlat = 6195;

// The plane of a frame that serves plane p of the image.
int FramePlane(const CVynImage& frame, int p) {
  return frame.IsColor() ? p : 0;
}

// One row of an operation: where a frame ends, the image is left alone.
struct CalibrationRow {
  std::span<const float> from, dark, flat;
  std::span<float> to;
};

CalibrationRow RowOf(CVynImage& image, const CVynImage& src, const CVynImage* dark, const CVynImage* flat, int y, int p,
                     int left, int right) {
  const auto [from, to] = qmr::RowPair(src, image, y, p, left, right);
  CalibrationRow row{from, {}, {}, to};
  std::size_t width = to.size();
  if (dark) {
    row.dark = qmr::ReadRow(*dark, y, FramePlane(*dark, p), left, right);
    width = std::min(width, row.dark.size());
  }
  if (flat) {
    row.flat = qmr::ReadRow(*flat, y, FramePlane(*flat, p), left, right);
    width = std::min(width, row.flat.size());
  }
  row.from = row.from.first(width);
  row.to = row.to.first(width);
  return row;
}

}  // namespace

void CVynImage::DarkClbrtn(CVynImage* dark, int bProgress) {
  if (!dark) return;
  ShowProgressInit(bProgress, kMessageDark, Height * Planes);
  for (int p = 0; p < Planes; ++p) {
    qmr::ForRows(
        0, Height,
        [&](int y) {
          const CalibrationRow row = RowOf(*this, *this, dark, nullptr, y, p, 0, Width);
          qmr::DarkRow(row.from, row.dark, row.to);
        },
        this);
  }
  ShowProgressEnd(nullptr);
}

void CVynImage::FlatClbrtn(CVynImage* flat, int bProgress) {
  if (!flat) return;
  // The mean of plane 0 serves all planes, so that a colour flat balances the planes against plane 0 as well.
  const qmr::FlatLevels levels{flat->GetAvrGrayRaw(0), 0.0f, 0.0f, 0.0f, 0.0};
  ShowProgressInit(bProgress, kMessageFlat, Height * Planes);
  for (int p = 0; p < Planes; ++p) {
    qmr::ForRows(
        0, Height,
        [&](int y) {
          const CalibrationRow row = RowOf(*this, *this, nullptr, flat, y, p, 0, Width);
          qmr::FlatRow(row.from, row.flat, row.to, levels);
        },
        this);
  }
  ShowProgressEnd(nullptr);
}

void CVynImage::FlatClbrtn(CVynImage* flat, float pedestal, double gamma, int bProgress) {
  if (flat) flat->CalcMinMax();
  ShowProgressInit(bProgress, kMessageFlat, Height * Planes);
  for (int p = 0; p < Planes; ++p) {
    qmr::FlatLevels levels{};
    if (flat) {
      const int q = FramePlane(*flat, p);
      const float min = flat->GetMinPixel(q);
      const float max = flat->GetMaxPixel(q);
      levels = qmr::FlatLevels::Of(min, max, flat->GetAvrGrayRaw(q), pedestal, gamma);
      // A flat without contrast in one plane serves no later plane either.
      if (min == max) flat = nullptr;
    }
    qmr::ForRows(
        0, Height,
        [&](int y) {
          if (!flat) return;
          const CalibrationRow row = RowOf(*this, *this, nullptr, flat, y, p, 0, Width);
          qmr::FlatRow(row.from, row.flat, row.to, levels);
        },
        this);
  }
  ShowProgressEnd(nullptr);
}

void CVynImage::DarkFlat(CVynImage* src, CVynImage* dark, CVynImage* flat, float* flatMin, float* flatMax,
                         float* flatAvr, float pedestal, double gamma, const CRect* pRect, int bProgress) {
  if (!src) return;
  if (!flatMin || !flatMax || !flatAvr) flat = nullptr;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageDarkFlat, (bottom - top) * Planes);
  for (int p = 0; p < Planes; ++p) {
    qmr::FlatLevels levels{};
    // The arrays end with the planes of the flat.
    if (flat && FramePlane(*flat, p) < flat->GetPlanes()) {
      const int q = FramePlane(*flat, p);
      levels = qmr::FlatLevels::Of(flatMin[q], flatMax[q], flatAvr[q], pedestal, gamma);
      if (flatMin[q] == flatMax[q]) flat = nullptr;
    }
    qmr::ForRows(
        top, bottom,
        [&](int y) {
          const CalibrationRow row = RowOf(*this, *src, dark, flat, y, p, left, right);
          if (dark && flat)
            qmr::DarkFlatRow(row.from, row.dark, row.flat, row.to, levels);
          else if (dark)
            qmr::DarkRow(row.from, row.dark, row.to);
          else if (flat)
            qmr::FlatRow(row.from, row.flat, row.to, levels);
          else if (row.from.data() != row.to.data())
            std::copy(row.from.begin(), row.from.end(), row.to.begin());
        },
        this);
  }
  ShowProgressEnd(nullptr);
}

float CVynImage::FlatGamma(float value, float high, float low, double gamma) {
  return qmr::BendFlat(value, high, low, gamma);
}
