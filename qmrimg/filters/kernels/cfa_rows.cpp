#include "qmrimg/filters/kernels/cfa_rows.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qmr {
namespace {

// The largest float that is not above `value`; not-a-number, which no distance reaches, when the test is off.
float FloatLimit(bool on, double value) {
  if (!on || std::isnan(value)) return std::numeric_limits<float>::quiet_NaN();
  const float nearest = static_cast<float>(value);
  return nearest > value ? std::nextafter(nearest, -std::numeric_limits<float>::infinity()) : nearest;
}

double Distance(float neighbour, float pixel) {
  return std::fabs(static_cast<double>(neighbour / pixel) - 1.0);
}

}  // namespace

void CopyCfaRow(const CfaWindow& window, int left, int right, const CfaColumns& columns, float* out) {
  const float* const from = window.rows[2];
  const bool even = columns.points[0] != nullptr;
  const bool odd = columns.points[1] != nullptr;
  if (even && odd) {
    std::copy(from + left, from + right, out);
  } else if (even || odd) {
    for (int x = left + ((left & 1) == (odd ? 1 : 0) ? 0 : 1); x < right; x += 2) out[x - left] = from[x];
  }
}

void MarkCfaRow(const CfaWindow& window, int left, int right, const CfaColumns& columns, const CfaLimits& limits,
                std::uint8_t* marks) {
  const CfaPoints* const even = columns.points[0] ? columns.points[0] : columns.points[1];
  const CfaPoints* const odd = columns.points[1] ? columns.points[1] : columns.points[0];
  std::fill_n(marks, std::max(right - left, 0), std::uint8_t{0});
  if (!even) return;
  // Neighbours of the outer columns may be clamped ones: they are all left to the judge.
  const int first = std::clamp(2, left, std::max(left, right));
  const int last = std::clamp(window.width - 2, first, std::max(first, right));
  const int active[2] = {columns.points[0] != nullptr, columns.points[1] != nullptr};
  for (int x = left; x < first; ++x) marks[x - left] = static_cast<std::uint8_t>(active[x & 1]);
  for (int x = last; x < right; ++x) marks[x - left] = static_cast<std::uint8_t>(active[x & 1]);

  if (first == last) return;
  const float* e[4];
  const float* o[4];
  for (int k = 0; k < 4; ++k) {
    e[k] = window.rows[even->dy[k] + 2] + (first + even->dx[k]);
    o[k] = window.rows[odd->dy[k] + 2] + (first + odd->dx[k]);
  }
  const float* const e0 = e[0];
  const float* const e1 = e[1];
  const float* const e2 = e[2];
  const float* const e3 = e[3];
  const float* const o0 = o[0];
  const float* const o1 = o[1];
  const float* const o2 = o[2];
  const float* const o3 = o[3];
  const float* const pixels = window.rows[2] + first;
  std::uint8_t* const to = marks + (first - left);
  const float cool = FloatLimit(limits.coolOn, limits.cool);
  const float hot = FloatLimit(limits.hotOn, limits.hot);
  const int evenActive = active[0];
  const int oddActive = active[1];
  const int start = first & 1;
  const int width = last - first;
#pragma omp simd
  for (int i = 0; i < width; ++i) {
    const bool isOdd = ((i + start) & 1) != 0;
    // Both are loaded, so that there is nothing to branch for.
    const float ea = e0[i], eb = e1[i], ec = e2[i], ed = e3[i];
    const float oa = o0[i], ob = o1[i], oc = o2[i], od = o3[i];
    const float a = isOdd ? oa : ea;
    const float b = isOdd ? ob : eb;
    const float c = isOdd ? oc : ec;
    const float d = isOdd ? od : ed;
    const float lowAb = a < b ? a : b;
    const float lowCd = c < d ? c : d;
    const float low = lowAb < lowCd ? lowAb : lowCd;
    const float highAb = a > b ? a : b;
    const float highCd = c > d ? c : d;
    const float high = highAb > highCd ? highAb : highCd;
    const float pixel = pixels[i];
    const bool below = pixel < low;
    const bool above = pixel > high;
    // Rounding is monotone, so that a distance in float is at least the rounded limit whenever the exact one is above
    // the limit. A neighbour that is not a number makes the sum one, too.
    const float distance = std::fabs((below ? low : high) / pixel - 1.0f);
    const float sum = (a + b) + (c + d);
    const bool maybe = ((below | above) & (distance >= (below ? cool : hot))) | (sum != sum);
    to[i] = static_cast<std::uint8_t>(static_cast<int>(maybe) & (isOdd ? oddActive : evenActive));
  }
}

CfaFinding JudgeCfaPixel(const CfaWindow& window, int x, const CfaPoints& points, const CfaLimits& limits) {
  float sorted[4];
  for (int k = 0; k < 4; ++k)
    sorted[k] = window.rows[points.dy[k] + 2][std::clamp(x + points.dx[k], 0, window.width - 1)];
  std::sort(sorted, sorted + 4, [](float a, float b) { return a < b || (std::isnan(b) && !std::isnan(a)); });
  const float low = sorted[0];
  const float high = sorted[3];
  const float pixel = window.rows[2][x];
  if (limits.coolOn && low > pixel && Distance(low, pixel) > limits.cool) return {CfaVerdict::kCool, low};
  if (limits.hotOn && pixel > high && Distance(high, pixel) > limits.hot) return {CfaVerdict::kHot, high};
  return {CfaVerdict::kKeep, pixel};
}

bool CompareCfaRings(const float* const (&rows)[5], const int (&columns)[5], bool bayer, bool hot, double threshold) {
  float nearSum = 0.0f;
  float farSum = 0.0f;
  // Row by row, which is the order of the sums. Honeycomb frames have samples on one colour of the chessboard only:
  // corners of the near ring, every second point of the far one.
  for (int dy = -2; dy <= 2; ++dy) {
    for (int dx = -2; dx <= 2; ++dx) {
      const bool isFar = dx == -2 || dx == 2 || dy == -2 || dy == 2;
      const bool corner = dx != 0 && dy != 0;
      const bool even = dx % 2 == 0 && dy % 2 == 0;
      if ((dx == 0 && dy == 0) || (!bayer && !(isFar ? even : corner))) continue;
      (isFar ? farSum : nearSum) += rows[dy + 2][columns[dx + 2]];
    }
  }
  const float nearMean = nearSum * (bayer ? 0.125f : 0.25f);
  const float farMean = farSum * (bayer ? 0.0625f : 0.125f);
  const double distance = Distance(nearMean, farMean);
  return hot ? !(distance > 1.0 - threshold) : distance > threshold;
}

}  // namespace qmr
