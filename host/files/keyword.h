#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qmr {

/// A value of a keyword; monostate is a keyword that stands without a value.
using KeywordValue = std::variant<std::monostate, std::string, std::int64_t, double, bool>;

/// One header entry. HISTORY, COMMENT and blank-named entries carry their text as a string value and no comment.
struct Keyword {
  std::string name;  ///< upper case, without trailing blanks
  KeywordValue value;
  std::string comment;

  bool IsCommentary() const { return name.empty() || name == "COMMENT" || name == "HISTORY"; }

  static Keyword Text(std::string name, std::string value, std::string comment = {});
  static Keyword Integer(std::string name, std::int64_t value, std::string comment = {});
  static Keyword Real(std::string name, double value, std::string comment = {});
  static Keyword Logical(std::string name, bool value, std::string comment = {});
  static Keyword Comment(std::string text);
  static Keyword History(std::string text);

  bool operator==(const Keyword&) const = default;
};

/// The first entry of that name (any case), or null.
const Keyword* FindKeyword(std::span<const Keyword> keywords, std::string_view name);

/// The value as a number: integers, reals and texts that are wholly a number ("40", " 6.0 "). Empty otherwise.
std::optional<double> KeywordNumber(std::span<const Keyword> keywords, std::string_view name);

/// The value as text without blanks at its ends; numbers in their shortest form, logicals T or F.
/// Empty when the entry is missing, has no value or is blank.
std::optional<std::string> KeywordText(std::span<const Keyword> keywords, std::string_view name);

/// The value of one entry as text, as KeywordText() writes it, but empty text where there is none.
std::string ValueText(const KeywordValue& value);

/// True for the entries that say how the file stores its pixels (SIMPLE, BITPIX, NAXISn, BZERO, CHECKSUM, table and
/// compression keywords ...) and for DATAMIN and DATAMAX: they do not survive a change of the pixels, and the writer
/// leaves them out.
bool IsStructuralKeyword(std::string_view name);

/// Number in a text, blanks at both ends allowed; Fortran's D exponent and a leading plus sign are read.
std::optional<double> ParseNumber(std::string_view text);

std::string_view TrimBlanks(std::string_view text);
std::string UpperCase(std::string_view text);

}  // namespace qmr
