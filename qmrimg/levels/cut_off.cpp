#include "qmrimg/levels/cut_off.h"

#include "qmrimg/levels/point_run.h"

namespace {

constexpr int kMessageCutOff = 6198;

}  // namespace

CImgCutOff::CImgCutOff() = default;
CImgCutOff::CImgCutOff(const CImgCutOff& src) : CVynImage(src) {}
CImgCutOff::~CImgCutOff() = default;

CImgCutOff& CImgCutOff::operator=(const CImgCutOff& src) {
  CVynImage::operator=(src);
  return *this;
}

void CImgCutOff::Do(CVynImage* source, float lowValue, float highValue, CRect* pRect, int bProgress) {
  if (!source) return;
  const auto [left, right, top, bottom] = qmr::AreaOf(*this, pRect);
  ShowProgressInit(bProgress, kMessageCutOff, qmr::RowUnits(bottom - top, Planes));
  DoCutOff(source, lowValue, highValue, left, right, top, bottom);
  if (bProgress) ShowProgressEnd(nullptr);
}

void CImgCutOff::DoCutOff(CVynImage* source, float lowValue, float highValue, int left, int right, int top,
                          int bottom) {
  constexpr qmr::Stores kStores = qmr::Stores::kStreaming;
  for (int p = 0; p < Planes; ++p) {
    const qmr::CutOffLimits limits{static_cast<float>(source->GetLevelMin(p)),
                                   static_cast<float>(source->GetLevelMax(p)), lowValue, highValue};
    qmr::ForPointRows(
        *this, *source, p, {left, right, top, bottom}, kStores,
        [&](std::span<const float> from, std::span<float> to) { qmr::CutOffRow(from, to, left, kStores, limits); });
  }
}
