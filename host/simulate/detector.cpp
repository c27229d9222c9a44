#include "host/simulate/detector.h"

#include <algorithm>
#include <cmath>

#include "host/simulate/portable_math.h"

namespace qmr::sim {

namespace {

constexpr double PixelSpread = 0.004;  // relative scatter of the pixels' response
constexpr double ColumnSpread = 0.7;   // data units, fixed offsets of the columns
constexpr double HotMean = 20.0;       // electrons per second above the dark current
constexpr double HotLimit = 240.0;
constexpr double CosmicMean = 2500.0;  // electrons a pixel of a track

}  // namespace

Detector::Detector(const SimulateOptions& options, int threads)
    : options_(options), width_(options.width), height_(options.height) {
  const std::size_t count = static_cast<std::size_t>(width_) * height_;
  response_.resize(count);
  dark_.resize(count);
  columnOffset_.resize(static_cast<std::size_t>(width_));
  for (int x = 0; x < width_; ++x) {
    Draws draws(StreamKey(options_.seed, Stream::ColumnOffset, 0, static_cast<std::uint64_t>(x)));
    // A camera without offset has nothing to hide a negative column in.
    const double ripple = options_.offset > 10.0 ? ColumnSpread * draws.Normal() : 0.0;
    columnOffset_[x] = static_cast<float>(options_.offset + ripple);
  }
  MakeResponse(threads);
  MakeDarkCurrent(threads);
}

std::vector<TruthPixel> Detector::Defects(Stream stream, double perMegapixel) const {
  const auto count = static_cast<int>(perMegapixel * width_ * height_ / 1e6 + 0.5);
  std::vector<TruthPixel> pixels;
  pixels.reserve(static_cast<std::size_t>(count));
  for (int k = 0; k < count; ++k) {
    Draws draws(StreamKey(options_.seed, stream, static_cast<std::uint64_t>(k)));
    const int x = draws.Below(width_);
    const int y = draws.Below(height_);
    const double value =
        stream == Stream::HotPixels ? std::min(1.0 + HotMean * draws.Exponential(), HotLimit) : draws.Uniform(0.2, 0.8);
    pixels.push_back({x, y, std::round(value * 1e3) / 1e3});
  }
  std::stable_sort(pixels.begin(), pixels.end(),
                   [](const TruthPixel& a, const TruthPixel& b) { return a.y != b.y ? a.y < b.y : a.x < b.x; });
  const auto same = [](const TruthPixel& a, const TruthPixel& b) { return a.x == b.x && a.y == b.y; };
  pixels.erase(std::unique(pixels.begin(), pixels.end(), same), pixels.end());
  return pixels;
}

void Detector::MakeResponse(int threads) {
  struct Shadow {
    double x, y, radius, depth;
  };
  std::vector<Shadow> shadows;
  for (int k = 0; k < options_.dust; ++k) {
    Draws draws(StreamKey(options_.seed, Stream::Dust, static_cast<std::uint64_t>(k)));
    const double x = draws.Uniform(0.0, width_);
    const double y = draws.Uniform(0.0, height_);
    const double radius = draws.Uniform(10.0, 34.0);
    shadows.push_back({x, y, radius, draws.Uniform(0.02, 0.09)});
  }
  // The optical axis misses the middle a little. In the corners the light has fallen by the asked part.
  const double axisX = (width_ - 1) * 0.51;
  const double axisY = (height_ - 1) * 0.485;
  const double corner2 = (width_ * static_cast<double>(width_) + height_ * static_cast<double>(height_)) / 4.0;
  const double slope = (1.0 / std::sqrt(1.0 - options_.vignetting) - 1.0) / corner2;
#pragma omp parallel for schedule(static) num_threads(threads)
  for (int y = 0; y < height_; ++y) {
    float* row = response_.data() + static_cast<std::size_t>(y) * width_;
    float* dark = dark_.data() + static_cast<std::size_t>(y) * width_;  // not in use yet: takes the unused half
    const std::span<float> scatter(row, static_cast<std::size_t>(width_));
    NormalRow(StreamKey(options_.seed, Stream::Response, 0, static_cast<std::uint64_t>(y)), scatter,
              {dark, static_cast<std::size_t>(width_)});
    for (int x = 0; x < width_; ++x) {
      const double r2 = (x - axisX) * (x - axisX) + (y - axisY) * (y - axisY);
      const double fall = 1.0 + slope * r2;
      row[x] = static_cast<float>((1.0 + PixelSpread * row[x]) / (fall * fall));
    }
    // Out-of-focus dust: a shallow disc with a darker rim.
    for (const Shadow& shadow : shadows) {
      const double reach = shadow.radius * 1.6;
      if (std::abs(y - shadow.y) > reach) continue;
      const int left = std::max(0, static_cast<int>(shadow.x - reach));
      const int right = std::min(width_ - 1, static_cast<int>(shadow.x + reach));
      for (int x = left; x <= right; ++x) {
        const double d = std::sqrt((x - shadow.x) * (x - shadow.x) + (y - shadow.y) * (y - shadow.y)) / shadow.radius;
        const double rim = (d - 0.9) / 0.2;
        const double disc = 1.0 / (1.0 + Exp((d - 1.0) * 25.0));
        row[x] *= static_cast<float>(1.0 - shadow.depth * (Exp(-rim * rim) + 0.35 * disc) / 1.35);
      }
    }
  }
  cool_ = Defects(Stream::CoolPixels, options_.coolPixels);
  for (const TruthPixel& pixel : cool_) {
    response_[static_cast<std::size_t>(pixel.y) * width_ + pixel.x] *= static_cast<float>(pixel.value);
  }
}

void Detector::MakeDarkCurrent(int threads) {
  // The amplifier sits at the upper right; its glow has fallen to 1 / e within an eighth of the shorter side.
  const double length = std::min(width_, height_) / 8.0;
#pragma omp parallel for schedule(static) num_threads(threads)
  for (int y = 0; y < height_; ++y) {
    float* row = dark_.data() + static_cast<std::size_t>(y) * width_;
    for (int x = 0; x < width_; ++x) {
      const double dx = width_ - 1 - x;
      const double distance = std::sqrt(dx * dx + static_cast<double>(y) * y);
      row[x] = static_cast<float>(options_.darkCurrent + options_.ampGlow * Exp(-distance / length));
    }
  }
  hot_ = Defects(Stream::HotPixels, options_.hotPixels);
  for (const TruthPixel& pixel : hot_) {
    dark_[static_cast<std::size_t>(pixel.y) * width_ + pixel.x] += static_cast<float>(pixel.value);
  }
}

std::vector<Deposit> Detector::CosmicRays(int exposure) const {
  std::vector<Deposit> deposits;
  const double mean = options_.cosmicRays * width_ * height_ / 1e6;
  Draws number(StreamKey(options_.seed, Stream::CosmicRays, static_cast<std::uint64_t>(exposure)));
  const auto count = static_cast<int>(std::max(0.0, mean + std::sqrt(mean) * number.Normal() + 0.5));
  for (int k = 0; k < count; ++k) {
    Draws draws(StreamKey(options_.seed, Stream::CosmicRays, static_cast<std::uint64_t>(exposure),
                          static_cast<std::uint64_t>(k) + 1));
    const double x = draws.Uniform(0.0, width_);
    const double y = draws.Uniform(0.0, height_);
    const SineCosine direction = SinCosDegrees(draws.Uniform(0.0, 360.0));
    const int length = 1 + std::min(24, static_cast<int>(2.0 * draws.Exponential()));
    const double strength = 200.0 + CosmicMean * draws.Exponential();
    for (int s = 0; s < length; ++s) {
      const auto px = static_cast<int>(std::floor(x + s * direction.cosine));
      const auto py = static_cast<int>(std::floor(y + s * direction.sine));
      const auto electrons = static_cast<float>(strength * draws.Uniform(0.5, 1.0));
      if (px >= 0 && px < width_ && py >= 0 && py < height_) deposits.push_back({px, py, electrons});
    }
  }
  std::stable_sort(deposits.begin(), deposits.end(), [](const Deposit& a, const Deposit& b) { return a.y < b.y; });
  return deposits;
}

void Detector::Expose(Stream stream, int frame, int y, std::span<float> mean, std::span<const Deposit> deposits,
                      std::span<float> scratch, std::span<std::uint16_t> out) const {
  const std::size_t width = static_cast<std::size_t>(width_);
  const std::span<float> photon = scratch.first(width);
  const std::span<float> read = scratch.subspan(width, width);
  const std::uint64_t key =
      StreamKey(options_.seed, stream, static_cast<std::uint64_t>(frame), static_cast<std::uint64_t>(y));
  NormalRow(key, photon, read);
  PoissonRow(key, photon, mean.first(width));
  const auto first = std::lower_bound(deposits.begin(), deposits.end(), y,
                                      [](const Deposit& deposit, int row) { return deposit.y < row; });
  for (auto it = first; it != deposits.end() && it->y == y; ++it)
    mean[static_cast<std::size_t>(it->x)] += it->electrons;
  const auto fullWell = static_cast<float>(options_.fullWell);
  const auto readNoise = static_cast<float>(options_.readNoise);
  const auto perElectron = static_cast<float>(1.0 / options_.gain);
  const float* electrons = mean.data();
  const float* noise = read.data();
  const float* offset = columnOffset_.data();
  std::uint16_t* data = out.data();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float held = electrons[x] < fullWell ? electrons[x] : fullWell;
    const float units = (held + readNoise * noise[x]) * perElectron + offset[x] + 0.5f;
    const float limited = units > 0.0f ? (units < 65535.0f ? units : 65535.0f) : 0.0f;
    data[x] = static_cast<std::uint16_t>(static_cast<std::int32_t>(limited));
  }
}

}  // namespace qmr::sim
