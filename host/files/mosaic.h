#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/files/file_error.h"
#include "host/files/keyword.h"

namespace qmr {

/// What lies on the sensor, in the order of the pixels in memory.
///
/// Pixels stay in file order everywhere: row 0 in memory is the first row of the file. The pattern that development
/// needs is therefore the one of file order: `number` describes the cell of rows 0, 1 and columns 0, 1 of memory.
///
/// A BAYERPAT text describes the picture as displayed. Without ROWORDER, or with TOP-DOWN, the file's first row is the
/// top one and the letters are those of memory. With BOTTOM-UP the file's first row is the bottom one: displayed row d
/// is memory row height - 1 - d, so memory row 0 has the parity of height - 1: the two rows of letters change places
/// when the height is even, and stay when it is odd. XBAYROFF and YBAYROFF (also BAYOFFX, BAYOFFY) shift the cell in
/// displayed coordinates; only their parity counts.
struct MosaicLayout {
  enum class Kind { None, Bayer, HoneyComb, Unsupported };
  Kind kind = Kind::None;
  /// Bayer: 1 RGGB, 2 GRBG, 3 BGGR, 4 GBRG, honeycomb: 11 to 14 (the developers' numbers), 0 without a mosaic,
  /// otherwise the number that the camera list gave.
  int number = 0;
  std::string text;  ///< for people: "RGGB from BAYERPAT"
  /// The user named a pattern, but the image has several planes and so no mosaic.
  bool namedInVain = false;

  /// Bayer or honeycomb.
  bool CanBeDeveloped() const { return kind == Kind::Bayer || kind == Kind::HoneyComb; }
  /// Rows and columns after which sites of one kind come again: 2, 4 on a honeycomb, 1 without a mosaic.
  int Cell() const { return kind == Kind::Bayer ? 2 : kind == Kind::HoneyComb ? 4 : 1; }
};

struct MosaicQuestion {
  std::span<const Keyword> keywords;
  int height = 0;
  int planes = 1;
  /// Layout number that the camera list gave for maker and model, in the order of memory.
  std::optional<int> cameraPattern;
  /// The user's word: a Bayer pattern, "11" to "14" for a honeycomb or "none", any case. Describes memory order and
  /// overrules everything.
  std::optional<std::string> user;
};

/// The user's word wins, then the file's keywords, then the camera list. Images of several planes hold no mosaic.
/// An unreadable user's word is an error (path empty); an unreadable keyword is Kind::Unsupported with a text that says
/// so, as guessing would spoil the colours silently.
FileResult<MosaicLayout> ResolveMosaic(const MosaicQuestion& question);

/// "RGGB" and its like, any case, to 1..4; 0 for anything else.
int BayerNumber(std::string_view letters);
/// 1..4 to its letters; empty otherwise.
std::string_view BayerLetters(int number);

/// Colour (0 red, 1 green, 2 blue) of a site of the layouts 1 to 4 and 11 to 14; -1 where a honeycomb has no photosite
/// (rows and columns of one parity), and for any other layout. Row and column count from 0, negative ones as well.
int SiteColour(int number, int row, int column);

}  // namespace qmr
