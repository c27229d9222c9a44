// Rows of a composite: what two pixels become, and the rows of B in single precision.
#pragma once

namespace qmr {

struct CompositRule {
  double ratio;
  bool clipNegative;
};

// The levels of A: `gain` is 255 / range, `inverse` 1 / gain, each rounded to float.
struct CompositLevels {
  float min;
  float gain;
  float inverse;
};

// Combines `count` pixels by a mode number; modes that are none of 0..8 pass A. Raw values, or, given levels, A on its
// way to the 256-scale and back and B on the 256-scale already. `out` may be `a` or `b`.
void CompositRow(int mode, const CompositRule& rule, const float* a, const float* b, int count, float* out);
void CompositRow256(int mode, const CompositRule& rule, const CompositLevels& levels, const float* a, const float* b,
                    int count, float* out);
// What B counts as where it does not reach.
float CompositOutside(int mode);

// `count` pixels of two rows, each with its right neighbour, blended at the fractions fx and fy in float.
void BlendRow(const float* upper, const float* lower, int count, float fx, float fy, float* out);
// One pixel: columns `x` and `neighbor`.
float BlendPixel(const float* upper, const float* lower, int x, int neighbor, float fx, float fy);

// Positions x[i], y[i] inside 0..width - 1 and 0..height - 1.
void BlendTurnedRow(const float* const* rows, int width, int height, const float* x, const float* y, int count,
                    float* out);

// The largest of the pixels i .. i + 2 * radius of `padded`, for each of `count` pixels; not-a-number counts for
// nothing.
void WindowMaxRow(const float* padded, int count, int radius, float* out);
// Raises each pixel of `out` to that of `row`.
void RaiseRow(const float* row, int count, float* out);

}  // namespace qmr
