#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "qmrimg/raw/honeycomb_to_rgb.h"
#include "qmrimg/store/block.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

using Scene = std::function<double(int plane, int x, int y)>;

constexpr int kPhases[4][2] = {{0, 0}, {2, 0}, {1, 1}, {3, 1}};

// The plane of the colour at a place, -1 between the sites.
int ColourAt(int pattern, int x, int y) {
  const char* const cell[4] = {".b.r", "g.g.", ".r.b", "g.g."};
  const int* const phase = kPhases[pattern - 11];
  const char colour = cell[(y - phase[1]) & 3][(x - phase[0]) & 3];
  return colour == 'r' ? 0 : colour == 'g' ? 1 : colour == 'b' ? 2 : -1;
}

// What a sensor sees.
void Expose(CVynImage& image, int pattern, const Scene& scene, float between = -999.0f) {
  Fill(image, [&](int, int x, int y) {
    const int colour = ColourAt(pattern, x, y);
    return colour < 0 ? between : static_cast<float>(scene(colour, x, y));
  });
}

tagHoneyCombStruct Arguments(int pattern, int interpolation = 3) {
  tagHoneyCombStruct honeycomb{};
  honeycomb.pattern = pattern;
  honeycomb.srcBits = honeycomb.dstBits = -32;
  honeycomb.interpolation = static_cast<BYTE>(interpolation);
  honeycomb.leftMargin = honeycomb.rightMargin = honeycomb.bottomMargin = 4;
  honeycomb.topMargin = 5;
  honeycomb.gamma = 1.0;
  return honeycomb;
}

class OpenHoneycomb : public CImgHoneyCombToRgb {
 public:
  using CImgHoneyCombToRgb::ArgCheck;
  using CImgHoneyCombToRgb::ChangeBitImage;
  using CImgHoneyCombToRgb::CImageToMem;
  using CImgHoneyCombToRgb::CopySrcToDstImage;
  using CImgHoneyCombToRgb::ToneCurveCorrect;
};

// A slow development, pixel by pixel, of prepared samples.
class Slow {
 public:
  Slow(const CImage& work, const tagHoneyCombStruct& arguments)
      : work_(work), arguments_(arguments), phase_(kPhases[arguments.pattern - 11]) {}

  float Result(int plane, int x, int y, float lo, float hi) const {
    const int first = phase_[1] + arguments_.topMargin / 4 * 4;
    const int row = y + arguments_.topMargin;
    if (row < first || (row - first) / 4 * 4 + first >= work_.GetHeight() - 4) return 0.0f;
    const int column = x + arguments_.leftMargin;
    float value = Developed(row, column, 3);
    if (!arguments_.isMono) {
      const float red = Smooth(row, column, 0), blue = Smooth(row, column, 2);
      value = plane == 0 ? red : plane == 2 ? blue : Float((value - 0.299 * red - 0.114 * blue) / 0.587);
    }
    return arguments_.clip ? std::min(std::max(value, lo), hi) : value;
  }

 private:
  int Colour(int r, int c) const { return ColourAt(arguments_.pattern, c, r); }

  double Sample(int r, int c) const {
    const int width = work_.GetWidth(), height = work_.GetHeight();
    if (r < 0) r = 2 * phase_[1] - r;
    if (r >= height) r = height - 4 + ((r - height + 1) & 3);
    const int left = 1 - phase_[0] % 2;
    if (c < 0) c = 2 * left - c;
    if (c >= width) c = 2 * (width - 1 - (width - 1 - left) % 2) - c;
    return static_cast<const float*>(work_.GetImageAdr(0, r, arguments_.useGain ? 1 : 0, 1, 0, nullptr))[c];
  }

  // Red (0), blue (2) or luminance (3) by one of the kernels.
  float Value(int r, int c, int what, bool alongRows) const {
    // Sums of two samples that lie opposite to each other.
    const auto twice = [&](int y, int x, int dr, int dc) { return Sample(y - dr, x - dc) + Sample(y + dr, x + dc); };
    const auto pair = [&](int y, int x) { return alongRows ? twice(y, x, 0, 2) : twice(y, x, 2, 0); };
    const int own = Colour(r, c);
    const int falling = Colour(r - 1, c - 1) == 0 ? 1 : -1;
    if (own == what) return Float(Sample(r, c));
    if (what != 3) {
      if (own == 1) return Float(twice(r, c, 1, what == 0 ? falling : -falling) * 0.5);
      if (own >= 0) return Float(pair(r, c) * 0.5);
      for (const auto& [dr, dc] : {std::pair{0, -1}, {0, 1}, {-1, 0}, {1, 0}})
        if (Colour(r + dr, c + dc) == what) return Float(pair(r - dr, c - dc) * 0.25 + Sample(r + dr, c + dc) * 0.5);
    }
    if (own == 1) return Float(twice(r, c, 1, falling) * 0.15 + 0.59 * Sample(r, c) + twice(r, c, 1, -falling) * 0.055);
    if (own < 0) {
      const double green = Colour(r, c - 1) == 1 ? twice(r, c, 0, 1) : twice(r, c, 1, 0);
      return Float(green * 0.295 + 0.3 * Value(r, c, 0, alongRows) + 0.11 * Value(r, c, 2, alongRows));
    }
    const double green = twice(r, c, 1, alongRows ? 1 : -1) * 0.295;
    return own == 0 ? Float(green + 0.3 * Sample(r, c) + pair(r, c) * 0.055)
                    : Float(green + pair(r, c) * 0.15 + 0.11 * Sample(r, c));
  }
  static float Float(double v) { return static_cast<float>(v); }

  float Developed(int r, int c, int what) const {
    if (arguments_.interpolation < 3) return Value(r, c, what, arguments_.interpolation == 2);
    return Float((static_cast<double>(Value(r, c, what, true)) + Value(r, c, what, false)) * 0.5);
  }

  float Smooth(int row, int column, int what) const {
    double sum = 0.0;
    for (int r = row - 1; r <= row + 1; ++r)
      for (int c = column - 1; c <= column + 1; ++c)
        sum += static_cast<double>(Developed(r, c, what)) - Developed(r, c, 3);
    return Float(Developed(row, column, 3) + sum / 9.0);
  }

  const CImage& work_;
  const tagHoneyCombStruct& arguments_;
  const int* phase_;
};

// Linear scenes inside of the margins, grey up to the edges.
TEST(Honeycomb, LinearScenesComeOutExactly) {
  for (int i = 0; i < 4 * 3 * 4 * 4; ++i) {
    const int pattern = 11 + i % 4, width = 38 + i / 12 % 4;
    const bool isGrey = i / 48 % 2, isMono = i / 96;
    const Scene scene = [&](int plane, int x, int y) {
      if (isGrey) return 777.25;
      return plane == 0 ? 500.0 + 3.0 * x - 2.0 * y : plane == 1 ? 300.0 - x + 4.0 * y : 900.0 - 5.0 * x - 1.5 * y;
    };
    CImgHoneyCombToRgb image = Shaped<CImgHoneyCombToRgb>(width, 34, 1);
    Expose(image, pattern, scene);
    tagHoneyCombStruct arguments = Arguments(pattern, 1 + i / 4 % 3);
    arguments.isMono = isMono;
    if (isGrey) {
      arguments.leftMargin = arguments.rightMargin = 0;
      arguments.topMargin = pattern > 12;
    }
    ASSERT_TRUE(image.Do(arguments, 0));
    ASSERT_EQ(image.GetPlanes(), isMono ? 1 : 3);
    const auto expected = [&](int plane, int x, int y) {
      const double r = scene(0, x, y), g = scene(1, x, y), b = scene(2, x, y);
      const double luminance = 0.3 * r + 0.59 * g + 0.11 * b;
      return isMono ? luminance : plane == 0 ? r : plane == 2 ? b : (luminance - 0.299 * r - 0.114 * b) / 0.587;
    };
    for (int p = 0; p < image.GetPlanes(); ++p)
      for (int y = 0; y < image.GetHeight(); ++y)
        for (int x = 0; x < image.GetWidth(); ++x)
          ASSERT_NEAR(At(image, p, x, y), expected(p, x + arguments.leftMargin, y + arguments.topMargin), 1e-3)
              << "case " << i << ", plane " << p << " at " << x << ", " << y;
  }
}

TEST(Honeycomb, GainsWhitenGrey) {
  // Each place of the cell has a sensitivity of its own.
  const auto light = [](int, int x, int y) { return 300.0 + 70.0 * (y % 4) + 10.0 * (x % 4); };
  double gains[8] = {};
  tagHoneyCombStruct arguments = Arguments(11);
  arguments.useGain = 1;
  arguments.gains = gains;
  for (const bool hasBorder : {false, true}) {
    CImgHoneyCombToRgb image = Shaped<CImgHoneyCombToRgb>(160, 120, 1);
    image.GetHeader()->SetCameraModel(hasBorder ? L"FinePixS2Pro" : L"Other");
    arguments.pattern = hasBorder ? 14 : 11;
    Expose(image, arguments.pattern, light);
    ASSERT_TRUE(image.GetGain(arguments.pattern, gains));
    ASSERT_TRUE(image.Do(arguments, 0));
    for (int p = 0; p < 3; ++p) EXPECT_THAT(Pixels(image, p), testing::Each(testing::FloatNear(light(0, 2, 3), 1e-2f)));
  }
  EXPECT_EQ(CImgHoneyCombToRgb().GetGain(11, gains), 0);
  EXPECT_EQ(Shaped<CImgHoneyCombToRgb>(20, 20, 1).GetGain(11, nullptr), 0);
}

// Of samples that the members have prepared.
TEST(Honeycomb, EqualsTheSlowDevelopment) {
  double gains[8] = {1.9, 1.0, 0.8, 1.1, 0.7, 1.05, 2.2, 0.95};
  for (int i = 0; i < 256; ++i) {
    const Threads one(1);
    Random random(static_cast<std::uint64_t>(i));
    const int border = i & 1, most = i < 8 ? 10 : 27;
    const int width = random.Integer(10, most) + 100 * border, height = random.Integer(10, most) + 40 * border;
    tagHoneyCombStruct arguments = Arguments(11 + random.Integer(0, 3), random.Integer(1, 3));
    arguments.leftMargin = random.Integer(0, 4) + 40 * border;
    arguments.rightMargin = random.Integer(0, 4) + 40 * border;
    arguments.topMargin = random.Integer(0, 7) + 24 * border;
    arguments.bottomMargin = random.Integer(0, 2);
    arguments.isMono = random.Integer(0, 3) == 0;
    arguments.gains = gains;
    arguments.useGain = i & 2;
    arguments.useKnee = i & 4;
    arguments.clip = i & 8;
    arguments.autoRange = i & 16;
    arguments.subtractBlack = i & 32;
    arguments.blackLevel = 64.5f;
    arguments.srcBits = i & 64 ? 12 : -32;
    arguments.dstBits = i & 64 ? 16 : -32;
    OpenHoneycomb mosaic = Shaped<OpenHoneycomb>(width, height, 1);
    mosaic.SetLevel(0, 100.0, 3000.0);
    mosaic.GetHeader()->SetCameraModel(border ? L"finepixs2pro" : L"");
    // A wide range, so that the precision of sums and their order show. Around the picture and between the sites stand
    // values that the range must not know.
    const auto light = [&](int, int x, int y) {
      const double sample = random.Uniform(-1.0, 1.0) * std::pow(10.0, random.Integer(-3, 4));
      return border && (x < 48 || x >= width - 48 || y < 30) ? 9e5 : sample;
    };
    Expose(mosaic, arguments.pattern, light, -2e4f);
    OpenHoneycomb prepared(mosaic);
    if (arguments.subtractBlack) Fill(prepared, [&](int, int x, int y) { return At(mosaic, 0, x, y) - 64.5f; });
    double min = 0.0, max = 0.0;
    prepared.GetMinMax(&prepared, 0, &min, &max);
    EXPECT_TRUE(min > -1.1e4 && max < 1e4) << "case " << i;
    CImage work;
    ASSERT_TRUE(prepared.CopySrcToDstImage(&work, arguments.useGain));
    ASSERT_TRUE(arguments.srcBits == -32 || prepared.ChangeBitImage(&work, 12, 16, arguments.autoRange));
    float lo = 100.0f, hi = 3000.0f;
    if (arguments.dstBits == 16) {
      lo = 0.0f;
      hi = 65535.0f;
    } else if (arguments.autoRange) {
      lo = static_cast<float>(min);
      hi = static_cast<float>(max);
    }
    ASSERT_TRUE(!arguments.useGain || prepared.ToneCurveCorrect(&work, &arguments, lo, hi));
    CImgHoneyCombToRgb image;
    ASSERT_TRUE(image.Do(arguments, &mosaic, 0));
    const Slow slow(work, arguments);
    ASSERT_TRUE(PixelsAre([&](int p, int x, int y) { return slow.Result(p, x, y, lo, hi); }, image)) << "case " << i;
  }
  CVynImage large = Noise(103, 95, 1, 3);
  EXPECT_TRUE(SameForAllThreads([&] {
    CImgHoneyCombToRgb image;
    image.Do(Arguments(13), &large, 0);
    return Bytes(image);
  }));
}

TEST(Honeycomb, TilesHoldFourteenRows) {
  OpenHoneycomb image = Shaped<OpenHoneycomb>(10, 12, 1);
  Fill(image, [](int, int, int y) { return static_cast<float>(y); });
  const auto rows = [&](int y) {
    std::vector<float> tile(10 * 14 * 9), first;
    if (!image.CImageToMem(&image, y, 0, tile.data())) return first;
    for (std::size_t r = 0; r < 14; ++r) first.push_back(tile[r * 10 + 9]);
    return first;
  };
  EXPECT_THAT(rows(1), testing::ElementsAre(5, 4, 3, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
  EXPECT_THAT(rows(4), testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 9, 10));
  for (const int y : {-1, 12, std::numeric_limits<int>::max()}) EXPECT_TRUE(rows(y).empty());
}

TEST(Honeycomb, BadArgumentsChangeNothing) {
  OpenHoneycomb image = Noise<OpenHoneycomb>(20, 19, 1, 5);
  const std::string before = Bytes(image);
  using Arg = tagHoneyCombStruct;
  Arg arguments = Arguments(11, 0);
  arguments.subtractBlack = 1;
  arguments.blackLevel = 1.0f;
  EXPECT_EQ(image.Do(arguments, 0), 0);
  arguments.interpolation = 4;
  EXPECT_EQ(image.Do(arguments, 0), 0);
  arguments.interpolation = 3;
  for (int Arg::*const member : {&Arg::pattern, &Arg::srcBits, &Arg::dstBits, &Arg::leftMargin, &Arg::topMargin,
                                 &Arg::rightMargin, &Arg::bottomMargin, &Arg::useGain}) {
    for (const int value : {16, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
      Arg bad = arguments;
      bad.*member = value;
      EXPECT_EQ(image.Do(bad, 0), 0) << value;
    }
  }
  EXPECT_EQ(Bytes(image), before);
  for (const auto& [width, height] : {std::pair{9, 10}, {10, 9}})
    EXPECT_EQ(Shaped<OpenHoneycomb>(width, height, 1).ArgCheck(&arguments), 0);
  EXPECT_EQ(CImgHoneyCombToRgb().Do(arguments, nullptr, 0), 0);
  // Refused late, on purpose.
  arguments.pattern = 5;
  const float first = At(image, 0, 3, 3);
  EXPECT_EQ(image.Do(arguments, 0), 0);
  EXPECT_EQ(At(image, 0, 3, 3), first - 1.0f);
  EXPECT_EQ(image.GetWidth(), 20);
}

TEST(Honeycomb, WithoutMemoryTheMosaicStays) {
  CImgHoneyCombToRgb image = Noise<CImgHoneyCombToRgb>(300, 200, 1, 6);
  const std::string before = Bytes(image);
  const char* const folder = std::getenv("TMPDIR");
  const std::string saved = folder ? folder : "";
  setenv("TMPDIR", "/no such folder", 1);
  TrimStorePool();
  SetStoreMemoryLimit(1);
  EXPECT_EQ(image.Do(Arguments(11), 0), 0);
  SetStoreMemoryLimit(0);
  folder ? setenv("TMPDIR", saved.c_str(), 1) : unsetenv("TMPDIR");
  EXPECT_EQ(Bytes(image), before);
  EXPECT_TRUE(image.Do(Arguments(11), 0));
}

TEST(Honeycomb, ReportsUnitsAsAnnounced) {
  for (const bool isMono : {false, true}) {
    RecordingWindow window;
    CImgHoneyCombToRgb image = Noise<CImgHoneyCombToRgb>(20, 211, 1, 4);
    image.SetProgressHandle(&window);
    const Threads one(1);
    tagHoneyCombStruct arguments = Arguments(13);
    arguments.isMono = isMono;
    arguments.useGamma = isMono;
    ASSERT_TRUE(image.Do(arguments, 1));
    ASSERT_GE(window.events.size(), 3u);
    EXPECT_EQ(window.events.front().text, isMono ? L"モノクロ画像に展開中..." : L"カラー画像に展開中...");
    EXPECT_EQ(window.events.back().code, kProgressEnd);
    // Rows 5 to 206 in 51 bands of 4, and 202 rows of gamma.
    EXPECT_EQ(window.Percents().front(), 4 * 100 / (isMono ? 404 : 202));
    EXPECT_GE(window.Percents().back(), 98);
  }
}

}  // namespace
}  // namespace qmr::test
