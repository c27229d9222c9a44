#include "qmrimg/colour/color_correct.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "qmrimg/colour/kernels/colour_rows.h"
#include "qmrimg/colour/rgb_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageColorCorrect = 6179;
constexpr int kPlanes = 3;
constexpr int kAboutMinimum = 1;
constexpr int kAboutOffset = 2;

bool CanCorrect(const tagMATRIX* matrix, int offsetMode) {
  return matrix && offsetMode <= kAboutOffset;
}

// Not-a-number counts as 0.
double LimitStrength(double strength) {
  return strength > 0.0 ? std::min(strength, 1.0) : 0.0;
}

template <class Correction>
Correction WithMatrix(const tagMATRIX& matrix, double strength) {
  Correction correction;
  std::memcpy(correction.m, matrix.m, sizeof correction.m);
  correction.strength = strength;
  return correction;
}

}  // namespace

CImgColorCorrect::CImgColorCorrect() = default;
CImgColorCorrect::~CImgColorCorrect() = default;

// `nonNegative` would raise what is negative to 0; the floor above 0 raises that again, so it never shows.
int CImgColorCorrect::Do(tagMATRIX* matrix, double strength, int offsetMode, float offset, int /*nonNegative*/,
                         int bProgress) {
  if (!CanCorrect(matrix, offsetMode)) return 0;
  const double share = LimitStrength(strength);
  if (share == 0.0 || !qmr::HasRgb(*this)) return 1;

  auto correction = WithMatrix<qmr::CorrectionAbout>(*matrix, share);
  correction.level = offsetMode == kAboutOffset ? offset : 0.0;
  if (offsetMode == kAboutMinimum) {
    ShowProgressInit(bProgress, kMessageColorCorrect, Height);
    correction.level = qmr::FoldRows(
        0, Height, std::numeric_limits<float>::infinity(),
        [&](int y) {
          float least = std::numeric_limits<float>::infinity();
          for (int p = 0; p < kPlanes; ++p) least = qmr::LeastOfRow(qmr::ReadRow(*this, y, p, 0, Width), least);
          return least;
        },
        [](float a, float b) { return b < a ? b : a; }, this);
    ShowProgressEnd(nullptr);
  }

  ShowProgressInit(bProgress, kMessageColorCorrect, Height);
  qmr::ForRows(
      0, Height,
      [&](int y) {
        qmr::RgbResult rows = qmr::WriteRgb(*this, y, 0, Width);
        qmr::CutToShortest(rows);
        qmr::CorrectRow(rows, correction);
      },
      this);
  ShowProgressEnd(nullptr);
  return 1;
}

int CImgColorCorrect::Do(tagMATRIX* matrix, double strength, int offsetMode, float /*offset*/, int /*nonNegative*/,
                         CVynImage* src, CRect* pRect, int bProgress) {
  if (!CanCorrect(matrix, offsetMode) || !src) return 0;
  if (!qmr::HasRgb(*this)) return 1;
  auto correction = WithMatrix<qmr::CorrectionBetween>(*matrix, LimitStrength(strength));
  for (int p = 0; p < kPlanes; ++p) {
    correction.from[p] = {src->GetLevelMin(p), src->GetLevelRange(p)};
    correction.to[p] = {GetLevelMin(p), GetLevelRange(p)};
  }
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);

  if (offsetMode == kAboutMinimum) {
    // On purpose: hosts see the report of a search for minima, which this form has no use for.
    ShowProgressInit(bProgress, kMessageColorCorrect, src->GetHeight());
    qmr::ForRows(
        0, src->GetHeight(), [](int) {}, this);
    ShowProgressEnd(nullptr);
  }

  ShowProgressInit(bProgress, kMessageColorCorrect, src->GetHeight());
  qmr::ForRows(
      top, bottom,
      [&](int y) {
        if (correction.strength == 0.0) {
          for (int p = 0; p < kPlanes; ++p) {
            const auto [from, to] = qmr::RowPair(*src, *this, y, p, left, right);
            if (!from.empty()) std::memmove(to.data(), from.data(), from.size_bytes());
          }
          return;
        }
        qmr::RgbSource from = qmr::ReadRgb(*src, y, left, right);
        qmr::RgbResult to = qmr::WriteRgb(*this, y, left, right);
        qmr::CutToShortest(from, to);
        qmr::CorrectRow(from, to, correction);
      },
      this);
  ShowProgressEnd(nullptr);
  return 1;
}
