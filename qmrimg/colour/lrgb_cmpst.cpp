#include "qmrimg/colour/lrgb_cmpst.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "qmrimg/colour/composition.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/geometry/interp.h"

namespace {

constexpr int kMessageLrgb = 6103;

void TakeLevels(CVynImage& target, const CVynImage& luminance, qmr::RowLevels (&levels)[qmr::kRgbPlanes]) {
  const qmr::Levels from = qmr::LevelsOf(luminance, 0);
  for (int p = 0; p < qmr::kRgbPlanes; ++p) {
    target.SetLevel(p, from.min, from.max);
    levels[p] = {target.GetLevelMin(p), target.GetLevelRange(p)};
  }
}

qmr::PlaneBlend BlendOf(unsigned blend) {
  if (blend == 1) return qmr::PlaneBlend::kDifference;
  return blend == 2 ? qmr::PlaneBlend::kInverseDifference : qmr::PlaneBlend::kMean;
}

// Three rows of a thread's own.
class RgbBuffer {
 public:
  explicit RgbBuffer(const qmr::ComposedRect& rect)
      : width_(static_cast<std::size_t>(std::max(rect.right - rect.left, 0))), values_(width_ * qmr::kRgbPlanes) {
    for (std::size_t p = 0; p < qmr::kRgbPlanes; ++p) rows_[p] = values_.data() + p * width_;
  }
  qmr::RgbRows Rows() const { return rows_; }

 private:
  std::size_t width_;
  std::vector<float> values_;
  float* rows_[qmr::kRgbPlanes];
};

// A frame of Lab planes, one object a worker.
CInterp LabSampler(const qmr::ComposedFrame& frame, int useImageCenter, double scale, int method) {
  const qmr::Turn turn = qmr::TurnOf(frame.angle);
  CInterp interp(method);
  interp.SetBParam(frame.image, frame.dx, frame.dy, turn.sine, turn.cosine, scale, useImageCenter, 0, 0.0f);
  // Row addresses at hand spare a look-up for every row of every sample.
  interp.GetImageYaddress();
  return interp;
}

}  // namespace

CImgLrgbCmpst::CImgLrgbCmpst() = default;
CImgLrgbCmpst::CImgLrgbCmpst(const CImgLrgbCmpst& src) = default;
CImgLrgbCmpst::~CImgLrgbCmpst() = default;
CImgLrgbCmpst& CImgLrgbCmpst::operator=(const CImgLrgbCmpst& src) = default;

void CImgLrgbCmpst::DoLrgb(CVynImage* luminance, double luminanceDx, double luminanceDy, double luminanceAngle,
                           CVynImage* colour, double colourDx, double colourDy, double colourAngle, int useImageCenter,
                           double colourScale, CRect* pRect, int blendOnly, unsigned blend, int bProgress) {
  if (!luminance || !colour || Planes < qmr::kRgbPlanes) return;
  qmr::Snapshot before(*this);
  const CVynImage& light = before.Of(*luminance);
  const qmr::RgbSampler luminanceRows({&before.Of(*luminance), luminanceDx, luminanceDy, luminanceAngle},
                                      useImageCenter, 1.0);
  const qmr::RgbSampler colourRows({&before.Of(*colour), colourDx, colourDy, colourAngle}, useImageCenter, colourScale);
  const double full = (light.GetLevelMax(0) - light.GetLevelMin(0)) / light.GetLevelRange(0) * 255.0;
  const qmr::ComposedRect rect = qmr::ClampRect(*this, pRect);
  qmr::RowLevels levels[qmr::kRgbPlanes];
  TakeLevels(*this, light, levels);
  ShowProgressInit(bProgress && !blendOnly, kMessageLrgb, rect.bottom - rect.top);
  qmr::ForRowRanges(rect.top, rect.bottom, [&](int first, int last) {
    const RgbBuffer u(rect);
    const RgbBuffer v(rect);
    for (int y = first; y < last; ++y) {
      float* rows[qmr::kRgbPlanes];
      if (const int width = qmr::RowsOf(*this, rect, y, rows)) {
        luminanceRows.Row(rect.left, y, width, u.Rows());
        colourRows.Row(rect.left, y, width, v.Rows());
        if (blendOnly) {
          for (int p = 0; p < qmr::kRgbPlanes; ++p)
            qmr::PlaneBlendRow(BlendOf(blend), u.Rows()[p], v.Rows()[p], width, full, levels[p], rows[p]);
        } else {
          qmr::LrgbRow(u.Rows(), v.Rows(), width, levels, rows);
        }
      }
      ShowProgress(1);
    }
  });
  ShowProgressEnd(nullptr);
}

void CImgLrgbCmpst::DoLab(CVynImage* luminance, double luminanceDx, double luminanceDy, double luminanceAngle,
                          CVynImage* colour, double colourDx, double colourDy, double colourAngle, int useImageCenter,
                          double colourScale, int method, CRect* pRect, int bProgress) {
  if (!luminance || !colour || Planes < qmr::kRgbPlanes) return;
  qmr::Snapshot before(*this);
  const qmr::ComposedFrame light = {&before.Of(*luminance), luminanceDx, luminanceDy, luminanceAngle};
  const qmr::ComposedFrame chroma = {&before.Of(*colour), colourDx, colourDy, colourAngle};
  const qmr::ComposedRect rect = qmr::ClampRect(*this, pRect);
  ShowProgressInit(bProgress, kMessageLrgb, rect.bottom - rect.top);
  qmr::RowLevels levels[qmr::kRgbPlanes];
  TakeLevels(*this, *light.image, levels);
  qmr::ForRowRanges(rect.top, rect.bottom, [&](int first, int last) {
    const CInterp luminanceRows = LabSampler(light, useImageCenter, 1.0, method);
    const CInterp colourRows = LabSampler(chroma, useImageCenter, colourScale, method);
    const RgbBuffer lab(rect);
    const auto& [l, a, b] = lab.Rows();
    for (int y = first; y < last; ++y) {
      float* rows[qmr::kRgbPlanes];
      if (const int width = qmr::RowsOf(*this, rect, y, rows)) {
        for (int x = 0; x < width; ++x) {
          double ab[2];
          l[x] = luminanceRows.GetPixelL(rect.left + x, y);
          colourRows.GetPixelAb(rect.left + x, y, &ab[0], &ab[1]);
          a[x] = static_cast<float>(ab[0]);
          b[x] = static_cast<float>(ab[1]);
        }
        qmr::LabToRgbRow(l, a, b, width, levels, rows);
      }
      ShowProgress(1);
    }
  });
  ShowProgressEnd(nullptr);
}
