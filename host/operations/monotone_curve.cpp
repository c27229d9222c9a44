#include "host/operations/monotone_curve.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace qmr {

MonotoneCurve::MonotoneCurve(std::vector<double> x, std::vector<double> y)
    : x_(std::move(x)), y_(std::move(y)), slope_(x_.size(), 0.0) {
  const std::size_t intervals = x_.size() - 1;
  if (intervals == 0) return;
  std::vector<double> secant(intervals);
  for (std::size_t i = 0; i < intervals; ++i) secant[i] = (y_[i + 1] - y_[i]) / (x_[i + 1] - x_[i]);
  slope_.front() = secant.front();
  slope_.back() = secant.back();
  for (std::size_t i = 1; i < intervals; ++i) {
    if (secant[i - 1] * secant[i] <= 0.0) continue;  // an extremum, or the end of a level stretch
    const double before = x_[i] - x_[i - 1];
    const double after = x_[i + 1] - x_[i];
    slope_[i] = (after * secant[i - 1] + before * secant[i]) / (before + after);
  }
  for (std::size_t i = 0; i < intervals; ++i) {
    if (secant[i] == 0.0) {
      slope_[i] = slope_[i + 1] = 0.0;
      continue;
    }
    // Slopes within a circle of three secants keep the interval monotone.
    const double size = std::hypot(slope_[i], slope_[i + 1]) / std::fabs(secant[i]);
    constexpr double kMost = 3.0;
    if (size <= kMost) continue;
    slope_[i] *= kMost / size;
    slope_[i + 1] *= kMost / size;
  }
}

double MonotoneCurve::At(double x) const {
  if (!(x > x_.front())) return y_.front();
  if (x >= x_.back()) return y_.back();
  const auto i = static_cast<std::size_t>(std::upper_bound(x_.begin(), x_.end(), x) - x_.begin()) - 1;
  const double width = x_[i + 1] - x_[i];
  const double t = (x - x_[i]) / width;
  const double u = 1.0 - t;
  return y_[i] * (1.0 + 2.0 * t) * u * u + y_[i + 1] * t * t * (3.0 - 2.0 * t) +
         width * t * u * (slope_[i] * u - slope_[i + 1] * t);
}

}  // namespace qmr
