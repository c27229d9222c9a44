// Development of Bayer and honeycomb mosaics, and calibration, 24 million pixels.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qmrimg/image/vyn_image.h"
#include "qmrimg/raw/bayer_to_rgb.h"
#include "qmrimg/raw/honeycomb_to_rgb.h"

namespace {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;

// Cheap noise around a level.
void FillFrame(CVynImage& image, std::uint32_t seed, float level, float spread) {
  for (int y = 0; y < kHeight; ++y) {
    auto* const row = static_cast<float*>(image.GetImageAdr(0, y, 0, 0, 0, nullptr));
    for (int x = 0; x < kWidth; ++x) {
      seed = seed * 1664525u + 1013904223u;
      row[x] = level + spread * static_cast<float>(seed >> 8) / 16777216.0f;
    }
  }
}

void DevelopBayer(benchmark::State& state) {
  const bool isCalibrated = state.range(0) == 0;
  CVynImage mosaic(-32, kWidth, kHeight, 1, 1.0, 0.0, 1);
  FillFrame(mosaic, 1, 1000.0f, 3000.0f);
  double gains[4] = {1.8, 1.0, 1.0, 1.4};
  tagBayerStruct bayer{};
  bayer.pattern = 1;
  bayer.srcBits = isCalibrated ? -32 : 14;
  bayer.dstBits = isCalibrated ? -32 : 16;
  bayer.leftMargin = bayer.topMargin = bayer.rightMargin = bayer.bottomMargin = 3;
  bayer.useGain = bayer.useKnee = bayer.clip = !isCalibrated;
  bayer.gains = gains;
  for (auto _ : state) {
    state.PauseTiming();
    CImgBayerToRgb image;
    image.CopyImage(mosaic);
    state.ResumeTiming();
    if (!image.Do(bayer, 0)) state.SkipWithError("no development");
    state.PauseTiming();
    image.Empty();
    state.ResumeTiming();
  }
  state.counters["pixels"] =
      benchmark::Counter(static_cast<double>(kPixels), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(DevelopBayer)->ArgName("gains")->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);

void DevelopHoneycomb(benchmark::State& state) {
  CVynImage mosaic(-32, kWidth, kHeight, 1, 1.0, 0.0, 1);
  FillFrame(mosaic, 1, 1000.0f, 3000.0f);
  double gains[8] = {1.4, 1.0, 1.8, 1.0, 1.8, 1.0, 1.4, 1.0};
  tagHoneyCombStruct honeycomb{};
  honeycomb.pattern = 11;
  honeycomb.interpolation = static_cast<BYTE>(state.range(0));
  honeycomb.srcBits = state.range(1) ? 12 : -32;
  honeycomb.dstBits = state.range(1) ? 16 : -32;
  honeycomb.leftMargin = honeycomb.topMargin = honeycomb.rightMargin = honeycomb.bottomMargin = 4;
  honeycomb.useGain = honeycomb.useKnee = honeycomb.clip = state.range(1) != 0;
  honeycomb.gains = gains;
  for (auto _ : state) {
    state.PauseTiming();
    CImgHoneyCombToRgb image;
    image.CopyImage(mosaic);
    state.ResumeTiming();
    if (!image.Do(honeycomb, 0)) state.SkipWithError("no development");
    state.PauseTiming();
    image.Empty();
    state.ResumeTiming();
  }
  state.counters["pixels"] =
      benchmark::Counter(static_cast<double>(kPixels), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(DevelopHoneycomb)
    ->ArgNames({"pairs", "gains"})
    ->ArgsProduct({{1, 2, 3}, {0, 1}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void DarkAndFlat(benchmark::State& state) {
  CVynImage light(-32, kWidth, kHeight, 1, 1.0, 0.0, 1);
  CVynImage dark(light);
  CVynImage flat(light);
  CVynImage result(light);
  FillFrame(light, 1, 1000.0f, 3000.0f);
  FillFrame(dark, 2, 100.0f, 20.0f);
  FillFrame(flat, 3, 20000.0f, 2000.0f);
  float min = 20000.0f;
  float max = 22000.0f;
  float average = 21000.0f;
  for (auto _ : state) result.DarkFlat(&light, &dark, &flat, &min, &max, &average, 0.0f, 0.0, nullptr, 0);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kPixels * 4 * sizeof(float)));
}
BENCHMARK(DarkAndFlat)->UseRealTime()->Unit(benchmark::kMillisecond);

// The yardstick: a = b + s * c on arrays of the same size.
void Triad(benchmark::State& state) {
  CVynImage images(-32, kWidth, kHeight, 3, 1.0, 0.0, 1);
  for (auto _ : state) {
#pragma omp parallel for schedule(static)
    for (int y = 0; y < kHeight; ++y) {
      auto* const a = static_cast<float*>(images.GetImageAdr(0, y, 0, 0, 0, nullptr));
      const auto* const b = static_cast<const float*>(images.GetImageAdr(0, y, 1, 1, 0, nullptr));
      const auto* const c = static_cast<const float*>(images.GetImageAdr(0, y, 2, 1, 0, nullptr));
#pragma omp simd
      for (int x = 0; x < kWidth; ++x) a[x] = b[x] + 3.0f * c[x];
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kPixels * 3 * sizeof(float)));
}
BENCHMARK(Triad)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
