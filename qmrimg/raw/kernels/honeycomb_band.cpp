#include "qmrimg/raw/kernels/honeycomb_band.h"

#include <cstring>

namespace qmr {
namespace {

// Entries before and behind each quarter; it keeps quarters on 64-byte boundaries.
constexpr std::size_t kPad = 16;
// Columns beyond an edge that are read: the colours of one more column and its reach.
constexpr int kBeyond = HoneycombBand::kReach + 1;

QuarterRow<const float> ReadOnly(const QuarterRow<float>& row) {
  return {{row.quarter[0], row.quarter[1], row.quarter[2], row.quarter[3]}};
}

}  // namespace

int HoneycombSourceRow(int row, int height, int yPhase) {
  const int inside = row < 0 ? 2 * yPhase - row : row;
  return inside < height ? inside : height - 4 + ((inside - height + 1) & 3);
}

HoneycombBand::HoneycombBand(int width, HoneycombLayout layout, HoneycombPairs pairs, bool isMono)
    : width_(width), count_((static_cast<std::size_t>(width) + 3) / 4), layout_(layout), pairs_(pairs) {
  const std::size_t stride = (count_ + kPad - 1) / kPad * kPad + 2 * kPad;
  const std::size_t floats = (8 + 4 + 3) * 4;
  const std::size_t doubles = isMono ? 0 : 2 * 4 * 4;
  const std::size_t bytes = stride * (floats * sizeof(float) + doubles * sizeof(double));
  memory_.reset(new (std::align_val_t{64}) std::byte[bytes]);
  std::memset(memory_.get(), 0, bytes);

  auto* nextDouble = reinterpret_cast<double*>(memory_.get());
  for (auto* rows : {red_, blue_}) {
    for (int i = 0; i < 4; ++i) {
      for (double*& quarter : rows[i].quarter) {
        quarter = isMono ? nullptr : nextDouble + kPad;
        if (!isMono) nextDouble += stride;
      }
    }
  }
  auto* next = reinterpret_cast<float*>(nextDouble);
  const auto take = [&next, stride](QuarterRow<float>& row) {
    for (float*& quarter : row.quarter) {
      quarter = next + kPad;
      next += stride;
    }
  };
  for (auto& row : mosaic_) take(row);
  for (auto& row : luminance_) take(row);
  for (auto& row : result_) take(row);
}

std::span<float> HoneycombBand::Quarter(int row, int quarter) {
  return {mosaic_[row & 7].At(quarter), static_cast<std::size_t>((width_ - quarter + 3) / 4)};
}

void HoneycombBand::CloseRow(int row) {
  // Mirrored about its outermost columns of red and blue the lattice keeps its colours.
  const int first = 1 - (layout_.xPhase & 1);
  const int last = width_ - 1 - ((width_ - 1 - first) & 1);
  const QuarterRow<float>& r = mosaic_[row & 7];
  for (int x = 1; x <= kBeyond; ++x) {
    *r.At(-x) = *r.At(2 * first + x);
    *r.At(width_ - 1 + x) = *r.At(2 * last - (width_ - 1 + x));
  }
}

void HoneycombBand::DevelopGap(int row, int quarter, const HoneycombQuarter& out) const {
  // Red and blue lie beside each other's opposite, along the row or along the column; the greens along the other. What
  // lies opposite to the nearest sample is the mean of a pair about that place.
  const int dr = layout_.IsColourRow(row) ? 0 : 1;
  const int dc = 1 - dr;
  const int red = layout_.ColourAt(row - dr, quarter - dc) == kHoneycombRed ? -1 : 1;
  const auto fill = [&](int side, int pairRow, int pairColumn) {
    const int oppositeRow = row - side * dr;
    const int opposite = quarter - side * dc;
    return HoneycombFill{At(row + side * dr, quarter + side * dc), At(oppositeRow - pairRow, opposite - pairColumn),
                         At(oppositeRow + pairRow, opposite + pairColumn)};
  };
  const GapTaps rows{fill(red, 0, 2), fill(-red, 0, 2)};
  const GapTaps columns{fill(red, 2, 0), fill(-red, 2, 0)};
  DevelopGaps({rows, columns}, {At(row - dc, quarter - dr), At(row + dc, quarter + dr)}, pairs_, out, count_);
}

void HoneycombBand::DevelopColour(int row, int quarter, const HoneycombQuarter& out) const {
  const int q = quarter;
  // Of the four greens on the diagonals each kernel takes one pair.
  const ColourTaps rows{{At(row - 1, q - 1), At(row + 1, q + 1)}, {At(row, q - 2), At(row, q + 2)}};
  const ColourTaps columns{{At(row - 1, q + 1), At(row + 1, q - 1)}, {At(row - 2, q), At(row + 2, q)}};
  DevelopColourSites(At(row, q), layout_.ColourAt(row, q) == kHoneycombRed, {rows, columns}, pairs_, out, count_);
}

void HoneycombBand::DevelopGreen(int row, int quarter, const HoneycombQuarter& out) const {
  const int q = quarter;
  const HoneycombPair falling{At(row - 1, q - 1), At(row + 1, q + 1)};
  const HoneycombPair rising{At(row - 1, q + 1), At(row + 1, q - 1)};
  const bool isRedFalling = layout_.ColourAt(row - 1, q - 1) == kHoneycombRed;
  DevelopGreenSites(At(row, q), isRedFalling ? falling : rising, isRedFalling ? rising : falling, out, count_);
}

void HoneycombBand::Develop(int row) {
  for (int q = 0; q < 4; ++q) {
    const HoneycombQuarter out{luminance_[row & 3].At(q), red_[row & 3].At(q), blue_[row & 3].At(q)};
    const int colour = layout_.ColourAt(row, q);
    if (colour < 0)
      DevelopGap(row, q, out);
    else if (colour == kHoneycombGreen)
      DevelopGreen(row, q, out);
    else
      DevelopColour(row, q, out);
  }
}

void HoneycombBand::CopyLuminance(int row, int left, std::span<float> out) const {
  JoinQuarters(ReadOnly(luminance_[row & 3]), left, out);
}

void HoneycombBand::Synthesize(int row) {
  for (int q = 0; q < 4; ++q) {
    HoneycombBox red, blue;
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) {
        const auto r = static_cast<std::size_t>(i);
        const auto c = static_cast<std::size_t>(j);
        red[r][c] = red_[(row - 1 + i) & 3].At(q - 1 + j);
        blue[r][c] = blue_[(row - 1 + i) & 3].At(q - 1 + j);
      }
    }
    SynthesizeQuarter(red, blue, luminance_[row & 3].At(q), {result_[0].At(q), result_[1].At(q), result_[2].At(q)},
                      count_);
  }
}

void HoneycombBand::CopyColour(int plane, int left, std::span<float> out) const {
  JoinQuarters(ReadOnly(result_[plane]), left, out);
}

}  // namespace qmr
