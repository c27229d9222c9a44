// Composites of two colour frames of 24 million pixels, on all threads.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/stacking/composit.h"

namespace {

std::unique_ptr<CVynImage> Noise(int width, int height, int planes, std::uint32_t seed) {
  auto image = std::make_unique<CVynImage>(-32, width, height, planes, 1.0, 0.0, 1);
  qmr::ForRows(0, height, [&](int y) {
    std::uint32_t state = static_cast<std::uint32_t>(y) * 2654435761u + seed;
    for (int p = 0; p < planes; ++p) {
      float* row = static_cast<float*>(image->GetImageAdr(0, y, p, 0, 0, nullptr));
      for (int x = 0; x < width; ++x) {
        state = state * 1664525u + 1013904223u;
        row[x] = static_cast<float>(state >> 8) * 1e-5f;
      }
    }
  });
  image->SetStdCtr(width / 2, height / 2);
  return image;
}

// Two frames and a result, made when they are first asked for.
struct Frames {
  Frames(int width, int height, int planes) : a(Noise(width, height, planes, 1)), b(Noise(width, height, planes, 2)) {
    // A copy, so that the page faults of fresh memory are over before the clock runs.
    result.CopyImage(*a);
  }
  std::unique_ptr<CVynImage> a;
  std::unique_ptr<CVynImage> b;
  CImgComposit result;
};

Frames& Colour() {
  static Frames frames(6000, 4000, 3);
  return frames;
}
Frames& Gray() {
  static Frames frames(3000, 2000, 1);
  return frames;
}

void Count(benchmark::State& state, const Frames& frames) {
  const std::int64_t pixels = state.iterations() * static_cast<std::int64_t>(frames.a->GetPixelCount());
  state.SetItemsProcessed(pixels);
  // Two images are read, one is written.
  state.SetBytesProcessed(pixels * 12);
}

void Average(benchmark::State& state, double dx, double dy, double angle, int method, int to256) {
  Frames& f = Colour();
  for (auto _ : state) {
    f.result.Do(f.a.get(), f.b.get(), dx, dy, angle, 1, 0, method, to256);
    benchmark::ClobberMemory();
  }
  Count(state, f);
}

void Average65(benchmark::State& state, double dx, double dy, double angle) {
  Frames& f = Colour();
  for (auto _ : state) {
    f.result.Do65(f.a.get(), f.b.get(), dx, dy, angle, 0, 0);
    benchmark::ClobberMemory();
  }
  Count(state, f);
}

// A few pixels of the noise are saturated, as stars are.
void Minimum(benchmark::State& state, double dx, double dy, double angle, bool old) {
  Frames& f = Gray();
  for (CVynImage* image : {f.a.get(), f.b.get()}) image->CalcMinMax();
  for (auto _ : state) {
    if (old)
      f.result.Do65(f.a.get(), f.b.get(), dx, dy, angle, 9, 1.0, 0, 0, 0.995, 1, nullptr, 0, -1);
    else
      f.result.Do(f.a.get(), f.b.get(), dx, dy, angle, 1, 9, 0, 1.0, 0, 0, 0.995, 1, nullptr, 0, -1);
    benchmark::ClobberMemory();
  }
  Count(state, f);
}

#define BENCH(function, name, ...) \
  BENCHMARK_CAPTURE(function, name, __VA_ARGS__)->Unit(benchmark::kMillisecond)->UseRealTime()

BENCH(Average, WholePixels, 3.0, -2.0, 0.0, 0, 0);
BENCH(Average, WholePixels256, 3.0, -2.0, 0.0, 0, 1);
BENCH(Average, Bilinear, 0.3, 0.7, 0.0, 0, 0);
BENCH(Average, Lanczos3, 0.3, 0.7, 0.0, 3, 0);
BENCH(Average, Turned, 0.3, 0.7, 5.0, 0, 0);
BENCH(Average65, Bilinear, 0.3, 0.7, 0.0);
BENCH(Average65, Turned, 0.3, 0.7, 5.0);
BENCH(Minimum, WholePixels, 3.0, -2.0, 0.0, false);
BENCH(Minimum, Bilinear, 0.3, 0.7, 0.0, false);
BENCH(Minimum, Turned, 0.3, 0.7, 5.0, false);
BENCH(Minimum, Old, 0.3, 0.7, 0.0, true);

}  // namespace
