// Levels, rectangles, blocks, gray and colour; inversion, the pattern of all operations.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "qmrimg/image/invert.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/store/parallel.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

class Opened : public CVynImage {
 public:
  using CVynImage::ToGray;
};

TEST(SetLevel, MovesThreePlanesTogether) {
  CVynImage image = Shaped(1, 1, 3);
  image.SetLevel(0, 0.0, 100.0);
  image.SetLevel(1, 1000.0, 1200.0);
  image.SetLevel(2, -10.0, 40.0);
  image.SetLevel(-1, 10.0, 150.0);
  EXPECT_EQ(image.GetLevelMin(0), 10.0);
  EXPECT_EQ(image.GetLevelMax(0), 150.0);
  EXPECT_DOUBLE_EQ(image.GetLevelMin(1), 1020.0);
  EXPECT_DOUBLE_EQ(image.GetLevelMax(1), 1300.0);
  EXPECT_DOUBLE_EQ(image.GetLevelMin(2), -5.0);
  EXPECT_DOUBLE_EQ(image.GetLevelMax(2), 65.0);
  EXPECT_DOUBLE_EQ(image.GetLevelRange(2), 70.0);

  for (const int planes : {1, 2}) {
    CVynImage mono = Shaped(1, 1, planes);
    mono.SetLevel(-1, 7.0, 8.0);
    EXPECT_EQ(mono.GetLevelMin(0), 7.0);
    mono.SetLevel(planes, 0.0, 1.0);
    mono.SetLevel(-2, 0.0, 1.0);
    EXPECT_EQ(mono.GetLevelMax(0), 8.0);
  }
}

TEST(CutOutOfLevel, LimitsInDoubleAndStoresFloat) {
  CVynImage image = Shaped(5, 2, 1);
  // 0.1 lies just below the float 0.1f: that pixel must stay above the lower level.
  image.SetLevel(0, 0.1, 200.3);
  const float values[5] = {-1.0f, 0.1f, 200.3f, 1e9f, std::numeric_limits<float>::quiet_NaN()};
  Fill(image, [&](int, int x, int) { return values[x]; });
  image.CutOutOfLevel();
  EXPECT_EQ(At(image, 0, 0, 1), 0.1f);
  EXPECT_EQ(At(image, 0, 1, 1), 0.1f);
  EXPECT_EQ(At(image, 0, 2, 1), 200.3f);
  EXPECT_EQ(At(image, 0, 3, 1), 200.3f);
  EXPECT_TRUE(std::isnan(At(image, 0, 4, 1)));
}

TEST(NormalizeRect, ClampsEachSideByItself) {
  CVynImage image = Shaped(10, 6, 1);
  const auto normalized = [&image](const CRect& rect) {
    int l, t, r, b;
    image.NormalizeRect(&rect, l, t, r, b);
    return CRect(l, t, r, b);
  };
  EXPECT_EQ(normalized(CRect(12, -3, 40, 99)), CRect(10, 0, 10, 6));
  EXPECT_EQ(normalized(CRect(7, 5, 2, 1)), CRect(7, 5, 2, 1)) << "reversed rectangles stay reversed";
  int l, t, r, b;
  image.NormalizeRect(nullptr, l, t, r, b);
  EXPECT_EQ(CRect(l, t, r, b), CRect(0, 0, 10, 6));
}

TEST(PixelBlt, CutsTheBlockToBothImages) {
  CVynImage from = Noise(6, 5, 2, 1);
  CVynImage to = Shaped(4, 4, 2);
  to.PixelBlt(2, 1, 100, 100, &from, 3, 4, 0);
  EXPECT_TRUE(PixelsAre([&](int p, int x, int y) { return y == 1 && x >= 2 ? At(from, p, x + 1, 4) : 0.0f; }, to));
  const std::string before = Bytes(to);
  to.PixelBlt(4, 0, 3, 3, &from, 0, 0, 0);
  to.PixelBlt(99, 99, 3, 3, &from, -99, -99, 0);
  to.PixelBlt(0, 0, -5, 3, &from, 0, 0, 0);
  CVynImage mono = Noise(4, 4, 1, 2);
  to.PixelBlt(0, 0, 4, 4, &mono, 0, 0, 0);
  EXPECT_EQ(Bytes(to), before);
}

TEST(PixelBlt, ScalesThroughBothLevels) {
  CVynImage from = Shaped(3, 1, 1);
  CVynImage to = Shaped(3, 1, 1);
  from.SetLevel(0, 100.0, 300.0);
  to.SetLevel(0, -1.0, 1.0);
  Fill(from, [](int, int x, int) { return 100.0f + 133.0f * static_cast<float>(x); });
  to.PixelBlt(0, 0, 3, 1, &from, 0, 0, 1);
  for (int x = 0; x < 3; ++x) {
    const float v = static_cast<float>((At(from, 0, x, 0) - 100.0) / 200.0 * 255.0);
    EXPECT_EQ(At(to, 0, x, 0), static_cast<float>(v / 255.0 * 2.0 - 1.0));
  }
}

TEST(ToGray, WritesTheBrightnessOfTheSource) {
  CVynImage source = Noise(5, 3, 3, 3);
  CVynImage image = Shaped(5, 3, 3);
  source.CImage::SetLevel(1, 20.0, 120.0);
  image.CImage::SetLevel(0, 0.0, 65535.0);
  image.CImage::SetLevel(1, 5.0, 6.0);
  ASSERT_TRUE(image.ToGray(&source, 0));
  ASSERT_EQ(image.GetPlanes(), 1);
  EXPECT_FALSE(image.IsColor());
  EXPECT_EQ(image.GetLevelMax(0), 65535.0);
  const double v = 0.299 * source.GetPixelGray256f(4, 2, 0) + 0.587 * source.GetPixelGray256f(4, 2, 1) +
                   0.114 * source.GetPixelGray256f(4, 2, 2);
  EXPECT_EQ(At(image, 0, 4, 2), static_cast<float>(v / 255.0 * 65535.0 + 0.0));

  const std::string before = Bytes(image);
  EXPECT_TRUE(image.ToGray(&source, 0)) << "a monochrome image stays as it is";
  EXPECT_EQ(Bytes(image), before);

  Opened two;
  Shape(two, 5, 3, 2);
  EXPECT_TRUE(two.ToGray());
  EXPECT_EQ(two.GetPlanes(), 2);
}

TEST(ToColor, FillsFromAnySource) {
  CVynImage mono = Noise(4, 3, 1, 4);
  CVynImage colour = Noise(4, 3, 3, 5);
  CVynImage image = Shaped(4, 3, 1);
  image.SetLevel(0, 3.0, 9.0);
  ASSERT_TRUE(image.ToColor(&colour, 0));
  EXPECT_TRUE(SamePixels(colour, image));
  EXPECT_EQ(image.GetLevelMin(2), 3.0);
  Shape(image, 4, 3, 1);
  ASSERT_TRUE(image.ToColor(&mono, 0));
  for (int p = 0; p < 3; ++p) EXPECT_EQ(Pixels(image, p), Pixels(mono, 0));
  // From itself.
  const std::vector<float> pixels = Pixels(mono, 0);
  ASSERT_TRUE(mono.ToColor(&mono, 0));
  for (int p = 0; p < 3; ++p) EXPECT_EQ(Pixels(mono, p), pixels);
  const std::string before = Bytes(mono);
  EXPECT_TRUE(mono.ToColor(&colour, 0)) << "a colour image stays as it is";
  EXPECT_EQ(Bytes(mono), before);
}

// ---- Inversion ----------------------------------------------------------------------------------------------------

class Inversion : public testing::TestWithParam<int> {
 protected:
  Inversion() { ForceSimd(GetParam()); }
  ~Inversion() override { ForceSimd(-1); }
};

TEST_P(Inversion, MirrorsWithinTheRectangle) {
  for (const CRect rect : {CRect(0, 0, 37, 5), CRect(1, 1, 4, 3), CRect(3, 0, 36, 4), CRect(-5, -5, 99, 99),
                           CRect(30, 2, 31, 3), CRect(9, 1, 9, 4), CRect(20, 4, 3, 1)}) {
    CVynImage source = Noise(37, 5, 2, 7, -500.0, 3000.0);
    CImgInvert image = Noise<CImgInvert>(37, 5, 2, 8);
    for (int p = 0; p < 2; ++p) {
      source.CImage::SetLevel(p, 100.0 * p, 2000.0);
      image.CImage::SetLevel(p, -3.0, 40.0 + p);
    }
    const CImgInvert before(image);
    CRect argument = rect;
    image.Do(&source, &argument, 0);
    const auto inverted = [&](int p, int x, int y) {
      if (x < rect.left || x >= rect.right || y < rect.top || y >= rect.bottom) return At(before, p, x, y);
      const float min = 100.0f * static_cast<float>(p), inverse = 1.0f / (2000.0f - min);
      const float v = 255.0f - (At(source, p, x, y) - min) * inverse * 255.0f;
      return v * 0.003921569f * (43.0f + static_cast<float>(p)) + -3.0f;
    };
    EXPECT_TRUE(PixelsAre(inverted, image)) << rect.left << ", " << rect.top;
  }
}

TEST_P(Inversion, IsItsOwnInverseInPlaceOnAnyNumberOfThreads) {
  EXPECT_TRUE(SameForAllThreads([] {
    CImgInvert image = Noise<CImgInvert>(61, 17, 3, 9);
    const CVynImage before(image);
    image.Do(&image, nullptr, 0);
    const std::string once = Bytes(image);
    image.Do(&image, nullptr, 0);
    EXPECT_TRUE(NearPixels(before, image, 1e-4));
    return once;
  }));
}

TEST_P(Inversion, LeavesWhatASmallerSourceLacks) {
  CVynImage source = Shaped(3, 2, 1);
  CImgInvert image = Shaped<CImgInvert>(6, 4, 3);
  Fill(image, [](int, int, int) { return 1.0f; });
  image.Do(&source, nullptr, 0);
  EXPECT_EQ(At(image, 0, 2, 1), 255.0f * 0.003921569f * 255.0f);
  EXPECT_EQ(At(image, 0, 3, 1), 1.0f);
  EXPECT_EQ(At(image, 0, 2, 2), 1.0f);
  EXPECT_EQ(At(image, 1, 0, 0), 1.0f);
}

INSTANTIATE_TEST_SUITE_P(PlainAndVector, Inversion, testing::Values(0, 2));

}  // namespace
}  // namespace qmr::test
