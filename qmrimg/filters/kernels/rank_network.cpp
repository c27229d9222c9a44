#include "qmrimg/filters/kernels/rank_network.h"

#include <algorithm>
#include <array>
#include <unordered_map>
#include <utility>

namespace qmr {
namespace {

// A value of the program, read `shift` columns to the right of the pixel.
struct Ref {
  int id;
  int shift;
};
// Ascending, whatever the pixels.
using List = std::vector<Ref>;

// A place under the windows: a source row and a column from that of the pixel.
struct Cell {
  int row;
  int column;
};

// Output rows first .. first + count - 1.
struct Rows {
  int first;
  int count;
};

int RoundUp(int count, int unit) {
  return (count + unit - 1) / unit * unit;
}

}  // namespace

// Writes the steps of a network, in two passes. The first makes comparators on whole rows: values 0 .. sources - 1 are
// the source rows, and comparator i gives the values sources + 2 i (the smaller) and sources + 2 i + 1. The second,
// Emit, leaves out what nobody needs and finds a place in the scratch memory for the rest.
class RankProgram {
 public:
  RankProgram(const RankDisc& disc, std::span<const int> ranks, int rows)
      : disc_(disc), rows_(rows), sources_(2 * disc.Reach() + rows) {
    AddRows({0, rows}, {0, 0}, {}, std::vector<int>(ranks.begin(), ranks.end()));
  }

  void Emit(RankNetwork& network) const;

 private:
  struct Comparator {
    Ref a;
    Ref b;
  };
  // Columns first .. last - 1 from the block's first one at which a value is needed, and the last step that reads it.
  struct Need {
    int first = 0;
    int last = 0;
    int lastUse = -1;
    bool Any() const { return lastUse >= 0; }
    void Include(int from, int to, int step) {
      first = Any() ? std::min(first, from) : from;
      last = Any() ? std::max(last, to) : to;
      lastUse = std::max(lastUse, step);
    }
  };

  // True when a cell belongs to the windows of all these output rows: a disc has no hollows.
  bool InAll(Rows rows, Cell cell) const {
    const int dy = cell.row - disc_.Reach() - rows.first;
    return disc_.Has(cell.column, dy) && disc_.Has(cell.column, dy - (rows.count - 1));
  }
  std::size_t LowOf(int comparator) const { return static_cast<std::size_t>(sources_ + 2 * comparator); }

  std::pair<Ref, Ref> Compare(Ref a, Ref b);
  List Merge(const List& a, const List& b);
  List SortColumn(std::span<const int> rows, int shift);
  List SortRun(std::span<const int> rows, int shift, int count);
  List SortCells(const std::vector<Cell>& cells);
  void AddRows(Rows rows, Rows parent, const List& sorted, const std::vector<int>& targets);
  std::vector<Need> FindNeeds() const;

  const RankDisc& disc_;
  int rows_;
  int sources_;
  std::vector<Comparator> comparators_;
  // Comparators by their operands and the distance between them.
  std::unordered_map<std::uint64_t, int> known_;
  std::vector<Ref> results_;
};

// The smaller and the larger of two values. A comparison made before, here or at another column, is not made again.
std::pair<Ref, Ref> RankProgram::Compare(Ref a, Ref b) {
  if (b.id < a.id || (b.id == a.id && b.shift < a.shift)) std::swap(a, b);
  const int distance = b.shift - a.shift;
  const std::uint64_t key = static_cast<std::uint64_t>(a.id) << 40 | static_cast<std::uint64_t>(b.id) << 16 |
                            static_cast<std::uint16_t>(distance);
  const auto [found, isNew] = known_.try_emplace(key, static_cast<int>(comparators_.size()));
  if (isNew) comparators_.push_back({{a.id, 0}, {b.id, distance}});
  const int low = sources_ + 2 * found->second;
  return {{low, a.shift}, {low + 1, a.shift}};
}

// Batcher's odd-even merge: elements 0, 2, ... of both lists and elements 1, 3, ... are merged apart; then only
// neighbours can stand in the wrong order.
List RankProgram::Merge(const List& a, const List& b) {
  if (a.empty()) return b;
  if (b.empty()) return a;
  if (a.size() == 1 && b.size() == 1) {
    const auto [low, high] = Compare(a[0], b[0]);
    return {low, high};
  }
  const auto half = [](const List& list, std::size_t start) {
    List part;
    for (std::size_t i = start; i < list.size(); i += 2) part.push_back(list[i]);
    return part;
  };
  const List even = Merge(half(a, 0), half(b, 0));
  const List odd = Merge(half(a, 1), half(b, 1));
  List merged{even[0]};
  std::size_t i = 0;
  for (; i < odd.size() && i + 1 < even.size(); ++i) {
    const auto [low, high] = Compare(odd[i], even[i + 1]);
    merged.push_back(low);
    merged.push_back(high);
  }
  if (i < odd.size()) merged.push_back(odd[i]);
  if (i + 1 < even.size()) merged.push_back(even[i + 1]);
  return merged;
}

List RankProgram::SortColumn(std::span<const int> rows, int shift) {
  if (rows.size() == 1) return {{rows[0], shift}};
  return Merge(SortColumn(rows.first(rows.size() / 2), shift), SortColumn(rows.subspan(rows.size() / 2), shift));
}

// `count` equal columns side by side. Halves of a power of two make pairs and fours at different places alike, which
// Compare then finds again.
List RankProgram::SortRun(std::span<const int> rows, int shift, int count) {
  if (count == 1) return SortColumn(rows, shift);
  int half = 1;
  while (2 * half < count) half *= 2;
  return Merge(SortRun(rows, shift, half), SortRun(rows, shift + half, count - half));
}

List RankProgram::SortCells(const std::vector<Cell>& cells) {
  const int reach = disc_.Reach();
  std::vector<std::vector<int>> columns(static_cast<std::size_t>(2 * reach + 1));
  for (const Cell& cell : cells) columns[static_cast<std::size_t>(cell.column + reach)].push_back(cell.row);
  std::vector<List> lists;
  for (std::size_t first = 0; first < columns.size();) {
    std::size_t last = first + 1;
    while (last < columns.size() && columns[last] == columns[first]) ++last;
    if (!columns[first].empty())
      lists.push_back(SortRun(columns[first], static_cast<int>(first) - reach, static_cast<int>(last - first)));
    first = last;
  }
  // The shortest two first.
  while (lists.size() > 1) {
    std::stable_sort(lists.begin(), lists.end(), [](const List& a, const List& b) { return a.size() > b.size(); });
    const List shortest = std::move(lists.back());
    lists.pop_back();
    lists.back() = Merge(lists.back(), shortest);
  }
  return lists.empty() ? List() : lists[0];
}

// Goes on from the windows' common cells of the parent's rows to those of `rows`, and from there to each half of them.
// `sorted` holds what is left of the parent's cells (with no rows, of none); targets[k] is where rank k would stand in
// it if all cells still to come were greater.
void RankProgram::AddRows(Rows rows, Rows parent, const List& sorted, const std::vector<int>& targets) {
  std::vector<Cell> added;
  int common = 0;
  for (Cell cell{0, 0}; cell.row < sources_; ++cell.row) {
    for (cell.column = -disc_.Reach(); cell.column <= disc_.Reach(); ++cell.column) {
      if (!InAll(rows, cell)) continue;
      ++common;
      if (parent.count == 0 || !InAll(parent, cell)) added.push_back(cell);
    }
  }
  const List merged = Merge(sorted, SortCells(added));

  // Of `rest` cells still to come any number may be smaller than the answer, which so stands at target - rest ..
  // target. Each element left out lies surely below or surely above it.
  const int rest = disc_.Count() - common;
  List kept;
  std::vector<int> shifted = targets;
  for (int i = 0; i < static_cast<int>(merged.size()); ++i) {
    const bool wanted =
        std::any_of(targets.begin(), targets.end(), [&](int target) { return target - rest <= i && i <= target; });
    if (wanted) kept.push_back(merged[static_cast<std::size_t>(i)]);
    for (std::size_t k = 0; k < targets.size(); ++k) shifted[k] -= !wanted && i < targets[k];
  }
  if (rows.count == 1) {
    for (const int target : shifted) results_.push_back(kept[static_cast<std::size_t>(target)]);
    return;
  }
  const int half = rows.count / 2;
  AddRows({rows.first, half}, rows, kept, shifted);
  AddRows({rows.first + half, half}, rows, kept, shifted);
}

// Backwards, from the results to what they are made of.
std::vector<RankProgram::Need> RankProgram::FindNeeds() const {
  const int steps = static_cast<int>(comparators_.size());
  std::vector<Need> needs(LowOf(steps));
  for (const Ref& result : results_)
    needs[static_cast<std::size_t>(result.id)].Include(result.shift, result.shift + RankNetwork::kColumns, steps);
  for (int i = steps; i-- > 0;) {
    Need& low = needs[LowOf(i)];
    Need& high = needs[LowOf(i) + 1];
    if (!low.Any() && !high.Any()) continue;
    // Both outputs come from one loop over the same columns.
    Need range = low.Any() ? low : high;
    if (high.Any()) range.Include(high.first, high.last, i);
    for (Need* const output : {&low, &high})
      if (output->Any()) output->Include(range.first, range.last, i);
    const auto [a, b] = comparators_[static_cast<std::size_t>(i)];
    for (const Ref& from : {a, b})
      needs[static_cast<std::size_t>(from.id)].Include(range.first + from.shift, range.last + from.shift, i);
  }
  return needs;
}

// Forwards: a step takes the slots that its outputs stay in until their last use.
void RankProgram::Emit(RankNetwork& network) const {
  constexpr int kUnit = RankNetwork::kSlack;
  const std::vector<Need> needs = FindNeeds();
  int widest = RankNetwork::kColumns;
  for (std::size_t id = static_cast<std::size_t>(sources_); id < needs.size(); ++id)
    widest = std::max(widest, needs[id].last - needs[id].first);
  // A loop reads up to kUnit - 1 columns more than its operands were made for.
  const int slotFloats = RoundUp(widest, kUnit) + kUnit;
  std::vector<int> slots(needs.size(), -1);
  std::vector<int> freeSlots;
  int slotCount = 0;
  const auto placeOf = [&](const Ref& ref, int first) -> RankNetwork::Place {
    if (ref.id < sources_) return {ref.id + 1, first + ref.shift};
    const std::size_t id = static_cast<std::size_t>(ref.id);
    return {0, slots[id] * slotFloats + first + ref.shift - needs[id].first};
  };
  std::int64_t work = 0;
  for (int i = 0; i < static_cast<int>(comparators_.size()); ++i) {
    const std::size_t low = LowOf(i);
    const bool hasLow = needs[low].Any();
    const bool hasHigh = needs[low + 1].Any();
    if (!hasLow && !hasHigh) continue;
    const Need& range = needs[hasLow ? low : low + 1];
    const auto [a, b] = comparators_[static_cast<std::size_t>(i)];
    RankNetwork::Step step{};
    step.kind =
        hasLow && hasHigh ? RankNetwork::Kind::kBoth : (hasLow ? RankNetwork::Kind::kLow : RankNetwork::Kind::kHigh);
    step.count = RoundUp(range.last - range.first, kUnit);
    step.a = placeOf(a, range.first);
    step.b = placeOf(b, range.first);
    for (const std::size_t output : {low, low + 1}) {
      if (!needs[output].Any()) continue;
      if (freeSlots.empty()) freeSlots.push_back(slotCount++);
      slots[output] = freeSlots.back();
      freeSlots.pop_back();
      (output == low ? step.low : step.high) = slots[output] * slotFloats;
      work += step.count;
    }
    network.steps_.push_back(step);
    for (const int from : {a.id, b.id}) {
      // Once only when both operands are one value at two columns.
      int& slot = slots[static_cast<std::size_t>(from)];
      if (slot < 0 || needs[static_cast<std::size_t>(from)].lastUse != i) continue;
      freeSlots.push_back(slot);
      slot = -1;
    }
  }
  for (const Ref& result : results_) network.results_.push_back(placeOf(result, 0));
  network.scratchFloats_ = static_cast<std::size_t>(slotCount * slotFloats + kUnit);
  network.work_ = static_cast<double>(work) / (RankNetwork::kColumns * rows_);
}

RankNetwork::RankNetwork(const RankDisc& disc, std::span<const int> ranks, int rows)
    : rows_(rows), sourceRows_(2 * disc.Reach() + rows) {
  RankProgram(disc, ranks, rows).Emit(*this);
}

void RankNetwork::Run(const float* const* source, float* const* out, float* scratch) const {
  // Stores that cross cache lines take twice the time; slots are whole lines.
  constexpr std::uintptr_t kLine = kSlack * sizeof(float);
  scratch += (kLine - reinterpret_cast<std::uintptr_t>(scratch) % kLine) % kLine / sizeof(float);
  std::array<const float*, kMaxRows + 1> bases;
  bases[0] = scratch;
  std::copy_n(source, sourceRows_, bases.begin() + 1);
  for (const Step& step : steps_) {
    const float* const a = bases[static_cast<std::size_t>(step.a.base)] + step.a.offset;
    const float* const b = bases[static_cast<std::size_t>(step.b.base)] + step.b.offset;
    float* const low = scratch + step.low;
    float* const high = scratch + step.high;
    const int count = step.count;
    // The conditions differ because compilers make vector minima and maxima of them.
    switch (step.kind) {
      case Kind::kBoth:
        for (int i = 0; i < count; i += kSlack) {
#pragma omp simd
          for (int j = i; j < i + kSlack; ++j) {
            const float p = a[j];
            const float q = b[j];
            low[j] = p < q ? p : q;
            high[j] = p > q ? p : q;
          }
        }
        break;
      case Kind::kLow:
        for (int i = 0; i < count; i += kSlack) {
#pragma omp simd
          for (int j = i; j < i + kSlack; ++j) low[j] = a[j] < b[j] ? a[j] : b[j];
        }
        break;
      case Kind::kHigh:
        for (int i = 0; i < count; i += kSlack) {
#pragma omp simd
          for (int j = i; j < i + kSlack; ++j) high[j] = a[j] > b[j] ? a[j] : b[j];
        }
        break;
    }
  }
  for (std::size_t r = 0; r < results_.size(); ++r)
    std::copy_n(bases[static_cast<std::size_t>(results_[r].base)] + results_[r].offset, kColumns, out[r]);
}

}  // namespace qmr
