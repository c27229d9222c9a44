// A smooth curve through points that swings nowhere beyond them.
#pragma once

#include <vector>

namespace qmr {

// Piecewise cubic Hermite interpolation with limited slopes: between two points the curve rises or falls as they do
// (Fritsch and Carlson, Monotone Piecewise Cubic Interpolation, SIAM J. Numer. Anal. 17, 1980). Beyond the first and
// the last point it is level.
class MonotoneCurve {
 public:
  // At least one point, x strictly ascending.
  MonotoneCurve(std::vector<double> x, std::vector<double> y);
  double At(double x) const;

 private:
  std::vector<double> x_, y_, slope_;
};

}  // namespace qmr
