#include "qmrimg/stacking/matching.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

#include "qmrimg/image/bilinear.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/row_table.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/stacking/kernels/match_rows.h"

namespace {

constexpr int kMessageMatching = 6152;
// The score of no overlap, which no position may reach to win.
constexpr double kNoScore = 3.402823466e38;

struct Place {
  double x;
  double y;
};

// What is best so far. Of equal scores the first one stays.
struct Best {
  double score = kNoScore;
  Place at = {0.0, 0.0};

  bool IsFound() const { return score < kNoScore; }
  void Offer(double otherScore, const Place& place) {
    if (otherScore < score) *this = {otherScore, place};
  }
};

// The least score that any worker has met. A position whose partial score is above it can't win.
class Bound {
 public:
  explicit Bound(double start) : least_(start) {}
  double Get() const { return least_.load(std::memory_order_relaxed); }
  void Lower(double score) {
    double known = Get();
    while (score < known && !least_.compare_exchange_weak(known, score, std::memory_order_relaxed)) {
    }
  }

 private:
  std::atomic<double> least_;
};

// Scores of positions. Sums of squares only grow, and so do their quotients by one number: one that is above the bound,
// or not a number, stays so to its end. Such a position is given up with no score; an infinite bound gives up none.
class Matcher {
 public:
  Matcher(const CVynImage& object, const CVynImage& pattern, const double* ratios)
      : object_(object), pattern_(pattern), planes_(std::min(object_.Planes(), pattern_.Planes())), ratios_(ratios) {}

  double Whole(int x, int y, double bound) const {
    const Overlap o = OverlapAt(x, y);
    if (!(o.count > 0.0)) return kNoScore;
    double sum = 0.0;
    for (int p = 0; p < planes_; ++p) {
      for (int row = o.top; row < o.bottom; ++row) {
        sum += RowSum(o, p, row, x, y);
        if (Loses(sum / o.count, bound)) return kNoScore;
      }
    }
    return sum / o.count;
  }

  // The same bits without a bound, rows on all threads where that pays.
  double WholeByRows(int x, int y) const {
    constexpr double kFewPixels = 1 << 18;
    const Overlap o = OverlapAt(x, y);
    if (!(o.count > kFewPixels)) return Whole(x, y, std::numeric_limits<double>::infinity());
    double sum = 0.0;
    for (int p = 0; p < planes_; ++p) {
      sum = qmr::FoldRows(
          o.top, o.bottom, sum, [&](int row) { return RowSum(o, p, row, x, y); },
          [](double total, double row) { return total + row; });
    }
    return sum / o.count;
  }

  double Between(double x, double y, double bound) const {
    const Overlap o = OverlapAt(x, y);
    if (!(o.count > 0.0)) return kNoScore;
    const qmr::ColumnCells columns(o.left, o.right - o.left, x, pattern_.Width());
    double sum = 0.0;
    for (int p = 0; p < planes_; ++p) {
      for (int row = o.top; row < o.bottom; ++row) {
        const qmr::Cell cell = qmr::CellOf(row - y, pattern_.Height());
        const float* const* const rows = pattern_.Plane(p);
        sum = qmr::AddSquaresBetween(sum, object_.Plane(p)[row] + o.left, columns, rows[cell.first], rows[cell.second],
                                     cell.fraction, static_cast<float>(ratios_[p]));
        if (Loses(sum / o.count, bound)) return kNoScore;
      }
    }
    return sum / o.count;
  }

 private:
  static bool Loses(double partial, double bound) {
    return !(partial <= bound) && bound < std::numeric_limits<double>::infinity();
  }

  // Pixels of the object, and their number on all planes; 0 where there are none.
  struct Overlap {
    int left, top, right, bottom;
    double count;
  };

  Overlap Cut(double left, double top, double right, double bottom) const {
    left = std::max(left, 0.0);
    top = std::max(top, 0.0);
    right = std::min<double>(object_.Width(), right);
    bottom = std::min<double>(object_.Height(), bottom);
    if (!(left < right && top < bottom)) return {0, 0, 0, 0, 0.0};
    return {static_cast<int>(left), static_cast<int>(top), static_cast<int>(right), static_cast<int>(bottom),
            (bottom - top) * (right - left) * planes_};
  }
  // In double, which holds every sum of two ints.
  Overlap OverlapAt(int x, int y) const {
    return Cut(x, y, static_cast<double>(x) + pattern_.Width(), static_cast<double>(y) + pattern_.Height());
  }
  Overlap OverlapAt(double x, double y) const {
    return Cut(std::ceil(x), std::ceil(y), std::floor(x) + pattern_.Width(), std::floor(y) + pattern_.Height());
  }

  double RowSum(const Overlap& o, int plane, int row, int x, int y) const {
    return qmr::SquaresOfRow(object_.Plane(plane)[row] + o.left, pattern_.Plane(plane)[row - y] + (o.left - x),
                             static_cast<float>(ratios_[plane]), o.right - o.left);
  }

  const qmr::RowTable object_;
  const qmr::RowTable pattern_;
  const int planes_;
  const double* const ratios_;
};

// One axis of the coarse search: every second position.
struct CoarseAxis {
  std::int64_t first;
  std::int64_t count;

  CoarseAxis(double estimate, int half)
      : first(qmr::TruncateToInt(estimate - half)), count(CountTo(qmr::TruncateToInt(estimate + half))) {}
  int At(std::int64_t i) const { return static_cast<int>(first + 2 * i); }
  std::int64_t CountTo(std::int64_t last) const { return last < first ? 0 : (last - first) / 2 + 1; }
  // Leaves out positions at which a template of this size lies beyond an object of that one.
  void Trim(int object, int pattern) {
    const std::int64_t last = std::min<std::int64_t>(first + 2 * (count - 1), object);
    if (first < -pattern) first += (-static_cast<std::int64_t>(pattern) - first) / 2 * 2;
    count = CountTo(last);
  }
};

// Searches about positions; reports on the object.
class Search {
 public:
  Search(CVynImage& object, const CVynImage& pattern, const double* ratios)
      : object_(object), pattern_(pattern), matcher_(object, pattern, ratios) {}

  Best Coarse(const Place& estimate, int half) const {
    CoarseAxis columns(estimate.x, half);
    CoarseAxis rows(estimate.y, half);
    // Nobody waits for billions of positions that can't win; of the usual ones each is counted in the report.
    constexpr std::int64_t kMostPositions = 1 << 22;
    if (columns.count > kMostPositions || rows.count > kMostPositions || columns.count * rows.count > kMostPositions) {
      columns.Trim(object_.GetWidth(), pattern_.GetWidth());
      rows.Trim(object_.GetHeight(), pattern_.GetHeight());
    }
    if (columns.count == 0 || rows.count == 0) return {};
    // The middle comes first: a good score there spares most of the others.
    Bound bound(kNoScore);
    bound.Lower(matcher_.Whole(columns.At(columns.count / 2), rows.At(rows.count / 2), kNoScore));
    return qmr::FoldRows(
        0, static_cast<int>(rows.count), Best{},
        [&](int i) {
          Best best;
          const int y = rows.At(i);
          for (std::int64_t j = 0; j < columns.count; ++j) {
            const int x = columns.At(j);
            const double score = matcher_.Whole(x, y, bound.Get());
            bound.Lower(score);
            best.Offer(score, {static_cast<double>(x), static_cast<double>(y)});
            object_.ShowProgress(1);
          }
          return best;
        },
        [](Best total, const Best& row) {
          total.Offer(row.score, row.at);
          return total;
        });
  }

  void Fine(Best& best) const {
    std::vector<Place> places;
    for (int dy = -1; dy <= 1; ++dy) {
      for (int dx = -1; dx <= 1; ++dx) {
        if (dx != 0 || dy != 0) places.push_back({best.at.x + dx, best.at.y + dy});
      }
    }
    Try(places, 1, best, [&](const Place& at, double bound) {
      return matcher_.Whole(qmr::TruncateToInt(at.x), qmr::TruncateToInt(at.y), bound);
    });
  }

  void Between(double reach, double step, Best& best) const {
    const Place centre = best.at;
    std::vector<Place> places;
    // Coordinates advance by addition on purpose: what is tried last depends on its rounding.
    for (double y = centre.y - reach; y <= centre.y + reach; y += step) {
      for (double x = centre.x - reach; x <= centre.x + reach; x += step) {
        if (x != centre.x || y != centre.y) places.push_back({x, y});
      }
    }
    Try(places, 6, best, [&](const Place& at, double bound) { return matcher_.Between(at.x, at.y, bound); });
  }

 private:
  template <class Score>
  void Try(const std::vector<Place>& places, int units, Best& best, const Score& score) const {
    Bound bound(best.score);
    best = qmr::FoldRows(
        0, static_cast<int>(places.size()), best,
        [&](int i) {
          const Place& at = places[static_cast<std::size_t>(i)];
          const double value = score(at, bound.Get());
          bound.Lower(value);
          object_.ShowProgress(units);
          return Best{value, at};
        },
        [](Best total, const Best& other) {
          total.Offer(other.score, other.at);
          return total;
        });
  }

  CVynImage& object_;
  const CVynImage& pattern_;
  const Matcher matcher_;
};

int TotalOf(int range, bool subPixel) {
  const std::int64_t total = static_cast<std::int64_t>(range) * range / 4 + 9 + (subPixel ? 288 : 0);
  return static_cast<int>(std::min<std::int64_t>(total, std::numeric_limits<int>::max()));
}

// Of the means, so that exposure cancels: one for both, or one a plane on two colour images.
std::vector<double> RatiosOf(const CVynImage& object, const CVynImage& pattern) {
  const int planes = std::min(object.GetPlanes(), pattern.GetPlanes());
  std::vector<double> ratios(static_cast<std::size_t>(std::max(planes, 1)));
  for (std::size_t p = 0; p < ratios.size(); ++p) {
    const int plane = static_cast<int>(p);
    ratios[p] = object.GetAvrGrayRaw(plane) / pattern.GetAvrGrayRaw(plane);
  }
  return ratios;
}

}  // namespace

CImgMatching::CImgMatching() = default;
CImgMatching::~CImgMatching() = default;

double CImgMatching::CalcValue(CVynImage* matchTemplate, int x, int y, double* const ratios) const {
  return matchTemplate && ratios ? Matcher(*this, *matchTemplate, ratios).WholeByRows(x, y) : kNoScore;
}

double CImgMatching::CalcValue(CVynImage* matchTemplate, double x, double y, double* const ratios) const {
  if (!matchTemplate || !ratios) return kNoScore;
  try {
    return Matcher(*this, *matchTemplate, ratios).Between(x, y, std::numeric_limits<double>::infinity());
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

int CImgMatching::Do(CVynImage* matchTemplate, double* x, double* y, int range, int subPixel, int bProgress) {
  if (!matchTemplate || !x || !y) return 0;
  ShowProgressInit(bProgress, kMessageMatching, TotalOf(range, subPixel != 0));
  Best best;
  try {
    const std::vector<double> ratios = RatiosOf(*this, *matchTemplate);
    const Search search(*this, *matchTemplate, ratios.data());
    best = search.Coarse({*x, *y}, range / 2);
    if (best.IsFound()) search.Fine(best);
    if (best.IsFound() && subPixel) {
      search.Between(0.6, 0.3, best);
      search.Between(0.19999999999999998, 0.1, best);
    }
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
  ShowProgressEnd(nullptr);
  if (!best.IsFound()) return 0;
  *x = best.at.x;
  *y = best.at.y;
  return 1;
}
