#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <string>

#include "qmrimg/colour/cmy_composit.h"
#include "qmrimg/colour/color.h"
#include "qmrimg/colour/lrgb_cmpst.h"
#include "qmrimg/colour/rgb_cmpst.h"
#include "qmrimg/colour/separation.h"
#include "qmrimg/geometry/interp.h"
#include "qmrimg/platform/messages.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using qmr::test::At;
using qmr::test::Bytes;
using qmr::test::Fill;
using qmr::test::Pixels;
using qmr::test::SamePixels;
using qmr::test::Shape;

constexpr double kDegree = 3.141592653589793 / 180.0;
constexpr double kHuge = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// Noise with a pixel far above the limit of 5000 and an infinite one.
void Noise(CVynImage& image, int width, int height, int planes, int seed) {
  Shape(image, width, height, planes);
  qmr::test::FillNoise(image, static_cast<std::uint64_t>(seed), -20.0, 1200.0);
  image.SetPixelGrayRaw(width / 2, height / 2, 60000.0f, 0);
  image.SetPixelGrayRaw(width / 3, height - 1, std::numeric_limits<float>::infinity(), planes - 1);
  for (int p = 0; p < planes; ++p) image.SetLevel(p, seed + 3.0 + p, 900.0 + 10.0 * p);
  image.SetStdCtr(width * 0.4, height * 0.6);
}

// How a frame lies, and the row routine of CInterp that belongs to it.
struct Lie {
  double dx, dy, angle;
  int shiftType;
  double Sine() const { return std::sin(angle * kDegree); }
  double Cosine() const { return std::cos(angle * kDegree); }
};
constexpr Lie kLies[] = {{0.0, 0.0, 0.0, 0},  {3.0, -2.0, 0.0, 0}, {0.5, 0.0, 0.0, 1},
                         {-4.0, 0.3, 0.0, 1}, {0.1, 1.7, 0.0, 1},  {1.25, -0.5, 12.0, 2}};
constexpr int kLieCount = static_cast<int>(std::size(kLies));
constexpr int kSizes[][2] = {{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {70, 50}};

// One plane of the rectangle from rows of CInterp.
void Sample(CVynImage& expected, int plane, CVynImage& frame, int from, const Lie& lie, int center, int method,
            const CRect& r) {
  CInterp interp(method);
  interp.SetBParam(lie.shiftType, &frame, static_cast<float>(r.left - lie.dx), static_cast<float>(r.right - lie.dx), 0,
                   0.0f, from, lie.Sine(), lie.Cosine(), 1.0, center);
  interp.SetRowWidth(r.Width());
  for (int y = r.top; y < r.bottom; ++y)
    interp.GetBLine(y - lie.dy, static_cast<float*>(expected.GetImageAdr(r.left, y, plane, 0, 0, nullptr)));
}

TEST(RgbComposition, RowsOfThreeFrames) {
  for (const auto& [width, height] : kSizes) {
    CImgRgbCmpst image;
    CVynImage colour, mono, two;
    Noise(image, width, height, 3, 1);
    Noise(colour, width + 3, std::max(height - 1, 1), 3, 2);
    Noise(mono, width, height, 1, 3);
    Noise(two, width, height, 2, 4);
    for (int i = 0; i < kLieCount; ++i) {
      const Lie& a = kLies[i];
      const Lie& b = kLies[(i + 2) % kLieCount];
      CRect rect(width / 3, height / 3, width + 5, height + 5);
      const CRect cut(rect.left, rect.top, width, height);
      CVynImage expected(image);
      Sample(expected, 0, mono, 0, a, i % 2, i % 5, cut);
      Sample(expected, 1, colour, 1, b, i % 2, i % 5, cut);
      Sample(expected, 2, two, 0, a, i % 2, i % 5, cut);
      image.Do(&mono, a.dx, a.dy, a.angle, &colour, b.dx, b.dy, b.angle, &two, a.dx, a.dy, a.angle, i % 2, i % 5, &rect,
               nullptr, 0);
      EXPECT_TRUE(SamePixels(expected, image)) << width << " x " << height << ", case " << i;
      EXPECT_EQ(image.GetLevelMin(1), colour.GetLevelMin(1));
      EXPECT_EQ(image.GetLevelMax(2), two.GetLevelMax(0));
    }
  }
}

TEST(RgbComposition, PlanesThatAreNotEnabledKeepTheirPixels) {
  CImgRgbCmpst image;
  CVynImage frame;
  Noise(image, 9, 5, 3, 1);
  Noise(frame, 9, 5, 3, 2);
  const CVynImage before(image);
  int enable[] = {1, 0, 5};
  const auto compose = [&](CVynImage* red, CVynImage* green) {
    image.Do(red, 0, 0, 0, green, 0, 0, 0, &frame, 0, 0, 0, 0, 0, nullptr, enable, 0);
  };
  compose(nullptr, &frame);
  EXPECT_TRUE(SamePixels(before, image));
  EXPECT_EQ(image.GetLevelMin(2), before.GetLevelMin(2));
  compose(&frame, nullptr);
  EXPECT_EQ(image.GetLevelMin(1), before.GetLevelMin(1));
  compose(&frame, &frame);
  EXPECT_EQ(image.GetLevelMin(1), frame.GetLevelMin(1));
  for (int p = 0; p < 3; ++p) EXPECT_EQ(Pixels(image, p), Pixels(p == 1 ? before : frame, p));
}

TEST(CmyComposition, SolvesThePrimaries) {
  CImgCmyComposit image;
  Shape(image, 11, 3, 3);
  // Sums of two of the primaries 10, 20 and 40 (red, green, blue) in the planes that colour frames are read from.
  CVynImage frames[3];
  const float sums[3] = {60.0f, 50.0f, 30.0f};
  const int planes[3] = {2, 0, 1};
  for (int i = 0; i < 3; ++i) {
    Shape(frames[i], 11, 3, 3);
    Fill(frames[i], [&](int p, int, int) { return p == planes[i] ? sums[i] : -1e6f; });
    frames[i].SetLevel(planes[i], i + 1.0, 100.0 * (i + 1));
  }
  CRect rect(1, 0, 9, 3);
  image.Do(&frames[0], 0, 0, 0, &frames[1], 0, 0, 0, &frames[2], 0, 0, 0, 0, 1, &rect, 0, 0);
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(At(image, p, 8, 2), 20.0f * static_cast<float>(1 << p));
    EXPECT_EQ(At(image, p, 0, 0), 0.0f);
    EXPECT_EQ(At(image, p, 9, 2), 0.0f);
    EXPECT_EQ(image.GetLevelMin(p), (5 - p) * 0.5);
    EXPECT_EQ(image.GetLevelMax(p), (5 - p) * 50.0);
  }
}

CColor LabOf(const double (&rgb)[3]) {
  CColor colour;
  const auto limited = [](double v) { return std::clamp(v, 0.0, 5000.0) / 255.0; };
  colour.RgbToLab(limited(rgb[0]), limited(rgb[1]), limited(rgb[2]));
  return colour;
}

// A value on the 256-scale in the levels of the luminance frame.
float Stored(double w, const CVynImage& luminance) {
  return static_cast<float>(static_cast<float>(w) / 255.0 * luminance.GetLevelRange(0) + luminance.GetLevelMin(0));
}
float Stored(const CColor& c, int p, const CVynImage& luminance) {
  return Stored((p == 0 ? c.GetR() : p == 1 ? c.GetG() : c.GetB()) * 255.0, luminance);
}

TEST(LrgbComposition, PixelByPixel) {
  for (const auto& [width, height] : kSizes) {
    for (int i = 0; i < 3 * kLieCount; ++i) {
      const Lie& a = kLies[i % kLieCount];
      const Lie& b = kLies[(i + 3) % kLieCount];
      const int planes = i / kLieCount + 1;
      const int blend = i % 5 - 1;  // -1: through Lab
      const int method = i % 5;
      const double scale = i % 4 ? 0.5 + 0.07 * i : 1.0;
      CImgLrgbCmpst image;
      CVynImage luminance, colour;
      Noise(image, width, height, 3, 1);
      Noise(luminance, width, height + 1, planes, 2);
      Noise(colour, (width + 1) / 2, height, 4 - planes, 3);
      CRect rect(width / 4, -3, width, height - height / 4);
      CVynImage rgb(image), lab(image);
      CInterp l(method), ab(method);
      l.SetBParam(&luminance, a.dx, a.dy, a.Sine(), a.Cosine(), 1.0, i % 2, 0, 0.0f);
      ab.SetBParam(&colour, b.dx, b.dy, b.Sine(), b.Cosine(), scale, i % 2, 0, 0.0f);
      const auto inRect = [&](int x, int y) { return x >= rect.left && y < rect.bottom; };
      Fill(rgb, [&](int p, int x, int y) {
        if (!inRect(x, y)) return At(image, p, x, y);
        double u[3], v[3];
        luminance.GetPixelRgb256f(x, y, a.dx, a.dy, a.Sine(), a.Cosine(), i % 2, 1.0, &u[0], &u[1], &u[2], 0.0, nullptr,
                                  nullptr, nullptr);
        colour.GetPixelRgb256f(x, y, b.dx, b.dy, b.Sine(), b.Cosine(), i % 2, scale, &v[0], &v[1], &v[2], 0.0, nullptr,
                               nullptr, nullptr);
        CColor c = LabOf(v);
        c.LabToRgb(LabOf(u).GetL(), c.Geta(), c.Getb());
        if (blend < 0) return Stored(c, p, luminance);
        const double difference = std::fabs(u[p] - v[p]);
        return Stored(blend == 1 ? difference : blend == 2 ? 255.0 - difference : (u[p] + v[p]) * 0.5, luminance);
      });
      Fill(lab, [&](int p, int x, int y) {
        if (!inRect(x, y)) return At(image, p, x, y);
        CColor c;
        double aStar, bStar;
        ab.GetPixelAb(x, y, &aStar, &bStar);
        c.LabToRgb(l.GetPixelL(x, y), aStar, bStar);
        return Stored(c, p, luminance);
      });
      image.DoLrgb(&luminance, a.dx, a.dy, a.angle, &colour, b.dx, b.dy, b.angle, i % 2, scale, &rect, blend >= 0,
                   static_cast<unsigned>(blend), 0);
      EXPECT_TRUE(SamePixels(rgb, image)) << width << " x " << height << ", case " << i;
      EXPECT_EQ(image.GetLevelMin(2), luminance.GetLevelMin(0));
      image.DoLab(&luminance, a.dx, a.dy, a.angle, &colour, b.dx, b.dy, b.angle, i % 2, scale, method, &rect, 0);
      EXPECT_TRUE(SamePixels(lab, image)) << width << " x " << height << ", Lab, case " << i;
    }
  }
}

TEST(Composition, FramesMayBeTheResult) {
  const auto check = [](auto apart, const auto& compose) {
    Noise(apart, 40, 30, 3, 1);
    auto same = apart;
    CVynImage frame(apart);
    compose(apart, &frame);
    compose(same, &same);
    EXPECT_TRUE(SamePixels(apart, same));
    EXPECT_EQ(apart.GetLevelMin(2), same.GetLevelMin(2));
  };
  check(CImgRgbCmpst(),
        [](auto& i, CVynImage* f) { i.Do(f, 0, 2.5, 0, f, 1, -3.5, 0, f, 0, 0, 4, 1, 2, nullptr, nullptr, 0); });
  check(CImgCmyComposit(),
        [](auto& i, CVynImage* f) { i.Do(f, 0, 2.5, 0, f, 1, -3.5, 0, f, 0, 0, 4, 1, 2, nullptr, 0, 0); });
  check(CImgLrgbCmpst(), [](auto& i, CVynImage* f) { i.DoLrgb(f, 0, 2.5, 0, f, 1, 3, 0, 1, 1.0, nullptr, 0, 0, 0); });
  check(CImgLrgbCmpst(), [](auto& i, CVynImage* f) { i.DoLab(f, 0, 2.5, 0, f, 1, 3, 3, 1, 1.0, 1, nullptr, 0); });
}

TEST(Composition, SameForAllThreadsWhateverTheArguments) {
  CVynImage a, b;
  Noise(a, 61, 43, 3, 1);
  Noise(b, 33, 50, 1, 2);
  CVynImage bytes(8, 61, 43, 3, 1.0, 0.0, 1);  // no floats: covers nothing
  EXPECT_TRUE(qmr::test::SameForAllThreads([&] {
    std::string all;
    CImgRgbCmpst rgb;
    CImgCmyComposit cmy;
    CImgLrgbCmpst lrgb;
    for (CVynImage* image : std::initializer_list<CVynImage*>{&rgb, &cmy, &lrgb}) Shape(*image, 61, 43, 3);
    for (const double odd : {0.3, -1e9, 1e300, kHuge, kNan}) {
      rgb.Do(&a, odd, 0, 0, &b, 0, odd, 5, &bytes, 0, 0, odd, 0, 3, nullptr, nullptr, 0);
      cmy.Do(&a, odd, odd, 0, &b, 0, odd, 5, &a, 0, 0, odd, 0, 99, nullptr, 0, 0);
      lrgb.DoLrgb(&a, odd, 0, 5, &b, 0, 0, odd, 0, odd, nullptr, 0, 0, 0);
      all += Bytes(rgb) + Bytes(cmy) + Bytes(lrgb);
      lrgb.DoLrgb(&bytes, odd, 0, 0, &b, 0, odd, 0, 0, odd, nullptr, 1, 7, 0);
      all += Bytes(lrgb);
      lrgb.DoLab(&a, odd, 0, 5, &b, 0, 0, odd, 1, odd, 3, nullptr, 0);
      all += Bytes(lrgb);
    }
    return all;
  }));
}

TEST(Composition, Reports) {
  const qmr::test::Threads one(1);
  CVynImage frame;
  Noise(frame, 8, 6, 3, 1);
  CVynImage* const f = &frame;
  CRect rect(2, 1, 2, 5);  // no columns, four rows
  CRect reversed(0, 5, 8, 1);
  // Message 0 stands for no report at all; only six rows are the whole image.
  const auto check = [](auto image, int planes, int message, std::size_t units, const auto& run) {
    qmr::test::RecordingWindow window;
    Noise(image, 8, 6, planes, 2);
    const std::string before = Bytes(image);
    image.SetProgressHandle(&window);
    run(image);
    EXPECT_EQ(window.Percents().size(), units);
    EXPECT_EQ(Bytes(image) == before, units != 6);
    ASSERT_EQ(window.events.empty(), message == 0);
    if (message == 0) return;
    EXPECT_EQ(window.events.front().text, qmr::MessageText(message));
    EXPECT_EQ(window.events.back().code, qmr::kProgressEnd);
  };
  const auto rgb = [&](int planes, int message, std::size_t units, CVynImage* third, CRect* r) {
    check(CImgRgbCmpst(), planes, message, units,
          [&](auto& i) { i.Do(f, 0, 0, 0, f, 0, 0, 0, third, 0, 0, 0, 0, 0, r, nullptr, 1); });
  };
  rgb(3, 6108, 6, f, nullptr);
  rgb(3, 6108, 4, f, &rect);
  rgb(3, 6108, 0, f, &reversed);
  rgb(3, 0, 0, nullptr, nullptr);
  rgb(2, 0, 0, f, nullptr);
  check(CImgCmyComposit(), 3, 6136, 6, [f](auto& i) { i.Do(f, 0, 0, 0, f, 0, 0, 0, f, 0, 0, 0, 0, 0, nullptr, 0, 1); });
  check(CImgLrgbCmpst(), 3, 6103, 6, [f](auto& i) { i.DoLrgb(f, 0, 0, 0, f, 0, 0, 0, 0, 1, nullptr, 0, 1, 1); });
  check(CImgLrgbCmpst(), 3, 0, 0, [&](auto& i) { i.DoLrgb(f, 0, 0, 0, f, 0, 0, 0, 0, 1, &rect, 1, 1, 1); });
  check(CImgLrgbCmpst(), 3, 6103, 6, [f](auto& i) { i.DoLab(f, 0, 0, 0, f, 0, 0, 0, 0, 1, 0, nullptr, 1); });
  const auto separate = [f](auto& i) { i.Do(f, 4, 1); };
  check(CImgSeparation(), 1, 6137, 6, separate);
  check(CImgSeparation(), 3, 0, 0, separate);
  check(CImgSeparation(), 1, 0, 0, [](auto& i) { i.Do(nullptr, 0, 1); });
  Noise(frame, 8, 7, 3, 1);
  check(CImgSeparation(), 1, 0, 0, separate);
}

TEST(Separation, PlanesMeansAndLevels) {
  CVynImage source;
  CImgSeparation image;
  Noise(source, 19, 5, 3, 1);
  Noise(image, 19, 5, 1, 9);
  const int planes[][2] = {{0, 0}, {1, 1}, {2, 2}, {2, 1}, {2, 0}, {1, 0}};
  const int levels[][2] = {{0, 0}, {1, 1}, {2, 2}, {2, 1}, {2, 0}, {2, 0}};
  for (int c = 0; c < 6; ++c) {
    CVynImage expected(image);
    Fill(expected,
         [&](int, int x, int y) { return (At(source, planes[c][0], x, y) + At(source, planes[c][1], x, y)) * 0.5f; });
    image.Do(&source, c, 0);
    EXPECT_TRUE(SamePixels(expected, image)) << c;
    EXPECT_EQ(image.GetLevelMax(0), (source.GetLevelMax(levels[c][0]) + source.GetLevelMax(levels[c][1])) * 0.5);
  }
  const CVynImage before(image);
  image.Do(&source, 6, 0);
  EXPECT_TRUE(SamePixels(before, image));
  EXPECT_EQ(image.GetLevelMax(0), before.GetLevelMax(0));
}

}  // namespace
