// Planes of the Lab space, and the way back with stronger colours.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

#include "qmrimg/colour/color.h"
#include "qmrimg/colour/lab_color_enhance.h"
#include "qmrimg/image/vyn_image.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using qmr::test::At;
using qmr::test::Bytes;
using qmr::test::FillNoise;
using qmr::test::Shape;

struct Size {
  int width, height;
};
constexpr Size kSizes[] = {{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {270, 50}};

CVynImage Frame(Size size, int planes, double low, double high) {
  CVynImage image;
  Shape(image, size.width, size.height, planes);
  FillNoise(image, 7, low, high);
  for (int p = 0; p < planes; ++p) image.SetLevel(p, 10.1 + p, 900.7 + 30.0 * p);
  return image;
}

// One pixel through CColor; the row kernels must give its very bits.
CColor LabAt(const CVynImage& image, int x, int y, float high) {
  double channel[3];
  for (int p = 0; p < 3; ++p) {
    float v = 0.0f;
    if (image.GetPlanes() >= 3) {
      v = (At(image, p, x, y) - static_cast<float>(image.GetLevelMin(p))) *
          static_cast<float>(255.0 / image.GetLevelRange(p));
    } else {
      v = image.To256(At(image, 0, x, y), 0);
      high = 5000.0f;
    }
    channel[p] = std::clamp(v, 0.0f, high) / 255.0;
  }
  CColor colour;
  colour.RgbToLab(channel[0], channel[1], channel[2]);
  return colour;
}

TEST(LabPlanes, ArePixelsThroughCColor) {
  for (const int planes : {1, 2, 3, 4}) {
    for (const Size size : kSizes) {
      // Far beyond the levels on both sides, so that both limits take effect.
      const double high = size.width == 13 ? 60000.0 : 3000.0;
      CVynImage image = Frame(size, planes, -100.0, high);
      image.SetStdCtr(1.5, 2.5);
      qmr::test::RecordingWindow window;
      image.SetProgressHandle(&window);
      const std::unique_ptr<CVynImage> l(image.MakeLPlane()), ab(image.MakeAbPlane(0)), ab255(image.MakeAbPlane(1)),
          lab(image.MakeLabPlane());
      ASSERT_TRUE(l && ab && ab255 && lab);
      ASSERT_EQ(l->GetPlanes(), 1);
      ASSERT_EQ(ab->GetPlanes(), 2);
      ASSERT_EQ(lab->GetPlanes(), 3);
      EXPECT_EQ(window.events.front().text, L"Lチャンネルを作成中...");
      EXPECT_EQ(window.events.back().code, qmr::kProgressEnd);
      EXPECT_EQ(lab->GetStdCtr().y, 2.5);
      EXPECT_EQ(l->GetLevelMax(0), image.GetLevelMax(0));
      EXPECT_EQ(lab->GetLevelMax(0), 255.0) << "levels of a new image";
      for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
          const CColor wide = LabAt(image, x, y, 5000.0f), narrow = LabAt(image, x, y, 255.0f);
          const double expected[] = {wide.GetL(), wide.GetL(), wide.Geta(),   wide.Getb(),
                                     wide.Geta(), wide.Getb(), narrow.Geta(), narrow.Getb()};
          const float actual[] = {At(*l, 0, x, y),  At(*lab, 0, x, y), At(*lab, 1, x, y),   At(*lab, 2, x, y),
                                  At(*ab, 0, x, y), At(*ab, 1, x, y),  At(*ab255, 0, x, y), At(*ab255, 1, x, y)};
          for (int i = 0; i < 8; ++i)
            ASSERT_EQ(actual[i], static_cast<float>(expected[i])) << i << ": " << planes << " " << x << " " << y;
        }
      }
    }
  }
}

TEST(LabColorEnhance, ScalesTheAxesThroughCColor) {
  for (const Size size : kSizes) {
    CVynImage lab;
    Shape(lab, size.width, size.height, 3);
    qmr::test::Random random(3);
    // From black through the kinks to beyond white.
    qmr::test::Fill(lab, [&](int p, int, int) {
      return static_cast<float>(p == 0 ? random.Uniform(-2.0, 120.0) : random.Uniform(-90.0, 90.0));
    });
    CImgLabColorEnhance result;
    static_cast<CVynImage&>(result) = Frame(size, 4, 0.0, 1.0);
    const CVynImage before(result);
    CRect rect(0, 0, std::max(size.width - 1, 1), size.height + 5);
    result.Do(&lab, 1.5, 0.5, 1.25, 2.0, &rect, 0);
    for (int y = 0; y < size.height; ++y) {
      for (int x = 0; x < size.width; ++x) {
        ASSERT_EQ(At(result, 3, x, y), At(before, 3, x, y));
        const double a = At(lab, 1, x, y), b = At(lab, 2, x, y);
        CColor colour;
        colour.LabToRgb(At(lab, 0, x, y), a * (a >= 0 ? 1.5 : 0.5), b * (b >= 0 ? 1.25 : 2.0));
        const double rgb[] = {colour.GetR(), colour.GetG(), colour.GetB()};
        for (int p = 0; p < 3; ++p) {
          const float expected = static_cast<float>(rgb[p] * result.GetLevelRange(p) + result.GetLevelMin(p));
          ASSERT_EQ(At(result, p, x, y), x < rect.right ? expected : At(before, p, x, y)) << p << " " << x << " " << y;
        }
      }
    }
  }
}

TEST(LabColorEnhance, UndoesLabPlanesInPlaceAndOnAllThreads) {
  // Bright enough for the cube root in all channels: below it the inverse is only approximate.
  CVynImage image = Frame({70, 50}, 3, 300.0, 900.0);
  const std::unique_ptr<CVynImage> lab(image.MakeLabPlane());
  for (int p = 0; p < 3; ++p) lab->SetLevel(p, image.GetLevelMin(p), image.GetLevelMax(p));
  EXPECT_TRUE(qmr::test::SameForAllThreads([&] {
    CImgLabColorEnhance result;
    static_cast<CVynImage&>(result) = *lab;
    result.Do(&result, 1.0, 1.0, nullptr, 0);
    EXPECT_TRUE(qmr::test::NearPixels(image, result, 0.2));
    const std::unique_ptr<CVynImage> again(image.MakeLabPlane());
    return Bytes(result) + Bytes(*again);
  }));
}

TEST(LabColorEnhance, NothingWithoutThreePlanesAndNotANumberStays) {
  CVynImage lab = Frame({4, 3}, 3, 0.0, 50.0);
  *static_cast<float*>(lab.GetImageAdr(1, 1, 1, 0, 0, nullptr)) = std::numeric_limits<float>::quiet_NaN();
  CImgLabColorEnhance two;
  Shape(two, 4, 3, 2);
  two.Do(&lab, 2.0, 2.0, nullptr, 1);
  EXPECT_EQ(At(two, 0, 0, 0), 0.0f);
  CImgLabColorEnhance result;
  Shape(result, 9, 3, 3);
  result.Do(nullptr, 1.0, 1.0, nullptr, 0);
  result.Do(&two, 1.0, 1.0, nullptr, 0);
  EXPECT_EQ(At(result, 0, 0, 0), 0.0f);
  result.Do(&lab, 1.0, 1.0, nullptr, 0);
  EXPECT_NE(At(result, 0, 3, 0), 0.0f);
  EXPECT_EQ(At(result, 0, 4, 0), 0.0f) << "beyond the source";
  EXPECT_NE(At(result, 0, 1, 1), At(result, 0, 1, 1));
}

}  // namespace
