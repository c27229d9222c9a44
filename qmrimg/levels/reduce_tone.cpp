#include "qmrimg/levels/reduce_tone.h"

#include <algorithm>

#include "qmrimg/levels/kernels/tone_curve_rows.h"
#include "qmrimg/levels/point_run.h"

namespace {

constexpr int kMessageReduceTone = 6144;

}  // namespace

CImgReduceTone::CImgReduceTone() = default;
CImgReduceTone::~CImgReduceTone() = default;

void CImgReduceTone::Do(int tones, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageReduceTone, qmr::RowUnits(bottom - top, Planes));
  for (int p = 0; p < Planes; ++p) {
    const qmr::ToneSteps steps(std::clamp(tones, 1, 256), GetLevelMin(p), GetLevelRange(p));
    qmr::ForRows(
        top, bottom,
        [&](int y) {
          const auto [from, to] = qmr::RowPair(*source, *this, y, p, left, right);
          steps.Row(from, to);
        },
        this);
  }
  ShowProgressEnd(nullptr);
}
