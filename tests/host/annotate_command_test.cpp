// `qmr annotate` from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "tests/host/picture_folder.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::HasSubstr;

constexpr int kWidth = 400;
constexpr int kHeight = 300;
constexpr float kBackground = 100.0f;
constexpr float kWhite = 1000.0f;
const float kNaN = std::numeric_limits<float>::quiet_NaN();

struct Box {
  int left = kWidth, top = kHeight, right = -1, bottom = -1;
};

class AnnotateCommand : public PictureFolder {
 protected:
  // A flat picture on levels 0 to 1000, with a blank column.
  std::string Flat(int planes, std::vector<Keyword> keywords = {}) const {
    auto image = Shaped<CVynImage>(kWidth, kHeight, planes);
    Fill(image, [](int, int x, int) { return x == 50 ? kNaN : kBackground; });
    keywords.push_back(Keyword::Real("CBLACK", 0.0));
    keywords.push_back(Keyword::Real("CWHITE", kWhite));
    return Write(image, "in.fit", keywords);
  }
  DecodedImage Run(std::vector<std::string> words, const std::string& in, const std::string& says = {}) const {
    words.insert(words.begin(), "annotate");
    words.insert(words.end(), {"--quiet", "--force", in, Path("out.fit")});
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, 0) << o.err;
    if (says.empty())
      EXPECT_EQ(o.err, "");
    else
      EXPECT_THAT(o.err, HasSubstr(says));
    return Read(Path("out.fit"));
  }
  // Where a plane of the flat picture has changed.
  static Box Changed(const DecodedImage& image, int plane = 0) {
    Box box;
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x) {
        const float v = image.Row(plane, y)[x];
        if (x == 50 ? std::isnan(v) : v == kBackground) continue;
        box = {std::min(box.left, x), std::min(box.top, y), std::max(box.right, x), std::max(box.bottom, y)};
      }
    return box;
  }
  static bool HaveFonts() { return std::system("fc-list 2>/dev/null | grep -q .") == 0; }
};

TEST_F(AnnotateCommand, LinesTakeTheirPixelsAndNoOthers) {
  const DecodedImage mono = Run({"--line", "-30,20,60,20"}, Flat(1));
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const float v = mono.Row(0, y)[x];
      if (y == 20 && x <= 60)
        ASSERT_EQ(v, kWhite) << x;  // over the blank pixel as well
      else
        ASSERT_TRUE(x == 50 ? std::isnan(v) : v == kBackground) << x << " " << y;
    }
  const DecodedImage colour = Run({"--line", "10,20,10,30", "--line", "200,100,240,140", "--colour", "#3300ff",
                                   "--line-width", "3", "--levels", "0,1000,0,500,0,255"},
                                  Flat(3));
  EXPECT_EQ(colour.Row(0, 25)[9], 200.0f);
  EXPECT_EQ(colour.Row(1, 25)[11], 0.0f);
  EXPECT_EQ(colour.Row(2, 121)[220], 255.0f);
  EXPECT_EQ(colour.Row(2, 122)[220], kBackground);
  EXPECT_EQ(KeywordNumber(colour.keywords, "CWHITE2"), 500.0);
}

TEST_F(AnnotateCommand, TextsLieAtTheirAnchors) {
  if (!HaveFonts()) GTEST_SKIP() << "no font is installed";
  const std::string in = Flat(1);
  const Box topLeft = Changed(Run({"--text", "200,150,HE,H", "--size", "40"}, in));
  EXPECT_GE(topLeft.left, 200);
  EXPECT_GE(topLeft.top, 150);
  EXPECT_NEAR(topLeft.bottom - topLeft.top, 33, 5) << "the comma hangs below the letters";
  const Box bottomRight = Changed(Run({"--text", "200,150,HE,H", "--size", "40", "--anchor", "bottom-right"}, in));
  EXPECT_LE(bottomRight.right, 200);
  EXPECT_LE(bottomRight.bottom, 150);
  EXPECT_EQ(bottomRight.right - bottomRight.left, topLeft.right - topLeft.left);
  const Box centre = Changed(Run({"-t", "200,150,HEH", "--size", "40", "--anchor", "centre"}, in));
  EXPECT_NEAR(centre.left + centre.right, 400, 4);
  // Over blank pixels there is ink where it belongs, and nothing else.
  const DecodedImage blank = Run({"--text", "20,20,———", "--size", "40", "--bold"}, in);
  int inked = 0;
  for (int y = 0; y < kHeight; ++y) inked += !std::isnan(blank.Row(0, y)[50]);
  EXPECT_GT(inked, 0);
  EXPECT_LT(inked, 10);
  const Box caption = Changed(Run({"--caption", "{OBJECT}: {{5} {NONE}"}, in, "no keyword NONE"));
  EXPECT_LT(caption.left, 20);
  EXPECT_GT(caption.top, kHeight - 30);
  Run({"--text", "500,10,far"}, in, "outside");
  Run({"--text", "9,-15,Cut", "--size", "40"}, in, "beyond");
  Run({"--text", "9,-3,x", "--size", "40"}, in);  // no ink is cut off
}

TEST_F(AnnotateCommand, KeywordsStandInTexts) {
  if (!HaveFonts()) GTEST_SKIP() << "no font is installed";
  const std::string in = Flat(1, {Keyword::Text("OBJECT", "M 31"), Keyword::Real("EXPTIME", 120.0)});
  EXPECT_EQ(Bits(Run({"--caption", "{OBJECT}, {EXPTIME} s {{x}"}, in)),
            Bits(Run({"--caption", "M 31, 120 s {{x}"}, in)));
  EXPECT_NE(Bits(Run({"--caption", "M 31"}, in)), Bits(Run({"--caption", "M 33"}, in)));
}

TEST_F(AnnotateCommand, LettersStandUprightInPicturesWhoseRowsRunUpwards) {
  if (!HaveFonts()) GTEST_SKIP() << "no font is installed";
  const DecodedImage down = Run({"--text", "100,50,Fg", "--line", "7,9,100,40"}, Flat(1));
  const DecodedImage up =
      Run({"--text", "100,249,Fg", "--line", "7,290,100,259"}, Flat(1, {Keyword::Text("ROWORDER", "BOTTOM-UP")}));
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x)
      if (x != 50) {
        ASSERT_EQ(up.Row(0, kHeight - 1 - y)[x], down.Row(0, y)[x]) << x << " " << y;
      }
}

TEST_F(AnnotateCommand, TheScaleBarIsAsLongAsItSays) {
  if (!HaveFonts()) GTEST_SKIP() << "no font is installed";
  const Keyword sky = Keyword::Text("CTYPE1", "RA---TAN");
  const Keyword microns = Keyword::Real("XPIXSZ", 3.76), focus = Keyword::Real("FOCALLEN", 530.0);
  const double second = 1.0 / 3600.0;
  const struct {
    std::vector<Keyword> keywords;
    std::vector<std::string> words;
    int pixels;  // the longest round length within a quarter of 400
  } cases[] = {
      {{microns, focus}, {"--scale-bar"}, 82},  // 1.463" a pixel, 2'
      {{sky, Keyword::Real("CD1_2", second), Keyword::Real("CD2_1", second), microns, focus}, {"--scale-bar"}, 60},
      {{sky, Keyword::Real("CDELT1", -2 * second), Keyword::Real("CDELT2", 2 * second)}, {"--scale-bar"}, 60},  // 2'
      {{Keyword::Real("CDELT1", 1.0), Keyword::Real("CDELT2", 1.0), microns, focus}, {"--scale-bar"}, 82},
      {{microns, focus}, {"--pixel-scale", "3600"}, 90},
      {{}, {"--pixel-scale", "0.0011"}, 91},  // 0.1"
  };
  for (const auto& one : cases) {
    const DecodedImage image = Run(one.words, Flat(1, one.keywords));
    int pixels = 0;
    for (int x = 0; x < kWidth; ++x) pixels += image.Row(0, kHeight - 13)[x] == kWhite;
    EXPECT_EQ(pixels, one.pixels + 1) << one.words.back();
  }
}

TEST_F(AnnotateCommand, ItsHistoryGivesTheSamePictureAgain) {
  if (!HaveFonts()) GTEST_SKIP() << "no font is installed";
  auto image = Shaped<CVynImage>(kWidth, kHeight, 3);
  FillNoise(image, 5, 900, 1100);
  const std::string in = Write(image, "in.fit", {Keyword::Text("OBJECT", "M 31")});
  std::vector<std::string> words = {"annotate", "-t", "20,30,it's  星 \\ {OBJECT}", "-t", "-3,200,$HOME `x`"};
  words.insert(words.end(), {"-l", "1,2,300.5,40", "-c", "cap", "--pixel-scale", "2.5", "--colour", "orange", "-v"});
  words.insert(words.end(), {"--italic", "--font", "No Such", "--force", in, Path("first.fit")});
  const Outcome first = RunQmr(words);
  ASSERT_EQ(first.code, 0) << first.err;
  EXPECT_THAT(first.out, HasSubstr("No Such is not installed"));
  std::string history;
  for (const Keyword& k : Read(Path("first.fit")).keywords)
    if (k.name == "HISTORY") history += std::get<std::string>(k.value);
  ASSERT_EQ(history.rfind("qmr ", 0), 0u);
  EXPECT_THAT(first.out, HasSubstr(history));
  WriteBytes(Path("again.sh"), QMR_PROGRAM + history.substr(3) + " -q " + in + " " + Path("second.fit") + "\n");
  ASSERT_EQ(std::system(("bash " + Path("again.sh")).c_str()), 0);
  EXPECT_EQ(Bits(Read(Path("first.fit"))), Bits(Read(Path("second.fit"))));
  ExpectSameBits(words, {{"--threads", "1"}, {"--threads", "3"}}, [&] { return ReadBytes(Path("first.fit")); });
}

TEST_F(AnnotateCommand, RefusesWhatCannotBeDrawn) {
  const std::string in = Flat(1);
  const std::string raw = Write(Shaped<CVynImage>(40, 30, 1), "raw.fit", {Keyword::Text("BAYERPAT", "RGGB")});
  auto image = Shaped<CVynImage>(20, 20, 1);
  const std::string small = Write(image, "small.fit");
  Fill(image, [](int, int, int) { return kNaN; });
  const std::string blank = Write(image, "blank.fit");
  const std::vector<Refusal> cases = {
      {{in, "OUT"}, 64, "nothing to draw"},
      {{in, "OUT", "-t", "1,2"}, 64, "--text"},
      {{in, "OUT", "-t", "1,2,"}, 64, "--text"},
      {{in, "OUT", "-t", "nan,2,x"}, 64, "--text"},
      {{in, "OUT", "-l", "1,2,3"}, 64, "--line"},
      {{in, "OUT", "-l", "1,2,3,1e9"}, 64, "--line"},
      {{in, "OUT", "-c", "x", "--size", "3"}, 64, "--size"},
      {{in, "OUT", "-c", "x", "--colour", "#12345"}, 64, "--colour"},
      {{in, "OUT", "-c", "x", "--colour", "mauve"}, 64, "yellow"},
      {{in, "OUT", "-c", "x", "--anchor", "up"}, 64, "bottom-left"},
      {{in, "OUT", "-c", "x", "--line-width", "0"}, 64, "--line-width"},
      {{in, "OUT", "-c", "x", "--levels", "5,4"}, 64, "--levels"},
      {{in, "OUT", "-c", "x", "--font", std::string(32, 'a')}, 64, "--font"},
      {{in, "OUT", "--pixel-scale", "nan"}, 64, "--pixel-scale"},
      {{in, "OUT", "--scale-bar"}, 65, "--pixel-scale"},
      {{in, "OUT", "-c", std::string(100000, 'm'), "--size", "2000"}, 64, "too large"},
      {{small, "OUT", "--pixel-scale", "1", "--size", "30"}, 64, "--size"},
      {{blank, "OUT", "-l", "1,2,3,4"}, 65, "--levels"},
      {{raw, "OUT", "-c", "x"}, 65, "mosaic"},
      {{Path("none.fit"), "OUT", "-c", "x"}, 66, "no such file"},
      {{in, in, "-c", "x"}, 73, "--force"},
  };
  if (HaveFonts()) ExpectRefused("annotate", cases);

  WriteBytes(Path("empty.conf"), "<?xml version=\"1.0\"?><fontconfig></fontconfig>\n");
  setenv("FONTCONFIG_FILE", Path("empty.conf").c_str(), 1);
  ExpectRefused("annotate", {{{in, "OUT", "-c", "x"}, 74, "no font"}});
  Run({"--line", "1,2,3,4"}, in);
  unsetenv("FONTCONFIG_FILE");
}

}  // namespace
}  // namespace qmr::test
