#include "qmrimg/platform/device.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace {

thread_local CWnd* mainWindow = nullptr;

COLORREF Rgb(unsigned r, unsigned g, unsigned b) {
  return r | g << 8 | b << 16;
}
unsigned Red(COLORREF c) {
  return c & 0xFF;
}
unsigned Green(COLORREF c) {
  return c >> 8 & 0xFF;
}
unsigned Blue(COLORREF c) {
  return c >> 16 & 0xFF;
}

bool IsKnownDepth(int bits) {
  return bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

// Combines the bits of source and target.
DWORD Combine(DWORD source, DWORD target, DWORD rop) {
  switch (rop) {
    case SRCPAINT:
      return source | target;
    case SRCAND:
      return source & target;
    case SRCINVERT:
      return source ^ target;
    default:
      return source;
  }
}

// Five bits to eight, the ends on the ends.
unsigned Widen(unsigned five) {
  return five << 3 | five >> 2;
}

BYTE NearestEntry(const std::vector<RGBQUAD>& table, COLORREF c) {
  int best = std::numeric_limits<int>::max();
  std::size_t index = 0;
  for (std::size_t i = 0; i < table.size(); ++i) {
    const int r = table[i].rgbRed - static_cast<int>(Red(c));
    const int g = table[i].rgbGreen - static_cast<int>(Green(c));
    const int b = table[i].rgbBlue - static_cast<int>(Blue(c));
    const int distance = r * r + g * g + b * b;
    if (distance >= best) continue;
    best = distance;
    index = i;
  }
  return static_cast<BYTE>(index);
}

}  // namespace

CPalette::~CPalette() = default;
CDC::~CDC() = default;

BOOL CDC::CreateCompatibleDC(const CDC* dc) {
  deviceBits_ = dc ? dc->GetDeviceCaps(BITSPIXEL) : 32;
  return DeleteDC();
}

BOOL CDC::DeleteDC() {
  bitmap_ = nullptr;
  palette_ = nullptr;
  return 1;
}

HBITMAP CDC::SelectObject(HBITMAP bitmap) {
  return std::exchange(bitmap_, bitmap);
}

const CPalette* CDC::SelectPalette(const CPalette* palette, BOOL background) {
  (void)background;
  return std::exchange(palette_, palette);
}

UINT CDC::RealizePalette() const {
  return palette_ ? static_cast<UINT>(palette_->GetEntries().size()) : 0;
}

int CDC::GetDeviceCaps(int index) const {
  if (index != BITSPIXEL) return 0;
  return bitmap_ ? bitmap_->bitCount : deviceBits_;
}

COLORREF CDC::Colour(const BYTE* pixel) const {
  switch (bitmap_->bitCount) {
    case 8: {
      if (palette_ && *pixel < palette_->GetEntries().size()) {
        const PALETTEENTRY& e = palette_->GetEntries()[*pixel];
        return Rgb(e.peRed, e.peGreen, e.peBlue);
      }
      const RGBQUAD& c = bitmap_->colours[*pixel];
      return Rgb(c.rgbRed, c.rgbGreen, c.rgbBlue);
    }
    case 16: {
      const unsigned v = pixel[0] | static_cast<unsigned>(pixel[1]) << 8;
      return Rgb(Widen(v >> 10 & 31), Widen(v >> 5 & 31), Widen(v & 31));
    }
    default:
      return Rgb(pixel[2], pixel[1], pixel[0]);
  }
}

void CDC::Store(BYTE* pixel, COLORREF colour, DWORD rop) const {
  const COLORREF c = rop == SRCCOPY ? colour : Combine(colour, Colour(pixel), rop);
  switch (bitmap_->bitCount) {
    case 8:
      *pixel = NearestEntry(bitmap_->colours, c);
      break;
    case 16: {
      const unsigned v = (Red(c) >> 3) << 10 | (Green(c) >> 3) << 5 | Blue(c) >> 3;
      pixel[0] = static_cast<BYTE>(v);
      pixel[1] = static_cast<BYTE>(v >> 8);
      break;
    }
    default:
      pixel[0] = static_cast<BYTE>(Blue(c));
      pixel[1] = static_cast<BYTE>(Green(c));
      pixel[2] = static_cast<BYTE>(Red(c));
  }
}

COLORREF CDC::GetPixel(int x, int y) const {
  if (!bitmap_ || !IsKnownDepth(bitmap_->bitCount) || x < 0 || x >= bitmap_->width || y < 0 || y >= bitmap_->height)
    return 0xFFFFFFFF;
  return Colour(bitmap_->Line(y) + static_cast<std::ptrdiff_t>(x) * (bitmap_->bitCount / 8));
}

BOOL CDC::BitBlt(int x, int y, int width, int height, const CDC* src, int srcX, int srcY, DWORD rop) {
  return StretchBlt(x, y, width, height, src, srcX, srcY, width, height, rop);
}

BOOL CDC::StretchBlt(int x, int y, int width, int height, const CDC* src, int srcX, int srcY, int srcWidth,
                     int srcHeight, DWORD rop) {
  const HBITMAP from = src ? src->bitmap_ : nullptr;
  const HBITMAP to = bitmap_;
  if (!from || !to || !IsKnownDepth(from->bitCount) || !IsKnownDepth(to->bitCount)) return 0;
  if (rop != SRCCOPY && rop != SRCPAINT && rop != SRCAND && rop != SRCINVERT) return 0;
  if (width <= 0 || height <= 0 || srcWidth <= 0 || srcHeight <= 0) return 0;
  // The source coordinate under the middle of target pixel `i` of `count`.
  const auto nearest = [](int first, int i, int count, int size) {
    return first + (2 * static_cast<std::int64_t>(i) + 1) * size / (2 * static_cast<std::int64_t>(count));
  };
  const auto firstInside = [](int origin) { return origin < 0 ? -static_cast<std::int64_t>(origin) : 0; };
  const auto lastInside = [](int origin, int size, int limit) {
    return std::min<std::int64_t>(size, static_cast<std::int64_t>(limit) - origin);
  };
  const int fromBytes = from->bitCount / 8;
  const int toBytes = to->bitCount / 8;
  // Bitmaps of one depth exchange their pixels as they are, palette indices included.
  const bool same = fromBytes == toBytes;
  for (std::int64_t j = firstInside(y); j < lastInside(y, height, to->height); ++j) {
    const std::int64_t sy = nearest(srcY, static_cast<int>(j), height, srcHeight);
    if (sy < 0 || sy >= from->height) continue;
    const BYTE* const in = from->Line(static_cast<int>(sy));
    BYTE* const out = to->Line(static_cast<int>(y + j));
    for (std::int64_t i = firstInside(x); i < lastInside(x, width, to->width); ++i) {
      const std::int64_t sx = nearest(srcX, static_cast<int>(i), width, srcWidth);
      if (sx < 0 || sx >= from->width) continue;
      const BYTE* const source = in + sx * fromBytes;
      BYTE* const target = out + (x + i) * toBytes;
      if (same)
        for (int k = 0; k < toBytes; ++k) target[k] = static_cast<BYTE>(Combine(source[k], target[k], rop));
      else
        Store(target, src->Colour(source), rop);
    }
  }
  return 1;
}

CWnd::CWnd(int bitsPixel, HWND window) : window_(window), bitsPixel_(bitsPixel), dc_(bitsPixel) {}

CWnd::~CWnd() {
  DeleteObject(dc_.SelectObject(nullptr));
  if (mainWindow == this) mainWindow = nullptr;
}

void CWnd::SetDeviceDepth(int bitsPixel) {
  DeleteObject(dc_.SelectObject(nullptr));
  const CDC device(bitsPixel);
  dc_.CreateCompatibleDC(&device);
  bitsPixel_ = bitsPixel;
}

BOOL CWnd::SetClientSize(int width, int height) {
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = static_cast<WORD>(bitsPixel_);
  void* bits = nullptr;
  const HBITMAP client = CreateDIBSection(&info, DIB_RGB_COLORS, &bits);
  if (!client) return 0;
  DeleteObject(dc_.SelectObject(client));
  return 1;
}

CPaintDC::CPaintDC(CWnd* window) : CDC(window ? window->GetDeviceDepth() : 32) {
  if (window) SelectObject(window->GetDC()->GetCurrentBitmap());
}

CPaintDC::~CPaintDC() = default;

HBITMAP CreateDIBSection(const BITMAPINFO* info, UINT usage, void** bits) {
  (void)usage;
  if (bits) *bits = nullptr;
  if (!info || info->bmiHeader.biWidth <= 0 || info->bmiHeader.biHeight <= 0) return nullptr;
  const BITMAPINFOHEADER& header = info->bmiHeader;
  try {
    auto bitmap = std::make_unique<qmr::DeviceBitmap>();
    bitmap->width = header.biWidth;
    bitmap->height = header.biHeight;
    bitmap->bitCount = header.biBitCount;
    bitmap->lineBytes = DibLineBytes(header.biWidth, header.biBitCount);
    if (header.biBitCount == 8) {
      bitmap->colours.resize(256);
      std::copy_n(info->bmiColors, std::min<std::size_t>(header.biClrUsed, 256), bitmap->colours.begin());
    }
    const auto bytes = static_cast<std::size_t>(bitmap->lineBytes) * static_cast<std::size_t>(header.biHeight);
    bitmap->bits = static_cast<BYTE*>(std::calloc(std::max<std::size_t>(bytes, 1), 1));
    if (!bitmap->bits) return nullptr;
    if (bits) *bits = bitmap->bits;
    return bitmap.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

BOOL DeleteObject(HBITMAP bitmap) {
  if (!bitmap) return 0;
  std::free(bitmap->bits);
  delete bitmap;
  return 1;
}

std::ptrdiff_t DibLineBytes(int width, int bitCount) {
  return (static_cast<std::ptrdiff_t>(width) * bitCount / 8 + 3) & ~std::ptrdiff_t{3};
}

CWnd* AfxGetMainWnd() {
  return mainWindow;
}
void qmr::SetMainWindow(CWnd* window) {
  mainWindow = window;
}
