// The frame that the filter benchmarks work on: 3 x 6000 x 4000 pixels.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>

#include "qmrimg/image/vyn_image.h"

namespace qmr_bench {

inline constexpr int kWidth = 6000;
inline constexpr int kHeight = 4000;
inline constexpr int kPlanes = 3;

inline void FillPattern(CVynImage& image) {
  std::uint32_t state = 1;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      auto* row = static_cast<float*>(image.GetImageAdr(0, y, p, 0, 0, nullptr));
      for (int x = 0; x < image.GetWidth(); ++x) {
        state = state * 1664525u + 1013904223u;
        row[x] = static_cast<float>(state >> 16);
      }
    }
  }
}

// One plane-sized read and one write a pixel are the least that a filter must move.
inline void Report(benchmark::State& state) {
  const std::int64_t pixels = std::int64_t{kWidth} * kHeight * kPlanes * state.iterations();
  state.SetItemsProcessed(pixels);
  state.SetBytesProcessed(pixels * 2 * static_cast<std::int64_t>(sizeof(float)));
}

// A source with a pattern of 0..65535 and 256-scale levels to match, and the operation's class as the result.
template <class Operation>
struct Frames {
  explicit Frames(int planes = kPlanes) : source(-32, kWidth, kHeight, planes, 1.0, 0.0, 1) {
    FillPattern(source);
    for (int p = 0; p < planes; ++p) source.SetLevel(p, 0.0, 65535.0);
    result.Create(source);
    for (int p = 0; p < planes; ++p) result.SetLevel(p, 0.0, 65535.0);
    // The page faults of fresh memory can cost several times the filter: they are taken before the clock runs.
    FillPattern(result);
  }
  CVynImage source;
  Operation result;
};

}  // namespace qmr_bench
