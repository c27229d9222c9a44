// Compositions of colour images from frames, and their separation.
#include "bench/bench_frame.h"
#include "qmrimg/colour/cmy_composit.h"
#include "qmrimg/colour/lrgb_cmpst.h"
#include "qmrimg/colour/rgb_cmpst.h"
#include "qmrimg/colour/separation.h"

namespace {

using qmr_bench::Frames;
using qmr_bench::kHeight;
using qmr_bench::kWidth;
using qmr_bench::Report;

// How the frames lie: as they are, shifted or turned.
struct Lie {
  double dx, dy, angle;
};
constexpr Lie kLies[] = {{3.0, -2.0, 0.0}, {0.3, 0.7, 0.0}, {0.3, 0.7, 1.0}};
constexpr int kBicubic = 1;

void RgbComposition(benchmark::State& state) {
  Frames<CImgRgbCmpst> f;
  const Lie& l = kLies[state.range(0)];
  for (auto _ : state)
    f.result.Do(&f.source, l.dx, l.dy, l.angle, &f.source, l.dx, l.dy, l.angle, &f.source, l.dx, l.dy, l.angle, 0,
                kBicubic, nullptr, nullptr, 0);
  Report(state);
}

void CmyComposition(benchmark::State& state) {
  Frames<CImgCmyComposit> f;
  const Lie& l = kLies[state.range(0)];
  for (auto _ : state)
    f.result.Do(&f.source, l.dx, l.dy, l.angle, &f.source, l.dx, l.dy, l.angle, &f.source, l.dx, l.dy, l.angle, 0,
                kBicubic, nullptr, 0, 0);
  Report(state);
}

void Lrgb(benchmark::State& state, int blendOnly) {
  Frames<CImgLrgbCmpst> f;
  const Lie& l = kLies[state.range(0)];
  for (auto _ : state)
    f.result.DoLrgb(&f.source, 0.0, 0.0, 0.0, &f.source, l.dx, l.dy, l.angle, 0, 1.0, nullptr, blendOnly, 2, 0);
  Report(state);
}
void LrgbComposition(benchmark::State& state) {
  Lrgb(state, 0);
}
void BlendComposition(benchmark::State& state) {
  Lrgb(state, 1);
}

void LabComposition(benchmark::State& state) {
  Frames<CImgLrgbCmpst> f;
  const Lie& l = kLies[state.range(0)];
  for (auto _ : state)
    f.result.DoLab(&f.source, 0.0, 0.0, 0.0, &f.source, l.dx, l.dy, l.angle, 0, 1.0, kBicubic, nullptr, 0);
  Report(state);
}

// One plane out of two.
void Separation(benchmark::State& state) {
  Frames<CImgSeparation> f;
  f.result.Create(CVynImage(-32, kWidth, kHeight, 1, 1.0, 0.0, 1));
  qmr_bench::FillPattern(f.result);
  for (auto _ : state) f.result.Do(&f.source, 3, 0);
  const std::int64_t pixels = std::int64_t{kWidth} * kHeight * state.iterations();
  state.SetItemsProcessed(pixels);
  state.SetBytesProcessed(pixels * 3 * static_cast<std::int64_t>(sizeof(float)));
}

BENCHMARK(RgbComposition)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(CmyComposition)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(LrgbComposition)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BlendComposition)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(LabComposition)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Separation)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
