// The older composite in single precision.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "qmrimg/geometry/kernels/line_scale.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/stacking/composit.h"
#include "qmrimg/stacking/composit_run.h"

struct CImgComposit::BLine {
  // Addresses of all rows, plane after plane; a B without pixels has no size.
  const float* const* rows;
  int width;
  int height;
  bool colour;
  int plane;  // -1: three lines, else one
  float xStart;
  float xEnd;
  int columns;  // of the destination; what xEnd rounds to may be one off
  bool to256;
  float outside;
  float levelMin[3];
  float levelGain[3];
  float sine;
  float cosine;
  float centerX;
  float centerY;
  // Buffers of one thread.
  std::vector<float> x;
  std::vector<float> y;
  std::vector<float> scratch;

  const float* Row(int p, std::int64_t row) const {
    return rows[static_cast<std::size_t>(p) * static_cast<std::size_t>(height) + static_cast<std::size_t>(row)];
  }
  std::int64_t Start() const { return qmr::TruncateToInt(std::floor(xStart)); }
  // The columns of a line that lie in B.
  int Begin() const { return static_cast<int>(std::clamp<std::int64_t>(-Start(), 0, columns)); }
  int End() const { return static_cast<int>(std::clamp<std::int64_t>(width - Start(), Begin(), columns)); }

  template <class Sample>
  void Write(int begin, int end, float* const* lines, Sample&& sample);
};

// Columns begin .. end - 1 of the lines by `sample(plane, out)`, the others outside. The scale is always made in
// float, with B's own levels.
template <class Sample>
void CImgComposit::BLine::Write(int begin, int end, float* const* lines, Sample&& sample) {
  const int count = end - begin;
  const int lineCount = plane == -1 ? 3 : 1;
  for (int i = 0; i < lineCount; ++i) {
    std::fill(lines[i], lines[i] + begin, outside);
    std::fill(lines[i] + end, lines[i] + columns, outside);
  }
  if (count <= 0) return;
  const auto take = [&](int p, float* out) {
    sample(p, out);
    if (to256) qmr::ScaleLineFloat(out, count, levelMin[p], levelGain[p]);
  };
  if (!colour) {
    take(0, lines[0] + begin);
    for (int i = 1; i < lineCount; ++i) std::copy_n(lines[0] + begin, count, lines[i] + begin);
  } else if (plane == -1) {
    for (int p = 0; p < 3; ++p) take(p, lines[p] + begin);
  } else {
    float* rgb[3];
    for (int p = 0; p < 3; ++p) {
      rgb[p] = scratch.data() + static_cast<std::size_t>(p) * static_cast<std::size_t>(columns);
      take(p, rgb[p]);
    }
    qmr::BrightnessLine(rgb[0], rgb[1], rgb[2], count, lines[0] + begin);
  }
}

void CImgComposit::GetBLine_int(BLine& from, int y, float* const* lines) const {
  if (y < 0 || y >= from.height) return from.Write(0, 0, lines, [](int, float*) {});
  const int begin = from.Begin();
  const int end = from.End();
  from.Write(begin, end, lines,
             [&](int p, float* out) { std::copy_n(from.Row(p, y) + (from.Start() + begin), end - begin, out); });
}

void CImgComposit::GetBLine_float(BLine& from, float y, float* const* lines) const {
  const float fx = from.xStart - std::floor(from.xStart);
  if (!(y >= 0.0f && y <= static_cast<float>(from.height - 1)) || !(fx >= 0.0f))
    return from.Write(0, 0, lines, [](int, float*) {});
  const int row = static_cast<int>(y);
  const float fy = y - static_cast<float>(row);
  const int begin = from.Begin();
  const int end = from.End();
  const std::int64_t first = from.Start() + begin;
  const std::int64_t behind = from.Start() + end;
  const std::int64_t rangeEnd =
      std::min<std::int64_t>(std::max<std::int64_t>(qmr::TruncateToInt(std::floor(from.xEnd)), behind), from.width);
  from.Write(begin, end, lines, [&](int p, float* out) {
    const float* const upper = from.Row(p, row) + first;
    // Without a fraction the second row is the first one, which then is also the last row's.
    const float* const lower = from.Row(p, fy == 0.0f ? row : row + 1) + first;
    const int count = end - begin;
    if (fx == 0.0f && fy == 0.0f) {
      std::copy_n(upper, count, out);
      return;
    }
    // The last column of the range takes the pixel before it for its neighbour, on purpose: results of this path have
    // always ended on that mirror.
    const bool mirrored = behind == rangeEnd;
    const int blended = mirrored ? count - 1 : count;
    qmr::BlendRow(upper, lower, blended, fx, fy, out);
    if (mirrored) out[blended] = qmr::BlendPixel(upper, lower, blended, first + blended > 0 ? blended - 1 : 0, fx, fy);
  });
}

void CImgComposit::GetBLine_rotate(BLine& from, float y, float* const* lines) const {
  const float dx = from.xStart - from.centerX;
  const float dy = from.centerY - y;
  float sx = from.cosine * dx - from.sine * dy + from.centerX;
  float sy = from.centerY - (from.sine * dx + from.cosine * dy);
  const float lastX = static_cast<float>(from.width - 1);
  const float lastY = static_cast<float>(from.height - 1);
  // Positions are monotonic on both axes: those inside are one run.
  int begin = from.columns;
  int end = from.columns;
  for (int i = 0; i < from.columns; ++i) {
    from.x[static_cast<std::size_t>(i)] = sx;
    from.y[static_cast<std::size_t>(i)] = sy;
    if (0.0f <= sx && sx <= lastX && 0.0f <= sy && sy <= lastY) {
      if (begin == from.columns) begin = i;
    } else if (begin < i) {
      end = i;
      break;
    }
    sx += from.cosine;
    sy -= from.sine;
  }
  from.Write(begin, end, lines, [&](int p, float* out) {
    qmr::BlendTurnedRow(&from.rows[static_cast<std::size_t>(p) * static_cast<std::size_t>(from.height)], from.width,
                        from.height, from.x.data() + begin, from.y.data() + begin, end - begin, out);
  });
}

void CImgComposit::DoComposit(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int mode,
                              double ratio, int to256, int clipNegative, double, int, CRect* pRect, int bProgress,
                              int messageId) {
  qmr::SourceB source(b, this);
  b = source.Get();
  qmr::CompositRun run(this, *a, mode, {ratio, clipNegative != 0}, to256, pRect);
  const double radians = angle * qmr::kPi / 180.0;
  const bool colour = qmr::HasRgb(*b);
  const CfPoint center = b->GetStdCtr();
  BLine line = {};
  line.colour = colour;
  line.plane = run.Plane();
  line.xStart = static_cast<float>(run.Left() - shiftX);
  line.xEnd = static_cast<float>(run.Left() + run.Columns() - shiftX);
  line.columns = run.Columns();
  line.to256 = run.To256() != 0;
  line.outside = static_cast<float>(GetOutsideValue(mode));
  line.sine = static_cast<float>(std::sin(radians));
  line.cosine = static_cast<float>(std::cos(radians));
  line.centerX = static_cast<float>(center.x);
  line.centerY = static_cast<float>(center.y);
  for (int p = 0; p < 3; ++p) {
    const int from = colour ? p : 0;
    line.levelMin[p] = static_cast<float>(b->GetLevelMin(from));
    line.levelGain[p] = static_cast<float>(255.0 / b->GetLevelRange(from));
  }

  const int shiftType = qmr::CompositShiftType(shiftX, shiftY, angle);
  const std::int64_t rowShift = qmr::TruncateToInt(shiftY);
  try {
    std::vector<const float*> rows;
    for (int p = 0; p < (colour ? 3 : 1); ++p) {
      for (int y = 0; y < b->GetHeight(); ++y) rows.push_back(qmr::ReadRow(*b, y, p, 0, b->GetWidth()).data());
    }
    if (std::find(rows.begin(), rows.end(), nullptr) == rows.end() && !rows.empty()) {
      line.rows = rows.data();
      line.width = b->GetWidth();
      line.height = b->GetHeight();
    }
    run.Run(bProgress, messageId, [&](int first, int last) {
      BLine own = line;
      const std::size_t columns = static_cast<std::size_t>(own.columns);
      if (shiftType == 2) {
        own.x.resize(columns);
        own.y.resize(columns);
      }
      if (own.colour && own.plane != -1) own.scratch.resize(3 * columns);
      run.Rows(first, last, [&](int y, float* const* lines) {
        if (shiftType == 0) {
          GetBLine_int(own,
                       static_cast<int>(std::clamp<std::int64_t>(y - rowShift, -1, std::numeric_limits<int>::max())),
                       lines);
        } else if (shiftType == 1) {
          GetBLine_float(own, static_cast<float>(y - shiftY), lines);
        } else {
          GetBLine_rotate(own, static_cast<float>(y - shiftY), lines);
        }
      });
    });
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}
