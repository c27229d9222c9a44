// Tone curves, posterisation and equalisation: 3 x 6000 x 4000 pixels, equalisation one plane of that.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "bench/bench_frame.h"
#include "qmrimg/levels/hst_eql.h"
#include "qmrimg/levels/reduce_tone.h"
#include "qmrimg/levels/tone_curve.h"

namespace {

using namespace qmr_bench;

void ToneCurve(benchmark::State& state) {
  Frames<CImgToneCurve> images;
  std::vector<float> curve(256);
  for (std::size_t i = 0; i < curve.size(); ++i) curve[i] = std::sqrt(static_cast<float>(i) / 255.0f);
  float* tables[] = {curve.data(), curve.data(), curve.data(), curve.data()};
  for (auto _ : state) images.result.Do(tables, 256, &images.source, nullptr, 0, 0);
  Report(state);
}
BENCHMARK(ToneCurve)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void HAlpha(benchmark::State& state) {
  Frames<CImgToneCurve> images;
  // A tenth of the pixels lies below the levels, and a tenth above.
  for (int p = 0; p < kPlanes; ++p) images.result.SetLevel(p, 6553.0, 58982.0);
  for (auto _ : state) images.result.DoHAlpha(0.3, 0.2, &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(HAlpha)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void ReduceTone(benchmark::State& state) {
  Frames<CImgReduceTone> images;
  for (auto _ : state) images.result.Do(16, &images.source, nullptr, 0);
  Report(state);
}
BENCHMARK(ReduceTone)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// 0: floats that hardly ever meet. 1: a sky of a few hundred integer levels under some stars.
void FillSky(CVynImage& image, bool integers) {
  std::uint64_t state = 1;
  for (int y = 0; y < kHeight; ++y) {
    auto* row = static_cast<float*>(image.GetImageAdr(0, y, 0, 0, 0, nullptr));
    for (int x = 0; x < kWidth; ++x) {
      state = state * 6364136223846793005u + 1442695040888963407u;
      const auto bits = static_cast<std::uint32_t>(state >> 32);
      const int sum = static_cast<int>((bits & 127) + (bits >> 7 & 127) + (bits >> 14 & 127));
      const float star = bits >> 25 == 0 ? static_cast<float>(state >> 20 & 0xFFFF) : 0.0f;
      row[x] = integers ? 1000.0f + static_cast<float>(sum) + star : static_cast<float>(bits >> 8);
    }
  }
}

void Equalize(benchmark::State& state) {
  Frames<CImgHstEql> images(1);
  FillSky(images.source, state.range(0) != 0);
  // So are the page faults of the working memory.
  images.result.Do(&images.source);
  for (auto _ : state) images.result.Do(&images.source);
  state.SetItemsProcessed(std::int64_t{kWidth} * kHeight * state.iterations());
}
BENCHMARK(Equalize)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
