#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <tuple>
#include <utility>
#include <vector>

#include "qmrimg/levels/hst_eql.h"
#include "qmrimg/levels/pixel_sort.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using namespace qmr::test;

float OfRank(std::size_t rank, std::size_t count, double min, double max) {
  return static_cast<float>(static_cast<double>(rank) * (max - min) / static_cast<double>(count) + min);
}

// Every rank is given once, and a greater value never has a lower rank.
void ExpectRanked(const std::vector<float>& source, const std::vector<float>& result, double min, double max) {
  ASSERT_EQ(source.size(), result.size());
  std::vector<std::size_t> order(source.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  const auto behind = [](float v) { return std::isnan(v) ? INFINITY : v; };
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return std::make_tuple(std::isnan(source[a]), behind(source[a]), result[a]) <
           std::make_tuple(std::isnan(source[b]), behind(source[b]), result[b]);
  });
  for (std::size_t rank = 0; rank < order.size(); ++rank)
    ASSERT_EQ(result[order[rank]], OfRank(rank, order.size(), min, max)) << "rank " << rank;
}

struct Case {
  const char* name;
  int width, height;
  float (*value)(Random&);
};

TEST(Equalization, RanksEveryPixel) {
  const Case cases[] = {
      {"noise about zero", 70, 50, [](Random& r) { return static_cast<float>(r.Normal()); }},
      {"every exponent", 300, 260,
       [](Random& r) { return static_cast<float>(std::ldexp(r.Uniform(-1.0, 1.0), r.Integer(-149, 100))); }},
      {"few integers", 300, 260, [](Random& r) { return static_cast<float>(r.Integer(-3, 3)); }},
      {"16 bits", 300, 260, [](Random& r) { return static_cast<float>(r.Integer(0, 65535)); }},
      {"both zeros", 13, 9, [](Random& r) { return r.Uniform() < 0.5 ? -0.0f : 0.0f; }},
      {"two bins", 13, 9, [](Random& r) { return r.Uniform() < 0.9 ? 1.0f : 1e30f; }},
      {"one pixel", 1, 1, [](Random&) { return 5.0f; }},
      {"flat", 7, 3, [](Random&) { return -2.5f; }},
      {"first not-a-number", 40, 30,
       [](Random& r) { return r.Uniform() < 0.8 ? NAN : static_cast<float>(r.Normal()); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Random random(11);
    CVynImage source;
    Shape(source, c.width, c.height, 1);
    Fill(source, [&](int, int, int) { return c.value(random); });
    double min = INFINITY, max = -INFINITY;
    for (const float v : Pixels(source, 0)) {
      min = v < min ? static_cast<double>(v) : min;
      max = v > max ? static_cast<double>(v) : max;
    }
    EXPECT_TRUE(SameForAllThreads([&] {
      std::srand(5);
      CImgHstEql image;
      Shape(image, c.width, c.height, 1);
      EXPECT_EQ(image.Do(&source), 1);
      EXPECT_TRUE(source.GetLevelMin(0) == min && source.GetLevelMax(0) == max);
      ExpectRanked(Pixels(source, 0), Pixels(image, 0), min, max);
      std::srand(5);
      CImgHstEql inPlace;
      inPlace.CopyImage(source);
      inPlace.Do(&inPlace);
      EXPECT_EQ(Bytes(image), Bytes(inPlace));
      return Bytes(image);
    }));
  }
}

TEST(Equalization, EqualPixelsSpreadEvenlyAtRandom) {
  CVynImage source;
  Shape(source, 400, 300, 1);
  // A flat sky with one pixel above and one below it.
  Fill(source, [](int, int x, int y) { return x + y == 0 ? 0.0f : x + y == 698 ? 2.0f : 1.0f; });
  const auto equalized = [&](unsigned seed) {
    std::srand(seed);
    CImgHstEql image;
    Shape(image, 400, 300, 1);
    image.Do(&source);
    return Pixels(image, 0);
  };
  const std::vector<float> result = equalized(1);
  EXPECT_EQ(result, equalized(1));
  EXPECT_NE(result, equalized(2));
  // Uniform in 0..2: a slope would lift the lagged products of neighbours, whose means have a deviation of 0.001.
  double across = 0.0, down = 0.0;
  for (std::size_t i = 400; i < result.size(); ++i) {
    across += (result[i] - 1.0) * (result[i - 1] - 1.0) / 120000.0;
    down += (result[i] - 1.0) * (result[i - 400] - 1.0) / 120000.0;
  }
  for (const double product : {across, down}) EXPECT_NEAR(product, 0.0, 0.004);
}

TEST(Equalization, OnlyWhatBothImagesHave) {
  CVynImage source;
  Shape(source, 9, 7, 2);
  FillNoise(source, 13);
  CImgHstEql image;
  Shape(image, 5, 12, 4);
  RecordingWindow window;
  image.SetProgressHandle(&window);
  CVynImage expected(image);
  for (int p = 0; p < 2; ++p) {
    const std::vector<float> plane = Pixels(source, p);
    const auto [low, high] = std::minmax_element(plane.begin(), plane.end());
    for (int i = 0; i < 35; ++i) {
      const float v = At(source, p, i % 5, i / 5);
      const auto rank = std::count_if(plane.begin(), plane.end(), [v](float other) { return other < v; });
      expected.SetPixelGrayRaw(i % 5, i / 5, OfRank(static_cast<std::size_t>(rank), 63, *low, *high), p);
    }
  }
  // Planes that were announced and never allocated.
  source.SetPlanes(3);
  EXPECT_EQ(image.Do(&source), 1);
  EXPECT_TRUE(SamePixels(expected, image));
  EXPECT_EQ(window.events.front().text, L"ヒストグラム・イコライゼーション処理中...");
  EXPECT_EQ(window.events.back().code, qmr::kProgressEnd);

  CVynImage nothing;
  CImgHstEql noPixels;
  EXPECT_EQ(image.Do(nullptr), 0);
  EXPECT_TRUE(image.Do(&nothing) && noPixels.Do(&source));
  for (const float odd : {INFINITY, -INFINITY, NAN}) {
    source.SetPixelGrayRaw(3, 3, odd, 0);
    EXPECT_EQ(image.Do(&source), 1);
  }
}

TEST(PixelSort, SortsByValueThenKey) {
  CPixelSort list;
  list.SetCapacity(200);
  std::srand(3);
  Random random(15);
  for (int i = 0; i < 210; ++i) list.Add(i, -i, i % 50 == 0 ? NAN : static_cast<float>(random.Integer(-2, 2)));
  EXPECT_EQ(list.GetCount(), 200);
  list.Sort();
  int x = 0, y = 0, turned = 0;
  float value = 0.0f;
  for (int i = 0; i < 200; ++i) {
    const auto [lastX, lastValue] = std::pair(x, i ? value : -2.0f);
    ASSERT_EQ(list.Get(i, &x, &y, &value), 1);
    EXPECT_TRUE(y == -x && (i < 196 ? value >= lastValue : std::isnan(value))) << i;
    turned += value == lastValue && x < lastX;
  }
  EXPECT_GT(turned, 40);  // about half of the neighbours among equals
  for (const int index : {-1, 200}) EXPECT_EQ(list.Get(index, nullptr, nullptr, nullptr), 0);
  list.SetCapacity(-4);
  EXPECT_EQ(list.GetCapacity() + list.GetCount(), 0);
}

}  // namespace
