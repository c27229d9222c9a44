#include "qmrimg/filters/filter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "qmrimg/filters/kernels/pattern_rows.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageMedian = 6120;
constexpr int kMessageUnsharp = 6122;
constexpr int kMessageLaplacian = 6143;
constexpr int kMessageMinMax = 6153;
// The Laplacian's, on purpose also for method 2, whose kernel is another one than the pattern of the means.
constexpr int kLaplacianRadius = 1;

using qmr::Pattern;
using qmr::PatternOf;

// False when the image has no such column, plane or float samples; the entries are null then.
bool FillTable(const CImage& image, int x, int y, int plane, int radius, int pin, float** rows) {
  const bool floats = qmr::HasFloats(image) && x >= 0 && x < image.GetWidth();
  bool all = radius >= 0;
  for (int i = 0; i <= 2 * static_cast<std::int64_t>(radius); ++i) {
    const int row = qmr::MirrorIndex(static_cast<std::int64_t>(y) - radius + i, image.GetHeight());
    rows[i] = floats ? static_cast<float*>(image.GetImageAdr(x, row, plane, 1, pin, nullptr)) : nullptr;
    all = all && rows[i];
  }
  return all;
}

bool IsTable(float* const* rows, int radius) {
  return rows && std::all_of(rows, rows + 2 * radius + 1, [](const float* row) { return row != nullptr; });
}

bool IsTable(float* const* rows, int method, int width) {
  return width > 0 && IsTable(rows, qmr::PatternRadius(PatternOf(method)));
}

// Fills `rows`, which has room for all patterns, around a pixel inside the image.
bool TableAt(const CImage& image, int x, int y, int method, int plane, float** rows) {
  if (y < 0 || y >= image.GetHeight()) return false;
  return FillTable(image, x, y, plane, qmr::PatternRadius(PatternOf(method)), 0, rows);
}

struct PlaneRange {
  int first;
  int last;
};

PlaneRange AllPlanes(const CImage& image) {
  return {0, image.GetPlanes()};
}

// Runs `kernel` on the rows of `target` within the rectangle, from tables of `source`.
template <class Kernel>
void FilterRows(CVynImage& target, CVynImage& source, PlaneRange planes, int radius, const CRect* pRect, int bProgress,
                int message, const Kernel& kernel) {
  qmr::Snapshot before(target);
  const CVynImage& from = before.Of(source);
  int left, top, right, bottom;
  target.NormalizeRect(pRect, left, top, right, bottom);
  target.ShowProgressInit(bProgress, message, (bottom - top) * (planes.last - planes.first));
  for (int p = planes.first; p < planes.last; ++p) {
    qmr::ForRows(
        top, bottom,
        [&](int y) {
          const auto to = qmr::RowPair(from, target, y, p, left, right).to;
          float* rows[qmr::kPatternMaxRows];
          if (to.empty() || !FillTable(from, 0, y, p, radius, 0, rows)) return;
          kernel(qmr::PatternRow{rows, from.GetWidth(), left, left + static_cast<int>(to.size()), to.data()});
        },
        &target);
  }
  target.ShowProgressEnd(nullptr);
}

void Unsharp(CVynImage& target, CVynImage* source, PlaneRange planes, int method, const qmr::UnsharpSettings& settings,
             const CRect* pRect, int bProgress) {
  if (!source) return;
  const Pattern pattern = PatternOf(method);
  FilterRows(target, *source, planes, qmr::PatternRadius(pattern), pRect, bProgress, kMessageUnsharp,
             [&](const qmr::PatternRow& row) { qmr::UnsharpRow(row, pattern, settings); });
}

}  // namespace

CImgFilter::CImgFilter() = default;
CImgFilter::~CImgFilter() = default;

float CImgFilter::GetMeanRaw(float** rows, int x, int method, double weight, double* plainMean) const {
  if (!IsTable(rows, method, Width)) return 0.0f;
  return qmr::PatternMean(rows, x, Width, PatternOf(method), weight, plainMean);
}

float CImgFilter::GetMeanRaw(int x, int y, int method, double weight, int nPlane) const {
  float* rows[qmr::kPatternMaxRows];
  return TableAt(*this, x, y, method, nPlane, rows) ? GetMeanRaw(rows, x, method, weight, nullptr) : 0.0f;
}

float CImgFilter::GetMean256f(float** rows, int x, int method, double weight, int nPlane) const {
  return static_cast<float>(To256(static_cast<double>(GetMeanRaw(rows, x, method, weight, nullptr)), nPlane));
}

float CImgFilter::GetMeanGray(float** rows, int x, int method, double weight, int nPlane) const {
  const float mean = GetMeanRaw(rows, x, method, weight, nullptr);
  return GetPixelGray(&mean, nPlane);
}

float CImgFilter::GetMedianRaw(float** rows, int x, int method) const {
  if (!IsTable(rows, method, Width)) return 0.0f;
  return qmr::PatternMedian(rows, x, Width, PatternOf(method));
}

float CImgFilter::GetMedianRaw(int x, int y, int method, int nPlane) const {
  float* rows[qmr::kPatternMaxRows];
  return TableAt(*this, x, y, method, nPlane, rows) ? GetMedianRaw(rows, x, method) : 0.0f;
}

float CImgFilter::GetMedian256f(float** rows, int x, int method, int nPlane) const {
  return static_cast<float>(To256(static_cast<double>(GetMedianRaw(rows, x, method)), nPlane));
}

float CImgFilter::GetMedianGray(float** rows, int x, int method, int nPlane) const {
  const float median = GetMedianRaw(rows, x, method);
  return GetPixelGray(&median, nPlane);
}

float CImgFilter::GetMinMaxRaw(float** rows, int x, int method, int rank) const {
  if (!IsTable(rows, method, Width)) return 0.0f;
  return qmr::PatternRank(rows, x, Width, PatternOf(method), rank);
}

float CImgFilter::GetLaplacianRaw(float** rows, int x, int method, int nPlane) const {
  // Without a pattern the first entry is all that is read.
  const int radius = PatternOf(method) == Pattern::kPoint ? 0 : kLaplacianRadius;
  if (Width <= 0 || !IsTable(rows, radius)) return 0.0f;
  return qmr::PatternLaplacian(rows, x, Width, method, GetLevelMin(nPlane));
}

float CImgFilter::GetLaplacian256f(float** rows, int x, int method, int nPlane) const {
  return static_cast<float>(To256(static_cast<double>(GetLaplacianRaw(rows, x, method, nPlane)), nPlane));
}

float CImgFilter::GetLaplacianGray(float** rows, int x, int method, int nPlane) const {
  const float laplacian = GetLaplacianRaw(rows, x, method, nPlane);
  return GetPixelGray(&laplacian, nPlane);
}

float CImgFilter::HighPassRaw(int x, int y, int nPlane) const {
  if (x < 0 || x >= Width || y < 0 || y >= Height) return 0.0f;
  const auto at = [&](int dx, int dy) {
    return GetPixelGrayRaw(std::clamp(x + dx, 0, Width - 1), std::clamp(y + dy, 0, Height - 1), nPlane);
  };
  const float above = at(-1, -1) + at(0, -1) + at(1, -1);
  const float sum = above + at(-1, 0) + at(1, 0) + at(-1, 1) + at(0, 1) + at(1, 1);
  return std::fabs(8.0f * at(0, 0) - sum);
}

int CImgFilter::GetMeanR(int method) const {
  return qmr::PatternRadius(PatternOf(method));
}

void CImgFilter::MedianFilter(int method, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  const Pattern pattern = PatternOf(method);
  FilterRows(*this, *source, AllPlanes(*this), qmr::PatternRadius(pattern), pRect, bProgress, kMessageMedian,
             [&](const qmr::PatternRow& row) { qmr::MedianRow(row, pattern); });
}

void CImgFilter::MinMaxFilter(int method, int rank, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  const qmr::RankPlan plan(PatternOf(method), rank);
  FilterRows(*this, *source, AllPlanes(*this), qmr::PatternRadius(plan.pattern), pRect, bProgress, kMessageMinMax,
             [&](const qmr::PatternRow& row) { qmr::RankRow(row, plan); });
}

void CImgFilter::LaplacianFilter(int method, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  // One offset for all planes, on purpose: a flat colour image becomes a grey one.
  const double offset = source->GetLevelMin(0);
  FilterRows(*this, *source, AllPlanes(*this), kLaplacianRadius, pRect, bProgress, kMessageLaplacian,
             [&](const qmr::PatternRow& row) { qmr::LaplacianRow(row, method, offset); });
}

void CImgFilter::UnSharpMask(double gain, int method, double weight, double threshold, CVynImage* source, int nPlane,
                             CRect* pRect, int bProgress) {
  const bool has = nPlane >= 0 && nPlane < GetPlanes();
  const PlaneRange planes = has ? PlaneRange{nPlane, nPlane + 1} : PlaneRange{0, 0};
  Unsharp(*this, source, planes, method, {gain, weight, threshold}, pRect, bProgress);
}

void CImgFilter::UnSharpMask(double gain, int method, double weight, double threshold, CVynImage* source, CRect* pRect,
                             int bProgress) {
  Unsharp(*this, source, AllPlanes(*this), method, {gain, weight, threshold}, pRect, bProgress);
}

void CImgFilter::CalcRect(int& left, int& top, int& right, int& bottom, CRect* pRect) const {
  NormalizeRect(pRect, left, top, right, bottom);
}

void CImgFilter::CalcShift(int& shiftX, int& shiftY, int, CVynImage* source) const {
  if (!source || (source->GetWidth() <= Width && source->GetHeight() <= Height)) return;
  shiftX = (source->GetWidth() - Width) / 2;
  shiftY = (source->GetHeight() - Height) / 2;
}

void CImgFilter::SetFilterAdr(int x, int y, int nPlane, int radius, float** rows, unsigned mode) const {
  if (rows) FillTable(*this, x, y, nPlane, radius, static_cast<int>(mode & 2u), rows);
}
