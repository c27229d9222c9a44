// The patterns themselves; mean, Laplacian and unsharp mask.
#include "qmrimg/filters/kernels/pattern_rows.h"

#include <algorithm>
#include <cmath>

#include "qmrimg/filters/kernels/pattern_shape.h"

namespace qmr {
namespace {

using namespace pattern;

template <class Shape, std::size_t I>
QMR_INLINE float Neighbour(const float* const* rows, std::ptrdiff_t i, const Steps& steps) {
  constexpr Cell cell = Shape::kNeighbours[I];
  return rows[cell.row][i + steps[cell.column]];
}
template <class Shape>
QMR_INLINE float Centre(const float* const* rows, std::ptrdiff_t i) {
  return rows[Shape::kRadius][i];
}

template <class Shape, std::size_t... I>
QMR_INLINE float SumOf(const float* const* rows, std::ptrdiff_t i, const Steps& steps, std::index_sequence<I...>) {
  return (... + Neighbour<Shape, I>(rows, i, steps));
}

// The mean's two forms from the neighbours' sum in float; all else is double.
template <class Shape>
struct Means {
  QMR_INLINE Means(const float* const* rows, std::ptrdiff_t i, const Steps& steps, double weight)
      : centre(Centre<Shape>(rows, i)) {
    const float sum = SumOf<Shape>(rows, i, steps, NeighbourIndices<Shape>());
    weighted = static_cast<float>((sum * weight + centre) / (weight * kNeighbourCount<Shape> + 1.0));
    plain = (static_cast<double>(sum) + centre) / kPixelCount<Shape>;
  }
  float centre;
  float weighted;
  double plain;
};

QMR_INLINE float Sharpened(double c, double mean, double plainMean, double gain, double threshold) {
  const double sharp = (c - mean) * gain + c;
  return static_cast<float>(std::fabs(plainMean / c - 1.0) >= threshold ? sharp : c);
}

template <class Shape>
struct UnsharpPixel {
  QMR_INLINE float operator()(const float* const* rows, std::ptrdiff_t i, const Steps& steps) const {
    const Means<Shape> means(rows, i, steps, weight);
    return Sharpened(means.centre, means.weighted, means.plain, gain, threshold);
  }
  double gain;
  double weight;
  double threshold;
};

template <int Method>
struct LaplacianPixel {
  QMR_INLINE float operator()(const float* const* rows, std::ptrdiff_t i, const Steps& steps) const {
    const double upLeft = rows[0][i + steps[1]], up = rows[0][i], upRight = rows[0][i + steps[3]];
    const double left = rows[1][i + steps[1]], c = rows[1][i], right = rows[1][i + steps[3]];
    const double downLeft = rows[2][i + steps[1]], down = rows[2][i], downRight = rows[2][i + steps[3]];
    double v;
    if constexpr (Method == 0) {
      v = 4.0 * c - left - up - right - down;
    } else if constexpr (Method == 1) {
      v = 8.0 * c - (upLeft + up + upRight + left + right + downLeft + down + downRight);
    } else {
      v = 4.0 * c - 2.0 * (up + left + right + down) + (upLeft + upRight + downLeft + downRight);
    }
    return static_cast<float>(std::fabs(v) + offset);
  }
  double offset;
};

// Without a pattern it is the first of the three rows that shows, the one above the pixel, on purpose.
QMR_INLINE float LaplacianOfNone(float first, double offset) {
  return static_cast<float>(std::fabs(static_cast<double>(first)) + offset);
}

// Calls `work` with the pixel of a method that has one.
template <class Work>
auto WithLaplacian(int method, double offset, Work&& work) {
  switch (method) {
    case 0:
      return work(LaplacianPixel<0>{offset});
    case 1:
      return work(LaplacianPixel<1>{offset});
    default:
      return work(LaplacianPixel<2>{offset});
  }
}

// `pixel(rows, i, steps)` for pixels whose pattern lies inside the image.
template <class Pixel>
QMR_INLINE void InsidePixels(const float* const* rows, int radius, int count, float* to, const Pixel& pixel) {
  const RowsAt here(rows, radius, 0);
#pragma omp simd
  for (int i = 0; i < count; ++i) to[i] = pixel(here.at, i, kInside);
}

// A pixel that is the same function inside the image and at its edges.
template <class Pixel>
void PixelsAlongRow(const PatternRow& row, int radius, const Pixel& pixel) {
  AlongRow(
      row, radius, [&](int x) { return pixel(row.rows, x, Place(x, row.width).steps); },
      [&](const float* const* rows, int, int count, float* to) { InsidePixels(rows, radius, count, to, pixel); });
}

}  // namespace

Pattern PatternOf(int method) {
  switch (method) {
    case 0:
      return Pattern::kPlus;
    case 1:
      return Pattern::kSquare;
    case 2:
      return Pattern::kDisc;
    default:
      return Pattern::kPoint;
  }
}

int PatternRadius(Pattern pattern) {
  if (pattern == Pattern::kPoint) return 0;
  return WithShape(pattern, [](auto shape) { return decltype(shape)::kRadius; });
}

int PatternCount(Pattern pattern) {
  if (pattern == Pattern::kPoint) return 1;
  return WithShape(pattern, [](auto shape) { return kPixelCount<decltype(shape)>; });
}

int MirrorIndex(std::int64_t index, int size) {
  if (index < 0) index = -index;
  if (index >= size) index = 2 * static_cast<std::int64_t>(size) - index - 1;
  return static_cast<int>(std::clamp<std::int64_t>(index, 0, std::max(size, 1) - 1));
}

float PatternMean(const float* const* rows, int x, int width, Pattern pattern, double weight, double* plainMean) {
  const Place place(x, width);
  if (pattern == Pattern::kPoint) return rows[0][place.at];
  return WithShape(pattern, [&](auto shape) {
    const Means<decltype(shape)> means(rows, place.at, place.steps, weight);
    if (plainMean) *plainMean = means.plain;
    return means.weighted;
  });
}

float PatternLaplacian(const float* const* rows, int x, int width, int method, double offset) {
  const Place place(x, width);
  if (PatternOf(method) == Pattern::kPoint) return LaplacianOfNone(rows[0][place.at], offset);
  return WithLaplacian(method, offset, [&](const auto& pixel) { return pixel(rows, place.at, place.steps); });
}

void LaplacianRow(const PatternRow& row, int method, double offset) {
  if (PatternOf(method) != Pattern::kPoint)
    return WithLaplacian(method, offset, [&](const auto& pixel) { PixelsAlongRow(row, 1, pixel); });
  const float* const above = row.rows[0] + row.left;
  float* const to = row.to;
  const int count = row.right - row.left;
#pragma omp simd
  for (int i = 0; i < count; ++i) to[i] = LaplacianOfNone(above[i], offset);
}

void UnsharpRow(const PatternRow& row, Pattern pattern, const UnsharpSettings& settings) {
  if (pattern != Pattern::kPoint) {
    WithShape(pattern, [&](auto shape) {
      const UnsharpPixel<decltype(shape)> pixel{settings.gain, settings.weight, settings.threshold};
      PixelsAlongRow(row, decltype(shape)::kRadius, pixel);
    });
    return;
  }
  for (int x = row.left; x < row.right; ++x) {
    // The pixel alone has no plain mean; it reads as 0.
    const float c = row.rows[0][x];
    row.to[x - row.left] = Sharpened(c, c, 0.0, settings.gain, settings.threshold);
  }
}

}  // namespace qmr
