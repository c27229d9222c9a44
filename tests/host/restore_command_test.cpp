// `qmr restore` from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "tests/host/picture_folder.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr double kSky = 400.0;
constexpr double kNoise = 4.0;
constexpr double kSigma = 1.5;

// Gaussian stars of one width on an even sky.
struct Field {
  int width = 300, height = 220, planes = 1;
  double unit = 1.0, sky = kSky;
  std::uint64_t seed = 5;

  CVynImage Make() const {
    CVynImage image;
    Shape(image, width, height, planes);
    struct Star {
      double x, y, peak;
    };
    Random random(seed);
    std::vector<Star> stars;
    for (int i = 0; i < width * height / 900; ++i)
      stars.push_back(
          {random.Uniform(2, width - 2), random.Uniform(2, height - 2), 20.0 * std::pow(200.0, random.Uniform())});
    Fill(image, [&](int p, int x, int y) {
      double v = sky + 100.0 * p;
      for (const Star& star : stars) {
        const double r2 = (x - star.x) * (x - star.x) + (y - star.y) * (y - star.y);
        if (r2 < 80.0 * kSigma * kSigma) v += star.peak * std::exp(-r2 / (2.0 * kSigma * kSigma));
      }
      return static_cast<float>(unit * (v + kNoise * random.Normal()));
    });
    return image;
  }
};

double Flux(const DecodedImage& image, double sky) {
  double flux = 0.0;
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) flux += image.Row(0, y)[x] - sky;
  return flux;
}

// The number behind a word of a text.
double NumberAfter(const std::string& text, const std::string& word) {
  const std::size_t at = text.find(word);
  return at == std::string::npos ? std::numeric_limits<double>::quiet_NaN()
                                 : std::atof(text.c_str() + at + word.size());
}

class RestoreCommand : public PictureFolder {
 protected:
  Outcome Restored(const std::string& method, const std::string& in, const Words& more = {},
                   const std::string& out = "out.fit") const {
    Words words = {"restore", method, in, Path(out), "--force", "-v"};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, 0) << o.err;
    return o;
  }
  DecodedImage Result() const { return Read(Path("out.fit")); }
  static double Fwhm(const std::string& path) { return NumberAfter(RunQmr({"measure", "--quiet", path}).out, "FWHM "); }
};

class RestoreMethod : public RestoreCommand, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Methods, RestoreMethod, testing::Values("lucy", "mem", "wiener"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(RestoreMethod, NarrowsStarsAndKeepsTheirLight) {
  const std::string in =
      Write(Field().Make(), "in.fit", {Keyword::Text("OBJECT", "field"), Keyword::Real("CRVAL1", 9)});
  const Outcome o = Restored(GetParam(), in);
  EXPECT_NEAR(NumberAfter(o.out, "(sigma "), kSigma, 0.03 * kSigma);
  EXPECT_LT(Fwhm(Path("out.fit")), 0.85 * Fwhm(in));
  const DecodedImage before = Read(in), after = Result();
  EXPECT_NEAR(Flux(after, kSky) / Flux(before, kSky), 1.0, std::string(GetParam()) == "wiener" ? 0.01 : 0.005);
  EXPECT_NE(FindKeyword(after.keywords, "OBJECT"), nullptr);
  EXPECT_NE(FindKeyword(after.keywords, "CRVAL1"), nullptr);
  EXPECT_THAT(o.out, HasSubstr("flux above the sky"));
  if (std::string(GetParam()) != "wiener") {
    const std::string settled = o.out.substr(o.out.find(" iterations, "));
    EXPECT_GT(NumberAfter(settled, "chi-square "), 10.0);
    EXPECT_LT(NumberAfter(settled, "-> "), 2.0);
  }

  // The command that it tells gives the same again.
  std::istringstream command(o.out.substr(0, o.out.find('\n')));
  Words words = {"restore", GetParam(), in, Path("again.fit")};
  std::string word;
  for (int i = 0; command >> word; ++i)
    if (i >= 3) words.push_back(word);
  ASSERT_EQ(RunQmr(words).code, 0);
  EXPECT_EQ(Bits(Read(Path("again.fit"))), Bits(after));
}

// A picture brought to 0..1, or without its sky, is the same picture.
TEST_P(RestoreMethod, DependsNeitherOnTheUnitNorOnTheZero) {
  Restored(GetParam(), Write(Field().Make(), "in.fit"), {"--sigma", "1.1"});
  const DecodedImage plain = Result();
  for (const auto& [unit, sky] : {std::pair{1.0 / 65536.0, kSky}, {1.0, 0.0}}) {
    Restored(GetParam(), Write(Field{.unit = unit, .sky = sky}.Make(), "other.fit"), {"--sigma", "1.1"});
    const DecodedImage other = Result();
    double worst = 0.0;
    for (int y = 0; y < plain.height; ++y)
      for (int x = 0; x < plain.width; ++x)
        worst = std::max(worst, std::abs((other.Row(0, y)[x] / unit - sky) - (plain.Row(0, y)[x] - kSky)));
    // The brightest stars rise to several thousand.
    EXPECT_LT(worst, unit == 1.0 ? 25.0 : 1.0) << unit << " " << sky;
  }
}

// Pixels without a value stay so, those that can't be light stay as they are, and neither leaves a mark around it;
// what lies outside of the rectangle stays to the bit, and a star at an edge leaves no trace at the opposite one.
TEST_P(RestoreMethod, KeepsToItsRectangleAndItsEdges) {
  CVynImage image = Field{.planes = 3}.Make();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (int p = 0; p < 3; ++p) {
    for (const auto& [x, y] : {std::pair{50, 60}, {51, 60}, {150, 110}}) image.SetPixelGrayRaw(x, y, nan, p);
    for (int y = 90; y < 110; ++y)
      for (int x = 0; x < 3; ++x)
        image.SetPixelGrayRaw(x, y, static_cast<float>(30000.0 * std::exp(-0.25 * (x * x + (y - 100) * (y - 100)))), p);
  }
  const std::string in = Write(image, "in.fit");
  Restored(GetParam(), in, {"--sigma", "1.1"});
  const DecodedImage whole = Result();
  for (int p = 0; p < 3; ++p) {
    EXPECT_TRUE(std::isnan(whole.Row(p, 60)[50]) && std::isnan(whole.Row(p, 110)[150]));
    double right = 0.0;
    for (int y = 80; y < 120; ++y)
      for (int x = 296; x < 300; ++x)
        right = std::max<double>(right, std::abs(whole.Row(p, y)[x] - At(image, p, x, y)));
    EXPECT_LT(right, 600.0) << "of 30000 at the left";
    for (int y = 0; y < 220; ++y)
      for (int x = 0; x < 300; ++x)
        ASSERT_EQ(std::isnan(whole.Row(p, y)[x]), std::isnan(At(image, p, x, y))) << x << "," << y;
  }
  Restored(GetParam(), in, {"--sigma", "1.1", "--rect", "40,50,170,130"});
  const DecodedImage part = Result();
  double differs = 0.0;
  for (int y = 0; y < 220; ++y) {
    for (int x = 0; x < 300; ++x) {
      const float before = At(image, 1, x, y), after = part.Row(1, y)[x];
      if (std::isnan(before)) continue;
      if (x < 40 || x >= 170 || y < 50 || y >= 130)
        ASSERT_EQ(before, after) << x << "," << y;
      else
        differs = std::max<double>(differs, std::abs(after - before));
    }
  }
  EXPECT_GT(differs, 200.0);
}

TEST_P(RestoreMethod, SameBitsForThreadsAndProcessorLevels) {
  const std::string in = Write(Field{.width = 150, .height = 130}.Make(), "in.fit");
  ExpectSameBits({"restore", GetParam(), in, Path("o.fit"), "--force", "--quiet", "--sigma", "1.2"},
                 {{"--threads", "1"}, {"--threads", "2"}, {"--threads", "3"}},
                 [&] { return ReadBytes(Path("o.fit")); });
}

// Light is there above a pedestal at the level of the sky, too: stars get narrower all the same.
TEST_F(RestoreCommand, TakesThePedestalFromTheUser) {
  const std::string in = Write(Field().Make(), "in.fit");
  for (const char* method : {"lucy", "mem"}) {
    for (const char* pedestal : {"0", "400", "440"}) {
      Restored(method, in, {"--sigma", "1.1", "--pedestal", pedestal});
      EXPECT_LT(Fwhm(Path("out.fit")), 0.85 * Fwhm(in)) << method << pedestal;
    }
  }
}

TEST_F(RestoreCommand, DarkPixelsStayAndSpoilNothing) {
  CVynImage image = Field().Make();
  image.SetPixelGrayRaw(100, 100, -5000.0f, 0);
  const std::string in = Write(image, "in.fit");
  for (const char* method : {"lucy", "mem"}) {
    Restored(method, in, {"--sigma", "1.1", "--pedestal", "350"});
    const DecodedImage out = Result();
    EXPECT_EQ(out.Row(0, 100)[100], -5000.0f) << method;
    EXPECT_GE(out.Row(0, 100)[101], 350.0f) << method;
  }
}

TEST_F(RestoreCommand, PlainWienerIsTheLibrarysBrightness) {
  const std::string in = Write(Field().Make(), "in.fit", {Keyword::Real("CBLACK", 300), Keyword::Real("CWHITE", 900)});
  Restored("wiener", in, {"--sigma", "1.5", "--strength", "0.02"});
  const DecodedImage kept = Result();
  Restored("wiener", in, {"--sigma", "1.5", "--strength", "0.02", "--plain"});
  const DecodedImage plain = Result();
  // 300 and 220 pixels with the margin make a transform of 512 by 512.
  const double gain = 512.0 / (500.0 * 2.0 * 1.5 * 1.5 * 1.02);
  EXPECT_NEAR(Flux(plain, 300.0) / Flux(kept, 300.0), gain, 1e-3 * gain);
}

TEST_F(RestoreCommand, CtrlCLeavesWhatWas) {
  const std::string in = Write(Field{.width = 900, .height = 700}.Make(), "in.fit"), out = Path("out.fit");
  WriteBytes(out, "older");
  std::vector<std::string> endless = {"restore", "lucy",         in,     out,        "--force", "--sigma",
                                      "1.2",     "--iterations", "1000", "--settle", "0"};
  for (const char* method : {"lucy", "mem"}) {
    endless[1] = method;
    if (endless[1] == "mem") endless.resize(9);
    const Outcome o = RunQmr(endless, 1500);
    EXPECT_EQ(o.code, 130) << method << o.out << o.err;
    EXPECT_EQ(ReadBytes(out), "older");
  }
}

TEST_F(RestoreCommand, RefusesWhatCannotBeRestored) {
  CVynImage flat;
  Shape(flat, 60, 50, 1);
  Fill(flat, [](int, int x, int y) { return 100.0f + static_cast<float>((x * 7 + y * 5) % 11); });
  const std::string in = Write(flat, "in.fit"), raw = Write(flat, "raw.fit", {Keyword::Text("BAYERPAT", "RGGB")});
  CVynImage small;
  Shape(small, 9, 9, 1);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  flat.SetPixelGrayRaw(30, 20, 3e38f, 0);
  const std::string far = Write(flat, "far.fit");
  Fill(flat, [nan](int, int, int) { return nan; });
  const std::string blank = Write(flat, "blank.fit");
  const std::string tiny = Write(small, "tiny.fit"), bad = Path("bad.fit");
  WriteBytes(bad, "no picture");
  ExpectRefused("restore", {{{}, 64, "name a method"},
                            {{"lucy", in}, 64, "OUT"},
                            {{"luci", in, "OUT"}, 64, "luci"},
                            {{"lucy", Path("none.fit"), "OUT"}, 66, "no such file"},
                            {{"mem", bad, "OUT", "--sigma", "1"}, 65, "bad.fit"},
                            {{"wiener", raw, "OUT", "--sigma", "1"}, 65, "mosaic"},
                            {{"lucy", in, in, "--sigma", "1"}, 73, "--force"},
                            {{"lucy", in, "OUT"}, 65, "in.fit: has 0 of the 5 stars"},
                            {{"lucy", blank, "OUT", "--sigma", "1"}, 65, "no pixel with a value"},
                            {{"wiener", far, "OUT", "--sigma", "1"}, 65, "far.fit: has values that lie too far apart"},
                            {{"--sigma", "1", "lucy", in, "OUT"}, 64, "behind lucy"},
                            {{"lucy", in, "OUT", "--sigma", "1", "--pedestal", "150"}, 64, "no pixel"},
                            {{"mem", in, "OUT", "--sigma", "1", "--pedestal", "1e30"}, 64, "too far from the sky"},
                            {{"lucy", tiny, "OUT", "--sigma", "1"}, 65, "too small"},
                            {{"lucy", in, "OUT", "--sigma", "0"}, 64, "--sigma"},
                            {{"lucy", in, "OUT", "--sigma", "nan"}, 64, "--sigma"},
                            {{"lucy", in, "OUT", "--sigma", "1", "--fwhm", "3"}, 64, "--fwhm"},
                            {{"mem", in, "OUT", "--fwhm", "3", "--target", "3"}, 64, "--fwhm"},
                            {{"lucy", in, "OUT", "--sigma", "1", "--iterations", "-1"}, 64, "--iterations"},
                            {{"lucy", in, "OUT", "--sigma", "1", "--gain", "0"}, 64, "--gain"},
                            {{"lucy", in, "OUT", "--sigma", "1", "--gain", "1,2,3"}, 64, "--gain"},
                            {{"lucy", in, "OUT", "--sigma", "1", "--read-noise", "-2"}, 64, "--read-noise"},
                            {{"mem", in, "OUT", "--sigma", "1", "--noise", "0"}, 64, "--noise"},
                            {{"mem", in, "OUT", "--sigma", "1", "--gain", "2"}, 64, "--gain"},
                            {{"wiener", in, "OUT", "--sigma", "1", "--strength", "0"}, 64, "--strength"},
                            {{"lucy", in, "OUT", "--sigma", "1", "--rect", "70,0,80,5"}, 64, "--rect"}});
}

}  // namespace
}  // namespace qmr::test
