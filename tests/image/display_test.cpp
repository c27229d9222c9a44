// Rendering into bitmaps.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <set>

#include "qmrimg/image/dib.h"
#include "qmrimg/image/kernels/display_rows.h"
#include "qmrimg/image/vm_dib.h"
#include "qmrimg/image/vyn_image.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

constexpr BYTE kUntouched = 0xA5;

int Mapped(float v, float min, float max, float k) {
  if (std::isnan(v) || v <= min) return 0;
  if (v >= max) return 255;
  return static_cast<int>(std::nearbyint((v - min) * k));
}

int Mapped(const CVynImage& image, int p, int x, int y) {
  return Mapped(At(image, p, x, y), static_cast<float>(image.GetLevelMin(p)), static_cast<float>(image.GetLevelMax(p)),
                static_cast<float>(255.0 / image.GetLevelRange(p)));
}

TEST(LevelMapping, RoundsLikeTheRoundingFunctionForEveryValue) {
  const DisplayLevels levels{0.0f, 255.0f, 1.0f};
  const auto bytes = [&](float v) {
    std::uint32_t word;
    GrayWords(&v, 1, levels, &word);
    return static_cast<int>(word & 0xFF);
  };
  for (int i = 0; i <= 510; ++i) {
    const float tie = static_cast<float>(i) * 0.5f;
    for (const float v : {std::nextafter(tie, -1.0f), tie, std::nextafter(tie, 300.0f)})
      ASSERT_EQ(bytes(v), Mapped(v, 0.0f, 255.0f, 1.0f)) << v;
  }
  const float inf = std::numeric_limits<float>::infinity();
  EXPECT_EQ(bytes(inf), 255);
  EXPECT_EQ(bytes(-inf), 0);
  EXPECT_EQ(bytes(std::nanf("")), 0);
}

class ToDib : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(ToDib, FillsTheRectangleThroughTheLevels) {
  const auto [bits, planes] = GetParam();
  CVynImage image = Noise(1043, 9, planes, 1, -20.0, 300.0);
  for (int p = 0; p < planes; ++p) image.CImage::SetLevel(p, 3.0 * p, 250.0 - 20.0 * p);
  CWnd window(bits);
  CMemoryDIB dib;
  ASSERT_TRUE(dib.Create(&window, 1041, 7, 0));
  const int bytes = bits / 8;
  for (const CRect rect : {CRect(0, 0, 1041, 7), CRect(5, 2, 1030, 6), CRect(2000, -4, 3000, 3), CRect(7, 3, 7, 9)}) {
    std::memset(dib.GetImageAdr8(0, 6), kUntouched, static_cast<std::size_t>(dib.GetLineBytes()) * 7);
    image.ToDIB(&dib, &rect, 0);
    const int left = std::clamp<int>(rect.left, 0, 1040), right = std::clamp<int>(rect.right, 0, 1041);
    const int top = std::clamp<int>(rect.top, 0, 6), bottom = std::clamp<int>(rect.bottom, 0, 7);
    for (int y = 0; y < 7; ++y) {
      for (int x = 0; x < 1041; ++x) {
        int c[3];
        for (int p = 0; p < 3; ++p) c[p] = Mapped(image, planes == 3 ? p : 0, x, y);
        BYTE expected[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
        if (x >= left && x < right && y >= top && y < bottom) {
          const auto [r, g, b] = c;
          if (bits == 8) {
            expected[0] = static_cast<BYTE>(planes == 3 ? (b & 0xC0) | ((g >> 2) & 0x38) | (r >> 5) : r);
          } else if (bits == 16) {
            const auto dither = [&](int v) { return (x + y) % 2 == 0 ? std::min(v + 4, 255) : v; };
            const int v = ((dither(r) & 0xF8) << 7) | ((dither(g) & 0xF8) << 2) | (dither(b) >> 3);
            expected[0] = static_cast<BYTE>(v);
            expected[1] = static_cast<BYTE>(v >> 8);
          } else {
            expected[0] = static_cast<BYTE>(b);
            expected[1] = static_cast<BYTE>(g);
            expected[2] = static_cast<BYTE>(r);
          }
        }
        const BYTE* actual = dib.GetImageAdr8(0, y) + x * bytes;
        ASSERT_EQ(std::memcmp(actual, expected, static_cast<std::size_t>(bytes)), 0) << x << ", " << y;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Depths, ToDib, testing::Combine(testing::Values(8, 16, 24, 32), testing::Values(1, 2, 3)));

TEST(ToDib, FillsTheCommonPartOfASmallerImage) {
  CVynImage image = Shaped(3, 2, 3);
  Fill(image, [](int, int, int) { return 255.0f; });
  CMemoryDIB dib;
  ASSERT_TRUE(dib.Create(nullptr, 5, 4, 0));
  image.ToDIB(&dib, nullptr, 0);
  EXPECT_EQ(dib.GetDC()->GetPixel(2, 1), 0xFFFFFFu);
  EXPECT_EQ(dib.GetDC()->GetPixel(3, 1), 0u);
  EXPECT_EQ(dib.GetDC()->GetPixel(2, 2), 0u);
  CMemoryDIB none;
  image.ToDIB(&none, nullptr, 0);
  image.ToDIB(nullptr, nullptr, 0);
}

// ---- Bitmap blocks ------------------------------------------------------------------------------------------------

// A block with its parts in reach.
class Block {
 public:
  explicit Block(HDIB handle) : handle_(handle), data_(static_cast<const BYTE*>(GlobalLock(handle))) {
    std::memcpy(&header, data_, sizeof header);
    line = (static_cast<std::size_t>(header.biWidth) * header.biBitCount / 8 + 3) / 4 * 4;
    table = header.biBitCount == 8 ? 256 : 0;
  }
  ~Block() {
    GlobalUnlock(handle_);
    GlobalFree(handle_);
  }
  RGBQUAD Colour(int i) const {
    RGBQUAD c;
    std::memcpy(&c, data_ + 40 + i * 4, 4);
    return c;
  }
  const BYTE* Row(int y) const {
    return data_ + 40 + table * 4 + static_cast<std::size_t>(header.biHeight - 1 - y) * line;
  }
  std::size_t Size() const { return GlobalSize(handle_); }
  BITMAPINFOHEADER header;
  std::size_t line;
  std::size_t table;

 private:
  HDIB handle_;
  const BYTE* data_;
};

int Rounded256(const CVynImage& image, int p, int level, int x, int y) {
  const float v = At(image, p, x, y);
  if (!(v > image.GetLevelMin(level))) return 0;
  if (v >= image.GetLevelMax(level)) return 255;
  return static_cast<int>(std::nearbyint(image.To256(v, level)));
}

TEST(GetDib, HasHeaderTableAndPaddedRowsForEachDepth) {
  for (const int planes : {1, 2, 3}) {
    CVynImage image = Noise(1027, 5, planes, 2, -20.0, 300.0);
    // Levels that floats can't hold: the mapping runs in double here.
    for (int p = 0; p < planes; ++p) image.CImage::SetLevel(p, 0.1 + p, 249.7);
    const Block block(image.GetDib(24));
    EXPECT_EQ(block.header.biSize, 40u);
    EXPECT_EQ(block.header.biPlanes, 1);
    EXPECT_EQ(block.header.biSizeImage, 3084u * 5u);
    EXPECT_EQ(block.header.biClrUsed, 0u);
    EXPECT_EQ(block.Size(), 40u + 3084u * 5u);
    for (int y = 0; y < 5; ++y) {
      for (int x = 0; x < 1027; ++x) {
        for (int p = 0; p < 3; ++p) {
          const int from = planes == 3 ? p : 0;
          ASSERT_EQ(block.Row(y)[x * 3 + 2 - p], Rounded256(image, from, from, x, y)) << x << ", " << y;
        }
      }
      EXPECT_EQ(block.Row(y)[1027 * 3], 0) << "padding";
      EXPECT_EQ(block.Row(y)[1027 * 3 + 2], 0);
    }
    if (planes == 3) continue;
    const Block grey(image.GetDib(8));
    EXPECT_EQ(grey.header.biSizeImage, 1028u * 5u);
    EXPECT_EQ(grey.Colour(200).rgbGreen, 200);
    for (int x = 0; x < 1027; ++x) ASSERT_EQ(grey.Row(3)[x], Rounded256(image, 0, 0, x, 3));
    EXPECT_EQ(grey.Row(3)[1027], 0);
  }
}

// Integers over a range of 510 or 1020 lie on ties, where a mapping by the reciprocal of the range goes wrong.
TEST(GetDib, RoundsTiesToEvenOverAnyRange) {
  CVynImage image = Shaped(1100, 3, 1);
  Fill(image, [](int, int x, int y) { return static_cast<float>(x - 40) * (y == 2 ? 0.3f : 1.0f); });
  for (const double range : {510.0, 1020.0, 255.0, 0.51, 102.0, 33.3, 6120.0, 65535.0 / 7.0, 0.0, -5.0}) {
    image.SetLevel(0, 0.0, range);
    const Block block(image.GetDib(8));
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 1100; ++x)
        ASSERT_EQ(block.Row(y)[x], Rounded256(image, 0, 0, x, y)) << At(image, 0, x, y) << " of " << range;
  }
}

TEST(GetDib, RefusesOtherDepthsAndEmptyImages) {
  CVynImage image;
  EXPECT_EQ(image.GetDib(24), nullptr);
  Shape(image, 2, 2, 3);
  for (const int bits : {0, 1, 4, 16, 32, -24}) EXPECT_EQ(image.GetDib(bits), nullptr) << bits;
}

TEST(GetDib, OfColourIn8BitsTakesAllPlanesThroughTheLevelsOfPlaneZero) {
  CVynImage image = Shaped(4, 2, 3);
  Fill(image, [](int p, int, int) { return p == 0 ? 200.0f : 100.0f; });
  image.CImage::SetLevel(1, 99.0, 100.0);
  const Block block(image.GetDib(8));
  const RGBQUAD c = block.Colour(block.Row(0)[0]);
  // The middle of the cell of (200, 100, 100), not of (200, 255, 100).
  EXPECT_EQ(c.rgbRed, 204);
  EXPECT_EQ(c.rgbGreen, 100);
  EXPECT_EQ(c.rgbBlue, 100);
}

TEST(GetDib, PaletteServesFewColoursExactlyAndManyNearly) {
  CVynImage image = Shaped(64, 64, 3);
  // Up to 8 colours a band keep an entry each.
  Fill(image, [](int p, int x, int y) { return static_cast<float>((x / 16 + y / 16 * 4 + 5 * p) % 16 * 16 + 4); });
  const Block few(image.GetDib(8));
  std::set<int> used;
  for (int y = 0; y < 64; ++y) {
    for (int x = 0; x < 64; ++x) {
      const int entry = few.Row(y)[x];
      used.insert(entry);
      ASSERT_EQ(few.Colour(entry).rgbRed, static_cast<int>(At(image, 0, x, y)) / 8 * 8 + 4);
      ASSERT_EQ(few.Colour(entry).rgbBlue, static_cast<int>(At(image, 2, x, y)) / 8 * 8 + 4);
    }
  }
  EXPECT_EQ(used.size(), 16u);

  FillNoise(image, 4);
  const Block many(image.GetDib(8));
  std::set<int> colours;
  double squares = 0.0;
  for (int y = 0; y < 64; ++y) {
    for (int x = 0; x < 64; ++x) {
      const RGBQUAD c = many.Colour(many.Row(y)[x]);
      const auto cell = [&](int p) { return Rounded256(image, p, 0, x, y) / 8 * 8 + 4; };
      const auto distance = [&](const RGBQUAD& q) {
        const int r = q.rgbRed - cell(0), g = q.rgbGreen - cell(1), b = q.rgbBlue - cell(2);
        return r * r + g * g + b * b;
      };
      // No entry of the table would have been nearer; of equal ones the first is taken unless the cell has its own.
      int best = 0x2FA03;
      for (int i = 0; i < 256; ++i) best = std::min(best, distance(many.Colour(i)));
      ASSERT_EQ(distance(c), best) << x << ", " << y;
      colours.insert(many.Row(y)[x]);
      squares += best;
    }
  }
  EXPECT_EQ(colours.size(), 256u) << "every slot serves when there are colours enough";
  EXPECT_LT(std::sqrt(squares / 4096.0), 30.0);
}

// ---- Bitmap classes -----------------------------------------------------------------------------------------------

TEST(MemoryDib, KeepsItselfWhenAskedForNothing) {
  CMemoryDIB dib;
  ASSERT_TRUE(dib.Create(nullptr, 5, 3, 0));
  EXPECT_EQ(dib.GetBitCount(), 32);
  dib.SetPixel(4, 2, 0x123456);
  EXPECT_EQ(dib.Create(nullptr, 5, 0, 0), 0);
  EXPECT_EQ(dib.Create(nullptr, -5, 5, 0), 0);
  EXPECT_EQ(dib.GetHeight(), 3);
  EXPECT_EQ(dib.GetDC()->GetPixel(4, 2), 0x123456u);
  EXPECT_EQ(dib.Create(nullptr, 70000, 70000, 0), 0) << "more than a header can say";
  EXPECT_EQ(dib.GetImageAdr8(0, 0), nullptr) << "that failure empties the bitmap";
}

TEST(MemoryDib, StoresPixelsByDepth) {
  // Red 0x44, green 0x88, blue 0xC0; the first bytes of the pixel in each depth.
  const struct {
    int bits, palette;
    std::vector<BYTE> pixel;
  } cases[] = {{8, 256, {0x44}},
               {16, 0, {0x38, 0x22}},
               {24, 0, {0xC0, 0x88, 0x44}},
               {32, 0, {0xC0, 0x88, 0x44, 0}},
               {4, 16, {}}};
  for (const auto& [bits, palette, pixel] : cases) {
    CWnd window(bits);
    CMemoryDIB dib;
    ASSERT_TRUE(dib.Create(&window, 5, 3, 0));
    EXPECT_EQ(dib.GetLineBytes() % 4, 0);
    EXPECT_EQ(dib.GetPaletteSize(), palette);
    for (const auto& [x, y] : {std::pair(1, 0), {5, 0}, {0, 3}, {-1, -1}}) dib.SetPixel(x, y, 0x00C08844);
    const auto line = static_cast<std::size_t>(dib.GetLineBytes());
    std::vector<BYTE> expected(40 + line * 3);
    std::memcpy(expected.data(), dib.GetBmpInfo(), 40);
    // The top row lies last; pixels outside are ignored.
    std::copy(pixel.begin(), pixel.end(), expected.begin() + 40 + static_cast<std::ptrdiff_t>(2 * line + pixel.size()));
    const HDIB copy = dib.CreateHDIB();
    ASSERT_EQ(GlobalSize(copy), expected.size());
    EXPECT_EQ(std::memcmp(GlobalLock(copy), expected.data(), expected.size()), 0) << bits;
    GlobalFree(copy);
  }
}

TEST(MemoryDib, CopiesAreApartAndPalettesColour8Bits) {
  std::vector<PALETTEENTRY> palette(256);
  palette[7] = {1, 2, 3, 0};
  CWnd window(8);
  CMemoryDIB dib;
  ASSERT_TRUE(dib.Create(&window, 3, 2, palette.data(), 0));
  dib.SetPixel8(2, 1, 7);
  EXPECT_EQ(dib.GetDC()->GetPixel(2, 1), 0x030201u);
  CMemoryDIB copy;
  copy = dib;
  dib.SetPixel8(2, 1, 0);
  EXPECT_EQ(copy.GetDC()->GetPixel(2, 1), 0x030201u);
  copy = CMemoryDIB();
  EXPECT_EQ(copy.CreateHDIB(), nullptr);
}

class VmDib : public testing::TestWithParam<int> {};

// Paints a picture taller than two strips; every pixel tells its place.
COLORREF Place(int x, int y) {
  return static_cast<COLORREF>(x * 8 & 0xF8) | static_cast<COLORREF>(y & 0x1F) << 11;
}

void Paint(CVmDIB& dib, int bits) {
  CMemoryDIB pixels;
  CWnd window(bits == 32 ? 24 : bits);
  ASSERT_TRUE(pixels.Create(&window, 1, 1, 0));
  for (int y = 0; y < dib.GetHeight(); ++y) {
    for (int x = 0; x < dib.GetWidth(); ++x) {
      void* adr = dib.GetImageAdr(x, y, 0, 0);
      ASSERT_NE(adr, nullptr);
      pixels.SetPixel(adr, bits == 8 ? static_cast<COLORREF>((x + y) % 256) : Place(x, y));
    }
  }
}

TEST_P(VmDib, DrawsInStripsOntoItsDevice) {
  const int bits = GetParam();
  CWnd window(bits);
  ASSERT_TRUE(window.SetClientSize(40, 130));
  CVmDIB dib;
  ASSERT_TRUE(dib.Create(&window, 23, 120, 0));
  Paint(dib, bits);
  CPaintDC paint(&window);
  const CDC& client = *window.GetDC();
  CMemoryDIB one;
  ASSERT_TRUE(one.Create(&window, 1, 1, 0));
  const auto colour = [&](int x, int y) {
    one.SetPixel(0, 0, bits == 8 ? static_cast<COLORREF>((x + y) % 256) : Place(x, y));
    return one.GetDC()->GetPixel(0, 0);
  };
  ASSERT_TRUE(dib.BitBlt(&window, &paint, 4, 5, 20, 111, 2, 3, SRCCOPY));
  for (int y = 0; y < 130; ++y) {
    for (int x = 0; x < 40; ++x) {
      const bool inside = x >= 4 && x < 24 && y >= 5 && y < 116;
      ASSERT_EQ(client.GetPixel(x, y), inside ? colour(x - 2, y - 2) : 0u) << x << ", " << y;
    }
  }
  // A rectangle that leaves the picture draws what there is.
  ASSERT_TRUE(window.SetClientSize(40, 130));
  CPaintDC fresh(&window);
  ASSERT_TRUE(dib.BitBlt(&window, &fresh, 0, 0, 40, 130, -3, -2, SRCCOPY));
  EXPECT_EQ(client.GetPixel(2, 5), 0u);
  EXPECT_EQ(client.GetPixel(3, 2), colour(0, 0));
  EXPECT_EQ(client.GetPixel(25, 121), colour(22, 119));
  EXPECT_EQ(client.GetPixel(26, 121), 0u);
}

TEST_P(VmDib, StretchesWithoutGapsBetweenStrips) {
  const int bits = GetParam();
  CWnd window(bits);
  ASSERT_TRUE(window.SetClientSize(46, 90));
  CVmDIB dib;
  ASSERT_TRUE(dib.Create(&window, 23, 120, 0));
  for (int y = 0; y < 120; ++y)
    std::memset(dib.GetImageAdr(0, y, 0, 0), 0x7F, 23u * (bits == 8 ? 1 : bits == 16 ? 2 : 3));
  ASSERT_TRUE(dib.StretchBlt(&window, window.GetDC(), 0, 0, 46, 87, 0, 0, 23, 120, SRCCOPY));
  const COLORREF painted = window.GetDC()->GetPixel(0, 0);
  if (bits != 8) {
    EXPECT_NE(painted, 0u);
  }
  const DeviceBitmap& client = *window.GetDC()->GetCurrentBitmap();
  for (int y = 0; y < 87; ++y)
    for (int x = 0; x < 46; ++x) ASSERT_NE(client.Line(y)[x * bits / 8], 0) << x << ", " << y;
  EXPECT_EQ(client.Line(88)[0], 0);
  // Painting onto itself with exclusive or gives black; other operations are refused.
  ASSERT_TRUE(dib.StretchBlt(&window, window.GetDC(), 0, 0, 23, 20, 0, 0, 23, 20, SRCINVERT));
  EXPECT_EQ(client.Line(19)[0], 0);
  EXPECT_EQ(dib.StretchBlt(&window, window.GetDC(), 0, 0, 23, 20, 0, 0, 23, 20, 0x00BB0226), 0);
  EXPECT_EQ(dib.StretchBlt(&window, window.GetDC(), 0, 0, 23, 20, 0, 0, 23, 0, SRCCOPY), 0);
}

INSTANTIATE_TEST_SUITE_P(Depths, VmDib, testing::Values(8, 16, 24, 32));

TEST(VmDib, PaletteColoursA8BitPictureOnADeeperTarget) {
  CWnd window(8), screen(32);
  ASSERT_TRUE(screen.SetClientSize(2, 2));
  CVmDIB dib;
  ASSERT_TRUE(dib.Create(&window, 2, 2, 0));
  *static_cast<BYTE*>(dib.GetImageAdr(1, 1, 0, 0)) = 3;
  std::vector<PALETTEENTRY> entries(256);
  entries[3] = {10, 20, 30, 0};
  CPalette palette(entries);
  dib.SetColorPalette(&palette);
  ASSERT_TRUE(dib.StretchBlt(&window, screen.GetDC(), 0, 0, 2, 2, 0, 0, 2, 2, SRCCOPY));
  EXPECT_EQ(screen.GetDC()->GetPixel(1, 1), 0x1E140Au);
  EXPECT_EQ(dib.GetImageAdr(2, 0, 0, 1), nullptr);
  dib.Empty();
  EXPECT_EQ(dib.StretchBlt(&window, screen.GetDC(), 0, 0, 2, 2, 0, 0, 2, 2, SRCCOPY), 0);
}

}  // namespace
}  // namespace qmr::test
