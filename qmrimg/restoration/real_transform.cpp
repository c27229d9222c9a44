#include "qmrimg/restoration/real_transform.h"

#include <algorithm>
#include <new>

#include "qmrimg/restoration/kernels/half_spectrum_rows.h"
#include "qmrimg/store/parallel.h"

namespace qmr {
namespace {

constexpr int kLanes = FftLanes::kLanes;
constexpr std::size_t kLineFloats = 16;  // of a cache line

std::size_t RoundUp(std::size_t floats) {
  return (floats + kLineFloats - 1) / kLineFloats * kLineFloats;
}

}  // namespace

RealTransform::RealTransform(int width, int height)
    : width_(width),
      height_(height),
      blocks_(width / 2 / kLanes + 1),
      rows_(width),
      columns_(height),
      parts_(CParallel::GetMaxThreads()) {
  // A part holds one band or one block at a time, and what its lines need besides.
  const std::size_t band = static_cast<std::size_t>(width) * FftLanes::kElement;
  partFloats_ = RoundUp(std::max(band + rows_.WorkFloats(), columns_.WorkFloats()));
  const int bands = (height + kBandRows - 1) / kBandRows;
  parts_ = std::min(parts_, std::max(bands, blocks_));
  scratch_ = Block(static_cast<std::size_t>(parts_) * partFloats_ * sizeof(float), Block::Content::kUndefined);
}

std::optional<RealTransform> RealTransform::Create(int width, int height) {
  if (width < 1 || height < 1 || width > FftLanes::kLongest || height > FftLanes::kLongest) return std::nullopt;
  try {
    RealTransform transform(width, height);
    if (transform.scratch_.Get()) return transform;
  } catch (const std::bad_alloc&) {
  }
  return std::nullopt;
}

std::size_t RealTransform::Position(int u, int v) const {
  return static_cast<std::size_t>(u / kLanes) * BlockFloats() + static_cast<std::size_t>(v) * FftLanes::kElement +
         static_cast<std::size_t>(u % kLanes);
}

void RealTransform::Share(int count, FunctionRef<void(int, int, float*)> work) {
  float* scratch = reinterpret_cast<float*>(scratch_.Get());
  const std::int64_t parts = parts_, n = count;
  ForRows(0, parts_, [&](int part) {
    work(static_cast<int>(n * part / parts), static_cast<int>(n * (part + 1) / parts),
         scratch + static_cast<std::size_t>(part) * partFloats_);
  });
}

void RealTransform::ForwardRows(const float* image, float* spectrum) {
  const float scale = static_cast<float>(1.0 / (static_cast<double>(width_) * height_));
  Share((height_ + kBandRows - 1) / kBandRows, [&](int first, int last, float* lanes) {
    float* work = lanes + static_cast<std::size_t>(width_) * FftLanes::kElement;
    for (int band = first; band < last; ++band) {
      const int y = band * kBandRows, rows = std::min(kBandRows, height_ - y);
      LoadBand(image + static_cast<std::size_t>(y) * width_, width_, rows, lanes);
      rows_.Transform(lanes, lanes, FftSign::kMinus, work);
      SplitBand(lanes, width_, rows, scale, spectrum + Position(0, y), BlockFloats());
    }
  });
}

void RealTransform::InverseRows(const float* spectrum, float* image) {
  Share((height_ + kBandRows - 1) / kBandRows, [&](int first, int last, float* lanes) {
    float* work = lanes + static_cast<std::size_t>(width_) * FftLanes::kElement;
    for (int band = first; band < last; ++band) {
      const int y = band * kBandRows, rows = std::min(kBandRows, height_ - y);
      MergeBand(spectrum + Position(0, y), BlockFloats(), width_, rows, lanes);
      rows_.Transform(lanes, lanes, FftSign::kPlus, work);
      StoreBand(lanes, width_, rows, image + static_cast<std::size_t>(y) * width_);
    }
  });
}

void RealTransform::Columns(float* spectrum, FftSign sign) {
  Share(blocks_, [&](int first, int last, float* work) {
    for (int block = first; block < last; ++block) {
      float* columns = spectrum + Position(block * kLanes, 0);
      columns_.Transform(columns, columns, sign, work);
    }
  });
}

void RealTransform::ForwardColumns(float* spectrum) {
  Columns(spectrum, FftSign::kMinus);
}
void RealTransform::InverseColumns(float* spectrum) {
  Columns(spectrum, FftSign::kPlus);
}

void RealTransform::FilterColumns(float* spectrum, const float* other, Factor factor) {
  Share(blocks_, [&](int first, int last, float* work) {
    for (int block = first; block < last; ++block) {
      const std::size_t position = Position(block * kLanes, 0);
      float* columns = spectrum + position;
      columns_.Transform(columns, columns, FftSign::kMinus, work);
      MultiplyBlock(columns, other + position, static_cast<std::size_t>(height_), factor == Factor::kConjugate);
      columns_.Transform(columns, columns, FftSign::kPlus, work);
    }
  });
}

void RealTransform::Divide(float* spectrum, float divisor) const {
  ForRows(0, blocks_, [&](int block) {
    DivideBlock(spectrum + Position(block * kLanes, 0), static_cast<std::size_t>(height_), divisor);
  });
}

}  // namespace qmr
