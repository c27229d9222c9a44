#include "qmrimg/stacking/fftd.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/stacking/fft.h"
#include "qmrimg/stacking/kernels/fft_lines.h"
#include "qmrimg/stacking/kernels/fft_memory.h"
#include "qmrimg/stacking/kernels/spectrum_rows.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kLanes = qmr::FftPlan::kLanes;

// Scratch of the line transform, one stretch a thread.
class LineWork {
 public:
  explicit LineWork(std::size_t floats, int threads)
      : stride_((floats + kLanes - 1) / kLanes * kLanes),
        block_(stride_ * static_cast<std::size_t>(threads) * sizeof(float), qmr::Block::Content::kUndefined) {
    if (!block_.Get()) throw std::bad_alloc();
  }
  float* OfThread(int thread) const {
    return reinterpret_cast<float*>(block_.Get()) + stride_ * static_cast<std::size_t>(thread);
  }

 private:
  std::size_t stride_;
  qmr::Block block_;
};

}  // namespace

CFftd::CFftd() = default;
CFftd::~CFftd() = default;

int CFftd::Create(int newWidth, int newHeight) {
  width = CFft::GetCeilPowerOf2(newWidth);
  height = CFft::GetCeilPowerOf2(newHeight);
  log2Width = qmr::Log2Exact(width);
  log2Height = qmr::Log2Exact(height);
  isAmpA = isAmpB = 0;
  const bool allocated = qmr::AllocatePair(width, height, blockA_, blockB_);
  arrayA = reinterpret_cast<dcomplex*>(blockA_.Get());
  arrayB = reinterpret_cast<dcomplex*>(blockB_.Get());
  if (!allocated) {
    width = height = log2Width = log2Height = 0;
    return 0;
  }
  Init();
  return 1;
}

void CFftd::Init() {
  if (!arrayA) return;
  qmr::ForRows(
      0, height,
      [&](int y) {
        std::fill_n(Row(arrayA, y), 2 * static_cast<std::ptrdiff_t>(width), 0.0f);
        std::fill_n(Row(arrayB, y), 2 * static_cast<std::ptrdiff_t>(width), 0.0f);
      },
      progressImage);
}

const qmr::FftPlan& CFftd::MakeTableSR(int N) {
  if (!plan_ || plan_->Length() != N) plan_ = std::make_unique<qmr::FftPlan>(N);
  return *plan_;
}

int CFftd::Do(int direction, int which) {
  dcomplex* const data = Array(which);
  if (!data) return 0;
  const qmr::FftSign sign = direction == 0 ? qmr::FftSign::kPlus : qmr::FftSign::kMinus;
  // Sizes are powers of two, so that multiplying by the reciprocal is the division itself.
  const float rowScale = direction == 0 ? 1.0f : 1.0f / static_cast<float>(width);
  const float columnScale = direction == 0 ? 1.0f : 1.0f / static_cast<float>(height);
  const int threads = CParallel::GetMaxThreads();
  try {
    {
      const qmr::FftPlan& plan = MakeTableSR(width);
      const LineWork work(plan.WorkFloats(), threads);
      qmr::ForRows(
          0, height, [&](int y) { plan.Row(Row(data, y), sign, rowScale, work.OfThread(CParallel::GetThreadNum())); },
          progressImage);
    }
    const qmr::FftPlan& plan = MakeTableSR(height);
    const LineWork work(plan.WorkFloats(), threads);
    const int together = std::min(kLanes, width);
    qmr::ForRowsStep(
        0, width, together,
        [&](int x) {
          plan.Columns(&data[x].re, width, together, sign, columnScale, work.OfThread(CParallel::GetThreadNum()));
        },
        progressImage, together);
  } catch (const std::bad_alloc&) {
  }
  return 0;
}

dcomplex* CFftd::Line(dcomplex* line, int N, int direction, bool forwardPlus) {
  if (!line || qmr::Log2Exact(N) < 0) return line;
  try {
    const qmr::FftPlan& plan = MakeTableSR(N);
    const LineWork work(plan.WorkFloats(), 1);
    const bool plus = (direction == 0) == forwardPlus;
    plan.Row(&line->re, plus ? qmr::FftSign::kPlus : qmr::FftSign::kMinus,
             direction == 0 ? 1.0f : 1.0f / static_cast<float>(N), work.OfThread(0));
  } catch (const std::bad_alloc&) {
  }
  return line;
}

dcomplex* CFftd::LineFFT_SR(dcomplex* line, int N, int direction) {
  return Line(line, N, direction, true);
}
dcomplex* CFftd::LineFFT(dcomplex* line, int N, int direction) {
  return Line(line, N, direction, false);
}

int CFftd::Do1D(int direction, int which) {
  dcomplex* const data = Array(which);
  if (!data) return 0;
  try {
    const qmr::FftPlan& plan = MakeTableSR(width);
    const LineWork work(plan.WorkFloats(), 1);
    std::vector<dcomplex> line(static_cast<std::size_t>(width));
    const std::ptrdiff_t count = static_cast<std::ptrdiff_t>(width) * height;
    // Serial and in order: rows are written over each other's elements, on purpose (see the declaration).
    qmr::ForRowsSerial(
        0, height,
        [&](int y) {
          std::copy_n(data + static_cast<std::ptrdiff_t>(y) * width, width, line.data());
          plan.Row(&line[0].re, direction == 0 ? qmr::FftSign::kMinus : qmr::FftSign::kPlus,
                   direction == 0 ? 1.0f : 1.0f / static_cast<float>(width), work.OfThread(0));
          std::ptrdiff_t at = y;
          for (int j = 0; j < width && at < count; ++j, at += height + 1) data[at] = line[static_cast<std::size_t>(j)];
        },
        progressImage);
  } catch (const std::bad_alloc&) {
  }
  return 0;
}

void CFftd::SwapX(int which) {
  dcomplex* const data = Array(which);
  if (!data) return;
  qmr::ForRows(
      0, height, [&](int y) { qmr::SwapHalves(Row(data, y), width); }, progressImage);
}

void CFftd::Swap(int which) {
  dcomplex* const data = Array(which);
  if (!data) return;
  SwapX(which);
  const int half = height / 2;
  qmr::ForRows(
      0, half, [&](int y) { qmr::SwapRows(Row(data, y), Row(data, y + half), width); }, progressImage);
}

void CFftd::Windowing(int which) {
  dcomplex* const data = Array(which);
  if (!data) return;
  const int radius = std::min(width, height) / 2, centre = height / 2;
  // Rows of equal distance from the centre share their weights, and so do the two halves of a row.
  qmr::ForRowRanges(0, height - centre + 1, [&](int first, int last) {
    std::vector<double> weights(static_cast<std::size_t>(radius) + 2);
    for (int d = first; d < last; ++d) {
      const int inside = qmr::BellWeights(d, radius, radius, weights.data());
      for (const int y : {centre - d, centre + d}) {
        if (y < 0 || y >= height) continue;
        qmr::ApplyBell(weights.data(), inside, Row(data, y), width);
        if (progressImage) progressImage->ShowProgress(1);
        if (d == 0) break;  // the middle row has no partner
      }
    }
  });
}

void CFftd::ToAmpPhase(int which) {
  ToAmp(which, true);
}

void CFftd::ToAmp(int which, bool phase) {
  dcomplex* const data = Array(which);
  if (!data) return;
  qmr::ForRows(
      0, height, [&](int y) { qmr::AmpPhaseRow(Row(data, y), width, phase); }, progressImage);
  Swap(which);
  SetFlag(which, 1);
}

void CFftd::ToReIm(int which) {
  dcomplex* const data = Array(which);
  if (!data) return;
  Swap(which);
  qmr::ForRowsSerial(
      0, height, [&](int y) { qmr::ReImRow(Row(data, y), width); }, progressImage);
  SetFlag(which, 0);
}

void CFftd::ToLogPolar(int startRadius, int useShortSide, int startAngle, int endAngle, int applyLog, int which) {
  dcomplex* const data = Array(which);
  if (!data) return;
  const qmr::Block copy = qmr::AllocateComplex(width, height);
  if (!copy.Get()) return;
  dcomplex* const out = reinterpret_cast<dcomplex*>(copy.Get());
  if (applyLog) {
    const float least = qmr::FoldRows(
        0, height, std::numeric_limits<float>::infinity(),
        [&](int y) { return qmr::MinReal(Row(data, y), width, std::numeric_limits<float>::infinity()); },
        [](float a, float b) { return b < a ? b : a; });
    const double floor = least > 0.0f ? 0.0 : static_cast<double>(least);
    qmr::ForRows(0, height, [&](int y) { qmr::LogRow(Row(data, y), width, floor); });
  }
  const double w = width, h = height;
  const double half = useShortSide ? std::min(w, h) * 0.5 : std::sqrt(w * w + h * h) * 0.5;
  const qmr::LogPolarGrid grid = qmr::MakeLogPolarGrid(width, height, std::log(startRadius + 1.0),
                                                       std::log(std::trunc(half) - 0.5), startAngle, endAngle);
  qmr::ForRows(
      0, height, [&](int y) { qmr::LogPolarRow(grid, &data->re, y, Row(out, y)); }, progressImage);
  qmr::ForRows(0, height,
               [&](int y) { std::copy_n(Row(out, y), 2 * static_cast<std::ptrdiff_t>(width), Row(data, y)); });
}

double CFftd::Interp(dcomplex* data, int part, int mode, double x, double y) const {
  return qmr::SampleComplex(data ? &data->re : nullptr, width, height, part, mode, x, y);
}
