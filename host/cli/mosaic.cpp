// `qmr mosaic`: frames of neighbouring fields joined to one large picture.
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/cli/choose.h"
#include "host/cli/commands.h"
#include "host/cli/shared_options.h"
#include "host/cli/terminal_steps.h"
#include "host/composite/frame_mosaic.h"
#include "host/words/numbers.h"

namespace qmr {
namespace {

struct Arguments {
  FrameMosaicRequest request;
  std::vector<std::string> paths, at;
  std::string align = "none", interpolation = "Bicubic", overlap = "new", maskColour, background = "blank";
  CLI::Option *range = nullptr, *feather = nullptr;
  bool verbose = false, quiet = false;
};

// Nothing for a place that the sky coordinates tell.
std::optional<LibraryGeometry> PlaceFrom(const std::string& words) {
  if (words == "sky") return std::nullopt;
  constexpr double kFarthest = 1e5;
  constexpr double kTurn = 360.0;
  const auto numbers = SplitNumbers(words);
  if (!numbers || numbers->size() < 2 || numbers->size() > 3 || std::abs((*numbers)[0]) > kFarthest ||
      std::abs((*numbers)[1]) > kFarthest || (numbers->size() == 3 && std::abs((*numbers)[2]) > kTurn))
    throw Failure(kExitUsage,
                  "--at: columns and rows up to 100000 of each, and degrees from -360 to 360 if the frame is turned, "
                  "parted by commas; or sky, not '" +
                      PrintablePath(words) + "'");
  return LibraryGeometry{(*numbers)[0], (*numbers)[1],
                         numbers->size() == 3 ? std::remainder((*numbers)[2], kTurn) : 0.0};
}

void ReadFrames(const Arguments& arguments, FrameMosaicRequest& request) {
  if (arguments.paths.size() < 3) throw Failure(kExitUsage, "qmr mosaic FRAME FRAME ... OUT: two frames or more");
  const std::size_t frames = arguments.paths.size() - 1;
  const std::size_t more = frames - 1;
  if (!arguments.at.empty() && arguments.at.size() != more)
    throw Failure(kExitUsage, "--at: " + std::to_string(more) + " wanted, one for each frame but the first, not " +
                                  std::to_string(arguments.at.size()));
  for (std::size_t i = 0; i < frames; ++i) {
    request.frames.push_back({arguments.paths[i], std::nullopt});
    if (i > 0 && !arguments.at.empty()) request.frames.back().place = PlaceFrom(arguments.at[i - 1]);
  }
  request.output = arguments.paths.back();
}

void ReadMask(const std::string& words, FrameMosaicRequest& request) {
  const bool masked = request.overlap == FrameOverlap::kNewMasked;
  if (!words.empty() && !masked) throw Failure(kExitUsage, "--mask-colour: goes with --overlap new-masked");
  if (!masked) return;
  const auto colour = SplitNumbers(words.empty() ? "0" : words);
  if (!colour || (colour->size() != 1 && colour->size() != 3))
    throw Failure(kExitUsage, "--mask-colour: one value of the file, or three parted by commas");
  request.maskColour = *colour;
}

int RunMosaic(Arguments& arguments) {
  FrameMosaicRequest& request = arguments.request;
  ReadFrames(arguments, request);
  request.search.by = Choose(PlaceWays(), arguments.align, "--align");
  if (request.search.range < 2 || request.search.range > 200) throw Failure(kExitUsage, "--range: 2 to 200 pixels");
  if (arguments.range->count() > 0 && request.search.by != PlaceBy::kMatching)
    throw Failure(kExitUsage, "--range: goes with --align matching");
  request.interpolation = ChooseInterpolation(arguments.interpolation);
  request.overlap = Choose(FrameOverlaps(), arguments.overlap, "--overlap");
  ReadMask(arguments.maskColour, request);
  if (request.feather < 0 || request.feather > 10000) throw Failure(kExitUsage, "--feather: 0 to 10000 pixels");
  if (request.feather > 0 && request.overlap != FrameOverlap::kNew)
    throw Failure(kExitUsage, "--feather: goes with --overlap new");
  if (arguments.background == "blank") {
    request.background.reset();
  } else {
    const auto value = SplitNumbers(arguments.background);
    if (!value || value->size() != 1) throw Failure(kExitUsage, "--background: a value of the file, or blank");
    request.background = (*value)[0];
  }

  TerminalSteps steps(arguments.quiet);
  const FrameMosaicReport report = MakeFrameMosaic(request, steps);
  if (arguments.verbose) std::printf("%s\n", report.command.c_str());
  if (arguments.quiet) return kExitDone;
  for (const std::string& line : report.lines) std::printf("  %s\n", line.c_str());
  std::printf("wrote %s\n", PrintablePath(request.output).c_str());
  return kExitDone;
}

}  // namespace

void AddMosaic(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  FrameMosaicRequest& request = arguments->request;
  CLI::App* command =
      program.add_subcommand("mosaic", "Joins frames of neighbouring fields: qmr mosaic FRAME FRAME ... OUT");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command
      ->add_option("FRAMES", arguments->paths,
                   "FITS files of one or three planes, two or more: the first one gives pixels, levels and keywords. "
                   "The last word is OUT, a 32-bit FITS (.fit, .fits, .fts) or 16-bit PNG")
      ->required()
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text("OUT");
  command
      ->add_option("--at", arguments->at,
                   "Where a frame lies, once for each but the first: its first pixel falls on column DX, row DY of the "
                   "first frame (fractions and negative numbers allowed), turned by ANGLE degrees about its middle, "
                   "clockwise where row 0 is at the top. sky, or no --at at all: as the headers say (RA---TAN)")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->allow_extra_args(false)
      ->option_text("DX,DY[,ANGLE]");
  command
      ->add_option("--align", arguments->align,
                   "Measure the places anew in what a frame shares with those before it: none (default); shift or "
                   "rotation, as in a stack; matching (shift only), by comparing a part of both")
      ->option_text("HOW");
  arguments->range = AddMatchRange(*command, request.search.range);
  command
      ->add_option("--overlap", arguments->overlap,
                   "Where frames overlap: new (default), the later one; new-masked, the same without its pixels of "
                   "--mask-colour; brighter, darker, base (the earlier one) or average")
      ->option_text("WHICH");
  command
      ->add_option("--mask-colour", arguments->maskColour,
                   "Value of pixels that are no part of a frame, such as a border, within 1/256 of black to white; one "
                   "or one a plane, default 0")
      ->option_text("V[,V,V]");
  command
      ->add_option("--feather", request.feather,
                   "With --overlap new: pixels over which a frame's edge blends into those before it, 0 to 10000; "
                   "default 0")
      ->option_text("N");
  command->add_flag("--match-sky", request.matchSky,
                    "Add to each frame what brings it to the level of those before it, by the median of the "
                    "differences where they overlap");
  AddInterpolation(*command, arguments->interpolation);
  command
      ->add_option("--background", arguments->background,
                   "Value of pixels that no frame covers; by default they are blank: without a value")
      ->option_text("V");
  AddResultFlags(*command, request.force, arguments->verbose, arguments->quiet);
  command->footer("Columns and rows count as they stand in the file, from 0; whole numbers are middles of pixels.");
  command->callback([arguments, &run] { run = [arguments] { return RunMosaic(*arguments); }; });
}

}  // namespace qmr
