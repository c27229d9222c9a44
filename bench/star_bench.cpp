// Filters for stars and nebulae on a frame of 3 x 6000 x 4000 pixels.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>

#include "bench/bench_frame.h"
#include "qmrimg/filters/filter_special.h"

namespace {

using namespace qmr_bench;

// A faint gradient with noise and a star of three pixels' width in every 64 x 64, so that the share of the frame near
// stars is that of a real night.
void FillSky(CVynImage& image) {
  std::uint32_t state = 1;
  const auto next = [&state] {
    state = state * 1664525u + 1013904223u;
    return static_cast<float>(state >> 16) / 65536.0f;
  };
  for (int p = 0; p < image.GetPlanes(); ++p) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      auto* row = static_cast<float*>(image.GetImageAdr(0, y, p, 0, 0, nullptr));
      for (int x = 0; x < image.GetWidth(); ++x) row[x] = 6000.0f + static_cast<float>(x) * 0.5f + next() * 200.0f;
    }
    for (int cell = 0; cell < (image.GetWidth() / 64) * (image.GetHeight() / 64); ++cell) {
      const int cx = cell % (image.GetWidth() / 64) * 64 + 8 + static_cast<int>(next() * 48.0f);
      const int cy = cell / (image.GetWidth() / 64) * 64 + 8 + static_cast<int>(next() * 48.0f);
      const float height = 1000.0f / (0.02f + next());
      for (int y = -5; y <= 5; ++y)
        for (int x = -5; x <= 5; ++x)
          *static_cast<float*>(image.GetImageAdr(cx + x, cy + y, p, 0, 0, nullptr)) +=
              height * std::exp(static_cast<float>(-(x * x + y * y)) / 3.4f);
    }
  }
}

// `filter(result, source, threshold)` with a threshold in hundredths, the same for all planes.
template <class Filter>
void Run(benchmark::State& state, std::int64_t hundredths, Filter&& filter) {
  Frames<CImgFilterSpecial> images;
  FillSky(images.source);
  double threshold[3];
  for (double& t : threshold) t = static_cast<double>(hundredths) / 100.0;
  // The first run pays for the pages of the result.
  filter(images.result, &images.source, threshold);
  for (auto _ : state) filter(images.result, &images.source, threshold);
  Report(state);
}

double sigma[3] = {2.0, 2.0, 2.0};
double gain[3] = {0.5, 0.5, 0.5};
double disc[3] = {3.0, 3.0, 3.0};

void StarEnhance(benchmark::State& state) {
  Run(state, 5, [](CImgFilterSpecial& to, CVynImage* from, double* threshold) {
    to.StarEnhanceFilter(1.5, 0.5, threshold[0], 0, from, nullptr, 0);
  });
}
BENCHMARK(StarEnhance)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// At 0 every window counts.
void StarEnhance2(benchmark::State& state) {
  Run(state, state.range(0), [](CImgFilterSpecial& to, CVynImage* from, double* threshold) {
    to.StarEnhanceFilter2(sigma, gain, threshold, 0, from, nullptr, 0);
  });
}
BENCHMARK(StarEnhance2)->Arg(5)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void StaryMask(benchmark::State& state) {
  Run(state, 5, [](CImgFilterSpecial& to, CVynImage* from, double* threshold) {
    to.StaryMask(2.0, 0.5, threshold[0], 1, from, nullptr, 0);
  });
}
BENCHMARK(StaryMask)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// At 100 nothing is marked.
void NebularSmoother(benchmark::State& state) {
  Run(state, state.range(0), [](CImgFilterSpecial& to, CVynImage* from, double* threshold) {
    to.NebularSmootherFilter(sigma, threshold, disc, 0, from, nullptr, 0);
  });
}
BENCHMARK(NebularSmoother)->Arg(5)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
