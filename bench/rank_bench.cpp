// Rank filters of a frame of 3 x 6000 x 4000 pixels.
#include <benchmark/benchmark.h>

#include <array>

#include "bench/bench_frame.h"
#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/filter_special.h"

namespace {

using namespace qmr_bench;

// The argument is ten times the radius.
void DiscMedian(benchmark::State& state) {
  Frames<CImgFilterBlur> images;
  const double radius = static_cast<double>(state.range(0)) / 10.0;
  for (auto _ : state) images.result.MedianFilter(radius, &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(DiscMedian)
    ->Arg(10)
    ->Arg(15)
    ->Arg(20)
    ->Arg(30)
    ->Arg(50)
    ->Arg(100)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

void Minimum(benchmark::State& state) {
  Frames<CImgFilterMisc> images;
  std::array<double, kPlanes> radius;
  radius.fill(3.0);
  std::array<int, kPlanes> rank{};
  for (auto _ : state) images.result.MinMaxFilter(radius.data(), rank.data(), &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(Minimum)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void NoiseCut(benchmark::State& state) {
  Frames<CImgFilterMisc> images;
  for (auto _ : state) images.result.NoiseCut(1.5, 1, 0.3, 1, 0.3, &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(NoiseCut)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void StarSharp(benchmark::State& state) {
  Frames<CImgFilterSpecial> images;
  std::array<double, kPlanes> radius, rank, threshold;
  radius.fill(2.0);
  rank.fill(3.5);
  threshold.fill(0.01);
  for (auto _ : state)
    images.result.StarSharpFilter(radius.data(), rank.data(), threshold.data(), 1, &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(StarSharp)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
