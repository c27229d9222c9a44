#include "qmrimg/raw/kernels/illumination_rows.h"

#include <algorithm>
#include <cstdint>

namespace qmr {
namespace {

// Each model: its value at a pixel, the level that a division keeps, and a sample with the variation subtracted.

inline double Position(const LineIllumination& m, int x, int y) {
  return x * m.dirX + y * m.dirY - m.mid;
}
inline double Value(const LineIllumination& m, int x, int y) {
  return m.slope * Position(m, x, y) + m.base;
}
inline double Level(const LineIllumination& m) {
  return m.base;
}
inline double Subtracted(const LineIllumination& m, double s, int x, int y) {
  return s - m.slope * Position(m, x, y);
}

inline double Value(const PlaneIllumination& m, int x, int y) {
  return m.gradX * x + m.gradY * y + m.constant;
}
inline double Level(const PlaneIllumination& m) {
  return m.constant;
}
inline double Subtracted(const PlaneIllumination& m, double s, int x, int y) {
  return s - (m.gradX * x + m.gradY * y);
}

inline double RadiusSquared(const RadialIllumination& m, int x, int y) {
  const double dx = static_cast<double>(x) - m.centreX;
  const double dy = static_cast<double>(y) - m.centreY;
  return dx * dx + dy * dy;
}
inline double Value(const RadialIllumination& m, int x, int y) {
  return m.curve * RadiusSquared(m, x, y) + m.peak;
}
inline double Level(const RadialIllumination& m) {
  return m.peak;
}
inline double Subtracted(const RadialIllumination& m, double s, int x, int y) {
  return s - m.curve * RadiusSquared(m, x, y);
}

// The squares are summed in 32 bits, on purpose: the model of an image beyond 46340 pixels depends on the overflow.
inline std::int32_t SquareSum(int x, int y) {
  const auto ux = static_cast<std::uint32_t>(x);
  const auto uy = static_cast<std::uint32_t>(y);
  return static_cast<std::int32_t>(ux * ux + uy * uy);
}
inline double Value(const ParaboloidIllumination& m, int x, int y) {
  return m.curve * SquareSum(x, y) + m.gradX * x + m.gradY * y + m.constant;
}
inline double Level(const ParaboloidIllumination& m) {
  return m.vertex;
}
inline double Subtracted(const ParaboloidIllumination& m, double s, int x, int y) {
  return s - Value(m, x, y) + m.vertex;
}

template <class Model>
void Row(std::span<const float> from, std::span<float> to, int left, int y, const IlluminationMode& mode,
         const Model& model) {
  const Model m = model;
  const float* const s = from.data();
  float* const out = to.data();
  const int width = static_cast<int>(to.size());
  switch (mode.kind) {
    case IlluminationMode::Kind::kSubtract:
#pragma omp simd
      for (int i = 0; i < width; ++i) out[i] = static_cast<float>(Subtracted(m, s[i], left + i, y));
      break;
    case IlluminationMode::Kind::kDivide: {
      const double c = mode.offset;
      const double level = Level(m);
#pragma omp simd
      for (int i = 0; i < width; ++i)
        out[i] = static_cast<float>((level + c) / (Value(m, left + i, y) + c) * (s[i] + c) - c);
      break;
    }
    case IlluminationMode::Kind::kClear:
      std::fill(to.begin(), to.end(), 0.0f);
      break;
  }
}

}  // namespace

void IlluminationRow(std::span<const float> from, std::span<float> to, int left, int y, const IlluminationMode& mode,
                     const LineIllumination& model) {
  Row(from, to, left, y, mode, model);
}

void IlluminationRow(std::span<const float> from, std::span<float> to, int left, int y, const IlluminationMode& mode,
                     const PlaneIllumination& model) {
  Row(from, to, left, y, mode, model);
}

void IlluminationRow(std::span<const float> from, std::span<float> to, int left, int y, const IlluminationMode& mode,
                     const RadialIllumination& model) {
  Row(from, to, left, y, mode, model);
}

void IlluminationRow(std::span<const float> from, std::span<float> to, int left, int y, const IlluminationMode& mode,
                     const ParaboloidIllumination& model) {
  Row(from, to, left, y, mode, model);
}

}  // namespace qmr
