// One filter on one file.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "host/filters/filter_table.h"
#include "host/night/steps.h"

namespace qmr {

struct FilterRequest {
  const FilterSpec* filter;
  Settings settings;
  std::string input;
  std::string output;                // .fit, .fits, .fts or .png
  std::optional<std::string> bayer;  // the user's word on the mosaic
  bool force = false;                // replace an output that exists
};

struct FilterReport {
  std::string command;          // the filter and all its settings, those by default and the levels included
  std::string levelsFrom;       // where the levels come from
  std::string mosaic;           // of an undeveloped frame; empty for any other image
  std::size_t blankPixels = 0;  // not-a-number, in all planes
};

// Reads, filters, writes. Pixels without a value stay so and count for nothing; the output appears when it is complete.
// A Failure says what is wrong, and an older output stays as it was.
FilterReport RunFilter(FilterRequest& request, Steps& steps);

}  // namespace qmr
