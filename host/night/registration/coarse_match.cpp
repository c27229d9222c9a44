#include "host/night/registration/coarse_match.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qmr {

namespace {

int CeilPowerOf2(int n) {
  int p = 1;
  while (p < n) p *= 2;
  return p;
}

// Rises from 0 to 1 over `edge` samples at both ends of a line.
float Taper(int i, int count, int edge) {
  const int inside = std::min(i, count - 1 - i);
  if (inside >= edge) return 1.0f;
  return static_cast<float>(0.5 - 0.5 * std::cos(std::numbers::pi * (inside + 0.5) / edge));
}

float Bilinear(const BinnedImage& image, double x, double y) {
  const int ix = static_cast<int>(std::floor(x)), iy = static_cast<int>(std::floor(y));
  if (ix < 0 || iy < 0 || ix + 1 >= image.width || iy + 1 >= image.height) return 0.0f;
  const auto fx = static_cast<float>(x - ix), fy = static_cast<float>(y - iy);
  const float* a = image.Row(iy) + ix;
  const float* b = image.Row(iy + 1) + ix;
  const float top = a[0] + fx * (a[1] - a[0]), bottom = b[0] + fx * (b[1] - b[0]);
  return top + fy * (bottom - top);
}

// The shift in pixels of the frame, brought to the least magnitude that the array's period allows.
double LeastPeriod(double shift, double period) {
  return shift - period * std::round(shift / period);
}

}  // namespace

WholeFrame::WholeFrame(BinnedImage clean)
    : image_(std::move(clean)),
      arrayWidth_(CeilPowerOf2(std::max(2, image_.width))),
      arrayHeight_(CeilPowerOf2(std::max(2, image_.height))) {
  PhaseCorrelator correlator(arrayWidth_, arrayHeight_);
  Spectrum none;
  const std::vector<float> plane = Padded(image_);
  correlator.Transform(plane.data(), nullptr, spectrum_, none);
}

std::vector<float> WholeFrame::Padded(const BinnedImage& image) const {
  std::vector<float> plane(static_cast<std::size_t>(arrayWidth_) * static_cast<std::size_t>(arrayHeight_), 0.0f);
  const int edgeX = std::max(1, image.width / 12), edgeY = std::max(1, image.height / 12);
  std::vector<float> taper(static_cast<std::size_t>(image.width));
  for (int x = 0; x < image.width; ++x) taper[static_cast<std::size_t>(x)] = Taper(x, image.width, edgeX);
  for (int y = 0; y < image.height; ++y) {
    const float* from = image.Row(y);
    float* to = plane.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(arrayWidth_);
    const float weight = Taper(y, image.height, edgeY);
    for (int x = 0; x < image.width; ++x) to[x] = from[x] * weight * taper[static_cast<std::size_t>(x)];
  }
  return plane;
}

std::vector<CoarseCandidate> WholeFrame::Match(const BinnedImage& frame, double thetaDegrees, int fullWidth,
                                               int fullHeight) const {
  const int bin = image_.bin;
  const double blockCentre = (bin - 1) / 2.0;
  const RigidMap turn({0.0, 0.0, thetaDegrees}, fullWidth, fullHeight);
  BinnedImage turned;
  if (thetaDegrees != 0.0) {
    turned = frame;
    for (int y = 0; y < frame.height; ++y) {
      for (int x = 0; x < frame.width; ++x) {
        const Point p = turn({x * static_cast<double>(bin) + blockCentre, y * static_cast<double>(bin) + blockCentre});
        turned.Row(y)[x] = Bilinear(frame, (p.x - blockCentre) / bin, (p.y - blockCentre) / bin);
      }
    }
  }

  PhaseCorrelator correlator(arrayWidth_, arrayHeight_);
  Spectrum spectrum, mirrored;
  const std::vector<float> plane = Padded(thetaDegrees != 0.0 ? turned : frame);
  correlator.Transform(plane.data(), nullptr, spectrum, mirrored);
  // The conjugate is the spectrum of the plane turned by 180 degrees about its first pixel.
  mirrored = spectrum;
  for (dcomplex& value : mirrored) value.im = -value.im;
  correlator.Correlate(spectrum_, spectrum, spectrum_, mirrored);

  std::vector<CoarseCandidate> candidates;
  const double periodX = static_cast<double>(bin) * arrayWidth_, periodY = static_cast<double>(bin) * arrayHeight_;
  for (const CorrelationPeak& peak : correlator.Peaks(0, 3, 0)) {
    const Point d = turn.Turn({peak.x * bin, peak.y * bin});
    candidates.push_back({{d.x, d.y, thetaDegrees}, peak.height});
  }
  for (const CorrelationPeak& peak : correlator.Peaks(1, 2, 0)) {
    const Point e = {LeastPeriod(2.0 * blockCentre - bin * peak.x - (fullWidth - 1), periodX),
                     LeastPeriod(2.0 * blockCentre - bin * peak.y - (fullHeight - 1), periodY)};
    const Point d = turn.Turn(e);
    candidates.push_back({{d.x, d.y, thetaDegrees + (thetaDegrees > 0.0 ? -180.0 : 180.0)}, peak.height});
  }
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const CoarseCandidate& a, const CoarseCandidate& b) { return a.height > b.height; });
  return candidates;
}

TileGrid::TileGrid(const BinnedImage& clean) {
  constexpr std::size_t kMost = 40;
  size_ = std::min(clean.width, clean.height) >= 96 ? 64 : 32;
  if (clean.width < size_ || clean.height < size_) return;
  window_.resize(static_cast<std::size_t>(size_));
  for (int i = 0; i < size_; ++i) window_[static_cast<std::size_t>(i)] = Taper(i, size_, size_ / 2);

  struct Place {
    int x, y;
    double contrast;
  };
  std::vector<Place> places;
  const int step = size_ * 3 / 4;
  const int columns = (clean.width - size_) / step + 1, rows = (clean.height - size_) / step + 1;
  for (int j = 0; j < rows; ++j) {
    for (int i = 0; i < columns; ++i) {
      Place place{columns > 1 ? i * (clean.width - size_) / (columns - 1) : (clean.width - size_) / 2,
                  rows > 1 ? j * (clean.height - size_) / (rows - 1) : (clean.height - size_) / 2, 0.0};
      const int border = size_ / 6;
      for (int y = place.y + border; y < place.y + size_ - border; ++y) {
        const float* row = clean.Row(y);
        for (int x = place.x + border; x < place.x + size_ - border; ++x) place.contrast += row[x] * row[x];
      }
      if (place.contrast > 0.0) places.push_back(place);
    }
  }
  std::stable_sort(places.begin(), places.end(),
                   [](const Place& a, const Place& b) { return a.contrast > b.contrast; });
  places.resize(std::min(places.size(), kMost));

  PhaseCorrelator correlator(size_, size_);
  const auto count = static_cast<std::size_t>(size_) * static_cast<std::size_t>(size_);
  std::vector<float> plane(count);
  Spectrum none;
  for (const Place& place : places) {
    for (int y = 0; y < size_; ++y) {
      const float* from = clean.Row(place.y + y) + place.x;
      for (int x = 0; x < size_; ++x) {
        plane[static_cast<std::size_t>(y * size_ + x)] =
            from[x] * window_[static_cast<std::size_t>(x)] * window_[static_cast<std::size_t>(y)];
      }
    }
    tiles_.push_back({place.x, place.y, {}});
    correlator.Transform(plane.data(), nullptr, tiles_.back().spectrum, none);
  }
}

std::vector<Displacement> TileGrid::Measure(const BinnedImage& clean, const RigidMap& map) const {
  std::vector<Displacement> found;
  if (tiles_.empty()) return found;
  constexpr double kClear = 5.5;  // peaks of noise reach 4 to 5 in a tile
  const int bin = clean.bin;
  const double blockCentre = (bin - 1) / 2.0;
  const auto count = static_cast<std::size_t>(size_) * static_cast<std::size_t>(size_);
  std::vector<float> planes[2] = {std::vector<float>(count), std::vector<float>(count)};
  Spectrum spectra[2];
  PhaseCorrelator correlator(size_, size_);

  const auto load = [&](const Tile& tile, std::vector<float>& plane) {
    const Point first =
        map({tile.x * static_cast<double>(bin) + blockCentre, tile.y * static_cast<double>(bin) + blockCentre});
    const double startX = (first.x - blockCentre) / bin, startY = (first.y - blockCentre) / bin;
    const double c = map.Cosine(), s = map.Sine();
    for (int y = 0; y < size_; ++y) {
      for (int x = 0; x < size_; ++x) {
        const float v = Bilinear(clean, startX + c * x - s * y, startY + s * x + c * y);
        plane[static_cast<std::size_t>(y * size_ + x)] =
            v * window_[static_cast<std::size_t>(x)] * window_[static_cast<std::size_t>(y)];
      }
    }
  };
  const auto report = [&](const Tile& tile, int surface) {
    const std::vector<CorrelationPeak> peaks = correlator.Peaks(surface, 1, size_ / 2 - 2);
    if (peaks.empty() || peaks[0].height < kClear) return;
    const double middle = (size_ - 1) / 2.0, weight = peaks[0].height * peaks[0].height;
    Displacement d;
    d.at = {(tile.x + middle) * bin + blockCentre, (tile.y + middle) * bin + blockCentre};
    d.offset = map.Turn({peaks[0].x * bin, peaks[0].y * bin});
    d.xx = d.yy = weight;
    found.push_back(d);
  };
  for (std::size_t i = 0; i < tiles_.size(); i += 2) {
    const Tile& a = tiles_[i];
    const Tile& b = tiles_[std::min(i + 1, tiles_.size() - 1)];
    load(a, planes[0]);
    load(b, planes[1]);
    correlator.Transform(planes[0].data(), planes[1].data(), spectra[0], spectra[1]);
    correlator.Correlate(a.spectrum, spectra[0], b.spectrum, spectra[1]);
    report(a, 0);
    if (&a != &b) report(b, 1);
  }
  return found;
}

}  // namespace qmr
