// Composites of two images.
#include "qmrimg/stacking/composit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "qmrimg/geometry/interp.h"
#include "qmrimg/stacking/fourier.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"
#include "tests/support/stars.h"

namespace qmr::test {
namespace {

constexpr double kRadian = 3.141592653589793 / 180.0;
constexpr int kMinimum = 9;

struct Place {
  double dx, dy, angle;
};

// Everything that Do and Do65 take.
struct Call {
  Place at = {0.0, 0.0, 0.0};
  int mode = 0;
  int to256 = 0;
  int method = 0;
  int clip = 0;
  int neighbor = 0;
  double ratio = 0.3;
  double threshold = 0.6;
  bool old = false;
};

void Compose(CImgComposit& object, CVynImage& a, CVynImage& b, const Call& c, CRect* rect = nullptr) {
  if (c.old) {
    object.Do65(&a, &b, c.at.dx, c.at.dy, c.at.angle, c.mode, c.ratio, c.to256, c.clip, c.threshold, c.neighbor, rect,
                0, -1);
  } else {
    object.Do(&a, &b, c.at.dx, c.at.dy, c.at.angle, 1, c.mode, c.method, c.ratio, c.to256, c.clip, c.threshold,
              c.neighbor, rect, 0, -1);
  }
}

bool IsWholeShift(const Call& c) {
  return c.at.dx == std::trunc(c.at.dx) && c.at.dy == std::trunc(c.at.dy);
}

// ---- The definitions, pixel by pixel -------------------------------------------------------------------------------

float Combined(const Call& c, bool to256, float a, float b) {
  const float low = std::max(b, 0.0f), tiny = std::max(b, 0.001f);
  switch (c.mode) {
    case 0:
      return (b + a) * 0.5f;
    case 1:
      return b + a;
    case 2:
      return static_cast<float>((1 - c.ratio) * a + c.ratio * b);
    case 3:
      return c.clip && a < b ? 0.0f : a - b;
    case 4:
      return to256 ? a * (std::min(low, 255.0f) / 255.0f) : a * b;
    case 5:
      return to256 ? a / (std::min(tiny, 255.0f) / 255.0f) : b == 0 ? a : a / b;
    case 6:
      return std::fabs(a - b);
    case 7:
      return a > b ? a : b;
    case 8:
      return a < b ? a : b;
    default:
      return a;
  }
}

// Sample of plane p of B for column x and row y of an object whose rectangle spans `left` to `right`; false where B
// does not reach. `Do` reads as CInterp's rows do.
bool SampleNew(CVynImage& b, const Call& c, int p, int left, int right, int x, int y, float* v) {
  CInterp interp(c.method);
  const int shiftType = c.at.angle != 0.0 ? 2 : IsWholeShift(c) ? 0 : 1;
  std::vector<float> line(static_cast<std::size_t>(right - left));
  interp.SetBParam(shiftType, &b, left - c.at.dx, right - c.at.dx, 0, std::nanf(""), p, std::sin(c.at.angle * kRadian),
                   std::cos(c.at.angle * kRadian), 1.0, 1);
  interp.SetRowWidth(right - left);
  interp.GetBLine(y - c.at.dy, line.data());
  *v = line[static_cast<std::size_t>(x - left)];
  return !std::isnan(*v);
}

bool SampleOld(CVynImage& b, const Call& c, int p, int left, int right, int x, int y, float* v) {
  const int w = b.GetWidth(), h = b.GetHeight();
  const float start = static_cast<float>(left - c.at.dx), row = static_cast<float>(y - c.at.dy);
  const int column = static_cast<int>(std::floor(start)) + x - left;
  const auto blend = [&](int x0, int x1, int y0, int y1, float fx, float fy) {
    if (fx == 0 && fy == 0) return At(b, p, x0, y0);
    return (1 - fy) * (1 - fx) * At(b, p, x0, y0) + (fy - fx * fy) * At(b, p, x0, y1) +
           (fx - fx * fy) * At(b, p, x1, y0) + fx * fy * At(b, p, x1, y1);
  };
  if (c.at.angle == 0.0) {
    const bool whole = IsWholeShift(c);
    if (column < 0 || column >= w || row < 0 || row > static_cast<float>(h - 1)) return false;
    const int end = std::min(static_cast<int>(std::floor(static_cast<float>(right - c.at.dx))), w);
    const float fx = whole ? 0 : start - std::floor(start), fy = whole ? 0 : row - std::floor(row);
    const int iy = static_cast<int>(row);
    *v = blend(column, column == end - 1 ? std::max(column - 1, 0) : column + 1, iy, fy == 0 ? iy : iy + 1, fx, fy);
    return true;
  }
  const float s = static_cast<float>(std::sin(c.at.angle * kRadian));
  const float k = static_cast<float>(std::cos(c.at.angle * kRadian));
  const float mx = static_cast<float>(b.GetStdCtr().x), my = static_cast<float>(b.GetStdCtr().y);
  float sx = k * (start - mx) - s * (my - row) + mx, sy = my - (s * (start - mx) + k * (my - row));
  for (int i = left; i < x; ++i, sx += k, sy -= s) continue;
  if (!(sx >= 0 && sx <= static_cast<float>(w - 1) && sy >= 0 && sy <= static_cast<float>(h - 1))) return false;
  const int ix = static_cast<int>(sx), iy = static_cast<int>(sy);
  *v = blend(ix, std::min(ix + 1, w - 1), iy, std::min(iy + 1, h - 1), sx - static_cast<float>(ix),
             sy - static_cast<float>(iy));
  return true;
}

float ComposedPixel(CVynImage& a, CVynImage& b, const Call& c, const CRect& rect, int p, int x, int y) {
  const bool to256 = c.to256 || c.mode > kMinimum;
  const bool whole = c.at.angle == 0.0 && IsWholeShift(c);
  const bool colourB = b.GetPlanes() >= 3;
  const auto line = [&](int q, double* v) {
    float raw = 0;
    if (!(c.old ? SampleOld : SampleNew)(b, c, q, rect.left, rect.right, x, y, &raw)) return false;
    *v = raw;
    if (!to256) return true;
    const float gain = static_cast<float>(255.0 / b.GetLevelRange(q));
    if (c.old || whole)
      *v = (raw - static_cast<float>(b.GetLevelMin(q))) * gain;
    else
      *v = (raw - b.GetLevelMin(q)) / b.GetLevelRange(q) * 255.0;
    return true;
  };
  double rgb[3] = {};
  double v = c.mode == 4 || c.mode == 5 ? 255.0 : 0.0;
  if (a.GetPlanes() >= 3 || !colourB)
    line(colourB ? p : 0, &v);
  else if (line(0, &rgb[0]) && line(1, &rgb[1]) && line(2, &rgb[2]))
    v = 0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2];
  const float under = static_cast<float>(v);
  const float own = At(a, p, x, y);
  if (!to256) return Combined(c, false, own, under);
  const float gain = static_cast<float>(255.0 / a.GetLevelRange(p)), min = static_cast<float>(a.GetLevelMin(p));
  return Combined(c, true, (own - min) * gain, under) * (1.0f / gain) + min;
}

// Mode 9 in raster order on `object`, which holds what it held before the call.
void MinimumPlane(CVynImage& object, const CVynImage& a, CVynImage& b, const Call& c, const CRect& rect, int p) {
  const double s = std::sin(c.at.angle * kRadian), k = std::sqrt(1 - s * s);
  const int q = b.GetPlanes() > p ? p : 0;
  const int r = std::min(c.neighbor, 2), w = a.GetWidth(), h = a.GetHeight();
  CInterp interp(c.method);
  interp.SetBParam(&b, c.at.dx, c.at.dy, s, k, 1.0, 1, q, 0.0f);
  const auto scaled = [&](const CVynImage& image, float v, int level) { return c.to256 ? image.To256(v, level) : v; };
  for (int y = rect.top; y < rect.bottom; ++y) {
    for (int x = rect.left; x < rect.right; ++x) {
      int out = 0;
      double sx = 0, sy = 0;
      float bv = 0;
      if (c.old)
        bv = c.to256 ? b.GetPixelGray256f(x, y, c.at.dx, c.at.dy, s, k, 1.0, q, 0.0, 0, &out, &sx, &sy)
                     : b.GetPixelGrayRaw(x, y, c.at.dx, c.at.dy, s, k, 1.0, q, 0.0, 0, &out, &sx, &sy);
      else
        bv = c.to256 ? interp.GetBPixelGray256f(x, y, &out, &sx, &sy) : interp.GetBPixelGrayRaw(x, y, &out, &sx, &sy);
      const float own = scaled(a, At(a, p, x, y), 0);
      const double bk = bv * c.ratio;
      double v = own;
      if (!out && sx >= 1 && sx < b.GetWidth() - 1 && sy >= 1 && sy < b.GetHeight() - 1) {
        float maxA = own, maxB = bv;
        for (int j = std::max(y - r, 0); r && j <= std::min(y + r, h - 1); ++j) {
          for (int i = std::max(x - r, 0); i <= std::min(x + r, w - 1); ++i) {
            const int bx = std::clamp(static_cast<int>(i + sx - x + 0.5), 0, b.GetWidth() - 1);
            const int by = std::clamp(static_cast<int>(j + sy - y + 0.5), 0, b.GetHeight() - 1);
            maxA = std::max(maxA, scaled(a, At(a, p, i, j), p));
            maxB = std::max(maxB, scaled(b, At(b, q, bx, by), q));
          }
        }
        const auto saturated = [&](float value, const CVynImage& image) {
          return c.to256 ? value > c.threshold * 255 : value >= c.threshold * image.GetMaxPixel(0);
        };
        const bool inA = saturated(maxA, a), inB = saturated(maxB, b);
        if (r == 0 || (!inA && !inB) || (inA && inB && saturated(own, a) && saturated(bv, b))) {
          v = std::min<double>(own, bk);
        } else if (!inA) {
          v = std::min<double>(own, maxB * c.ratio);
        } else if (!inB) {
          v = std::min<double>(maxA, bk);
        } else {
          double sumA = 0, sumB = 0;
          for (const auto& [i, j] : {std::pair(x - 1, y - 1), {x, y - 1}, {x - 1, y}}) {
            const float done = scaled(object, At(object, p, std::max(i, 0), std::max(j, 0)), 0);
            sumA += std::fabs(double(own) - done);
            sumB += std::fabs(bk - done);
          }
          v = sumB > sumA ? own : bk;
        }
      }
      object.SetPixelGrayRaw(x, y, static_cast<float>(c.to256 ? object.ToRaw(v, 0) : v), p);
    }
  }
}

// ---- Cases ---------------------------------------------------------------------------------------------------------

struct Shapes {
  int width, height, planes, widthB, heightB, planesB;
};

const std::vector<Shapes> kShapes = {{1, 1, 1, 1, 1, 1},    {1, 7, 3, 2, 7, 3},     {7, 1, 1, 7, 1, 3},
                                     {13, 9, 3, 11, 10, 1}, {24, 17, 1, 24, 17, 3}, {31, 20, 3, 29, 23, 3}};
const std::vector<Place> kPlaces = {
    {0, 0, 0},        {3, -2, 0},   {-4, 1, 0},  {0.3, 0.7, 0},    {-2.25, -1.5, 0}, {2.5, 0, 0},  {0, -0.5, 0},
    {1e-15, 0.25, 0}, {40.5, 0, 0}, {-40, 0, 0}, {0.4, -0.3, 5.0}, {-1, 2, -100.0},  {0, 0, 90.0}, {0, 0.5, 180.0}};

CVynImage Source(int width, int height, int planes, std::uint64_t seed) {
  CVynImage image = Noise(width, height, planes, seed, -20.0, 900.0);
  for (int p = 0; p < planes; ++p) image.SetLevel(p, 11.0 * p - 7.0, 700.0 + 50.0 * p + static_cast<double>(seed));
  image.SetStdCtr(width * 0.4, height * 0.6);
  image.CalcMinMax();
  return image;
}

// Compares a call with the definitions, also in place.
void Check(const Shapes& shapes, const Call& c, CRect* rect) {
  CVynImage a = Source(shapes.width, shapes.height, shapes.planes, 3);
  CVynImage b = Source(shapes.widthB, shapes.heightB, shapes.planesB, 4);
  CImgComposit object, inPlace;
  object.CopyImage(Source(shapes.width, shapes.height, shapes.planes, 3));
  FillNoise(object, 5);
  inPlace.CopyImage(a);
  CRect cut(0, 0, shapes.width, shapes.height);
  if (rect)
    cut = CRect(std::max<int>(rect->left, 0), std::min<int>(rect->top, cut.bottom),
                std::min<int>(rect->right, cut.right), std::min<int>(rect->bottom, cut.bottom));
  CVynImage expected(object), expectedInPlace(inPlace);
  const auto define = [&](CVynImage& image) {
    for (int p = 0; p < shapes.planes; ++p) {
      if (c.mode == kMinimum) {
        MinimumPlane(image, a, b, c, cut, p);
        continue;
      }
      for (int y = cut.top; y < cut.bottom; ++y)
        for (int x = cut.left; x < cut.right; ++x) image.SetPixelGrayRaw(x, y, ComposedPixel(a, b, c, cut, p, x, y), p);
    }
  };
  define(expected);
  define(expectedInPlace);
  Compose(object, a, b, c, rect);
  Compose(inPlace, inPlace, b, c, rect);
  EXPECT_TRUE(SamePixels(expected, object));
  EXPECT_TRUE(SamePixels(expectedInPlace, inPlace)) << "in place";
  ASSERT_FALSE(testing::Test::HasFailure())
      << (c.old ? "Do65" : "Do") << " mode " << c.mode << " to256 " << c.to256 << " method " << c.method << " shift "
      << c.at.dx << ", " << c.at.dy << " angle " << c.at.angle << " neighbor " << c.neighbor << ", " << shapes.width
      << " x " << shapes.height << " x " << shapes.planes << " on " << shapes.planesB << " planes";
}

TEST(Composit, EveryModeFollowsItsDefinition) {
  const Threads one(1);
  constexpr int kNeighbors[] = {-1, 0, 1, 2, 5};
  CRect across(-3, 1, 9, 300);
  int turn = 0;
  for (const Shapes& shapes : kShapes)
    for (const Place& at : kPlaces)
      for (int mode = -1; mode <= 10; ++mode)
        for (const int to256 : {0, 1})
          for (const bool old : {false, true})
            for (int variant = 0; variant < (mode == kMinimum ? 10 : 1); ++variant) {
              ++turn;
              Call c = {at, mode, to256, turn % 5 == 0 ? 3 : 0, turn / 2 % 2, kNeighbors[variant % 5]};
              c.ratio = mode == kMinimum ? 1.1 : 0.3;
              c.threshold = variant < 5 ? 0.6 : 0.9;
              c.old = old;
              Check(shapes, c, turn % 3 == 0 ? &across : nullptr);
              if (HasFatalFailure()) return;
            }
}

// ---- Numbers by hand -----------------------------------------------------------------------------------------------

// One pixel of A, one of B, on levels where the 256-scale is a tenth of the raw values.
float Single(const Call& c, float a, float b) {
  CVynImage imageA = Shaped(1, 1, 1), imageB = Shaped(1, 1, 1);
  imageA.SetPixelGrayRaw(0, 0, a, 0);
  imageB.SetPixelGrayRaw(0, 0, b, 0);
  for (CVynImage* image : {&imageA, &imageB}) image->SetLevel(0, 0.0, 2550.0);
  CImgComposit object;
  object.CopyImage(imageA);
  Compose(object, imageA, imageB, c);
  return At(object, 0, 0, 0);
}

TEST(Composit, KnownNumbers) {
  const Place away = {50, 0, 0};
  const Place home = {0, 0, 0};
  const struct {
    Call call;
    float a, b, result;
  } known[] = {
      {{home, 0}, 100, 50, 75},
      {{home, 1}, 100, 50, 150},
      {{home, 2}, 100, 50, 85},
      {{home, 3}, 50, 100, -50},
      {{home, 3, 0, 0, 1}, 50, 100, 0},
      {{home, 3, 0, 0, 1}, 100, 50, 50},
      {{home, 4}, 100, 50, 5000},
      {{home, 4, 1}, 1000, 5100, 1000},
      {{home, 4, 1}, 1000, 510, 200},
      {{home, 4, 1}, 1000, -10, 0},
      {{home, 5}, 100, 50, 2},
      {{home, 5}, 100, 0, 100},
      {{home, 5, 1}, 1000, 1275, 2000},
      {{home, 5, 1}, 10, 0, 2550000},
      {{home, 6}, 50, 100, 50},
      {{home, 7}, 50, 100, 100},
      {{home, 8}, 50, 100, 50},
      {{home, 10}, 100, 50, 100},
      // Where B does not reach.
      {{away, 0}, 100, 50, 50},
      {{away, 1}, 100, 50, 100},
      {{away, 7}, -3, 50, 0},
      {{away, 8}, 100, 50, 0},
      {{away, 4, 1}, 1000, 50, 1000},
      {{away, 5, 1}, 1000, 50, 1000},
      {{away, 4}, 100, 50, 25500},
      {{away, 9}, 100, 50, 100},
      {{home, 9}, 100, 50, 100},
  };
  for (const auto& k : known) {
    for (const bool old : {false, true}) {
      Call c = k.call;
      c.old = old;
      const float tolerance = c.to256 || c.mode == 10 ? 1e-6f * std::fabs(k.result) : 0.0f;
      EXPECT_NEAR(Single(c, k.a, k.b), k.result, tolerance) << "mode " << c.mode << " a " << k.a << " b " << k.b;
    }
  }
}

// Flat frames of 10 and 8 that are saturated from 100 on: what becomes of the pixel in the middle.
TEST(Composit, MinimumByHand) {
  const struct {
    int columnA, columnB;  // where row 2 is saturated, -1 nowhere
    float result;
  } known[] = {
      {-1, -1, 8.0f}, {-1, 3, 10.0f},  // min(10, 150)
      {3, -1, 8.0f},                   // min(120, 8)
      {2, 2, 120.0f},                  // saturated in both
      {3, 3, 8.0f},                    // as near to the finished 8, 10 and 9 around as 10 is
  };
  for (const auto& k : known) {
    CVynImage a = Shaped(5, 5, 1), b = Shaped(5, 5, 1);
    Fill(a, [&](int, int x, int y) { return x == 4 && y == 4 ? 200.0f : y == 2 && x == k.columnA ? 120.0f : 10.0f; });
    Fill(b, [&](int, int x, int y) { return x == 4 && y == 4 ? 200.0f : y == 2 && x == k.columnB ? 150.0f : 8.0f; });
    b.SetPixelGrayRaw(1, 2, 9.0f, 0);
    a.CalcMinMax();
    b.CalcMinMax();
    for (const bool old : {false, true}) {
      CImgComposit object;
      object.CopyImage(a);
      Compose(object, a, b, {{0, 0, 0}, kMinimum, 0, 0, 0, 1, 1.0, 0.5, old});
      EXPECT_EQ(At(object, 0, 2, 2), k.result) << k.columnA << " " << k.columnB;
      // The edge of B is left to A.
      EXPECT_EQ(At(object, 0, 0, 2), 10.0f);
    }
  }
}

// The older path ends on the pixel before, the newer one on the border repeated.
TEST(Composit, PathsDifferInTheLastColumn) {
  CVynImage a = Shaped(4, 1, 1), b = Shaped(4, 1, 1);
  Fill(b, [](int, int x, int) { return static_cast<float>(x * x); });
  for (const bool old : {false, true}) {
    CImgComposit object;
    object.CopyImage(a);
    Compose(object, a, b, {{-0.25, 0, 0}, 1, 0, 0, 0, 0, 0, 0, old});
    EXPECT_EQ(Pixels(object, 0), (std::vector<float>{0.25f, 1.75f, 5.25f, old ? 7.75f : 9.0f}));
  }
}

// ---- Threads, places, reports --------------------------------------------------------------------------------------

TEST(Composit, SameForAllThreadsAndWhenTheObjectIsB) {
  CVynImage a = Source(40, 300, 3, 3), b = Source(40, 300, 3, 4);
  for (const int mode : {2, kMinimum}) {
    for (const Place& at : {Place{0.3, 0.7, 0}, Place{2, 3, 0}, Place{1, 0, 4}}) {
      for (const bool old : {false, true}) {
        const Call c = {at, mode, 1, 3, 0, 2, 1.1, 0.6, old};
        EXPECT_TRUE(SameForAllThreads([&] {
          CImgComposit object;
          object.CopyImage(a);
          Compose(object, a, b, c);
          return Bytes(object);
        }));
        CImgComposit expected, isB;
        expected.CopyImage(b);
        isB.CopyImage(b);
        Compose(expected, a, b, c);
        Compose(isB, a, isB, c);
        EXPECT_TRUE(SamePixels(expected, isB)) << "mode " << mode;
      }
    }
  }
}

TEST(Composit, Reports) {
  const Threads one(1);
  CVynImage a = Source(5, 50, 3, 3), b = Source(5, 50, 3, 4);
  RecordingWindow window;
  CImgComposit object;
  object.CopyImage(a);
  object.SetProgressHandle(&window);
  object.Do(nullptr, &b, 0, 0, 0, 1, 0, 0, 0.5, 1, 0, 0.5, 1, nullptr, 1, -1);
  object.Abr(&a, nullptr, 0, 0, 0, 9, 1, 0, 0, 1, 1, nullptr, 1, -1);
  EXPECT_TRUE(window.events.empty());
  // A unit a row, in mode 9 a row of a plane: 50 and 150, of which every third goes out.
  for (const auto& [mode, last] : {std::pair(0, 100), std::pair(kMinimum, 98)}) {
    window.events.clear();
    object.Do(&a, &b, 0.5, 0, 0, 1, mode, 0, 0.5, 1, 0, 0.5, 1, nullptr, 1, -1);
    ASSERT_EQ(window.Percents().size(), 50u);
    EXPECT_EQ(window.events.front().text, L"コンポジット処理中...");
    EXPECT_EQ(window.Percents().back(), last);
    EXPECT_EQ(window.events.back().code, kProgressEnd);
  }
}

// Placements that are no numbers and images of other kinds leave A as it is.
TEST(Composit, BadInputChangesNothing) {
  CVynImage a = Source(5, 50, 3, 3), b = Source(5, 50, 3, 4), integers = Shaped(8, 60, 3);
  integers.ChangeBits(16, 0, 0);
  const double nan = std::nan(""), huge = 1e300;
  CRect reversed(4, 40, 1, 3);
  for (const bool old : {false, true}) {
    for (const int mode : {1, kMinimum}) {
      CImgComposit object;
      object.CopyImage(a);
      const auto compose = [&](CVynImage& first, CVynImage& second, const Place& at, CRect* rect = nullptr) {
        Compose(object, first, second, {at, mode, 0, 0, 0, 1, 1.0, 0.5, old}, rect);
        EXPECT_TRUE(SamePixels(a, object)) << at.dx << " " << at.dy << " " << at.angle << " mode " << mode;
      };
      for (const Place& at : {Place{nan, 0, 0}, Place{0, huge, 0}, Place{-huge, nan, 1}, Place{0.5, 0.5, nan}})
        compose(a, b, at);
      compose(a, b, {1, 2, 0}, &reversed);
      compose(a, integers, {1, 2, 0});
      compose(integers, b, {1, 2, 0});
    }
  }
}

// ---- Truth ---------------------------------------------------------------------------------------------------------

// The measured shift is the one that a composite takes: what is left of two frames is noise.
TEST(Composit, MeasuredShiftLaysAFrameOnTheReference) {
  const std::vector<Star> stars = StarField(380, 9);
  CImgFourier reference;
  reference.CopyImage(SkyFrame(256, 256, stars, {}, 0.2, 1));
  CVynImage frame = SkyFrame(256, 256, stars, {3.0, -2.0, 0.0}, 0.2, 2);
  double dx = 0, dy = 0, peak = 0;
  int failWidth = 0, failHeight = 0;
  ASSERT_EQ(reference.CalcShiftByPOC(&frame, nullptr, 0.0, nullptr, dx, dy, peak, failWidth, failHeight, 0), 1);
  const auto largest = [&](double x, double y) {
    CImgComposit difference;
    difference.CopyImage(reference);
    difference.Do(&reference, &frame, x, y, 0.0, 0, 6, 1, 0);
    float most = 0;
    for (int j = 10; j < 246; ++j)
      for (int i = 10; i < 246; ++i) most = std::max(most, At(difference, 0, i, j));
    return most;
  };
  EXPECT_LT(largest(dx, dy), 0.02f * largest(0.0, 0.0));
}

}  // namespace
}  // namespace qmr::test
