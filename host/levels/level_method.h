// The ways to set display levels, as the command line offers them, one row each.
#pragma once

#include <string_view>
#include <vector>

#include "host/files/keyword.h"
#include "host/operations/parameters.h"
#include "qmrimg/levels/auto_level.h"

namespace qmr {

struct LevelJob {
  // Has a value in every pixel of what is measured. The levels begin as one range for all planes, from the least to the
  // greatest value, or where `fromFile` is set as those of the file or the sky.
  CImgAutoLevel& image;
  const std::vector<Keyword>& keywords;
  const Settings& settings;
  bool unlinked;  // each plane by itself
};

struct LevelMethod {
  std::string_view name;
  std::string_view summary;
  std::vector<Parameter> parameters;
  // Sets the levels of the image. False when there are none to set.
  bool (*set)(const LevelJob& job);
  // Measures pixels, those of a rectangle where one is given, all planes together or each.
  bool measures = true;
  bool unlinked = false;  // by default
  // Counts from 0: an image with values below it is measured with all values lifted to it.
  bool fromZero = false;
  // Whether the levels have to begin as those of the file or the sky; null: never.
  bool (*fromFile)(const Settings& settings) = nullptr;
};

const std::vector<LevelMethod>& LevelMethods();
// Null for a name that is none.
const LevelMethod* FindLevelMethod(std::string_view name);

// What every method takes that measures.
const Parameter& MeasuredRectangle();
// The parameters of a method, with those above as far as they apply.
std::vector<const Parameter*> ParametersOf(const LevelMethod& method);

}  // namespace qmr
