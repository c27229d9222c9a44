// `qmr composite`: two pictures combined pixel by pixel.
#include "host/composite/composite.h"

#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "host/cli/choose.h"
#include "host/cli/commands.h"
#include "host/cli/shared_options.h"
#include "host/cli/terminal_steps.h"
#include "host/compose/given_levels.h"
#include "host/words/numbers.h"

namespace qmr {
namespace {

struct Arguments {
  CompositeRequest request;
  std::string mode = "average", align = "none", interpolation = "Bicubic", scale = "raw", margin = "keep";
  std::string shift, sample, rect, gain, levelsA, levelsB;
  double angle = 0.0;
  CLI::Option *weight = nullptr, *saturation = nullptr, *neighbours = nullptr, *range = nullptr;
  bool verbose = false, quiet = false;
};

const std::map<std::string, bool> kScale = {{"raw", false}, {"display", true}};

CRect RectFrom(const char* option, const std::string& text) {
  constexpr double kFarthest = 1e6;
  const auto sides = SplitNumbers(text);
  bool good = sides && sides->size() == 4;
  for (std::size_t i = 0; good && i < 4; ++i)
    good = std::abs((*sides)[i]) <= kFarthest && (*sides)[i] == std::trunc((*sides)[i]);
  if (!good || !((*sides)[0] < (*sides)[2]) || !((*sides)[1] < (*sides)[3]))
    throw Failure(kExitUsage, std::string(option) +
                                  ": left, top, right and bottom in whole pixels, parted by commas; right and bottom "
                                  "are the first ones outside");
  const auto side = [&](std::size_t i) { return static_cast<int>((*sides)[i]); };
  return {side(0), side(1), side(2), side(3)};
}

// Options that mean nothing without another one.
void CheckCompany(const Arguments& arguments, CompositeMode mode) {
  const auto wants = [](bool given, const char* option, bool company, const char* with) {
    if (given && !company) throw Failure(kExitUsage, std::string(option) + ": goes with " + with);
  };
  const CompositeRequest& request = arguments.request;
  const bool minimum = mode == CompositeMode::kMinimum;
  wants(arguments.weight->count() > 0, "--weight", mode == CompositeMode::kWeighted, "--mode weighted");
  wants(arguments.saturation->count() > 0, "--saturation", minimum, "--mode minimum");
  wants(arguments.neighbours->count() > 0, "--neighbours", minimum, "--mode minimum");
  wants(request.clipNegative, "--clip-negative", mode == CompositeMode::kSubtract, "--mode subtract");
  const bool matching = request.search.by == PlaceBy::kMatching;
  wants(arguments.range->count() > 0, "--range", matching, "--align matching");
  wants(!arguments.sample.empty(), "--template", matching, "--align matching");
  wants(!arguments.levelsA.empty(), "--levels-a", request.display, "--scale display");
  wants(!arguments.levelsB.empty(), "--levels-b", request.display, "--scale display");
}

void ReadGain(const std::string& words, CompositeRequest& request) {
  if (words.empty()) return;
  if (words == "unit") {
    request.gain.reset();
    return;
  }
  const auto gain = SplitNumbers(words);
  if (!gain || gain->size() != 1 || !((*gain)[0] >= 1e-12 && (*gain)[0] <= 1e12))
    throw Failure(kExitUsage, "--gain: a number above 0, or unit, not '" + PrintablePath(words) + "'");
  request.gain = (*gain)[0];
}

int RunComposite(Arguments& arguments) {
  CompositeRequest& request = arguments.request;
  request.mode = Choose(CompositeModes(), arguments.mode, "--mode");
  request.search.by = Choose(PlaceWays(), arguments.align, "--align");
  request.interpolation = ChooseInterpolation(arguments.interpolation);
  request.display = Choose(kScale, arguments.scale, "--scale");
  request.margin = Choose(CompositeMargins(), arguments.margin, "--margin");
  CheckCompany(arguments, request.mode);
  if (!arguments.shift.empty()) {
    constexpr double kFarthest = 1e5;
    const auto shift = SplitNumbers(arguments.shift);
    if (!shift || shift->size() != 2 || std::abs((*shift)[0]) > kFarthest || std::abs((*shift)[1]) > kFarthest)
      throw Failure(kExitUsage, "--shift: columns and rows, parted by a comma, up to 100000 of each");
    request.place.shiftX = (*shift)[0];
    request.place.shiftY = (*shift)[1];
  }
  // Not-a-number is no angle either.
  constexpr double kTurn = 360.0;
  if (!(std::abs(arguments.angle) <= kTurn)) throw Failure(kExitUsage, "--angle: degrees from -360 to 360");
  request.place.angleDegrees = std::remainder(arguments.angle, kTurn);
  if (!(request.weight >= 0.0 && request.weight <= 1.0)) throw Failure(kExitUsage, "--weight: from 0 to 1");
  if (!(request.saturation > 0.0 && request.saturation <= 1.0))
    throw Failure(kExitUsage, "--saturation: a share above 0, up to 1");
  if (request.neighbours < 0 || request.neighbours > 2) throw Failure(kExitUsage, "--neighbours: 0 to 2 pixels");
  if (request.search.range < 2 || request.search.range > 200) throw Failure(kExitUsage, "--range: 2 to 200 pixels");
  if (!arguments.sample.empty()) request.search.sample = RectFrom("--template", arguments.sample);
  if (!arguments.rect.empty()) request.rect = RectFrom("--rect", arguments.rect);
  ReadGain(arguments.gain, request);
  if (!arguments.levelsA.empty()) request.levelsA = ParseLevels("--levels-a", arguments.levelsA);
  if (!arguments.levelsB.empty()) request.levelsB = ParseLevels("--levels-b", arguments.levelsB);

  TerminalSteps steps(arguments.quiet);
  const CompositeReport report = MakeComposite(request, steps);
  if (arguments.verbose) std::printf("%s\n", report.command.c_str());
  if (arguments.quiet) return kExitDone;
  if (!report.place.empty()) std::printf("  B: %s\n", report.place.c_str());
  std::printf("wrote %s\n", PrintablePath(request.output).c_str());
  return kExitDone;
}

}  // namespace

void AddComposite(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  CompositeRequest& request = arguments->request;
  CLI::App* command = program.add_subcommand("composite", "Combines two pictures pixel by pixel");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->add_option("A", request.a, "FITS file, one or three planes: gives the size, the place and the keywords")
      ->required()
      ->option_text(" ");
  command->add_option("B", request.b, "FITS file, one or three planes, of any size: is laid over A")
      ->required()
      ->option_text(" ");
  command
      ->add_option("OUT", request.output,
                   "32-bit FITS (.fit, .fits, .fts) with the keywords of A, or 16-bit PNG from black to white")
      ->required()
      ->option_text(" ");
  command
      ->add_option(
          "--mode", arguments->mode,
          "average (default), add, weighted (A and B by --weight), subtract (A - B), multiply, divide (A / B), "
          "difference (|A - B|), brighter, darker, or minimum (darker, with care for saturated stars)")
      ->option_text("HOW");
  command
      ->add_option("--shift", arguments->shift,
                   "Columns and rows by which B moves to the right and down, fractions allowed: the result at (x, y) "
                   "takes B at (x - DX, y - DY). With --align, about where B lies (default 0,0)")
      ->option_text("DX,DY");
  command
      ->add_option("--angle", arguments->angle,
                   "Degrees by which B turns about its middle, clockwise where row 0 is at the top; default 0")
      ->option_text("DEG");
  command
      ->add_option("--align", arguments->align,
                   "Measure how B lies on A: none (default); shift or rotation, as in a stack; matching (shift only), "
                   "by comparing one part of the two")
      ->option_text("HOW");
  arguments->range = AddMatchRange(*command, request.search.range);
  command
      ->add_option("--template", arguments->sample,
                   "The part of A that --align matching compares, columns and rows; else the middle of what A and B "
                   "share")
      ->option_text("LEFT,TOP,RIGHT,BOTTOM");
  AddInterpolation(*command, arguments->interpolation);
  arguments->weight =
      command->add_option("--weight", request.weight, "Share of B in --mode weighted, 0 to 1; default 0.5")
          ->option_text("W");
  command
      ->add_option("--gain", arguments->gain,
                   "Factor that brings B to the brightness of A, or unit: what brings B's mean to 1. It multiplies the "
                   "values of B, with --scale display those above black; default 1")
      ->option_text("N");
  arguments->saturation =
      command
          ->add_option("--saturation", request.saturation,
                       "Share of the picture's maximum, with --scale display of white, from which --mode minimum takes "
                       "a pixel as saturated; default 0.95")
          ->option_text("N");
  arguments->neighbours =
      command
          ->add_option("--neighbours", request.neighbours,
                       "How far around saturated pixels --mode minimum is careful, 0 to 2 pixels; default 1")
          ->option_text("N");
  command->add_flag("--clip-negative", request.clipNegative, "--mode subtract gives nothing below 0");
  command
      ->add_option("--scale", arguments->scale,
                   "raw (default): combine the values of the files; display: what lies between black and white of "
                   "each, from 0 to 255, and give the result A's levels")
      ->option_text("WHICH");
  for (const auto& [option, words] :
       {std::pair{"--levels-a", &arguments->levelsA}, std::pair{"--levels-b", &arguments->levelsB}})
    command
        ->add_option(option, *words,
                     "Black and white for --scale display; else CBLACK and CWHITE of the file, else from the sky")
        ->option_text("B,W[,...]");
  command
      ->add_option("--margin", arguments->margin,
                   "Where B does not reach: keep (default) A as it is; mode: what the mode makes of a B of 0 (255 to "
                   "multiply and divide); blank: no value")
      ->option_text("WHAT");
  command
      ->add_option("--rect", arguments->rect,
                   "Combine these columns and rows of A only, the rest is A; right and bottom are the first outside")
      ->option_text("LEFT,TOP,RIGHT,BOTTOM");
  AddResultFlags(*command, request.force, arguments->verbose, arguments->quiet);
  command->footer("x counts columns, y rows as they stand in the file, from 0; whole numbers are middles of pixels.");
  command->callback([arguments, &run] { run = [arguments] { return RunComposite(*arguments); }; });
}

}  // namespace qmr
