// The last two steps of a registration: every patch by itself, then all of them as one rigid motion.
#pragma once

#include <optional>
#include <vector>

#include "host/night/registration/frame_geometry.h"
#include "host/night/registration/patch_set.h"

namespace qmr {

// The numbers of the patches that a step is to look at.
using PatchList = std::vector<int>;

// Where each patch correlates best within `reach` pixels of where `map` expects it; accurate to some tenths of a
// pixel. Patches that correlate below `resemblance` are left out. The weight is the squared
// correlation times the patch's strength, less along edges.
std::vector<Displacement> SearchPatches(const PatchSet& patches, const PatchList& which, const Luminance& frame,
                                        const RigidMap& map, int reach, double resemblance);

struct FineMatch {
  RigidFit fit;
  double correlation = 0.0;  // of the agreeing patches and the frame, at most 1
  double gain = 1.0;         // brightness of the frame over that of the reference
  double agreement = 0.0;    // strength of the agreeing patches over that of all that lie in the frame
};

// Least squares of position, brightness, background and seeing in each patch, iterated; `start` is to be within
// about a pixel. Nothing when too few patches agree.
std::optional<FineMatch> RefineMatch(const PatchSet& patches, const PatchList& which, const Luminance& frame,
                                     const FrameGeometry& start, bool shiftOnly);

}  // namespace qmr
