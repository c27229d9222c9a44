#include "qmrimg/colour/kernels/composition_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "qmrimg/colour/kernels/lab_math.h"
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

namespace {

constexpr int kChunk = 256;

struct Positions {
  double x[kChunk];
  double y[kChunk];
};

template <class Formula>
void PlaceWith(int left, int count, Positions& at, Formula formula) {
  double* const px = at.x;
  double* const py = at.y;
#pragma omp simd
  for (int i = 0; i < count; ++i) {
    const Position source = formula(left + i);
    px[i] = source.x;
    py[i] = source.y;
  }
}

void PlaceColumns(const Placement& placement, int left, int y, int count, Positions& at) {
  const Placement p = placement;
  if (IsTurned(p))
    PlaceWith(left, count, at, [y, p](int x) { return TurnedPosition(x, y, p); });
  else if (p.scale == 1.0)
    PlaceWith(left, count, at, [y, p](int x) { return ShiftedPosition(x, y, p); });
  else
    PlaceWith(left, count, at, [y, p](int x) { return ScaledPosition(x, y, p); });
}

// The cells of one axis.
struct Cells {
  int first[kChunk];
  int second[kChunk];
  double fraction[kChunk];
};

void FindCells(const double* positions, int count, int size, Cells& cells) {
  int* const first = cells.first;
  int* const second = cells.second;
  double* const fraction = cells.fraction;
#pragma omp simd
  for (int i = 0; i < count; ++i) {
    const Cell cell = CellOf(positions[i], size);
    first[i] = cell.first;
    second[i] = cell.second;
    fraction[i] = cell.fraction;
  }
}

// Columns begin..end - 1 of a chunk, wherever they lie.
void SampleCells(const float* const* rows, const Cells& columns, const Cells& lines, int begin, int end, float* out) {
  for (int i = begin; i < end; ++i) {
    const float* const row0 = rows[lines.first[i]];
    const float* const row1 = rows[lines.second[i]];
    const int x0 = columns.first[i];
    const int x1 = columns.second[i];
    out[i] = Bilinear(row0[x0], row0[x1], row1[x0], row1[x1], columns.fraction[i], lines.fraction[i]);
  }
}

// Columns 0..count - 1 that lie one after the other between two rows.
void SampleLevelRun(const float* row0, const float* row1, const double* fractions, double fy, int count, float* out) {
#pragma omp simd
  for (int i = 0; i < count; ++i) out[i] = Bilinear(row0[i], row0[i + 1], row1[i], row1[i + 1], fractions[i], fy);
}

// How many columns from the first one on are one after the other, each with the next as its neighbour.
int LevelRun(const Cells& columns, int count) {
  int run = 0;
  while (run < count && columns.first[run] == columns.first[0] + run && columns.second[run] > columns.first[run]) ++run;
  return run;
}

}  // namespace

void SampleRow256(const FrameRows& frame, const Placement& placement, const RowLevels (&levels)[kRgbPlanes], int left,
                  int y, int count, RgbRows out) {
  Positions at;
  Cells columns;
  Cells lines;
  const bool turned = IsTurned(placement);
  for (int start = 0; start < count; start += kChunk) {
    const int chunk = std::min(kChunk, count - start);
    PlaceColumns(placement, left + start, y, chunk, at);
    const auto inside = [&](int i) { return IsInside({at.x[i], at.y[i]}, frame.width, frame.height); };
    // Positions are monotonic on both axes, rounding included: those inside are one run.
    int begin = 0;
    while (begin < chunk && !inside(begin)) ++begin;
    int end = chunk;
    while (end > begin && !inside(end - 1)) --end;
    const int run = end - begin;
    FindCells(at.x + begin, run, frame.width, columns);
    FindCells(at.y + begin, run, frame.height, lines);
    const int level = turned ? 0 : LevelRun(columns, run);
    for (int p = 0; p < frame.planes; ++p) {
      float* const row = out[p] + start;
      std::fill(row, row + begin, 0.0f);
      const float* const* const rows =
          frame.table + static_cast<std::size_t>(p) * static_cast<std::size_t>(frame.height);
      if (level > 0)
        SampleLevelRun(rows[lines.first[0]] + columns.first[0], rows[lines.second[0]] + columns.first[0],
                       columns.fraction, lines.fraction[0], level, row + begin);
      SampleCells(rows, columns, lines, level, run, row + begin);
      To256Row({row + begin, static_cast<std::size_t>(run)}, row + begin, levels[p]);
      std::fill(row + end, row + chunk, 0.0f);
    }
  }
}

}  // namespace qmr
