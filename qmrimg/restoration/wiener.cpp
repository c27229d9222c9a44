#include "qmrimg/restoration/wiener.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/messages.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/restoration/kernels/wiener_rows.h"
#include "qmrimg/stacking/fft.h"

namespace {

constexpr int kMessageWiener = 6104;
constexpr int kMessagePreparing = 6169;
constexpr int kUnitsPerPlane = 100;
constexpr double kSqrtTwo = 1.414213562;  // these digits

bool IsWholeSize(const CVynImage& image, const CRect& rect) {
  return std::int64_t{rect.right} - rect.left == image.GetWidth() &&
         std::int64_t{rect.bottom} - rect.top == image.GetHeight();
}

// The part of an image as an image of its own; null when memory lacks.
std::unique_ptr<CVynImage> Part(const CVynImage& image, int left, int top, int width, int height, HWND window) {
  try {
    auto part = std::make_unique<CVynImage>(-32, width, height, image.GetPlanes(), 1.0, 0.0, 1, window,
                                            window ? qmr::MessageText(kMessagePreparing) : nullptr);
    // By the base class: there plane by plane.
    for (int p = 0; p < image.GetPlanes(); ++p) part->CImage::SetLevel(p, image.GetLevelMin(p), image.GetLevelMax(p));
    if (!part->GetVmImage()) return nullptr;
    part->PixelBlt(0, 0, width, height, &image, left, top, 0);
    return part;
  } catch (CMemoryException* e) {
    e->Delete();
  } catch (const std::bad_alloc&) {
  }
  return nullptr;
}

qmr::RowLevels LevelsOf(const CVynImage& image, int plane) {
  return {image.GetLevelMin(plane), image.GetLevelRange(plane)};
}

float* Row(const CFft& engine, int y) {
  return &engine.GetImageAdr()[static_cast<std::ptrdiff_t>(y) * engine.GetWidth()].re;
}

void Load(const CVynImage& image, int plane, CFft& engine) {
  const qmr::RowLevels levels = LevelsOf(image, plane);
  const int width = image.GetWidth(), height = image.GetHeight();
  qmr::ForRows(0, engine.GetHeight(), [&](int y) {
    const auto in = qmr::ReadRow(image, qmr::MirrorIndex(y, height), plane, 0, width);
    qmr::LoadMirroredRow(in, levels, Row(engine, y), engine.GetWidth());
  });
}

void Store(const CFft& engine, CVynImage& image, int plane) {
  const qmr::RowLevels levels = LevelsOf(image, plane);
  qmr::ForRows(0, image.GetHeight(), [&](int y) {
    qmr::StoreRealRow(Row(engine, y), levels, qmr::WriteRow(image, y, plane, 0, image.GetWidth()));
  });
}

// The sum of exp(-d^2 / 2 sigma^2) over a line that wraps around.
double GaussSum(double sigma, int length) {
  double sum = 0.0;
  for (int i = 0; i < length; ++i) {
    const double d = i > length / 2 ? i - length : i;
    sum += std::exp(-d * d * 0.5 / sigma / sigma);
  }
  return sum;
}

}  // namespace

CImgWiener::CImgWiener() = default;
CImgWiener::CImgWiener(const CImgWiener& other) = default;
CImgWiener::~CImgWiener() = default;
CImgWiener& CImgWiener::operator=(const CImgWiener& other) = default;

int CImgWiener::Do(double sigma, double strength, CRect* pRect, int bProgress) {
  std::unique_ptr<CVynImage> part;
  int left = 0, top = 0, right = Width, bottom = Height;
  if (pRect && !IsWholeSize(*this, *pRect)) {
    NormalizeRect(pRect, left, top, right, bottom);
    if (left >= right || top >= bottom) return 0;
    part = Part(*this, left, top, right - left, bottom - top, bProgress ? ProgressHandle : nullptr);
    if (!part) return 0;
  }
  CVynImage& work = part ? *part : *this;
  CFft engine, blur;
  if (!engine.Create(work.GetWidth(), work.GetHeight()) || !blur.Create(work.GetWidth(), work.GetHeight())) {
    ShowProgressEnd(nullptr);
    return 0;
  }

  ShowProgressInit(bProgress, kMessageWiener, qmr::TruncateToInt(static_cast<double>(Planes) * kUnitsPerPlane));
  blur.SetGauss(sigma / kSqrtTwo);
  ShowProgress(5);
  blur.Do(0, 0);
  ShowProgress(10);
  double minPower = 0.0, maxPower = 0.0;
  blur.GetMinMax(&minPower, &maxPower);
  ShowProgress(10);
  for (int p = 0; p < Planes; ++p) {
    Load(work, p, engine);
    ShowProgress(5);
    engine.Do(0, 0);
    ShowProgress(25);
    engine.Convolution(&blur, maxPower * strength);
    ShowProgress(25);
    engine.Do(1, 0);
    ShowProgress(25);
    Store(engine, work, p);
    ShowProgress(10);
  }
  if (part) PixelBlt(left, top, right - left, bottom - top, part.get(), 0, 0, 0);
  ShowProgressEnd(nullptr);
  return 1;
}

double qmr::WienerGain(double sigma, double strength, int width, int height) {
  const int w = CFft::GetCeilPowerOf2(width), h = CFft::GetCeilPowerOf2(height);
  if (w < 1 || h < 1) return 0.0;
  const double s = sigma / kSqrtTwo;
  // The blur's height is CFft::SetGauss's.
  const double zero = GaussSum(s, w) * GaussSum(s, h) * 1000.0 * 0.5 / 3.14159 / std::sqrt(static_cast<double>(w) * h);
  return 1.0 / (zero * (1.0 + strength));
}
