// Frame mosaics: every mode against a slow form that asks the pixel readers, and the pixels that hosts rely on.
#include "qmrimg/stacking/mosaic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

struct Call {
  int originX = 0, originY = 0;
  double shiftX = 0.0, shiftY = 0.0, angle = 0.0;
  int mode = 0, to256 = 0, average = 0;
  float mask[3] = {100.0f, 101.0f, 99.0f};
  float outside[3] = {33.0f, 1.0f, 2.0f};
};

void Join(CImgMosaic& canvas, CVynImage& base, CVynImage& addition, Call c, CRect* rect = nullptr, int report = 0) {
  canvas.Do(&base, c.originX, c.originY, &addition, c.shiftX, c.shiftY, c.angle, c.mode, c.mask, c.outside, c.to256,
            c.average, rect, report);
}

// A pixel of an image on the canvas.
struct Seen {
  double v[3] = {};
  int outside = 0;
  double Light(int planes) const { return planes == 3 ? 0.299 * v[0] + 0.587 * v[1] + 0.114 * v[2] : v[0]; }
};
Seen Look(const CVynImage& image, int planes, const Call& c, int x, int y, double dx, double dy, double angle) {
  Seen s;
  const double radians = angle * 3.141592653589793 / 180.0, sine = std::sin(radians), cosine = std::cos(radians);
  double& r = s.v[0];
  double &g = s.v[1], &b = s.v[2];
  if (c.to256)
    image.GetPixelRgb256f(x, y, dx, dy, sine, cosine, 1, 1.0, &r, &g, &b, c.outside[0], &s.outside, nullptr, nullptr);
  else
    image.GetPixelRgbRaw(x, y, dx, dy, sine, cosine, 1, 1.0, &r, &g, &b, 0.0, &s.outside, nullptr, nullptr);
  if (planes == 1 && image.GetPlanes() >= 3 && !s.outside) r = static_cast<float>(b * 0.114 + (g * 0.587 + r * 0.299));
  return s;
}

CVynImage Slow(const CVynImage& canvas, const CVynImage& base, const CVynImage& addition, const Call& c, CRect r) {
  CVynImage out(canvas);
  const int planes = canvas.GetPlanes() >= 3 ? 3 : 1;
  const double tolerance = c.to256 ? 1.0 : canvas.GetLevelRange(0) / 256.0;
  for (int y = std::max<int>(r.top, 0); y < std::min<int>(r.bottom, canvas.GetHeight()); ++y) {
    for (int x = std::max<int>(r.left, 0); x < std::min<int>(r.right, canvas.GetWidth()); ++x) {
      const Seen a = Look(base, planes, c, x, y, c.originX, c.originY, 0.0);
      const Seen b = Look(addition, planes, c, x, y, c.originX + c.shiftX, c.originY + c.shiftY, c.angle);
      double off = 0.0;
      for (int p = 0; p < planes; ++p) off += std::fabs((c.to256 ? canvas.To256(c.mask[p], p) : c.mask[p]) - b.v[p]);
      const double lead = a.Light(planes) - b.Light(planes);
      const bool takesB = c.mode == 0 || (c.mode == 1 && !(off < tolerance)) || (c.mode == 2 && !(lead > 0.0)) ||
                          (c.mode == 3 && !(lead < 0.0));
      for (int p = 0; p < planes; ++p) {
        double v = b.outside ? a.v[p] : a.outside || takesB ? b.v[p] : a.v[p];
        if (c.average) v = (a.v[p] + b.v[p]) * 0.5;
        out.SetPixelGrayRaw(x, y, static_cast<float>(c.to256 ? canvas.ToRaw(v, p) : v), p);
      }
    }
  }
  return out;
}

CImgMosaic Frame(int width, int height, int planes, std::uint64_t seed) {
  auto image = Noise<CImgMosaic>(width, height, planes, seed, 90.0, 110.0);
  for (int p = 0; p < planes; ++p)
    static_cast<CImage&>(image).SetLevel(p, 80.0 + p, 120.0 + 3.0 * p + static_cast<double>(seed));
  image.SetStdCtr(width * 0.4, height * 0.6);
  return image;
}

TEST(Mosaic, EveryModeOfAwkwardSizes) {
  const Call places[] = {{0, 0, 0.0, 0.0, 0.0},   {3, -2, 0.3, 0.7, 0.0},   {-1, 1, -0.4, 2.5, 30.0},
                         {2, 2, -4.0, 3.0, 0.0},  {1, 0, 5.5, -3.2, -97.0}, {0, 0, 1e9, 0.0, 0.0},
                         {90, 0, -80.2, 0.5, 0.5}};
  int turn = 0;
  for (const auto& [w, h] : {std::pair{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {400, 8}}) {
    for (const auto& [own, baseHas, additionHas] :
         {std::tuple{1, 1, 1}, {3, 3, 3}, {3, 1, 3}, {1, 3, 3}, {2, 1, 2}, {4, 3, 2}}) {
      CImgMosaic canvas = Frame(w, h, own, 5);
      CImgMosaic base = Frame(std::max(w - 2, 1), h + 3, baseHas, 6);
      CImgMosaic addition = Frame(w, std::max(h - 1, 1), additionHas, 7);
      CRect part(w / 4, -5, w + 9, h - h / 3);
      for (Call c : places) {
        for (int i = 0; i < 6 * 4; ++i, ++turn) {
          c.mode = i / 4 - 1;
          c.to256 = i & 1;
          c.average = i & 2;
          // Widens the tolerance to what shows.
          if (c.mode == 1) static_cast<CImage&>(canvas).SetLevel(0, 0.0, 800.0);
          // In place in turns, for the base or for both.
          const bool baseIn = turn % 3 > 0, additionIn = turn % 3 > 1;
          const Threads use(turn % 8 ? 1 : 3);
          CImgMosaic joined(canvas);
          Join(joined, baseIn ? joined : base, additionIn ? joined : addition, c, &part);
          ASSERT_TRUE(SamePixels(Slow(canvas, baseIn ? canvas : base, additionIn ? canvas : addition, c, part), joined))
              << w << " x " << h << " planes " << own << baseHas << additionHas << " mode " << c.mode << " more "
              << i % 4 << " shift " << c.shiftX << " angle " << c.angle << " turn " << turn;
        }
      }
    }
  }
}

// Base on columns 0..2 of a row, addition on 2..4.
TEST(Mosaic, PixelsByHand) {
  auto canvas = Shaped<CImgMosaic>(6, 1, 1);
  auto base = Shaped(3, 1, 1);
  auto addition = Shaped(3, 1, 1);
  Fill(base, [](int, int x, int) { return 100.0f + static_cast<float>(x); });
  Fill(addition, [](int, int x, int) { return 50.0f + static_cast<float>(100 * (x % 2)); });
  const auto row = [&](int mode, int to256, int average) {
    Join(canvas, base, addition, {0, 0, 2.0, 0.0, 0.0, mode, to256, average, {50.5f}, {17.0f}});
    return Pixels(canvas, 0);
  };
  using Row = std::vector<float>;
  EXPECT_EQ(row(0, 0, 0), (Row{100, 101, 50, 150, 50, 0}));
  // Only where both lie is the mask looked at.
  EXPECT_EQ(row(1, 0, 0), (Row{100, 101, 102, 150, 50, 0}));
  EXPECT_EQ(row(3, 0, 0), (Row{100, 101, 50, 150, 50, 0}));
  // An average darkens what one image alone covers.
  EXPECT_EQ(row(0, 0, 1), (Row{50, 50.5, 76, 75, 25, 0}));
  EXPECT_EQ(row(0, 1, 0), (Row{100, 101, 50, 150, 50, 17}));
  EXPECT_EQ(row(0, 1, 1), (Row{58.5, 59, 76, 83.5, 33.5, 17}));
}

TEST(Mosaic, ReportsAndBadInput) {
  const Threads one(1);
  RecordingWindow window;
  CImgMosaic canvas = Frame(10, 8, 3, 1);
  const CVynImage before(canvas);
  CVynImage base = Frame(10, 8, 1, 2);
  CVynImage empty;
  canvas.SetProgressHandle(&window);
  for (CVynImage* one : {&base, static_cast<CVynImage*>(nullptr)})
    canvas.Do(one, 0, 0, one ? nullptr : &base, 0, 0, 0, 0, nullptr, nullptr, 0, 0, nullptr, 1);
  EXPECT_TRUE(window.events.empty());
  // Empty rectangles write nothing; rows without columns are counted.
  for (CRect rect : {CRect(7, 6, 2, 1), CRect(4, 1, 4, 6)}) {
    window.events.clear();
    Join(canvas, base, base, {}, &rect, 1);
    EXPECT_TRUE(SamePixels(before, canvas));
    EXPECT_EQ(window.events.front().text, L"モザイク合成中...");
    EXPECT_EQ(window.events.back().code, kProgressEnd);
  }
  EXPECT_EQ(window.Percents(), (std::vector<int>{20, 40, 60, 80, 100}));
  // Numbers that are none cover nothing, and no array is zeros; an image without pixels covers nothing either.
  for (const double bad : {std::numeric_limits<double>::quiet_NaN(), HUGE_VAL, 1e300}) {
    canvas.Do(&empty, 1 << 30, -(1 << 30), &base, bad, bad, bad, 1, nullptr, nullptr, 1, 0, nullptr, 0);
    EXPECT_TRUE(PixelsAre([&](int p, int, int) { return static_cast<float>(before.GetLevelMin(p)); }, canvas));
  }
}

}  // namespace
}  // namespace qmr::test
