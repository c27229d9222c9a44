#include "qmrimg/drawing/text_bitmap.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <span>

#include "qmrimg/platform/text.h"
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include FT_TRUETYPE_TABLES_H

namespace qmr {
namespace {

TextBitmapHook textBitmapHook = nullptr;
void* textBitmapContext = nullptr;
// One call at a time: what fontconfig shares between calls, its callers' settings included, is not ours alone.
std::mutex fontMutex;

constexpr int kDefaultEm = 16;
// FreeType's coordinates are 16 bits in places.
constexpr int kMaxEm = 8192;
constexpr int kBoldFrom = 600;

template <auto destroy>
struct Destroy {
  template <class T>
  void operator()(T* handle) const {
    destroy(handle);
  }
};
using Library = std::unique_ptr<FT_LibraryRec_, Destroy<FT_Done_FreeType>>;
using Face = std::unique_ptr<FT_FaceRec_, Destroy<FT_Done_Face>>;
using Pattern = std::unique_ptr<FcPattern, Destroy<FcPatternDestroy>>;
using FontSet = std::unique_ptr<FcFontSet, Destroy<FcFontSetDestroy>>;

int RoundShift(FT_Pos v) {
  return static_cast<int>((v + 32) >> 6);
}

const FcChar8* Utf8(const std::string& text) {
  return reinterpret_cast<const FcChar8*>(text.c_str());
}

std::wstring FaceName(const LOGFONTW& font) {
  const wchar_t* end = std::find(std::begin(font.lfFaceName), std::end(font.lfFaceName), L'\0');
  return {font.lfFaceName, end};
}

const char* GenericFamily(const LOGFONTW& font) {
  const int family = font.lfPitchAndFamily & 0xf0;
  if (family == FF_MODERN || (font.lfPitchAndFamily & 3) == FIXED_PITCH) return "monospace";
  return family == FF_ROMAN ? "serif" : "sans-serif";
}

const char* Language(BYTE charSet) {
  constexpr struct {
    BYTE charSet;
    const char* language;
  } kLanguages[] = {
      {SHIFTJIS_CHARSET, "ja"}, {HANGUL_CHARSET, "ko"}, {GB2312_CHARSET, "zh-cn"}, {CHINESEBIG5_CHARSET, "zh-tw"}};
  for (const auto& entry : kLanguages)
    if (entry.charSet == charSet) return entry.language;
  return nullptr;
}

int WeightOf(const LOGFONTW& font) {
  return font.lfWeight == FW_DONTCARE ? static_cast<int>(FW_NORMAL)
                                      : std::clamp(static_cast<int>(font.lfWeight), 1, 1000);
}

// The installed fonts that fit best, each of them with characters that those before it lack.
FontSet FindFonts(const LOGFONTW& font) {
  const Pattern pattern(FcPatternCreate());
  if (!pattern || !FcInit()) return nullptr;
  const std::wstring name = FaceName(font);
  if (!name.empty()) FcPatternAddString(pattern.get(), FC_FAMILY, Utf8(NarrowUtf8(name)));
  FcPatternAddString(pattern.get(), FC_FAMILY, Utf8(GenericFamily(font)));
  FcPatternAddInteger(pattern.get(), FC_WEIGHT, FcWeightFromOpenType(WeightOf(font)));
  FcPatternAddInteger(pattern.get(), FC_SLANT, font.lfItalic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
  FcPatternAddBool(pattern.get(), FC_SCALABLE, FcTrue);
  // The instances of a variable font are listed as fonts of their own.
  FcPatternAddBool(pattern.get(), FC_VARIABLE, FcFalse);
  if (const char* language = Language(font.lfCharSet)) FcPatternAddString(pattern.get(), FC_LANG, Utf8(language));
  FcConfigSubstitute(nullptr, pattern.get(), FcMatchPattern);
  FcDefaultSubstitute(pattern.get());
  FcResult result = FcResultNoMatch;
  return FontSet(FcFontSort(nullptr, pattern.get(), FcTrue, nullptr, &result));
}

bool HasFamily(const FcPattern* pattern, const std::wstring& name) {
  const std::string wanted = NarrowUtf8(name);
  FcChar8* family = nullptr;
  for (int i = 0; FcPatternGetString(pattern, FC_FAMILY, i, &family) == FcResultMatch; ++i)
    if (FcStrCmpIgnoreCase(family, Utf8(wanted)) == 0) return true;
  return false;
}

// Sizes in pixels that the fonts of one line share. The em is in 64ths.
struct LineSize {
  FT_Pos emX = 0;
  FT_Pos emY = 0;
  int ascent = 0;
  int height = 0;
};

// A face at its size, with what makes it bold or slanted where its designer did not.
struct SizedFace {
  Face face;
  bool embolden = false;
  FT_Pos bolder = 0;

  bool Open(FT_Library library, const FcPattern* pattern, const LOGFONTW& font) {
    FcChar8* file = nullptr;
    int index = 0;
    if (FcPatternGetString(pattern, FC_FILE, 0, &file) != FcResultMatch) return false;
    FcPatternGetInteger(pattern, FC_INDEX, 0, &index);
    FT_Face opened = nullptr;
    if (FT_New_Face(library, reinterpret_cast<const char*>(file), index, &opened)) return false;
    face.reset(opened);
    if (!FT_IS_SCALABLE(opened) || opened->units_per_EM <= 0) return false;
    // Symbol fonts have no Unicode map, and draw nothing of a text.
    if (FT_Select_Charmap(opened, FT_ENCODING_UNICODE)) return false;

    int weight = FC_WEIGHT_REGULAR;
    FcPatternGetInteger(pattern, FC_WEIGHT, 0, &weight);
    embolden = WeightOf(font) >= kBoldFrom && weight <= FC_WEIGHT_MEDIUM;
    int slant = FC_SLANT_ROMAN;
    FcPatternGetInteger(pattern, FC_SLANT, 0, &slant);
    if (font.lfItalic && slant == FC_SLANT_ROMAN) {
      FT_Matrix lean = {0x10000, 0x10000 / 5, 0, 0x10000};
      FT_Set_Transform(opened, &lean, nullptr);
    }
    return true;
  }

  bool SetSize(const LineSize& size) {
    constexpr int kEmParts = 24;
    bolder = embolden ? std::max<FT_Pos>((size.emX / kEmParts + 32) & ~FT_Pos{63}, 64) : 0;
    FT_Size_RequestRec request = {FT_SIZE_REQUEST_TYPE_NOMINAL, size.emX, size.emY, 0, 0};
    return FT_Request_Size(face.get(), &request) == 0;
  }
};

// What the face measures, in units of its em.
struct FaceMetrics {
  double em, ascent, descent, averageWidth, strikePosition, strikeSize;
};

FaceMetrics MetricsOf(FT_Face face) {
  const double em = face->units_per_EM;
  FaceMetrics metrics = {
      em, static_cast<double>(face->ascender), -static_cast<double>(face->descender), 0.5 * em, 0.3 * em, em / 20.0};
  if (const auto* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
      os2 && os2->version != 0xffff) {
    if (os2->usWinAscent + os2->usWinDescent > 0) {
      metrics.ascent = os2->usWinAscent;
      metrics.descent = os2->usWinDescent;
    }
    if (os2->xAvgCharWidth > 0) metrics.averageWidth = os2->xAvgCharWidth;
    if (os2->yStrikeoutSize > 0 && os2->yStrikeoutPosition > 0) {
      metrics.strikePosition = os2->yStrikeoutPosition;
      metrics.strikeSize = os2->yStrikeoutSize;
    }
  }
  if (!(metrics.ascent + metrics.descent > 0.0)) {
    metrics.ascent = 0.8 * em;
    metrics.descent = 0.2 * em;
  }
  return metrics;
}

// False when the size can't be had.
bool SizeOf(const FaceMetrics& metrics, const LOGFONTW& font, LineSize& size) {
  const double cell = metrics.ascent + metrics.descent;
  double em = -static_cast<double>(font.lfHeight);
  if (font.lfHeight == 0) em = kDefaultEm;
  if (font.lfHeight > 0) em = font.lfHeight * metrics.em / cell;
  const double across =
      font.lfWidth == 0 ? em : std::abs(static_cast<double>(font.lfWidth)) * metrics.em / metrics.averageWidth;
  if (!(em <= kMaxEm && across <= kMaxEm)) return false;
  const auto parts = [](double v) { return std::max<FT_Pos>(static_cast<FT_Pos>(v * 64.0 + 0.5), 1); };
  size.emX = parts(across);
  size.emY = parts(em);
  const double ascent = em * metrics.ascent / metrics.em;
  size.ascent = static_cast<int>(std::lround(ascent));
  size.height = font.lfHeight > 0 ? static_cast<int>(font.lfHeight)
                                  : size.ascent + static_cast<int>(std::lround(em * metrics.descent / metrics.em));
  size.height = std::max(size.height, 1);
  return true;
}

bool IsControl(wchar_t c) {
  return c < 0x20 || (c >= 0x7f && c < 0xa0) || c == 0x2028 || c == 0x2029;
}

class TextLine {
 public:
  // False when there is no font, or none in that size.
  bool Open(const LOGFONTW& font) {
    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library)) return false;
    library_.reset(library);
    font_ = &font;
    fonts_ = FindFonts(font);
    if (!fonts_) return false;
    faces_.resize(static_cast<std::size_t>(fonts_->nfont));
    tried_.resize(faces_.size());
    for (first_ = 0; first_ < faces_.size(); ++first_) {
      SizedFace& face = faces_[first_];
      tried_[first_] = true;
      if (!face.Open(library, fonts_->fonts[first_], font)) {
        face.face.reset();
        continue;
      }
      metrics_ = MetricsOf(face.face.get());
      return SizeOf(metrics_, font, size_) && face.SetSize(size_);
    }
    return false;
  }

  void NameFamily(TextBitmap& bitmap) const {
    const FcPattern* pattern = fonts_->fonts[first_];
    FcChar8* family = nullptr;
    if (FcPatternGetString(pattern, FC_FAMILY, 0, &family) == FcResultMatch)
      bitmap.family = WidenUtf8(reinterpret_cast<const char*>(family));
    const std::wstring asked = FaceName(*font_);
    bitmap.familyFound = asked.empty() || HasFamily(pattern, asked);
  }

  // The advances of the characters; their sum, or none when that is too much.
  std::optional<int> Measure(std::wstring_view text) {
    const std::int64_t widest = kMaxTextDots / size_.height;
    std::int64_t width = 0;
    for (const wchar_t c : text) {
      Glyph glyph = GlyphOf(c);
      if (Load(glyph)) glyph.advance = std::max(RoundShift(Slot(glyph)->advance.x + Face(glyph).bolder), 0);
      width += glyph.advance;
      if (width > widest) return std::nullopt;
      glyphs_.push_back(glyph);
    }
    return static_cast<int>(width);
  }

  int Height() const { return size_.height; }

  void Draw(TextBitmap& bitmap) {
    std::int64_t x = 0;
    for (const Glyph& glyph : glyphs_) {
      if (Load(glyph)) DrawGlyph(glyph, x, bitmap);
      x += glyph.advance;
    }
    const auto pixels = [this](double units) {
      return static_cast<int>(std::lround(units * static_cast<double>(size_.emY) / 64.0 / metrics_.em));
    };
    const FT_Face face = faces_[first_].face.get();
    if (font_->lfUnderline)
      DrawRule(pixels(face->underline_position + face->underline_thickness / 2.0), pixels(face->underline_thickness),
               bitmap);
    if (font_->lfStrikeOut) DrawRule(pixels(metrics_.strikePosition), pixels(metrics_.strikeSize), bitmap);
  }

 private:
  struct Glyph {
    std::size_t font;
    FT_UInt index;
    int advance;
  };

  SizedFace& Face(const Glyph& glyph) { return faces_[glyph.font]; }
  FT_GlyphSlot Slot(const Glyph& glyph) { return Face(glyph).face->glyph; }

  bool Ready(std::size_t i) {
    SizedFace& face = faces_[i];
    if (!tried_[i]) {
      tried_[i] = true;
      if (!face.Open(library_.get(), fonts_->fonts[i], *font_) || !face.SetSize(size_)) face.face.reset();
    }
    return face.face != nullptr;
  }

  // In the first font that has the character, else the sign for a missing one in the chosen font.
  Glyph GlyphOf(wchar_t character) {
    const FT_ULong c = IsControl(character) ? ' ' : static_cast<FT_ULong>(character);
    for (std::size_t i = first_; i < faces_.size(); ++i) {
      FcCharSet* has = nullptr;
      // The face need not be opened where the list says that it lacks the character.
      if (i != first_ && FcPatternGetCharSet(fonts_->fonts[i], FC_CHARSET, 0, &has) == FcResultMatch &&
          !FcCharSetHasChar(has, static_cast<FcChar32>(c)))
        continue;
      if (!Ready(i)) continue;
      if (const FT_UInt index = FT_Get_Char_Index(faces_[i].face.get(), c)) return {i, index, 0};
    }
    return {first_, 0, 0};
  }

  bool Load(const Glyph& glyph) {
    return FT_Load_Glyph(Face(glyph).face.get(), glyph.index, FT_LOAD_TARGET_MONO | FT_LOAD_NO_BITMAP) == 0 &&
           Slot(glyph)->format == FT_GLYPH_FORMAT_OUTLINE;
  }

  void DrawGlyph(const Glyph& glyph, std::int64_t x, TextBitmap& bitmap) {
    const FT_GlyphSlot slot = Slot(glyph);
    if (const FT_Pos bolder = Face(glyph).bolder) FT_Outline_EmboldenXY(&slot->outline, bolder, 0);
    if (FT_Render_Glyph(slot, FT_RENDER_MODE_MONO)) return;
    const FT_Bitmap& ink = slot->bitmap;
    const std::int64_t left = x + slot->bitmap_left;
    const std::int64_t top = size_.ascent - slot->bitmap_top;
    for (unsigned row = 0; row < ink.rows; ++row) {
      const std::int64_t y = top + row;
      if (y < 0 || y >= bitmap.height) continue;
      const unsigned char* bits = ink.buffer + static_cast<std::ptrdiff_t>(row) * ink.pitch;
      unsigned char* dots = bitmap.dots.data() + y * bitmap.width;
      const std::int64_t first = std::max<std::int64_t>(-left, 0);
      const std::int64_t end = std::min<std::int64_t>(ink.width, bitmap.width - left);
      for (std::int64_t i = first; i < end; ++i)
        if (bits[i >> 3] >> (7 - (i & 7)) & 1) dots[left + i] = 1;
    }
  }

  // Its upper edge stands `above` pixels over the base line.
  void DrawRule(int above, int thickness, TextBitmap& bitmap) {
    const int top = std::clamp(size_.ascent - above, 0, bitmap.height - 1);
    const int bottom = std::min(top + std::max(thickness, 1), bitmap.height);
    const auto width = static_cast<std::ptrdiff_t>(bitmap.width);
    std::fill(bitmap.dots.begin() + top * width, bitmap.dots.begin() + bottom * width, 1);
  }

  Library library_;  // outlives the faces
  FontSet fonts_;
  std::vector<SizedFace> faces_;
  std::vector<bool> tried_;
  std::size_t first_ = 0;
  const LOGFONTW* font_ = nullptr;
  FaceMetrics metrics_ = {};
  LineSize size_;
  std::vector<Glyph> glyphs_;
};

bool IsWhole(const TextBitmap& bitmap) {
  return bitmap.width >= 0 && bitmap.height >= 0 &&
         static_cast<std::size_t>(bitmap.width) * static_cast<std::size_t>(bitmap.height) <= bitmap.dots.size();
}

}  // namespace

void SetTextBitmapHook(TextBitmapHook hook, void* context) {
  textBitmapHook = hook;
  textBitmapContext = context;
}

std::optional<TextBitmap> DrawTextBitmap(std::wstring_view text, const LOGFONTW& font) {
  TextBitmap bitmap;
  if (textBitmapHook) {
    if (!textBitmapHook(text, font, bitmap, textBitmapContext) || !IsWhole(bitmap)) return std::nullopt;
    return bitmap;
  }
  const std::lock_guard lock(fontMutex);
  TextLine line;
  if (!line.Open(font)) return std::nullopt;
  line.NameFamily(bitmap);
  if (text.empty()) return bitmap;
  const std::optional<int> width = line.Measure(text);
  if (!width) return std::nullopt;
  bitmap.width = *width;
  bitmap.height = line.Height();
  bitmap.dots.resize(static_cast<std::size_t>(bitmap.width) * static_cast<std::size_t>(bitmap.height));
  line.Draw(bitmap);
  return bitmap;
}

LOGFONTW ScaledFont(LOGFONTW font, int factor) {
  const auto times = [factor](LONG v) {
    using Limits = std::numeric_limits<LONG>;
    return static_cast<LONG>(std::clamp<std::int64_t>(std::int64_t{v} * factor, Limits::min(), Limits::max()));
  };
  font.lfHeight = times(font.lfHeight);
  font.lfWidth = times(font.lfWidth);
  return font;
}

}  // namespace qmr
