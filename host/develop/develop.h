// Development of one undeveloped frame.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/night/develop_mosaic.h"
#include "host/night/steps.h"

namespace qmr {

// kCamera: the multipliers that the file has in WB_RED, WB_GREEN and WB_BLUE. kGrey: what brings the medians of the
// frame's sites together.
enum class WhiteBalance { kNone, kCamera, kGrey };

// What --black says: nothing is subtracted, what the file tells of, or a level, raw scale.
struct BlackLevel {
  enum class From { kNone, kFile, kGiven };
  From from = From::kFile;
  double level = 0.0;
};

struct DevelopRequest {
  std::string input, output;
  bool force = false;
  std::optional<std::string> mosaic;  // the user's word: a Bayer pattern, or 11 to 14
  int bits = 0;                       // 0, 12 or 14, as Development has it
  std::optional<DevelopMargins> margins;
  bool fullSize = false;  // keeps the frame's size: its edges go on beyond it
  bool mono = false;
  std::optional<int> interpolation;  // as Development has it; honeycomb only
  bool autoRange = false;
  // Darkest and brightest value for knee and clip, after the black level; empty: from the file.
  std::vector<double> range;
  std::vector<double> gains;  // 3 of the colours, or 4 or 8 of the sites; empty: by `whiteBalance`
  WhiteBalance whiteBalance = WhiteBalance::kNone;
  bool knee = false;
  std::optional<double> gamma;
  bool clip = false;
  BlackLevel black;
  std::vector<double> levels;  // of the result; empty: from the file or the sky
};

struct DevelopReport {
  std::string command;  // with all that was found
  std::string mosaic;   // what it is and how that is known
  double black = 0.0;   // what was subtracted
  std::vector<double> gains;
  std::size_t blankPixels = 0;
};

// Reads, develops, writes. By default the result is what a stack makes of the frame: linear, unlimited, without gains;
// only a black level that the file tells of is subtracted.
// Pixels without a value are bridged where enough of their colour are near, as a stack does; elsewhere the pixels
// around them have none either. A Failure says what is wrong.
DevelopReport DevelopFrame(const DevelopRequest& request, Steps& steps);

}  // namespace qmr
