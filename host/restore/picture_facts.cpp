#include "host/restore/picture_facts.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <optional>
#include <span>

#include "host/measure/frame_measure.h"
#include "host/measure/quantile.h"
#include "host/measure/sky_map.h"
#include "host/night/failure.h"
#include "qmrimg/image/row_access.h"

namespace qmr {
namespace {

// FWHM of a Gaussian over its standard deviation.
constexpr double kFwhmPerSigma = 2.354820045;
// Stars that a width needs.
constexpr int kLeastStars = 5;
// What stars get to be by default, as a share of their width: what more would ask for shows as rings.
constexpr double kNarrower = 2.0 / 3.0;
// The narrowest star that pixels can show, FWHM.
constexpr double kSharpest = 2.0;
// How far black lies below the darkest sky, in widths of its noise: no noise reaches there.
constexpr double kBelowSky = 5.0;
// How far it may lie from the sky: a float keeps too little of the noise beyond.
constexpr double kFarthest = 1e6;
constexpr double kLeastGain = 1e-30, kMostGain = 1e30;
// Noise of a picture that shows none, as a share of its span.
constexpr double kLeastNoise = 1.0 / 200.0;

std::string Number(double value, const char* format = "%.2f") {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

void CheckSize(const CVynImage& image) {
  if (image.GetWidth() < kLeastSkySide || image.GetHeight() < kLeastSkySide)
    throw Failure(kExitBadData, "is " + SizeText(image) + ", too small to measure stars and sky in");
}

// Median width of the picture's own stars.
double StarWidth(const LightFrame& frame) {
  CheckSize(*frame.image);
  LightFrame copy;
  copy.path = frame.path;
  copy.keywords = frame.keywords;
  copy.image = std::make_unique<CVynImage>(*frame.image);
  const FrameMeasure measure = MeasureFrame(copy, {});
  if (measure.medianOf < kLeastStars)
    throw Failure(kExitBadData, "has " + std::to_string(measure.medianOf) + " of the " + std::to_string(kLeastStars) +
                                    " stars clear of the noise that tell the blur; --sigma or --fwhm must be given");
  return measure.fwhm;
}

struct Light {
  std::vector<PlaneSky> sky;
  std::vector<double> pedestal;
};

Light FindPedestal(const LightFrame& frame, Settings& settings) {
  Light light;
  const CVynImage& image = *frame.image;
  for (int p = 0; p < image.GetPlanes(); ++p) light.sky.push_back(SkyOf(image, p));
  if (!settings.Has("pedestal")) {
    std::vector<double> black;
    for (const PlaneSky& sky : light.sky) black.push_back(std::min(sky.low, sky.level) - kBelowSky * sky.noise);
    settings.Set("pedestal", black);
  }
  light.pedestal = settings.PerPlane("pedestal");
  for (std::size_t p = 0; p < light.sky.size(); ++p)
    if (!(std::abs(light.sky[p].level - light.pedestal[p]) <= kFarthest * light.sky[p].noise))
      throw Failure(kExitUsage, "--pedestal: " + Number(light.pedestal[p], "%g") +
                                    " is too far from the sky, which is " + Number(light.sky[p].level, "%g"));
  return light;
}

// Electrons that a unit of the picture stands for, if its header says so: a mean of several frames has that many
// times more of them. Pictures brought to 0..1 no longer have the unit of their header.
std::optional<double> HeaderGain(const LightFrame& frame) {
  const auto gain = KeywordNumber(frame.keywords, "EGAIN");
  if (!gain || !(*gain > 0.0)) return std::nullopt;
  double least = 0.0, greatest = 0.0;
  frame.image->GetMinMax(0, &least, &greatest);
  if (!(greatest > 2.0)) return std::nullopt;
  double frames = 1.0;
  for (const char* key : {"NCOMBINE", "STACKCNT"}) {
    const auto count = KeywordNumber(frame.keywords, key);
    if (count && *count >= 1.0) {
      frames = *count;
      break;
    }
  }
  return *gain * frames;
}

}  // namespace

double BlurOf(const Settings& settings) {
  if (settings.Has("sigma")) return settings.Number("sigma");
  const double width = settings.Number("fwhm"), target = settings.Number("target");
  return std::sqrt(width * width - target * target) / kFwhmPerSigma;
}

void CheckBlur(const Settings& settings) {
  if (!settings.Has("sigma")) return;
  for (const char* other : {"fwhm", "target"})
    if (settings.Has(other))
      throw Failure(kExitUsage, "--sigma: says the blur itself; --" + std::string(other) + " does not go with it");
}

PlaneSky SkyOf(const CVynImage& image, int plane) {
  CheckSize(image);
  const int width = image.GetWidth(), height = image.GetHeight();
  StarPlane part;
  part.image = CVynImage(-32, width, height, 1, 1.0, 0.0, 1);
  std::vector<float> samples;
  for (int y = 0; y < height; ++y) {
    const std::span<const float> row = ReadRow(image, y, plane, 0, width);
    std::copy(row.begin(), row.end(), WriteRow(part.image, y, 0, 0, width).begin());
    for (std::size_t x = static_cast<std::size_t>(y % 4); x < row.size(); x += 4)
      if (std::isfinite(row[x])) samples.push_back(row[x]);
  }
  const SkyMap map(part);
  const double mean = std::accumulate(samples.begin(), samples.end(), 0.0) /
                      static_cast<double>(std::max<std::size_t>(samples.size(), 1));
  PlaneSky sky{map.MedianLevel(), map.MedianNoise(), Quantile(samples, 0.002), mean};
  if (!(sky.noise > 0.0)) {
    const double span = static_cast<double>(Quantile(samples, 0.999)) - sky.low;
    sky.noise = span > 0.0 ? kLeastNoise * span : 1.0;
  }
  return sky;
}

void FindBlur(const LightFrame& frame, Settings& settings, Remarks& remarks) {
  const CVynImage& image = *frame.image;
  if (frame.blankPixels == std::int64_t{image.GetWidth()} * image.GetHeight() * image.GetPlanes())
    throw Failure(kExitBadData, "has no pixel with a value");
  if (settings.Has("sigma")) return;
  const bool measured = !settings.Has("fwhm");
  if (measured) settings.Set("fwhm", {StarWidth(frame)});
  const double width = settings.Number("fwhm");
  if (!settings.Has("target")) settings.Set("target", {std::max(kSharpest, kNarrower * width)});
  const double target = settings.Number("target");
  if (!(target < width)) {
    const std::string has = measured ? "has stars " : "--fwhm: stars ";
    throw Failure(measured ? kExitBadData : kExitUsage,
                  has + Number(width) + " px wide, no wider than the " + Number(target) +
                      " px that they are to get; --target asks for less, --sigma says the blur itself");
  }
  if (measured)
    remarks.push_back("stars FWHM " + Number(width) + " px (sigma " + Number(width / kFwhmPerSigma, "%.3f") +
                      "), to get " + Number(target) + " px: blur sigma " + Number(BlurOf(settings), "%.3f") + " px");
}

void FindForLucy(const LightFrame& frame, Settings& settings, Remarks& remarks) {
  FindBlur(frame, settings, remarks);
  const Light light = FindPedestal(frame, settings);
  const std::size_t planes = light.sky.size();
  if (!settings.Has("gain")) {
    const std::optional<double> header = HeaderGain(frame);
    std::vector<double> gains;
    for (std::size_t p = 0; p < planes; ++p) {
      // As if the noise of the sky were that of the photons above the pedestal: the same for a picture that has lost
      // its sky, or whose pedestal the user puts at the sky or above it.
      const PlaneSky& sky = light.sky[p];
      const double photons = std::max(sky.level - light.pedestal[p], kBelowSky * sky.noise);
      gains.push_back(header ? *header : photons / (sky.noise * sky.noise));
    }
    for (double& gain : gains) gain = std::clamp(gain, kLeastGain, kMostGain);
    settings.Set("gain", gains);
  }
  if (!settings.Has("read-noise")) {
    const std::vector<double> gains = settings.PerPlane("gain");
    std::vector<double> noise;
    for (std::size_t p = 0; p < planes; ++p) {
      // What the photons above the pedestal leave of the noise of the sky.
      const double all = gains[p] * light.sky[p].noise, photons = gains[p] * (light.sky[p].level - light.pedestal[p]);
      noise.push_back(std::min(std::sqrt(std::max(all * all - std::max(photons, 0.0), 0.0)), kMostGain));
    }
    settings.Set("read-noise", noise);
  }
}

void FindForMem(const LightFrame& frame, Settings& settings, Remarks& remarks) {
  FindBlur(frame, settings, remarks);
  const Light light = FindPedestal(frame, settings);
  if (settings.Has("noise")) return;
  std::vector<double> noise;
  // On an average over the picture, whose bright parts have more photons above the pedestal and so more noise.
  for (std::size_t p = 0; p < light.sky.size(); ++p) {
    const PlaneSky& sky = light.sky[p];
    const double photons = (sky.mean - light.pedestal[p]) / (sky.level - light.pedestal[p]);
    noise.push_back(sky.noise * std::sqrt(photons > 1.0 && std::isfinite(photons) ? photons : 1.0));
  }
  settings.Set("noise", noise);
}

}  // namespace qmr
