#include "qmrimg/geometry/soft_binning.h"

#include <algorithm>
#include <cmath>

#include "qmrimg/filters/snapshot.h"
#include "qmrimg/geometry/geometry_run.h"
#include "qmrimg/geometry/kernels/resample_rows.h"

namespace {

constexpr int kMessageBinning = 6132;

int BlockCount(int size, int bin, bool roundUp) {
  const double count = static_cast<double>(size) / bin;
  return static_cast<int>(roundUp ? std::ceil(count) : std::floor(count));
}

}  // namespace

CImgSoftBinning::CImgSoftBinning() = default;
CImgSoftBinning::~CImgSoftBinning() = default;

int CImgSoftBinning::Do(int binX, int binY, int roundUp, int scaleLevels, CVynImage* source, int bProgress) {
  if (!source || binX < 1 || binY < 1) return 0;
  const int oldWidth = Width;
  const int oldHeight = Height;
  qmr::Snapshot before(*this);
  const CVynImage& from = before.Of(*source);
  if (!qmr::MakeSize(*this, BlockCount(oldWidth, binX, roundUp), BlockCount(oldHeight, binY, roundUp), bProgress))
    return 0;
  ShowProgressInit(bProgress, kMessageBinning, qmr::ReportUnits(Height, Planes));
  qmr::ForPlaneRows(*this, [&](int p, int y) {
    const auto to = qmr::WriteRow(*this, y, p, 0, Width);
    const std::int64_t first = static_cast<std::int64_t>(y) * binY;
    const std::int64_t end = std::min<std::int64_t>(first + binY, oldHeight);
    for (std::int64_t row = first; row < end; ++row)
      qmr::AddBinnedRow(qmr::ReadRow(from, static_cast<int>(row), p, 0, oldWidth), binX, to);
  });
  if (scaleLevels) {
    const double pixels = static_cast<double>(binX) * binY;
    for (int p = 0; p < Planes; ++p) SetLevel(p, GetLevelMin(p) * pixels, GetLevelMax(p) * pixels);
  }
  ShowProgressEnd(nullptr);
  return 1;
}
