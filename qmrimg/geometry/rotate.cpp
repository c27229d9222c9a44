#include "qmrimg/geometry/rotate.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "qmrimg/filters/snapshot.h"
#include "qmrimg/geometry/geometry_run.h"
#include "qmrimg/geometry/interp.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageRotate = 6112;
constexpr int kRotation = 2;

struct Turn {
  double sine;
  double cosine;
};

struct Size {
  int width;
  int height;
};

Turn TurnOf(double degrees) {
  const double radians = degrees * 3.141592653589793 / 180.0;
  return {std::sin(radians), std::cos(radians)};
}

// What holds the turned corners of a picture, measured from its centre pixel with the y axis up. A pixel less than they
// cover, on purpose: hosts lay out their windows by it.
Size Canvas(int width, int height, const Turn& turn) {
  const int halfWidth = width / 2;
  const int halfHeight = height / 2;
  const double x[2] = {-static_cast<double>(halfWidth), static_cast<double>(width - halfWidth - 1)};
  const double y[2] = {static_cast<double>(halfHeight), static_cast<double>(halfHeight - height + 1)};
  std::int64_t low[2] = {}, high[2] = {};
  for (int corner = 0; corner < 4; ++corner) {
    const double cx = x[corner % 2];
    const double cy = y[corner / 2];
    const double turned[2] = {cx * turn.cosine - cy * turn.sine, cx * turn.sine + cy * turn.cosine};
    for (int axis = 0; axis < 2; ++axis) {
      const std::int64_t at = qmr::TruncateToInt(std::ceil(turned[axis]));
      low[axis] = corner == 0 ? at : std::min(low[axis], at);
      high[axis] = corner == 0 ? at : std::max(high[axis], at);
    }
  }
  return {qmr::TruncateToInt(static_cast<double>(high[0] - low[0])),
          qmr::TruncateToInt(static_cast<double>(high[1] - low[1]))};
}

// The colour value's bytes are red, green and blue from the lowest up. A colour image takes red alone, on purpose:
// hosts fill with greys.
float Background(const CVynImage& image, unsigned long color) {
  const int red = color & 0xff;
  const int green = color >> 8 & 0xff;
  const int blue = color >> 16 & 0xff;
  const int value =
      image.IsColor() && image.GetPlanes() >= 3 ? red : qmr::TruncateToInt(0.299 * red + 0.587 * green + 0.114 * blue);
  return static_cast<float>(image.ToRaw(static_cast<double>(value), 0));
}

// The image's centre is its middle for the length of a scope.
class DefaultCentre {
 public:
  explicit DefaultCentre(CVynImage& image) : image_(image), before_(image.GetStdCtr()) { image.SetDefaultCenter(); }
  DefaultCentre(const DefaultCentre&) = delete;
  DefaultCentre& operator=(const DefaultCentre&) = delete;
  ~DefaultCentre() { image_.SetStdCtr(before_); }

 private:
  CVynImage& image_;
  CfPoint before_;
};

}  // namespace

CImgRotate::CImgRotate() = default;
CImgRotate::~CImgRotate() = default;

int CImgRotate::Do(double angle, unsigned long color, CVynImage* source, int expand, int method, int bProgress) {
  if (!source) return 0;
  if (angle == 0.0) {
    Do0(source, bProgress);
    return 1;
  }
  const float background = Background(*this, color);
  const Turn turn = TurnOf(angle);
  const Size old = {Width, Height};
  qmr::Snapshot before(*this);
  CVynImage& from = before.Of(*source);
  if (expand) {
    const Size size = Canvas(Width, Height, turn);
    if (!qmr::MakeSize(*this, size.width, size.height, bProgress)) return 0;
  }
  InitStdPtCtr();
  SetStdCtr(old.width / 2, old.height / 2);
  const double offsetX = (Width - from.GetWidth()) * 0.5;
  const double offsetY = (Height - from.GetHeight()) * 0.5;

  ShowProgressInit(bProgress, kMessageRotate, qmr::ReportUnits(Height, Planes));
  const DefaultCentre centre(from);
  for (int p = 0; p < Planes;) {
    // The planes of a colour image share positions and weights.
    const bool threeLines = p == 0 && Planes >= 3;
    const bool covered = p == 0 || p < from.GetPlanes();
    const int planes = threeLines ? 3 : 1;
    qmr::ForRowRanges(0, Height, [&](int first, int last) {
      CInterp interp(method);
      interp.SetBParam(kRotation, &from, -offsetX, Width, 0, background, threeLines ? -1 : p, turn.sine, turn.cosine,
                       1.0, 1);
      interp.SetRowWidth(Width);
      for (int y = first; y < last; ++y) {
        const auto line = [&](int i) { return qmr::WriteRow(*this, y, i, 0, Width).data(); };
        if (threeLines)
          interp.GetBLine(y - offsetY, line(0), line(1), line(2));
        else if (covered)
          interp.GetBLine(y - offsetY, line(p));
        ShowProgress(planes);
      }
    });
    p += planes;
  }
  ShowProgressEnd(nullptr);
  return 1;
}

void CImgRotate::Do0(CVynImage* source, int bProgress) {
  if (!source) return;
  ShowProgressInit(bProgress, kMessageRotate, qmr::ReportUnits(Height, Planes));
  if (source != this) qmr::ForPlaneRows(*this, [&](int p, int y) { qmr::CopyRow(*source, y, *this, p, y); });
  ShowProgressEnd(nullptr);
}

void CImgRotate::Do180(CVynImage* source, int bProgress) {
  if (!source) return;
  qmr::Snapshot before(*this);
  const CVynImage& from = before.Of(*source);
  ShowProgressInit(bProgress, kMessageRotate, qmr::ReportUnits(Height, Planes));
  qmr::ForPlaneRows(*this, [&](int p, int y) { qmr::ReverseRow(from, Height - 1 - y, *this, p, y); });
  ShowProgressEnd(nullptr);
}

int CImgRotate::Do90(int clockwise, CVynImage* source, int bProgress) {
  return qmr::WithTables([&] { return Quarter(clockwise, source, bProgress); });
}

int CImgRotate::Quarter(int clockwise, CVynImage* source, int bProgress) {
  if (!source) return 0;
  qmr::Snapshot before(*this);
  const CVynImage& from = before.Of(*source);
  if (!qmr::MakeSize(*this, Height, Width, bProgress)) return 0;
  for (int p = 0; p < std::min(Planes, from.GetPlanes()); ++p) SetLevel(p, from.GetLevelMin(p), from.GetLevelMax(p));
  ShowProgressInit(bProgress, kMessageRotate, qmr::ReportUnits(Height, Planes));
  // Squares of one cache line a side, in strips that read some of them side by side.
  constexpr int kSide = 16;
  constexpr int kStrip = 64;
  const int rows = std::min(Width, from.GetHeight());
  const int columns = std::min(Height, from.GetWidth());
  for (int p = 0; p < Planes; ++p) {
    // Entry x is the source row that becomes column x; the first existing one is column `firstColumn`.
    const int firstColumn = clockwise ? Width - rows : 0;
    std::vector<const float*> sourceRows;
    for (int x = firstColumn; x < firstColumn + rows; ++x) {
      const float* const row = qmr::ReadRow(from, clockwise ? Width - 1 - x : x, p, 0, columns).data();
      if (row) sourceRows.push_back(row);
    }
    const int found = static_cast<int>(sourceRows.size()) == rows ? rows : 0;
    qmr::ForRows(0, (Height + kStrip - 1) / kStrip, [&](int strip) {
      // Source columns become rows, in opposite order when turned counter-clockwise.
      const int begin = strip * kStrip;
      const int end = std::min(begin + kStrip, Height);
      float* lines[kStrip] = {};
      for (int c = begin; c < end; ++c)
        lines[c - begin] = qmr::WriteRow(*this, clockwise ? c : Height - 1 - c, p, 0, Width).data();
      const int count = lines[0] ? std::min(end, columns) - begin : 0;
      for (int x = 0; x < found && count > 0; x += kSide)
        qmr::TransposeBlock(sourceRows.data() + x, begin, std::min(kSide, found - x), lines, firstColumn + x, count);
      for (int c = begin; c < end; ++c) ShowProgress(1);
    });
  }
  ShowProgressEnd(nullptr);
  return 1;
}
