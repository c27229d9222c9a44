#include "host/cli/unknown_word.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "host/files/file_error.h"
#include "host/words/nearest.h"

namespace qmr {
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
    const auto key = name.substr(0, name.find('='));
    nearest = Nearest(key, candidates);
    // An option of the last command that stands before it.
    if (nearest == key && word.starts_with("--")) return line + "has its place behind " + chosen->get_name();
    line += "no such option";
    if (!nearest.empty()) nearest.insert(0, "--");
  } else {
    for (const CLI::App* command : chosen->get_subcommands([](const CLI::App*) { return true; }))
      candidates.push_back(command->get_name());
    nearest = Nearest(word, candidates);
    line += candidates.empty()   ? "one word too many"
            : chosen == &program ? "no such command"
                                 : "qmr " + chosen->get_name() + " has nothing of that name";
  }
  if (!nearest.empty()) line += "; did you mean " + nearest + "?";
  return line;
}

}  // namespace qmr
