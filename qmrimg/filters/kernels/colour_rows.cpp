#include "qmrimg/filters/kernels/colour_rows.h"

namespace qmr {
namespace {

inline float Mixed(double v, double changed, double keep, double strength) {
  return static_cast<float>(keep * v + strength * changed);
}

template <int Excess>
void Run(const float* const (&from)[3], float* const (&to)[3], std::size_t width, const FalseColour& colour) {
  const float* const red = from[0];
  const float* const green = from[1];
  const float* const blue = from[2];
  float* const outRed = to[0];
  float* const outGreen = to[1];
  float* const outBlue = to[2];
  const FalseColour f = colour;
  const double keep = 1.0 - f.strength;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const double r = red[x];
    const double g = green[x];
    const double b = blue[x];
    const double a = g / r;
    const double c = b / r;
    const bool hit = (f.lowGreen < a) & (a < f.highGreen) & (f.lowBlue < c) & (c < f.highBlue);
    const double others = (Excess == 0 ? b + g : Excess == 1 ? b + r : g + r) * 0.5;
    outRed[x] = Mixed(r, Excess == 0 && hit ? others : r, keep, f.strength);
    outGreen[x] = Mixed(g, Excess == 1 && hit ? others : g, keep, f.strength);
    outBlue[x] = Mixed(b, Excess == 2 && hit ? others : b, keep, f.strength);
  }
}

}  // namespace

void FalseColourRow(const float* const (&from)[3], float* const (&to)[3], std::size_t width,
                    const FalseColour& colour) {
  if (colour.excess == 0)
    Run<0>(from, to, width, colour);
  else if (colour.excess == 1)
    Run<1>(from, to, width, colour);
  else
    Run<2>(from, to, width, colour);
}

}  // namespace qmr
