#include "qmrimg/levels/level_samples.h"

#include <cmath>

#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {

LevelSamples::LevelSamples(const CVynImage& image, Sampling sampling, int plane)
    // Without three planes there is no luminance: plane 0 stands for it.
    : image_(image),
      sampling_(HasRgb(image) ? sampling : Sampling::kPlane),
      plane_(sampling == Sampling::kPlane ? plane : 0) {
  for (int p = 0; p < 3; ++p) levels_[p] = {image.GetLevelMin(p), image.GetLevelRange(p)};
}

template <class AddPiece>
SampleSums LevelSamples::Fold(const Area& area, AddPiece&& add) const {
  return FoldRows(
      area.top, area.bottom, SampleSums{},
      [&](int y) {
        SampleSums row;
        ForRow(y, area.left, area.right, [&](std::size_t, std::span<const float> piece) { add(piece, row); });
        return row;
      },
      [](const SampleSums& a, const SampleSums& b) {
        return SampleSums{a.sum + b.sum, a.count + b.count};
      });
}

SampleSums LevelSamples::Sum(const Area& area) const {
  return Fold(area, [](std::span<const float> piece, SampleSums& sums) { AddSamples(piece, sums); });
}

SampleSums LevelSamples::SumSquares(const Area& area, double centre) const {
  return Fold(area, [&](std::span<const float> piece, SampleSums& sums) { AddSquares(piece, centre, sums); });
}

SampleSums LevelSamples::SumRange(const Area& area, float low, float high) const {
  return Fold(area, [&](std::span<const float> piece, SampleSums& sums) { AddSamplesInRange(piece, low, high, sums); });
}

SampleSums LevelSamples::SumSquaresRange(const Area& area, float low, float high, double centre) const {
  return Fold(
      area, [&](std::span<const float> piece, SampleSums& sums) { AddSquaresInRange(piece, low, high, centre, sums); });
}

LevelSpan SpanOf(const CVynImage& image, Sampling sampling, int plane, const Area& area) {
  const bool luminance = sampling != Sampling::kPlane && HasRgb(image);
  RowLevels levels[3];
  for (int p = 0; p < 3; ++p) levels[p] = {image.GetLevelMin(p), image.GetLevelRange(p)};
  const SampleExtremes found = FoldRows(
      area.top, area.bottom, SampleExtremes{},
      [&](int y) {
        SampleExtremes row;
        const auto read = [&](int p) { return ReadRow(image, y, p, area.left, area.right); };
        if (luminance)
          TakeLuminanceExtremes(read(0), read(1), read(2), levels, row);
        else
          TakeExtremes(read(sampling == Sampling::kPlane ? plane : 0), row);
        return row;
      },
      [](const SampleExtremes& a, const SampleExtremes& b) {
        return SampleExtremes{std::min(a.min, b.min), std::max(a.max, b.max)};
      });
  if (!(found.min <= found.max)) return {0.0, 0.0};
  if (!luminance) return {found.min, found.max};
  const auto raw = [&](double v) { return static_cast<double>(static_cast<float>(image.ToRaw(v, 0))); };
  return {raw(found.min), raw(found.max)};
}

LevelSpan SpanOfPlane(const CVynImage& image, int plane) {
  return SpanOf(image, Sampling::kPlane, plane, Area(image, nullptr));
}

double MeanOf(const LevelSamples& samples, const Area& area) {
  const SampleSums sums = samples.Sum(area);
  return sums.sum / static_cast<double>(sums.count);
}

double DeviationOf(const LevelSamples& samples, const Area& area, double centre) {
  const SampleSums sums = samples.SumSquares(area, centre);
  return std::sqrt(sums.sum / static_cast<double>(sums.count));
}

}  // namespace qmr
