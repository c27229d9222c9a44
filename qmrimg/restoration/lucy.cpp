#include "qmrimg/restoration/lucy.h"

#include <optional>
#include <vector>

#include "qmrimg/platform/message_box.h"
#include "qmrimg/restoration/gauss_psf.h"
#include "qmrimg/restoration/lucy_restore.h"
#include "qmrimg/restoration/plane_buffer.h"

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
  const std::optional<CRect> rect = qmr::RestoredRect(*this, pRect);
  if (!rect) return 0;
  if (rect->right <= rect->left || rect->bottom <= rect->top || Planes < 1) return 1;

  qmr::PlaneBuffer buffer(*this, *rect);
  std::vector<float> psf = qmr::MakeGauss(sigma, kPsfSize, kPsfSize);
  buffer.Load(*this);
  for (int p = 0; p < Planes; ++p) {
    const int plane = Planes > 1 ? p + 1 : 0;
    const int code =
        LucyRestore(buffer.Plane(p), rect->Width(), rect->Height(), psf.data(), kPsfSize, kPsfSize, nullptr, iterations,
                    gain, readNoise, kChiLimit, kRejectSigma, bProgress ? this : nullptr, plane);
    if (code == 1) AfxMessageBox(kMessageNoMemory, MB_OK);
    if (code == 2) AfxMessageBox(kMessageCancelled, MB_ICONINFORMATION);
    if (code != 0) return 0;
  }
  buffer.Store(*this);
  return 1;
}
