#include <algorithm>
#include <memory>

#include "host/night/registration/coarse_match.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/stacking/fourier.h"

namespace qmr {

namespace {

// The middle of the image in a square, 0 where the image doesn't reach. The square is a whole one for the library:
// its rotation wants no rectangle then.
void CutSquare(const BinnedImage& from, int side, CVynImage& to) {
  CVynImage square(-32, side, side, 1, 1.0, 0.0, 0);
  const int left = (from.width - side) / 2, top = (from.height - side) / 2;
  for (int y = std::max(0, -top); y < std::min(side, from.height - top); ++y) {
    auto* row = static_cast<float*>(square.GetImageAdr(0, y, 0, 0, 0, nullptr));
    const float* source = from.Row(top + y);
    for (int x = std::max(0, -left); x < std::min(side, from.width - left); ++x) row[x] = source[left + x];
  }
  to.Swap(&square);
}

}  // namespace

double CoarseAngle(const BinnedImage& reference, const BinnedImage& frame) {
  int side = 64;
  while (2 * side <= std::max(reference.width, reference.height)) side *= 2;
  CImgFourier a;
  CVynImage b;
  CutSquare(reference, side, a);
  CutSquare(frame, side, b);
  double angle = 0.0;
  int failWidth = 0, failHeight = 0;
  if (!a.CalcRotByRIPOC(&b, nullptr, nullptr, nullptr, angle, failWidth, failHeight, 0)) AfxThrowMemoryException();
  // The library's angle turns the frame back, with y upwards.
  return -angle;
}

BinnedImage QuarterTurned(const BinnedImage& frame) {
  BinnedImage turned;
  turned.bin = frame.bin;
  turned.width = frame.height;
  turned.height = frame.width;
  turned.pixels.resize(frame.pixels.size());
  for (int y = 0; y < turned.height; ++y) {
    float* row = turned.Row(y);
    for (int x = 0; x < turned.width; ++x) row[x] = frame.Row(x)[frame.width - 1 - y];
  }
  return turned;
}

}  // namespace qmr
