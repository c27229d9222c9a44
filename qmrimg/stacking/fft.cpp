#include "qmrimg/stacking/fft.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "qmrimg/platform/message_box.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/stacking/kernels/fft_lines.h"
#include "qmrimg/stacking/kernels/fft_memory.h"
#include "qmrimg/stacking/kernels/poc_rows.h"
#include "qmrimg/stacking/kernels/spectrum_rows.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

}  // namespace

CFft::CFft() = default;
CFft::~CFft() = default;

int CFft::GetCeilPowerOf2(int n) {
  return n < 1 ? 0 : qmr::TruncateToInt(std::pow(2.0, std::ceil(std::log(n) / std::log(2.0))));
}

int CFft::GetFloorPowerOf2(int n) {
  return n < 1 ? 0 : qmr::TruncateToInt(std::pow(2.0, std::floor(std::log(n) / std::log(2.0))));
}

int CFft::Create(int newWidth, int newHeight) {
  width = GetCeilPowerOf2(newWidth);
  height = GetCeilPowerOf2(newHeight);
  log2Width = qmr::Log2Exact(width);
  log2Height = qmr::Log2Exact(height);
  isAmpA = isAmpB = 0;
  const bool allocated = qmr::AllocatePair(width, height, blockA_, blockB_);
  arrayA = reinterpret_cast<complex*>(blockA_.Get());
  arrayB = reinterpret_cast<complex*>(blockB_.Get());
  if (!allocated) {
    width = height = log2Width = log2Height = 0;
    return 0;
  }
  Init();
  return 1;
}

void CFft::Init() {
  if (!arrayA) return;
  const std::ptrdiff_t count = static_cast<std::ptrdiff_t>(width) * height;
  std::fill_n(arrayA, count, complex());
  std::fill_n(arrayB, count, complex());
}

int CFft::Do(int direction, int which) {
  complex* const data = Array(which);
  if (!data) return 0;
  const qmr::FftSign sign = direction == 0 ? qmr::FftSign::kMinus : qmr::FftSign::kPlus;
  try {
    const qmr::FftPlan rows(width), columns(height);
    const std::size_t floats = std::max(rows.WorkFloats(), columns.WorkFloats());
    const qmr::Block work(floats * sizeof(float), qmr::Block::Content::kUndefined);
    if (!work.Get()) return 0;
    float* const scratch = reinterpret_cast<float*>(work.Get());
    const float rowScale = static_cast<float>(1.0 / std::sqrt(width));
    const float columnScale = static_cast<float>(1.0 / std::sqrt(height));
    for (int y = 0; y < height; ++y) rows.Row(Row(data, y), sign, rowScale, scratch);
    for (int x = 0; x < width; x += qmr::FftPlan::kLanes) {
      columns.Columns(&data[x].re, width, std::min(qmr::FftPlan::kLanes, width - x), sign, columnScale, scratch);
    }
  } catch (const std::bad_alloc&) {
  }
  return 0;
}

void CFft::Swap(int which) {
  complex* const data = Array(which);
  if (!data) return;
  for (int y = 0; y < height; ++y) qmr::SwapHalves(Row(data, y), width);
  for (int y = 0; y < height / 2; ++y) qmr::SwapRows(Row(data, y), Row(data, y + height / 2), width);
}

void CFft::Windowing(int which) {
  complex* const data = Array(which);
  if (!data) return;
  const double radius = width / 2;
  for (int y = 0; y < height; ++y) {
    complex* const row = data + static_cast<std::ptrdiff_t>(y) * width;
    const double dy = y - height / 2;
    for (int x = 0; x < width; ++x) {
      const double dx = x - width / 2;
      const double weight = 0.5 * std::cos(kPi * std::sqrt(dx * dx + dy * dy) / radius) + 0.5;
      row[x] = complex(static_cast<float>(row[x].re * weight), static_cast<float>(row[x].im * weight));
    }
  }
}

void CFft::ToAmpPhase(int which) {
  complex* const data = Array(which);
  if (!data) return;
  for (int y = 0; y < height; ++y) qmr::AmpPhaseRow(Row(data, y), width, true);
  Swap(which);
  SetFlag(which, 1);
}

void CFft::ToReIm(int which) {
  complex* const data = Array(which);
  if (!data) return;
  Swap(which);
  for (int y = 0; y < height; ++y) qmr::ReImRow(Row(data, y), width);
  SetFlag(which, 0);
}

void CFft::ToLogPolar(int startRadius, int useShortSide, int startAngle, int endAngle, int applyLog, int which) {
  complex* const data = Array(which);
  if (!data) return;
  const std::ptrdiff_t count = static_cast<std::ptrdiff_t>(width) * height;
  const qmr::Block copy = qmr::AllocateComplex(width, height);
  if (!copy.Get()) return;
  complex* const out = reinterpret_cast<complex*>(copy.Get());
  if (applyLog) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
      data[i].re = static_cast<float>(std::log(static_cast<double>(data[i].re)) + 1.0);
  }
  const double end = useShortSide ? width * 0.5 - 0.5 : width / std::sqrt(2.0) - 0.5;
  const qmr::LogPolarGrid grid =
      qmr::MakeLogPolarGrid(width, height, std::log(startRadius + 0.5), std::log(end), startAngle, endAngle);
  for (int y = 0; y < height; ++y) qmr::LogPolarRow(grid, &data->re, y, Row(out, y));
  std::copy_n(out, count, data);
}

void CFft::CalcPOC() {
  if (!arrayA) return;
  if (isAmpA && !isAmpB) {
    AfxMessageBox(L"CFft::CalcPOC(): FFT array A is amplitude.");
    return;
  }
  if (!isAmpA && isAmpB) {
    AfxMessageBox(L"CFft::CalcPOC(): FFT array B is amplitude.");
    return;
  }
  if (isAmpA) {
    ToReIm(0);
    ToReIm(1);
  }
  for (int y = 0; y < height; ++y) qmr::CrossSpectrumRow(Row(arrayA, y), Row(arrayB, y), width, width, width);
}

void CFft::PeakOfPOC(double& dx, double& dy) {
  dx = dy = 0.0;
  if (!arrayA) return;
  Swap(0);
  int px = -1, py = -1;
  float best = 0.0f;
  for (int y = 0; y < height; ++y) {
    const int x = qmr::MaxReal(Row(arrayA, y), width, &best);
    if (x >= 0) px = x, py = y;
  }
  const int left = std::max(px - 11, 0), right = std::min(px + 11, width);
  const int top = std::max(py - 11, 0), bottom = std::min(py + 11, height);
  float least = arrayA[0].re;
  for (int y = top; y < bottom; ++y) least = qmr::MinReal(Row(arrayA, y) + 2 * left, right - left, least);
  double sum = 0.0, sumX = 0.0, sumY = 0.0;
  for (int y = top; y < bottom; ++y) {
    const complex* const row = arrayA + static_cast<std::ptrdiff_t>(y) * width;
    for (int x = left; x < right; ++x) {
      const double v = static_cast<double>(row[x].re) - least;
      sum += v;
      sumX += x * v;
      sumY += y * v;
    }
  }
  dx = sumX / sum - width / 2;
  dy = sumY / sum - height / 2;
}

void CFft::Convolution(CFft* other, double eps) {
  if (!arrayA || !other || !other->arrayA) return;
  const float e = static_cast<float>(eps);
  // Element by element in memory order, also where the sizes differ; pieces of a row are small enough for an int.
  const std::ptrdiff_t count =
      std::min(static_cast<std::ptrdiff_t>(width) * height, static_cast<std::ptrdiff_t>(other->width) * other->height);
  for (std::ptrdiff_t at = 0; at < count; at += width) {
    qmr::DeconvolveRow(&arrayA[at].re, &other->arrayA[at].re,
                       static_cast<int>(std::min<std::ptrdiff_t>(width, count - at)), e);
  }
}

void CFft::SetGauss(double sigma) {
  if (!arrayA) return;
  for (int y = 0; y < height; ++y) {
    const double dy = y > height / 2 ? y - height : y;
    complex* const row = arrayA + static_cast<std::ptrdiff_t>(y) * width;
    for (int x = 0; x < width; ++x) {
      const double dx = x > width / 2 ? x - width : x;
      // 3.14159 on purpose: the strength of the restoration was tuned with it.
      const double v = std::exp(-(dx * dx + dy * dy) * 0.5 / sigma / sigma) * 1000.0 * 0.5 / 3.14159;
      row[x] = complex(static_cast<float>(v), 0.0f);
    }
  }
}

void CFft::GetMinMax(double* minimum, double* maximum) const {
  double low = 0.0, high = 0.0;
  const std::ptrdiff_t count = arrayA ? static_cast<std::ptrdiff_t>(width) * height : 0;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const double re = arrayA[i].re, im = arrayA[i].im;
    const double power = re * re + im * im;
    if (i == 0 || power < low) low = power;
    if (i == 0 || power > high) high = power;
  }
  if (minimum) *minimum = low;
  if (maximum) *maximum = high;
}

double CFft::Interp(complex* data, int part, int mode, double x, double y) const {
  return qmr::SampleComplex(data ? &data->re : nullptr, width, height, part, mode, x, y);
}
