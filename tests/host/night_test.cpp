// Pieces of the road of a night.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <vector>

#include "host/files/fits_writer.h"
#include "host/night/combine.h"
#include "host/night/combine_rows.h"
#include "host/night/failure.h"
#include "host/night/frame.h"
#include "host/night/masters.h"
#include "host/night/plan.h"
#include "host/night/transparency.h"
#include "tests/host/folder.h"
#include "tests/support/images.h"

namespace qmr {
namespace {

class Silence : public Steps {
 public:
  void Begin(const std::string&, std::int64_t) override {}
  void Advance(std::int64_t) override {}
  void End(const std::string&) override {}
  void Warn(const std::string& line) override { warnings.push_back(line); }
  std::vector<std::string> warnings;
};

class NightFolder : public testing::Test {
 protected:
  // A flat FITS file of one value, with an IMAGETYP if given.
  std::string Write(const std::string& name, std::uint16_t value, const std::string& type = {}, int width = 8,
                    int height = 6, double exposure = 1.0) {
    const std::filesystem::path path = folder_.Path(name);
    std::filesystem::create_directories(path.parent_path());
    const std::vector<std::uint16_t> samples(static_cast<std::size_t>(width * height), value);
    std::vector<Keyword> keywords = {Keyword::Real("EXPTIME", exposure)};
    if (!type.empty()) keywords.push_back(Keyword::Text("IMAGETYP", type));
    EXPECT_FALSE(WriteFits16(path.string(), width, height, 1, samples, keywords));
    return path.string();
  }

  test::TemporaryFolder folder_;
};

std::vector<std::string> Names(const std::vector<FrameSource>& frames) {
  std::vector<std::string> names;
  for (const FrameSource& f : frames) names.push_back(std::filesystem::path(f.path).filename().string());
  return names;
}

using List = std::vector<std::string>;

TEST(RoleOfName, KnowsFoldersAndTypes) {
  const std::pair<const char*, FrameRole> known[] = {
      {"Light", FrameRole::kLight},         {"DARKS", FrameRole::kDark},          {"offsets", FrameRole::kBias},
      {"dark_flats", FrameRole::kFlatDark}, {"Flat-Darks", FrameRole::kFlatDark}, {"output", FrameRole::kUnknown},
      {"zero", FrameRole::kBias},           {"flats01.fits", FrameRole::kFlat},   {"", FrameRole::kUnknown}};
  for (const auto& [name, role] : known) EXPECT_EQ(RoleOfName(name), role) << name;
  EXPECT_EQ(RoleOfImageType("Master Dark"), FrameRole::kDark);
  EXPECT_EQ(RoleOfImageType("Dark Frame"), FrameRole::kDark);
  EXPECT_EQ(RoleOfImageType("FLAT"), FrameRole::kFlat);
  EXPECT_EQ(RoleOfImageType("Science"), FrameRole::kLight);
}

TEST_F(NightFolder, FoldersGoBeforeTypesAndTypesBeforeNames) {
  Write("Lights/b.fit", 1);
  Write("Lights/a.FITS", 1, "DARK");
  Write("dark/d.fit", 1);
  Write("loose.fit", 1);
  NightPlan plan = PlanNight(folder_.Path());
  EXPECT_EQ(Names(plan.lights), (List{"a.FITS", "b.fit"}));
  EXPECT_EQ(Names(plan.darks), (List{"d.fit"}));

  std::filesystem::remove_all(folder_ / "Lights");
  Write("flat_but_light.fit", 1, "LIGHT");
  Write("bias_1.fit", 1);
  Write("x.fit", 1, "flat");
  plan = PlanNight(folder_.Path());
  EXPECT_EQ(Names(plan.lights), (List{"flat_but_light.fit", "loose.fit"}));
  EXPECT_EQ(Names(plan.biases), (List{"bias_1.fit"}));
  EXPECT_EQ(Names(plan.flats), (List{"x.fit"}));
  EXPECT_TRUE(plan.lights[0].decoded);
}

TEST_F(NightFolder, MastersSubtractWhatBelongsToThem) {
  StackOptions options;
  Silence silence;
  std::vector<LeftOut> leftOut;
  for (int i = 0; i < 3; ++i) {
    Write("biases/b" + std::to_string(i) + ".fit", static_cast<std::uint16_t>(100 + i));
    Write("darks/d" + std::to_string(i) + ".fit", static_cast<std::uint16_t>(150 + i), {}, 8, 6, 60.0);
    Write("flats/f" + std::to_string(i) + ".fit", static_cast<std::uint16_t>(1100 + 500 * i));
  }
  Write("darks/odd.fit", 1, {}, 9, 6);
  const NightPlan plan = [&] {
    Write("lights/l.fit", 1);
    return PlanNight(folder_.Path());
  }();
  const Masters masters = MakeMasters(plan, options, MosaicLayout(), silence, leftOut);
  ASSERT_TRUE(masters.dark && masters.flat);
  EXPECT_EQ(masters.darkKind, "dark");
  EXPECT_EQ(test::At(*masters.dark, 0, 3, 3), 151.0f);
  // Every flat is flat: 1 everywhere whatever its light.
  EXPECT_FLOAT_EQ(test::At(*masters.flat, 0, 3, 3), 1.0f);
  ASSERT_EQ(leftOut.size(), 1u);
  EXPECT_TRUE(leftOut[0].path.ends_with("odd.fit"));
  EXPECT_TRUE(silence.warnings.empty());
}

TEST(RepairBlankPixels, TakesTheMedianOfItsOwnColour) {
  CVynImage image;
  test::Shape(image, 12, 10, 1);
  // Columns of two colours: 10 and 1000.
  test::Fill(image, [](int, int x, int) { return x % 2 ? 1000.0f : 10.0f; });
  image.SetPixelGrayRaw(4, 4, std::numeric_limits<float>::quiet_NaN(), 0);
  image.SetPixelGrayRaw(5, 4, std::numeric_limits<float>::quiet_NaN(), 0);
  image.SetPixelGrayRaw(0, 0, std::numeric_limits<float>::quiet_NaN(), 0);
  RepairBlankPixels(image, 2);
  EXPECT_EQ(test::At(image, 0, 4, 4), 10.0f);
  EXPECT_EQ(test::At(image, 0, 5, 4), 1000.0f);
  EXPECT_EQ(test::At(image, 0, 0, 0), 10.0f);
}

TEST(RowCombiner, EveryMethodAndMissingFrames) {
  const std::vector<float> a = {1, 1, 1}, b = {3, 3, 3}, c = {5, 5, 5}, d = {100, 7, 7};
  const std::vector<std::uint8_t> all = {1, 1, 1}, part = {1, 1, 0}, none = {0, 1, 0};
  FrameRows rows;
  rows.values = {a.data(), b.data(), c.data(), d.data()};
  rows.valid = {all.data(), part.data(), all.data(), part.data()};
  std::vector<float> out(3);
  const std::pair<CombineMethod, std::vector<float>> methods[] = {{CombineMethod::kMedian, {4, 4, 3}},
                                                                  {CombineMethod::kAverage, {27.25f, 4, 3}},
                                                                  {CombineMethod::kMaximum, {100, 7, 5}},
                                                                  {CombineMethod::kMinimum, {1, 1, 1}},
                                                                  {CombineMethod::kKappaSigma, {3, 4, 3}}};
  for (const auto& [method, expected] : methods) {
    RowCombiner(method, 1.5, 4).Combine(rows, out);
    EXPECT_EQ(out, expected);
  }
  rows.valid = {none.data(), none.data(), none.data(), none.data()};
  for (const auto& [method, expected] : methods) {
    RowCombiner(method, 1.5, 4).Combine(rows, out);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[2], 0.0f);
  }
  // Values below zero keep their sign, whatever the method.
  const std::vector<float> low = {-4, -4, -4};
  rows.values.assign(4, low.data());
  rows.valid.clear();
  RowCombiner(CombineMethod::kMaximum, 1.5, 4).Combine(rows, out);
  EXPECT_EQ(out[0], -4.0f);
}

}  // namespace
}  // namespace qmr
