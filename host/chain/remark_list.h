// The remarks on one text, and how they speak of its words.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/chain/check_chain.h"
#include "host/words/nearest.h"
#include "qmrimg/platform/text.h"

namespace qmr {

// See ChainRemark: a warning, an error, and one where the run ends.
enum class Weight { kWarning, kError, kEnd };

class RemarkList {
 public:
  // Keeps a view.
  explicit RemarkList(std::wstring_view text);

  // `at` is a view into the text.
  void Say(std::wstring_view at, Weight weight, std::string text);
  int LineOf(std::wstring_view at) const;
  // The entry whose name the word may have meant, as the end of a remark. A text with many faults is no chain, and gets
  // no more of them.
  template <class Entries>
  std::string Suggestion(std::wstring_view word, const Entries& entries) const {
    constexpr std::size_t kLongest = 30;
    constexpr std::size_t kMostRemarks = 20;
    if (word.size() > kLongest || remarks_.size() > kMostRemarks) return {};
    std::vector<std::string> names;
    for (const auto& entry : entries) names.push_back(NarrowUtf8(entry.name));
    const std::string nearest = Nearest(UpperCase(word), names);
    return nearest.empty() ? nearest : "; did you mean " + nearest + "?";
  }

  // In the order of the text.
  std::vector<ChainRemark> Sorted() &&;

 private:
  static std::string UpperCase(std::wstring_view word);

  std::wstring_view text_;
  std::vector<std::size_t> lines_{0};
  std::vector<ChainRemark> remarks_;
};

// A word for a remark: short, and without characters that could do things to a terminal.
std::string Quoted(std::wstring_view word);

}  // namespace qmr
