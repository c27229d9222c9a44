#include "qmrimg/levels/calculation.h"

#include "qmrimg/levels/point_run.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kMessageCalculation = 6109;

enum Mode { kAdd = 0, kSubtract = 1, kMultiply = 2, kDivide = 3 };

// All planes by `row(from, to)`.
template <class Row>
void Planes(CVynImage& target, const CVynImage& source, const qmr::PointArea& area, qmr::Stores stores,
            const Row& row) {
  for (int p = 0; p < target.GetPlanes(); ++p) qmr::ForPointRows(target, source, p, area, stores, row);
}

using Source = std::span<const float>;
using Target = std::span<float>;

}  // namespace

CImgCalculation::CImgCalculation() = default;
CImgCalculation::~CImgCalculation() = default;

// The vector routines divide by the reciprocal, and write nothing where the plain one copies, on purpose: results of
// hosts depend on it.
void CImgCalculation::Do(double value, int mode, int clampNegative, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  const auto [left, right, top, bottom] = qmr::AreaOf(*this, pRect);
  const float v = static_cast<float>(value);
  ShowProgressInit(bProgress, kMessageCalculation, qmr::RowUnits(bottom - top, Planes));
  if (!(CKorSys::SIMD() & 2))
    DoCalculation(v, mode, clampNegative, source, left, right, top, bottom);
  else if (mode == kAdd)
    DoCalculation_x_add(v, source, left, right, top, bottom);
  else if (mode == kSubtract)
    DoCalculation_x_sub(v, clampNegative, source, left, right, top, bottom);
  else if (mode == kMultiply)
    DoCalculation_x_mul(v, source, left, right, top, bottom);
  else if (mode == kDivide && v != 0.0f)
    DoCalculation_x_mul(static_cast<float>(1.0 / static_cast<double>(v)), source, left, right, top, bottom);
  if (bProgress) ShowProgressEnd(nullptr);
}

void CImgCalculation::DoCalculation(float value, int mode, int clampNegative, CVynImage* source, int left, int right,
                                    int top, int bottom) {
  constexpr qmr::Stores kPlain = qmr::Stores::kPlain;
  ::Planes(*this, *source, {left, right, top, bottom}, kPlain, [=](Source from, Target to) {
    if (mode == kAdd)
      qmr::AddValueRow(from, to, left, kPlain, value);
    else if (mode == kSubtract && clampNegative)
      qmr::SubtractValueClampedRow(from, to, left, kPlain, value);
    else if (mode == kSubtract)
      qmr::SubtractValueRow(from, to, left, kPlain, value);
    else if (mode == kMultiply)
      qmr::MultiplyRow(from, to, left, kPlain, value);
    else if (mode == kDivide && value != 0.0f)
      qmr::DivideRow(from, to, value);
    else
      qmr::CopyRow(from, to, left, kPlain);
  });
}

void CImgCalculation::DoCalculation_x_add(float value, CVynImage* source, int left, int right, int top, int bottom) {
  constexpr qmr::Stores kStreaming = qmr::Stores::kStreaming;
  ::Planes(*this, *source, {left, right, top, bottom}, kStreaming,
           [=](Source from, Target to) { qmr::AddValueRow(from, to, left, kStreaming, value); });
}

void CImgCalculation::DoCalculation_x_sub(float value, int clampNegative, CVynImage* source, int left, int right,
                                          int top, int bottom) {
  constexpr qmr::Stores kStreaming = qmr::Stores::kStreaming;
  ::Planes(*this, *source, {left, right, top, bottom}, kStreaming, [=](Source from, Target to) {
    if (clampNegative)
      qmr::SubtractValueClampedRow(from, to, left, kStreaming, value);
    else
      qmr::SubtractValueRow(from, to, left, kStreaming, value);
  });
}

void CImgCalculation::DoCalculation_x_mul(float value, CVynImage* source, int left, int right, int top, int bottom) {
  constexpr qmr::Stores kStreaming = qmr::Stores::kStreaming;
  ::Planes(*this, *source, {left, right, top, bottom}, kStreaming,
           [=](Source from, Target to) { qmr::MultiplyRow(from, to, left, kStreaming, value); });
}
