// Colour operations on a frame of 3 x 6000 x 4000 pixels; items are pixels of the frame, not of its planes.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>

#include "bench/bench_frame.h"
#include "qmrimg/colour/color_balance.h"
#include "qmrimg/colour/color_correct.h"
#include "qmrimg/colour/false_color.h"
#include "qmrimg/colour/lab_color_enhance.h"

namespace {

using namespace qmr_bench;

tagMATRIX matrix = {{{1.7, -0.5, -0.2}, {-0.2, 1.5, -0.3}, {0.1, -0.6, 1.5}}};

// `planes`: how many planes the operation reads and writes in all.
void ReportPixels(benchmark::State& state, int planes) {
  const std::int64_t pixels = std::int64_t{kWidth} * kHeight * state.iterations();
  state.SetItemsProcessed(pixels);
  state.SetBytesProcessed(pixels * planes * static_cast<std::int64_t>(sizeof(float)));
}

void Balance(benchmark::State& state) {
  Frames<CImgColorBalance> images;
  for (auto _ : state) images.result.Do(3.0, -2.0, 1.0, &images.source, nullptr, 0);
  ReportPixels(state, 6);
}
BENCHMARK(Balance)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void CorrectInPlace(benchmark::State& state) {
  Frames<CImgColorCorrect> images;
  const double strength = state.range(0) ? 1.0 : 0.25;
  for (auto _ : state) images.result.Do(&matrix, strength, 0, 0.0f, 0, 0);
  ReportPixels(state, 6);
}
BENCHMARK(CorrectInPlace)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void CorrectInPlaceAboutMinimum(benchmark::State& state) {
  Frames<CImgColorCorrect> images;
  for (auto _ : state) images.result.Do(&matrix, 1.0, 1, 0.0f, 0, 0);
  ReportPixels(state, 9);
}
BENCHMARK(CorrectInPlaceAboutMinimum)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void CorrectFromSource(benchmark::State& state) {
  Frames<CImgColorCorrect> images;
  const double strength = state.range(0) ? 1.0 : 0.25;
  for (auto _ : state) images.result.Do(&matrix, strength, 0, 0.0f, 0, &images.source, nullptr, 0);
  ReportPixels(state, 6);
}
BENCHMARK(CorrectFromSource)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void MakeLab(benchmark::State& state) {
  Frames<CVynImage> images;
  for (auto _ : state) std::unique_ptr<CVynImage>(images.source.MakeLabPlane());
  ReportPixels(state, 6);
}
BENCHMARK(MakeLab)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void LabEnhance(benchmark::State& state) {
  Frames<CImgLabColorEnhance> images;
  const std::unique_ptr<CVynImage> lab(images.source.MakeLabPlane());
  for (auto _ : state) images.result.Do(lab.get(), 1.2, 1.1, 1.3, 1.4, nullptr, 0);
  ReportPixels(state, 6);
}
BENCHMARK(LabEnhance)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// Palette by number; 0 and 1 blend anchors, 4 reads a table.
void FalseColour(benchmark::State& state) {
  Frames<CImgFalseColor> images;
  const int palette = static_cast<int>(state.range(0));
  for (auto _ : state) images.result.Do(0.0, 65535.0, palette, 0, &images.source, nullptr, 0);
  ReportPixels(state, 6);
}
BENCHMARK(FalseColour)->Arg(0)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
