#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "qmrimg/raw/bayer_to_rgb.h"
#include "tests/raw/bayer_twin.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

tagBayerStruct Arguments(int pattern, int margin = 3) {
  tagBayerStruct bayer{};
  bayer.pattern = pattern;
  bayer.srcBits = bayer.dstBits = -32;
  bayer.leftMargin = bayer.topMargin = bayer.rightMargin = bayer.bottomMargin = margin;
  bayer.gamma = 1.0;
  return bayer;
}

// Reaches the tile members.
class OpenBayer : public CImgBayerToRgb {
 public:
  using CImgBayerToRgb::ArgCheck;
  using CImgBayerToRgb::ChangeBitImage;
  using CImgBayerToRgb::CopyOrgToDisp;
  using CImgBayerToRgb::CopySrcToBayer;
  using CImgBayerToRgb::MakeRGBImage;
  using CImgBayerToRgb::MakeYImage;
  using CImgBayerToRgb::SynthImage;
  using CImgBayerToRgb::ToneCurveCorrect;

  // The development composed of them; the object is the destination in its final shape.
  int DevelopByTiles(OpenBayer& mosaic, tagBayerStruct bayer, float lo, float hi) {
    CImage work;
    const int plane = bayer.useGain ? 1 : 0;
    if (!mosaic.CopySrcToBayer(&work, bayer.useGain)) return 0;
    if (bayer.srcBits > 0 && !ChangeBitImage(&work, bayer.srcBits, bayer.dstBits, bayer.autoRange)) return 0;
    if (bayer.useGain && !ToneCurveCorrect(&work, 1, &bayer, lo, hi)) return 0;
    const auto width = static_cast<DWORD>(work.GetWidth());
    const auto height = static_cast<DWORD>(work.GetHeight());
    std::vector<float> tile(width * 8 * 6);
    std::vector<float> buffer(width * 8 * 3);
    for (DWORD y = 3; y + 4 < height; y += 2) {
      if (!CopyOrgToDisp(&work, tile.data(), plane, y, width, height, 8) ||
          !MakeYImage(tile.data(), buffer.data(), &bayer, plane, width, 8) ||
          !MakeRGBImage(tile.data(), buffer.data(), &bayer, plane, width, 8) ||
          !SynthImage(tile.data(), &bayer, bayer.useGain ? 2 : 0, y, 8, width, lo, hi))
        return 0;
    }
    return 1;
  }
};

testing::AssertionResult DevelopsLikeTwin(const CVynImage& mosaic, const tagBayerStruct& bayer) {
  CVynImage expected;
  DevelopSlowly(mosaic, bayer, expected);
  CImgBayerToRgb image;
  CVynImage source(mosaic);
  if (!image.Do(bayer, &source, 0)) return testing::AssertionFailure() << "Do failed";
  return SamePixels(expected, image);
}

TEST(Bayer, EqualsTheDevelopmentInBands) {
  for (int pattern = 1; pattern <= 4; ++pattern) {
    for (int width = 7; width <= 20; ++width) {
      for (int height = 7; height <= 17; ++height) {
        Random random(static_cast<std::uint64_t>((pattern * 64 + width) * 64 + height));
        CVynImage mosaic = Shaped(width, height, 1);
        // A wide range, so that the precision of sums and their order show.
        Fill(mosaic, [&](int, int, int) {
          return static_cast<float>(random.Uniform(-1.0, 1.0) * std::pow(10.0, random.Integer(-3, 6)));
        });
        tagBayerStruct bayer = Arguments(pattern);
        bayer.leftMargin = std::min(random.Integer(3, 6), width - 4);
        bayer.rightMargin = std::min(random.Integer(3, 6), width - 1 - bayer.leftMargin);
        bayer.topMargin = std::min(random.Integer(3, 6), height - 4);
        bayer.bottomMargin = std::min(random.Integer(3, 6), height - 1 - bayer.topMargin);
        bayer.isMono = random.Integer(0, 3) == 0;
        ASSERT_TRUE(DevelopsLikeTwin(mosaic, bayer))
            << "pattern " << pattern << ", " << width << " x " << height << ", margins " << bayer.leftMargin << " "
            << bayer.topMargin << " " << bayer.rightMargin << " " << bayer.bottomMargin << ", mono " << bayer.isMono;
      }
    }
  }
}

TEST(Bayer, BlackLevelBitsGainsKneeAndLimitsCombine) {
  double gains[4] = {1.9, 1.0, 0.8, 1.4};
  for (const int bits : {12, 14, -32}) {
    const double full = bits == 14 ? 16383.0 : 4095.0;
    CVynImage mosaic = Shaped(41, 30, 1);
    mosaic.SetLevel(0, 100.0, 3000.0);
    FillNoise(mosaic, 7, -0.1 * full, 1.1 * full);
    for (int flags = 0; flags < 64; ++flags) {
      tagBayerStruct bayer = Arguments(flags % 4 + 1, 4);
      bayer.srcBits = bits;
      bayer.dstBits = bits == -32 ? -32 : 16;
      bayer.gains = gains;
      bayer.useGain = flags & 1;
      bayer.useKnee = flags & 2;
      bayer.clip = flags & 4;
      bayer.autoRange = flags & 8;
      bayer.subtractBlack = flags & 16;
      bayer.blackLevel = 64.5f;
      bayer.isMono = flags & 32;
      ASSERT_TRUE(DevelopsLikeTwin(mosaic, bayer)) << "bits " << bits << ", flags " << flags;
    }
  }
}

TEST(Bayer, TileMembersMakeTheSamePixels) {
  double gains[4] = {1.5, 1.0, 1.1, 2.5};
  for (int pattern = 1; pattern <= 4; ++pattern) {
    OpenBayer mosaic = Noise<OpenBayer>(31 + pattern % 2, 20, 1, 11, 0.0, 16383.0);
    tagBayerStruct bayer = Arguments(pattern);
    bayer.srcBits = 14;
    bayer.dstBits = 16;
    bayer.useGain = bayer.useKnee = pattern > 2;
    bayer.clip = 1;
    bayer.gains = gains;
    OpenBayer tiles = Shaped<OpenBayer>(mosaic.GetWidth() - 6, 14, 3);
    ASSERT_TRUE(tiles.DevelopByTiles(mosaic, bayer, 0.0f, 65535.0f));
    CImgBayerToRgb image;
    ASSERT_TRUE(image.Do(bayer, &mosaic, 0));
    EXPECT_TRUE(SamePixels(tiles, image)) << "pattern " << pattern;
  }
}

TEST(Bayer, ThreadsChangeNothing) {
  CVynImage mosaic = Noise(203, 53, 1, 3);
  EXPECT_TRUE(DevelopsLikeTwin(mosaic, Arguments(2)));
  EXPECT_TRUE(SameForAllThreads([&] {
    CImgBayerToRgb image;
    image.Do(Arguments(2), &mosaic, 0);
    return Bytes(image);
  }));
}

// A scene of one colour comes out in that colour, and the sharp luminance of a grey edge stays grey.
TEST(Bayer, ColoursComeOutInTheirPlanes) {
  const float colour[3] = {900.0f, 500.0f, 200.0f};
  for (int pattern = 1; pattern <= 4; ++pattern) {
    CImgBayerToRgb image = Shaped<CImgBayerToRgb>(20, 16, 1);
    const bool firstRow = pattern > 2;
    const bool firstColumn = pattern == 2 || pattern == 3;
    Fill(image, [&](int, int x, int y) {
      const bool row = (y % 2 != 0) == firstRow;
      const bool column = (x % 2 != 0) == firstColumn;
      return colour[row != column ? 1 : row ? 0 : 2];
    });
    ASSERT_TRUE(image.Do(Arguments(pattern), 0));
    ASSERT_EQ(image.GetPlanes(), 3);
    for (int p = 0; p < 3; ++p)
      for (const float v : Pixels(image, p)) EXPECT_NEAR(v, colour[p], 1e-3) << "pattern " << pattern;
  }
  CImgBayerToRgb grey = Shaped<CImgBayerToRgb>(20, 16, 1);
  Fill(grey, [](int, int, int) { return 777.25f; });
  ASSERT_TRUE(grey.Do(Arguments(4), 0));
  EXPECT_THAT(Pixels(grey, 1), testing::Each(777.25f));
}

TEST(Bayer, RowsThatNoPairCoversAreZero) {
  struct Case {
    int height, topMargin;
    std::vector<int> zeroRows;
  };
  for (const Case& c : {Case{16, 3, {}}, Case{16, 4, {0}}, Case{17, 3, {10}}, Case{17, 4, {0, 9}}, Case{7, 3, {0}}}) {
    CImgBayerToRgb image = Shaped<CImgBayerToRgb>(12, c.height, 1);
    Fill(image, [](int, int, int) { return 5.0f; });
    tagBayerStruct bayer = Arguments(1);
    bayer.topMargin = c.topMargin;
    ASSERT_TRUE(image.Do(bayer, 0));
    std::vector<int> zeroRows;
    for (int y = 0; y < image.GetHeight(); ++y)
      if (At(image, 2, 3, y) == 0.0f) zeroRows.push_back(y);
    EXPECT_EQ(zeroRows, c.zeroRows) << "height " << c.height << ", top margin " << c.topMargin;
  }
}

TEST(Bayer, BadArgumentsChangeNothing) {
  RecordingWindow window;
  CImgBayerToRgb image = Noise<CImgBayerToRgb>(12, 10, 1, 5);
  image.SetProgressHandle(&window);
  const std::string before = Bytes(image);
  std::vector<tagBayerStruct> bad(12, Arguments(1));
  bad[0].pattern = 0;
  bad[1].pattern = 5;
  bad[2].leftMargin = 2;
  bad[3].topMargin = 2;
  bad[4].rightMargin = 2;
  bad[5].bottomMargin = 2;
  bad[6].srcBits = 16;
  bad[7].srcBits = 12;
  bad[8].dstBits = 16;
  bad[9].leftMargin = 9;
  bad[10].bottomMargin = std::numeric_limits<int>::max();
  bad[11].useGain = 1;
  for (std::size_t i = 0; i < bad.size(); ++i) {
    bad[i].subtractBlack = 1;
    bad[i].blackLevel = 1.0f;
    EXPECT_EQ(image.Do(bad[i], 1), 0) << i;
  }
  EXPECT_EQ(Bytes(image), before);
  EXPECT_TRUE(window.events.empty());
  OpenBayer small;
  tagBayerStruct bayer = Arguments(1);
  for (const auto& [width, height, accepted] : {std::tuple{5, 9, 0}, {9, 5, 0}, {6, 6, 1}}) {
    Shape(small, width, height, 1);
    EXPECT_EQ(small.ArgCheck(&bayer), accepted) << width << " x " << height;
  }
  EXPECT_EQ(CImgBayerToRgb().Do(Arguments(1), nullptr, 0), 0);
}

TEST(Bayer, ReportsUnitsAsAnnounced) {
  RecordingWindow window;
  CImgBayerToRgb image = Shaped<CImgBayerToRgb>(12, 307, 1);
  image.SetProgressHandle(&window);
  const Threads one(1);
  tagBayerStruct bayer = Arguments(1);
  bayer.useGamma = 1;
  ASSERT_TRUE(image.Do(bayer, 1));
  ASSERT_GE(window.events.size(), 3u);
  EXPECT_EQ(window.events.front().text, L"カラー画像に展開中...");
  EXPECT_EQ(window.events.back().code, kProgressEnd);
  // 300 rows in pairs, ten steps of 3, three planes of 301 rows for the gamma.
  const std::vector<int> percents = window.Percents();
  ASSERT_FALSE(percents.empty());
  EXPECT_EQ(percents.front(), 3 * 100 / 1233);
  EXPECT_GE(percents.back(), 98);
  EXPECT_LE(percents.back(), 100);
  EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
}

TEST(Bayer, GammaBendsWithinTheRange) {
  // Sixteen-bit results: the range is 0..65535. The value is uniform, so development leaves it.
  CImgBayerToRgb image = Shaped<CImgBayerToRgb>(12, 12, 1);
  Fill(image, [](int, int, int) { return 1023.75f; });
  tagBayerStruct bayer = Arguments(1);
  bayer.srcBits = 12;
  bayer.dstBits = 16;
  bayer.useGamma = 1;
  bayer.gamma = 2.0;
  ASSERT_TRUE(image.Do(bayer, 0));
  EXPECT_NEAR(At(image, 1, 2, 2), 65535.0 * 0.5, 0.01);

  // Floating-point results: the range is that of all planes, without the last of an odd number of rows.
  CImgBayerToRgb ramp = Shaped<CImgBayerToRgb>(12, 13, 1);
  Fill(ramp, [](int, int, int y) { return static_cast<float>(10 * y); });
  bayer = Arguments(1);
  bayer.isMono = 1;
  CImgBayerToRgb plain;
  ASSERT_TRUE(plain.Do(bayer, &ramp, 0));
  bayer.useGamma = 1;
  bayer.gamma = 2.0;
  ASSERT_TRUE(ramp.Do(bayer, 0));
  // Rows 0..5 are developed, row 6 is 0.0 and not counted: the range is that of rows 0..5.
  const double min = At(plain, 0, 2, 0);
  const double max = At(plain, 0, 2, 5);
  ASSERT_LT(min, max);
  for (int y = 0; y < 6; ++y) {
    const double v = At(plain, 0, 2, y);
    EXPECT_NEAR(At(ramp, 0, 2, y), std::sqrt((v - min) / (max - min)) * (max - min) + min, 1e-4);
  }
  EXPECT_EQ(At(ramp, 0, 2, 6), 0.0f);
}

TEST(Bayer, GainsBringMediansToGreen) {
  const float sites[4] = {100.0f, 300.0f, 500.0f, 50.0f};
  CImgBayerToRgb image = Shaped<CImgBayerToRgb>(40, 30, 1);
  Fill(image, [&](int, int x, int y) { return sites[y % 2 * 2 + x % 2]; });
  double gains[4] = {};
  ASSERT_TRUE(image.GetGain(1, gains));
  EXPECT_THAT(gains, testing::ElementsAre(4.0, 1.0, 1.0, 8.0));
  ASSERT_TRUE(image.GetGain(4, gains));
  EXPECT_THAT(gains, testing::ElementsAre(1.0, 0.25, static_cast<double>(75.0f / 500.0f), 1.0));
  Fill(image, [&](int, int x, int y) { return y % 2 + x % 2 == 2 ? 0.5f : sites[y % 2 * 2 + x % 2]; });
  ASSERT_TRUE(image.GetGain(3, gains));
  EXPECT_THAT(gains, testing::ElementsAre(4.0, 1.0, 1.0, 1.0));
  EXPECT_EQ(image.GetGain(5, gains), 0);
  EXPECT_EQ(image.GetGain(0, gains), 0);
}

TEST(Bayer, FlatMosaicWithAutomaticRangeStaysDefined) {
  // The scale is infinite and 0 times it is not a number, which stands; nothing may crash or hang.
  CImgBayerToRgb image = Shaped<CImgBayerToRgb>(12, 12, 1);
  Fill(image, [](int, int, int) { return 100.0f; });
  tagBayerStruct bayer = Arguments(1);
  bayer.srcBits = 12;
  bayer.dstBits = 16;
  bayer.autoRange = 1;
  ASSERT_TRUE(image.Do(bayer, 0));
  EXPECT_TRUE(std::isnan(At(image, 0, 2, 2)));
}

}  // namespace
}  // namespace qmr::test
