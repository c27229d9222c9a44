// One operation on one file.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "host/night/steps.h"
#include "host/operations/operation.h"

namespace qmr {

struct OperationRequest {
  const OperationFamily* family;
  const OperationSpec* operation;
  Settings settings;
  std::string input;
  std::string output;                // .fit, .fits, .fts or .png
  std::optional<std::string> bayer;  // the user's word on the mosaic
  bool force = false;                // replace an output that exists
};

struct OperationReport {
  std::string command;          // the operation and all its settings, those by default and the levels included
  std::string levelsFrom;       // where the levels come from
  std::string mosaic;           // of an undeveloped frame; empty for any other image
  std::size_t blankPixels = 0;  // not-a-number, in all planes
  Remarks remarks;              // what the operation tells of itself
};

// Reads, operates, writes. Pixels without a value stay so and count for nothing; the output appears when it is
// complete. A Failure says what is wrong, and an older output stays as it was.
OperationReport RunOperation(OperationRequest& request, Steps& steps);

}  // namespace qmr
