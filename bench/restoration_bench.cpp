// The iterative restorations.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "qmrimg/restoration/lucy_restore.h"
#include "qmrimg/restoration/mem_restore.h"
#include "qmrimg/restoration/restoration_steps.h"

namespace {

// Soft stars on a sky of 100.
std::vector<float> Frame(int width, int height) {
  std::vector<float> frame(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  std::uint32_t state = 1;
  const auto next = [&state] {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  };
  for (float& v : frame) v = 100.0f + static_cast<float>(next() % 64) / 4.0f;
  for (int i = 0; i < width; ++i) {
    const int cx = 8 + static_cast<int>(next() % static_cast<std::uint32_t>(width - 16));
    const int cy = 8 + static_cast<int>(next() % static_cast<std::uint32_t>(height - 16));
    const float peak = static_cast<float>(50 + next() % 2000);
    for (int y = -7; y <= 7; ++y)
      for (int x = -7; x <= 7; ++x)
        frame[static_cast<std::size_t>(cy + y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(cx + x)] +=
            peak * std::exp(static_cast<float>(x * x + y * y) / -8.0f);
  }
  return frame;
}

// Iterations a second with a point-spread function of 64 x 64. The preparation, three transforms, counts too.
void Lucy(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  std::vector<float> psf(64 * 64);
  for (int i = 0; i < 64 * 64; ++i)
    psf[static_cast<std::size_t>(i)] =
        std::exp(static_cast<float>((i % 64 - 32) * (i % 64 - 32) + (i / 64 - 32) * (i / 64 - 32)) / -8.0f);
  const std::vector<float> frame = Frame(width, height);
  qmr::LucyRun run;
  run.width = width;
  run.height = height;
  run.psf = psf.data();
  run.psfWidth = run.psfHeight = 64;
  run.mode = static_cast<qmr::LucyMode>(state.range(2));
  run.gain = 2.0;
  run.readNoise = 5.0;
  run.chiLimit = 0.0;
  run.iterations = 20;
  std::int64_t iterations = 0;
  for (auto _ : state) {
    std::vector<float> data = frame;
    run.data = data.data();
    iterations += qmr::RunLucy(run).iterations;
  }
  state.SetItemsProcessed(iterations);
}
BENCHMARK(Lucy)
    ->ArgNames({"width", "height", "mode"})
    ->ArgsProduct({{1024}, {1024}, {0, 1, 2}})
    ->ArgsProduct({{2000}, {1500}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

struct CountedSteps : qmr::RestorationSteps {
  void Step(const qmr::RestorationStep& step) override { iterations += step.iteration > 0; }
  std::int64_t iterations = 0;
};

// Iterations a second; each is two or three convolutions on a grid of powers of two. Start and end count, too.
void MaximumEntropy(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  std::vector<float> psf(63 * 63), data = Frame(width, height), out(data.size());
  for (int i = 0; i < 63 * 63; ++i) {
    const int dx = i % 63 - 31, dy = i / 63 - 31;
    psf[static_cast<std::size_t>(i)] = std::exp(static_cast<float>(dx * dx + dy * dy) / -8.0f) / 25.13f;
  }
  for (float& v : data) v *= 100.0f;
  CountedSteps steps;
  const qmr::WatchRestoration watch(&steps);
  for (auto _ : state) {
    MemRestore(data.data(), out.data(), width, height, psf.data(), 63, 63, 460.0 * 460.0, 20, nullptr, 0);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(steps.iterations);
}
BENCHMARK(MaximumEntropy)
    ->ArgNames({"width", "height"})
    ->Args({1024, 1024})
    ->Args({2000, 1500})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
