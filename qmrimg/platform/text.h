// Wide text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "qmrimg/platform/export.h"

// A wide string with the handful of members that the library and its hosts use. Characters are `wchar_t`
// (one Unicode code point each on Linux).
class QMR_API CString {
 public:
  CString() = default;
  CString(const wchar_t* text);
  CString(std::wstring text);
  CString(const CString&) = default;
  CString(CString&&) noexcept = default;
  CString& operator=(const CString&) = default;
  CString& operator=(CString&&) noexcept = default;
  ~CString();

  int GetLength() const;
  bool IsEmpty() const;
  void Empty();
  // The text; valid until the string changes.
  const wchar_t* GetString() const;
  operator const wchar_t*() const { return GetString(); }
  // The character at `index`; 0 outside the text.
  wchar_t GetAt(int index) const;

  CString& MakeLower();
  CString& MakeUpper();
  CString& TrimLeft();
  CString& TrimRight();
  CString Left(int count) const;
  CString Right(int count) const;
  CString Mid(int first, int count = -1) const;
  // Index of the first occurrence at or after `start`, -1 for none.
  int Find(const wchar_t* text, int start = 0) const;
  int Find(wchar_t character, int start = 0) const;
  int Compare(const wchar_t* text) const;
  int CompareNoCase(const wchar_t* text) const;
  // printf-style, wide.
  void Format(const wchar_t* format, ...);

  CString& operator+=(const CString& other);
  CString& operator+=(const wchar_t* other);
  CString& operator+=(wchar_t character);
  friend QMR_API CString operator+(const CString& a, const CString& b);
  friend QMR_API bool operator==(const CString& a, const CString& b);
  friend QMR_API bool operator==(const CString& a, const wchar_t* b);

 private:
  std::wstring text_;
};

namespace qmr {

// Conversions between UTF-8 and wide text. Bytes that are no UTF-8 become U+FFFD.
QMR_API std::wstring WidenUtf8(std::string_view text);
QMR_API std::string NarrowUtf8(std::wstring_view text);

}  // namespace qmr
