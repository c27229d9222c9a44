// Readers for a destination pixel of an image that is being shifted, turned and scaled.
#include "qmrimg/image/bilinear.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/truncate.h"

namespace {

using qmr::Position;
using qmr::SourceOf;

void Serve(const Position& at, int* outside, double* srcX, double* srcY) {
  if (outside) *outside = 0;
  if (srcX) *srcX = at.x;
  if (srcY) *srcY = at.y;
}

bool IsInside(const Position& at, const CImage& image) {
  return qmr::IsInside(at, image.GetWidth(), image.GetHeight());
}

// What `plane` means for a gray reader: a plane of the image, or -1 for the brightness of a colour image.
int GrayPlane(const CImage& image, int plane) {
  if (!image.IsColor()) return 0;
  return plane == -1 && !qmr::HasRgb(image) ? 0 : plane;
}

// `read(plane)` gives one plane's value at the position.
template <class Read>
float GrayOf(int plane, Read&& read) {
  if (plane != -1) return read(plane);
  const float r = read(0);
  const float g = read(1);
  const float b = read(2);
  return static_cast<float>(b * 0.114 + (g * 0.587 + r * 0.299));
}

float Outside(double fill, int* outside) {
  if (outside) *outside = 1;
  return static_cast<float>(fill);
}

}  // namespace

float CVynImage::GetPixelGray256f(int x, int y, double dx, double dy, double sinA, double cosA, double scale, int plane,
                                  double fill, int nearest, int* outside, double* srcX, double* srcY) const {
  const Position at = SourceOf(x, y, {dx, dy, sinA, cosA, scale, StdCtr.x, StdCtr.y});
  Serve(at, outside, srcX, srcY);
  // The position is tested before it is rounded, on purpose: within half a pixel of the right or bottom edge the
  // nearest reader meets the zeros behind the image, which the raw reader takes for outside.
  if (!IsInside(at, *this)) return Outside(fill, outside);
  const int from = GrayPlane(*this, plane);
  if (!nearest) return GrayOf(from, [&](int p) { return GetPixelGray256f(at.x, at.y, p); });
  const int ix = qmr::TruncateToInt(at.x + 0.5);
  const int iy = qmr::TruncateToInt(at.y + 0.5);
  return GrayOf(from, [&](int p) { return GetPixelGray256f(ix, iy, p); });
}

float CVynImage::GetPixelGray256f(int x, int y, int dx, int dy, double sinA, double cosA, double scale, int plane,
                                  double fill, int nearest, int* outside, double* srcX, double* srcY) const {
  return GetPixelGray256f(x, y, static_cast<double>(dx), static_cast<double>(dy), sinA, cosA, scale, plane, fill,
                          nearest, outside, srcX, srcY);
}

float CVynImage::GetPixelGrayRaw(int x, int y, double dx, double dy, double sinA, double cosA, double scale, int plane,
                                 double fill, int nearest, int* outside, double* srcX, double* srcY) const {
  const Position at = SourceOf(x, y, {dx, dy, sinA, cosA, scale, StdCtr.x, StdCtr.y});
  Serve(at, outside, srcX, srcY);
  const int from = GrayPlane(*this, plane);
  if (!nearest) {
    if (!IsInside(at, *this)) return Outside(fill, outside);
    return GrayOf(from, [&](int p) { return GetPixelGrayRaw(at.x, at.y, p); });
  }
  const int ix = qmr::TruncateToInt(at.x + 0.5);
  const int iy = qmr::TruncateToInt(at.y + 0.5);
  if (ix < 0 || ix >= Width || iy < 0 || iy >= Height) return Outside(fill, outside);
  return GrayOf(from, [&](int p) { return GetPixelGrayRaw(ix, iy, p); });
}

float CVynImage::GetPixelGrayRaw(int x, int y, int dx, int dy, double sinA, double cosA, double scale, int plane,
                                 double fill, int nearest, int* outside, double* srcX, double* srcY) const {
  return GetPixelGrayRaw(x, y, static_cast<double>(dx), static_cast<double>(dy), sinA, cosA, scale, plane, fill,
                         nearest, outside, srcX, srcY);
}

namespace {

// The three values at the position, one and the same on a monochrome image; `fill` outside, not rounded.
template <class Read>
void RgbOf(const CImage& image, const Position& at, double* r, double* g, double* b, double fill, int* outside,
           Read&& read) {
  if (!IsInside(at, image)) {
    if (outside) *outside = 1;
    *r = *g = *b = fill;
    return;
  }
  if (!qmr::HasRgb(image)) {
    *r = *g = *b = read(0);
    return;
  }
  *r = read(0);
  *g = read(1);
  *b = read(2);
}

}  // namespace

void CVynImage::GetPixelRgb256f(int x, int y, double dx, double dy, double sinA, double cosA, int useStdCtr,
                                double scale, double* r, double* g, double* b, double fill, int* outside, double* srcX,
                                double* srcY) const {
  const double cx = useStdCtr ? StdCtr.x : Width * 0.5;
  const double cy = useStdCtr ? StdCtr.y : Height * 0.5;
  const Position at = SourceOf(x, y, {dx, dy, sinA, cosA, scale, cx, cy});
  Serve(at, outside, srcX, srcY);
  RgbOf(*this, at, r, g, b, fill, outside, [&](int p) { return GetPixelGray256f(at.x, at.y, p); });
}

void CVynImage::GetPixelRgb256f(int x, int y, int dx, int dy, double sinA, double cosA, int useStdCtr, double scale,
                                double* r, double* g, double* b, double fill, int* outside, double* srcX,
                                double* srcY) const {
  GetPixelRgb256f(x, y, static_cast<double>(dx), static_cast<double>(dy), sinA, cosA, useStdCtr, scale, r, g, b, fill,
                  outside, srcX, srcY);
}

void CVynImage::GetPixelRgbRaw(int x, int y, double dx, double dy, double sinA, double cosA, int useStdCtr,
                               double scale, double* r, double* g, double* b, double fill, int* outside, double* srcX,
                               double* srcY) const {
  const double cx = useStdCtr ? StdCtr.x : Width * 0.5;
  const double cy = useStdCtr ? StdCtr.y : Height * 0.5;
  const Position at = SourceOf(x, y, {dx, dy, sinA, cosA, scale, cx, cy});
  Serve(at, outside, srcX, srcY);
  RgbOf(*this, at, r, g, b, fill, outside, [&](int p) { return GetPixelGrayRaw(at.x, at.y, p); });
}

void CVynImage::GetPixelRgbRaw(int x, int y, int dx, int dy, double sinA, double cosA, int useStdCtr, double scale,
                               double* r, double* g, double* b, double fill, int* outside, double* srcX,
                               double* srcY) const {
  GetPixelRgbRaw(x, y, static_cast<double>(dx), static_cast<double>(dy), sinA, cosA, useStdCtr, scale, r, g, b, fill,
                 outside, srcX, srcY);
}

float CVynImage::GetPixelL(int x, int y, double dx, double dy, double sinA, double cosA, double scale,
                           double fill) const {
  const Position at = SourceOf(x, y, {dx, dy, sinA, cosA, scale, StdCtr.x, StdCtr.y});
  return IsInside(at, *this) ? GetPixelGrayRaw(at.x, at.y, 0) : static_cast<float>(fill);
}

void CVynImage::GetPixelAb(int x, int y, double dx, double dy, double sinA, double cosA, double scale, double* a,
                           double* b, double fill) const {
  const Position at = SourceOf(x, y, {dx, dy, sinA, cosA, scale, StdCtr.x, StdCtr.y});
  const bool inside = IsInside(at, *this);
  *a = inside ? GetPixelGrayRaw(at.x, at.y, 0) : fill;
  *b = inside ? GetPixelGrayRaw(at.x, at.y, 1) : fill;
}
