// Separable convolution of a frame of 3 x 6000 x 4000 pixels.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "bench/bench_frame.h"
#include "qmrimg/filters/filter_blur.h"

namespace {

using namespace qmr_bench;

using Images = Frames<CImgFilterBlur>;

void Gaussian(benchmark::State& state) {
  Images images;
  for (auto _ : state) {
    images.result.ClearFilterProc();
    images.result.GaussianFilter(static_cast<double>(state.range(0)), &images.source, nullptr, 0);
  }
  Report(state);
}
BENCHMARK(Gaussian)->Arg(2)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void GaussianLimited(benchmark::State& state) {
  Images images;
  for (auto _ : state) {
    images.result.ClearFilterProc();
    images.result.GaussianFilter(static_cast<double>(state.range(0)), 1, 60.0, 20.0, 1, 50000.0, 8000.0, &images.source,
                                 nullptr, 0);
  }
  Report(state);
}
BENCHMARK(GaussianLimited)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// The documented pixel interface, on one thread and one plane.
void GaussianByPixel(benchmark::State& state) {
  Images images;
  CFilterMatrix matrix;
  matrix.SetGaussianSigma(static_cast<double>(state.range(0)));
  CFilterProc engine(&images.source, &matrix, 0);
  for (auto _ : state) {
    engine.StartPass();
    float sum = 0.0f;
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x) sum += engine.Calc(x, y);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(std::int64_t{kWidth} * kHeight * state.iterations());
}
BENCHMARK(GaussianByPixel)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
