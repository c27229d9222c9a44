// `qmr adjust` from outside: every adjustment, what it finds by itself, and the levels of its results.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "host/operations/monotone_curve.h"
#include "host/operations/operation.h"
#include "tests/host/picture_folder.h"
#include "tests/host/program.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

using Words = std::vector<std::string>;

constexpr int kWidth = 90;
constexpr int kHeight = 70;
constexpr float kBlank = std::numeric_limits<float>::quiet_NaN();

// A sky that differs from plane to plane, a hazy patch, and orange stars: 1, 0.8 and 0.5 of their light.
float ScenePixel(int plane, int x, int y, Random& random) {
  const double skies[] = {1000.0, 900.0, 700.0};
  const double light[] = {1.0, 0.8, 0.5};
  double v = skies[plane] + 5.0 * random.Normal();
  if (std::hypot(x - 45, y - 32) < 14) v += 150.0;
  for (const auto& [sx, sy, peak] : {std::tuple{24, 18, 6000.0},
                                     {52, 44, 4000.0},
                                     {38, 40, 3500.0},
                                     {70, 15, 3000.0},
                                     {15, 55, 2500.0},
                                     {75, 60, 2000.0},
                                     {30, 60, 20000.0}})
    v += light[plane] * peak * std::exp(-(std::pow(x - sx, 2) + std::pow(y - sy, 2)) / 4.0);
  return static_cast<float>(v);
}

class AdjustCommand : public PictureFolder {
 protected:
  std::string Scene(int planes, const std::vector<Keyword>& keywords = {}, bool blanks = false) {
    Shape(image_, kWidth, kHeight, planes);
    Random random(5);
    Fill(image_, [&](int plane, int x, int y) { return ScenePixel(plane, x, y, random); });
    if (blanks)
      for (const auto& [x, y] : {std::pair{40, 30}, {0, 0}, {12, 20}}) image_.SetPixelGrayRaw(x, y, kBlank, planes - 1);
    return Write(image_, "in.fit", keywords);
  }
  // One row of pixels in each plane.
  std::string Row(const std::vector<std::vector<float>>& planes, const std::vector<Keyword>& keywords = {}) {
    Shape(image_, static_cast<int>(planes[0].size()), 1, static_cast<int>(planes.size()));
    Fill(image_, [&](int p, int x, int) { return planes[static_cast<std::size_t>(p)][static_cast<std::size_t>(x)]; });
    return Write(image_, "row.fit", keywords);
  }
  DecodedImage Run(Words words, const std::string& in, const std::string& out = "out.fit") {
    words.insert(words.begin(), "adjust");
    words.insert(words.end(), {"--quiet", "--force", in, Path(out)});
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, 0) << o.err << testing::PrintToString(words);
    return Read(Path(out));
  }
  // All planes one after the other; blank pixels are -12345.
  static std::vector<float> Values(const DecodedImage& image) {
    std::vector<float> all;
    for (int p = 0; p < image.planes; ++p)
      for (const float v : image.Plane(p)) all.push_back(std::isnan(v) ? -12345.0f : v);
    return all;
  }
  static std::vector<float> Plane(const DecodedImage& image, int plane) {
    return {image.Plane(plane).begin(), image.Plane(plane).end()};
  }

  CVynImage image_;
};

// What has to be given beyond the defaults for something to change.
Words Wanted(std::string_view name, int planes) {
  if (name == "calculate") return {"--multiply", "1.5"};
  if (name == "normalise" && planes == 1) return {"--mean", "500"};
  if (name == "balance") return {"--red", "5", "--green", "6", "--blue", "7"};
  if (name == "white-balance") return {"--white", "1,2,3", "--gain", "1.5"};
  if (name == "planet-map") return {"--centre", "45,32", "--radius", "14"};
  return {};
}

TEST_F(AdjustCommand, ListAndHelpTellAllParameters) {
  const Outcome list = RunQmr({"adjust", "--list"});
  EXPECT_EQ(list.code, 0);
  for (const OperationSpec& adjustment : Adjustments()) {
    const Outcome help = RunQmr({"adjust", std::string(adjustment.name), "--help"});
    EXPECT_EQ(help.code, 0);
    for (const Parameter* parameter : ParametersOf(adjustment))
      for (const std::string& text : {list.out, help.out})
        EXPECT_THAT(text, AllOf(HasSubstr("--" + std::string(parameter->key)), HasSubstr(Describe(*parameter))));
  }
}

TEST_F(AdjustCommand, EachChangesItsPartAndLeavesBlankPixelsBlank) {
  const CRect part(12, 9, 61, 55);
  for (const OperationSpec& adjustment : Adjustments()) {
    for (const int planes : {1, 3}) {
      if ((adjustment.input == OperationInput::kColour && planes == 1) || adjustment.moves) continue;
      const std::string in = Scene(planes, {}, true);
      Words words = Wanted(adjustment.name, planes);
      words.insert(words.begin(), std::string(adjustment.name));
      if (!adjustment.wholeOnly) words.insert(words.end(), {"--rect", "12,9,61,55"});
      const DecodedImage out = Run(words, in);
      const int expected = adjustment.name == "grey" ? 1 : adjustment.name == "pseudo-colour" ? 3 : planes;
      ASSERT_EQ(out.planes, expected);
      for (int p = 0; p < out.planes; ++p) {
        int changed = 0;
        for (int y = 0; y < kHeight; ++y) {
          for (int x = 0; x < kWidth; ++x) {
            const bool blank = std::isnan(At(image_, planes - 1, x, y)) && (planes != expected || p == planes - 1);
            const float before = At(image_, std::min(p, planes - 1), x, y);
            const float after = out.Row(p, y)[x];
            const bool inside =
                adjustment.wholeOnly || (x >= part.left && x < part.right && y >= part.top && y < part.bottom);
            ASSERT_EQ(blank, std::isnan(after)) << adjustment.name << " " << p << " " << x << " " << y;
            ASSERT_TRUE(blank || inside || before == after) << adjustment.name << " " << p << " " << x << " " << y;
            changed += !blank && before != after;
          }
        }
        EXPECT_GT(changed, 0) << adjustment.name << ", plane " << p << " of " << planes;
      }
    }
  }
}

TEST_F(AdjustCommand, SameBitsForThreadsAndProcessorLevels) {
  const std::string loader = "/lib64/ld-linux-x86-64.so.2";
  const std::string in = Scene(3);
  for (const OperationSpec& adjustment : Adjustments()) {
    std::string first;
    const auto check = [&](const char* threads, const Words& before) {
      Words words = Wanted(adjustment.name, 3);
      words.insert(words.begin(), {"adjust", std::string(adjustment.name)});
      words.insert(words.end(), {"-q", "-f", in, Path("out.fit"), "--threads", threads});
      const Outcome o = RunQmr(words, 0, before);
      ASSERT_EQ(o.code, 0) << o.err;
      const std::string bytes = ReadBytes(Path("out.fit"));
      if (first.empty()) first = bytes;
      EXPECT_TRUE(bytes == first) << adjustment.name << " " << threads << testing::PrintToString(before);
    };
    for (const char* threads : {"1", "2", "3"}) check(threads, {});
    if (!std::filesystem::exists(loader)) continue;
    for (const char* level : {"x86-64-v2", "x86-64-v4"}) check("2", {loader, "--glibc-hwcaps-mask", level});
  }
}

// Levels of 100 to 1120 make a level four values wide.
TEST_F(AdjustCommand, WorkedNumbers) {
  const Words levels = {"--levels", "100,1120"};
  const auto run = [&](Words words, const std::string& in, bool withLevels = true) {
    if (withLevels) words.insert(words.end(), levels.begin(), levels.end());
    return Run(words, in);
  };
  const std::string in = Row({{60, 100, 500, 1120, 5000}});
  EXPECT_THAT(Plane(run({"brightness", "--brightness", "10", "--contrast", "128", "--average", "50"}, in), 0),
              ElementsAre(-20, 40, 640, 1570, 7390));
  // Without --average: that of levels 0, 0, 100, 255 and 255.
  EXPECT_THAT(Plane(run({"brightness", "--contrast", "-256"}, in), 0), testing::Each(588));
  EXPECT_THAT(Plane(run({"cut-off", "--high", "0"}, in), 0), ElementsAre(100, 100, 500, 100, 100));
  EXPECT_THAT(Plane(run({"invert"}, in), 0),
              testing::Pointwise(testing::FloatNear(0.001f), {1160, 1120, 720, 100, -3780}));
  EXPECT_THAT(Plane(run({"posterise", "--tones", "4"}, in), 0), ElementsAre(100, 100, 355, 865, 865));
  EXPECT_THAT(Plane(run({"h-alpha", "--knee", "102", "--knee-output", "51"}, in), 0)[2], 300.0f);
  // Straight to a white that is not 255: level there, so what lies above ends there, too.
  EXPECT_THAT(Plane(run({"tone-curve", "--points", "0:0,255:127.5"}, in), 0),
              ElementsAre(100, 100, testing::FloatNear(300, 0.1f), 610, 610));
  EXPECT_THAT(Plane(run({"tone-curve", "--points", "128:128"}, in), 0),
              ElementsAre(100, 100, testing::FloatNear(500, 0.1f), testing::FloatNear(1120, 0.01f),
                          testing::FloatNear(5000, 50.0f)));
  EXPECT_THAT(Plane(Run({"calculate", "--subtract", "500", "--clamp"}, in), 0), ElementsAre(0, 0, 0, 620, 4500));
  EXPECT_THAT(Plane(Run({"calculate", "--divide", "4"}, in), 0), ElementsAre(15, 25, 125, 280, 1250));
  EXPECT_THAT(Plane(Run({"normalise", "--mean", "10", "--sigma", "2"}, Row({{4, 4, 8, 8}})), 0),
              ElementsAre(8, 8, 12, 12));
  EXPECT_THAT(Plane(run({"equalise", "--seed", "3"}, Row({{8, 0, 2, 4}})), 0), ElementsAre(6, 0, 2, 4));

  const std::string colour = Row({{100, 508}, {100, 304}, {100, 1120}});
  EXPECT_THAT(Values(run({"balance", "--green", "1"}, colour)), ElementsAre(100, 508, 104, 308, 100, 1120));
  EXPECT_THAT(Values(run({"white-balance", "--white", "4,2,10", "--sky", "100,100,100"}, colour)),
              ElementsAre(100, 1120, 100, 1120, 100, 1120));
  // Red becomes green, both ways of counting; on values of the file 0 becomes the least number above it.
  const std::string swap = "0,1,0,1,0,0,0,0,1";
  EXPECT_THAT(Values(run({"correct", "--matrix", swap}, colour)), ElementsAre(100, 304, 100, 508, 100, 1120));
  EXPECT_THAT(Values(Run({"correct", "--matrix", "2,0,0,0,1,0,0,0,1", "--scale", "file", "--offset", "100"}, colour)),
              ElementsAre(100, 916, 100, 304, 100, 1120));
  EXPECT_THAT(Plane(run({"grey"}, colour), 0), ElementsAre(100, testing::FloatNear(458.0f, 0.1f)));
  const DecodedImage faded = run({"saturation", "--gain", "0"}, colour);
  for (int p = 0; p < 3; ++p) EXPECT_NEAR(faded.Row(p, 0)[1], faded.Row(0, 0)[1], 0.5);
  // Half of the palette from blue to red is green; above its end it stays red.
  const DecodedImage shown =
      run({"pseudo-colour", "--palette", "blue-red", "--low", "0", "--high", "200"}, Row({{100, 500, 2000}}));
  EXPECT_THAT(Values(shown), ElementsAre(100, 100, 1120, 100, 1120, 100, 1120, 100, 100));
}

TEST_F(AdjustCommand, WhatItFindsByItself) {
  const std::string in = Scene(3);
  const auto said = [&](const Words& more) {
    Words words = {"adjust"};
    words.insert(words.end(), more.begin(), more.end());
    words.insert(words.end(), {"-v", "-f", in, Path("out.fit")});
    return RunQmr(words).out;
  };
  // The stars' colour, not the patch's; the burnt-out one counts as little.
  double white[3] = {};
  const std::string stars = said({"white-balance"});
  ASSERT_EQ(std::sscanf(stars.c_str() + stars.find("--white "), "--white %lf,%lf,%lf", white, white + 1, white + 2), 3);
  EXPECT_NEAR(white[1] / white[0], 0.8, 0.01);
  EXPECT_NEAR(white[2] / white[0], 0.5, 0.01);
  const DecodedImage balanced = Read(Path("out.fit"));
  EXPECT_NEAR(balanced.Row(2, 18)[24] - 700.0f, balanced.Row(0, 18)[24] - 1000.0f, 150.0);
  // Under levels common to all planes the sky has a tint.
  EXPECT_THAT(said({"balance"}), HasSubstr("--red 0 --green 0 --blue 0"));
  said({"balance", "--levels", "500,1500"});
  const DecodedImage grey = Read(Path("out.fit"));
  for (int p = 0; p < 3; ++p) EXPECT_NEAR(grey.Row(p, 2)[5], 2600.0 / 3.0, 20.0);
  // The planes of the result agree.
  Run({"normalise"}, in);
  CVynImage even;
  Shape(even, kWidth, kHeight, 3);
  const DecodedImage normal = Read(Path("out.fit"));
  Fill(even, [&](int p, int x, int y) { return normal.Row(p, y)[x]; });
  for (int p = 1; p < 3; ++p) {
    EXPECT_NEAR(even.GetAvrGrayRaw(p), even.GetAvrGrayRaw(0), 0.05);
    EXPECT_NEAR(even.CalcStdDev(p, nullptr), even.CalcStdDev(0, nullptr), 0.05);
  }
}

// A globe whose quarter towards the upper right is brighter, leaning 30 degrees clockwise.
TEST_F(AdjustCommand, PlanetMapFindsTheDiscAndUnrollsIt) {
  Shape(image_, 160, 120, 1);
  Random random(2);
  const double lean = 30.0 * 3.14159265358979 / 180.0;
  const double radius = 40.0;
  Fill(image_, [&](int, int x, int y) {
    const double right = (x - 70.3) / radius;
    const double up = (61.8 - y) / radius;
    const double east = right * std::cos(lean) - up * std::sin(lean);
    const double north = right * std::sin(lean) + up * std::cos(lean);
    const double globe = std::hypot(right, up) > 1.0 ? 0.0 : east > 0.0 && north > 0.0 ? 9000.0 : 6000.0;
    return static_cast<float>(100.0 + globe + 20.0 * random.Normal());
  });
  const std::string in = Write(image_, "in.fit",
                               {Keyword::Text("CTYPE1", "RA---TAN"), Keyword::Real("CD1_2", 0.1),
                                Keyword::Real("CRPIX1", 3.0), Keyword::Text("OBJECT", "Mars")});
  const DecodedImage map = Run({"planet-map", "--lean", "30", "--map-width", "160", "--levels", "0,10000"}, in);
  ASSERT_EQ(map.width, 160);
  ASSERT_EQ(map.height, 80);
  // Longitude and latitude, degrees.
  const auto at = [&](double longitude, double latitude) {
    return map.Row(0, static_cast<int>(40 - latitude * 80 / 180))[static_cast<int>(80 + longitude * 160 / 360)];
  };
  EXPECT_NEAR(at(30, 30), 9100.0f, 100.0);
  for (const auto& [longitude, latitude] : {std::pair{-30, 30}, {30, -30}, {-30, -30}})
    EXPECT_NEAR(at(longitude, latitude), 6100.0f, 100.0);
  EXPECT_EQ(at(120, 0), 0.0f);
  EXPECT_EQ(KeywordText(map.keywords, "OBJECT"), "Mars");
  for (const char* name : {"CTYPE1", "CD1_2", "CRPIX1"}) EXPECT_FALSE(FindKeyword(map.keywords, name)) << name;
  double found[3] = {};
  const std::string out = RunQmr({"adjust", "planet-map", "-v", in, Path("map.fit")}).out;
  ASSERT_EQ(
      std::sscanf(out.c_str(), "qmr adjust planet-map --centre %lf,%lf --radius %lf", found, found + 1, found + 2), 3);
  EXPECT_THAT(found, testing::Pointwise(testing::DoubleNear(0.6), {70.3, 61.8, 40.0}));
  const Outcome none = RunQmr({"adjust", "planet-map", "-f", Scene(1), Path("out.fit")});
  EXPECT_EQ(none.code, 65);
  EXPECT_TRUE(OneLine(none.err)) << none.err;
}

// Told levels, a plane each, make the next command see the picture as this one left it.
TEST_F(AdjustCommand, HistoryRepeatsAndLevelsGoOn) {
  const std::string in = Scene(3, {Keyword::Text("OBJECT", "M 42")});
  for (const OperationSpec& adjustment : Adjustments()) {
    Words words =
        adjustment.name == "white-balance" || adjustment.name == "balance" ? Words{} : Wanted(adjustment.name, 3);
    words.insert(words.begin(), std::string(adjustment.name));
    if (adjustment.name == "tone-curve") words.insert(words.end(), {"--red", "20:10.5,100:140"});
    const DecodedImage first = Run(words, in);
    EXPECT_EQ(KeywordText(first.keywords, "OBJECT"), "M 42");
    const bool told = adjustment.resultLevels == ResultLevels::kTold;
    EXPECT_EQ(FindKeyword(first.keywords, "CBLACK") != nullptr, told) << adjustment.name;
    std::string history;
    for (const Keyword& keyword : first.keywords)
      if (keyword.name == "HISTORY") history += std::get<std::string>(keyword.value);
    Words again;
    for (std::size_t at = std::string("qmr adjust ").size(); at < history.size();) {
      const std::size_t end = std::min(history.find(' ', at), history.size());
      if (end > at) again.push_back(history.substr(at, end - at));
      at = end + 1;
    }
    EXPECT_EQ(Values(Run(again, in, "again.fit")), Values(first)) << history;
  }
  Run({"brightness"}, in, "bright.fit");
  const Outcome next = RunQmr({"filter", "gaussian", "-v", Path("bright.fit"), Path("next.fit")});
  const DecodedImage bright = Read(Path("bright.fit"));
  EXPECT_THAT(next.out, HasSubstr("levels from CBLACK and CWHITE"));
  EXPECT_THAT(KeywordText(bright.keywords, "HISTORY").value_or(""), HasSubstr("--average"));
  for (const char* name : {"CBLACK", "CWHITE", "CBLACK2", "CWHITE2", "CBLACK3", "CWHITE3"})
    EXPECT_THAT(next.out, HasSubstr(KeywordText(bright.keywords, name).value_or("missing"))) << name;
  // Values that were changed take the levels of the file with them.
  const std::string levelled = Scene(1, {Keyword::Real("CBLACK", 800.0), Keyword::Real("CWHITE", 5000.0)});
  EXPECT_FALSE(FindKeyword(Run({"calculate", "--add", "9"}, levelled).keywords, "CWHITE"));
  const DecodedImage given = Run({"calculate", "--add", "9", "--levels", "1,2"}, levelled);
  EXPECT_EQ(KeywordNumber(given.keywords, "CWHITE"), 2.0);
}

TEST_F(AdjustCommand, BadWordsAreOneLine) {
  const std::string colour = Scene(3);
  std::filesystem::rename(colour, Path("colour.fit"));
  Scene(1);
  const std::vector<std::tuple<Words, int, std::string>> cases = {
      {{"invrt"}, 64, "did you mean invert?"},
      {{"calculate"}, 64, "--add, --subtract, --multiply, --divide"},
      {{"calculate", "--add", "1", "--divide", "2"}, 64, "one of"},
      {{"calculate", "--divide", "1e-60"}, 64, "not by 0"},
      {{"calculate", "--add", "1", "--clamp"}, 64, "--subtract"},
      {{"normalise"}, 64, "--mean"},
      {{"normalise", "--rect", "0,0,9,9"}, 64, "--rect"},
      {{"tone-curve", "--points", "0:0,64"}, 64, "IN:OUT"},
      {{"tone-curve", "--points", "64:9,64:10"}, 64, "ascend"},
      {{"tone-curve", "--points", "300:9"}, 64, "0 to 255"},
      {{"tone-curve", "--points", "30:x"}, 64, "a number"},
      {{"tone-curve", "--red", "30:40"}, 64, "--points"},
      {{"h-alpha", "--auto-level", "0.001"}, 64, "white"},
      {{"pseudo-colour", "--low", "255"}, 64, "below --high"},
      {{"pseudo-colour", "--palette", "mauve"}, 64, "rainbow"},
      {{"equalise", "--seed", "-1"}, 64, "0 to"},
      {{"planet-map", "--centre", "3"}, 64, "two values"},
      {{"grey"}, 65, "wants colour"},
      {{"correct", "--matrix", "1,2,3"}, 64, "nine values"},
      {{"correct", "--offset", "3", "COLOUR"}, 64, "--scale file"},
      {{"correct", "--scale", "file", "--offset", "3", "--offset-minimum", "COLOUR"}, 64, "--offset-minimum"}};
  for (const auto& [given, code, said] : cases) {
    Words words = given;
    words.insert(words.begin(), "adjust");
    if (words.back() == "COLOUR")
      words.back() = Path("colour.fit");
    else
      words.push_back(Path("in.fit"));
    words.push_back(Path("out.fit"));
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, code) << testing::PrintToString(words);
    EXPECT_TRUE(OneLine(o.err)) << o.err;
    EXPECT_THAT(o.err, HasSubstr(said)) << testing::PrintToString(words);
  }
  EXPECT_THAT(folder_.List(), ElementsAre("colour.fit", "in.fit"));
}

TEST(MonotoneCurve, MeetsItsPointsAndSwingsNowhere) {
  Random random(11);
  for (int round = 0; round < 50; ++round) {
    std::vector<double> x, y;
    for (double at = 0.0; x.size() < 6; at += random.Uniform(0.1, 50.0)) {
      x.push_back(at);
      y.push_back(random.Integer(0, 5) * 40.0);
    }
    const MonotoneCurve curve(x, y);
    for (std::size_t i = 0; i + 1 < x.size(); ++i) {
      EXPECT_DOUBLE_EQ(curve.At(x[i]), y[i]);
      const double direction = y[i + 1] < y[i] ? -1.0 : 1.0;
      double before = y[i];
      for (int step = 1; step <= 20; ++step) {
        const double now = curve.At(x[i] + (x[i + 1] - x[i]) * step / 20.0);
        EXPECT_GE((now - before) * direction, -1e-9) << round << " " << i;
        before = now;
      }
    }
  }
  // Smooth where the points allow it: a parabola's slope in the middle of three.
  const MonotoneCurve parabola({0, 1, 3}, {0, 1, 9});
  EXPECT_NEAR((parabola.At(1.001) - parabola.At(0.999)) / 0.002, 2.0, 0.01);
  EXPECT_EQ(MonotoneCurve({5}, {7}).At(100.0), 7.0);
}

}  // namespace
}  // namespace qmr::test
