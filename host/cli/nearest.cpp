#include "host/cli/nearest.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "host/files/file_error.h"

namespace qmr {
namespace {

// Letters to insert, drop or exchange, and neighbours to swap, to get from one word to the other.
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        d[i][j] = i + j;
        continue;
      }
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  }
  return d[a.size()][b.size()];
}

// The candidate that is at most a third of its letters away, or begins with the word; empty when there is none.
std::string Nearest(std::string_view word, const std::vector<std::string>& candidates) {
  std::string best;
  std::size_t least = static_cast<std::size_t>(-1);
  for (const std::string& candidate : candidates) {
    std::size_t distance = Distance(word, candidate);
    if (word.size() >= 3 && candidate.starts_with(word)) distance = 1;
    if (distance <= std::max<std::size_t>(1, candidate.size() / 3) && distance < least) {
      best = candidate;
      least = distance;
    }
  }
  return best;
}

}  // namespace

std::string UnknownWord(const CLI::App& program) {
  const std::vector<std::string> unknown = program.remaining(true);
  if (unknown.empty()) return {};
  const std::string& word = unknown.front();
  std::vector<std::string> candidates;
  const CLI::App* chosen = &program;
  for (;;) {
    if (word.starts_with('-'))
      for (const CLI::Option* option : chosen->get_options())
        for (const std::string& name : option->get_lnames()) candidates.push_back(name);
    const std::vector<CLI::App*> next = chosen->get_subcommands();
    if (next.empty()) break;
    chosen = next.back();
  }
  std::string line = PrintablePath(word) + ": ";
  std::string nearest;
  if (word.starts_with('-')) {
    const auto name = std::string_view(word).substr(std::min(word.find_first_not_of('-'), word.size()));
    nearest = Nearest(name.substr(0, name.find('=')), candidates);
    line += "no such option";
    if (!nearest.empty()) nearest.insert(0, "--");
  } else {
    for (const CLI::App* command : chosen->get_subcommands([](const CLI::App*) { return true; }))
      candidates.push_back(command->get_name());
    nearest = Nearest(word, candidates);
    line += candidates.empty()   ? "one word too many"
            : chosen == &program ? "no such command"
                                 : "no such " + chosen->get_name();
  }
  if (!nearest.empty()) line += "; did you mean " + nearest + "?";
  return line;
}

}  // namespace qmr
