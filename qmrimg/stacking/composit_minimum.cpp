// Mode 9: the smaller of two pixels, unless a saturated star makes one of them doubtful.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <optional>
#include <span>
#include <vector>

#include "qmrimg/geometry/interp.h"
#include "qmrimg/image/bilinear.h"
#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/stacking/composit.h"
#include "qmrimg/stacking/composit_run.h"

namespace {

constexpr int kMaxRadius = 2;
// Rows whose doubtful pixels are kept until they are decided in raster order.
constexpr int kBlockRows = 128;

// One plane of an image on the scale of the call.
class ScaledPlane {
 public:
  ScaledPlane(const CVynImage& image, int plane, int levelPlane, bool to256)
      : image_(image),
        plane_(plane),
        to256_(to256),
        levels_{image.GetLevelMin(levelPlane), image.GetLevelRange(levelPlane)} {}

  int Width() const { return image_.GetWidth(); }
  int Height() const { return image_.GetHeight(); }
  float Scale(float v) const { return to256_ ? static_cast<float>(qmr::To256(v, levels_.min, levels_.range)) : v; }
  float At(int x, int y) const { return Scale(image_.GetPixelGrayRaw(x, y, plane_)); }
  std::span<const float> RawRow(int y, int left, int right) const {
    return qmr::ReadRow(image_, y, plane_, left, right);
  }
  void Row(int y, float* out) const {
    const std::span<const float> row = RawRow(y, 0, Width());
    if (to256_)
      qmr::To256Row(row, out, levels_);
    else
      std::copy(row.begin(), row.end(), out);
  }

 private:
  const CVynImage& image_;
  int plane_;
  bool to256_;
  qmr::RowLevels levels_;
};

// The largest pixel within a radius of each pixel of a plane. It also is what keeps A's pixels while the object, which
// may be A, is written.
class NeighborMaxima {
 public:
  NeighborMaxima(const ScaledPlane& plane, int radius) : width_(plane.Width()), height_(plane.Height()) {
    const std::size_t width = static_cast<std::size_t>(width_);
    maxima_.resize(width * static_cast<std::size_t>(height_));
    qmr::ForRowRanges(0, height_, [&](int first, int last) {
      // A ring of rows that are widened sideways.
      const int ringRows = 2 * radius + 1;
      std::vector<float> ring(width * static_cast<std::size_t>(ringRows));
      std::vector<float> padded(width + 2 * static_cast<std::size_t>(radius), -std::numeric_limits<float>::infinity());
      const auto slot = [&](int y) { return ring.data() + width * static_cast<std::size_t>(y % ringRows); };
      int ready = std::max(first - radius, 0);
      for (int y = first; y < last; ++y) {
        const int end = std::min(y + radius, height_ - 1);
        for (; ready <= end; ++ready) {
          plane.Row(ready, padded.data() + radius);
          qmr::WindowMaxRow(padded.data(), width_, radius, slot(ready));
        }
        float* const out = maxima_.data() + width * static_cast<std::size_t>(y);
        const int begin = std::max(y - radius, 0);
        std::copy_n(slot(begin), width, out);
        for (int r = begin + 1; r <= end; ++r) qmr::RaiseRow(slot(r), width_, out);
      }
    });
  }
  float At(int x, int y) const {
    return maxima_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)];
  }

 private:
  int width_;
  int height_;
  std::vector<float> maxima_;
};

// Where a column or row of A within the window lies in B, to the nearest pixel.
int Nearest(int at, double source, int center, int size) {
  return std::clamp(qmr::TruncateToInt(at + source - center + 0.5), 0, size - 1);
}

// True when the pixels around a position, 1.0 or more, follow each other without a gap in B: so far from the next
// rounding that the rounding of the position does not matter.
bool StepsEvenly(double source) {
  constexpr double kMargin = 1e-4;
  const double fraction = source + 0.5 - static_cast<int>(source + 0.5);
  return fraction > kMargin && fraction < 1.0 - kMargin;
}

// The largest pixel of B around (sx, sy), which lies at least a pixel inside, over the window of A about (x, y) that
// lies in A.
float MaxOfB(const ScaledPlane& b, const NeighborMaxima& maxima, const ScaledPlane& a, int radius, int x, int y,
             double sx, double sy) {
  const int left = std::max(x - radius, 0);
  const int right = std::min(x + radius, a.Width() - 1);
  const int top = std::max(y - radius, 0);
  const int bottom = std::min(y + radius, a.Height() - 1);
  if (right - left == 2 * radius && bottom - top == 2 * radius && StepsEvenly(sx) && StepsEvenly(sy))
    return maxima.At(static_cast<int>(sx + 0.5), static_cast<int>(sy + 0.5));
  float largest = -std::numeric_limits<float>::infinity();
  for (int row = top; row <= bottom; ++row) {
    const int by = Nearest(row, sy, y, b.Height());
    for (int column = left; column <= right; ++column) {
      const float v = b.At(Nearest(column, sx, x, b.Width()), by);
      if (v > largest) largest = v;
    }
  }
  return largest;
}

// A pixel that follows its neighbours.
struct Doubt {
  int x;
  float a;
  double b;
};

struct Saturation {
  double limitA;
  double limitB;
  bool above;  // saturated above the limit; otherwise from it on

  bool A(float v) const { return above ? v > limitA : v >= limitA; }
  bool B(float v) const { return above ? v > limitB : v >= limitB; }
};

struct Around {
  float maxA;
  float maxB;
};

// The decision where it needs no neighbours; false where it does.
bool Decide(const Saturation& is, float a, float b, const Around& around, double ratio, double* result) {
  const double scaledB = b * ratio;
  const bool maxA = is.A(around.maxA);
  const bool maxB = is.B(around.maxB);
  if (maxA && maxB && !(is.A(a) && is.B(b))) return false;
  if (maxA == maxB)
    *result = std::min<double>(a, scaledB);
  else if (maxB)
    *result = std::min<double>(a, around.maxB * ratio);
  else
    *result = std::min<double>(around.maxA, scaledB);
  return true;
}

struct MinimumCall {
  CVynImage& object;
  const CVynImage& a;
  const CVynImage& b;
  double ratio;
  bool to256;
  double threshold;
  int neighbor;
  qmr::Placement placement;
  int left, top, right, bottom;

  double ResultOf(double v) const { return to256 ? qmr::ToRaw(v, object.GetLevelMin(0), object.GetLevelRange(0)) : v; }
};

// The plane of B under a plane of the object: the same where B has it.
int PlaneOfB(const CVynImage& b, int plane) {
  return plane < b.GetPlanes() ? plane : 0;
}

// The one of a and b nearer the finished pixels of the object. At the left and the upper border the pixel itself is
// among them with what it held before, on purpose.
double Nearer(const MinimumCall& call, const ScaledPlane& object, int y, const Doubt& doubt) {
  const int left = std::clamp(doubt.x - 1, 0, object.Width());
  const int upper = std::clamp(y - 1, 0, object.Height());
  const double finished[] = {object.At(left, upper), object.At(doubt.x, upper), object.At(left, y)};
  double sumA = 0.0;
  double sumB = 0.0;
  for (const double v : finished) {
    sumA += std::fabs(doubt.a - v);
    sumB += std::fabs(doubt.b - v);
  }
  return call.ResultOf(sumB > sumA ? doubt.a : doubt.b);
}

// One plane. `sample(sx, sy)` gives the raw value of B at a place between its outermost pixels.
template <class Sample>
void MinimumPlane(const MinimumCall& call, int plane, Sample&& sample) {
  CVynImage& object = call.object;
  // A's own pixels go by the levels of plane 0 on every plane, on purpose; those around them by their plane's.
  const ScaledPlane a(call.a, plane, 0, call.to256);
  const ScaledPlane aroundA(call.a, plane, plane, call.to256);
  const ScaledPlane b(call.b, PlaneOfB(call.b, plane), PlaneOfB(call.b, plane), call.to256);
  const ScaledPlane finished(object, plane, 0, call.to256);
  const int radius = std::min(call.neighbor, kMaxRadius);
  std::optional<NeighborMaxima> maximaA;
  std::optional<NeighborMaxima> maximaB;
  if (radius > 0) {
    maximaA.emplace(aroundA, radius);
    maximaB.emplace(b, radius);
  }
  const double limit = call.threshold * 255.0;
  const Saturation saturation = call.to256
                                    ? Saturation{limit, limit, true}
                                    : Saturation{call.threshold * static_cast<double>(call.a.GetMaxPixel(0)),
                                                 call.threshold * static_cast<double>(call.b.GetMaxPixel(0)), false};
  // A B of another sample code reaches nowhere.
  const double lastX = qmr::HasFloats(call.b) ? b.Width() - 1 : 0.0;
  const double lastY = b.Height() - 1;

  // The value of a pixel; false where it is in doubt.
  const auto decide = [&](int x, int y, float own, Doubt* doubt, double* result) {
    *result = own;
    const auto [sx, sy] = qmr::SourceOf(x, y, call.placement);
    if (!(sx >= 1.0 && sx < lastX && sy >= 1.0 && sy < lastY)) return true;
    const float under = b.Scale(sample(sx, sy));
    if (call.neighbor == 0) {
      *result = std::min<double>(own, under * call.ratio);
      return true;
    }
    Around around = {own, under};
    if (radius > 0) {
      const float inA = maximaA->At(x, y);
      const float inB = MaxOfB(b, *maximaB, a, radius, x, y, sx, sy);
      if (inA > around.maxA) around.maxA = inA;
      if (inB > around.maxB) around.maxB = inB;
    }
    *doubt = {x, own, under * call.ratio};
    return Decide(saturation, own, under, around, call.ratio, result);
  };

  const std::size_t columns = static_cast<std::size_t>(std::max(call.right - call.left, 0));
  std::vector<Doubt> doubts(call.neighbor == 0 ? 0 : columns * kBlockRows);
  std::vector<int> doubtCounts(kBlockRows);
  for (int top = call.top; top < call.bottom; top += kBlockRows) {
    const int bottom = std::min(call.bottom, top + kBlockRows);
    qmr::ForRows(
        top, bottom,
        [&](int y) {
          const std::span<const float> from = a.RawRow(y, call.left, call.right);
          const std::span<float> to = qmr::WriteRow(object, y, plane, call.left, call.right);
          const int count = static_cast<int>(std::min(from.size(), to.size()));
          const std::size_t row = static_cast<std::size_t>(y - top);
          Doubt* const inDoubt = doubts.data() + row * columns;
          int doubtful = 0;
          for (int i = 0; i < count; ++i) {
            const std::size_t at = static_cast<std::size_t>(i);
            Doubt doubt;
            double result;
            if (decide(call.left + i, y, a.Scale(from[at]), &doubt, &result))
              to[at] = static_cast<float>(call.ResultOf(result));
            else
              inDoubt[doubtful++] = doubt;
          }
          doubtCounts[row] = doubtful;
        },
        &object);
    // These depend on pixels before them: in raster order.
    for (int y = top; y < bottom; ++y) {
      const std::size_t row = static_cast<std::size_t>(y - top);
      const Doubt* const inDoubt = doubts.data() + row * columns;
      for (int i = 0; i < doubtCounts[row]; ++i)
        object.SetPixelGrayRaw(inDoubt[i].x, y, static_cast<float>(Nearer(call, finished, y, inDoubt[i])), plane);
    }
  }
}

// B is turned about its StdCtr. The cosine is taken from the sine, so that angles beyond 90 degrees fold back, on
// purpose.
qmr::Placement FoldedPlacement(const CVynImage& b, double shiftX, double shiftY, double angle) {
  const double sine = std::sin(angle * qmr::kPi / 180.0);
  const CfPoint center = b.GetStdCtr();
  return {shiftX, shiftY, sine, std::sqrt(1.0 - sine * sine), 1.0, center.x, center.y};
}

// All planes of the object, within a report; `plane(p)` does one.
template <class Plane>
void MinimumPlanes(const MinimumCall& call, int bProgress, int messageId, Plane&& plane) {
  CVynImage& object = call.object;
  const std::int64_t units = static_cast<std::int64_t>(call.bottom - call.top) * object.GetPlanes();
  object.ShowProgressInit(bProgress, qmr::CompositMessage(messageId),
                          static_cast<int>(std::clamp<std::int64_t>(units, std::numeric_limits<int>::min(),
                                                                    std::numeric_limits<int>::max())));
  try {
    for (int p = 0; p < object.GetPlanes(); ++p) plane(p);
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
  object.ShowProgressEnd(nullptr);
}

}  // namespace

// Pixels that come within one of B's edge are A's, so that what B counts as outside is never asked for: `mode` tells
// nothing here, nor does the flag for negatives.
void CImgComposit::DoNbrComposit(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int,
                                 int method, double ratio, int to256, int, double threshold, int neighbor, CRect* pRect,
                                 int bProgress, int messageId) {
  qmr::SourceB source(b, this);
  b = source.Get();
  MinimumCall call = {*this, *a, *b, ratio, to256 != 0, threshold, neighbor, FoldedPlacement(*b, shiftX, shiftY, angle),
                      0,     0,  0,  0};
  NormalizeRect(pRect, call.left, call.top, call.right, call.bottom);
  // The third argument tells nothing; the rows are bound at once. Samples may be taken from all threads.
  const CInterp interp(method, b, 0);
  MinimumPlanes(call, bProgress, messageId, [&](int p) {
    const int plane = PlaneOfB(*b, p);
    MinimumPlane(call, p, [&](double x, double y) {
      // Exact places are read by every method.
      const int column = static_cast<int>(x);
      const int row = static_cast<int>(y);
      return x == column && y == row ? interp.GetPixData(column, row, plane) : interp.Do(x, y, plane);
    });
  });
}

void CImgComposit::Abr(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int, double ratio,
                       int to256, int, double threshold, int neighbor, CRect* pRect, int bProgress, int messageId) {
  if (!a || !b) return;
  qmr::SourceB source(b, this);
  b = source.Get();
  MinimumCall call = {*this, *a, *b, ratio, to256 != 0, threshold, neighbor, FoldedPlacement(*b, shiftX, shiftY, angle),
                      0,     0,  0,  0};
  NormalizeRect(pRect, call.left, call.top, call.right, call.bottom);
  MinimumPlanes(call, bProgress, messageId, [&](int p) {
    const int plane = PlaneOfB(*b, p);
    MinimumPlane(call, p, [&](double x, double y) { return b->GetPixelGrayRaw(x, y, plane); });
  });
}
