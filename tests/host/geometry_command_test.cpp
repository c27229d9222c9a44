// `qmr crop`, `canvas`, `resize`, `rotate`, `flip`, `scroll` and `bin` from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "host/files/mosaic.h"
#include "host/operations/operation.h"
#include "tests/host/picture_folder.h"
#include "tests/host/program.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;
using Keywords = std::vector<Keyword>;

constexpr float kBlank = std::numeric_limits<float>::quiet_NaN();

class GeometryCommand : public PictureFolder {
 protected:
  DecodedImage Run(Words words, const std::string& in) {
    words.insert(words.end(), {"--quiet", "--force", in, Path("out.fit")});
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, 0) << o.err << testing::PrintToString(words);
    return Read(Path("out.fit"));
  }
};

// Where the sky says that the middle of a pixel lies: degrees from CRVAL on the tangent plane.
std::pair<double, double> World(const Keywords& keywords, double x, double y, const std::string& suffix) {
  const auto get = [&](const std::string& name, double fallback) {
    return KeywordNumber(keywords, name + suffix).value_or(fallback);
  };
  double u = x + 1 - get("CRPIX1", 0), v = y + 1 - get("CRPIX2", 0);
  double bend[2] = {};
  for (int p = 0; suffix.empty() && p < 4; ++p) {
    for (int q = 0; q < 4; ++q) {
      const std::string powers = std::to_string(p) + "_" + std::to_string(q);
      bend[0] += get("A_" + powers, 0) * std::pow(u, p) * std::pow(v, q);
      bend[1] += get("B_" + powers, 0) * std::pow(u, p) * std::pow(v, q);
    }
  }
  u += bend[0];
  v += bend[1];
  if (FindKeyword(keywords, "CD1_1" + suffix) || FindKeyword(keywords, "CD1_2" + suffix))
    return {get("CD1_1", 0) * u + get("CD1_2", 0) * v, get("CD2_1", 0) * u + get("CD2_2", 0) * v};
  const double dx = get("CDELT1", 1), dy = get("CDELT2", 1), turn = get("CROTA2", 0) * 3.141592653589793 / 180;
  if (FindKeyword(keywords, "PC1_1" + suffix))
    return {dx * (get("PC1_1", 1) * u + get("PC1_2", 0) * v), dy * (get("PC2_1", 0) * u + get("PC2_2", 1) * v)};
  return {dx * u * std::cos(turn) - dy * v * std::sin(turn), dx * u * std::sin(turn) + dy * v * std::cos(turn)};
}

// The middle of the light.
std::pair<double, double> Centroid(const DecodedImage& image) {
  double sum = 0, sx = 0, sy = 0;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const double v = image.Row(0, y)[x];
      if (std::isnan(v)) continue;
      sum += v;
      sx += v * x;
      sy += v * y;
    }
  }
  return {sx / sum, sy / sum};
}

// A star is at the same place in the sky before and after, whichever way the header tells it.
TEST_F(GeometryCommand, StarsKeepTheirPlaceInTheSky) {
  CVynImage image = Shaped(60, 43, 1);
  Fill(image, [](int, int x, int y) {
    return static_cast<float>(1000 * std::exp(-(std::pow(x - 34.3, 2) + std::pow(y - 17.6, 2)) / 8));
  });
  const Keywords base = {Keyword::Text("CTYPE1", "RA---TAN"), Keyword::Text("CTYPE2", "DEC--TAN"),
                         Keyword::Real("CRPIX1", 12.5),       Keyword::Real("CRPIX2", 30.25),
                         Keyword::Real("CRPIX1B", 3.0),       Keyword::Real("CRPIX2B", 4.0),
                         Keyword::Real("CDELT1B", -0.5),      Keyword::Real("CDELT2B", 0.25)};
  const auto with = [&](const Keywords& more) {
    Keywords all = base;
    all.insert(all.end(), more.begin(), more.end());
    return all;
  };
  const Keywords cd = {Keyword::Real("CD1_1", -3e-4), Keyword::Real("CD1_2", 1e-4), Keyword::Real("CD2_1", 2e-4),
                       Keyword::Real("CD2_2", 4e-4)};
  Keywords sip = cd;
  for (const char* order : {"A_ORDER", "B_ORDER"}) sip.push_back(Keyword::Integer(order, 3));
  for (const auto& [name, value] :
       {std::pair{"A_2_0", 2e-3}, {"A_1_1", -1e-3}, {"A_0_2", 5e-4}, {"B_2_1", 3e-5}, {"B_1_0", 1e-2}})
    sip.push_back(Keyword::Real(name, value));
  const std::map<std::string, Keywords> headers = {
      {"cd", with(cd)},
      {"sip", with(sip)},
      {"cdelt", with({Keyword::Real("CDELT1", -3e-4), Keyword::Real("CDELT2", 4e-4)})},
      {"crota", with({Keyword::Real("CDELT1", -3e-4), Keyword::Real("CDELT2", 4e-4), Keyword::Real("CROTA2", 35)})},
      {"pc", with({Keyword::Real("CDELT1", -3e-4), Keyword::Real("CDELT2", 4e-4), Keyword::Real("PC1_1", 0.8),
                   Keyword::Real("PC1_2", -0.6), Keyword::Real("PC2_1", 0.6), Keyword::Real("PC2_2", 0.8)})}};
  const std::vector<Words> commands = {{"crop", "--rect", "20,5,52,33"},
                                       {"canvas", "--width", "83", "--height", "40", "--fill", "0"},
                                       {"flip", "--horizontal"},
                                       {"flip", "--vertical", "--horizontal"},
                                       {"rotate", "--angle", "90"},
                                       {"rotate", "--angle", "-90"},
                                       {"rotate", "--angle", "180"},
                                       {"rotate", "--angle", "27"},
                                       {"rotate", "--angle", "-140", "--expand"},
                                       {"resize", "--scale", "1.7"},
                                       {"resize", "--width", "41", "--height", "70", "--interpolation", "bicubic"},
                                       {"resize", "--scale", "0.31"},
                                       {"resize", "--scale", "0.4", "--no-average"},
                                       {"bin", "--factor", "2,3"},
                                       {"bin", "--mean", "--round-up"}};
  for (const auto& [name, keywords] : headers) {
    const std::string in = Write(image, "in.fit", keywords);
    const auto [x0, y0] = Centroid(Read(in));
    for (const Words& words : commands) {
      SCOPED_TRACE(name + testing::PrintToString(words));
      const DecodedImage out = Run(words, in);
      const auto [x, y] = Centroid(out);
      for (const std::string suffix : {"", "B"}) {
        const auto [before1, before2] = World(keywords, x0, y0, suffix);
        const auto [after1, after2] = World(out.keywords, x, y, suffix);
        // A fiftieth of a pixel, as samples and cut wings move the centroid.
        const double pixel = suffix.empty() ? 4e-4 : 0.5;
        EXPECT_NEAR(before1, after1, 0.02 * pixel);
        EXPECT_NEAR(before2, after2, 0.02 * pixel);
      }
    }
  }
  // What wraps round has no one place; distortions in a table can't follow.
  EXPECT_EQ(FindKeyword(Run({"scroll", "--dx", "3"}, Path("in.fit")).keywords, "CRPIX1"), nullptr);
  const std::string table = Write(image, "in.fit", with({Keyword::Text("CPDIS1", "LOOKUP")}));
  for (const char* gone : {"CPDIS1", "CRPIX1", "CTYPE2"})
    EXPECT_EQ(FindKeyword(Run({"flip", "--vertical"}, table).keywords, gone), nullptr) << gone;
}

TEST_F(GeometryCommand, PixelsMoveWithTheirBlanks) {
  CVynImage image = Noise(13, 9, 3, 3, 100, 900);
  image.SetPixelGrayRaw(6, 4, kBlank, 1);
  const std::string in = Write(image, "in.fit", {Keyword::Real("CBLACK", 100), Keyword::Real("CWHITE", 900)});
  const auto check = [&](const Words& words, int width, int height,
                         const std::function<float(int, int, int)>& expected) {
    const DecodedImage out = Run(words, in);
    ASSERT_EQ(out.width, width) << testing::PrintToString(words);
    ASSERT_EQ(out.height, height);
    for (int p = 0; p < 3; ++p)
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          const float want = expected(p, x, y), is = out.Row(p, y)[x];
          ASSERT_TRUE(want == is || (std::isnan(want) && std::isnan(is)))
              << testing::PrintToString(words) << p << " " << x << " " << y << ": " << is << ", not " << want;
        }
    EXPECT_EQ(KeywordNumber(out.keywords, "CWHITE"), 900);
  };
  const auto from = [&](int p, int x, int y) { return At(image, p, x, y); };
  check({"crop", "--rect", "5,3,10,9"}, 5, 6, [&](int p, int x, int y) { return from(p, x + 5, y + 3); });
  check({"flip", "--vertical"}, 13, 9, [&](int p, int x, int y) { return from(p, x, 8 - y); });
  check({"rotate", "--angle", "-270"}, 9, 13, [&](int p, int x, int y) { return from(p, y, 8 - x); });
  check({"rotate", "--angle", "270", "--expand"}, 9, 13, [&](int p, int x, int y) { return from(p, 12 - y, x); });
  check({"rotate", "--angle", "720"}, 13, 9, from);
  check({"scroll", "--dx", "2", "--dy", "-3"}, 13, 9,
        [&](int p, int x, int y) { return from(p, (x + 11) % 13, (y + 3) % 9); });
  const auto onCanvas = [&](int dx, int dy, std::vector<float> fill) {
    return [=](int p, int x, int y) {
      return x >= dx && x < dx + 13 && y >= dy && y < dy + 9 ? from(p, x - dx, y - dy)
                                                             : fill[static_cast<std::size_t>(p)];
    };
  };
  check({"canvas", "--width", "18", "--height", "7"}, 18, 7, onCanvas(2, -1, {kBlank, kBlank, kBlank}));
  check({"canvas", "--height", "12", "--anchor", "bottom", "--fill", "1,1000.25,none"}, 13, 12,
        onCanvas(0, 3, {1.0f, 1000.25f, kBlank}));
  check({"bin", "--factor", "1"}, 13, 9, from);
}

TEST_F(GeometryCommand, BlankPixelsSpoilNothingWhereThePictureIsSampled) {
  CVynImage image = Shaped(40, 30, 3);
  Fill(image, [](int, int, int) { return 1000.0f; });
  for (const auto& [x, y] : {std::pair{20, 15}, {21, 15}, {20, 14}, {21, 14}}) image.SetPixelGrayRaw(x, y, kBlank, 0);
  image.SetPixelGrayRaw(8, 8, kBlank, 0);
  const std::string in = Write(image, "in.fit");
  const auto count = [](const DecodedImage& out, int plane, double value) {
    std::pair<int, int> blankAndOther;
    for (const float v : out.Plane(plane)) {
      blankAndOther.first += std::isnan(v);
      // The Lanczos weights don't sum to 1: the sky must not show it.
      blankAndOther.second += !std::isnan(v) && std::fabs(v - value) > 1e-3;
    }
    return blankAndOther;
  };
  // One blank pixel of four is no loss; four are.
  EXPECT_EQ(count(Run({"bin"}, in), 0, 4000), std::pair(1, 0));
  EXPECT_EQ(count(Run({"bin", "--mean", "--factor", "2"}, in), 0, 1000), std::pair(1, 0));
  EXPECT_EQ(count(Run({"resize", "--scale", "2"}, in), 0, 1000), std::pair(20, 0));
  EXPECT_EQ(count(Run({"resize", "--scale", "0.5"}, in), 0, 1000), std::pair(1, 0));
  const DecodedImage turned = Run({"rotate", "--angle", "30", "--fill", "1000"}, in);
  EXPECT_NEAR(count(turned, 0, 1000).first, 5, 2);
  EXPECT_EQ(count(turned, 0, 1000).second, 0);
  EXPECT_EQ(count(turned, 1, 1000), std::pair(0, 0));
  const DecodedImage corners = Run({"rotate", "--angle", "45", "--expand"}, in);
  EXPECT_TRUE(std::isnan(corners.Row(2, 0)[0]));
  EXPECT_NEAR(count(corners, 2, 1000).first, corners.width * corners.height - 1200, 80);
}

// Each pixel of a mosaic of letters still has the letter that the header says.
TEST_F(GeometryCommand, MosaicsSurviveWhereTheyCan) {
  for (const char* order : {"TOP-DOWN", "BOTTOM-UP"}) {
    for (const int height : {12, 13}) {
      CVynImage image = Shaped(16, height, 1);
      const std::string_view letters = "GRBG";
      Fill(image, [&](int, int x, int y) {
        const int shown = std::string(order) == "TOP-DOWN" ? y : height - 1 - y;
        return static_cast<float>(letters[static_cast<std::size_t>(2 * (shown & 1) + ((x + 1) & 1))]);
      });
      const std::string in =
          Write(image, "in.fit",
                {Keyword::Text("BAYERPAT", "GRBG"), Keyword::Integer("XBAYROFF", 1), Keyword::Text("ROWORDER", order)});
      for (const Words& words : {Words{"crop", "--rect", "0,0,8,7"},
                                 {"crop", "--rect", "3,2,9,8"},
                                 {"crop", "--rect", "2,5,9,12"},
                                 {"flip", "--horizontal"},
                                 {"flip", "--vertical"},
                                 {"rotate", "--angle", "90"},
                                 {"rotate", "--angle", "180"},
                                 {"rotate", "--angle", "270"},
                                 {"canvas", "--width", "21", "--height", "15"}}) {
        SCOPED_TRACE(order + testing::PrintToString(words));
        const DecodedImage out = Run(words, in);
        const auto mosaic = ResolveMosaic({out.keywords, out.height, 1, {}, {}});
        ASSERT_TRUE(mosaic);
        const std::string_view now = BayerLetters(mosaic->number);
        ASSERT_EQ(now.size(), 4u);
        int wrong = 0;
        for (int y = 0; y < out.height; ++y)
          for (int x = 0; x < out.width; ++x) {
            const float v = out.Row(0, y)[x];
            wrong += !std::isnan(v) && v != static_cast<float>(now[static_cast<std::size_t>(2 * (y & 1) + (x & 1))]);
          }
        EXPECT_EQ(wrong, 0);
      }
    }
  }
  const std::string in = Path("in.fit");
  std::filesystem::remove(Path("out.fit"));
  ExpectRefused("bin", {{{in, "OUT"}, 65, "undeveloped mosaic"}});
  ExpectRefused("scroll", {{{in, "OUT"}, 65, "undeveloped mosaic"}});
  ExpectRefused("resize", {{{in, "OUT", "--scale", "2"}, 65, "undeveloped mosaic"}});
  ExpectRefused("rotate", {{{in, "OUT", "--angle", "2"}, 65, "undeveloped mosaic"}});
}

TEST_F(GeometryCommand, HeadersTellWhatPixelsBecame) {
  const CVynImage image = Noise(20, 15, 3, 5, 0, 1000);
  const std::string in =
      Write(image, "in.fit",
            {Keyword::Real("CBLACK", 10), Keyword::Real("CWHITE", 1000), Keyword::Integer("XBINNING", 1),
             Keyword::Integer("YBINNING", 2), Keyword::Real("XPIXSZ", 3.5), Keyword::Real("YPIXSZ", 7),
             Keyword::Integer("XORGSUBF", 100), Keyword::Text("TRIMSEC", "[1:20,1:15]")});
  const auto numbers = [&](const Words& words, std::initializer_list<const char*> names) {
    const DecodedImage out = Run(words, in);
    EXPECT_EQ(FindKeyword(out.keywords, "TRIMSEC"), nullptr);
    std::vector<double> values;
    for (const char* name : names) values.push_back(KeywordNumber(out.keywords, name).value_or(-1));
    return values;
  };
  using testing::ElementsAre;
  EXPECT_THAT(
      numbers({"bin", "--factor", "3,2"}, {"CBLACK", "CWHITE", "XBINNING", "YBINNING", "XPIXSZ", "YPIXSZ", "XORGSUBF"}),
      ElementsAre(60, 6000, 3, 4, 10.5, 14, -1));
  EXPECT_THAT(numbers({"bin", "--mean"}, {"CBLACK", "CWHITE", "XBINNING"}), ElementsAre(10, 1000, 2));
  EXPECT_THAT(numbers({"resize", "--scale", "2"}, {"CWHITE", "XBINNING", "XPIXSZ", "YPIXSZ"}),
              ElementsAre(1000, 1, 1.75, 3.5));
  EXPECT_THAT(numbers({"rotate", "--angle", "90"}, {"XBINNING", "YBINNING", "XPIXSZ"}), ElementsAre(2, 1, 7));
  EXPECT_THAT(numbers({"rotate", "--angle", "29"}, {"XPIXSZ", "YPIXSZ"}), ElementsAre(3.5, 7));
  EXPECT_THAT(numbers({"crop", "--rect", "4,0,9,9"}, {"CBLACK", "XPIXSZ", "XORGSUBF"}), ElementsAre(10, 3.5, 104));
  EXPECT_THAT(numbers({"scroll", "--dx", "4", "--levels", "5,50"}, {"CBLACK", "CWHITE"}), ElementsAre(5, 50));
}

TEST_F(GeometryCommand, SameBitsForThreadsAndProcessorLevels) {
  const std::string in = Write(Noise(97, 61, 3, 6, 900, 1100), "in.fit");
  for (const Words& words : {Words{"rotate", "--angle", "7.5", "--expand"},
                             {"resize", "--scale", "1.37"},
                             {"resize", "--scale", "0.4", "--interpolation", "soft-bicubic"},
                             {"resize", "--width", "150", "--interpolation", "bilinear-float"},
                             {"bin", "--factor", "3"}}) {
    Words all = words;
    all.insert(all.end(), {"-q", "-f", in, Path("out.fit")});
    ExpectSameBits(all, {{"--threads", "1"}, {"--threads", "2"}, {"--threads", "3"}},
                   [&] { return ReadBytes(Path("out.fit")); });
  }
}

TEST_F(GeometryCommand, HelpTellsAllParametersAndBadWordsAreRefused) {
  for (const OperationSpec& operation : GeometricOperations()) {
    const Outcome help = RunQmr({std::string(operation.name), "--help"});
    EXPECT_EQ(help.code, 0);
    for (const Parameter* parameter : ParametersOf(operation)) EXPECT_THAT(help.out, HasSubstr(Describe(*parameter)));
  }
  const std::string in = Write(Noise(20, 15, 1, 7), "in.fit");
  const std::map<std::string, std::vector<Refusal>> refusals = {
      {"crop",
       {{{in, "OUT"}, 64, "--rect: must be given"},
        {{"--rect", "0,0,21,15", in, "OUT"}, 64, "20 x 15"},
        {{"--rect", "-1,0,5,5", in, "OUT"}, 64, "leaves the picture"},
        {{"--rect", "5,5,5,9", in, "OUT"}, 64, "holds no pixel"},
        {{"--rect", "1,1,5,5", Path("none.fit"), "OUT"}, 66, "none.fit"}}},
      {"canvas",
       {{{in, "OUT"}, 64, "--width, --height"},
        {{"--width", "5", "--anchor", "middle", in, "OUT"}, 64, "centre"},
        {{"--width", "5", "--fill", "1,2", in, "OUT"}, 64, "--fill"}}},
      {"resize",
       {{{in, "OUT"}, 64, "--scale"},
        {{"--scale", "2", "--width", "9", in, "OUT"}, 64, "--scale"},
        {{"--width", "0", in, "OUT"}, 64, "1 to 100000"},
        {{"--height", "90000", in, "OUT"}, 64, "120000 x 90000"},
        {{"--scale", "1", "--interpolation", "cubic", in, "OUT"}, 64, "lanczos3"}}},
      {"rotate", {{{in, "OUT"}, 64, "--angle: must be given"}, {{"--angle", "nan", in, "OUT"}, 64, "a number"}}},
      {"flip", {{{in, "OUT"}, 64, "--horizontal"}}},
      {"bin",
       {{{"--factor", "21", in, "OUT"}, 64, "20 x 15"},
        {{"--factor", "2,2,2", in, "OUT"}, 64, "one number"},
        {{"--factor", "0", in, "OUT"}, 64, "1 to 10000"}}}};
  for (const auto& [command, cases] : refusals) ExpectRefused(command, cases);
}

}  // namespace
}  // namespace qmr::test
