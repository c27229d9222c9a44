#include "qmrimg/restoration/mem_restore.h"

#include <bit>
#include <cmath>
#include <cstddef>

#include "qmrimg/restoration/mem_blur.h"
#include "qmrimg/restoration/mem_solver.h"

namespace {

constexpr int kRefused = 1;
constexpr int kUnusable = 4;
constexpr unsigned kLargest = 1u << 26;  // side of a transform

bool HasLight(const float* psf, int width, int height) {
  double sum = 0.0;
  const std::ptrdiff_t count = static_cast<std::ptrdiff_t>(width) * height;
  for (std::ptrdiff_t i = 0; i < count; ++i) sum += psf[i];
  return std::isfinite(sum) && sum > 0.0;
}

// The blurring operator starts from nothing and leaves nothing behind.
class FreshOperator {
 public:
  FreshOperator() { Reset(); }
  FreshOperator(const FreshOperator&) = delete;
  FreshOperator& operator=(const FreshOperator&) = delete;
  ~FreshOperator() { Reset(); }

 private:
  static void Reset() {
    int mode = -1;
    qmr::MemBlur(nullptr, nullptr, nullptr, nullptr, 0, 0, 0, 0, &mode, nullptr, 0, 0);
  }
};

}  // namespace

int MemRestore(float* input, float* output, int w, int h, float* psf, int psfWidth, int psfHeight, double variance,
               int iterations, CVynImage* progress, int plane) {
  if (!input || !output || !psf || w < 1 || h < 1 || psfWidth < 1 || psfHeight < 1) return kUnusable;
  if (!HasLight(psf, psfWidth, psfHeight)) return kUnusable;
  const unsigned width = std::bit_ceil(static_cast<unsigned>(w)), height = std::bit_ceil(static_cast<unsigned>(h));
  if (width > kLargest || height > kLargest) return kRefused;

  // Half a unit of rms step, one unit of the largest step, a twentieth of rms residual: all in data units on purpose.
  qmr::MemStopLimits stopLimits = {0.5, 1.0, 0.05, static_cast<double>(iterations)};
  qmr::MemProblem problem = {};
  problem.data = input;
  problem.dataWidth = w;
  problem.dataHeight = h;
  problem.w = static_cast<int>(width);
  problem.h = static_cast<int>(height);
  problem.psf = psf;
  problem.psfWidth = psfWidth;
  problem.psfHeight = psfHeight;
  problem.variance = variance;
  problem.blur = qmr::MemBlur;
  problem.progress = progress;
  problem.plane = plane;
  const FreshOperator fresh;
  return qmr::MemSolve(problem, output, stopLimits);
}
