// Thirty monochrome frames of 6 million pixels each, combined on all threads.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/stacking/kernels/stack_rows.h"

namespace {

constexpr int kWidth = 3000;
constexpr int kHeight = 2000;
constexpr int kFrames = 30;

float* Row(CVynImage& image, int y) {
  return static_cast<float*>(image.GetImageAdr(0, y, 0, 0, 0, nullptr));
}

std::vector<std::unique_ptr<CVynImage>>& Frames() {
  static std::vector<std::unique_ptr<CVynImage>> frames = [] {
    std::vector<std::unique_ptr<CVynImage>> made;
    for (int f = 0; f < kFrames; ++f) {
      made.push_back(std::make_unique<CVynImage>(-32, kWidth, kHeight, 1, 1.0, 0.0, 1));
      qmr::ForRows(0, kHeight, [&](int y) {
        std::uint32_t state = static_cast<std::uint32_t>(f * kHeight + y) * 2654435761u + 1u;
        float* row = Row(*made.back(), y);
        for (int x = 0; x < kWidth; ++x) {
          state = state * 1664525u + 1013904223u;
          row[x] = 1000.0f + static_cast<float>(state >> 16) * 0.01f;
        }
      });
    }
    return made;
  }();
  return frames;
}

void Stack(benchmark::State& state, const qmr::StackRule& rule) {
  auto& frames = Frames();
  static CVynImage destination(-32, kWidth, kHeight, 1, 1.0, 0.0, 1);
  for (auto _ : state) {
    qmr::ForRowRanges(0, kHeight, [&](int first, int last) {
      qmr::StackPlan plan(rule, kFrames);
      std::vector<const float*> rows(kFrames);
      for (int y = first; y < last; ++y) {
        for (std::size_t f = 0; f < rows.size(); ++f) rows[f] = Row(*frames[f], y);
        qmr::StackRow<float, std::uint8_t>(plan, rows.data(), nullptr, nullptr, kWidth, Row(destination, y));
      }
    });
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
  state.SetBytesProcessed(state.iterations() * kWidth * kHeight * (kFrames + 1) * 4);
}

void Median(benchmark::State& state) {
  Stack(state, {qmr::StackMethod::kMedian, 0.0, false, false});
}
void ClippedMean(benchmark::State& state) {
  Stack(state, {qmr::StackMethod::kClippedMean, 2.0, true, false});
}
void Maximum(benchmark::State& state) {
  Stack(state, {qmr::StackMethod::kMaximum, 0.0, false, false});
}
void Mean(benchmark::State& state) {
  Stack(state, {qmr::StackMethod::kMean, 0.0, false, false});
}

BENCHMARK(Median)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ClippedMean)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Maximum)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Mean)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
