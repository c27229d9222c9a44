#include "qmrimg/filters/wavelet.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "qmrimg/filters/kernels/daubechies.h"
#include "qmrimg/filters/kernels/wavelet_lines.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/store/block.h"

namespace qmr {

// Gains of one level.
struct WaveletGains {
  float low;
  float row;
  float column;
  float diagonal;
};

}  // namespace qmr

namespace {

constexpr int kMessageComposition = 6180;
constexpr int kMessageDecomposition = 6181;
constexpr int kGreatestInt = std::numeric_limits<int>::max();

static_assert(qmr::kMaxWaveletTaps == 2 * qmr::kMaxDaubechiesOrder);

// Work memory of one thread.
class Work {
 public:
  explicit Work(std::size_t floats) : block_(floats * sizeof(float), qmr::Block::Content::kUndefined) {
    if (!block_.Get()) AfxThrowMemoryException();
  }
  float* Get() const { return reinterpret_cast<float*>(block_.Get()); }

 private:
  qmr::Block block_;
};

// The upper left `width` x `height` pixels of a plane; null when the image doesn't have them.
struct PlaneCorner {
  PlaneCorner(CVynImage& image, int plane, int width, int height) : width(width), height(height) {
    const auto size = static_cast<std::size_t>(width);
    const auto first = qmr::WriteRow(image, 0, plane, 0, width);
    if (width <= 0 || height <= 0 || first.size() != size) return;
    if (qmr::WriteRow(image, height - 1, plane, 0, width).size() != size) return;
    corner = first.data();
    stride = image.GetVmImage()->GetRowBytes() / static_cast<std::ptrdiff_t>(sizeof(float));
  }

  float* corner = nullptr;
  std::ptrdiff_t stride = 0;
  int width;
  int height;
};

using LineTransform = void (*)(float* line, std::ptrdiff_t n, const qmr::WaveletTaps& taps, float* work);

void TransformRows(const PlaneCorner& plane, const qmr::WaveletTaps& taps, LineTransform transform) {
  if (!plane.corner) return;
  qmr::ForRowRanges(0, plane.height, [&](int first, int last) {
    const Work work(qmr::WaveletLineWork(plane.width));
    for (int y = first; y < last; ++y) transform(plane.corner + y * plane.stride, plane.width, taps, work.Get());
  });
}

// `transform(tile, x, work)`, x being the tile's first column.
template <class Transform>
void TransformColumns(const PlaneCorner& plane, Transform&& transform) {
  if (!plane.corner) return;
  constexpr int kColumns = static_cast<int>(qmr::kWaveletColumns);
  const int tiles = plane.width / kColumns + (plane.width % kColumns != 0);
  qmr::ForRowRanges(0, tiles, [&](int first, int last) {
    const Work work(qmr::WaveletTileWork(plane.height));
    for (int i = first; i < last; ++i) {
      const int x = i * kColumns;
      const qmr::ColumnTile tile{plane.corner + x, plane.stride, std::min(plane.width - x, kColumns), plane.height};
      transform(tile, x, work.Get());
    }
  });
}

void TransformLine(CArray<float, float>* line, const qmr::WaveletTaps& taps, LineTransform transform) {
  if (!line || line->IsEmpty()) return;
  const Work work(qmr::WaveletLineWork(line->GetSize()));
  transform(&line->ElementAt(0), line->GetSize(), taps, work.Get());
}

// Progress in units of a pixel or, where the total would not fit an int, of a power of two of them.
class Units {
 public:
  Units(const CVynImage& image, int levels) {
    // Exact for every image that fits into memory.
    double total = 0.0;
    int w = image.GetWidth();
    int h = image.GetHeight();
    for (int level = 0; level < levels && w > 0 && h > 0; ++level, w /= 2, h /= 2) {
      total += 2.0 * image.GetPlanes() * w * h;
    }
    while (std::ldexp(total, -shift_) > kGreatestInt) ++shift_;
    total_ = qmr::TruncateToInt(std::ldexp(total, -shift_));
  }
  int Total() const { return total_; }
  int Of(int w, int h) const { return qmr::TruncateToInt(std::ldexp(static_cast<double>(w) * h, -shift_)); }

 private:
  int shift_ = 0;
  int total_ = 0;
};

int AllPixels(int w, int h) {
  return qmr::TruncateToInt(static_cast<double>(w) * h);
}

// The sides of the rectangle, cut to the image.
struct Sides {
  Sides(const CVynImage& image, const CRect* rect) : w(image.GetWidth()), h(image.GetHeight()) {
    if (!rect) return;
    w = static_cast<int>(std::clamp<std::int64_t>(std::int64_t{rect->right} - rect->left, 0, w));
    h = static_cast<int>(std::clamp<std::int64_t>(std::int64_t{rect->bottom} - rect->top, 0, h));
  }
  int w;
  int h;
};

// A side at `level`: that of the coarsest level, doubled from there on. Bits lost on the way down stay lost.
int ComposedSide(int size, int coarsest, int level) {
  return coarsest > 30 ? 0 : std::max(size, 0) >> coarsest << (coarsest - level);
}

int BufferSide(std::int64_t size, int levels) {
  // 2 to the power 61 stands for all that is too large.
  levels = std::clamp(levels, -2, 61);
  const std::int64_t multiple = std::int64_t{1} << std::max(levels, 0);
  // Four times 2 to the power levels - 1, truncated.
  const std::int64_t least = levels < -1 ? 0 : std::int64_t{1} << (levels + 1);
  size = std::max<std::int64_t>(size, 0);
  const std::int64_t rounded = size / multiple * multiple + (size % multiple != 0 ? multiple : 0);
  return static_cast<int>(std::min<std::int64_t>(std::max(rounded, least), kGreatestInt));
}

}  // namespace

CImgWavelet::CImgWavelet() = default;
CImgWavelet::CImgWavelet(const CImgWavelet& src) = default;
CImgWavelet& CImgWavelet::operator=(const CImgWavelet& src) = default;
CImgWavelet::~CImgWavelet() = default;

void CImgWavelet::SetDaubechyParams(int order) {
  const std::int64_t length = 2 * std::int64_t{order};
  taps = static_cast<int>(std::clamp<std::int64_t>(length, std::numeric_limits<int>::min(), kGreatestInt));
  for (float* filter : {lowSynthesis, highSynthesis, lowAnalysis, highAnalysis}) {
    std::fill(filter, filter + qmr::kMaxWaveletTaps, 0.0f);
  }
  const std::span<const double> published = qmr::DaubechiesLowPass(order);
  const std::size_t count = published.size();
  for (std::size_t i = 0; i < count; ++i) {
    // Held in float before it is scaled in double: so the taps of Haar become exactly 1.
    lowSynthesis[i] = static_cast<float>(static_cast<float>(published[i]) * std::sqrt(2.0));
  }
  for (std::size_t i = 0; i < count; ++i) {
    const float mirrored = lowSynthesis[count - 1 - i];
    highSynthesis[i] = i % 2 == 0 ? mirrored : -mirrored;
    lowAnalysis[i] = lowSynthesis[i] * 0.5f;
    highAnalysis[i] = highSynthesis[i] * 0.5f;
  }
}

void CImgWavelet::CalcBufferSize(CRect* pRect, int levels, CRect* buffer) {
  if (!buffer) return;
  const std::int64_t w = pRect ? std::int64_t{pRect->right} - pRect->left : Width;
  const std::int64_t h = pRect ? std::int64_t{pRect->bottom} - pRect->top : Height;
  *buffer = CRect(0, 0, BufferSide(w, levels), BufferSide(h, levels));
}

void CImgWavelet::CopyToBuffer(CVynImage* buffer, CVynImage* source, CRect* pRect) {
  if (!buffer || !source) return;
  int left, top, right, bottom;
  source->NormalizeRect(pRect, left, top, right, bottom);
  const int rows = source->GetHeight() - top;
  if (rows <= 0) return;
  qmr::Snapshot snapshot(*buffer);
  const CVynImage& from = snapshot.Of(*source);
  for (int p = 0; p < buffer->GetPlanes(); ++p) {
    qmr::ForRows(0, buffer->GetHeight(), [&](int y) {
      const auto src = qmr::ReadRow(from, top + std::min(y, rows - 1), p, left, from.GetWidth());
      const auto dst = qmr::WriteRow(*buffer, y, p, 0, buffer->GetWidth());
      const std::size_t count = std::min(src.size(), dst.size());
      if (count == 0) return;
      std::copy_n(src.begin(), count, dst.begin());
      std::fill(dst.begin() + static_cast<std::ptrdiff_t>(count), dst.end(), src[count - 1]);
    });
  }
}

void CImgWavelet::CopyFromBuffer(CVynImage* destination, CRect* pRect, CVynImage* buffer) {
  if (!destination || !buffer) return;
  int left, top, right, bottom;
  destination->NormalizeRect(pRect, left, top, right, bottom);
  qmr::Snapshot snapshot(*destination);
  const CVynImage& from = snapshot.Of(*buffer);
  for (int p = 0; p < from.GetPlanes(); ++p) {
    qmr::ForRows(top, bottom, [&](int y) {
      const auto src = qmr::ReadRow(from, y - top, p, 0, from.GetWidth());
      const auto dst = qmr::WriteRow(*destination, y, p, left, right);
      std::copy_n(src.begin(), std::min(src.size(), dst.size()), dst.begin());
    });
  }
}

int CImgWavelet::DoMultiResSubbandDecomposition(CVynImage* image, int levels, int bProgress) {
  if (!image) return 0;
  const Units units(*image, levels);
  ShowProgressInit(bProgress, kMessageDecomposition, units.Total());
  int w = image->GetWidth();
  int h = image->GetHeight();
  int done = 1;
  // Levels without pixels have nothing to do or to report.
  for (int level = 0; done && level < levels && w > 0 && h > 0; ++level, w /= 2, h /= 2) {
    done = Analyse(*image, w, h, units.Of(w, h));
  }
  ShowProgressEnd(nullptr);
  return done;
}

int CImgWavelet::DoMultiResSubbandComposition(CVynImage* image, int levels, float lowGain,
                                              CArray<float, float>* rowGain, CArray<float, float>* columnGain,
                                              CArray<float, float>* diagonalGain, int bProgress) {
  if (!image) return 0;
  levels = std::max(levels, 0);
  const Units units(*image, levels);
  ShowProgressInit(bProgress, kMessageComposition, units.Total());
  // The coarsest level comes first, so that an array that is too short is found before any pixel changes. The report
  // stays open then, on purpose: the exception is the caller's to answer.
  if (levels > 0 && (!rowGain || !columnGain || !diagonalGain)) AfxThrowInvalidArgException();
  int done = 1;
  for (int level = levels - 1; done && level >= 0; --level) {
    const int w = ComposedSide(image->GetWidth(), levels - 1, level);
    const int h = ComposedSide(image->GetHeight(), levels - 1, level);
    const float low = level == levels - 1 ? lowGain : 1.0f;
    done = Synthesise(*image, w, h, {low, (*rowGain)[level], (*columnGain)[level], (*diagonalGain)[level]},
                      units.Of(w, h));
  }
  ShowProgressEnd(nullptr);
  return done;
}

void CImgWavelet::Wavelet1d(CArray<float, float>* line) {
  TransformLine(line, Filter(lowAnalysis, highAnalysis), qmr::AnalyseLine);
}

void CImgWavelet::InvWavelet1d(CArray<float, float>* line) {
  TransformLine(line, Filter(lowSynthesis, highSynthesis), qmr::SynthesiseLine);
}

int CImgWavelet::Wavelet2d(CVynImage* image, CRect* pRect) {
  if (!image) return 0;
  const Sides sides(*image, pRect);
  return Analyse(*image, sides.w, sides.h, AllPixels(sides.w, sides.h));
}

int CImgWavelet::InvWavelet2d(CVynImage* image, CRect* pRect, float lowGain, float rowGain, float columnGain,
                              float diagonalGain) {
  if (!image) return 0;
  const Sides sides(*image, pRect);
  return Synthesise(*image, sides.w, sides.h, {lowGain, rowGain, columnGain, diagonalGain},
                    AllPixels(sides.w, sides.h));
}

// Taps beyond the arrays, and those of a length that no order has, are zeros.
qmr::WaveletTaps CImgWavelet::Filter(const float* low, const float* high) const {
  qmr::WaveletTaps filter;
  const int count = std::clamp(taps, 0, qmr::kMaxWaveletTaps);
  std::copy_n(low, count, filter.low);
  std::copy_n(high, count, filter.high);
  filter.count = count + count % 2;
  return filter;
}

int CImgWavelet::Analyse(CVynImage& image, int w, int h, int units) {
  const qmr::WaveletTaps filter = Filter(lowAnalysis, highAnalysis);
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const PlaneCorner plane(image, p, w, h);
    TransformRows(plane, filter, qmr::AnalyseLine);
    if (!ShowProgress(units)) return 0;
    TransformColumns(plane,
                     [&](const qmr::ColumnTile& tile, int, float* work) { qmr::AnalyseColumns(tile, filter, work); });
    if (!ShowProgress(units)) return 0;
  }
  return 1;
}

int CImgWavelet::Synthesise(CVynImage& image, int w, int h, const qmr::WaveletGains& gains, int units) {
  const qmr::WaveletTaps filter = Filter(lowSynthesis, highSynthesis);
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const PlaneCorner plane(image, p, w, h);
    const float mid = static_cast<float>((image.GetLevelMin(p) + image.GetLevelMax(p)) * 0.5);
    TransformColumns(plane, [&](const qmr::ColumnTile& tile, int x, float* work) {
      qmr::SynthesiseColumns(tile, filter, {mid, gains.low, gains.row, gains.column, gains.diagonal, w / 2 - x}, work);
    });
    if (!ShowProgress(units)) return 0;
    TransformRows(plane, filter, qmr::SynthesiseLine);
    if (!ShowProgress(units)) return 0;
  }
  return 1;
}
