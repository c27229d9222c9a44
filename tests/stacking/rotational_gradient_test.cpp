// Rotational gradient: a slow form pixel by pixel, and what the tones leave.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>

#include "qmrimg/geometry/interp.h"
#include "qmrimg/stacking/rttn_grdnt.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

struct Turn {
  double angle, strength, x, y;
};
struct Tones {
  int useLow = 0;
  double low = 0.0, lowWidth = 0.0;
  int useHigh = 0;
  double high = 0.0, highWidth = 0.0;
  int protect = 0;
  double percent = 50.0;
};

// Without tones the short form.
void Filter(CImgRttnGrdnt& image, const Turn& t, const Tones* o, int cross, CVynImage& source, CRect* rect = nullptr) {
  if (!o) return image.Do(t.angle, t.strength, t.x, t.y, &source, rect, 1);
  image.Do(t.angle, t.strength, t.x, t.y, o->useLow, o->low, o->lowWidth, o->useHigh, o->high, o->highWidth, o->protect,
           o->percent, cross, &source, rect, 1);
}

float SlowGradient(const Turn& t, CVynImage& source, int p, int x, int y) {
  const CInterp interp(0, &source, 0);
  const int w = source.GetWidth(), h = source.GetHeight();
  const double alpha = t.angle * 3.141592653589793 / 180.0;
  const double dx = x - t.x, dy = y - t.y;
  const double r = std::sqrt(dx * dx + dy * dy), theta = std::atan2(dx, dy);
  double v = At(source, p, x, y) * (t.strength + 2.0);
  for (const double side : {theta + alpha, theta - alpha}) {
    const double sx = std::sin(side) * r + t.x, sy = std::cos(side) * r + t.y;
    if (!(sx >= 0 && sx < w && sy >= 0 && sy < h)) continue;
    v -= interp.Do(std::min<double>(sx, w - 1), std::min<double>(sy, h - 1), p);
  }
  return static_cast<float>(t.strength != 0 ? v / t.strength : v);
}

float SlowTones(const Tones& t, const CVynImage& image, int p, float o, float v) {
  const auto raw = [&](double level) { return static_cast<float>(image.ToRaw(level, p)); };
  const float lowFull = t.useLow ? raw(t.low) : -FLT_MAX, lowStart = t.useLow ? raw(t.low - t.lowWidth) : -FLT_MAX;
  const float highFull = t.useHigh ? raw(t.high) : FLT_MAX, highEnd = t.useHigh ? raw(t.high + t.highWidth) : FLT_MAX;
  if (t.protect && o > v) v = v + (o - v) * (t.percent < 0 ? static_cast<float>(t.percent / 100) : 1.0f);
  if (o < lowStart || o > highEnd) return o;
  if (lowFull <= o && o <= highFull) return v;
  const float w = o < lowFull ? (o - lowStart) / (lowFull - lowStart) : (highEnd - o) / (highEnd - highFull);
  return v * w + (1 - w) * o;
}

TEST(RotationalGradient, BothFormsOfAwkwardSizes) {
  const Tones tones[] = {{},
                         {1, 100.0, 60.0},
                         {0, 0.0, 0.0, 1, 120.0, 90.0, 1, 30.0},
                         {1, 80.0, 50.0, 1, 150.0, 60.0, 1, -40.0},
                         {1, 120.0, 0.0, 1, 130.0, 0.0},
                         {1, 150.0, 90.0, 1, 90.0, 100.0}};
  enum { kOther, kSmallMono, kInPlace };
  int turn = 0;
  for (const auto& [w, h, planes] :
       {std::tuple{1, 1, 1}, {1, 7, 3}, {7, 1, 1}, {2, 2, 2}, {13, 9, 3}, {70, 50, 1}, {300, 4, 4}}) {
    auto before = Noise<CImgRttnGrdnt>(w, h, planes, 4);
    for (int p = 0; p < planes; ++p) static_cast<CImage&>(before).SetLevel(p, 10.0 * p, 200.0 + 20.0 * p);
    CRect part(w / 3, -4, w + 2, h - h / 4);
    for (const int kind : {kOther, kSmallMono, kInPlace}) {
      const int less = kind == kSmallMono ? 3 : 0;
      CVynImage source = Noise(std::max(w - less, 1), std::max(h - less, 1), less ? 1 : planes, 3);
      if (kind == kInPlace) source = before;
      for (const Turn& t : {Turn{10.0, 2.5, w * 0.5, h * 0.5}, {-33.0, 0.0, -3.2, 4.0}, {90.0, 1.0, 1.0, h - 1.0}}) {
        for (int i = -1; i < 6; ++i) {
          const Tones* const limits = i < 0 ? nullptr : &tones[i];
          const Threads use(turn++ % 8 ? 1 : 3);
          CImgRttnGrdnt image(before);
          Filter(image, t, limits, 0, kind == kInPlace ? image : source, &part);
          const auto expected = [&](int p, int x, int y) {
            if (x < part.left || x >= source.GetWidth() || y >= std::min<int>(part.bottom, source.GetHeight()) ||
                p >= source.GetPlanes())
              return At(before, p, x, y);
            const float v = SlowGradient(t, source, p, x, y);
            return limits ? SlowTones(*limits, before, p, At(source, p, x, y), v) : v;
          };
          EXPECT_TRUE(PixelsAre(expected, image)) << w << " x " << h << " kind " << kind << " tones " << i;
        }
      }
    }
  }
}

TEST(RotationalGradient, PixelsByHand) {
  CVynImage source = Shaped(5, 5, 1);
  Fill(source, [](int, int x, int y) { return static_cast<float>(10 * y + x); });
  auto image = Shaped<CImgRttnGrdnt>(5, 5, 1);
  // Right of the centre by two, turned by 90 degrees: below and above it.
  image.Do(90.0, 2.0, 2.0, 2.0, &source, nullptr, 0);
  EXPECT_FLOAT_EQ(At(image, 0, 4, 2), (24 * 4 - 42 - 2) / 2.0f);
  EXPECT_EQ(At(image, 0, 2, 2), 22.0f);
  // No angle gives the source.
  image.Do(0.0, 0.5, 1.7, 2.2, &source, nullptr, 0);
  EXPECT_NEAR(At(image, 0, 3, 1), 13.0f, 1e-4);
}

TEST(RotationalGradient, CrossReportsAndBadInput) {
  const Threads one(1);
  RecordingWindow window;
  CVynImage source = Noise(10, 8, 3, 2);
  auto before = Noise<CImgRttnGrdnt>(10, 8, 3, 3);
  before.SetProgressHandle(&window);
  CRect part(2, 1, 9, 6);
  const Tones all;
  // Both lines, the column alone, the row alone: in plane 0, from the maximum on even places, the row last.
  for (const auto& [cx, cy] : {std::pair{4.9, 3.0}, {4.0, 6.0}, {9.0, 5.2}, {1.5, 0.9}}) {
    window.events.clear();
    CImgRttnGrdnt plain(before), crossed(before);
    plain.Do(5.0, 1.0, cx, cy, &source, &part, 0);
    Filter(crossed, {5.0, 1.0, cx, cy}, &all, 1, source, &part);
    const auto dotted = [&, cx = cx, cy = cy](int p, int x, int y) {
      const bool row = y == static_cast<int>(cy) && cy < 6.0, column = x == static_cast<int>(cx);
      if (p > 0 || x < 2 || x >= 9 || y < 1 || y >= 6 || !(row || column)) return At(plain, p, x, y);
      return (row ? x : y) % 2 ? 0.0f : 255.0f;
    };
    EXPECT_TRUE(PixelsAre(dotted, crossed));
    EXPECT_EQ(window.events.front().text, L"ローテーショナル・グラディエント処理中...");
    EXPECT_EQ(window.Percents().size(), 15u);
    EXPECT_EQ(window.events.back().code, kProgressEnd);
  }
  window.events.clear();
  before.Do(5.0, 1.0, 4.0, 4.0, nullptr, nullptr, 1);
  EXPECT_TRUE(window.events.empty());
  // Beyond all numbers there is nothing to compare with.
  for (const double bad : {std::numeric_limits<double>::quiet_NaN(), HUGE_VAL, 1e300}) {
    Filter(before, {bad, 1.0, bad, bad}, &all, 1, source);
    EXPECT_TRUE(PixelsAre([&](int p, int x, int y) { return static_cast<float>(At(source, p, x, y) * 3.0); }, before));
  }
}

}  // namespace
}  // namespace qmr::test
