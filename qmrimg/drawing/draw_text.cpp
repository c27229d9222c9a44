#include "qmrimg/drawing/draw_text.h"

#include <algorithm>
#include <new>
#include <optional>

#include "qmrimg/drawing/colour_bytes.h"
#include "qmrimg/drawing/text_bitmap.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/calculation.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/stacking/composit.h"

namespace {

constexpr double kByteMax = 255.0;
constexpr int kSmoothScale = 2;

enum CompositMode { kAdd = 1, kMultiply = 4 };

std::optional<qmr::TextBitmap> BitmapOf(const CString& text, const LOGFONTW& font) {
  try {
    return qmr::DrawTextBitmap({text.GetString(), static_cast<std::size_t>(text.GetLength())}, font);
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

// A new image of that shape, all 0, with levels 0 and 1.
template <class Image>
void ShapeUnit(Image& image, int width, int height, int planes) {
  CVynImage shape(-32, width, height, planes, 1.0, 0.0, 1);
  for (int p = 0; p < planes; ++p) shape.SetLevel(p, 0.0, 1.0);
  image.Swap(&shape);
}

// 1.0 where there is no ink, 0.0 where a pixel is full of it. A bitmap that makes no pixel gives one without ink.
void FillMask(CVynImage& mask, const qmr::TextBitmap& bitmap, int scale) {
  const int width = bitmap.width / scale;
  const int height = bitmap.height / scale;
  ShapeUnit(mask, std::max(width, 1), std::max(height, 1), 1);
  const float perDot = scale == kSmoothScale ? 0.25f : 1.0f;
  qmr::ForRows(0, mask.GetHeight(), [&](int y) {
    const std::span<float> to = qmr::WriteRow(mask, y, 0, 0, mask.GetWidth());
    if (width == 0 || height == 0) {
      std::fill(to.begin(), to.end(), 1.0f);
      return;
    }
    const unsigned char* dots = bitmap.dots.data() + static_cast<std::ptrdiff_t>(y) * scale * bitmap.width;
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      int blank = 0;
      for (int j = 0; j < scale; ++j)
        for (int i = 0; i < scale; ++i) blank += dots[j * bitmap.width + x * scale + i] == 0;
      to[static_cast<std::size_t>(x)] = static_cast<float>(blank) * perDot;
    }
  });
}

void Reverse(CVynImage& mask) {
  qmr::ForRows(0, mask.GetHeight(), [&](int y) {
    for (float& v : qmr::WriteRow(mask, y, 0, 0, mask.GetWidth())) v = 1.0f - v;
  });
}

// The mask in three planes, each times its byte of the colour.
void Tint(const CVynImage& mask, const qmr::ColourBytes& bytes, CVynImage& pen) {
  const double planes[] = {bytes.red / kByteMax, bytes.green / kByteMax, bytes.blue / kByteMax};
  ShapeUnit(pen, mask.GetWidth(), mask.GetHeight(), 3);
  qmr::ForRows(0, mask.GetHeight(), [&](int y) {
    const std::span<const float> from = qmr::ReadRow(mask, y, 0, 0, mask.GetWidth());
    for (int p = 0; p < 3; ++p) {
      const std::span<float> to = qmr::WriteRow(pen, y, p, 0, mask.GetWidth());
      for (std::size_t x = 0; x < to.size(); ++x) to[x] = static_cast<float>(from[x] * planes[p]);
    }
  });
}

// Makes `image` the composite of `a`, which may be itself, and `b` with its top left at `pos`, on the 256-scale.
void Blend(CVynImage& image, CVynImage& a, CVynImage& b, CPoint pos, CompositMode mode) {
  struct Lent {
    explicit Lent(CVynImage& owner) : owner(owner) { composit.Swap(&owner); }
    ~Lent() { composit.Swap(&owner); }
    CVynImage& owner;
    CImgComposit composit;
  };
  constexpr int kUseImageCenter = 1;
  constexpr int kMethod = 0;
  constexpr int kTo256 = 1;
  Lent lent(image);
  CVynImage& under = &a == &image ? static_cast<CVynImage&>(lent.composit) : a;
  lent.composit.Do(&under, &b, pos.x, pos.y, 0.0, kUseImageCenter, mode, kMethod, kTo256);
}

}  // namespace

CImgDrawText::CImgDrawText() = default;
CImgDrawText::~CImgDrawText() = default;

int CImgDrawText::Do(CVynImage* src, CPoint pos, const CString& text, LOGFONTW* font, unsigned long colour,
                     int bSmooth) {
  if (!src || !font) return 0;
  const int scale = bSmooth ? kSmoothScale : 1;
  const std::optional<qmr::TextBitmap> bitmap = BitmapOf(text, qmr::ScaledFont(*font, scale));
  if (!bitmap) return 0;
  CImgCalculation mask;
  FillMask(mask, *bitmap, scale);
  // The text is cut out of the background first: added to 0, its colour comes out whole.
  Blend(*this, *src, mask, pos, kMultiply);
  Reverse(mask);
  const qmr::ColourBytes bytes = qmr::BytesOf(colour);
  if (qmr::HasRgb(*this)) {
    CVynImage pen;
    Tint(mask, bytes, pen);
    Blend(*this, *this, pen, pos, kAdd);
  } else {
    constexpr int kMultiplication = 2;
    mask.Do(bytes.TwiceGrey() * 0.5 / kByteMax, kMultiplication, 0, &mask, nullptr, 0);
    Blend(*this, *this, mask, pos, kAdd);
  }
  return 1;
}
