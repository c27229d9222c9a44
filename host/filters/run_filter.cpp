#include "host/filters/run_filter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "host/files/atomic_file.h"
#include "host/files/png_writer.h"
#include "host/filters/blank_pixels.h"
#include "host/filters/progress_window.h"
#include "host/night/failure.h"
#include "host/night/frame.h"
#include "host/night/keywords.h"
#include "host/night/output.h"
#include "host/version.h"
#include "qmrimg/image/row_access.h"

namespace qmr {
namespace {

bool EndsIn(const std::string& path, std::initializer_list<std::string_view> endings) {
  const std::string upper = UpperCase(path);
  return std::any_of(endings.begin(), endings.end(), [&](std::string_view e) { return upper.ends_with(e); });
}

bool IsPng(const std::string& path) {
  return EndsIn(path, {".PNG"});
}

void CheckOutput(const FilterRequest& request) {
  if (!IsPng(request.output) && !EndsIn(request.output, {".FIT", ".FITS", ".FTS"}))
    throw Failure(kExitUsage, PrintablePath(request.output) + ": an output ends in .fit, .fits, .fts or .png");
  std::error_code error;
  if (!request.force && std::filesystem::exists(request.output, error))
    throw Failure(kExitCannotCreate, PrintablePath(request.output) + ": exists; --force replaces it");
  const AtomicFile probe(request.output);
  if (!probe.Good()) throw Failure(kExitCannotCreate, probe.Error()->Message());
}

LightFrame Load(const FilterRequest& request) {
  const std::string name = PrintablePath(request.input);
  std::error_code error;
  if (!std::filesystem::exists(request.input, error)) throw Failure(kExitNoInput, name + ": no such file");
  FileResult<DecodedImage> read = ReadImageFile(request.input);
  if (!read) throw Failure(kExitBadData, read.Error().Message());
  LightFrame frame;
  FrameSource source{request.input, std::make_shared<DecodedImage>(std::move(*read))};
  try {
    frame.image = LoadImage(source, frame, request.bayer);
  } catch (const Failure& failure) {
    if (failure.code == kExitUsage) throw;
    throw Failure(failure.code, name + ": " + failure.what());
  }
  return frame;
}

void CheckInput(const FilterSpec& filter, const LightFrame& frame) {
  const std::string name = PrintablePath(frame.path);
  const MosaicLayout& mosaic = frame.mosaic;
  if (filter.input == FilterInput::kMosaic) {
    if (mosaic.kind == MosaicLayout::Kind::None)
      throw Failure(kExitBadData, name + ": holds no undeveloped mosaic" +
                                      (frame.image->GetPlanes() > 1 ? "" : "; --bayer names it if it does"));
    if (mosaic.kind == MosaicLayout::Kind::Unsupported)
      throw Failure(kExitBadData, name + ": its mosaic is not known: " + mosaic.text);
    return;
  }
  // A filter over a mosaic would mix the colours.
  if (mosaic.kind != MosaicLayout::Kind::None)
    throw Failure(kExitBadData, name + ": holds an undeveloped mosaic (" + mosaic.text +
                                    "); develop it first, or say --bayer none to filter it as it lies");
  if (filter.input == FilterInput::kColour && frame.image->GetPlanes() < 3)
    throw Failure(kExitBadData, name + ": has one plane; " + std::string(filter.name) + " wants colour");
}

CRect RectangleOf(const Settings& settings, const CVynImage& image) {
  CRect rect(0, 0, image.GetWidth(), image.GetHeight());
  if (!settings.Has("rect")) return rect;
  const std::vector<double>& sides = settings.List("rect");
  const auto cut = [](double v, int size) { return static_cast<int>(std::clamp(v, 0.0, static_cast<double>(size))); };
  rect = CRect(cut(sides[0], image.GetWidth()), cut(sides[1], image.GetHeight()), cut(sides[2], image.GetWidth()),
               cut(sides[3], image.GetHeight()));
  if (rect.Width() <= 0 || rect.Height() <= 0)
    throw Failure(kExitUsage, "--rect: holds no pixel of the image, which is " + SizeText(image));
  return rect;
}

// Levels that were found are rounded to what a header line can hold, so that the line gives the same result.
void RoundLevels(CVynImage& image) {
  const auto rounded = [](double v) {
    std::array<char, 40> text;
    std::snprintf(text.data(), text.size(), "%.8g", v);
    return std::strtod(text.data(), nullptr);
  };
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const double black = rounded(image.GetLevelMin(p));
    const double white = rounded(image.GetLevelMax(p));
    if (black < white) static_cast<CImage&>(image).SetLevel(p, black, white);
  }
}

// Gives the image its levels and tells where they come from.
std::string SetLevels(CVynImage& image, const std::vector<Keyword>& keywords, const FilterSpec& filter,
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
  if (filter.levels) {
    filter.levels(image, settings);
    RoundLevels(image);
    return "the sky";
  }
  const auto black = KeywordNumber(keywords, "CBLACK");
  const auto white = KeywordNumber(keywords, "CWHITE");
  if (black && white && *black < *white) {
    for (int p = 0; p < image.GetPlanes(); ++p) set(p, *black, *white);
    return "CBLACK and CWHITE";
  }
  SetNightLevels(image);
  RoundLevels(image);
  return "the sky";
}

void CheckLevels(const Settings& settings) {
  const std::vector<double>& levels = settings.List("levels");
  for (std::size_t i = 0; i + 1 < levels.size(); i += 2)
    if (!(levels[i] < levels[i + 1])) throw Failure(kExitUsage, "--levels: the first of two is the smaller one");
}

// The settings as a command that gives the same again, with the levels that were found.
std::string CommandText(const FilterRequest& request, const CVynImage& image) {
  std::string text = "qmr filter " + std::string(request.filter->name);
  if (const std::string settings = request.settings.Text(); !settings.empty()) text.append(" ").append(settings);
  if (!request.settings.Has("levels")) {
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

// One card where it fits, else several, parted before a parameter or after a comma.
void AddHistory(std::string_view text, std::vector<Keyword>& keywords) {
  constexpr std::size_t kRoom = 72;
  while (text.size() > kRoom) {
    auto end = text.rfind(" --", kRoom - 1);
    if (end == std::string_view::npos || end == 0) end = text.rfind(',', kRoom - 1) + 1;
    if (end == 0) end = kRoom;
    keywords.push_back(Keyword::History(std::string(text.substr(0, end))));
    text.remove_prefix(end);
  }
  keywords.push_back(Keyword::History(std::string(text)));
}

void WriteFits(const std::string& path, const CVynImage& image, const std::vector<Keyword>& from,
               const std::string& command) {
  std::vector<Keyword> keywords;
  for (const Keyword& keyword : from)
    if (keyword.name != "PROGRAM") keywords.push_back(keyword);
  keywords.push_back(Keyword::Text("PROGRAM", std::string("qmrimg ") + kVersion, "program that wrote this file"));
  AddHistory(command, keywords);
  WriteStack(path, image, keywords);
}

// 16 bits, black to white of each plane's levels.
void WritePicture(const std::string& path, const CVynImage& image, bool bottomUp) {
  const int planes = image.GetPlanes() >= 3 ? 3 : 1;
  const int height = image.GetHeight();
  constexpr double kWhite = 65535.0;
  const FileStatus status =
      WritePng(path, image.GetWidth(), height, planes, 16, [&](int y, std::span<std::uint16_t> samples) {
        for (int p = 0; p < planes; ++p) {
          const std::span<const float> row = ReadRow(image, bottomUp ? height - 1 - y : y, p, 0, image.GetWidth());
          const double black = image.GetLevelMin(p);
          const double scale = kWhite / image.GetLevelRange(p);
          for (std::size_t x = 0; x < row.size(); ++x) {
            const double value = (row[x] - black) * scale;
            // False for not-a-number, which is black.
            samples[x * static_cast<std::size_t>(planes) + static_cast<std::size_t>(p)] =
                value > 0.0 ? static_cast<std::uint16_t>(std::min(value, kWhite) + 0.5) : std::uint16_t{0};
          }
        }
      });
  if (status) throw Failure(kExitCannotCreate, status->Message());
}

}  // namespace

FilterReport RunFilter(FilterRequest& request, Steps& steps) {
  const FilterSpec& filter = *request.filter;
  CheckLevels(request.settings);
  CheckOutput(request);
  steps.Begin("Reading", 1);
  LightFrame frame = Load(request);
  steps.End("");
  CheckInput(filter, frame);
  CVynImage& source = *frame.image;
  request.settings.Finish(source.GetPlanes(), filter.ranks);
  if (filter.check) filter.check(request.settings);
  const CRect rect = RectangleOf(request.settings, source);

  FilterReport report;
  const bool mosaic = filter.input == FilterInput::kMosaic;
  std::optional<BlankPixels> blank;
  if (frame.blankPixels > 0) blank.emplace(source, mosaic ? 2 : 1);
  report.blankPixels = blank ? blank->Count() : 0;
  report.levelsFrom = SetLevels(source, frame.keywords, filter, request.settings);
  report.command = CommandText(request, source);
  if (mosaic) report.mosaic = frame.mosaic.text;

  ProgressWindow window(steps, std::string(filter.name));
  const std::unique_ptr<CVynImage> result =
      filter.call({source, rect, request.settings, mosaic ? frame.mosaic.number : 0, &window});
  if (blank) blank->Restore(*result);
  steps.Begin("Writing", 1);
  if (IsPng(request.output))
    WritePicture(request.output, *result, IsBottomUp(frame.keywords));
  else
    WriteFits(request.output, *result, frame.keywords, report.command);
  steps.End("");
  return report;
}

}  // namespace qmr
