#include "qmrimg/platform/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cwchar>
#include <cwctype>
#include <utility>
#include <vector>

namespace {

// A null pointer is an empty text.
const wchar_t* OrEmpty(const wchar_t* text) {
  return text ? text : L"";
}

}  // namespace

CString::CString(const wchar_t* text) : text_(OrEmpty(text)) {}
CString::CString(std::wstring text) : text_(std::move(text)) {}
CString::~CString() = default;

int CString::GetLength() const {
  return static_cast<int>(text_.size());
}
bool CString::IsEmpty() const {
  return text_.empty();
}
void CString::Empty() {
  text_.clear();
}
const wchar_t* CString::GetString() const {
  return text_.c_str();
}

wchar_t CString::GetAt(int index) const {
  return index >= 0 && index < GetLength() ? text_[static_cast<std::size_t>(index)] : L'\0';
}

CString& CString::MakeLower() {
  for (wchar_t& c : text_) c = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
  return *this;
}

CString& CString::MakeUpper() {
  for (wchar_t& c : text_) c = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
  return *this;
}

CString& CString::TrimLeft() {
  const auto first =
      std::find_if(text_.begin(), text_.end(), [](wchar_t c) { return !std::iswspace(static_cast<std::wint_t>(c)); });
  text_.erase(text_.begin(), first);
  return *this;
}

CString& CString::TrimRight() {
  while (!text_.empty() && std::iswspace(static_cast<std::wint_t>(text_.back()))) text_.pop_back();
  return *this;
}

CString CString::Left(int count) const {
  return Mid(0, std::max(count, 0));
}

CString CString::Right(int count) const {
  const int n = std::clamp(count, 0, GetLength());
  return Mid(GetLength() - n, n);
}

CString CString::Mid(int first, int count) const {
  const int begin = std::clamp(first, 0, GetLength());
  const int rest = GetLength() - begin;
  const int n = count < 0 ? rest : std::min(count, rest);
  return CString(text_.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(n)));
}

int CString::Find(const wchar_t* text, int start) const {
  if (start < 0 || start > GetLength()) return -1;
  const auto at = text_.find(OrEmpty(text), static_cast<std::size_t>(start));
  return at == std::wstring::npos ? -1 : static_cast<int>(at);
}

int CString::Find(wchar_t character, int start) const {
  const wchar_t text[2] = {character, L'\0'};
  return Find(text, start);
}

int CString::Compare(const wchar_t* text) const {
  return text_.compare(OrEmpty(text));
}
int CString::CompareNoCase(const wchar_t* text) const {
  return ::wcscasecmp(text_.c_str(), OrEmpty(text));
}

void CString::Format(const wchar_t* format, ...) {
  // vswprintf does not tell the length that it needs, so the buffer doubles until the text fits.
  std::vector<wchar_t> buffer(256);
  for (;;) {
    std::va_list arguments;
    va_start(arguments, format);
    const int written = std::vswprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    if (written >= 0) {
      text_.assign(buffer.data(), static_cast<std::size_t>(written));
      return;
    }
    if (buffer.size() > (std::size_t{1} << 20)) return;
    buffer.resize(buffer.size() * 2);
  }
}

CString& CString::operator+=(const CString& other) {
  text_ += other.text_;
  return *this;
}
CString& CString::operator+=(const wchar_t* other) {
  text_ += OrEmpty(other);
  return *this;
}
CString& CString::operator+=(wchar_t character) {
  text_ += character;
  return *this;
}

CString operator+(const CString& a, const CString& b) {
  CString sum = a;
  sum += b;
  return sum;
}
bool operator==(const CString& a, const CString& b) {
  return a.text_ == b.text_;
}
bool operator==(const CString& a, const wchar_t* b) {
  return a.text_ == OrEmpty(b);
}

namespace qmr {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

// Decodes one code point at `i` and moves `i` behind it.
std::uint32_t NextCodePoint(std::string_view text, std::size_t& i) {
  const auto lead = static_cast<unsigned char>(text[i++]);
  if (lead < 0x80) return lead;
  const int extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : -1;
  if (extra < 0 || lead > 0xF4) return kReplacement;
  std::uint32_t code = lead & (0x3Fu >> extra);
  for (int k = 0; k < extra; ++k) {
    if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return kReplacement;
    code = (code << 6) | (static_cast<unsigned char>(text[i++]) & 0x3Fu);
  }
  constexpr std::uint32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  return code < kLeast[extra] || code > 0x10FFFF || surrogate ? kReplacement : code;
}

}  // namespace

std::wstring WidenUtf8(std::string_view text) {
  std::wstring wide;
  wide.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) wide.push_back(static_cast<wchar_t>(NextCodePoint(text, i)));
  return wide;
}

std::string NarrowUtf8(std::wstring_view text) {
  std::string narrow;
  for (const wchar_t wide : text) {
    auto code = static_cast<std::uint32_t>(wide);
    if (code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) code = kReplacement;
    if (code < 0x80) {
      narrow.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
      narrow.push_back(static_cast<char>(0xC0 | (code >> 6)));
      narrow.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
      narrow.push_back(static_cast<char>(0xE0 | (code >> 12)));
      narrow.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
      narrow.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
      narrow.push_back(static_cast<char>(0xF0 | (code >> 18)));
      narrow.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
      narrow.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
      narrow.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
  }
  return narrow;
}

}  // namespace qmr
