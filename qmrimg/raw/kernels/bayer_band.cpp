#include "qmrimg/raw/kernels/bayer_band.h"

#include <cstring>

namespace qmr {
namespace {

// Entries before and behind each half that may be read; it keeps rows on 64-byte boundaries.
constexpr std::size_t kPad = 16;

}  // namespace

BayerBand::BayerBand(int width, BayerLayout layout, bool isMono)
    : width_(width), count_((static_cast<std::size_t>(width) + 1) / 2), layout_(layout), isMono_(isMono) {
  const std::size_t stride = (count_ + kPad - 1) / kPad * kPad + 2 * kPad;
  const std::size_t floats = 4 * 2 + 4 + 4 * 2 + 2;
  const std::size_t doubles = isMono ? 0 : 4 * 3 * 2;
  const std::size_t bytes = stride * (floats * sizeof(float) + doubles * sizeof(double));
  memory_.reset(new (std::align_val_t{64}) std::byte[bytes]);
  std::memset(memory_.get(), 0, bytes);

  auto* nextDouble = reinterpret_cast<double*>(memory_.get());
  for (auto& row : difference_) {
    for (auto& plane : row) {
      for (double*& half : plane) {
        half = isMono ? nullptr : nextDouble + kPad;
        if (!isMono) nextDouble += stride;
      }
    }
  }
  auto* next = reinterpret_cast<float*>(nextDouble);
  const auto take = [&next, stride] {
    float* const half = next + kPad;
    next += stride;
    return half;
  };
  for (auto& row : mosaic_)
    for (float*& half : row) half = take();
  for (float*& row : diagonals_) row = take();
  for (auto& row : luminance_)
    for (float*& half : row) half = take();
  for (float*& half : scratch_) half = take();
}

void BayerBand::AddDiagonals(int row) {
  const int colour = layout_.ColourColumn(row);
  float* const means = diagonals_[row & 3];
  DiagonalMeans(Mosaic(row - 1), Mosaic(row + 1), colour, means, count_);
  // The last column of an odd width counts for nothing, and then the one before it is not interpolated: the second
  // pass meets the sample itself there.
  const int last = width_ - 1 - (width_ & 1);
  if ((last & 1) == colour) means[last / 2] = mosaic_[row & 3][colour][last / 2];
}

void BayerBand::AddSites(int row) {
  const int colour = layout_.ColourColumn(row);
  const BayerNeighbours n{
      Mosaic(row - 1),           Mosaic(row), Mosaic(row + 1),        diagonals_[(row - 1) & 3], diagonals_[row & 3],
      diagonals_[(row + 1) & 3], colour,      layout_.IsFirstRow(row)};
  float* const* const y = luminance_[row & 3];
  if (isMono_) {
    LuminanceAtColourSites(n, y[colour], count_);
    LuminanceAtGreenSites(n, y[1 - colour], count_);
    return;
  }
  auto& d = difference_[row & 3];
  DevelopColourSites(n, {y[colour], {d[0][colour], d[1][colour], d[2][colour]}}, count_);
  DevelopGreenSites(n, {y[1 - colour], {d[0][1 - colour], d[1][1 - colour], d[2][1 - colour]}}, count_);
}

void BayerBand::Synthesize(int row, int plane, int left, std::span<float> out) {
  for (int column = 0; column < 2; ++column) {
    BayerBox box;
    for (int i = 0; i < 3; ++i) {
      box.same[i] = difference_[(row - 1 + i) & 3][plane][column];
      box.beside[i] = difference_[(row - 1 + i) & 3][plane][1 - column];
    }
    SynthesizeHalf(box, luminance_[row & 3][column], column, scratch_[column], count_);
  }
  JoinBayerRow({{scratch_[0], scratch_[1]}}, left, out);
}

void BayerBand::CopyLuminance(int row, int left, std::span<float> out) const {
  JoinBayerRow({{luminance_[row & 3][0], luminance_[row & 3][1]}}, left, out);
}

}  // namespace qmr
