#include "qmrimg/colour/kernels/composition_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "qmrimg/colour/kernels/lab_math.h"
#include "qmrimg/image/kernels/transformed_row.h"
#include "qmrimg/image/pixel_math.h"

namespace qmr {

void CmyToRgbRow(RgbRows rows, int width) {
  float* const p0 = rows[0];
  float* const p1 = rows[1];
  float* const p2 = rows[2];
#pragma omp simd
  for (int x = 0; x < width; ++x) {
    const float red = p2[x] + p1[x] - p0[x];
    const float half = red * 0.5f;
    const float green = (p2[x] - half) * 2.0f;
    const float blue = (p1[x] - half) * 2.0f;
    p0[x] = red;
    p1[x] = green;
    p2[x] = blue;
  }
}

void MeanRow(std::span<const float> a, std::span<const float> b, std::span<float> out) {
  const float* const u = a.data();
  const float* const v = b.data();
  float* const to = out.data();
  const std::size_t width = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) to[x] = (u[x] + v[x]) * 0.5f;
}

// ---- Lab -----------------------------------------------------------------------------------------------------------

namespace {

// Not-a-number stays.
QMR_EACH_PIXEL double Channel(float v256) {
  const double raised = v256 < 0.0f ? 0.0 : static_cast<double>(v256);
  return (raised > 5000.0 ? 5000.0 : raised) / 255.0;
}

QMR_EACH_PIXEL Lab LabOf(float r, float g, float b) {
  return XyzToLab(LinearToXyz(Linear({Channel(r), Channel(g), Channel(b)})));
}

// Rounded to float on the 256-scale before the levels.
QMR_EACH_PIXEL float FromUnit(double v, const RowLevels& levels) {
  return static_cast<float>(ToRaw(static_cast<float>(v * 255.0), levels.min, levels.range));
}

// `labOf(x)` gives the colour of each pixel.
template <class LabOfPixel>
void StoreRgb(int width, const RowLevels (&levels)[kRgbPlanes], RgbRows out, LabOfPixel labOf) {
  float* const d0 = out[0];
  float* const d1 = out[1];
  float* const d2 = out[2];
  const RowLevels l0 = levels[0], l1 = levels[1], l2 = levels[2];
#pragma omp simd
  for (int x = 0; x < width; ++x) {
    const Rgb rgb = XyzToRgb(LabToXyz(labOf(x)));
    d0[x] = FromUnit(rgb.r, l0);
    d1[x] = FromUnit(rgb.g, l1);
    d2[x] = FromUnit(rgb.b, l2);
  }
}

}  // namespace

void LrgbRow(RgbRows luminance, RgbRows colour, int width, const RowLevels (&levels)[kRgbPlanes], RgbRows out) {
  const float* const u0 = luminance[0];
  const float* const u1 = luminance[1];
  const float* const u2 = luminance[2];
  const float* const v0 = colour[0];
  const float* const v1 = colour[1];
  const float* const v2 = colour[2];
  StoreRgb(
      width, levels, out, [=](int x) __attribute__((always_inline)) {
        const double l = LabOf(u0[x], u1[x], u2[x]).l;
        const Lab lab = LabOf(v0[x], v1[x], v2[x]);
        return Lab{l, lab.a, lab.b};
      });
}

void LabToRgbRow(const float* l, const float* a, const float* b, int width, const RowLevels (&levels)[kRgbPlanes],
                 RgbRows out) {
  StoreRgb(
      width, levels, out, [=](int x) __attribute__((always_inline)) {
        return Lab{l[x], a[x], b[x]};
      });
}

// ---- Blends of planes ----------------------------------------------------------------------------------------------

namespace {

template <class Formula>
void BlendWith(const float* u, const float* v, int width, const RowLevels& levels, float* out, Formula formula) {
  const RowLevels l = levels;
#pragma omp simd
  for (int x = 0; x < width; ++x) {
    const float blended = static_cast<float>(formula(static_cast<double>(u[x]), static_cast<double>(v[x])));
    out[x] = static_cast<float>(ToRaw(blended, l.min, l.range));
  }
}

}  // namespace

void PlaneBlendRow(PlaneBlend blend, const float* u, const float* v, int width, double full, const RowLevels& levels,
                   float* out) {
  switch (blend) {
    case PlaneBlend::kMean:
      BlendWith(u, v, width, levels, out, [](double a, double b) { return (a + b) * 0.5; });
      break;
    case PlaneBlend::kDifference:
      BlendWith(u, v, width, levels, out, [](double a, double b) { return std::fabs(a - b); });
      break;
    case PlaneBlend::kInverseDifference:
      BlendWith(u, v, width, levels, out, [full](double a, double b) { return full - std::fabs(a - b); });
      break;
  }
}

// ---- Samples of a frame --------------------------------------------------------------------------------------------

void SampleRow256(const RowTable& frame, const Placement& placement, const RowLevels (&levels)[kRgbPlanes], int planes,
                  int left, int y, int count, RgbRows out) {
  TransformedPiece piece;
  for (int start = 0; start < count; start += TransformedPiece::kMost) {
    const int length = std::min(TransformedPiece::kMost, count - start);
    const ColumnRun run = piece.Place(placement, left + start, y, length, frame.Width(), frame.Height());
    for (int p = 0; p < planes; ++p) {
      float* const row = out[p] + start;
      std::fill(row, row + run.begin, 0.0f);
      piece.Sample(frame.Plane(p), row + run.begin);
      To256Row({row + run.begin, static_cast<std::size_t>(run.Length())}, row + run.begin, levels[p]);
      std::fill(row + run.end, row + length, 0.0f);
    }
  }
}

}  // namespace qmr
