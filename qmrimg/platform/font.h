// The description that a font is chosen by.
#pragma once

#include "qmrimg/platform/object.h"

inline constexpr LONG FW_DONTCARE = 0;
inline constexpr LONG FW_NORMAL = 400;
inline constexpr LONG FW_BOLD = 700;

inline constexpr BYTE DEFAULT_CHARSET = 1;
inline constexpr BYTE SHIFTJIS_CHARSET = 128;
inline constexpr BYTE HANGUL_CHARSET = 129;
inline constexpr BYTE GB2312_CHARSET = 134;
inline constexpr BYTE CHINESEBIG5_CHARSET = 136;

inline constexpr BYTE DEFAULT_PITCH = 0;
inline constexpr BYTE FIXED_PITCH = 1;
inline constexpr BYTE FF_ROMAN = 1 << 4;
inline constexpr BYTE FF_SWISS = 2 << 4;
inline constexpr BYTE FF_MODERN = 3 << 4;

// Plain data. A record of zeros is a valid one: the default font in its default size.
struct LOGFONTW {
  // Pixels: above 0 the height of the line from the top of the highest to the bottom of the lowest letter, below 0
  // the em height with its sign turned, 0 an em of 16 pixels.
  LONG lfHeight;
  // Pixels of the average letter across; 0 for the proportion that the font was drawn in. The sign has no effect.
  LONG lfWidth;
  // Both accepted and without effect: text runs from left to right.
  LONG lfEscapement;
  LONG lfOrientation;
  // 1 to 1000, FW_DONTCARE is FW_NORMAL. A font that has no bold face is made bolder.
  LONG lfWeight;
  // Flags. A font that has no italic face is slanted.
  BYTE lfItalic;
  BYTE lfUnderline;
  BYTE lfStrikeOut;
  // The East Asian sets choose among the forms of characters that these languages share; others have no effect.
  BYTE lfCharSet;
  // These three are accepted and have no effect.
  BYTE lfOutPrecision;
  BYTE lfClipPrecision;
  BYTE lfQuality;
  // Low bits the pitch, high bits the family: the kind of font to take where the face isn't installed.
  BYTE lfPitchAndFamily;
  // Family name, ended by a zero where it is shorter than the array; empty for any.
  wchar_t lfFaceName[32];
};
