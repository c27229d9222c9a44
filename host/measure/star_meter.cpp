#include "host/measure/star_meter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <utility>

#include "host/measure/quantile.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {
namespace {

// Stars that the shape of all is taken from.
constexpr std::size_t kShapeStars = 60;
constexpr std::size_t kMostTried = 2000;
constexpr std::size_t kMostStars = 20000;
constexpr double kLeastRoundness = 0.4;
// Stars whose peak is so many times the noise come first, and how they fall off can be told; they are of one shape when
// their widths differ from the usual one by less than this factor.
constexpr double kClearPeak = 40.0;
constexpr double kLikeness = 1.4;
// The inverse of beta at most, and where a Gaussian is as good.
constexpr double kMostInverse = 0.65;
constexpr double kLeastInverse = 0.03;
constexpr double kLeastSnr = 3.0;

double BetaOf(double inverse) {
  return inverse < kLeastInverse ? 0.0 : 1.0 / inverse;
}

}  // namespace

StarMeter::StarMeter(const StarPlane& plane, double threshold, std::optional<double> electrons)
    : plane_(plane), electrons_(electrons), sky_(plane), finder_(plane, sky_, threshold) {
  double least;
  plane.image.GetMinMax(0, &least, &greatest_);
  width_ = finder_.Width();
  FindShape();
}

double StarMeter::ApertureOfPlane() const {
  return std::max(2.0 * width_, 3.0);
}

double StarMeter::FitRadius() const {
  return std::max(1.3 * width_, 2.5);
}

// The median of a ring without what stands out of it.
StarMeter::Ring StarMeter::RingAround(double x, double y) const {
  constexpr int kFewest = 8;
  const double inner = std::max(3.0 * width_, width_ + 4.0), outer = inner + std::max(width_, 4.0);
  const int left = std::max(0, static_cast<int>(x - outer)), top = std::max(0, static_cast<int>(y - outer));
  const int right = std::min(plane_.Width() - 1, static_cast<int>(x + outer));
  const int bottom = std::min(plane_.Height() - 1, static_cast<int>(y + outer));
  std::vector<float> values;
  for (int j = top; j <= bottom; ++j) {
    const float* row = plane_.Row(j);
    for (int i = left; i <= right; ++i) {
      const double r = std::hypot(i - x, j - y);
      if (r >= inner && r <= outer && !plane_.IsBlank(i, j)) values.push_back(row[i]);
    }
  }
  Ring ring{sky_.Level(x, y), kFewest};
  const double noise = sky_.Noise(x, y);
  for (int round = 0; round < 3 && values.size() >= kFewest; ++round) {
    ring = {MedianOf(values), static_cast<int>(values.size())};
    std::erase_if(values, [&](float v) { return std::fabs(v - ring.level) > 3.0 * noise; });
  }
  return ring;
}

// Three pixels near the peak at the frame's greatest value: a star of any shape has one, a plateau has more.
bool StarMeter::IsSaturated(int x, int y, double background) const {
  constexpr int kReach = 2, kPlateau = 3;
  const double level = greatest_ - 0.005 * (greatest_ - background);
  int flat = 0;
  for (int j = std::max(y - kReach, 0); j <= std::min(y + kReach, plane_.Height() - 1); ++j) {
    for (int i = std::max(x - kReach, 0); i <= std::min(x + kReach, plane_.Width() - 1); ++i)
      flat += plane_.Row(j)[i] >= level ? 1 : 0;
  }
  return flat >= kPlateau;
}

std::optional<FittedStar> StarMeter::Fit(const StarPlace& place, double beta, double radius) const {
  FitStart start;
  start.x = place.x;
  start.y = place.y;
  start.fwhm = width_;
  start.background = RingAround(start.x, start.y).level;
  start.radius = radius;
  return FitStar(plane_, start, beta);
}

// Longer ones are pieces of trails.
bool StarMeter::IsStar(const FittedStar& star) const {
  return star.minor > kLeastRoundness * roundness_ * star.major;
}

void StarMeter::FindShape() {
  struct Bright {
    StarPlace place;
    FittedStar star;
  };
  std::vector<Bright> bright;
  const auto isClear = [&](const Bright& b) {
    return b.star.amplitude > kClearPeak * sky_.Noise(b.place.x, b.place.y);
  };
  // The window follows the width, which follows from the fit.
  for (int round = 0; round < 2; ++round) {
    bright.clear();
    std::size_t tried = 0;
    for (const StarPlace& place : finder_.Stars()) {
      if (bright.size() >= kShapeStars || ++tried > kMostTried) break;
      if (IsSaturated(place.x, place.y, sky_.Level(place.x, place.y))) continue;
      const auto star = Fit(place, 0.0, FitRadius());
      if (star && IsStar(*star)) bright.push_back({place, *star});
    }
    if (std::any_of(bright.begin(), bright.end(), isClear)) std::erase_if(bright, std::not_fn(isClear));
    if (bright.empty()) return;
    std::vector<double> widths, ratios;
    for (const Bright& b : bright) {
      widths.push_back(b.star.Fwhm());
      ratios.push_back(b.star.minor / b.star.major);
    }
    width_ = std::clamp(MedianOf(widths), 1.0, 40.0);
    roundness_ = MedianOf(ratios);
  }
  // No cosmic rays and no blends.
  for (const Bright& b : bright)
    if (b.star.Fwhm() > width_ / kLikeness && b.star.Fwhm() < width_ * kLikeness) bright_.push_back(b.place);
  if (isClear(bright.front())) beta_ = FallOf(bright_);
}

// The beta that leaves the least of these stars, by the golden section of its inverse. The lower quartile of the
// residuals counts: faint stars show their noise there, and some have neighbours.
double StarMeter::FallOf(const std::vector<StarPlace>& places) const {
  constexpr double kGolden = 0.6180339887498949;
  const double radius = std::max(1.8 * width_, 3.0);
  const auto rest = [&](double inverse) {
    std::vector<double> residuals;
    for (const StarPlace& place : places)
      if (const auto star = Fit(place, BetaOf(inverse), radius)) residuals.push_back(star->residual);
    return residuals.empty() ? std::numeric_limits<double>::infinity() : Quantile(residuals, 0.25);
  };
  double low = 0.0, high = kMostInverse;
  double a = high - kGolden * (high - low), b = low + kGolden * (high - low);
  double restA = rest(a), restB = rest(b);
  for (int i = 0; i < 9; ++i) {
    if (restA < restB) {
      high = b;
      b = std::exchange(a, b - kGolden * (b - low));
      restB = std::exchange(restA, rest(a));
    } else {
      low = a;
      a = std::exchange(b, a + kGolden * (high - a));
      restA = std::exchange(restB, rest(b));
    }
  }
  return BetaOf(0.5 * (low + high));
}

std::optional<MeasuredStar> StarMeter::Measure(const StarPlace& place) const {
  const auto fitted = Fit(place, beta_, FitRadius());
  if (!fitted || !IsStar(*fitted) || std::hypot(fitted->x - place.x, fitted->y - place.y) > std::max(width_, 1.5))
    return std::nullopt;
  MeasuredStar star;
  const Ring ring = RingAround(fitted->x, fitted->y);
  star.background = ring.level;
  if (!AddLight(*fitted, ring.pixels, star)) return std::nullopt;
  const double scale = plane_.scale;
  star.x = plane_.ToFile(fitted->x);
  star.y = plane_.ToFile(fitted->y);
  star.major = scale * fitted->major;
  star.minor = scale * fitted->minor;
  star.fwhm = scale * fitted->Fwhm();
  star.angle = fitted->angle;
  star.halfFlux *= scale;
  // A mean stands for all pixels of its cell.
  star.flux *= scale * scale;
  star.saturated = IsSaturated(place.x, place.y, ring.level);
  return star;
}

// Flux, half-flux diameter, peak and SNR; false for a star at the edge or beside blank pixels.
bool StarMeter::AddLight(const FittedStar& at, int ringPixels, MeasuredStar& star) const {
  struct Pixel {
    double distance, value;
  };
  const double radius = ApertureOfPlane(), reach = radius + 0.5;
  const int left = static_cast<int>(std::ceil(at.x - reach)), right = static_cast<int>(std::floor(at.x + reach));
  const int top = static_cast<int>(std::ceil(at.y - reach)), bottom = static_cast<int>(std::floor(at.y + reach));
  if (left < 0 || top < 0 || right >= plane_.Width() || bottom >= plane_.Height()) return false;
  std::vector<Pixel> pixels;
  for (int y = top; y <= bottom; ++y) {
    const float* row = plane_.Row(y);
    for (int x = left; x <= right; ++x) {
      const double distance = std::hypot(x - at.x, y - at.y);
      if (distance >= reach) continue;
      if (plane_.IsBlank(x, y)) return false;
      pixels.push_back({distance, row[x] - star.background});
      if (distance <= 1.5) star.peak = std::max(star.peak, pixels.back().value);
    }
  }
  // A pixel on the edge counts by how much of it lies inside, taken as a straight step.
  const auto share = [](const Pixel& p, double r) { return std::clamp(r + 0.5 - p.distance, 0.0, 1.0); };
  const auto flux = [&](double r) {
    double sum = 0.0;
    for (const Pixel& p : pixels) sum += share(p, r) * p.value;
    return sum;
  };
  star.flux = flux(radius);
  if (!(star.flux > 0.0)) return false;
  double low = 0.0, high = radius;
  for (int i = 0; i < 30; ++i) {
    const double middle = 0.5 * (low + high);
    (flux(middle) < 0.5 * star.flux ? low : high) = middle;
  }
  star.halfFlux = 2.0 * high;
  double area = 0.0;
  for (const Pixel& p : pixels) area += share(p, radius);
  const double noise = sky_.Noise(at.x, at.y);
  double variance = area * noise * noise * (1.0 + area / ringPixels);
  if (electrons_) variance += star.flux / *electrons_ / (plane_.scale * plane_.scale);
  star.snr = star.flux / std::sqrt(std::max(variance, std::numeric_limits<double>::min()));
  return true;
}

std::vector<MeasuredStar> StarMeter::AllStars(double least, double most) const {
  const double usual = plane_.scale * width_;
  if (!(least > 0.0)) least = 0.5 * usual;
  if (!(most > 0.0)) most = 2.0 * usual;
  const std::vector<StarPlace>& places = finder_.Stars();
  const std::size_t count = std::min(places.size(), kMostStars);
  std::vector<std::optional<MeasuredStar>> found(count);
  ForRows(0, static_cast<int>(count),
          [&](int i) { found[static_cast<std::size_t>(i)] = Measure(places[static_cast<std::size_t>(i)]); });
  std::vector<MeasuredStar> stars;
  for (const auto& star : found)
    if (star && star->fwhm >= least && star->fwhm <= most && star->snr >= kLeastSnr) stars.push_back(*star);
  std::stable_sort(stars.begin(), stars.end(), [](const auto& a, const auto& b) { return a.flux > b.flux; });
  return WithoutTwins(stars);
}

// Of stars in the order of their flux, those without a brighter one close by. They are looked up by the square of the
// sky that they lie in.
std::vector<MeasuredStar> StarMeter::WithoutTwins(const std::vector<MeasuredStar>& stars) const {
  const double near = 0.5 * plane_.scale * width_;
  const std::int64_t columns = static_cast<std::int64_t>(plane_.ToFile(plane_.Width()) / near) + 3;
  const auto square = [&](const MeasuredStar& star) {
    return (static_cast<std::int64_t>(star.y / near) + 1) * columns + static_cast<std::int64_t>(star.x / near) + 1;
  };
  std::vector<std::pair<std::int64_t, std::size_t>> squares;
  for (std::size_t k = 0; k < stars.size(); ++k) squares.emplace_back(square(stars[k]), k);
  std::sort(squares.begin(), squares.end());
  std::vector<bool> dropped(stars.size());
  std::vector<MeasuredStar> kept;
  for (std::size_t k = 0; k < stars.size(); ++k) {
    if (dropped[k]) continue;
    kept.push_back(stars[k]);
    for (int row = -1; row <= 1; ++row) {
      const std::int64_t first = square(stars[k]) + row * columns - 1;
      auto it = std::lower_bound(squares.begin(), squares.end(), std::pair{first, std::size_t{0}});
      for (; it != squares.end() && it->first <= first + 2; ++it) {
        const MeasuredStar& other = stars[it->second];
        if (std::hypot(other.x - stars[k].x, other.y - stars[k].y) < near) dropped[it->second] = true;
      }
    }
  }
  return kept;
}

std::optional<MeasuredStar> StarMeter::StarAt(double x, double y) const {
  const double i = plane_.FromFile(x), j = plane_.FromFile(y);
  const StarPlace place = finder_.Climb(i, j);
  if (!(std::hypot(place.x - i, place.y - j) <= std::max(2.0 * width_, 4.0))) return std::nullopt;
  const auto star = Measure(place);
  return star && star->snr >= kLeastSnr ? star : std::nullopt;
}

}  // namespace qmr
