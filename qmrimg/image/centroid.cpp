// Centroids, and the shift and rotation between two images.
#include <cmath>
#include <cstdint>
#include <memory>
#include <new>
#include <span>

#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr double kPi = 3.141592653589793;

// The rectangle that a result has to lie in: as the caller gave it, not clamped.
CRect KeptRect(const CImage& image, const CRect* pRect) {
  return pRect ? *pRect : CRect(0, 0, image.GetWidth(), image.GetHeight());
}

int Rounded(double v) {
  return qmr::TruncateToInt(v + 0.5);
}

bool RoundedIsInside(double cx, double cy, const CRect& rect) {
  if (!(cx == cx) || !(cy == cy)) return false;
  const int x = Rounded(cx);
  const int y = Rounded(cy);
  return rect.left <= x && x < rect.right && rect.top <= y && y < rect.bottom;
}

struct Weights {
  double sum = 0.0;
  double x = 0.0;
  double y = 0.0;

  void Add(double w, int atX, int atY) {
    sum += w;
    x += atX * w;
    y += atY * w;
  }
};

// The 256-scale values of a window, row by row.
class Window256 {
 public:
  Window256(const CVynImage& image, const CRect* pRect) : image_(image), rgb_(qmr::HasRgb(image)) {
    image.NormalizeRect(pRect, left, top, right, bottom);
    const int count = right > left ? right - left : 0;
    for (auto& row : rows_) {
      row.reset(new (std::nothrow) float[static_cast<std::size_t>(count) + 1]);
      if (!row) AfxThrowMemoryException();
      if (!rgb_) break;
    }
  }

  bool IsRgb() const { return rgb_; }

  // Calls visit(x, value) along row `y`; with `positive`, negative values of a plane count as 0.
  template <class Visit>
  void ForRow(int y, bool positive, Visit&& visit) const {
    std::size_t width = 0;
    for (int p = 0; p < (rgb_ ? 3 : 1); ++p) {
      const auto row = qmr::ReadRow(image_, y, p, left, right);
      qmr::To256Row(row, rows_[p].get(), {image_.GetLevelMin(p), image_.GetLevelRange(p)});
      width = row.size();
    }
    const auto value = [positive](float v) -> double { return positive && v < 0.0f ? 0.0f : v; };
    for (std::size_t i = 0; i < width; ++i) {
      const double v = rgb_ ? value(rows_[2][i]) * 0.114 + value(rows_[0][i]) * 0.299 + value(rows_[1][i]) * 0.587
                            : value(rows_[0][i]);
      visit(left + static_cast<int>(i), v);
    }
  }

  template <class Visit>
  void ForAll(bool positive, Visit&& visit) const {
    for (int y = top; y < bottom; ++y) ForRow(y, positive, [&](int x, double v) { visit(x, y, v); });
  }

  int left, top, right, bottom;

 private:
  const CVynImage& image_;
  bool rgb_;
  std::unique_ptr<float[]> rows_[3];
};

// The squared excess over the mean.
double Excess(double v, double mean) {
  const double w = v - mean;
  return w <= 0.0 ? 0.0 : w * w;
}

}  // namespace

int CVynImage::GetCentroid(double& cx, double& cy, const CRect* pRect) const {
  const Window256 window(*this, pRect);
  double sum = 0.0;
  window.ForAll(true, [&](int, int, double v) { sum += v; });
  const double mean = sum / (window.bottom - window.top) / (window.right - window.left);
  Weights weights;
  window.ForAll(false, [&](int x, int y, double v) { weights.Add(Excess(v, mean), x, y); });
  cx = weights.x / weights.sum;
  cy = weights.y / weights.sum;
  return weights.sum != 0.0 && RoundedIsInside(cx, cy, KeptRect(*this, pRect));
}

void CVynImage::GetCentroid(int& x, int& y, const CRect* pRect) const {
  double cx, cy;
  GetCentroid(cx, cy, pRect);
  x = Rounded(cx);
  y = Rounded(cy);
}

int CVynImage::GetCentroid2(double& cx, double& cy, const CRect* pRect, double& avr, double& min, double& max,
                            double& flux) const {
  const Window256 window(*this, pRect);
  const int width = window.right - window.left;
  const int height = window.bottom - window.top;
  const double count = static_cast<double>(width) * height;
  // On colour each term is divided by the pixel count and the sum by height and width once more, on purpose: this
  // small mean is what the second pass subtracts.
  double sum = 0.0;
  if (window.IsRgb())
    window.ForAll(true, [&](int, int, double v) { sum += v / count; });
  else
    window.ForAll(true, [&](int, int, double v) { sum += v; });
  const double mean = sum / height / width;

  Weights weights;
  double lowest = mean;
  double highest = mean;
  double squares = 0.0;
  window.ForAll(false, [&](int x, int y, double v) {
    weights.Add(Excess(v, mean), x, y);
    lowest = v < lowest ? v : lowest;
    highest = v > highest ? v : highest;
    squares += (v - mean) * (v - mean);
  });
  const double threshold = mean + 2.0 * std::sqrt(squares / count);
  double above = 0.0;
  window.ForAll(false, [&](int, int, double v) {
    if (v > threshold) above += v - threshold;
  });

  cx = weights.x / weights.sum;
  cy = weights.y / weights.sum;
  avr = mean;
  min = lowest;
  max = highest;
  flux = above;
  return weights.sum != 0.0 && RoundedIsInside(cx, cy, KeptRect(*this, pRect));
}

int CVynImage::GetCentroidRaw(double& cx, double& cy, const CRect* pRect) const {
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  const bool rgb = qmr::HasRgb(*this);
  Weights weights;
  for (int y = top; y < bottom; ++y) {
    const auto r = qmr::ReadRow(*this, y, 0, left, right);
    const auto g = rgb ? qmr::ReadRow(*this, y, 1, left, right) : r;
    const auto b = rgb ? qmr::ReadRow(*this, y, 2, left, right) : r;
    for (std::size_t i = 0; i < r.size(); ++i)
      weights.Add(rgb ? qmr::BrightInPlaneOrder(r[i], g[i], b[i]) : r[i], left + static_cast<int>(i), y);
  }
  cx = weights.x / weights.sum;
  cy = weights.y / weights.sum;
  const CRect kept = KeptRect(*this, pRect);
  if (RoundedIsInside(cx, cy, kept)) return 1;
  cx = static_cast<double>((static_cast<std::int64_t>(kept.right) + kept.left) / 2);
  cy = static_cast<double>((static_cast<std::int64_t>(kept.bottom) + kept.top) / 2);
  return 0;
}

int CVynImage::GetCentroidRaw(int& x, int& y, const CRect* pRect) const {
  double cx, cy;
  const int found = GetCentroidRaw(cx, cy, pRect);
  x = Rounded(cx);
  y = Rounded(cy);
  return found;
}

int CVynImage::GetFitPrm(CVynImage* ref, double& dx, double& dy, double& angle) {
  dx = 0.0;
  dy = 0.0;
  angle = 0.0;
  if (!ref) return 0;
  if (!ref->IsValidStdCtr()) ref->SetDefaultCenter();
  if (!ref->IsValidStdPt(0) || !IsValidStdPt(0)) return 0;
  dx = StdPt[0].x - ref->StdPt[0].x;
  dy = StdPt[0].y - ref->StdPt[0].y;
  const auto hasLine = [](const CVynImage& image) {
    return image.IsValidStdPt(1) &&
           (image.StdPt[1].IntX() != image.StdPt[0].IntX() || image.StdPt[1].IntY() != image.StdPt[0].IntY());
  };
  if (!hasLine(*this) || !hasLine(*ref)) return 1;
  const auto lineAngle = [](const CVynImage& image) {
    const double x = static_cast<double>(image.StdPt[0].IntX()) - image.StdPt[1].IntX();
    // Image rows run downward, angles count upward. Taken this way round a level line has +0, never -0.
    const double y = static_cast<double>(image.StdPt[1].IntY()) - image.StdPt[0].IntY();
    return std::atan2(y, x);
  };
  angle = (lineAngle(*ref) - lineAngle(*this)) / kPi * 180.0;
  return 2;
}

int CVynImage::GetFitPrm(CVynImage* ref, double& dx, double& dy, double& angle, double addX, double addY,
                         double addAngle) {
  const int found = GetFitPrm(ref, dx, dy, angle);
  if (found >= 1) {
    dx += addX;
    dy += addY;
  }
  if (found == 2) angle += addAngle;
  return found;
}

int CVynImage::GetFitPrmFromCentroid(CVynImage* ref, double& dx, double& dy) {
  dx = 0.0;
  dy = 0.0;
  if (!ref) return 1;
  double thisX, thisY, refX, refY;
  GetCentroid(thisX, thisY, nullptr);
  ref->GetCentroid(refX, refY, nullptr);
  dx = thisX - refX;
  dy = thisY - refY;
  return 1;
}
