#include "host/chain/remark_list.h"

#include <algorithm>
#include <utility>

namespace qmr {

RemarkList::RemarkList(std::wstring_view text) : text_(text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool pair = text[i] == L'\r' && i + 1 < text.size() && text[i + 1] == L'\n';
    if ((text[i] == L'\n' || text[i] == L'\r') && !pair) lines_.push_back(i + 1);
  }
}

void RemarkList::Say(std::wstring_view at, Weight weight, std::string text) {
  const int line = LineOf(at);
  const std::size_t begin = lines_[static_cast<std::size_t>(line - 1)];
  const auto column = static_cast<std::size_t>(at.data() - text_.data()) - begin + 1;
  remarks_.push_back(
      {line, static_cast<int>(column), weight != Weight::kWarning, weight == Weight::kEnd, std::move(text)});
}

int RemarkList::LineOf(std::wstring_view at) const {
  const auto offset = static_cast<std::size_t>(at.data() - text_.data());
  return static_cast<int>(std::upper_bound(lines_.begin(), lines_.end(), offset) - lines_.begin());
}

std::vector<ChainRemark> RemarkList::Sorted() && {
  std::stable_sort(remarks_.begin(), remarks_.end(), [](const ChainRemark& a, const ChainRemark& b) {
    return std::pair(a.line, a.column) < std::pair(b.line, b.column);
  });
  return std::move(remarks_);
}

std::string RemarkList::UpperCase(std::wstring_view word) {
  std::string upper = NarrowUtf8(word);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

std::string Quoted(std::wstring_view word) {
  constexpr std::size_t kLongest = 40;
  std::wstring shown(word.substr(0, kLongest));
  for (wchar_t& c : shown) {
    const bool direction = (c >= 0x200B && c < 0x2010) || (c >= 0x2028 && c < 0x202F) || (c >= 0x2066 && c < 0x206A);
    const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0) || direction || c == 0xFEFF;
    if (control) c = L'?';
  }
  if (word.size() > kLongest) shown += L"...";
  return std::string("'").append(NarrowUtf8(shown)).append("'");
}

}  // namespace qmr
