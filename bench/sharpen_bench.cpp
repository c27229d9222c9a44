// Sharpening filters and means on a frame of 3 x 6000 x 4000 pixels, with the Gaussian filter that unsharp masks stand
// on beside them.
#include <benchmark/benchmark.h>

#include "bench/bench_frame.h"
#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/filters/filter_sharp.h"

namespace {

using namespace qmr_bench;

template <class Operation, class Run>
void Measure(benchmark::State& state, Run run) {
  Frames<Operation> frames;
  for (auto _ : state) {
    frames.result.ClearFilterProc();
    run(frames.result, &frames.source, static_cast<double>(state.range(0)));
  }
  Report(state);
}

void Gaussian(benchmark::State& state) {
  Measure<CImgFilterBlur>(state, [](auto& f, CVynImage* s, double sigma) { f.GaussianFilter(sigma, s, nullptr, 0); });
}
void UnSharpMask(benchmark::State& state) {
  Measure<CImgFilterSharp>(state,
                           [](auto& f, CVynImage* s, double sigma) { f.UnSharpMask(sigma, 1.0, 0.1, s, nullptr, 0); });
}
void UnSharpMaskLimited(benchmark::State& state) {
  Measure<CImgFilterSharp>(state, [](auto& f, CVynImage* s, double sigma) {
    f.UnSharpMask(sigma, 1.0, 1, 60.0, 20.0, 1, 200.0, 20.0, 1, 0.0, s, nullptr, 0);
  });
}
void SubBandUnSharpMask(benchmark::State& state) {
  Measure<CImgFilterSharp>(state, [](auto& f, CVynImage* s, double sigma) {
    f.SubBandUnSharpMask(sigma, 1.0, sigma + 1.0, 1.0, sigma + 2.0, 1.0, sigma + 3.0, 1.0, sigma + 4.0, 1.0,
                         sigma + 5.0, 1.0, 0, 0.0, 0.0, 0, 0.0, 0.0, 1, 0.0, s, nullptr, 0);
  });
}
void SharpFilter(benchmark::State& state) {
  Measure<CImgFilterSharp>(state,
                           [](auto& f, CVynImage* s, double radius) { f.SharpFilter(radius, 0.2, s, nullptr, 0); });
}
void SharpFilterLimited(benchmark::State& state) {
  Measure<CImgFilterSharp>(state, [](auto& f, CVynImage* s, double radius) {
    f.SharpFilter(radius, 0.2, 1, 60.0, 20.0, 1, 200.0, 20.0, 1, 0.0, s, nullptr, 0);
  });
}
void SharpEdgeFilter(benchmark::State& state) {
  Measure<CImgFilterSharp>(state,
                           [](auto& f, CVynImage* s, double radius) { f.SharpEdgeFilter(radius, 0.2, s, nullptr, 0); });
}
void MeanBox(benchmark::State& state) {
  Measure<CImgFilterBlur>(state,
                          [](auto& f, CVynImage* s, double radius) { f.MeanFilter(radius, 1.0, s, nullptr, 0); });
}
void MeanDisc(benchmark::State& state) {
  Measure<CImgFilterBlur>(state, [](auto& f, CVynImage* s, double radius) {
    f.MeanFilter(radius, 1.0, 0, 0.0, 0.0, 0, 0.0, 0.0, s, nullptr, 0);
  });
}
void MeanWithoutEdge(benchmark::State& state) {
  Measure<CImgFilterBlur>(
      state, [](auto& f, CVynImage* s, double radius) { f.MeanWithoutEdgeFilter(radius, 1.0, s, nullptr, 0); });
}

#define QMR_FILTER_BENCHMARK(name) \
  BENCHMARK(name)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime()

QMR_FILTER_BENCHMARK(Gaussian)->Arg(2)->Arg(10);
QMR_FILTER_BENCHMARK(UnSharpMask)->Arg(2)->Arg(10);
QMR_FILTER_BENCHMARK(UnSharpMaskLimited)->Arg(2)->Arg(10);
QMR_FILTER_BENCHMARK(SubBandUnSharpMask)->Arg(1);
QMR_FILTER_BENCHMARK(SharpFilter)->Arg(1)->Arg(4);
QMR_FILTER_BENCHMARK(SharpFilterLimited)->Arg(1);
QMR_FILTER_BENCHMARK(SharpEdgeFilter)->Arg(1)->Arg(4);
QMR_FILTER_BENCHMARK(MeanBox)->Arg(5);
QMR_FILTER_BENCHMARK(MeanDisc)->Arg(5);
QMR_FILTER_BENCHMARK(MeanWithoutEdge)->Arg(3);

}  // namespace
