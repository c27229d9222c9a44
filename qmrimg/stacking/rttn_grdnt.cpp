#include "qmrimg/stacking/rttn_grdnt.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/row_table.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/stacking/kernels/rotational_gradient_rows.h"

namespace {

constexpr int kMessageGradient = 6176;
constexpr float kFloatMax = std::numeric_limits<float>::max();

float ToneLevel(const CVynImage& image, int plane, double level) {
  return static_cast<float>(level / 255.0 * image.GetLevelRange(plane) + image.GetLevelMin(plane));
}

struct ToneLimit {
  bool use;
  double level;
  double width;
};

struct Tones {
  ToneLimit low;
  ToneLimit high;
  bool protect;
  double percent;
};

qmr::ToneBand BandOf(const CVynImage& image, int plane, const Tones& tones) {
  qmr::ToneBand band = {-kFloatMax, -kFloatMax, 0.0f, kFloatMax, kFloatMax, 0.0f, tones.protect, 1.0f};
  if (const ToneLimit& low = tones.low; low.use) {
    band.lowFull = ToneLevel(image, plane, low.level);
    band.lowStart = ToneLevel(image, plane, low.level - low.width);
    band.lowSpan = band.lowFull - band.lowStart;
  }
  if (const ToneLimit& high = tones.high; high.use) {
    band.highFull = ToneLevel(image, plane, high.level);
    band.highEnd = ToneLevel(image, plane, high.level + high.width);
    band.highSpan = band.highEnd - band.highFull;
  }
  // Only a negative percentage counts, on purpose: pictures made so far rest on it.
  if (tones.percent < 0.0) band.fraction = static_cast<float>(tones.percent / 100.0);
  return band;
}

// What both forms do.
class GradientPass {
 public:
  GradientPass(CVynImage& target, CVynImage& source, const CRect* rect, int bProgress)
      : target_(target), before_(target), rows_(before_.Of(source)) {
    target.NormalizeRect(rect, left_, top_, right_, bottom_);
    const std::int64_t units = (static_cast<std::int64_t>(bottom_) - top_) * target.GetPlanes();
    target.ShowProgressInit(bProgress, kMessageGradient,
                            static_cast<int>(std::min<std::int64_t>(units, std::numeric_limits<int>::max())));
  }

  // Without tones all pixels are filtered.
  void Run(const qmr::RotationalGradient& gradient, const Tones* tones) {
    qmr::ForRowRanges(top_, bottom_, [&](int first, int last) {
      std::vector<qmr::PlaneRows> planes;
      for (int p = 0; p < std::min(target_.GetPlanes(), rows_.Planes()); ++p)
        planes.push_back({rows_.Plane(p), rows_.Width(), rows_.Height()});
      std::vector<float*> out(planes.size());
      for (int y = first; y < last; ++y) {
        if (y < rows_.Height()) Row(gradient, tones, planes, y, out);
        for (int p = 0; p < target_.GetPlanes(); ++p) target_.ShowProgress(1);
      }
    });
  }

  // Into plane 0. A row or column of the rectangle that isn't there has no pixels to take it.
  void DrawCross(double centerX, double centerY) {
    const float dots[] = {static_cast<float>(target_.GetLevelMin(0) + target_.GetLevelRange(0)),
                          static_cast<float>(target_.GetLevelMin(0))};
    if (left_ <= centerX && centerX < right_) {
      const int x = qmr::TruncateToInt(centerX);
      for (int y = top_; y < bottom_; ++y) target_.SetPixelGrayRaw(x, y, dots[y % 2], 0);
    }
    if (top_ <= centerY && centerY < bottom_) {
      const std::span<float> row = qmr::WriteRow(target_, qmr::TruncateToInt(centerY), 0, left_, right_);
      for (std::size_t i = 0; i < row.size(); ++i) row[i] = dots[(static_cast<std::size_t>(left_) + i) % 2];
    }
  }

  void End() { target_.ShowProgressEnd(nullptr); }

 private:
  void Row(const qmr::RotationalGradient& gradient, const Tones* tones, const std::vector<qmr::PlaneRows>& planes,
           int y, std::vector<float*>& out) {
    std::size_t width = static_cast<std::size_t>(std::max(std::min(right_, rows_.Width()) - left_, 0));
    for (std::size_t p = 0; p < planes.size(); ++p) {
      const std::span<float> row = qmr::WriteRow(target_, y, static_cast<int>(p), left_, right_);
      out[p] = row.data();
      width = std::min(width, row.size());
    }
    const int count = static_cast<int>(width);
    if (count == 0) return;
    qmr::RotationalGradientRow(gradient, planes.data(), static_cast<int>(planes.size()), left_, y, count, out.data());
    for (std::size_t p = 0; tones && p < planes.size(); ++p)
      qmr::BlendToneBandRow(planes[p].rows[y] + left_, BandOf(target_, static_cast<int>(p), *tones), out[p], count);
  }

  CVynImage& target_;
  qmr::Snapshot before_;
  const qmr::RowTable rows_;
  int left_, top_, right_, bottom_;
};

qmr::RotationalGradient GradientOf(double angle, double strength, double centerX, double centerY) {
  return {angle * 3.141592653589793 / 180.0, strength, centerX, centerY};
}

}  // namespace

CImgRttnGrdnt::CImgRttnGrdnt() = default;
CImgRttnGrdnt::~CImgRttnGrdnt() = default;

void CImgRttnGrdnt::Do(double angle, double strength, double centerX, double centerY, CVynImage* source, CRect* pRect,
                       int bProgress) {
  if (!source) return;
  GradientPass pass(*this, *source, pRect, bProgress);
  pass.Run(GradientOf(angle, strength, centerX, centerY), nullptr);
  pass.End();
}

void CImgRttnGrdnt::Do(double angle, double strength, double centerX, double centerY, int useLow, double lowLevel,
                       double lowWidth, int useHigh, double highLevel, double highWidth, int protect,
                       double protectPercent, int bProgressCross, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  GradientPass pass(*this, *source, pRect, bProgress);
  const Tones tones = {
      {useLow != 0, lowLevel, lowWidth}, {useHigh != 0, highLevel, highWidth}, protect != 0, protectPercent};
  pass.Run(GradientOf(angle, strength, centerX, centerY), &tones);
  if (bProgressCross) pass.DrawCross(centerX, centerY);
  pass.End();
}
