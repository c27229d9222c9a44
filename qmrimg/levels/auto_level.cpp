#include "qmrimg/levels/auto_level.h"

#include <array>
#include <cstdint>
#include <vector>

#include "qmrimg/image/pixel_math.h"
#include "qmrimg/levels/level_samples.h"

namespace {

constexpr int kBins = 5000;
constexpr int kLuminance = -1;
constexpr int kMessageAutoLevel = 6168;

// What is measured, and the plane whose levels it sets.
struct Target {
  qmr::Sampling sampling;
  int plane;
  int levelPlane;
};

std::vector<Target> Targets(const CVynImage& image, int perPlane) {
  if (!image.IsColor()) return {{qmr::Sampling::kPlane, 0, 0}};
  if (!perPlane) return {{qmr::Sampling::kLuminance, 0, qmr::HasRgb(image) ? -1 : 0}};
  std::vector<Target> targets;
  for (int p = 0; p < image.GetPlanes(); ++p) targets.push_back({qmr::Sampling::kPlane, p, p});
  return targets;
}

// Pixels of the rectangle, and one more for each bin.
double Population(const qmr::Area& area) {
  return static_cast<double>(area.Pixels() + kBins);
}

// Number of pixels that a share of the population stands for.
std::int64_t Share(double population, double fraction) {
  const double share = population * fraction;
  return share == share ? static_cast<std::int64_t>(share) : 0;
}

bool IsPercentile(double fraction) {
  return !(fraction <= 0.0 || fraction >= 1.0);
}

}  // namespace

CImgAutoLevel::CImgAutoLevel() = default;
CImgAutoLevel::~CImgAutoLevel() = default;

void CImgAutoLevel::DoByNormal(double low, double high, int perPlane, const CRect* pRect) {
  if (qmr::HasRgb(*this) && !perPlane) {
    SetByNormal(low, high, kLuminance, pRect);
    return;
  }
  for (int p = 0; p < Planes; ++p) SetByNormal(low, high, p, pRect);
}

void CImgAutoLevel::SetByNormal(double low, double high, int plane, const CRect* pRect) {
  const qmr::Area area(*this, pRect);
  const qmr::LevelSpan span =
      plane == kLuminance ? qmr::SpanOf(*this, qmr::Sampling::kLuminance, 0, area) : qmr::SpanOfPlane(*this, plane);
  std::vector<int> hist(kBins);
  GetHistogram(hist.data(), kBins, span.min, span.max, plane, 0, 0, 0, pRect, 1, kMessageAutoLevel);
  const double range = span.max - span.min;
  const double population = Population(area);

  double black = range * low;
  if (IsPercentile(low)) {
    const std::int64_t wanted = Share(population, low);
    std::int64_t count = 0;
    int i = 0;
    for (; i < kBins; ++i) {
      count += 1 + hist[static_cast<std::size_t>(i)];
      if (wanted < count) break;
    }
    black = i * range / kBins;
  }
  double white = range * high;
  if (IsPercentile(high)) {
    const std::int64_t wanted = Share(population, 1.0 - high);
    std::int64_t count = 0;
    int i = kBins - 1;
    for (; i >= 0; --i) {
      count += 1 + hist[static_cast<std::size_t>(i)];
      if (wanted < count) break;
    }
    white = (i + 1) * range / kBins;
  }
  SetLevel(plane, black + span.min, white + span.min);
}

void CImgAutoLevel::DoByMean(double low, double high, int perPlane, const CRect* pRect) {
  const qmr::Area area(*this, pRect);
  for (const Target& target : Targets(*this, perPlane)) {
    const qmr::LevelSamples samples(*this, target.sampling, target.plane);
    const double mean = qmr::MeanOf(samples, area);
    const double sigma = qmr::DeviationOf(samples, area, mean);
    SetLevel(target.levelPlane, mean - sigma * low, sigma * high + mean);
  }
}

void CImgAutoLevel::DoByMedian(double low, double high, int perPlane, const CRect* pRect) {
  const qmr::Area area(*this, pRect);
  for (const Target& target : Targets(*this, perPlane)) {
    float median = 0.0f;
    GetMedian(&median, 1, target.sampling != qmr::Sampling::kPlane, target.plane, pRect);
    const double sigma = qmr::DeviationOf(qmr::LevelSamples(*this, target.sampling, target.plane), area, median);
    SetLevel(target.levelPlane, median - sigma * low, sigma * high + median);
  }
}

void CImgAutoLevel::Get(double& low, double& high, int method, const CRect* pRect) {
  if (method == 1)
    GetByMean(low, high, pRect);
  else if (method == 2)
    GetByMedian(low, high, pRect);
  else
    GetByNormal(low, high, pRect);
}

void CImgAutoLevel::GetByNormal(double& low, double& high, const CRect* pRect) {
  const qmr::Area area(*this, pRect);
  const qmr::LevelSpan span = qmr::SpanOf(*this, qmr::Sampling::kLuminance, 0, area);
  std::vector<int> hist(kBins);
  GetHistogram(hist.data(), kBins, span.min, span.max, kLuminance, 0, 0, 0, pRect, 0, 0);
  const double range = span.max - span.min;
  const double population = Population(area);
  const double black = GetLevelMin(0);
  const double white = GetLevelMax(0);
  const auto level = [&](int i) { return static_cast<double>(i) / kBins * range + span.min; };
  // The middle of a bin's step in the running sum.
  const auto share = [&](std::int64_t count, std::int64_t before) {
    return static_cast<double>(count + before) * 0.5 / population;
  };

  low = 0.0;
  if (span.min >= black || black >= span.max) {
    low = (black - span.min) / range;
  } else {
    std::int64_t count = 0;
    for (int i = 0; i < kBins; ++i) {
      const std::int64_t before = count;
      count += 1 + hist[static_cast<std::size_t>(i)];
      if (!(level(i) > black)) continue;
      low = share(count, before);
      break;
    }
  }
  high = 1.0;
  if (white >= span.max || span.min >= white) {
    high = (white - span.min) / range;
  } else {
    std::int64_t count = 0;
    // Bin 0 is never looked at, on purpose.
    for (int i = kBins - 1; i >= 1; --i) {
      const std::int64_t before = count;
      count += 1 + hist[static_cast<std::size_t>(i)];
      if (!(white > level(i))) continue;
      high = 1.0 - share(count, before);
      break;
    }
  }
}

void CImgAutoLevel::GetByMean(double& low, double& high, const CRect* pRect) {
  const qmr::Area area(*this, pRect);
  const qmr::LevelSamples samples(*this, qmr::Sampling::kLuminance, 0);
  const double mean = qmr::MeanOf(samples, area);
  const double sigma = qmr::DeviationOf(samples, area, mean);
  low = (mean - GetLevelMin(0)) / sigma;
  high = (GetLevelMax(0) - mean) / sigma;
}

void CImgAutoLevel::GetByMedian(double& low, double& high, const CRect* pRect) {
  const qmr::Area area(*this, pRect);
  float median = 0.0f;
  GetMedian(&median, 1, 1, 0, pRect);
  const double sigma = qmr::DeviationOf(qmr::LevelSamples(*this, qmr::Sampling::kLuminance, 0), area, median);
  low = (median - GetLevelMin(0)) / sigma;
  high = (GetLevelMax(0) - median) / sigma;
}

void CImgAutoLevel::DoByHistogram(double low, double high, int perPlane, int balance, const CRect* pRect) {
  if (balance == 3) return;
  if (qmr::HasRgb(*this) && !perPlane)
    BalanceLuminance(low, high, balance, pRect);
  else
    BalancePlanes(low, high, balance, pRect);
}

void CImgAutoLevel::BalanceLuminance(double low, double high, int balance, const CRect* pRect) {
  const double place = low / (low + high) * 255.0;
  float mode = 0.0f, end = 0.0f;
  GetMode(&mode, &end, nullptr, 1, 0, pRect);
  const double black = mode - (static_cast<double>(mode) - end) * low;
  std::array<float, 3> modes{};
  for (int p = 0; p < 3; ++p) GetMode(&modes[static_cast<std::size_t>(p)], nullptr, nullptr, 0, p, pRect);
  const double firstMin = GetLevelMin(0);
  const double firstMax = GetLevelMax(0);
  for (int p = 0; p < 3; ++p) {
    const double own = modes[static_cast<std::size_t>(p)];
    const double shift = static_cast<double>(modes[0]) - own;
    const double shifted = black - shift;
    if (balance == 0)
      // The shift is subtracted twice from the white level, on purpose.
      SetLevel(p, shifted, (own - shifted) / place * 255.0 + shifted - shift);
    else if (balance == 2)
      SetLevel(p, firstMin - shift, firstMax - shift);
    else
      SetLevel(p, black, (own - black) / place * 255.0 + black);
  }
}

void CImgAutoLevel::BalancePlanes(double low, double high, int balance, const CRect* pRect) {
  const double place = low / (low + high) * 255.0;
  const double firstMin = GetLevelMin(0);
  const double firstMax = GetLevelMax(0);
  double firstMode = 0.0, firstEnd = 0.0;
  int firstBelow = 0, firstAbove = 0;
  for (int p = 0; p < Planes; ++p) {
    float modeFloat = 0.0f, endFloat = 0.0f, upper = 0.0f;
    GetMode(&modeFloat, &endFloat, &upper, 0, p, pRect);
    const double mode = modeFloat;
    const double end = endFloat;
    int below = 0, above = 0;
    if (balance == 0 || balance == 2) {
      GetLevelRangeNum(0.0f, modeFloat, &below, p, pRect);
      GetLevelRangeNum(modeFloat, static_cast<float>(qmr::SpanOfPlane(*this, p).max), &above, p, pRect);
    }
    if (p == 0) {
      firstMode = mode;
      firstEnd = end;
      firstBelow = below;
      firstAbove = above;
    }
    // How much wider the plane spreads than plane 0.
    double r1 = 1.0, r2 = 1.0;
    if (balance == 0 || balance == 2) {
      r1 = static_cast<double>(below) / firstBelow;
      r2 = static_cast<double>(above) / firstAbove / r1;
    }
    if (balance == 2) {
      const double shift = firstMode - mode;
      const double black = GetLevelMin(p) - shift - (firstMode - firstMin) * r1 * r2;
      const double white = (firstMax - firstMode) * r1 * r2 + GetLevelMax(p) - shift;
      SetLevel(p, static_cast<float>(black), static_cast<float>(white));
      continue;
    }
    const double distance = balance == 0 ? (firstMode - firstEnd) * r1 * r2 : mode - end;
    const double black = static_cast<float>(mode - distance * low);
    SetLevel(p, black, (mode - black) / place * 255.0 + black);
  }
}
