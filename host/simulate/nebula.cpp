#include "host/simulate/nebula.h"

#include <algorithm>
#include <cmath>

#include "host/simulate/portable_math.h"
#include "host/simulate/random.h"

namespace qmr::sim {

namespace {

double SmoothStep(double low, double high, double v) {
  const double t = std::clamp((v - low) / (high - low), 0.0, 1.0);
  return t * t * (3.0 - 2.0 * t);
}

// Dust takes more blue than red.
constexpr double Extinction[3] = {0.72, 1.0, 1.3};

// What a sensor makes of the three kinds of light.
constexpr double HydrogenColour[3] = {1.0, 0.27, 0.40};
constexpr double OxygenColour[3] = {0.16, 0.86, 0.88};
constexpr double ReflectedColour[3] = {0.38, 0.57, 1.0};
constexpr double DustColour[3] = {0.52, 0.40, 0.30};

}  // namespace

NebulaShape::NebulaShape(std::uint64_t seed) : key_(StreamKey(seed, Stream::Nebula)) {
  for (int i = 0; i < 64; ++i) {
    const SineCosine direction = SinCosDegrees(i * 360.0 / 64.0);
    gradients_[i][0] = direction.cosine;
    gradients_[i][1] = direction.sine;
  }
  Draws draws(StreamKey(seed, Stream::Nebula, 1));
  const auto add = [&draws](std::vector<Lobe>& lobes, double x, double y, double size, double strength) {
    const SineCosine turn = SinCosDegrees(draws.Uniform(0.0, 180.0));
    lobes.push_back({x, y, size, size * draws.Uniform(0.45, 0.8), turn.cosine, turn.sine, strength});
  };
  const SineCosine axis = SinCosDegrees(draws.Uniform(-35.0, 35.0));
  const double cx = draws.Uniform(-0.12, 0.12);
  const double cy = draws.Uniform(-0.08, 0.08);
  // A chain of lobes along one axis, the brightest about the middle.
  for (int i = -3; i <= 3; ++i) {
    const double along = 0.16 * i + draws.Uniform(-0.05, 0.05);
    const double across = draws.Uniform(-0.11, 0.11);
    const double strength = (i == 0 ? 1.0 : draws.Uniform(0.3, 0.75)) / (1.0 + 0.35 * std::abs(i));
    add(hydrogen_, cx + along * axis.cosine - across * axis.sine, cy + along * axis.sine + across * axis.cosine,
        draws.Uniform(0.08, 0.16), strength);
  }
  add(hydrogen_, cx, cy, 0.36, 0.16);
  cluster_[0] = cx + draws.Uniform(-0.03, 0.03);
  cluster_[1] = cy + draws.Uniform(-0.03, 0.03);
  add(oxygen_, cluster_[0], cluster_[1], 0.10, 1.2);
  // One draw a statement: the order of a call's arguments is the compiler's choice.
  double y = cluster_[1] + draws.Uniform(-0.1, 0.1);
  double x = cluster_[0] + draws.Uniform(-0.1, 0.1);
  add(oxygen_, x, y, 0.18, 0.45);
  const double side = draws.Uniform() < 0.5 ? -1.0 : 1.0;
  y = cy - draws.Uniform(0.12, 0.28);
  x = cx + side * draws.Uniform(0.42, 0.55);
  add(reflection_, x, y, 0.09, 0.5);
  y = cy + draws.Uniform(0.2, 0.32);
  x = cx - side * draws.Uniform(0.35, 0.6);
  add(reflection_, x, y, 0.06, 0.3);
  const SineCosine across = SinCosDegrees(draws.Uniform(50.0, 130.0));
  lane_[0] = across.cosine;
  lane_[1] = across.sine;
}

// Gradient noise (Perlin 2002), about -0.7..0.7.
double NebulaShape::Noise(double x, double y, std::uint32_t layer) const {
  const double fx = std::floor(x);
  const double fy = std::floor(y);
  const double u = x - fx;
  const double v = y - fy;
  const auto ix = static_cast<std::int64_t>(fx);
  const auto iy = static_cast<std::int64_t>(fy);
  const auto corner = [&](int ox, int oy) {
    const auto cell = static_cast<std::uint64_t>(ix + ox) * 0x9E3779B97F4A7C15ull +
                      static_cast<std::uint64_t>(iy + oy) * 0xC2B2AE3D27D4EB4Full + layer * 0x165667B19E3779F9ull;
    const double* g = gradients_[Mix(key_ ^ cell) & 63];
    return g[0] * (u - ox) + g[1] * (v - oy);
  };
  const double a = u * u * u * (u * (u * 6.0 - 15.0) + 10.0);
  const double b = v * v * v * (v * (v * 6.0 - 15.0) + 10.0);
  const double top = corner(0, 0) + a * (corner(1, 0) - corner(0, 0));
  const double bottom = corner(0, 1) + a * (corner(1, 1) - corner(0, 1));
  return top + b * (bottom - top);
}

// Octaves are turned against each other, so that no grid direction shows.
double NebulaShape::Turbulence(double x, double y, int octaves, std::uint32_t layer) const {
  double sum = 0.0;
  double weight = 1.0;
  for (int k = 0; k < octaves; ++k) {
    sum += weight * Noise(x, y, layer + static_cast<std::uint32_t>(k));
    const double turned = 1.6 * x + 1.2 * y;
    y = 1.6 * y - 1.2 * x;
    x = turned;
    weight *= 0.56;
  }
  return sum;
}

// Sharp crests along the zero lines of the noise, each octave strongest on the crests of the one before: 0..1.
double NebulaShape::Ridges(double x, double y, int octaves, std::uint32_t layer) const {
  double sum = 0.0;
  double total = 0.0;
  double weight = 1.0;
  double carry = 1.0;
  for (int k = 0; k < octaves; ++k) {
    double crest = 1.0 - std::min(1.0, 1.9 * std::abs(Noise(x, y, layer + static_cast<std::uint32_t>(k))));
    crest *= crest;
    sum += weight * carry * crest;
    total += weight;
    carry = std::min(1.0, 0.3 + crest);
    const double turned = 1.6 * x + 1.2 * y;
    y = 1.6 * y - 1.2 * x;
    x = turned;
    weight *= 0.68;
  }
  return sum / total;
}

double NebulaShape::Lobes(const std::vector<Lobe>& lobes, double x, double y) const {
  double sum = 0.0;
  for (const Lobe& lobe : lobes) {
    const double dx = x - lobe.x;
    const double dy = y - lobe.y;
    const double u = (dx * lobe.cosine + dy * lobe.sine) / lobe.longAxis;
    const double v = (dy * lobe.cosine - dx * lobe.sine) / lobe.shortAxis;
    // Steeper than a Gaussian near the middle and with longer wings.
    sum += lobe.strength / Power(1.0 + 0.4 * (u * u + v * v), 2.4);
  }
  return sum;
}

NebulaShape::Place NebulaShape::At(double x, double y) const {
  const double bendX = Turbulence(x * 1.9, y * 1.9, 4, 100);
  const double bendY = Turbulence(x * 1.9, y * 1.9, 4, 200);
  Place place{x + 0.24 * bendX, y + 0.24 * bendY, 0.0};
  // One lane across the bright part, torn by turbulence, and loose clouds all over.
  const double across = (place.x - cluster_[0]) * lane_[0] + (place.y - cluster_[1]) * lane_[1] + 0.085;
  const double torn = Turbulence(x * 4.0 + 7.0, y * 4.0, 7, 300);
  const double lane = std::max(0.0, 1.0 - std::abs(across) / 0.075);
  const double loose = Ridges(place.x * 2.3 + 3.0, place.y * 2.3, 4, 400);
  place.depth = 1.9 * SmoothStep(0.0, 1.0, lane + 0.9 * torn) * SmoothStep(-0.35, 0.25, torn + 0.2) +
                1.7 * SmoothStep(0.42, 0.85, loose + 0.45 * torn);
  return place;
}

Rgb NebulaShape::Light(double x, double y) const {
  const Place place = At(x, y);
  const double clumps = Turbulence(place.x * 3.3, place.y * 3.3, 7, 500);
  const double threads = Ridges(x + 3.6 * place.x, y + 3.6 * place.y, 7, 600);
  // Compressible turbulence leaves a log-normal density.
  const double hydrogen = Lobes(hydrogen_, place.x, place.y) * Exp(1.7 * clumps) * (0.3 + 2.4 * threads * threads);
  const double oxygen = Lobes(oxygen_, place.x, place.y) * Exp(0.9 * clumps) * (0.75 + 0.5 * threads);
  const double reflected = Lobes(reflection_, x + 0.3 * (place.x - x), y + 0.3 * (place.y - y)) * Exp(1.1 * clumps);
  const double haze = 0.02 * Exp(1.2 * clumps) + 0.008 * place.depth;
  double light[3];
  for (int c = 0; c < 3; ++c) {
    light[c] = (hydrogen * HydrogenColour[c] + oxygen * OxygenColour[c] + reflected * ReflectedColour[c]) *
                   Exp(-place.depth * Extinction[c]) +
               haze * DustColour[c];
  }
  return {static_cast<float>(light[0]), static_cast<float>(light[1]), static_cast<float>(light[2])};
}

Rgb NebulaShape::Passing(double x, double y) const {
  const double depth = 0.9 * At(x, y).depth;
  return {static_cast<float>(Exp(-depth * Extinction[0])), static_cast<float>(Exp(-depth * Extinction[1])),
          static_cast<float>(Exp(-depth * Extinction[2]))};
}

}  // namespace qmr::sim
