#include "qmrimg/filters/filter_proc.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <new>
#include <type_traits>
#include <utility>

#include "qmrimg/filters/kernels/separable_rows.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/message_box.h"
#include "qmrimg/store/parallel.h"

namespace {

// A ring that holds no row yet.
constexpr int kNoRow = -1000;
constexpr int kEmptyWidth = 50;

template <class T>
std::shared_ptr<T[]> NewArray(int count, T value) {
  return std::make_shared<T[]>(static_cast<std::size_t>(count), value);
}

// The horizontal pass in float.
void FilterRow(const float* pixels, int width, const float* taps, int radius, float* out) {
  for (int c = 0; c < width; ++c) {
    float sum = 0.0f;
    for (int k = -radius; k <= radius; ++k) sum += pixels[std::clamp(c + k, 0, width - 1)] * taps[k + radius];
    out[c] = sum;
  }
}

}  // namespace

// Rows in work of one thread's horizontal pass in double.
struct CFilterProc::Scratch {
  Scratch(int width, int size)
      : columns(RoundUp(width)), wide(columns + static_cast<std::size_t>(size) - 1), out(columns) {}
  static std::size_t RoundUp(int width) {
    return (static_cast<std::size_t>(width) + qmr::kColumnsAtOnce - 1) / qmr::kColumnsAtOnce * qmr::kColumnsAtOnce;
  }
  void FilterRow(const float* pixels, int width, const double* taps, int radius, float* to) {
    qmr::WidenRow({pixels, static_cast<std::size_t>(width)}, 0, radius, wide);
    qmr::FilterAlongRow(wide.data(), {taps, 2 * static_cast<std::size_t>(radius) + 1}, out);
    std::copy_n(out.begin(), width, to);
  }

  std::size_t columns;
  std::vector<double> wide;
  std::vector<float> out;
};

CFilterProc::CFilterProc() = default;
CFilterProc::CFilterProc(CVynImage* image, CFilterMatrix* from, int imagePlane) {
  MakeBuf(image, from, imagePlane, 1);
}
CFilterProc::~CFilterProc() = default;

void CFilterProc::Init() {
  radius = 0;
  size = 0;
  source = nullptr;
  matrix = nullptr;
  ringLength = 0;
  rings.reset();
  plane = 0;
  kernel.reset();
  width = kEmptyWidth;
  lastColumn.reset();
  lastRow.reset();
  ringHead.reset();
  threads = 0;
  wideKernel_.reset();
  scratch_.reset();
}

void CFilterProc::Empty() {
  Init();
}

int CFilterProc::IsEmpty() const {
  return !rings || rings->empty() || !rings->front();
}

int CFilterProc::MakeBuf(CVynImage* image, CFilterMatrix* from, int imagePlane, int normalize) {
  if (!image || !from) return 1;
  const int oldThreads = threads;
  threads = CParallel::GetMaxThreads();
  matrix = from;
  source = image;
  plane = imagePlane;
  radius = from->GetRadius();
  size = 2 * radius + 1;
  width = image->GetWidth();
  const std::int64_t length = static_cast<std::int64_t>(size) * width;
  try {
    if (length > INT32_MAX) AfxThrowMemoryException();
    if (length != ringLength || threads != oldThreads || !rings) {
      rings.reset();
      auto fresh = std::make_shared<std::vector<std::unique_ptr<float[]>>>();
      for (int t = 0; t < threads; ++t) fresh->push_back(std::make_unique<float[]>(static_cast<std::size_t>(length)));
      rings = std::move(fresh);
      ringLength = static_cast<int>(length);
    }
    scratch_ = std::make_shared<std::vector<Scratch>>(static_cast<std::size_t>(threads), Scratch(width, size));
    wideKernel_ = NewArray(size, 0.0);
    lastColumn = NewArray(threads, kNoRow);
    lastRow = NewArray(threads, kNoRow);
    ringHead = NewArray(threads, 0);
    kernel = NewArray(size, 0.0f);
  } catch (const std::bad_alloc&) {
    Empty();
    AfxThrowMemoryException();
  } catch (...) {
    Empty();
    throw;
  }
  // Only the centre row counts, in both directions.
  float sum = 0.0f;
  for (int k = 0; k < size; ++k) {
    kernel[k] = from->Get(k - radius, 0);
    sum += kernel[k];
  }
  if (normalize)
    for (int k = 0; k < size; ++k) kernel[k] /= sum;
  std::copy_n(kernel.get(), size, wideKernel_.get());
  return 1;
}

float CFilterProc::Calc(int x, int y) {
  return ProcHorizontal_x(x, y) ? ProcVertical_x(x) : 0.0f;
}

int CFilterProc::ProcHorizontal(int x, int y) {
  (void)x;
  return SlideRing<float>(y);
}

int CFilterProc::ProcHorizontal_x(int x, int y) {
  (void)x;
  return SlideRing<double>(y);
}

float CFilterProc::ProcVertical(int x) const {
  return SumColumn<float>(x);
}
float CFilterProc::ProcVertical_x(int x) const {
  return SumColumn<double>(x);
}

void CFilterProc::StartPass() {
  for (int t = 0; t < threads; ++t) lastRow[t] = kNoRow;
}

std::span<const float> CFilterProc::GetKernel() const {
  return kernel ? std::span<const float>(kernel.get(), static_cast<std::size_t>(size)) : std::span<const float>();
}

template <class Sum>
int CFilterProc::SlideRing(int y) {
  const int t = CParallel::GetThreadNum();
  if (IsEmpty() || t < 0 || t >= threads || source->GetWidth() < width) return 0;
  const int height = source->GetHeight();
  if (source->GetBitsPixel() != -32 || !source->GetImageAdr(0, height - 1, plane, 1, 0, nullptr)) return 0;
  if (lastRow[t] == y && y != kNoRow) return 1;

  std::int64_t delta = static_cast<std::int64_t>(lastRow[t]) - y;
  if (delta < -size || lastRow[t] == kNoRow) {
    delta = -size;
  } else if (delta > size) {
    ringHead[t] = 0;
    delta = -size;
  }
  // The remainder keeps the sign of the dividend: after a short step upward the head may be negative.
  ringHead[t] = static_cast<int>((ringHead[t] - delta) % size);
  lastRow[t] = y;

  float* const ring = (*rings)[static_cast<std::size_t>(t)].get();
  for (std::int64_t i = 0; i < std::abs(delta); ++i) {
    const std::int64_t ringRow = (ringHead[t] + size + i + delta) % size;
    if (ringRow < 0 || (ringRow + 1) * width > ringLength) {
      // A guard against corruption of the ring's arithmetic.
      AfxMessageBox(L"Over!");
      continue;
    }
    const int row = qmr::SeparableSourceRow(radius + i + delta + y + 1, height);
    const auto* pixels = static_cast<const float*>(source->GetImageAdr(0, row, plane, 0, 2, nullptr));
    float* const out = ring + ringRow * width;
    if constexpr (std::is_same_v<Sum, float>)
      FilterRow(pixels, width, kernel.get(), radius, out);
    else
      (*scratch_)[static_cast<std::size_t>(t)].FilterRow(pixels, width, wideKernel_.get(), radius, out);
    source->UnlockAll();
  }
  return 1;
}

template <class Sum>
float CFilterProc::SumColumn(int x) const {
  const int t = CParallel::GetThreadNum();
  if (IsEmpty() || t < 0 || t >= threads || x < 0 || x >= width) return 0.0f;
  const float* const column = (*rings)[static_cast<std::size_t>(t)].get() + x;
  const float* const taps = kernel.get();
  // A negative head reads as 0.
  const int head = std::max(ringHead[t], 0);
  Sum sum = 0;
  int k = 0;
  for (int row = head; row < size; ++row, ++k)
    sum += static_cast<Sum>(column[static_cast<std::ptrdiff_t>(row) * width]) * static_cast<Sum>(taps[k]);
  for (int row = 0; row < head; ++row, ++k)
    sum += static_cast<Sum>(column[static_cast<std::ptrdiff_t>(row) * width]) * static_cast<Sum>(taps[k]);
  return static_cast<float>(sum);
}

CFilterProcEx::CFilterProcEx() = default;
CFilterProcEx::CFilterProcEx(const CFilterProcEx& src) {
  *this = src;
}

CFilterProcEx& CFilterProcEx::operator=(const CFilterProcEx& src) {
  std::copy(std::begin(src.procs), std::end(src.procs), procs);
  current = procs + (src.current - src.procs);
  return *this;
}

CFilterProcEx::~CFilterProcEx() = default;

int CFilterProcEx::Make(CVynImage* source, CFilterMatrix* matrix, int plane, int normalize) {
  CFilterProc* const proc = Get(plane);
  if (!proc) return 0;
  return proc->IsEmpty() ? proc->MakeBuf(source, matrix, plane, normalize) : 1;
}

void CFilterProcEx::Clear() {
  for (CFilterProc& proc : procs) proc.Empty();
}

void CFilterProcEx::SetPln(int plane) {
  CFilterProc* const proc = Get(plane);
  current = proc ? proc : procs;
}

float CFilterProcEx::Calc(int x, int y) {
  return current->Calc(x, y);
}

float CFilterProcEx::Calc(int x, int y, int plane) {
  CFilterProc* const proc = Get(plane);
  return proc ? proc->Calc(x, y) : 0.0f;
}
