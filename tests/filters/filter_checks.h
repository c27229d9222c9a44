// What holds for every filter that takes one value or one a plane, simply or within limits: each pixel is what a plain
// reference says, whatever the rectangle and the shapes.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <functional>
#include <limits>
#include <ostream>
#include <vector>

#include "tests/filters/operation_rules.h"
#include "tests/filters/separable_reference.h"
#include "tests/support/images.h"

namespace qmr::test {

inline constexpr int kCheckPlanes = 4;

// Arguments of a plane, or of all of them as arrays; `Value` and `Flag` are numbers or arrays of numbers.
template <class Value, class Flag>
struct FilterArguments {
  // Radius or sigma, weight or gain, threshold.
  Value a, b, c;
  Flag minOn;
  Value min, minBuf;
  Flag maxOn;
  Value max, maxBuf;
  Flag brighterOn;
  Value brighter;
};
using PlaneArguments = FilterArguments<double, int>;
using ArrayArguments = FilterArguments<double[kCheckPlanes], int[kCheckPlanes]>;

inline constexpr PlaneArguments kArguments[kCheckPlanes] = {{0.3, 0.5, 0.0, 1, 80, 40, 1, 150, 50, 1, -50},
                                                            {2.0, 0.25, 0.4, 1, 80, 0, 0, 7, 8, 1, 30},
                                                            {4.7, 1.0, -0.9, 0, 9, 9, 1, 150, 0, 0, -9},
                                                            {-1.0, -0.3, 0.1, 1, 80, 40, 1, 150, 50, 0, 5}};

// The pixels of a plane after the filter.
using PixelOf = std::function<float(int x, int y)>;

template <class Filter>
struct FilterCase {
  template <class Run>
  FilterCase(const char* caseName, const wchar_t* text, int count, Run run,
             std::function<PixelOf(CVynImage&, int, const PlaneArguments&)> reference)
      : name(caseName), message(text), planes(count), scalar(run), array(run), pixels(std::move(reference)) {}

  const char* name;
  const wchar_t* message;
  // So many planes are filtered at most.
  int planes;
  std::function<void(Filter&, const PlaneArguments&, CVynImage*, CRect*, int)> scalar;
  std::function<void(Filter&, ArrayArguments&, CVynImage*, CRect*, int)> array;
  std::function<PixelOf(CVynImage&, int, const PlaneArguments&)> pixels;
};

template <class Filter>
void PrintTo(const FilterCase<Filter>& filter, std::ostream* out) {
  *out << filter.name;
}

// Range of levels of the results, on which edge filters depend.
inline double ResultRange(int plane) {
  return 200.0 + plane;
}

template <class Filter>
void ShapeResult(Filter& result, int width, int height, int planes) {
  Shape(result, width, height, planes);
  Fill(result, [](int, int, int) { return -7.0f; });
  for (int p = 0; p < planes; ++p) result.SetLevel(p, 5.0, 5.0 + ResultRange(p));
}

// Noise around all limits and on their ends, zeros, and where there is room values that are no finite numbers.
inline void ShapeSource(CVynImage& source, int width, int height, int planes) {
  Shape(source, width, height, planes);
  Random random(static_cast<std::uint64_t>(width * 100 + height));
  for (int p = 0; p < planes; ++p) source.SetLevel(p, -30.0 * p, 255.0 + 40.0 * p);
  Fill(source, [&](int, int x, int y) {
    if (width == 70 && y == 20 && x == 20) return std::numeric_limits<float>::infinity();
    if (width == 70 && y == 22 && x == 65) return std::numeric_limits<float>::quiet_NaN();
    const float ends[] = {0.0f, 40.0f, 80.0f, 150.0f, 200.0f};
    return random.Integer(0, 4) == 0 ? ends[random.Integer(0, 4)] : static_cast<float>(random.Uniform(-20.0, 250.0));
  });
}

// How strongly the limits let a filter act on a pixel of level `c`; below 0 where they copy it.
inline float Strength(const CVynImage& source, int p, const PlaneArguments& s, float c) {
  const auto raw = [&](double level) {
    return static_cast<float>(level / 255.0 * source.GetLevelRange(p) + source.GetLevelMin(p));
  };
  const float low = s.minOn ? raw(s.min) : -FLT_MAX, bottom = s.minOn ? raw(s.min - s.minBuf) : -FLT_MAX;
  const float high = s.maxOn ? raw(s.max) : FLT_MAX, top = s.maxOn ? raw(s.max + s.maxBuf) : FLT_MAX;
  if (!(c >= bottom && c <= top)) return -1.0f;
  if (c < low) return (c - bottom) / (low - bottom);
  return c > high ? (top - c) / (top - high) : 1.0f;
}

inline float Faded(float c, float f, float strength) {
  return strength < 0.0f ? c : strength == 1.0f ? f : f * strength + (1.0f - strength) * c;
}

// The separable engine's values of a plane.
inline PixelOf Separable(CVynImage& source, int p, const CFilterMatrix& matrix) {
  const std::vector<float> values = SeparableReference(source, p, CentreRow(matrix, true));
  const int width = source.GetWidth();
  return [=](int x, int y) { return values[static_cast<std::size_t>(y * width + x)]; };
}

template <class Filter>
void ExpectPixels(const FilterCase<Filter>& filter) {
  const int sizes[][2] = {{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {70, 50}};
  const CRect rects[] = {CRect(0, 0, 99, 99), CRect(-3, 2, 12, 45), CRect(5, 6, 9, 8), CRect(8, 8, 4, 4)};
  ArrayArguments arrays = {};
  for (int p = 0; p < kCheckPlanes; ++p) {
    const PlaneArguments& s = kArguments[p];
    arrays.a[p] = s.a, arrays.b[p] = s.b, arrays.c[p] = s.c, arrays.min[p] = s.min, arrays.minBuf[p] = s.minBuf;
    arrays.max[p] = s.max, arrays.maxBuf[p] = s.maxBuf, arrays.brighter[p] = s.brighter;
    arrays.minOn[p] = s.minOn, arrays.maxOn[p] = s.maxOn, arrays.brighterOn[p] = s.brighterOn;
  }
  for (const auto& size : sizes) {
    const int width = size[0], height = size[1];
    SCOPED_TRACE(testing::Message() << width << " x " << height);
    CVynImage source, perPlane, alike;
    const int sourcePlanes = width == 13 ? 2 : kCheckPlanes;
    for (CVynImage* image : {&source, &perPlane, &alike}) ShapeSource(*image, width, height, sourcePlanes);
    for (int p = 0; p < sourcePlanes; ++p) {
      const PixelOf array = filter.pixels(source, p, kArguments[p]), scalar = filter.pixels(source, p, kArguments[1]);
      Fill(perPlane, [&](int q, int x, int y) { return q == p ? array(x, y) : At(perPlane, q, x, y); });
      Fill(alike, [&](int q, int x, int y) { return q == p ? scalar(x, y) : At(alike, q, x, y); });
    }
    for (const CRect& rect : rects) {
      // Results of the source's size, larger ones of one plane, and smaller ones.
      for (const int more : {0, 3, -1}) {
        if (width + more < 1 || height + more < 1) continue;
        const int planes = std::min(kCheckPlanes - more, kCheckPlanes);
        for (const bool scalar : {false, true}) {
          Filter result;
          ShapeResult(result, width + more, height + more, planes);
          CVynImage expected(result);
          const CVynImage& reference = scalar ? alike : perPlane;
          Fill(expected, [&](int p, int x, int y) {
            const bool written = x >= rect.left && x < std::min(rect.right, width) && y >= rect.top &&
                                 y < std::min(rect.bottom, height) && p < std::min(sourcePlanes, filter.planes);
            return written ? At(reference, p, x, y) : -7.0f;
          });
          CRect area = rect;
          if (scalar)
            filter.scalar(result, kArguments[1], &source, &area, 0);
          else
            filter.array(result, arrays, &source, &area, 0);
          ASSERT_TRUE(SamePixels(expected, result)) << "from " << rect.left << ", " << rect.top << "; " << more;
        }
      }
    }
  }
}

template <class Filter>
void ExpectRules(const FilterCase<Filter>& filter) {
  CVynImage source;
  ShapeSource(source, 70, 37, 3);
  ExpectOperationRules<Filter>(source, filter.message, 32 * 3,
                               [&](Filter& result, CVynImage* from, CRect* rect, int b) {
                                 filter.scalar(result, kArguments[1], from, rect, b);
                                 result.ClearFilterProc();
                               });
}

}  // namespace qmr::test
