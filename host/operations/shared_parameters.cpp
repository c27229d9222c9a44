// Parameters of more than one operation.
#include "host/operations/operation.h"

namespace qmr {
namespace {

using Kind = ValueKind;
using Count = ValueCount;

// Levels may lie far below black and above white.
constexpr double kLevelEnd = 1e6;
constexpr double kRawEnd = 1e30;

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

const std::vector<Parameter>& PartParameters() {
  static const std::vector<Parameter> parameters = {
      {.key = "rect",
       .meaning = "Change this part only; right and bottom are the first column and row outside",
       .unit = "pixels",
       .kind = Kind::kWhole,
       .count = Count::kRectangle,
       .least = -1e6,
       .most = 1e9,
       .range = "the whole image by default"}};
  return parameters;
}

const std::vector<Parameter>& CommonParameters() {
  static const std::vector<Parameter> parameters = {
      {.key = "levels",
       .meaning = "Values of the file that are black and white, for all planes or each",
       .count = Count::kLevels,
       .least = -kRawEnd,
       .most = kRawEnd,
       .range = "by default CBLACK and CWHITE of the file, else found from the picture"}};
  return parameters;
}

std::vector<const Parameter*> ParametersOf(const OperationSpec& operation) {
  std::vector<const Parameter*> all;
  const auto add = [&](const std::vector<Parameter>& parameters) {
    for (const Parameter& parameter : parameters) all.push_back(&parameter);
  };
  add(operation.parameters);
  if (operation.selects) add(SelectionParameters());
  if (operation.keepsBright) add(BrightnessParameters());
  if (!operation.wholeOnly) add(PartParameters());
  add(CommonParameters());
  return all;
}

}  // namespace qmr
