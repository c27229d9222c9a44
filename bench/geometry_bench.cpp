// Interpolated rows of a colour frame of 24 million pixels, on all threads.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <memory>

#include "qmrimg/geometry/interp.h"
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

BENCHMARK(ShiftedRows)->DenseRange(0, 4)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(TurnedRows)->DenseRange(0, 4)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
