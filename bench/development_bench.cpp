// Digital development of a frame of 3 x 6000 x 4000 pixels, beside the blur that its masks are made of.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench/bench_frame.h"
#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/filters/filter_special.h"

namespace {

using namespace qmr_bench;

constexpr double kSigma = 10.0;
constexpr int kMeanMask = 3;

struct Development {
  explicit Development(double gammaOfAll, bool meanMask) {
    std::fill_n(gamma, kPlanes, gammaOfAll);
    if (meanMask) std::fill_n(maskPlane, kPlanes, kMeanMask);
    images.source.CalcMinMax();
  }
  void First(int gammaAfter) {
    images.result.ClearFilterProc();
    images.result.DigitalDvlp1(level, 0, radius, 1.0, gamma, 3, &images.source, gammaMin, gammaSpan, offset, multiplier,
                               gammaAfter);
  }

  Frames<CImgFilterSpecial> images;
  double level[kPlanes] = {20000.0, 0.0, 0.0};
  double radius[kPlanes] = {kSigma, kSigma, kSigma};
  double gamma[kPlanes];
  int maskPlane[kPlanes] = {0, 1, 2};
  float gammaMin[3] = {}, gammaSpan[3] = {}, offset[3] = {}, multiplier[3] = {};
};

// Masks and constants: the median is most of it.
void FirstStep(benchmark::State& state) {
  Development development(1.0, false);
  for (auto _ : state) development.First(0);
  Report(state);
}
BENCHMARK(FirstStep)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// Arguments: gamma; 1 for the mean of the three masks.
void GammaFirst(benchmark::State& state) {
  Development d(static_cast<double>(state.range(0)), state.range(1) != 0);
  d.First(0);
  for (auto _ : state)
    d.images.result.DigitalDvlp2(1, d.gamma, &d.images.source, d.maskPlane, d.gammaMin, d.gammaSpan, d.offset,
                                 d.multiplier, nullptr, 0);
  Report(state);
}
BENCHMARK(GammaFirst)
    ->ArgsProduct({{1, 2}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

void GammaAfter(benchmark::State& state) {
  Development d(static_cast<double>(state.range(0)), state.range(1) != 0);
  d.First(1);
  for (auto _ : state)
    d.images.result.DigitalDvlpGmAftrDdp(1, d.gamma, &d.images.source, d.maskPlane, d.gammaMin, d.gammaSpan, d.offset,
                                         d.multiplier, nullptr, 0);
  Report(state);
}
BENCHMARK(GammaAfter)
    ->ArgsProduct({{1, 2}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

void Gaussian(benchmark::State& state) {
  Frames<CImgFilterBlur> images;
  for (auto _ : state) {
    images.result.ClearFilterProc();
    images.result.GaussianFilter(kSigma, &images.source, nullptr, 0);
  }
  Report(state);
}
BENCHMARK(Gaussian)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
