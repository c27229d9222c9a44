// Point operations on a frame of 3 x 6000 x 4000 pixels, beside a copy of it with the same means: all threads and
// streaming stores.
#include <benchmark/benchmark.h>

#include <chrono>

#include "bench/bench_frame.h"
#include "qmrimg/image/kernels/streaming.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/bright.h"
#include "qmrimg/levels/calculation.h"
#include "qmrimg/levels/cut_off.h"
#include "qmrimg/levels/expansion.h"
#include "qmrimg/levels/normalize.h"

namespace {

using namespace qmr_bench;

void CopyPlanes(const CVynImage& source, CVynImage& result) {
  for (int p = 0; p < kPlanes; ++p) {
    qmr::ForRows(0, kHeight, [&](int y) {
      const auto [from, to] = qmr::RowPair(source, result, y, p, 0, kWidth);
      qmr::StreamRow(from, to, 0, [](auto v) { return v; });
    });
  }
}

template <class Work>
double Seconds(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// `of_copy` is the speed as a share of the copy's; the two take turns on the same images.
template <class Operation, class Work>
void Run(benchmark::State& state, Frames<Operation>& images, Work&& work) {
  double ours = 0.0;
  double copy = 0.0;
  for (auto _ : state) {
    ours += Seconds(work);
    state.PauseTiming();
    copy += Seconds([&] { CopyPlanes(images.source, images.result); });
    state.ResumeTiming();
  }
  state.counters["of_copy"] = copy / ours;
  Report(state);
}

void Copy(benchmark::State& state) {
  Frames<CVynImage> images;
  Run(state, images, [&] { CopyPlanes(images.source, images.result); });
}

void Bright(benchmark::State& state) {
  Frames<CImgBright> images;
  float brightness[kPlanes] = {10.0f, 10.0f, 10.0f};
  float contrast[kPlanes] = {60.0f, 60.0f, 60.0f};
  Run(state, images, [&] { images.result.Do(brightness, contrast, 100.0, &images.source, nullptr, 0); });
}

void Calculation(benchmark::State& state) {
  Frames<CImgCalculation> images;
  const int mode = static_cast<int>(state.range(0));
  const int clamp = static_cast<int>(state.range(1));
  Run(state, images, [&] { images.result.Do(3.7, mode, clamp, &images.source, nullptr, 0); });
}

void CutOff(benchmark::State& state) {
  Frames<CImgCutOff> images;
  for (int p = 0; p < kPlanes; ++p) images.source.SetLevel(p, 20000.0, 40000.0);
  Run(state, images, [&] { images.result.Do(&images.source, 0.0f, 65535.0f, nullptr, 0); });
}

void Normalize(benchmark::State& state) {
  Frames<CImgNormalize> images;
  float mean[kPlanes] = {1000.0f, 1000.0f, 1000.0f};
  float sigma[kPlanes] = {50.0f, 50.0f, 50.0f};
  Run(state, images, [&] { images.result.Do(&images.source, mean, sigma, 0); });
}

void Expansion(benchmark::State& state) {
  Frames<CImgExpansion> images;
  Run(state, images,
      [&] { images.result.Do(&images.source, 3000.0, 2000.0, 1900.0, 3.0, -20.0, 0.94, 1, nullptr, 0); });
}

BENCHMARK(Copy)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Bright)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Calculation)
    ->ArgNames({"mode", "clamp"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({1, 1})
    ->Args({2, 0})
    ->Args({3, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(CutOff)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Normalize)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Expansion)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
