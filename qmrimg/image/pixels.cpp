// Pixel readers and writers.
#include <algorithm>

#include "qmrimg/image/bilinear.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/vyn_image.h"

namespace {

float Interpolate(const float* row0, const float* row1, const qmr::Cell& x, const qmr::Cell& y) {
  if (!row0 || !row1) return 0.0f;
  return qmr::Bilinear(row0[x.first], row0[x.second], row1[x.first], row1[x.second], x.fraction, y.fraction);
}

float* Writable(CImage& image, int x, int y, int plane) {
  if (x >= image.GetWidth() || image.GetBitsPixel() != -32) return nullptr;
  return static_cast<float*>(image.GetImageAdr(x, y, plane, 0, 0, nullptr));
}

}  // namespace

float CVynImage::GetPixelGrayRaw(int x, int y, int plane) const {
  const float* adr = FloatAdr(x, y, plane);
  return adr ? *adr : 0.0f;
}

float CVynImage::GetPixelGrayRaw(const float* adr) const {
  return *adr;
}

float CVynImage::GetPixelGray(int x, int y, int plane) const {
  const float v = GetPixelGrayRaw(x, y, plane);
  return GetPixelGray(&v, plane);
}

float CVynImage::GetPixelGray(const float* adr, int plane) const {
  return *adr - static_cast<float>(GetLevelMin(plane));
}

float CVynImage::GetPixelGray256f(int x, int y, int plane) const {
  return To256(GetPixelGrayRaw(x, y, plane), plane);
}
float CVynImage::GetPixelGray256f(const float* adr, int plane) const {
  return To256(*adr, plane);
}

double CVynImage::GetPixelGray256f(const float* adr, float min, float k) const {
  return (static_cast<double>(*adr) - static_cast<double>(min)) * static_cast<double>(k);
}

BYTE CVynImage::GetPixelGray256(int x, int y, int plane) const {
  const float v = GetPixelGrayRaw(x, y, plane);
  return GetPixelGray256(&v, plane);
}

BYTE CVynImage::GetPixelGray256(const float* adr, int plane) const {
  return static_cast<BYTE>(qmr::ToByte(*adr, qmr::BlockLevelsOf(*this, plane)));
}

BYTE CVynImage::GetPixelGray256(const float* adr, float min, float max, float k) const {
  const float v = *adr;
  if (!(v > min)) return 0;
  if (v >= max) return 255;
  // `k` is the caller's and may fit the levels or not.
  return static_cast<BYTE>(qmr::RoundToByte(std::clamp((v - min) * k, 0.0f, 255.0f)));
}

float CVynImage::GetPixelBright256f(int x, int y) const {
  if (!qmr::HasRgb(*this)) return GetPixelGray256f(x, y, 0);
  return CalcBright(GetPixelGray256f(x, y, 0), GetPixelGray256f(x, y, 1), GetPixelGray256f(x, y, 2));
}

float CVynImage::GetPixelBright256f(const float* r, const float* g, const float* b) const {
  if (!qmr::HasRgb(*this)) return To256(*r, 0);
  return CalcBright(To256(*r, 0), To256(*g, 1), To256(*b, 2));
}

// Taken back through the levels of plane 0 also on a colour image.
float CVynImage::GetPixelBrightRaw(int x, int y) const {
  return ToRaw(GetPixelBright256f(x, y), 0);
}

float CVynImage::GetPixelBrightRaw(const float* r, const float* g, const float* b) const {
  return ToRaw(GetPixelBright256f(r, g, b), 0);
}

float CVynImage::GetPixelGrayRaw(double x, double y, int plane) const {
  if (Width <= 0 || Height <= 0) return 0.0f;
  const qmr::Cell column = qmr::CellOf(x, Width);
  const qmr::Cell row = qmr::CellOf(y, Height);
  return Interpolate(Row(row.first, plane), Row(row.second, plane), column, row);
}

float CVynImage::GetPixelGray(double x, double y, int plane) const {
  return static_cast<float>(GetPixelGrayRaw(x, y, plane) - GetLevelMin(plane));
}

float CVynImage::GetPixelGray256f(double x, double y, int plane) const {
  return To256(GetPixelGrayRaw(x, y, plane), plane);
}

float CVynImage::GetPixelGrayRawBuf(double x, double y, int plane) {
  if (!VmImage || Width <= 0 || Height <= 0) return 0.0f;
  // Rows of pixels that are gone must not be read, nor rows that have become too short for the fields.
  if (bufStore_ != VmImage->GetNumber() || Width > VmImage->GetWidth() || BitsPixel != -32) {
    GetPixelGrayRawBufInit();
    bufStore_ = VmImage->GetNumber();
  }
  const qmr::Cell column = qmr::CellOf(x, Width);
  const qmr::Cell row = qmr::CellOf(y, Height);
  const int wanted[2] = {row.first, row.second};
  for (int i = 0; i < 2; ++i) {
    if (wanted[i] == BufRowNo[i]) continue;
    BufRowAdr[i] = Row(wanted[i], plane);
    BufRowNo[i] = wanted[i];
  }
  return Interpolate(BufRowAdr[0], BufRowAdr[1], column, row);
}

void CVynImage::GetPixelGrayRawBufInit() {
  for (int i = 0; i < 2; ++i) {
    BufRowAdr[i] = nullptr;
    BufRowNo[i] = -1;
  }
}

void CVynImage::SetPixelGrayRaw(int x, int y, float v, int plane) {
  if (float* adr = Writable(*this, x, y, plane)) SetPixelGrayRaw(adr, v);
}

void CVynImage::SetPixelGrayRaw(float* adr, float v) const {
  *adr = v;
}

void CVynImage::SetPixelGray(int x, int y, float v, int plane) {
  if (float* adr = Writable(*this, x, y, plane)) SetPixelGray(adr, v, plane);
}

void CVynImage::SetPixelGray(float* adr, float v, int plane) const {
  *adr = v + static_cast<float>(GetLevelMin(plane));
}

void CVynImage::SetPixelGray256f(int x, int y, double v, int plane) {
  if (float* adr = Writable(*this, x, y, plane)) SetPixelGray256f(adr, v, plane);
}

void CVynImage::SetPixelGray256f(float* adr, double v, int plane) const {
  *adr = static_cast<float>(ToRaw(v, plane));
}
