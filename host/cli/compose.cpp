// `qmr compose`: one colour picture from frames through several filters.
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/cli/choose.h"
#include "host/cli/commands.h"
#include "host/cli/shared_options.h"
#include "host/cli/terminal_steps.h"
#include "host/compose/compose.h"
#include "host/compose/given_levels.h"
#include "host/words/numbers.h"

namespace qmr {
namespace {

struct FrameArguments {
  std::string path, shift, levels;
  double angle = 0.0;
  CLI::Option* turned = nullptr;
};

struct Arguments {
  std::deque<FrameArguments> frames;  // options point into it
  std::string align = "none";
  std::string interpolation = "Lanczos3";
  std::string blend = "none";
  double colourScale = 0.0;
  CLI::Option* scaled = nullptr;
  std::string output;
  bool force = false, verbose = false, quiet = false;
};

const std::map<std::string, AlignMode> kAlign = {
    {"none", AlignMode::kNone}, {"shift", AlignMode::kShift}, {"rotation", AlignMode::kRotation}};
const std::map<std::string, ComposeBlend> kBlend = {{"none", ComposeBlend::kNone},
                                                    {"mean", ComposeBlend::kMean},
                                                    {"difference", ComposeBlend::kDifference},
                                                    {"inverse", ComposeBlend::kInverse}};

ComposeFrame FrameOf(const FrameArguments& said, const std::string& name) {
  constexpr double kFarthest = 1e5;
  constexpr double kTurn = 360.0;
  ComposeFrame frame;
  frame.path = said.path;
  if (!said.shift.empty()) {
    const std::string option = "--" + name + "-shift";
    const auto shift = SplitNumbers(said.shift);
    if (!shift || shift->size() != 2 || std::abs((*shift)[0]) > kFarthest || std::abs((*shift)[1]) > kFarthest)
      throw Failure(kExitUsage, option + ": columns and rows, parted by a comma, up to 100000 of each");
    frame.dx = (*shift)[0];
    frame.dy = (*shift)[1];
  }
  // Not-a-number is no angle either.
  if (!(std::abs(said.angle) <= kTurn)) throw Failure(kExitUsage, "--" + name + "-angle: degrees from -360 to 360");
  frame.angle = said.angle;
  frame.placed = !said.shift.empty() || said.turned->count() > 0;
  if (!said.levels.empty()) frame.levels = ParseLevels("--" + name + "-levels", said.levels);
  return frame;
}

int RunCompose(Composition composition, const Arguments& arguments) {
  ComposeRequest request;
  request.composition = composition;
  const std::vector<std::string_view>& names = FrameNames(composition);
  for (std::size_t i = 0; i < names.size(); ++i)
    request.frames.push_back(FrameOf(arguments.frames[i], std::string(names[i])));
  request.align = Choose(kAlign, arguments.align, "--align");
  request.interpolation = ChooseInterpolation(arguments.interpolation);
  request.blend = Choose(kBlend, arguments.blend, "--blend");
  if (arguments.scaled && arguments.scaled->count() > 0) {
    const double scale = arguments.colourScale;
    if (!(scale >= 0.01 && scale <= 100.0)) throw Failure(kExitUsage, "--colour-scale: from 0.01 to 100");
    request.colourScale = scale;
  }
  request.output = arguments.output;
  request.force = arguments.force;
  TerminalSteps steps(arguments.quiet);
  const ComposeReport report = Compose(request, steps);
  if (arguments.verbose) std::printf("%s\n", report.command.c_str());
  if (arguments.quiet) return kExitDone;
  for (const std::string& line : report.lines) std::printf("  %s\n", line.c_str());
  std::printf("wrote %s\n", PrintablePath(request.output).c_str());
  return kExitDone;
}

void AddComposition(CLI::App& command, const char* name, const char* summary, Composition composition, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* leaf = command.add_subcommand(name, summary);
  const std::vector<std::string_view>& names = FrameNames(composition);
  for (const std::string_view view : names) {
    const std::string frame(view);
    FrameArguments& said = arguments->frames.emplace_back();
    std::string upper = frame;
    for (char& c : upper) c = static_cast<char>(c - 'a' + 'A');
    leaf->add_option(upper, said.path, "FITS file of the " + frame + " frame, one or three planes")
        ->required()
        ->option_text(" ");
    leaf->add_option("--" + frame + "-shift", said.shift,
                     "Columns and rows by which the " + frame + " frame moves to the right and down, fractions allowed")
        ->option_text("DX,DY");
    said.turned = leaf->add_option("--" + frame + "-angle", said.angle,
                                   "Degrees by which it turns about its middle, clockwise where row 0 is at the top")
                      ->option_text("DEG");
    leaf->add_option("--" + frame + "-levels", said.levels,
                     "Its values that are black and white; else CBLACK and CWHITE of the file, else from the sky")
        ->option_text("B,W[,...]");
  }
  leaf->add_option("OUT", arguments->output,
                   "32-bit FITS (.fit, .fits, .fts) with the keywords of the first frame, or 16-bit PNG")
      ->required()
      ->option_text(" ");
  leaf->add_option("--align", arguments->align,
                   "Measure how the frames lie to the first one: none (default), shift or rotation")
      ->option_text("HOW");
  if (composition != Composition::kLrgb)
    leaf->add_option("--interpolation", arguments->interpolation,
                     "Bilinear, Bicubic, Lanczos2, Lanczos3 (default) or NearestNeighbor")
        ->option_text("METHOD");
  if (names.size() == 2)
    arguments->scaled = leaf->add_option("--colour-scale", arguments->colourScale,
                                         "Pixels of the colour frame to one of the luminance, 0.01 to 100: 0.5 for a "
                                         "frame binned 2 x 2; else from the sizes of the two")
                            ->option_text("N");
  if (composition == Composition::kLrgb)
    leaf->add_option("--blend", arguments->blend,
                     "Show how the frames fit instead: mean, difference or inverse (white less the difference)")
        ->option_text("HOW");
  AddResultFlags(*leaf, arguments->force, arguments->verbose, arguments->quiet);
  leaf->callback([composition, arguments, &run] {
    run = [composition, arguments] { return RunCompose(composition, *arguments); };
  });
}

}  // namespace

void AddCompose(CLI::App& program, Run& run) {
  CLI::App* command = program.add_subcommand("compose", "Makes one colour picture from frames through several filters");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->require_subcommand(0, 1);
  command->footer("`qmr compose rgb --help` explains one of them. A colour frame stands for its plane of that colour.");
  AddComposition(*command, "rgb", "Red, green and blue frames", Composition::kRgb, run);
  AddComposition(*command, "cmy", "Cyan, magenta and yellow frames, solved for red, green and blue", Composition::kCmy,
                 run);
  AddComposition(*command, "lrgb", "Detail of a luminance frame, colours of a colour frame", Composition::kLrgb, run);
  AddComposition(*command, "lab", "The same, sampled in Lab by any interpolation", Composition::kLab, run);
  command->callback([command, &run] {
    if (command->get_subcommands().empty())
      run = []() -> int { throw Failure(kExitUsage, "qmr compose rgb, cmy, lrgb or lab, the frames, OUT"); };
  });
}

}  // namespace qmr
