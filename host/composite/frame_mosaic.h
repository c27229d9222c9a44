// Frames of neighbouring fields joined to one large picture.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/composite/placement.h"
#include "host/night/steps.h"

namespace qmr {

// What stands where a frame lies over those before it.
enum class FrameOverlap { kNew, kNewMasked, kBrighter, kDarker, kBase, kAverage };
const std::map<std::string, FrameOverlap>& FrameOverlaps();

struct FrameToJoin {
  std::string path;
  // Where it lies on the first frame; nothing: as the sky coordinates of the two say.
  std::optional<LibraryGeometry> place;
};

struct FrameMosaicRequest {
  std::vector<FrameToJoin> frames;  // two or more; the first one lies at 0
  PlaceSearch search;               // measures the places anew, starting from those
  int interpolation = 1;            // method number of CInterp
  FrameOverlap overlap = FrameOverlap::kNew;
  std::vector<double> maskColour;    // for kNewMasked: one value or three
  bool matchSky = false;             // bring each frame's sky to that of the mosaic so far
  int feather = 0;                   // for kNew: pixels over which a frame's edge blends in
  std::optional<double> background;  // of pixels that no frame covers; nothing: they have no value
  std::string output;
  bool force = false;
};

struct FrameMosaicReport {
  std::string command;  // gives the same picture again
  std::vector<std::string> lines;
};

// Reads, places, joins, writes. The picture holds all frames, in the pixels of the first one, and has its keywords. A
// Failure says what is wrong, and an older output stays as it was.
FrameMosaicReport MakeFrameMosaic(const FrameMosaicRequest& request, Steps& steps);

}  // namespace qmr
