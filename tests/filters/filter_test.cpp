#include "qmrimg/filters/filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "qmrimg/filters/kernels/pattern_rows.h"
#include "tests/filters/operation_rules.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// The long row crosses the stretches that rows are cut into.
constexpr int kSizes[][2] = {{1, 1}, {1, 7}, {7, 1}, {2, 2}, {3, 4}, {13, 9}, {70, 50}, {1100, 6}};

// ---- The patterns said once more, pixel by pixel ------------------------------------------------------------------

int MirroredRow(int r, int height) {
  if (r < 0) r = -r;
  if (r >= height) r = 2 * height - r - 1;
  return std::clamp(r, 0, height - 1);
}

int ReflectedColumn(int x, int dx, int width) {
  int column = x + dx;
  if (dx == -1 && x < 1) column = x + 1;
  if (dx == 1 && x >= width - 1) column = x - 1;
  if (dx == -2 && x <= 1) column = x + 2;
  if (dx == 2 && x >= width - 2) column = x - 2;
  return std::clamp(column, 0, width - 1);
}

struct Pixel {
  const CVynImage& image;
  int plane, x, y;
  float Neighbour(int dx, int dy) const {
    return At(image, plane, ReflectedColumn(x, dx, image.GetWidth()), MirroredRow(y + dy, image.GetHeight()));
  }
};

std::vector<float> Neighbours(const Pixel& pixel, int method) {
  std::vector<float> values;
  const int radius = method == 2 ? 2 : 1;
  const int most = method >= 0 && method <= 2 ? method + 1 : 0;
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      const int distance = std::abs(dx) + std::abs(dy);
      if (distance > 0 && distance <= most) values.push_back(pixel.Neighbour(dx, dy));
    }
  }
  return values;
}

float Ranked(const Pixel& pixel, int method, int rank) {
  std::vector<float> values = Neighbours(pixel, method);
  values.push_back(pixel.Neighbour(0, 0));
  std::sort(values.begin(), values.end(), [](float a, float b) { return a < b || (!std::isnan(a) && std::isnan(b)); });
  if (values.size() == 1) return values[0];
  return rank >= 0 && rank < static_cast<int>(values.size()) ? values[static_cast<std::size_t>(rank)] : 0.0f;
}

float Laplace(const Pixel& pixel, int method, double offset) {
  constexpr double kWeights[3][3] = {{4, -1, 0}, {8, -1, -1}, {4, -2, 1}};
  const bool known = method >= 0 && method <= 2;
  double sum = known ? 0.0 : pixel.Neighbour(0, -1);
  for (int i = 0; i < 9 && known; ++i) {
    const int dx = i % 3 - 1, dy = i / 3 - 1;
    const double weight = kWeights[method][std::abs(dx) + std::abs(dy)];
    if (weight != 0.0) sum += weight * pixel.Neighbour(dx, dy);
  }
  return static_cast<float>(std::fabs(sum) + offset);
}

float Mean(const Pixel& pixel, int method, double weight, double* plain) {
  const std::vector<float> values = Neighbours(pixel, method);
  const float c = pixel.Neighbour(0, 0);
  if (values.empty()) return c;
  float sum = values[0];
  for (std::size_t i = 1; i < values.size(); ++i) sum += values[i];
  const auto count = static_cast<double>(values.size());
  *plain = (static_cast<double>(sum) + c) / (count + 1.0);
  return static_cast<float>((sum * weight + c) / (weight * count + 1.0));
}

float Sharpened(double c, double mean, double plain) {
  return static_cast<float>(std::fabs(plain / c - 1.0) >= 0.2 ? (c - mean) * 1.7 + c : c);
}

// ---- The filters over whole images, their pixel functions, and the reference of both ------------------------------

struct Filter {
  enum { kMedian, kRank, kLaplacian, kUnsharp } kind;
  int rank = 0;
  const wchar_t* Message() const {
    return kind == kMedian      ? L"中央値フィルタ処理中"
           : kind == kRank      ? L"ミニマム／マキシマムフィルター処理中..."
           : kind == kLaplacian ? L"輪郭検出処理中..."
                                : L"アンシャープマスク処理中...";
  }
  void Whole(CImgFilter& to, int method, CVynImage* from, CRect* rect = nullptr, int bProgress = 0) const {
    if (kind == kMedian) to.MedianFilter(method, from, rect, bProgress);
    if (kind == kRank) to.MinMaxFilter(method, rank, from, rect, bProgress);
    if (kind == kLaplacian) to.LaplacianFilter(method, from, rect, bProgress);
    if (kind == kUnsharp) to.UnSharpMask(1.7, method, 0.8, 0.2, from, rect, bProgress);
  }
  float AtPixel(CImgFilter& from, int method, int x, int y, int plane) const {
    float* rows[5];
    const int radius = kind == kLaplacian ? 1 : from.GetMeanR(method);
    from.SetFilterAdr(x, y, plane, radius, rows, 0);
    if (kind == kMedian) return from.GetMedianRaw(rows, x, method);
    if (kind == kRank) return from.GetMinMaxRaw(rows, x, method, rank);
    if (kind == kLaplacian) return from.GetLaplacianRaw(rows, x, method, 0);
    double plain = 0.0;
    const double mean = from.GetMeanRaw(rows, x, method, 0.8, &plain);
    return Sharpened(*rows[radius], mean, plain);
  }
  float Reference(const Pixel& pixel, int method) const {
    if (kind == kMedian) return Ranked(pixel, method, method == 0 ? 2 : method == 1 ? 4 : 10);
    if (kind == kRank) return Ranked(pixel, method, rank);
    if (kind == kLaplacian) return Laplace(pixel, method, pixel.image.GetLevelMin(0));
    double plain = 0.0;
    const double mean = Mean(pixel, method, 0.8, &plain);
    return Sharpened(pixel.Neighbour(0, 0), mean, plain);
  }
};

const Filter kFilters[] = {{Filter::kMedian},   {Filter::kRank, -1},  {Filter::kRank, 0},  {Filter::kRank, 1},
                           {Filter::kRank, 4},  {Filter::kRank, 8},   {Filter::kRank, 13}, {Filter::kRank, 20},
                           {Filter::kRank, 21}, {Filter::kLaplacian}, {Filter::kUnsharp}};

// Every bit but those of not-a-number.
std::string Bits(CImgFilter& image) {
  Fill(image, [&](int p, int x, int y) { return std::isnan(At(image, p, x, y)) ? 4711.0f : At(image, p, x, y); });
  return Bytes(image);
}

TEST(PatternFilters, AreTheirPixelFunctionsOnAllSizes) {
  for (const auto& [width, height] : kSizes) {
    CImgFilter source = Shaped<CImgFilter>(width, height, 2);
    // Zeros of both signs, ties, and on the long rows what is no finite number in some of the stretches.
    Random random(static_cast<std::uint64_t>(width));
    Fill(source, [&, long_ = width > 1000](int, int x, int) {
      const float values[] = {0.0f, -0.0f, 3.0f, 3.0f, kNan, -kNan, kInfinity, -kInfinity};
      const int kind = random.Integer(0, 19);
      if (kind < 4 || (kind < 8 && long_ && (x < 62 || x > 1095))) return values[kind];
      return static_cast<float>(random.Uniform(-100.0, 900.0));
    });
    source.SetLevel(0, 12.5, 300.0);
    source.SetLevel(1, 99.0, 300.0);
    const CRect rects[] = {CRect(0, 0, width, height), CRect(-3, 1, width / 2 + 1, height + 5),
                           CRect(width - 1, -9, width + 9, height - 1)};
    for (const Filter& filter : kFilters) {
      for (const int method : {0, 1, 2, -1}) {
        for (CRect rect : rects) {
          CImgFilter expected, byPixel, actual;
          for (CImgFilter* image : {&expected, &byPixel, &actual}) {
            Shape(*image, width, height, 2);
            Fill(*image, [](int, int, int) { return -7.0f; });
          }
          for (int i = 0; i < 2 * width * height; ++i) {
            const int p = i % 2, x = i / 2 % width, y = i / 2 / width;
            if (x < rect.left || x >= rect.right || y < rect.top || y >= rect.bottom) continue;
            byPixel.SetPixelGrayRaw(x, y, filter.AtPixel(source, method, x, y, p), p);
            expected.SetPixelGrayRaw(x, y, filter.Reference(Pixel{source, p, x, y}, method), p);
          }
          filter.Whole(actual, method, &source, &rect);
          ASSERT_TRUE(SamePixels(expected, actual)) << filter.kind << ", " << filter.rank << ": " << method;
          ASSERT_TRUE(Bits(byPixel) == Bits(actual)) << filter.kind << ", " << filter.rank << ": " << method;
        }
      }
    }
  }
}

TEST(PatternFilters, KeepTheRulesOfOperations) {
  CVynImage source = Noise(70, 50, 3, 3);
  for (const Filter& filter : kFilters) {
    SCOPED_TRACE(testing::Message() << filter.kind << ", " << filter.rank);
    ExpectOperationRules<CImgFilter>(
        source, filter.Message(), 45 * 3,
        [&](CImgFilter& to, CVynImage* from, CRect* rect, int b) { filter.Whole(to, 2, from, rect, b); });
  }
}

TEST(PatternMedian, IsRightForEveryChoiceOfZerosAndOnes) {
  // Windows of five columns with their ones at the bottom, side by side: by the zero-one principle what is right for
  // all of them is right for all values. Corners are set against the rest.
  std::vector<float> rows[5];
  std::vector<int> ones;
  for (int k = 0; k < 4 * 6 * 6 * 6 * 4; ++k) {
    const int counts[] = {k % 4, k / 4 % 6, k / 24 % 6, k / 144 % 6, k / 864};
    ones.push_back(0);
    for (int column = 0; column < 5; ++column) {
      const bool outer = column == 0 || column == 4;
      for (int r = 0; r < 5; ++r) {
        const bool corner = outer && (r == 0 || r == 4), one = (outer ? 3 : 4) - r < counts[column];
        rows[r].push_back(corner ? (k % 2 ? 9.0f : -9.0f) : one ? 1.0f : 0.0f);
      }
      ones.back() += counts[column];
    }
  }
  const int width = static_cast<int>(rows[0].size());
  const float* const table[5] = {rows[0].data(), rows[1].data(), rows[2].data(), rows[3].data(), rows[4].data()};
  std::vector<float> medians(rows[0].size());
  MedianRow({table, width, 0, width, medians.data()}, Pattern::kDisc);
  for (std::size_t k = 0; k < ones.size(); ++k) ASSERT_EQ(medians[5 * k + 2], ones[k] >= 11 ? 1.0f : 0.0f) << k;
}

TEST(PatternUnsharp, ThresholdIsContrastAgainstThePlainMean) {
  CImgFilter source = Shaped<CImgFilter>(5, 5, 3);
  Fill(source, [](int, int x, int y) { return x == 2 && y == 2 ? 16.0f : 6.0f; });
  // Of planes one at a time, those that there are.
  const auto centre = [&](double weight, double threshold) {
    CImgFilter to = Shaped<CImgFilter>(5, 5, 3);
    for (const int plane : {-1, 1, 3}) to.UnSharpMask(2.0, 0, weight, threshold, &source, plane, nullptr, 0);
    EXPECT_EQ(At(to, 0, 2, 2) + At(to, 2, 2, 2), 0.0f);
    return At(to, 1, 2, 2);
  };
  // Plain mean 8, weighted mean (24 / 4 + 16) / 2 = 11.
  EXPECT_EQ(centre(0.25, 0.5), 26.0f);
  EXPECT_EQ(centre(0.25, 0.501), 16.0f);
  EXPECT_EQ(centre(0.0, 0.0), 16.0f);
  // A zero among others passes every threshold, one among zeros none.
  source.SetPixelGrayRaw(2, 2, 0.0f, 1);
  EXPECT_EQ(centre(1.0, 1e300), -9.6f);
  Fill(source, [](int, int, int) { return 0.0f; });
  EXPECT_EQ(centre(1.0, 0.0), 0.0f);
}

TEST(PatternPixel, ScalesFollowThePlaneAndOutsideIsZero) {
  CImgFilter image = Noise<CImgFilter>(8, 8, 2, 7, 100.0, 200.0);
  image.SetLevel(1, 50.0, 560.0);
  float* rows[5];
  image.SetFilterAdr(7, 0, 1, 2, rows, 2);
  EXPECT_EQ(image.GetVmImage()->GetPinCount(), 5);
  const Pixel pixel{image, 1, 7, 0};
  double plain = 0.0;
  const float mean = Mean(pixel, 2, 0.6, &plain), median = Ranked(pixel, 2, 10), laplacian = Laplace(pixel, 0, 50.0);
  const auto to256 = [](float v) { return static_cast<float>((v - 50.0) / 510.0 * 255.0); };
  EXPECT_EQ(image.GetMeanRaw(7, 0, 2, 0.6, 1), mean);
  EXPECT_EQ(image.GetMean256f(rows, 7, 2, 0.6, 1), to256(mean));
  EXPECT_EQ(image.GetMeanGray(rows, 7, 2, 0.6, 1), mean - 50.0f);
  EXPECT_EQ(image.GetMedianRaw(7, 0, 2, 1), median);
  EXPECT_EQ(image.GetMedian256f(rows, 7, 2, 1), to256(median));
  EXPECT_EQ(image.GetMedianGray(rows, 7, 2, 1), median - 50.0f);
  EXPECT_EQ(image.GetLaplacian256f(rows + 1, 7, 0, 1), to256(laplacian));
  EXPECT_EQ(image.GetLaplacianGray(rows + 1, 7, 0, 1), laplacian - 50.0f);
  constexpr int kFar = std::numeric_limits<int>::max();
  using Place = std::array<int, 3>;
  for (const auto& [x, y, plane] : {Place{-1, 0, 0}, {8, 0, 0}, {0, -1, 0}, {0, 8, 0}, {kFar, -kFar, 0}, {0, 0, 2}}) {
    for (const int method : {0, 1, 2, 9}) {
      EXPECT_EQ(image.GetMeanRaw(x, y, method, 1.0, plane) + image.GetMedianRaw(x, y, method, plane), 0.0f);
    }
    EXPECT_EQ(image.HighPassRaw(x, y, plane), 0.0f);
  }
  image.SetFilterAdr(0, 0, 2, 1, rows, 0);
  EXPECT_EQ(image.GetMinMaxRaw(rows, 0, 1, 0), 0.0f);
  EXPECT_EQ(image.GetLaplacianRaw(nullptr, 0, 1, 0), 0.0f);
}

TEST(PatternPixel, HighPassClampsInsteadOfReflecting) {
  CImgFilter image = Shaped<CImgFilter>(3, 3, 1);
  Fill(image, [](int, int x, int y) { return static_cast<float>(1 << (3 * y + x)); });
  // Around (0, 0): itself three times, 2 and 8 twice, 16.
  EXPECT_EQ(image.HighPassRaw(0, 0, 0), std::fabs(8.0f - (3.0f + 4.0f + 16.0f + 16.0f)));
  EXPECT_EQ(image.HighPassRaw(1, 1, 0), std::fabs(8.0f * 16.0f - (511.0f - 16.0f)));
}

TEST(WorkImage, MirrorsWithTheEdgeOnlyBehind) {
  for (const auto& [width, height] : kSizes) {
    for (const int margin : {0, 1, 5}) {
      CImgFilter image = Noise<CImgFilter>(width, height, 2, 11);
      image.SetLevel(1, 3.0, 44.0);
      const std::unique_ptr<CVynImage> work(image.MakeFilterWork(margin, 0));
      const int band = margin ? margin : 2;
      EXPECT_EQ(work->GetLevelMax(1), 44.0);
      CVynImage expected = Shaped(width + 2 * band, height + 2 * band, 2);
      // Both directions follow the rule of the patterns' rows.
      Fill(expected, [&, w = width, h = height](int p, int x, int y) {
        return At(image, p, MirroredRow(x - band, w), MirroredRow(y - band, h));
      });
      EXPECT_TRUE(SamePixels(expected, *work)) << width << " x " << height << ", " << margin;
      int shiftX = -1, shiftY = -1;
      image.CalcShift(shiftX, shiftY, 9, work.get());
      EXPECT_EQ(shiftX, band);
      EXPECT_EQ(shiftY, band);
    }
  }
}

TEST(WorkImage, CannotAlwaysBeMade) {
  CImgFilter image = Noise<CImgFilter>(4, 6, 1, 12);
  for (const int margin : {-2, -3, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    EXPECT_EQ(image.MakeFilterWork(margin, 0), nullptr) << margin;
    EXPECT_EQ(image.MakeDDWork(margin, 0), nullptr) << margin;
  }
  const std::unique_ptr<CVynImage> cut(image.MakeFilterWork(-1, 0));
  ASSERT_EQ(cut->GetWidth(), 2);
  EXPECT_EQ(At(*cut, 0, 1, 3), At(image, 0, 2, 4));
  int shiftX = 17, shiftY = 18;
  image.CalcShift(shiftX, shiftY, 0, cut.get());
  image.CalcShift(shiftX, shiftY, 0, nullptr);
  EXPECT_EQ(shiftX, 17);
  EXPECT_EQ(shiftY, 18);
}

TEST(WorkImage, OfDevelopmentHasABrightnessPlane) {
  const Threads one(1);
  for (const int planes : {1, 2, 3}) {
    CImgFilter image = Noise<CImgFilter>(9, 5, planes, 13, 0.0, 1000.0);
    for (int p = 0; p < planes; ++p) image.SetLevel(p, 10.0 * p, 900.0 + p);
    RecordingWindow window;
    image.SetProgressHandle(&window);
    const std::unique_ptr<CVynImage> plain(image.MakeFilterWork(3, 1));
    // Rows of the image and rows with the margin, fewer than twice those announced.
    EXPECT_EQ(window.events.front().text, L"フィルタ処理準備中...");
    EXPECT_EQ(window.Percents().back(), 100 * (5 + 11) / (2 * 11));
    window.events.clear();
    const std::unique_ptr<CVynImage> work(image.MakeDDWork(3, 1));
    EXPECT_EQ(window.events.front().text, L"デジタル現像処理準備中...");
    EXPECT_EQ(window.events.back().code, kProgressEnd);
    // Two planes have no blue.
    ASSERT_EQ(work->GetPlanes(), planes == 3 ? 4 : 1);
    for (int p = 0; p < std::min(work->GetPlanes(), 3); ++p) {
      EXPECT_EQ(Pixels(*work, p), Pixels(*plain, p));
      EXPECT_EQ(work->GetLevelMax(p), 900.0 + p);
    }
    if (planes < 3) continue;
    EXPECT_EQ(window.Percents().back(), 100 * (3 * (5 + 11) + 11) / (3 * 2 * 11 + 11));
    EXPECT_EQ(work->GetLevelMin(3), 0.0);
    EXPECT_EQ(work->GetLevelMax(3), 900.0);
    for (int i = 0; i < 15 * 11; ++i) {
      const auto at = [&](int p) { return static_cast<double>(At(*work, p, i % 15, i / 15)); };
      ASSERT_NEAR(at(3), (at(0) + at(1) + at(2)) / 3.0, 2e-4) << i;
    }
  }
}

}  // namespace
}  // namespace qmr::test
