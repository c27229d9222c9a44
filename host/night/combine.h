// Combines registered frames into one image.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "host/night/frame.h"
#include "host/night/options.h"
#include "host/night/steps.h"

namespace qmr {

// How a frame's values are brought to those of the reference: the frame's pixels already have its sky subtracted,
// `scale` is its factor and `offset` the reference's sky, one entry a plane.
struct FrameScale {
  double scale[3] = {1.0, 1.0, 1.0};
  double offset[3] = {};
};

struct Combined {
  std::unique_ptr<CVynImage> image;
  std::vector<std::uint16_t> coverage;  // frames that cover each pixel, row after row
};

// Samples every frame once, where its geometry says, on the grid of the reference, and combines the samples pixel by
// pixel in strips of `options.strip` rows. The result doesn't depend on the strips nor on the number of threads.
Combined CombineFrames(const std::vector<const LightFrame*>& frames, const std::vector<FrameScale>& scales,
                       const StackOptions& options, Steps& steps);

}  // namespace qmr
