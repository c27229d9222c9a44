#include "host/measure/star_fit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "host/night/registration/small_solve.h"

namespace qmr {
namespace {

// Amplitude, place, and the quadratic form xx, 2 xy, yy.
constexpr int kUnknowns = 6;
using Vector = std::array<double, kUnknowns>;

struct Sample {
  double x, y, value;
};

// The profile at the distance q, and its derivative.
struct Profile {
  double value, slope;
};
Profile ProfileAt(double q, double beta) {
  if (beta == 0.0) {
    const double v = std::exp(-q);
    return {v, -v};
  }
  const double v = std::pow(1.0 + q, -beta);
  return {v, -beta * v / (1.0 + q)};
}

// The distance q of the half level.
double HalfLevel(double beta) {
  return beta == 0.0 ? std::numbers::ln2 : std::exp2(1.0 / beta) - 1.0;
}

// The sum of squares, and with `system` the normal equations.
double Evaluate(const std::vector<Sample>& samples, const Vector& v, double beta, SmallSystem<kUnknowns>* system) {
  double squares = 0.0;
  if (system) *system = {};
  for (const Sample& s : samples) {
    const double dx = s.x - v[1], dy = s.y - v[2];
    const double q = v[3] * dx * dx + v[4] * dx * dy + v[5] * dy * dy;
    const Profile profile = ProfileAt(std::max(q, 0.0), beta);
    const double rest = s.value - v[0] * profile.value;
    squares += rest * rest;
    if (!system) continue;
    const double slope = v[0] * profile.slope;
    const Vector d = {profile.value,
                      -slope * (2.0 * v[3] * dx + v[4] * dy),
                      -slope * (2.0 * v[5] * dy + v[4] * dx),
                      slope * dx * dx,
                      slope * dx * dy,
                      slope * dy * dy};
    for (int i = 0; i < kUnknowns; ++i) {
      system->right[i] += d[i] * rest;
      for (int j = 0; j <= i; ++j) system->matrix[i][j] += d[i] * d[j];
    }
  }
  return squares;
}

// Damped steps (Levenberg and Marquardt) until they no longer matter.
bool Settle(const std::vector<Sample>& samples, double beta, Vector& v, double& squares) {
  constexpr int kMostSteps = 60;
  constexpr double kEnough = 1e-4;  // pixels
  double damping = 1e-3;
  SmallSystem<kUnknowns> system;
  squares = Evaluate(samples, v, beta, &system);
  for (int step = 0; step < kMostSteps; ++step) {
    SmallSystem<kUnknowns> damped = system;
    for (int i = 0; i < kUnknowns; ++i) damped.matrix[i][i] *= 1.0 + damping;
    if (!damped.Solve(kUnknowns)) return false;
    Vector next = v;
    for (int i = 0; i < kUnknowns; ++i) next[i] += damped.solution[i];
    const bool ellipse = next[3] > 0.0 && next[5] > 0.0 && 4.0 * next[3] * next[5] > next[4] * next[4];
    const double there = ellipse ? Evaluate(samples, next, beta, nullptr) : squares;
    if (!ellipse || !(there < squares)) {
      // At the least sum no step is better.
      if (damping > 1e8) return true;
      damping *= 8.0;
      continue;
    }
    const double moved = std::hypot(next[1] - v[1], next[2] - v[2]);
    const bool settled = moved < kEnough && squares - there < 1e-7 * squares;
    v = next;
    squares = Evaluate(samples, v, beta, &system);
    if (settled) return true;
    damping *= 0.25;
  }
  return false;
}

}  // namespace

std::optional<FittedStar> FitStar(const StarPlane& plane, const FitStart& start, double beta) {
  const int left = static_cast<int>(std::ceil(start.x - start.radius));
  const int right = static_cast<int>(std::floor(start.x + start.radius));
  const int top = static_cast<int>(std::ceil(start.y - start.radius));
  const int bottom = static_cast<int>(std::floor(start.y + start.radius));
  if (left < 0 || top < 0 || right >= plane.Width() || bottom >= plane.Height()) return std::nullopt;
  std::vector<Sample> samples;
  double light = 0.0, highest = 0.0;
  for (int y = top; y <= bottom; ++y) {
    const float* row = plane.Row(y);
    for (int x = left; x <= right; ++x) {
      if (std::hypot(x - start.x, y - start.y) > start.radius || plane.IsBlank(x, y)) continue;
      const double value = row[x] - start.background;
      samples.push_back({x - start.x, y - start.y, value});
      light += value * value;
      highest = std::max(highest, value);
    }
  }
  if (samples.size() < 2 * kUnknowns || !(highest > 0.0)) return std::nullopt;
  const double half = HalfLevel(beta), form = 4.0 * half / (start.fwhm * start.fwhm);
  Vector v = {highest, 0.0, 0.0, form, 0.0, form};
  double squares;
  if (!Settle(samples, beta, v, squares)) return std::nullopt;
  // Half the squared widths along the axes are half / eigenvalue.
  const double mean = 0.5 * (v[3] + v[5]), spread = std::hypot(0.5 * (v[3] - v[5]), 0.5 * v[4]);
  if (!(v[0] > 0.0) || !(mean - spread > 0.0) || !(std::hypot(v[1], v[2]) <= start.radius)) return std::nullopt;
  FittedStar star;
  star.x = start.x + v[1];
  star.y = start.y + v[2];
  star.amplitude = v[0];
  star.major = 2.0 * std::sqrt(half / (mean - spread));
  star.minor = 2.0 * std::sqrt(half / (mean + spread));
  // The major axis is that of the smaller eigenvalue.
  const double angle = 0.5 * std::atan2(-v[4], v[5] - v[3]) * 180.0 / std::numbers::pi;
  star.angle = angle <= -90.0 ? angle + 180.0 : angle;
  star.residual = std::sqrt(squares / light);
  return star;
}

}  // namespace qmr
