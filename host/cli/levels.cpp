// `qmr levels`: display levels, shown and set.
#include <algorithm>
#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "host/cli/commands.h"
#include "host/cli/terminal_steps.h"
#include "host/files/file_error.h"
#include "host/levels/find_levels.h"
#include "host/levels/levels_text.h"
#include "host/night/failure.h"
#include "host/words/nearest.h"

namespace qmr {
namespace {

struct Arguments {
  // One option a key, whichever method it belongs to.
  struct Said {
    std::string key;
    std::string words;
    CLI::Option* option;
  };
  std::deque<Said> said;  // options point into it
  std::string method, input, output;
  bool linked = false, unlinked = false, json = false, force = false, verbose = false, quiet = false;
};

std::vector<std::string> MethodNames() {
  std::vector<std::string> names;
  for (const LevelMethod& method : LevelMethods()) names.emplace_back(method.name);
  return names;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) (text += text.empty() ? "" : ", ") += word;
  return text;
}

// The methods that have a parameter of that key.
std::vector<std::string> MethodsWith(std::string_view key) {
  std::vector<std::string> names;
  for (const LevelMethod& method : LevelMethods())
    for (const Parameter* parameter : ParametersOf(method))
      if (parameter->key == key) names.emplace_back(method.name);
  return names;
}

const LevelMethod* MethodOf(const Arguments& arguments) {
  std::string name = arguments.method;
  if (name.empty()) {
    for (const Arguments::Said& said : arguments.said)
      if (said.option->count() > 0 && (said.key == "black" || said.key == "white")) name = "manual";
    if (name.empty()) return nullptr;
  }
  if (const LevelMethod* method = FindLevelMethod(name)) return method;
  const std::string nearest = Nearest(name, MethodNames());
  throw Failure(kExitUsage,
                "--method: " + (nearest.empty() ? "one of " + Joined(MethodNames()) + ", not '" : "no such method '") +
                    PrintablePath(name) + "'" + (nearest.empty() ? "" : "; did you mean " + nearest + "?"));
}

[[noreturn]] void RefuseOption(const std::string& option, const std::string& owner, const LevelMethod* method) {
  throw Failure(kExitUsage,
                option + ": belongs to " + owner + (method ? ", not to " + std::string(method->name) : std::string()));
}

LevelsRequest RequestOf(const Arguments& arguments) {
  LevelsRequest request;
  request.method = MethodOf(arguments);
  if (request.method) request.settings.emplace(ParametersOf(*request.method));
  for (const Arguments::Said& said : arguments.said) {
    if (said.option->count() == 0) continue;
    const Parameter* own = nullptr;
    if (request.method)
      for (const Parameter* parameter : ParametersOf(*request.method))
        if (parameter->key == said.key) own = parameter;
    if (!own) RefuseOption("--" + said.key, "--method " + Joined(MethodsWith(said.key)), request.method);
    request.settings->Read(*own, said.words);
  }
  if (arguments.linked || arguments.unlinked) {
    const std::string option = arguments.linked ? "--linked" : "--unlinked";
    if (arguments.linked && arguments.unlinked) throw Failure(kExitUsage, "--linked: not with --unlinked");
    if (!request.method || !request.method->measures)
      RefuseOption(option, "methods that measure pixels", request.method);
    request.unlinked = arguments.unlinked;
  }
  request.input = arguments.input;
  request.output = arguments.output;
  request.force = arguments.force;
  if (request.output.empty() && request.force) throw Failure(kExitUsage, "--force: there is no OUT to replace");
  request.tellSame = arguments.verbose || arguments.json;
  request.tell = request.output.empty() || request.tellSame;
  return request;
}

int RunLevels(const Arguments& arguments) {
  LevelsRequest request = RequestOf(arguments);
  TerminalSteps steps(arguments.quiet);
  const LevelsReport report = FindLevels(request, steps);
  if (arguments.json) {
    std::fputs(LevelsJson(report, request.input).c_str(), stdout);
  } else {
    if (arguments.verbose) std::printf("%s\n", report.command.c_str());
    if (request.tell) std::fputs(LevelsTable(report).c_str(), stdout);
    if (!request.output.empty() && !arguments.quiet) std::printf("wrote %s\n", PrintablePath(request.output).c_str());
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) throw Failure(kExitIo, "cannot write to standard output");
  return kExitDone;
}

}  // namespace

void AddLevels(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = program.add_subcommand("levels", "Shows which values are black and white, or sets them");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->add_option("IN", arguments->input, "FITS file, one or three planes")->required()->option_text(" ");
  command
      ->add_option("OUT", arguments->output,
                   "The same pixels with these levels: FITS (.fit, .fits, .fts) with CBLACK and CWHITE, or 16-bit PNG "
                   "from black to white. Without it the levels are printed")
      ->option_text(" ");
  command
      ->add_option("--method", arguments->method,
                   "How to find them, see below; by default those that the other commands take: of the file, else of "
                   "the sky")
      ->option_text("NAME");
  command->add_flag("--linked", arguments->linked, "One setting for all planes, which keeps the colours");
  command->add_flag("--unlinked", arguments->unlinked, "Each plane its own, which makes the sky grey");
  for (const LevelMethod& method : LevelMethods()) {
    for (const Parameter* parameter : ParametersOf(method)) {
      const std::string key(parameter->key);
      if (std::any_of(arguments->said.begin(), arguments->said.end(), [&](const auto& s) { return s.key == key; }))
        continue;
      Arguments::Said& said = arguments->said.emplace_back(Arguments::Said{key, {}, nullptr});
      const bool shared = parameter == &MeasuredRectangle();
      said.option = command
                        ->add_option("--" + key, said.words,
                                     shared ? Describe(*parameter) : "Of " + Joined(MethodsWith(key)) + ", see below")
                        ->option_text(ValueForm(*parameter));
    }
  }
  command->add_flag("--json", arguments->json, "Print JSON");
  command->add_flag("--force,-f", arguments->force, "Replace OUT if it exists");
  command->add_flag("--verbose,-v", arguments->verbose,
                    "Print the levels also where OUT is written, and which settings would give the same");
  command->add_flag("--quiet,-q", arguments->quiet, "Say nothing but what was asked for, warnings and errors");
  command->footer(MethodsText() + "\nA list gives each plane its own value: --black 100,120,90.");
  command->callback([arguments, &run] { run = [arguments] { return RunLevels(*arguments); }; });
}

}  // namespace qmr
