// How the bytes of a file of odd texts become a chain, for the fuzz target and the tests.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "qmrimg/platform/text.h"

namespace qmr::test {

struct CorpusText {
  std::wstring wide;
  // What the checker gets for it.
  std::string utf8;
};

// UTF-8, or where the last byte is 0xFF, which ends no such text, the wide characters before it as they stand.
inline CorpusText ReadCorpusText(std::string_view bytes) {
  if (bytes.size() % sizeof(wchar_t) != 1 || bytes.back() != '\xFF') return {WidenUtf8(bytes), std::string(bytes)};
  CorpusText text{std::wstring(bytes.size() / sizeof(wchar_t), L'\0'), {}};
  std::memcpy(text.wide.data(), bytes.data(), text.wide.size() * sizeof(wchar_t));
  text.utf8 = NarrowUtf8(text.wide);
  return text;
}

}  // namespace qmr::test
