// Rows of the filters that tell stars from nebulae. Pixels are on the raw scale; spans of one call have one length
// and share no memory unless said otherwise.
#pragma once

#include <cstddef>
#include <span>

namespace qmr {

// Raw limit of a threshold: the least float that is not below threshold * 256 / 255 * levelRange, so that comparing
// floats with it is comparing them with the double. The factor is on purpose, see CImgFilterSpecial.
float StarLimit(double threshold, double levelRange);

// out[x] = |8 times the pixel minus its eight neighbours| for columns first .. last - 1. `rows` are the row above, the
// row itself and the row below, `width` pixels each, columns beyond them clamped.
void ResponseRow(const float* const* rows, int width, int first, int last, float* out);

// Responses below `limit` become 0.
void DropBelow(std::span<float> responses, float limit);

// Where the response is below `limit`, the pixel and 1; elsewhere a mark, which is 0 and 0.
void KeepBelow(std::span<const float> pixels, std::span<const float> responses, float limit, std::span<float> values,
               std::span<float> keep);

// Columns to the nearest mark (0 in `keep`) of the row.
void MarkDistances(std::span<const float> keep, std::span<int> distances);

// Adds the columns within `reach` of a mark to those that are set.
void SetWithin(std::span<const int> distances, int reach, std::span<int> set);

// out = sum / weight, or the pixel where `unchanged` is set or the weight is 0.
void WeightedMeanRow(std::span<const float> pixels, std::span<const int> unchanged, std::span<const float> sums,
                     std::span<const float> weights, std::span<float> out);

// `same` where the two values are equal, `other` elsewhere. `out` may be one of the rows.
void IndicatorRow(std::span<const float> a, std::span<const float> b, float same, float other, std::span<float> out);

// Absolute values, in place.
void AbsoluteRow(std::span<float> row);

// pixel + star * gain.
void AddStars(std::span<const float> pixels, std::span<const float> stars, float gain, std::span<float> out);
// ground + star * gain.
void StarsAlone(std::span<const float> stars, float gain, float ground, std::span<float> out);
// (star * gain + pixel) * 0.5 + ground.
void BlendStars(std::span<const float> pixels, std::span<const float> stars, float gain, float ground,
                std::span<float> out);

}  // namespace qmr
