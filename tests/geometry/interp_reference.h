// Sampling written down pixel by pixel, for comparison.
#pragma once

#include <vector>

#include "qmrimg/geometry/interp.h"
#include "tests/support/images.h"

namespace qmr::test {

// The protected state and members of CInterp.
class OpenInterp : public CInterp {
 public:
  using CInterp::CInterp;
  using CInterp::height;
  using CInterp::rowTable;
  using CInterp::shiftType;
  using CInterp::width;
};

// The sample by the formulas with the run-time library's sine; false where the position is refused.
bool ReferenceSample(const CVynImage& image, int method, int plane, double x, double y, float* out);

// What one row is asked for.
struct RowCase {
  int shiftType;
  double xStart;
  double xEnd;
  double y;
  double degrees = 0.0;
};

constexpr float kOutside = -77.0f;

// Samples and flags of one plane, pixel by pixel with `Do`.
struct ReferenceRow {
  std::vector<float> values;
  std::vector<int> valid;
};
ReferenceRow MakeReferenceRow(CVynImage& image, int method, int plane, const RowCase& row, bool median);

// A line between cells of junk that must survive.
template <class Value>
class GuardedLine {
 public:
  explicit GuardedLine(std::size_t size) : cells_(size + 2 * kGuard, static_cast<Value>(kJunk)), size_(size) {}
  Value* data() { return cells_.data() + kGuard; }
  std::vector<Value> values() const { return {cells_.begin() + kGuard, cells_.end() - kGuard}; }
  bool untouched() const { return Only(0, cells_.size()); }
  bool guardsIntact() const { return Only(0, kGuard) && Only(kGuard + size_, cells_.size()); }

 private:
  static constexpr std::size_t kGuard = 16;
  static constexpr int kJunk = 12345;
  bool Only(std::size_t begin, std::size_t end) const {
    for (std::size_t i = begin; i < end; ++i) {
      if (cells_[i] != static_cast<Value>(kJunk)) return false;
    }
    return true;
  }
  std::vector<Value> cells_;
  std::size_t size_;
};

// Equal bits, but for the sign of zero.
testing::AssertionResult SameLine(const std::vector<float>& expected, const std::vector<float>& actual);

}  // namespace qmr::test
