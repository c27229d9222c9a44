// One colour picture from frames through several filters.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/night/registration/registration.h"
#include "host/night/steps.h"

namespace qmr {

enum class Composition {
  kRgb,   // red, green, blue
  kCmy,   // cyan, magenta, yellow
  kLrgb,  // luminance and colour, read bilinearly
  kLab    // the same through the interpolation of the user's choice
};

// The words for the frames of a composition, in their order.
const std::vector<std::string_view>& FrameNames(Composition composition);

struct ComposeFrame {
  std::string path;
  // Where the frame lies: the result at (x, y) shows the frame at (x - dx, y - dy), turned about its middle.
  double dx = 0.0, dy = 0.0;   // pixels of the result
  double angle = 0.0;          // degrees
  bool placed = false;         // the user has said one of them
  std::vector<double> levels;  // black and white, or both of each plane; empty for those of the file or the sky
};

// What to do with luminance and colour: a picture, or one plane by plane that shows how the frames fit.
enum class ComposeBlend { kNone, kMean, kDifference, kInverse };

struct ComposeRequest {
  Composition composition = Composition::kRgb;
  std::vector<ComposeFrame> frames;
  AlignMode align = AlignMode::kNone;  // measures shift and angle against the first frame
  int interpolation = 3;               // method number of CInterp
  std::optional<double> colourScale;   // pixels of the colour frame a pixel of the luminance; else from their sizes
  ComposeBlend blend = ComposeBlend::kNone;
  std::string output;
  bool force = false;
};

struct ComposeReport {
  std::string command;  // gives the same picture again
  std::vector<std::string> lines;
};

// Reads, aligns, composes, writes. The picture has the first frame's size and keywords, and is 0 in a plane whose frame
// does not reach there. A Failure says what is wrong, and an older output stays as it was.
ComposeReport Compose(ComposeRequest& request, Steps& steps);

}  // namespace qmr
