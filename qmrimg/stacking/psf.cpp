#include "qmrimg/stacking/psf.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "qmrimg/store/registry.h"

namespace {

// Standard deviation of a Gaussian of FWHM 1, and its inverse. The root of the width is taken besides, on purpose.
constexpr double kSigmaPerFwhm = 0.4246609;
constexpr double kFwhmPerSigma = 2.354820045829508;

constexpr double kLeastPsf = 1e-6;

// The background begins so far behind the pixel that ends a star, and so many pixels of it are taken.
constexpr int kGap = 2;
constexpr int kBackgroundPixels = 12;

struct Step {
  int x, y;
};
constexpr Step kLeft = {-1, 0}, kRight = {1, 0}, kUp = {0, -1}, kDown = {0, 1};

CPoint Moved(CPoint pt, Step step, int count = 1) {
  return {pt.x + step.x * count, pt.y + step.y * count};
}

bool NanLast(double a, double b) {
  return a < b || (std::isnan(b) && !std::isnan(a));
}

}  // namespace

PSF::PSF(CVynImage* image) : image(image) {
  CRegistry::Read(L"Psf", L"Max", 20.0, &maxWidth);
}

PSF::~PSF() = default;

double PSF::FwhmToPsf(double fwhm) const {
  return std::sqrt(fwhm) * kSigmaPerFwhm;
}

double PSF::PsfToFwhm(double psf) const {
  const double root = psf * kFwhmPerSigma;
  return root * root;
}

bool PSF::Inside(CPoint pt) const {
  return pt.x >= 0 && pt.y >= 0 && pt.x < image->GetWidth() && pt.y < image->GetHeight();
}

double PSF::GetPixelValue(CPoint pt) const {
  const int planes = image->GetPlanes();
  double sum = 0.0;
  for (int p = 0; p < planes; ++p) sum += image->GetPixelGrayRaw(static_cast<int>(pt.x), static_cast<int>(pt.y), p);
  return planes > 0 ? sum / planes : 0.0;
}

CPoint PSF::ClimbToPeak(CPoint pt) const {
  for (;;) {
    CPoint best = pt;
    double highest = GetPixelValue(pt);
    for (int dx = -1; dx <= 1; ++dx) {
      for (int dy = -1; dy <= 1; ++dy) {
        const CPoint next(pt.x + dx, pt.y + dy);
        if (!Inside(next)) continue;
        const double value = GetPixelValue(next);
        if (!(value > highest)) continue;
        highest = value;
        best = next;
      }
    }
    if (best == pt) return pt;
    pt = best;
  }
}

int PSF::GetBase(CPoint peak, double* base) const {
  double samples[4 * kBackgroundPixels];
  int n = 0;
  for (const Step step : {kLeft, kRight, kUp, kDown}) {
    // To the first pixel that is higher than the one before it; a star without one has no background on this side.
    CPoint at = Moved(peak, step);
    double before = GetPixelValue(peak);
    while (Inside(at)) {
      const double value = GetPixelValue(at);
      if (value > before) break;
      before = value;
      at = Moved(at, step);
    }
    at = Moved(at, step, kGap);
    for (int i = 0; i < kBackgroundPixels && Inside(at); ++i, at = Moved(at, step)) samples[n++] = GetPixelValue(at);
  }
  if (n == 0) return 0;
  std::sort(samples, samples + n, NanLast);
  *base = samples[n / 2];
  return 1;
}

int PSF::GetFWHM(CPoint peak, double base, double* fwhm) const {
  const double half = (GetPixelValue(peak) + base) * 0.5;
  // Where the profile crosses the half level, as a coordinate along the step's axis.
  const auto crossing = [&](Step step, double* place) {
    CPoint at = Moved(peak, step);
    while (Inside(at) && GetPixelValue(at) > half) at = Moved(at, step);
    if (!Inside(at)) return false;
    const double value = GetPixelValue(at), inner = GetPixelValue(Moved(at, step, -1));
    const double beyond = (half - value) / (inner - value);
    *place = step.x != 0 ? at.x - step.x * beyond : at.y - step.y * beyond;
    return true;
  };
  double left, right, up, down;
  if (!crossing(kLeft, &left) || !crossing(kRight, &right) || !crossing(kUp, &up) || !crossing(kDown, &down)) return 0;
  *fwhm = ((right - left) + (down - up)) * 0.5;
  return 1;
}

int PSF::Add(CPoint pt) {
  if (!image || !Inside(pt)) return 0;
  const CPoint peak = ClimbToPeak(pt);
  double base, fwhm;
  if (!GetBase(peak, &base) || base >= GetPixelValue(peak) || !GetFWHM(peak, base, &fwhm)) return 0;
  // Not-a-number, which infinite pixels give, is no width either.
  if (!(fwhm >= 0.0 && fwhm < maxWidth)) return 0;
  try {
    values.push_back(FwhmToPsf(fwhm));
  } catch (const std::bad_alloc&) {
    return 0;
  }
  ++count;
  return 1;
}

int PSF::GetMeanPSF(double* value) {
  if (count < 1) return 0;
  double sum = 0.0;
  for (const double v : values) sum += v;
  const double mean = sum / count;
  if (!(mean > kLeastPsf && mean < maxWidth)) return 0;
  if (value) *value = mean;
  return 1;
}

int PSF::GetMedianPSF(double* value) {
  if (count < 1) return 0;
  std::sort(values.begin(), values.end());
  const double median = values[static_cast<std::size_t>(count) / 2];
  if (!(median > kLeastPsf && median < maxWidth)) return 0;
  if (value) *value = median;
  return 1;
}

int PSF::GetMeanFWHM(double* value) {
  double psf;
  if (!GetMeanPSF(&psf)) return 0;
  if (value) *value = PsfToFwhm(psf);
  return 1;
}

int PSF::GetMedianFWHM(double* value) {
  double psf;
  if (!GetMedianPSF(&psf)) return 0;
  if (value) *value = PsfToFwhm(psf);
  return 1;
}
