// Rows of the point operations. Source and destination of a row may be the same.
#pragma once

#include <cstddef>
#include <span>

namespace qmr {

// How a row is stored. Streaming stores bypass the cache and are aligned by `column`, the column of the row's first
// pixel; the values are the same.
enum class Stores { kPlain, kStreaming };

// Every bit as it is.
void CopyRow(std::span<const float> src, std::span<float> dst, int column, Stores stores);

// Brightness and contrast of a plane. Level and average are on the raw and the 256-scale; toScale is 255 / range,
// fromScale range / 255, contrastFactor contrast / 256.
struct BrightLevels {
  float levelMin;
  float toScale;
  float fromScale;
  float average;
  float contrastFactor;
  float brightness;
};
float BrightPixel(float value, const BrightLevels& levels);
void BrightRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, const BrightLevels& levels);

// Arithmetic with a constant, in float.
void AddValueRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, float value);
void SubtractValueRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, float value);
// Differences below 0 become 0; not-a-number stays.
void SubtractValueClampedRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, float value);
void MultiplyRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, float value);
// With plain stores only: the vector routine multiplies by the reciprocal.
void DivideRow(std::span<const float> src, std::span<float> dst, float value);

// Values up to `low` become lowValue, others from `high` on highValue; not-a-number stays.
struct CutOffLimits {
  float low;
  float high;
  float lowValue;
  float highValue;
};
void CutOffRow(std::span<const float> src, std::span<float> dst, int column, Stores stores, const CutOffLimits& limits);

// Sums of a plane in the order of its pixels.
struct PlaneMoments {
  double sum = 0.0;
  double squares = 0.0;
};
// Takes in one row of each of 1 to 3 planes. The sums are chains of dependent additions: those of three planes side by
// side take the time of one.
void AddMoments(const float* const* rows, int planes, std::size_t width, PlaneMoments* moments);

// In double, stored as float: value + delta; (value - centre) * scale + centre; the second of the first.
void ShiftRow(std::span<const float> src, std::span<float> dst, double delta);
void SpreadRow(std::span<const float> src, std::span<float> dst, double centre, double scale);
void ShiftAndSpreadRow(std::span<const float> src, std::span<float> dst, double delta, double centre, double scale);

}  // namespace qmr
