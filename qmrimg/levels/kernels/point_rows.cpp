#include "qmrimg/levels/kernels/point_rows.h"

#include <algorithm>

#include "qmrimg/image/kernels/streaming.h"

namespace qmr {
namespace {

template <class Formula>
void PlainRow(std::span<const float> src, std::span<float> dst, Formula formula) {
  const float* const from = src.data();
  float* const to = dst.data();
  const std::size_t width = src.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) to[x] = formula(from[x]);
}

// `formula` takes a float or a vector of floats, so that both kinds of stores share it.
template <class Formula>
void MapRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, Formula formula) {
  if (stores == Stores::kStreaming)
    StreamRow(src, dst, column, formula);
  else
    PlainRow(src, dst, formula);
}

template <class Vector>
Vector Bright(Vector v, const BrightLevels& l) {
  const Vector t = (v - Splat<Vector>(l.levelMin)) * Splat<Vector>(l.toScale);
  return ((t - Splat<Vector>(l.average)) * Splat<Vector>(l.contrastFactor) + Splat<Vector>(l.brightness) + t) *
             Splat<Vector>(l.fromScale) +
         Splat<Vector>(l.levelMin);
}

template <int Planes>
void AddSums(const float* const* rows, std::size_t width, PlaneMoments* moments) {
  const float* row[Planes];
  double sum[Planes];
  double squares[Planes];
  for (int p = 0; p < Planes; ++p) {
    row[p] = rows[p];
    sum[p] = moments[p].sum;
    squares[p] = moments[p].squares;
  }
  for (std::size_t x = 0; x < width; ++x) {
    for (int p = 0; p < Planes; ++p) {
      const double v = row[p][x];
      sum[p] += v;
      squares[p] += v * v;
    }
  }
  for (int p = 0; p < Planes; ++p) {
    moments[p].sum = sum[p];
    moments[p].squares = squares[p];
  }
}

}  // namespace

void CopyRow(std::span<const float> src, std::span<float> dst, int column, Stores stores) {
  if (src.data() == dst.data()) return;
  if (stores == Stores::kStreaming)
    StreamRow(src, dst, column, [](auto v) { return v; });
  else
    std::copy(src.begin(), src.end(), dst.begin());
}

float BrightPixel(float value, const BrightLevels& levels) {
  return Bright(value, levels);
}

void BrightRow(std::span<const float> src, std::span<float> dst, int column, Stores stores,
               const BrightLevels& levels) {
  const BrightLevels l = levels;
  MapRow(src, dst, column, stores, [l](auto v) { return Bright(v, l); });
}

void AddValueRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, float value) {
  MapRow(src, dst, column, stores, [value](auto v) { return v + Splat<decltype(v)>(value); });
}

void SubtractValueRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, float value) {
  MapRow(src, dst, column, stores, [value](auto v) { return v - Splat<decltype(v)>(value); });
}

void SubtractValueClampedRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, float value) {
  MapRow(src, dst, column, stores, [value](auto v) {
    using Vector = decltype(v);
    return Max(Splat<Vector>(0.0f), v - Splat<Vector>(value));
  });
}

void MultiplyRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, float value) {
  MapRow(src, dst, column, stores, [value](auto v) { return v * Splat<decltype(v)>(value); });
}

void DivideRow(std::span<const float> src, std::span<float> dst, float value) {
  PlainRow(src, dst, [value](float v) { return v / value; });
}

void CutOffRow(std::span<const float> src, std::span<float> dst, int column, Stores stores,
               const CutOffLimits& limits) {
  const CutOffLimits l = limits;
  MapRow(src, dst, column, stores, [l](auto v) {
    using Vector = decltype(v);
    return Select(v <= Splat<Vector>(l.low), Splat<Vector>(l.lowValue),
                  Select(v >= Splat<Vector>(l.high), Splat<Vector>(l.highValue), v));
  });
}

void AddMoments(const float* const* rows, int planes, std::size_t width, PlaneMoments* moments) {
  if (planes == 1)
    AddSums<1>(rows, width, moments);
  else if (planes == 2)
    AddSums<2>(rows, width, moments);
  else if (planes == 3)
    AddSums<3>(rows, width, moments);
}

void ShiftRow(std::span<const float> src, std::span<float> dst, double delta) {
  PlainRow(src, dst, [delta](float v) { return static_cast<float>(v + delta); });
}

void SpreadRow(std::span<const float> src, std::span<float> dst, double centre, double scale) {
  PlainRow(src, dst, [centre, scale](float v) { return static_cast<float>((v - centre) * scale + centre); });
}

void ShiftAndSpreadRow(std::span<const float> src, std::span<float> dst, double delta, double centre, double scale) {
  PlainRow(src, dst, [delta, centre, scale](float v) {
    const float shifted = static_cast<float>(v + delta);
    return static_cast<float>((shifted - centre) * scale + centre);
  });
}

}  // namespace qmr
