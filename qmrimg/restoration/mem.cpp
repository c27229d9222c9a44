#include "qmrimg/restoration/mem.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/message_box.h"
#include "qmrimg/restoration/gauss_psf.h"
#include "qmrimg/restoration/mem_restore.h"
#include "qmrimg/restoration/plane_buffer.h"

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
  const std::optional<CRect> rect = qmr::RestoredRect(*this, pRect);
  if (!rect) return 0;
  if (rect->right <= rect->left || rect->bottom <= rect->top || Planes < 1) return 1;

  qmr::PlaneBuffer from(*this, *rect);
  const qmr::PlaneBuffer to(*this, *rect);
  const std::unique_ptr<float[]> psf(MakeGauss(sigma, kPsfSize, kPsfSize));
  if (!psf) AfxThrowMemoryException();
  from.Load(*this);
  for (int p = 0; p < Planes; ++p) {
    const int code =
        MemRestore(from.Plane(p), to.Plane(p), rect->Width(), rect->Height(), psf.get(), kPsfSize, kPsfSize,
                   noise * noise, iterations, bProgress ? this : nullptr, Planes < 2 ? 0 : p + 1);
    if (!Succeeded(code)) return 0;
  }
  to.Store(*this);
  return 1;
}
