#include "qmrimg/levels/normalize.h"

#include <algorithm>
#include <cmath>

#include "qmrimg/levels/point_run.h"

namespace {

constexpr int kMessageNormalize = 6197;
constexpr int kPlanes = 3;

// Population form.
struct Spread {
  double mean;
  double deviation;
};

Spread SpreadOf(const qmr::PlaneMoments& moments, double count) {
  const double mean = moments.sum / count;
  // Rounding may leave a flat plane with a tiny variance of either sign.
  const double variance = moments.squares / count - mean * mean;
  return {mean, variance < 0.0 ? 0.0 : std::sqrt(variance)};
}

}  // namespace

CImgNormalize::CImgNormalize() = default;
CImgNormalize::CImgNormalize(const CImgNormalize& src) : CVynImage(src) {}
CImgNormalize::~CImgNormalize() = default;

CImgNormalize& CImgNormalize::operator=(const CImgNormalize& src) {
  CVynImage::operator=(src);
  return *this;
}

void CImgNormalize::Do(CVynImage* source, float* mean, float* sigma, int bProgress) {
  if (!source || (!mean && !sigma)) return;
  const int width = source->GetWidth();
  const int height = source->GetHeight();
  const int planes = std::min(source->GetPlanes(), kPlanes);
  for (int p = 0; p < std::max(planes, 1); ++p)
    if (qmr::ReadRow(*source, height - 1, p, 0, width).empty()) return;
  ShowProgressInit(bProgress, kMessageNormalize, qmr::RowUnits(height, planes * ((mean ? 2 : 1) + (sigma ? 1 : 0))));

  // One running sum a plane, in the order of the pixels: sums of rows would round differently.
  qmr::PlaneMoments moments[kPlanes];
  qmr::ForRowsSerial(0, height, [&](int y) {
    const float* rows[kPlanes];
    for (int p = 0; p < planes; ++p) rows[p] = qmr::ReadRow(*source, y, p, 0, width).data();
    qmr::AddMoments(rows, planes, static_cast<std::size_t>(width), moments);
    for (int p = 0; p < planes; ++p) ShowProgress(1);
  });

  for (int p = 0; p < planes; ++p) {
    const Spread now = SpreadOf(moments[p], static_cast<double>(width) * height);
    const double delta = mean ? mean[p] - now.mean : 0.0;
    const double scale = sigma ? sigma[p] / now.deviation : 1.0;
    const bool spread = sigma && now.deviation != 0.0;
    if (!mean) {
      // A plane without deviation is not written, on purpose: the destination keeps what it held.
      if (spread) NormalizeSigma(source, this, p, now.mean, scale);
    } else if (!spread) {
      NormalizeAve(source, this, p, delta);
    } else {
      // NormalizeAve, then NormalizeSigma of its result about the new mean, in one pass.
      qmr::ForRows(
          0, height,
          [&](int y) {
            const auto [from, to] = qmr::RowPair(*source, *this, y, p, 0, width);
            qmr::ShiftAndSpreadRow(from, to, delta, now.mean + delta, scale);
            ShowProgress(1);
          },
          this);
    }
  }
  if (bProgress) ShowProgressEnd(nullptr);
}

void CImgNormalize::NormalizeAve(CVynImage* source, CVynImage* destination, int plane, double delta) {
  const int width = source->GetWidth();
  qmr::ForRows(
      0, source->GetHeight(),
      [&](int y) {
        const auto [from, to] = qmr::RowPair(*source, *destination, y, plane, 0, width);
        qmr::ShiftRow(from, to, delta);
      },
      this);
}

void CImgNormalize::NormalizeSigma(CVynImage* source, CVynImage* destination, int plane, double centre, double scale) {
  const int width = source->GetWidth();
  qmr::ForRows(
      0, source->GetHeight(),
      [&](int y) {
        const auto [from, to] = qmr::RowPair(*source, *destination, y, plane, 0, width);
        qmr::SpreadRow(from, to, centre, scale);
      },
      this);
}
