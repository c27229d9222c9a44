// `qmr simulate`: a synthetic night with known truth.
#include "host/simulate/simulate.h"

#include <cstdio>
#include <memory>
#include <string>

#include "host/cli/commands.h"
#include "host/cli/interrupt.h"
#include "host/cli/terminal_steps.h"
#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "host/simulate/options.h"
#include "qmrimg/store/parallel.h"

namespace qmr {
namespace {

struct Arguments {
  std::string folder;
  std::string mosaic = "RGGB";
  std::string drift = "walk";
  std::string profile = "moffat";
  bool quiet = false;
  SimulateOptions night;
};

int RunSimulate(Arguments& arguments) {
  SimulateOptions& night = arguments.night;
  const auto mosaic = MosaicFromName(arguments.mosaic);
  if (!mosaic)
    throw Failure(kExitUsage, "--mosaic: mono, RGGB, GRBG, BGGR, GBRG or honeycomb, not '" + arguments.mosaic + "'");
  night.mosaic = *mosaic;
  night.drift = arguments.drift == "uniform" ? DriftKind::Uniform : DriftKind::Walk;
  night.profile = arguments.profile == "gaussian" ? StarProfile::Gaussian : StarProfile::Moffat;
  night.threads = CParallel::GetMaxThreads();
  if (const auto wrong = Check(night)) throw Failure(kExitUsage, *wrong);
  TerminalSteps steps(arguments.quiet);
  const CancelScope cancel;
  std::int64_t reported = 0;
  SimulateProgress progress;
  progress.cancelled = [] { return CancelScope::Requested(); };
  progress.report = [&](std::int64_t done, std::int64_t total) {
    if (reported == 0 && done == 0) steps.Begin("Simulating", total);
    steps.Advance(done - reported);
    reported = done;
  };
  const SimulateResult result = Simulate(night, arguments.folder, progress);
  if (result.cancelled) throw Failure(kExitInterrupted, "interrupted, nothing is left behind");
  if (!result.Ok()) throw Failure(kExitCannotCreate, result.error);
  steps.End("Simulated " + std::to_string(result.frames) + " frames in " + PrintablePath(arguments.folder) + ", seed " +
            std::to_string(night.seed));
  return kExitDone;
}

}  // namespace

void AddSimulate(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  SimulateOptions& night = arguments->night;
  CLI::App* command = program.add_subcommand(
      "simulate", "Makes a synthetic night with known truth: lights, darks, flats and biases as 16-bit FITS");
  command->option_defaults()->always_capture_default()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  command->add_option("DIR", arguments->folder, "Folder to make")->required();
  command->add_option("--seed", night.seed, "Nights of the same seed and options are the same, bit for bit");
  command->add_option("--width", night.width, "Pixels");
  command->add_option("--height", night.height, "Pixels");
  command->add_option("--lights", night.lights, "Light frames");
  command->add_option("--darks", night.darks, "Dark frames");
  command->add_option("--flats", night.flats, "Flat frames");
  command->add_option("--biases", night.biases, "Bias frames");
  command->add_option("--mosaic", arguments->mosaic, "mono, RGGB, GRBG, BGGR, GBRG or honeycomb");
  command->add_option("--drift", night.driftPixels, "Largest shift in x and y, pixels");
  command->add_option("--drift-kind", arguments->drift, "walk or uniform")
      ->check(CLI::IsMember({"walk", "uniform"}, CLI::ignore_case));
  command->add_option("--rotation", night.rotationDegrees, "Largest field rotation, degrees");
  command->add_option("--profile", arguments->profile, "Stars: moffat or gaussian")
      ->check(CLI::IsMember({"moffat", "gaussian"}, CLI::ignore_case));
  command->add_option("--fwhm", night.fwhm, "Seeing: full width of a star at half maximum, pixels");
  command->add_option("--fwhm-variation", night.fwhmVariation, "Relative spread of the seeing over the night");
  command->add_option("--stars", night.stars, "Stars per megapixel");
  command->add_option("--nebula", night.nebula, "Electrons of the nebula where it is bright; 0: none");
  command->add_option("--sky", night.sky, "Electrons of the sky");
  command->add_option("--sky-change", night.skyChange, "Relative rise of the sky over the night");
  command->add_option("--sky-gradient", night.skyGradient, "Relative difference of the sky from edge to edge");
  command->add_option("--clouds", night.clouds, "Largest loss of transparency on good frames");
  command->add_option("--bad-frames", night.badFrames, "Frames under thick cloud");
  command->add_option("--trails", night.trails, "Satellite trails over the night");
  command->add_option("--cosmic-rays", night.cosmicRays, "Hits per megapixel and frame");
  command->add_option("--exposure", night.exposure, "Seconds");
  command->add_option("--gain", night.gain, "Electrons per data unit");
  command->add_option("--offset", night.offset, "Data units");
  command->add_option("--read-noise", night.readNoise, "Electrons");
  command->add_option("--dark-current", night.darkCurrent, "Electrons per second and pixel");
  command->add_option("--amp-glow", night.ampGlow, "Electrons per second in the glowing corner");
  command->add_option("--hot-pixels", night.hotPixels, "Per megapixel");
  command->add_option("--cool-pixels", night.coolPixels, "Per megapixel");
  command->add_option("--vignetting", night.vignetting, "Loss of light in the corners");
  command->add_option("--dust", night.dust, "Dust shadows");
  command->add_flag("--scene", night.scene, "Also write the noise-free scene of the first frame");
  command->add_flag("--force", night.force, "Replace a night that the folder holds");
  command->add_flag("--quiet,-q", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &run] { run = [arguments] { return RunSimulate(*arguments); }; });
}

}  // namespace qmr
