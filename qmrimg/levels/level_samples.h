// What the level statistics are taken from: a plane, or the luminance of a colour image.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/levels/kernels/sample_rows.h"

namespace qmr {

enum class Sampling {
  kPlane,
  kLuminance,     // the 256-scale values weighed, carried to raw through the levels of plane 0
  kRawLuminance,  // the raw values weighed
};

// A rectangle clamped to an image.
struct Area {
  Area(const CVynImage& image, const CRect* rect) { image.NormalizeRect(rect, left, top, right, bottom); }
  int Width() const { return std::max(right - left, 0); }
  int Height() const { return std::max(bottom - top, 0); }
  std::int64_t Pixels() const { return static_cast<std::int64_t>(Width()) * Height(); }

  int left, top, right, bottom;
};

// Samples on the raw scale, in float.
class LevelSamples {
 public:
  LevelSamples(const CVynImage& image, Sampling sampling, int plane);

  // Calls `take(first, samples)` with the samples of columns left..right - 1 of a row, a piece after the other;
  // `first` counts the samples of the row before the piece.
  template <class Take>
  void ForRow(int y, int left, int right, Take&& take) const {
    const std::span<const float> r = ReadRow(image_, y, plane_, left, right);
    if (sampling_ == Sampling::kPlane) {
      take(std::size_t{0}, r);
      return;
    }
    const std::span<const float> g = ReadRow(image_, y, 1, left, right);
    const std::span<const float> b = ReadRow(image_, y, 2, left, right);
    constexpr std::size_t kPiece = 1024;
    float piece[kPiece];
    for (std::size_t x = 0; x < r.size(); x += kPiece) {
      const std::size_t count = std::min(kPiece, r.size() - x);
      const std::span<float> out(piece, count);
      if (sampling_ == Sampling::kLuminance)
        GrayRow(r.subspan(x, count), g.subspan(x, count), b.subspan(x, count), out, levels_, levels_[0]);
      else
        RawLuminanceRow(r.subspan(x, count), g.subspan(x, count), b.subspan(x, count), out);
      take(x, std::span<const float>(out));
    }
  }

  SampleSums Sum(const Area& area) const;
  // Sum of squares about `centre`.
  SampleSums SumSquares(const Area& area, double centre) const;
  // The same over the samples from `low` to `high`.
  SampleSums SumRange(const Area& area, float low, float high) const;
  SampleSums SumSquaresRange(const Area& area, float low, float high, double centre) const;

 private:
  template <class AddPiece>
  SampleSums Fold(const Area& area, AddPiece&& add) const;

  const CVynImage& image_;
  Sampling sampling_;
  int plane_;
  RowLevels levels_[3];
};

// The smallest and the largest sample of the area; 0 and 0 when there is none. Those of the luminance are found on
// the 256-scale and then carried to the raw scale, rounded to float.
struct LevelSpan {
  double min;
  double max;
};
LevelSpan SpanOf(const CVynImage& image, Sampling sampling, int plane, const Area& area);
// CImage::GetMinMax on all threads: that of all pixels of a plane.
LevelSpan SpanOfPlane(const CVynImage& image, int plane);

// Mean, and deviation about a centre.
double MeanOf(const LevelSamples& samples, const Area& area);
double DeviationOf(const LevelSamples& samples, const Area& area, double centre);

// The median of CImgAutoLevel::GetMedian, of any image.
float MedianOf(const CVynImage& image, int subsample, Sampling sampling, int plane, const CRect* rect);

}  // namespace qmr
