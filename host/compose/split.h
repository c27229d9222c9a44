// A colour picture taken apart.
#pragma once

#include <string>
#include <vector>

#include "host/night/steps.h"

namespace qmr {

enum class SplitInto {
  kRgb,  // its planes
  kCmy,  // the means of two of them
  kLab   // lightness, a and b
};

struct SplitRequest {
  SplitInto into = SplitInto::kRgb;
  std::string input;
  std::string output;          // "night.fit" makes night_red.fit and so on
  std::vector<double> levels;  // black and white, or both of each plane; empty for those of the file or the sky
  bool force = false;
};

// Reads, splits, writes; tells the names of what it wrote. All outputs are checked before the first is written.
std::vector<std::string> Split(const SplitRequest& request, Steps& steps);

}  // namespace qmr
