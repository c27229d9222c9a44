// Interpolated rows and geometric operations on a colour frame of 24 million pixels, on all threads.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <memory>

#include "qmrimg/geometry/flip.h"
#include "qmrimg/geometry/interp.h"
#include "qmrimg/geometry/resolution.h"
#include "qmrimg/geometry/rotate.h"
#include "qmrimg/geometry/soft_binning.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"

namespace {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr int kPlanes = 3;

std::unique_ptr<CVynImage> NewImage() {
  return std::make_unique<CVynImage>(-32, kWidth, kHeight, kPlanes, 1.0, 0.0, 1);
}

float* Row(CVynImage& image, int y, int plane) {
  return static_cast<float*>(image.GetImageAdr(0, y, plane, 0, 0, nullptr));
}

CVynImage& Source() {
  static const std::unique_ptr<CVynImage> image = [] {
    auto made = NewImage();
    qmr::ForRows(0, kHeight, [&](int y) {
      std::uint32_t state = static_cast<std::uint32_t>(y) * 2654435761u + 1u;
      for (int p = 0; p < kPlanes; ++p) {
        float* row = Row(*made, y, p);
        for (int x = 0; x < kWidth; ++x) {
          state = state * 1664525u + 1013904223u;
          row[x] = static_cast<float>(state >> 8) * 0.001f;
        }
      }
    });
    return made;
  }();
  return *image;
}

CVynImage& Destination() {
  static const std::unique_ptr<CVynImage> image = NewImage();
  return *image;
}

void Lines(benchmark::State& state, int shiftType, double dx, double dy, double degrees) {
  const int method = static_cast<int>(state.range(0));
  CVynImage& source = Source();
  CVynImage& destination = Destination();
  const double angle = degrees * 3.141592653589793 / 180.0;
  const CString name = CInterp::GetEngString(method);
  for (auto _ : state) {
    qmr::ForRowRanges(0, kHeight, [&](int first, int last) {
      CInterp interp(method);
      interp.SetBParam(shiftType, &source, -dx, kWidth - dx, 0, 0.0f, -1, std::sin(angle), std::cos(angle), 1.0, 0);
      for (int y = first; y < last; ++y)
        interp.GetBLine(y - dy, Row(destination, y, 0), Row(destination, y, 1), Row(destination, y, 2));
    });
    benchmark::ClobberMemory();
  }
  std::string label;
  for (int i = 0; i < name.GetLength(); ++i) label += static_cast<char>(name.GetAt(i));
  state.SetLabel(label);
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight * kPlanes);
  state.SetBytesProcessed(state.iterations() * kWidth * kHeight * kPlanes * 8);
}

void ShiftedRows(benchmark::State& state) {
  Lines(state, 1, 0.3, 0.7, 0.0);
}
void TurnedRows(benchmark::State& state) {
  Lines(state, 2, 0.0, 0.0, 5.0);
}

// An operation on an object of the source's size, whose pixels the host would have anyway.
template <class Operation, class Call>
void Operate(benchmark::State& state, double outputShare, const Call& call) {
  CVynImage& source = Source();
  // The page faults of fresh memory can cost several times the work: they are taken before the clock runs.
  const auto once = [&](bool timed) {
    Operation image;
    static_cast<CImage&>(image).Create(source);
    if (timed) state.ResumeTiming();
    call(image, &source);
    benchmark::ClobberMemory();
    if (timed) state.PauseTiming();
  };
  once(false);
  for (auto _ : state) {
    state.PauseTiming();
    once(true);
    state.ResumeTiming();
  }
  const double pixels = static_cast<double>(state.iterations()) * kWidth * kHeight * kPlanes;
  state.SetItemsProcessed(static_cast<std::int64_t>(pixels * outputShare));
  state.SetBytesProcessed(static_cast<std::int64_t>(pixels * (1.0 + outputShare) * 4));
}

void Rotate(benchmark::State& state) {
  const int method = static_cast<int>(state.range(0));
  Operate<CImgRotate>(state, 1.0,
                      [&](CImgRotate& image, CVynImage* source) { image.Do(5.0, 0, source, 0, method, 0); });
}
void Rotate90(benchmark::State& state) {
  Operate<CImgRotate>(state, 1.0, [](CImgRotate& image, CVynImage* source) { image.Do90(1, source, 0); });
}
void Flip(benchmark::State& state) {
  const int horizontal = static_cast<int>(state.range(0));
  Operate<CImgFlip>(state, 1.0, [&](CImgFlip& image, CVynImage* source) { image.Do(horizontal, source, 0); });
}
void Binning(benchmark::State& state) {
  const int bin = static_cast<int>(state.range(0));
  Operate<CImgSoftBinning>(state, 1.0 / (bin * bin),
                           [&](CImgSoftBinning& image, CVynImage* source) { image.Do(bin, bin, 0, 1, source, 0); });
}

// The argument is the size in percent of the source's.
template <class Call>
void Resample(benchmark::State& state, const Call& call) {
  const int percent = static_cast<int>(state.range(0));
  const int width = kWidth * percent / 100;
  const int height = kHeight * percent / 100;
  Operate<CImgResolution>(state, percent * percent * 1e-4,
                          [&](CImgResolution& image, CVynImage* source) { call(image, source, width, height); });
}
void ResampleBilinear(benchmark::State& state) {
  Resample(state, [](CImgResolution& image, CVynImage* source, int w, int h) { image.Bilinear(source, w, h, 0); });
}
void ResampleBicubic(benchmark::State& state) {
  Resample(state, [](CImgResolution& image, CVynImage* source, int w, int h) { image.Bicubic(source, w, h, 0); });
}
void ResampleLanczos3(benchmark::State& state) {
  Resample(state, [](CImgResolution& image, CVynImage* source, int w, int h) { image.DoChange(source, w, h, 3, 0); });
}

BENCHMARK(Rotate)->Arg(0)->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Rotate90)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Flip)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Binning)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ResampleBilinear)->Arg(50)->Arg(150)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ResampleBicubic)->Arg(50)->Arg(150)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ResampleLanczos3)->Arg(50)->Arg(150)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK(ShiftedRows)->DenseRange(0, 4)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(TurnedRows)->DenseRange(0, 4)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
