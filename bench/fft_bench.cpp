// The Fourier engines and the measurements by phase-only correlation.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "qmrimg/restoration/real_transform.h"
#include "qmrimg/stacking/fft.h"
#include "qmrimg/stacking/fftd.h"
#include "qmrimg/stacking/fourier.h"

namespace {

// A grainy frame with some thousand stars, moved by (dx, dy).
void Draw(CVynImage& image, int size, int dx, int dy) {
  image.Create(CVynImage(-32, size, size, 1, 1.0, 0.0, 1));
  std::uint32_t state = 1;
  const auto next = [&] {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  };
  for (int y = 0; y < size; ++y) {
    float* const row = static_cast<float*>(image.GetImageAdr(0, y, 0, 0, 0, nullptr));
    for (int x = 0; x < size; ++x) row[x] = 100.0f + static_cast<float>(next() % 64) / 16.0f;
  }
  std::uint32_t stars = 7;
  const auto place = [&] {
    stars = stars * 1664525u + 1013904223u;
    return static_cast<int>((stars >> 8) % static_cast<std::uint32_t>(size - 64)) + 32;
  };
  for (int i = 0; i < size; ++i) {
    const int cx = place() + dx, cy = place() + dy;
    for (int y = -5; y <= 5; ++y) {
      float* const row = static_cast<float*>(image.GetImageAdr(0, cy + y, 0, 0, 0, nullptr));
      for (int x = -5; x <= 5; ++x) row[cx + x] += 500.0f * std::exp(-0.3f * static_cast<float>(x * x + y * y));
    }
  }
}

template <class Engine>
void Transform(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  Engine engine;
  if (!engine.Create(n, n)) {
    state.SkipWithError("no memory");
    return;
  }
  const double count = static_cast<double>(n) * n;
  for (int i = 0; i < n * n; ++i) engine.GetImageAdr()[i].re = static_cast<float>(i % 1013) / 1013.0f;
  int direction = 0;
  for (auto _ : state) {  // there and back, so that values stay in range
    engine.Do(direction, 0);
    direction = 1 - direction;
  }
  state.counters["flops"] =
      benchmark::Counter(5.0 * count * std::log2(count), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(Transform<CFftd>)->Arg(1024)->Arg(2048)->Arg(4096)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Transform<CFft>)->Arg(1024)->Arg(4096)->Unit(benchmark::kMillisecond)->UseRealTime();

// A real image there and back at any size.
void RealPair(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  auto transform = qmr::RealTransform::Create(w, h);
  const qmr::Block memory = transform ? transform->MakeSpectrum() : qmr::Block();
  float* const spectrum = reinterpret_cast<float*>(memory.Get());
  if (!spectrum) {
    state.SkipWithError("no memory");
    return;
  }
  std::vector<float> image(static_cast<std::size_t>(w) * h);
  for (std::size_t i = 0; i < image.size(); ++i) image[i] = static_cast<float>(i % 1013) / 1013.0f;
  for (auto _ : state) {
    transform->ForwardRows(image.data(), spectrum);
    transform->ForwardColumns(spectrum);
    transform->InverseColumns(spectrum);
    transform->InverseRows(spectrum, image.data());
  }
  const double count = static_cast<double>(w) * h;
  state.counters["flops"] =
      benchmark::Counter(5.0 * count * std::log2(count), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(RealPair)
    ->Args({1024, 1024})
    ->Args({2000, 1500})
    ->Args({1021, 1021})
    ->Args({4000, 3000})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void Shift(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  CImgFourier reference;
  CVynImage frame;
  Draw(reference, n, 0, 0);
  Draw(frame, n, 13, -7);
  double dx = 0.0, dy = 0.0, peak = 0.0;
  int failWidth = 0, failHeight = 0;
  for (auto _ : state) reference.CalcShiftByPOC(&frame, nullptr, 0.0, nullptr, dx, dy, peak, failWidth, failHeight, 0);
  state.counters["dx"] = dx;
  state.counters["dy"] = dy;
}
BENCHMARK(Shift)->Arg(2048)->Arg(4096)->Unit(benchmark::kMillisecond)->UseRealTime();

void Rotation(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  CImgFourier reference;
  Draw(reference, n, 0, 0);
  double angle = 0.0;
  int failWidth = 0, failHeight = 0;
  for (auto _ : state) reference.CalcRotByRIPOC(&reference, nullptr, nullptr, nullptr, angle, failWidth, failHeight, 0);
}
BENCHMARK(Rotation)->Arg(1024)->Arg(2048)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
