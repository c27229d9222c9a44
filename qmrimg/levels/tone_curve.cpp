#include "qmrimg/levels/tone_curve.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>

#include "qmrimg/levels/kernels/tone_curve_rows.h"
#include "qmrimg/levels/point_run.h"
#include "qmrimg/levels/tone_curve_run.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"

namespace qmr {
namespace {

constexpr int kMessageHAlpha = 6194;
constexpr int kMessageToneCurve = 6114;
constexpr int kTablePlanes = 3;
constexpr int kHAlphaEntries = 256;

ToneMap MapOf(const CVynImage& target, const float* const* tables, int last, int plane) {
  const float* const first = tables[target.IsColor() ? plane + 1 : 0];
  const float* const second = target.IsColor() ? tables[0] : nullptr;
  try {
    return {first, second, last, target.GetLevelMin(plane), target.GetLevelRange(plane)};
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

}  // namespace

void RunToneCurve(CVynImage& target, const float* const* tables, int n, CVynImage* source, const CRect* pRect,
                  int bProgress, int hAlpha) {
  if (!source || !tables || n < 1) return;
  // An image of two planes counts as colour and uses the tables that it has planes for.
  const int planes = target.IsColor() ? std::min(target.GetPlanes(), kTablePlanes) : 1;
  const int needed = target.IsColor() ? planes + 1 : 1;
  if (std::any_of(tables, tables + needed, [](const float* table) { return !table; })) return;
  int left, top, right, bottom;
  target.NormalizeRect(pRect, left, top, right, bottom);
  // The whole height whatever the rectangle, on purpose: hosts know that the bar stops short on a part of the image.
  target.ShowProgressInit(bProgress, hAlpha ? kMessageHAlpha : kMessageToneCurve,
                          RowUnits(target.GetHeight(), target.GetPlanes()));
  for (int p = 0; p < planes; ++p) {
    const ToneMap map = MapOf(target, tables, n - 1, p);
    ForRows(
        top, bottom,
        [&](int y) {
          const auto [from, to] = RowPair(*source, target, y, p, left, right);
          map.Row(from, to);
        },
        &target);
  }
  target.ShowProgressEnd(nullptr);
}

void RunHAlpha(CVynImage& target, double knee, double kneeOutput, CVynImage* source, const CRect* pRect,
               int bProgress) {
  std::array<float, kHAlphaEntries> curve;
  std::array<float, kHAlphaEntries> identity;
  for (int i = 0; i < kHAlphaEntries; ++i) identity[static_cast<std::size_t>(i)] = static_cast<float>(i / 255.0);
  curve = identity;
  const int end = std::min(TruncateToInt(knee * 255.0), kHAlphaEntries);
  for (int i = 0; i < end; ++i)
    curve[static_cast<std::size_t>(i)] = static_cast<float>(i / (knee * 255.0) * kneeOutput);
  // The curve is the master and the red table both, on purpose: red goes through it twice.
  const float* const tables[] = {curve.data(), curve.data(), identity.data(), identity.data()};
  RunToneCurve(target, tables, kHAlphaEntries, source, pRect, bProgress, 1);
}

void RunHAlphaLevel(CVynImage& target, double factor, CVynImage* source) {
  if (!source) return;
  source->CalcMinMax();
  const double min = source->GetMinPixel(0);
  const double max = source->GetMaxPixel(0) * factor;
  for (int p = 0; p < target.GetPlanes(); ++p) {
    target.SetLevelMin(p, min);
    target.SetLevelMax(p, max);
  }
}

}  // namespace qmr

CImgToneCurve::CImgToneCurve() = default;
CImgToneCurve::~CImgToneCurve() = default;

void CImgToneCurve::Do(float** tables, int n, CVynImage* source, CRect* pRect, int bProgress, int hAlpha) {
  qmr::RunToneCurve(*this, tables, n, source, pRect, bProgress, hAlpha);
}

void CImgToneCurve::DoHAlpha(double knee, double kneeOutput, CVynImage* source, CRect* pRect, int bProgress) {
  qmr::RunHAlpha(*this, knee, kneeOutput, source, pRect, bProgress);
}

void CImgToneCurve::DoHAlphaLevel(double factor, CVynImage* source) {
  qmr::RunHAlphaLevel(*this, factor, source);
}

double CImgToneCurve::CalcToneCurve(float* table, int last, double v) const {
  return qmr::ToneBeyond(table, last, v);
}

double CImgToneCurve::CalcToneNormal(double v, double indexFactor, float* table, int last) const {
  return qmr::ToneNormal(v, indexFactor, table, last);
}
