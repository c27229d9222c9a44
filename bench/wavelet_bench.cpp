// Wavelet decomposition and composition of one plane of 4096 x 4096, order 4, four levels.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "bench/bench_frame.h"
#include "qmrimg/filters/wavelet.h"

namespace {

constexpr int kSide = 4096;
constexpr int kLevels = 4;

struct Images {
  explicit Images(int order) : source(-32, kSide, kSide, 1, 1.0, 0.0, 1) {
    qmr_bench::FillPattern(source);
    source.SetLevel(0, 0.0, 65535.0);
    work.Create(source);
    wavelet.SetDaubechyParams(order);
    gains.SetSize(kLevels);
    for (int level = 0; level < kLevels; ++level) gains[level] = 1.1f;
  }
  CVynImage source;
  CVynImage work;
  CImgWavelet wavelet;
  CArray<float, float> gains;
};

// The least is a read and a write of all levels: 4/3 of the plane.
void Report(benchmark::State& state) {
  const std::int64_t pixels = std::int64_t{kSide} * kSide * state.iterations();
  state.SetItemsProcessed(pixels);
  state.SetBytesProcessed(pixels * 4 / 3 * 2 * static_cast<std::int64_t>(sizeof(float)));
}

// From the same pixels each time: repeated decomposition would end in denormal numbers.
void Decomposition(benchmark::State& state) {
  Images images(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    images.wavelet.CopyToBuffer(&images.work, &images.source, nullptr);
    state.ResumeTiming();
    images.wavelet.DoMultiResSubbandDecomposition(&images.work, kLevels, 0);
  }
  Report(state);
}
BENCHMARK(Decomposition)->Arg(1)->Arg(4)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime();

void Composition(benchmark::State& state) {
  Images images(static_cast<int>(state.range(0)));
  images.wavelet.DoMultiResSubbandDecomposition(&images.source, kLevels, 0);
  for (auto _ : state) {
    state.PauseTiming();
    images.wavelet.CopyToBuffer(&images.work, &images.source, nullptr);
    state.ResumeTiming();
    images.wavelet.DoMultiResSubbandComposition(&images.work, kLevels, 0.9f, &images.gains, &images.gains,
                                                &images.gains, 0);
  }
  Report(state);
}
BENCHMARK(Composition)->Arg(1)->Arg(4)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
