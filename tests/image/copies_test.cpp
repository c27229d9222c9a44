// Construction, copies, exchange, reference points.
#include <gtest/gtest.h>

#include <cstring>

#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/bitmap_header.h"
#include "qmrimg/platform/exception.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

// Shows the marks that have no accessor yet.
class Opened : public CVynImage {
 public:
  using CVynImage::CVynImage;
  CPoint Star() const { return StarPt; }
  CPoint Pickup() const { return PickupPt; }
  CfPoint Gauge() const { return CrossGaugePt; }
};

TEST(Copies, CarryTheNamedFieldsOnly) {
  RecordingWindow window;
  Opened source;
  Shape(source, 5, 4, 3);
  FillNoise(source, 1);
  source.SetLevel(2, 3.0, 99.0);
  source.SetProgressHandle(&window);
  source.SetStdPt(1, CfPoint(7.5, 2.25));
  source.SetStdCtr(1.5, 2.5);
  source.CalcMinMax();
  source.SetRegKey(L"owner");
  EXPECT_EQ(source.Star(), CPoint(-100, -100));

  const Opened copy(source);
  EXPECT_TRUE(SamePixels(source, copy));
  EXPECT_EQ(copy.GetLevelMax(2), 99.0);
  EXPECT_EQ(copy.GetProgressHandle(), &window);
  EXPECT_EQ(copy.GetStdPt(1).x, 7.5);
  EXPECT_EQ(copy.GetStdCtr().IntX(), 1);
  EXPECT_EQ(copy.GetMaxPixel(1), source.GetMaxPixel(1));
  EXPECT_EQ(copy.Star(), CPoint(0, 0)) << "which counts as set, unlike in a new image";
  EXPECT_EQ(copy.Pickup(), CPoint(0, 0));
  EXPECT_EQ(copy.Gauge().IntX(), 0);
  EXPECT_TRUE(copy.GetRegKey().IsEmpty());

  CVynImage made;
  ASSERT_TRUE(made.Create(source));
  EXPECT_EQ(made.GetPlanes(), 3);
  EXPECT_EQ(made.GetLevelMin(2), 3.0);
  EXPECT_EQ(made.GetStdPt(1).y, 2.25);
  EXPECT_EQ(Bytes(made), std::string(5 * 4 * 3 * sizeof(float), '\0'));
}

TEST(Copies, OfAnImageToItselfLoseNothing) {
  CVynImage image = Noise(4, 3, 1, 2);
  const std::string before = Bytes(image);
  CVynImage& alias = image;
  image = alias;
  EXPECT_TRUE(image.CopyImage(alias));
  image.Swap(&image);
  EXPECT_EQ(Bytes(image), before);
  EXPECT_TRUE(image.Create(alias));
  EXPECT_EQ(Bytes(image), std::string(before.size(), '\0'));
}

TEST(Copies, LackOfMemoryIsTheMemoryExceptionOrAZero) {
  // More than any address space holds.
  EXPECT_TRUE(Raises<CMemoryException>([] { CVynImage(-32, 2000000000, 2000000000, 1, 1.0, 0.0, 1); }));
  CVynImage small = Shaped(2, 2, 1);
  EXPECT_EQ(small.ChangeSize(2000000000, 2000000000), 0);
  EXPECT_EQ(small.GetWidth(), 2) << "a failed change leaves the image as it was";
}

TEST(Swap, ExchangesPixelsAndPointsWithoutMovingThem) {
  CVynImage a = Noise(3, 2, 1, 3);
  CVynImage b = Shaped(2, 2, 3);
  a.SetStdPt(0, CfPoint(1, 2));
  a.SetRegKey(L"a");
  const void* pixels = a.GetImageAdr(0, 0, 0, 1, 0, nullptr);
  a.Swap(&b);
  EXPECT_EQ(b.GetImageAdr(0, 0, 0, 1, 0, nullptr), pixels);
  EXPECT_EQ(b.GetWidth(), 3);
  EXPECT_EQ(a.GetPlanes(), 3);
  EXPECT_TRUE(b.IsValidStdPt(0));
  EXPECT_FALSE(a.IsValidStdPt(0));
  EXPECT_TRUE(a.GetRegKey() == L"a") << "the key stays with its object";
}

TEST(BlockImage, HasTheRowsWithoutGaps) {
  const CVynImage image = Noise(7, 3, 2, 4);
  const auto block = image.GetBlockImage(1);
  EXPECT_EQ(std::vector<float>(block.get(), block.get() + 21), Pixels(image, 1));
  EXPECT_EQ(image.GetBlockImage(2), nullptr);
}

// A bitmap block of 24 bits whose pixel (x, y) is (10 x, 20 y, 30).
HDIB Bitmap24(int width, int height) {
  const std::size_t line = static_cast<std::size_t>(width * 3 + 3) / 4 * 4;
  const HDIB block = GlobalAlloc(GMEM_ZEROINIT, 40 + line * static_cast<std::size_t>(height));
  auto* data = static_cast<BYTE*>(GlobalLock(block));
  const BITMAPINFOHEADER header{40, width, height, 1, 24, 0, 0, 0, 0, 0, 0};
  std::memcpy(data, &header, 40);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      BYTE* pixel = data + 40 + static_cast<std::size_t>(height - 1 - y) * line + x * 3;
      pixel[0] = 30;
      pixel[1] = static_cast<BYTE>(20 * y);
      pixel[2] = static_cast<BYTE>(10 * x);
    }
  }
  GlobalUnlock(block);
  return block;
}

TEST(AttachDib, BecomesFloatPixels) {
  CVynImage image;
  ASSERT_TRUE(image.AttachDIB(Bitmap24(5, 3)));
  EXPECT_EQ(image.GetBitsPixel(), -32);
  ASSERT_EQ(image.GetPlanes(), 3);
  EXPECT_EQ(At(image, 0, 4, 0), 40.0f);
  EXPECT_EQ(At(image, 1, 4, 2), 40.0f);
  EXPECT_EQ(At(image, 2, 0, 0), 30.0f);
  EXPECT_EQ(image.GetLevelMax(0), 255.0);
}

TEST(AttachDib, RefusesDamagedBitmapsAndLeavesThemToTheCaller) {
  const auto refuse = [](std::size_t size, int offset, std::uint32_t value) {
    HDIB good = Bitmap24(5, 3);
    const HDIB block = GlobalAlloc(0, size);
    std::memcpy(GlobalLock(block), GlobalLock(good), std::min(size, GlobalSize(good)));
    if (offset >= 0) std::memcpy(static_cast<BYTE*>(GlobalLock(block)) + offset, &value, 4);
    GlobalFree(good);
    CVynImage image;
    const int taken = image.AttachDIB(block);
    if (!taken) GlobalFree(block);
    return !taken;
  };
  EXPECT_TRUE(refuse(39, -1, 0)) << "shorter than a header";
  EXPECT_TRUE(refuse(40 + 47, -1, 0)) << "a byte short of its rows";
  EXPECT_TRUE(refuse(88, 0, 108)) << "another header";
  EXPECT_TRUE(refuse(88, 4, 0x7FFFFFFF)) << "a width that overflows";
  EXPECT_TRUE(refuse(88, 8, 0x80000000)) << "a height that has no magnitude";
  EXPECT_TRUE(refuse(88, 14, 0x00000010)) << "16 bits";
  EXPECT_TRUE(refuse(88, 16, 1)) << "compressed";
  EXPECT_FALSE(refuse(88, -1, 0));
  CVynImage image;
  EXPECT_FALSE(image.AttachDIB(nullptr));
}

TEST(ReferencePoints, FirstPointBringsTheCentre) {
  CVynImage image;
  image.SetStdPt(1, CfPoint(3, 4));
  EXPECT_FALSE(image.IsValidStdCtr());
  image.SetStdPt(0, CfPoint(8.75, -0.5));
  EXPECT_EQ(image.GetStdCtr().x, 8.75);
  EXPECT_EQ(image.GetStdPtNum(), 2);
  image.ClearStdPt(0);
  EXPECT_FALSE(image.IsValidStdCtr());
  EXPECT_TRUE(image.IsValidStdPt(1));
  // One coordinate of -1 is enough to be unset, and truncation goes towards
  // zero.
  image.SetStdPt(0, CfPoint(5, -1));
  EXPECT_FALSE(image.IsValidStdPt(0));
  image.SetStdPt(0, CfPoint(5.0, -0.9));
  EXPECT_TRUE(image.IsValidStdPt(0));
  image.SetStdPt(2, CfPoint(1, 1));
  EXPECT_FALSE(image.IsValidStdPt(2));
}

}  // namespace
}  // namespace qmr::test
