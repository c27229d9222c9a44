// `qmr info`: what a file says, and statistics of its planes.
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/cli/commands.h"
#include "host/files/info.h"
#include "host/night/failure.h"
#include "qmrimg/raw/information.h"

namespace qmr {
namespace {

std::optional<int> CameraPattern(const std::string& maker, const std::string& model) {
  CImgInformation camera;
  camera.GetHeader()->SetCameraMaker(WidenUtf8(maker));
  camera.GetHeader()->SetCameraModel(WidenUtf8(model));
  int pattern = 0;
  if (!camera.GetAutoCFA(&pattern)) return std::nullopt;
  return pattern;
}

}  // namespace

void AddInfo(CLI::App& program, Run& run) {
  struct Arguments {
    std::vector<std::string> files;
    std::string bayer;
    bool json = false;
  };
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = program.add_subcommand("info", "Tells what image files say, and statistics of their pixels");
  command->add_option("FILE", arguments->files, "FITS or camera raw files")->required();
  command->add_option("--bayer", arguments->bayer, "The sensor's mosaic: RGGB, GRBG, BGGR, GBRG or none")
      ->option_text("PATTERN");
  command->add_flag("--json", arguments->json, "Write JSON");
  command->callback([arguments, &run] {
    run = [arguments] {
      InfoOptions options;
      options.json = arguments->json;
      if (!arguments->bayer.empty()) options.bayer = arguments->bayer;
      options.cameraPattern = CameraPattern;
      if (options.bayer) {
        MosaicQuestion question;
        question.user = options.bayer;
        if (const auto layout = ResolveMosaic(question); !layout) throw Failure(kExitUsage, layout.Error().reason);
      }
      const int failed = WriteInfo(arguments->files, options, std::cout, std::cerr);
      std::cout.flush();
      if (!std::cout) throw Failure(kExitIo, "cannot write to standard output");
      return failed ? kExitBadData : kExitDone;
    };
  });
}

}  // namespace qmr
