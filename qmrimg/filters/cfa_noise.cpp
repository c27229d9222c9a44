// Hot and cool pixels of undeveloped frames.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "qmrimg/filters/block_scan.h"
#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/kernels/cfa_rows.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageNoiseCut = 6164;
constexpr int kFirstHoneycomb = 11;

// A tile of the colour filters: the pixels that are looked at, in their order, and their colours. Tiles repeat every
// `step` pixels both ways. Patterns that differ in red and blue only are one layout.
struct CfaSite {
  int x;
  int y;
  int colour;
};
struct CfaLayout {
  int patterns[2];
  int bayer;
  int step;
  int count;
  CfaSite sites[8];
};

// 0 red, 1 green, 2 blue:   1, 3    2, 4     11, 12       13, 14
//                            0 1     1 0     . 2 . 0     . 1 . 1
//                            1 2     2 1     1 . 1 .     2 . 0 .
//                                            . 0 . 2     . 1 . 1
//                                            1 . 1 .     0 . 2 .
constexpr CfaLayout kLayouts[] = {
    {{1, 3}, 1, 2, 4, {{0, 0, 0}, {1, 0, 1}, {0, 1, 1}, {1, 1, 2}}},
    {{2, 4}, 1, 2, 4, {{0, 0, 1}, {1, 0, 0}, {0, 1, 2}, {1, 1, 1}}},
    {{11, 12}, 0, 4, 8, {{1, 0, 2}, {0, 1, 1}, {1, 2, 0}, {0, 3, 1}, {3, 0, 0}, {2, 1, 1}, {3, 2, 2}, {2, 3, 1}}},
    {{13, 14}, 0, 4, 8, {{1, 0, 1}, {0, 1, 2}, {1, 2, 1}, {0, 3, 0}, {3, 0, 1}, {2, 1, 0}, {3, 2, 1}, {2, 3, 2}}},
};

const CfaLayout* LayoutOf(int pattern) {
  for (const CfaLayout& layout : kLayouts)
    if (layout.patterns[0] == pattern || layout.patterns[1] == pattern) return &layout;
  return nullptr;
}

qmr::CfaPoints PointsOf(int colour, int bayer) {
  CFilterMatrix cross;
  cross.SetCfaCross(colour, bayer);
  qmr::CfaPoints points{};
  int k = 0;
  for (int dy = -cross.GetRadius(); dy <= cross.GetRadius(); ++dy) {
    for (int dx = -cross.GetRadius(); dx <= cross.GetRadius(); ++dx) {
      if (cross.Get(dx, dy) != 1.0f || k == 4) continue;
      points.dx[k] = dx;
      points.dy[k++] = dy;
    }
  }
  return points;
}

// A negative coordinate gives its magnitude; one past the end is reflected there; the rest is cut to the image.
int Mirrored(std::int64_t i, int size) {
  if (i < 0) i = -i;
  if (i >= size) i = 2 * static_cast<std::int64_t>(size) - i - 2;
  return static_cast<int>(std::clamp<std::int64_t>(i, 0, size - 1));
}

bool LooksLone(const CImage& image, int x, int y, bool bayer, bool hot, double threshold) {
  const float* rows[5];
  int columns[5];
  for (int i = 0; i < 5; ++i) {
    const int row = Mirrored(std::int64_t{y} + i - 2, image.GetHeight());
    const std::span<const float> pixels = qmr::ReadRow(image, row, 0, 0, image.GetWidth());
    if (pixels.empty()) return false;
    rows[i] = pixels.data();
    columns[i] = Mirrored(std::int64_t{x} + i - 2, image.GetWidth());
  }
  return qmr::CompareCfaRings(rows, columns, bayer, hot, threshold);
}

// One thread's rows of a frame.
class CfaScan {
 public:
  CfaScan(const CImage& frame, const CfaLayout& layout, const qmr::CfaLimits& limits, int left, int right)
      : frame_(frame), layout_(layout), limits_(limits), left_(left) {
    // The frame may be the narrower one.
    right = std::min(right, frame.GetWidth());
    for (int colour = 0; colour < 3; ++colour) points_[colour] = PointsOf(colour, layout.bayer);
    marks_.resize(static_cast<std::size_t>(std::max(right - left, 0)));
  }

  // Filters the sites of row `y`, which is `tileRow` of its tiles.
  void Row(int y, int tileRow, std::span<float> out) {
    const int end = left_ + static_cast<int>(std::min(out.size(), marks_.size()));
    qmr::CfaWindow window;
    if (end <= left_ || !Read(y, window)) return;
    const qmr::CfaColumns columns = ColumnsOf(tileRow);
    qmr::CopyCfaRow(window, left_, end, columns, out.data());
    qmr::MarkCfaRow(window, left_, end, columns, limits_, marks_.data());
    const std::uint8_t* const last = marks_.data() + (end - left_);
    for (const std::uint8_t* mark = marks_.data(); mark != last; ++mark) {
      mark = static_cast<const std::uint8_t*>(std::memchr(mark, 1, static_cast<std::size_t>(last - mark)));
      if (!mark) break;
      const std::ptrdiff_t i = mark - marks_.data();
      const int x = left_ + static_cast<int>(i);
      const qmr::CfaFinding found = qmr::JudgeCfaPixel(window, x, *columns.points[x & 1], limits_);
      if (found.verdict == qmr::CfaVerdict::kKeep) continue;
      const bool hot = found.verdict == qmr::CfaVerdict::kHot;
      if (LooksLone(frame_, x, y, layout_.bayer != 0, hot, hot ? limits_.hot : limits_.cool))
        out[static_cast<std::size_t>(i)] = found.neighbour;
    }
  }

 private:
  // False when the frame has no such row.
  bool Read(int y, qmr::CfaWindow& window) const {
    window.width = frame_.GetWidth();
    if (y >= frame_.GetHeight()) return false;
    for (int i = 0; i < 5; ++i) {
      const int row = qmr::BlockSourceRow(std::int64_t{y} + i - 2, frame_.GetHeight());
      window.rows[i] = qmr::ReadRow(frame_, row, 0, 0, window.width).data();
      if (!window.rows[i]) return false;
    }
    return true;
  }

  // Tiles start at even columns, and red and blue have the same neighbours: columns differ by their parity only.
  qmr::CfaColumns ColumnsOf(int tileRow) const {
    qmr::CfaColumns columns{};
    for (int i = 0; i < layout_.count; ++i)
      if (layout_.sites[i].y == tileRow) columns.points[layout_.sites[i].x & 1] = &points_[layout_.sites[i].colour];
    return columns;
  }

  const CImage& frame_;
  const CfaLayout& layout_;
  qmr::CfaLimits limits_;
  int left_;
  qmr::CfaPoints points_[3];
  std::vector<std::uint8_t> marks_;
};

}  // namespace

void CImgFilterMisc::CFANoiseCut(int pattern, int coolOn, double coolThreshold, int hotOn, double hotThreshold,
                                 CVynImage* source, CRect* pRect, int bProgress) {
  const CfaLayout* const layout = LayoutOf(pattern);
  if (!source || !layout || Planes != 1) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  const int origin = top - top % layout->step;
  // Every site counts whole tiles, on purpose, also where it has a row more: the report passes 100 then.
  ShowProgressInit(bProgress, kMessageNoiseCut, layout->count * ((bottom - origin) / layout->step));
  qmr::Snapshot before(*this);
  const CVynImage& frame = before.Of(*source);
  const qmr::CfaLimits limits{coolOn != 0, coolThreshold, hotOn != 0, hotThreshold};
  const int sitesInRow = layout->count / layout->step;
  qmr::ForRowRanges(origin, bottom, [&](int first, int last) {
    CfaScan scan(frame, *layout, limits, left, right);
    for (int y = first; y < last; ++y) {
      // The first tile may begin above the rectangle, which is left alone.
      if (y >= top) scan.Row(y, (y - origin) % layout->step, qmr::WriteRow(*this, y, 0, left, right));
      for (int site = 0; site < sitesInRow; ++site) ShowProgress(1);
    }
  });
  ShowProgressEnd(nullptr);
}

int CImgFilterMisc::CompareArea(CVynImage* source, int x, int y, int pattern, int bHot, double threshold) {
  if (!source) return 0;
  return LooksLone(*source, x, y, pattern < kFirstHoneycomb, bHot != 0, threshold) ? 1 : 0;
}
