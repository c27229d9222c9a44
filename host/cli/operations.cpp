// `qmr filter`, `qmr adjust` and the geometric commands: one operation of the library on one file.
#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/cli/commands.h"
#include "host/cli/operation_family.h"
#include "host/cli/terminal_steps.h"
#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "host/operations/operation.h"
#include "host/operations/run_operation.h"

namespace qmr {
namespace {

// What the user said of one operation, word by word.
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

int RunCommand(const OperationFamily& family, const OperationSpec& operation, const Arguments& arguments) {
  OperationRequest request{
      &family, &operation, Settings(ParametersOf(operation)), arguments.input, arguments.output, {}, arguments.force};
  for (const Arguments::Said& said : arguments.said)
    if (said.option->count() > 0) request.settings.Read(*said.parameter, said.words);
  if (!arguments.bayer.empty()) request.bayer = arguments.bayer;
  TerminalSteps steps(arguments.quiet);
  const OperationReport report = RunOperation(request, steps);
  if (arguments.verbose) {
    std::printf("%s\n", report.command.c_str());
    std::printf("levels from %s\n", report.levelsFrom.c_str());
    if (!report.mosaic.empty()) std::printf("mosaic: %s\n", report.mosaic.c_str());
    if (report.blankPixels > 0) std::printf("%zu pixels without a value stay so\n", report.blankPixels);
  }
  if (arguments.quiet) return kExitDone;
  for (const std::string& remark : report.remarks) std::printf("  %s\n", remark.c_str());
  std::printf("wrote %s\n", PrintablePath(request.output).c_str());
  return kExitDone;
}

CLI::App* AddOne(CLI::App& command, const OperationFamily& family, const OperationSpec& operation, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* leaf = command.add_subcommand(std::string(operation.name), std::string(operation.summary));
  if (!operation.group.empty()) leaf->group(std::string(operation.group));
  leaf->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  for (const Parameter* parameter : ParametersOf(operation)) {
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
  leaf->callback([&family, &operation, arguments, &run] {
    run = [&family, &operation, arguments] { return RunCommand(family, operation, *arguments); };
  });
  return leaf;
}

std::string ListText(const OperationFamily& family) {
  std::string text;
  const auto rows = [&](const std::vector<Parameter>& parameters) {
    for (const Parameter& parameter : parameters) {
      text.append("      --").append(parameter.key);
      if (const std::string form = ValueForm(parameter); !form.empty()) text.append(" ").append(form);
      text.append("\n          ").append(Describe(parameter)).append("\n");
    }
  };
  std::string_view group;
  bool selection = false;
  for (const OperationSpec& operation : family.operations()) {
    if (operation.group != group) text.append(group.empty() ? "" : "\n").append(operation.group).append("\n");
    group = operation.group;
    text.append("\n  ").append(operation.name).append("\n      ").append(operation.summary).append("\n");
    rows(operation.parameters);
    selection |= operation.selects;
    if (operation.selects) text += operation.keepsBright ? "      selection, --keep-brighter\n" : "      selection\n";
    if (operation.wholeOnly) text += "      always the whole picture\n";
  }
  if (selection) {
    text += "\nSelection, where there is one\n\n";
    rows(SelectionParameters());
    rows(BrightnessParameters());
  }
  text += "\nA part of the picture\n\n";
  rows(PartParameters());
  text += "\nAlways\n\n";
  rows(CommonParameters());
  return text;
}

}  // namespace

void AddFamily(CLI::App& program, const OperationFamily& family, Run& run) {
  CLI::App* command = program.add_subcommand(std::string(family.command), std::string(family.summary));
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->require_subcommand(0, 1);
  command->footer(std::string(family.footer));
  // Told at once, whatever else the line lacks.
  command
      ->add_flag_function(
          "--list", [&family](std::int64_t) { throw CLI::CallForVersion(ListText(family), 0); },
          "Print all of them with their parameters, units and ranges")
      ->trigger_on_parse();
  for (const OperationSpec& operation : family.operations()) AddOne(*command, family, operation, run);
  command->callback([command, &family, &run] {
    if (!command->get_subcommands().empty()) return;
    run = [&family]() -> int {
      const std::string name(family.command);
      throw Failure(kExitUsage, "name " + std::string(family.one) + ": qmr " + name + " NAME IN OUT; `qmr " + name +
                                    " --list` prints the names");
    };
  });
}

void AddFilter(CLI::App& program, Run& run) {
  static constexpr OperationFamily family = {
      "filter", "a filter", "Runs one filter on one image: qmr filter NAME ... IN OUT", Filters,
      "`qmr filter NAME --help` explains a filter. Levels count from 0, black, to 255, white; bright stars lie above.\n"
      "A list gives each plane its own value: --sigma 1,1,2."};
  AddFamily(program, family, run);
}

void AddAdjust(CLI::App& program, Run& run) {
  static constexpr OperationFamily family = {
      "adjust", "an adjustment", "Changes levels, tone or colours of one image: qmr adjust NAME ... IN OUT",
      Adjustments,
      "`qmr adjust NAME --help` explains an adjustment. Levels count from 0, black, to 255, white; bright stars lie\n"
      "above. A list gives each plane its own value: --brightness 10,0,-5."};
  AddFamily(program, family, run);
}

void AddGeometry(CLI::App& program, Run& run) {
  static constexpr OperationFamily family = {"", "an operation", "", GeometricOperations, ""};
  for (const OperationSpec& operation : GeometricOperations())
    AddOne(program, family, operation, run)
        ->footer(
            "Columns and rows count from 0 as they lie in the file, pixel centres are whole numbers, and row 0 is the\n"
            "top (a file that says ROWORDER BOTTOM-UP is shown the other way up). Pixels without a value stay so.");
}

}  // namespace qmr
