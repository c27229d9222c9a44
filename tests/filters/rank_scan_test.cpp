#include "qmrimg/filters/rank_scan.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/filter_special.h"
#include "qmrimg/platform/exception.h"
#include "tests/filters/operation_rules.h"
#include "tests/filters/rank_reference.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

bool Same(float a, float b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

// Ties, huge values, both zeros, infinities and not-a-number among noise.
void FillAwkward(CVynImage& image, std::uint64_t seed, bool withNan) {
  Random random(seed);
  Fill(image, [&](int, int, int) {
    constexpr float kSpecial[] = {0.0f, -0.0f, kInf, -kInf, FLT_MAX, -FLT_MAX, kNan, -kNan};
    const int kind = random.Integer(0, 9);
    if (kind == 0) return kSpecial[random.Integer(0, withNan ? 7 : 5)];
    if (kind < 4) return static_cast<float>(random.Integer(-3, 3));
    return static_cast<float>(random.Normal() * 100.0);
  });
}

// All elements of `ranks` at all pixels of the columns left..right - 1. Rows from the last one up when `step` is below
// 0, by a scan that was told to end early.
void CheckDisc(const CVynImage& image, double radius, RankEdge edge, const std::vector<int>& ranks, int left, int right,
               int step = 1) {
  const RankDisc disc = MakeRankDisc(radius);
  const int height = image.GetHeight();
  RankScan scan(image, 0, disc, edge, ranks, left, right, step > 0 ? height : height / 4);
  const int first = std::max(left, 0), last = std::min(right, image.GetWidth());
  for (int y = step > 0 ? 0 : height - 1; y >= 0 && y < height; y += step) {
    ASSERT_EQ(scan.Row(y).size(), static_cast<std::size_t>(std::max(last - first, 0)));
    for (int x = first; x < last; ++x) {
      const std::vector<float> sorted = SortedDisc(image, 0, x, y, static_cast<int>(std::max(std::ceil(radius), 1.0)),
                                                   radius * radius, edge == RankEdge::kDrop);
      const int count = static_cast<int>(sorted.size());
      for (std::size_t k = 0; k < ranks.size(); ++k) {
        int rank = ranks[k];
        if (rank == kUpperMedian) rank = count / 2;
        if (rank == kGreatest) rank = count - 1;
        const float expected = rank < count ? sorted[static_cast<std::size_t>(rank)] : 0.0f;
        const float actual = scan.Row(y, static_cast<int>(k))[static_cast<std::size_t>(x - first)];
        ASSERT_TRUE(Same(expected, actual)) << "radius " << radius << " rank " << ranks[k] << " at " << x << ", " << y
                                            << ": " << expected << " and " << actual;
      }
    }
  }
  for (const auto& [y, k] : {std::pair(-1, 0), {height, 0}, {0, static_cast<int>(ranks.size())}, {0, -1}})
    EXPECT_TRUE(scan.Row(y, k).empty());
}

// Small radii go through networks, large ones through sliding windows, some of which are larger than the image.
TEST(RankScan, GivesTheElementsOfTheSortedDisc) {
  CVynImage image;
  for (const auto& [width, height] : {std::pair(1, 1), {1, 7}, {7, 1}, {2, 2}, {13, 9}, {70, 50}}) {
    Shape(image, width, height, 1);
    for (const bool withNan : {false, true}) {
      FillAwkward(image, 1, withNan);
      for (const RankEdge edge : {RankEdge::kMirror, RankEdge::kDrop}) {
        for (const double radius : {0.5, 1.0, 1.5, 2.0, 3.0, 5.0, 12.0, -2.0}) {
          CheckDisc(image, radius, edge, {kUpperMedian}, 0, width);
          CheckDisc(image, radius, edge, {0, 2, 3, kGreatest, kUpperMedian, 12, 5000}, -3, 200);
        }
      }
    }
  }
}

// More than one tile in each direction, and long moves of the pivot.
TEST(RankScan, TilesMeetWithoutSeams) {
  CVynImage image = Shaped(150, 140, 1);
  Random random(5);
  Fill(image, [&](int, int x, int y) { return static_cast<float>((x / 30 + y / 25) % 2 ? 1e6 + x : random.Normal()); });
  CheckDisc(image, 11.0, RankEdge::kMirror, {kUpperMedian}, 0, 150);
}

TEST(RankScan, HugeDiscsFindNoMemory) {
  CVynImage source = Shaped(2, 2, 1);
  CImgFilterMisc filter = Shaped<CImgFilterMisc>(2, 2, 1);
  EXPECT_EQ(filter.GetMinMaxFilterNmax(5000.0), 78539677);
  int rank[] = {0};
  for (double radius : {5000.0, 1e9})
    EXPECT_TRUE(Raises<CMemoryException>([&] { filter.MinMaxFilter(&radius, rank, &source, nullptr, 0); })) << radius;
}

// ---- The filters that select ---------------------------------------------------------------------------------------

TEST(MinMaxFilter, SelectsInEachPlanesDisc) {
  CVynImage source = Noise(40, 31, 4, 10, 1.0, 2.0);
  double radius[] = {1.0, 1.5, 2.5, 3.0};
  // The last plane's disc has 29 pixels; ranks outside 0..28 are none of them.
  for (int outside : {29, -1, -2}) {
    CImgFilterMisc filter = Shaped<CImgFilterMisc>(40, 31, 4);
    int rank[] = {0, 8, 4, outside};
    CRect area(3, -2, 35, 29);
    filter.MinMaxFilter(radius, rank, &source, &area, 0);
    const auto selected = [&](int p, int x, int y) {
      if (p == 3 || x < 3 || x >= 35 || y >= 29) return 0.0f;
      const int reach = static_cast<int>(std::ceil(radius[p]));
      return SortedDisc(source, p, x, y, reach, radius[p] * radius[p], false)[static_cast<std::size_t>(rank[p])];
    };
    EXPECT_TRUE(PixelsAre(selected, filter)) << outside;
  }
  for (const auto& [r, count] : {std::pair(0.3, 1), {1.0, 5}, {1.5, 9}, {2.0, 13}, {3.0, 29}, {5.0, 81}, {-1.0, 5}}) {
    EXPECT_EQ(CImgFilterMisc().GetMinMaxFilterNmax(r), count) << r;
    EXPECT_EQ(CImgFilterSpecial().GetStarSharpFilterNum(r), count) << r;
  }
}

TEST(NoiseCut, ThresholdsAreFractionsOfThePixel) {
  struct Case {
    float pixel;
    int coolOn;
    double cool;
    int hotOn;
    double hot;
    bool cut;
  };
  const float below = std::nextafter(80.0f, 0.0f);
  const Case cases[] = {
      // |100 / 80 - 1| is 0.25, |100 / 200 - 1| is 0.5: neither is above itself.
      {80.0f, 1, 0.25, 1, 0.0, false}, {below, 1, 0.25, 0, 0.0, true},  {80.0f, 0, 0.0, 1, 0.0, false},
      {200.0f, 1, 0.0, 1, 0.5, false}, {200.0f, 0, 0.0, 1, 0.49, true}, {200.0f, 1, 0.0, 0, 0.0, false},
      {0.0f, 1, 1e300, 0, 0.0, true},  {0.0f, 0, 0.0, 1, 0.0, false},   {-50.0f, 1, 2.9, 0, 0.0, true},
      {-50.0f, 1, 3.0, 0, 0.0, false}, {kNan, 1, 0.0, 1, 0.0, false},
  };
  CVynImage source = Shaped(11, 9, 2);
  for (const Case& c : cases) {
    // A frame of 100 with a single pixel away from it.
    Fill(source, [&](int, int x, int y) { return x == 5 && y == 4 ? c.pixel : 100.0f; });
    CImgFilterMisc filter = Shaped<CImgFilterMisc>(11, 9, 2);
    filter.NoiseCut(1.5, c.coolOn, c.cool, c.hotOn, c.hot, &source, nullptr, 0);
    for (int p = 0; p < 2; ++p) {
      EXPECT_TRUE(Same(At(filter, p, 5, 4), c.cut ? 100.0f : c.pixel)) << c.pixel << ", cool " << c.cool;
      EXPECT_EQ(At(filter, p, 4, 4), 100.0f);
    }
  }
}

// Step by step, in the order of the description.
float StarSharpReference(const std::vector<float>& s, float c, double rank, double threshold, bool keepPeaks) {
  const int n = static_cast<int>(s.size());
  const auto at = [&](int i) { return s[static_cast<std::size_t>(i)]; };
  if (keepPeaks && at(n - 1) == c) return c;
  const int i = static_cast<int>(std::floor(rank));
  float d = 0.0f;
  if (i < 0)
    d = at(0);
  else if (i >= n - 1)
    d = at(n - 1);
  else
    d = (at(i + 1) - at(i)) * (static_cast<float>(rank) - static_cast<float>(i)) + at(i);
  if (threshold != 0.0 && std::fabs(static_cast<double>(d / at(n - 1)) - 1.0) < threshold) d = c;
  return d;
}

TEST(StarSharpFilter, InterpolatesBetweenRanks) {
  constexpr int kWidth = 29, kHeight = 17;
  CVynImage source = Shaped(kWidth, kHeight, 1);
  // With ties, at the peaks, too.
  Random random(13);
  Fill(source, [&](int, int, int) { return static_cast<float>(random.Integer(50, 70)); });
  int kept = 0;
  for (double radius : {1.0, 2.0, 3.3, 12.0}) {
    std::vector<std::vector<float>> windows;
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x)
        windows.push_back(SortedDisc(source, 0, x, y, static_cast<int>(std::ceil(radius)), radius * radius, false));
    const std::vector<float> pixels = Pixels(source, 0);
    const int n = CImgFilterSpecial().GetStarSharpFilterNum(radius);
    for (double rank : {0.0, 0.3, n / 2.0, n - 1.5, n - 1.0, n - 0.2, n + 7.0, -0.5, -1e300, 1e300}) {
      for (double threshold : {0.0, 0.05}) {
        for (const int keepPeaks : {0, 1}) {
          CImgFilterSpecial filter = Shaped<CImgFilterSpecial>(kWidth, kHeight, 1);
          filter.StarSharpFilter(&radius, &rank, &threshold, keepPeaks, &source, nullptr, 0);
          const std::vector<float> results = Pixels(filter, 0);
          for (std::size_t i = 0; i < windows.size(); ++i) {
            const double clamped = std::clamp(rank, -1.0, n + 1.0);
            const float expected = StarSharpReference(windows[i], pixels[i], clamped, threshold, keepPeaks != 0);
            ASSERT_EQ(results[i], expected) << radius << ", " << rank << " at " << i;
            kept += expected == pixels[i];
          }
        }
      }
    }
  }
  EXPECT_GT(kept, 1000);
}

// ---- What all of them share ----------------------------------------------------------------------------------------

TEST(RankFilters, KeepTheRulesOfOperations) {
  CVynImage source = Shaped(50, 37, 3);
  FillAwkward(source, 14, true);
  double radius[] = {3.0, 1.0, 14.0}, between[] = {1.5, 0.0, 17.7}, threshold[] = {0.1, 0.0, 0.2};
  int rank[] = {3, 2, 300};
  ExpectOperationRules<CImgFilterMisc>(
      source, L"ミニマム／マキシマムフィルター処理中...", 32 * 3,
      [&](CImgFilterMisc& f, CVynImage* s, CRect* r, int b) { f.MinMaxFilter(radius, rank, s, r, b); });
  ExpectOperationRules<CImgFilterMisc>(
      source, L"ホット／クールピクセル除去処理中...", 32 * 3,
      [&](CImgFilterMisc& f, CVynImage* s, CRect* r, int b) { f.NoiseCut(2.0, 1, 0.1, 1, 0.1, s, r, b); });
  ExpectOperationRules<CImgFilterSpecial>(source, L"スターシャープフィルタ処理中...", 32 * 3,
                                          [&](CImgFilterSpecial& f, CVynImage* s, CRect* r, int b) {
                                            f.StarSharpFilter(radius, between, threshold, 1, s, r, b);
                                          });
}

}  // namespace
}  // namespace qmr::test
