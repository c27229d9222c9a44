#include "qmrimg/filters/kernels/contour_rows.h"

#include <limits>

#include "qmrimg/image/pixel_math.h"
#include "qmrimg/platform/truncate.h"

namespace qmr {
namespace {

// Exactly beyond the ends of int.
constexpr float kBeyondInt = 2147483648.0f;

inline int Step(float gray, const ContourScale& scale) {
  float v = gray * scale.factor;
  if (scale.clamped) {
    v = v > scale.levels ? scale.levels : v;
    v = v < 0.0f ? 0.0f : v;
  }
  // As TruncateToInt, with selects in the place of branches.
  const float safe = ((v > -kBeyondInt) & (v < kBeyondInt)) ? v : 0.0f;
  const int step = static_cast<int>(safe);
  const int upper = v >= kBeyondInt ? std::numeric_limits<int>::max() : step;
  return v <= -kBeyondInt ? std::numeric_limits<int>::min() : upper;
}

}  // namespace

void ContourLevels(const float* gray, std::size_t width, const RowLevels& levels, const ContourScale& scale,
                   int* steps) {
  const RowLevels l = levels;
  const ContourScale s = scale;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) steps[x] = Step(static_cast<float>(To256(gray[x], l.min, l.range)), s);
}

void ContourLevels(const float* r, const float* g, const float* b, std::size_t width, const RowLevels (&levels)[3],
                   const ContourScale& scale, int* steps) {
  const RowLevels l0 = levels[0], l1 = levels[1], l2 = levels[2];
  const ContourScale s = scale;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float r256 = static_cast<float>(To256(r[x], l0.min, l0.range));
    const float g256 = static_cast<float>(To256(g[x], l1.min, l1.range));
    const float b256 = static_cast<float>(To256(b[x], l2.min, l2.range));
    steps[x] = Step(static_cast<float>(Bright(r256, g256, b256)), s);
  }
}

int ContourCellsBefore(int position) {
  // The steps are added one by one, on purpose: whether the third sample still falls short of the pixel is up to the
  // rounding of these sums.
  double sample = position - 0.666666;
  sample += 0.333333;
  sample += 0.333333;
  return TruncateToInt(sample) < position ? 2 : 1;
}

// Samples 0 and 1 of an axis lie in the pixel before, sample 3 in the pixel itself, and sample 2 in one or the other.
// So the nine cells know four levels only, and most of them compare a level with itself:
//
//   p q     p, q: row y - 1;  r, s: row y;  p, r: column x - 1;  q, s: column x
//   r s
//
// A cell across the columns within one row has the same pair four times, one across the rows within a column has it
// twice, and the one in the middle compares each pair but those two. At the first row or column both are one pixel,
// and the counts come out right of themselves.
void ContourRow(const int* above, const int* here, const int* before, int rowsBefore, std::size_t width, float* score) {
  const int upper = 4 * rowsBefore;
  const int lower = 4 * (2 - rowsBefore);
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const std::ptrdiff_t i = static_cast<std::ptrdiff_t>(x);
    const int p = above[i - 1];
    const int q = above[i];
    const int r = here[i - 1];
    const int s = here[i];
    const int left = 2 * before[i];
    const int right = 4 - left;
    int count = (p != s ? 1 : 0) + (q != r ? 1 : 0);
    count += p != q ? upper + 1 : 0;
    count += r != s ? lower + 1 : 0;
    count += p != r ? left : 0;
    count += q != s ? right : 0;
    score[i] = static_cast<float>(count * 255) * 0.11111111f;
  }
}

void ContourToPlane(const float* score, float* out, std::size_t width, const RowLevels& levels) {
  const double scale = levels.range / 255.0;
  const double min = levels.min;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) out[x] = static_cast<float>(score[x] * scale + min);
}

}  // namespace qmr
