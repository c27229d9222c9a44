// Detection of lines of equal brightness.
#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/kernels/contour_rows.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageContour = 6171;

qmr::RowLevels LevelsOf(const CImage& image, int plane) {
  return {image.GetLevelMin(plane), image.GetLevelRange(plane)};
}

// One thread's downward scan: every source pixel is turned into its level once.
class ContourScan {
 public:
  ContourScan(const CVynImage& image, const qmr::ContourScale& scale, const std::vector<int>& before, int left)
      : image_(image), scale_(scale), before_(before), left_(left) {
    for (std::vector<int>* row : {&above_, &here_}) row->resize(before.size() + 1);
    score_.resize(before.size());
  }

  // The scores of row `y`; empty when the image has no such row.
  std::span<const float> Row(int y) {
    if (y != next_ && !Read(std::max(y - 1, 0))) return {};
    std::swap(above_, here_);
    if (!Read(y)) return {};
    next_ = y + 1;
    qmr::ContourRow(above_.data() + 1, here_.data() + 1, before_.data(), qmr::ContourCellsBefore(y), score_.size(),
                    score_.data());
    return score_;
  }

 private:
  // Puts the levels of row `y`, from the column before the first one on, into `here_`.
  bool Read(int y) {
    const std::size_t width = before_.size();
    const int right = left_ + static_cast<int>(width);
    // At column 0 the column before is itself.
    const int start = std::max(left_ - 1, 0);
    const std::size_t count = static_cast<std::size_t>(right - start);
    int* const steps = here_.data() + (width + 1 - count);
    const std::span<const float> r = qmr::ReadRow(image_, y, 0, start, right);
    if (r.size() != count) return false;
    if (qmr::HasRgb(image_)) {
      const std::span<const float> g = qmr::ReadRow(image_, y, 1, start, right);
      const std::span<const float> b = qmr::ReadRow(image_, y, 2, start, right);
      const qmr::RowLevels levels[3] = {LevelsOf(image_, 0), LevelsOf(image_, 1), LevelsOf(image_, 2)};
      qmr::ContourLevels(r.data(), g.data(), b.data(), count, levels, scale_, steps);
    } else {
      qmr::ContourLevels(r.data(), count, LevelsOf(image_, 0), scale_, steps);
    }
    if (count == width) here_[0] = here_[1];
    return true;
  }

  const CVynImage& image_;
  const qmr::ContourScale& scale_;
  // Cells before each column.
  const std::vector<int>& before_;
  int left_;
  int next_ = -1;
  std::vector<int> above_;
  std::vector<int> here_;
  std::vector<float> score_;
};

}  // namespace

void CImgFilterMisc::ContourFilter(int levels, int bNoClamp, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageContour, bottom - top);
  const float count = static_cast<float>(std::max(levels, 2));
  const qmr::ContourScale scale{count / 255.0f, count, bNoClamp == 0};
  std::vector<int> before;
  before.reserve(static_cast<std::size_t>(std::max(right - left, 0)));
  for (int x = left; x < std::min(right, source->GetWidth()); ++x) before.push_back(qmr::ContourCellsBefore(x));
  qmr::Snapshot unfiltered(*this);
  const CVynImage& image = unfiltered.Of(*source);
  qmr::ForRowRanges(top, bottom, [&](int first, int last) {
    ContourScan scan(image, scale, before, left);
    for (int y = first; y < last; ++y) {
      const std::span<const float> score = before.empty() ? std::span<const float>() : scan.Row(y);
      for (int p = 0; p < Planes; ++p) {
        const std::span<float> to = qmr::WriteRow(*this, y, p, left, right);
        qmr::ContourToPlane(score.data(), to.data(), std::min(score.size(), to.size()), LevelsOf(*this, p));
      }
      ShowProgress(1);
    }
  });
  ShowProgressEnd(nullptr);
}
