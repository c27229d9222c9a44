#include "host/measure/frame_measure.h"

#include <algorithm>
#include <cmath>

#include "host/files/keyword.h"
#include "host/measure/focus_score.h"
#include "host/measure/quantile.h"
#include "host/night/failure.h"
#include "host/operations/parameters.h"
#include "host/operations/picture_file.h"
#include "qmrimg/stacking/psf.h"

namespace qmr {
namespace {

constexpr double kClearSnr = 20.0;

template <class Value>
double MedianBy(const std::vector<MeasuredStar>& stars, const Value& value) {
  std::vector<double> values;
  for (const MeasuredStar& star : stars) values.push_back(value(star));
  return MedianOf(values);
}

// Clear of the noise and not saturated; else not saturated; else any.
std::vector<MeasuredStar> GoodStars(const std::vector<MeasuredStar>& stars) {
  std::vector<MeasuredStar> good;
  for (const double least : {kClearSnr, 0.0}) {
    for (const MeasuredStar& star : stars)
      if (!star.saturated && star.snr >= least) good.push_back(star);
    if (!good.empty()) return good;
  }
  return stars;
}

void TakeMedians(const std::vector<MeasuredStar>& stars, StarPlane& plane, FrameMeasure& frame) {
  const std::vector<MeasuredStar> good = GoodStars(stars);
  frame.medianOf = static_cast<int>(good.size());
  frame.fwhm = MedianBy(good, [](const MeasuredStar& s) { return s.fwhm; });
  frame.ellipticity = MedianBy(good, [](const MeasuredStar& s) { return s.Ellipticity(); });
  frame.halfFlux = MedianBy(good, [](const MeasuredStar& s) { return s.halfFlux; });
  PSF profile(&plane.image);
  for (const MeasuredStar& star : good)
    profile.Add(CPoint(static_cast<int>(std::lround(plane.FromFile(star.x))),
                       static_cast<int>(std::lround(plane.FromFile(star.y)))));
  if (profile.GetMedianFWHM(&frame.profileFwhm)) frame.profileFwhm *= plane.scale;
}

void Sort(StarOrder order, std::vector<MeasuredStar>& stars) {
  const auto by = [&](const auto& value) {
    std::stable_sort(stars.begin(), stars.end(), [&](const auto& a, const auto& b) { return value(a) < value(b); });
  };
  switch (order) {
    case StarOrder::kFlux:
      return;  // as they come
    case StarOrder::kSnr:
      return by([](const MeasuredStar& s) { return -s.snr; });
    case StarOrder::kFwhm:
      return by([](const MeasuredStar& s) { return s.fwhm; });
    case StarOrder::kX:
      return by([](const MeasuredStar& s) { return s.x; });
    case StarOrder::kY:
      return by([](const MeasuredStar& s) { return s.y; });
  }
}

void CheckPlaces(const LightFrame& frame, const MeasureOptions& options) {
  for (const MeasureOptions::Place& place : options.at) {
    if (place.x < 0.0 || place.y < 0.0 || place.x > frame.image->GetWidth() - 1.0 ||
        place.y > frame.image->GetHeight() - 1.0)
      throw Failure(kExitUsage, "--at: " + NumberText(place.x) + "," + NumberText(place.y) + " lies outside " +
                                    PrintablePath(frame.path) + ", which is " + SizeText(*frame.image));
  }
}

}  // namespace

FrameMeasure MeasureFrame(const std::string& path, const MeasureOptions& options) {
  LightFrame frame = LoadPicture(path, options.bayer);
  return MeasureFrame(frame, options);
}

FrameMeasure MeasureFrame(LightFrame& frame, const MeasureOptions& options) {
  CheckPlaces(frame, options);
  FrameMeasure measure;
  measure.path = frame.path;
  measure.width = frame.image->GetWidth();
  measure.height = frame.image->GetHeight();
  measure.blankPixels = frame.blankPixels;
  StarPlane plane;
  MakeStarPlane(frame, options.brightness, plane);
  measure.plane = plane.what;

  const auto gain = KeywordNumber(frame.keywords, "EGAIN");
  const StarMeter meter(plane, options.threshold, gain && *gain > 0.0 ? gain : std::nullopt);
  measure.sky = meter.Sky().MedianLevel();
  measure.noise = meter.Sky().MedianNoise();
  measure.hotPixels = meter.HotPixels();
  measure.beta = meter.Beta();
  measure.aperture = meter.Aperture();
  std::vector<MeasuredStar> stars = meter.AllStars(options.minFwhm, options.maxFwhm);
  measure.found = static_cast<int>(stars.size());
  for (const MeasuredStar& star : stars) measure.saturated += star.saturated ? 1 : 0;
  TakeMedians(stars, plane, measure);
  if (measure.found > 0) measure.focus = FocusScore(plane, meter.Sky(), meter.BrightPlaces());
  for (const MeasureOptions::Place& place : options.at) measure.at.push_back(meter.StarAt(place.x, place.y));
  if (options.at.empty()) {
    stars.resize(std::min(stars.size(), options.stars));
    Sort(options.order, stars);
    measure.stars = std::move(stars);
  }
  return measure;
}

std::optional<std::size_t> Sharpest(const std::vector<FrameMeasure>& frames) {
  constexpr int kEnough = 5;
  for (const int least : {kEnough, 1}) {
    std::optional<std::size_t> best;
    for (std::size_t i = 0; i < frames.size(); ++i)
      if (frames[i].medianOf >= least && (!best || frames[i].fwhm < frames[*best].fwhm)) best = i;
    if (best) return best;
  }
  return std::nullopt;
}

}  // namespace qmr
