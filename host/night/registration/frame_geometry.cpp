#include "host/night/registration/frame_geometry.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "host/night/registration/small_solve.h"

namespace qmr {

namespace {

constexpr double kDegree = std::numbers::pi / 180.0;
// Median of a squared deviation, in units of its variance, for two degrees of freedom.
constexpr double kMedianChi2 = 1.386294361119891;
// Squared deviations beyond this have no say (biweight).
constexpr double kBiweight = 18.0;

// The parameters of a small motion on top of a map are (d x, d y, d theta, d scale); the last two act on q, the
// turned position from the centre.
struct Arm {
  Point q;
  Point offset;
  double xx, xy, yy;
};

struct Motion {
  double dx = 0.0, dy = 0.0, turn = 0.0, scale = 0.0;
};

Point Remaining(const Arm& arm, const Motion& m) {
  return {arm.offset.x - (m.dx - m.turn * arm.q.y + m.scale * arm.q.x),
          arm.offset.y - (m.dy + m.turn * arm.q.x + m.scale * arm.q.y)};
}

// The inverse covariance with `variance` added to the covariance.
Arm Loosened(const Arm& arm, double variance) {
  const double det = arm.xx * arm.yy - arm.xy * arm.xy;
  if (variance <= 0.0 || !(det > 0.0)) return arm;
  // (C + v I)^-1 with C = (xx xy; xy yy)^-1.
  const double cxx = arm.yy / det + variance, cyy = arm.xx / det + variance, cxy = -arm.xy / det;
  const double d = cxx * cyy - cxy * cxy;
  return {arm.q, arm.offset, cyy / d, -cxy / d, cxx / d};
}

// The larger eigenvalue of the inverse covariance.
double Strength(const Arm& arm) {
  return 0.5 * (arm.xx + arm.yy + std::hypot(arm.xx - arm.yy, 2.0 * arm.xy));
}

double Chi2(const Arm& arm, Point r) {
  return arm.xx * r.x * r.x + 2.0 * arm.xy * r.x * r.y + arm.yy * r.y * r.y;
}

double Median(std::vector<double>& values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// How far the displacements scatter beyond their own errors: all errors times `factor` (noise that interpolation has
// correlated), and `variance` on top (what the optics and the seeing do to every star alike). The factor comes from the
// weaker displacements, the variance from the strongest quarter. `least` is known from elsewhere.
struct Excess {
  double factor2 = 1.0;
  double variance = 0.0;
};

Excess FindExcess(const std::vector<Arm>& arms, const Motion& motion, double least) {
  std::vector<double> strengths(arms.size());
  for (std::size_t i = 0; i < arms.size(); ++i) strengths[i] = arms[i].xx + arms[i].yy;
  const auto bound = strengths.begin() + static_cast<std::ptrdiff_t>(strengths.size() * 3 / 4);
  std::nth_element(strengths.begin(), bound, strengths.end());
  const double limit = *bound;
  const auto median = [&](bool strong, double variance) {
    std::vector<double> chi2;
    for (const Arm& arm : arms) {
      if (arms.size() < 8 || (arm.xx + arm.yy >= limit) == strong) {
        chi2.push_back(Chi2(Loosened(arm, variance), Remaining(arm, motion)));
      }
    }
    return Median(chi2) / kMedianChi2;
  };
  Excess excess{1.0, least};
  for (int round = 0; round < 2; ++round) {
    excess.factor2 = std::max(1.0, median(false, excess.variance));
    if (median(true, least) <= excess.factor2) {
      excess.variance = least;
      continue;
    }
    double low = std::max(least, 1e-9), high = low;
    while (high < 1e4 && median(true, high) > excess.factor2) high *= 4.0;
    low = std::max(low, high / 4.0);
    for (int i = 0; i < 8; ++i) {
      const double middle = std::sqrt(low * high);
      (median(true, middle) > excess.factor2 ? low : high) = middle;
    }
    excess.variance = high;
  }
  return excess;
}

FrameGeometry Moved(const FrameGeometry& g, const Motion& m) {
  return {g.dx + m.dx, g.dy + m.dy, g.thetaDegrees + m.turn / kDegree};
}

std::vector<Arm> MakeArms(std::span<const Displacement> displacements, const RigidMap& map) {
  std::vector<Arm> arms;
  arms.reserve(displacements.size());
  const Point c = map.Centre();
  for (const Displacement& d : displacements) {
    arms.push_back({map.Turn({d.at.x - c.x, d.at.y - c.y}), d.offset, d.xx, d.xy, d.yy});
  }
  return arms;
}

}  // namespace

LibraryGeometry ToLibrary(const FrameGeometry& g) {
  // CInterp reads R(-angle)(p - c - shift) + c, where its angle turns with y upwards: theta = -angle and
  // d = -R(theta) shift.
  const double c = std::cos(g.thetaDegrees * kDegree), s = std::sin(g.thetaDegrees * kDegree);
  return {-(c * g.dx + s * g.dy), -(-s * g.dx + c * g.dy), -g.thetaDegrees};
}

RigidMap::RigidMap(const FrameGeometry& geometry, int width, int height)
    : geometry_(geometry),
      centre_{(width - 1) / 2.0, (height - 1) / 2.0},
      cosine_(std::cos(geometry.thetaDegrees * kDegree)),
      sine_(std::sin(geometry.thetaDegrees * kDegree)) {}

std::optional<RigidVote> VoteRigid(std::span<const Displacement> displacements, const RigidMap& map, bool shiftOnly,
                                   double tolerance, double maxTurn) {
  const std::vector<Arm> arms = MakeArms(displacements, map);
  std::vector<std::size_t> strongest(arms.size());
  std::vector<double> strengths(arms.size());
  double total = 0.0, reach = 0.0;
  for (std::size_t i = 0; i < arms.size(); ++i) {
    strongest[i] = i;
    strengths[i] = Strength(arms[i]);
    total += strengths[i];
    reach = std::max(reach, std::hypot(arms[i].q.x, arms[i].q.y));
  }
  if (!(total > 0.0)) return std::nullopt;
  const std::size_t voters = std::min<std::size_t>(48, arms.size());
  std::partial_sort(strongest.begin(), strongest.begin() + static_cast<std::ptrdiff_t>(voters), strongest.end(),
                    [&](std::size_t a, std::size_t b) {
                      // Those that know both directions first.
                      const double wa = arms[a].xx + arms[a].yy, wb = arms[b].xx + arms[b].yy;
                      return wa != wb ? wa > wb : a < b;
                    });

  Motion best;
  double bestScore = -1.0;
  const double perTolerance2 = 1.0 / (tolerance * tolerance);
  const auto tryMotion = [&](const Motion& m) {
    double score = 0.0;
    for (std::size_t i = 0; i < arms.size(); ++i) {
      score += std::max(0.0, strengths[i] - Chi2(arms[i], Remaining(arms[i], m)) * perTolerance2);
    }
    if (score > bestScore) {
      bestScore = score;
      best = m;
    }
  };
  for (std::size_t i = 0; i < voters; ++i) {
    const Arm& a = arms[strongest[i]];
    tryMotion({a.offset.x, a.offset.y, 0.0, 0.0});
    for (std::size_t j = 0; j < i && !shiftOnly; ++j) {
      const Arm& b = arms[strongest[j]];
      const double bx = a.q.x - b.q.x, by = a.q.y - b.q.y, base2 = bx * bx + by * by;
      // A short arm turns small errors into large angles.
      if (base2 < reach * reach * 0.04) continue;
      const double ox = a.offset.x - b.offset.x, oy = a.offset.y - b.offset.y;
      const double turn = (bx * oy - by * ox) / base2;
      if (std::abs(turn) > maxTurn * kDegree) continue;
      const double mx = (a.q.x + b.q.x) / 2, my = (a.q.y + b.q.y) / 2;
      tryMotion({(a.offset.x + b.offset.x) / 2 + turn * my, (a.offset.y + b.offset.y) / 2 - turn * mx, turn, 0.0});
    }
  }
  RigidVote vote{Moved(map.Geometry(), best), 0.0, 0};
  for (std::size_t i = 0; i < arms.size(); ++i) {
    if (Chi2(arms[i], Remaining(arms[i], best)) * perTolerance2 >= strengths[i]) continue;
    vote.share += strengths[i] / total;
    ++vote.count;
  }
  return vote;
}

std::optional<RigidFit> FitRigid(std::span<const Displacement> displacements, const RigidMap& map, bool shiftOnly,
                                 double looseness) {
  const std::vector<Arm> arms = MakeArms(displacements, map);
  // The scale is a fourth unknown of a second solution only: it must not weaken the motion itself.
  const auto solve = [&](const Motion& from, const Excess& excess, int unknowns, Motion& to,
                         std::array<double, 4>& errors) {
    SmallSystem<4> system;
    for (const Arm& arm : arms) {
      const Arm a = Loosened(arm, excess.variance);
      const double chi2 = Chi2(a, Remaining(a, from)) / excess.factor2;
      if (!(chi2 < kBiweight)) continue;
      const double t = 1.0 - chi2 / kBiweight, w = t * t;
      const std::array<double, 4> rx = {1.0, 0.0, -a.q.y, a.q.x}, ry = {0.0, 1.0, a.q.x, a.q.y};
      for (int i = 0; i < unknowns; ++i) {
        const double wx = w * (a.xx * rx[i] + a.xy * ry[i]), wy = w * (a.xy * rx[i] + a.yy * ry[i]);
        for (int j = 0; j <= i; ++j) system.matrix[i][j] += wx * rx[j] + wy * ry[j];
        system.right[i] += wx * a.offset.x + wy * a.offset.y;
      }
    }
    if (!system.Solve(unknowns)) return false;
    to = {system.solution[0], system.solution[1], unknowns > 2 ? system.solution[2] : 0.0,
          unknowns > 3 ? system.solution[3] : 0.0};
    for (int i = 0; i < unknowns; ++i) errors[i] = std::sqrt(std::max(0.0, system.inverse[i][i] * excess.factor2));
    return true;
  };

  if (arms.empty()) return std::nullopt;
  const int unknowns = shiftOnly || arms.size() < 2 ? 2 : 3;
  Motion motion;
  std::array<double, 4> errors{};
  Excess excess;
  for (int round = 0; round < 8; ++round) {
    excess = FindExcess(arms, motion, looseness * looseness);
    if (!solve(motion, excess, unknowns, motion, errors)) return std::nullopt;
  }

  RigidFit fit;
  fit.geometry = Moved(map.Geometry(), motion);
  fit.shiftError = std::hypot(errors[0], errors[1]);
  fit.thetaError = unknowns > 2 ? errors[2] / kDegree : 0.0;
  fit.scatter = std::sqrt(excess.variance);
  double weights = 0.0, squares = 0.0;
  for (std::size_t i = 0; i < arms.size(); ++i) {
    const Arm a = Loosened(arms[i], excess.variance);
    const Point r = Remaining(arms[i], motion);
    if (!(Chi2(a, r) < kBiweight * excess.factor2)) continue;
    fit.agreeing.push_back(displacements[i].source);
    weights += a.xx + a.yy;
    squares += a.xx * r.x * r.x + 2.0 * a.xy * r.x * r.y + a.yy * r.y * r.y;
  }
  fit.residual = weights > 0.0 ? std::sqrt(squares / weights) : 0.0;
  Motion free = motion;
  if (!shiftOnly && arms.size() > 4 && solve(motion, excess, 4, free, errors)) fit.scale = 1.0 + free.scale;
  return fit;
}

}  // namespace qmr
