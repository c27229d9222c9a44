// `qmr run` from outside: the library's chain to the bit, and the guard rails that the library has not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "qmrimg/command/vyn_image_proc.h"
#include "tests/host/picture_folder.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::HasSubstr;

using Words = std::vector<std::string>;

constexpr int kWidth = 70;
constexpr int kHeight = 50;

class RunCommand : public PictureFolder {
 protected:
  static void Make(CVynImage& image, int planes) {
    Shape(image, kWidth, kHeight, planes);
    Random random(3);
    Fill(image, [&](int p, int x, int y) {
      const double star = 4000.0 * std::exp(-(std::pow(x - 30, 2) + std::pow(y - 20, 2)) / 8.0);
      return static_cast<float>(1000.0 + 50.0 * p + 20.0 * random.Normal() + star);
    });
  }
  std::string Picture(int planes, const std::vector<Keyword>& keywords = {}) {
    CVynImage image;
    Make(image, planes);
    return Write(image, "in.fit", keywords);
  }
  // Runs it and reads OUT.
  DecodedImage Run(Words words, const std::string& in, int code = 0) {
    words.insert(words.begin(), "run");
    words.insert(words.end(), {in, Path("out.fit"), "--force", "-q"});
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, code) << o.err << testing::PrintToString(words);
    return Read(Path("out.fit"));
  }
  // What the library makes of the picture.
  static std::vector<float> Library(int planes, const wchar_t* chain, double black, double white, int result = 1) {
    CVynImage image;
    Make(image, planes);
    for (int p = 0; p < planes; ++p) static_cast<CImage&>(image).SetLevel(p, black, white);
    CVynImageProc proc;
    EXPECT_EQ(proc.Do(&image, CString(chain), 0), result);
    std::vector<float> all;
    for (int p = 0; p < planes; ++p)
      for (const float v : Pixels(image, p)) all.push_back(v);
    return all;
  }
  static std::string History(const DecodedImage& image) {
    std::string history;
    for (const Keyword& keyword : image.keywords)
      if (keyword.name == "HISTORY") history += std::get<std::string>(keyword.value);
    return history;
  }
};

const char* const kChain =
    "LEVEL MIN=900 MAX_R=4500\tMAX_G=4000; SHARP METHOD=UNSHARPMASK RADIUS=2 WEIGHT=1.5;"
    "BRIGHTNESSCONTRAST BRIGHTNESS=10 CONTRAST=20;HALPHA THRESHOLD=0.4 BRIGHTNESS=0.2\r\n\nSHARP METHOD=edgeonly "
    "WEIGHT_G=0.5 THRESHOLD_MIN=10\n";

TEST_F(RunCommand, IsTheLibrarysToTheBit) {
  for (const int planes : {1, 3}) {
    const std::string in = Picture(planes);
    const std::vector<float> expected = Library(planes, CString(WidenUtf8(kChain)), 800.0, 5000.0);
    WriteBytes(Path("chain.txt"), kChain);
    WriteBytes(Path("marked.txt"), std::string("\xEF\xBB\xBF") + kChain);
    for (const char* threads : {"1", "3"})
      EXPECT_EQ(Bits(Run({kChain, "--levels", "800,5000", "--threads", threads}, in)), expected);
    EXPECT_EQ(Bits(Run({"-f", Path("chain.txt"), "--levels", "800,5000"}, in)), expected);
    EXPECT_EQ(Bits(Run({"--file", Path("marked.txt"), "--levels", "800,5000"}, in)), expected);
    const Outcome piped = RunQmr({in, Path("out.fit"), Path("chain.txt")}, 0,
                                 {"/bin/sh", "-c", "\"$0\" run -f - --levels 800,5000 --force \"$1\" \"$2\" <\"$3\""});
    EXPECT_EQ(piped.code, 0) << piped.err;
    EXPECT_EQ(Bits(Read(Path("out.fit"))), expected);
    EXPECT_EQ(Bits(Run({""}, in)), Bits(Read(in)));
  }
}

// A step that writes nothing takes back the one before it; that is said, and done as the library does.
TEST_F(RunCommand, WarnsOfWhatTheLibraryTakesInSilence) {
  const std::string in = Picture(1);
  const struct {
    const char* chain;
    const wchar_t* wide;
    std::vector<std::string> said;
  } cases[] = {{"SHARP METHOD=STANDARD WEIGHT=0.3\nSHARPEN X=1\n",
                L"SHARP METHOD=STANDARD WEIGHT=0.3\nSHARPEN X=1\n",
                {"qmr: warning: chain:2:1: no such command: 'SHARPEN'", "takes back the step of line 1"}},
               {"SHARP METHOD=STANDARD RADIUS=200 WEIGTH=2",
                L"SHARP METHOD=STANDARD RADIUS=200 WEIGTH=2",
                {"qmr: warning: chain:1:30: a radius",
                 "qmr: warning: chain:1:34: no such key: 'WEIGTH'; did you mean WEIGHT?"}}};
  for (const auto& c : cases) {
    const Outcome o = RunQmr({"run", c.chain, in, Path("out.fit"), "--levels", "900,4000", "--force", "-q"});
    EXPECT_EQ(o.code, 0) << o.err;
    EXPECT_EQ(o.out, "");
    for (const std::string& said : c.said) EXPECT_THAT(o.err, HasSubstr(said));
    EXPECT_EQ(Bits(Read(Path("out.fit"))), Library(1, c.wide, 900.0, 4000.0));
  }
  WriteBytes(Path("chain.txt"), "LEVEL MIN=1200 MAX=2000\r\n\r\nSHARP METHOD=STANDARD RADIUS =0.01\r\n");
  const std::string colour = Picture(3);
  const Outcome plain = RunQmr({"run", "LEVEL MIN=1 MAX=2", colour, Path("out.fit"), "--force"});
  EXPECT_THAT(plain.err, HasSubstr("qmr: warning: chain: on a colour picture LEVEL reads MIN_R"));
  EXPECT_EQ(RunQmr({"run", "LEVEL MAX=9000 MIN_R=1 MAX_G=9000", colour, Path("out.fit"), "--force"}).err, "");
  const Outcome o = RunQmr({"run", "-f", Path("chain.txt"), colour, Path("out.fit"), "--force"});
  EXPECT_THAT(o.err, HasSubstr("qmr: warning: " + Path("chain.txt") + ":3:31: a radius"));
}

TEST_F(RunCommand, ChecksWithoutAnImage) {
  WriteBytes(Path("good.txt"), "LEVEL \r\nSHARP METHOD=STANDARD\r\n");
  WriteBytes(Path("bad.txt"), "LEVEL \r\nSHARP\r\n");
  WriteBytes(Path("latin.txt"), "LEVEL MIN=1 \xE9\n");
  const std::vector<std::tuple<Words, int, std::string>> cases = {
      {{"LEVEL MIN=1 MAX=2"}, 0, "nothing to remark"},
      {{"-f", Path("good.txt")}, 0, "good.txt: nothing to remark"},
      {{""}, 0, "nothing"},
      {{"SHARP METHOD=STANDARD WEIGHT=1,5"}, 0, "chain:1:30: warning: of '1,5' only '1' counts"},
      {{"SHARP METHOD=BLUR"}, 65, "chain:1:14: error: no such METHOD"},
      {{"LEVEL"}, 65, "chain:1:1: error: the run ends here"},
      {{"-f", Path("bad.txt")}, 65, "bad.txt:2:1: error: the run ends here"},
      {{"-f", Path("latin.txt")}, 65, "latin.txt:1:13: error: the text is no UTF-8"}};
  for (const auto& [given, code, said] : cases) {
    Words words = {"run", "--check"};
    words.insert(words.end(), given.begin(), given.end());
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, code) << testing::PrintToString(words);
    EXPECT_EQ(o.err, "");
    EXPECT_THAT(o.out, HasSubstr(said));
  }
}

TEST_F(RunCommand, RefusesAChainThatEndsEarly) {
  const std::string in = Picture(3);
  const std::string chain = "SHARP METHOD=STANDARD WEIGHT=0.2\nBRIGHTNESSCONTRAST\nHALPHA MAG=1 ";
  // Before anything is read: there is no such image.
  const Outcome refused = RunQmr({"run", chain, Path("none.fit"), Path("out.fit")});
  EXPECT_EQ(refused.code, 65);
  EXPECT_THAT(refused.err, HasSubstr("qmr: chain:2:1: the chain would end here"));
  EXPECT_THAT(folder_.List(), testing::ElementsAre("in.fit"));
  // As far as it goes: the result of the first step, and an exit code that tells.
  const std::vector<float> expected = Library(3, CString(WidenUtf8(chain)), 900.0, 4000.0, 0);
  EXPECT_EQ(Bits(Run({chain, "--lenient", "--levels", "900,4000"}, in, 65)), expected);
  EXPECT_NE(expected, Bits(Read(in)));
  EXPECT_EQ(Bits(Run({";SHARP METHOD=STANDARD", "--lenient"}, in, 65)), Bits(Read(in)));
  // A file's name in the place of a chain.
  WriteBytes(Path("chain.txt"), chain);
  EXPECT_THAT(RunQmr({"run", Path("chain.txt"), in, Path("new.fit")}).err, HasSubstr("-f reads a chain"));
}

TEST_F(RunCommand, HistoryRepeatsTheResult) {
  const std::string in = Picture(3, {Keyword::Text("OBJECT", "M 42")});
  std::string many;
  for (int i = 0; i < 40; ++i) many += "BRIGHTNESSCONTRAST  CONTRAST=" + std::to_string(i % 3) + "   BRIGHTNESS=1\n";
  for (const std::string& chain :
       {std::string(kChain), many, std::string("LEVEL MIN=950 ;it's \tX=1;SHARP METHOD=STANDARD RADIUS\t=3;LEVEL ;;"),
        "SHARP METHOD=STANDARD IGNORED" + std::string(100, 'X') + "=1 " + std::string(90, ' ') + "WEIGHT=0.5"}) {
    const DecodedImage first = Run({chain}, in);
    EXPECT_EQ(KeywordText(first.keywords, "OBJECT"), "M 42");
    const std::string history = History(first);
    ASSERT_THAT(history, testing::StartsWith("qmr run '"));
    const Outcome again = RunQmr({in, Path("again.fit")}, 0,
                                 {"/bin/sh", "-c", "\"$0\"" + history.substr(3) + " --force -q \"$1\" \"$2\""});
    EXPECT_EQ(again.code, 0) << again.err;
    const DecodedImage second = Read(Path("again.fit"));
    EXPECT_EQ(Bits(second), Bits(first)) << history;
    EXPECT_EQ(History(second), history);
  }
}

TEST_F(RunCommand, LevelsOfTheChainGoIntoTheFile) {
  const std::string in = Picture(1, {Keyword::Real("CBLACK", 700.0), Keyword::Real("CWHITE", 6000.0)});
  const auto levels = [&](const Words& words) {
    const DecodedImage out = Run(words, in);
    return std::pair(KeywordNumber(out.keywords, "CBLACK").value_or(-1),
                     KeywordNumber(out.keywords, "CWHITE").value_or(-1));
  };
  EXPECT_EQ(levels({"SHARP METHOD=STANDARD"}), std::pair(700.0, 6000.0));
  EXPECT_EQ(levels({"LEVEL MIN=1000 "}), std::pair(1000.0, 6000.0));
  EXPECT_EQ(levels({"LEVEL MAX=3000.5 ;SHARP METHOD=STANDARD", "--levels", "1,2"}), std::pair(1.0, 3000.5));
  // Levels without a range show nothing, and can't go into a picture.
  EXPECT_EQ(levels({"LEVEL MAX=700 "}), std::pair(700.0, 6000.0));
  const Outcome o = RunQmr({"run", "LEVEL MAX=0 ", in, Path("out.png")});
  EXPECT_EQ(o.code, 65);
  EXPECT_TRUE(OneLine(o.err)) << o.err;
  EXPECT_EQ(RunQmr({"run", "LEVEL MAX=2000 ", in, Path("out.png")}).code, 0);
}

TEST_F(RunCommand, BlankPixelsStayAndSpoilNothing) {
  CVynImage image;
  Make(image, 3);
  for (int p = 0; p < 3; ++p) image.SetPixelGrayRaw(10, 12, std::numeric_limits<float>::quiet_NaN(), p);
  const DecodedImage out =
      Run({"SHARP METHOD=UNSHARPMASK RADIUS=3; BRIGHTNESSCONTRAST CONTRAST=10"}, Write(image, "in.fit"));
  for (int p = 0; p < 3; ++p)
    for (std::size_t i = 0; i < out.PlanePixels(); ++i)
      ASSERT_EQ(std::isnan(out.Plane(p)[i]), i == 12u * kWidth + 10u) << p << " " << i;
}

TEST_F(RunCommand, RefusesWhatWontDo) {
  const std::string in = Picture(3);
  CVynImage raw;
  Make(raw, 1);
  Write(raw, "raw.fit", {Keyword::Text("BAYERPAT", "RGGB")});
  WriteBytes(Path("big.txt"), std::string((1 << 20) + 1, ';'));
  WriteBytes(Path("latin.txt"), "LEVEL MIN=1 \xE9\n");
  WriteBytes(Path("nul.txt"), std::string("LEVEL MIN=1\0\n", 13));
  WriteBytes(Path("old.fit"), "yesterday");
  const std::string chain = "LEVEL MIN=1 MAX=2";
  const std::vector<Refusal> cases = {{{}, 64, "CHAIN IN OUT"},
                                      {{chain, in}, 64, "CHAIN IN OUT"},
                                      {{chain, in, "OUT", "more"}, 64, "more"},
                                      {{"-f", Path("nul.txt"), in, "OUT", "more"}, 64, "-f FILE"},
                                      {{"--check", chain, in}, 64, "--check CHAIN"},
                                      {{"--check"}, 64, "--check CHAIN"},
                                      {{chain, in, "OUT", "--levels", "5"}, 64, "--levels"},
                                      {{chain, in, "OUT", "--levels", "5,4"}, 64, "smaller"},
                                      {{chain, in, Path("out.jpg")}, 64, ".fit"},
                                      {{"-f", Path("none.txt"), in, "OUT"}, 66, "none.txt"},
                                      {{"-f", Path(""), in, "OUT"}, 66, "irectory"},
                                      {{"-f", Path("big.txt"), in, "OUT"}, 65, "1 MB"},
                                      {{"-f", Path("latin.txt"), in, "OUT"}, 65, "UTF-8"},
                                      {{"-f", Path("nul.txt"), in, "OUT"}, 65, "UTF-8"},
                                      {{chain, Path("raw.fit"), "OUT"}, 65, "RGGB"},
                                      {{chain, Path("none.fit"), "OUT"}, 66, "none.fit"},
                                      {{chain, in, Path("old.fit")}, 73, "--force"}};
  ExpectRefused("run", cases);
  EXPECT_EQ(ReadBytes(Path("old.fit")), "yesterday");
}

}  // namespace
}  // namespace qmr::test
