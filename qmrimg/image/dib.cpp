#include "qmrimg/image/dib.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr int kTableEntries = 256;
constexpr std::size_t kHeaderBytes = sizeof(BITMAPINFOHEADER) + kTableEntries * sizeof(RGBQUAD);

int PaletteSizeOf(int bits) {
  return bits == 1 ? 2 : bits == 4 ? 16 : bits == 8 ? kTableEntries : 0;
}

std::size_t BitsOf(int lineBytes, int height) {
  return static_cast<std::size_t>(lineBytes) * static_cast<std::size_t>(height);
}

}  // namespace

CBaseDIB::~CBaseDIB() {
  FreeHeader();
}

bool CBaseDIB::MakeHeader(CWnd* wnd, int width, int height, const PALETTEENTRY* palette) {
  const int bits = wnd ? wnd->GetDC()->GetDeviceCaps(BITSPIXEL) : CDC().GetDeviceCaps(BITSPIXEL);
  const std::ptrdiff_t line = DibLineBytes(width, bits);
  if (line > std::numeric_limits<int>::max() ||
      static_cast<std::uint64_t>(line) * static_cast<std::uint64_t>(height) > std::numeric_limits<DWORD>::max())
    return false;
  BmpInfo = static_cast<BITMAPINFO*>(std::calloc(kHeaderBytes, 1));
  if (!BmpInfo) return false;
  BitCount = bits;
  ColorUse = bits == 16 || bits == 24 || bits == 32 ? DIB_RGB_COLORS : DIB_PAL_COLORS;
  PaletteSize = PaletteSizeOf(bits);
  LineBytes = static_cast<int>(line);
  Width = width;
  Height = height;
  BITMAPINFOHEADER& header = BmpInfo->bmiHeader;
  header.biSize = sizeof(BITMAPINFOHEADER);
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = static_cast<WORD>(bits);
  header.biSizeImage = static_cast<DWORD>(BitsOf(LineBytes, height));
  header.biClrUsed = static_cast<DWORD>(PaletteSize);
  if (palette && bits == 8) {
    for (int i = 0; i < kTableEntries; ++i)
      BmpInfo->bmiColors[i] = {palette[i].peBlue, palette[i].peGreen, palette[i].peRed, 0};
  }
  return true;
}

bool CBaseDIB::CopyHeader(const CBaseDIB& other) {
  BmpInfo = static_cast<BITMAPINFO*>(std::malloc(kHeaderBytes));
  if (!BmpInfo) return false;
  std::memcpy(BmpInfo, other.BmpInfo, kHeaderBytes);
  BitCount = other.BitCount;
  ColorUse = other.ColorUse;
  PaletteSize = other.PaletteSize;
  LineBytes = other.LineBytes;
  Width = other.Width;
  Height = other.Height;
  return true;
}

void CBaseDIB::FreeHeader() {
  std::free(BmpInfo);
  BmpInfo = nullptr;
  BitCount = ColorUse = PaletteSize = LineBytes = Width = Height = 0;
}

CMemoryDIB::CMemoryDIB(const CMemoryDIB& other) : CBaseDIB() {
  *this = other;
}

CMemoryDIB& CMemoryDIB::operator=(const CMemoryDIB& other) {
  if (this == &other) return *this;
  CMemoryDIB::Empty();
  if (!other.BmpInfo) return *this;
  if (!CopyHeader(other) || !MakeSection(&other.MemDC)) {
    CMemoryDIB::Empty();
    return *this;
  }
  std::memcpy(Bits, other.Bits, BitsOf(LineBytes, Height));
  return *this;
}

CMemoryDIB::~CMemoryDIB() {
  CMemoryDIB::Empty();
}

int CMemoryDIB::Create(CWnd* wnd, int width, int height, PALETTEENTRY* const palette, int option) {
  (void)option;
  return CreateFor(wnd, width, height, palette);
}

int CMemoryDIB::Create(CWnd* wnd, int width, int height, int option) {
  (void)option;
  return CreateFor(wnd, width, height, nullptr);
}

int CMemoryDIB::CreateFor(CWnd* wnd, int width, int height, const PALETTEENTRY* palette) {
  if (width <= 0 || height <= 0) return 0;
  Empty();
  if (MakeHeader(wnd, width, height, palette) && MakeSection(wnd ? wnd->GetDC() : nullptr)) return 1;
  Empty();
  return 0;
}

bool CMemoryDIB::MakeSection(const CDC* device) {
  void* bits = nullptr;
  BitmapHandle = CreateDIBSection(BmpInfo, static_cast<UINT>(ColorUse), &bits);
  if (!BitmapHandle) return false;
  Bits = static_cast<BYTE*>(bits);
  if (!MemDC.CreateCompatibleDC(device)) return false;
  MemDC.SelectObject(BitmapHandle);
  return true;
}

void CMemoryDIB::Empty() {
  MemDC.DeleteDC();
  FreeHeader();
  DeleteObject(BitmapHandle);
  BitmapHandle = nullptr;
  Bits = nullptr;
}

HDIB CMemoryDIB::CreateHDIB() const {
  if (!BmpInfo) return nullptr;
  const std::size_t bytes = BitsOf(LineBytes, Height);
  const HDIB block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(BITMAPINFOHEADER) + bytes);
  if (!block) return nullptr;
  auto* const data = static_cast<BYTE*>(GlobalLock(block));
  std::memcpy(data, &BmpInfo->bmiHeader, sizeof(BITMAPINFOHEADER));
  std::memcpy(data + sizeof(BITMAPINFOHEADER), Bits, bytes);
  GlobalUnlock(block);
  return block;
}

// A pixel of `bytes` bytes, which need not be the bitmap's own depth, as long as it lies within the row.
BYTE* CMemoryDIB::Address(int x, int y, int bytes) const {
  if (!Bits || x < 0 || y < 0 || y >= Height || (static_cast<std::int64_t>(x) + 1) * bytes > LineBytes) return nullptr;
  return Bits + static_cast<std::ptrdiff_t>(Height - y - 1) * LineBytes + static_cast<std::ptrdiff_t>(x) * bytes;
}

void CMemoryDIB::SetPixel(int x, int y, COLORREF colour) {
  if (BitCount != 8 && BitCount != 16 && BitCount != 24 && BitCount != 32) return;
  if (x < Width) SetPixel(Address(x, y, BitCount / 8), colour);
}

void CMemoryDIB::SetPixel(void* adr, COLORREF colour) {
  switch (BitCount) {
    case 8:
      SetPixel8(adr, colour);
      break;
    case 16:
      SetPixel16(adr, colour);
      break;
    case 24:
      SetPixel24(adr, colour);
      break;
    case 32:
      SetPixel32(adr, colour);
      break;
  }
}

void CMemoryDIB::SetPixel8(int x, int y, COLORREF colour) {
  SetPixel8(GetImageAdr8(x, y), colour);
}

void CMemoryDIB::SetPixel8(void* adr, COLORREF colour) {
  if (adr) *static_cast<BYTE*>(adr) = static_cast<BYTE>(colour);
}

void CMemoryDIB::SetPixel16(int x, int y, COLORREF colour) {
  SetPixel16(GetImageAdr16(x, y), colour);
}

void CMemoryDIB::SetPixel16(void* adr, COLORREF colour) {
  SetPixel16(adr, static_cast<BYTE>(colour), static_cast<BYTE>(colour >> 8), static_cast<BYTE>(colour >> 16));
}

void CMemoryDIB::SetPixel16(void* adr, BYTE r, BYTE g, BYTE b) {
  if (!adr) return;
  const int v = (r >> 3) << 10 | (g >> 3) << 5 | b >> 3;
  auto* const bytes = static_cast<BYTE*>(adr);
  bytes[0] = static_cast<BYTE>(v);
  bytes[1] = static_cast<BYTE>(v >> 8);
}

void CMemoryDIB::SetPixel24(int x, int y, COLORREF colour) {
  SetPixel24(GetImageAdr24(x, y), colour);
}

void CMemoryDIB::SetPixel24(void* adr, COLORREF colour) {
  if (!adr) return;
  auto* const bytes = static_cast<BYTE*>(adr);
  bytes[0] = static_cast<BYTE>(colour >> 16);
  bytes[1] = static_cast<BYTE>(colour >> 8);
  bytes[2] = static_cast<BYTE>(colour);
}

void CMemoryDIB::SetPixel32(int x, int y, COLORREF colour) {
  SetPixel32(GetImageAdr32(x, y), colour);
}
void CMemoryDIB::SetPixel32(void* adr, COLORREF colour) {
  SetPixel24(adr, colour);
}
