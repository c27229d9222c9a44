#include "host/levels/find_levels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <span>
#include <utility>

#include "host/levels/measured_pixels.h"
#include "host/night/failure.h"
#include "host/operations/blank_pixels.h"
#include "host/operations/picture_file.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {
namespace {

CRect WholeOf(const CVynImage& image) {
  return {0, 0, image.GetWidth(), image.GetHeight()};
}

std::string PlaneName(const CVynImage& image, int plane) {
  constexpr const char* kNames[] = {"red", "green", "blue"};
  if (image.GetPlanes() == 1) return "grey";
  return plane < 3 ? kNames[plane] : "plane " + std::to_string(plane + 1);
}

// As the other commands find them, which bridge blank pixels before.
template <class Set>
auto OnBridged(LightFrame& frame, Set&& set) {
  std::optional<BlankPixels> blank;
  if (frame.blankPixels > 0) blank.emplace(*frame.image, 1);
  const auto result = set(*frame.image);
  if (blank) blank->Restore(*frame.image);
  return result;
}

void SetByMethod(const LevelsRequest& request, LightFrame& frame, bool unlinked) {
  const LevelMethod& method = *request.method;
  const Settings& settings = *request.settings;
  const std::string name = PrintablePath(frame.path);
  bool found = false;
  const auto set = [&](CImgAutoLevel& image) { found = method.set({image, frame.keywords, settings, unlinked}); };
  if (!method.measures) {
    OnBridged(frame, [&](CVynImage& image) {
      CImgAutoLevel levels;
      levels.Swap(&image);
      set(levels);
      levels.Swap(&image);
      return true;
    });
    if (!found) throw Failure(kExitBadData, name + ": its header has no CBLACK below a CWHITE");
    return;
  }
  const CRect rect = RectangleOf(settings, *frame.image);
  if (method.fromFile && method.fromFile(settings))
    OnBridged(frame, [&](CVynImage& image) { return SetLevelsOfFile(image, frame.keywords); });
  if (!MeasureLevels(*frame.image, rect, method.fromZero, set))
    throw Failure(kExitBadData, name + ": no pixel has a value in every plane" +
                                    (settings.Has("rect") ? ", as far as --rect goes" : ""));
}

// Whatever a method makes of a picture without contrast, it is told and goes into no file.
void CheckLevels(const CVynImage& image, const LevelsRequest& request) {
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const double black = image.GetLevelMin(p);
    const double white = image.GetLevelMax(p);
    if (std::isfinite(black) && std::isfinite(white) && black < white) continue;
    const std::string found =
        PlaneName(image, p) + ": black " + NumberText(Rounded(black)) + ", white " + NumberText(Rounded(white));
    throw Failure(kExitBadData, PrintablePath(request.input) + ": " + std::string(request.method->name) +
                                    " gives no levels that show the picture; " + found);
  }
}

// Black and white as the user gave them are usage, whatever the file.
void CheckGiven(const Settings& settings) {
  const std::vector<double> black = settings.PerPlane("black");
  const std::vector<double> white = settings.PerPlane("white");
  for (std::size_t p = 0; p < black.size(); ++p)
    if (!(black[p] < white[p]))
      throw Failure(kExitUsage, "--black: below --white, not " + NumberText(black[p]) + " and " + NumberText(white[p]));
}

PlaneLevels TellPlane(const CVynImage& image, int plane) {
  PlaneLevels told;
  told.name = PlaneName(image, plane);
  told.black = image.GetLevelMin(plane);
  told.white = image.GetLevelMax(plane);
  std::vector<float> values;
  values.reserve(static_cast<std::size_t>(image.GetWidth()) * static_cast<std::size_t>(image.GetHeight()));
  double sum = 0.0;
  for (int y = 0; y < image.GetHeight(); ++y) {
    for (const float v : ReadRow(image, y, plane, 0, image.GetWidth())) {
      if (std::isnan(v)) continue;
      values.push_back(v);
      sum += v;
    }
  }
  told.pixels = static_cast<std::int64_t>(values.size());
  told.blank = static_cast<std::int64_t>(image.GetWidth()) * image.GetHeight() - told.pixels;
  if (values.empty()) return told;
  const auto [least, greatest] = std::minmax_element(values.begin(), values.end());
  told.minimum = *least;
  told.maximum = *greatest;
  told.mean = sum / static_cast<double>(values.size());
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  told.median = *middle;
  return told;
}

std::vector<SameLevels> TellSame(CVynImage& image) {
  for (int p = 1; p < image.GetPlanes(); ++p)
    if (image.GetLevelMin(p) != image.GetLevelMin(0) || image.GetLevelMax(p) != image.GetLevelMax(0)) return {};
  constexpr double kPercent = 100.0;
  std::array<SameLevels, 3> all = {{{"percentile", "low", "high", 0.0, 0.0},
                                    {"mean", "below", "above", 0.0, 0.0},
                                    {"median", "below", "above", 0.0, 0.0}}};
  std::vector<SameLevels> same;
  MeasureLevels(image, WholeOf(image), false, [&](CImgAutoLevel& levels) {
    for (std::size_t i = 0; i < all.size(); ++i) {
      levels.Get(all[i].low, all[i].high, static_cast<int>(i), nullptr);
      if (i == 0) {
        all[i].low *= kPercent;
        all[i].high *= kPercent;
      }
      if (std::isfinite(all[i].low) && std::isfinite(all[i].high)) same.push_back(all[i]);
    }
  });
  return same;
}

std::string CommandText(const LevelsRequest& request, bool unlinked) {
  std::string text = "qmr levels --method " + std::string(request.method->name);
  if (const std::string settings = request.settings->Text(); !settings.empty()) text.append(" ").append(settings);
  if (request.method->measures) text += unlinked ? " --unlinked" : " --linked";
  return text;
}

}  // namespace

LevelsReport FindLevels(LevelsRequest& request, Steps& steps) {
  if (!request.output.empty()) CheckOutput(request.output, request.force);
  steps.Begin("Reading", 1);
  LightFrame frame = LoadPicture(request.input, std::nullopt);
  steps.End("");
  CVynImage& image = *frame.image;
  LevelsReport report;
  steps.Begin("Measuring", 1);
  if (request.method) {
    request.settings->Finish(image.GetPlanes(), nullptr);
    const bool given = request.method == FindLevelMethod("manual");
    if (given) CheckGiven(*request.settings);
    const bool unlinked = request.unlinked.value_or(request.method->unlinked);
    SetByMethod(request, frame, unlinked);
    if (!given) RoundLevels(image);
    report.command = CommandText(request, unlinked);
    report.from = request.method->name;
  } else {
    const bool ofFile = OnBridged(frame, [&](CVynImage& i) { return SetLevelsOfFile(i, frame.keywords); }) != "the sky";
    request.method = FindLevelMethod(ofFile ? "file" : "sky");
    report.command = "qmr levels --method " + std::string(request.method->name);
    report.from = request.method->name;
  }
  CheckLevels(image, request);
  if (request.tell) {
    report.planes.resize(static_cast<std::size_t>(image.GetPlanes()));
    ForRows(0, image.GetPlanes(), [&](int p) { report.planes[static_cast<std::size_t>(p)] = TellPlane(image, p); });
    if (request.tellSame) report.same = TellSame(image);
  }
  steps.End("");
  if (!request.output.empty()) {
    steps.Begin("Writing", 1);
    SetLevelKeywords(frame.keywords, image);
    WritePicture(request.output, image, frame.keywords, report.command);
    steps.End("");
  }
  return report;
}

}  // namespace qmr
