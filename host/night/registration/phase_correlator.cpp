#include "host/night/registration/phase_correlator.h"

#include <algorithm>
#include <cmath>

namespace qmr {

namespace {

// conj(a) b over (its magnitude + the mean magnitude).
void CrossSpectrum(const Spectrum& a, const Spectrum& b, Spectrum& cross) {
  double sum = 0.0;
  for (std::size_t i = 0; i < cross.size(); ++i) {
    const float re = a[i].re * b[i].re + a[i].im * b[i].im, im = a[i].re * b[i].im - a[i].im * b[i].re;
    cross[i] = {re, im};
    sum += std::sqrt(re * re + im * im);
  }
  const float mean = static_cast<float>(sum / static_cast<double>(cross.size()));
  for (dcomplex& z : cross) {
    const float magnitude = std::sqrt(z.re * z.re + z.im * z.im) + mean;
    const float k = magnitude > 0.0f ? 1.0f / magnitude : 0.0f;
    z = {z.re * k, z.im * k};
  }
}

// Offset of the top of a parabola through three values, the middle one the highest.
double Vertex(double left, double middle, double right) {
  const double curve = left - 2.0 * middle + right;
  return curve < 0.0 ? std::clamp(0.5 * (left - right) / curve, -0.5, 0.5) : 0.0;
}

}  // namespace

PhaseCorrelator::PhaseCorrelator(int width, int height)
    : width_(width), height_(height), count_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
  if (!engine_.Create(width, height)) AfxThrowMemoryException();
  for (Spectrum& cross : cross_) cross.resize(count_);
}

void PhaseCorrelator::Transform(const float* first, const float* second, Spectrum& firstSpectrum,
                                Spectrum& secondSpectrum) {
  dcomplex* z = engine_.GetImageAdrA();
  for (std::size_t i = 0; i < count_; ++i) z[i] = {first[i], second ? second[i] : 0.0f};
  engine_.Do(0, 0);
  if (!second) {
    firstSpectrum.assign(z, z + count_);
    secondSpectrum.clear();
    return;
  }
  firstSpectrum.resize(count_);
  secondSpectrum.resize(count_);
  const auto width = static_cast<std::size_t>(width_);
  for (int y = 0; y < height_; ++y) {
    const std::size_t row = static_cast<std::size_t>(y) * width;
    const std::size_t mirrored = static_cast<std::size_t>((height_ - y) & (height_ - 1)) * width;
    for (int x = 0; x < width_; ++x) {
      const dcomplex p = z[row + static_cast<std::size_t>(x)];
      const dcomplex q = z[mirrored + static_cast<std::size_t>((width_ - x) & (width_ - 1))];
      firstSpectrum[row + static_cast<std::size_t>(x)] = {0.5f * (p.re + q.re), 0.5f * (p.im - q.im)};
      secondSpectrum[row + static_cast<std::size_t>(x)] = {0.5f * (p.im + q.im), 0.5f * (q.re - p.re)};
    }
  }
}

void PhaseCorrelator::Correlate(const Spectrum& a, const Spectrum& b, const Spectrum& c, const Spectrum& d) {
  CrossSpectrum(a, b, cross_[0]);
  CrossSpectrum(c, d, cross_[1]);
  dcomplex* z = engine_.GetImageAdrA();
  for (std::size_t i = 0; i < count_; ++i) {
    z[i] = {cross_[0][i].re - cross_[1][i].im, cross_[0][i].im + cross_[1][i].re};
  }
  engine_.Do(1, 0);
}

std::vector<CorrelationPeak> PhaseCorrelator::Peaks(int surface, int count, int reach) const {
  constexpr int kApart = 3;
  const int reachX = reach > 0 ? std::min(reach, width_ / 2 - 1) : width_ / 2 - 1;
  const int reachY = reach > 0 ? std::min(reach, height_ / 2 - 1) : height_ / 2 - 1;
  double squares = 0.0;
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) squares += static_cast<double>(At(surface, x, y)) * At(surface, x, y);
  }
  const double scatter = std::sqrt(squares / (static_cast<double>(width_) * height_));
  std::vector<CorrelationPeak> peaks;
  if (!(scatter > 0.0)) return peaks;
  struct Place {
    int x, y;
  };
  std::vector<Place> taken;
  for (int n = 0; n < count; ++n) {
    float best = 0.0f;
    Place place{0, 0};
    for (int y = -reachY; y <= reachY; ++y) {
      for (int x = -reachX; x <= reachX; ++x) {
        const float v = At(surface, x, y);
        if (!(v > best)) continue;
        const bool near = std::any_of(taken.begin(), taken.end(), [&](Place t) {
          return std::abs(t.x - x) <= kApart && std::abs(t.y - y) <= kApart;
        });
        if (near) continue;
        best = v;
        place = {x, y};
      }
    }
    if (!(best > 0.0f)) break;
    taken.push_back(place);
    peaks.push_back({place.x + Vertex(At(surface, place.x - 1, place.y), best, At(surface, place.x + 1, place.y)),
                     place.y + Vertex(At(surface, place.x, place.y - 1), best, At(surface, place.x, place.y + 1)),
                     best / scatter});
  }
  return peaks;
}

}  // namespace qmr
