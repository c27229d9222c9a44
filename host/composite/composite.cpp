#include "host/composite/composite.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <span>
#include <utility>

#include "host/compose/given_levels.h"
#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "host/operations/parameters.h"
#include "host/operations/picture_file.h"
#include "host/operations/progress_window.h"
#include "qmrimg/geometry/interp.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/stacking/composit.h"

namespace qmr {
namespace {

template <class Value>
std::string WordOf(const std::map<std::string, Value>& words, Value value) {
  for (const auto& [word, v] : words)
    if (v == value) return word;
  return {};
}

// The values of a sum or a difference have nothing to do with A's black and white; on the display scale they have.
bool KeepsLevels(const CompositeRequest& request) {
  switch (request.mode) {
    case CompositeMode::kAdd:
    case CompositeMode::kSubtract:
    case CompositeMode::kMultiply:
    case CompositeMode::kDivide:
    case CompositeMode::kDifference:
      return request.display;
    default:
      return true;
  }
}

// Multiplies the image by a factor: its values, or what lies above black.
void Amplify(CVynImage& image, double factor, bool aboveBlack) {
  if (factor == 1.0) return;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const double black = aboveBlack ? image.GetLevelMin(p) : 0.0;
    ForRows(0, image.GetHeight(), [&](int y) {
      for (float& v : WriteRow(image, y, p, 0, image.GetWidth()))
        v = static_cast<float>(black + (static_cast<double>(v) - black) * factor);
    });
  }
}

double FactorToUnitMean(const CVynImage& image, const std::string& path) {
  double mean = 0.0;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      double sum = 0.0;
      for (const float v : ReadRow(image, y, p, 0, image.GetWidth())) sum += v;
      mean += sum / image.GetWidth();
    }
  }
  mean /= static_cast<double>(image.GetPlanes()) * image.GetHeight();
  if (!(mean > 0.0)) throw Failure(kExitBadData, PrintablePath(path) + ": --gain unit wants a mean above 0");
  return Rounded(1.0 / mean);
}

// Turns an image upside down, which is by half a turn about its middle.
void TurnByHalf(CVynImage& image) {
  const int height = image.GetHeight();
  for (int p = 0; p < image.GetPlanes(); ++p) {
    for (int y = 0; y < (height + 1) / 2; ++y) {
      const std::span<float> row = WriteRow(image, y, p, 0, image.GetWidth());
      if (2 * y + 1 == height)
        std::reverse(row.begin(), row.end());
      else
        std::swap_ranges(row.begin(), row.end(), WriteRow(image, height - 1 - y, p, 0, image.GetWidth()).rbegin());
    }
  }
}

CRect PartOf(const CompositeRequest& request, const CVynImage& a) {
  CRect rect(0, 0, a.GetWidth(), a.GetHeight());
  if (!request.rect) return rect;
  rect = CRect(std::max(request.rect->left, 0), std::max(request.rect->top, 0),
               std::min(request.rect->right, a.GetWidth()), std::min(request.rect->bottom, a.GetHeight()));
  if (rect.Width() <= 0 || rect.Height() <= 0)
    throw Failure(kExitUsage, "--rect: holds no pixel of A, which is " + SizeText(a));
  return rect;
}

// What stands in the margin instead of what the mode makes of a B that isn't there.
void FillMargin(CVynImage& result, const CVynImage& a, const CVynImage& b, const LibraryGeometry& place,
                const CRect& rect, CompositeMargin margin) {
  if (margin == CompositeMargin::kMode) return;
  const FrameMap map(place, b.GetWidth(), b.GetHeight());
  ForRows(rect.top, rect.bottom, [&](int y) {
    for (int p = 0; p < result.GetPlanes(); ++p) {
      const std::span<float> row = WriteRow(result, y, p, rect.left, rect.right);
      const std::span<const float> from = ReadRow(a, y, p, rect.left, rect.right);
      for (std::size_t x = 0; x < row.size(); ++x)
        if (!map.Covers(rect.left + static_cast<int>(x), y))
          row[x] = margin == CompositeMargin::kKeep ? from[x] : std::numeric_limits<float>::quiet_NaN();
    }
  });
}

std::unique_ptr<CVynImage> Combine(const CompositeRequest& request, CVynImage& a, CVynImage& b, LibraryGeometry place,
                                   double gain, CRect rect, HWND progress) {
  const bool minimum = request.mode == CompositeMode::kMinimum;
  auto result = std::make_unique<CImgComposit>();
  CVynImage& image = *result;
  image = a;
  image.SetProgressHandle(progress);
  double ratio = request.weight;
  if (minimum) {
    ratio = gain;
    // Its angles fold back beyond a quarter turn.
    if (std::abs(place.angleDegrees) > 90.0) {
      TurnByHalf(b);
      place.angleDegrees -= std::copysign(180.0, place.angleDegrees);
    }
    a.CalcMinMax();
    b.CalcMinMax();
  } else {
    Amplify(b, gain, request.display);
  }
  constexpr int kAboutStdCtr = 1;
  constexpr int kReport = 1;
  constexpr int kOwnMessage = -1;
  result->Do(&a, &b, place.shiftX, place.shiftY, place.angleDegrees, kAboutStdCtr, static_cast<int>(request.mode),
             request.interpolation, ratio, request.display ? 1 : 0, request.clipNegative ? 1 : 0, request.saturation,
             request.neighbours, &rect, kReport, kOwnMessage);
  return result;
}

std::string CommandText(const CompositeRequest& request, const LibraryGeometry& place, double gain, const CVynImage& a,
                        const CVynImage& b) {
  std::string text = "qmr composite --mode " + WordOf(CompositeModes(), request.mode);
  const auto number = [&](const char* option, double value) {
    text.append(" ").append(option).append(" ").append(NumberText(value));
  };
  if (place.shiftX != 0.0 || place.shiftY != 0.0)
    text += " --shift " + NumberText(place.shiftX) + "," + NumberText(place.shiftY);
  if (place.angleDegrees != 0.0) number("--angle", place.angleDegrees);
  text += " --interpolation " + NarrowUtf8(CInterp::GetEngString(request.interpolation).GetString());
  if (request.mode == CompositeMode::kWeighted) number("--weight", request.weight);
  if (gain != 1.0) number("--gain", gain);
  if (request.mode == CompositeMode::kMinimum) {
    number("--saturation", request.saturation);
    number("--neighbours", request.neighbours);
  }
  if (request.clipNegative) text += " --clip-negative";
  text += request.display ? " --scale display --levels-a " + LevelsText(a) + " --levels-b " + LevelsText(b)
                          : std::string(" --scale raw");
  text += " --margin " + WordOf(CompositeMargins(), request.margin);
  if (request.rect)
    text += " --rect " + NumberText(request.rect->left) + "," + NumberText(request.rect->top) + "," +
            NumberText(request.rect->right) + "," + NumberText(request.rect->bottom);
  return text;
}

void WarnOfBlanks(const LaidPicture& b, Steps& steps) {
  if (b.blank)
    steps.Warn(PrintablePath(b.path) + ": " + std::to_string(b.blank->Count()) +
               " pixels without a value take that of their neighbours");
}

}  // namespace

const std::map<std::string, CompositeMode>& CompositeModes() {
  static const std::map<std::string, CompositeMode> modes = {
      {"average", CompositeMode::kAverage},       {"add", CompositeMode::kAdd},
      {"weighted", CompositeMode::kWeighted},     {"subtract", CompositeMode::kSubtract},
      {"multiply", CompositeMode::kMultiply},     {"divide", CompositeMode::kDivide},
      {"difference", CompositeMode::kDifference}, {"brighter", CompositeMode::kBrighter},
      {"darker", CompositeMode::kDarker},         {"minimum", CompositeMode::kMinimum}};
  return modes;
}

const std::map<std::string, CompositeMargin>& CompositeMargins() {
  static const std::map<std::string, CompositeMargin> margins = {
      {"keep", CompositeMargin::kKeep}, {"mode", CompositeMargin::kMode}, {"blank", CompositeMargin::kBlank}};
  return margins;
}

CompositeReport MakeComposite(const CompositeRequest& request, Steps& steps) {
  CheckOutput(request.output, request.force);
  steps.Begin("Reading", 2);
  LaidPicture first = LoadLaidPicture(request.a);
  steps.Advance(1);
  LaidPicture second = LoadLaidPicture(request.b);
  steps.Advance(1);
  steps.End("");
  CheckRowOrder(first, second);
  WarnOfBlanks(second, steps);
  CVynImage& a = first.Image();
  CVynImage& b = second.Image();
  const CRect rect = PartOf(request, a);
  bool told = false;
  if (request.display) {
    told = GiveLevels(a, request.levelsA, first.file.keywords, "--levels-a");
    GiveLevels(b, request.levelsB, second.file.keywords, "--levels-b");
  }
  const double gain = request.gain ? *request.gain : FactorToUnitMean(b, request.b);

  CompositeReport report;
  LibraryGeometry place = request.place;
  if (request.search.by != PlaceBy::kWord) {
    steps.Begin("Aligning", 1);
    const CRect whole(0, 0, a.GetWidth(), a.GetHeight());
    place = MeasurePlace(a, CoverOf(first, {}, whole), second, place, request.search, steps);
    report.place = PlaceText(place);
    steps.End("");
  }
  report.command = CommandText(request, place, gain, a, b);
  if (IsEmpty(Intersection(FrameMap(place, b.GetWidth(), b.GetHeight()).Box(), rect)))
    steps.Warn(PrintablePath(request.b) + ": covers no pixel of A where it lies");

  ProgressWindow window(steps, "Combining");
  const std::unique_ptr<CVynImage> result = Combine(request, a, b, place, gain, rect, &window);
  FillMargin(*result, a, b, place, rect, request.margin);
  if (first.blank) first.blank->Restore(*result);
  std::vector<Keyword> keywords = first.file.keywords;
  if (!KeepsLevels(request)) {
    DropLevelKeywords(keywords);
    SetLevelsOfFile(*result, {});
  } else if (told) {
    SetLevelKeywords(keywords, *result);
  } else if (!request.display) {
    SetLevelsOfFile(*result, keywords);
  }
  steps.Begin("Writing", 1);
  WritePicture(request.output, *result, keywords, report.command);
  steps.End("");
  return report;
}

}  // namespace qmr
