// `qmr compose` and `qmr split` from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "tests/host/picture_folder.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::HasSubstr;

constexpr int kWidth = 240;
constexpr int kHeight = 200;

// A star field on a sky, moved to the right and down, as one filter shows it.
void FillField(CVynImage& image, double dx, double dy, double sky, double strength) {
  Random stars(7);
  std::vector<double> at;
  for (int i = 0; i < 120; ++i) at.push_back(i % 3 == 2 ? stars.Uniform(300, 6000) : stars.Uniform(0, kWidth));
  Random noise(static_cast<std::uint64_t>(sky + strength * 100));
  Fill(image, [&](int, int x, int y) {
    double v = sky + 4.0 * noise.Normal();
    for (std::size_t i = 0; i + 2 < at.size(); i += 3) {
      const double r2 = std::pow(x - dx - at[i], 2) + std::pow(y - dy - at[i + 1], 2);
      if (r2 < 60.0) v += strength * at[i + 2] * std::exp(-r2 / 4.5);
    }
    return static_cast<float>(v);
  });
}

class ComposeCommand : public PictureFolder {
 protected:
  std::string Field(const std::string& name, double dx, double dy, double sky, double strength) const {
    CVynImage image;
    Shape(image, kWidth, kHeight, 1);
    FillField(image, dx, dy, sky, strength);
    return Write(image, name, {Keyword::Text("FILTER", name), Keyword::Text("OBJECT", "field")});
  }
  static Outcome Run(std::vector<std::string> words, const char* command = "compose") {
    words.insert(words.begin(), command);
    return RunQmr(words);
  }
};

TEST_F(ComposeCommand, FramesFallOnTheirPlanesByTheShiftsGivenAndMeasured) {
  const std::string red = Field("r.fit", 0, 0, 1000, 1.0);
  const std::string green = Field("g.fit", 3, -2, 800, 0.8);
  const std::string blue = Field("b.fit", -4, 5, 600, 0.5);
  const Outcome given =
      Run({"rgb", red, green, blue, Path("given.fit"), "--green-shift", "-3,2", "--blue-shift", "4,-5"});
  ASSERT_EQ(given.code, 0) << given.err;
  const DecodedImage picture = Read(Path("given.fit"));
  ASSERT_EQ(picture.planes, 3);
  const DecodedImage g = Read(green), b = Read(blue);
  const auto at = [](const DecodedImage& image, int plane, int x, int y) {
    return image.Plane(plane)[static_cast<std::size_t>(y * kWidth + x)];
  };
  EXPECT_EQ(at(picture, 1, 100, 90), at(g, 0, 103, 88));
  EXPECT_EQ(at(picture, 2, 100, 90), at(b, 0, 96, 95));
  // Beyond its frame a plane is 0.
  EXPECT_EQ(at(picture, 1, kWidth - 1, 90), 0.0f);
  EXPECT_EQ(FindKeyword(picture.keywords, "FILTER"), nullptr);
  EXPECT_NE(FindKeyword(picture.keywords, "OBJECT"), nullptr);

  const Outcome aligned = Run({"rgb", red, green, blue, Path("aligned.fit"), "--align", "shift", "--verbose"});
  ASSERT_EQ(aligned.code, 0) << aligned.err;
  const DecodedImage found = Read(Path("aligned.fit"));
  // The measured shifts are whole within hundredths of a pixel: a star's flank moves by little.
  for (int p = 1; p < 3; ++p) {
    double worst = 0.0;
    for (int y = 20; y < kHeight - 20; ++y)
      for (int x = 20; x < kWidth - 20; ++x)
        worst = std::max(worst, std::abs(static_cast<double>(at(found, p, x, y)) - at(picture, p, x, y)));
    EXPECT_LT(worst, 150.0) << "plane " << p;
  }
}

TEST_F(ComposeCommand, APositiveAngleTurnsAFrameFromRightToDown) {
  CVynImage image;
  Shape(image, 41, 31, 1);
  image.SetPixelGrayRaw(30, 15, 7.0f, 0);
  const std::string in = Write(image, "in.fit");
  ASSERT_EQ(Run({"rgb", in, in, in, Path("o.fit"), "--blue-angle", "90", "--interpolation", "bicubic"}).code, 0);
  const DecodedImage turned = Read(Path("o.fit"));
  EXPECT_NEAR(turned.Plane(2)[25 * 41 + 20], 7.0, 1e-4);
  EXPECT_EQ(turned.Plane(0)[15 * 41 + 30], 7.0f);
}

TEST_F(ComposeCommand, ItsHistoryGivesTheSamePictureAgain) {
  const std::string luminance = Field("l.fit", 0, 0, 1000, 1.0);
  CVynImage half;
  Shape(half, kWidth / 2, kHeight / 2, 3);
  FillNoise(half, 3, 900, 1500);
  const std::string colour = Write(half, "rgb.fit");
  for (const std::string how : {"lrgb", "lab"}) {
    const Outcome first =
        Run({how, luminance, colour, Path("first.fit"), "--colour-shift", "1.5,0", "--force", "--verbose"});
    ASSERT_EQ(first.code, 0) << first.err;
    std::vector<std::string> words = {how, luminance, colour, Path("second.fit"), "--force"};
    std::istringstream command(first.out.substr(0, first.out.find('\n')));
    std::string word;
    for (int i = 0; command >> word; ++i)
      if (i >= 3) words.push_back(word);
    EXPECT_THAT(words, testing::Contains("0.5")) << "the scale of the smaller frame";
    ASSERT_EQ(Run(words).code, 0);
    const DecodedImage a = Read(Path("first.fit")), b = Read(Path("second.fit"));
    for (int p = 0; p < 3; ++p) EXPECT_TRUE(std::equal(a.Plane(p).begin(), a.Plane(p).end(), b.Plane(p).begin()));
  }
}

TEST_F(ComposeCommand, RefusesWhatCannotBeComposed) {
  const std::string a = Field("a.fit", 0, 0, 1000, 1.0);
  CVynImage flat;
  Shape(flat, 64, 64, 1);
  const std::string dull = Write(flat, "dull.fit");
  const std::string up = Write(flat, "up.fit", {Keyword::Text("ROWORDER", "BOTTOM-UP")});
  const std::string down = Write(flat, "down.fit", {Keyword::Text("ROWORDER", "TOP-DOWN")});
  const std::string bad = Path("bad.fit");
  WriteBytes(bad, "no picture");
  const std::vector<Refusal> cases = {
      {{"rgb", a, a, Path("none.fit"), "OUT"}, 66, "no such file"},
      {{"rgb", a, a, bad, "OUT"}, 65, "bad.fit"},
      {{"rgb", a, a, a, Path("o.jpg")}, 64, ".fits"},
      {{"rgb", a, a, a, Path("a.fit")}, 73, "--force"},
      {{"rgb", a, a, a, "OUT", "--green-shift", "1"}, 64, "--green-shift"},
      {{"rgb", a, a, a, "OUT", "--green-shift", "nan,1"}, 64, "--green-shift"},
      {{"rgb", a, a, a, "OUT", "--align", "shift", "--blue-angle", "1"}, 64, "--align"},
      {{"rgb", a, dull, a, "OUT", "--align", "shift"}, 65, "one size"},
      {{"rgb", dull, dull, dull, "OUT", "--align", "shift"}, 65, "aligned"},
      {{"rgb", a, a, a, "OUT", "--blue-angle", "nan"}, 64, "--blue-angle"},
      {{"rgb", up, a, down, "OUT"}, 65, "ROWORDER"},
      {{"lrgb", a, a, "OUT", "--colour-scale", "nan"}, 64, "--colour-scale"},
      {{"lrgb", a, dull, "OUT"}, 65, "--colour-scale"},
      {{"lrgb", a, a, "OUT", "--blend", "sum"}, 64, "--blend"},
      {{"lab", a, a, "OUT", "--luminance-levels", "5,4"}, 64, "--luminance-levels"},
      {{"rbg", a, a, a, "OUT"}, 64, "did you mean rgb"},
      {{}, 64, "qmr compose rgb"},
  };
  ExpectRefused("compose", cases);
}

TEST_F(ComposeCommand, KeywordsHoldForThePicture) {
  CVynImage image;
  Shape(image, 16, 12, 3);
  FillNoise(image, 4, 100, 4000);
  std::vector<Keyword> keywords = {Keyword::Real("CRPIX1", 8.0)};
  for (const int p : {1, 2, 3}) {
    const std::string plane = p == 1 ? "" : std::to_string(p);
    keywords.push_back(Keyword::Real("CBLACK" + plane, 10.0 * p));
    keywords.push_back(Keyword::Real("CWHITE" + plane, 1000.0 * p));
  }
  const std::string in = Write(image, "in.fit", keywords);
  const auto levels = [&](const std::string& name) {
    std::vector<double> found;
    const std::vector<Keyword> k = Read(Path(name)).keywords;
    for (const char* const plane : {"", "2", "3"})
      for (const char* const level : {"CBLACK", "CWHITE"})
        if (const auto value = KeywordNumber(k, std::string(level) + plane)) found.push_back(*value);
    return found;
  };
  using testing::ElementsAre;
  ASSERT_EQ(Run({in, Path("s.fit")}, "split").code, 0);
  EXPECT_THAT(levels("s_green.fit"), ElementsAre(20, 2000));
  ASSERT_EQ(Run({in, Path("s.fit"), "--into", "lab"}, "split").code, 0);
  EXPECT_THAT(levels("s_l.fit"), ElementsAre(0, 100));
  EXPECT_THAT(levels("s_a.fit"), ElementsAre(-100, 100));
  ASSERT_EQ(Run({"rgb", in, Path("s_green.fit"), Path("s_blue.fit"), Path("o.fit")}).code, 0);
  EXPECT_THAT(levels("o.fit"), ElementsAre(10, 1000, 20, 2000, 30, 3000));
  EXPECT_NE(FindKeyword(Read(Path("o.fit")).keywords, "CRPIX1"), nullptr);
  ASSERT_EQ(Run({"lrgb", in, in, Path("m.fit"), "--luminance-shift", "1,0"}).code, 0);
  EXPECT_EQ(FindKeyword(Read(Path("m.fit")).keywords, "CRPIX1"), nullptr) << "the place in the sky has moved";
  EXPECT_THAT(levels("m.fit"), ElementsAre(10, 1000));
}

TEST_F(ComposeCommand, SplitAndComposeGiveThePictureBack) {
  CVynImage image;
  Shape(image, 37, 23, 3);
  FillNoise(image, 4, 100, 4000);
  image.SetPixelGrayRaw(5, 6, std::numeric_limits<float>::quiet_NaN(), 1);
  const std::string in = Write(image, "night.fit");
  ASSERT_EQ(Run({in, Path("n.fit")}, "split").code, 0);
  const DecodedImage green = Read(Path("n_green.fit"));
  ASSERT_EQ(green.planes, 1);
  const Outcome back = Run({"rgb", Path("n_red.fit"), Path("n_green.fit"), Path("n_blue.fit"), Path("back.fit")});
  ASSERT_EQ(back.code, 0);
  EXPECT_THAT(back.err, HasSubstr("n_green.fit: 1 pixels without a value"));
  const DecodedImage again = Read(Path("back.fit"));
  for (int p = 0; p < 3; ++p)
    for (int i = 0; i < 37 * 23; ++i)
      if (p != 1 || i != 6 * 37 + 5) {
        ASSERT_EQ(again.Plane(p)[static_cast<std::size_t>(i)], At(image, p, i % 37, i / 37)) << p << " " << i;
      }

  ASSERT_EQ(Run({in, Path("n.fit"), "--into", "cmy"}, "split").code, 0);
  EXPECT_EQ(Read(Path("n_cyan.fit")).Plane(0)[0], (At(image, 2, 0, 0) + At(image, 1, 0, 0)) * 0.5f);
  ASSERT_EQ(Run({in, Path("n.fit"), "--into", "lab", "--levels", "0,5000"}, "split").code, 0);
  // A pixel that lacks one of its planes has no colour.
  EXPECT_TRUE(std::isnan(Read(Path("n_a.fit")).Plane(0)[6 * 37 + 5]));
  // Nothing is written when one of the three is in the way.
  std::filesystem::remove(Path("n_red.fit"));
  EXPECT_EQ(Run({in, Path("n.fit")}, "split").code, 73);
  EXPECT_FALSE(std::filesystem::exists(Path("n_red.fit")));
}

}  // namespace
}  // namespace qmr::test
