#include "qmrimg/store/image.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "qmrimg/platform/bitmap_header.h"
#include "qmrimg/platform/exception.h"

namespace {

bool IsSampleCode(int bits) {
  return bits == 8 || bits == 16 || bits == 32 || bits == -32 || bits == -64;
}

double LoadSample(const void* adr, int bits, int isSigned) {
  switch (bits) {
    case -64: {
      double v;
      std::memcpy(&v, adr, sizeof v);
      return v;
    }
    case -32: {
      float v;
      std::memcpy(&v, adr, sizeof v);
      return v;
    }
    case 8:
      return *static_cast<const BYTE*>(adr);
    case 16: {
      std::uint16_t v;
      std::memcpy(&v, adr, sizeof v);
      return isSigned ? static_cast<double>(static_cast<std::int16_t>(v)) : static_cast<double>(v);
    }
    case 32: {
      std::uint32_t v;
      std::memcpy(&v, adr, sizeof v);
      return isSigned ? static_cast<double>(static_cast<std::int32_t>(v)) : static_cast<double>(v);
    }
    default:
      return 0.0;
  }
}

// Rounds to nearest and clamps; not-a-number gives 0.
double ToRange(double v, double low, double high) {
  if (!(v == v)) return 0.0;
  return std::clamp(std::nearbyint(v), low, high);
}

void StoreSample(void* adr, int bits, int isSigned, double value) {
  switch (bits) {
    case -64:
      std::memcpy(adr, &value, sizeof value);
      break;
    case -32: {
      const auto v = static_cast<float>(value);
      std::memcpy(adr, &v, sizeof v);
      break;
    }
    case 8:
      *static_cast<BYTE*>(adr) = static_cast<BYTE>(ToRange(value, 0.0, 255.0));
      break;
    case 16: {
      const double v = isSigned ? ToRange(value, -32768.0, 32767.0) : ToRange(value, 0.0, 65535.0);
      const auto s = static_cast<std::uint16_t>(static_cast<std::int32_t>(v));
      std::memcpy(adr, &s, sizeof s);
      break;
    }
    case 32: {
      const double v = isSigned ? ToRange(value, -2147483648.0, 2147483647.0) : ToRange(value, 0.0, 4294967295.0);
      const auto s = static_cast<std::uint32_t>(static_cast<std::int64_t>(v));
      std::memcpy(adr, &s, sizeof s);
      break;
    }
  }
}

}  // namespace

CImage::CImage() : Header(new (std::nothrow) CHeader) {
  if (!Header) AfxThrowMemoryException();
}

CImage::CImage(int bits, int width, int height, int planes, double bscale, double bzero, int flag, HWND window,
               const wchar_t* message)
    : CImage() {
  (void)flag;
  BitsPixel = bits;
  Width = width;
  Height = height;
  Bscale = bscale;
  Bzero = bzero;
  SetPlanes(planes);
  if (!AllocImage(window, message)) AfxThrowMemoryException();
}

CImage::CImage(const CImage& src, HWND window, const wchar_t* message) : CImage() {
  (void)window;
  (void)message;
  if (!CopyFrom(src, true)) AfxThrowMemoryException();
}

CImage::~CImage() {
  delete VmImage;
  delete[] LevelMin;
  delete[] LevelMax;
  delete[] LevelRange;
  delete Header;
  delete[] HistogramCullX;
  delete[] HistogramCullY;
}

int CImage::GetBytesPixel() const {
  return std::abs(BitsPixel / 8);
}

int CImage::GetPixelCount() const {
  const double exact = static_cast<double>(Width) * Height * Planes;
  if (exact >= INT_MAX) return INT_MAX;
  return exact < 0.0 ? 0 : static_cast<int>(exact);
}

std::size_t CImage::GetImageSize() const {
  return static_cast<std::size_t>(Width) * static_cast<std::size_t>(Height) * static_cast<std::size_t>(Planes) *
         static_cast<std::size_t>(GetBytesPixel());
}

void CImage::SetPlanes(int planes) {
  Planes = planes;
  ColorMode = planes < 2 ? 2 : 3;
}

void CImage::SetLevel(int plane, double min, double max) {
  if (!HasLevel(plane)) return;
  LevelMin[plane] = min;
  LevelMax[plane] = max;
  LevelRange[plane] = max - min;
}

void CImage::SetLevelMin(int plane, double v) {
  if (HasLevel(plane)) SetLevel(plane, v, LevelMax[plane]);
}

void CImage::SetLevelMax(int plane, double v) {
  if (HasLevel(plane)) SetLevel(plane, LevelMin[plane], v);
}

double CImage::GetPixel(int x, int y, int plane) const {
  if (x >= Width) return 0.0;
  const void* adr = GetImageAdr(x, y, plane, 1, 0, nullptr);
  return adr ? GetPixel(adr) : 0.0;
}

double CImage::GetPixel(const void* adr) const {
  if (!IsSampleCode(BitsPixel)) return 0.0;
  return Bscale * LoadSample(adr, BitsPixel, Signed) + Bzero;
}

int CImage::GetHistogramCull(int* nX, int* nY) const {
  *nX = CullCountX;
  *nY = CullCountY;
  return IsHistogramCullParam();
}

void CImage::SetHistogramCull(const std::vector<int>& columns, const std::vector<int>& rows) {
  const auto inside = [](const std::vector<int>& from, int limit, int* count) {
    std::unique_ptr<int[]> kept(new (std::nothrow) int[from.size()]);
    if (!kept) AfxThrowMemoryException();
    const int* const end =
        std::copy_if(from.begin(), from.end(), kept.get(), [limit](int i) { return i >= 0 && i < limit; });
    *count = static_cast<int>(end - kept.get());
    if (*count == 0) kept.reset();
    return kept;
  };
  int countX = 0;
  int countY = 0;
  std::unique_ptr<int[]> x = inside(columns, Width, &countX);
  std::unique_ptr<int[]> y = inside(rows, Height, &countY);
  delete[] std::exchange(HistogramCullX, x.release());
  delete[] std::exchange(HistogramCullY, y.release());
  CullCountX = countX;
  CullCountY = countY;
}

void* CImage::GetImageAdr(int x, int y, int plane, unsigned flags, void** lock) const {
  return GetImageAdr(x, y, plane, static_cast<int>(flags & 1u), static_cast<int>(flags & 2u), lock);
}

void* CImage::GetImageAdr(int x, int y, int plane, int readOnly, int pin, void** lock) const {
  // Callers walk rows by the fields, so these must not reach beyond the store.
  if (VmImage && Width <= VmImage->width_ && Height <= VmImage->height_ && GetBytesPixel() <= VmImage->bytesPixel_)
    return VmImage->GetImageAdr(x, y, plane, readOnly, pin, lock);
  if (lock) *lock = nullptr;
  return nullptr;
}

void CImage::UnlockAll() const {
  if (VmImage) VmImage->UnlockAll();
}

std::vector<unsigned char> CImage::CreatePlaneBuffer() const {
  return VmImage ? VmImage->CreatePlaneBuffer() : std::vector<unsigned char>();
}

std::vector<unsigned char> CImage::GetPlaneImage(int plane) const {
  return VmImage ? VmImage->GetPlaneImage(plane) : std::vector<unsigned char>();
}

int CImage::SetPlaneImage(int plane, const std::vector<unsigned char>& data) {
  return VmImage ? VmImage->SetPlaneImage(plane, data) : 0;
}

bool CImage::ResizeLevels(int planes) {
  if (planes == LevelCount) return true;
  if (planes < 0) return false;
  const auto count = static_cast<std::size_t>(planes);
  std::unique_ptr<double[]> min(new (std::nothrow) double[count]);
  std::unique_ptr<double[]> max(new (std::nothrow) double[count]);
  std::unique_ptr<double[]> range(new (std::nothrow) double[count]);
  if (!min || !max || !range) return false;
  for (int p = 0; p < planes; ++p) {
    const int from = std::min(p, LevelCount - 1);
    min[p] = from >= 0 ? LevelMin[from] : 0.0;
    max[p] = from >= 0 ? LevelMax[from] : BitsPixel == 16 ? 65535.0 : 255.0;
    range[p] = max[p] - min[p];
  }
  delete[] std::exchange(LevelMin, min.release());
  delete[] std::exchange(LevelMax, max.release());
  delete[] std::exchange(LevelRange, range.release());
  LevelCount = planes;
  return true;
}

// Leaves this image as it was when memory lacks.
bool CImage::CopyFrom(const CImage& src, bool pixels) {
  if (this == &src) return true;
  std::unique_ptr<CVmImage> store;
  std::unique_ptr<CHeader> header;
  std::unique_ptr<int[]> cullX;
  std::unique_ptr<int[]> cullY;
  CString fileName;
  try {
    if (src.VmImage && pixels) store = std::make_unique<CVmImage>(*src.VmImage, nullptr, nullptr);
    if (!pixels && (src.VmImage || (src.Width > 0 && src.Height > 0 && src.Planes > 0)))
      store.reset(new CVmImage(src.BitsPixel, src.Width, src.Height, src.Planes, CVmImage::Fill::kZero));
    header = std::make_unique<CHeader>(*src.Header);
    fileName = src.OrgFileName;
    const auto copied = [](const int* from, int count) {
      std::unique_ptr<int[]> to(from ? new int[static_cast<std::size_t>(count)] : nullptr);
      if (from) std::copy_n(from, count, to.get());
      return to;
    };
    cullX = copied(src.HistogramCullX, src.CullCountX);
    cullY = copied(src.HistogramCullY, src.CullCountY);
  } catch (CMemoryException* e) {
    e->Delete();
    return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
  // New pixels have levels in every plane, also where the other image has none yet.
  if (!ResizeLevels(store && !pixels ? std::max(src.LevelCount, src.Planes) : src.LevelCount)) return false;
  std::copy_n(src.LevelMin, src.LevelCount, LevelMin);
  std::copy_n(src.LevelMax, src.LevelCount, LevelMax);
  std::copy_n(src.LevelRange, src.LevelCount, LevelRange);
  for (int p = src.LevelCount; p < LevelCount; ++p)
    SetLevel(p, p > 0 ? LevelMin[p - 1] : 0.0, p > 0 ? LevelMax[p - 1] : src.BitsPixel == 16 ? 65535.0 : 255.0);
  delete std::exchange(VmImage, store.release());
  BitsPixel = src.BitsPixel;
  Signed = src.Signed;
  ColorMode = src.ColorMode;
  Width = src.Width;
  Height = src.Height;
  Planes = src.Planes;
  Bscale = src.Bscale;
  Bzero = src.Bzero;
  OwnLevel = src.OwnLevel;
  SaveableFormat = src.SaveableFormat;
  SaveableFile = src.SaveableFile;
  OrgFileName = std::move(fileName);
  OrgBitsPixel = src.OrgBitsPixel;
  OrgPlanes = src.OrgPlanes;
  OrgBayerImage = src.OrgBayerImage;
  OrgHoneyCombImage = src.OrgHoneyCombImage;
  OrgDevelopmentImage = src.OrgDevelopmentImage;
  OrgWidth = src.OrgWidth;
  OrgHeight = src.OrgHeight;
  BayerImage = src.BayerImage;
  HoneyCombImage = src.HoneyCombImage;
  RawImageBits = src.RawImageBits;
  DevelopmentImage = src.DevelopmentImage;
  *Header = std::move(*header);
  delete[] std::exchange(HistogramCullX, cullX.release());
  delete[] std::exchange(HistogramCullY, cullY.release());
  CullCountX = src.CullCountX;
  CullCountY = src.CullCountY;
  return true;
}

bool CImage::StoreFits() const {
  return VmImage && Width == VmImage->width_ && Height == VmImage->height_ && GetBytesPixel() == VmImage->bytesPixel_;
}

int CImage::CopyImage(const CImage& src, HWND window, const wchar_t* message) {
  (void)window;
  (void)message;
  return CopyFrom(src, true);
}

int CImage::Create(const CImage& src, HWND window, const wchar_t* message) {
  (void)window;
  (void)message;
  return CopyFrom(src, false);
}

void CImage::Empty() {
  delete std::exchange(VmImage, nullptr);
}

void CImage::Swap(CImage* other) {
  if (!other || other == this) return;
  std::swap(BitsPixel, other->BitsPixel);
  std::swap(Signed, other->Signed);
  std::swap(ColorMode, other->ColorMode);
  std::swap(Width, other->Width);
  std::swap(Height, other->Height);
  std::swap(Planes, other->Planes);
  std::swap(Bscale, other->Bscale);
  std::swap(Bzero, other->Bzero);
  std::swap(VmImage, other->VmImage);
  std::swap(LevelMin, other->LevelMin);
  std::swap(LevelMax, other->LevelMax);
  std::swap(LevelRange, other->LevelRange);
  std::swap(LevelCount, other->LevelCount);
  std::swap(OwnLevel, other->OwnLevel);
  std::swap(SaveableFormat, other->SaveableFormat);
  std::swap(SaveableFile, other->SaveableFile);
  std::swap(OrgFileName, other->OrgFileName);
  std::swap(OrgBitsPixel, other->OrgBitsPixel);
  std::swap(OrgPlanes, other->OrgPlanes);
  std::swap(OrgBayerImage, other->OrgBayerImage);
  std::swap(OrgHoneyCombImage, other->OrgHoneyCombImage);
  std::swap(OrgDevelopmentImage, other->OrgDevelopmentImage);
  std::swap(OrgWidth, other->OrgWidth);
  std::swap(OrgHeight, other->OrgHeight);
  std::swap(BayerImage, other->BayerImage);
  std::swap(HoneyCombImage, other->HoneyCombImage);
  std::swap(RawImageBits, other->RawImageBits);
  std::swap(DevelopmentImage, other->DevelopmentImage);
  std::swap(Header, other->Header);
  std::swap(HistogramCullX, other->HistogramCullX);
  std::swap(HistogramCullY, other->HistogramCullY);
  std::swap(CullCountX, other->CullCountX);
  std::swap(CullCountY, other->CullCountY);
}

int CImage::AllocImage(HWND window, const wchar_t* message) {
  (void)window;
  (void)message;
  try {
    std::unique_ptr<CVmImage> store(new CVmImage(BitsPixel, Width, Height, Planes, CVmImage::Fill::kZero));
    if (!ResizeLevels(Planes)) return 0;
    delete std::exchange(VmImage, store.release());
    return 1;
  } catch (CMemoryException* e) {
    e->Delete();
  } catch (const std::bad_alloc&) {
  }
  return 0;
}

int CImage::ChangeSize(int width, int height, HWND window, const wchar_t* message) {
  const int oldWidth = std::exchange(Width, width);
  const int oldHeight = std::exchange(Height, height);
  if (AllocImage(window, message)) return 1;
  Width = oldWidth;
  Height = oldHeight;
  return 0;
}

int CImage::ChangePlanes(int planes, HWND window, const wchar_t* message) {
  if (planes <= 0) return 0;
  if (!StoreFits()) {
    const int before = Planes;
    SetPlanes(planes);
    if (AllocImage(window, message)) return 1;
    SetPlanes(before);
    return 0;
  }
  try {
    std::vector<qmr::Block>& blocks = VmImage->blocks_;
    const auto count = static_cast<std::size_t>(planes);
    if (count > blocks.size()) {
      CVmImage added(BitsPixel, Width, Height, planes - static_cast<int>(blocks.size()), CVmImage::Fill::kZero);
      if (!ResizeLevels(planes)) return 0;
      blocks.reserve(count);
      for (qmr::Block& block : added.blocks_) blocks.push_back(std::move(block));
    } else {
      if (!ResizeLevels(planes)) return 0;
      blocks.resize(count);
    }
    VmImage->planes_ = planes;
    VmImage->Renumber();
    SetPlanes(planes);
    return 1;
  } catch (CMemoryException* e) {
    e->Delete();
  } catch (const std::bad_alloc&) {
  }
  return 0;
}

int CImage::ChangeBits(int bits, int a, int b, HWND window, const wchar_t* message) {
  (void)a;
  (void)b;
  (void)window;
  (void)message;
  if (!IsSampleCode(bits) || !IsSampleCode(BitsPixel)) return 0;
  if (bits == BitsPixel) return 1;
  if (VmImage) {
    try {
      std::unique_ptr<CVmImage> store(new CVmImage(bits, Width, Height, Planes, CVmImage::Fill::kZero));
      const int fromBytes = std::abs(BitsPixel) / 8;
      const int toBytes = std::abs(bits) / 8;
      for (int p = 0; p < Planes; ++p) {
        for (int y = 0; y < Height; ++y) {
          const auto* from = static_cast<const BYTE*>(GetImageAdr(0, y, p, 1, 0, nullptr));
          auto* to = static_cast<BYTE*>(store->GetImageAdr(0, y, p, 0, 0, nullptr));
          if (!from) break;
          for (int x = 0; x < Width; ++x, from += fromBytes, to += toBytes)
            StoreSample(to, bits, Signed, LoadSample(from, BitsPixel, Signed));
        }
      }
      delete std::exchange(VmImage, store.release());
    } catch (CMemoryException* e) {
      e->Delete();
      return 0;
    } catch (const std::bad_alloc&) {
      return 0;
    }
  }
  BitsPixel = bits;
  return 1;
}

int CImage::AttachDIB(HDIB dib) {
  const std::size_t size = GlobalSize(dib);
  if (!dib || size < sizeof(BITMAPINFOHEADER)) return 0;
  const auto* bytes = static_cast<const BYTE*>(GlobalLock(dib));
  BITMAPINFOHEADER head;
  std::memcpy(&head, bytes, sizeof head);
  const bool topDown = head.biHeight < 0;
  const std::int64_t width = head.biWidth;
  const std::int64_t height = std::llabs(static_cast<std::int64_t>(head.biHeight));
  const int bits = head.biBitCount;
  const std::size_t colours = bits == 8 ? (head.biClrUsed ? std::min<std::size_t>(head.biClrUsed, 256) : 256) : 0;
  const std::size_t offset = sizeof head + colours * sizeof(RGBQUAD);
  const std::int64_t rowBytes = (width * bits / 8 + 3) / 4 * 4;
  const bool known = head.biSize == sizeof head && head.biCompression == 0 && (bits == 8 || bits == 24 || bits == 32);
  if (!known || width <= 0 || height <= 0 || width > INT_MAX / 4 || height > INT_MAX / 4 || size < offset ||
      static_cast<std::uint64_t>(rowBytes) * static_cast<std::uint64_t>(height) > size - offset) {
    GlobalUnlock(dib);
    return 0;
  }
  RGBQUAD table[256] = {};
  if (colours) std::memcpy(table, bytes + sizeof head, colours * sizeof(RGBQUAD));
  const bool grey = bits == 8 && std::all_of(std::begin(table), std::end(table), [](const RGBQUAD& c) {
                      return c.rgbRed == c.rgbGreen && c.rgbGreen == c.rgbBlue;
                    });
  const int planes = grey ? 1 : 3;
  std::unique_ptr<CImage> image;
  try {
    image = std::make_unique<CImage>(8, static_cast<int>(width), static_cast<int>(height), planes, 1.0, 0.0, 1);
  } catch (CMemoryException* e) {
    e->Delete();
    GlobalUnlock(dib);
    return 0;
  } catch (const std::bad_alloc&) {
    GlobalUnlock(dib);
    return 0;
  }
  for (int y = 0; y < image->Height; ++y) {
    const BYTE* row = bytes + offset + (topDown ? y : image->Height - 1 - y) * rowBytes;
    BYTE* out[3] = {};
    for (int p = 0; p < planes; ++p) out[p] = static_cast<BYTE*>(image->GetImageAdr(0, y, p, 0, 0, nullptr));
    for (int x = 0; x < image->Width; ++x) {
      const BYTE* pixel = row + static_cast<std::ptrdiff_t>(x) * (bits / 8);
      const RGBQUAD colour = bits == 8 ? table[*pixel] : RGBQUAD{pixel[0], pixel[1], pixel[2], 0};
      out[0][x] = colour.rgbRed;
      if (planes == 3) {
        out[1][x] = colour.rgbGreen;
        out[2][x] = colour.rgbBlue;
      }
    }
  }
  GlobalUnlock(dib);
  GlobalFree(dib);
  Swap(image.get());
  return 1;
}

void CImage::GetMinMax(int plane, double* min, double* max) const {
  double low = std::numeric_limits<double>::infinity();
  double high = -low;
  for (int y = 0; y < Height; ++y) {
    const void* row = GetImageAdr(0, y, plane, 1, 0, nullptr);
    if (!row) break;
    if (BitsPixel == -32) {
      const auto* p = static_cast<const float*>(row);
      const int width = Width;
      // Minima and maxima don't depend on their order, so sixteen run side by side.
      constexpr int kLanes = 16;
      float lows[kLanes], highs[kLanes];
      std::fill_n(lows, kLanes, std::numeric_limits<float>::infinity());
      std::fill_n(highs, kLanes, -std::numeric_limits<float>::infinity());
      int x = 0;
      for (; x + kLanes <= width; x += kLanes) {
#pragma omp simd
        for (int i = 0; i < kLanes; ++i) {
          const float v = p[x + i];
          lows[i] = v < lows[i] ? v : lows[i];
          highs[i] = v > highs[i] ? v : highs[i];
        }
      }
      for (; x < width; ++x) {
        lows[0] = p[x] < lows[0] ? p[x] : lows[0];
        highs[0] = p[x] > highs[0] ? p[x] : highs[0];
      }
      const float rowLow = *std::min_element(lows, lows + kLanes);
      const float rowHigh = *std::max_element(highs, highs + kLanes);
      low = std::min(low, static_cast<double>(rowLow));
      high = std::max(high, static_cast<double>(rowHigh));
    } else {
      const auto* p = static_cast<const BYTE*>(row);
      for (int x = 0; x < Width; ++x, p += GetBytesPixel()) {
        const double v = LoadSample(p, BitsPixel, Signed);
        if (v < low) low = v;
        if (v > high) high = v;
      }
    }
  }
  const bool any = low <= high;
  *min = any ? low : 0.0;
  *max = any ? high : 0.0;
}
