// Levels, rectangles, copies of blocks, conversions between gray and colour.
#include <algorithm>
#include <cstring>

#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/messages.h"

namespace {

constexpr int kMessageToGray = 6129;
constexpr int kMessageToColor = 6130;
constexpr int kMessageChangePlanes = 6170;

qmr::RowLevels LevelsOf(const CImage& image, int plane) {
  return {image.GetLevelMin(plane), image.GetLevelRange(plane)};
}

// The coordinate limited to 0..size.
int Within(int coordinate, int size) {
  return std::clamp(coordinate, 0, std::max(size, 0));
}

}  // namespace

void CVynImage::SetLevel(int plane, double min, double max) {
  if (plane != -1) {
    CImage::SetLevel(plane, min, max);
    return;
  }
  if (!qmr::HasRgb(*this)) {
    CImage::SetLevel(0, min, max);
    return;
  }
  // Planes 1 and 2 move by as many of their own ranges as plane 0.
  const double lower = (min - GetLevelMin(0)) / GetLevelRange(0);
  const double upper = (max - GetLevelMax(0)) / GetLevelRange(0);
  CImage::SetLevel(0, min, max);
  for (int p = 1; p <= 2; ++p) {
    const double range = GetLevelRange(p);
    CImage::SetLevel(p, range * lower + GetLevelMin(p), range * upper + GetLevelMax(p));
  }
}

void CVynImage::CutOutOfLevel() {
  for (int p = 0; p < Planes; ++p) {
    const double min = GetLevelMin(p);
    const double max = GetLevelMax(p);
    qmr::ForRows(0, Height, [&](int y) { qmr::LimitRow(qmr::WriteRow(*this, y, p, 0, Width), min, max); });
  }
}

void CVynImage::NormalizeRect(const CRect* r, int& left, int& top, int& right, int& bottom) const {
  if (!r) {
    left = 0;
    top = 0;
    right = Width;
    bottom = Height;
    return;
  }
  left = Within(r->left, Width);
  right = Within(r->right, Width);
  top = Within(r->top, Height);
  bottom = Within(r->bottom, Height);
}

void CVynImage::PixelBlt(int dstX, int dstY, int width, int height, const CVynImage* src, int srcX, int srcY,
                         int bScale) {
  if (!src || src->Planes != Planes) return;
  dstX = Within(dstX, Width);
  dstY = Within(dstY, Height);
  srcX = Within(srcX, src->Width);
  srcY = Within(srcY, src->Height);
  width = std::min({width, Width - dstX, src->Width - srcX});
  height = std::min({height, Height - dstY, src->Height - srcY});
  if (width <= 0 || height <= 0) return;
  for (int p = 0; p < Planes; ++p) {
    const qmr::RowLevels from = LevelsOf(*src, p);
    const qmr::RowLevels to = LevelsOf(*this, p);
    // Serial, top row first: the blocks may overlap in one image.
    qmr::ForRowsSerial(0, height, [&](int y) {
      const auto in = qmr::ReadRow(*src, srcY + y, p, srcX, srcX + width);
      const auto out = qmr::WriteRow(*this, dstY + y, p, dstX, dstX + width);
      if (in.size() != out.size() || in.empty()) return;
      if (bScale && src != this) {
        qmr::RescaleRow(in, out, from, to);
        return;
      }
      // Within one image the rows may overlap, which vectors would show.
      std::memmove(out.data(), in.data(), in.size_bytes());
      if (bScale) qmr::RescaleRow(out, out, from, to);
    });
  }
}

int CVynImage::ToGray() {
  if (!qmr::HasRgb(*this)) return 1;
  const double min = GetLevelMin(0);
  const double max = GetLevelMax(0);
  if (!ChangePlanes(1, ProgressHandle, qmr::MessageText(kMessageChangePlanes))) return 0;
  CImage::SetLevel(0, min, max);
  return 1;
}

int CVynImage::ToGray(CVynImage* src, int bProgress) {
  if (!qmr::HasRgb(*this)) return 1;
  if (!src || !ToGray()) return 0;
  ShowProgressInit(bProgress, kMessageToGray, Height);
  const qmr::RowLevels to = LevelsOf(*this, 0);
  const qmr::RowLevels from[3] = {LevelsOf(*src, 0), LevelsOf(*src, 1), LevelsOf(*src, 2)};
  const bool rgb = qmr::HasRgb(*src);
  qmr::ForRows(
      0, Height,
      [&](int y) {
        const auto [r, out] = qmr::RowPair(*src, *this, y, 0, 0, Width);
        if (!rgb) {
          qmr::RescaleRow(r, out, from[0], to);
          return;
        }
        qmr::GrayRow(r, qmr::ReadRow(*src, y, 1, 0, Width), qmr::ReadRow(*src, y, 2, 0, Width), out, from, to);
      },
      this);
  ShowProgressEnd(nullptr);
  return 1;
}

int CVynImage::ToColor() {
  if (IsColor()) return 1;
  const double min = GetLevelMin(0);
  const double max = GetLevelMax(0);
  if (!ChangePlanes(3, ProgressHandle, qmr::MessageText(kMessageChangePlanes))) return 0;
  for (int p = 0; p < 3; ++p) CImage::SetLevel(p, min, max);
  return 1;
}

int CVynImage::ToColor(CVynImage* src, int bProgress) {
  if (IsColor()) return 1;
  if (!src) return 0;
  // Asked before the change: the source may be this image.
  const bool colour = src->IsColor();
  if (!ToColor()) return 0;
  ShowProgressInit(bProgress, kMessageToColor, Height);
  qmr::ForRows(
      0, Height,
      [&](int y) {
        for (int p = 0; p < 3; ++p) {
          const auto in = qmr::ReadRow(*src, y, colour ? p : 0, 0, Width);
          const auto out = qmr::WriteRow(*this, y, p, 0, Width);
          const std::size_t bytes = std::min(in.size_bytes(), out.size_bytes());
          if (bytes > 0 && in.data() != out.data()) std::memcpy(out.data(), in.data(), bytes);
        }
      },
      this);
  ShowProgressEnd(nullptr);
  return 1;
}
