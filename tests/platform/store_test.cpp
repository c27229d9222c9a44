// The pixel store, the base image, settings.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <thread>
#include <utility>
#include <vector>

#include "qmrimg/platform/exception.h"
#include "qmrimg/store/block.h"
#include "qmrimg/store/image.h"
#include "qmrimg/store/registry.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

constexpr int kGuardBytes = 64;

BYTE* RowOf(const CImage& image, int y, int plane) {
  return static_cast<BYTE*>(image.GetImageAdr(0, y, plane, 0, 0, nullptr));
}

void FillBytes(CImage& image, int value) {
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < image.GetHeight(); ++y)
      std::memset(RowOf(image, y, p), value, static_cast<std::size_t>(image.GetWidth() * image.GetBytesPixel()));
}

// All pixels have this byte; the guards behind each row and behind the plane
// are zero.
void ExpectBytes(const CImage& image, int value) {
  const int bytes = image.GetWidth() * image.GetBytesPixel();
  const auto stride = image.GetVmImage()->GetRowBytes();
  ASSERT_GE(stride, bytes + kGuardBytes);
  for (int p = 0; p < image.GetPlanes(); ++p) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      const BYTE* row = RowOf(image, y, p);
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(row) % 64, 0u);
      for (int i = 0; i < bytes; ++i) ASSERT_EQ(row[i], value) << p << ", " << y << ", " << i;
      for (std::ptrdiff_t i = bytes; i < stride; ++i) ASSERT_EQ(row[i], 0) << "guard of row " << y;
    }
    const BYTE* behind = RowOf(image, image.GetHeight() - 1, p) + stride;
    for (std::ptrdiff_t i = 0; i < stride; ++i) ASSERT_EQ(behind[i], 0) << "guard of the plane";
  }
}

// Small, and large enough for huge pages and the pool of released planes.
class Store : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(Store, StartsWithZerosOnAlignedRowsWithGuardsWhateverWasThereBefore) {
  const auto [width, height] = GetParam();
  for (const int bits : {-32, 8, -64}) {
    for (int round = 0; round < 2; ++round) {
      CImage image(bits, width, height, 2, 1.0, 0.0, 1);
      ExpectBytes(image, 0);
      FillBytes(image, 0x5A);
      ExpectBytes(image, 0x5A);
      const CImage copy(image);
      ExpectBytes(copy, 0x5A);
      CImage made;
      ASSERT_TRUE(made.Create(image));
      ExpectBytes(made, 0);
      ASSERT_TRUE(image.ChangePlanes(3));
      EXPECT_EQ(RowOf(image, height - 1, 1)[0], 0x5A) << "planes that stay keep their pixels";
      EXPECT_EQ(RowOf(image, height - 1, 2)[0], 0);
      ASSERT_TRUE(image.ChangePlanes(1));
      ExpectBytes(image, 0x5A);
      ASSERT_TRUE(image.ChangeSize(width - 1, height));
      ExpectBytes(image, 0);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, Store,
                         testing::Values(std::pair{17, 3}, std::pair{16, 1}, std::pair{2, 5}, std::pair{2311, 517}));

TEST(Store, BeyondTheLimitLivesInAFileAndWorksTheSame) {
  SetStoreMemoryLimit(1);
  {
    CImage image(-32, 333, 77, 3, 1.0, 0.0, 1);
    ExpectBytes(image, 0);
    FillBytes(image, 0x33);
    CImage copy(image);
    ExpectBytes(copy, 0x33);
    ASSERT_TRUE(image.ChangePlanes(1));
    ExpectBytes(image, 0x33);
    // Back in memory while the file's planes live on.
    SetStoreMemoryLimit(0);
    const CImage third(copy);
    ExpectBytes(third, 0x33);
  }
  TrimStorePool();
}

TEST(Store, RefusesShapesThatNoMemoryHolds) {
  // Bits, width and height whose product wraps to something small, and a sample
  // code without a size.
  const std::array<int, 3> shapes[] = {
      {-64, INT_MAX - 31, INT_MAX}, {1 << 30, 1 << 20, 1 << 20}, {INT_MIN, 4, 4}, {-32, 0, 4}, {4, 8, 8}};
  for (const auto& [b, w, h] : shapes) {
    const int bits = b, width = w, height = h;
    EXPECT_TRUE(Raises<CMemoryException>([&] { const CVmImage store(bits, width, height, 1, nullptr, nullptr); }))
        << bits << ", " << width << ", " << height;
  }
}

TEST(Store, CountsPins) {
  CImage image(-32, 5, 4, 1, 1.0, 0.0, 1);
  const CVmImage& store = *image.GetVmImage();
  void* token = &image;
  image.GetImageAdr(0, 1, 0, 0u, &token);
  EXPECT_EQ(token, nullptr) << "no pin, no token";
  EXPECT_EQ(image.Unlock(token), 0);
  image.GetImageAdr(0, 1, 0, 3u, &token);
  image.GetImageAdr(0, 2, 0, 2u, nullptr);
  EXPECT_EQ(store.GetPinCount(), 2);
  EXPECT_NE(image.Unlock(token), 0);
  EXPECT_EQ(store.GetPinCount(), 1);
  image.UnlockAll();
  EXPECT_EQ(store.GetPinCount(), 0);
}

TEST(Store, PlaneImagesHaveNoGaps) {
  CImage image(16, 3, 2, 2, 1.0, 0.0, 1);
  std::vector<unsigned char> plane = image.CreatePlaneBuffer();
  ASSERT_EQ(plane.size(), 12u);
  for (std::size_t i = 0; i < plane.size(); ++i) plane[i] = static_cast<unsigned char>(i + 1);
  EXPECT_TRUE(image.SetPlaneImage(1, plane));
  EXPECT_EQ(image.GetPlaneImage(1), plane);
  EXPECT_EQ(image.GetPixel(0, 1, 1), 7 + 8 * 256);
  EXPECT_EQ(image.GetPlaneImage(0), std::vector<unsigned char>(12));
  EXPECT_FALSE(image.SetPlaneImage(2, plane));
  plane.pop_back();
  EXPECT_FALSE(image.SetPlaneImage(0, plane));
  EXPECT_TRUE(image.GetPlaneImage(-1).empty());
}

TEST(BaseImage, ReadsSamplesOfEveryCode) {
  const auto sample = [](int bits, int isSigned, std::uint64_t pattern) {
    CImage image(bits, 1, 1, 1, 2.0, 1.0, 1);
    image.SetSigned(isSigned);
    std::memcpy(RowOf(image, 0, 0), &pattern, static_cast<std::size_t>(image.GetBytesPixel()));
    return image.GetPixel(0, 0, 0);
  };
  EXPECT_EQ(sample(8, 1, 0xFF), 511.0) << "bytes are unsigned";
  EXPECT_EQ(sample(16, 0, 0xFFFE), 2.0 * 65534.0 + 1.0);
  EXPECT_EQ(sample(16, 1, 0xFFFE), -3.0);
  EXPECT_EQ(sample(32, 0, 0xFFFFFFFF), 2.0 * 4294967295.0 + 1.0);
  EXPECT_EQ(sample(32, 1, 0xFFFFFFFF), -1.0);
  EXPECT_EQ(sample(-32, 0, 0x3F800000), 3.0);
  EXPECT_EQ(sample(-64, 0, 0x3FF0000000000000), 3.0);
  CImage odd(-32, 1, 1, 1, 1.0, 0.0, 1);
  odd.SetBitsPixel(12);
  EXPECT_EQ(odd.GetPixel(0, 0, 0), 0.0);
  odd.SetBitsPixel(-32);
  EXPECT_EQ(odd.GetPixel(1, 0, 0), 0.0) << "outside";
}

// Fields that tell of more than the pixels: nothing may be reached by them
// until there are pixels for them.
TEST(BaseImage, FieldsAheadOfThePixelsReachNothing) {
  const auto set = [](CImage& image, int field) {
    if (field == 0) image.SetWidth(4000);
    if (field == 1) image.SetHeight(4000);
    if (field == 2) image.SetBitsPixel(-64);
  };
  for (int field = 0; field < 3; ++field) {
    CImage image(-32, 5, 4, 1, 1.0, 0.0, 1);
    FillBytes(image, 0x5A);
    set(image, field);
    EXPECT_EQ(image.GetImageAdr(0, 0, 0, 1, 0, nullptr), nullptr) << field;
    EXPECT_EQ(image.GetPixel(4, 3, 0), 0.0);
    double min = 1.0, max = 1.0;
    image.GetMinMax(0, &min, &max);
    EXPECT_EQ(max, 0.0);
    CImage converted(image);
    ASSERT_TRUE(converted.ChangeBits(16, 0, 0));
    EXPECT_EQ(converted.GetPixel(0, 0, 0), 0.0);
    ASSERT_TRUE(image.ChangePlanes(3));
    ExpectBytes(image, 0);
  }
  // Fewer rows than there are: a third plane must not be smaller than the first
  // one.
  CImage image(-32, 5, 400, 1, 1.0, 0.0, 1);
  image.SetHeight(2);
  ASSERT_TRUE(image.ChangePlanes(3));
  EXPECT_EQ(image.GetImageAdr(0, 2, 2, 1, 0, nullptr), nullptr);
  // What can't be had leaves the image as it was.
  image.SetWidth(INT_MAX);
  image.SetHeight(INT_MAX);
  EXPECT_FALSE(image.ChangePlanes(1));
  EXPECT_EQ(image.GetPlanes(), 3);
  EXPECT_EQ(image.GetPixelCount(), INT_MAX);
}

TEST(BaseImage, CreateMakesPixelsAndLevelsForTheFieldsAlone) {
  CImage fields, image;
  fields.SetWidth(3);
  fields.SetHeight(2);
  fields.SetPlanes(3);
  ASSERT_TRUE(image.Create(fields));
  ExpectBytes(image, 0);
  image.SetLevel(2, 5.0, 7.0);
  EXPECT_EQ(image.GetLevelRange(2), 2.0);
  EXPECT_EQ(image.GetLevelMax(0), 255.0);
}

TEST(BaseImage, ConvertsSamplesAndLimitsThemToTheirRange) {
  CImage image(-32, 5, 1, 1, 1.0, 0.0, 1);
  const float values[5] = {-3.0f, 2.5f, 3.5f, 70000.0f, std::numeric_limits<float>::quiet_NaN()};
  std::memcpy(RowOf(image, 0, 0), values, sizeof values);
  ASSERT_TRUE(image.ChangeBits(16, 0, 0));
  const double expected[5] = {0.0, 2.0, 4.0, 65535.0, 0.0};
  for (int x = 0; x < 5; ++x) EXPECT_EQ(image.GetPixel(x, 0, 0), expected[x]);
  ASSERT_TRUE(image.ChangeBits(-32, 1, 1));
  EXPECT_EQ(image.GetPixel(3, 0, 0), 65535.0);
  EXPECT_FALSE(image.ChangeBits(12, 0, 0));
}

TEST(BaseImage, FindsMinimaAndMaximaOnAnyWidth) {
  for (const int width : {1, 15, 16, 17, 61}) {
    CVynImage image = Noise(width, 3, 1, static_cast<std::uint64_t>(width), -5.0, 5.0);
    const std::vector<float> pixels = Pixels(image, 0);
    double min, max;
    image.GetMinMax(0, &min, &max);
    EXPECT_EQ(min, *std::min_element(pixels.begin(), pixels.end()));
    EXPECT_EQ(max, *std::max_element(pixels.begin(), pixels.end()));
    image.GetMinMax(1, &min, &max);
    EXPECT_EQ(min, 0.0);
    EXPECT_EQ(max, 0.0);
  }
}

TEST(BaseImage, HistogramGridKeepsWhatLiesInside) {
  CImage image(8, 10, 5, 1, 1.0, 0.0, 1);
  image.SetHistogramCull({-1, 0, 9, 10}, {4, 5});
  const CImage copy(image);
  int nX = 7, nY = 7;
  EXPECT_TRUE(copy.GetHistogramCull(&nX, &nY));
  EXPECT_EQ(nX, 2);
  EXPECT_EQ(nY, 1);
  image.SetHistogramCull({3}, {});
  EXPECT_FALSE(image.IsHistogramCullParam());
}

TEST(BaseImage, IsSafeForManyReaders) {
  CImage image(-32, 300, 200, 3, 1.0, 0.0, 1);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&image, t] {
      for (int y = t; y < 200; y += 4) {
        void* token = nullptr;
        auto* row = static_cast<float*>(image.GetImageAdr(0, y, 1, 0, 2, &token));
        for (int x = 0; x < 300; ++x) row[x] = static_cast<float>(x + y);
        image.Unlock(token);
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(image.GetVmImage()->GetPinCount(), 0);
  double min, max;
  image.GetMinMax(1, &min, &max);
  EXPECT_EQ(max, 299.0 + 199.0);
}

TEST(Handles, IgnoreWhatLiesOutside) {
  CVmHandle handle(2);
  for (const int i : {-1, 1, 2}) handle.Set(i, 4, 9);
  EXPECT_EQ(handle.GetSlotIndex(0), -1);
  EXPECT_EQ(handle.GetSlotIndex(1), 9);
  EXPECT_EQ(handle.GetSlotIndex(2), -1);
}

TEST(Header, UnknownNumbersHaveTheirValue) {
  CHeader header;
  double v = 0.0, gains[8];
  header.GetExposureTime(&v);
  EXPECT_EQ(v, -9999.99);
  header.SetWBShootingGainBayer(4, 1.0);  // there are four
  EXPECT_EQ(header.GetWBShootingGainBayer(4), 0.0);
  header.SetWBShootingGainHoneyComb(7, 2.5);
  header.GetWBShootingGainHoneyComb(gains);
  EXPECT_EQ(gains[7], 2.5);
}

class Settings : public testing::Test {
 protected:
  void SetUp() override {
    path_ = testing::TempDir() + "qmrimg-settings-" + std::to_string(getpid()) + ".ini";
    std::ofstream(path_) << "; a comment\n[ eval ]\r\nMin = "
                            "3\r\nMax=ten\nBig=99999999999\n[Psf]\n MAX = 7.25 "
                            "\nLow=nan\nPlus=+1e2\n[Empty";
    SetSettingsFile(path_);
  }
  void TearDown() override {
    SetSettingsFile("");
    std::remove(path_.c_str());
  }
  std::string path_;
};

TEST_F(Settings, AreReadOrDefault) {
  const auto integer = [](const wchar_t* key, int other) {
    int i = 0;
    const bool found = CRegistry::Read(L"Eval", key, other, &i, 1) != 0;
    EXPECT_EQ(found, i != other);
    return i;
  };
  const auto real = [](const wchar_t* key) {
    double d = 0.0;
    const bool found = CRegistry::Read(L"Psf", key, 20.0, &d) != 0;
    EXPECT_EQ(found, d != 20.0);
    return d;
  };
  EXPECT_EQ(integer(L"Min", 1), 3);
  EXPECT_EQ(integer(L"Max", 10), 10) << "no number";
  EXPECT_EQ(integer(L"Big", 5), 5) << "no int";
  EXPECT_EQ(real(L"Max"), 7.25);
  EXPECT_EQ(real(L"Min"), 20.0) << "of another section";
  EXPECT_EQ(real(L"Low"), 20.0) << "no number";
  EXPECT_EQ(real(L"Plus"), 100.0);
  SetSettingsFile("/nowhere/at/all.ini");
  EXPECT_EQ(integer(L"Min", 1), 1);
}

}  // namespace
}  // namespace qmr::test
