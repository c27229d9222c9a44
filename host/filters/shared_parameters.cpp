// Parameters of more than one filter.
#include "host/filters/filter_table.h"

namespace qmr {
namespace {

using Kind = ValueKind;
using Count = ValueCount;

// Levels may lie far below black and above white.
constexpr double kLevelEnd = 1e6;
constexpr double kRawEnd = 1e30;

Parameter Switch(std::string_view key, std::string_view meaning) {
  return {.key = key, .meaning = meaning, .kind = Kind::kSwitch};
}

Parameter MaskEnd(std::string_view key, std::string_view meaning) {
  return {.key = key,
          .meaning = meaning,
          .unit = "0 black, 255 white",
          .count = Count::kPlanes,
          .least = -kLevelEnd,
          .most = kLevelEnd,
          .mayBeNone = true,
          .range = "any level"};
}

Parameter MaskRamp(std::string_view key, std::string_view meaning, std::string_view with) {
  return {.key = key,
          .meaning = meaning,
          .unit = "on the same scale",
          .count = Count::kPlanes,
          .most = kLevelEnd,
          .fallback = "0",
          .with = with};
}

}  // namespace

const std::vector<Parameter>& SelectionParameters() {
  static const std::vector<Parameter> parameters = {
      MaskEnd("mask-min", "Pixels from this level up change fully"),
      MaskRamp("mask-min-buffer", "Width of the ramp below it", "mask-min"),
      MaskEnd("mask-max", "Pixels up to this level change fully"),
      MaskRamp("mask-max-buffer", "Width of the ramp above it", "mask-max")};
  return parameters;
}

const std::vector<Parameter>& BrightnessParameters() {
  static const std::vector<Parameter> parameters = {Switch("keep-brighter", "No pixel gets darker than it was")};
  return parameters;
}

const std::vector<Parameter>& CommonParameters() {
  static const std::vector<Parameter> parameters = {
      {.key = "rect",
       .meaning = "Filter this part only; right and bottom are the first column and row outside",
       .unit = "pixels",
       .kind = Kind::kWhole,
       .count = Count::kRectangle,
       .least = -1e6,
       .most = 1e9,
       .range = "the whole image by default"},
      {.key = "levels",
       .meaning = "Values of the file that are black and white, for all planes or each",
       .count = Count::kLevels,
       .least = -kRawEnd,
       .most = kRawEnd,
       .range = "by default CBLACK and CWHITE of the file, else from the sky's brightness and noise"}};
  return parameters;
}

std::vector<const Parameter*> ParametersOf(const FilterSpec& filter) {
  std::vector<const Parameter*> all;
  const auto add = [&](const std::vector<Parameter>& parameters) {
    for (const Parameter& parameter : parameters) all.push_back(&parameter);
  };
  add(filter.parameters);
  if (filter.selects) add(SelectionParameters());
  if (filter.keepsBright) add(BrightnessParameters());
  add(CommonParameters());
  return all;
}

}  // namespace qmr
