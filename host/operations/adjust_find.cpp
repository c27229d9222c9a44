// What adjustments find in the picture where the user does not say it.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/night/failure.h"
#include "host/night/output.h"
#include "host/operations/adjust_calls.h"
#include "host/operations/planet_disc.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr::calls {

void FindAverage(CVynImage& image, Settings& settings) {
  if (settings.Has("average")) return;
  double sum = 0.0;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const double black = image.GetLevelMin(p);
    const double scale = 255.0 / image.GetLevelRange(p);
    sum += FoldRows(
        0, image.GetHeight(), 0.0,
        [&](int y) {
          double row = 0.0;
          for (const float v : ReadRow(image, y, p, 0, image.GetWidth()))
            row += std::clamp((v - black) * scale, 0.0, 255.0);
          return row;
        },
        [](double a, double b) { return a + b; });
  }
  settings.Set("average", {sum / image.GetWidth() / image.GetHeight() / image.GetPlanes()});
}

void FindMeans(CVynImage& image, Settings& settings) {
  if (settings.Has("mean") || settings.Has("sigma")) return;
  double mean = 0.0, sigma = 0.0;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const float average = image.GetAvrGrayRaw(p);
    mean += average / static_cast<double>(image.GetPlanes());
    sigma += image.CalcStdDev(p, &average) / static_cast<double>(image.GetPlanes());
  }
  settings.Set("mean", {mean});
  settings.Set("sigma", {sigma});
}

void FindCurve(CVynImage&, Settings& settings) {
  for (const char* key : {"points", "red", "green", "blue"})
    if (settings.Has(key)) return;
  // Up from the sky, which lies at 25 between levels found from it.
  settings.Set("points", {25, 25, 80, 130});
}

void FindGreySky(CVynImage& image, Settings& settings) {
  constexpr std::array keys = {"red", "green", "blue"};
  if (std::any_of(keys.begin(), keys.end(), [&](const char* key) { return settings.Has(key); })) {
    for (const char* key : keys)
      if (!settings.Has(key)) settings.Set(key, {0.0});
    return;
  }
  const SkyLevels found = MeasureSky(image);
  std::array<double, 3> sky{};
  for (std::size_t p = 0; p < sky.size(); ++p) sky[p] = image.To256(found.sky[p], static_cast<int>(p));
  const double grey = (sky[0] + sky[1] + sky[2]) / 3.0;
  // The library counts in levels of plane 0. Less than a thousandth is the rounding of the levels.
  for (std::size_t p = 0; p < sky.size(); ++p) {
    const double share = image.GetLevelRange(static_cast<int>(p)) / image.GetLevelRange(0);
    settings.Set(keys[p], {std::round((grey - sky[p]) * share * 1000.0) / 1000.0 + 0.0});
  }
}

namespace {

// Distance of the pixels around a star that its surroundings are taken from.
constexpr int kRing = 5;

// Shares of the planes in the light of stars, summed.
struct StarColours {
  std::array<double, 3> share{};
  int count = 0;
};

// The stars whose peaks lie in a row: brighter than the eight pixels around, in every plane well above the noise, and
// below where sensors saturate. Each counts the same.
StarColours StarsOfRow(const CVynImage& image, int y, const std::vector<double>& sky, double noise) {
  constexpr double kAbove = 8.0, kBelow = 0.7;
  StarColours stars;
  for (int x = kRing; x < image.GetWidth() - kRing; ++x) {
    const auto value = [&](int dx, int dy) {
      double sum = 0.0;
      for (int p = 0; p < 3; ++p) sum += image.GetPixelGrayRaw(x + dx, y + dy, p);
      return sum;
    };
    const double peak = value(0, 0);
    bool counts = peak - (sky[0] + sky[1] + sky[2]) > 3.0 * kAbove * noise;
    for (int dy = -1; dy <= 1 && counts; ++dy)
      for (int dx = -1; dx <= 1; ++dx) counts = counts && ((dx == 0 && dy == 0) || value(dx, dy) < peak);
    std::array<double, 3> light{};
    for (int p = 0; p < 3 && counts; ++p) {
      const auto at = static_cast<std::size_t>(p);
      const double v = image.GetPixelGrayRaw(x, y, p);
      double around = 0.0, brightest = -HUGE_VAL;
      for (const auto& [dx, dy] : {std::pair{-kRing, 0}, {kRing, 0}, {0, -kRing}, {0, kRing}}) {
        const double pixel = image.GetPixelGrayRaw(x + dx, y + dy, p);
        around += pixel / 4.0;
        brightest = std::max(brightest, pixel);
      }
      light[at] = v - around;
      // The edge of a nebula is brighter than one side alone.
      counts = v - brightest > kAbove * noise && v - sky[at] < kBelow * (image.GetMaxPixel(p) - sky[at]);
    }
    if (!counts) continue;
    const double all = light[0] + light[1] + light[2];
    for (std::size_t p = 0; p < 3; ++p) stars.share[p] += light[p] / all;
    ++stars.count;
  }
  return stars;
}

}  // namespace

void FindWhite(CVynImage& image, Settings& settings) {
  const SkyLevels found = MeasureSky(image);
  if (!settings.Has("sky")) settings.Set("sky", {found.sky[0], found.sky[1], found.sky[2]});
  if (settings.Has("white")) return;
  const std::vector<double>& sky = settings.List("sky");
  image.CalcMinMax();
  const StarColours stars = FoldRows(
      kRing, image.GetHeight() - kRing, StarColours{}, [&](int y) { return StarsOfRow(image, y, sky, found.noise); },
      [](StarColours sum, const StarColours& row) {
        for (std::size_t p = 0; p < 3; ++p) sum.share[p] += row.share[p];
        sum.count += row.count;
        return sum;
      });
  constexpr int kFewest = 5;
  if (stars.count < kFewest)
    throw Failure(kExitBadData, "has " + std::to_string(stars.count) +
                                    " stars that are bright enough and not burnt out; --white says what is white");
  const double largest = *std::max_element(stars.share.begin(), stars.share.end());
  settings.Set("white", {stars.share[0] / largest, stars.share[1] / largest, stars.share[2] / largest});
}

void PlanetLevels(CVynImage& image, const Settings&) {
  image.CalcMinMax();
  float least = image.GetMinPixel(0), greatest = image.GetMaxPixel(0);
  for (int p = 1; p < image.GetPlanes(); ++p) {
    least = std::min(least, image.GetMinPixel(p));
    greatest = std::max(greatest, image.GetMaxPixel(p));
  }
  if (!(least < greatest)) greatest = least + 1.0f;
  for (int p = 0; p < image.GetPlanes(); ++p) static_cast<CImage&>(image).SetLevel(p, least, greatest);
}

void FindDisc(CVynImage& image, Settings& settings) {
  if (!settings.Has("centre") || !settings.Has("radius")) {
    const auto disc = FindPlanetDisc(image);
    if (!disc) throw Failure(kExitBadData, "has no round disc of a planet; --centre and --radius say where it is");
    if (!settings.Has("centre")) settings.Set("centre", {disc->x, disc->y});
    if (!settings.Has("radius"))
      settings.Set("radius", {std::sqrt(disc->area / std::numbers::pi / settings.Number("polar-scale"))});
  }
  // As many columns as the equator has pixels, the largest map aside.
  constexpr double kLargest = 16000.0;
  if (!settings.Has("map-width"))
    settings.Set("map-width",
                 {std::clamp(2.0 * std::round(std::numbers::pi * settings.Number("radius")), 16.0, kLargest)});
}

}  // namespace qmr::calls
