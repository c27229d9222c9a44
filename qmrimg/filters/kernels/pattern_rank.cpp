// Median and rank over the fixed patterns. Networks of minima and maxima run across pixels; they sort the columns of
// a pattern once for all the pixels that share them.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>

#include "qmrimg/filters/kernels/pattern_rows.h"
#include "qmrimg/filters/kernels/pattern_shape.h"

namespace qmr {
namespace {

using namespace pattern;

constexpr int kMaxCount = kPixelCount<Disc>;

// As many floats as fit a vector register. A float stands for one pixel, a Wide for pixels side by side; what follows
// is the same for both. (Loops over floats would not do: compilers turn their minima into branches.)
#if defined(__AVX512F__)
constexpr int kWide = 16;
#elif defined(__AVX__)
constexpr int kWide = 8;
#else
constexpr int kWide = 4;
#endif
using Wide = float __attribute__((vector_size(kWide * sizeof(float))));

template <class V>
QMR_INLINE V Load(const float* from) {
  V v;
  std::memcpy(&v, from, sizeof v);
  return v;
}
template <class V>
QMR_INLINE void Store(float* to, V v) {
  std::memcpy(to, &v, sizeof v);
}

// Calls `work(V(), i)` for all i of first..last - 1, some of them twice.
template <class Work>
QMR_INLINE void ForLanes(int first, int last, const Work& work) {
  int i = first;
  for (; i <= last - kWide; i += kWide) work(Wide(), i);
  if (i < last && last - first >= kWide) {
    work(Wide(), last - kWide);
  } else {
    for (; i < last; ++i) work(float(), i);
  }
}

// Each is one instruction, which gives the second of two equal values.
template <class V>
QMR_INLINE V Min(V a, V b) {
  return a < b ? a : b;
}
template <class V>
QMR_INLINE V Max(V a, V b) {
  return a > b ? a : b;
}
template <class V>
QMR_INLINE void Exchange(V& low, V& high) {
  const V a = low;
  const V b = high;
  low = Min(a, b);
  high = Max(a, b);
}

// Columns of a pattern in ascending order.
template <class V>
struct Sorted3 {
  V low;
  V middle;
  V high;
};
template <class V>
QMR_INLINE Sorted3<V> Sort(V a, V b, V c) {
  Exchange(a, b);
  Exchange(b, c);
  Exchange(a, b);
  return {a, b, c};
}

template <class V>
struct Sorted5 {
  V v[5];
};
template <class V>
QMR_INLINE Sorted5<V> Sort(V a, V b, V c, V d, V e) {
  Exchange(a, b);
  Exchange(d, e);
  Exchange(c, e);
  Exchange(c, d);
  Exchange(a, d);
  Exchange(a, c);
  Exchange(b, e);
  Exchange(b, d);
  Exchange(b, c);
  return {{a, b, c, d, e}};
}

template <class V>
QMR_INLINE V Median3(V a, V b, V c) {
  return Max(Min(a, b), Min(Max(a, b), c));
}

template <class V>
QMR_INLINE V Median5(V a, V b, V c, V d, V e) {
  return Median3(Max(Min(a, b), Min(c, d)), Min(Max(a, b), Max(c, d)), e);
}

// The median of three sorted columns is that of the largest low, the middle one of the middles and the smallest high.
template <class V>
QMR_INLINE V Median9(const Sorted3<V>& left, const Sorted3<V>& centre, const Sorted3<V>& right) {
  return Median3(Max(Max(left.low, centre.low), right.low), Median3(left.middle, centre.middle, right.middle),
                 Min(Min(left.high, centre.high), right.high));
}

// Puts the median of five sorted columns of 3, 5, 5, 5 and 3 pixels, one after the other, on wire 10. Found by
// annealing among the networks that are right for every choice of zeros and ones, and so for all values.
constexpr Comparator kDiscMedian[] = {{4, 14},  {4, 8},   {19, 1}, {6, 16},  {14, 2}, {14, 8},  {19, 9},  {6, 20},
                                      {18, 14}, {1, 11},  {8, 6},  {14, 10}, {3, 11}, {9, 15},  {10, 16}, {5, 1},
                                      {13, 19}, {20, 12}, {10, 6}, {9, 5},   {7, 15}, {19, 3},  {8, 14},  {17, 1},
                                      {7, 5},   {14, 10}, {3, 17}, {3, 7},   {0, 14}, {11, 17}, {11, 5},  {11, 14},
                                      {20, 2},  {6, 20},  {7, 6},  {11, 7},  {10, 7}, {7, 14},  {6, 7},   {6, 10}};

template <class V, std::size_t... I>
QMR_INLINE void RunDiscMedian(V (&wires)[kMaxCount], std::index_sequence<I...>) {
  (Exchange(wires[kDiscMedian[I].low], wires[kDiscMedian[I].high]), ...);
}

template <class V>
QMR_INLINE V Median21(const Sorted3<V>& a, const Sorted5<V>& b, const Sorted5<V>& c, const Sorted5<V>& d,
                      const Sorted3<V>& e) {
  V wires[kMaxCount] = {a.low,  a.middle, a.high, b.v[0], b.v[1], b.v[2], b.v[3], b.v[4], c.v[0],   c.v[1], c.v[2],
                        c.v[3], c.v[4],   d.v[0], d.v[1], d.v[2], d.v[3], d.v[4], e.low,  e.middle, e.high};
  RunDiscMedian(wires, std::make_index_sequence<std::size(kDiscMedian)>());
  return wires[kMaxCount / 2];
}

template <class V>
QMR_INLINE Sorted3<V> Column3(const float* const* rows, std::ptrdiff_t i) {
  return Sort(Load<V>(rows[0] + i), Load<V>(rows[1] + i), Load<V>(rows[2] + i));
}
template <class V>
QMR_INLINE Sorted5<V> Column5(const float* const* rows, std::ptrdiff_t i) {
  return Sort(Load<V>(rows[0] + i), Load<V>(rows[1] + i), Load<V>(rows[2] + i), Load<V>(rows[3] + i),
              Load<V>(rows[4] + i));
}

template <class V>
QMR_INLINE V PlusMedian(const float* const* rows, std::ptrdiff_t i, const Steps& steps) {
  return Median5(Load<V>(rows[0] + i), Load<V>(rows[1] + i + steps[1]), Load<V>(rows[1] + i + steps[3]),
                 Load<V>(rows[2] + i), Load<V>(rows[1] + i));
}

// The median of numbers at one pixel.
float MedianOf(Plus, const float* const* rows, std::ptrdiff_t i, const Steps& steps) {
  return PlusMedian<float>(rows, i, steps);
}
float MedianOf(Square, const float* const* rows, std::ptrdiff_t i, const Steps& steps) {
  return Median9(Column3<float>(rows, i + steps[1]), Column3<float>(rows, i), Column3<float>(rows, i + steps[3]));
}
float MedianOf(Disc, const float* const* rows, std::ptrdiff_t i, const Steps& steps) {
  return Median21(Column3<float>(rows + 1, i + steps[0]), Column5<float>(rows, i + steps[1]), Column5<float>(rows, i),
                  Column5<float>(rows, i + steps[3]), Column3<float>(rows + 1, i + steps[4]));
}

template <class Shape, bool IsMax, class V, std::size_t... I>
QMR_INLINE V FoldNeighbours(const float* const* rows, std::ptrdiff_t i, const Steps& steps, std::index_sequence<I...>) {
  V v = Load<V>(rows[Shape::kRadius] + i);
  const auto add = [&](Cell cell) __attribute__((always_inline)) {
    const V neighbour = Load<V>(rows[cell.row] + i + steps[cell.column]);
    v = IsMax ? Max(v, neighbour) : Min(v, neighbour);
  };
  (add(Shape::kNeighbours[I]), ...);
  return v;
}
template <class Shape, bool IsMax, class V>
QMR_INLINE V Extreme(const float* const* rows, std::ptrdiff_t i, const Steps& steps) {
  return FoldNeighbours<Shape, IsMax, V>(rows, i, steps, NeighbourIndices<Shape>());
}

// The pattern's pixels, the centre last; false when some are no numbers.
template <class Shape>
bool Gather(const float* const* rows, const Place& place, float* values) {
  float* end = values;
  for (const Cell cell : Shape::kNeighbours) *end++ = rows[cell.row][place.at + place.steps[cell.column]];
  *end++ = rows[Shape::kRadius][place.at];
  return std::none_of(values, end, [](float v) { return std::isnan(v); });
}

// Networks lose values among not-a-number, which is to come last.
float RankAmongNan(float* values, int count, int rank) {
  float* const end = std::partition(values, values + count, [](float v) { return !std::isnan(v); });
  if (rank >= end - values) return std::numeric_limits<float>::quiet_NaN();
  std::nth_element(values, values + rank, end);
  return values[rank];
}

bool AnyNan(const float* const* rows, int rowCount, std::ptrdiff_t first, std::ptrdiff_t last) {
  unsigned any = 0;
  for (int r = 0; r < rowCount; ++r) {
    const float* const v = rows[r];
    for (std::ptrdiff_t i = first; i < last; ++i) any |= static_cast<unsigned>(v[i] != v[i]);
  }
  return any != 0;
}

const std::vector<Comparator>& FullNetwork(Pattern pattern) {
  static const std::array<std::vector<Comparator>, 3> networks = {
      SortNetwork(kPixelCount<Plus>), SortNetwork(kPixelCount<Square>), SortNetwork(kPixelCount<Disc>)};
  return networks[static_cast<std::size_t>(pattern) - static_cast<std::size_t>(Pattern::kPlus)];
}

// Rows are worked on in stretches short enough for their sorted columns to stay near the processor; where one meets
// not-a-number, in short ones, so that the pixels that must go one by one are few.
constexpr int kStretch = 510;
constexpr int kShortStretch = 30;

// The sorted columns of a stretch from column First on, which is aligned: sorting stores there.
template <int Height, int First>
struct SortedColumns {
  QMR_INLINE float* At(int k, int i) { return values[k] + (i - First); }
  QMR_INLINE const float* At(int k, int i) const { return values[k] + (i - First); }
  alignas(64) float values[Height][(kStretch + 4 + 15) / 16 * 16];
};

template <int First>
QMR_INLINE void SortColumns(const float* const* rows, int last, SortedColumns<3, First>& sorted) {
  const RowsAt here(rows, 1, 0);
  ForLanes(First, last, [&](auto lanes, int i) {
    const auto column = Column3<decltype(lanes)>(here.at, i);
    Store(sorted.At(0, i), column.low);
    Store(sorted.At(1, i), column.middle);
    Store(sorted.At(2, i), column.high);
  });
}
template <int First>
QMR_INLINE void SortColumns(const float* const* rows, int last, SortedColumns<5, First>& sorted) {
  const RowsAt here(rows, 2, 0);
  ForLanes(First, last, [&](auto lanes, int i) {
    const auto column = Column5<decltype(lanes)>(here.at, i);
    for (int k = 0; k < 5; ++k) Store(sorted.At(k, i), column.v[k]);
  });
}

template <class V, int First>
QMR_INLINE Sorted3<V> LoadColumn(const SortedColumns<3, First>& sorted, int i) {
  return {Load<V>(sorted.At(0, i)), Load<V>(sorted.At(1, i)), Load<V>(sorted.At(2, i))};
}
template <class V, int First>
QMR_INLINE Sorted5<V> LoadColumn(const SortedColumns<5, First>& sorted, int i) {
  return {{Load<V>(sorted.At(0, i)), Load<V>(sorted.At(1, i)), Load<V>(sorted.At(2, i)), Load<V>(sorted.At(3, i)),
           Load<V>(sorted.At(4, i))}};
}

void MedianStretch(Plus, const float* const* rows, int count, float* to) {
  const RowsAt here(rows, Plus::kRadius, 0);
  ForLanes(0, count, [&](auto lanes, int i) { Store(to + i, PlusMedian<decltype(lanes)>(here.at, i, kInside)); });
}

void MedianStretch(Square, const float* const* rows, int count, float* to) {
  SortedColumns<3, -1> sorted;
  SortColumns(rows, count + 1, sorted);
  ForLanes(0, count, [&](auto lanes, int i) {
    using V = decltype(lanes);
    Store(to + i, Median9(LoadColumn<V>(sorted, i - 1), LoadColumn<V>(sorted, i), LoadColumn<V>(sorted, i + 1)));
  });
}

void MedianStretch(Disc, const float* const* rows, int count, float* to) {
  SortedColumns<3, -2> three;
  SortedColumns<5, -1> five;
  SortColumns(rows + 1, count + 2, three);
  SortColumns(rows, count + 1, five);
  ForLanes(0, count, [&](auto lanes, int i) {
    using V = decltype(lanes);
    Store(to + i, Median21(LoadColumn<V>(three, i - 2), LoadColumn<V>(five, i - 1), LoadColumn<V>(five, i),
                           LoadColumn<V>(five, i + 1), LoadColumn<V>(three, i + 2)));
  });
}

template <class Shape, bool IsMax>
void ExtremeStretch(const float* const* rows, int count, float* to) {
  const RowsAt here(rows, Shape::kRadius, 0);
  ForLanes(0, count,
           [&](auto lanes, int i) { Store(to + i, Extreme<Shape, IsMax, decltype(lanes)>(here.at, i, kInside)); });
}

// Any rank between the ends, through a network of all the pattern's pixels.
template <class Shape>
void NetworkStretch(const RankPlan& plan, const float* const* rows, int count, float* to) {
  constexpr int kLanes = 256;
  alignas(64) float wires[kPixelCount<Shape> * kLanes] = {};
  for (int done = 0; done < count; done += kLanes) {
    const int length = std::min(kLanes, count - done);
    float* wire = wires;
    for (const Cell cell : Shape::kNeighbours) {
      std::copy_n(rows[cell.row] + done + kInside[cell.column], length, wire);
      wire += kLanes;
    }
    std::copy_n(rows[Shape::kRadius] + done, length, wire);
    RunNetwork<kLanes>(plan.network, wires);
    std::copy_n(wires + plan.rank * kLanes, length, to + done);
  }
}

template <class Shape>
void RankStretch(const RankPlan& plan, const float* const* rows, int count, float* to) {
  if (plan.rank == 0)
    ExtremeStretch<Shape, false>(rows, count, to);
  else if (plan.rank == kPixelCount<Shape> - 1)
    ExtremeStretch<Shape, true>(rows, count, to);
  else
    NetworkStretch<Shape>(plan, rows, count, to);
}

// `stretch(rows, count, to)` where all pixels are numbers, `pixel(rows, x)` elsewhere; the rows are those of the
// first column.
template <class Pixel, class Stretch>
void ByStretches(const PatternRow& row, int radius, const Pixel& pixel, const Stretch& stretch) {
  const auto at = [&](int x) { return pixel(RowsAt(row.rows, radius, x).at, x); };
  const auto numbers = [&](int first, int count, float* to) {
    const RowsAt here(row.rows, radius, first);
    if (AnyNan(here.at, 2 * radius + 1, -radius, count + radius)) return false;
    stretch(here.at, count, to);
    return true;
  };
  const auto inPieces = [](int size, int first, int count, float* to, const auto& piece) {
    for (int done = 0; done < count; done += size) piece(first + done, std::min(size, count - done), to + done);
  };
  AlongRow(row, radius, at, [&](const float* const*, int first, int count, float* to) {
    inPieces(kStretch, first, count, to, [&](int x, int length, float* out) {
      if (numbers(x, length, out)) return;
      inPieces(kShortStretch, x, length, out, [&](int x2, int length2, float* out2) {
        if (numbers(x2, length2, out2)) return;
        for (int i = 0; i < length2; ++i) out2[i] = at(x2 + i);
      });
    });
  });
}

}  // namespace

float PatternMedian(const float* const* rows, int x, int width, Pattern pattern) {
  const Place place(x, width);
  if (pattern == Pattern::kPoint) return rows[0][place.at];
  return WithShape(pattern, [&](auto shape) {
    constexpr int count = kPixelCount<decltype(shape)>;
    float values[count];
    if (!Gather<decltype(shape)>(rows, place, values)) return RankAmongNan(values, count, count / 2);
    return MedianOf(shape, rows, place.at, place.steps);
  });
}

float PatternRank(const float* const* rows, int x, int width, Pattern pattern, int rank) {
  const Place place(x, width);
  if (pattern == Pattern::kPoint) return rows[0][place.at];
  return WithShape(pattern, [&](auto shape) {
    using Shape = decltype(shape);
    constexpr int count = kPixelCount<Shape>;
    if (rank < 0 || rank >= count) return 0.0f;
    float values[count];
    if (!Gather<Shape>(rows, place, values)) return RankAmongNan(values, count, rank);
    if (rank == 0) return Extreme<Shape, false, float>(rows, place.at, place.steps);
    if (rank == count - 1) return Extreme<Shape, true, float>(rows, place.at, place.steps);
    RunNetwork<1>(FullNetwork(pattern), values);
    return values[rank];
  });
}

void MedianRow(const PatternRow& row, Pattern pattern) {
  if (pattern == Pattern::kPoint) return CopyPixels(row);
  WithShape(pattern, [&](auto shape) {
    ByStretches(
        row, decltype(shape)::kRadius,
        [&](const float* const* rows, int x) { return PatternMedian(rows, x, row.width, pattern); },
        [&](const float* const* rows, int count, float* to) { MedianStretch(shape, rows, count, to); });
  });
}

RankPlan::RankPlan(Pattern pattern, int rank) : pattern(pattern), rank(rank) {
  const int count = PatternCount(pattern);
  if (rank > 0 && rank < count - 1) network = PruneNetwork(FullNetwork(pattern), count, rank, rank);
}

void RankRow(const PatternRow& row, const RankPlan& plan) {
  if (plan.pattern == Pattern::kPoint) return CopyPixels(row);
  if (plan.rank < 0 || plan.rank >= PatternCount(plan.pattern))
    return std::fill(row.to, row.to + (row.right - row.left), 0.0f);
  WithShape(plan.pattern, [&](auto shape) {
    using Shape = decltype(shape);
    ByStretches(
        row, Shape::kRadius,
        [&](const float* const* rows, int x) { return PatternRank(rows, x, row.width, plan.pattern, plan.rank); },
        [&](const float* const* rows, int count, float* to) { RankStretch<Shape>(plan, rows, count, to); });
  });
}

}  // namespace qmr
