// Matching a template, and the operations that read at computed places.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <memory>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/stacking/matching.h"
#include "qmrimg/stacking/mosaic.h"
#include "qmrimg/stacking/rttn_grdnt.h"

namespace {

template <class Image = CVynImage>
std::unique_ptr<Image> NewImage(int width, int height) {
  auto image = std::make_unique<Image>();
  static_cast<CVynImage&>(*image) = CVynImage(-32, width, height, 1, 1.0, 0.0, 1);
  return image;
}

float* Row(CVynImage& image, int y) {
  return static_cast<float*>(image.GetImageAdr(0, y, 0, 0, 0, nullptr));
}

// A surface of some structure with noise of its own, seen from (x0, y0).
void FillSurface(CVynImage& image, double x0, double y0, std::uint32_t seed) {
  qmr::ForRows(0, image.GetHeight(), [&](int y) {
    std::uint32_t state = (static_cast<std::uint32_t>(y) + 1u) * 2654435761u + seed;
    for (int x = 0; x < image.GetWidth(); ++x) {
      state = state * 1664525u + 1013904223u;
      const double u = x + x0;
      const double v = y + y0;
      const double light = std::sin(u * 0.31 + v * 0.11) + std::sin(u * 0.07 - v * 0.23) + std::sin(v * 0.41);
      Row(image, y)[x] = static_cast<float>(1000.0 + 100.0 * light + (state >> 8) * (10.0 / 16777216.0));
    }
  });
}

void Matching(benchmark::State& state) {
  auto frame = NewImage<CImgMatching>(1280, 960);
  auto pattern = NewImage(256, 256);
  FillSurface(*frame, 0.0, 0.0, 1);
  FillSurface(*pattern, 500.3, 350.6, 2);
  for (auto _ : state) {
    double x = 493.0;
    double y = 361.0;
    benchmark::DoNotOptimize(frame->Do(pattern.get(), &x, &y, 40, static_cast<int>(state.range(0)), 0));
  }
}
BENCHMARK(Matching)->ArgName("subPixel")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void Score(benchmark::State& state) {
  auto frame = NewImage<CImgMatching>(1280, 960);
  auto pattern = NewImage(256, 256);
  FillSurface(*frame, 0.0, 0.0, 1);
  FillSurface(*pattern, 500.3, 350.6, 2);
  double ratio = 1.0;
  for (auto _ : state) {
    if (state.range(0))
      benchmark::DoNotOptimize(frame->CalcValue(pattern.get(), 500.3, 350.6, &ratio));
    else
      benchmark::DoNotOptimize(frame->CalcValue(pattern.get(), 500, 350, &ratio));
  }
  state.SetItemsProcessed(state.iterations() * 256 * 256);
}
BENCHMARK(Score)->ArgName("between")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->UseRealTime();

void Mosaic(benchmark::State& state) {
  constexpr int kWidth = 6000;
  constexpr int kHeight = 4000;
  auto canvas = NewImage<CImgMosaic>(kWidth, kHeight);
  auto base = NewImage(kWidth, kHeight);
  auto addition = NewImage(kWidth, kHeight);
  FillSurface(*base, 0.0, 0.0, 1);
  FillSurface(*addition, 0.0, 0.0, 2);
  // The page faults of fresh memory are taken before the clock runs.
  FillSurface(*canvas, 0.0, 0.0, 3);
  addition->SetDefaultCenter();
  const double angle = static_cast<double>(state.range(0));
  for (auto _ : state) {
    canvas->Do(base.get(), 0, 0, addition.get(), 0.3, 0.7, angle, 2, nullptr, nullptr, 0, 0, nullptr, 0);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
  state.SetBytesProcessed(state.iterations() * kWidth * kHeight * 12);
}
BENCHMARK(Mosaic)->ArgName("degrees")->Arg(0)->Arg(5)->Unit(benchmark::kMillisecond)->UseRealTime();

void RotationalGradient(benchmark::State& state) {
  constexpr int kWidth = 3000;
  constexpr int kHeight = 2000;
  auto image = NewImage<CImgRttnGrdnt>(kWidth, kHeight);
  auto source = NewImage(kWidth, kHeight);
  FillSurface(*source, 0.0, 0.0, 1);
  FillSurface(*image, 0.0, 0.0, 2);
  for (auto _ : state) {
    image->Do(15.0, 1.0, 1500.0, 1000.0, source.get(), nullptr, 0);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(RotationalGradient)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
