// `qmr stack`: a folder of frames goes in, one image comes out.
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/cli/choose.h"
#include "host/cli/commands.h"
#include "host/cli/shared_options.h"
#include "host/cli/terminal_steps.h"
#include "host/files/atomic_file.h"
#include "host/night/failure.h"
#include "host/night/night.h"

namespace qmr {
namespace {

struct Arguments {
  std::string combine = "kappa-sigma";
  std::string align = "rotation";
  std::string normalise = "scale";
  std::string interpolation = "Lanczos3";
  std::string bayer, honeycomb;
  bool quiet = false;
  StackOptions night;
};

const std::map<std::string, CombineMethod> kCombine = {{"median", CombineMethod::kMedian},
                                                       {"kappa-sigma", CombineMethod::kKappaSigma},
                                                       {"average", CombineMethod::kAverage},
                                                       {"maximum", CombineMethod::kMaximum},
                                                       {"minimum", CombineMethod::kMinimum}};
const std::map<std::string, AlignMode> kAlign = {
    {"none", AlignMode::kNone}, {"shift", AlignMode::kShift}, {"rotation", AlignMode::kRotation}};
const std::map<std::string, Normalisation> kNormalise = {
    {"none", Normalisation::kNone}, {"offset", Normalisation::kOffset}, {"scale", Normalisation::kScale}};

void PrintResult(const NightResult& result, const StackOptions& options) {
  std::printf("%d frames stacked, on %s", result.used, PrintablePath(result.reference).c_str());
  if (result.exposure > 0.0) std::printf(", %g s in all", result.exposure);
  std::printf("\n");
  if (!result.mosaic.empty()) std::printf("mosaic: %s\n", result.mosaic.c_str());
  for (const LightFrame& frame : result.frames) {
    if (!frame.Used()) continue;
    const FrameGeometry& g = frame.registration.geometry;
    std::printf("  %-28s shift %+9.3f %+9.3f px  rotation %+8.4f deg\n", PrintablePath(frame.name).c_str(), g.dx, g.dy,
                g.thetaDegrees);
  }
  for (const LeftOut& out : result.leftOut)
    std::printf("  left out: %s: %s\n", PrintablePath(out.path).c_str(), out.reason.c_str());
  if (result.againstTruth) {
    const GeometryError& e = *result.againstTruth;
    std::printf(
        "against the truth, rms of %d frames: shift %.4f px, rotation %.6f deg, anywhere in the frame %.4f px\n",
        e.frames, e.shiftRms, e.rotationRms, e.gridRms);
  }
  std::printf("wrote %s\n", PrintablePath(options.output).c_str());
  for (const std::string& path : {options.preview, options.coverage, options.report})
    if (!path.empty()) std::printf("wrote %s\n", PrintablePath(path).c_str());
}

std::string WithoutEnding(const std::string& path) {
  const auto dot = path.rfind('.');
  const auto slash = path.rfind('/');
  return dot == std::string::npos || (slash != std::string::npos && dot < slash) ? path : path.substr(0, dot);
}

int RunStack(Arguments& arguments) {
  StackOptions& night = arguments.night;
  night.combine = Choose(kCombine, arguments.combine, "--combine");
  night.align = Choose(kAlign, arguments.align, "--align");
  night.normalise = Choose(kNormalise, arguments.normalise, "--normalise");
  night.interpolation = ChooseInterpolation(arguments.interpolation);
  // The range lets not-a-number through.
  if (std::isnan(night.kappa)) throw Failure(kExitUsage, "--kappa: a number of standard deviations, 0.1 to 1000");
  night.bayer = MosaicWord(arguments.bayer, arguments.honeycomb);
  if (night.folder.empty() && night.lights.empty())
    throw Failure(kExitUsage, "name a folder of frames, or lights with --light");
  if (night.noPreview)
    night.preview.clear();
  else if (night.preview.empty())
    night.preview = WithoutEnding(night.output) + ".png";
  TerminalSteps steps(arguments.quiet);
  const NightResult result = StackNight(night, steps);
  if (!arguments.quiet) PrintResult(result, night);
  return kExitDone;
}

}  // namespace

void AddStack(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  StackOptions& night = arguments->night;
  CLI::App* command =
      program.add_subcommand("stack", "Calibrates, develops, registers and stacks a folder of frames of one night");
  command->option_defaults()->always_capture_default()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->add_option("FOLDER", night.folder,
                      "Of FITS or camera raw files. Holds lights/ and, as far as there are any, darks/ flats/ biases/ "
                      "flatdarks/; without such folders the files are told apart by IMAGETYP or by their names");
  command->add_option("--light", night.lights, "Light frames or folders of them, instead of FOLDER's")
      ->option_text("PATH ...")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  command->add_option("--dark", night.dark, "Master dark, folder of darks, or 'none'")->option_text("PATH");
  command->add_option("--flat", night.flat, "Master flat, folder of flats, or 'none'")->option_text("PATH");
  command->add_option("--bias", night.bias, "Master bias, folder of biases, or 'none'")->option_text("PATH");
  command->add_option("-o,--output", night.output, "The stack, 32-bit FITS");
  command->add_option("--preview", night.preview, "Picture to look at; by default the output's name with .png")
      ->option_text("PNG");
  command->add_flag("--no-preview", night.noPreview, "Make no picture");
  command->add_option("--coverage", night.coverage, "Write how many frames cover each pixel")->option_text("FITS");
  command->add_option("--report", night.report, "Write what was done to each frame")->option_text("JSON");
  command->add_option("--truth", night.truth, "Compare the measured geometry with a simulated night's truth.json")
      ->option_text("JSON");
  command
      ->add_option("--bayer", arguments->bayer,
                   "The sensor's mosaic: RGGB, GRBG, BGGR, GBRG or none; else the files tell")
      ->option_text("PATTERN");
  command
      ->add_option("--honeycomb", arguments->honeycomb,
                   "The sensor's photosites lie on a diagonal lattice: layout 11 to 14, see docs/develop.md; else the "
                   "camera's name tells")
      ->option_text("N");
  command->add_option("--align", arguments->align, "none, shift or rotation");
  command->add_option("--reference", night.reference, "Name of the frame to lie on; by default the sharpest")
      ->option_text("NAME");
  command->add_option("--combine", arguments->combine, "median, kappa-sigma, average, maximum or minimum");
  command->add_option("--kappa", night.kappa, "Rejection limit of kappa-sigma, standard deviations")
      ->check(CLI::Range(0.1, 1000.0));
  command->add_option("--normalise", arguments->normalise,
                      "Bring frames to the reference: none, offset (sky) or scale (sky and transparency)");
  command->add_option("--interpolation", arguments->interpolation,
                      "Bilinear, Bicubic, Lanczos2, Lanczos3 or NearestNeighbor");
  command->add_option("--strip", night.strip, "Rows combined at a time; the result doesn't depend on it")
      ->check(CLI::Range(1, 1000000));
  command->add_flag("--quiet,-q", arguments->quiet, "Say nothing but warnings and errors");
  command->callback([arguments, &run] { run = [arguments] { return RunStack(*arguments); }; });
}

}  // namespace qmr
