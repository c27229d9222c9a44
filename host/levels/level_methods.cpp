#include <algorithm>

#include "host/levels/level_calls.h"
#include "host/levels/level_method.h"

namespace qmr {
namespace {

using Kind = ValueKind;
using Count = ValueCount;

constexpr double kMostDeviations = 1e6;
constexpr double kRawEnd = 1e30;

Parameter Percentile(std::string_view key, std::string_view meaning, std::string_view fallback) {
  return {.key = key, .meaning = meaning, .unit = "%", .least = -1000.0, .most = 1000.0, .fallback = fallback};
}

Parameter Deviations(std::string_view key, std::string_view meaning, std::string_view fallback) {
  return {.key = key,
          .meaning = meaning,
          .unit = "standard deviations",
          .least = -kMostDeviations,
          .most = kMostDeviations,
          .fallback = fallback};
}

Parameter Given(std::string_view key, std::string_view meaning) {
  return {.key = key,
          .meaning = meaning,
          .unit = "value of the file",
          .count = Count::kPlanes,
          .least = -kRawEnd,
          .most = kRawEnd,
          .required = true,
          .range = "any"};
}

std::vector<LevelMethod> MakeMethods() {
  std::vector<LevelMethod> methods;
  methods.push_back(
      {.name = "percentile",
       .summary = "Black and white are percentiles of the pixels",
       .parameters = {Percentile("low",
                                 "Share of the pixels that are darker than black; 0 is the minimum, below it a "
                                 "share of the range of values",
                                 "0.5"),
                      Percentile("high",
                                 "Share of the pixels that are darker than white; 100 is the maximum, above it "
                                 "a share of the range of values",
                                 "98")},
       .set = SetPercentileLevels});
  methods.push_back({.name = "mean",
                     .summary = "Mean and standard deviation of all pixels, stars and nebulae included",
                     .parameters = {Deviations("below", "How far black lies below the mean", "0.7"),
                                    Deviations("above", "How far white lies above it", "3")},
                     .set = SetMeanLevels});
  methods.push_back({.name = "median",
                     .summary = "Median, and deviation of all pixels about it",
                     .parameters = {Deviations("below", "How far black lies below the median", "0.4"),
                                    Deviations("above", "How far white lies above it", "4")},
                     .set = SetMedianLevels});
  methods.push_back({.name = "mode",
                     .summary = "The peak of the histogram, which is the sky, comes to lie at a level of your choice",
                     .parameters = {{.key = "mode-level",
                                     .meaning = "Level of the peak, 0 black, 255 white",
                                     .least = 0.1,
                                     .most = 254.0,
                                     .fallback = "25.5"},
                                    {.key = "depth",
                                     .meaning = "How far black lies below the peak",
                                     .unit = "six deviations of what is below the peak",
                                     .least = 0.01,
                                     .most = 1000.0,
                                     .fallback = "1"},
                                    {.key = "balance",
                                     .meaning = "Ties the planes together: modes lays their peaks on one another, none "
                                                "gives each its own levels (linked: one black level), first keeps the "
                                                "levels that the file or the sky gives the first plane",
                                     .kind = Kind::kChoice,
                                     .fallback = "none",
                                     .choices = {"modes", "none", "first"}}},
                     .set = SetModeLevels,
                     .unlinked = true,
                     .fromZero = true,
                     .fromFile = KeepsFirstLevels});
  methods.push_back({.name = "span",
                     .summary = "All of the histogram: from six deviations below its peak to where it thins out",
                     .parameters = {},
                     .set = SetSpanLevels,
                     .fromZero = true});
  methods.push_back({.name = "noise",
                     .summary = "Sky and noise of the sky; stars and nebulae don't count",
                     .parameters = {{.key = "about",
                                     .meaning = "What stands for the sky: the median, or the peak of the histogram",
                                     .kind = Kind::kChoice,
                                     .fallback = "median",
                                     .choices = {"median", "mode"}},
                                    Deviations("below", "How far black lies below the sky", "6"),
                                    Deviations("above", "How far white lies above it", "54")},
                     .set = SetNoiseLevels,
                     .unlinked = true});
  methods.push_back({.name = "sky",
                     .summary = "As the other commands find them: the sky of each plane a dark grey, one range for all",
                     .parameters = {},
                     .set = SetSkyLevels,
                     .measures = false});
  methods.push_back({.name = "file",
                     .summary = "CBLACK and CWHITE of the file",
                     .parameters = {},
                     .set = SetFileLevels,
                     .measures = false});
  methods.push_back({.name = "manual",
                     .summary = "Values of your choice",
                     .parameters = {Given("black", "What is black"), Given("white", "What is white")},
                     .set = SetManualLevels,
                     .measures = false});
  return methods;
}

}  // namespace

const std::vector<LevelMethod>& LevelMethods() {
  static const std::vector<LevelMethod> methods = MakeMethods();
  return methods;
}

const LevelMethod* FindLevelMethod(std::string_view name) {
  const std::vector<LevelMethod>& methods = LevelMethods();
  const auto found = std::find_if(methods.begin(), methods.end(), [&](const LevelMethod& m) { return m.name == name; });
  return found == methods.end() ? nullptr : &*found;
}

const Parameter& MeasuredRectangle() {
  static const Parameter rectangle = {
      .key = "rect",
      .meaning = "Measure this part only; right and bottom are the first column and row outside",
      .unit = "pixels",
      .kind = Kind::kWhole,
      .count = Count::kRectangle,
      .least = -1e6,
      .most = 1e9,
      .range = "the whole image by default"};
  return rectangle;
}

std::vector<const Parameter*> ParametersOf(const LevelMethod& method) {
  std::vector<const Parameter*> all;
  for (const Parameter& parameter : method.parameters) all.push_back(&parameter);
  if (method.measures) all.push_back(&MeasuredRectangle());
  return all;
}

}  // namespace qmr
