// Separable convolution of a frame of 3 x 6000 x 4000 pixels.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "qmrimg/filters/filter_blur.h"

namespace {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr int kPlanes = 3;

void FillPattern(CVynImage& image) {
  std::uint32_t state = 1;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      auto* row = static_cast<float*>(image.GetImageAdr(0, y, p, 0, 0, nullptr));
      for (int x = 0; x < image.GetWidth(); ++x) {
        state = state * 1664525u + 1013904223u;
        row[x] = static_cast<float>(state >> 16);
      }
    }
  }
}

// One plane-sized read and one write a pixel are the least that a filter must move.
void Report(benchmark::State& state) {
  const std::int64_t pixels = std::int64_t{kWidth} * kHeight * kPlanes * state.iterations();
  state.SetItemsProcessed(pixels);
  state.SetBytesProcessed(pixels * 2 * static_cast<std::int64_t>(sizeof(float)));
}

struct Images {
  Images() : source(-32, kWidth, kHeight, kPlanes, 1.0, 0.0, 1) {
    FillPattern(source);
    result.Create(source);
  }
  CVynImage source;
  CImgFilterBlur result;
};

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
