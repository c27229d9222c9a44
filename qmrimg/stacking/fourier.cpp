#include "qmrimg/stacking/fourier.h"

#include <algorithm>
#include <span>

#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/stacking/fft.h"
#include "qmrimg/stacking/fftd.h"

namespace {

constexpr int kMessageShift = 6150;
constexpr int kMessageRotation = 6151;
constexpr int kMessageTransform = 6190;
constexpr double kPeakSigma = 1.0;  // smoothing of the copy on which the peak is looked for, pixels
constexpr int kScaleRows = 20;      // rows off the middle that a change of scale may shift the rotation peak
constexpr int kUnitsPerPlane = 100;

// Keeps a report open; it closes on every way out.
class Report {
 public:
  Report(CVynImage& image, int show, int message, double total) : image_(image) {
    image_.ShowProgressInit(show, message, qmr::TruncateToInt(total));
  }
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;
  ~Report() { image_.ShowProgressEnd(nullptr); }

 private:
  CVynImage& image_;
};

struct Size {
  int width;
  int height;
};

// What is asked of the engine, which raises it to powers of two.
Size RequestedSize(const CVynImage& image, const CRect* rect) {
  if (!rect) return {image.GetWidth(), image.GetHeight()};
  const auto extent = [](int low, int high) { return qmr::TruncateToInt(static_cast<double>(high) - low); };
  return {CFft::GetFloorPowerOf2(extent(rect->left, rect->right)),
          CFft::GetFloorPowerOf2(extent(rect->top, rect->bottom))};
}

struct Peak {
  float value;
  int x;
  int y;
};

// The first maximum of plane 0, compared with the value at column 0 of row `top`, which counts as position (0, 0).
Peak HighestPixel(const CVynImage& image, int right, int top, int bottom) {
  const std::span<const float> first = qmr::ReadRow(image, top, 0, 0, right);
  const Peak start{first.empty() ? 0.0f : first[0], 0, 0};
  return qmr::FoldRows(
      top, bottom, start,
      [&](int y) {
        Peak best = start;
        const std::span<const float> row = qmr::ReadRow(image, y, 0, 0, right);
        for (std::size_t x = 0; x < row.size(); ++x) {
          if (row[x] > best.value) best = {row[x], static_cast<int>(x), y};
        }
        return best;
      },
      [](const Peak& a, const Peak& b) { return b.value > a.value ? b : a; });
}

// Interleaves one row of an image, or of two, into an array.
void LoadRow(std::span<const float> real, std::span<const float> imaginary, dcomplex* to) {
  const int count = static_cast<int>(real.size()), both = static_cast<int>(std::min(imaginary.size(), real.size()));
  const float* const re = real.data();
  const float* const im = imaginary.data();
  float* const data = &to->re;
#pragma omp simd
  for (int x = 0; x < both; ++x) {
    data[2 * x] = re[x];
    data[2 * x + 1] = im[x];
  }
#pragma omp simd
  for (int x = both; x < count; ++x) {
    data[2 * x] = re[x];
    data[2 * x + 1] = 0.0f;
  }
}

void StoreRow(const float* part, std::span<float> to) {
  const int count = static_cast<int>(to.size());
  float* const data = to.data();
#pragma omp simd
  for (int x = 0; x < count; ++x) data[x] = part[2 * x];
}

// The correlation surface of the two loaded arrays in array A, zero shift in the middle.
void Correlate(CFftd& engine) {
  engine.Windowing(0);
  engine.Windowing(1);
  engine.Do(0, 0);
  engine.Do(0, 1);
  engine.CalcPOC();
  engine.Do(1, 0);
  engine.Swap(0);
}

}  // namespace

CImgFourier::CImgFourier() = default;
CImgFourier::~CImgFourier() = default;

void CImgFourier::PutImage(CVynImage* image, CVynImage* imaginary, int plane, dcomplex* data, int stride, int height) {
  qmr::ForRows(
      0, std::min(image->GetHeight(), height),
      [&](int y) {
        const auto re = qmr::ReadRow(*image, y, plane, 0, stride);
        const auto im = imaginary ? qmr::ReadRow(*imaginary, y, plane, 0, stride) : std::span<const float>();
        LoadRow(re, im, data + static_cast<std::ptrdiff_t>(y) * stride);
      },
      this);
}

void CImgFourier::PutImage(CVynImage* image, CVynImage* imaginary, int plane, dcomplex* data, CRect* pRect) {
  const Size size = RequestedSize(*image, pRect);
  const std::ptrdiff_t capacity = static_cast<std::ptrdiff_t>(size.width) * size.height;
  const std::ptrdiff_t width = static_cast<std::ptrdiff_t>(pRect->right) - pRect->left;
  const int left = std::max<int>(pRect->left, 0);
  qmr::ForRows(
      pRect->top, pRect->bottom,
      [&](int y) {
        const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(y) - pRect->top;
        const std::ptrdiff_t at = row * width + (static_cast<std::ptrdiff_t>(left) - pRect->left);
        if (at >= capacity || left >= pRect->right) return;
        const int right = static_cast<int>(std::min<std::ptrdiff_t>(pRect->right, left + (capacity - at)));
        const auto re = qmr::ReadRow(*image, y, plane, left, right);
        const auto im = imaginary ? qmr::ReadRow(*imaginary, y, plane, left, right) : std::span<const float>();
        LoadRow(re, im, data + at);
      },
      this);
}

void CImgFourier::GetImage(CVynImage* real, CVynImage* imaginary, int plane, dcomplex* data, int stride, int height) {
  const int rows = std::max(real ? real->GetHeight() : 0, imaginary ? imaginary->GetHeight() : 0);
  qmr::ForRows(
      0, std::min(rows, height),
      [&](int y) {
        const dcomplex* const row = data + static_cast<std::ptrdiff_t>(y) * stride;
        if (real) StoreRow(&row->re, qmr::WriteRow(*real, y, plane, 0, stride));
        if (imaginary) StoreRow(&row->im, qmr::WriteRow(*imaginary, y, plane, 0, stride));
      },
      this);
}

int CImgFourier::CalcShiftByPOC(CVynImage* frame, CVynImage* pocImage, double sigma, CRect* pRect, double& dx,
                                double& dy, double& peak, int& failWidth, int& failHeight, int bProgress) {
  if (!frame) return 0;
  const Size size = RequestedSize(*this, pRect);
  const Report report(*this, bProgress, kMessageShift,
                      CFft::GetCeilPowerOf2(size.height) * (sigma <= 0.0 ? 18.5 : 19.5));
  CFftd engine;
  if (!LoadPair(engine, frame, pRect, failWidth, failHeight)) return 0;
  Correlate(engine);

  dcomplex* const a = engine.GetImageAdrA();
  const int width = engine.GetWidth(), height = engine.GetHeight();
  CVynImage surface(-32, Width, Height, 1, 1.0, 0.0, 1);
  GetImage(&surface, nullptr, 0, a, width, height);
  CImgFilterBlur smooth;
  if (!smooth.Create(surface)) AfxThrowMemoryException();
  smooth.GaussianFilter(sigma <= 0.0 ? kPeakSigma : sigma, &surface, nullptr, 0);
  if (sigma <= 0.0) {
    const Peak top = HighestPixel(smooth, width, 0, std::min(Height, height));
    engine.PeakOfPOC(&top.x, &top.y, dx, dy, peak);
  } else {
    PutImage(&smooth, nullptr, 0, a, width, height);
    engine.PeakOfPOC(nullptr, nullptr, dx, dy, peak);
  }
  if (pocImage) GetImage(pocImage, nullptr, 0, a, width, height);
  return 1;
}

int CImgFourier::CalcRotByRIPOC(CVynImage* frame, CVynImage* logPolarA, CVynImage* logPolarB, CRect* pRect,
                                double& angle, int& failWidth, int& failHeight, int bProgress) {
  if (!frame) return 0;
  const Size size = RequestedSize(*this, pRect);
  const Report report(*this, bProgress, kMessageRotation, CFft::GetCeilPowerOf2(size.height) * 28.5);
  CFftd engine;
  if (!LoadPair(engine, frame, pRect, failWidth, failHeight)) return 0;
  LogPolarSpectra(engine, 0);
  dcomplex* const a = engine.GetImageAdrA();
  const int width = engine.GetWidth(), height = engine.GetHeight();
  if (logPolarA) GetImage(logPolarA, nullptr, 0, a, width, height);
  if (logPolarB) GetImage(logPolarB, nullptr, 0, engine.GetImageAdrB(), width, height);
  Correlate(engine);

  // The middle of the object, not of the array, on purpose: with a power-of-two height they are the same.
  const int top = std::clamp(Height / 2 - kScaleRows, 0, std::min(Height, height));
  const int bottom = std::clamp(Height / 2 + kScaleRows, top, std::min(Height, height));
  CVynImage surface(-32, Width, Height, 1, 1.0, 0.0, 1);
  GetImage(&surface, nullptr, 0, a, width, height);
  CImgFilterBlur smooth;
  if (!smooth.Create(surface)) AfxThrowMemoryException();
  CRect band(0, top, Width, bottom);
  smooth.GaussianFilter(kPeakSigma, &surface, &band, 0);
  const Peak highest = HighestPixel(smooth, width, top, bottom);
  double dx = 0.0, dy = 0.0, peak = 0.0;
  engine.PeakOfPOC(&highest.x, &highest.y, dx, dy, peak);
  angle = dx * 180.0 / size.width;
  return 1;
}

int CImgFourier::CalcRotByRIPOC_1D(CVynImage* frame, CVynImage* spectrumImage, CVynImage* pocImage, CRect* pRect,
                                   double& angle, int& failWidth, int& failHeight, int bProgress) {
  if (!frame) return 0;
  const Size size = RequestedSize(*this, pRect);
  const Report report(*this, bProgress, kMessageRotation, CFft::GetCeilPowerOf2(size.height) * 23.0);
  CFftd engine;
  if (!LoadPair(engine, frame, pRect, failWidth, failHeight)) return 0;
  dcomplex* const a = engine.GetImageAdrA();
  const int width = engine.GetWidth(), height = engine.GetHeight();
  LogPolarSpectra(engine, height / 16);
  engine.Windowing(0);
  engine.Windowing(1);
  engine.Do1D(0, 0);
  engine.Do1D(0, 1);
  if (spectrumImage) GetImage(spectrumImage, nullptr, 0, a, width, height);
  engine.CalcPOC1D();
  engine.Do1D(1, 0);
  engine.SwapX(0);
  double dx = 0.0;
  engine.PeakOfPOC1D(dx);
  if (pocImage) GetImage(pocImage, nullptr, 0, a, width, height);
  angle = dx * 180.0 / size.width;
  return 1;
}

int CImgFourier::Do(int inverse, int reImMode, int window, CVynImage* imaginaryIn, CVynImage* out0, CVynImage* out1,
                    CRect* pRect, int bProgress) {
  if (!pRect) return 0;
  const Report report(*this, bProgress, kMessageTransform, Planes * kUnitsPerPlane);
  CFftd engine;
  const Size size = RequestedSize(*this, pRect);
  if (!engine.Create(size.width, size.height)) return 0;
  dcomplex* const a = engine.GetImageAdrA();
  for (int p = 0; p < Planes; ++p) {
    engine.Init();
    PutImage(this, imaginaryIn, p, a, pRect);
    if (inverse && !reImMode) engine.ToReIm(0);
    if (window) engine.Windowing(0);
    engine.Do(inverse != 0, 0);
    if (!inverse && !reImMode) engine.ToAmpPhase(0);
    GetImage(out0, out1, p, a, engine.GetWidth(), engine.GetHeight());
  }
  return 1;
}

int CImgFourier::DoLogPolar(CVynImage* out, CRect* pRect, int applyLog, int bProgress) {
  if (!pRect) return 0;
  const Report report(*this, bProgress, kMessageTransform, Planes * kUnitsPerPlane);
  CFftd engine;
  const Size size = RequestedSize(*this, pRect);
  if (!engine.Create(size.width, size.height)) return 0;
  dcomplex* const a = engine.GetImageAdrA();
  for (int p = 0; p < Planes; ++p) {
    engine.Init();
    PutImage(this, nullptr, p, a, pRect);
    engine.ToLogPolar(engine.GetHeight() / 16, 1, 0, 180, applyLog, 0);
    GetImage(out, nullptr, p, a, engine.GetWidth(), engine.GetHeight());
  }
  return 1;
}

int CImgFourier::LoadPair(CFftd& engine, CVynImage* frame, CRect* pRect, int& failWidth, int& failHeight) {
  const Size size = RequestedSize(*this, pRect);
  if (!engine.Create(size.width, size.height)) {
    failWidth = size.width;
    failHeight = size.height;
    return 0;
  }
  engine.SetProgressImg(this);
  dcomplex* const arrays[2] = {engine.GetImageAdrA(), engine.GetImageAdrB()};
  CVynImage* const images[2] = {this, frame};
  for (int i = 0; i < 2; ++i) {
    if (pRect) {
      PutImage(images[i], nullptr, 0, arrays[i], pRect);
    } else {
      PutImage(images[i], nullptr, 0, arrays[i], engine.GetWidth(), engine.GetHeight());
    }
  }
  return 1;
}

void CImgFourier::LogPolarSpectra(CFftd& engine, int startRadius) {
  for (int i = 0; i < 2; ++i) {
    engine.Windowing(i);
    engine.Do(0, i);
    // The resampling reads amplitudes only, so the phases need not be computed.
    engine.ToAmp(i, false);
    engine.ToLogPolar(startRadius, 1, 0, 180, 1, i);
  }
}
