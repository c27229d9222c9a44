// The map of a sphere.
#include "qmrimg/levels/expansion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/support/images.h"

namespace {

using namespace qmr::test;

// A sphere larger than the picture, shapes with and without bars, rectangles that leave the image, the graticule, and
// in place where the image has the source's shape.
TEST(Expansion, FollowsItsFormulasForEveryShapeAndRectangle) {
  CVynImage source;
  Shape(source, 31, 23, 3);
  FillNoise(source, 2, 50.0, 200.0);
  for (int p = 0; p < 3; ++p) source.CImage::SetLevel(p, 3.1 + p, 250.7 + p);
  constexpr double kDegree = 3.141592653589793 / 180;
  const double cx = std::cos(-40 * kDegree), sx = std::sin(-40 * kDegree);
  const double cy = std::cos(33 * kDegree), sy = std::sin(33 * kDegree);
  const double m[9] = {cy, 0.0, -sy, sx * sy, cx, sx * cy, cx * sy, -sx, cx * cy};
  for (const auto& [W, H] : {std::pair{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {70, 20}, {70, 50}, {31, 23}}) {
    for (CRect rect : {CRect(0, 0, W, H), CRect(-4, 2, 51, 18), CRect(12, 6, 41, 90), CRect(5, 5, 5, 9)}) {
      for (const int grid : {0, 1}) {
        CImgExpansion image;
        Shape(image, W, H, 3);
        FillNoise(image, 3);
        const bool inPlace = W == 31;
        if (inPlace) static_cast<CVynImage&>(image) = source;
        CVynImage expected(image);
        int left, top, right, bottom;
        image.NormalizeRect(&rect, left, top, right, bottom);
        const bool wide = W / 2 > H;
        const int mapTop = wide ? 0 : (H - W / 2) / 2, mapBottom = wide ? H : mapTop + W / 2;
        const int mapLeft = wide ? (W - 2 * H) / 2 : 0, mapRight = wide ? mapLeft + 2 * H : W;
        Fill(expected, [&, W = W, H = H](int p, int x, int y) {
          float value = At(image, p, x, y);
          if (left >= right || top >= bottom) return value;
          const bool inside = x >= left && x < right && y >= top && y < bottom;
          double v[3], w[3];
          LongitudeLatitudeToVector((x - W * 0.5) / (mapRight - mapLeft) * 360,
                                    (y - H * 0.5) / (mapBottom - mapTop) * -180, v);
          v[2] *= 0.97;
          MultiplyMatrixVector(m, v, w);
          const double fromX = 18.0 * w[1] + 14.2, fromY = 11.9 - 18.0 * w[2];
          if (inside && (x < mapLeft || x >= mapRight || y < mapTop || y >= mapBottom))
            value = 3.1f;
          else if (inside && (w[0] < 0 || fromX < 0 || fromX > 30 || fromY < 0 || fromY > 22))
            value = 0.0f;
          else if (inside)
            value = source.GetPixelGrayRaw(fromX, fromY, p);
          for (int i = 0; grid && i <= 18; i += 3)
            if (y == static_cast<int>((mapBottom - mapTop - 1) / 18.0 * i + mapTop) && y >= top && y <= bottom &&
                x >= left && x < right)
              value = static_cast<float>(source.GetLevelRange(0) + source.GetLevelMin(0));
          for (int i = 0; grid && i <= 36; i += 3)
            if (x == static_cast<int>((mapRight - mapLeft - 1) / 36.0 * i + mapLeft) && x >= left && x <= right &&
                y >= std::max(top, mapTop) && y <= bottom && y < mapBottom)
              value = static_cast<float>(source.GetLevelMax(p));
          return value;
        });
        image.Do(inPlace ? &image : &source, 14.2, 11.9, 18.0, 33.0, -40.0, 0.97, grid, &rect, 0);
        ASSERT_TRUE(SamePixels(expected, image))
            << W << " x " << H << " from " << rect.left << ", " << rect.top << ", grid " << grid;
      }
    }
  }
}

TEST(Expansion, TheUprightPoleIsSeenFromEveryLongitude) {
  CVynImage source;
  Shape(source, 5, 5, 1);
  FillNoise(source, 5);
  CImgExpansion image;
  Shape(image, 8, 4, 1);
  image.Do(&source, 2.0, 2.0, 2.0, 0.0, 0.0, 1.0, 0, nullptr, 0);
  for (int x = 0; x < 8; ++x) EXPECT_EQ(At(image, 0, x, 0), At(source, 0, 2, 0));
}

TEST(Expansion, TakesWhateverItIsGiven) {
  CVynImage mono;
  Shape(mono, 1, 1, 1);
  mono.SetPixelGrayRaw(0, 0, 5.0f, 0);
  CImgExpansion image;
  Shape(image, 9, 5, 2);
  FillNoise(image, 1);
  const float before = At(image, 1, 4, 1);
  for (const double v : {0.0, std::nan(""), 1e308, -1e308, HUGE_VAL}) {
    image.Do(&mono, v, v, v, v, v, v, 1, nullptr, 0);
    image.Do(&mono, v, 0.0, 0.0, 0, 0, 1, 0, nullptr, 0);
    EXPECT_EQ(At(image, 0, 4, 1), v == 0.0 ? 5.0f : 0.0f);
  }
  EXPECT_EQ(At(image, 1, 4, 1), before) << "a plane that the source lacks stays";
}

}  // namespace
