// A line of text as dots, from the fonts of the system.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qmrimg/platform/font.h"

namespace qmr {

// Dots row after row, from the top. Height is that of the font's line, width the sum of the advances: what a letter
// reaches beyond that, as italics may, is cut off. Both are 0 for an empty text.
struct TextBitmap {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> dots;  // width * height, 1 where there is ink, else 0
  std::wstring family;              // of the font that was chosen, whatever other fonts helped out
  bool familyFound = true;          // false when another one stands in for the one that was asked for
};

// Draws without shades. None when there is no font, or the bitmap would have more than kMaxTextDots dots. May be called
// on any thread; calls wait for each other. Raises std::bad_alloc.
inline constexpr int kMaxTextDots = 1 << 26;
QMR_API std::optional<TextBitmap> DrawTextBitmap(std::wstring_view text, const LOGFONTW& font);

// Draws in place of the system's fonts; false for no bitmap.
using TextBitmapHook = bool (*)(std::wstring_view text, const LOGFONTW& font, TextBitmap& bitmap, void* context);

// Installs a hook; null brings the fonts back. To be set before operations run.
QMR_API void SetTextBitmapHook(TextBitmapHook hook, void* context);

// Height and width of a font times `factor`, as far as these numbers go.
QMR_API LOGFONTW ScaledFont(LOGFONTW font, int factor);

}  // namespace qmr
