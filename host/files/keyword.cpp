#include "host/files/keyword.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace qmr {
namespace {

char Upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool SameName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return Upper(x) == Upper(y); });
}

bool IsDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

Keyword Keyword::Text(std::string name, std::string value, std::string comment) {
  return {std::move(name), std::move(value), std::move(comment)};
}
Keyword Keyword::Integer(std::string name, std::int64_t value, std::string comment) {
  return {std::move(name), value, std::move(comment)};
}
Keyword Keyword::Real(std::string name, double value, std::string comment) {
  return {std::move(name), value, std::move(comment)};
}
Keyword Keyword::Logical(std::string name, bool value, std::string comment) {
  return {std::move(name), value, std::move(comment)};
}
Keyword Keyword::Comment(std::string text) {
  return {"COMMENT", std::move(text), {}};
}
Keyword Keyword::History(std::string text) {
  return {"HISTORY", std::move(text), {}};
}

std::string_view TrimBlanks(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string UpperCase(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(), Upper);
  return upper;
}

std::optional<double> ParseNumber(std::string_view text) {
  std::string digits(TrimBlanks(text));
  if (digits.empty() || digits.size() > 100) return std::nullopt;
  for (char& c : digits) {
    // from_chars would also take "inf" and "nan", which are no numbers here.
    if (c == 'd' || c == 'D') c = 'E';
    if (!((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E')) return std::nullopt;
  }
  const char* begin = digits.data();
  const char* const end = begin + digits.size();
  if (*begin == '+') {
    ++begin;
    if (begin == end || *begin == '-') return std::nullopt;
  }
  double value = 0.0;
  const auto [stop, error] = std::from_chars(begin, end, value);
  if (error != std::errc() || stop != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::string ValueText(const KeywordValue& value) {
  struct Writer {
    std::string operator()(std::monostate) const { return {}; }
    std::string operator()(const std::string& text) const { return std::string(TrimBlanks(text)); }
    std::string operator()(std::int64_t number) const { return std::to_string(number); }
    std::string operator()(double number) const {
      std::array<char, 32> digits;
      const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
      return {digits.data(), end};
    }
    std::string operator()(bool flag) const { return flag ? "T" : "F"; }
  };
  return std::visit(Writer{}, value);
}

const Keyword* FindKeyword(std::span<const Keyword> keywords, std::string_view name) {
  const auto found = std::find_if(keywords.begin(), keywords.end(),
                                  [name](const Keyword& keyword) { return SameName(keyword.name, name); });
  return found == keywords.end() ? nullptr : &*found;
}

std::optional<double> KeywordNumber(std::span<const Keyword> keywords, std::string_view name) {
  const Keyword* keyword = FindKeyword(keywords, name);
  if (!keyword) return std::nullopt;
  if (const auto* number = std::get_if<double>(&keyword->value)) {
    return std::isfinite(*number) ? std::optional(*number) : std::nullopt;
  }
  if (const auto* number = std::get_if<std::int64_t>(&keyword->value)) return static_cast<double>(*number);
  if (const auto* text = std::get_if<std::string>(&keyword->value)) return ParseNumber(*text);
  return std::nullopt;
}

std::optional<std::string> KeywordText(std::span<const Keyword> keywords, std::string_view name) {
  const Keyword* keyword = FindKeyword(keywords, name);
  if (!keyword) return std::nullopt;
  std::string text = ValueText(keyword->value);
  return text.empty() ? std::nullopt : std::optional(std::move(text));
}

bool IsStructuralKeyword(std::string_view name) {
  static constexpr std::array<std::string_view, 39> kExact = {
      "SIMPLE",   "XTENSION", "BITPIX",   "NAXIS",    "EXTEND",   "PCOUNT",   "GCOUNT",   "GROUPS",
      "END",      "CONTINUE", "LONGSTRN", "BSCALE",   "BZERO",    "BLANK",    "DATAMIN",  "DATAMAX",
      "CHECKSUM", "DATASUM",  "TFIELDS",  "THEAP",    "ZIMAGE",   "ZCMPTYPE", "ZBITPIX",  "ZNAXIS",
      "ZSIMPLE",  "ZTENSION", "ZEXTEND",  "ZPCOUNT",  "ZGCOUNT",  "ZHECKSUM", "ZDATASUM", "ZBLANK",
      "ZSCALE",   "ZZERO",    "ZQUANTIZ", "ZDITHER0", "ZMASKCMP", "ZBLOCKED", "FZALGOR"};
  static constexpr std::array<std::string_view, 16> kNumbered = {"NAXIS", "ZNAXIS", "ZTILE", "ZNAME", "ZVAL",  "TTYPE",
                                                                 "TFORM", "TUNIT",  "TNULL", "TSCAL", "TZERO", "TDISP",
                                                                 "TDIM",  "TBCOL",  "ZFORM", "ZCTYP"};
  const std::string upper = UpperCase(name);
  if (std::find(kExact.begin(), kExact.end(), upper) != kExact.end()) return true;
  return std::any_of(kNumbered.begin(), kNumbered.end(), [&](std::string_view stem) {
    return upper.starts_with(stem) && IsDigits(std::string_view(upper).substr(stem.size()));
  });
}

}  // namespace qmr
