#include "qmrimg/colour/false_color.h"

#include <array>
#include <span>

#include "qmrimg/colour/kernels/colour_rows.h"
#include "qmrimg/colour/palettes.h"
#include "qmrimg/colour/rgb_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageFalseColor = 6117;

}  // namespace

CImgFalseColor::CImgFalseColor() = default;
CImgFalseColor::CImgFalseColor(const CImgFalseColor& src) : CVynImage(src) {}
CImgFalseColor::~CImgFalseColor() = default;
CImgFalseColor& CImgFalseColor::operator=(const CImgFalseColor& src) {
  CVynImage::operator=(src);
  return *this;
}

void CImgFalseColor::Do(double low, double high, int palette, int repeat, CVynImage* src, CRect* pRect, int bProgress) {
  if (!src || !qmr::HasRgb(*this)) return;
  // The ends of the palette by the source's levels, pixels by this image's, on purpose.
  const double lowest = qmr::To256(low, src->GetLevelMin(0), src->GetLevelRange(0));
  const double highest = qmr::To256(high, src->GetLevelMin(0), src->GetLevelRange(0));
  qmr::FalseColour colour;
  for (int p = 0; p < 3; ++p) colour.levels[p] = {GetLevelMin(p), GetLevelRange(p)};
  colour.low = lowest;
  colour.scale = static_cast<float>(255.0 / (highest - lowest));
  colour.palette = qmr::FindPalette(palette);
  colour.repeat = repeat;

  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  const bool rgb = qmr::HasRgb(*src);
  ShowProgressInit(bProgress, kMessageFalseColor, bottom - top);
  qmr::ForRows(
      top, bottom,
      [&](int y) {
        qmr::RgbResult to = qmr::WriteRgb(*this, y, left, right);
        if (rgb) {
          qmr::RgbSource from = qmr::ReadRgb(*src, y, left, right);
          qmr::CutToShortest(from, to);
          qmr::FalseColourRow(from, to, colour);
        } else {
          std::array<std::span<const float>, 1> from = {qmr::ReadRow(*src, y, 0, left, right)};
          qmr::CutToShortest(from, to);
          qmr::FalseColourRow(from[0], to, colour);
        }
      },
      this);
  ShowProgressEnd(nullptr);
}

void CImgFalseColor::GetFalseColor(float value, int palette, int repeat, float* red, float* green, float* blue) {
  const qmr::PaletteColour colour = qmr::ColourOf(value, qmr::FindPalette(palette), repeat);
  *red = colour.r;
  *green = colour.g;
  *blue = colour.b;
}
