#include "host/operations/run_operation.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string_view>
#include <vector>

#include "host/night/failure.h"
#include "host/operations/blank_pixels.h"
#include "host/operations/picture_file.h"
#include "host/operations/progress_window.h"

namespace qmr {
namespace {

void CheckInput(const OperationSpec& operation, const Settings& settings, const LightFrame& frame) {
  const std::string name = PrintablePath(frame.path);
  const MosaicLayout& mosaic = frame.mosaic;
  if (operation.input == OperationInput::kMosaic) {
    if (mosaic.kind == MosaicLayout::Kind::None)
      throw Failure(kExitBadData, name + ": holds no undeveloped mosaic" +
                                      (frame.image->GetPlanes() > 1 ? "" : "; --bayer names it if it does"));
    if (mosaic.kind == MosaicLayout::Kind::Unsupported)
      throw Failure(kExitBadData, name + ": its mosaic is not known: " + mosaic.text);
    return;
  }
  if (!(mosaic.kind == MosaicLayout::Kind::Bayer && operation.keepsMosaic && operation.keepsMosaic(settings)))
    RefuseMosaic(frame);
  if (operation.input == OperationInput::kColour && frame.image->GetPlanes() < 3)
    throw Failure(kExitBadData, name + ": has one plane; " + std::string(operation.name) + " wants colour");
}

// Gives the image its levels and tells where they come from.
std::string SetLevels(CVynImage& image, const std::vector<Keyword>& keywords, const OperationSpec& operation,
                      const Settings& settings) {
  const auto set = [&](int plane, double black, double white) {
    static_cast<CImage&>(image).SetLevel(plane, black, white);
  };
  if (settings.Has("levels")) {
    const std::vector<double>& given = settings.List("levels");
    for (std::size_t p = 0; p < static_cast<std::size_t>(image.GetPlanes()); ++p) {
      const std::size_t at = given.size() > 2 ? 2 * p : 0;
      set(static_cast<int>(p), given[at], given[at + 1]);
    }
    return "--levels";
  }
  if (operation.levels && !(operation.fileLevelsFirst && SetKeywordLevels(image, keywords))) {
    operation.levels(image, settings);
    RoundLevels(image);
    return "the picture";
  }
  return SetLevelsOfFile(image, keywords);
}

// Whether the header of the result says its levels anew.
bool TellsLevels(const OperationRequest& request, const LightFrame& frame, const CVynImage& source,
                 const CVynImage& result) {
  const bool given = request.settings.Has("levels");
  const bool changed = result.GetLevelMin(0) != source.GetLevelMin(0) || result.GetLevelMax(0) != source.GetLevelMax(0);
  switch (request.operation->resultLevels) {
    case ResultLevels::kUntold:
      return false;
    case ResultLevels::kTold:
      return true;
    case ResultLevels::kAnew:
      return given;
    case ResultLevels::kKept:
      return given || (changed && FindKeyword(frame.keywords, "CBLACK"));
  }
  return false;
}

// The keywords of the source, as far as they hold for the result.
std::vector<Keyword> ResultKeywords(const OperationRequest& request, const LightFrame& frame, const OperationJob& job,
                                    const CVynImage& result) {
  std::vector<Keyword> keywords = frame.keywords;
  if (request.operation->resultLevels == ResultLevels::kAnew) DropLevelKeywords(keywords);
  if (TellsLevels(request, frame, job.source, result)) SetLevelKeywords(keywords, result);
  if (request.operation->moves) CarryPlaceKeywords(keywords, job.map);
  if (job.map && frame.mosaic.kind == MosaicLayout::Kind::Bayer)
    CarryMosaicKeywords(keywords, *job.map, frame.mosaic.number, result.GetHeight());
  return keywords;
}

void CheckLevels(const Settings& settings) {
  const std::vector<double>& levels = settings.List("levels");
  for (std::size_t i = 0; i + 1 < levels.size(); i += 2)
    if (!(levels[i] < levels[i + 1])) throw Failure(kExitUsage, "--levels: the first of two is the smaller one");
}

// Runs what may fail with a line on what the picture has or lacks, and says which picture that is.
template <class Part>
auto Naming(const std::string& path, Part part) {
  try {
    return part();
  } catch (const Failure& failure) {
    if (failure.code != kExitBadData) throw;
    throw Failure(failure.code, PrintablePath(path) + ": " + failure.what());
  }
}

// What the operation finds in the picture.
void Find(const OperationSpec& operation, const LightFrame& frame, Settings& settings, Remarks& remarks) {
  if (operation.find) operation.find(*frame.image, settings);
  if (operation.measure) operation.measure(frame, settings, remarks);
}

// The settings as a command that gives the same again, with the levels that were found.
std::string CommandText(const OperationRequest& request, const CVynImage& image) {
  std::string text = "qmr ";
  if (!request.family->command.empty()) text.append(request.family->command).append(" ");
  text += request.operation->name;
  if (const std::string settings = request.settings.Text(); !settings.empty()) text.append(" ").append(settings);
  const ResultLevels levels = request.operation->resultLevels;
  const bool matter = levels == ResultLevels::kUntold || levels == ResultLevels::kTold;
  if (matter && !request.settings.Has("levels")) {
    text += " --levels ";
    for (int p = 0; p < image.GetPlanes(); ++p)
      text.append(p == 0 ? "" : ",")
          .append(NumberText(image.GetLevelMin(p)))
          .append(",")
          .append(NumberText(image.GetLevelMax(p)));
  }
  if (request.bayer) text.append(" --bayer ").append(PrintablePath(*request.bayer));
  return text;
}

}  // namespace

OperationReport RunOperation(OperationRequest& request, Steps& steps) {
  const OperationSpec& operation = *request.operation;
  CheckLevels(request.settings);
  CheckOutput(request.output, request.force);
  steps.Begin("Reading", 1);
  LightFrame frame = LoadPicture(request.input, request.bayer);
  steps.End("");
  CheckInput(operation, request.settings, frame);
  CVynImage& source = *frame.image;
  request.settings.Finish(source.GetPlanes(), operation.ranks);
  if (operation.check) operation.check(request.settings);
  const CRect rect =
      operation.wholeOnly ? CRect(0, 0, source.GetWidth(), source.GetHeight()) : RectangleOf(request.settings, source);

  OperationReport report;
  const bool mosaic = operation.input == OperationInput::kMosaic;
  std::optional<BlankPixels> blank;
  if (frame.blankPixels > 0) blank.emplace(source, frame.mosaic.Cell());
  report.blankPixels = blank ? blank->Count() : 0;
  const bool anew = operation.resultLevels == ResultLevels::kAnew;
  if (!anew) report.levelsFrom = SetLevels(source, frame.keywords, operation, request.settings);
  Naming(request.input, [&] { Find(operation, frame, request.settings, report.remarks); });
  report.command = CommandText(request, source);
  if (mosaic) report.mosaic = frame.mosaic.text;

  ProgressWindow window(steps, std::string(operation.name));
  OperationJob job{
      source, rect,   request.settings, mosaic ? frame.mosaic.number : 0, &window, blank ? &*blank : nullptr,
      {},     &steps, &report.remarks};
  const std::unique_ptr<CVynImage> result = Naming(request.input, [&] { return operation.call(job); });
  if (anew) report.levelsFrom = SetLevels(*result, {}, operation, request.settings);
  if (blank && !operation.moves) blank->Restore(*result);
  steps.Begin("Writing", 1);
  WritePicture(request.output, *result, ResultKeywords(request, frame, job, *result), report.command);
  steps.End("");
  return report;
}

}  // namespace qmr
