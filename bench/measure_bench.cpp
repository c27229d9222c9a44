// Measures of a colour frame of 24 million pixels, on all threads.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/stacking/evaluate_focus.h"
#include "qmrimg/stacking/pixel_info.h"

namespace {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr int kPlanes = 3;

// A sky of 16-bit counts with noise.
template <class Image>
std::unique_ptr<Image> Frame() {
  auto image = std::make_unique<Image>();
  image->SetWidth(kWidth);
  image->SetHeight(kHeight);
  image->SetPlanes(kPlanes);
  image->SetBitsPixel(-32);
  image->AllocImage();
  qmr::ForRows(0, kHeight, [&](int y) {
    std::uint32_t state = static_cast<std::uint32_t>(y) * 2654435761u + 1u;
    for (int p = 0; p < kPlanes; ++p) {
      auto* row = static_cast<float*>(image->GetImageAdr(0, y, p, 0, 0, nullptr));
      for (int x = 0; x < kWidth; ++x) {
        float sum = 0.0f;
        for (int i = 0; i < 4; ++i) {
          state = state * 1664525u + 1013904223u;
          sum += static_cast<float>(state >> 25);
        }
        row[x] = 800.0f + sum;
      }
    }
  });
  return image;
}

CImgPixelInfo& Info() {
  static const std::unique_ptr<CImgPixelInfo> image = Frame<CImgPixelInfo>();
  return *image;
}

void SetPixels(benchmark::State& state, int passes) {
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight * kPlanes);
  state.SetBytesProcessed(state.iterations() * kWidth * kHeight * kPlanes * 4 * passes);
}

void PixelInfoCalc(benchmark::State& state, bool withMedian) {
  double max[3], min[3], mean[3], sd[3], median[3];
  for (auto _ : state) {
    Info().Calc(CRect(0, 0, kWidth, kHeight), max, min, mean, sd, withMedian ? median : nullptr);
    benchmark::DoNotOptimize(mean[2]);
  }
  SetPixels(state, withMedian ? 5 : 2);
}

void PixelInfoCalcSky(benchmark::State& state) {
  double max[3], min[3], mean[3], sd[3], median[3];
  for (auto _ : state) {
    Info().CalcSky(CRect(0, 0, kWidth, kHeight), 0.7, 0.7, max, min, mean, sd, median);
    benchmark::DoNotOptimize(mean[2]);
  }
  SetPixels(state, 1);
}

void PixelInfoCalcStar(benchmark::State& state) {
  double max[3], min[3], mean[3], sd[3], median[3], reserved[3], diameter[3];
  for (auto _ : state) {
    Info().CalcStar(3000, 2000, 15, 0.7, 0.7, max, min, mean, sd, median, reserved, diameter);
    benchmark::DoNotOptimize(diameter[2]);
  }
}

void EvaluateFocus(benchmark::State& state) {
  static const std::unique_ptr<CImgEvaluateFocus> image = Frame<CImgEvaluateFocus>();
  for (auto _ : state) benchmark::DoNotOptimize(image->Do(0));
  SetPixels(state, 1);
}

BENCHMARK_CAPTURE(PixelInfoCalc, , false)->Name("PixelInfo Calc")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(PixelInfoCalc, median, true)
    ->Name("PixelInfo Calc with median")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(PixelInfoCalcSky)->Name("PixelInfo CalcSky")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PixelInfoCalcStar)->Name("PixelInfo CalcStar")->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(EvaluateFocus)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
