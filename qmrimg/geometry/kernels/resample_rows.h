// Rows of the resamplers that read a source at column * step. What depends on the column alone is prepared once.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace qmr {

// ---- Two by two pixels, in float -----------------------------------------------------------------------------------

// A place between two pixels of one axis. At and beyond the last pixel it is seen from the last two.
struct LinearPlace {
  int first;
  int second;
  float fraction;
};

// Columns always take two pixels, rows one where the place is exact.
class LinearColumns {
 public:
  // Positions column * step within a source of `sourceWidth` columns.
  LinearColumns(int sourceWidth, float step, int width);
  // to[i] from the pixels of two rows, `fy` of the way from the upper to the lower one.
  void Row(const float* upper, const float* lower, float fy, std::span<float> to) const;

 private:
  bool single_;  // the source has one column
  std::vector<std::ptrdiff_t> first_;
  std::vector<float> fraction_;
};

LinearPlace LinearRowPlace(int sourceHeight, float y);

// ---- Four by four pixels, in double -------------------------------------------------------------------------------

inline constexpr int kCubicTaps = 4;

// The index that a place beyond the edge reads: 0 behind the last pixel, on purpose; before the first its mirror image.
int CubicIndex(int index, int size);

struct CubicPlace {
  int first;  // of four in a row; may lie outside
  std::array<double, kCubicTaps> weights;
};
CubicPlace CubicPlaceOf(double position);

// The rows that one output row of a plane reads, and where it goes.
struct CubicLine {
  std::array<const float*, kCubicTaps> rows;
  float* to;
};

inline constexpr int kCubicLines = 3;

class CubicColumns {
 public:
  CubicColumns(int sourceWidth, double step, int width);
  // `lines` has an entry a plane, at most kCubicLines; they share the weights.
  void Row(std::span<const CubicLine> lines, const std::array<double, kCubicTaps>& rowWeights) const;

 private:
  template <int count>
  void WholeWindows(std::span<const CubicLine> lines, const std::array<double, kCubicTaps>& rowWeights) const;
  void BorderPixel(std::span<const CubicLine> lines, const std::array<double, kCubicTaps>& rowWeights, int i) const;

  int sourceWidth_;
  int width_;
  int begin_ = 0;  // columns whose four pixels all exist
  int end_ = 0;
  std::vector<std::ptrdiff_t> first_;
  std::array<std::vector<double>, kCubicTaps> weights_;
};

// ---- Sums ----------------------------------------------------------------------------------------------------------

// to[i] += from[i * bin] + ... one after the other up to from[i * bin + bin - 1], in float, as far as `from` reaches.
void AddBinnedRow(std::span<const float> from, int bin, std::span<float> to);

}  // namespace qmr
