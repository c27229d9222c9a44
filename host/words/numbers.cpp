#include "host/words/numbers.h"

#include <charconv>
#include <cmath>
#include <cstddef>

namespace qmr {

std::optional<std::vector<double>> SplitNumbers(std::string_view text) {
  std::vector<double> numbers;
  for (;;) {
    const std::size_t comma = text.find(',');
    std::string_view part = text.substr(0, comma);
    if (part.starts_with('+')) part.remove_prefix(1);
    double value = 0.0;
    const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), value);
    if (error != std::errc() || end != part.data() + part.size() || !std::isfinite(value)) return std::nullopt;
    numbers.push_back(value);
    if (comma == std::string_view::npos) return numbers;
    text.remove_prefix(comma + 1);
  }
}

}  // namespace qmr
