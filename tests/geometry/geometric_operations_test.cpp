// Crop, canvas, resampling, rotation, mirror, scroll and binning against their formulas written down pixel by pixel.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "qmrimg/geometry/crop.h"
#include "qmrimg/geometry/flip.h"
#include "qmrimg/geometry/interp.h"
#include "qmrimg/geometry/resize.h"
#include "qmrimg/geometry/resolution.h"
#include "qmrimg/geometry/rotate.h"
#include "qmrimg/geometry/scroll.h"
#include "qmrimg/geometry/soft_binning.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using namespace qmr::test;

constexpr std::pair<int, int> kShapes[] = {{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {70, 50}, {150, 21}};

// Runs `operation(image, source)` with the source apart and with the source as the object itself; both must give
// `expected` in a result of `width` x `height`.
template <class Image>
void BothWays(const CVynImage& source, int width, int height, const std::function<void(Image&, CVynImage*)>& operation,
              const std::function<float(int, int, int)>& expected) {
  CVynImage apart(source);
  Image image = Shaped<Image>(source.GetWidth(), source.GetHeight(), source.GetPlanes());
  operation(image, &apart);
  EXPECT_EQ(width, image.GetWidth());
  EXPECT_EQ(height, image.GetHeight());
  EXPECT_TRUE(PixelsAre(expected, image));
  EXPECT_TRUE(SamePixels(source, apart));
  Image itself;
  static_cast<CVynImage&>(itself) = source;
  operation(itself, &itself);
  EXPECT_TRUE(SamePixels(image, itself)) << "in place";
}

float LinearReference(const CVynImage& source, int p, int i, int j, int width, int height) {
  const int w = source.GetWidth(), h = source.GetHeight();
  if (w == width && h == height) return At(source, p, i, j);
  const float stepX = static_cast<float>(w) / static_cast<float>(width);
  const float stepY = static_cast<float>(h) / static_cast<float>(height);
  const float sx = static_cast<float>(i) * stepX, sy = static_cast<float>(j) * stepY;
  int ix = static_cast<int>(sx), iy = static_cast<int>(sy);
  float fx = sx - static_cast<float>(ix), fy = sy - static_cast<float>(iy);
  int lower = iy;
  if (fy != 0.0f && h - 1 != 0) {
    lower = iy + 1;
    if (static_cast<float>(iy) >= static_cast<float>(h - 1)) {
      lower = iy--;
      fy = sy - static_cast<float>(iy);
    }
  }
  if (static_cast<float>(ix) >= static_cast<float>(w - 1)) fx = sx - static_cast<float>(--ix);
  const int right = w == 1 ? 0 : ix + 1;
  ix = std::max(ix, 0);
  const float p00 = At(source, p, ix, iy), p01 = At(source, p, ix, lower);
  const float p10 = At(source, p, right, iy), p11 = At(source, p, right, lower);
  if (fx == 0.0f && fy == 0.0f) return p00;
  return (1 - fx) * (1 - fy) * p00 + (fy - fx * fy) * p01 + (fx - fx * fy) * p10 + fx * fy * p11;
}

float CubicReference(const CVynImage& source, int p, int i, int j, int width, int height) {
  const auto kernel = [](double t) {
    if (t < 1) return 1 - 2.9 * t * t + 1.9 * t * t * t;
    return t == 1 || t >= 2 ? 0.0 : 0.4 - 0.8 * t + 0.5 * t * t - 0.1 * t * t * t;
  };
  const auto index = [](int n, int m) {
    if (n > m && (n = 2 * m - n) < m) n = 0;
    if (n < 0) n = -n > m ? 0 : -n;
    return n;
  };
  const double sx = i * (static_cast<double>(source.GetWidth()) / width);
  const double sy = j * (static_cast<double>(source.GetHeight()) / height);
  double sum = 0, weights = 0;
  for (int r = static_cast<int>(sy) - 1; r <= static_cast<int>(sy) + 2; ++r) {
    for (int c = static_cast<int>(sx) - 1; c <= static_cast<int>(sx) + 2; ++c) {
      const double weight = kernel(std::fabs(r - sy)) * kernel(std::fabs(c - sx));
      if (weight == 0) continue;
      sum += weight * At(source, p, index(c, source.GetWidth() - 1), index(r, source.GetHeight() - 1));
      weights += weight;
    }
  }
  return static_cast<float>(static_cast<float>(sum) / weights);
}

TEST(Resolution, FollowsItsFormulasBitForBit) {
  for (const auto& [w, h] : kShapes) {
    for (const int planes : {1, 5}) {
      const CVynImage source = Noise(w, h, planes, 5, -100.0, 900.0);
      for (const auto& [width, height] : {std::pair{w, h}, {1, 1}, {2 * w, (h + 1) / 2}, {w + 3, 3 * h + 1}, {97, 5}}) {
        SCOPED_TRACE(testing::Message() << w << " x " << h << " to " << width << " x " << height);
        using Resolution = CImgResolution;
        const int nw = width, nh = height;
        BothWays<Resolution>(
            source, nw, nh, [&](Resolution& image, CVynImage* from) { EXPECT_EQ(1, image.Do(from, nw, nh, 0)); },
            [&](int p, int x, int y) { return LinearReference(source, p, x, y, nw, nh); });
        BothWays<Resolution>(
            source, nw, nh, [&](Resolution& image, CVynImage* from) { EXPECT_EQ(1, image.Bicubic(from, nw, nh, 0)); },
            [&](int p, int x, int y) { return CubicReference(source, p, x, y, nw, nh); });
        for (int method = 0; method <= 5; ++method) {
          CVynImage copy(source);
          const CInterp interp(method, &copy, 0);
          const float stepX = static_cast<float>(w) / static_cast<float>(nw);
          const float stepY = static_cast<float>(h) / static_cast<float>(nh);
          BothWays<Resolution>(
              source, nw, nh,
              [&](Resolution& image, CVynImage* from) { EXPECT_EQ(1, image.DoChange(from, nw, nh, method, 0)); },
              [&](int p, int x, int y) {
                return interp.Do(static_cast<float>(x) * stepX, static_cast<float>(y) * stepY, p);
              });
        }
      }
    }
  }
}

// Hand-worked: the last column extrapolates, the bicubic one reads column 0 there, the border of the others repeats.
TEST(Resolution, HasItsOwnWayWithTheLastColumn) {
  CVynImage ramp = Shaped(4, 1, 1);
  Fill(ramp, [](int, int x, int) { return 10.0f * static_cast<float>(x + 1); });
  const auto doubled = [&](int (CImgResolution::*resample)(CVynImage*, int, int, int)) {
    CImgResolution image = Shaped<CImgResolution>(4, 1, 1);
    EXPECT_EQ(1, (image.*resample)(&ramp, 8, 1, 0));
    return At(image, 0, 7, 0);
  };
  EXPECT_EQ(45.0f, doubled(&CImgResolution::Bilinear));
  // Weights -0.0125, 0.5125, 0.5125, -0.0125 on 30, 40, 10, 10.
  EXPECT_NEAR(25.125, doubled(&CImgResolution::Bicubic), 1e-5);
  CImgResolution image = Shaped<CImgResolution>(4, 1, 1);
  ASSERT_EQ(1, image.DoChange(&ramp, 8, 1, 0, 0));
  EXPECT_EQ(40.0f, At(image, 0, 7, 0));

  // Blank and infinite pixels stay where they are at the same size.
  ramp.SetPixelGrayRaw(2, 0, std::numeric_limits<float>::infinity(), 0);
  for (const auto resample : {&CImgResolution::Bilinear, &CImgResolution::Bicubic}) {
    CImgResolution same = Shaped<CImgResolution>(4, 1, 1);
    ASSERT_EQ(1, (same.*resample)(&ramp, 4, 1, 0));
    EXPECT_TRUE(SamePixels(ramp, same));
  }
}

// The old size is the object's: of a larger source its top left part counts, of a smaller one what there is.
TEST(Resolution, TakesTheOldSizeFromTheObject) {
  CVynImage source = Noise(20, 16, 3, 8);
  CImgCrop part = Shaped<CImgCrop>(1, 1, 3);
  ASSERT_EQ(1, part.Do(CRect(0, 0, 10, 8), &source, 0));
  CImgResolution image = Shaped<CImgResolution>(10, 8, 3);
  ASSERT_EQ(1, image.Bicubic(&source, 30, 24, 0));
  EXPECT_TRUE(PixelsAre([&](int p, int x, int y) { return CubicReference(part, p, x, y, 30, 24); }, image));
  for (const auto resample : {&CImgResolution::Bilinear, &CImgResolution::Bicubic}) {
    CImgResolution larger = Shaped<CImgResolution>(40, 32, 4);
    ASSERT_EQ(1, (larger.*resample)(&source, 80, 64, 0));
    CImgResolution exact = Shaped<CImgResolution>(20, 16, 3);
    ASSERT_EQ(1, (exact.*resample)(&source, 40, 32, 0));
    EXPECT_TRUE(
        PixelsAre([&](int p, int x, int y) { return p < 3 && x < 40 && y < 32 ? At(exact, p, x, y) : 0.0f; }, larger));
  }
}

TEST(Rotate, FollowsItsFormulas) {
  constexpr unsigned long kColor = 0x30c864;  // red 100, green 200, blue 48
  for (const auto& [sourceWidth, sourceHeight] : kShapes) {
    const int w = sourceWidth, h = sourceHeight;
    for (const int planes : {1, 3}) {
      CVynImage source = Noise(w, h, planes, 6);
      for (int p = 0; p < planes; ++p) source.SetLevel(p, -10.0 - p, 500.0 + p);
      source.SetStdCtr(3, 1);
      for (const auto& [angle, method, expand] :
           {std::tuple{5.0, 3, 0}, {-33.5, 1, 1}, {90.0, 4, 1}, {217.0, 0, 1}, {179.0, 2, 0}}) {
        SCOPED_TRACE(testing::Message() << w << " x " << h << " by " << angle);
        const double sine = std::sin(angle * 3.141592653589793 / 180),
                     cosine = std::cos(angle * 3.141592653589793 / 180);
        int newSize[2] = {w, h};
        for (int axis = 0; expand && axis < 2; ++axis) {
          std::vector<double> ends;
          for (const int x : {-(w / 2), w - w / 2 - 1}) {
            for (const int y : {h / 2, h / 2 - h + 1})
              ends.push_back(std::ceil(axis == 0 ? x * cosine - y * sine : x * sine + y * cosine));
          }
          const auto [low, high] = std::ranges::minmax(ends);
          newSize[axis] = static_cast<int>(high - low);
        }
        CImgRotate image;
        static_cast<CVynImage&>(image) = source;
        if (newSize[0] <= 0 || newSize[1] <= 0) {
          EXPECT_EQ(0, image.Do(angle, kColor, &source, expand, method, 0));
          EXPECT_TRUE(SamePixels(source, image));
          continue;
        }
        const float background = static_cast<float>((planes == 3 ? 100 : 152) / 255.0 * 510.0 - 10.0);
        const CInterp interp(method, &source, 0);
        const double cx = w / 2, cy = h / 2;
        const double startX = -(newSize[0] - w) * 0.5, startY = -(newSize[1] - h) * 0.5;
        const auto expected = [&](int p, int x, int y) {
          double sx = cosine * (startX - cx) - sine * (cy - (y + startY)) + cx;
          double sy = cy - (sine * (startX - cx) + cosine * (cy - (y + startY)));
          for (int i = 0; i < x; ++i) {
            sx += cosine;
            sy -= sine;
          }
          return sx >= 0 && sx <= w - 1 && sy >= 0 && sy <= h - 1 ? interp.Do(sx, sy, p) : background;
        };
        for (CVynImage* from : {&source, static_cast<CVynImage*>(&image)}) {
          static_cast<CVynImage&>(image) = source;
          ASSERT_EQ(1, image.Do(angle, kColor, from, expand, method, 0));
          ASSERT_EQ(newSize[0], image.GetWidth());
          ASSERT_EQ(newSize[1], image.GetHeight());
          EXPECT_TRUE(PixelsAre(expected, image));
          EXPECT_EQ(w / 2, image.GetStdCtr().x);
          EXPECT_EQ(h / 2, image.GetStdCtr().y);
        }
        EXPECT_EQ(3, source.GetStdCtr().x);
      }
    }
  }
}

// Positive angles are clockwise with row 0 on top, like Do90; hand-worked on a canvas: 4 x 3 becomes 2 x 3.
TEST(Rotate, TurnsTheStatedWay) {
  CVynImage source = Noise(9, 9, 3, 4);
  CImgRotate turned = Shaped<CImgRotate>(9, 9, 3), quarter = Shaped<CImgRotate>(9, 9, 3);
  ASSERT_EQ(1, turned.Do(90.0, 0, &source, 0, 4, 0));
  ASSERT_EQ(1, quarter.Do90(1, &source, 0));
  EXPECT_TRUE(SamePixels(quarter, turned));
  EXPECT_EQ(At(source, 1, 0, 8), At(quarter, 1, 0, 0));
  EXPECT_EQ(At(source, 1, 0, 0), At(quarter, 1, 8, 0));

  CVynImage small = Noise(4, 3, 2, 4);
  CImgRotate expanded = Shaped<CImgRotate>(4, 3, 2);
  ASSERT_EQ(1, expanded.Do(90.0, 0, &small, 1, 4, 0));
  EXPECT_EQ(2, expanded.GetWidth());
  EXPECT_EQ(3, expanded.GetHeight());
  // Both planes of an image of two.
  EXPECT_NE(At(expanded, 0, 1, 1), At(expanded, 1, 1, 1));
  ASSERT_EQ(1, expanded.Do(std::numeric_limits<double>::quiet_NaN(), 0, &small, 0, 4, 0));
  EXPECT_EQ(0.0f, At(expanded, 0, 1, 1));
  // An object of another size is the canvas; exactly 0 degrees copies what both have and keeps the size.
  CImgRotate wider = Shaped<CImgRotate>(12, 2, 3);
  wider.SetStdCtr(2, 1);
  ASSERT_EQ(1, wider.Do(0.0, 0, &small, 1, 4, 0));
  EXPECT_TRUE(PixelsAre([&](int p, int x, int y) { return p < 2 && x < 4 ? At(small, p, x, y) : 0.0f; }, wider));
  EXPECT_EQ(2, wider.GetStdCtr().x);
  ASSERT_EQ(1, wider.Do(180.0, 0, &source, 1, 3, 0));
}

TEST(RightAnglesMirrorsAndScrolls, MovePixelsWhereTheyBelong) {
  for (const auto& [width, height] : kShapes) {
    const int w = width, h = height;
    SCOPED_TRACE(testing::Message() << w << " x " << h);
    CVynImage source = Noise(w, h, 3, 7);
    for (int p = 0; p < 3; ++p) source.SetLevel(p, p, 100.0 + p);
    const auto from = [&](int p, int x, int y) { return At(source, p, x, y); };
    using Rotate = CImgRotate;
    BothWays<Rotate>(
        source, w, h, [](Rotate& image, CVynImage* s) { image.Do180(s, 0); },
        [&](int p, int x, int y) { return from(p, w - 1 - x, h - 1 - y); });
    BothWays<Rotate>(
        source, h, w, [](Rotate& image, CVynImage* s) { EXPECT_EQ(1, image.Do90(0, s, 0)); },
        [&](int p, int x, int y) { return from(p, w - 1 - y, x); });
    BothWays<Rotate>(
        source, h, w,
        [](Rotate& image, CVynImage* s) {
          EXPECT_EQ(1, image.Do90(1, s, 0));
          EXPECT_EQ(102.0, image.GetLevelMax(2));
        },
        [&](int p, int x, int y) { return from(p, y, h - 1 - x); });
    BothWays<CImgFlip>(
        source, w, h, [](CImgFlip& image, CVynImage* s) { image.Do(0, s, 0); },
        [&](int p, int x, int y) { return from(p, x, h - 1 - y); });
    BothWays<CImgFlip>(
        source, w, h, [](CImgFlip& image, CVynImage* s) { image.Do(1, s, 0); },
        [&](int p, int x, int y) { return from(p, w - 1 - x, y); });
    for (const int shift : {0, 3, -4, w, 100 * h + 1, std::numeric_limits<int>::min()}) {
      const auto wrapped = [&](int at, int size) {
        return static_cast<int>(((at % size) + std::int64_t{size}) % size);
      };
      BothWays<CImgScroll>(
          source, w, h, [&](CImgScroll& image, CVynImage* s) { image.Do(shift, 1, s, 0); },
          [&](int p, int x, int y) { return from(p, wrapped(x - shift % w, w), y); });
      BothWays<CImgScroll>(
          source, w, h, [&](CImgScroll& image, CVynImage* s) { image.Do(shift, 0, s, 0); },
          [&](int p, int x, int y) { return from(p, x, wrapped(y + shift % h, h)); });
    }
  }
}

TEST(CropAndCanvas, KeepPixels) {
  for (const auto& [width, height] : kShapes) {
    const int w = width, h = height;
    CVynImage source = Noise(w, h, 3, 9);
    source.SetLevel(0, 10.0, 520.0);
    for (const CRect rect : {CRect(0, 0, w, h), CRect(w / 2, h / 3, w, h), CRect(-5, -9, w / 2 + 1, 99)}) {
      const int left = std::max<int>(rect.left, 0), top = std::max<int>(rect.top, 0);
      BothWays<CImgCrop>(
          source, std::min<int>(rect.right, w) - left, std::min<int>(rect.bottom, h) - top,
          [&](CImgCrop& image, CVynImage* s) { EXPECT_EQ(1, image.Do(rect, s, 0)); },
          [&](int p, int x, int y) { return At(source, p, left + x, top + y); });
    }
    for (const auto& [cw, ch] : {std::pair{w, h}, {w + 5, h + 4}, {(w + 2) / 3, h + 1}, {w + 1, (h + 1) / 2}}) {
      for (int anchor = -1; anchor <= 9; ++anchor) {
        float fill[3] = {0.0f, 51.0f, 255.0f};
        const int place = anchor < 0 || anchor > 8 ? 0 : anchor;
        const int offsets[2][3] = {{0, (cw - w) / 2, cw - w}, {0, (ch - h) / 2, ch - h}};
        const int dx = offsets[0][place % 3], dy = offsets[1][place / 3];
        const int nw = cw, nh = ch;
        BothWays<CImgResize>(
            source, nw, nh,
            [&](CImgResize& image, CVynImage* s) {
              image.SetLevel(0, 10.0, 520.0);
              image.SetStdCtr(1, 1);
              EXPECT_EQ(1, image.Do(nw, nh, anchor, fill, s, 0));
              EXPECT_FALSE(image.IsValidStdCtr());
            },
            [&](int p, int x, int y) {
              const bool covered = x >= dx && x < dx + w && y >= dy && y < dy + h;
              return covered ? At(source, p, x - dx, y - dy)
                             : std::array{10.0f, 112.0f, 520.0f}[static_cast<std::size_t>(p)];
            });
      }
    }
  }
}

TEST(SoftBinning, SumsBlocksAndScalesLevels) {
  for (const auto& [width, height] : kShapes) {
    const int w = width, h = height;
    const CVynImage source = Noise(w, h, 3, 10);
    for (const auto& [x, y] : {std::pair{1, 1}, {2, 2}, {3, 1}, {4, 2}, {1, 3}, {7, 5}, {99, 99}}) {
      for (const int roundUp : {0, 1}) {
        SCOPED_TRACE(testing::Message() << w << " x " << h << " by " << x << " x " << y << " up " << roundUp);
        const int bx = x, by = y, nw = (w + (roundUp ? bx - 1 : 0)) / bx, nh = (h + (roundUp ? by - 1 : 0)) / by;
        if (nw == 0 || nh == 0) {
          CVynImage copy(source);
          CImgSoftBinning image = Noise<CImgSoftBinning>(w, h, 3, 10);
          EXPECT_EQ(0, image.Do(bx, by, roundUp, 1, &copy, 0));
          EXPECT_TRUE(SamePixels(source, image));
          continue;
        }
        BothWays<CImgSoftBinning>(
            source, nw, nh,
            [&](CImgSoftBinning& image, CVynImage* s) {
              image.SetLevel(2, -3.0, 7.0);
              EXPECT_EQ(1, image.Do(bx, by, roundUp, 1, s, 0));
              EXPECT_EQ(-3.0 * bx * by, image.GetLevelMin(2));
              EXPECT_EQ(7.0 * bx * by, image.GetLevelMax(2));
            },
            [&](int p, int i, int j) {
              float sum = 0.0f;
              for (int r = j * by; r < std::min((j + 1) * by, h); ++r)
                for (int c = i * bx; c < std::min((i + 1) * bx, w); ++c) sum += At(source, p, c, r);
              return sum;
            });
      }
    }
  }
}

// `units` of the announced `total` are worked on an image of 10 x 8 pixels.
template <class Image>
void Reports(const wchar_t* title, int units, int total, void (*run)(Image&, CVynImage*)) {
  CVynImage source = Noise(10, 8, 3, 11);
  RecordingWindow window;
  Image image = Shaped<Image>(10, 8, 3);
  image.SetProgressHandle(&window);
  run(image, &source);
  ASSERT_FALSE(window.events.empty());
  EXPECT_EQ(title, window.events.front().text);
  EXPECT_EQ(qmr::kProgressEnd, window.events.back().code);
  const std::vector<int> percents = window.Percents();
  EXPECT_NEAR(100.0 * units / total, percents.empty() ? 0 : percents.back(), 100.0 * 3 / total + 1)
      << typeid(Image).name();
}

TEST(GeometricOperations, ReportWhatTheyAnnounce) {
  const Threads one(1);
  using Resolution = CImgResolution;
  Reports<CImgCrop>(L"切り抜き処理中...", 15, 30, [](auto& i, auto* s) { i.Do(CRect(1, 2, 9, 7), s, 1); });
  Reports<CImgResize>(L"サイズ変更処理中...", 51, 51, [](auto& i, auto* s) { i.Do(5, 9, 4, nullptr, s, 1); });
  Reports<Resolution>(L"解像度変更処理中...", 15, 15, [](auto& i, auto* s) { i.Do(s, 4, 5, 1); });
  Reports<Resolution>(L"解像度変更処理中...", 5, 5, [](auto& i, auto* s) { i.Bicubic(s, 4, 5, 1); });
  Reports<Resolution>(L"解像度変更処理中...", 15, 15, [](auto& i, auto* s) { i.DoChange(s, 4, 5, 3, 1); });
  Reports<CImgRotate>(L"回転処理中...", 24, 24, [](auto& i, auto* s) { i.Do(5.0, 0, s, 0, 1, 1); });
  Reports<CImgRotate>(L"回転処理中...", 30, 30, [](auto& i, auto* s) { i.Do90(1, s, 1); });
  Reports<CImgFlip>(L"上下反転処理中...", 24, 24, [](auto& i, auto* s) { i.Do(0, s, 1); });
  Reports<CImgFlip>(L"左右反転処理中...", 0, 24, [](auto& i, auto* s) { i.Do(2, s, 1); });
  Reports<CImgScroll>(L"スクロール処理中...", 24, 24, [](auto& i, auto* s) { i.Do(2, 0, s, 1); });
  Reports<CImgSoftBinning>(L"ソフトビニング処理中...", 9, 9, [](auto& i, auto* s) { i.Do(3, 3, 1, 0, s, 1); });
}

TEST(GeometricOperations, RefuseWithoutAChange) {
  CVynImage source = Noise(10, 8, 3, 12);
  RecordingWindow window;
  const auto refuses = [&]<class Image>(const std::function<int(Image&)>& call) {
    Image image = Noise<Image>(10, 8, 3, 13);
    const CVynImage before(image);
    image.SetProgressHandle(&window);
    EXPECT_EQ(0, call(image));
    EXPECT_TRUE(SamePixels(before, image));
    EXPECT_TRUE(window.events.empty());
  };
  constexpr int kHuge = 1 << 30;
  for (const auto& [width, height] : {std::pair{0, 5}, {5, -1}, {kHuge, kHuge}}) {
    const int w = width, h = height;
    refuses.operator()<CImgResize>([&](CImgResize& i) { return i.Do(w, h, 4, nullptr, &source, 1); });
    refuses.operator()<CImgResolution>([&](CImgResolution& i) { return i.Do(&source, w, h, 1); });
    refuses.operator()<CImgResolution>([&](CImgResolution& i) { return i.Bicubic(&source, w, h, 1); });
    refuses.operator()<CImgResolution>([&](CImgResolution& i) { return i.DoChange(&source, w, h, 3, 1); });
  }
  for (const CRect rect : {CRect(3, 3, 3, 9), CRect(5, 5, 2, 7), CRect(10, 0, 20, 8), CRect(-9, -9, 0, 0)})
    refuses.operator()<CImgCrop>([&](CImgCrop& i) { return i.Do(rect, &source, 1); });
  refuses.operator()<CImgCrop>([&](CImgCrop& i) { return i.Do(CRect(0, 0, 2, 2), nullptr, 1); });
  refuses.operator()<CImgSoftBinning>([&](CImgSoftBinning& i) { return i.Do(0, 1, 1, 1, &source, 1); });
  refuses.operator()<CImgRotate>([&](CImgRotate& i) {
    return i.Do(std::numeric_limits<double>::infinity(), 0, &source, 1, 0, 1) + i.Do(1.0, 0, nullptr, 1, 0, 1);
  });
}

TEST(GeometricOperations, GiveTheSameBitsForEveryNumberOfThreads) {
  CVynImage source = Noise(131, 77, 3, 14);
  EXPECT_TRUE(SameForAllThreads([&] {
    std::string bytes;
    for (int method = 0; method < 5; ++method) {
      CImgRotate turned = Shaped<CImgRotate>(131, 77, 3);
      turned.Do(11.0, 0, &source, 1, method, 0);
      CImgResolution scaled = Shaped<CImgResolution>(131, 77, 3);
      scaled.DoChange(&source, 200, 50, method, 0);
      bytes += Bytes(turned) + Bytes(scaled);
    }
    CImgRotate quarter = Shaped<CImgRotate>(131, 77, 3);
    quarter.Do90(0, &source, 0);
    CImgResolution cubic = Shaped<CImgResolution>(131, 77, 3);
    cubic.Bicubic(&source, 99, 180, 0);
    return bytes + Bytes(quarter) + Bytes(cubic);
  }));
}

}  // namespace
