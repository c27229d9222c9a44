// `qmr annotate`: text, lines and a scale bar on a picture.
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/annotate/annotate.h"
#include "host/cli/choose.h"
#include "host/cli/commands.h"
#include "host/cli/shared_options.h"
#include "host/cli/terminal_steps.h"
#include "host/compose/given_levels.h"
#include "host/words/numbers.h"

namespace qmr {
namespace {

constexpr double kFarthest = 1e6;

struct Arguments {
  std::vector<std::string> texts, lines;
  std::string colour = "white", anchor = "top-left", levels, bayer;
  double size = 0.0, pixelScale = 0.0;
  int lineWidth = 0;
  bool smooth = false, plain = false, verbose = false, quiet = false;
  CLI::Option *sized = nullptr, *scaled = nullptr, *widened = nullptr;
  AnnotateRequest request;
};

bool AllNear(const std::vector<double>& places) {
  for (const double v : places)
    if (std::abs(v) > kFarthest) return false;
  return true;
}

TextMark ParseText(std::string_view said) {
  const std::size_t first = said.find(',');
  const std::size_t second = first == std::string_view::npos ? first : said.find(',', first + 1);
  if (second != std::string_view::npos && second + 1 < said.size()) {
    const auto at = SplitNumbers(said.substr(0, second));
    if (at && at->size() == 2 && AllNear(*at)) return {(*at)[0], (*at)[1], std::string(said.substr(second + 1))};
  }
  throw Failure(kExitUsage, "--text: column, row and a text, parted by commas, within a million pixels, not '" +
                                PrintablePath(said) + "'");
}

LineMark ParseLine(std::string_view said) {
  const auto ends = SplitNumbers(said);
  if (!ends || ends->size() != 4 || !AllNear(*ends))
    throw Failure(
        kExitUsage,
        "--line: column and row of its two ends, four numbers parted by commas, within a million pixels, not '" +
            PrintablePath(said) + "'");
  return {(*ends)[0], (*ends)[1], (*ends)[2], (*ends)[3]};
}

// "#RRGGBB", "RRGGBB" or a name, as 0x00BBGGRR.
unsigned long ParseColour(const std::string& said) {
  static const std::map<std::string, unsigned long> names = {
      {"black", 0x000000},   {"blue", 0xff0000},   {"cyan", 0xffff00}, {"green", 0x00ff00}, {"grey", 0x808080},
      {"magenta", 0xff00ff}, {"orange", 0x00a5ff}, {"red", 0x0000ff},  {"white", 0xffffff}, {"yellow", 0x00ffff}};
  const std::string digits = said.starts_with('#') ? said.substr(1) : said;
  if (digits.size() == 6 && digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
    const unsigned long rgb = std::stoul(digits, nullptr, 16);
    return (rgb & 0xff) << 16 | (rgb & 0xff00) | rgb >> 16;
  }
  if (said.starts_with('#')) throw Failure(kExitUsage, "--colour: #RRGGBB has six digits 0 to 9, a to f");
  return Choose(names, said, "--colour");
}

Anchor ParseAnchor(const std::string& said) {
  std::map<std::string, Anchor> names;
  for (const Anchor& anchor : Anchors()) names.emplace(anchor.name, anchor);
  return Choose(names, said, "--anchor");
}

int RunAnnotate(Arguments& arguments) {
  AnnotateRequest& request = arguments.request;
  for (const std::string& said : arguments.texts) request.texts.push_back(ParseText(said));
  for (const std::string& said : arguments.lines) request.lines.push_back(ParseLine(said));
  request.colour = ParseColour(arguments.colour);
  request.anchor = ParseAnchor(arguments.anchor);
  request.smooth = !arguments.plain;
  if (arguments.sized->count() > 0) {
    if (!(arguments.size >= 4.0 && arguments.size <= 2000.0)) throw Failure(kExitUsage, "--size: 4 to 2000 pixels");
    request.size = std::floor(arguments.size + 0.5);
  }
  if (arguments.widened->count() > 0) {
    if (arguments.lineWidth < 1 || arguments.lineWidth > 200)
      throw Failure(kExitUsage, "--line-width: 1 to 200 pixels");
    request.lineWidth = arguments.lineWidth;
  }
  if (arguments.scaled->count() > 0) {
    if (!(arguments.pixelScale >= 1e-4 && arguments.pixelScale <= 1e5))
      throw Failure(kExitUsage, "--pixel-scale: 0.0001 to 100000 arc seconds a pixel");
    request.pixelScale = arguments.pixelScale;
    request.scaleBar = true;
  }
  if (!arguments.levels.empty()) request.levels = ParseLevels("--levels", arguments.levels);
  if (!arguments.bayer.empty()) request.bayer = arguments.bayer;
  TerminalSteps steps(arguments.quiet);
  const AnnotateReport report = Annotate(request, steps);
  if (arguments.verbose) {
    std::printf("%s\n", report.command.c_str());
    if (!report.font.empty()) std::printf("font %s\n", report.font.c_str());
  }
  if (!arguments.quiet) std::printf("wrote %s\n", PrintablePath(request.output).c_str());
  return kExitDone;
}

// An option that may be given several times, one value each.
void Repeatable(CLI::Option* option, const char* form) {
  option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)->expected(1)->allow_extra_args(false)->option_text(form);
}

}  // namespace

void AddAnnotate(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  AnnotateRequest& request = arguments->request;
  CLI::App* command = program.add_subcommand("annotate", "Writes text, lines and a scale bar on a picture");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->footer(
      "Columns and rows count from 0 as the file stores them, pixel centres at whole numbers. {NAME} in a text stands\n"
      "for the value of that keyword, {{ for a brace: --caption '{OBJECT}, {EXPTIME} s, {DATE-OBS}'. Colours run from\n"
      "black to white of the levels; a picture of one plane takes the grey between the greatest and smallest of red,\n"
      "green and blue.");
  command->add_option("IN", request.input, "FITS file, one or three planes")->required()->option_text(" ");
  command
      ->add_option("OUT", request.output,
                   "32-bit FITS (.fit, .fits, .fts) with the keywords of IN, or 16-bit PNG from black to white")
      ->required()
      ->option_text(" ");
  Repeatable(
      command->add_option("--text,-t", arguments->texts, "Text with its top left at column X, row Y; repeatable"),
      "X,Y,TEXT");
  Repeatable(command->add_option("--line,-l", arguments->lines,
                                 "Line between two points, cut off at the edges of the picture; repeatable"),
             "X1,Y1,X2,Y2");
  command->add_option("--caption,-c", request.caption, "Text at the bottom left")->option_text("TEXT");
  command->add_flag("--scale-bar", request.scaleBar,
                    "Bar at the bottom right of a round length in the sky, at most a quarter of the width, from the "
                    "plate solution of the file (CD or "
                    "CDELT), else PIXSCALE or SECPIX, else XPIXSZ and FOCALLEN");
  arguments->scaled = command
                          ->add_option("--pixel-scale", arguments->pixelScale,
                                       "Draw that bar for this many arc seconds a pixel, 0.0001 to 100000")
                          ->option_text("N");
  command
      ->add_option("--font", request.family,
                   "Family to draw with; else, and where it is not installed, the default "
                   "one of the system")
      ->option_text("FAMILY");
  arguments->sized =
      command
          ->add_option("--size", arguments->size,
                       "Size of the font, pixels, 4 to 2000; default a fortieth of the picture's height, "
                       "12 at least")
          ->option_text("N");
  command->add_flag("--bold", request.bold, "Bold letters");
  command->add_flag("--italic", request.italic, "Italic letters");
  command
      ->add_option("--colour", arguments->colour,
                   "'#RRGGBB', or black, blue, cyan, green, grey, magenta, orange, red, white (default), yellow")
      ->option_text("COLOUR");
  command
      ->add_option("--anchor", arguments->anchor,
                   "Which point of a --text lies at X, Y: top-left (default), top, top-right, left, centre, right, "
                   "bottom-left, bottom, bottom-right")
      ->option_text("WHERE");
  arguments->widened = command
                           ->add_option("--line-width", arguments->lineWidth,
                                        "Width of lines, pixels, 1 to 200; default a twelfth of the size")
                           ->option_text("N");
  CLI::Option* smooth = command->add_flag("--smooth", arguments->smooth, "Letters with soft edges (default)");
  command->add_flag("--no-smooth", arguments->plain, "Letters of whole pixels")->excludes(smooth);
  command
      ->add_option("--levels", arguments->levels,
                   "Values of the file that are black and white, for all planes or each; else CBLACK and CWHITE of the "
                   "file, else from the sky")
      ->option_text("B,W[,...]");
  command
      ->add_option("--bayer", arguments->bayer,
                   "The sensor's mosaic: RGGB, GRBG, BGGR, GBRG or none; else the file tells")
      ->option_text("PATTERN");
  AddResultFlags(*command, request.force, arguments->verbose, arguments->quiet,
                 "Print all settings and the font that was used");
  command->callback([arguments, &run] { run = [arguments] { return RunAnnotate(*arguments); }; });
}

}  // namespace qmr
