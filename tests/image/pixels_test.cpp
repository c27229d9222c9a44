// Readers and writers of single pixels, and the transformed readers.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "qmrimg/image/invert.h"
#include "qmrimg/image/vyn_image.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

TEST(Scales, AreExactAtTheLevelsAndNotClamped) {
  CVynImage image = Shaped(1, 1, 3);
  image.CImage::SetLevel(1, 100.0, 1100.0);
  EXPECT_EQ(image.To256(100.0, 1), 0.0);
  EXPECT_EQ(image.To256(1100.0, 1), 255.0);
  EXPECT_EQ(image.To256(-900.0, 1), -255.0);
  EXPECT_EQ(image.ToRaw(510.0, 1), 2100.0);
  // The float form computes in double: 0.1f through float arithmetic would differ.
  EXPECT_EQ(image.To256(100.1f, 1), static_cast<float>((static_cast<double>(100.1f) - 100.0) / 1000.0 * 255.0));
  EXPECT_TRUE(std::isinf(image.To256(5.0, 7))) << "a plane without levels has a range of 0";
}

TEST(ByteReader, RoundsTiesToEvenAndHoldsAtTheLevels) {
  CVynImage image = Shaped(8, 1, 1);
  const float values[8] = {127.5f, 126.5f, 0.0f, 255.0f, -3.0f, 300.0f, 254.5f, kNan};
  const int expected[8] = {128, 126, 0, 255, 0, 255, 254, 0};
  Fill(image, [&](int, int x, int) { return values[x]; });
  for (int x = 0; x < 8; ++x) {
    EXPECT_EQ(image.GetPixelGray256(x, 0, 0), expected[x]) << values[x];
    EXPECT_EQ(image.GetPixelGray256(&values[x], 0.0f, 255.0f, 1.0f), expected[x]) << values[x];
  }
  // A zero range: at or below is 0, above is 255, and nothing divides its way in.
  image.SetLevel(0, 10.0, 10.0);
  const float at = 10.0f, above = 10.5f;
  EXPECT_EQ(image.GetPixelGray256(&at, 0), 0);
  EXPECT_EQ(image.GetPixelGray256(&above, 0), 255);
  // A factor that does not fit the levels stays within a byte.
  EXPECT_EQ(image.GetPixelGray256(&above, 0.0f, 1000.0f, 1000.0f), 255);
}

TEST(BrightnessReaders, WeighEachPlaneByItsOwnLevelsAndReturnThroughPlaneZero) {
  CVynImage image = Shaped(1, 1, 3);
  image.SetLevel(0, 0.0, 510.0);
  image.SetLevel(1, 100.0, 355.0);
  image.SetLevel(2, -255.0, 0.0);
  Fill(image, [](int p, int, int) { return p == 0 ? 200.0f : p == 1 ? 150.0f : -205.0f; });
  const double bright = 50.0 * 0.587 + 100.0 * 0.299 + 50.0 * 0.114;
  EXPECT_EQ(image.GetPixelBright256f(0, 0), static_cast<float>(bright));
  EXPECT_NEAR(image.GetPixelBrightRaw(0, 0), bright * 2.0, 1e-5);

  // Without a blue plane an image counts as monochrome here, though its colour mode says colour.
  CVynImage two = Shaped(1, 1, 2);
  Fill(two, [](int p, int, int) { return p == 0 ? 40.0f : 90.0f; });
  EXPECT_EQ(two.GetPixelBright256f(0, 0), 40.0f);
}

TEST(GrayReadersAndWriters, TakeTheLevelRoundedToFloat) {
  CVynImage image = Shaped(2, 2, 1);
  image.SetLevel(0, 0.1, 1000.1);
  image.SetPixelGrayRaw(1, 1, 7.25f, 0);
  EXPECT_EQ(image.GetPixelGray(1, 1, 0), 7.25f - 0.1f);
  image.SetPixelGray(0, 1, 3.5f, 0);
  EXPECT_EQ(At(image, 0, 0, 1), 3.5f + 0.1f);
  image.SetPixelGray256f(0, 0, 255.0, 0);
  EXPECT_EQ(At(image, 0, 0, 0), 1000.1f);
}

TEST(ReadersAndWriters, StayInsideTheImage) {
  CVynImage image = Noise(3, 2, 1, 1, 1.0, 2.0);
  const std::string before = Bytes(image);
  for (const auto& [x, y, p] : {std::array{3, 0, 0}, {-1, 0, 0}, {0, 2, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}}) {
    image.SetPixelGrayRaw(x, y, 9.0f, p);
    image.SetPixelGray(x, y, 9.0f, p);
    image.SetPixelGray256f(x, y, 9.0, p);
    EXPECT_EQ(image.GetPixelGrayRaw(x, y, p), 0.0f);
  }
  EXPECT_EQ(Bytes(image), before);
  CVynImage empty;
  EXPECT_EQ(empty.GetPixelGrayRaw(0.5, 0.5, 0), 0.0f);
  EXPECT_EQ(empty.GetPixelGray(7, 7, 0), 0.0f);
}

// The definition, written out.
float Bilinear(const CVynImage& image, double x, double y) {
  const int w = image.GetWidth(), h = image.GetHeight();
  const auto cell = [](double& c, int size) {
    if (c < size - 1) return std::max(static_cast<int>(c), 0);
    c = size - 1;
    return std::max(size - 2, 0);
  };
  const int ix = cell(x, w), iy = cell(y, h);
  const auto at = [&](int px, int py) {
    return static_cast<double>(At(image, 0, std::min(px, w - 1), std::min(py, h - 1)));
  };
  if (x == ix && y == iy) return At(image, 0, ix, iy);
  const double fx = x - ix, fy = y - iy;
  return static_cast<float>((1 - fy) * (1 - fx) * at(ix, iy) + (fy - fy * fx) * at(ix, iy + 1) +
                            (fx - fy * fx) * at(ix + 1, iy) + fy * fx * at(ix + 1, iy + 1));
}

class BilinearReader : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(BilinearReader, FollowsItsDefinitionEverywhere) {
  const auto [width, height] = GetParam();
  CVynImage image = Noise(width, height, 1, 3, -100.0, 1000.0);
  image.GetPixelGrayRawBufInit();
  for (double y = -1.5; y <= height + 1.0; y += 0.25) {
    for (double x = -1.5; x <= width + 1.0; x += 0.25) {
      const float expected = Bilinear(image, x, y);
      ASSERT_EQ(image.GetPixelGrayRaw(x, y, 0), expected) << x << ", " << y;
      ASSERT_EQ(image.GetPixelGrayRawBuf(x, y, 0), expected) << x << ", " << y;
      ASSERT_EQ(image.GetPixelGray256f(x, y, 0), image.To256(expected, 0));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, BilinearReader,
                         testing::Values(std::pair{5, 4}, std::pair{1, 4}, std::pair{4, 1}, std::pair{1, 1},
                                         std::pair{2, 2}));

TEST(BilinearReader, SurvivesHostileCoordinates) {
  CVynImage image = Shaped(4, 4, 1);
  Fill(image, [](int, int x, int y) { return static_cast<float>(x + 10 * y); });
  EXPECT_EQ(image.GetPixelGrayRaw(1e300, 1e300, 0), 33.0f);
  EXPECT_TRUE(std::isnan(image.GetPixelGrayRaw(std::nan(""), 1.0, 0)));
  // Beyond -1 the first cell goes on as a straight line.
  EXPECT_EQ(image.GetPixelGrayRaw(-3.0, 0.0, 0), -3.0f);
}

TEST(CachedReader, KeepsItsRowsUntilItIsCleared) {
  CVynImage image = Shaped(3, 3, 2);
  Fill(image, [](int p, int x, int y) { return static_cast<float>(100 * p + 10 * y + x); });
  image.GetPixelGrayRawBufInit();
  EXPECT_EQ(image.GetPixelGrayRawBuf(0.5, 0.5, 0), 5.5f);
  EXPECT_EQ(image.GetPixelGrayRawBuf(0.5, 0.5, 1), 5.5f) << "the cache knows rows, not planes";
  image.GetPixelGrayRawBufInit();
  EXPECT_EQ(image.GetPixelGrayRawBuf(0.5, 0.5, 1), 105.5f);
}

TEST(CachedReader, NeverReadsPixelsThatAreGone) {
  CVynImage image = Shaped(300, 300, 2);
  CVynImage other = Shaped(3, 3, 1);
  Fill(image, [](int, int, int) { return 7.0f; });
  Fill(other, [](int, int, int) { return 9.0f; });
  image.GetPixelGrayRawBufInit();
  EXPECT_EQ(image.GetPixelGrayRawBuf(1.5, 1.5, 1), 7.0f);
  ASSERT_TRUE(image.ChangePlanes(1));
  EXPECT_EQ(image.GetPixelGrayRawBuf(1.5, 1.5, 0), 7.0f);
  image.Swap(&other);
  EXPECT_EQ(image.GetPixelGrayRawBuf(1.5, 1.5, 0), 9.0f);
  EXPECT_EQ(other.GetPixelGrayRawBuf(1.5, 1.5, 0), 7.0f);
  ASSERT_TRUE(other.ChangeSize(2, 2));
  EXPECT_EQ(other.GetPixelGrayRawBuf(0.5, 0.5, 0), 0.0f);
  other.Empty();
  EXPECT_EQ(other.GetPixelGrayRawBuf(0.5, 0.5, 0), 0.0f);
}

// Fields changed without new pixels, and samples that are no floats: readers give 0, operations leave all as it is.
TEST(ReadersAndWriters, ReachNothingWhenTheFieldsDoNotFitThePixels) {
  const auto use = [](CVynImage& image) {
    const auto before = image.GetPlaneImage(0);
    image.SetPixelGrayRaw(0, 0, 9.0f, 0);
    image.GetPixelGrayRawBufInit();
    EXPECT_EQ(image.GetPixelGrayRaw(0.5, 0.5, 0), 0.0f);
    EXPECT_EQ(image.GetPixelGrayRawBuf(0.5, 0.5, 0), 0.0f);
    image.CutOutOfLevel();
    image.CalcMinMax();
    CImgInvert inverted = Shaped<CImgInvert>(4, 4, 3);
    inverted.Do(&image, nullptr, 0);
    inverted.Do(nullptr, nullptr, 0);
    EXPECT_EQ(At(inverted, 0, 0, 0), 0.0f);
    inverted.PixelBlt(0, 0, 4, 4, &image, 0, 0, 1);
    EXPECT_EQ(At(inverted, 0, 3, 3), 0.0f);
    EXPECT_EQ(image.GetDib(24), nullptr);
    EXPECT_EQ(image.GetPlaneImage(0), before);
  };
  for (int field = 0; field < 4; ++field) {
    CVynImage image = Noise(4, 4, 3, 1, 1.0, 2.0);
    if (field == 0) image.SetWidth(5000);
    if (field == 1) image.SetWidth(-1);
    if (field == 2) image.SetHeight(5000);
    if (field == 3) {
      ASSERT_TRUE(image.ChangeBits(8, 0, 0));
    }
    use(image);
  }
  // Planes that are only announced are no colour.
  CVynImage mono = Noise(4, 4, 1, 1, 1.0, 2.0);
  mono.SetPlanes(3);
  int x, y;
  double cx, cy;
  EXPECT_GT(mono.Get1stBrighterPixel(0, nullptr, 0.5, x, y), 0.5f);
  EXPECT_EQ(mono.GetCentroidRaw(cx, cy, nullptr), 1);
  GlobalFree(mono.GetDib(24));
  CVynImage gray = Shaped(4, 4, 3);
  EXPECT_EQ(gray.ToGray(&mono, 0), 1);
  EXPECT_EQ(At(gray, 0, 2, 2), At(mono, 0, 2, 2));
  EXPECT_EQ(gray.ToColor(nullptr, 0), 0);
}

// ---- Transformed readers ------------------------------------------------------------------------------------------

class TransformedReaders : public testing::Test {
 protected:
  void SetUp() override {
    Shape(image_, 9, 7, 3);
    FillNoise(image_, 5);
    image_.CImage::SetLevel(1, 10.0, 200.0);
    image_.SetStdCtr(4.0, 3.0);
  }
  CVynImage image_;
};

TEST_F(TransformedReaders, ShiftReadsAtMinusTheShift) {
  int outside = 9;
  double x = 0.0, y = 0.0;
  EXPECT_EQ(image_.GetPixelGrayRaw(5, 4, 2, -1, 0.0, 1.0, 1.0, 1, -1.0, 0, &outside, &x, &y), At(image_, 1, 3, 5));
  EXPECT_EQ(outside, 0);
  EXPECT_EQ(x, 3.0);
  EXPECT_EQ(y, 5.0);
  EXPECT_EQ(image_.GetPixelGrayRaw(5, 4, 2.25, 0.5, 0.0, 1.0, 1.0, 1, -1.0, 0, nullptr, nullptr, nullptr),
            image_.GetPixelGrayRaw(2.75, 3.5, 1));
}

TEST_F(TransformedReaders, RotationTurnsAboutTheCentreWithTheVerticalAxisUp) {
  double x = 0.0, y = 0.0;
  // A quarter turn: one column right of the centre reads one row above it.
  image_.GetPixelGrayRaw(5, 3, 0, 0, 1.0, 0.0, 1.0, 0, 0.0, 0, nullptr, &x, &y);
  EXPECT_EQ(x, 4.0);
  EXPECT_EQ(y, 2.0);
  image_.GetPixelGrayRaw(5, 3, 0, 0, 0.0, 1.0, 3.0, 0, 0.0, 0, nullptr, &x, &y);
  EXPECT_EQ(x, 7.0);
  EXPECT_EQ(y, 3.0);
  // Only the three-plane readers can turn about the middle of the image instead.
  double r, g, b;
  image_.GetPixelRgbRaw(5, 3, 0, 0, 1.0, 0.0, 0, 1.0, &r, &g, &b, 0.0, nullptr, &x, &y);
  EXPECT_EQ(x, 4.5 + (3.0 - 3.5));
  EXPECT_EQ(y, 3.5 - (5.0 - 4.5));
}

TEST_F(TransformedReaders, BrightnessAndMonochrome) {
  const float expected =
      static_cast<float>(At(image_, 2, 6, 2) * 0.114 + (At(image_, 1, 6, 2) * 0.587 + At(image_, 0, 6, 2) * 0.299));
  EXPECT_EQ(image_.GetPixelGrayRaw(6, 2, 0, 0, 0.0, 1.0, 1.0, -1, 0.0, 1, nullptr, nullptr, nullptr), expected);
  EXPECT_EQ(image_.GetPixelGrayRaw(6, 2, 0, 0, 0.0, 1.0, 1.0, -1, 0.0, 0, nullptr, nullptr, nullptr), expected);
  double r, g, b;
  image_.GetPixelRgb256f(6, 2, 0, 0, 0.0, 1.0, 1, 1.0, &r, &g, &b, 0.0, nullptr, nullptr, nullptr);
  EXPECT_EQ(g, image_.GetPixelGray256f(6, 2, 1));

  CVynImage mono = Noise(3, 3, 1, 6);
  EXPECT_EQ(mono.GetPixelGrayRaw(1, 2, 0, 0, 0.0, 1.0, 1.0, 2, 0.0, 0, nullptr, nullptr, nullptr), At(mono, 0, 1, 2));
  mono.GetPixelRgbRaw(1, 2, 0, 0, 0.0, 1.0, 0, 1.0, &r, &g, &b, 0.0, nullptr, nullptr, nullptr);
  EXPECT_EQ(r, At(mono, 0, 1, 2));
  EXPECT_EQ(b, r);
}

TEST_F(TransformedReaders, NearestReadersDisagreeAtTheEdgeOnPurpose) {
  int outside = 9;
  // 8.75 lies inside the image and rounds to 9, which is past the last column.
  EXPECT_EQ(image_.GetPixelGray256f(8, 3, -0.75, 0.0, 0.0, 1.0, 1.0, 1, -7.0, 1, &outside, nullptr, nullptr),
            image_.To256(0.0f, 1));
  EXPECT_EQ(outside, 0);
  EXPECT_EQ(image_.GetPixelGray256f(8, 6, 0.0, -0.75, 0.0, 1.0, 1.0, 1, -7.0, 1, &outside, nullptr, nullptr),
            image_.To256(0.0f, 1));
  EXPECT_EQ(image_.GetPixelGrayRaw(8, 3, -0.75, 0.0, 0.0, 1.0, 1.0, 1, -7.0, 1, &outside, nullptr, nullptr), -7.0f);
  EXPECT_EQ(outside, 1);
  // The raw reader truncates towards zero first, so that it takes -1.25 for column 0.
  EXPECT_EQ(image_.GetPixelGrayRaw(0, 3, 1.25, 0.0, 0.0, 1.0, 1.0, 1, -7.0, 1, &outside, nullptr, nullptr),
            At(image_, 1, 0, 3));
  EXPECT_EQ(image_.GetPixelGray256f(0, 3, 1.25, 0.0, 0.0, 1.0, 1.0, 1, -7.0, 1, &outside, nullptr, nullptr), -7.0f);
}

TEST_F(TransformedReaders, OutsideGivesTheFillValue) {
  const double fill = 0.1;
  int outside = 0;
  EXPECT_EQ(image_.GetPixelGray256f(0, 0, 0.5, 0.0, 0.0, 1.0, 1.0, 0, fill, 0, &outside, nullptr, nullptr), 0.1f);
  EXPECT_EQ(outside, 1);
  double r, g, b, x;
  outside = 0;
  image_.GetPixelRgbRaw(8, 0, -1, 0, 0.0, 1.0, 1, 1.0, &r, &g, &b, fill, &outside, &x, nullptr);
  EXPECT_EQ(r, fill) << "not rounded to float";
  EXPECT_EQ(outside, 1);
  EXPECT_EQ(x, 9.0);
  EXPECT_EQ(image_.GetPixelL(0, 7, 0.0, 0.0, 0.0, 1.0, 1.0, fill), 0.1f);
  image_.GetPixelAb(2, 2, 0.5, 0.0, 0.0, 1.0, 1.0, &r, &g, fill);
  EXPECT_EQ(r, image_.GetPixelGrayRaw(1.5, 2.0, 0));
  EXPECT_EQ(g, image_.GetPixelGrayRaw(1.5, 2.0, 1));
  image_.GetPixelAb(-1, 2, 0.0, 0.0, 0.0, 1.0, 1.0, &r, &g, fill);
  EXPECT_EQ(g, fill);
}

}  // namespace
}  // namespace qmr::test
