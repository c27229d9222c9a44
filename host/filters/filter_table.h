// All filters of the library as `qmr filter` offers them, one row each.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "host/filters/parameters.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// What a filter is asked to do. The source has its levels and no pixel that is not a number.
struct FilterJob {
  CVynImage& source;
  CRect rect;  // inside the image, not empty
  const Settings& settings;
  int mosaic = 0;           // layout number of an undeveloped frame, 0 for any other image
  HWND progress = nullptr;  // may be null
};

// The result: the source's pixels outside the rectangle, the filtered ones inside; its levels show it from black to
// white. The source's levels may change meanwhile, and are as before in the end.
using FilterCall = std::unique_ptr<CVynImage> (*)(const FilterJob& job);

// What a filter works on: any developed image, one of three planes, or an undeveloped frame.
enum class FilterInput { kPicture, kColour, kMosaic };

struct FilterSpec {
  std::string_view name;
  std::string_view group;
  std::string_view summary;
  std::vector<Parameter> parameters;
  FilterCall call;
  FilterInput input = FilterInput::kPicture;
  bool selects = false;      // has limits that choose the pixels to change
  bool keepsBright = false;  // can keep pixels from getting darker
  Settings::RankCount ranks = nullptr;
  // Checks what the rows can't say; null when there is nothing. Throws a Failure with kExitUsage.
  void (*check)(const Settings& settings) = nullptr;
  // Sets the levels that suit the filter where the user gives none; null for those of the file or the sky.
  void (*levels)(CVynImage& image, const Settings& settings) = nullptr;
};

// In the order of groups.
const std::vector<FilterSpec>& Filters();
// What every filter with a selection takes, what those that sharpen take besides, and what all filters take.
const std::vector<Parameter>& SelectionParameters();
const std::vector<Parameter>& BrightnessParameters();
const std::vector<Parameter>& CommonParameters();
// All that a filter can be told: its own parameters, then those above as far as they apply.
std::vector<const Parameter*> ParametersOf(const FilterSpec& filter);

}  // namespace qmr
