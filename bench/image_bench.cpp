// Whole-image operations of the core on three planes of 6000 x 4000, beside copies of the same memory.
//
// bytes_per_second counts what an operation has to read and write once; of_copy is that rate as a share of the rate
// of a threaded copy of three planes measured in the same run.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <vector>

#include "qmrimg/image/dib.h"
#include "qmrimg/image/invert.h"
#include "qmrimg/platform/device.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr int kPlanes = 3;
constexpr double kImageBytes = static_cast<double>(kWidth) * kHeight * kPlanes * sizeof(float);
constexpr double kPixels = static_cast<double>(kWidth) * kHeight;

class CBenchImage : public CImgInvert {
 public:
  CBenchImage() {
    const CImage shape(-32, kWidth, kHeight, kPlanes, 1.0, 0.0, 1);
    CImage::Create(shape);
    std::uint64_t state = 1;
    for (int p = 0; p < kPlanes; ++p) {
      for (int y = 0; y < kHeight; ++y) {
        auto* row = static_cast<float*>(GetImageAdr(0, y, p, 0, 0, nullptr));
        for (int x = 0; x < kWidth; ++x) {
          state = state * 6364136223846793005ull + 1442695040888963407ull;
          row[x] = static_cast<float>(state >> 40) / 65536.0f;
        }
      }
    }
  }
};

CBenchImage& Source() {
  static CBenchImage image;
  return image;
}

CBenchImage& Target() {
  static CBenchImage image;
  return image;
}

void CopyPlanes() {
  for (int p = 0; p < kPlanes; ++p) {
#pragma omp parallel for schedule(static)
    for (int y = 0; y < kHeight; ++y)
      std::memcpy(Target().GetImageAdr(0, y, p, 0, 0, nullptr), Source().GetImageAdr(0, y, p, 1, 0, nullptr),
                  kWidth * sizeof(float));
  }
}

// Bytes a second of the copy, the best of a few rounds.
double CopyRate() {
  static const double rate = [] {
    double best = 0.0;
    for (int i = 0; i < 7; ++i) {
      const auto start = std::chrono::steady_clock::now();
      CopyPlanes();
      const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
      best = std::max(best, 2.0 * kImageBytes / seconds.count());
    }
    return best;
  }();
  return rate;
}

template <class Work>
void Run(benchmark::State& state, double bytes, Work&& work) {
  const double copy = CopyRate();
  work();
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) work();
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  const double rate = bytes * static_cast<double>(state.iterations()) / seconds.count();
  state.counters["of_copy"] = rate / copy;
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes * static_cast<double>(state.iterations())));
}

void Copy(benchmark::State& state) {
  Run(state, 2.0 * kImageBytes, CopyPlanes);
}

void Triad(benchmark::State& state) {
  Run(state, kImageBytes, [] {
#pragma omp parallel for schedule(static)
    for (int y = 0; y < kHeight; ++y) {
      const auto* a = static_cast<const float*>(Source().GetImageAdr(0, y, 0, 1, 0, nullptr));
      const auto* b = static_cast<const float*>(Source().GetImageAdr(0, y, 1, 1, 0, nullptr));
      auto* c = static_cast<float*>(Target().GetImageAdr(0, y, 2, 0, 0, nullptr));
      for (int x = 0; x < kWidth; ++x) c[x] = a[x] + 3.0f * b[x];
    }
  });
}

void Invert(benchmark::State& state) {
  Run(state, 2.0 * kImageBytes, [] { Target().Do(&Source(), nullptr, 0); });
}

void ToDib(benchmark::State& state) {
  const int bits = static_cast<int>(state.range(0));
  CWnd window(bits);
  CMemoryDIB dib;
  if (!dib.Create(&window, kWidth, kHeight, 0)) {
    state.SkipWithError("no memory for the bitmap");
    return;
  }
  // 32 bits keep the fourth byte and so read the bitmap as well.
  const double traffic = kPixels * bits / 8 * (bits == 32 ? 2 : 1);
  Run(state, kImageBytes + traffic, [&] { Source().ToDIB(&dib, nullptr, 0); });
}

void GetDib(benchmark::State& state) {
  const int bits = static_cast<int>(state.range(0));
  Run(state, kImageBytes * (bits == 8 ? 2 : 1) + kPixels * bits / 8, [bits] { GlobalFree(Source().GetDib(bits)); });
}

void Histogram(benchmark::State& state) {
  const int bins = static_cast<int>(state.range(0));
  std::vector<int> hist(static_cast<std::size_t>(bins));
  Run(state, kImageBytes / kPlanes,
      [&] { Source().GetHistogram(hist.data(), bins, 0.0, 255.0, 1, 0, 1, 0, nullptr, 0, 0); });
}

void HistogramBright(benchmark::State& state) {
  const int bins = static_cast<int>(state.range(0));
  std::vector<int> hist(static_cast<std::size_t>(bins));
  Run(state, kImageBytes, [&] { Source().GetHistogram(hist.data(), bins, 0.0, 255.0, -1, 0, 1, 0, nullptr, 0, 0); });
}

void MinMax(benchmark::State& state) {
  Run(state, kImageBytes, [] { Source().CalcMinMax(); });
}

void Mean(benchmark::State& state) {
  Run(state, kImageBytes / kPlanes, [] { benchmark::DoNotOptimize(Source().GetAvrGrayRaw(0)); });
}

void Centroid(benchmark::State& state) {
  Run(state, 2.0 * kImageBytes, [] {
    double x, y;
    Source().GetCentroid(x, y, nullptr);
    benchmark::DoNotOptimize(x);
  });
}

void DeepCopy(benchmark::State& state) {
  Run(state, 2.0 * kImageBytes, [] { Target().CopyImage(Source()); });
}

BENCHMARK(Copy)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Triad)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Invert)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ToDib)->Arg(8)->Arg(16)->Arg(24)->Arg(32)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(GetDib)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Histogram)->Arg(256)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(HistogramBright)->Arg(256)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MinMax)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Mean)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Centroid)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(DeepCopy)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
