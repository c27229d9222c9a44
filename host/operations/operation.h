// The library's operations as the command line offers them, one row each.
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "host/operations/blank_pixels.h"
#include "host/operations/parameters.h"
#include "host/operations/remarks.h"
#include "host/operations/sky_keywords.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

class Steps;
struct LightFrame;

// What an operation is asked to do. The source has its levels and no pixel that is not a number; its pixels are the
// operation's to use up.
struct OperationJob {
  CVynImage& source;
  CRect rect;  // inside the image, not empty; the library takes it as a pointer and leaves it as it is
  const Settings& settings;
  int mosaic = 0;           // layout number of an undeveloped frame, 0 for any other image
  HWND progress = nullptr;  // may be null
  // Those of the source, for operations that move pixels and see to them themselves; null when there is none.
  const BlankPixels* blank = nullptr;
  // Such operations tell where the pixels lie now; without a map nobody knows.
  std::optional<PixelMap> map = {};
  // For operations that tell of more than one report of the library; not null in a call.
  Steps* steps = nullptr;
  Remarks* remarks = nullptr;
};

// The result: the source's pixels outside the rectangle, the new ones inside; its levels show it from black to
// white. The number of planes, and without a rectangle the size, may be another. The source's levels may change
// meanwhile, and are as before in the end.
using OperationCall = std::unique_ptr<CVynImage> (*)(OperationJob& job);

// What an operation works on: any developed image, one of three planes, or an undeveloped frame.
enum class OperationInput { kPicture, kColour, kMosaic };

// What becomes of the levels. Those of a result that needs them to be shown rightly go into its header; an operation on
// the values of the file needs none, and its result gets new ones. Where the values stay or keep their looks the file's
// own levels go on, or those that the user gives; levels that were found are for a PNG alone.
enum class ResultLevels { kUntold, kTold, kAnew, kKept };

struct OperationSpec {
  std::string_view name;
  std::string_view group;
  std::string_view summary;
  std::vector<Parameter> parameters;
  OperationCall call;
  OperationInput input = OperationInput::kPicture;
  bool selects = false;      // has limits that choose the pixels to change
  bool keepsBright = false;  // can keep pixels from getting darker
  bool wholeOnly = false;    // takes no rectangle
  bool moves = false;        // pixels of the result lie elsewhere; which of them are blank is its own affair
  // Whether an undeveloped Bayer frame is one after it as well; null for never.
  bool (*keepsMosaic)(const Settings& settings) = nullptr;
  ResultLevels resultLevels = ResultLevels::kUntold;
  Settings::RankCount ranks = nullptr;
  // Checks what the rows can't say; null when there is nothing. Throws a Failure with kExitUsage.
  void (*check)(const Settings& settings) = nullptr;
  // Sets the levels that suit the operation where the user gives none; null for those of the file or the sky.
  void (*levels)(CVynImage& image, const Settings& settings) = nullptr;
  bool fileLevelsFirst = false;  // those of the file, if it has any, come before them
  // Sets what the user leaves to be found from the picture, which has its levels. Throws a Failure that says what it
  // has or lacks.
  void (*find)(CVynImage& image, Settings& settings) = nullptr;
  // The same where the keywords of the file matter, too.
  void (*measure)(const LightFrame& frame, Settings& settings, Remarks& remarks) = nullptr;
};

// In the order of groups.
const std::vector<OperationSpec>& Filters();
const std::vector<OperationSpec>& Adjustments();
const std::vector<OperationSpec>& GeometricOperations();

// A table under the command that offers it.
struct OperationFamily {
  std::string_view command;  // "filter"; empty for operations that are commands themselves
  std::string_view one;      // "a filter"
  std::string_view summary;  // of the command
  const std::vector<OperationSpec>& (*operations)();
  std::string_view footer;  // below its help
};

// What every operation with a selection takes, what those that sharpen take besides, what all take that can work on a
// part of the picture, and what all take.
const std::vector<Parameter>& SelectionParameters();
const std::vector<Parameter>& BrightnessParameters();
const std::vector<Parameter>& PartParameters();
const std::vector<Parameter>& CommonParameters();
// All that an operation can be told: its own parameters, then those above as far as they apply.
std::vector<const Parameter*> ParametersOf(const OperationSpec& operation);

}  // namespace qmr
