// `qmr measure` from outside: simulated nights, made stars and real frames against their truth; and what it refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <numbers>
#include <string>
#include <vector>

#include "qmrimg/stacking/evaluate_focus.h"
#include "tests/host/picture_folder.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Words = std::vector<std::string>;
using testing::HasSubstr;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

struct MadeStar {
  double x, y, peak;
  double major, minor, degrees;  // FWHM, and the angle of the major axis from +x towards +y
};

// Gaussian stars on a sky of 500 with normal noise of 4.
void MakeSky(CVynImage& image, int width, int height, int planes, const std::vector<MadeStar>& stars) {
  Random random(3);
  Shape(image, width, height, planes);
  Fill(image, [&](int, int x, int y) {
    double v = 500.0 + 4.0 * random.Normal();
    for (const MadeStar& s : stars) {
      const double c = std::cos(s.degrees * std::numbers::pi / 180.0),
                   d = std::sin(s.degrees * std::numbers::pi / 180.0);
      const double along = (c * (x - s.x) + d * (y - s.y)) / s.major,
                   across = (c * (y - s.y) - d * (x - s.x)) / s.minor;
      v += s.peak * std::exp(-4.0 * std::numbers::ln2 * (along * along + across * across));
    }
    return static_cast<float>(v);
  });
}

class MeasureCommand : public PictureFolder {
 protected:
  static Json Measure(Words words, int code = 0) {
    words.insert(words.begin(), {"measure", "--json", "-q"});
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, code) << o.err << testing::PrintToString(words);
    return o.out.empty() ? Json() : Json::parse(o.out);
  }
  std::string Stars(const std::vector<MadeStar>& stars, int planes = 1) {
    CVynImage image;
    MakeSky(image, 320, 240, planes, stars);
    return Write(image, "stars.fit");
  }
  // A night of two frames without anything that is no star or sky; 40 e- of noise a pixel.
  std::string Night(const std::string& mosaic) {
    const Outcome o =
        RunQmr({"simulate",     Path(mosaic), "--lights",      "2",    "--darks",    "0",   "--flats",          "0",
                "--biases",     "0",          "--width",       "1200", "--height",   "900", "--mosaic",         mosaic,
                "--stars",      "1000",       "--nebula",      "0",    "--dust",     "0",   "--vignetting",     "0",
                "--hot-pixels", "0",          "--cool-pixels", "0",    "--amp-glow", "0",   "--fwhm-variation", "0.4",
                "--seed",       "9"});
    EXPECT_EQ(o.code, 0) << o.err;
    return Path(mosaic);
  }
};

// Bright stars without a neighbour within 30 px that has more than a hundredth of their light, not at the edge, and
// not saturated.
std::vector<Json> LoneStars(const Json& truth, const Json& frame) {
  std::vector<Json> lone;
  const auto place = [&](const Json& star, int axis) {
    const Json& m = frame["matrix"][axis];
    return m[0].get<double>() * star["x"].get<double>() + m[1].get<double>() * star["y"].get<double>() +
           m[2].get<double>();
  };
  for (const Json& star : truth["stars"]) {
    const double x = place(star, 0), y = place(star, 1), flux = star["flux"];
    if (flux < 2e4 || flux > 4e5 || x < 30 || y < 30 || x > 1170 || y > 870) continue;
    const bool alone = std::none_of(truth["stars"].begin(), truth["stars"].end(), [&](const Json& other) {
      const double away = std::hypot(place(other, 0) - x, place(other, 1) - y);
      return away > 0.0 && away < 30.0 && other["flux"] > 0.01 * flux;
    });
    if (alone) lone.push_back({{"x", x}, {"y", y}, {"flux", flux}});
  }
  return lone;
}

TEST_F(MeasureCommand, FindsTheTruthOfASimulatedNight) {
  for (const std::string mosaic : {"mono", "rggb"}) {
    const bool mono = mosaic == "mono";
    const std::string night = Night(mosaic);
    const Json truth = Json::parse(ReadBytes(night + "/truth.json"));
    const Json measured = Measure({night + "/lights", "--stars", "1000"});
    ASSERT_EQ(measured["frames"].size(), 2u);
    std::size_t sharpest = 0;
    for (std::size_t i = 0; i < 2; ++i) {
      const Json &frame = measured["frames"][i], &known = truth["frames"][i];
      const double fwhm = known["fwhm"];
      if (known["fwhm"] < truth["frames"][sharpest]["fwhm"]) sharpest = i;
      // Means of cells of 2 x 2 pixels are a little wider than what falls on them.
      if (mono)
        EXPECT_NEAR(frame["fwhm"], fwhm, 0.02 * fwhm);
      else
        EXPECT_NEAR(frame["fwhm"], std::sqrt(fwhm * fwhm + 1.39), 0.05 * fwhm);
      EXPECT_LT(frame["ellipticity"], 0.05);
      EXPECT_NEAR(frame["sky"].get<double>(), 500.0 + 6.0 + known["sky"].get<double>(), 20.0);
      double squares = 0.0;
      int matched = 0;
      const std::vector<Json> lone = LoneStars(truth, known);
      for (const Json& star : lone) {
        for (const Json& found : frame["stars"]) {
          const double dx = found["x"].get<double>() - star["x"].get<double>();
          const double dy = found["y"].get<double>() - star["y"].get<double>();
          if (std::hypot(dx, dy) > 2.0) continue;
          squares += dx * dx + dy * dy;
          ++matched;
          // A radius of two widths holds 96 % of a Moffat star of beta 3. On a mosaic the colours weigh in.
          const double light = star["flux"].get<double>() * known["transparency"].get<double>();
          if (mono) {
            EXPECT_NEAR(found["flux"].get<double>() / light, 0.9625, 0.05);
            EXPECT_NEAR(found["fwhm"], fwhm, 0.04 * fwhm);
          }
          EXPECT_GT(found["snr"], 50.0);
        }
      }
      ASSERT_GT(lone.size(), 5u);
      EXPECT_EQ(matched, static_cast<int>(lone.size()));
      EXPECT_LT(std::sqrt(squares / (2.0 * matched)), mono ? 0.03 : 0.1);
    }
    EXPECT_EQ(measured["sharpest"], measured["frames"][sharpest]["file"]);
  }
}

TEST_F(MeasureCommand, ShapesAndWhatIsNoStar) {
  // Round, long, faint, at the edge; a hot pixel; a plateau; a star with a pixel without a value.
  CVynImage image;
  MakeSky(image, 320, 240, 1,
          {{60.3, 50.7, 2000, 3, 3, 0},
           {200.25, 60.5, 3000, 6, 4, 30},
           {120, 180, 90, 3.5, 3.5, 0},
           {318, 120, 3000, 3, 3, 0},
           {250, 200, 9000, 4, 4, 0},
           {60, 120, 2500, 3, 3, 0}});
  image.SetPixelGrayRaw(160, 120, 5000.0f, 0);
  image.SetPixelGrayRaw(61, 121, kNan, 0);
  for (int y = 197; y <= 203; ++y)
    for (int x = 247; x <= 253; ++x) image.SetPixelGrayRaw(x, y, std::min(image.GetPixelGrayRaw(x, y, 0), 6000.0f), 0);
  const std::string in = Write(image, "in.fit");
  const Json frame = Measure({in, "--sort", "y"})["frames"][0];
  ASSERT_EQ(frame["stars"].size(), 4u) << frame;
  EXPECT_EQ(frame["hotPixels"], 1);
  EXPECT_EQ(frame["saturatedStars"], 1);
  EXPECT_NEAR(frame["sky"], 500.0, 1.0);
  EXPECT_NEAR(frame["noise"], 4.0, 0.4);
  const Json &round = frame["stars"][0], &oval = frame["stars"][1], &faint = frame["stars"][2];
  EXPECT_NEAR(round["x"], 60.3, 0.01);
  EXPECT_NEAR(round["y"], 50.7, 0.01);
  EXPECT_NEAR(round["fwhm"], 3.0, 0.03);
  EXPECT_NEAR(round["halfFluxDiameter"], 3.0, 0.1);
  EXPECT_NEAR(round["background"], 500.0, 2.0);
  EXPECT_NEAR(round["flux"].get<double>(), 2000.0 * 1.133 * 9.0, 0.01 * 20000.0);
  EXPECT_NEAR(oval["fwhmMajor"], 6.0, 0.06);
  EXPECT_NEAR(oval["fwhmMinor"], 4.0, 0.04);
  EXPECT_NEAR(oval["angleDegrees"], 30.0, 1.5);
  EXPECT_NEAR(oval["ellipticity"], 1.0 / 3.0, 0.02);
  EXPECT_NEAR(faint["x"], 120.0, 0.3);
  EXPECT_TRUE(frame["stars"][3]["saturated"].get<bool>());

  // Limits, and places that were asked for; a blank sky of the three planes of a colour frame.
  EXPECT_EQ(Measure({in, "--min-fwhm", "2.7", "--max-fwhm", "3.2"})["frames"][0]["starsFound"], 1);
  EXPECT_EQ(Measure({in, "--stars", "2"})["frames"][0]["stars"].size(), 2u);
  const Json at = Measure({in, "--at", "202,59", "--at", "20,200"})["frames"][0]["at"];
  EXPECT_EQ(at[0]["star"], oval);
  EXPECT_TRUE(at[1]["star"].is_null());
  const Json cells = Measure({in, "--bayer", "RGGB", "--at", "60,51"})["frames"][0]["at"][0]["star"];
  EXPECT_NEAR(cells["x"], 60.3, 0.05);
  EXPECT_NEAR(cells["flux"].get<double>(), round["flux"].get<double>(), 0.02 * 20000.0);
  const std::string colour = Stars({{60.3, 50.7, 2000, 3, 3, 0}}, 3);
  for (const std::string plane : {"luminance", "red", "blue"}) {
    const Json one = Measure({colour, "--plane", plane})["frames"][0];
    EXPECT_EQ(one["measured"], plane);
    EXPECT_NEAR(one["fwhm"], 3.0, 0.03);
  }
  ExpectSameBits({"measure", "--json", "-f", "-q", in, "-o", Path("out.json")},
                 {{"--threads", "1"}, {"--threads", "3"}}, [&] { return ReadBytes(Path("out.json")); });
}

TEST_F(MeasureCommand, FramesWithoutAStar) {
  CVynImage image = Shaped(64, 48, 1);
  for (const float value : {0.0f, kNan, 1e30f}) {
    Fill(image, [&](int, int, int) { return value; });
    const Json frame = Measure({Write(image, "flat.fit")})["frames"][0];
    EXPECT_EQ(frame["starsFound"], 0) << value;
    EXPECT_TRUE(frame["fwhm"].is_null());
  }
  FillNoise(image, 3, 0.0, 1e-20);
  EXPECT_EQ(RunQmr({"measure", Write(image, "noise.fit")}).code, 0);

  // Neither a gradient nor pixels without a value nor a black border is noise. Whole numbers.
  MakeSky(image, 600, 400, 1, {});
  Fill(image, [&](int, int x, int y) {
    const float v = std::round(image.GetPixelGrayRaw(x, y, 0) + 0.05f * static_cast<float>(x));
    return x < 200 || (x + y) % 2 == 0 ? kNan : y < 64 ? 0.0f : v;
  });
  const Json frame = Measure({Write(image, "sky.fit")})["frames"][0];
  EXPECT_EQ(frame["blankPixels"], 200 * 400 + 200 * 400);
  EXPECT_EQ(frame["starsFound"], 0);
  EXPECT_NEAR(frame["sky"], 500.0 + 0.05 * 400, 3.0);
  EXPECT_NEAR(frame["noise"], 4.1, 0.2);
}

// One star at four positions of the focuser and three exposures. The fitted FWHM and the half-flux diameter follow the
// focuser; the focus score does while stars are no rings. The library's score, which follows the light, and class PSF
// alone, which measures a ring's rim, do not.
TEST_F(MeasureCommand, OrdersAFocusSeries) {
  const char* named = std::getenv("QMR_DATA");
  const fs::path data = named ? fs::path(named) : fs::path(QMR_SOURCE_DIR) / ".." / "shared" / "data";
  const std::string folder = (data / "focus-a").string();
  if (!fs::is_directory(folder)) GTEST_SKIP() << "no real frames there";
  const Json truth = Json::parse(ReadBytes(folder + "/truth.json"));
  const Json measured = Measure({folder, "--stars", "1"});
  std::vector<double> fwhm, diameter, focus, profile, score;
  for (const Json& known : truth["frames"]) {  // from the sharpest to the most blurred
    const std::string file = known["file"];
    const auto frame = std::find_if(measured["frames"].begin(), measured["frames"].end(),
                                    [&](const Json& f) { return f["file"].get<std::string>().ends_with(file); });
    ASSERT_NE(frame, measured["frames"].end());
    const Json& star = (*frame)["stars"][0];
    fwhm.push_back((*frame)["fwhm"]);
    diameter.push_back(star["halfFluxDiameter"]);
    focus.push_back((*frame)["focus"]);
    profile.push_back((*frame)["profileFwhm"]);
    const DecodedImage pixels = Read(folder + "/" + file);
    CImgEvaluateFocus image;
    Shape(image, pixels.width, pixels.height, 1);
    Fill(image, [&](int, int x, int y) { return pixels.Plane(0)[static_cast<std::size_t>(y * pixels.width + x)]; });
    score.push_back(image.Do(0));
    // Within 70 px there, within two widths here. A ring's centre is where its light is, to a few pixels.
    const double width = known["half_flux_diameter_px"];
    EXPECT_NEAR(diameter.back(), width, 0.1 * width) << file;
    EXPECT_NEAR(star["x"].get<double>(), known["star_xy"][0].get<double>(), 0.15 * width) << file;
    EXPECT_NEAR(star["y"].get<double>(), known["star_xy"][1].get<double>(), 0.15 * width) << file;
  }
  EXPECT_TRUE(std::is_sorted(fwhm.begin(), fwhm.end()));
  EXPECT_TRUE(std::is_sorted(diameter.begin(), diameter.end()));
  EXPECT_GT(focus[0], focus[1]);
  EXPECT_GT(focus[1], std::max(focus[2], focus[3]));
  EXPECT_LT(profile[3], profile[0]);
  EXPECT_GT(std::max({score[1], score[2], score[3]}), score[0]);
  EXPECT_THAT(measured["sharpest"], HasSubstr("focus_8025"));
}

TEST_F(MeasureCommand, TextForPeople) {
  const std::string in = Stars({{60, 50, 2000, 3, 3, 0}, {200, 60, 3000, 3, 3, 0}});
  CVynImage soft;
  MakeSky(soft, 320, 240, 1, {{60, 50, 2000, 5, 5, 0}, {200, 60, 3000, 5, 5, 0}});
  const std::string other = Write(soft, "soft.fit");
  const Outcome one = RunQmr({"measure", in});
  EXPECT_EQ(one.err, "");
  EXPECT_THAT(one.out, HasSubstr("320 x 240, grey\n  2 stars\n  FWHM 3."));
  EXPECT_THAT(one.out, HasSubstr("\n    200.0"));
  const Outcome both = RunQmr({"measure", other, in});
  EXPECT_EQ(std::count(both.out.begin(), both.out.end(), '\n'), 3);
  EXPECT_THAT(both.out, testing::ContainsRegex("stars.fit  .*  sharpest\n"));
  EXPECT_THAT(RunQmr({"measure", "--table", other, in}).out, HasSubstr("ellipt.     HFD        peak"));
  // The others are told where one can't be read.
  const std::string bad = Path("bad.fit");
  WriteBytes(bad, "no picture");
  const Outcome some = RunQmr({"measure", "-q", bad, in, other});
  EXPECT_EQ(some.code, 65);
  EXPECT_TRUE(OneLine(some.err)) << some.err;
  EXPECT_THAT(some.out, HasSubstr("soft.fit"));
  // A place that a later frame lacks costs that frame only.
  CVynImage small = Shaped(64, 48, 1);
  const Outcome fewer = RunQmr({"measure", "-q", "--at", "201,61", in, Write(small, "small.fit")});
  EXPECT_EQ(fewer.code, 65);
  EXPECT_THAT(fewer.err, HasSubstr("outside"));
  EXPECT_THAT(fewer.out, HasSubstr("    200.0"));
  EXPECT_EQ(RunQmr({"measure", "-q", in, "-o", Path("table.txt")}).code, 0);
  EXPECT_EQ(ReadBytes(Path("table.txt")), one.out);
}

TEST_F(MeasureCommand, RefusesWithOneLine) {
  const std::string in = Stars({{60, 50, 2000, 3, 3, 0}});
  CVynImage small = Shaped(15, 40, 1);
  const std::string tiny = Write(small, "tiny.fit");
  ExpectRefused("measure", {{{Path("none.fit")}, 66, "no such file"},
                            {{tiny}, 65, "too small"},
                            {{in, "--at", "320,5"}, 64, "--at: 320,5 lies outside"},
                            {{in, "--at", "5"}, 64, "--at"},
                            {{in, "--at", "nan,5"}, 64, "--at"},
                            {{in, "--threshold", "nan"}, 64, "--threshold: from 3"},
                            {{in, "--stars", "0"}, 64, "--stars: from 1"},
                            {{in, "--min-fwhm", "0"}, 64, "--min-fwhm: from 0.1"},
                            {{in, "--min-fwhm", "5", "--max-fwhm", "4"}, 64, "above --max-fwhm"},
                            {{in, "--plane", "red"}, 64, "has one plane"},
                            {{in, "--plane", "infrared"}, 64, "--plane: one of"},
                            {{in, "--sort", "size"}, 64, "--sort: one of"},
                            {{in, "--bayer", "RGBW"}, 64, "RGBW"},
                            {{in, "-o", in}, 73, "--force"},
                            {{in, "-o", Path("nowhere/t.txt")}, 73, "nowhere"},
                            {{}, 64, "IN"}});
}

}  // namespace
}  // namespace qmr::test
