// `qmr levels` from outside: what it finds, what it writes, and what it refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/files/png_writer.h"
#include "qmrimg/levels/auto_level.h"
#include "tests/host/picture_folder.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::HasSubstr;

using Words = std::vector<std::string>;
using Levels = std::vector<std::pair<double, double>>;

constexpr int kWidth = 120;
constexpr int kHeight = 90;
constexpr double kSky[] = {1000.0, 1300.0, 900.0};
constexpr double kNoise[] = {5.0, 8.0, 4.0};

// A sky of its own brightness and noise in each plane, and a few stars.
float Scene(Random& random, int plane, int x, int y) {
  double v = kSky[plane] + kNoise[plane] * random.Normal();
  for (const auto& [sx, sy] : {std::pair{24, 18}, {52, 44}, {90, 70}})
    v += 3000.0 * std::exp(-(std::pow(x - sx, 2) + std::pow(y - sy, 2)) / 4.0);
  return static_cast<float>(v);
}

class LevelsCommand : public PictureFolder {
 protected:
  static void Make(CVynImage& image, int planes, double lift = 0.0) {
    Shape(image, kWidth, kHeight, planes);
    Random random(7);
    Fill(image, [&](int p, int x, int y) { return static_cast<float>(Scene(random, p, x, y) + lift); });
  }
  std::string Picture(int planes, const std::vector<Keyword>& keywords = {}, double lift = 0.0) {
    CVynImage image;
    Make(image, planes, lift);
    return Write(image, "in.fit", keywords);
  }
  static nlohmann::json Json(Words words, const std::string& in) {
    words.insert(words.begin(), "levels");
    words.insert(words.end(), {"--json", in});
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, 0) << o.err << testing::PrintToString(words);
    return o.code ? nlohmann::json() : nlohmann::json::parse(o.out);
  }
  static Levels Found(const Words& words, const std::string& in) {
    Levels levels;
    const nlohmann::json found = Json(words, in);
    for (const auto& plane : found["planes"]) levels.emplace_back(plane["black"], plane["white"]);
    return levels;
  }
  static void ExpectNear(const Levels& found, const Levels& expected, double relative, const std::string& what) {
    ASSERT_EQ(found.size(), expected.size()) << what;
    for (std::size_t p = 0; p < found.size(); ++p) {
      const double range = expected[p].second - expected[p].first;
      EXPECT_NEAR(found[p].first, expected[p].first, relative * range) << what << ", plane " << p;
      EXPECT_NEAR(found[p].second, expected[p].second, relative * range) << what << ", plane " << p;
    }
  }
};

TEST_F(LevelsCommand, MethodsAreTheLibrarys) {
  struct Case {
    Words words;
    std::function<void(CImgAutoLevel&, int unlinked)> set;
  };
  const std::vector<Case> cases = {
      {{"--method", "percentile"}, [](CImgAutoLevel& i, int each) { i.DoByNormal(0.005, 0.98, each, nullptr); }},
      {{"--method", "percentile", "--low", "-10", "--high", "97.5"},
       [](CImgAutoLevel& i, int each) { i.DoByNormal(-0.1, 0.975, each, nullptr); }},
      {{"--method", "mean", "--below", "0.5", "--above", "2"},
       [](CImgAutoLevel& i, int each) { i.DoByMean(0.5, 2.0, each, nullptr); }},
      {{"--method", "median"}, [](CImgAutoLevel& i, int each) { i.DoByMedian(0.4, 4.0, each, nullptr); }},
      {{"--method", "mode", "--mode-level", "51", "--depth", "20", "--balance", "modes"},
       [](CImgAutoLevel& i, int each) { i.DoByHistogram(20.0, 80.0, each, 0, nullptr); }},
      {{"--method", "mode", "--depth", "20", "--mode-level", "127.5", "--balance", "none"},
       [](CImgAutoLevel& i, int each) { i.DoByHistogram(20.0, 20.0, each, 1, nullptr); }},
      {{"--method", "mode", "--balance", "first"}, [](CImgAutoLevel& i, int each) {
         for (int p = 0; p < i.GetPlanes(); ++p) static_cast<CImage&>(i).SetLevel(p, 800.0, 5000.0);
         i.DoByHistogram(1.0, 9.0, each, 2, nullptr);
       }}};
  for (const int planes : {1, 3}) {
    const std::string in = Picture(planes, {Keyword::Real("CBLACK", 800.0), Keyword::Real("CWHITE", 5000.0)});
    for (const Case& c : cases) {
      for (const int unlinked : {0, 1}) {
        CImgAutoLevel library;
        Make(library, planes);
        double least = 1e9, greatest = 0.0;
        for (int p = 0; p < planes; ++p) {
          double min = 0.0, max = 0.0;
          library.GetMinMax(p, &min, &max);
          least = std::min(least, min);
          greatest = std::max(greatest, max);
        }
        for (int p = 0; p < planes; ++p) static_cast<CImage&>(library).SetLevel(p, least, greatest);
        c.set(library, unlinked);
        Levels expected;
        for (int p = 0; p < planes; ++p) expected.emplace_back(library.GetLevelMin(p), library.GetLevelMax(p));
        Words words = c.words;
        words.push_back(unlinked ? "--unlinked" : "--linked");
        ExpectNear(Found(words, in), expected, 1e-6, testing::PrintToString(words));
      }
    }
  }
}

TEST_F(LevelsCommand, SkyAndNoiseAreWhatThePictureHas) {
  const std::string in = Picture(3);
  Levels each;
  for (int p = 0; p < 3; ++p) each.emplace_back(kSky[p] - 6 * kNoise[p], kSky[p] + 54 * kNoise[p]);
  ExpectNear(Found({"--method", "noise", "--unlinked"}, in), each, 0.03, "noise");
  ExpectNear(Found({"--method", "mode"}, in), each, 0.15, "mode");
  // The sky's range is that of the mean noise.
  const double noise = (kNoise[0] + kNoise[1] + kNoise[2]) / 3.0;
  Levels sky;
  for (int p = 0; p < 3; ++p) sky.emplace_back(kSky[p] - 6 * noise, kSky[p] + 54 * noise);
  ExpectNear(Found({"--method", "sky"}, in), sky, 0.05, "sky");
  EXPECT_EQ(Found({}, in), Found({"--method", "sky"}, in));
  for (const auto& [black, white] : Found({"--method", "span", "--unlinked"}, in)) {
    EXPECT_GT(black, 800.0);
    EXPECT_LT(white, 2500.0);
  }
}

// The place of the sky on the scale doesn't count, nor what lies outside the part that is measured, nor blank pixels.
TEST_F(LevelsCommand, OnlyMeasuredPixelsCount) {
  constexpr double kDown = -1290.0;
  const std::vector<Words> methods = {
      {"--method", "percentile"}, {"--method", "mean"}, {"--method", "median", "--unlinked"},
      {"--method", "mode"},       {"--method", "span"}, {"--method", "noise", "--about", "mode"}};
  CVynImage cut, framed;
  const int left = 8, top = 5, width = 100, height = 80;
  Shape(cut, width, height, 3);
  Shape(framed, kWidth, kHeight, 3);
  Random random(11);
  Fill(cut, [&](int p, int x, int y) { return Scene(random, p, x, y); });
  for (const bool blank : {false, true}) {
    Fill(framed, [&](int p, int x, int y) {
      const bool inside = x >= left && x < left + width && y >= top && y < top + height;
      return inside ? At(cut, p, x - left, y - top) : blank ? std::numeric_limits<float>::quiet_NaN() : 60000.0f;
    });
    for (const Words& method : methods) {
      const Levels expected = Found(method, Write(cut, "cut.fit"));
      Words words = method;
      if (!blank) words.insert(words.end(), {"--rect", "8,5,108,85"});
      ExpectNear(Found(words, Write(framed, "framed.fit")), expected, 1e-6, method[1]);
    }
  }
  for (const Words& method : methods) {
    Levels expected = Found(method, Picture(3));
    for (auto& [black, white] : expected) {
      black += kDown;
      white += kDown;
    }
    ExpectNear(Found(method, Picture(3, {}, kDown)), expected, 2e-3, method[1] + " below 0");
  }
}

TEST_F(LevelsCommand, WritesThePixelsWithTheLevelsThatOthersTake) {
  CVynImage image;
  Make(image, 3);
  image.SetPixelGrayRaw(3, 4, std::numeric_limits<float>::quiet_NaN(), 1);
  const std::string in = Write(image, "in.fit",
                               {Keyword::Text("OBJECT", "M 42"), Keyword::Real("CBLACK", 1.0),
                                Keyword::Real("CWHITE", 2.0), Keyword::Real("CBLACK3", 7.0)});
  const std::string out = Path("out.fit");
  struct Case {
    Words words;
    std::string levels;  // as the other commands print them
    int keywords;
  };
  for (const Case& c :
       {Case{{"--black", "900", "--white", "4000.5"}, "900,4000.5,900,4000.5,900,4000.5", 2},
        Case{
            {"--method", "manual", "--black", "900,950,-20.25", "--white", "4000"}, "900,4000,950,4000,-20.25,4000", 6},
        Case{{"--black", "900,900,5", "--white", "4000,4000,6"}, "900,4000,900,4000,5,6", 4}}) {
    Words words = {"levels", "--force", in, out};
    words.insert(words.begin() + 1, c.words.begin(), c.words.end());
    const Outcome o = RunQmr(words);
    ASSERT_EQ(o.code, 0) << o.err;
    EXPECT_EQ(o.out, "wrote " + out + "\n");
    const DecodedImage written = Read(out);
    const DecodedImage before = Read(in);
    for (int p = 0; p < 3; ++p)
      for (std::size_t i = 0; i < written.PlanePixels(); ++i)
        ASSERT_TRUE(written.Plane(p)[i] == before.Plane(p)[i] ||
                    (std::isnan(written.Plane(p)[i]) && std::isnan(before.Plane(p)[i])));
    EXPECT_EQ(KeywordText(written.keywords, "OBJECT"), "M 42");
    int keywords = 0;
    for (const Keyword& k : written.keywords) keywords += k.name.starts_with("CBLACK") || k.name.starts_with("CWHITE");
    EXPECT_EQ(keywords, c.keywords);
    const Outcome next = RunQmr({"filter", "contour", "-v", "-f", out, Path("next.fit")});
    EXPECT_THAT(next.out, HasSubstr("--levels " + c.levels + "\n"));
    EXPECT_EQ(Found({"--method", "file"}, out), Found({}, out));
  }
  // HISTORY tells the method, so that it gives the same again.
  for (const Words& words : {Words{"--method", "mode", "--balance", "first", "--linked"},
                             Words{"--method", "percentile", "--rect", "2,2,70,80"}, Words{"--method", "sky"}}) {
    Words all = {"levels", "-q", "-f", in, out};
    all.insert(all.end(), words.begin(), words.end());
    ASSERT_EQ(RunQmr(all).code, 0);
    std::string history;
    const DecodedImage written = Read(out);
    for (const Keyword& keyword : written.keywords)
      if (keyword.name == "HISTORY") history += std::get<std::string>(keyword.value);
    ASSERT_THAT(history, testing::StartsWith("qmr levels --method "));
    const Outcome again = RunQmr({in}, 0, {"/bin/sh", "-c", "\"$0\"" + history.substr(3) + " --json \"$1\""});
    const auto json = nlohmann::json::parse(again.out);
    EXPECT_EQ(json["planes"][2]["black"], Found({"--method", "file"}, out)[2].first) << history;
    EXPECT_EQ(json["command"], history);
  }
}

TEST_F(LevelsCommand, PicturesRunFromBlackToWhite) {
  CVynImage image;
  Shape(image, 4, 3, 3);
  Fill(image, [](int p, int x, int y) { return static_cast<float>(50 * p + 20 * x + 60 * y); });
  const std::string in = Write(image, "in.fit");
  ASSERT_EQ(RunQmr({"levels", "--black", "0,50,10", "--white", "200,150,90", in, Path("out.png")}).code, 0);
  const double black[] = {0, 50, 10}, white[] = {200, 150, 90};
  std::vector<std::uint16_t> expected;
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x)
      for (int p = 0; p < 3; ++p) {
        const double share = (At(image, p, x, y) - black[p]) / (white[p] - black[p]);
        expected.push_back(static_cast<std::uint16_t>(std::lround(std::min(std::max(share, 0.0), 1.0) * 65535.0)));
      }
  ASSERT_FALSE(WritePng16(Path("expected.png"), 4, 3, 3, expected));
  EXPECT_TRUE(ReadBytes(Path("out.png")) == ReadBytes(Path("expected.png")));
}

TEST_F(LevelsCommand, TellsPlanes) {
  CVynImage image;
  Shape(image, 4, 2, 1);
  Fill(image, [](int, int x, int y) { return static_cast<float>(x + 4 * y); });
  image.SetPixelGrayRaw(0, 0, std::numeric_limits<float>::quiet_NaN(), 0);
  const std::string in = Write(image, "in.fit");
  const nlohmann::json told = Json({"--black", "1", "--white", "4"}, in);
  const nlohmann::json plane = {{"name", "grey"}, {"black", 1.0},   {"white", 4.0}, {"pixels", 7},  {"blank", 1},
                                {"minimum", 1.0}, {"maximum", 7.0}, {"mean", 4.0},  {"median", 4.0}};
  EXPECT_EQ(told["planes"], nlohmann::json::array({plane}));
  EXPECT_EQ(told["levelsFrom"], "manual");
  // Mean 4, deviation 2.
  for (const auto& same : told["same"]) {
    if (same["method"] != "mean") continue;
    EXPECT_DOUBLE_EQ(same["below"], 1.5);
    EXPECT_DOUBLE_EQ(same["above"], 0.0);
  }
  EXPECT_EQ(told["same"].size(), 3u);
  const Outcome table = RunQmr({"levels", "--black", "1", "--white", "4", "-v", in});
  for (const char* part : {"grey", "--method mean --below 1.5 --above 0", "--black 1 --white 4"})
    EXPECT_THAT(table.out, HasSubstr(part));
  // What is given for one use of a method is good for another.
  EXPECT_THAT(RunQmr({"levels", "--help"}).out, HasSubstr("--mode-level"));
}

TEST_F(LevelsCommand, RefusesWhatWontDo) {
  const std::string in = Picture(3);
  CVynImage flat;
  Shape(flat, 20, 10, 1);
  Fill(flat, [](int, int, int) { return 7.0f; });
  Write(flat, "flat.fit");
  Fill(flat, [](int, int, int) { return std::numeric_limits<float>::quiet_NaN(); });
  Write(flat, "blank.fit");
  WriteBytes(Path("old.fit"), "yesterday");
  const std::vector<Refusal> cases = {
      {{in, "OUT", "--method", "percentil"}, 64, "did you mean percentile?"},
      {{in, "OUT", "--method", "best"}, 64, "one of percentile, "},
      {{in, "OUT", "--low", "1"}, 64, "--method percentile"},
      {{in, "OUT", "--method", "mean", "--low", "1"}, 64, "not to mean"},
      {{in, "OUT", "--method", "mean", "--below", "x"}, 64, "a number"},
      {{in, "OUT", "--method", "sky", "--linked"}, 64, "--linked"},
      {{in, "OUT", "--method", "sky", "--rect", "0,0,9,9"}, 64, "--rect"},
      {{in, "OUT", "--method", "mean", "--linked", "--unlinked"}, 64, "--unlinked"},
      {{in, "OUT", "--method", "mode", "--mode-level", "255"}, 64, "0.1 to 254"},
      {{in, "OUT", "--method", "mode", "--balance", "red"}, 64, "modes, none, first"},
      {{in, "OUT", "--method", "mean", "--rect", "200,0,300,9"}, 64, "120 x 90"},
      {{in, "OUT", "--black", "5"}, 64, "--white"},
      {{in, "OUT", "--black", "5", "--white", "5"}, 64, "--black"},
      {{in, "OUT", "--black", "5,6", "--white", "9"}, 64, "or 3"},
      {{in, "OUT", "--method", "mean", "--black", "5"}, 64, "manual"},
      {{in, "--force"}, 64, "--force"},
      {{in, Path("out.tif")}, 64, ".fit"},
      {{in, "OUT", "--method", "file"}, 65, "CBLACK"},
      {{in, "OUT", "--method", "percentile", "--low", "90", "--high", "10"}, 65, "black"},
      {{Path("flat.fit"), "OUT", "--method", "mean"}, 65, "grey: black 7, white 7"},
      {{Path("flat.fit"), "OUT", "--method", "span"}, 65, "black"},
      {{Path("blank.fit"), "OUT", "--method", "noise"}, 65, "no pixel"},
      {{Path("none.fit"), "OUT"}, 66, "none.fit"},
      {{in, Path("old.fit")}, 73, "--force"}};
  ExpectRefused("levels", cases);
  EXPECT_EQ(ReadBytes(Path("old.fit")), "yesterday");
}

}  // namespace
}  // namespace qmr::test
