// Wavelets: the filters, lines and pyramids against the definition written out, and the rules of buffers and reports.
#include "qmrimg/filters/wavelet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

using testing::Each;
using testing::ElementsAre;

using Line = CArray<float, float>;
using Floats = std::vector<float>;

// Opens what is protected.
class Wavelet : public CImgWavelet {
 public:
  explicit Wavelet(int order) { SetDaubechyParams(order); }
  using CImgWavelet::highAnalysis;
  using CImgWavelet::highSynthesis;
  using CImgWavelet::InvWavelet1d;
  using CImgWavelet::InvWavelet2d;
  using CImgWavelet::lowAnalysis;
  using CImgWavelet::lowSynthesis;
  using CImgWavelet::ProgressTotal;
  using CImgWavelet::taps;
  using CImgWavelet::Wavelet1d;
  using CImgWavelet::Wavelet2d;
};

Line LineOf(const Floats& values) {
  Line line;
  for (const float v : values) line.Add(v);
  return line;
}

// A line by definition; the zeros between the values of the halves take part in every sum.
Floats Transformed(const Floats& x, const Wavelet& w, bool back) {
  const std::size_t n = x.size(), k = n / 2;
  Floats result(x), low(n), high(n);
  for (std::size_t i = 0; i < k; ++i) {
    low[2 * i] = x[i];
    high[2 * i] = x[k + i];
  }
  for (std::size_t j = 0; j < (back ? n : k); ++j) {
    float sum = 0.0f, highSum = 0.0f;
    for (std::size_t t = 0; t < static_cast<std::size_t>(w.taps); ++t) {
      if (back) {
        const std::size_t from = (j + 20 * n - t) % n;
        sum += low[from] * w.lowSynthesis[t] + high[from] * w.highSynthesis[t];
      } else {
        sum += x[(2 * j + t) % n] * w.lowAnalysis[t];
        highSum += x[(2 * j + t) % n] * w.highAnalysis[t];
      }
    }
    result[j] = sum;
    if (!back) result[k + j] = highSum;
  }
  return result;
}

// The same of all rows or all columns of the first w x h pixels of plane 0.
void Pass(CVynImage& image, int w, int h, bool rows, const Wavelet& wavelet, bool back) {
  std::vector<Floats> lines(static_cast<std::size_t>(rows ? h : w));
  for (int i = 0; i < (rows ? h : w); ++i) {
    Floats& line = lines[static_cast<std::size_t>(i)];
    for (int k = 0; k < (rows ? w : h); ++k) line.push_back(At(image, 0, rows ? k : i, rows ? i : k));
    line = Transformed(line, wavelet, back);
  }
  Fill(image, [&](int p, int x, int y) {
    if (p > 0 || x >= w || y >= h) return At(image, p, x, y);
    return rows ? lines[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)]
                : lines[static_cast<std::size_t>(x)][static_cast<std::size_t>(y)];
  });
}

void MakeNoise(CVynImage& image, int width, int height, int planes) {
  Shape(image, width, height, planes);
  FillNoise(image, 1);
}

// Gains of one value for all details.
int Compose(Wavelet& w, CVynImage& image, int levels, float low = 1.0f, float detail = 1.0f, int bProgress = 0) {
  Line gains = LineOf(Floats(static_cast<std::size_t>(levels), detail));
  return w.DoMultiResSubbandComposition(&image, levels, low, &gains, &gains, &gains, bProgress);
}

TEST(Wavelet, FiltersAreOrthonormalWithAllTheirVanishingMoments) {
  for (int order = 1; order <= 10; ++order) {
    const Wavelet w(order);
    ASSERT_EQ(w.taps, 2 * order);
    double sum = 0.0, firstHalf = 0.0;
    for (int i = 0; i < w.taps; ++i) {
      sum += w.lowSynthesis[i];
      if (i < order) firstHalf += std::pow(w.lowSynthesis[i], 2);
      EXPECT_EQ(w.highSynthesis[i], (i % 2 ? -1.0f : 1.0f) * w.lowSynthesis[w.taps - 1 - i]);
      EXPECT_TRUE(2 * w.lowAnalysis[i] == w.lowSynthesis[i] && 2 * w.highAnalysis[i] == w.highSynthesis[i]);
    }
    EXPECT_NEAR(sum, 2.0, 1e-6) << order;
    // Of all filters with these properties, the one whose energy comes first.
    EXPECT_TRUE(order == 1 || firstHalf > 1.6) << order;
    for (int shift = 0; shift < order; ++shift) {
      double product = 0.0, moment = 0.0;
      for (int i = 0; i < w.taps; ++i) {
        if (i + 2 * shift < w.taps) product += static_cast<double>(w.lowSynthesis[i]) * w.lowSynthesis[i + 2 * shift];
        // About the middle and scaled to 1, so that the rounding of the taps doesn't grow with the power.
        moment += w.highSynthesis[i] * std::pow((i - order + 0.5) / order, shift);
      }
      EXPECT_NEAR(product, shift == 0 ? 2.0 : 0.0, 1e-6) << order << ", shift " << shift;
      EXPECT_NEAR(moment, 0.0, 1e-6) << order << ", moment " << shift;
    }
  }
  EXPECT_EQ(Wavelet(1).lowSynthesis[1], 1.0f);
}

TEST(Wavelet, OtherOrdersLeaveZerosOnly) {
  for (const auto& [order, taps] :
       std::vector<std::pair<int, int>>{{0, 0}, {11, 22}, {-1, -2}, {INT_MAX, INT_MAX}, {INT_MIN, INT_MIN}}) {
    Wavelet w(4);
    w.SetDaubechyParams(order);
    EXPECT_EQ(w.taps, taps);
    CVynImage image;
    MakeNoise(image, 34, 18, 1);
    EXPECT_EQ(w.DoMultiResSubbandDecomposition(&image, 1, 0), 1);
    EXPECT_THAT(Pixels(image, 0), Each(0.0f)) << order;
    EXPECT_EQ(Compose(w, image, 1), 1);
  }
}

// Lines shorter than the filter wrap several times; odd ones keep their last value and lose it on the way back.
TEST(Wavelet, LinesFollowTheDefinitionBitByBit) {
  Random random(5);
  for (int order = 1; order <= 10; ++order) {
    // A copy has the filter.
    const Wavelet original(order);
    Wavelet w(original);
    for (int n = 0; n <= 160; n += n < 50 ? 1 : 11) {
      Floats x;
      for (int i = 0; i < n; ++i) x.push_back(static_cast<float>(random.Uniform(-100.0, 100.0)));
      if (n % 3 == 2) x[0] = std::numeric_limits<float>::infinity();
      for (const bool back : {false, true}) {
        Line line = LineOf(x);
        back ? w.InvWavelet1d(&line) : w.Wavelet1d(&line);
        const Floats expected = Transformed(x, w, back);
        for (int i = 0; i < n; ++i) {
          const float e = expected[static_cast<std::size_t>(i)];
          ASSERT_TRUE(line[i] == e || (std::isnan(e) && std::isnan(line[i])))
              << "order " << order << ", value " << i << " of " << n << ": " << line[i] << " for " << e;
        }
      }
    }
  }
}

TEST(Wavelet, PyramidsFollowTheDefinitionBitByBit) {
  const float low = 0.3f, row[] = {0.7f, 1.7f}, column[] = {1.1f, -2.0f}, diagonal[] = {0.0f, 1.0f};
  for (const auto& [width, height] :
       std::vector<std::pair<int, int>>{{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {70, 50}, {33, 64}, {200, 18}}) {
    for (const int order : {1, 4, 10}) {
      Wavelet w(order);
      CVynImage expected;
      MakeNoise(expected, width, height, 2);
      expected.SetLevel(0, 10.0, 51.0);
      CVynImage image(expected);
      const CVynImage source(expected);
      Pass(expected, width, height, true, w, false);
      Pass(expected, width, height, false, w, false);
      Pass(expected, width / 2, height / 2, true, w, false);
      Pass(expected, width / 2, height / 2, false, w, false);
      w.DoMultiResSubbandDecomposition(&image, 2, 0);
      EXPECT_EQ(Pixels(expected, 0), Pixels(image, 0)) << width << " x " << height << ", order " << order;
      EXPECT_EQ(Pixels(image, 1) == Pixels(source, 1), width * height == 1);

      // Composition doubles the coarsest sides: bits lost on the way down stay lost.
      for (const int level : {1, 0}) {
        const int h2 = height / 2 << (1 - level) >> 1, w2 = width / 2 << (1 - level) >> 1;
        Fill(expected, [&](int p, int x, int y) {
          const float v = At(expected, p, x, y);
          if (p > 0 || x >= 2 * w2 || y >= 2 * h2) return v;
          if (x < w2 && y < h2) return level == 1 ? (v - 30.5f) * low + 30.5f : v;
          return v * (y < h2 ? row : x < w2 ? column : diagonal)[level];
        });
        Pass(expected, width / 2 << (1 - level), height / 2 << (1 - level), false, w, true);
        Pass(expected, width / 2 << (1 - level), height / 2 << (1 - level), true, w, true);
      }
      Line rows = LineOf({row[0], row[1]}), columns = LineOf({column[0], column[1], 9.0f});
      Line diagonals = LineOf({diagonal[0], diagonal[1]});
      EXPECT_EQ(w.DoMultiResSubbandComposition(&image, 2, low, &rows, &columns, &diagonals, 0), 1);
      EXPECT_EQ(Pixels(expected, 0), Pixels(image, 0)) << width << " x " << height << ", order " << order << ", back";
    }
  }
}

// A rectangle gives a size, which is counted from the corner and cut to the image.
TEST(Wavelet, OneLevelTakesTheSizeOfItsRectangle) {
  Wavelet w(3);
  CVynImage image;
  MakeNoise(image, 23, 12, 1);
  CVynImage expected(image);
  for (CRect rect : {CRect(5, 4, 15, 11), CRect(-9, 0, INT_MAX, 3)}) {
    const int columns = std::min(rect.right, 32) - 9 + 4 * (rect.left == 5), rows = rect.bottom - rect.top;
    for (const bool back : {false, true}) {
      for (const bool first : {true, false}) Pass(expected, columns, rows, first != back, w, back);
      EXPECT_EQ(back ? w.InvWavelet2d(&image, &rect, 1, 1, 1, 1) : w.Wavelet2d(&image, &rect), 1);
      EXPECT_TRUE(SamePixels(expected, image)) << columns << ", back " << back;
    }
  }
}

TEST(Wavelet, GainsOfOneRestoreWhateverTheLevels) {
  for (int order = 1; order <= 10; ++order) {
    Wavelet w(order);
    CVynImage source, result, buffer;
    MakeNoise(source, 61, 47, 3);
    // A rectangle that leaves the image comes back as far as it lies inside.
    for (CRect rect : {CRect(5, 3, 42, 30), CRect(-7, 20, 90, 90)}) {
      CRect size;
      w.CalcBufferSize(&rect, 3, &size);
      Shape(buffer, size.Width(), size.Height(), 3);
      buffer.SetLevel(0, 1e9, std::numeric_limits<double>::infinity());
      Shape(result, 61, 47, 3);
      w.CopyToBuffer(&buffer, &source, &rect);
      EXPECT_TRUE(SameForAllThreads([&] {
        CVynImage work(buffer);
        w.DoMultiResSubbandDecomposition(&work, 3, 0);
        Compose(w, work, 3);
        w.CopyFromBuffer(&result, &rect, &work);
        return Bytes(work);
      }));
      CVynImage expected(source);
      Fill(expected, [&](int p, int x, int y) {
        return x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom ? At(source, p, x, y) : 0.0f;
      });
      EXPECT_TRUE(NearPixels(expected, result, 2e-3)) << "order " << order;
    }
  }
}

TEST(Wavelet, UnusualLevelsAndShortGainsChangeNothing) {
  Wavelet w(2);
  CVynImage image;
  MakeNoise(image, 16, 8, 1);
  const std::string before = Bytes(image);
  for (const int levels : {0, -1, INT_MIN}) {
    EXPECT_EQ(w.DoMultiResSubbandDecomposition(&image, levels, 0), 1);
    EXPECT_EQ(w.DoMultiResSubbandComposition(&image, levels, 2.0f, nullptr, nullptr, nullptr, 0), 1);
  }
  // The coarsest rectangle is empty, and doubling leaves it so.
  for (const int levels : {6, 31, 32, 33, 70}) EXPECT_EQ(Compose(w, image, levels, 2.0f, 2.0f), 1);
  Line enough = LineOf({2.0f, 2.0f, 2.0f}), tooFew = LineOf({2.0f, 2.0f});
  for (int bad = 0; bad < 3; ++bad) {
    for (Line* const wrong : {&tooFew, static_cast<Line*>(nullptr)}) {
      const auto gain = [&](int i) { return i == bad ? wrong : &enough; };
      EXPECT_TRUE(Raises<CInvalidArgException>([&] {
        w.DoMultiResSubbandComposition(&image, 3, 2.0f, gain(0), gain(1), gain(2), 0);
      })) << bad;
    }
  }
  EXPECT_EQ(Bytes(image), before);
  // A decomposition stops where no pixels are left.
  CVynImage most(image);
  w.DoMultiResSubbandDecomposition(&most, 5, 0);
  EXPECT_EQ(w.DoMultiResSubbandDecomposition(&image, INT_MAX, 0), 1);
  EXPECT_TRUE(SamePixels(most, image));
}

TEST(Wavelet, BufferSizesAreMultiplesWithALeast) {
  Wavelet w(1);
  const auto size = [&](CRect rect, int levels) {
    CRect buffer(1, 2, 3, 4);
    w.CalcBufferSize(&rect, levels, &buffer);
    EXPECT_TRUE(buffer.left == 0 && buffer.top == 0);
    return std::pair(buffer.right, buffer.bottom);
  };
  EXPECT_EQ(size({0, 0, 5, 100}, 3), std::pair(16, 104));
  EXPECT_EQ(size({10, 20, 42, 51}, 1), std::pair(32, 32));
  EXPECT_EQ(size({0, 0, 7, 0}, 0), std::pair(7, 2));
  EXPECT_EQ(size({9, 9, 3, 3}, 2), std::pair(8, 8));
  for (const int levels : {30, 64, INT_MAX}) EXPECT_EQ(size({0, 0, 5, 5}, levels), std::pair(INT_MAX, INT_MAX));
  EXPECT_EQ(size({INT_MIN, 0, INT_MAX, 5}, INT_MIN), std::pair(INT_MAX, 5));
}

TEST(Wavelet, BuffersRepeatTheLastColumnAndRow) {
  Wavelet w(1);
  CVynImage source = Shaped(5, 4, 1);
  CVynImage destination = Shaped(5, 4, 1);
  CVynImage buffer = Shaped(6, 4, 2);
  Fill(source, [](int, int x, int y) { return static_cast<float>(10 * y + x); });
  // Pixels beyond the rectangle are taken as far as the source has them.
  CRect rect(2, 1, 3, 3), outside(5, 0, 9, 9), corner(3, -1, 9, 2);
  w.CopyToBuffer(&buffer, &source, &rect);
  w.CopyToBuffer(&buffer, &source, &outside);
  const CVynImage expected(buffer);
  EXPECT_TRUE(
      PixelsAre([](int p, int x,
                   int y) { return p == 1 ? 0.0f : static_cast<float>(10 * std::min(1 + y, 3) + std::min(2 + x, 4)); },
                buffer));
  w.CopyFromBuffer(&destination, &corner, &buffer);
  EXPECT_TRUE(
      PixelsAre([&](int, int x, int y) { return x >= 3 && y < 2 ? At(buffer, 0, x - 3, y) : 0.0f; }, destination));
  // The buffer may be the source.
  w.CopyToBuffer(&source, &source, &rect);
  EXPECT_TRUE(PixelsAre([&](int, int x, int y) { return At(expected, 0, x, y); }, source));
}

TEST(Wavelet, ReportsCountPixelsOfBothPassesUntilEscape) {
  Wavelet w(1);
  RecordingWindow window;
  w.SetProgressHandle(&window);
  CVynImage image = Shaped(8, 8, 2);
  w.DoMultiResSubbandDecomposition(&image, 2, 1);
  EXPECT_THAT(window.Percents(), ElementsAre(20, 40, 60, 80, 85, 90, 95, 100));
  EXPECT_EQ(window.events.front().text, L"多重解像度サブバンド分解中...");
  EXPECT_EQ(window.events.back().code, kProgressEnd);
  window.events.clear();
  Compose(w, image, 2, 1.0f, 1.0f, 1);
  EXPECT_THAT(window.Percents(), ElementsAre(5, 10, 15, 20, 40, 60, 80, 100));
  EXPECT_EQ(window.events.front().text, L"多重解像度サブバンド合成中...");

  // The pass at whose end Esc is seen is done, the next one isn't begun.
  for (const bool back : {false, true}) {
    MakeNoise(image, 16, 12, 1);
    CVynImage expected(image);
    const int first = back ? 1 : 0;
    Pass(expected, 16 >> first, 12 >> first, !back, w, back);
    Pass(expected, 16 >> first, 12 >> first, back, w, back);
    Pass(expected, 16 >> (1 - first), 12 >> (1 - first), !back, w, back);
    window.escapeAtLook = window.looks + 3;
    EXPECT_EQ(back ? Compose(w, image, 2, 1.0f, 1.0f, 1) : w.DoMultiResSubbandDecomposition(&image, 2, 1), 0);
    EXPECT_TRUE(SamePixels(expected, image)) << "back " << back;
    EXPECT_EQ(window.events.back().code, kProgressEnd);
  }

  // The fields may tell of more than there are pixels. A total that does not fit an int is scaled down.
  image.SetWidth(40000);
  image.SetHeight(40000);
  window.events.clear();
  EXPECT_EQ(w.DoMultiResSubbandDecomposition(&image, 4, 1), 1);
  EXPECT_GT(w.ProgressTotal, INT_MAX / 2);
  EXPECT_THAT(window.Percents(), testing::IsSupersetOf({75, 94, 100}));
}

}  // namespace
}  // namespace qmr::test
