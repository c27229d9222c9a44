#include "qmrimg/stacking/kernels/spectrum_rows.h"

#include <algorithm>
#include <cmath>

#include "qmrimg/platform/truncate.h"
#include "qmrimg/stacking/kernels/fft_trig.h"

namespace qmr {
namespace {

constexpr double kPi = 3.14159265358979323846;

}  // namespace

void SwapHalves(float* row, int width) {
  const int half = width / 2;
  std::swap_ranges(row, row + 2 * static_cast<std::ptrdiff_t>(half), row + 2 * static_cast<std::ptrdiff_t>(half));
}

void SwapRows(float* a, float* b, int width) {
  std::swap_ranges(a, a + 2 * static_cast<std::ptrdiff_t>(width), b);
}

void AmpPhaseRow(float* row, int width, bool phase) {
  if (phase) {
    for (int x = 0; x < width; ++x) {
      const double re = row[2 * x], im = row[2 * x + 1];
      row[2 * x] = static_cast<float>(std::sqrt(re * re + im * im));
      row[2 * x + 1] = static_cast<float>(std::atan2(im, re));
    }
    return;
  }
#pragma omp simd
  for (int x = 0; x < width; ++x) {
    const double re = row[2 * x], im = row[2 * x + 1];
    row[2 * x] = static_cast<float>(std::sqrt(re * re + im * im));
    row[2 * x + 1] = 0.0f;
  }
}

void ReImRow(float* row, int width) {
  for (int x = 0; x < width; ++x) {
    const double amp = row[2 * x], phase = row[2 * x + 1];
    row[2 * x] = static_cast<float>(amp * std::cos(phase));
    row[2 * x + 1] = static_cast<float>(amp * std::sin(phase));
  }
}

void LogRow(float* row, int width, double floor) {
  for (int x = 0; x < width; ++x) row[2 * x] = static_cast<float>(std::log(row[2 * x] - floor + 1.0));
}

int BellWeights(int dy, int radius, int count, double* weights) {
  const double r = radius, y2 = static_cast<double>(dy) * dy;
  if (std::abs(dy) >= radius) return 0;
  // One column more than the circle has, so that rounding of the root here decides nothing.
  const int n = std::min(count, TruncateToInt(std::sqrt(r * r - y2)) + 2);
#pragma omp simd
  for (int x = 0; x < n; ++x) {
    const double d = std::sqrt(static_cast<double>(x) * x + y2);
    weights[x] = d < r ? 0.5 * CosHalfTurn(kPi * d / r) + 0.5 : 0.0;
  }
  return n;
}

void ApplyBell(const double* weights, int inside, float* row, int width) {
  const int centre = width / 2;
  const int first = std::max(centre - inside + 1, 0), last = std::min(centre + inside, width);
  if (first >= last) {
    std::fill_n(row, 2 * static_cast<std::ptrdiff_t>(width), 0.0f);
    return;
  }
  std::fill(row, row + 2 * static_cast<std::ptrdiff_t>(first), 0.0f);
  // Two loops of one direction each, so that both run as vectors.
#pragma omp simd
  for (int x = first; x < centre; ++x) {
    const double w = weights[centre - x];
    row[2 * x] = static_cast<float>(row[2 * x] * w);
    row[2 * x + 1] = static_cast<float>(row[2 * x + 1] * w);
  }
#pragma omp simd
  for (int x = centre; x < last; ++x) {
    const double w = weights[x - centre];
    row[2 * x] = static_cast<float>(row[2 * x] * w);
    row[2 * x + 1] = static_cast<float>(row[2 * x + 1] * w);
  }
  std::fill(row + 2 * static_cast<std::ptrdiff_t>(last), row + 2 * static_cast<std::ptrdiff_t>(width), 0.0f);
}

double SampleComplex(const float* data, int width, int height, int part, int mode, double x, double y) {
  if (!data || width < 1 || height < 1) return 0.0;
  const auto at = [&](int i, int j) -> double {
    i = std::clamp(i, 0, width - 1);
    j = std::clamp(j, 0, height - 1);
    return data[2 * (static_cast<std::ptrdiff_t>(j) * width + i) + (part ? 1 : 0)];
  };
  if (mode == 0) return at(TruncateToInt(x + 0.5), TruncateToInt(y + 0.5));
  if (mode != 1) return 0.0;
  // Neighbours of weight 0 stay out of the sum.
  const int ix = std::clamp(TruncateToInt(x), -1, width), iy = std::clamp(TruncateToInt(y), -1, height);
  const double fx = x - std::trunc(x), fy = y - std::trunc(y);
  const double p00 = at(ix, iy);
  if (fx == 0.0 && fy == 0.0) return p00;
  const int right = fx == 0.0 ? ix : ix + 1, below = fy == 0.0 ? iy : iy + 1;
  const double p10 = at(right, iy), p01 = at(ix, below), p11 = at(right, below);
  return p00 * (1.0 - fx) * (1.0 - fy) + p10 * (fx - fx * fy) + p01 * (fy - fx * fy) + p11 * fx * fy;
}

LogPolarGrid MakeLogPolarGrid(int width, int height, double logStart, double logEnd, int startAngle, int endAngle) {
  LogPolarGrid grid;
  grid.width = width;
  grid.height = height;
  grid.centreX = width * 0.5 - 0.5;
  grid.centreY = height * 0.5 - 0.5;
  grid.logStart = logStart;
  grid.logStep = (logEnd - logStart) / height;
  const double angleStep = (static_cast<double>(endAngle) - startAngle) * kPi / 180.0 / width;
  grid.cosines.resize(static_cast<std::size_t>(width));
  grid.sines.resize(static_cast<std::size_t>(width));
  for (int x = 0; x < width; ++x) {
    const double t = x * angleStep + startAngle * kPi / 180.0;
    grid.cosines[static_cast<std::size_t>(x)] = std::cos(t);
    grid.sines[static_cast<std::size_t>(x)] = std::sin(t);
  }
  return grid;
}

void LogPolarRow(const LogPolarGrid& grid, const float* data, int y, float* out) {
  const double r = std::exp(y * grid.logStep + grid.logStart);
  const double endX = grid.width - 0.5, endY = grid.height - 0.5;
  for (int x = 0; x < grid.width; ++x) {
    const double px = grid.cosines[static_cast<std::size_t>(x)] * r + grid.centreX;
    const double py = grid.sines[static_cast<std::size_t>(x)] * r + grid.centreY;
    const bool inside = px > -0.5 && px < endX && py > -0.5 && py < endY;
    out[2 * x] = inside ? static_cast<float>(SampleComplex(data, grid.width, grid.height, 0, 1, px, py)) : 0.0f;
    out[2 * x + 1] = 0.0f;
  }
}

float MinReal(const float* row, int width, float start) {
  for (int x = 0; x < width; ++x) {
    if (row[2 * x] < start) start = row[2 * x];
  }
  return start;
}

int MaxReal(const float* row, int width, float* best) {
  int at = -1;
  float top = *best;
  for (int x = 0; x < width; ++x) {
    if (row[2 * x] > top) {
      top = row[2 * x];
      at = x;
    }
  }
  *best = top;
  return at;
}

}  // namespace qmr
