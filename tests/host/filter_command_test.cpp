// `qmr filter` from outside: every filter, bad words, and what a result may and may not hold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <iterator>
#include <limits>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/files/png_writer.h"
#include "host/operations/operation.h"
#include "qmrimg/filters/filter_blur.h"
#include "tests/host/picture_folder.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using Words = std::vector<std::string>;

constexpr int kWidth = 90;
constexpr int kHeight = 70;

// A sky with noise, a bright hazy patch of a violet tint, stars, and one hot pixel at 30, 25.
void FillScene(CVynImage& image) {
  Random random(5);
  Fill(image, [&](int plane, int x, int y) {
    double v = 1000.0 + 5.0 * random.Normal();
    const double patch = std::hypot(x - 45, y - 32);
    const double tint[] = {500.0, 500.0, 1250.0};
    if (patch < 14) v += tint[plane] + 20.0 * random.Normal();
    for (const auto& [sx, sy] : {std::pair{24, 18}, {52, 44}, {38, 40}, {70, 15}})
      v += 6000.0 * std::exp(-(std::pow(x - sx, 2) + std::pow(y - sy, 2)) / 4.0);
    if (x == 30 && y == 25) v += 20000.0;
    return static_cast<float>(v);
  });
}

class FilterCommand : public PictureFolder {
 protected:
  std::string Scene(int planes, const std::vector<Keyword>& keywords = {}) {
    CVynImage image;
    Shape(image, kWidth, kHeight, planes);
    FillScene(image);
    return Write(image, "in.fit", keywords);
  }

  // Runs `qmr filter` on IN and reads what it wrote; fails when it does not succeed.
  DecodedImage Run(Words words, const std::string& in) {
    words.insert(words.begin(), "filter");
    words.insert(words.end(), {"--quiet", "--force", in, Path("out.fit")});
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, 0) << o.err << testing::PrintToString(words);
    EXPECT_EQ(o.out + o.err, "");
    return Read(Path("out.fit"));
  }
  using PictureFolder::Bits;
  static std::vector<float> Bits(const CVynImage& image) {
    std::vector<float> all;
    for (int p = 0; p < image.GetPlanes(); ++p)
      for (const float v : Pixels(image, p)) all.push_back(v);
    return all;
  }
};

// What has to be given to a filter beyond its defaults.
Words Wanted(std::string_view filter) {
  if (filter == "convolve") return {"--kernel", "0,-1,0,-1,5,-1,0,-1,0"};
  if (filter == "false-colour") return {"--ratio", "150,150,225"};
  return {};
}

TEST_F(FilterCommand, OffersEveryFilterOfTheLibrary) {
  std::istringstream words(
      "gaussian mean mean-keep-edges median background-smooth nebula-smooth sharpen sharpen-edges unsharp wavelet "
      "digital-development multiband-sharpen star-sharpen star-enhance star-mask hot-pixels hot-pixels-mosaic "
      "false-colour guide-error convolve rank contour median-pattern rank-pattern laplacian unsharp-pattern "
      "rotational-gradient window");
  const std::set<std::string> names(std::istream_iterator<std::string>(words), {});
  std::set<std::string> offered;
  const Outcome list = RunQmr({"filter", "--list"});
  EXPECT_EQ(list.code, 0);
  for (const OperationSpec& filter : Filters()) {
    offered.emplace(filter.name);
    const Outcome help = RunQmr({"filter", std::string(filter.name), "--help"});
    EXPECT_EQ(help.code, 0);
    std::set<std::string_view> keys;
    for (const Parameter* parameter : ParametersOf(filter)) {
      EXPECT_TRUE(keys.insert(parameter->key).second) << filter.name << " has --" << parameter->key << " twice";
      for (const std::string& text : {list.out, help.out}) {
        EXPECT_THAT(text, HasSubstr("--" + std::string(parameter->key))) << filter.name;
        EXPECT_THAT(text, HasSubstr(Describe(*parameter))) << filter.name;
      }
    }
  }
  EXPECT_EQ(offered, names);
}

// Each filter changes pixels inside the rectangle, none outside; blank pixels stay blank and spoil no others.
TEST_F(FilterCommand, EachChangesItsRectangleOnly) {
  const CRect rect(12, 9, 61, 55);
  for (const OperationSpec& filter : Filters()) {
    for (const int planes : {1, 3}) {
      const bool mosaic = filter.input == OperationInput::kMosaic;
      if ((filter.input == OperationInput::kColour && planes == 1) || (mosaic && planes == 3)) continue;
      CVynImage image;
      Shape(image, kWidth, kHeight, planes);
      FillScene(image);
      for (int p = 0; p < planes; ++p)
        for (const auto& [x, y] : {std::pair{40, 30}, {41, 30}, {0, 0}, {12, 20}})
          image.SetPixelGrayRaw(x, y, std::numeric_limits<float>::quiet_NaN(), p);
      std::vector<Keyword> keywords;
      if (mosaic) keywords.push_back(Keyword::Text("BAYERPAT", "RGGB"));
      const std::string in = Write(image, "in.fit", keywords);
      Words words = Wanted(filter.name);
      words.insert(words.begin(), std::string(filter.name));
      words.insert(words.end(), {"--rect", "12,9,61,55"});
      const DecodedImage out = Run(words, in);
      ASSERT_EQ(out.planes, planes);
      for (int p = 0; p < planes; ++p) {
        // Only the plane of the false colour changes.
        int changed = filter.name == "false-colour" && p < 2;
        for (int y = 0; y < kHeight; ++y) {
          for (int x = 0; x < kWidth; ++x) {
            const float before = At(image, p, x, y);
            const float after = out.Row(p, y)[x];
            const bool inside = x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom;
            ASSERT_EQ(std::isnan(before), std::isnan(after)) << filter.name << " " << p << " " << x << " " << y;
            if (std::isnan(before)) continue;
            ASSERT_TRUE(inside || before == after) << filter.name << " " << p << " " << x << " " << y;
            changed += before != after;
          }
        }
        EXPECT_GT(changed, 0) << filter.name << ", plane " << p << " of " << planes;
      }
    }
  }
}

TEST_F(FilterCommand, SameBitsForThreadsAndProcessorLevels) {
  for (const OperationSpec& filter : Filters()) {
    const bool mosaic = filter.input == OperationInput::kMosaic;
    const std::string in = mosaic ? Scene(1, {Keyword::Text("BAYERPAT", "RGGB")}) : Scene(3);
    Words words = Wanted(filter.name);
    words.insert(words.begin(), {"filter", std::string(filter.name)});
    words.insert(words.end(), {"--quiet", "--force", in, Path("out.fit")});
    ExpectSameBits(words, {{"--threads", "1"}, {"--threads", "2"}, {"--threads", "3"}},
                   [&] { return ReadBytes(Path("out.fit")); });
  }
}

TEST_F(FilterCommand, GaussianIsTheLibrarysToTheBit) {
  const std::string in = Scene(3);
  CVynImage source;
  Shape(source, kWidth, kHeight, 3);
  FillScene(source);
  const double levels[3][2] = {{900, 3000}, {950, 4000}, {800, 2900}};
  for (int p = 0; p < 3; ++p) static_cast<CImage&>(source).SetLevel(p, levels[p][0], levels[p][1]);
  const std::string levelWords = "900,3000,950,4000,800,2900";

  CImgFilterBlur plain;
  plain.CopyImage(source);
  double sigma[] = {1.0, 2.5, 0.7};
  plain.GaussianFilter(sigma, &source, nullptr, 0);
  EXPECT_EQ(Bits(Run({"gaussian", "--sigma", "1,2.5,0.7"}, in)), Bits(plain));

  CImgFilterBlur chosen;
  chosen.CopyImage(source);
  int minOn[] = {1, 0, 1}, maxOn[] = {1, 1, 1};
  double min[] = {20, 0, 35.5}, minBuf[] = {5, 5, 5}, max[] = {100, 100, 100}, maxBuf[] = {0, 50, 10};
  chosen.GaussianFilter(sigma, minOn, min, minBuf, maxOn, max, maxBuf, &source, nullptr, 0);
  EXPECT_EQ(Bits(Run({"gaussian", "--sigma", "1,2.5,0.7", "--mask-min", "20,none,35.5", "--mask-min-buffer", "5",
                      "--mask-max=100", "--mask-max-buffer", "0,50,10", "--levels", levelWords},
                     in)),
            Bits(chosen));
  EXPECT_NE(Bits(chosen), Bits(plain));
}

// What stands for one another must give the same.
TEST_F(FilterCommand, WordsThatMeanTheSame) {
  const std::string in = Scene(3);
  const std::vector<std::pair<Words, Words>> same = {
      {{"median-pattern", "--pattern", "round"}, {"rank-pattern", "--pattern", "round", "--rank", "median"}},
      {{"rank", "--radius", "2", "--rank", "max,min,25%"}, {"rank", "--radius", "2", "--rank", "12,0,3"}},
      {{"star-sharpen", "--radius", "1", "--rank", "25%"}, {"star-sharpen", "--radius", "1", "--rank", "1"}},
      {{"sharpen", "--radius", "4", "--radius", "2"}, {"sharpen", "--radius", "2,2,2"}},
      {{"unsharp", "--threshold", "0"}, {"unsharp"}},
      {{"convolve", "--kernel", "2,2,2,2,2,2,2,2,2", "--normalise"},
       {"convolve", "--kernel",
        "0.1111111111111111,0.1111111111111111,0.1111111111111111,0.1111111111111111,0.1111111111111111,"
        "0.1111111111111111,0.1111111111111111,0.1111111111111111,0.1111111111111111"}},
      {{"wavelet", "--scales", "2", "--row-gain", "3"}, {"wavelet", "--scales", "2", "--row-gain", "3,3"}},
      {{"digital-development", "--gamma", "1", "--order", "gamma-first"}, {"digital-development"}},
      {{"rotational-gradient", "--centre", "44.5,34.5"}, {"rotational-gradient"}}};
  for (const auto& [a, b] : same)
    EXPECT_EQ(Bits(Run(a, in)), Bits(Run(b, in))) << testing::PrintToString(a) << testing::PrintToString(b);
  const std::vector<std::pair<Words, Words>> different = {
      {{"mean", "--shape", "box"}, {"mean"}},
      {{"unsharp", "--threshold", "0.3"}, {"unsharp"}},
      {{"star-enhance"}, {"star-enhance", "--smooth", "before"}},
      {{"star-mask"}, {"star-mask", "--headroom", "1"}},
      {{"digital-development", "--gamma", "2"}, {"digital-development", "--gamma", "2", "--order", "gamma-first"}},
      {{"digital-development"}, {"digital-development", "--divide-by", "own"}},
      {{"rotational-gradient"}, {"rotational-gradient", "--mask-min", "30"}},
      {{"rotational-gradient"}, {"rotational-gradient", "--keep-brighter"}},
      {{"hot-pixels"}, {"hot-pixels", "--hot", "none"}}};
  for (const auto& [a, b] : different)
    EXPECT_NE(Bits(Run(a, in)), Bits(Run(b, in))) << testing::PrintToString(a) << testing::PrintToString(b);
}

TEST_F(FilterCommand, KeepBrighterDarkensNothing) {
  const std::string in = Scene(1);
  const DecodedImage source = Read(in);
  for (const std::string filter : {"sharpen", "sharpen-edges", "unsharp", "multiband-sharpen"}) {
    const auto darker = [&](const Words& more) {
      Words words = {filter};
      words.insert(words.end(), more.begin(), more.end());
      const DecodedImage out = Run(words, in);
      int count = 0;
      for (std::size_t i = 0; i < source.PlanePixels(); ++i)
        count += out.Plane(0)[i] < source.Plane(0)[i] - 1e-3f * source.Plane(0)[i];
      return count;
    };
    EXPECT_GT(darker({}), 0) << filter;
    EXPECT_EQ(darker({"--keep-brighter"}), 0) << filter;
  }
}

TEST_F(FilterCommand, DevelopmentKeepsTheSkyAndHoldsTheBright) {
  CVynImage image;
  Shape(image, 300, 200, 3);
  Random random(9);
  Fill(image, [&](int, int x, int y) {
    return static_cast<float>(1000.0 + 5.0 * random.Normal() + (std::hypot(x - 150, y - 100) < 40 ? 20000.0 : 0.0));
  });
  const DecodedImage out = Run({"digital-development"}, Write(image, "in.fit"));
  for (int p = 0; p < 3; ++p) {
    EXPECT_NEAR(out.Row(p, 20)[20], 1000.0, 25.0);
    // Knee and sky above black together: 8 times 3 times the noise above a black that lies 3 times the noise below.
    EXPECT_NEAR(out.Row(p, 100)[150], 1000.0 - 15.0 + 8 * 15.0, 15.0);
  }
}

TEST_F(FilterCommand, BadWordsAreOneLineAndExit64) {
  const std::string in = Scene(3);
  const std::vector<std::pair<Words, std::string>> cases = {
      {{}, "name a filter"},
      {{"gausian", in, "OUT"}, "did you mean gaussian?"},
      {{"gaussian", "--sigam", "2", in, "OUT"}, "did you mean --sigma?"},
      {{"gaussian", "-sigma", "2", in, "OUT"}, "did you mean --sigma?"},
      {{"gaussian", in}, "OUT"},
      {{"gaussian", in, Path("out.tif")}, ".fit"},
      {{"gaussian", "--sigma", "-1", in, "OUT"}, "0 to 200"},
      {{"gaussian", "--sigma", "nan", in, "OUT"}, "a number"},
      {{"gaussian", "--sigma", "", in, "OUT"}, "--sigma"},
      {{"gaussian", "--sigma", "1,2", in, "OUT"}, "or 3"},
      {{"gaussian", "--sigma", "1,2,3,4", in, "OUT"}, "not 4"},
      {{"gaussian", "--mask-min", "off", in, "OUT"}, "or none"},
      {{"gaussian", "--mask-max-buffer", "3", in, "OUT"}, "--mask-max"},
      {{"gaussian", "--levels", "5,5", in, "OUT"}, "smaller"},
      {{"gaussian", "--levels", "5", in, "OUT"}, "two values"},
      {{"gaussian", "--rect", "0,0,9", in, "OUT"}, "four values"},
      {{"gaussian", "--rect", "0.5,0,9,9", in, "OUT"}, "whole"},
      {{"gaussian", "--rect", "9,0,9,9", in, "OUT"}, "90 x 70"},
      {{"gaussian", "--bayer", "RGBG", in, "OUT"}, "RGBG"},
      {{"gaussian", "--keep-brighter", in, "OUT"}, "--keep-brighter"},
      {{"mean", "--shape", "ring", in, "OUT"}, "disc, box"},
      {{"mean", "--shape", "box", "--mask-min", "3", in, "OUT"}, "--mask-min"},
      {{"unsharp", "--threshold", "0.1", "--keep-brighter", in, "OUT"}, "--keep-brighter"},
      {{"rank", "--rank", "5", in, "OUT"}, "5 pixels"},
      {{"rank", "--rank", "101%", in, "OUT"}, "--rank"},
      {{"rank", "--radius", "2,1,2", "--rank", "12", in, "OUT"}, "5 pixels"},
      {{"rank-pattern", "--pattern", "round", "--rank", "21", in, "OUT"}, "21 pixels"},
      {{"star-sharpen", "--radius", "2", "--rank", "12.5", in, "OUT"}, "13 pixels"},
      {{"star-enhance", "--smooth", "before", "--sigma", "1,2,3", in, "OUT"}, "--smooth"},
      {{"wavelet", "--order", "11", in, "OUT"}, "1 to 10"},
      {{"wavelet", "--scales", "3", "--row-gain", "1,2", in, "OUT"}, "or 3"},
      {{"multiband-sharpen", "--gain", "1,1,1,1,1,1,1", in, "OUT"}, "six"},
      {{"convolve", in, "OUT"}, "--kernel"},
      {{"convolve", "--kernel", "1,2,3,4", in, "OUT"}, "odd side"},
      {{"convolve", "--kernel", "0,-1,0,-1,4,-1,0,-1,0", "--normalise", in, "OUT"}, "add up to 0"},
      {{"false-colour", "--ratio", "1,2", in, "OUT"}, "three values"},
      {{"false-colour", "--ratio", "0,2,3", in, "OUT"}, "1 to"},
      {{"rotational-gradient", "--centre", "9", in, "OUT"}, "two values"},
      {{"rotational-gradient", "--mask-min", "9,none,9", in, "OUT"}, "one value"},
      {{"contour", "--steps", "1", in, "OUT"}, "2 to"}};
  for (const auto& [given, said] : cases) {
    Words words = {"filter"};
    for (const std::string& word : given) words.push_back(word == "OUT" ? Path("out.fit") : word);
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, 64) << testing::PrintToString(words);
    EXPECT_TRUE(OneLine(o.err)) << o.err << testing::PrintToString(words);
    EXPECT_THAT(o.err, HasSubstr(said)) << testing::PrintToString(words);
  }
  EXPECT_THAT(folder_.List(), ElementsAre("in.fit"));
}

TEST_F(FilterCommand, FilesThatWontDo) {
  const std::string out = Path("out.fit");
  const auto expect = [&](const Words& words, int code, const std::string& said) {
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, code) << testing::PrintToString(words);
    EXPECT_TRUE(OneLine(o.err)) << o.err;
    EXPECT_THAT(o.err, HasSubstr(said));
  };
  const std::string in = Scene(3);
  std::filesystem::rename(in, Path("colour.fit"));
  std::filesystem::rename(Scene(1, {Keyword::Text("BAYERPAT", "GRBG")}), Path("mosaic.fit"));
  std::filesystem::rename(Scene(1), Path("mono.fit"));
  WriteBytes(Path("bad.fit"), ReadBytes(Path("mono.fit")).substr(0, 9000));
  WriteBytes(out, "yesterday");
  expect({"filter", "gaussian", Path("mono.fit"), out}, 73, "--force");
  expect({"filter", "gaussian", Path("mono.fit"), Path("no/folder/o.fit")}, 73, "no/folder");
  expect({"filter", "gaussian", Path("none.fit"), out, "--force"}, 66, "none.fit");
  expect({"filter", "gaussian", Path("bad.fit"), out, "--force"}, 65, "bad.fit");
  expect({"filter", "gaussian", Path("mosaic.fit"), out, "--force"}, 65, "GRBG");
  expect({"filter", "false-colour", Path("mono.fit"), out, "--force"}, 65, "colour");
  expect({"filter", "hot-pixels-mosaic", Path("mono.fit"), out, "--force"}, 65, "--bayer");
  expect({"filter", "hot-pixels-mosaic", Path("colour.fit"), out, "--force"}, 65, "mosaic");
  EXPECT_EQ(ReadBytes(out), "yesterday");
  EXPECT_THAT(folder_.List(), ElementsAre("bad.fit", "colour.fit", "mono.fit", "mosaic.fit", "out.fit"));
  // The user's word overrules the file's.
  EXPECT_NE(Bits(Run({"gaussian", "--bayer", "none"}, Path("mosaic.fit"))), Bits(Read(Path("mosaic.fit"))));
  const std::vector<float> repaired = Bits(Run({"hot-pixels-mosaic", "--bayer", "RGGB"}, Path("mono.fit")));
  EXPECT_LT(repaired[25 * kWidth + 30], 2000.0f);
}

// The header tells what was done, so exactly that it can be done again.
TEST_F(FilterCommand, HistoryRepeatsTheResult) {
  for (const int planes : {1, 3}) {
    const std::string in = Scene(planes, {Keyword::Text("OBJECT", "M 42"), Keyword::Text("PROGRAM", "another"),
                                          Keyword::History("taken in the rain")});
    for (const Words& words :
         {Words{"unsharp", "--sigma", "1.3", "--mask-min", "12.345", "--mask-min-buffer", "7", "--keep-brighter"},
          Words{"digital-development", "--gamma", "1.5"}, Words{"rank", "--rank", "40%"},
          Words{"mean-keep-edges", "--rect", "3,4,50,60"}, Words{"star-mask", "--blend"},
          Words{"wavelet", "--row-gain", "2,1.7,1,0.3"},
          Words{"rotational-gradient", "--angle", "20", "--mask-max", "90"}}) {
      const DecodedImage first = Run(words, in);
      EXPECT_EQ(KeywordText(first.keywords, "OBJECT"), "M 42");
      EXPECT_THAT(KeywordText(first.keywords, "PROGRAM").value_or(""), HasSubstr("qmrimg"));
      std::string history;
      for (const Keyword& keyword : first.keywords)
        if (keyword.name == "HISTORY") history += std::get<std::string>(keyword.value);
      const auto begin = history.find("qmr filter ");
      ASSERT_NE(begin, std::string::npos);
      EXPECT_EQ(history.substr(0, begin), "taken in the rain");
      Words again;
      std::string word;
      for (const char c : history.substr(begin + 11) + " ") {
        if (c != ' ') {
          word += c;
        } else if (!word.empty()) {
          again.push_back(std::exchange(word, {}));
        }
      }
      EXPECT_EQ(Bits(Run(again, in)), Bits(first)) << history;
    }
  }
}

TEST_F(FilterCommand, PicturesRunFromBlackToWhiteTheRightWayUp) {
  for (const bool bottomUp : {false, true}) {
    for (const int planes : {1, 3}) {
      CVynImage image;
      Shape(image, 5, 4, planes);
      Fill(image, [](int p, int x, int y) { return static_cast<float>(100 * p + 10 * x + 60 * y) - 30.0f; });
      image.SetPixelGrayRaw(2, 2, std::numeric_limits<float>::quiet_NaN(), 0);
      const std::string in = Write(image, "in.fit", {Keyword::Text("ROWORDER", bottomUp ? "BOTTOM-UP" : "TOP-DOWN")});
      const Outcome o = RunQmr({"filter", "gaussian", "--sigma", "0", "--levels", "0,200", in, Path("out.png"), "-f"});
      EXPECT_EQ(o.code, 0) << o.err;
      std::vector<std::uint16_t> expected;
      for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 5; ++x) {
          for (int p = 0; p < planes; ++p) {
            const float v = At(image, p, x, bottomUp ? 3 - y : y);
            const double share = v > 0.0f ? std::min(v / 200.0, 1.0) : 0.0;
            expected.push_back(static_cast<std::uint16_t>(std::lround(share * 65535.0)));
          }
        }
      }
      ASSERT_FALSE(WritePng16(Path("expected.png"), 5, 4, planes, expected));
      EXPECT_TRUE(ReadBytes(Path("out.png")) == ReadBytes(Path("expected.png"))) << planes << bottomUp;
    }
  }
}

TEST_F(FilterCommand, LevelsComeFromTheWordThenTheFileThenTheSky) {
  const auto verbose = [&](const std::string& in, const Words& more) {
    Words words = {"filter", "contour", in, Path("out.fit"), "-f", "-v"};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, 0) << o.err;
    return o.out;
  };
  const std::string in = Scene(3, {Keyword::Real("CBLACK", 800.0), Keyword::Real("CWHITE", 5000.0)});
  EXPECT_THAT(verbose(in, {}), HasSubstr("--levels 800,5000,800,5000,800,5000"));
  EXPECT_THAT(verbose(in, {"--levels", "1,2"}), HasSubstr("--levels 1,2\n"));
  // Sky at a tenth of 60 widths of its noise.
  const std::string sky = verbose(Scene(1), {});
  double black = 0.0, white = 0.0;
  ASSERT_EQ(std::sscanf(sky.c_str() + sky.find("--levels"), "--levels %lf,%lf", &black, &white), 2) << sky;
  EXPECT_NEAR(white - black, 300.0, 30.0);
  EXPECT_NEAR(black, 970.0, 5.0);
}

TEST_F(FilterCommand, InterruptedItLeavesNothing) {
  CVynImage image;
  Shape(image, 2500, 2000, 1);
  FillNoise(image, 3);
  const std::string in = Write(image, "in.fit");
  int interrupted = 0;
  for (const int after : {100, 300}) {
    const Outcome o = RunQmr({"filter", "nebula-smooth", "--sigma", "20", in, Path("out.fit")}, after);
    if (o.code == 0) continue;
    EXPECT_EQ(o.code, 130) << o.err;
    EXPECT_THAT(folder_.List(), ElementsAre("in.fit"));
    ++interrupted;
  }
  EXPECT_GT(interrupted, 0);
}

}  // namespace
}  // namespace qmr::test
