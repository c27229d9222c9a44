#include "qmrimg/restoration/lucy.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "qmrimg/image/row_access.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/message_box.h"
#include "qmrimg/restoration/gauss_psf.h"
#include "qmrimg/restoration/lucy_restore.h"
#include "qmrimg/store/block.h"

namespace {

constexpr int kMessageNoMemory = 6148;
constexpr int kMessageCancelled = 6149;
constexpr int kPsfSize = 64;
constexpr double kChiLimit = 1.0;
constexpr double kRejectSigma = 5.0;

}  // namespace

CImgLucy::CImgLucy() = default;
CImgLucy::~CImgLucy() = default;

int CImgLucy::Do(double sigma, double gain, double readNoise, int iterations, CRect* pRect, int bProgress) {
  if (!qmr::HasFloats(*this)) return 0;
  CRect rect(0, 0, Width, Height);
  if (pRect && (pRect->left > 0 || pRect->top > 0 || pRect->right < Width || pRect->bottom < Height)) rect = *pRect;
  if (rect.left < 0 || rect.top < 0 || rect.right > Width || rect.bottom > Height) return 0;
  if (rect.right <= rect.left || rect.bottom <= rect.top || Planes < 1) return 1;

  const int w = rect.Width(), h = rect.Height();
  const std::size_t pixels = static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
  const qmr::Block block(static_cast<std::size_t>(Planes) * pixels * sizeof(float), qmr::Block::Content::kZero);
  float* const buffer = reinterpret_cast<float*>(block.Get());
  if (!buffer) AfxThrowMemoryException();
  std::vector<float> psf = qmr::MakeGauss(sigma, kPsfSize, kPsfSize);

  const auto line = [&](int plane, int y) {
    return buffer + static_cast<std::size_t>(plane) * pixels +
           static_cast<std::size_t>(y - rect.top) * static_cast<std::size_t>(w);
  };
  for (int p = 0; p < Planes; ++p) {
    for (int y = rect.top; y < rect.bottom; ++y)
      std::ranges::copy(qmr::ReadRow(*this, y, p, rect.left, rect.right), line(p, y));
  }
  for (int p = 0; p < Planes; ++p) {
    const int plane = Planes > 1 ? p + 1 : 0;
    const int code = LucyRestore(line(p, rect.top), w, h, psf.data(), kPsfSize, kPsfSize, nullptr, iterations, gain,
                                 readNoise, kChiLimit, kRejectSigma, bProgress ? this : nullptr, plane);
    if (code == 1) AfxMessageBox(kMessageNoMemory, MB_OK);
    if (code == 2) AfxMessageBox(kMessageCancelled, MB_ICONINFORMATION);
    if (code != 0) return 0;
  }
  for (int p = 0; p < Planes; ++p) {
    for (int y = rect.top; y < rect.bottom; ++y) {
      const std::span<float> row = qmr::WriteRow(*this, y, p, rect.left, rect.right);
      std::copy_n(line(p, y), row.size(), row.begin());
    }
  }
  return 1;
}
