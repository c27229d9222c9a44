#include "host/files/fits_header.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

namespace qmr {
namespace {

constexpr std::size_t kCard = 80;

std::string_view TrimEnd(std::string_view text) {
  const auto last = text.find_last_not_of(' ');
  return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

KeywordValue PlainValue(std::string_view text) {
  if (text.empty()) return std::monostate();
  if (text == "T") return true;
  if (text == "F") return false;
  std::string_view digits = text;
  if (digits.size() > 1 && digits.front() == '+' && digits[1] != '-') digits.remove_prefix(1);
  std::int64_t integer = 0;
  const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), integer);
  if (error == std::errc() && stop == digits.data() + digits.size()) return integer;
  if (const auto number = ParseNumber(text)) return *number;
  return std::string(text);
}

// The part behind "=", or behind CONTINUE: 'text' or a plain value, then a comment behind a slash.
void ReadValue(std::string_view field, KeywordValue& value, std::string& comment) {
  const auto start = field.find_first_not_of(' ');
  if (start == std::string_view::npos) return;
  field.remove_prefix(start);
  std::size_t end = 0;
  if (field.front() == '\'') {
    std::string text;
    for (end = 1; end < field.size(); ++end) {
      if (field[end] == '\'') {
        if (end + 1 >= field.size() || field[end + 1] != '\'') break;
        ++end;
      }
      text += field[end];
    }
    value = std::string(TrimEnd(text));
    end = std::min(end + 1, field.size());
  } else {
    end = std::min(field.find('/'), field.size());
    value = PlainValue(TrimBlanks(field.substr(0, end)));
  }
  const auto slash = field.find('/', end);
  if (slash != std::string_view::npos) comment = TrimBlanks(field.substr(slash + 1));
}

Keyword ReadCard(std::string_view card) {
  Keyword keyword;
  keyword.name = UpperCase(TrimEnd(card.substr(0, 8)));
  if (keyword.IsCommentary()) {
    keyword.value = std::string(TrimEnd(card.substr(8)));
    return keyword;
  }
  std::size_t field = 9;
  bool hasValue = card[8] == '=';
  if (keyword.name == "HIERARCH") {
    const auto equals = card.find('=');
    hasValue = equals != std::string_view::npos;
    if (hasValue) {
      keyword.name = UpperCase(TrimBlanks(card.substr(8, equals - 8)));
      field = equals + 1;
    }
  }
  if (hasValue) {
    ReadValue(card.substr(field), keyword.value, keyword.comment);
  } else {
    keyword.comment = TrimBlanks(card.substr(8));
  }
  return keyword;
}

// Takes the card as the rest of the text before it, if that text asks for one.
bool Continue(std::vector<Keyword>& keywords, std::string_view card) {
  if (keywords.empty() || keywords.back().IsCommentary()) return false;
  auto* text = std::get_if<std::string>(&keywords.back().value);
  if (!text || !text->ends_with('&')) return false;
  KeywordValue more;
  ReadValue(card.substr(8), more, keywords.back().comment);
  const auto* moreText = std::get_if<std::string>(&more);
  if (!moreText) return false;
  text->pop_back();
  *text += *moreText;
  return true;
}

}  // namespace

std::vector<Keyword> ParseFitsHeader(std::string_view cards, std::size_t limit) {
  std::vector<Keyword> keywords;
  std::array<char, kCard> clean;
  for (; cards.size() >= kCard && keywords.size() < limit; cards.remove_prefix(kCard)) {
    std::transform(cards.begin(), cards.begin() + kCard, clean.begin(),
                   [](char c) { return static_cast<unsigned char>(c) < 0x20 ? ' ' : c; });
    const std::string_view card(clean.data(), clean.size());
    const std::string_view name = TrimEnd(card.substr(0, 8));
    if (name == "END") break;
    if (TrimEnd(card).empty() || (name == "CONTINUE" && Continue(keywords, card))) continue;
    keywords.push_back(ReadCard(card));
  }
  return keywords;
}

}  // namespace qmr
