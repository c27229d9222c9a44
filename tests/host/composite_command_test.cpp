// `qmr composite` from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "tests/host/picture_folder.h"
#include "tests/host/star_scene.h"

namespace qmr::test {
namespace {

class CompositeCommand : public PictureFolder {
 protected:
  static Outcome Run(std::vector<std::string> words) {
    words.insert(words.begin(), "composite");
    return RunQmr(words);
  }
  // Runs with these more words, and reads the result.
  DecodedImage Combined(const std::string& a, const std::string& b, const std::vector<std::string>& more) const {
    std::vector<std::string> words = {a, b, Path("out.fit"), "--force"};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome o = Run(words);
    EXPECT_EQ(o.code, 0) << o.err;
    return Read(Path("out.fit"));
  }
  std::string Flat(const std::string& name, const std::vector<float>& planes,
                   const std::vector<Keyword>& keywords = {}) const {
    CVynImage image;
    Shape(image, 20, 10, static_cast<int>(planes.size()));
    Fill(image, [&](int p, int, int) { return planes[static_cast<std::size_t>(p)]; });
    return Write(image, name, keywords);
  }
  static float Pixel(const DecodedImage& image, int x, int y, int plane = 0) { return image.Row(plane, y)[x]; }
};

TEST_F(CompositeCommand, ModesOnBothScalesAndInTheMargin) {
  const std::vector<Keyword> levels = {Keyword::Real("CBLACK", 100), Keyword::Real("CWHITE", 610)};
  const std::string a = Flat("a.fit", {300}, levels), b = Flat("b.fit", {200}, levels);
  // On the display scale, of two raw values a step, A is 100 and B 50. The margin is A unless the mode is to fill it.
  struct Case {
    const char* mode;
    float raw, display, margin;
  };
  for (const Case& c : std::vector<Case>{{"average", 250, 250, 150},
                                         {"add", 500, 400, 300},
                                         {"weighted", 250, 250, 150},
                                         {"subtract", 100, 200, 300},
                                         {"multiply", 60000, 100.f + 200.f * 50 / 255, 76500},
                                         {"divide", 1.5, 100 + 200.f * 255 / 50, 300.f / 255},
                                         {"difference", 100, 200, 300},
                                         {"brighter", 300, 300, 300},
                                         {"darker", 200, 200, 0},
                                         {"minimum", 200, 200, 300}}) {
    const DecodedImage raw = Combined(a, b, {"--mode", c.mode, "--shift", "4,-2"});
    EXPECT_NEAR(Pixel(raw, 10, 5), c.raw, 1e-3) << c.mode;
    EXPECT_EQ(Pixel(raw, 3, 5), 300) << c.mode;
    EXPECT_EQ(Pixel(raw, 10, 8), 300) << c.mode;
    const DecodedImage display = Combined(a, b, {"--mode", c.mode, "--scale", "display", "--shift", "4,-2"});
    EXPECT_NEAR(Pixel(display, 10, 5), c.display, 1e-2) << c.mode;
    const DecodedImage literal = Combined(a, b, {"--mode", c.mode, "--shift", "4,-2", "--margin", "mode"});
    EXPECT_NEAR(Pixel(literal, 3, 5), c.margin, 1e-2) << c.mode;
    const DecodedImage blank = Combined(a, b, {"--mode", c.mode, "--shift", "4,-2", "--margin", "blank"});
    EXPECT_TRUE(std::isnan(Pixel(blank, 3, 5)) && !std::isnan(Pixel(blank, 4, 5))) << c.mode;
    // A sum or difference of raw values has no use for the levels of A.
    const bool keeps = std::string("average weighted brighter darker minimum").find(c.mode) != std::string::npos;
    EXPECT_EQ(FindKeyword(raw.keywords, "CBLACK") != nullptr, keeps) << c.mode;
    EXPECT_NE(FindKeyword(display.keywords, "CBLACK"), nullptr) << c.mode;
  }
  EXPECT_EQ(Pixel(Combined(b, a, {"--mode", "subtract", "--clip-negative"}), 5, 5), 0);
  EXPECT_EQ(Pixel(Combined(a, b, {"--mode", "weighted", "--weight", "0.25"}), 5, 5), 275);
  EXPECT_NEAR(Pixel(Combined(a, b, {"--mode", "divide", "--gain", "unit"}), 5, 5), 300, 1e-3);
  EXPECT_EQ(Pixel(Combined(a, b, {"--mode", "minimum", "--gain", "2"}), 5, 5), 300);
  EXPECT_NEAR(Pixel(Combined(a, b, {"--mode", "add", "--gain", "2", "--scale", "display"}), 5, 5), 500, 1e-2);
  const DecodedImage part = Combined(a, b, {"--mode", "darker", "--rect", "6,3,9,99"});
  EXPECT_EQ(Pixel(part, 6, 9), 200);
  EXPECT_EQ(Pixel(part, 9, 9), 300);
}

TEST_F(CompositeCommand, BMovesAndTurnsAsTold) {
  CVynImage dark, spot;
  Shape(dark, 41, 31, 1);
  Shape(spot, 41, 31, 1);
  spot.SetPixelGrayRaw(30, 15, 7.0f, 0);
  const std::string a = Write(dark, "dark.fit"), b = Write(spot, "spot.fit");
  EXPECT_EQ(Pixel(Combined(a, b, {"--mode", "brighter", "--shift", "3,-2"}), 33, 13), 7.0f);
  EXPECT_NEAR(Pixel(Combined(a, b, {"--mode", "add", "--angle", "90"}), 20, 25), 7.0f, 1e-4);
  // The library's minimum folds angles beyond a quarter turn back; the command does not.
  Fill(dark, [](int, int, int) { return 9.0f; });
  Write(dark, "light.fit");
  for (const std::string angle : {"180", "-180"}) {
    const DecodedImage turned =
        Combined(Path("light.fit"), b, {"--mode", "minimum", "--angle", angle, "--interpolation", "bilinear"});
    EXPECT_EQ(Pixel(turned, 10, 15), 7.0f) << angle;
    EXPECT_EQ(Pixel(turned, 30, 15), 0.0f) << angle;
  }
  EXPECT_NEAR(Pixel(Combined(Path("light.fit"), b, {"--mode", "minimum", "--angle", "135"}), 13, 22),
              Pixel(Combined(a, b, {"--mode", "add", "--angle", "135"}), 13, 22), 1e-4);
}

TEST_F(CompositeCommand, MeasuredPlacesLayOnePictureOnTheOther) {
  const StarScene scene(420, 360, 120, 9);
  const std::string a = Write(scene.Frame(320, 260, 0, 0, 0, 5, 1), "a.fit");
  struct Case {
    const char* how;
    double dx, dy, angle, bound, turn;
  };
  for (const Case& c : std::vector<Case>{{"shift", 12.4, -7.3, 0, 0.03, 0},
                                         {"rotation", 9.2, 6.7, 4, 0.05, 0.02},
                                         {"matching", 12.4, -7.3, 0, 0.1, 0}}) {
    const std::string b = Write(scene.Frame(320, 260, c.dx, c.dy, c.angle, 5, 2), "b.fit");
    const Outcome o = Run({a, b, Path("o.fit"), "--mode", "difference", "--align", c.how, "-v", "--force"});
    ASSERT_EQ(o.code, 0) << o.err;
    double dx = 0, dy = 0, angle = 0;
    std::sscanf(o.out.substr(o.out.find("shift ", o.out.find("B:"))).c_str(), "shift %lf %lf px  rotation %lf", &dx,
                &dy, &angle);
    EXPECT_NEAR(dx, c.dx, c.bound) << c.how;
    EXPECT_NEAR(dy, c.dy, c.bound) << c.how;
    EXPECT_NEAR(angle, c.angle, c.turn) << c.how;
    const DecodedImage difference = Read(Path("o.fit"));
    double worst = 0;
    for (int y = 40; y < 220; ++y)
      for (int x = 40; x < 280; ++x) worst = std::max<double>(worst, Pixel(difference, x, y));
    EXPECT_LT(worst, 75) << c.how << ": stars of 1000 and noise of 7";

    std::vector<std::string> words = {a, b, Path("again.fit"), "--force"};
    std::istringstream command(o.out.substr(0, o.out.find('\n')));
    std::string word;
    for (int i = 0; command >> word; ++i)
      if (i >= 2) words.push_back(word);
    ASSERT_EQ(Run(words).code, 0);
    EXPECT_EQ(Bits(Read(Path("again.fit"))), Bits(difference)) << c.how;
  }
  // An estimate and a part to compare find what lies farther.
  const std::string far = Write(scene.Frame(320, 260, 95.5, 60.2, 0, 5, 3), "far.fit");
  const Outcome o = Run({a, far, Path("far_out.fit"), "--align", "matching", "--shift", "90,65", "--template",
                         "130,90,300,230", "--range", "10"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_THAT(o.out, testing::ContainsRegex("shift +\\+95\\.[456]00 +\\+60\\.[123]00"));
}

TEST_F(CompositeCommand, ColoursAndPixelsWithoutAValue) {
  const std::string grey = Flat("grey.fit", {100}), colour = Flat("colour.fit", {10, 20, 30});
  const DecodedImage onColour = Combined(colour, grey, {"--mode", "add"});
  ASSERT_EQ(onColour.planes, 3);
  EXPECT_EQ(Pixel(onColour, 5, 5, 2), 130);
  const DecodedImage onGrey = Combined(grey, colour, {"--mode", "add"});
  ASSERT_EQ(onGrey.planes, 1);
  EXPECT_NEAR(Pixel(onGrey, 5, 5), 100 + 0.299 * 10 + 0.587 * 20 + 0.114 * 30, 1e-4);

  CVynImage image;
  Shape(image, 20, 10, 1);
  Fill(image, [](int, int, int) { return 50.0f; });
  image.SetPixelGrayRaw(8, 4, std::numeric_limits<float>::quiet_NaN(), 0);
  const std::string holed = Write(image, "holed.fit");
  const DecodedImage under = Combined(holed, grey, {"--mode", "add"});
  EXPECT_TRUE(std::isnan(Pixel(under, 8, 4)));
  EXPECT_EQ(Pixel(under, 9, 4), 150);
  const Outcome over = Run({grey, holed, Path("over.fit"), "--mode", "add", "--shift", "0.5,0.5"});
  EXPECT_THAT(over.err, testing::HasSubstr("holed.fit: 1 pixels without a value"));
  const DecodedImage o = Read(Path("over.fit"));
  for (int y = 2; y < 8; ++y)
    for (int x = 2; x < 18; ++x) ASSERT_NEAR(Pixel(o, x, y), 150, 1e-3);
}

TEST_F(CompositeCommand, SameBitsWhateverTheThreads) {
  const StarScene scene(120, 100, 20, 4);
  const std::string a = Write(scene.Frame(90, 70, 0, 0, 0, 5, 1), "a.fit");
  const std::string b = Write(scene.Frame(80, 75, 3.4, 5.1, 7, 5, 2), "b.fit");
  for (const std::string mode : {"average", "minimum"})
    ExpectSameBits({"composite", a, b, Path("o.fit"), "--force", "--quiet", "--shift", "3.4,5.1", "--angle", "7",
                    "--mode", mode, "--scale", "display"},
                   {{"--threads", "1"}, {"--threads", "3"}}, [&] { return ReadBytes(Path("o.fit")); });
}

TEST_F(CompositeCommand, RefusesWhatCannotBeCombined) {
  const std::string a = Flat("a.fit", {100});
  const std::string up = Flat("up.fit", {1}, {Keyword::Text("ROWORDER", "BOTTOM-UP")});
  const std::string down = Flat("down.fit", {1}, {Keyword::Text("ROWORDER", "TOP-DOWN")});
  const std::string raw = Flat("raw.fit", {1}, {Keyword::Text("BAYERPAT", "RGGB")});
  const std::string bad = Path("bad.fit");
  WriteBytes(bad, "no picture");
  ExpectRefused("composite", {{{a, "OUT"}, 64, "OUT"},
                              {{a, Path("none.fit"), "OUT"}, 66, "no such file"},
                              {{a, bad, "OUT"}, 65, "bad.fit"},
                              {{a, raw, "OUT"}, 65, "mosaic"},
                              {{up, down, "OUT"}, 65, "ROWORDER"},
                              {{a, a, Path("a.fit")}, 73, "--force"},
                              {{a, a, "OUT", "--mode", "screen"}, 64, "--mode"},
                              {{a, a, "OUT", "--shift", "1"}, 64, "--shift"},
                              {{a, a, "OUT", "--shift", "1,inf"}, 64, "--shift"},
                              {{a, a, "OUT", "--angle", "nan"}, 64, "--angle"},
                              {{a, a, "OUT", "--weight", "0.2"}, 64, "--mode weighted"},
                              {{a, a, "OUT", "--mode", "weighted", "--weight", "2"}, 64, "0 to 1"},
                              {{a, a, "OUT", "--gain", "0"}, 64, "--gain"},
                              {{down, Flat("zero.fit", {0}), "OUT", "--gain", "unit"}, 65, "--gain unit"},
                              {{a, a, "OUT", "--clip-negative"}, 64, "--mode subtract"},
                              {{a, a, "OUT", "--neighbours", "1"}, 64, "--mode minimum"},
                              {{a, a, "OUT", "--levels-a", "0,1"}, 64, "--scale display"},
                              {{a, a, "OUT", "--rect", "30,0,40,5"}, 64, "--rect"},
                              {{a, a, "OUT", "--rect", "5,0,4,5"}, 64, "--rect"},
                              {{a, a, "OUT", "--template", "1,1,9,9"}, 64, "--align matching"},
                              {{a, a, "OUT", "--align", "matching"}, 65, "can't be placed"},
                              {{a, a, "OUT", "--align", "rotation"}, 65, "can't be placed"}});
}

}  // namespace
}  // namespace qmr::test
