#include "qmrimg/image/vm_dib.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

#include "qmrimg/platform/exception.h"

namespace {

// Keeps the temporary section small, whatever the picture's size.
constexpr int kStripRows = 50;

// One axis of a copy: a stretch of the source and where it goes.
struct Axis {
  int src;
  int srcSize;
  int dst;
  int dstSize;
};

// Cuts the source to 0..limit and the target with it; strips and edges overlap rather than leave a gap.
Axis Cut(const Axis& axis, int limit) {
  const std::int64_t end = std::min<std::int64_t>(static_cast<std::int64_t>(axis.src) + axis.srcSize, limit);
  const std::int64_t first = std::max(axis.src, 0);
  if (first == axis.src && end == static_cast<std::int64_t>(axis.src) + axis.srcSize) return axis;
  if (end <= first) return {0, 0, 0, 0};
  const auto target = [&](std::int64_t at) { return static_cast<double>(at - axis.src) * axis.dstSize / axis.srcSize; };
  const int left = static_cast<int>(std::floor(target(first)));
  const int right = static_cast<int>(std::ceil(target(end)));
  return {static_cast<int>(first), static_cast<int>(end - first), axis.dst + left, right - left};
}

}  // namespace

CVmDIB::~CVmDIB() {
  CVmDIB::Empty();
}

int CVmDIB::Create(CWnd* wnd, int width, int height, PALETTEENTRY* const palette, int bProgress) {
  return CreateFor(wnd, width, height, palette, bProgress);
}

int CVmDIB::Create(CWnd* wnd, int width, int height, int bProgress) {
  return CreateFor(wnd, width, height, nullptr, bProgress);
}

int CVmDIB::CreateFor(CWnd* wnd, int width, int height, const PALETTEENTRY* palette, int bProgress) {
  if (width <= 0 || height <= 0) return 0;
  Empty();
  if (!MakeHeader(wnd, width, height, palette)) {
    Empty();
    return 0;
  }
  StoreBits = BitCount == 16 ? 16 : BitCount == 24 || BitCount == 32 ? 24 : 8;
  CWnd* const main = bProgress ? AfxGetMainWnd() : nullptr;
  try {
    Store =
        new (std::nothrow) CVmImage(StoreBits, width, height, StorePlanes, main ? main->GetSafeHwnd() : nullptr, L"");
  } catch (CMemoryException*) {
    Empty();
    throw;
  }
  if (!Store) {
    Empty();
    AfxThrowMemoryException();
  }
  return 1;
}

void CVmDIB::Empty() {
  FreeHeader();
  delete Store;
  Store = nullptr;
  StoreBits = 0;
  Palette = nullptr;
}

void* CVmDIB::GetImageAdr(int x, int y, int plane, int readOnly) const {
  return Store && x < Width ? Store->GetImageAdr(x, y, plane, readOnly, 0, nullptr) : nullptr;
}

void CVmDIB::CopyStrip(CMemoryDIB& section, int srcX, int srcY, int width, int rows) const {
  const int bytes = StoreBits / 8;
  for (int y = 0; y < rows; ++y) {
    const auto* in = static_cast<const BYTE*>(GetImageAdr(srcX, srcY + y, 0, 1));
    BYTE* out = section.GetImageAdr8(0, y);
    if (!in || !out) continue;
    if (BitCount == 32) {
      for (int x = 0; x < width; ++x, in += 3, out += 4) {
        out[0] = in[0];
        out[1] = in[1];
        out[2] = in[2];
      }
    } else {
      // A section of 1 or 4 bits has shorter rows than the store.
      std::memcpy(out, in, static_cast<std::size_t>(std::min(width * bytes, section.GetLineBytes())));
    }
  }
}

int CVmDIB::BitBlt(CWnd* wnd, CPaintDC* dc, int dstX, int dstY, int width, int height, int srcX, int srcY, DWORD rop) {
  return StretchBlt(wnd, dc, dstX, dstY, width, height, srcX, srcY, width, height, rop);
}

int CVmDIB::StretchBlt(CWnd* wnd, CDC* dc, int dstX, int dstY, int dstW, int dstH, int srcX, int srcY, int srcW,
                       int srcH, DWORD rop) {
  if (!Store || !dc || srcW <= 0 || srcH <= 0) return 0;
  const Axis column = Cut({srcX, srcW, dstX, dstW}, Width);
  const Axis row = Cut({srcY, srcH, dstY, dstH}, Height);
  if (column.srcSize <= 0 || row.srcSize <= 0) return 1;
  const int strip = std::min(row.srcSize, kStripRows);
  CMemoryDIB section;
  if (!section.Create(wnd, column.srcSize, strip, 0) || section.GetBitCount() != BitCount) return 0;
  if (Palette) {
    section.GetDC()->SelectPalette(Palette, 0);
    section.GetDC()->RealizePalette();
  }
  for (int done = 0; done < row.srcSize; done += strip) {
    const int rows = std::min(strip, row.srcSize - done);
    CopyStrip(section, column.src, row.src + done, column.srcSize, rows);
    const int top = row.dst + static_cast<int>(std::floor(static_cast<double>(done) * row.dstSize / row.srcSize));
    const int height = static_cast<int>(std::ceil(static_cast<double>(rows) * row.dstSize / row.srcSize));
    const bool scaled = column.dstSize != column.srcSize || row.dstSize != row.srcSize;
    const int drawn = scaled ? dc->StretchBlt(column.dst, top, column.dstSize, height, section.GetDC(), 0, 0,
                                              column.srcSize, rows, rop)
                             : dc->BitBlt(column.dst, top, column.srcSize, rows, section.GetDC(), 0, 0, rop);
    if (!drawn) return 0;
  }
  return 1;
}
