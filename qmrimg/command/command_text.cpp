#include "qmrimg/command/command_text.h"

#include <algorithm>
#include <charconv>
#include <cwctype>
#include <limits>
#include <system_error>

namespace qmr {
namespace {

constexpr std::size_t kNone = std::wstring_view::npos;
constexpr std::wstring_view kWhiteSpace = L" \t\n\v\f\r";

bool IsDigit(wchar_t c) {
  return c >= L'0' && c <= L'9';
}

// What is left from `first` on, also behind the end.
std::wstring_view From(std::wstring_view text, std::size_t first) {
  return text.substr(std::min(first, text.size()));
}

std::wstring_view TrimRight(std::wstring_view text) {
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

wchar_t Fold(wchar_t c) {
  if (c >= L'A' && c <= L'Z') return static_cast<wchar_t>(c - L'A' + L'a');
  return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}

template <class Entries>
const typename Entries::value_type* FindByName(const Entries& entries, std::wstring_view name) {
  const auto found =
      std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return SameText(name, entry.name); });
  return found == entries.end() ? nullptr : &*found;
}

}  // namespace

const Command* FindCommand(std::wstring_view name) {
  return FindByName(kCommands, name);
}

const SharpMethodName* FindSharpMethod(std::wstring_view name) {
  return FindByName(kSharpMethods, name);
}

std::optional<std::wstring_view> StatementReader::Next() {
  if (rest_.empty()) return std::nullopt;
  const std::wstring_view statement = rest_.substr(0, rest_.find_first_of(kSeparators));
  rest_.remove_prefix(statement.size());
  rest_ = From(rest_, rest_.find_first_not_of(kSeparators));
  return statement;
}

std::optional<StatementParts> SplitStatement(std::wstring_view statement) {
  const std::wstring_view text = From(statement, statement.find_first_not_of(kBlanks));
  const std::size_t end = text.find_first_of(kBlanks);
  if (end == kNone) return std::nullopt;
  return StatementParts{text.substr(0, end), text.substr(end)};
}

std::wstring_view ReadValue(std::wstring_view arguments, std::wstring_view key) {
  // Only the first place counts, on purpose: a key that begins another one to its left reads as absent.
  const std::size_t at = arguments.find(key);
  if (at == kNone) return {};
  const std::size_t equals = arguments.find(L'=', at);
  if (equals == kNone) return {};
  if (!SameText(TrimRight(arguments.substr(at, equals - at)), key)) return {};
  const std::wstring_view value = arguments.substr(equals + 1);
  return value.substr(0, value.find_first_of(kBlanks));
}

bool HasKey(std::wstring_view arguments, std::wstring_view key) {
  for (std::size_t at = arguments.find(key); at != kNone; at = arguments.find(key, at + 1)) {
    std::wstring_view behind = From(arguments, at + key.size());
    if (!behind.empty() && kBlanks.find(behind.front()) != kNone) behind.remove_prefix(1);
    if (!behind.empty() && behind.front() == L'=') return true;
  }
  return false;
}

std::wstring KeyOfPlane(const CommandKey& key, std::size_t plane) {
  std::wstring name(key.name);
  if (plane < key.planes.size()) name.append({L'_', key.planes[plane]});
  return name;
}

bool SameText(std::wstring_view a, std::wstring_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](wchar_t x, wchar_t y) { return Fold(x) == Fold(y); });
}

std::wstring_view TrimBlanks(std::wstring_view text) {
  return TrimRight(From(text, text.find_first_not_of(kBlanks)));
}

ParsedNumber ParseNumber(std::wstring_view text) {
  const std::size_t size = text.size();
  std::size_t i = std::min(text.find_first_not_of(kWhiteSpace), size);
  std::string number;
  if (i < size && (text[i] == L'+' || text[i] == L'-')) {
    if (text[i] == L'-') number += '-';
    ++i;
  }
  // The place of the first digit that is not 0, counted from the point, tells a number too large from one too small.
  bool digits = false, point = false, significant = false;
  double magnitude = 0.0;
  for (; i < size && (IsDigit(text[i]) || (text[i] == L'.' && !point)); ++i) {
    number += static_cast<char>(text[i]);
    if (text[i] == L'.') {
      point = true;
      continue;
    }
    digits = true;
    significant = significant || text[i] != L'0';
    if (significant && !point) ++magnitude;
    if (!significant && point) --magnitude;
  }
  if (!digits) return {};
  std::size_t j = i;
  if (j < size && (text[j] == L'e' || text[j] == L'E')) {
    ++j;
    const bool negative = j < size && text[j] == L'-';
    if (j < size && (text[j] == L'+' || text[j] == L'-')) ++j;
    double exponent = 0.0;
    const std::size_t first = j;
    for (; j < size && IsDigit(text[j]); ++j) exponent = exponent * 10.0 + (text[j] - L'0');
    if (j > first) {
      number += negative ? "e-" : "e";
      for (std::size_t k = first; k < j; ++k) number += static_cast<char>(text[k]);
      magnitude += negative ? -exponent : exponent;
      i = j;
    }
  }
  ParsedNumber result{0.0, i};
  const auto end = number.data() + number.size();
  if (std::from_chars(number.data(), end, result.value).ec == std::errc::result_out_of_range) {
    result.value = significant && magnitude > 0.0 ? std::numeric_limits<double>::infinity() : 0.0;
    if (number.front() == '-') result.value = -result.value;
  }
  return result;
}

int ParseInteger(std::wstring_view text) {
  std::size_t i = std::min(text.find_first_not_of(kWhiteSpace), text.size());
  const bool negative = i < text.size() && text[i] == L'-';
  if (i < text.size() && (text[i] == L'+' || text[i] == L'-')) ++i;
  constexpr long long kLimit = 1LL + std::numeric_limits<int>::max();
  long long value = 0;
  for (; i < text.size() && IsDigit(text[i]); ++i) value = std::min(value * 10 + (text[i] - L'0'), kLimit);
  return static_cast<int>(negative ? -value : std::min(value, kLimit - 1));
}

}  // namespace qmr
