// Real sequences against what was measured on them by other means. The frames are not part of the project: the folder
// that QMR_DATA names, or ../shared/data beside the sources, holds them, and the tests are skipped where it does not.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/files/image_file.h"
#include "tests/host/program.h"

namespace qmr::test {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

std::string DataFolder(const std::string& set) {
  const char* named = std::getenv("QMR_DATA");
  const fs::path folder = named ? fs::path(named) : fs::path(QMR_SOURCE_DIR) / ".." / "shared" / "data";
  return fs::is_directory(folder / set) ? (folder / set).string() : std::string();
}

class RealFrames : public testing::Test {
 protected:
  // Stacks a set onto its first frame; false when the set is not there.
  bool Stack(const std::string& set, const std::string& reference, const std::vector<std::string>& more = {}) {
    folder_ = DataFolder(set);
    if (folder_.empty()) return false;
    truth_ = Json::parse(ReadBytes(folder_ + "/truth.json"));
    std::vector<std::string> arguments = {
        "stack",  folder_, "--reference", reference, "-o", out_.Path("s.fit"), "--report", out_.Path("r.json"),
        "--quiet"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome o = RunQmr(arguments);
    EXPECT_EQ(o.code, 0) << o.err;
    report_ = Json::parse(ReadBytes(out_.Path("r.json")));
    auto read = ReadImageFile(out_.Path("s.fit"));
    EXPECT_TRUE(read);
    if (read) stack_ = std::move(*read);
    return true;
  }

  // The truth's shifts carry a frame onto the reference; ours say where the reference lies in the frame.
  double WorstShift(const std::string& key) const {
    double worst = 0.0;
    for (const Json& frame : report_["frames"]) {
      EXPECT_TRUE(frame["used"].get<bool>()) << frame;
      for (const Json& known : truth_["frames"]) {
        if (known["file"] != frame["file"]) continue;
        worst = std::max(worst, std::hypot(frame["dx"].get<double>() + known[key][0].get<double>(),
                                           frame["dy"].get<double>() + known[key][1].get<double>()));
      }
    }
    return worst;
  }

  static float Median(std::vector<float> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
  }

  TemporaryFolder out_;
  std::string folder_;
  Json truth_, report_;
  DecodedImage stack_;
};

TEST_F(RealFrames, DumbbellInColour) {
  if (!Stack("seq-m27-bayer", "light_1069.fits", {"--combine", "median"})) GTEST_SKIP() << "seq-m27-bayer is not there";
  EXPECT_EQ(report_["frames_used"], 6);
  EXPECT_EQ(stack_.planes, 3);
  EXPECT_LT(WorstShift("shift_centre"), 0.15);
  // Hot pixels stand still while the sky moves: the median knows them no more. Development cuts three rows and columns.
  for (const Json& hot : truth_["hot_pixels"]["list_xy_excess"]) {
    const int x = hot[0].get<int>() - 3;
    const int y = hot[1].get<int>() - 3;
    for (int p = 0; p < 3; ++p) {
      std::vector<float> around;
      float most = 0.0f;
      for (int dy = -20; dy <= 20; ++dy) {
        for (int dx = -20; dx <= 20; ++dx) {
          if (x + dx < 0 || x + dx >= stack_.width) continue;
          const float v = stack_.Row(p, y + dy)[x + dx];
          around.push_back(v);
          if (std::abs(dx) <= 2 && std::abs(dy) <= 2) most = std::max(most, v);
        }
      }
      EXPECT_LT(most - Median(around), 150.0f) << hot << " plane " << p;
    }
  }
}

TEST_F(RealFrames, StarFieldOverHalfAnHour) {
  if (!Stack("seq-hatp32-early", "light_013343.fits")) GTEST_SKIP() << "seq-hatp32-early is not there";
  EXPECT_EQ(report_["frames_used"], 12);
  EXPECT_LT(WorstShift("shift_centre"), 0.1);
}

TEST_F(RealFrames, InfraredGalaxyBehindADetectorPattern) {
  if (!Stack("cal-ic310", "IC310_1.fits")) GTEST_SKIP() << "cal-ic310 is not there";
  EXPECT_EQ(report_["frames_used"], 5);
  EXPECT_LT(WorstShift("shift_from_nucleus"), 0.15);
  // Stripes: 1693 counts in the raw frames, 17 after dark and flat.
  std::vector<float> rows;
  for (int y = 40; y < stack_.height - 20; ++y)
    rows.push_back(Median(std::vector<float>(stack_.Row(0, y), stack_.Row(0, y) + stack_.width)));
  double mean = 0.0, squares = 0.0;
  for (const float v : rows) mean += v / static_cast<double>(rows.size());
  for (const float v : rows) squares += (v - mean) * (v - mean) / static_cast<double>(rows.size());
  EXPECT_LT(std::sqrt(squares), 25.0);
  // The galaxy stands out, and nothing blows up where the detector is not lit.
  const auto nucleus = truth_["frames"][0]["galaxy_nucleus_xy"];
  const float centre =
      stack_.Row(0, static_cast<int>(std::lround(nucleus[1].get<double>())))[std::lround(nucleus[0].get<double>())];
  EXPECT_GT(centre, mean + 300.0);
  const std::span<const float> all = stack_.Plane(0);
  EXPECT_LT(*std::max_element(all.begin(), all.end()), 20000.0f);
  EXPECT_GT(*std::min_element(all.begin(), all.end()), -5000.0f);
}

}  // namespace
}  // namespace qmr::test
