// What a night did, for programs.
#include <nlohmann/json.hpp>

#include "host/files/file_error.h"
#include "host/night/night.h"
#include "host/version.h"
#include "qmrimg/geometry/interp.h"

namespace qmr {

std::string ReportJson(const NightResult& result, const StackOptions& options) {
  using Json = nlohmann::ordered_json;
  Json report;
  report["program"] = std::string("qmrimg ") + kVersion;
  report["output"] = PrintablePath(options.output);
  report["reference"] = PrintablePath(result.reference);
  report["convention"] =
      "a frame shows the reference point p at R(rotation) (p - c) + c + (dx, dy), pixels, c the middle of the frame, "
      "x to the right, y along the rows of the file, R turning +x towards +y";
  if (!result.mosaic.empty()) report["mosaic"] = result.mosaic;
  report["combine"] = CombineName(options.combine);
  if (options.combine == CombineMethod::kKappaSigma) report["kappa"] = options.kappa;
  report["interpolation"] = NarrowUtf8(CInterp::GetEngString(options.interpolation).GetString());
  report["frames_used"] = result.used;
  report["exposure_seconds"] = result.exposure;
  Json frames = Json::array();
  for (const LightFrame& frame : result.frames) {
    Json entry;
    entry["file"] = PrintablePath(frame.name);
    entry["used"] = frame.Used();
    if (frame.Used()) {
      const Registration& r = frame.registration;
      entry["dx"] = r.geometry.dx;
      entry["dy"] = r.geometry.dy;
      entry["rotation_deg"] = r.geometry.thetaDegrees;
      entry["shift_error"] = r.shiftError;
      entry["rotation_error_deg"] = r.thetaError;
      entry["background"] = {frame.quality.background[0], frame.quality.background[1], frame.quality.background[2]};
      entry["sharpness"] = frame.quality.sharpness;
      if (frame.blankPixels) entry["blank_pixels"] = frame.blankPixels;
    } else {
      entry["reason"] = PrintablePath(frame.leftOut);
    }
    frames.push_back(std::move(entry));
  }
  report["frames"] = std::move(frames);
  Json leftOut = Json::array();
  for (const LeftOut& out : result.leftOut)
    leftOut.push_back({{"file", PrintablePath(out.path)}, {"reason", PrintablePath(out.reason)}});
  report["left_out"] = std::move(leftOut);
  if (result.againstTruth) {
    const GeometryError& e = *result.againstTruth;
    report["against_truth"] = {{"frames", e.frames},
                               {"shift_rms_px", e.shiftRms},
                               {"rotation_rms_deg", e.rotationRms},
                               {"grid_rms_px", e.gridRms},
                               {"grid_max_px", e.gridMax}};
  }
  return report.dump(2) + "\n";
}

}  // namespace qmr
