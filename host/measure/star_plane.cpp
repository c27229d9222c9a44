#include "host/measure/star_plane.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "host/night/develop_mosaic.h"
#include "host/night/failure.h"
#include "host/night/registration/luminance.h"
#include "host/operations/blank_pixels.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {
namespace {

constexpr int kLeastSide = 16;

void Shape(CVynImage& image, int width, int height) {
  image.SetPlanes(1);
  image.SetBitsPixel(-32);
  if (!image.ChangeSize(width, height)) throw Failure(kExitIo, "not enough memory");
}

// Means of cells; one of whose pixels has no value has none either.
void FillCells(const CVynImage& from, CVynImage& to) {
  ForRows(0, to.GetHeight(), [&](int y) {
    const auto upper = ReadRow(from, 2 * y, 0, 0, from.GetWidth()),
               lower = ReadRow(from, 2 * y + 1, 0, 0, from.GetWidth());
    const auto row = WriteRow(to, y, 0, 0, to.GetWidth());
    for (std::size_t x = 0; x < row.size(); ++x)
      row[x] = (upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1]) * 0.25f;
  });
}

void FillPlane(const CVynImage& from, int plane, CVynImage& to) {
  ForRows(0, to.GetHeight(), [&](int y) {
    const auto pixels = ReadRow(from, y, plane, 0, from.GetWidth());
    std::copy(pixels.begin(), pixels.end(), WriteRow(to, y, 0, 0, to.GetWidth()).begin());
  });
}

void FillLuminance(const CVynImage& from, CVynImage& to) {
  const Luminance luminance(from);
  ForRows(0, to.GetHeight(),
          [&](int y) { luminance.Copy(0, y, luminance.Width(), WriteRow(to, y, 0, 0, to.GetWidth()).data()); });
}

// The luminance of a honeycomb, in its place on the sensor; the edges, which development cuts off, have no value.
void FillHoneycomb(LightFrame& frame, CVynImage& to) {
  // Development would make crosses of single bright pixels, which look like stars.
  constexpr double kLone = 0.3;
  CImgFilterMisc clean;
  clean.CopyImage(*frame.image);
  clean.CFANoiseCut(frame.mosaic.number, 1, kLone, 1, kLone, frame.image.get(), nullptr, 0);
  frame.image->Swap(&clean);
  Development development;
  development.mono = true;
  development.margins = LeastMargins(frame.mosaic, to.GetWidth(), to.GetHeight());
  const auto developed = DevelopMosaic(std::move(frame.image), frame.mosaic, development);
  if (!developed) throw Failure(kExitIo, "not enough memory");
  const int left = development.margins.left, top = development.margins.top;
  ForRows(0, to.GetHeight(), [&](int y) {
    const auto row = WriteRow(to, y, 0, 0, to.GetWidth());
    std::fill(row.begin(), row.end(), NAN);
    if (y < top || y - top >= developed->GetHeight()) return;
    const auto pixels = ReadRow(*developed, y - top, 0, 0, developed->GetWidth());
    std::copy(pixels.begin(), pixels.end(), row.begin() + left);
  });
}

// Beyond this, which no sensor gives, differences and sums would overflow.
constexpr float kMostValue = 1e37f;

void MarkBlank(StarPlane& plane) {
  const int width = plane.Width(), height = plane.Height();
  for (int y = 0; y < height; ++y) {
    const float* row = plane.Row(y);
    for (int x = 0; x < width; ++x) {
      if (std::fabs(row[x]) <= kMostValue) continue;
      if (plane.blank.empty()) plane.blank.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
      plane.blank[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] = true;
      plane.image.SetPixelGrayRaw(x, y, NAN, 0);
    }
  }
  if (!plane.blank.empty()) BlankPixels(plane.image, 1);
}

}  // namespace

void MakeStarPlane(LightFrame& frame, Brightness brightness, StarPlane& plane) {
  const CVynImage& image = *frame.image;
  const std::string name = PrintablePath(frame.path);
  const bool colour = image.GetPlanes() >= 3;
  if (brightness != Brightness::kLuminance && !colour) throw Failure(kExitUsage, "--plane: " + name + " has one plane");
  using Kind = MosaicLayout::Kind;
  if (frame.mosaic.kind == Kind::Unsupported)
    throw Failure(kExitBadData, name + ": holds an undeveloped mosaic that is not known (" + frame.mosaic.text +
                                    "); --bayer names it, or says none to take it as it lies");
  const bool honeycomb = frame.mosaic.kind == Kind::HoneyComb;
  plane.scale = frame.mosaic.kind == Kind::Bayer ? 2 : 1;
  const int width = image.GetWidth() / plane.scale, height = image.GetHeight() / plane.scale;
  if (width < kLeastSide || height < kLeastSide)
    throw Failure(kExitBadData, name + ": " + SizeText(image) + " is too small to measure stars in");
  if (plane.scale == 2 || colour || honeycomb) Shape(plane.image, width, height);
  if (honeycomb) {
    FillHoneycomb(frame, plane.image);
    plane.what = "luminance of the honeycomb, lone pixels taken out";
  } else if (plane.scale == 2) {
    FillCells(image, plane.image);
    plane.what = "means of cells of 2 x 2 pixels";
  } else if (colour && brightness == Brightness::kLuminance) {
    FillLuminance(image, plane.image);
    plane.what = "luminance";
  } else if (colour) {
    const char* const names[] = {"red", "green", "blue"};
    const int number = static_cast<int>(brightness) - static_cast<int>(Brightness::kRed);
    FillPlane(image, number, plane.image);
    plane.what = names[number];
  } else {
    plane.image.Swap(frame.image.get());
    plane.what = "grey";
  }
  frame.image.reset();
  MarkBlank(plane);
}

}  // namespace qmr
