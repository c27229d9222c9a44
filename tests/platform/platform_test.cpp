// Text, arrays, points, memory blocks, message boxes, devices.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "qmrimg/platform/array.h"
#include "qmrimg/platform/device.h"
#include "qmrimg/platform/geometry.h"
#include "qmrimg/platform/global_memory.h"
#include "qmrimg/platform/message_box.h"
#include "qmrimg/platform/text.h"
#include "qmrimg/platform/truncate.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

TEST(Text, CutsAndSearchesWithinItsLength) {
  const CString text(L"  Sharp=1.5, 星  ");
  CString trimmed = text;
  trimmed.TrimLeft().TrimRight();
  EXPECT_TRUE(trimmed == L"Sharp=1.5, 星");
  EXPECT_EQ(trimmed.Find(L"=1"), 5);
  EXPECT_EQ(trimmed.Find(L'S', 1), -1);
  EXPECT_EQ(trimmed.Find(L"x", 999), -1);
  EXPECT_TRUE(trimmed.Mid(6, 3) == L"1.5");
  EXPECT_TRUE(trimmed.Mid(50) == L"");
  EXPECT_TRUE(trimmed.Left(-3) == L"");
  EXPECT_TRUE(trimmed.Right(100) == trimmed);
  EXPECT_EQ(trimmed.GetAt(99), 0);
  EXPECT_EQ(trimmed.CompareNoCase(L"sHARP=1.5, 星"), 0);
  EXPECT_NE(trimmed.Compare(L"sharp=1.5, 星"), 0);
  // A null pointer is an empty text.
  const wchar_t* const none = nullptr;
  EXPECT_EQ(CString(none).Compare(none), 0);
  EXPECT_FALSE(trimmed == none);
  EXPECT_EQ(trimmed.Find(none, 2), 2);
}

TEST(Text, FormatsAnyLength) {
  CString text;
  text.Format(L"%.2f秒 %d", 1.005, 7);
  EXPECT_TRUE(text == L"1.00秒 7");
  const std::wstring longText(5000, L'x');
  text.Format(L"%ls|", longText.c_str());
  EXPECT_EQ(text.GetLength(), 5001);
}

TEST(Text, Utf8GoesThereAndBack) {
  const std::wstring wide = L"aé星\U0001F320";
  EXPECT_EQ(WidenUtf8(NarrowUtf8(wide)), wide);
  EXPECT_EQ(WidenUtf8("a\xFFz"), L"a\uFFFDz");
  EXPECT_EQ(WidenUtf8("\xE6\x98").front(), L'\uFFFD') << "cut in the middle";
}

TEST(Array, RaisesTheInvalidArgumentExceptionOutside) {
  CArray<int> array;
  array.SetSize(3);
  EXPECT_EQ(array[2], 0);
  array.SetAt(1, 5);
  EXPECT_EQ(array.Add(7), 3);
  for (const int index : {-1, 4}) {
    EXPECT_TRUE(Raises<CInvalidArgException>([&] { array[index] = 1; }));
  }
}

TEST(Array, LackOfMemoryIsTheMemoryException) {
  struct Starved {
    Starved() { throw std::bad_alloc(); }
  };
  CArray<Starved> array;
  EXPECT_TRUE(Raises<CMemoryException>([&] { array.SetSize(2); }));
  EXPECT_EQ(array.GetSize(), 0);
}

TEST(Points, TruncateTowardsZeroWhateverTheValue) {
  const CfPoint point(-2.9, 3.9);
  EXPECT_EQ(point.IntX(), -2);
  EXPECT_EQ(point.IntY(), 3);
  EXPECT_EQ(point.x, -2.9);
  const CPoint& base = point;
  EXPECT_EQ(base.y, 3);
  EXPECT_EQ(CfPoint(7, 8).y, 8.0);
  EXPECT_EQ(TruncateToInt(std::nan("")), 0);
  EXPECT_EQ(TruncateToInt(1e300), INT_MAX);
  EXPECT_EQ(TruncateToInt(-std::numeric_limits<double>::infinity()), INT_MIN);
}

TEST(MessageBox, GoesThroughTheHook) {
  unsigned shown = 0;
  SetMessageBoxHook(
      [](const wchar_t* text, unsigned flags, void* context) {
        *static_cast<unsigned*>(context) = flags;
        return text == std::wstring(L"処理がキャンセルされました。") ? 42 : 0;
      },
      &shown);
  EXPECT_EQ(AfxMessageBox(6149, MB_ICONINFORMATION, static_cast<unsigned>(-1)), 42);
  EXPECT_EQ(shown, 64u);
  SetMessageBoxHook(nullptr, nullptr);
}

// ---- Devices
// ------------------------------------------------------------------------------------------------------

// A window of `bits` bits with a colour ramp.
void PaintRamp(CWnd& window, int width, int height) {
  ASSERT_TRUE(window.SetClientSize(width, height));
  const DeviceBitmap& bitmap = *window.GetDC()->GetCurrentBitmap();
  for (int y = 0; y < height; ++y)
    for (int i = 0; i < width * bitmap.bitCount / 8; ++i) bitmap.Line(y)[i] = static_cast<BYTE>(37 * i + 11 * y + 1);
}

class Devices : public testing::TestWithParam<std::tuple<int, DWORD>> {};

TEST_P(Devices, CombineBitsWithinBothBitmaps) {
  const auto [bits, rop] = GetParam();
  CWnd from(bits), to(bits);
  PaintRamp(from, 9, 7);
  PaintRamp(to, 6, 5);
  const int bytes = bits / 8;
  const DeviceBitmap& source = *from.GetDC()->GetCurrentBitmap();
  const DeviceBitmap& target = *to.GetDC()->GetCurrentBitmap();
  const auto byte = [bytes](const DeviceBitmap& b, int x, int y, int k) { return b.Line(y)[x * bytes + k]; };
  std::vector<BYTE> before(target.bits, target.bits + target.lineBytes * target.height);
  // Target columns -2..7, source columns 1..10 of 9.
  ASSERT_TRUE(to.GetDC()->BitBlt(-2, 1, 10, 20, from.GetDC(), 1, -1, rop));
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 6; ++x) {
      for (int k = 0; k < bytes; ++k) {
        const int old = before[static_cast<std::size_t>((4 - y) * target.lineBytes + x * bytes + k)];
        const int sx = x + 3, sy = y - 2;
        int expected = old;
        if (sx < 9 && sy >= 0) {
          const int s = byte(source, sx, sy, k);
          expected = rop == SRCCOPY ? s : rop == SRCAND ? (s & old) : rop == SRCPAINT ? (s | old) : (s ^ old);
        }
        ASSERT_EQ(byte(target, x, y, k), expected) << x << ", " << y;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(DepthsAndOperations, Devices,
                         testing::Combine(testing::Values(8, 16, 24, 32),
                                          testing::Values(SRCCOPY, SRCAND, SRCPAINT, SRCINVERT)));

TEST(Device, StretchesToTheNearestPixel) {
  CWnd from(32), to(32);
  PaintRamp(from, 3, 2);
  ASSERT_TRUE(to.SetClientSize(9, 6));
  ASSERT_TRUE(to.GetDC()->StretchBlt(0, 0, 9, 6, from.GetDC(), 0, 0, 3, 2, SRCCOPY));
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 9; ++x)
      EXPECT_EQ(to.GetDC()->GetPixel(x, y), from.GetDC()->GetPixel(x / 3, y / 3)) << x << ", " << y;
  EXPECT_FALSE(to.GetDC()->StretchBlt(0, 0, -9, 6, from.GetDC(), 0, 0, 3, 2, SRCCOPY));
  EXPECT_FALSE(to.GetDC()->StretchBlt(0, 0, 9, 6, nullptr, 0, 0, 3, 2, SRCCOPY));
  EXPECT_FALSE(CDC().BitBlt(0, 0, 1, 1, from.GetDC(), 0, 0, SRCCOPY));
}

TEST(Device, ConvertsBetweenDepths) {
  CWnd deep(32), low(16);
  ASSERT_TRUE(deep.SetClientSize(1, 1));
  ASSERT_TRUE(low.SetClientSize(1, 1));
  deep.GetDC()->GetCurrentBitmap()->bits[1] = 0x88;
  deep.GetDC()->GetCurrentBitmap()->bits[2] = 0xFF;
  ASSERT_TRUE(low.GetDC()->BitBlt(0, 0, 1, 1, deep.GetDC(), 0, 0, SRCCOPY));
  EXPECT_EQ(low.GetDC()->GetPixel(0, 0), 0x008CFFu);
  EXPECT_EQ(low.GetDC()->GetDeviceCaps(BITSPIXEL), 16);
  low.SetDeviceDepth(8);
  EXPECT_EQ(low.GetDC()->GetDeviceCaps(BITSPIXEL), 8);
  EXPECT_EQ(low.GetDC()->GetPixel(0, 0), 0xFFFFFFFFu);
}

}  // namespace
}  // namespace qmr::test
