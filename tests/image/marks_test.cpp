#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string>
#include <vector>

#include "qmrimg/image/image_selection.h"
#include "qmrimg/image/mask_blend.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using qmr::test::At;
using qmr::test::Fill;
using qmr::test::FillNoise;
using qmr::test::SamePixels;
using qmr::test::Shape;
using testing::Each;
using testing::ElementsAre;

TEST(Marks, EachHasARuleOfItsOwn) {
  CVynImage image;
  const auto valid = [](const CVynImage& i) {
    return std::array<int, 3>{i.IsValidStarPt(), i.IsValidSkyPt(), i.IsValidPickupPt()};
  };
  EXPECT_THAT(valid(image), ElementsAre(0, 0, 0));
  image.SetStarPt(CPoint(-1, 5));
  image.SetSkyPt(CPoint(5, -1), 3);
  image.SetPickupPt(CPoint(-1, 5));
  EXPECT_THAT(valid(image), ElementsAre(1, 1, 0));
  image.SetSkyPt(CPoint(5, 5), 0);
  image.ClearStarPt();
  image.SetPickupPt(CPoint(0, 0));
  EXPECT_THAT(valid(image), ElementsAre(0, 0, 1));
  CPoint sky;
  int size = 9;
  image.SetSkyPt(CPoint(5, 5), 4);
  image.ClearSkyPt();
  image.GetSkyPt(sky, size);
  EXPECT_EQ(sky, CPoint(-1, -1));
  EXPECT_EQ(size, 0);
  EXPECT_TRUE(CVynImage(image).IsValidStarPt());  // a copy's marks are 0, 0: set
}

TEST(Marks, BackgroundRectangles) {
  CVynImage image;
  const CRect rect(4, 6, 2, 3);  // reversed, but not empty
  for (const int i : {-1, 32, std::numeric_limits<int>::max()}) {
    image.SetBkgRect(i, rect);
    image.ClearBkgRect(i);
    EXPECT_FALSE(image.IsValidBkgRect(i));
    EXPECT_EQ(image.GetBkgRect(i), CRect());
  }
  for (const int i : {0, 2, 31}) {
    image.SetBkgRect(i, rect);
    EXPECT_TRUE(image.IsValidBkgRect(i));
    EXPECT_EQ(image.GetBkgRect(i), rect);
  }
  image.SetBkgRect(1, CRect(5, 0, 5, 90));
  EXPECT_EQ(image.GetBkgRectNum(), 1);
  image.SetBkgRect(1, rect);
  image.ClearBkgRect(0);
  EXPECT_EQ(image.GetBkgRectNum(), 1);
}

// Rows -1..5, columns 0..8.
std::vector<std::string> Selected(const CImageSelection& selection) {
  std::vector<std::string> rows;
  for (int row = -1; row <= 5; ++row) {
    std::string& text = rows.emplace_back();
    for (int x = 0; x < 9; ++x) {
      text += selection.GetBool(row, x) ? '#' : '.';
      EXPECT_EQ(selection.GetAlpha(row, x), static_cast<float>(selection.GetBool(row, x)));
    }
  }
  return rows;
}

TEST(Selection, SpansOfRows) {
  const std::string all(9, '#'), none(9, '.'), unset = "#........";
  CImageSelection selection;
  EXPECT_FALSE(selection.SetAllLine(0, 1) || selection.SetInOut(0, 1, 2) || selection.SetHeight(-1));
  EXPECT_THAT(Selected(selection), Each(none));
  ASSERT_EQ(selection.SetHeight(4), 1);
  EXPECT_TRUE(selection.IsNoSelection());
  // One row beyond the height is there, unset (the span of column 0); the next one is not.
  EXPECT_THAT(Selected(selection), ElementsAre(none, all, all, all, all, unset, none));
  for (const int row : {-1, 5}) EXPECT_FALSE(selection.SetAllLine(row, 1) || selection.SetInOut(row, 0, 9));
  EXPECT_TRUE(selection.SetInOut(1, 3, 5) && selection.SetAllLine(2, 0) && selection.SetAllLine(4, 1));
  selection.SetReverse(1);  // not heeded
  EXPECT_FALSE(selection.IsNoSelection());
  EXPECT_THAT(Selected(selection), ElementsAre(none, all, "...###...", none, all, all, none));

  CImageSelection copy(selection);
  selection.SetNoSelection();
  EXPECT_TRUE(selection.IsNoSelection());
  EXPECT_THAT(Selected(selection), Each(none));
  EXPECT_FALSE(copy.IsNoSelection());
  // The spare row is not carried over.
  EXPECT_THAT(Selected(copy), ElementsAre(none, all, "...###...", none, all, unset, none));
  copy = selection;
  EXPECT_EQ(copy.SetInOut(0, 1, 1), 0);
}

TEST(MaskBlend, PixelByPixel) {
  const qmr::test::Threads one(1);
  for (const int reverse : {0, 1}) {
    CVynImage source, mask, image;
    Shape(image, 21, 7, 3);
    Shape(source, 18, 9, 2);  // narrower, and a plane short
    Shape(mask, 30, 6, 1);
    FillNoise(image, 1);
    FillNoise(source, 2);
    FillNoise(mask, 3, 90.0, 210.0);
    mask.SetLevel(0, 100.0, 200.0);
    CVynImage expected(image);
    Fill(expected, [&](int p, int x, int y) {
      const float d = At(image, p, x, y);
      if (x < 3 || x >= 18 || y < 1 || y >= 6) return d;
      const float a = std::clamp((At(mask, 0, x, y) - 100.0f) * (1.0f / 100.0f), 0.0f, 1.0f);
      const float s = At(source, std::min(p, 1), x, y);
      return reverse ? (s - d) * a + d : (d - s) * a + s;
    });
    qmr::test::RecordingWindow window;
    image.SetProgressHandle(&window);
    image.ShowProgressInit(1, L"", 3 * 6);
    qmr::BlendUnderMask(image, &source, &mask, 3, 99, 1, 99, reverse);
    EXPECT_TRUE(SamePixels(expected, image));
    EXPECT_EQ(window.Percents().size(), 3u * 6);
    mask.SetLevel(0, 100.0, 100.0 + 1e-7);  // no range in float
    qmr::BlendUnderMask(image, &source, &mask, 0, 21, 0, 7, reverse);
    qmr::BlendUnderMask(image, nullptr, &mask, 0, 21, 0, 7, reverse);
    EXPECT_TRUE(SamePixels(expected, image));
  }
}

}  // namespace
