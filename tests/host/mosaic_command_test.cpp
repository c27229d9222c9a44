// `qmr mosaic` from outside, with frames cut from a known sky.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/host/picture_folder.h"
#include "tests/host/star_scene.h"

namespace qmr::test {
namespace {

using testing::HasSubstr;

class MosaicCommand : public PictureFolder {
 protected:
  static Outcome Run(std::vector<std::string> words) {
    words.insert(words.begin(), "mosaic");
    return RunQmr(words);
  }
  std::string Flat(const std::string& name, int width, int height, float value, int planes = 1) const {
    CVynImage image;
    Shape(image, width, height, planes);
    Fill(image, [&](int p, int, int) { return value + static_cast<float>(p); });
    return Write(image, name);
  }
  static float Pixel(const DecodedImage& image, int x, int y, int plane = 0) { return image.Row(plane, y)[x]; }
  // Largest difference to the scene where the mosaic has a value, and the number of those pixels. The first frame
  // has its CRPIX at its first pixel.
  static std::pair<double, int> Against(const StarScene& scene, const DecodedImage& image) {
    const double left = 1 - *KeywordNumber(image.keywords, "CRPIX1"),
                 top = 1 - *KeywordNumber(image.keywords, "CRPIX2");
    double worst = 0.0;
    int covered = 0;
    for (int y = 0; y < image.height; ++y)
      for (int x = 0; x < image.width; ++x)
        if (const float v = Pixel(image, x, y); !std::isnan(v)) {
          worst = std::max(worst, std::abs(v - scene(x + left, y + top)));
          ++covered;
        }
    return {worst, covered};
  }
  // The places in a command line, three numbers each.
  static std::vector<std::vector<double>> Places(const Outcome& outcome) {
    std::vector<std::vector<double>> places;
    std::istringstream line(outcome.out);
    for (std::string word; line >> word;)
      if (word == "--at") {
        std::vector<double>& place = places.emplace_back(3, 0.0);
        line >> word;
        std::sscanf(word.c_str(), "%lf,%lf,%lf", &place[0], &place[1], &place[2]);
      }
    return places;
  }

  const StarScene scene_{700, 500, 250, 5};
};

TEST_F(MosaicCommand, PiecesGiveThePictureBackBitForBit) {
  const std::string a =
      Write(scene_.Frame(200, 150, 0, 0, 0), "a.fit", {Keyword::Real("CRPIX1", 10.5), Keyword::Real("CRPIX2A", 20.0)});
  const std::string b = Write(scene_.Frame(180, 160, 150, -30, 0), "b.fit");
  const std::string c = Write(scene_.Frame(90, 80, -40, 120, 0), "c.fit");
  ASSERT_EQ(Run({a, b, c, Path("m.fit"), "--at", "150,-30", "--at", "-40,120", "--background", "-7"}).code, 0);
  const DecodedImage m = Read(Path("m.fit"));
  ASSERT_EQ(m.width, 370);
  ASSERT_EQ(m.height, 230);
  const auto inside = [](int x, int y, int w, int h) { return x >= 0 && y >= 0 && x < w && y < h; };
  for (int y = 0; y < m.height; ++y)
    for (int x = 0; x < m.width; ++x) {
      const int u = x - 40, v = y - 30;
      const bool covered =
          inside(u, v, 200, 150) || inside(u - 150, v + 30, 180, 160) || inside(u + 40, v - 120, 90, 80);
      ASSERT_EQ(Pixel(m, x, y), covered ? static_cast<float>(scene_(u, v)) : -7.0f) << x << " " << y;
    }
  EXPECT_EQ(KeywordNumber(m.keywords, "CRPIX1"), 50.5);
  EXPECT_EQ(KeywordNumber(m.keywords, "CRPIX2A"), 50.0);
}

TEST_F(MosaicCommand, TurnedPiecesBetweenPixelsComeNearTheSky) {
  const std::string a =
      Write(scene_.Frame(200, 150, 0, 0, 0), "a.fit", {Keyword::Integer("CRPIX1", 1), Keyword::Integer("CRPIX2", 1)});
  const std::string b = Write(scene_.Frame(180, 160, 150.37, -30.61, 12), "b.fit");
  const std::string c = Write(scene_.Frame(120, 90, -40.25, 101.75, -170), "c.fit");
  for (const std::string overlap : {"new", "base", "average", "brighter"}) {
    const Outcome o = Run({a, b, c, Path("m.fit"), "--at", "150.37,-30.61,12", "--at", "-40.25,101.75,-170",
                           "--background", "blank", "--overlap", overlap, "--force"});
    ASSERT_EQ(o.code, 0) << o.err;
    const DecodedImage m = Read(Path("m.fit"));
    const auto [worst, covered] = Against(scene_, m);
    // Stars of 1000: a fiftieth at the very edges of a frame, where interpolation repeats the last pixels.
    EXPECT_LT(worst, 20.0) << overlap;
    EXPECT_GT(covered, 200 * 150 + 180 * 160 * 2 / 3) << overlap;
  }
}

TEST_F(MosaicCommand, RoughPlacesAreMeasuredToATenthOfAPixel) {
  const std::string a = Write(scene_.Frame(260, 240, 0, 0, 0, 10, 2), "a.fit");
  CVynImage right = scene_.Frame(260, 240, 171.34, 8.72, 0, 10, 3);
  const std::string b = Write(right, "b.fit");
  const std::string c = Write(scene_.Frame(240, 260, 90.6, 130.2, 0, 10, 4), "c.fit");
  for (const std::string how : {"matching", "shift"}) {
    const Outcome o = Run({a, b, c, Path(how + ".fit"), "--at", "180,1", "--at", "83,139.5", "--align", how, "-v"});
    ASSERT_EQ(o.code, 0) << o.err;
    const auto places = Places(o);
    ASSERT_EQ(places.size(), 2u) << o.out;
    const double bound = how == "shift" ? 0.05 : 0.1;
    EXPECT_NEAR(places[0][0], 171.34, bound) << how;
    EXPECT_NEAR(places[0][1], 8.72, bound) << how;
    EXPECT_NEAR(places[1][0], 90.6, bound) << how;
    EXPECT_NEAR(places[1][1], 130.2, bound) << how;
    // What was printed gives the same again.
    std::vector<std::string> words = {a, b, c, Path("again.fit"), "--force"};
    std::istringstream command(o.out.substr(0, o.out.find('\n')));
    std::string word;
    for (int i = 0; command >> word; ++i)
      if (i >= 2) words.push_back(word);
    ASSERT_EQ(Run(words).code, 0);
    EXPECT_EQ(Bits(Read(Path("again.fit"))), Bits(Read(Path(how + ".fit"))));
  }
  const std::string turned = Write(scene_.Frame(260, 240, 141.3, 20.8, 3.2, 5, 6), "t.fit");
  const Outcome o = Run({a, turned, Path("t.png"), "--at", "148,15,2", "--align", "rotation", "-v"});
  ASSERT_EQ(o.code, 0) << o.err;
  const auto places = Places(o);
  ASSERT_EQ(places.size(), 1u);
  EXPECT_NEAR(places[0][0], 141.3, 0.1);
  EXPECT_NEAR(places[0][1], 20.8, 0.1);
  EXPECT_NEAR(places[0][2], 3.2, 0.03);
}

TEST_F(MosaicCommand, OverlapsFollowTheirRule) {
  const std::string low = Flat("low.fit", 60, 40, 100);
  const std::string high = Flat("high.fit", 60, 40, 200, 3);
  const auto at = [&](std::vector<std::string> more, int x, int plane = 0) {
    std::vector<std::string> words = {low, high, Path("m.fit"), "--at", "40,0", "--force"};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome o = Run(words);
    EXPECT_EQ(o.code, 0) << o.err;
    const DecodedImage m = Read(Path("m.fit"));
    EXPECT_EQ(m.width, 100);
    EXPECT_EQ(m.planes, 3) << "a colour frame makes the mosaic one";
    return Pixel(m, x, 20, plane);
  };
  EXPECT_EQ(at({}, 50, 2), 202);
  EXPECT_EQ(at({}, 20, 2), 100);
  EXPECT_EQ(at({"--overlap", "base"}, 50), 100);
  EXPECT_EQ(at({"--overlap", "base"}, 80, 1), 201);
  EXPECT_EQ(at({"--overlap", "average"}, 50), 150);
  EXPECT_EQ(at({"--overlap", "average"}, 80), 200) << "alone, a frame is itself";
  EXPECT_EQ(at({"--overlap", "brighter"}, 50), 200);
  EXPECT_EQ(at({"--overlap", "darker"}, 50), 100);
  EXPECT_EQ(at({"--match-sky"}, 80, 2), 100);
  EXPECT_NEAR(at({"--feather", "20"}, 50), 152.5, 1e-3);
  EXPECT_EQ(at({"--feather", "5"}, 55), 200);
}

TEST_F(MosaicCommand, ABorderOfTheMaskColourAndPixelsWithoutAValueAreNoPartOfAFrame) {
  const std::string a = Flat("a.fit", 60, 40, 100);
  CVynImage image;
  Shape(image, 60, 40, 1);
  Fill(image, [](int, int x, int y) { return x < 5 || y < 5 || x > 54 || y > 34 ? 0.0f : 300.0f; });
  const std::string b = Write(image, "b.fit");
  for (const std::string at : {"30,20", "30.5,20.5,0.5"}) {
    ASSERT_EQ(Run({a, b, Path("m.fit"), "--at", at, "--overlap", "new-masked", "--background", "7", "--force"}).code,
              0);
    const DecodedImage m = Read(Path("m.fit"));
    for (int y = 0; y < m.height; ++y)
      for (int x = 0; x < m.width; ++x)
        ASSERT_THAT(Pixel(m, x, y), testing::AnyOf(7.0f, 100.0f, testing::FloatNear(300.0f, 0.01f)));
    EXPECT_EQ(Pixel(m, 32, 22), 100.0f);
    EXPECT_EQ(Pixel(m, 88, 50), 7.0f);
    EXPECT_NEAR(Pixel(m, 50, 35), 300.0f, 0.01f);
  }
  image.SetPixelGrayRaw(20, 10, std::numeric_limits<float>::quiet_NaN(), 0);
  image.SetPixelGrayRaw(50, 30, std::numeric_limits<float>::quiet_NaN(), 0);
  ASSERT_EQ(Run({a, Write(image, "n.fit"), Path("o.fit"), "--at", "30,20"}).code, 0);
  const DecodedImage n = Read(Path("o.fit"));
  EXPECT_EQ(Pixel(n, 50, 30), 100.0f) << "the frame below shows through";
  EXPECT_TRUE(std::isnan(Pixel(n, 80, 50))) << "nothing is there";
}

TEST_F(MosaicCommand, SkyCoordinatesPlaceFrames) {
  const double scale = 1.5 / 3600, turn = 30 * std::numbers::pi / 180;
  const auto header = [&](double x, double y, double ra, double dec, double angle) {
    const double c = std::cos(angle) * scale, s = std::sin(angle) * scale;
    return std::vector<Keyword>{Keyword::Text("CTYPE1", "RA---TAN"), Keyword::Text("CTYPE2", "DEC--TAN"),
                                Keyword::Real("CRPIX1", x),          Keyword::Real("CRPIX2", y),
                                Keyword::Real("CRVAL1", ra),         Keyword::Real("CRVAL2", dec),
                                Keyword::Real("CD1_1", -c),          Keyword::Real("CD1_2", s),
                                Keyword::Real("CD2_1", s),           Keyword::Real("CD2_2", c)};
  };
  // Both headers name the same direction: the first frame's pixel (250, 90), the second one's (20, 110).
  CVynImage image;
  Shape(image, 240, 200, 1);
  const std::string a = Write(image, "a.fit", header(251, 91, 120, 60, 0));
  const std::string b = Write(image, "b.fit", header(21, 111, 120, 60, turn));
  const Outcome o = Run({a, b, Path("m.fit"), "-v"});
  ASSERT_EQ(o.code, 0) << o.err;
  const auto places = Places(o);
  ASSERT_EQ(places.size(), 1u);
  EXPECT_NEAR(std::abs(places[0][2]), 30.0, 1e-6);
  // The place as printed carries the second frame's pixel onto the first one's.
  const double angle = places[0][2] * std::numbers::pi / 180, u = 20 - 119.5, v = 110 - 99.5;
  EXPECT_NEAR(std::cos(angle) * u - std::sin(angle) * v + 119.5 + places[0][0], 250, 1e-3);
  EXPECT_NEAR(std::sin(angle) * u + std::cos(angle) * v + 99.5 + places[0][1], 90, 1e-3);
  // A tangent point farther north, which is up the rows of the first frame.
  const std::string c = Write(image, "c.fit", header(121, 101, 120, 60.05, 0));
  const Outcome up = Run({a, c, Path("up.fit"), "-v"});
  ASSERT_EQ(up.code, 0) << up.err;
  EXPECT_NEAR(Places(up)[0][1], 90 - 100 + 0.05 / scale, 1e-2);
  const DecodedImage m = Read(Path("up.fit"));
  EXPECT_EQ(KeywordNumber(m.keywords, "CRPIX2"), 91.0);
}

TEST_F(MosaicCommand, RefusesWhatCannotBeJoined) {
  const std::string a = Write(scene_.Frame(120, 100, 0, 0, 0), "a.fit");
  const std::string flat = Flat("flat.fit", 120, 100, 5);
  const std::string bad = Path("bad.fit");
  WriteBytes(bad, "no picture");
  const std::string up = Write(scene_.Frame(20, 20, 0, 0, 0), "up.fit", {Keyword::Text("ROWORDER", "BOTTOM-UP")});
  const std::string down = Write(scene_.Frame(20, 20, 0, 0, 0), "down.fit", {Keyword::Text("ROWORDER", "TOP-DOWN")});
  ExpectRefused("mosaic", {{{a, "OUT"}, 64, "two frames"},
                           {{a, a, "OUT"}, 65, "--at"},
                           {{a, a, a, "OUT", "--at", "5,5"}, 64, "--at"},
                           {{a, a, "OUT", "--at", "5"}, 64, "--at"},
                           {{a, a, "OUT", "--at", "nan,5"}, 64, "--at"},
                           {{a, a, "OUT", "--at", "90000,90000"}, 65, "400 million"},
                           {{a, a, "OUT", "--at", "500,0", "--align", "shift"}, 65, "shares no part"},
                           {{a, a, "OUT", "--at", "90,0", "--align", "matching"}, 65, "20 pixels"},
                           {{a, a, "OUT", "--at", "20,0", "--align", "matching", "--range", "8"}, 65, "--range"},
                           {{flat, flat, "OUT", "--at", "2,0", "--align", "shift"}, 65, "can't be placed"},
                           {{a, bad, "OUT", "--at", "5,5"}, 65, "bad.fit"},
                           {{a, Path("none.fit"), "OUT", "--at", "5,5"}, 66, "no such file"},
                           {{up, down, "OUT", "--at", "5,5"}, 65, "ROWORDER"},
                           {{a, a, "OUT", "--at", "5,5", "--mask-colour", "1"}, 64, "new-masked"},
                           {{a, a, "OUT", "--at", "5,5", "--overlap", "base", "--feather", "4"}, 64, "--feather"},
                           {{a, a, "OUT", "--at", "5,5", "--range", "4"}, 64, "--range"},
                           {{a, a, Path("a.fit"), "--at", "5,5"}, 73, "--force"}});
}

}  // namespace
}  // namespace qmr::test
