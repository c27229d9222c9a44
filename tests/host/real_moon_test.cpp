// Matching on real frames of the Moon whose shifts were measured by other means. The frames are not part of the
// project: see real_frames_test.cpp.
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/stacking/matching.h"
#include "tests/host/program.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

// The structure of a frame that stands out, without what the noise of single pixels would pull towards half pixels; on
// a level that gives every part of it the same mean.
CVynImage Structure(const fs::path& path) {
  png_image png = {};
  png.version = PNG_IMAGE_VERSION;
  EXPECT_TRUE(png_image_begin_read_from_file(&png, path.c_str())) << path;
  png.format = PNG_FORMAT_GRAY;
  std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(png));
  EXPECT_TRUE(png_image_finish_read(&png, nullptr, pixels.data(), 0, nullptr)) << png.message;
  auto image = Shaped<CImgFilterBlur>(static_cast<int>(png.width), static_cast<int>(png.height), 1);
  Fill(image, [&, next = pixels.begin()](int, int, int) mutable { return *next++; });
  CImgFilterBlur wide(image);
  wide.GaussianFilter(15.0, &image, nullptr, 0);
  Fill(wide,
       [&](int, int x, int y) { return 1000.0f + std::clamp(At(image, 0, x, y) - At(wide, 0, x, y), -10.0f, 10.0f); });
  image.GaussianFilter(3.0, &wide, nullptr, 0);
  return image;
}

TEST(RealMoon, FramesLieWhereTheyWereMeasured) {
  const char* named = std::getenv("QMR_DATA");
  const fs::path data = named ? fs::path(named) : fs::path(QMR_SOURCE_DIR) / ".." / "shared" / "data";
  const fs::path folder = data / "seq-moon-a";
  if (!fs::is_directory(folder)) GTEST_SKIP() << "seq-moon-a is not there";
  const Json frames = Json::parse(ReadBytes((folder / "truth.json").string()))["frames"];
  ASSERT_EQ(frames.size(), 6u);
  constexpr int kMargin = 20;
  CVynImage pattern;
  double sum = 0.0;
  for (const Json& frame : frames) {
    CImgMatching object;
    static_cast<CVynImage&>(object) = Structure(folder / frame["file"].get<std::string>());
    // The middle of the first one.
    if (&frame == &frames[0]) {
      Shape(pattern, object.GetWidth() - 2 * kMargin, object.GetHeight() - 2 * kMargin, 1);
      pattern.PixelBlt(0, 0, pattern.GetWidth(), pattern.GetHeight(), &object, kMargin, kMargin, 0);
    }
    double x = kMargin + 5;
    double y = kMargin - 4;
    ASSERT_EQ(object.Do(&pattern, &x, &y, 20, 1, 0), 1);
    // The truth's shifts carry a frame onto the first one.
    const Json& known = frame["phase_correlation_shift"];
    const double dx = x - kMargin + known[0].get<double>();
    const double dy = y - kMargin + known[1].get<double>();
    // A tenth, and half of the last step.
    EXPECT_LT(std::max(std::fabs(dx), std::fabs(dy)), 0.15) << frame["file"];
    sum += std::hypot(dx, dy);
  }
  EXPECT_LT(sum / 6.0, 0.1);
}

}  // namespace
}  // namespace qmr::test
