// Display levels of one file, told or written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/levels/level_method.h"
#include "host/night/steps.h"

namespace qmr {

struct LevelsRequest {
  const LevelMethod* method = nullptr;  // null: those that the other commands take, of the file or the sky
  std::optional<Settings> settings;     // of the method
  std::optional<bool> unlinked;         // else as the method has it
  std::string input;
  std::string output;    // .fit, .fits, .fts or .png; empty: nothing is written
  bool force = false;    // replace an output that exists
  bool tell = true;      // fill the planes of the report,
  bool tellSame = true;  // and what else gives the same levels
};

struct PlaneLevels {
  std::string name;
  double black = 0.0, white = 0.0;
  // Of the pixels with a value, values of the file; 0 when there is none.
  std::int64_t pixels = 0, blank = 0;
  double minimum = 0.0, maximum = 0.0, mean = 0.0;
  double median = 0.0;  // the upper of the middle two for an even count
};

// A method and the two parameters with which it gives levels.
struct SameLevels {
  const char* method;
  const char* lowKey;
  const char* highKey;
  double low, high;
};

struct LevelsReport {
  std::string command;  // gives the levels again
  std::string from;     // where they come from
  std::vector<PlaneLevels> planes;
  // What else gives the levels: of a picture of one plane, or whose planes have the same levels.
  std::vector<SameLevels> same;
};

// Reads, sets levels, writes. The pixels stay as they are, those without a value too; these don't count. A Failure says
// what is wrong, and an older output stays as it was.
LevelsReport FindLevels(LevelsRequest& request, Steps& steps);

}  // namespace qmr
