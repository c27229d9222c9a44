// `qmr develop` from outside, and honeycomb frames on their way through the night.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/files/mosaic.h"
#include "host/night/frame.h"
#include "qmrimg/raw/bayer_to_rgb.h"
#include "qmrimg/raw/honeycomb_to_rgb.h"
#include "tests/host/picture_folder.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

const float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr int kHoneycomb = 11;

class DevelopCommand : public PictureFolder {
 protected:
  // The sites of a layout from a function of colour and place; 0 where there is no photosite.
  static CVynImage Mosaic(int width, int height, int layout, const std::function<float(int, int, int)>& value) {
    auto image = Shaped<CVynImage>(width, height, 1);
    Fill(image, [&](int, int x, int y) {
      const int colour = SiteColour(layout, y, x);
      return colour < 0 ? 0.0f : value(colour, x, y);
    });
    return image;
  }
  static CVynImage NoiseMosaic(int width, int height, int layout) {
    const auto noise = Noise(width, height, 1, 7, 100, 4000);
    return Mosaic(width, height, layout, [&](int, int x, int y) { return At(noise, 0, x, y); });
  }
  static Words Naming(int layout) {
    if (layout >= kHoneycomb) return {"--honeycomb", std::to_string(layout)};
    return {"--bayer", std::string(BayerLetters(layout))};
  }
  DecodedImage Run(const std::string& in, Words words, const std::string& out = "out.fit") const {
    words.insert(words.begin(), {"develop", in, "-o", Path(out), "--quiet", "--force"});
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, 0) << o.err << testing::PrintToString(words);
    return Read(Path(out));
  }
  static std::vector<float> Bits(const CVynImage& image) {
    std::vector<float> all;
    for (int p = 0; p < image.GetPlanes(); ++p)
      for (const float v : Pixels(image, p)) all.push_back(std::isnan(v) ? -12345.0f : v);
    return all;
  }
  using PictureFolder::Bits;
};

Words Joined(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

TEST_F(DevelopCommand, DevelopsWhatAStackDevelops) {
  const struct {
    int width, height, layout;
  } cases[] = {{40, 30, 1},  {41, 31, 2},  {33, 40, 3},  {40, 33, 4},
               {40, 32, 11}, {43, 35, 12}, {41, 38, 13}, {46, 33, 14}};
  for (const auto& one : cases) {
    CVynImage image = NoiseMosaic(one.width, one.height, one.layout);
    image.SetPixelGrayRaw(21, 14, kNaN, 0);  // bridged
    for (int y = 18; y < one.height; ++y)
      for (int x = 0; x < 16; ++x) image.SetPixelGrayRaw(x, y, kNaN, 0);  // too large a hole
    const std::string in = Write(image, "in.fit");
    LightFrame frame;
    PrepareLight({in, nullptr}, {}, one.layout < kHoneycomb ? Naming(one.layout)[1] : std::to_string(one.layout),
                 frame);
    ASSERT_TRUE(frame.Used()) << frame.leftOut;
    const DecodedImage developed = Run(in, Naming(one.layout));
    EXPECT_EQ(developed.planes, 3);
    SCOPED_TRACE(one.layout);
    EXPECT_EQ(Bits(developed), Bits(*frame.image));
    EXPECT_GT(developed.blankPixels, 0);
    EXPECT_LT(developed.blankPixels, 3 * 16 * 24);
  }
}

TEST_F(DevelopCommand, EveryOptionReachesTheLibrary) {
  double gains[8] = {1.5, 0.75, 1.25, 1.0, 2.0, 1.125, 0.5, 0.875};
  struct Case {
    Words words;
    std::function<void(tagBayerStruct&)> bayer;
    std::function<void(tagHoneyCombStruct&)> honeycomb;
  };
  const auto both = [](Words words, auto set) { return Case{std::move(words), set, set}; };
  const std::vector<Case> cases = {
      both({"--mono"}, [](auto& r) { r.isMono = 1; }),
      both({"--margins", "5,9,8,7"},
           [](auto& r) { r.leftMargin = 5, r.topMargin = 9, r.rightMargin = 8, r.bottomMargin = 7; }),
      both({"--black", "150.25"}, [](auto& r) { r.subtractBlack = 1, r.blackLevel = 150.25f; }),
      both({"--gamma", "2.2"}, [](auto& r) { r.useGamma = 1, r.gamma = 2.2; }),
      both({"--bits", "12"}, [](auto& r) { r.srcBits = 12, r.dstBits = 16; }),
      both({"--bits", "12", "--auto-range"}, [](auto& r) { r.srcBits = 12, r.dstBits = 16, r.autoRange = 1; }),
      both({"--clip", "--auto-range"}, [](auto& r) { r.clip = 1, r.autoRange = 1; }),
      both({"--clip", "--range", "500,3000"}, [](auto& r) { r.clip = 1; }),
      both({"--gains", "GAINS"}, [&](auto& r) { r.useGain = 1, r.gains = gains; }),
      both({"--gains", "GAINS", "--knee", "--range", "500,3000"},
           [&](auto& r) { r.useGain = r.useKnee = 1, r.gains = gains; }),
      {{"--bits", "14"}, [](auto& r) { r.srcBits = 14, r.dstBits = 16; }, nullptr},
      {{"--interpolation", "rows"}, nullptr, [](auto& r) { r.interpolation = 2; }},
      {{"--interpolation", "columns"}, nullptr, [](auto& r) { r.interpolation = 1; }},
  };
  const auto check = [&](const Case& one, int layout, auto developer, auto record, const auto& set) {
    if (!set) return;
    const CVynImage image = NoiseMosaic(48, 40, layout);
    record.pattern = layout;
    record.srcBits = record.dstBits = -32;
    const int least = layout < kHoneycomb ? 3 : 4;
    record.leftMargin = record.topMargin = record.rightMargin = record.bottomMargin = least;
    set(record);
    developer.CopyImage(image);
    static_cast<CImage&>(developer).SetLevel(0, 500, 3000);
    ASSERT_TRUE(developer.Do(record, 0));
    Words words = Joined(Naming(layout), one.words);
    std::replace(words.begin(), words.end(), std::string("GAINS"),
                 std::string(layout < kHoneycomb ? "1.5,0.75,1.25,1" : "1.5,0.75,1.25,1,2,1.125,0.5,0.875"));
    EXPECT_EQ(Bits(Run(Write(image, "in.fit"), words)), Bits(developer)) << testing::PrintToString(words);
  };
  for (const Case& one : cases) {
    check(one, 2, CImgBayerToRgb(), tagBayerStruct{}, one.bayer);
    tagHoneyCombStruct record{};
    record.interpolation = 3;
    check(one, 12, CImgHoneyCombToRgb(), record, one.honeycomb);
  }
}

TEST_F(DevelopCommand, MarginsCutAndFullSizeKeepsAllPixels) {
  for (const int layout : {1, 11, 12, 13, 14}) {
    const std::string in =
        Write(NoiseMosaic(45, 42, layout), "in.fit",
              {Keyword::Text("CTYPE1", "RA---TAN"), Keyword::Real("CRPIX1", 20.5), Keyword::Real("CRPIX2", 10.0)});
    const DecodedImage full = Run(in, Joined(Naming(layout), {"--full-size"}), "full.fit");
    EXPECT_EQ(full.width, 45);
    EXPECT_EQ(full.height, 42);
    EXPECT_EQ(KeywordNumber(full.keywords, "CRPIX1"), 20.5);
    for (const int top : {5, 6, 7, 8}) {
      const DecodedImage cut = Run(in, Joined(Naming(layout), {"--margins", "6," + std::to_string(top) + ",7,5"}));
      ASSERT_EQ(cut.width, 45 - 13);
      ASSERT_EQ(cut.height, 42 - top - 5);
      EXPECT_EQ(KeywordNumber(cut.keywords, "CRPIX1"), 14.5);
      EXPECT_EQ(KeywordNumber(cut.keywords, "CRPIX2"), 10.0 - top);
      for (int p = 0; p < 3; ++p)
        for (int y = 0; y < cut.height; ++y)
          for (int x = 0; x < cut.width; ++x)
            ASSERT_EQ(cut.Row(p, y)[x], full.Row(p, y + top)[x + 6]) << layout << " " << x << " " << y << " " << top;
    }
  }
}

TEST_F(DevelopCommand, GreyAndCameraBalanceOfAFlatCard) {
  const float card[] = {600.0f, 1000.0f, 300.0f};  // over a black level of 100
  for (const int layout : {2, 11, 12, 13, 14}) {
    for (const float scale : {1.0f, 1.0f / 4096.0f}) {
      const CVynImage image =
          Mosaic(64, 48, layout, [&](int colour, int, int) { return (card[colour] + 100.0f) * scale; });
      const std::string in =
          Write(image, "in.fit",
                {Keyword::Text("INSTRUME", "FUJIFILM FinePixS2Pro"), Keyword::Real("WB_RED", 1000.0 / 600.0),
                 Keyword::Real("WB_BLUE", 1000.0 / 300.0), Keyword::Real("PEDESTAL", -100.0 * scale)});
      for (const Words& how : {Words{"--white-balance", "grey"}, Words{"--white-balance", "camera"},
                               Words{"--gains", "1.6666667,1,3.3333333"}}) {
        const DecodedImage grey = Run(in, Joined(Naming(layout), how));
        for (int p = 0; p < 3; ++p)
          for (const float v : grey.Plane(p)) ASSERT_NEAR(v, 1000.0f * scale, 0.01f * scale) << layout << how[1];
        EXPECT_FALSE(FindKeyword(grey.keywords, "PEDESTAL"));
        EXPECT_FALSE(FindKeyword(grey.keywords, "WB_RED"));
      }
    }
  }
}

TEST_F(DevelopCommand, ItsHistoryGivesTheSamePictureAndNoMosaic) {
  for (const int layout : {3, 11}) {
    const std::string in = Write(NoiseMosaic(52, 44, layout), "in.fit",
                                 {layout == 3 ? Keyword::Text("BAYERPAT", "BGGR") : Keyword::Text("CFA", "-"),
                                  Keyword::Text("INSTRUME", layout == 3 ? "Canon EOS 20D" : "FUJIFILM FinePixS2Pro"),
                                  Keyword::Integer("XBAYROFF", 0), Keyword::Real("BLKLEVEL", 64.3)});
    const Words words = {"--white-balance", "grey", "--knee", "--gamma", "1.8", "--mono", "--levels", "10,5000"};
    const DecodedImage first = Run(in, words, "first.fit");
    EXPECT_EQ(first.planes, 1);
    EXPECT_EQ(KeywordNumber(first.keywords, "CWHITE"), 5000.0);
    for (const char* gone : {"BAYERPAT", "XBAYROFF", "BLKLEVEL"}) EXPECT_FALSE(FindKeyword(first.keywords, gone));
    // The camera's name does not make it one again.
    ExpectRefused("develop", {{{Path("first.fit"), "OUT"}, 65, "no undeveloped mosaic"}});
    std::string history;
    for (const Keyword& k : first.keywords)
      if (k.name == "HISTORY") history += std::get<std::string>(k.value);
    ASSERT_EQ(history.rfind("qmr develop ", 0), 0u);
    WriteBytes(Path("again.sh"),
               QMR_PROGRAM + history.substr(3) + " -q --force " + in + " " + Path("again.fit") + "\n");
    ASSERT_EQ(std::system(("sh " + Path("again.sh")).c_str()), 0);
    EXPECT_EQ(Bits(Read(Path("again.fit"))), Bits(first)) << history;
    ExpectSameBits(Joined({"develop", in, Path("bits.fit"), "--quiet", "--force"}, words),
                   {{"--threads", "1"}, {"--threads", "3"}}, [&] { return ReadBytes(Path("bits.fit")); });
  }
}

TEST_F(DevelopCommand, RefusesWhatCannotBeDeveloped) {
  const std::string grey = Write(NoiseMosaic(40, 30, 1), "grey.fit");
  const std::string bayer = Write(NoiseMosaic(40, 30, 1), "bayer.fit", {Keyword::Text("BAYERPAT", "RGGB")});
  const std::string strange = Write(NoiseMosaic(40, 30, 1), "strange.fit", {Keyword::Text("BAYERPAT", "CYGM")});
  const std::string small = Write(NoiseMosaic(7, 6, 1), "small.fit");
  const std::string row = Write(NoiseMosaic(20, 1, 1), "row.fit");
  const std::string colour = Write(Noise(40, 30, 3, 1), "colour.fit");
  const std::string flat = Write(Mosaic(40, 30, 1, [](int, int, int) { return 77.0f; }), "flat.fit");
  const std::string blank = Write(Mosaic(40, 30, 1, [](int, int, int) { return kNaN; }), "blank.fit");
  const std::string h = "--honeycomb", b = "--bayer";
  const std::vector<Refusal> refusals = {
      {{grey, "OUT"}, 65, "--bayer RGGB"},
      {{grey, "OUT", h, "15"}, 64, "--honeycomb"},
      {{grey, "OUT", h, "11", b, "RGGB"}, 64, "give one"},
      {{colour, "OUT"}, 65, "developed already"},
      {{colour, "OUT", h, "11"}, 65, "developed already"},
      {{strange, "OUT"}, 65, "CYGM"},
      {{small, "OUT", h, "11"}, 65, "too little"},
      {{row, "OUT", b, "RGGB", "--full-size"}, 65, "too little"},
      {{row, "OUT", h, "13", "--full-size"}, 65, "too little"},
      {{bayer, "OUT", "--interpolation", "rows"}, 64, "--interpolation"},
      {{grey, "OUT", h, "11", "--bits", "14"}, 64, "--bits"},
      {{grey, "OUT", h, "11", "--gains", "1,2,3,4"}, 64, "8, of the sites"},
      {{bayer, "OUT", "--gains", "1,0,1"}, 64, "0.001"},
      {{bayer, "OUT", "--gains", "1,2,3", "--white-balance", "grey"}, 64, "give one"},
      {{bayer, "OUT", "--white-balance", "camera"}, 65, "WB_RED"},
      {{bayer, "OUT", "--knee"}, 64, "--knee"},
      {{bayer, "OUT", "--auto-range"}, 64, "--auto-range"},
      {{flat, "OUT", b, "RGGB", "--bits", "12", "--auto-range"}, 65, "--auto-range"},
      {{bayer, "OUT", "--range", "1,2"}, 64, "--range"},
      {{bayer, "OUT", "--clip", "--range", "5,5.00000001"}, 64, "--range"},
      {{bayer, "OUT", "--gamma", "nan"}, 64, "--gamma"},
      {{bayer, "OUT", "--margins", "2,3,3,3"}, 64, "3,3,3,3"},
      {{bayer, "OUT", "--margins", "20,3,20,3"}, 65, "too little"},
      {{bayer, "OUT", "--margins", "3,3,3,3", "--full-size"}, 64, "give one"},
      {{blank, "OUT", b, "RGGB"}, 65, "no pixel with a value"},
      {{bayer, "OUT", "-o", "OUT"}, 64, "OUT"},
  };
  ExpectRefused("develop", refusals);
  // Nor does any other command pass over a pattern for a picture that has none.
  ExpectRefused("filter", {{{"gaussian", colour, "OUT", b, "RGGB"}, 65, "--bayer"}});
  const Outcome stacked = RunQmr({"stack", "--light", colour, "-o", Path("s.fit"), h, "11", "--no-preview", "-q"});
  EXPECT_EQ(stacked.code, 0);
  EXPECT_THAT(stacked.err, HasSubstr("several planes"));
}

// ---- Honeycomb frames in the night ----------------------------------------------------------------------------------

// Light of a star above its surroundings.
double Light(const DecodedImage& image, int plane, double x, double y) {
  const int cx = static_cast<int>(std::lround(x)), cy = static_cast<int>(std::lround(y));
  double sum = 0.0;
  std::vector<float> ring;
  for (int dy = -12; dy <= 12; ++dy)
    for (int dx = -12; dx <= 12; ++dx) {
      const int away = std::max(std::abs(dx), std::abs(dy));
      const float v = image.Row(plane, cy + dy)[cx + dx];
      if (away <= 6) sum += v;
      if (away > 9) ring.push_back(v);
    }
  const auto middle = ring.begin() + static_cast<std::ptrdiff_t>(ring.size() / 2);
  std::nth_element(ring.begin(), middle, ring.end());
  return sum - 13.0 * 13.0 * *middle;
}

TEST_F(DevelopCommand, ASimulatedHoneycombNightHasItsStarsInTheirPlacesAndColours) {
  const std::string night = Path("night"), stack = Path("stack.fit");
  ASSERT_EQ(RunQmr({"simulate", night, "--mosaic=honeycomb", "-q", "--width=700", "--height=500", "--lights=6",
                    "--stars=2500", "--nebula=0", "--trails=0", "--drift=9", "--seed=3"})
                .code,
            0);
  const Outcome o = RunQmr({"stack", night, "-o", stack, "--truth", night + "/truth.json", "--report", Path("r.json"),
                            "--no-preview", "-q"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.err, "");
  const Json report = Json::parse(ReadBytes(Path("r.json"))), truth = Json::parse(ReadBytes(night + "/truth.json"));
  EXPECT_EQ(report["frames_used"], 6);
  EXPECT_LT(report["against_truth"]["grid_rms_px"].get<double>(), 0.06) << report["against_truth"];

  const DecodedImage image = Read(stack);
  ASSERT_EQ(image.planes, 3);
  const auto at = std::find_if(truth["frames"].begin(), truth["frames"].end(),
                               [&](const Json& frame) { return frame["file"] == report["reference"]; });
  ASSERT_NE(at, truth["frames"].end());
  const double turn = (*at)["theta_deg"].get<double>() * M_PI / 180.0;
  const auto apart = [](const Json& a, const Json& b) {
    return std::hypot(a["x"].get<double>() - b["x"].get<double>(), a["y"].get<double>() - b["y"].get<double>());
  };
  const Json& stars = truth["stars"];
  int checked = 0;
  for (const Json& star : stars) {
    const double rx = star["x"].get<double>() - 349.5, ry = star["y"].get<double>() - 249.5;
    // Development cuts four rows and columns.
    const double x = std::cos(turn) * rx - std::sin(turn) * ry + 349.5 + (*at)["dx"].get<double>() - 4.0;
    const double y = std::sin(turn) * rx + std::cos(turn) * ry + 249.5 + (*at)["dy"].get<double>() - 4.0;
    if (x < 30 || y < 30 || x > image.width - 31 || y > image.height - 31) continue;
    const double flux = star["flux"].get<double>();
    const bool alone = std::all_of(stars.begin(), stars.end(), [&](const Json& other) {
      return &other == &star || apart(other, star) > 16.0 || other["flux"].get<double>() < 0.02 * flux;
    });
    if (!alone || flux > 3e5 || checked == 8) continue;
    const auto colour = star["colour"].get<std::vector<double>>();
    for (const int p : {0, 2})
      EXPECT_NEAR(Light(image, p, x, y) / Light(image, 1, x, y) / (colour[p] / colour[1]), 1.0, 0.1) << star << p;
    ++checked;
  }
  EXPECT_GE(checked, 4);

  // Raw frames are measured as well, in pixels of the sensor.
  const Outcome measured = RunQmr({"measure", "--json", night + "/lights/light_00001.fit"});
  ASSERT_EQ(measured.code, 0) << measured.err;
  const Json found = Json::parse(measured.out)["frames"][0];
  ASSERT_GT(found["stars"].size(), 20u);
  std::vector<double> off(20, 1e9);
  for (std::size_t i = 0; i < off.size(); ++i)
    for (const Json& star : stars) off[i] = std::min(off[i], apart(found["stars"][i], star));
  std::sort(off.begin(), off.end());
  EXPECT_LT(off[off.size() / 2], 0.1);
  // The filling of missing pixels makes stars wider; hot pixels would make them narrower.
  EXPECT_NEAR(found["fwhm"].get<double>(), truth["frames"][0]["fwhm"].get<double>() + 0.9, 0.4);
}

}  // namespace
}  // namespace qmr::test
