// The program from outside: exit codes, messages, whole nights, interruption.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "host/files/image_file.h"
#include "tests/host/picture_folder.h"

namespace qmr::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A small night that a test may spoil: mono unless the arguments say otherwise.
std::string MakeNight(const TemporaryFolder& folder, const std::vector<std::string>& more = {}) {
  std::vector<std::string> arguments;
  std::istringstream words(
      "simulate " + folder.Path("night") +
      " --width 420 --height 300 --lights 7 --darks 5 --flats 5 --biases 5 --drift 14 --rotation 0.5 --seed 11 --quiet "
      "--mosaic mono");
  for (std::string word; words >> word;) arguments.push_back(word);
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Outcome made = RunQmr(arguments);
  EXPECT_EQ(made.code, 0) << made.err;
  return folder.Path("night");
}

nlohmann::json Report(const std::string& path) {
  return nlohmann::json::parse(ReadBytes(path));
}

TEST(Program, TellsAndExits) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"--help"}, {"--version"}, {"stack", "--help"}, {"simulate", "--help"}, {"info", "--help"}}) {
    const Outcome o = RunQmr(arguments);
    EXPECT_EQ(o.code, 0);
    EXPECT_FALSE(o.out.empty());
    EXPECT_TRUE(o.err.empty()) << o.err;
  }
}

TEST(Program, BadWordsAreOneLineAndExit64) {
  const TemporaryFolder folder;
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{},
                                             {"stak"},
                                             {"stack", "--nonsense"},
                                             {"stack"},
                                             {"stack", folder.Path(), "--combine", "mean"},
                                             {"stack", folder.Path(), "--kappa", "-1"},
                                             {"stack", folder.Path(), "--interpolation", "cubic"},
                                             {"info", folder.Path(), "--bayer", "RGBG"},
                                             {"simulate", folder.Path("x"), "--width", "0"},
                                             {"simulate", folder.Path("x"), "--mosaic", "RRGB"}}) {
    const Outcome o = RunQmr(arguments);
    EXPECT_EQ(o.code, 64) << testing::PrintToString(arguments);
    EXPECT_TRUE(OneLine(o.err)) << o.err;
  }
  EXPECT_THAT(folder.List(), IsEmpty());
}

TEST(Program, MissingInputAndUnwritableOutput) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.Path("empty"));
  Outcome o;
  for (const char* name : {"nowhere", "empty"}) {
    o = RunQmr({"stack", folder.Path(name)});
    EXPECT_EQ(o.code, 66);
    EXPECT_TRUE(OneLine(o.err)) << o.err;
  }
  o = RunQmr({"info", folder.Path("nowhere.fit")});
  EXPECT_NE(o.code, 0);
  EXPECT_THAT(o.err, HasSubstr("nowhere.fit"));
  const std::string night = MakeNight(folder);
  o = RunQmr({"stack", night, "-o", folder.Path("no/such/folder/stack.fit")});
  EXPECT_EQ(o.code, 73);
  EXPECT_TRUE(OneLine(o.err)) << o.err;
}

TEST(Program, StacksANightOntoTheTruth) {
  const TemporaryFolder folder;
  const std::string night = MakeNight(folder);
  const Outcome o = RunQmr({"stack", night, "-o", folder.Path("s.fit"), "--coverage", folder.Path("c.fit"), "--report",
                            folder.Path("r.json"), "--truth", night + "/truth.json"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_THAT(folder.List(), ElementsAre("c.fit", "night", "r.json", "s.fit", "s.png"));
  const auto report = Report(folder.Path("r.json"));
  EXPECT_EQ(report["frames_used"], 7);
  EXPECT_LT(report["against_truth"]["grid_rms_px"].get<double>(), 0.04);
  EXPECT_EQ(report["against_truth"]["frames"], 6);

  const auto stack = ReadImageFile(folder.Path("s.fit"));
  ASSERT_TRUE(stack);
  EXPECT_EQ(stack->fileBits, -32);
  EXPECT_EQ(KeywordNumber(stack->keywords, "STACKCNT"), 7.0);
  EXPECT_EQ(KeywordNumber(stack->keywords, "LIVETIME"), 7 * 120.0);
  EXPECT_EQ(KeywordText(stack->keywords, "CALSTAT"), "BDF");
  const auto coverage = ReadImageFile(folder.Path("c.fit"));
  ASSERT_TRUE(coverage);
  EXPECT_EQ(coverage->Row(0, 150)[210], 7.0f);
  EXPECT_LT(coverage->Row(0, 0)[0], 7.0f);
}

// Pixels of the sky that differ from the noise-free scene by more than eight deviations, after a straight-line fit.
int Outliers(const std::string& stackPath, const std::string& scenePath) {
  const auto stack = ReadImageFile(stackPath);
  const auto scene = ReadImageFile(scenePath);
  EXPECT_TRUE(stack && scene);
  constexpr int kEdge = 24;
  std::vector<double> s, r;
  for (int y = kEdge; y < scene->height - kEdge; ++y) {
    for (int x = kEdge; x < scene->width - kEdge; ++x) {
      s.push_back(scene->Row(0, y)[x]);
      r.push_back(stack->Row(0, y)[x]);
    }
  }
  std::vector<double> sorted = s;
  std::sort(sorted.begin(), sorted.end());
  const double sky = sorted[sorted.size() * 8 / 10];
  double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] >= sky) continue;
    n += 1;
    sx += s[i];
    sy += r[i];
    sxx += s[i] * s[i];
    sxy += s[i] * r[i];
  }
  const double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
  const double base = (sy - slope * sx) / n;
  std::vector<double> residual;
  for (std::size_t i = 0; i < s.size(); ++i)
    if (s[i] < sky) residual.push_back(std::fabs(r[i] - slope * s[i] - base));
  std::vector<double> order = residual;
  std::sort(order.begin(), order.end());
  const double sigma = 1.4826 * order[order.size() / 2];
  return static_cast<int>(std::count_if(residual.begin(), residual.end(), [&](double d) { return d > 8 * sigma; }));
}

TEST(Program, TrailsRaysAndHotPixelsAreRejected) {
  const TemporaryFolder folder;
  const std::string night =
      MakeNight(folder, {"--lights", "14", "--trails", "4", "--hot-pixels", "2000", "--cosmic-rays", "200", "--nebula",
                         "0", "--scene", "--drift-kind", "uniform"});
  const auto outliers = [&](const std::string& method) {
    const Outcome o = RunQmr({"stack", night, "--dark", "none", "--combine", method, "--reference", "light_00001.fit",
                              "-o", folder.Path("s.fit"), "--quiet"});
    EXPECT_EQ(o.code, 0) << o.err;
    return Outliers(folder.Path("s.fit"), night + "/truth_scene.fit");
  };
  const int average = outliers("average");
  EXPECT_GT(average, 500);
  EXPECT_LT(outliers("kappa-sigma"), average / 20);
  EXPECT_LT(outliers("median"), average / 50);
}

TEST(Program, DevelopsAColourNight) {
  for (const std::string mosaic : {"RGGB", "GBRG"}) {
    const TemporaryFolder folder;
    const std::string night = MakeNight(folder, {"--mosaic", mosaic});
    const Outcome o = RunQmr({"stack", night, "-o", folder.Path("s.fit"), "--report", folder.Path("r.json"), "--truth",
                              night + "/truth.json", "--combine", "median"});
    ASSERT_EQ(o.code, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr(mosaic + " from BAYERPAT"));
    const auto stack = ReadImageFile(folder.Path("s.fit"));
    ASSERT_TRUE(stack);
    EXPECT_EQ(stack->planes, 3);
    EXPECT_FALSE(KeywordText(stack->keywords, "BAYERPAT"));
    EXPECT_LT(Report(folder.Path("r.json"))["against_truth"]["grid_rms_px"].get<double>(), 0.06);
  }
}

TEST(Program, SameBitsForThreadsStripsAndProcessorLevels) {
  const TemporaryFolder folder;
  for (const std::string mosaic : {"mono", "RGGB"}) {
    const std::string night = MakeNight(folder, {"--mosaic", mosaic, "--force"});
    std::vector<std::vector<std::string>> more;
    for (const char* threads : {"1", "2", "3", "8"}) more.push_back({"--threads", threads});
    for (const char* strip : {"1", "7", "64", "100000"}) more.push_back({"--strip", strip});
    ExpectSameBits({"stack", night, "-o", folder.Path("s.fit"), "--quiet"}, more,
                   [&] { return ReadBytes(folder.Path("s.fit")) + ReadBytes(folder.Path("s.png")); });
  }
}

TEST(Program, LeavesSpoiledFramesOutByName) {
  const TemporaryFolder folder;
  const std::string night = MakeNight(folder);
  const std::string lights = night + "/lights/";
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(lights)) files.push_back(entry.path().string());
  std::sort(files.begin(), files.end());
  ASSERT_EQ(files.size(), 7u);
  // Truncated, no FITS at all, another size, and a frame without any star.
  WriteBytes(files[1], ReadBytes(files[1]).substr(0, 20000));
  WriteBytes(files[2], "this is no image");
  const TemporaryFolder other;
  ASSERT_EQ(RunQmr({"simulate", other.Path("n"), "--width", "200", "--height", "300", "--lights", "1", "--mosaic",
                    "mono", "--quiet"})
                .code,
            0);
  std::filesystem::copy_file(other.Path("n/lights/light_00001.fit"), lights + "small.fit");
  std::filesystem::copy_file(night + "/flats/flat_00001.fit", lights + "starless.fit");
  const Outcome o = RunQmr({"stack", night, "-o", folder.Path("s.fit"), "--report", folder.Path("r.json")});
  ASSERT_EQ(o.code, 0) << o.err;
  const auto report = Report(folder.Path("r.json"));
  EXPECT_EQ(report["frames_used"], 5);
  EXPECT_EQ(report["left_out"].size(), 4u);
  for (const char* name : {"small.fit", "starless.fit"}) EXPECT_THAT(o.err, HasSubstr(name));
  EXPECT_THAT(o.err, HasSubstr(std::filesystem::path(files[1]).filename().string()));

  for (const std::string& file : files) WriteBytes(file, "no image");
  std::filesystem::remove(lights + "small.fit");
  std::filesystem::remove(lights + "starless.fit");
  const Outcome none = RunQmr({"stack", night, "-o", folder.Path("none.fit"), "--quiet"});
  EXPECT_EQ(none.code, 65);
  EXPECT_FALSE(std::filesystem::exists(folder.Path("none.fit")));
}

TEST(Program, InterruptedItLeavesNothing) {
  const TemporaryFolder folder;
  const std::string night = MakeNight(folder, {"--width", "1500", "--height", "1200"});
  std::filesystem::create_directory(folder.Path("out"));
  int interrupted = 0;
  for (const int after : {20, 120, 300}) {
    const auto begun = std::chrono::steady_clock::now();
    const Outcome o = RunQmr({"stack", night, "-o", folder.Path("out/s.fit")}, after);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    if (o.code != 130) continue;
    ++interrupted;
    EXPECT_LT(seconds, after / 1000.0 + 5.0);
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path("out")));
  }
  EXPECT_GT(interrupted, 0);
  const Outcome o = RunQmr({"simulate", folder.Path("other"), "--width", "2000", "--height", "2000"}, 300);
  EXPECT_EQ(o.code, 130);
  EXPECT_FALSE(std::filesystem::exists(folder.Path("other")));
}

TEST(Program, OneFrameIsAStackToo) {
  const TemporaryFolder folder;
  const std::string night = MakeNight(folder);
  const Outcome o = RunQmr({"stack", "--light", night + "/lights/light_00001.fit", "-o", folder.Path("s.fit")});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_THAT(o.out, HasSubstr("1 frames stacked"));
}

}  // namespace
}  // namespace qmr::test
