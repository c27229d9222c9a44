// Balance, correction and false colour.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "qmrimg/colour/color_balance.h"
#include "qmrimg/colour/color_correct.h"
#include "qmrimg/colour/false_color.h"
#include "qmrimg/store/parallel.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using qmr::test::At;
using qmr::test::Bytes;
using qmr::test::FillNoise;
using qmr::test::Shape;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kFloor = 1.1754943508222875e-38f;

struct Size {
  int width, height;
};
constexpr Size kSizes[] = {{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {300, 20}};

// An operation's object with noise and levels that differ from plane to plane and by `shift`.
template <class Operation>
void Prepare(Operation& image, Size size, int planes, double shift) {
  Shape(image, size.width, size.height, planes);
  FillNoise(image, 11 + static_cast<std::uint64_t>(shift), -50.0, 1000.0);
  for (int p = 0; p < planes; ++p) image.SetLevel(p, 3.3 + shift + 2.0 * p, 811.7 - shift + 10.0 * p);
}

// Compares each pixel with `expected(p, x, y)` inside of the rectangle, in planes 0..2, and with `before` outside.
void ExpectPixels(const CVynImage& actual, const CVynImage& before, const CRect& rect,
                  const std::function<float(int, int, int)>& expected) {
  for (int p = 0; p < actual.GetPlanes(); ++p) {
    for (int y = 0; y < actual.GetHeight(); ++y) {
      for (int x = 0; x < actual.GetWidth(); ++x) {
        const bool inside = p < 3 && x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom;
        ASSERT_EQ(At(actual, p, x, y), inside ? expected(p, x, y) : At(before, p, x, y)) << p << " " << x << " " << y;
      }
    }
  }
}

// How many reports an operation makes, one thread, each closed and with as many posts as it has units.
int Reports(CVynImage& image, std::size_t units, const std::function<void()>& run) {
  qmr::test::RecordingWindow window;
  const qmr::test::Threads one(1);
  image.SetProgressHandle(&window);
  run();
  image.SetProgressHandle(nullptr);
  int titles = 0, ends = 0;
  for (const auto& event : window.events) {
    titles += event.code == qmr::kProgressTitle;
    ends += event.code == qmr::kProgressEnd;
  }
  EXPECT_EQ(titles, ends);
  EXPECT_EQ(window.Percents().size(), units * static_cast<std::size_t>(titles));
  return titles;
}

// ---- Balance ------------------------------------------------------------------------------------------------------

TEST(ColorBalance, AddsOffsetsOnTheScaleOfPlane0OnBothPaths) {
  for (const int simd : {0, 2}) {
    qmr::ForceSimd(simd);
    for (const int planes : {1, 3, 4}) {
      for (const Size size : kSizes) {
        CVynImage source;
        Prepare(source, size, planes, 5.0);
        CImgColorBalance image;
        Prepare(image, size, planes, 0.0);
        const CVynImage before(image);
        CRect rect(1, -4, size.width + 3, 6);
        const float unit = static_cast<float>(image.GetLevelRange(0)) / 255.0f;
        const float offsets[] = {12.3f * unit, -4.5f * unit, 0.1f * unit};
        EXPECT_EQ(Reports(image, static_cast<std::size_t>(std::min(size.height, 6) * planes),
                          [&] { image.Do(12.3, -4.5, 0.1, &source, &rect, 1); }),
                  1);
        ExpectPixels(image, before, rect, [&](int p, int x, int y) { return At(source, p, x, y) + offsets[p]; });
      }
    }
  }
  qmr::ForceSimd(-1);
}

TEST(ColorBalance, NothingWithoutSourceOrOnTwoPlanes) {
  for (const int planes : {2, 3}) {
    CImgColorBalance image;
    Prepare(image, {13, 9}, planes, 0.0);
    CImgColorBalance before(image);
    EXPECT_EQ(Reports(image, 0, [&] { image.Do(1.0, 1.0, 1.0, planes == 2 ? &before : nullptr, nullptr, 1); }), 0);
    EXPECT_EQ(Bytes(before), Bytes(image));
  }
}

// ---- Correction ---------------------------------------------------------------------------------------------------

tagMATRIX kMatrix = {{{1.2, -0.3, 0.1}, {-0.25, 1.5, -0.25}, {0.05, -0.7, 1.9}}};
tagMATRIX kIdentity = {{{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}}};

TEST(ColorCorrect, InPlaceTurnsAboutTheLevel) {
  for (const Size size : kSizes) {
    for (const int mode : {-1, 0, 1, 2}) {
      for (const double strength : {0.3, 1.0, 7.0}) {
        CImgColorCorrect image;
        Prepare(image, size, 4, 0.0);
        *static_cast<float*>(image.GetImageAdr(0, 0, 3, 0, 0, nullptr)) = -9000.0f;  // not of the three
        const CVynImage before(image);
        double level = mode == 2 ? 20.5 : 0.0;
        if (mode == 1) {
          level = 1e9;
          for (int p = 0; p < 3; ++p)
            for (const float v : qmr::test::Pixels(before, p)) level = std::min<double>(level, v);
        }
        EXPECT_EQ(Reports(image, static_cast<std::size_t>(size.height),
                          [&] { EXPECT_EQ(image.Do(&kMatrix, strength, mode, 20.5f, 0, 1), 1); }),
                  mode == 1 ? 2 : 1);
        ExpectPixels(image, before, CRect(0, 0, size.width, size.height), [&](int k, int x, int y) {
          const double* m = kMatrix.m[k];
          const double r = At(before, 0, x, y) - level, g = At(before, 1, x, y) - level,
                       b = At(before, 2, x, y) - level;
          const double t =
              std::clamp(m[0] * r + m[1] * g + m[2] * b + level, 1.1754943508222875e-38, 3.4028234663852886e38);
          if (strength >= 1.0) return static_cast<float>(t);
          return static_cast<float>(At(before, k, x, y) * (1.0 - strength) + t * strength);
        });
      }
    }
  }
}

TEST(ColorCorrect, NoResultInPlaceIsZeroNegativeOrInfinite) {
  for (const int nonNegative : {0, 1}) {
    CImgColorCorrect image;
    Shape(image, 5, 1, 3);
    const float values[] = {0.0f, -7.0f, kNaN, std::numeric_limits<float>::infinity(), 5.0f};
    qmr::test::Fill(image, [&](int p, int x, int) { return p == 0 ? values[x] : 0.0f; });
    EXPECT_EQ(image.Do(&kIdentity, 1.0, 0, 0.0f, nonNegative, 0), 1);
    EXPECT_EQ(At(image, 0, 0, 0), kFloor);
    EXPECT_EQ(At(image, 0, 1, 0), kFloor);
    EXPECT_TRUE(std::isnan(At(image, 0, 2, 0)));
    EXPECT_EQ(At(image, 0, 3, 0), std::numeric_limits<float>::max());
    EXPECT_EQ(At(image, 0, 4, 0), 5.0f);
    EXPECT_EQ(At(image, 1, 4, 0), kFloor);
  }
}

TEST(ColorCorrect, FromASourceThroughTheLevelsOfBoth) {
  for (const Size size : kSizes) {
    for (const double strength : {-1.0, 0.4, 2.0}) {
      CVynImage source;
      Prepare(source, size, 3, 5.0);
      CImgColorCorrect image;
      Prepare(image, size, 4, 0.0);
      const CVynImage before(image);
      CRect rect(-2, 1, size.width - 1, size.height);
      EXPECT_EQ(image.Do(&kMatrix, strength, 1, 99.0f, 1, &source, &rect, 0), 1);
      ExpectPixels(image, before, rect, [&](int k, int x, int y) {
        if (strength < 0.0) return At(source, k, x, y);
        double t = 0.0;
        for (int j = 0; j < 3; ++j)
          t += kMatrix.m[k][j] * ((At(source, j, x, y) - source.GetLevelMin(j)) * (255.0 / source.GetLevelRange(j)));
        t = t * (image.GetLevelRange(k) / 255.0) + image.GetLevelMin(k);
        if (strength >= 1.0) return static_cast<float>(t);
        return static_cast<float>(t * strength + At(source, k, x, y) * (1.0 - strength));
      });
    }
  }
}

TEST(ColorCorrect, ArgumentsReportsAndOtherShapes) {
  CVynImage source;
  Prepare(source, {6, 5}, 3, 5.0);
  CImgColorCorrect image;
  Prepare(image, {13, 9}, 3, 0.0);
  const std::string before = Bytes(image);
  const double nan = std::nan("");
  EXPECT_EQ(Reports(image, 0,
                    [&] {
                      EXPECT_EQ(image.Do(nullptr, 1.0, 0, 0.0f, 0, 1), 0);
                      EXPECT_EQ(image.Do(&kIdentity, 0.0, 3, 0.0f, 0, 1), 0) << "arguments before the strength";
                      EXPECT_EQ(image.Do(nullptr, 1.0, 0, 0.0f, 0, &source, nullptr, 1), 0);
                      EXPECT_EQ(image.Do(&kIdentity, 1.0, 3, 0.0f, 0, &source, nullptr, 1), 0);
                      EXPECT_EQ(image.Do(&kIdentity, 1.0, 0, 0.0f, 0, nullptr, nullptr, 1), 0);
                      for (const double strength : {0.0, -1.0, nan})
                        EXPECT_EQ(image.Do(&kMatrix, strength, 1, 0.0f, 0, 1), 1);
                    }),
            0);
  EXPECT_EQ(Bytes(image), before);
  // The search that is of no use, and the copy, over the source's rows.
  EXPECT_EQ(Reports(image, 5,
                    [&] {
                      CRect rect(0, 0, 99, 5);
                      EXPECT_EQ(image.Do(&kMatrix, nan, 1, 0.0f, 0, &source, &rect, 1), 1);
                    }),
            2);
  EXPECT_EQ(At(image, 2, 5, 4), At(source, 2, 5, 4));
  EXPECT_EQ(Bytes(image).substr(24, 28), before.substr(24, 28)) << "beyond the source";
  for (const int planes : {1, 2}) {
    CImgColorCorrect flat;
    Prepare(flat, {13, 9}, planes, 0.0);
    const std::string pixels = Bytes(flat);
    EXPECT_EQ(flat.Do(&kMatrix, 1.0, 1, 0.0f, 0, 0), 1);
    EXPECT_EQ(flat.Do(&kMatrix, 1.0, 1, 0.0f, 0, &image, nullptr, 0), 1);
    EXPECT_EQ(Bytes(flat), pixels);
    const std::string colour = Bytes(image);
    EXPECT_EQ(image.Do(&kMatrix, 1.0, 0, 0.0f, 0, &flat, nullptr, 0), 1);
    EXPECT_EQ(Bytes(image), colour);
  }
}

// ---- False colour ---------------------------------------------------------------------------------------------------

class Palettes : public CImgFalseColor {
 public:
  std::array<float, 3> Of(float value, int palette, int repeat = 0) {
    std::array<float, 3> c{};
    GetFalseColor(value, palette, repeat, &c[0], &c[1], &c[2]);
    return c;
  }
};

using Colour = std::array<float, 3>;

TEST(FalseColor, Palettes) {
  Palettes p;
  EXPECT_EQ(p.Of(-5.0f, 0), (Colour{0, 0, 255}));
  EXPECT_EQ(p.Of(127.5f, 0), (Colour{0, 255, 0}));
  EXPECT_EQ(p.Of(300.0f, 0), (Colour{255, 0, 0}));
  // Half way to the next.
  EXPECT_EQ(p.Of(31.875f, 0), (Colour{0, 127.5f, 255}));
  EXPECT_EQ(p.Of(223.125f, 2), (Colour{191.5f, 191.5f, 255}));
  // The blend of palette 1 divides by 64.
  EXPECT_EQ(p.Of(42.0f, 1), (Colour{0, 0, 255.0f * 0.65625f}));
  EXPECT_EQ(p.Of(42.5f, 1), (Colour{0, 0, 255}));
  EXPECT_EQ(p.Of(255.0f, 1), (Colour{255, 255, 255}));
  // Given rows, one between them, and the ends of the tables.
  EXPECT_EQ(p.Of(119.0f, 3), (Colour{10, 131, 157}));
  EXPECT_EQ(p.Of(255.0f, 3), (Colour{246, 252, 252}));
  EXPECT_EQ(p.Of(85.0f, 4), (Colour{143, 7, 0}));
  EXPECT_EQ(p.Of(10.0f, 4), (Colour{12, 0, 0})) << "21 * 10 / 17";
  EXPECT_EQ(p.Of(10.5f, 4), (Colour{13, 0, 0}));
  EXPECT_EQ(p.Of(100.0f, 5), (Colour{255, 45, 0}));
  EXPECT_EQ(p.Of(171.5f, 5), (Colour{255, 255, 4.5f}));
  EXPECT_EQ(p.Of(255.0f, 5), (Colour{255, 255, 255}));
  EXPECT_EQ(p.Of(77.25f, 6), (Colour{77.25f, 77.25f, 77.25f}));
  EXPECT_EQ(p.Of(77.25f, -1), (Colour{77.25f, 77.25f, 77.25f}));
  // Wrapped.
  EXPECT_EQ(p.Of(128.0f, 6, 2)[0], 0.0f);
  EXPECT_EQ(p.Of(127.75f, 6, 2)[0], 255.0f) << "limited again";
  EXPECT_EQ(p.Of(200.0f, 6, 3)[0], 88.0f);
  EXPECT_EQ(p.Of(254.3f, 6, 2147483647)[0],
            static_cast<float>(std::min(std::fmod(2147483647 * static_cast<double>(254.3f), 256.0), 255.0)));
  for (int palette = -1; palette < 7; ++palette) EXPECT_TRUE(std::isnan(p.Of(kNaN, palette, 2)[0]));
}

TEST(FalseColor, OfPixelsThroughTheLevelsOfBoth) {
  Palettes lookup;
  for (const int planes : {1, 2, 3}) {
    for (const Size size : kSizes) {
      const int palette = (size.width + size.height) % 7;
      const int repeat = size.width % 3;
      CVynImage source;
      Prepare(source, size, planes, 5.0);
      CImgFalseColor image;
      Prepare(image, size, 4, 0.0);
      const CVynImage before(image);
      CRect rect(0, 1, size.width + 4, size.height - 1);
      image.Do(100.0, 700.0, palette, repeat, &source, &rect, 0);
      const double low = source.To256(100.0, 0), high = source.To256(700.0, 0);
      const float scale = static_cast<float>(255.0 / (high - low));
      ExpectPixels(image, before, rect, [&](int k, int x, int y) {
        float v[3] = {};
        for (int j = 0; j < (planes == 3 ? 3 : 1); ++j) {
          const double above = At(source, j, x, y) - image.GetLevelMin(j);
          if (planes == 3)
            v[j] = static_cast<float>(static_cast<float>(above / (image.GetLevelRange(j) / 255.0)) - low) * scale;
          else
            v[j] = static_cast<float>(above * (255.0 / image.GetLevelRange(j)) - low) * scale;
        }
        const float value = planes == 3 ? static_cast<float>(v[0] * 0.299 + v[1] * 0.587 + v[2] * 0.114) : v[0];
        const float colour = lookup.Of(value, palette, repeat)[static_cast<std::size_t>(k)];
        return static_cast<float>(colour * (image.GetLevelRange(k) / 255.0) + image.GetLevelMin(k));
      });
    }
  }
}

TEST(FalseColor, NeedsThreePlanesAndASource) {
  CVynImage source;
  Prepare(source, {6, 5}, 1, 0.0);
  for (const int planes : {1, 2, 3}) {
    CImgFalseColor image;
    Prepare(image, {13, 9}, planes, 0.0);
    EXPECT_EQ(Reports(image, 0, [&] { image.Do(0.0, 255.0, 0, 0, planes == 3 ? nullptr : &source, nullptr, 1); }), 0);
    // Equal ends make infinite scales; the source is smaller.
    EXPECT_EQ(Reports(image, 9, [&] { image.Do(50.0, 50.0, 1, 1, &source, nullptr, 1); }), planes == 3);
  }
}

// ---- All ------------------------------------------------------------------------------------------------------------

TEST(ColourOperations, AreTheSameForAllThreads) {
  EXPECT_TRUE(qmr::test::SameForAllThreads([] {
    CImgColorBalance balance;
    Prepare(balance, {131, 47}, 3, 0.0);
    balance.Do(5.0, 6.0, 7.0, &balance, nullptr, 0);
    CImgColorCorrect correct;
    Prepare(correct, {131, 47}, 3, 0.0);
    correct.Do(&kMatrix, 0.7, 1, 0.0f, 0, 0);
    correct.Do(&kMatrix, 0.7, 0, 0.0f, 0, &correct, nullptr, 0);
    CImgFalseColor colour;
    Prepare(colour, {131, 47}, 3, 0.0);
    colour.Do(0.0, 800.0, 1, 3, &colour, nullptr, 0);
    return Bytes(balance) + Bytes(correct) + Bytes(colour);
  }));
}

}  // namespace
