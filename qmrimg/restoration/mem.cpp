#include "qmrimg/restoration/mem.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <span>
#include <vector>

#include "qmrimg/image/row_access.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/message_box.h"
#include "qmrimg/restoration/gauss_psf.h"
#include "qmrimg/restoration/mem_restore.h"
#include "qmrimg/store/block.h"

namespace {

constexpr int kMessageNoMemory = 6148;
constexpr int kMessageCancelled = 6149;
constexpr int kPsfSize = 63;  // odd, so that the peak falls between pixels: the solver puts it right

// Reads the digits of a solver's code, the last one first; true for a success. Digits 5 and 6 are remarks.
bool Succeeded(int code) {
  for (; code > 0; code /= 10) {
    const int digit = code % 10;
    if (digit == 8) {
      AfxMessageBox(kMessageCancelled, MB_ICONINFORMATION);
      return false;
    }
    if ((digit >= 1 && digit <= 4) || digit == 7) {
      AfxMessageBox(kMessageNoMemory, MB_OK);
      return false;
    }
  }
  return true;
}

}  // namespace

CImgMem::CImgMem() = default;
CImgMem::CImgMem(const CImgMem& src) : CVynImage(src) {}
CImgMem::~CImgMem() = default;

CImgMem& CImgMem::operator=(const CImgMem& src) {
  CVynImage::operator=(src);
  return *this;
}

float* CImgMem::MakeGauss(double sigma, int width, int height) {
  const std::vector<float> psf = qmr::MakeGauss(sigma, width, height);
  float* const array = new (std::nothrow) float[psf.size()];
  if (array) std::ranges::copy(psf, array);
  return array;
}

int CImgMem::Do(double sigma, double noise, int iterations, CRect* pRect, int bProgress) {
  if (!qmr::HasFloats(*this)) return 0;
  CRect rect(0, 0, Width, Height);
  if (pRect && (pRect->left > 0 || pRect->top > 0 || pRect->right < Width || pRect->bottom < Height)) rect = *pRect;
  if (rect.left < 0 || rect.top < 0 || rect.right > Width || rect.bottom > Height) return 0;
  if (rect.right <= rect.left || rect.bottom <= rect.top || Planes < 1) return 1;

  const int w = rect.Width(), h = rect.Height();
  const std::size_t pixels = static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
  const std::size_t bytes = static_cast<std::size_t>(Planes) * pixels * sizeof(float);
  const qmr::Block from(bytes, qmr::Block::Content::kZero), to(bytes, qmr::Block::Content::kUndefined);
  if (!from.Get() || !to.Get()) AfxThrowMemoryException();
  const std::unique_ptr<float[]> psf(MakeGauss(sigma, kPsfSize, kPsfSize));
  if (!psf) AfxThrowMemoryException();

  const auto line = [&](const qmr::Block& block, int plane, int y) {
    return reinterpret_cast<float*>(block.Get()) + static_cast<std::size_t>(plane) * pixels +
           static_cast<std::size_t>(y - rect.top) * static_cast<std::size_t>(w);
  };
  for (int p = 0; p < Planes; ++p) {
    for (int y = rect.top; y < rect.bottom; ++y)
      std::ranges::copy(qmr::ReadRow(*this, y, p, rect.left, rect.right), line(from, p, y));
  }
  for (int p = 0; p < Planes; ++p) {
    const int code = MemRestore(line(from, p, rect.top), line(to, p, rect.top), w, h, psf.get(), kPsfSize, kPsfSize,
                                noise * noise, iterations, bProgress ? this : nullptr, Planes < 2 ? 0 : p + 1);
    if (!Succeeded(code)) return 0;
  }
  for (int p = 0; p < Planes; ++p) {
    for (int y = rect.top; y < rect.bottom; ++y) {
      const std::span<float> row = qmr::WriteRow(*this, y, p, rect.left, rect.right);
      std::copy_n(line(to, p, y), row.size(), row.begin());
    }
  }
  return 1;
}
