// `qmr develop`: an undeveloped frame becomes a picture.
#include "host/develop/develop.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/cli/choose.h"
#include "host/cli/commands.h"
#include "host/cli/shared_options.h"
#include "host/cli/terminal_steps.h"
#include "host/compose/given_levels.h"
#include "host/operations/parameters.h"
#include "host/words/numbers.h"

namespace qmr {
namespace {

struct Arguments {
  std::string bayer, honeycomb, bits = "float", margins, interpolation, range, gains, balance = "none", black = "auto",
                                levels;
  double gamma = 1.0;
  CLI::Option* corrected = nullptr;
  std::string output;
  bool noClip = false, verbose = false, quiet = false;
  DevelopRequest request;
};

const std::map<std::string, int> kBits = {{"float", 0}, {"12", 12}, {"14", 14}};
const std::map<std::string, int> kInterpolation = {{"rows", 2}, {"columns", 1}, {"both", 3}};
const std::map<std::string, WhiteBalance> kBalance = {
    {"none", WhiteBalance::kNone}, {"camera", WhiteBalance::kCamera}, {"grey", WhiteBalance::kGrey}};

constexpr double kMostValue = 1e9;

DevelopMargins ParseMargins(const std::string& words) {
  constexpr double kMost = 1e6;
  const auto sides = SplitNumbers(words);
  bool good = sides && sides->size() == 4;
  for (std::size_t i = 0; good && i < 4; ++i)
    good = (*sides)[i] >= 0.0 && (*sides)[i] <= kMost && (*sides)[i] == std::trunc((*sides)[i]);
  if (!good)
    throw Failure(kExitUsage, "--margins: left, top, right and bottom in whole pixels from 0, parted by commas, not '" +
                                  PrintablePath(words) + "'");
  const auto side = [&](std::size_t i) { return static_cast<int>((*sides)[i]); };
  return {side(0), side(1), side(2), side(3)};
}

BlackLevel ParseBlack(const std::string& words) {
  if (words == "auto") return {BlackLevel::From::kFile, 0.0};
  if (words == "none") return {BlackLevel::From::kNone, 0.0};
  const auto level = SplitNumbers(words);
  if (!level || level->size() != 1 || !(std::abs((*level)[0]) <= kMostValue))
    throw Failure(kExitUsage, "--black: a value of the file, auto or none, not '" + PrintablePath(words) + "'");
  return {BlackLevel::From::kGiven, (*level)[0]};
}

std::vector<double> ParseRange(const std::string& words) {
  const auto ends = SplitNumbers(words);
  // The library takes them as floats.
  if (!ends || ends->size() != 2 || !(static_cast<float>((*ends)[0]) < static_cast<float>((*ends)[1])) ||
      !(std::abs((*ends)[0]) <= kMostValue) || !((*ends)[1] <= kMostValue))
    throw Failure(kExitUsage, "--range: two values after the black level, the smaller one first, parted by a comma");
  return *ends;
}

std::vector<double> ParseGains(const std::string& words) {
  constexpr double kLeast = 0.001, kMost = 1000.0;
  const auto gains = SplitNumbers(words);
  bool good = gains && (gains->size() == 3 || gains->size() == 4 || gains->size() == 8);
  for (std::size_t i = 0; good && i < gains->size(); ++i) good = (*gains)[i] >= kLeast && (*gains)[i] <= kMost;
  if (!good)
    throw Failure(kExitUsage,
                  "--gains: 3 factors of red, green and blue, or 4 (honeycomb: 8) of the sites, from 0.001 "
                  "to 1000, parted by commas, not '" +
                      PrintablePath(words) + "'");
  return *gains;
}

// Options that mean nothing without another one, or against it.
void CheckCompany(const Arguments& arguments) {
  const DevelopRequest& request = arguments.request;
  const auto wants = [](bool given, const char* option, bool company, const char* with) {
    if (given && !company) throw Failure(kExitUsage, std::string(option) + ": goes with " + with);
  };
  const auto refuses = [](bool given, const char* option, bool other, const char* against) {
    if (given && other) throw Failure(kExitUsage, std::string(option) + " and " + against + ": give one of them");
  };
  const bool balanced = request.whiteBalance != WhiteBalance::kNone;
  refuses(!arguments.gains.empty(), "--gains", balanced, "--white-balance");
  refuses(request.clip, "--clip", arguments.noClip, "--no-clip");
  refuses(!arguments.range.empty(), "--range", request.autoRange, "--auto-range");
  refuses(!arguments.margins.empty(), "--margins", request.fullSize, "--full-size");
  wants(request.knee, "--knee", balanced || !arguments.gains.empty(), "--gains or --white-balance");
  wants(!arguments.range.empty(), "--range", !request.bits && (request.knee || request.clip),
        "--knee or --clip, and with float samples");
  wants(request.autoRange, "--auto-range", request.bits || request.knee || request.clip, "--bits, --knee or --clip");
}

int RunDevelop(Arguments& arguments) {
  DevelopRequest& request = arguments.request;
  if (request.output.empty() == arguments.output.empty())
    throw Failure(kExitUsage, "name one output, as OUT or with -o");
  if (request.output.empty()) request.output = arguments.output;
  request.mosaic = MosaicWord(arguments.bayer, arguments.honeycomb);
  request.bits = Choose(kBits, arguments.bits, "--bits");
  if (!arguments.interpolation.empty())
    request.interpolation = Choose(kInterpolation, arguments.interpolation, "--interpolation");
  request.whiteBalance = Choose(kBalance, arguments.balance, "--white-balance");
  request.black = ParseBlack(arguments.black);
  if (!arguments.margins.empty()) request.margins = ParseMargins(arguments.margins);
  if (!arguments.range.empty()) request.range = ParseRange(arguments.range);
  if (!arguments.gains.empty()) request.gains = ParseGains(arguments.gains);
  if (arguments.corrected->count() > 0) {
    if (!(arguments.gamma >= 0.05 && arguments.gamma <= 20.0)) throw Failure(kExitUsage, "--gamma: from 0.05 to 20");
    request.gamma = arguments.gamma;
  }
  if (!arguments.levels.empty()) request.levels = ParseLevels("--levels", arguments.levels);
  CheckCompany(arguments);

  TerminalSteps steps(arguments.quiet);
  const DevelopReport report = DevelopFrame(request, steps);
  if (arguments.verbose) std::printf("%s\n", report.command.c_str());
  if (arguments.quiet) return kExitDone;
  std::printf("  mosaic %s\n", PrintablePath(report.mosaic).c_str());
  if (report.black != 0.0) std::printf("  black level %s subtracted\n", NumberText(report.black).c_str());
  if (!report.gains.empty()) {
    std::printf("  gains");
    for (const double gain : report.gains) std::printf(" %s", NumberText(gain).c_str());
    std::printf("\n");
  }
  if (report.blankPixels > 0) std::printf("  %zu pixels without a value\n", report.blankPixels);
  std::printf("wrote %s\n", PrintablePath(request.output).c_str());
  return kExitDone;
}

}  // namespace

void AddDevelop(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  DevelopRequest& request = arguments->request;
  CLI::App* command =
      program.add_subcommand("develop", "Develops one undeveloped frame, as a stack does, or otherwise");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->add_option("FRAME", request.input, "FITS file of one plane, as the sensor saw it, or a camera's raw file")
      ->required()
      ->option_text(" ");
  command
      ->add_option("OUT", request.output,
                   "32-bit FITS (.fit, .fits, .fts) with the keywords of FRAME, or 16-bit PNG from black to white")
      ->option_text(" ");
  command->add_option("-o,--output", arguments->output, "Another way to name OUT")->option_text("OUT");
  command->add_option("--bayer", arguments->bayer, "The sensor's mosaic: RGGB, GRBG, BGGR or GBRG; else the file tells")
      ->option_text("PATTERN")
      ->group("Mosaic");
  command
      ->add_option("--honeycomb", arguments->honeycomb,
                   "The photosites lie on a diagonal lattice: layout 11 to 14, see docs/develop.md; else the camera's "
                   "name tells")
      ->option_text("N")
      ->group("Mosaic");
  command
      ->add_option(
          "--interpolation", arguments->interpolation,
          "How a honeycomb's missing pixels are filled: along rows, along columns, or both (default), the mean")
      ->option_text("WAY")
      ->group("Mosaic");
  command->add_flag("--mono", request.mono, "Luminance only, one plane")->group("Mosaic");
  command
      ->add_option("--margins", arguments->margins,
                   "Pixels to cut off at each edge; default the least, 3 to 5, as a stack does")
      ->option_text("LEFT,TOP,RIGHT,BOTTOM")
      ->group("Mosaic");
  command
      ->add_flag("--full-size", request.fullSize,
                 "Cut nothing off: beyond its edges the frame goes on with a mirror image of itself")
      ->group("Mosaic");
  command
      ->add_option("--bits", arguments->bits,
                   "float (default): values stay what they are. 12, or for Bayer 14: values from 0 to 4095 or 16383, "
                   "or with --auto-range those of the frame, are stretched to 0 to 65535 and limited to that")
      ->option_text("BITS")
      ->group("Values");
  command
      ->add_option("--black", arguments->black,
                   "Value to subtract first: a number, auto (default: PEDESTAL, BLKLEVEL, BLACKLEV or BLACKLVL of the "
                   "file if it has one) or none. What lies below it becomes negative")
      ->option_text("LEVEL")
      ->group("Values");
  command->add_flag("--clip", request.clip, "Limit values to the range")->group("Values");
  command->add_flag("--no-clip", arguments->noClip, "Keep all values, as is done by default")->group("Values");
  command
      ->add_option("--range", arguments->range,
                   "The range of --clip and --knee, after the black level; default 0 to what 8 or 16-bit integers can "
                   "hold, else to the brightest pixel; 0 to 65535 with --bits")
      ->option_text("LOW,HIGH")
      ->group("Values");
  command->add_flag("--auto-range", request.autoRange, "The range is that of the frame's pixels")->group("Values");
  command
      ->add_option("--gamma", arguments->gamma,
                   "Brighten: values of the result's range are raised to 1 / G, last of all; 0.05 to 20, default none")
      ->option_text("G")
      ->group("Values");
  arguments->corrected = command->get_option("--gamma");
  command
      ->add_option("--gains", arguments->gains,
                   "Factors of red, green and blue; or of the four sites of a Bayer cell, row by row, or the eight of "
                   "a honeycomb's, see docs/develop.md. 0.001 to 1000; default none")
      ->option_text("N,N,N[,...]")
      ->group("White balance");
  command
      ->add_option("--white-balance", arguments->balance,
                   "Find the factors: none (default); camera, from WB_RED, WB_GREEN and WB_BLUE of the file; grey, "
                   "which brings the medians of the frame's colours together (subtract the black level for that)")
      ->option_text("HOW")
      ->group("White balance");
  command
      ->add_flag("--knee", request.knee,
                 "Bend the factors towards the bright end, so that the range stays the range and nothing is burnt out")
      ->group("White balance");
  command
      ->add_option("--levels", arguments->levels,
                   "Black and white of the result, one pair or one a plane, for a PNG and for CBLACK and CWHITE; "
                   "default from the file or the sky")
      ->option_text("B,W[,...]");
  AddResultFlags(*command, request.force, arguments->verbose, arguments->quiet);
  command->callback([arguments, &run] { run = [arguments] { return RunDevelop(*arguments); }; });
}

}  // namespace qmr
