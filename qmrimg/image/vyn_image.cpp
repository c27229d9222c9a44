// Construction, copies and exchange.
#include "qmrimg/image/vyn_image.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/exception.h"

namespace {

constexpr int kUnset = -1;
// Marks start far outside; unlike 0, 0 that counts as not set.
constexpr int kUnsetMark = -100;

}  // namespace

CVynImage::CVynImage() {
  Init();
}

CVynImage::CVynImage(int bits, int width, int height, int planes, double bscale, double bzero, int flag, HWND window,
                     const wchar_t* message)
    : CImage(bits, width, height, planes, bscale, bzero, flag, window, message) {
  Init();
}

// Without Init, on purpose: the marks of a copy are 0, 0, which counts as set.
CVynImage::CVynImage(const CVynImage& src, HWND window, const wchar_t* message) : CImage(src, window, message) {
  CopyFieldList(src);
}

CVynImage::~CVynImage() = default;

CVynImage& CVynImage::operator=(const CVynImage& src) {
  CopyImageInternal(src, nullptr, nullptr);
  return *this;
}

void CVynImage::Init() {
  std::fill(std::begin(MinPixel), std::end(MinPixel), 0.0f);
  std::fill(std::begin(MaxPixel), std::end(MaxPixel), 0.0f);
  std::fill(std::begin(AvrPixel), std::end(AvrPixel), 0.0f);
  InitStdPtCtr();
  ShowCrossGaugeFlag = 0;
  CrossGaugePt.Set(kUnsetMark, kUnsetMark);
  StarPt = CPoint(kUnsetMark, kUnsetMark);
  SkyPt = CPoint(kUnsetMark, kUnsetMark);
  SkySize = 0;
  PickupPt = CPoint(kUnsetMark, kUnsetMark);
  std::fill(std::begin(BkgRect), std::end(BkgRect), CRect());
}

void CVynImage::InitStdPtCtr() {
  for (CfPoint& point : StdPt) point.Set(kUnset, kUnset);
  StdCtr.Set(kUnset, kUnset);
}

void CVynImage::CopyFieldList(const CVynImage& src) {
  ProgressHandle = src.ProgressHandle;
  CopyStdPtCtr(&src);
  std::copy(std::begin(src.MinPixel), std::end(src.MinPixel), MinPixel);
  std::copy(std::begin(src.MaxPixel), std::end(src.MaxPixel), MaxPixel);
  std::copy(std::begin(src.AvrPixel), std::end(src.AvrPixel), AvrPixel);
}

// The old pixels go first, so that a copy never needs room for both.
void CVynImage::CopyImageInternal(const CVynImage& src, HWND window, const wchar_t* message) {
  if (&src == this) return;
  Empty();
  CopyFieldList(src);
  if (!CImage::CopyImage(src, window, message)) AfxThrowMemoryException();
}

int CVynImage::CopyImage(const CVynImage& src, HWND window, const wchar_t* message) {
  try {
    CopyImageInternal(src, window, message);
    return 1;
  } catch (CMemoryException* e) {
    e->Delete();
    return 0;
  }
}

int CVynImage::Create(const CVynImage& src, HWND window, const wchar_t* message) {
  if (&src != this) {
    CopyFieldList(src);
    // A new store is all zeros.
    return CImage::Create(src, window, message);
  }
  for (int p = 0; p < Planes; ++p) {
    qmr::ForRows(0, Height, [&](int y) {
      const auto row = qmr::WriteRow(*this, y, p, 0, Width);
      std::fill(row.begin(), row.end(), 0.0f);
    });
  }
  return 1;
}

void CVynImage::Swap(CVynImage* other) {
  if (!other || other == this) return;
  std::swap(ProgressHandle, other->ProgressHandle);
  std::swap(StdPt, other->StdPt);
  std::swap(StdCtr, other->StdCtr);
  std::swap(MinPixel, other->MinPixel);
  std::swap(MaxPixel, other->MaxPixel);
  std::swap(AvrPixel, other->AvrPixel);
  CImage::Swap(other);
}

int CVynImage::AttachDIB(HDIB dib) {
  return CImage::AttachDIB(dib) && ChangeBits(-32, 1, 1, nullptr, nullptr);
}

CString CVynImage::GetRegKey() const {
  return RegKey;
}
void CVynImage::SetRegKey(CString key) {
  RegKey = std::move(key);
}

std::unique_ptr<float[]> CVynImage::GetBlockImage(int plane) const {
  try {
    const std::vector<unsigned char> bytes = GetPlaneImage(plane);
    if (bytes.empty()) return nullptr;
    const std::size_t count = static_cast<std::size_t>(Width) * static_cast<std::size_t>(Height);
    auto block = std::make_unique<float[]>(count);
    std::memcpy(block.get(), bytes.data(), std::min(bytes.size(), count * sizeof(float)));
    return block;
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}
