// One row of a stack of frames: median, clipped mean, maximum, minimum and mean of the valid values of each pixel.
#pragma once

#include <cstdint>
#include <vector>

#include "qmrimg/image/kernels/sort_network.h"
#include "qmrimg/platform/export.h"

namespace qmr {

enum class StackMethod { kMedian, kClippedMean, kMaximum, kMinimum, kMean };

struct StackRule {
  StackMethod method = StackMethod::kMedian;
  // The clipped mean keeps values within kappa standard deviations (population form) of the median.
  double kappa = 0.0;
  // Zero: a rejected value counts as the median. Otherwise it does not count.
  bool dropRejected = false;
  // The clipped mean of exactly two values is their mean for kappa >= 1.0 and 0.0 below. The rule of normalised
  // stacks, on purpose; hosts depend on it.
  bool pairRule = false;
};

// A frame's value v becomes (v - offset) * gain + base, in double.
struct StackLevels {
  double offset;
  double gain;
  double base;
};

// What the rows of one stack share: sorting networks and buffers. One object a worker; it never changes results.
class QMR_API StackPlan {
 public:
  // Stacks of more frames sort pixel by pixel.
  static constexpr int kMaxNetwork = 64;

  StackPlan(const StackRule& rule, int frames);
  const StackRule& Rule() const { return rule_; }
  int Frames() const { return frames_; }
  const std::vector<Comparator>& Sort() const { return sort_; }
  const std::vector<Comparator>& Median() const { return median_; }
  double* PixelValues() { return pixel_.data(); }

 private:
  StackRule rule_;
  int frames_;
  std::vector<Comparator> sort_;
  std::vector<Comparator> median_;  // the steps that the middle of a full stack needs
  std::vector<double> pixel_;
};

// out[x] from values[f][x] of all frames f whose valid[f][x] is non-zero (`valid` null: all of them); 0.0 where there
// is none, the value where there is one. `levels`, one entry a frame, may be null; it acts on the median and the
// clipped mean. Sums run in double over the sorted values, ascending (the mean: over the frames in their order).
// Not-a-number sorts last. Floats give the results of the same values as doubles.
template <class Value, class Valid>
void StackRow(StackPlan& plan, const Value* const* values, const Valid* const* valid, const StackLevels* levels,
              int width, float* out);

extern template QMR_API void StackRow<double, int>(StackPlan&, const double* const*, const int* const*,
                                                   const StackLevels*, int, float*);
extern template QMR_API void StackRow<float, std::uint8_t>(StackPlan&, const float* const*, const std::uint8_t* const*,
                                                           const StackLevels*, int, float*);

}  // namespace qmr
