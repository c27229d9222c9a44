// The road of one night: a folder of frames goes in, one calibrated, developed, registered and stacked image comes out.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/night/frame.h"
#include "host/night/options.h"
#include "host/night/steps.h"
#include "host/simulate/truth.h"

namespace qmr {

struct NightResult {
  std::unique_ptr<CVynImage> stack;
  std::vector<LightFrame> frames;  // without their pixels
  std::vector<LeftOut> leftOut;    // frames of any role that were not used
  std::string reference;           // name of the frame that the stack lies on
  std::string mosaic;              // what the sensor's mosaic is and how that is known
  int used = 0;
  double exposure = 0.0;  // seconds in all, 0 when not known
  std::optional<GeometryError> againstTruth;
};

// Stacks a night and writes what the options name. Failure when there is nothing to stack or nothing can be written;
// frames that can't be used are named in the result instead.
NightResult StackNight(const StackOptions& options, Steps& steps);

// What the result says, as JSON.
std::string ReportJson(const NightResult& result, const StackOptions& options);

const char* CombineName(CombineMethod method);

}  // namespace qmr
