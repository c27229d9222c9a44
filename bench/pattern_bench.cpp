// Filters over the fixed patterns on a frame of 3 x 6000 x 4000 pixels; the argument is the method.
#include <benchmark/benchmark.h>

#include "bench/bench_frame.h"
#include "qmrimg/filters/filter.h"

namespace {

using namespace qmr_bench;

using Images = Frames<CImgFilter>;

template <class Filter>
void Run(benchmark::State& state, Filter&& filter) {
  Images images;
  const int method = static_cast<int>(state.range(0));
  // The first run pays for the pages of the result.
  filter(images.result, &images.source, method);
  for (auto _ : state) filter(images.result, &images.source, method);
  Report(state);
}

void Median(benchmark::State& state) {
  Run(state, [](CImgFilter& to, CVynImage* from, int method) { to.MedianFilter(method, from, nullptr, 0); });
}
BENCHMARK(Median)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void Maximum(benchmark::State& state) {
  Run(state, [](CImgFilter& to, CVynImage* from, int method) {
    constexpr int kLast[] = {4, 8, 20};
    to.MinMaxFilter(method, kLast[method], from, nullptr, 0);
  });
}
BENCHMARK(Maximum)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// A rank between the ends.
void Rank(benchmark::State& state) {
  Run(state, [](CImgFilter& to, CVynImage* from, int method) { to.MinMaxFilter(method, 1, from, nullptr, 0); });
}
BENCHMARK(Rank)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void Laplacian(benchmark::State& state) {
  Run(state, [](CImgFilter& to, CVynImage* from, int method) { to.LaplacianFilter(method, from, nullptr, 0); });
}
BENCHMARK(Laplacian)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void Unsharp(benchmark::State& state) {
  Run(state,
      [](CImgFilter& to, CVynImage* from, int method) { to.UnSharpMask(1.5, method, 1.0, 0.1, from, nullptr, 0); });
}
BENCHMARK(Unsharp)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
