#include "host/levels/level_calls.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "host/night/output.h"
#include "host/operations/picture_file.h"

namespace qmr {
namespace {

// Calls `set(useLuminance, plane, levelPlane)` once for all planes, or once for each.
template <class Set>
void ForTargets(const LevelJob& job, Set&& set) {
  constexpr int kAllPlanes = -1;
  const bool colour = job.image.GetPlanes() >= 3;
  if (colour && !job.unlinked) {
    set(1, 0, kAllPlanes);
    return;
  }
  for (int p = 0; p < job.image.GetPlanes(); ++p) set(0, p, p);
}

}  // namespace

bool SetPercentileLevels(const LevelJob& job) {
  constexpr double kPercent = 100.0;
  job.image.DoByNormal(job.settings.Number("low") / kPercent, job.settings.Number("high") / kPercent, job.unlinked,
                       nullptr);
  return true;
}

bool SetMeanLevels(const LevelJob& job) {
  job.image.DoByMean(job.settings.Number("below"), job.settings.Number("above"), job.unlinked, nullptr);
  return true;
}

bool SetMedianLevels(const LevelJob& job) {
  job.image.DoByMedian(job.settings.Number("below"), job.settings.Number("above"), job.unlinked, nullptr);
  return true;
}

bool KeepsFirstLevels(const Settings& settings) {
  return settings.Whole("balance") == kBalanceFirst;
}

bool SetModeLevels(const LevelJob& job) {
  // The library wants the place of the mode as a share, depth / (depth + height).
  const double depth = job.settings.Number("depth");
  const double height = depth * (255.0 / job.settings.Number("mode-level") - 1.0);
  job.image.DoByHistogram(depth, height, job.unlinked, job.settings.Whole("balance"), nullptr);
  return true;
}

bool SetSpanLevels(const LevelJob& job) {
  ForTargets(job, [&](int useLuminance, int plane, int levelPlane) {
    float mode = 0.0f, low = 0.0f, high = 0.0f;
    job.image.GetMode(&mode, &low, &high, useLuminance, plane, nullptr);
    job.image.SetLevel(levelPlane, low, high);
  });
  return true;
}

bool SetNoiseLevels(const LevelJob& job) {
  ForTargets(job, [&](int useLuminance, int plane, int levelPlane) {
    float centre = 0.0f;
    if (job.settings.Whole("about") == kAboutMode)
      job.image.GetMode(&centre, nullptr, nullptr, useLuminance, plane, nullptr);
    else
      job.image.GetMedian(&centre, 1, useLuminance, plane, nullptr);
    // Stars and nebulae only add to the sky: what lies below its brightness shows its noise. Dead pixels lie far below
    // and are left out step by step.
    constexpr int kRounds = 5;
    constexpr double kFarthest = 6.0;
    double sigma = 0.0;
    double low = -INFINITY;
    for (int i = 0; i < kRounds; ++i) {
      job.image.GetLevelDoubleRangeStd(static_cast<float>(low), centre, &sigma, useLuminance, plane, nullptr);
      low = centre - sigma * kFarthest;
    }
    job.image.SetLevel(levelPlane, centre - sigma * job.settings.Number("below"),
                       centre + sigma * job.settings.Number("above"));
  });
  return true;
}

bool SetSkyLevels(const LevelJob& job) {
  SetNightLevels(job.image);
  return true;
}

bool SetFileLevels(const LevelJob& job) {
  return SetKeywordLevels(job.image, job.keywords);
}

bool SetManualLevels(const LevelJob& job) {
  const std::vector<double> black = job.settings.PerPlane("black");
  const std::vector<double> white = job.settings.PerPlane("white");
  for (std::size_t p = 0; p < black.size(); ++p) {
    static_cast<CImage&>(job.image).SetLevel(static_cast<int>(p), black[p], white[p]);
  }
  return true;
}

}  // namespace qmr
