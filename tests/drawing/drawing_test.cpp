// Lines and text on images.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <numeric>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "qmrimg/drawing/draw_line.h"
#include "qmrimg/drawing/draw_text.h"
#include "qmrimg/drawing/text_bitmap.h"
#include "tests/support/images.h"

namespace {

using qmr::DrawTextBitmap;
using qmr::TextBitmap;
using qmr::test::At;
using qmr::test::Bytes;
using qmr::test::PixelsAre;
using qmr::test::Shaped;

constexpr int kLeast = std::numeric_limits<int>::min();
constexpr int kMost = std::numeric_limits<int>::max();

using Places = std::set<std::pair<int, int>>;

// Step by step, as the method is published for a line that is longer in x; a steeper one is its mirror image.
Places Walk(CPoint from, CPoint to, int width, int height) {
  const std::int64_t dx = std::abs(std::int64_t{to.x} - from.x), dy = std::abs(std::int64_t{to.y} - from.y);
  const bool steep = dx < dy;
  if (steep) {
    std::swap(from.x, from.y);
    std::swap(to.x, to.y);
  }
  const std::int64_t along = std::max(dx, dy), across = std::min(dx, dy);
  Places places;
  std::int64_t error = 2 * across - along;
  for (int x = from.x, y = from.y;; x += to.x > from.x ? 1 : -1) {
    const int column = steep ? y : x, row = steep ? x : y;
    if (column >= 0 && column < width && row >= 0 && row < height) places.emplace(column, row);
    if (x == to.x) return places;
    if (error >= 0) {
      y += to.y > from.y ? 1 : -1;
      error -= 2 * along;
    }
    error += 2 * across;
  }
}

Places Inked(const CVynImage& image) {
  Places places;
  for (int y = 0; y < image.GetHeight(); ++y)
    for (int x = 0; x < image.GetWidth(); ++x)
      if (At(image, 0, x, y) != 0.0f) places.emplace(x, y);
  return places;
}

Places Drawn(CPoint from, CPoint to, int width, int height) {
  auto image = Shaped<CImgDrawLine>(width, height, 1);
  image.Do(from, to, 0xffffff);
  return Inked(image);
}

TEST(DrawLine, PixelsAreBresenhamsWhereverTheEndsLie) {
  constexpr int kWidth = 31, kHeight = 22;
  qmr::test::Random random(3);
  for (const int reach : {6, 40, 3000}) {
    for (int i = 0; i < 400; ++i) {
      const CPoint from(random.Integer(-reach, reach) + 15, random.Integer(-reach, reach) + 11);
      const CPoint to(random.Integer(-reach, reach) + 15, random.Integer(-reach, reach) + 11);
      ASSERT_EQ(Drawn(from, to, kWidth, kHeight), Walk(from, to, kWidth, kHeight))
          << from.x << "," << from.y << " to " << to.x << "," << to.y;
    }
  }
  EXPECT_EQ(Drawn({4, 5}, {4, 5}, 9, 9), (Places{{4, 5}}));
  EXPECT_EQ(Drawn({0, 0}, {0, 0}, 1, 1), (Places{{0, 0}}));
  EXPECT_TRUE(Drawn({9, 0}, {9, 9}, 9, 9).empty());
}

TEST(DrawLine, EndsAtTheLimitsOfTheirTypeTakeNoTime) {
  Places diagonal, half;
  for (int i = 0; i < 8; ++i) diagonal.emplace(i, i);
  for (int x = 0; x < 8; ++x) half.emplace(x, (x + 1) / 2);
  EXPECT_EQ(Drawn({kLeast, kLeast}, {kMost, kMost}, 8, 8), diagonal);
  EXPECT_EQ(Drawn({kLeast, -(1 << 30)}, {kMost - 1, (1 << 30) - 1}, 8, 8), half);
  EXPECT_EQ(Drawn({5, kMost}, {5, kLeast}, 8, 8).size(), 8u);
  EXPECT_EQ(Drawn({kMost, 2}, {kLeast, 2}, 8, 8).size(), 8u);
  EXPECT_TRUE(Drawn({kLeast, kLeast}, {kMost, kLeast + 1}, 8, 8).empty());
}

constexpr unsigned long kColour = 0x804020;  // red 32, green 64, blue 128

TEST(DrawLine, ColoursGoThroughTheLevelsOfEachPlane) {
  auto colour = Shaped<CImgDrawLine>(3, 1, 3);
  colour.SetLevel(0, 100.0, 355.0);
  colour.SetLevel(1, 0.0, 510.0);
  colour.SetLevel(2, -255.0, 0.0);
  colour.Do({1, 0}, {1, 0}, kColour);
  const float expected[] = {132.0f, 128.0f, -127.0f};
  EXPECT_TRUE(PixelsAre([&](int p, int x, int) { return x == 1 ? expected[p] : 0.0f; }, colour));

  // One plane and two: the middle of 128 and 32, and of 255 and 0.
  for (const int planes : {1, 2}) {
    auto mono = Shaped<CImgDrawLine>(2, 1, planes);
    mono.SetLevel(0, 0.0, 510.0);
    mono.Do({0, 0}, {0, 0}, kColour);
    mono.Do({1, 0}, {1, 0}, 0xff00ff);
    EXPECT_TRUE(PixelsAre([](int p, int x, int) { return p > 0 ? 0.0f : x == 0 ? 160.0f : 255.0f; }, mono));
    mono.SetLevel(0, 0.0, 100.0);
    mono.Do({0, 0}, {1, 0}, 0);
    EXPECT_TRUE(PixelsAre([](int, int, int) { return 0.0f; }, mono));
  }
  CImgDrawLine none;
  none.Do({0, 0}, {5, 5}, kColour);
}

// ---- Text from given dots ---------------------------------------------------------------------------------------

// Stands in for the fonts while it lives.
struct GivenDots {
  explicit GivenDots(std::vector<std::string> rows) {
    bitmap.height = static_cast<int>(rows.size());
    bitmap.width = rows.empty() ? 0 : static_cast<int>(rows[0].size());
    for (const std::string& row : rows)
      for (const char c : row) bitmap.dots.push_back(c == '#');
    qmr::SetTextBitmapHook(
        [](std::wstring_view text, const LOGFONTW& font, TextBitmap& to, void* self) {
          auto& given = *static_cast<GivenDots*>(self);
          given.asked = font;
          given.text = text;
          to = given.bitmap;
          return given.any;
        },
        this);
  }
  ~GivenDots() { qmr::SetTextBitmapHook(nullptr, nullptr); }

  bool any = true;
  TextBitmap bitmap;
  LOGFONTW asked = {};
  std::wstring text;
};

// 3 by 2 pixels of blocks with 4, 2 and 1 dots above and 3, 0 and 4 below; a column and a row too many.
const std::vector<std::string> kBlocks = {"###.#.#", "##.#..#", "##..###", "#...###", "#######"};
constexpr float kCover[2][3] = {{1.0f, 0.5f, 0.25f}, {0.75f, 0.0f, 1.0f}};

LOGFONTW FontOf(int height, int weight = FW_NORMAL, bool italic = false, const wchar_t* name = L"DejaVu Sans") {
  LOGFONTW font = {};
  font.lfHeight = height;
  font.lfWeight = weight;
  font.lfItalic = italic;
  std::copy_n(name, std::min<std::size_t>(std::wcslen(name), 31), font.lfFaceName);
  return font;
}

float CoverAt(int x, int y) {
  return x >= 0 && x < 3 && y >= 0 && y < 2 ? kCover[y][x] : 0.0f;
}

TEST(DrawText, SmoothEdgesAreCoveredByQuarters) {
  GivenDots dots(kBlocks);
  LOGFONTW font = FontOf(-20);
  font.lfWidth = 7;
  for (const CPoint pos : {CPoint(2, 1), CPoint(-1, -1), CPoint(4, 3), CPoint(-30, 50), CPoint(kMost, kLeast)}) {
    for (const int planes : {1, 3}) {
      auto source = Shaped<CVynImage>(6, 5, planes);
      qmr::test::Fill(source, [](int p, int x, int y) { return 300.0f + 20.0f * p + 5.0f * x + y; });
      for (int p = 0; p < planes; ++p) source.SetLevel(p, 100.0, 610.0 + p);
      CImgDrawText image;
      image.CopyImage(source);
      ASSERT_EQ(image.Do(&source, pos, L"text", &font, kColour, 1), 1);
      const float byte[] = {planes == 1 ? 80.0f : 32.0f, 64.0f, 128.0f};
      for (int p = 0; p < planes; ++p) {
        for (int y = 0; y < 5; ++y) {
          for (int x = 0; x < 6; ++x) {
            const float cover = CoverAt(static_cast<int>(x - std::int64_t{pos.x}),
                                        static_cast<int>(std::clamp<std::int64_t>(y - std::int64_t{pos.y}, -1, 9)));
            const float before = At(source, p, x, y) - 100.0f;
            EXPECT_NEAR(At(image, p, x, y), before * (1 - cover) + byte[p] * cover * (510.0f + p) / 255.0f + 100.0f,
                        1e-3)
                << p << " " << x << " " << y;
          }
        }
      }
      // The image may be its own background.
      CImgDrawText own;
      own.CopyImage(source);
      own.Do(&own, pos, L"text", &font, kColour, 1);
      EXPECT_EQ(Bytes(own), Bytes(image));
    }
  }
  EXPECT_EQ(dots.asked.lfHeight, -40);
  EXPECT_EQ(dots.asked.lfWidth, 14);
  EXPECT_EQ(dots.text, L"text");
}

TEST(DrawText, PlainTextCoversWholePixels) {
  GivenDots dots({"#.#", ".#."});
  LOGFONTW font = FontOf(12);
  auto image = Shaped<CImgDrawText>(5, 4, 1);
  qmr::test::Fill(image, [](int, int x, int y) { return 10.0f + x + 8.0f * y; });
  CVynImage before(image);
  ASSERT_EQ(image.Do(&image, {1, 2}, L"x", &font, 0xffffff, 0), 1);
  const auto inked = [](int x, int y) { return y == 2 ? x == 1 || x == 3 : y == 3 && x == 2; };
  // On levels 0 to 255 the way through the scales changes no bit of the background.
  EXPECT_TRUE(PixelsAre([&](int p, int x, int y) { return inked(x, y) ? 255.0f : At(before, p, x, y); }, image));
  EXPECT_EQ(dots.asked.lfHeight, 12);
  image.Do(&image, {1, 2}, L"x", &font, 0, 0);
  EXPECT_TRUE(PixelsAre([&](int p, int x, int y) { return inked(x, y) ? 0.0f : At(before, p, x, y); }, image));

  font.lfHeight = kLeast;
  image.Do(&image, {0, 0}, L"x", &font, 0, 1);
  EXPECT_EQ(dots.asked.lfHeight, kLeast);
}

TEST(DrawText, NothingToDrawLeavesTheBackground) {
  LOGFONTW font = FontOf(12);
  auto source = qmr::test::Noise(7, 5, 3, 8);
  // No extent at all, and one that smoothing leaves nothing of.
  for (const auto& rows : {std::vector<std::string>{}, std::vector<std::string>{"#"}}) {
    GivenDots dots(rows);
    auto image = Shaped<CImgDrawText>(7, 5, 3);
    EXPECT_EQ(image.Do(&source, {1, 1}, L"", &font, 0xffffff, 1), 1);
    EXPECT_TRUE(qmr::test::SamePixels(source, image));
  }
  // Without a bitmap, a font or a background the image is left alone.
  GivenDots dots(kBlocks);
  auto image = Shaped<CImgDrawText>(7, 5, 3);
  EXPECT_EQ(image.Do(nullptr, {1, 1}, L"x", &font, 0xffffff, 1), 0);
  EXPECT_EQ(image.Do(&source, {1, 1}, L"x", nullptr, 0xffffff, 1), 0);
  dots.any = false;
  EXPECT_EQ(image.Do(&source, {1, 1}, L"x", &font, 0xffffff, 1), 0);
  dots.any = true;
  dots.bitmap.dots.clear();
  EXPECT_EQ(image.Do(&source, {1, 1}, L"x", &font, 0xffffff, 1), 0);
  EXPECT_TRUE(PixelsAre([](int, int, int) { return 0.0f; }, image));
}

TEST(DrawText, OtherShapesThanTheBackgroundsWriteWhatBothHave) {
  GivenDots dots(kBlocks);
  LOGFONTW font = FontOf(12);
  for (const int planes : {1, 2, 3, 4})
    for (const int from : {1, 3}) {
      auto source = qmr::test::Noise(4, 3, from, 8);
      auto image = Shaped<CImgDrawText>(7, 5, planes);
      EXPECT_EQ(image.Do(&source, {0, 0}, L"x", &font, 0xffffff, 1), 1);
      EXPECT_NEAR(At(image, 0, 0, 0), 255.0f, 1e-4) << planes << from;
    }
  CImgDrawText none;
  EXPECT_EQ(none.Do(&none, {0, 0}, L"x", &font, 0xffffff, 1), 1);
}

// ---- Text from the fonts of the system --------------------------------------------------------------------------

int Ink(const TextBitmap& bitmap) {
  return std::accumulate(bitmap.dots.begin(), bitmap.dots.end(), 0);
}

TextBitmap Dots(std::wstring_view text, const LOGFONTW& font) {
  return DrawTextBitmap(text, font).value_or(TextBitmap());
}

class SystemFonts : public testing::Test {
 protected:
  void SetUp() override {
    if (!DrawTextBitmap(L"", FontOf(20))) GTEST_SKIP() << "no font is installed";
  }
};

// Ink in each row.
std::vector<int> RowInk(const TextBitmap& bitmap) {
  std::vector<int> rows;
  for (auto row = bitmap.dots.begin(); row != bitmap.dots.end(); row += bitmap.width)
    rows.push_back(std::accumulate(row, row + bitmap.width, 0));
  return rows;
}

TEST_F(SystemFonts, SizeIsCellOrEm) {
  const TextBitmap cell = Dots(L"Hxg", FontOf(40)), em = Dots(L"Hxg", FontOf(-40));
  EXPECT_EQ(cell.height, 40);
  EXPECT_GT(em.height, 40);
  EXPECT_GT(em.width, cell.width);
  EXPECT_EQ(Dots(L"Hxg", FontOf(0)).dots, Dots(L"Hxg", FontOf(-16)).dots);
  // The letter stands on the base line and fills about 0.7 of the em.
  const std::vector<int> rows = RowInk(Dots(L"H", FontOf(-40)));
  EXPECT_NEAR(std::count_if(rows.begin(), rows.end(), [](int ink) { return ink > 0; }), 28, 4);
  LOGFONTW wide = FontOf(-40);
  wide.lfWidth = 60;
  EXPECT_NEAR(Dots(L"average letters of all widths", wide).width, 60 * 29, 60 * 29 / 4);
  EXPECT_EQ(Dots(L"H", wide).height, em.height);
}

TEST_F(SystemFonts, StylesShow) {
  const std::wstring text = L"Orion Nebula";
  const TextBitmap regular = Dots(text, FontOf(-40));
  EXPECT_GT(Ink(Dots(text, FontOf(-40, FW_BOLD))), Ink(regular) * 5 / 4);
  EXPECT_NE(Dots(text, FontOf(-40, FW_NORMAL, true)).dots, regular.dots);
  LOGFONTW under = FontOf(-40), strike = under;
  under.lfUnderline = 1;
  strike.lfStrikeOut = 1;
  // The first row that is inked throughout.
  const auto fullRow = [](const TextBitmap& bitmap) {
    const std::vector<int> rows = RowInk(bitmap);
    return std::find(rows.begin(), rows.end(), bitmap.width) - rows.begin();
  };
  EXPECT_EQ(fullRow(regular), regular.height);
  EXPECT_LT(fullRow(Dots(text, under)), regular.height);
  EXPECT_LT(fullRow(Dots(text, strike)), fullRow(Dots(text, under)));
}

TEST_F(SystemFonts, TextIsOneLineOfTheCharactersAsTheyAre) {
  const LOGFONTW font = FontOf(-20);
  EXPECT_EQ(Dots(L"a\nb\tc", font).dots, Dots(L"a b c", font).dots);
  EXPECT_GT(Dots(L"a&b", font).width, Dots(L"ab", font).width);
  // A letter's dots do not depend on the text before it, which moves it by its advance.
  const TextBitmap one = Dots(L"M", font), two = Dots(L"MM", font);
  EXPECT_EQ(two.width, 2 * one.width);
  EXPECT_EQ(Ink(two), 2 * Ink(one));
}

TEST_F(SystemFonts, AnotherFontStandsInForOneThatIsNotThere) {
  const TextBitmap other = Dots(L"M31", FontOf(-20, FW_NORMAL, false, L"No Such Family"));
  EXPECT_FALSE(other.familyFound);
  EXPECT_FALSE(other.family.empty());
  EXPECT_GT(Ink(other), 0);
  LOGFONTW full = FontOf(-20);
  std::fill(std::begin(full.lfFaceName), std::end(full.lfFaceName), L'x');  // no zero at the end
  EXPECT_GT(Ink(Dots(L"M31", full)), 0);
}

TEST_F(SystemFonts, JapaneseTextIsDrawnWhereAFontHasIt) {
  LOGFONTW font = FontOf(-40);
  font.lfCharSet = SHIFTJIS_CHARSET;
  // The sign for a missing character is the same for both.
  const TextBitmap first = Dots(L"星", font), second = Dots(L"雲", font);
  if (first.dots == second.dots) GTEST_SKIP() << "no installed font has Japanese characters";
  EXPECT_GT(Ink(first), 100);
  EXPECT_NEAR(first.width, 40, 4);
  EXPECT_EQ(Dots(L"星雲", font).width, first.width + second.width);
}

TEST_F(SystemFonts, WhatIsTooLargeIsRefused) {
  EXPECT_FALSE(DrawTextBitmap(L"x", FontOf(kMost)));
  EXPECT_FALSE(DrawTextBitmap(L"x", FontOf(kLeast)));
  LOGFONTW wide = FontOf(20);
  wide.lfWidth = kLeast;
  EXPECT_FALSE(DrawTextBitmap(L"x", wide));
  EXPECT_FALSE(DrawTextBitmap(std::wstring(20000, L'M'), FontOf(200)));
  EXPECT_TRUE(DrawTextBitmap(L"x", FontOf(1)));
  CImgDrawText image = Shaped<CImgDrawText>(4, 4, 1);
  LOGFONTW huge = FontOf(kMost);
  EXPECT_EQ(image.Do(&image, {0, 0}, L"x", &huge, 0xffffff, 1), 0);
}

// In a process of its own, since fonts are listed once a process.
TEST(DrawTextDeathTest, WithoutAnyFontTheResultIsZero) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const std::string path = testing::TempDir() + "no_fonts.conf";
  std::ofstream(path) << "<?xml version=\"1.0\"?><fontconfig></fontconfig>\n";
  const auto draw = [&] {
    setenv("FONTCONFIG_FILE", path.c_str(), 1);
    auto image = Shaped<CImgDrawText>(20, 20, 1);
    LOGFONTW font = FontOf(12);
    std::exit(image.Do(&image, {0, 0}, L"text", &font, 0xffffff, 1) == 0 && Inked(image).empty() ? 7 : 1);
  };
  EXPECT_EXIT(draw(), testing::ExitedWithCode(7), "");
  std::remove(path.c_str());
}

}  // namespace
