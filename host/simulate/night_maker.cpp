#include "host/simulate/night_maker.h"

#include <omp.h>

#include <algorithm>
#include <cmath>

#include "host/simulate/portable_math.h"
#include "host/simulate/schedule.h"
#include "host/version.h"

namespace qmr::sim {

namespace {

// Towns make the sky a little orange; the lamp of the flats is no sun either. Both have a mean of about 1.
constexpr float SkyColour[3] = {1.08f, 1.0f, 0.92f};
constexpr float LampColour[3] = {0.95f, 1.15f, 0.90f};
constexpr double FlatLevel = 0.45;  // of the range of the sensor, without vignetting
constexpr int TruthStars = 500;

int ThreadCount(int asked) {
  return asked > 0 ? asked : std::max(1, omp_get_num_procs());
}

}  // namespace

double ExposureSeconds(const SimulateOptions& options, FrameKind kind) {
  switch (kind) {
    case FrameKind::Flat:
      return std::min(2.0, options.exposure);
    case FrameKind::Bias:
      return 0.0;
    default:
      return options.exposure;
  }
}

NightMaker::NightMaker(const SimulateOptions& options)
    : options_(options),
      threads_(ThreadCount(options.threads)),
      frames_(MakeSchedule(options)),
      scene_(options, threads_),
      detector_(options, threads_) {
  scratch_.resize(static_cast<std::size_t>(threads_) * (BandRows + 2) * options_.width);
}

// Calls band(firstRow, rows, memory) for all bands of rows; memory holds BandRows + 2 rows of the thread's own.
template <class Band>
void NightMaker::EachBand(const Band& band) {
  const int bands = (options_.height + BandRows - 1) / BandRows;
  const std::size_t each = static_cast<std::size_t>(BandRows + 2) * options_.width;
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads_)
  for (int b = 0; b < bands; ++b) {
    const int firstRow = b * BandRows;
    band(firstRow, std::min(BandRows, options_.height - firstRow), scratch_.data() + omp_get_thread_num() * each);
  }
}

void NightMaker::AddTrail(const TruthTrail& trail, int y, float* row) const {
  const double dx = trail.x1 - trail.x0;
  const double dy = trail.y1 - trail.y0;
  const double length = std::sqrt(dx * dx + dy * dy);
  if (!(length > 0.0)) return;
  // Distance from the line: normal . (position - start).
  const double normalX = -dy / length;
  const double normalY = dx / length;
  const double reach = 4.0 * trail.width;
  const double base = normalY * (y - trail.y0) - normalX * trail.x0;
  int left = 0;
  int right = options_.width - 1;
  if (std::abs(normalX) > 1e-6) {
    const double a = (-reach - base) / normalX;
    const double b = (reach - base) / normalX;
    left = static_cast<int>(std::clamp(std::min(a, b), 0.0, static_cast<double>(right)));
    right = static_cast<int>(std::clamp(std::max(a, b), 0.0, static_cast<double>(right)));
  } else if (std::abs(base) > reach) {
    return;
  }
  for (int x = left; x <= right; ++x) {
    const double d = (normalX * x + base) / trail.width;
    if (std::abs(d) <= 4.0) row[x] += static_cast<float>(trail.peak * Exp(-0.5 * d * d));
  }
}

void NightMaker::LightRows(const Scene::View& view, int firstRow, int rows, int colour, float* out) const {
  const TruthFrame& frame = view.frame;
  const int width = options_.width;
  std::fill_n(out, static_cast<std::size_t>(rows) * width, 0.0f);
  scene_.AddRows(view, firstRow, rows, colour, out);
  const auto transparency = static_cast<float>(frame.transparency);
  const auto slope = static_cast<float>(frame.sky * frame.gradientX / (width - 1));
  const int shift = ColourShift(options_.mosaic);
  for (int k = 0; k < rows; ++k) {
    const int y = firstRow + k;
    float* row = out + static_cast<std::size_t>(k) * width;
    const auto level = static_cast<float>(
        frame.sky * (1.0 - 0.5 * frame.gradientX + frame.gradientY * (y / (options_.height - 1.0) - 0.5)));
    float tint[2];
    for (int p = 0; p < 2; ++p) {
      const bool grey = options_.mosaic == SensorMosaic::Mono;
      tint[p] = grey ? 1.0f : SkyColour[colour >= 0 ? colour : MosaicColour(options_.mosaic, y, p << shift)];
    }
#pragma omp simd
    for (int x = 0; x < width; ++x) {
      const float sky = (level + slope * static_cast<float>(x)) * (((x >> shift) & 1) ? tint[1] : tint[0]);
      row[x] = row[x] * transparency + sky;
    }
    for (const TruthTrail& trail : frame.trails) AddTrail(trail, y, row);
  }
}

void NightMaker::MakeScene(int index, int colour, std::span<float> out) {
  const Scene::View view = scene_.See(frames_.at(static_cast<std::size_t>(index)));
  EachBand([&](int firstRow, int rows, float*) {
    LightRows(view, firstRow, rows, colour, out.data() + static_cast<std::size_t>(firstRow) * options_.width);
  });
}

void NightMaker::Make(FrameKind kind, int index, std::span<std::uint16_t> out) {
  const std::size_t width = static_cast<std::size_t>(options_.width);
  const auto seconds = static_cast<float>(ExposureSeconds(options_, kind));
  Stream stream = Stream::BiasNoise;
  std::vector<Deposit> deposits;
  float lamp[4][2] = {};
  const int shift = ColourShift(options_.mosaic);
  switch (kind) {
    case FrameKind::Light:
      stream = Stream::LightNoise;
      deposits = detector_.CosmicRays(index);
      break;
    case FrameKind::Dark:
      stream = Stream::DarkNoise;
      deposits = detector_.CosmicRays(100000 + index);
      break;
    case FrameKind::Flat: {
      stream = Stream::FlatNoise;
      // The lamp, or the dusk, is never twice the same.
      Draws draws(StreamKey(options_.seed, Stream::FlatNoise, static_cast<std::uint64_t>(index), 1u << 30));
      const double range = std::min(options_.fullWell, (65535.0 - options_.offset) * options_.gain);
      const double level = FlatLevel * range * draws.Uniform(0.94, 1.06);
      for (int p = 0; p < 8; ++p) {
        const bool grey = options_.mosaic == SensorMosaic::Mono;
        const int colour = MosaicColour(options_.mosaic, p >> 1, (p & 1) << shift);
        lamp[p >> 1][p & 1] = static_cast<float>(level * (grey ? 1.0f : LampColour[colour]));
      }
      break;
    }
    case FrameKind::Bias:
      break;
  }
  const bool light = kind == FrameKind::Light;
  Scene::View view;
  if (light) view = scene_.See(frames_.at(static_cast<std::size_t>(index)));
  EachBand([&](int firstRow, int rows, float* memory) {
    if (light) LightRows(view, firstRow, rows, -1, memory);
    const std::span<float> scratch(memory + BandRows * width, 2 * width);
    for (int k = 0; k < rows; ++k) {
      const int y = firstRow + k;
      float* mean = memory + static_cast<std::size_t>(k) * width;
      const float* response = detector_.Response(y).data();
      const float* dark = detector_.DarkCurrent(y).data();
      const float even = lamp[y & 3][0];
      const float odd = lamp[y & 3][1];
#pragma omp simd
      for (std::size_t x = 0; x < width; ++x) {
        const float falling = light ? mean[x] : (((x >> shift) & 1) ? odd : even);
        mean[x] = falling * response[x] + dark[x] * seconds;
      }
      const std::span<std::uint16_t> samples = out.subspan(static_cast<std::size_t>(y) * width, width);
      detector_.Expose(stream, index, y, {mean, width}, deposits, scratch, samples);
      if (options_.mosaic == SensorMosaic::HoneyComb)
        for (std::size_t x = HasPhotosite(options_.mosaic, y, 0) ? 1 : 0; x < width; x += 2) samples[x] = 0;
    }
  });
}

NightTruth NightMaker::Truth() const {
  NightTruth truth;
  truth.version = kVersion;
  truth.width = options_.width;
  truth.height = options_.height;
  truth.centreX = (options_.width - 1) / 2.0;
  truth.centreY = (options_.height - 1) / 2.0;
  truth.gain = options_.gain;
  truth.offset = options_.offset;
  truth.readNoise = options_.readNoise;
  truth.frames = frames_;
  for (const TruthStar& star : scene_.Stars()) {
    if (truth.stars.size() == TruthStars) break;
    if (star.x >= 0.0 && star.x <= options_.width - 1.0 && star.y >= 0.0 && star.y <= options_.height - 1.0) {
      truth.stars.push_back(star);
    }
  }
  truth.hotPixels = detector_.HotPixels();
  truth.coolPixels = detector_.CoolPixels();
  for (std::vector<TruthPixel>* pixels : {&truth.hotPixels, &truth.coolPixels})
    std::erase_if(*pixels, [&](const TruthPixel& p) { return !HasPhotosite(options_.mosaic, p.y, p.x); });
  return truth;
}

}  // namespace qmr::sim
