#include "qmrimg/filters/filter_block.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "qmrimg/image/vyn_image.h"

CFilterBlock::CFilterBlock(CVynImage* from, int blockRadius, int firstColumn, int centre, int plane, int mode) {
  Set(from, blockRadius, firstColumn, centre, plane, mode);
}

CFilterBlock::~CFilterBlock() {
  if (image) image->UnlockAll();
}

int CFilterBlock::Set(CVynImage* from, int blockRadius, int firstColumn, int centre, int plane, int mode) {
  // Where there is a last row, there are all of them.
  if (!from || from->GetBitsPixel() != -32 || firstColumn >= from->GetWidth() ||
      !from->GetImageAdr(firstColumn, from->GetHeight() - 1, plane, 1, 0, nullptr))
    return 0;
  if (image && image != from) image->UnlockAll();
  blockRadius = std::max(blockRadius, 0);
  if (blockRadius != radius || rows.empty()) rows.resize(2 * static_cast<std::size_t>(blockRadius) + 1);
  radius = blockRadius;
  left = firstColumn;
  centreRow = centre;
  image = from;
  const std::int64_t height = from->GetHeight();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::int64_t r = std::abs(static_cast<std::int64_t>(centre) - radius + static_cast<std::int64_t>(i)) % (2 * height);
    // One row alone mirrors onto itself.
    if (r >= height) r = std::min(std::abs(2 * height - r - 2), height - 1);
    rows[i] = static_cast<const float*>(from->GetImageAdr(left, static_cast<int>(r), plane, 1, mode & 2, nullptr));
  }
  return 1;
}

float CFilterBlock::GetPixel(int x, int y) const {
  const std::int64_t row = static_cast<std::int64_t>(y) - centreRow;
  if (!image || std::abs(row) > radius || x < left || x >= image->GetWidth()) return 0.0f;
  return Clamped(static_cast<int>(row), x);
}

float CFilterBlock::Convolve(CFilterMatrix* matrix, int x) const {
  if (!image || !matrix || matrix->GetCount() == 0) return 0.0f;
  const int r = matrix->GetRadius();
  if (r == radius && x >= r && static_cast<std::int64_t>(x) + r < image->GetWidth()) {
    float sum = 0.0f;
    for (int dy = -r; dy <= r; ++dy) {
      const float* const taps = matrix->At(0, dy);
      const float* const pixels = rows[static_cast<std::size_t>(dy + radius)] + (x - left);
      for (int dx = -r; dx <= r; ++dx) sum += taps[dx] * pixels[dx];
    }
    return sum;
  }
  const int common = CommonRadius(*matrix);
  if (common == 0) return 0.0f;
  float sum = 0.0f;
  for (int dy = -common; dy <= common; ++dy) {
    const float* const taps = matrix->At(0, dy);
    for (int dx = -common; dx <= common; ++dx)
      sum = static_cast<float>(sum + static_cast<double>(taps[dx]) * Clamped(dy, static_cast<long long>(x) + dx));
  }
  return sum;
}

float CFilterBlock::ConvolveClamped(CFilterMatrix* matrix, int x, float low, float high) const {
  const int common = image && matrix ? CommonRadius(*matrix) : 0;
  float sum = 0.0f;
  if (common == 0) return sum;
  for (int dy = -common; dy <= common; ++dy) {
    const float* const taps = matrix->At(0, dy);
    for (int dx = -common; dx <= common; ++dx) {
      float v = Clamped(dy, static_cast<long long>(x) + dx);
      if (v < low) v = low;
      if (v > high) v = high;
      sum = static_cast<float>(sum + static_cast<double>(taps[dx]) * v);
    }
  }
  return sum;
}

float* CFilterBlock::Sort(CFilterMatrix* matrix, int x) {
  const int common = image && matrix ? CommonRadius(*matrix) : 0;
  if (common == 0) return sorted.data();
  if (matrix->GetCount() != sortedCapacity) {
    sortedCapacity = matrix->GetCount();
    sorted.resize(static_cast<std::size_t>(sortedCapacity));
  }
  sortedCount = 0;
  for (int dy = -common; dy <= common; ++dy) {
    const float* const cells = matrix->At(0, dy);
    for (int dx = -common; dx <= common; ++dx) {
      if (cells[dx] != 1.0f) continue;
      sorted[static_cast<std::size_t>(sortedCount++)] = Clamped(dy, static_cast<long long>(x) + dx);
    }
  }
  std::sort(sorted.begin(), sorted.begin() + sortedCount,
            [](float a, float b) { return a < b || (std::isnan(b) && !std::isnan(a)); });
  return sorted.data();
}

float CFilterBlock::GetSorted(CFilterMatrix* matrix, int x, int rank) {
  const float* const values = Sort(matrix, x);
  return rank >= 0 && rank < sortedCount ? values[rank] : 0.0f;
}

int CFilterBlock::CommonRadius(const CFilterMatrix& matrix) const {
  return std::min(radius, matrix.GetRadius());
}

float CFilterBlock::Clamped(int dy, long long column) const {
  const long long c = std::clamp<long long>(column, 0, image->GetWidth() - 1);
  return rows[static_cast<std::size_t>(dy + radius)][c - left];
}
