// Corrective filters on a frame of 3 x 6000 x 4000 pixels; those of undeveloped frames on one plane.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "bench/bench_frame.h"
#include "qmrimg/filters/filter_misc.h"

namespace {

using namespace qmr_bench;

using Images = Frames<CImgFilterMisc>;

// A sky of 2000 with noise of 1 in 16, and a hot pixel in a thousand.
void FillSky(CVynImage& image) {
  std::uint32_t state = 7;
  for (int y = 0; y < kHeight; ++y) {
    auto* row = static_cast<float*>(image.GetImageAdr(0, y, 0, 0, 0, nullptr));
    for (int x = 0; x < kWidth; ++x) {
      state = state * 1664525u + 1013904223u;
      row[x] = static_cast<float>(2000 + (state >> 25)) * (state % 1000 == 0 ? 8.0f : 1.0f);
    }
  }
}

void CfaNoiseCut(benchmark::State& state) {
  Images images(1);
  FillSky(images.source);
  for (auto _ : state)
    images.result.CFANoiseCut(static_cast<int>(state.range(0)), 1, 0.3, 1, 0.3, &images.source, nullptr, 0);
  state.SetItemsProcessed(std::int64_t{kWidth} * kHeight * state.iterations());
}
BENCHMARK(CfaNoiseCut)->Arg(1)->Arg(11)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BackgroundSmooth(benchmark::State& state) {
  Images images;
  double level[3] = {40000.0, 40000.0, 40000.0};
  double buffer[3] = {40.0, 40.0, 40.0};
  double sigma[3] = {5.0, 5.0, 5.0};
  for (auto _ : state) {
    images.result.ClearFilterProc();
    images.result.BkgSmooth(level, buffer, 0, sigma, 0.0, &images.source, nullptr, 0);
  }
  Report(state);
}
BENCHMARK(BackgroundSmooth)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void FalseColour(benchmark::State& state) {
  Images images;
  for (auto _ : state) images.result.FalseColorCut(120, 100, 200, 0.3, 0.8, &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(FalseColour)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void GuideError(benchmark::State& state) {
  Images images;
  for (auto _ : state) images.result.GuideErrorCanceller(7.0, 30.0, 1.0, 0.8, &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(GuideError)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void CustomKernel(benchmark::State& state) {
  Images images;
  double kernel[25];
  for (int i = 0; i < 25; ++i) kernel[i] = i == 12 ? 0.52 : 0.02;
  for (auto _ : state) images.result.Custom(2, kernel, &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(CustomKernel)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void Contour(benchmark::State& state) {
  Images images;
  for (auto _ : state) images.result.ContourFilter(16, 0, &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(Contour)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
