#include "tests/geometry/interp_reference.h"

#include <algorithm>
#include <cmath>

namespace qmr::test {
namespace {

constexpr double kPi = 3.141592653589793;

double Cubic(double t) {
  const double u = std::fabs(t);
  if (u <= 1.0) return 1.0 - 2.5 * u * u + 1.5 * u * u * u;
  if (u <= 2.0) return -0.5 * (u * u * u - 5.0 * u * u + 8.0 * u - 4.0);
  return 0.0;
}

double Lanczos(double t, double n) {
  const double u = std::fabs(t);
  if (u == 0.0) return 1.0;
  if (u > n) return 0.0;
  const double p = u * kPi;
  return std::sin(p / n) * std::sin(p) * n / (p * p);
}

}  // namespace

bool ReferenceSample(const CVynImage& image, int method, int plane, double x, double y, float* out) {
  const int width = image.GetWidth();
  const int height = image.GetHeight();
  const auto pixel = [&](int cx, int cy) {
    return At(image, plane, std::clamp(cx, 0, width - 1), std::clamp(cy, 0, height - 1));
  };
  if (method == 4) {
    *out = pixel(static_cast<int>(x + 0.5), static_cast<int>(y + 0.5));
    return true;
  }
  if (x < 0 || x > width || y < 0 || y > height || method > 4) return false;
  const int ix = static_cast<int>(x);
  const int iy = static_cast<int>(y);
  const double fx = x - ix;
  const double fy = y - iy;
  if (method == 0) {
    const float p00 = pixel(ix, iy);
    const float p10 = fx == 0 ? p00 : pixel(ix + 1, iy);
    const float p01 = fy == 0 ? p00 : pixel(ix, iy + 1);
    const float p11 = pixel(fx == 0 ? ix : ix + 1, fy == 0 ? iy : iy + 1);
    *out = fx == 0 && fy == 0 ? p00
                              : static_cast<float>(p00 * (1 - fx) * (1 - fy) + p10 * (fx - fx * fy) +
                                                   p01 * (fy - fx * fy) + p11 * fx * fy);
    return true;
  }
  const int taps = method == 3 ? 6 : 4;
  const int before = taps / 2 - 1;
  const auto kernel = [&](double t) { return method == 1 ? Cubic(t) : Lanczos(t, taps / 2); };
  double sum = 0.0;
  for (int r = 0; r < taps; ++r) {
    double rowSum = 0.0;
    for (int c = 0; c < taps; ++c) rowSum += pixel(ix - before + c, iy - before + r) * kernel(fx + before - c);
    sum += kernel(fy + before - r) * rowSum;
  }
  *out = static_cast<float>(sum);
  return true;
}

ReferenceRow MakeReferenceRow(CVynImage& image, int method, int plane, const RowCase& row, bool median) {
  const int width = image.GetWidth();
  const int height = image.GetHeight();
  const CInterp sampler(method, &image, 0);
  const int first = static_cast<int>(std::floor(row.xStart));
  const int last = static_cast<int>(std::floor(row.xEnd)) - (median ? 0 : 1);
  const std::size_t count = static_cast<std::size_t>(std::max(last - first + 1, 0));
  ReferenceRow line = {std::vector<float>(count, kOutside), std::vector<int>(count, 0)};
  const auto set = [&](int column, float value) {
    line.values[static_cast<std::size_t>(column - first)] = value;
    line.valid[static_cast<std::size_t>(column - first)] = 1;
  };
  const double fraction = row.xStart - std::floor(row.xStart);
  if (row.shiftType == 0) {
    const int y = static_cast<int>(row.y);
    for (int c = std::max(first, 0); c <= last && c < width && y >= 0 && y < height; ++c)
      set(c, At(image, plane, c, y));
  } else if (row.shiftType == 1) {
    if (row.y < 0 || (median ? row.y >= height : row.y > height - 1)) return line;
    double x = first < 0 ? fraction : row.xStart;
    for (int c = std::max(first, 0); c <= last && c < width; ++c, x += 1.0)
      set(c, sampler.Do(median ? c + fraction : x, row.y, plane));
  } else {
    const double angle = row.degrees * kPi / 180.0;
    const double sine = std::sin(angle);
    const double cosine = std::cos(angle);
    const double dx = row.xStart - width * 0.5;
    const double dy = height * 0.5 - row.y;
    double sx = cosine * dx - sine * dy + width * 0.5;
    double sy = height * 0.5 - (sine * dx + cosine * dy);
    for (int c = first; c <= last; ++c) {
      const bool inside = median ? sx >= 0 && sx < width && sy >= 0 && sy < height
                                 : sx >= 0 && sx <= width - 1 && sy >= 0 && sy <= height - 1;
      if (inside) set(c, sampler.Do(sx, sy, plane));
      sx += cosine;
      sy -= sine;
    }
  }
  return line;
}

testing::AssertionResult SameLine(const std::vector<float>& expected, const std::vector<float>& actual) {
  if (expected.size() != actual.size())
    return testing::AssertionFailure() << expected.size() << " and " << actual.size() << " columns";
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (!(expected[i] == actual[i]))
      return testing::AssertionFailure() << "column " << i << ": expected " << expected[i] << ", got " << actual[i];
  }
  return testing::AssertionSuccess();
}

}  // namespace qmr::test
