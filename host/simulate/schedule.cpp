#include "host/simulate/schedule.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "host/simulate/portable_math.h"
#include "host/simulate/random.h"

namespace qmr::sim {

namespace {

double Rounded(double value, double unit) {
  return std::round(value * unit) / unit;
}

// A step that would leave -limit..limit is mirrored back at the border.
double Reflect(double value, double limit) {
  if (value > limit) value = 2.0 * limit - value;
  if (value < -limit) value = -2.0 * limit - value;
  return std::clamp(value, -limit, limit);
}

void Point(const SimulateOptions& o, std::vector<TruthFrame>& frames) {
  const double sense = ToUniform(Hash(StreamKey(o.seed, Stream::Drift), 0)) < 0.5 ? -1.0 : 1.0;
  double x = 0.0;
  double y = 0.0;
  for (std::size_t i = 1; i < frames.size(); ++i) {
    Draws draws(StreamKey(o.seed, Stream::Drift, i));
    double theta = 0.0;
    if (o.drift == DriftKind::Uniform) {
      x = draws.Uniform(-o.driftPixels, o.driftPixels);
      y = draws.Uniform(-o.driftPixels, o.driftPixels);
      theta = draws.Uniform(-o.rotationDegrees, o.rotationDegrees);
    } else {
      const double step = o.driftPixels / 3.0;
      x = Reflect(x + step * std::clamp(draws.Normal(), -3.0, 3.0), o.driftPixels);
      y = Reflect(y + step * std::clamp(draws.Normal(), -3.0, 3.0), o.driftPixels);
      const double part = static_cast<double>(i) / static_cast<double>(frames.size() - 1);
      theta = sense * o.rotationDegrees * part * draws.Uniform(0.98, 1.0);
    }
    // Rounded, so that the text of truth.json says exactly what was drawn.
    frames[i].dx = Rounded(x, 1e4);
    frames[i].dy = Rounded(y, 1e4);
    frames[i].theta = Rounded(theta, 1e5);
  }
}

void Weather(const SimulateOptions& o, std::vector<TruthFrame>& frames) {
  double seeing = 0.0;
  double cloud = 0.0;
  const double direction = 360.0 * ToUniform(Hash(StreamKey(o.seed, Stream::Weather), 0));
  for (std::size_t i = 0; i < frames.size(); ++i) {
    TruthFrame& frame = frames[i];
    Draws draws(StreamKey(o.seed, Stream::Weather, i + 1));
    const double part = frames.size() > 1 ? static_cast<double>(i) / static_cast<double>(frames.size() - 1) : 0.0;
    // Seeing and thin cloud change slowly and come back to their mean.
    seeing = i == 0 ? 0.0 : 0.7 * seeing + 0.5 * draws.Uniform(-1.0, 1.0);
    cloud = i == 0 ? 0.0 : std::clamp(0.6 * cloud + draws.Uniform(0.0, 0.6), 0.0, 1.0);
    frame.fwhm = Rounded(o.fwhm * std::max(0.5, 1.0 + o.fwhmVariation * seeing), 1e4);
    frame.transparency = Rounded(1.0 - o.clouds * cloud, 1e5);
    frame.sky = Rounded(o.sky * (1.0 + o.skyChange * part), 1e3);
    const SineCosine towards = SinCosDegrees(direction + 50.0 * part);
    const double strength = o.skyGradient * (1.0 + 0.25 * draws.Uniform(-1.0, 1.0)) / std::sqrt(2.0);
    frame.gradientX = Rounded(strength * towards.cosine, 1e5);
    frame.gradientY = Rounded(strength * towards.sine, 1e5);
  }
  if (frames.size() < 2) return;
  // The bad ones: the first places of a shuffled 1..n - 1.
  std::vector<int> order(frames.size() - 1);
  std::iota(order.begin(), order.end(), 1);
  Draws draws(StreamKey(o.seed, Stream::Weather, 0, 1));
  for (int k = 0; k < o.badFrames && k < static_cast<int>(order.size()); ++k) {
    std::swap(order[k], order[k + draws.Below(static_cast<int>(order.size()) - k)]);
    TruthFrame& frame = frames[order[k]];
    frame.bad = true;
    frame.transparency = Rounded(draws.Uniform(0.25, 0.45), 1e5);
    frame.fwhm = Rounded(frame.fwhm * draws.Uniform(1.6, 2.0), 1e4);
    frame.sky = Rounded(frame.sky * draws.Uniform(1.5, 2.2), 1e3);
  }
}

// Where the line through (x, y) along (ux, uy) enters and leaves the frame.
TruthTrail Cross(const SimulateOptions& o, double x, double y, double ux, double uy) {
  double low = -1e9;
  double high = 1e9;
  const double position[2] = {x, y};
  const double step[2] = {ux, uy};
  const double last[2] = {o.width - 1.0, o.height - 1.0};
  for (int k = 0; k < 2; ++k) {
    if (std::abs(step[k]) < 1e-9) continue;
    const double a = -position[k] / step[k];
    const double b = (last[k] - position[k]) / step[k];
    low = std::max(low, std::min(a, b));
    high = std::min(high, std::max(a, b));
  }
  return {Rounded(x + low * ux, 1e3), Rounded(y + low * uy, 1e3), Rounded(x + high * ux, 1e3),
          Rounded(y + high * uy, 1e3)};
}

void AddTrails(const SimulateOptions& o, std::vector<TruthFrame>& frames) {
  for (int k = 0; k < o.trails; ++k) {
    Draws draws(StreamKey(o.seed, Stream::Trails, static_cast<std::uint64_t>(k)));
    // Frame 0 stays clean as long as there are others: it is the one that people look at.
    const int count = static_cast<int>(frames.size());
    TruthFrame& frame = frames[count > 1 ? 1 + draws.Below(count - 1) : 0];
    const double x = draws.Uniform(0.15, 0.85) * (o.width - 1);
    const double y = draws.Uniform(0.15, 0.85) * (o.height - 1);
    const SineCosine direction = SinCosDegrees(draws.Uniform(0.0, 180.0));
    TruthTrail trail = Cross(o, x, y, direction.cosine, direction.sine);
    trail.peak = Rounded(frame.transparency * draws.Uniform(500.0, 2500.0), 10.0);
    trail.width = Rounded(frame.fwhm / 2.3548 * draws.Uniform(1.0, 1.4), 1e3);
    frame.trails.push_back(trail);
  }
}

}  // namespace

std::vector<TruthFrame> MakeSchedule(const SimulateOptions& options) {
  std::vector<TruthFrame> frames(static_cast<std::size_t>(options.lights));
  for (std::size_t i = 0; i < frames.size(); ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "light_%05d.fit", static_cast<int>(i) + 1);
    frames[i].file = name;
    frames[i].index = static_cast<int>(i);
  }
  Point(options, frames);
  Weather(options, frames);
  AddTrails(options, frames);
  return frames;
}

}  // namespace qmr::sim
