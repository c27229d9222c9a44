// Two pictures combined pixel by pixel into one.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/composite/placement.h"
#include "host/night/steps.h"

namespace qmr {

// The mode numbers of CImgComposit.
enum class CompositeMode {
  kAverage,
  kAdd,
  kWeighted,
  kSubtract,
  kMultiply,
  kDivide,
  kDifference,
  kBrighter,
  kDarker,
  kMinimum
};
const std::map<std::string, CompositeMode>& CompositeModes();

// What stands where B does not reach: A, what the mode makes of nothing, or no value.
enum class CompositeMargin { kKeep, kMode, kBlank };
const std::map<std::string, CompositeMargin>& CompositeMargins();

struct CompositeRequest {
  std::string a, b, output;
  CompositeMode mode = CompositeMode::kAverage;
  LibraryGeometry place;  // of B, or the estimate of it
  PlaceSearch search;
  int interpolation = 1;             // method number of CInterp
  double weight = 0.5;               // of B, for kWeighted
  std::optional<double> gain = 1.0;  // factor of B; empty: what brings its mean to 1
  double saturation = 0.95;          // for kMinimum: share of the white level or of the image's maximum
  int neighbours = 1;                // for kMinimum: radius, pixels
  bool clipNegative = false;         // for kSubtract
  bool display = false;              // work between black and white instead of on the values of the files
  std::vector<double> levelsA, levelsB;
  std::optional<CRect> rect;
  CompositeMargin margin = CompositeMargin::kKeep;
  bool force = false;
};

struct CompositeReport {
  std::string command;  // gives the same picture again
  std::string place;    // where B was found; empty unless it was measured
};

// Reads, measures, combines, writes. The picture has A's size, planes and keywords, and lacks a value where A does.
// A Failure says what is wrong, and an older output stays as it was.
CompositeReport MakeComposite(const CompositeRequest& request, Steps& steps);

}  // namespace qmr
