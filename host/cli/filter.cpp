// `qmr filter`: one filter of the library on one file.
#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/cli/commands.h"
#include "host/cli/terminal_steps.h"
#include "host/files/file_error.h"
#include "host/filters/filter_table.h"
#include "host/filters/run_filter.h"
#include "host/night/failure.h"

namespace qmr {
namespace {

// What the user said of one filter, word by word.
struct Arguments {
  struct Said {
    const Parameter* parameter;
    CLI::Option* option;
    std::string words;
    bool on = false;
  };
  std::deque<Said> said;  // options point into it
  std::string input, output, bayer;
  bool force = false, verbose = false, quiet = false;
};

int RunCommand(const FilterSpec& filter, const Arguments& arguments) {
  FilterRequest request{&filter,        Settings(ParametersOf(filter)), arguments.input, arguments.output, {},
                        arguments.force};
  for (const Arguments::Said& said : arguments.said)
    if (said.option->count() > 0) request.settings.Read(*said.parameter, said.words);
  if (!arguments.bayer.empty()) request.bayer = arguments.bayer;
  TerminalSteps steps(arguments.quiet);
  const FilterReport report = RunFilter(request, steps);
  if (arguments.verbose) {
    std::printf("%s\n", report.command.c_str());
    std::printf("levels from %s\n", report.levelsFrom.c_str());
    if (!report.mosaic.empty()) std::printf("mosaic: %s\n", report.mosaic.c_str());
    if (report.blankPixels > 0) std::printf("%zu pixels without a value stay so\n", report.blankPixels);
  }
  if (!arguments.quiet) std::printf("wrote %s\n", PrintablePath(request.output).c_str());
  return kExitDone;
}

void AddOneFilter(CLI::App& command, const FilterSpec& filter, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* leaf = command.add_subcommand(std::string(filter.name), std::string(filter.summary));
  leaf->group(std::string(filter.group));
  for (const Parameter* parameter : ParametersOf(filter)) {
    Arguments::Said& said = arguments->said.emplace_back(Arguments::Said{parameter, nullptr, {}, false});
    const std::string name = "--" + std::string(parameter->key);
    said.option = parameter->kind == ValueKind::kSwitch
                      ? leaf->add_flag(name, said.on, Describe(*parameter))
                      : leaf->add_option(name, said.words, Describe(*parameter))->option_text(ValueForm(*parameter));
  }
  leaf->add_option("IN", arguments->input, "FITS file, one or three planes")->required()->option_text(" ");
  leaf->add_option("OUT", arguments->output,
                   "32-bit FITS (.fit, .fits, .fts) with the keywords of IN, or 16-bit PNG from black to white")
      ->required()
      ->option_text(" ");
  leaf->add_option("--bayer", arguments->bayer,
                   "The sensor's mosaic: RGGB, GRBG, BGGR, GBRG or none; else the file tells")
      ->option_text("PATTERN");
  leaf->add_flag("--force,-f", arguments->force, "Replace OUT if it exists");
  leaf->add_flag("--verbose,-v", arguments->verbose, "Print all settings and the levels that were found");
  leaf->add_flag("--quiet,-q", arguments->quiet, "Say nothing but warnings and errors");
  leaf->callback([&filter, arguments, &run] { run = [&filter, arguments] { return RunCommand(filter, *arguments); }; });
}

std::string ListText() {
  std::string text;
  const auto rows = [&](const std::vector<Parameter>& parameters) {
    for (const Parameter& parameter : parameters) {
      text.append("      --").append(parameter.key);
      if (const std::string form = ValueForm(parameter); !form.empty()) text.append(" ").append(form);
      text.append("\n          ").append(Describe(parameter)).append("\n");
    }
  };
  std::string_view group;
  for (const FilterSpec& filter : Filters()) {
    if (filter.group != group) text.append(group.empty() ? "" : "\n").append(filter.group).append("\n");
    group = filter.group;
    text.append("\n  ").append(filter.name).append("\n      ").append(filter.summary).append("\n");
    rows(filter.parameters);
    if (filter.selects) text += filter.keepsBright ? "      selection, --keep-brighter\n" : "      selection\n";
  }
  text += "\nSelection, where a filter has one\n\n";
  rows(SelectionParameters());
  rows(BrightnessParameters());
  text += "\nAll filters\n\n";
  rows(CommonParameters());
  return text;
}

}  // namespace

void AddFilter(CLI::App& program, Run& run) {
  CLI::App* command = program.add_subcommand("filter", "Runs one filter on one image: qmr filter NAME ... IN OUT");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->require_subcommand(0, 1);
  command->footer(
      "`qmr filter NAME --help` explains a filter. Levels count from 0, black, to 255, white; bright stars lie above.\n"
      "A list gives each plane its own value: --sigma 1,1,2.");
  // Told at once, whatever else the line lacks.
  command
      ->add_flag_function(
          "--list", [](std::int64_t) { throw CLI::CallForVersion(ListText(), 0); },
          "Print all filters with their parameters, units and ranges")
      ->trigger_on_parse();
  for (const FilterSpec& filter : Filters()) AddOneFilter(*command, filter, run);
  command->callback([command, &run] {
    if (command->get_subcommands().empty())
      run = []() -> int { throw Failure(kExitUsage, "name a filter; `qmr filter --list` prints them all"); };
  });
}

}  // namespace qmr
