#include "qmrimg/filters/kernels/rank_window.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace qmr {
namespace {

constexpr int kDigitBits = 11;
constexpr std::size_t kDigits = std::size_t{1} << kDigitBits;
constexpr int kPasses = 3;

std::uint64_t KeyOf(std::uint64_t pair) {
  return pair >> 32;
}

// Sorts pairs of a key (high half) and a position by their keys; equal keys stay in their order. The result is in
// `pairs`.
void SortPairs(std::vector<std::uint64_t>& pairs, std::vector<std::uint64_t>& spare, std::size_t count) {
  std::array<std::array<std::uint32_t, kDigits>, kPasses> counts{};
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t key = KeyOf(pairs[i]);
    for (int pass = 0; pass < kPasses; ++pass)
      ++counts[static_cast<std::size_t>(pass)][(key >> (pass * kDigitBits)) % kDigits];
  }
  for (int pass = 0; pass < kPasses; ++pass) {
    auto& starts = counts[static_cast<std::size_t>(pass)];
    const int shift = 32 + pass * kDigitBits;
    // A digit that all keys share sorts nothing.
    if (count == 0 || starts[(pairs[0] >> shift) % kDigits] == count) continue;
    std::uint32_t sum = 0;
    for (std::uint32_t& start : starts) sum += std::exchange(start, sum);
    for (std::size_t i = 0; i < count; ++i) spare[starts[(pairs[i] >> shift) % kDigits]++] = pairs[i];
    pairs.swap(spare);
  }
}

// The index of set bit `rank` of a word, counted from 0.
int SelectBit(std::uint64_t word, std::int64_t rank) {
  for (; rank > 0; --rank) word &= word - 1;
  return std::countr_zero(word);
}

}  // namespace

RankWindow::RankWindow(const RankDisc& disc, std::span<const int> ranks, int rows, int columns)
    : disc_(disc), ranks_(ranks.begin(), ranks.end()), rows_(rows), columns_(columns) {
  const int reach = disc.Reach();
  pitch_ = static_cast<std::size_t>(columns) + 2 * static_cast<std::size_t>(reach);
  const std::size_t cells = pitch_ * (static_cast<std::size_t>(rows) + 2 * static_cast<std::size_t>(reach));
  values_.resize(cells);
  places_.resize(cells);
  sorted_.resize(cells);
  spare_.resize(cells);
  words_.resize(cells / 64 + 2);
  pivots_.resize(ranks_.size());

  const auto pitch = static_cast<std::ptrdiff_t>(pitch_);
  for (int dy = -reach; dy <= reach; ++dy) {
    const int half = disc.Half(dy);
    const std::ptrdiff_t row = dy * pitch;
    right_.in.push_back(row + half);
    right_.out.push_back(row - half - 1);
    left_.in.push_back(row - half);
    left_.out.push_back(row + half + 1);
    for (int dx = -half; dx <= half; ++dx) {
      if (!disc.Has(dx, dy + 1)) down_.in.push_back(row + dx);
      if (!disc.Has(dx, dy - 1)) down_.out.push_back(row - pitch + dx);
    }
  }
}

void RankWindow::Order(int rows, int columns, const Inside& inside) {
  const std::size_t margins = 2 * static_cast<std::size_t>(disc_.Reach());
  const std::size_t tileRows = static_cast<std::size_t>(rows) + margins;
  const std::size_t tileColumns = static_cast<std::size_t>(columns) + margins;
  const std::size_t left = static_cast<std::size_t>(std::max(inside.left, 0));
  const std::size_t right = std::min(static_cast<std::size_t>(std::max(inside.right, 0)), tileColumns);
  std::size_t count = 0;
  for (std::size_t row = static_cast<std::size_t>(std::max(inside.top, 0));
       row < std::min(static_cast<std::size_t>(std::max(inside.bottom, 0)), tileRows); ++row) {
    for (std::size_t i = row * pitch_ + left; i < row * pitch_ + right; ++i)
      sorted_[count++] = static_cast<std::uint64_t>(OrderKey(values_[i])) << 32 | i;
  }
  SortPairs(sorted_, spare_, count);
  const std::size_t wordCount = count / 64 + 1;
  outside_ = static_cast<std::uint32_t>(wordCount * 64);
  std::fill(words_.begin(), words_.begin() + static_cast<std::ptrdiff_t>(wordCount) + 1, 0);
  if (count < tileRows * tileColumns) std::fill(places_.begin(), places_.end(), outside_);
  for (std::size_t i = 0; i < count; ++i) places_[sorted_[i] & 0xFFFFFFFFu] = static_cast<std::uint32_t>(i);
}

void RankWindow::Slide(std::ptrdiff_t centre, const Move& move) {
  const std::uint32_t* const places = places_.data();
  std::uint64_t* const words = words_.data();
  const std::uint32_t outside = outside_;
  std::int64_t present = present_;
  // The first pivot in registers.
  const std::size_t word = pivots_[0].word;
  std::int64_t below = pivots_[0].below;
  const std::size_t pivots = pivots_.size();
  for (const std::ptrdiff_t offset : move.out) {
    const std::uint32_t place = places[centre + offset];
    words[place / 64] &= ~(std::uint64_t{1} << (place % 64));
    below -= place / 64 < word;
    present -= place != outside;
    for (std::size_t k = 1; k < pivots; ++k) pivots_[k].below -= place / 64 < pivots_[k].word;
  }
  for (const std::ptrdiff_t offset : move.in) {
    const std::uint32_t place = places[centre + offset];
    words[place / 64] |= std::uint64_t{1} << (place % 64);
    below += place / 64 < word;
    present += place != outside;
    for (std::size_t k = 1; k < pivots; ++k) pivots_[k].below += place / 64 < pivots_[k].word;
  }
  pivots_[0].below = below;
  present_ = present;
}

float RankWindow::Select(std::size_t k) {
  const std::int64_t rank = ResolveRank(ranks_[k], static_cast<int>(present_));
  if (rank < 0) return 0.0f;
  std::size_t word = pivots_[k].word;
  std::int64_t below = pivots_[k].below;
  const std::uint64_t* const words = words_.data();
  while (below > rank) below -= std::popcount(words[--word]);
  for (;;) {
    const int here = std::popcount(words[word]);
    if (below + here > rank) break;
    below += here;
    ++word;
  }
  pivots_[k] = {word, below};
  const std::size_t place = word * 64 + static_cast<std::size_t>(SelectBit(words[word], rank - below));
  return FromOrderKey(static_cast<std::uint32_t>(KeyOf(sorted_[place])));
}

void RankWindow::Run(int rows, int columns, const Inside& inside, float* const* out, std::size_t stride) {
  if (rows <= 0 || columns <= 0 || ranks_.empty()) return;
  Order(rows, columns, inside);
  const auto pitch = static_cast<std::ptrdiff_t>(pitch_);
  const int reach = disc_.Reach();
  std::ptrdiff_t centre = reach * pitch + reach;
  present_ = 0;
  for (Pivot& pivot : pivots_) pivot = {0, 0};
  for (int dy = -reach; dy <= reach; ++dy) {
    for (int dx = -disc_.Half(dy); dx <= disc_.Half(dy); ++dx) {
      const std::uint32_t place = places_[static_cast<std::size_t>(centre + dy * pitch + dx)];
      words_[place / 64] |= std::uint64_t{1} << (place % 64);
      present_ += place != outside_;
    }
  }
  // To and fro, so that the window never starts anew.
  int column = 0;
  for (int row = 0; row < rows; ++row) {
    if (row > 0) Slide(centre += pitch, down_);
    const int step = row % 2 ? -1 : 1;
    for (int i = 0; i < columns; ++i) {
      if (i > 0) {
        column += step;
        centre += step;
        Slide(centre, step > 0 ? right_ : left_);
      }
      for (std::size_t k = 0; k < ranks_.size(); ++k)
        out[k][static_cast<std::size_t>(row) * stride + static_cast<std::size_t>(column)] = Select(k);
    }
  }
}

}  // namespace qmr
