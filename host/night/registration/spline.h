// Cubic B-splines: the interpolator that moves no star (Unser, Aldroubi, Eden: "B-spline signal processing", 1993).
#pragma once

#include <array>

namespace qmr {

// Turns the samples of a small plane into spline coefficients, in place; borders count as mirrored about the last
// sample. All samples must be finite.
void SplineCoefficients(float* plane, int width, int height);

// Smooths a small plane by (1, 2, 1) / 4 along both axes, in place; borders repeat. `scratch` has `width` floats. It
// costs hardly any accuracy, makes the interpolation of narrow stars exact enough, and lets the body of a star decide
// instead of its innermost pixels, whose shape changes with every gust and guiding error.
void SmoothLightly(float* plane, int width, int height, float* scratch);

// Weights of the coefficients at -1, 0, 1, 2 for a position `t` in 0..1 after coefficient 0.
inline std::array<float, 4> SplineWeights(float t) {
  const float s = 1.0f - t, t2 = t * t, s2 = s * s;
  const float first = s2 * s * (1.0f / 6.0f), last = t2 * t * (1.0f / 6.0f);
  const float second = (2.0f / 3.0f) - t2 * (1.0f - 0.5f * t);
  return {first, second, 1.0f - first - second - last, last};
}

}  // namespace qmr
