#include "qmrimg/geometry/kernels/turned_rows.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "qmrimg/geometry/kernels/window_columns.h"

namespace qmr {
namespace {

// Positions that are worked on together; their weights and windows stay in the first-level cache.
constexpr int kBlock = 64;

// The positions from `begin` to `end` whose taps, `before` back to `after` ahead on both axes, all exist; none in an
// image whose rows are unevenly spaced. Positions of a row are monotonic on both axes, so that they are one run.
void InnerRange(const TurnedRun& run, int before, int after, int* begin, int* end) {
  const PlaneRows& plane = run.planes[0];
  *begin = *end = 0;
  for (int p = 0; p < run.planeCount; ++p) {
    if (run.planes[p].stride == 0 || run.planes[p].stride != plane.stride) return;
  }
  const int right = plane.width - 1 - after;
  const int bottom = plane.height - 1 - after;
  const auto inside = [&](int i) {
    const int ix = static_cast<int>(run.x[i]);
    const int iy = static_cast<int>(run.y[i]);
    return ix >= before && ix <= right && iy >= before && iy <= bottom;
  };
  int first = 0;
  while (first < run.count && !inside(first)) ++first;
  int last = run.count;
  while (last > first && !inside(last - 1)) --last;
  *begin = first;
  *end = last;
}

template <class Sample>
void Border(const TurnedRun& run, int begin, int end, Sample&& sample) {
  for (int p = 0; p < run.planeCount; ++p) {
    for (int i = begin; i < end; ++i) run.out[p][i] = sample(run.planes[p], run.x[i], run.y[i]);
  }
}

// Where the windows of a block begin, in floats from the plane's first pixel, and weights, one array a tap.
template <int Taps>
struct Block {
  std::ptrdiff_t corner[kBlock];
  double x[Taps][kBlock];
  double y[Taps][kBlock];
};

template <class Taps>
void FillBlock(const double* x, const double* y, std::ptrdiff_t stride, Block<Taps::kTaps>* block) {
  double fx[kBlock];
  double fy[kBlock];
  std::ptrdiff_t* const corner = block->corner;
  for (int i = 0; i < kBlock; ++i) {
    const int ix = static_cast<int>(x[i]);
    const int iy = static_cast<int>(y[i]);
    corner[i] = (iy - Taps::kBefore) * stride + (ix - Taps::kBefore);
    fx[i] = x[i] - ix;
    fy[i] = y[i] - iy;
  }
  double* const weightsX = block->x[0];
  double* const weightsY = block->y[0];
#pragma omp simd
  for (int i = 0; i < kBlock; ++i) Taps::Weights(fx[i], weightsX + i, kBlock);
#pragma omp simd
  for (int i = 0; i < kBlock; ++i) Taps::Weights(fy[i], weightsY + i, kBlock);
}

// The row sums of all pixels of the block, row by row, each joining the sum of its pixel at once.
template <int Taps, std::size_t... K>
void BlockSamples(const PlaneRows& plane, const Block<Taps>& block, float* out, std::index_sequence<K...>) {
  float window[Taps][kBlock];
  double sum[kBlock] = {};
  for (int r = 0; r < Taps; ++r) {
    GatherColumns<Taps, kBlock>(plane.rows[0] + r * plane.stride, block.corner, window[0]);
    const double* const weightsY = block.y[r];
#pragma omp simd
    for (int i = 0; i < kBlock; ++i) {
      double rowSum = static_cast<double>(window[0][i]) * block.x[0][i];
      ((rowSum = K == 0 ? rowSum : rowSum + static_cast<double>(window[K][i]) * block.x[K][i]), ...);
      sum[i] += weightsY[i] * rowSum;
    }
  }
#pragma omp simd
  for (int i = 0; i < kBlock; ++i) out[i] = static_cast<float>(sum[i]);
}

// Runs `block(x, y, first, count)` over begin..end - 1; x and y always hold kBlock positions, the last one repeated.
template <class Body>
void ForBlocks(const TurnedRun& run, int begin, int end, Body&& body) {
  double x[kBlock];
  double y[kBlock];
  for (int first = begin; first < end; first += kBlock) {
    const int count = std::min(kBlock, end - first);
    if (count == kBlock) {
      body(run.x + first, run.y + first, first, count);
      continue;
    }
    for (int i = 0; i < kBlock; ++i) {
      x[i] = run.x[std::min(first + i, end - 1)];
      y[i] = run.y[std::min(first + i, end - 1)];
    }
    body(x, y, first, count);
  }
}

}  // namespace

void TurnedPositions(double startX, double startY, double stepX, double stepY, int count, double* x, double* y) {
  double sx = startX;
  double sy = startY;
  for (int i = 0; i < count; ++i) {
    x[i] = sx;
    y[i] = sy;
    sx += stepX;
    sy -= stepY;
  }
}

template <class Taps>
void TurnedWindow(const TurnedRun& run) {
  constexpr int kTaps = Taps::kTaps;
  constexpr auto kIndices = std::make_index_sequence<static_cast<std::size_t>(kTaps)>();
  int begin, end;
  InnerRange(run, Taps::kBefore, kTaps - 1 - Taps::kBefore, &begin, &end);
  Border(run, 0, begin, SampleWindow<Taps>);
  Block<kTaps> block;
  float samples[kBlock];
  ForBlocks(run, begin, end, [&](const double* x, const double* y, int first, int count) {
    FillBlock<Taps>(x, y, run.planes[0].stride, &block);
    for (int p = 0; p < run.planeCount; ++p) {
      BlockSamples<kTaps>(run.planes[p], block, samples, kIndices);
      std::copy_n(samples, count, run.out[p] + first);
    }
  });
  Border(run, end, run.count, SampleWindow<Taps>);
}

template void TurnedWindow<BicubicTaps>(const TurnedRun&);
template void TurnedWindow<Lanczos2Taps>(const TurnedRun&);
template void TurnedWindow<Lanczos3Taps>(const TurnedRun&);

void TurnedBilinear(const TurnedRun& run) {
  int begin, end;
  InnerRange(run, 0, 1, &begin, &end);
  Border(run, 0, begin, SampleBilinear);
  const std::ptrdiff_t stride = run.planes[0].stride;
  std::ptrdiff_t upper[kBlock];
  std::ptrdiff_t lower[kBlock];
  double fx[kBlock];
  double fy[kBlock];
  float upperPixels[2][kBlock];
  float lowerPixels[2][kBlock];
  float samples[kBlock];
  ForBlocks(run, begin, end, [&](const double* x, const double* y, int first, int count) {
    for (int i = 0; i < kBlock; ++i) {
      const int ix = static_cast<int>(x[i]);
      const int iy = static_cast<int>(y[i]);
      fx[i] = x[i] - ix;
      fy[i] = y[i] - iy;
      upper[i] = iy * stride + ix;
      lower[i] = fy[i] == 0.0 ? upper[i] : upper[i] + stride;
    }
    for (int p = 0; p < run.planeCount; ++p) {
      const float* const pixels = run.planes[p].rows[0];
      GatherColumns<2, kBlock>(pixels, upper, upperPixels[0]);
      GatherColumns<2, kBlock>(pixels, lower, lowerPixels[0]);
#pragma omp simd
      for (int i = 0; i < kBlock; ++i) {
        const double p00 = upperPixels[0][i];
        const double p01 = lowerPixels[0][i];
        const double p10 = fx[i] == 0.0 ? p00 : static_cast<double>(upperPixels[1][i]);
        const double p11 = fx[i] == 0.0 ? p01 : static_cast<double>(lowerPixels[1][i]);
        const double blend = BlendCorners(p00, p10, p01, p11, fx[i], fy[i]);
        samples[i] = static_cast<float>(fx[i] == 0.0 && fy[i] == 0.0 ? p00 : blend);
      }
      std::copy_n(samples, count, run.out[p] + first);
    }
  });
  Border(run, end, run.count, SampleBilinear);
}

void TurnedNearest(const TurnedRun& run) {
  const int right = run.planes[0].width - 1;
  const int bottom = run.planes[0].height - 1;
  int column[kBlock];
  int row[kBlock];
  ForBlocks(run, 0, run.count, [&](const double* x, const double* y, int first, int count) {
#pragma omp simd
    for (int i = 0; i < kBlock; ++i) {
      const int ix = static_cast<int>(x[i] + 0.5);
      const int iy = static_cast<int>(y[i] + 0.5);
      column[i] = ix < right ? ix : right;
      row[i] = iy < bottom ? iy : bottom;
    }
    for (int p = 0; p < run.planeCount; ++p) {
      const float* const* const rows = run.planes[p].rows;
      float* const out = run.out[p] + first;
      for (int i = 0; i < count; ++i) out[i] = rows[row[i]][column[i]];
    }
  });
}

}  // namespace qmr
