// `qmr split`: a colour picture into its channels.
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "host/cli/choose.h"
#include "host/cli/commands.h"
#include "host/cli/terminal_steps.h"
#include "host/compose/given_levels.h"
#include "host/compose/split.h"

namespace qmr {
namespace {

struct Arguments {
  std::string into = "rgb";
  std::string levels;
  bool quiet = false;
  SplitRequest request;
};

const std::map<std::string, SplitInto> kInto = {
    {"rgb", SplitInto::kRgb}, {"cmy", SplitInto::kCmy}, {"lab", SplitInto::kLab}};

int RunSplit(Arguments& arguments) {
  SplitRequest& request = arguments.request;
  request.into = Choose(kInto, arguments.into, "--into");
  if (!arguments.levels.empty()) request.levels = ParseLevels("--levels", arguments.levels);
  TerminalSteps steps(arguments.quiet);
  for (const std::string& path : Split(request, steps))
    if (!arguments.quiet) std::printf("wrote %s\n", PrintablePath(path).c_str());
  return kExitDone;
}

}  // namespace

void AddSplit(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  SplitRequest& request = arguments->request;
  CLI::App* command = program.add_subcommand("split", "Takes a colour picture apart into three of one plane");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->add_option("IN", request.input, "FITS file of three planes")->required()->option_text(" ");
  command
      ->add_option("OUT", request.output,
                   "Pattern of three names, .fit, .fits, .fts or .png: night.fit makes night_red.fit and so on")
      ->required()
      ->option_text(" ");
  command
      ->add_option("--into", arguments->into,
                   "rgb (default): its planes; cmy: the means of two of them; lab: lightness 0 to 100, a and b")
      ->option_text("WHAT");
  command
      ->add_option("--levels", arguments->levels,
                   "Values of the file that are black and white, for all planes or each; else CBLACK and CWHITE of the "
                   "file, else from the sky")
      ->option_text("B,W[,...]");
  command->add_flag("--force,-f", request.force, "Replace files that exist");
  command->add_flag("--quiet,-q", arguments->quiet, "Say nothing but warnings and errors");
  command->callback([arguments, &run] { run = [arguments] { return RunSplit(*arguments); }; });
}

}  // namespace qmr
