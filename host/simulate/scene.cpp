#include "host/simulate/scene.h"

#include <algorithm>
#include <cmath>

#include "host/simulate/portable_math.h"
#include "host/simulate/random.h"

namespace qmr::sim {

namespace {

constexpr double GridStep = 4.0;
constexpr double StarMargin = 40.0;      // stars this far outside may still shine in
constexpr double FaintestFlux = 110.0;   // electrons
constexpr double BrightestFlux = 1.6e6;  // electrons
constexpr double CountSlope = 0.72;      // the number of stars above a flux falls as flux to minus this
constexpr double ProfileEnd = 0.05;      // electrons at which a star's disc is cut off

// Photons of a black body at three wavelengths, as a sensor balanced for daylight sees them; their mean is 1.
void StarColour(double kelvin, double colour[3]) {
  constexpr double wavelength[3] = {0.61, 0.535, 0.46};  // micrometres
  double sum = 0.0;
  for (int c = 0; c < 3; ++c) {
    const double scale = 14387.8 / wavelength[c];
    colour[c] = (Exp(scale / 6200.0) - 1.0) / (Exp(scale / kelvin) - 1.0);
    sum += colour[c];
  }
  for (int c = 0; c < 3; ++c) colour[c] *= 3.0 / sum;
}

void SplineWeights(float f, float w[4]) {
  const float g = 1.0f - f;
  w[0] = g * g * g * (1.0f / 6.0f);
  w[1] = (2.0f / 3.0f) - f * f * (1.0f - 0.5f * f);
  w[2] = (2.0f / 3.0f) - g * g * (1.0f - 0.5f * g);
  w[3] = f * f * f * (1.0f / 6.0f);
}

}  // namespace

Scene::Scene(const SimulateOptions& options, int threads) : options_(options), shape_(options.seed) {
  MakeArea();
  MakeNebula(threads);
  MakeStars(threads);
}

void Scene::MakeArea() {
  const double w = options_.width;
  const double h = options_.height;
  centreX_ = (w - 1.0) / 2.0;
  centreY_ = (h - 1.0) / 2.0;
  // By the limits of the options and not by the frames, so that the scene doesn't change with their number.
  const double limit = std::min(options_.rotationDegrees, 90.0);
  for (int k = 0; k <= 90; ++k) {
    const SineCosine turn = SinCosDegrees(limit * k / 90.0);
    halfWidth_ = std::max(halfWidth_, (w * turn.cosine + h * turn.sine) / 2.0);
    halfHeight_ = std::max(halfHeight_, (h * turn.cosine + w * turn.sine) / 2.0);
  }
  const double drift = options_.driftPixels * std::sqrt(2.0) + 2.0;
  halfWidth_ += drift;
  halfHeight_ += drift;
}

void Scene::MakeNebula(int threads) {
  if (options_.nebula <= 0.0) return;
  gridWidth_ = static_cast<int>(2.0 * halfWidth_ / GridStep) + 5;
  gridHeight_ = static_cast<int>(2.0 * halfHeight_ / GridStep) + 5;
  const std::size_t count = static_cast<std::size_t>(gridWidth_) * gridHeight_;
  const double unit = std::min(options_.width, options_.height);
  std::vector<Rgb> light(count);
#pragma omp parallel for schedule(dynamic, 4) num_threads(threads)
  for (int j = 0; j < gridHeight_; ++j) {
    for (int i = 0; i < gridWidth_; ++i) {
      const double x = (i - 1) * GridStep - halfWidth_;
      const double y = (j - 1) * GridStep - halfHeight_;
      light[static_cast<std::size_t>(j) * gridWidth_ + i] = shape_.Light(x / unit, y / unit);
    }
  }
  // Scaled so that one part in a hundred is brighter than the asked value.
  std::vector<float> mean(count);
  for (std::size_t k = 0; k < count; ++k) mean[k] = (light[k].red + light[k].green + light[k].blue) / 3.0f;
  std::vector<float> sorted = mean;
  const auto bright = sorted.begin() + static_cast<std::ptrdiff_t>(count - 1 - count / 100);
  std::nth_element(sorted.begin(), bright, sorted.end());
  const float scale = static_cast<float>(options_.nebula) / std::max(*bright, 1e-9f);
  grid_.assign(options_.mosaic == SensorMosaic::Mono ? 1 : 3, std::vector<float>(count));
  for (std::size_t k = 0; k < count; ++k) {
    if (grid_.size() == 1) {
      grid_[0][k] = scale * mean[k];
    } else {
      grid_[0][k] = scale * light[k].red;
      grid_[1][k] = scale * light[k].green;
      grid_[2][k] = scale * light[k].blue;
    }
  }
}

void Scene::MakeStars(int threads) {
  const double fieldX = halfWidth_ + StarMargin;
  const double fieldY = halfHeight_ + StarMargin;
  const double unit = std::min(options_.width, options_.height);
  const auto field = static_cast<int>(options_.stars * 4.0 * fieldX * fieldY / 1e6 + 0.5);
  // A young cluster in the nebula: few stars, but bright and blue.
  const int cluster = options_.nebula > 0.0 ? std::min(field / 50, 40) : 0;
  stars_.resize(static_cast<std::size_t>(field) + cluster);
  const double spread = Power(BrightestFlux / FaintestFlux, -CountSlope);
#pragma omp parallel for schedule(static) num_threads(threads)
  for (int k = 0; k < field + cluster; ++k) {
    Draws draws(StreamKey(options_.seed, Stream::Stars, static_cast<std::uint64_t>(k)));
    TruthStar& star = stars_[k];
    double kelvin = 0.0;
    if (k < field) {
      star.x = draws.Uniform(-fieldX, fieldX);
      star.y = draws.Uniform(-fieldY, fieldY);
      // Inverse of the cut power law.
      star.flux = FaintestFlux * Power(1.0 - (1.0 - spread) * draws.Uniform(), -1.0 / CountSlope);
      kelvin = std::clamp(6100.0 * Exp(0.34 * draws.Normal()), 2900.0, 22000.0);
      // Red giants are few among the faint and many among the bright.
      if (draws.Uniform() < 0.08 * std::min(2.0, Power(star.flux / 3000.0, 0.2)))
        kelvin = draws.Uniform(3000.0, 4300.0);
    } else {
      const double radius = 0.035 * unit * std::sqrt(draws.Exponential());
      const SineCosine turn = SinCosDegrees(draws.Uniform(0.0, 360.0));
      star.x = shape_.ClusterX() * unit + radius * turn.cosine;
      star.y = shape_.ClusterY() * unit + radius * turn.sine;
      star.flux = std::min(4000.0 * Power(draws.Uniform(), -0.9), 3e5);
      kelvin = draws.Uniform(11000.0, 25000.0);
    }
    StarColour(kelvin, star.colour);
    if (options_.nebula > 0.0) {
      // The dust dims and reddens what lies behind it; the cluster and half of the field lie before it.
      const Rgb passing = shape_.Passing(star.x / unit, star.y / unit);
      if (k < field && draws.Uniform() < 0.6) {
        star.colour[0] *= passing.red;
        star.colour[1] *= passing.green;
        star.colour[2] *= passing.blue;
        const double left = (star.colour[0] + star.colour[1] + star.colour[2]) / 3.0;
        for (double& c : star.colour) c /= left;
        star.flux *= left;
      }
    }
    star.x = std::round((star.x + centreX_) * 1e4) / 1e4;
    star.y = std::round((star.y + centreY_) * 1e4) / 1e4;
    star.flux = std::round(star.flux * 1e2) / 1e2;
    for (double& c : star.colour) c = std::round(c * 1e4) / 1e4;
  }
  std::stable_sort(stars_.begin(), stars_.end(),
                   [](const TruthStar& a, const TruthStar& b) { return a.flux > b.flux; });
}

Scene::View Scene::See(const TruthFrame& frame) const {
  const bool moffat = options_.profile == StarProfile::Moffat;
  // Moffat of beta 3: peak 2 / (pi alpha^2), alpha = fwhm / 2 / sqrt(2^(1/3) - 1). Gaussian: peak 1 / (2 pi sigma^2).
  const double scale = frame.fwhm * frame.fwhm / (moffat ? 4.0 * 0.2599210498948732 : 5.545177444479562);
  View view{frame, scale, {}};
  view.images.reserve(stars_.size());
  const SineCosine turn = SinCosDegrees(frame.theta);
  for (const TruthStar& star : stars_) {
    const double rx = star.x - centreX_;
    const double ry = star.y - centreY_;
    Image image;
    image.x = turn.cosine * rx - turn.sine * ry + centreX_ + frame.dx;
    image.y = turn.sine * rx + turn.cosine * ry + centreY_ + frame.dy;
    image.peak = star.flux * (moffat ? 2.0 : 0.5) / (Pi * scale);
    image.colour = star.colour;
    const double tallest = image.peak * std::max({star.colour[0], star.colour[1], star.colour[2], 1.0}) / ProfileEnd;
    if (!(tallest > 1.0)) continue;
    image.reach2 = moffat ? scale * (Power(tallest, 1.0 / 3.0) - 1.0) : 2.0 * scale * Log(tallest);
    const double reach = std::sqrt(image.reach2);
    if (image.x + reach < 0.0 || image.x - reach > options_.width - 1.0) continue;
    if (image.y + reach < 0.0 || image.y - reach > options_.height - 1.0) continue;
    view.images.push_back(image);
  }
  return view;
}

void Scene::AddRows(const View& view, int firstRow, int rows, int colour, float* out) const {
  if (!grid_.empty()) {
    for (int y = 0; y < rows; ++y) {
      AddNebulaRow(view.frame, firstRow + y, colour, out + static_cast<std::size_t>(y) * options_.width);
    }
  }
  const double first = firstRow;
  const double last = firstRow + rows - 1.0;
  for (const Image& image : view.images) {
    const double outside = image.y < first ? first - image.y : (image.y > last ? image.y - last : 0.0);
    if (outside * outside <= image.reach2) AddStar(view, image, firstRow, rows, colour, out);
  }
}

void Scene::AddStar(const View& view, const Image& image, int firstRow, int rows, int colour, float* out) const {
  const bool moffat = options_.profile == StarProfile::Moffat;
  const double x = image.x;
  const double y = image.y;
  const double peak = image.peak;
  const double scale = view.scale;
  const double reach2 = image.reach2;
  const double reach = std::sqrt(reach2);
  const int width = options_.width;
  const int shift = ColourShift(options_.mosaic);
  const int top = std::max(firstRow, static_cast<int>(std::ceil(std::max(y - reach, -1.0))));
  const int bottom = std::min(firstRow + rows - 1, static_cast<int>(std::floor(std::min(y + reach, 1e6))));
  for (int row = top; row <= bottom; ++row) {
    const double dy2 = (row - y) * (row - y);
    if (dy2 > reach2) continue;
    const double half = std::sqrt(reach2 - dy2);
    const int left = std::max(0, static_cast<int>(std::ceil(std::max(x - half, 0.0))));
    const int right = static_cast<int>(std::floor(std::min(x + half, width - 1.0)));
    float tint[2];
    for (int p = 0; p < 2; ++p) {
      const int site = colour >= 0 ? colour : MosaicColour(options_.mosaic, row, p << shift);
      const bool grey = colour < 0 && options_.mosaic == SensorMosaic::Mono;
      tint[p] = static_cast<float>(peak * (grey ? 1.0 : image.colour[site]));
    }
    float* line = out + static_cast<std::size_t>(row - firstRow) * width;
    if (moffat) {
      const auto inverse = static_cast<float>(1.0 / scale);
      const auto base = static_cast<float>(1.0 + dy2 / scale);
      // Offsets in float from the whole part of x keep their precision far from column 0.
      const auto whole = static_cast<int>(std::floor(x));
      const auto part = static_cast<float>(x - whole);
#pragma omp simd
      for (int i = left; i <= right; ++i) {
        const float d = static_cast<float>(i - whole) - part;
        const float s = base + d * d * inverse;
        line[i] += (((i >> shift) & 1) ? tint[1] : tint[0]) / (s * s * s);
      }
    } else {
      for (int i = left; i <= right; ++i) {
        const double d = i - x;
        line[i] += static_cast<float>(tint[(i >> shift) & 1] * Exp(-0.5 * (d * d + dy2) / scale));
      }
    }
  }
}

void Scene::AddNebulaRow(const TruthFrame& frame, int y, int colour, float* out) const {
  const SineCosine turn = SinCosDegrees(frame.theta);
  // Back to the reference plane, in grid cells: R(-theta) (q - c - d) + c.
  const double qy = y - centreY_ - frame.dy;
  const double startX = turn.sine * qy;
  const double startY = turn.cosine * qy;
  const int shift = ColourShift(options_.mosaic);
  const float* plane[2];
  for (int p = 0; p < 2; ++p) {
    const int site = colour >= 0 ? colour : MosaicColour(options_.mosaic, y, p << shift);
    plane[p] = grid_[grid_.size() == 1 ? 0 : static_cast<std::size_t>(site)].data();
  }
  const std::size_t stride = static_cast<std::size_t>(gridWidth_);
  for (int x = 0; x < options_.width; ++x) {
    const double qx = x - centreX_ - frame.dx;
    const double u = (turn.cosine * qx + startX + halfWidth_) / GridStep + 1.0;
    const double v = (startY - turn.sine * qx + halfHeight_) / GridStep + 1.0;
    // The area is large enough for every frame; the clamps only guard against the last rounding.
    const int iu = std::clamp(static_cast<int>(u), 1, gridWidth_ - 3);
    const int iv = std::clamp(static_cast<int>(v), 1, gridHeight_ - 3);
    float wu[4];
    float wv[4];
    SplineWeights(static_cast<float>(u - iu), wu);
    SplineWeights(static_cast<float>(v - iv), wv);
    const float* cell = plane[(x >> shift) & 1] + static_cast<std::size_t>(iv - 1) * stride + (iu - 1);
    float sum = 0.0f;
    for (int k = 0; k < 4; ++k) {
      const float* c = cell + static_cast<std::size_t>(k) * stride;
      sum += wv[k] * (wu[0] * c[0] + wu[1] * c[1] + wu[2] * c[2] + wu[3] * c[3]);
    }
    out[x] += sum;
  }
}

}  // namespace qmr::sim
