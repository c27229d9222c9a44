// Counting the pixels of rows into bins.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace qmr {

// Values from min to max, both included, fall into `bins` bins of equal width; all others, and not-a-number, into
// none.
struct BinScale {
  BinScale(double low, double high, int count);
  double min;
  double max;
  double perUnit;  // bins / (max - min); 0 when that is empty, so that every counted value falls into bin 0
  int bins;
};

// Brightness on the 256-scale from raw planes, in float up to the weights.
struct BrightScale {
  float min[3];
  float k[3];
};

// A thread's own counts. Few bins are kept several times over: neighbouring pixels often meet in one bin, and an
// increment has to wait for the one before it in the same place.
class BinCounts {
 public:
  // Raises the memory exception.
  explicit BinCounts(int bins);

  void AddRow(std::span<const float> row, const BinScale& scale);
  void AddBrightRow(std::span<const float> r, std::span<const float> g, std::span<const float> b,
                    const BrightScale& bright, const BinScale& scale);
  void Add(float value, const BinScale& scale);
  void AddBright(float r, float g, float b, const BrightScale& bright, const BinScale& scale);
  // Adds the counts of the bins to `hist`.
  void MergeInto(int* hist) const;

 private:
  void Count(const int* places, std::size_t count);

  int bins_;
  int copies_;
  std::size_t stride_;
  std::unique_ptr<std::uint32_t[]> counts_;
};

}  // namespace qmr
