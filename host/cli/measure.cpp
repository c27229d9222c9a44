// `qmr measure`: the stars of frames, and how sharp these are.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/cli/choose.h"
#include "host/cli/commands.h"
#include "host/cli/terminal_steps.h"
#include "host/files/atomic_file.h"
#include "host/measure/measure_report.h"
#include "host/night/plan.h"
#include "host/words/numbers.h"

namespace qmr {
namespace {

struct Arguments {
  std::vector<std::string> inputs, at;
  std::string output, bayer, plane = "luminance", sort = "flux";
  double threshold = 10.0, minFwhm = 0.0, maxFwhm = 0.0;
  int stars = 100;
  CLI::Option *minGiven = nullptr, *maxGiven = nullptr;
  bool json = false, table = false, force = false, quiet = false;
};

const std::map<std::string, Brightness> kPlanes = {{"luminance", Brightness::kLuminance},
                                                   {"red", Brightness::kRed},
                                                   {"green", Brightness::kGreen},
                                                   {"blue", Brightness::kBlue}};
const std::map<std::string, StarOrder> kOrders = {{"flux", StarOrder::kFlux},
                                                  {"snr", StarOrder::kSnr},
                                                  {"fwhm", StarOrder::kFwhm},
                                                  {"x", StarOrder::kX},
                                                  {"y", StarOrder::kY}};

void CheckRange(double value, double least, double most, const std::string& line) {
  // Not-a-number is out of every range.
  if (!(value >= least && value <= most)) throw Failure(kExitUsage, line);
}

MeasureOptions OptionsOf(const Arguments& arguments) {
  MeasureOptions options;
  if (!arguments.bayer.empty()) options.bayer = arguments.bayer;
  options.brightness = Choose(kPlanes, arguments.plane, "--plane");
  options.order = Choose(kOrders, arguments.sort, "--sort");
  CheckRange(arguments.threshold, 3.0, 10000.0, "--threshold: from 3 to 10000, in units of the noise");
  CheckRange(arguments.stars, 1, 20000, "--stars: from 1 to 20000");
  options.threshold = arguments.threshold;
  options.stars = static_cast<std::size_t>(arguments.stars);
  if (arguments.minGiven->count() > 0) {
    CheckRange(arguments.minFwhm, 0.1, 200.0, "--min-fwhm: from 0.1 to 200 pixels");
    options.minFwhm = arguments.minFwhm;
  }
  if (arguments.maxGiven->count() > 0) {
    CheckRange(arguments.maxFwhm, 0.1, 200.0, "--max-fwhm: from 0.1 to 200 pixels");
    options.maxFwhm = arguments.maxFwhm;
  }
  if (options.minFwhm > 0.0 && options.maxFwhm > 0.0 && options.minFwhm > options.maxFwhm)
    throw Failure(kExitUsage, "--min-fwhm: above --max-fwhm");
  for (const std::string& words : arguments.at) {
    const auto place = SplitNumbers(words);
    if (!place || place->size() != 2)
      throw Failure(kExitUsage, "--at: column and row, parted by a comma, not '" + PrintablePath(words) + "'");
    options.at.push_back({(*place)[0], (*place)[1]});
  }
  return options;
}

// The files, those of a folder among them in the order of their names.
std::vector<std::string> FilesOf(const std::vector<std::string>& inputs) {
  std::vector<std::string> files;
  for (const std::string& input : inputs) {
    std::error_code error;
    if (!std::filesystem::is_directory(input, error)) {
      files.push_back(input);
      continue;
    }
    for (const FrameSource& source : ListFrames(input)) files.push_back(source.path);
  }
  return files;
}

// A file that can't be measured ends the run where it is the only one; else the others are told. What the user said
// and doesn't hold for the first file is taken for a slip.
MeasureReport MeasureAll(const std::vector<std::string>& files, const MeasureOptions& options, Steps& steps) {
  MeasureReport report;
  report.at = options.at;
  const bool several = files.size() > 1;
  if (several) steps.Begin("measuring", static_cast<std::int64_t>(files.size()));
  for (const std::string& file : files) {
    try {
      report.frames.push_back(MeasureFrame(file, options));
    } catch (const Failure& failure) {
      if (!several || (failure.code == kExitUsage && report.frames.empty())) throw;
      report.failed.push_back({file, failure.what()});
    }
    if (several) steps.Advance(1);
  }
  const std::size_t done = report.frames.size();
  if (several) steps.End("measured " + std::to_string(done) + (done == 1 ? " frame" : " frames"));
  report.sharpest = Sharpest(report.frames);
  return report;
}

int RunMeasure(const Arguments& arguments) {
  const MeasureOptions options = OptionsOf(arguments);
  std::error_code error;
  if (!arguments.output.empty() && !arguments.force && std::filesystem::exists(arguments.output, error))
    throw Failure(kExitCannotCreate, PrintablePath(arguments.output) + ": exists; --force replaces it");
  TerminalSteps steps(arguments.quiet);
  const MeasureReport report = MeasureAll(FilesOf(arguments.inputs), options, steps);
  for (const MeasureReport::Failed& failed : report.failed) std::fprintf(stderr, "qmr: %s\n", failed.reason.c_str());
  const std::string text =
      arguments.json ? MeasureJson(report) : MeasureText(report, arguments.table || !options.at.empty());
  if (arguments.output.empty()) {
    std::fputs(text.c_str(), stdout);
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) throw Failure(kExitIo, "cannot write to standard output");
  } else {
    if (const FileStatus status = WriteTextFile(arguments.output, text))
      throw Failure(kExitCannotCreate, status->Message());
    if (!arguments.quiet) std::printf("wrote %s\n", PrintablePath(arguments.output).c_str());
  }
  return report.failed.empty() ? kExitDone : kExitBadData;
}

}  // namespace

void AddMeasure(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = program.add_subcommand("measure", "Measures the stars of frames, and tells the sharpest frame");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command
      ->add_option("IN", arguments->inputs,
                   "FITS or camera raw files, or folders of them: grey, colour, or undeveloped mosaics, which are "
                   "measured on the means of their cells of 2 x 2 pixels")
      ->required()
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text("...");
  command->add_option("--output,-o", arguments->output, "Write to this file instead of the terminal")
      ->option_text("FILE");
  command->add_flag("--json", arguments->json, "Write JSON: all frames with their stars");
  command->add_flag("--table", arguments->table, "With several frames, the stars of each as well");
  command->add_option("--stars", arguments->stars, "How many stars to tell of, the brightest: 1 to 20000; default 100")
      ->option_text("N");
  command
      ->add_option("--sort", arguments->sort, "Order of these: flux (default) or snr, the greatest first; fwhm, x or y")
      ->option_text("HOW");
  command
      ->add_option("--at", arguments->at,
                   "Measure the star at this column and row, or within two widths of it, instead; may be repeated. The "
                   "file's first pixel has its middle at 0,0")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->allow_extra_args(false)
      ->option_text("X,Y");
  command
      ->add_option("--threshold", arguments->threshold,
                   "How far a star stands out, 3 to 10000 times the noise of the frame under a filter as wide as its "
                   "stars; default 10")
      ->option_text("N");
  arguments->minGiven = command
                            ->add_option("--min-fwhm", arguments->minFwhm,
                                         "Narrower ones are no stars, 0.1 to 200 pixels; default half the usual width")
                            ->option_text("N");
  arguments->maxGiven = command
                            ->add_option("--max-fwhm", arguments->maxFwhm,
                                         "Wider ones are no stars, 0.1 to 200 pixels; default twice the usual width")
                            ->option_text("N");
  command->add_option("--plane", arguments->plane, "Of a colour frame: luminance (default), red, green or blue")
      ->option_text("NAME");
  command->add_option("--bayer", arguments->bayer, "The sensor's mosaic: RGGB, GRBG, BGGR, GBRG or none")
      ->option_text("PATTERN");
  command->add_flag("--force,-f", arguments->force, "Replace FILE if it exists");
  command->add_flag("--quiet,-q", arguments->quiet, "Say nothing but what was asked for, warnings and errors");
  command->footer(
      "Columns: x, y place of the star in pixels of the file, row 0 being its first; FWHM its full width at half\n"
      "maximum, pixels, and that along the axes of the ellipse, angle of the major one in degrees from +x towards +y;\n"
      "ellipt. 1 - minor / major; HFD diameter of half the flux, pixels; peak, background, flux in values of the "
      "file;\n"
      "SNR flux over its noise. Frames: medians over the stars that are not saturated; sky and its noise; focus, a\n"
      "sharpness without unit that does not depend on the exposure.");
  command->callback([arguments, &run] { run = [arguments] { return RunMeasure(*arguments); }; });
}

}  // namespace qmr
