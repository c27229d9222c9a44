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
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using qmr::test::At;
using qmr::test::Bytes;
using qmr::test::Fill;
using qmr::test::FillNoise;
using qmr::test::Pixels;
using qmr::test::Random;
using qmr::test::RecordingWindow;
using qmr::test::SamePixels;
using qmr::test::Shape;
using qmr::test::Threads;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

struct Size {
  int width;
  int height;
};
// The long row crosses the stretches that rows are cut into.
constexpr Size kSizes[] = {{1, 1}, {1, 7}, {7, 1}, {2, 2}, {3, 4}, {13, 9}, {70, 50}, {1100, 5}};

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
  int plane;
  int x;
  int y;
  float Neighbour(int dx, int dy) const {
    return At(image, plane, ReflectedColumn(x, dx, image.GetWidth()), MirroredRow(y + dy, image.GetHeight()));
  }
};

std::vector<float> Neighbours(const Pixel& pixel, int method) {
  std::vector<float> values;
  const int radius = method == 2 ? 2 : 1;
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      const int distance = std::abs(dx) + std::abs(dy);
      const int most = method == 0 ? 1 : method == 1 ? 2 : method == 2 ? 3 : 0;
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

float Laplace(const Pixel& pixel, int method) {
  static constexpr double kWeights[3][3] = {{4, -1, 0}, {8, -1, -1}, {4, -2, 1}};
  double sum = 0.0;
  if (method < 0 || method > 2) sum = pixel.Neighbour(0, -1);
  for (int i = 0; i < 9 && method >= 0 && method <= 2; ++i) {
    const int dx = i % 3 - 1, dy = i / 3 - 1;
    const double weight = kWeights[method][std::abs(dx) + std::abs(dy)];
    if (weight != 0.0) sum += weight * pixel.Neighbour(dx, dy);
  }
  return static_cast<float>(std::fabs(sum) + pixel.image.GetLevelMin(0));
}

float Mean(const Pixel& pixel, int method, double weight, double* plain) {
  const std::vector<float> values = Neighbours(pixel, method);
  const float c = pixel.Neighbour(0, 0);
  if (values.empty()) return c;
  float sum = values[0];
  for (std::size_t i = 1; i < values.size(); ++i) sum += values[i];
  const double count = static_cast<double>(values.size());
  *plain = (static_cast<double>(sum) + c) / (count + 1.0);
  return static_cast<float>((sum * weight + c) / (weight * count + 1.0));
}

float Sharpened(const Pixel& pixel, int method, double gain, double weight, double threshold) {
  double plain = 0.0;
  const double m = Mean(pixel, method, weight, &plain);
  const double c = pixel.Neighbour(0, 0);
  if (std::fabs(plain / c - 1.0) >= threshold) return static_cast<float>((c - m) * gain + c);
  return static_cast<float>(c);
}

// A filter over whole images, its pixel function, and the reference of both.
struct Filter {
  const char* name;
  void (*whole)(CImgFilter& to, int method, CVynImage* from, CRect* rect);
  float (*pixel)(const CImgFilter& from, int method, float** rows, int x);
  float (*reference)(const Pixel& pixel, int method);
  bool smallTable;
};

const Filter kFilters[] = {
    {"median", [](CImgFilter& to, int m, CVynImage* from, CRect* r) { to.MedianFilter(m, from, r, 0); },
     [](const CImgFilter& from, int m, float** rows, int x) { return from.GetMedianRaw(rows, x, m); },
     [](const Pixel& p, int m) {
       return Ranked(p, m, m == 0 ? 2 : m == 1 ? 4 : 10);
     },
     false},
    {"rank", [](CImgFilter& to, int m, CVynImage* from, CRect* r) { to.MinMaxFilter(m, 3, from, r, 0); },
     [](const CImgFilter& from, int m, float** rows, int x) { return from.GetMinMaxRaw(rows, x, m, 3); },
     [](const Pixel& p, int m) { return Ranked(p, m, 3); }, false},
    {"Laplacian", [](CImgFilter& to, int m, CVynImage* from, CRect* r) { to.LaplacianFilter(m, from, r, 0); },
     [](const CImgFilter& from, int m, float** rows, int x) { return from.GetLaplacianRaw(rows, x, m, 0); }, Laplace,
     true},
    {"unsharp", [](CImgFilter& to, int m, CVynImage* from, CRect* r) { to.UnSharpMask(1.7, m, 0.8, 0.2, from, r, 0); },
     [](const CImgFilter& from, int m, float** rows, int x) {
       double p = 0.0;
       const double c = rows[from.GetMeanR(m)][0];
       const double mean = from.GetMeanRaw(rows, x, m, 0.8, &p);
       return static_cast<float>(std::fabs(p / c - 1.0) >= 0.2 ? (c - mean) * 1.7 + c : c);
     },
     [](const Pixel& p, int m) { return Sharpened(p, m, 1.7, 0.8, 0.2); }, false}};

// Every bit but those of not-a-number.
std::string Bits(CImgFilter& image) {
  Fill(image, [&](int p, int x, int y) { return std::isnan(At(image, p, x, y)) ? 4711.0f : At(image, p, x, y); });
  return Bytes(image);
}

// Checks one filter on `source` against reference and pixel function; pixels outside `rect` must keep -7.
void Check(const Filter& filter, int method, CImgFilter& source, const CRect& rect) {
  const int width = source.GetWidth();
  const int height = source.GetHeight();
  CImgFilter expected, byPixel, actual;
  for (CImgFilter* image : {&expected, &byPixel, &actual}) {
    Shape(*image, width, height, source.GetPlanes());
    Fill(*image, [](int, int, int) { return -7.0f; });
  }
  CRect area = rect;
  filter.whole(actual, method, &source, &area);
  const int radius = filter.smallTable ? 1 : source.GetMeanR(method);
  for (int p = 0; p < source.GetPlanes(); ++p) {
    for (int y = std::max(rect.top, 0); y < std::min(rect.bottom, height); ++y) {
      for (int x = std::max(rect.left, 0); x < std::min(rect.right, width); ++x) {
        float* rows[5];
        source.SetFilterAdr(x, y, p, radius, rows, 0);
        byPixel.SetPixelGrayRaw(x, y, filter.pixel(source, method, rows, x), p);
        expected.SetPixelGrayRaw(x, y, filter.reference(Pixel{source, p, x, y}, method), p);
      }
    }
  }
  EXPECT_TRUE(SamePixels(expected, actual)) << filter.name << " " << method << " " << width << " x " << height;
  EXPECT_TRUE(Bits(byPixel) == Bits(actual)) << filter.name << " " << method << " " << width << " x " << height;
}

TEST(PatternFilters, AreTheirPixelFunctionsOnAllSizes) {
  for (const auto [width, height] : kSizes) {
    CImgFilter source;
    Shape(source, width, height, 2);
    // Zeros of both signs are among the pixels.
    Random random(static_cast<std::uint64_t>(width));
    Fill(source, [&](int, int, int) {
      const int kind = random.Integer(0, 9);
      return kind == 0 ? 0.0f : kind == 1 ? -0.0f : static_cast<float>(random.Uniform(-100.0, 900.0));
    });
    source.SetLevel(0, 12.5, 300.0);
    source.SetLevel(1, 99.0, 300.0);
    for (const Filter& filter : kFilters) {
      for (const int method : {0, 1, 2, -1}) {
        Check(filter, method, source, CRect(0, 0, width, height));
        Check(filter, method, source, CRect(-3, 1, width / 2 + 1, height + 5));
        Check(filter, method, source, CRect(width - 1, -9, width + 9, height - 1));
      }
    }
  }
}

TEST(PatternFilters, SurviveWhatIsNoNumber) {
  CImgFilter source;
  Shape(source, 1100, 12, 1);
  Random random(5);
  Fill(source, [&](int, int x, int) {
    const float values[] = {kNan, -kNan, std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity()};
    const bool special = (x < 60 || x > 1095) && random.Integer(0, 2) == 0;
    return special ? values[random.Integer(0, 3)] : static_cast<float>(random.Integer(0, 20));
  });
  for (const Filter& filter : kFilters) {
    for (const int method : {0, 1, 2}) Check(filter, method, source, CRect(0, 0, 1100, 12));
  }
}

TEST(PatternFilters, DoNotDependOnThreadsAndWorkInPlace) {
  CImgFilter source;
  Shape(source, 70, 50, 3);
  FillNoise(source, 3);
  for (const Filter& filter : kFilters) {
    for (const int method : {0, 1, 2}) {
      std::string apart;
      EXPECT_TRUE(qmr::test::SameForAllThreads([&] {
        CImgFilter to;
        Shape(to, 70, 50, 3);
        filter.whole(to, method, &source, nullptr);
        apart = Bytes(to);
        return apart;
      })) << filter.name;
      CImgFilter own;
      own.CopyImage(source);
      filter.whole(own, method, &own, nullptr);
      EXPECT_EQ(Bytes(own), apart) << filter.name;
    }
  }
}

TEST(PatternFilters, LeaveAloneWhatTheSourceLacks) {
  CImgFilter narrow, bytes;
  Shape(narrow, 20, 9, 1);
  FillNoise(narrow, 4);
  bytes.CopyImage(narrow);
  bytes.ChangeBits(8, 0, 0);
  for (const Filter& filter : kFilters) {
    CImgFilter to;
    Shape(to, 33, 17, 2);
    Fill(to, [](int, int, int) { return -7.0f; });
    filter.whole(to, 2, nullptr, nullptr);
    filter.whole(to, 2, &bytes, nullptr);
    EXPECT_EQ(Pixels(to, 0), std::vector<float>(33 * 17, -7.0f)) << filter.name;
    filter.whole(to, 2, &narrow, nullptr);
    EXPECT_EQ(Pixels(to, 1), std::vector<float>(33 * 17, -7.0f)) << filter.name;
    EXPECT_EQ(At(to, 0, 20, 8), -7.0f);
    EXPECT_EQ(At(to, 0, 19, 9), -7.0f);
    // The edge that counts is the source's.
    EXPECT_EQ(At(to, 0, 19, 8), filter.reference(Pixel{narrow, 0, 19, 8}, 2)) << filter.name;
  }
}

TEST(PatternRank, HasEveryRank) {
  CImgFilter source;
  Shape(source, 61, 20, 1);
  Random random(8);
  Fill(source, [&](int, int, int) { return static_cast<float>(random.Integer(-4, 30)); });
  for (const int method : {0, 1, 2, 3}) {
    for (int rank = -1; rank <= 21; ++rank) {
      CImgFilter expected, actual;
      Shape(expected, 61, 20, 1);
      Shape(actual, 61, 20, 1);
      Fill(expected, [&](int p, int x, int y) { return Ranked(Pixel{source, p, x, y}, method, rank); });
      actual.MinMaxFilter(method, rank, &source, nullptr, 0);
      ASSERT_TRUE(SamePixels(expected, actual)) << method << ", " << rank;
    }
  }
}

TEST(PatternMedian, IsRightForEveryChoiceOfZerosAndOnes) {
  // Windows of five columns with their ones at the bottom, side by side: by the zero-one principle what is right for
  // all of them is right for all values.
  std::vector<float> rows[5];
  std::vector<int> ones;
  for (int k = 0; k < 4 * 6 * 6 * 6 * 4; ++k) {
    const int counts[] = {k % 4, k / 4 % 6, k / 24 % 6, k / 144 % 6, k / 864};
    ones.push_back(0);
    for (int column = 0; column < 5; ++column) {
      const bool outer = column == 0 || column == 4;
      for (int r = 0; r < 5; ++r) {
        const int fromBottom = outer ? 3 - r : 4 - r;
        // Corners are set against the rest.
        const bool corner = outer && (r == 0 || r == 4);
        rows[r].push_back(corner ? (k % 2 ? 9.0f : -9.0f) : fromBottom < counts[column] ? 1.0f : 0.0f);
      }
      ones.back() += counts[column];
    }
  }
  const int width = static_cast<int>(rows[0].size());
  const float* table[5];
  for (int r = 0; r < 5; ++r) table[r] = rows[r].data();
  std::vector<float> medians(rows[0].size());
  qmr::MedianRow({table, width, 0, width, medians.data()}, qmr::Pattern::kDisc);
  for (std::size_t k = 0; k < ones.size(); ++k) ASSERT_EQ(medians[5 * k + 2], ones[k] >= 11 ? 1.0f : 0.0f) << k;
}

TEST(PatternUnsharp, ThresholdIsContrastAgainstThePlainMean) {
  CImgFilter source;
  Shape(source, 5, 5, 3);
  Fill(source, [](int, int x, int y) { return x == 2 && y == 2 ? 16.0f : 10.0f; });
  const auto centre = [&](double weight, double threshold) {
    CImgFilter to;
    Shape(to, 5, 5, 3);
    for (const int plane : {-1, 1, 3}) to.UnSharpMask(2.0, 0, weight, threshold, &source, plane, nullptr, 0);
    EXPECT_EQ(At(to, 0, 2, 2) + At(to, 2, 2, 2), 0.0f);
    return At(to, 1, 2, 2);
  };
  // Plain mean 11.2, weighted mean (40 * 0.5 + 16) / 3 = 12.
  EXPECT_EQ(centre(0.5, 0.3), 24.0f);
  EXPECT_EQ(centre(0.5, 0.31), 16.0f);
  EXPECT_EQ(centre(0.0, 0.0), 16.0f);
  // A zero among others passes every threshold, one among zeros none.
  source.SetPixelGrayRaw(2, 2, 0.0f, 1);
  EXPECT_EQ(centre(1.0, 1e300), -16.0f);
  Fill(source, [](int, int, int) { return 0.0f; });
  EXPECT_EQ(centre(1.0, 0.0), 0.0f);
}

TEST(PatternPixel, ScalesFollowThePlane) {
  CImgFilter image;
  Shape(image, 8, 8, 2);
  FillNoise(image, 7, 100.0, 200.0);
  image.SetLevel(1, 50.0, 305.0);
  float* rows[5];
  image.SetFilterAdr(7, 0, 1, 2, rows, 2);
  EXPECT_EQ(image.GetVmImage()->GetPinCount(), 5);
  image.UnlockAll();
  const Pixel pixel{image, 1, 7, 0};
  double plain = 0.0;
  const float mean = Mean(pixel, 2, 0.6, &plain);
  EXPECT_EQ(image.GetMeanRaw(7, 0, 2, 0.6, 1), mean);
  EXPECT_EQ(image.GetMean256f(rows, 7, 2, 0.6, 1), static_cast<float>((mean - 50.0) / 255.0 * 255.0));
  EXPECT_EQ(image.GetMeanGray(rows, 7, 2, 0.6, 1), mean - 50.0f);
  const float median = Ranked(pixel, 2, 10);
  EXPECT_EQ(image.GetMedianRaw(7, 0, 2, 1), median);
  EXPECT_EQ(image.GetMedian256f(rows, 7, 2, 1), static_cast<float>((median - 50.0) / 255.0 * 255.0));
  EXPECT_EQ(image.GetMedianGray(rows, 7, 2, 1), median - 50.0f);
  // The offset and the scale are both those of the plane.
  const float laplacian = image.GetLaplacianRaw(rows + 1, 7, 0, 1);
  EXPECT_EQ(image.GetLaplacianGray(rows + 1, 7, 0, 1), laplacian - 50.0f);
  EXPECT_EQ(image.GetLaplacian256f(rows + 1, 7, 0, 1), static_cast<float>((laplacian - 50.0) / 255.0 * 255.0));
  EXPECT_EQ(image.GetLaplacianRaw(rows + 1, 7, 0, 0), laplacian - 50.0f);
}

TEST(PatternPixel, OutsideTheImageIsZero) {
  CImgFilter image;
  Shape(image, 4, 4, 1);
  Fill(image, [](int, int, int) { return 5.0f; });
  constexpr int kFar = std::numeric_limits<int>::max();
  using Place = std::array<int, 3>;
  for (const auto& [x, y, plane] : {Place{-1, 0, 0}, {4, 0, 0}, {0, -1, 0}, {0, 4, 0}, {kFar, -kFar, 0}, {0, 0, 1}}) {
    for (const int method : {0, 1, 2, 9}) {
      EXPECT_EQ(image.GetMeanRaw(x, y, method, 1.0, plane), 0.0f);
      EXPECT_EQ(image.GetMedianRaw(x, y, method, plane), 0.0f);
    }
    EXPECT_EQ(image.HighPassRaw(x, y, plane), 0.0f);
  }
  float* rows[3];
  image.SetFilterAdr(0, 0, 1, 1, rows, 0);
  EXPECT_EQ(image.GetMinMaxRaw(rows, 0, 1, 0), 0.0f);
  EXPECT_EQ(image.GetLaplacianRaw(nullptr, 0, 1, 0), 0.0f);
}

TEST(PatternPixel, HighPassClampsInsteadOfReflecting) {
  CImgFilter image;
  Shape(image, 3, 3, 1);
  Fill(image, [](int, int x, int y) { return static_cast<float>(1 << (3 * y + x)); });
  // Around (0, 0): itself three times, 2 and 8 twice, 16.
  EXPECT_EQ(image.HighPassRaw(0, 0, 0), std::fabs(8.0f - (3.0f + 4.0f + 16.0f + 16.0f)));
  EXPECT_EQ(image.HighPassRaw(1, 1, 0), std::fabs(8.0f * 16.0f - (511.0f - 16.0f)));
}

TEST(WorkImage, MirrorsWithTheEdgeOnlyBehind) {
  for (const auto [width, height] : kSizes) {
    for (const int margin : {0, 1, 5}) {
      CImgFilter image;
      Shape(image, width, height, 2);
      FillNoise(image, 11);
      image.SetLevel(1, 3.0, 44.0);
      const std::unique_ptr<CVynImage> work(image.MakeFilterWork(margin, 0));
      const int band = margin ? margin : 2;
      ASSERT_EQ(work->GetWidth(), width + 2 * band);
      ASSERT_EQ(work->GetHeight(), height + 2 * band);
      EXPECT_EQ(work->GetLevelMax(1), 44.0);
      CVynImage expected;
      Shape(expected, work->GetWidth(), work->GetHeight(), 2);
      // Both directions follow the rule of the patterns' rows.
      Fill(expected, [&](int p, int x, int y) {
        return At(image, p, MirroredRow(x - band, width), MirroredRow(y - band, height));
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
  CImgFilter image;
  Shape(image, 4, 6, 1);
  FillNoise(image, 12);
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
  CImgFilter image;
  Shape(image, 9, 5, 3);
  FillNoise(image, 13, 0.0, 1000.0);
  image.SetLevel(0, 10.0, 900.0);
  image.SetLevel(2, 20.0, 700.0);
  const std::unique_ptr<CVynImage> work(image.MakeDDWork(3, 0));
  ASSERT_EQ(work->GetPlanes(), 4);
  EXPECT_EQ(work->GetLevelMax(2), 700.0);
  EXPECT_EQ(work->GetLevelMin(3), 10.0);
  EXPECT_EQ(work->GetLevelMax(3), 900.0);
  for (int y = 0; y < work->GetHeight(); ++y) {
    for (int x = 0; x < work->GetWidth(); ++x) {
      double sum = 0.0;
      for (int p = 0; p < 3; ++p) {
        ASSERT_EQ(At(*work, p, x, y), At(image, p, MirroredRow(x - 3, 9), MirroredRow(y - 3, 5)));
        sum += At(*work, p, x, y);
      }
      ASSERT_NEAR(At(*work, 3, x, y), sum / 3.0, 2e-4) << x << ", " << y;
    }
  }
  // Two planes have no blue.
  for (const int planes : {1, 2}) {
    CImgFilter mono;
    Shape(mono, 9, 5, planes);
    const std::unique_ptr<CVynImage> single(mono.MakeDDWork(0, 0));
    EXPECT_EQ(single->GetPlanes(), 1) << planes;
  }
}

TEST(PatternFilters, ReportTheirRows) {
  const auto run = [](auto&& operation, const wchar_t* title, std::size_t units) {
    CImgFilter source, to;
    Shape(source, 6, 8, 3);
    Shape(to, 6, 8, 3);
    RecordingWindow window;
    to.SetProgressHandle(&window);
    const Threads one(1);
    operation(to, source);
    ASSERT_GE(window.events.size(), 2u);
    EXPECT_EQ(window.events.front().text, title);
    EXPECT_EQ(window.events.back().code, qmr::kProgressEnd);
    // Units come in steps of one while there are fewer than a hundred.
    EXPECT_EQ(window.Percents().size(), units) << units;
  };
  CRect rect(1, 2, 5, 7);
  run([&](CImgFilter& to, CImgFilter& from) { to.MedianFilter(1, &from, &rect, 1); }, L"中央値フィルタ処理中", 15);
  run([&](CImgFilter& to, CImgFilter& from) { to.MinMaxFilter(1, 0, &from, &rect, 1); },
      L"ミニマム／マキシマムフィルター処理中...", 15);
  run([&](CImgFilter& to, CImgFilter& from) { to.LaplacianFilter(1, &from, &rect, 1); }, L"輪郭検出処理中...", 15);
  run([&](CImgFilter& to, CImgFilter& from) { to.UnSharpMask(1, 1, 1, 0, &from, &rect, 1); },
      L"アンシャープマスク処理中...", 15);
  run([&](CImgFilter& to, CImgFilter& from) { to.UnSharpMask(1, 1, 1, 0, &from, 2, &rect, 1); },
      L"アンシャープマスク処理中...", 5);
  // Rows of the image, then rows with the margin.
  run([](CImgFilter& to, CImgFilter&) { delete to.MakeFilterWork(1, 1); }, L"フィルタ処理準備中...", 3 * 8 + 3 * 10);
  run([](CImgFilter& to, CImgFilter&) { delete to.MakeDDWork(1, 1); }, L"デジタル現像処理準備中...",
      3 * 8 + 3 * 10 + 10);
}

}  // namespace
