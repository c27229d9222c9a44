#include "host/compose/split.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string_view>

#include "host/compose/given_levels.h"
#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "host/operations/picture_file.h"
#include "host/operations/progress_window.h"
#include "qmrimg/colour/separation.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {
namespace {

constexpr int kReport = 1;
constexpr std::size_t kChannels = 3;
constexpr std::string_view kNames[][kChannels] = {
    {"red", "green", "blue"}, {"cyan", "magenta", "yellow"}, {"l", "a", "b"}};

constexpr std::string_view kInto[] = {"rgb", "cmy", "lab"};

// "night.fit" and "red" make "night_red.fit"; the ending was checked.
std::string OutputName(const std::string& path, std::string_view channel) {
  const std::size_t dot = path.rfind('.');
  return path.substr(0, dot) + "_" + std::string(channel) + path.substr(dot);
}

using Channel = std::unique_ptr<CVynImage>;

Channel MonoLike(const CVynImage& source) {
  return std::make_unique<CVynImage>(-32, source.GetWidth(), source.GetHeight(), 1, 1.0, 0.0, 0);
}

Channel Separated(CVynImage& source, std::size_t channel, HWND progress) {
  auto separation = std::make_unique<CImgSeparation>();
  separation->Swap(MonoLike(source).get());
  separation->SetProgressHandle(progress);
  separation->Do(&source, static_cast<int>(channel), kReport);
  return separation;
}

// One plane of a Lab picture, with levels that show it: lightness from 0 to 100, a and b about their neutral middle.
// What has no value in a plane of the source has no colour.
Channel LabChannel(const CVynImage& source, const CVynImage& lab, std::size_t channel) {
  constexpr double kEnd = 100.0;
  Channel plane = MonoLike(lab);
  ForRows(0, lab.GetHeight(), [&](int y) {
    const std::span<const float> from = ReadRow(lab, y, static_cast<int>(channel), 0, lab.GetWidth());
    const std::span<float> to = WriteRow(*plane, y, 0, 0, lab.GetWidth());
    std::copy(from.begin(), from.end(), to.begin());
    for (int p = 0; p < source.GetPlanes(); ++p) {
      const std::span<const float> row = ReadRow(source, y, p, 0, source.GetWidth());
      for (std::size_t x = 0; x < row.size(); ++x)
        if (std::isnan(row[x])) to[x] = row[x];
    }
  });
  plane->SetLevel(0, channel == 0 ? 0.0 : -kEnd, kEnd);
  return plane;
}

LightFrame LoadColour(const std::string& path) {
  LightFrame frame = LoadPicture(path, std::nullopt);
  if (frame.mosaic.kind != MosaicLayout::Kind::None)
    throw Failure(kExitBadData,
                  PrintablePath(path) + ": holds an undeveloped mosaic (" + frame.mosaic.text + "); develop it first");
  if (frame.image->GetPlanes() < static_cast<int>(kChannels))
    throw Failure(kExitBadData, PrintablePath(path) + ": has one plane; split wants colour");
  return frame;
}

}  // namespace

std::vector<std::string> Split(const SplitRequest& request, Steps& steps) {
  const auto into = static_cast<std::size_t>(request.into);
  // The ending is told first: names are made with it.
  CheckOutput(request.output, true);
  std::vector<std::string> outputs;
  for (const std::string_view name : kNames[into]) {
    outputs.push_back(OutputName(request.output, name));
    CheckOutput(outputs.back(), request.force);
  }
  steps.Begin("Reading", 1);
  LightFrame frame = LoadColour(request.input);
  CVynImage& source = *frame.image;
  const bool levelsTold = GiveLevels(source, request.levels, frame.keywords, "--levels");
  steps.End("");

  const std::string command = "qmr split --into " + std::string(kInto[into]) + " --levels " + LevelsText(source);
  ProgressWindow window(steps, "Splitting");
  Channel lab;
  if (request.into == SplitInto::kLab) {
    source.SetProgressHandle(&window);
    lab.reset(source.MakeLabPlane());
    if (!lab) throw std::bad_alloc();
  }
  for (std::size_t i = 0; i < kChannels; ++i) {
    const Channel channel = lab ? LabChannel(source, *lab, i)
                                : Separated(source, request.into == SplitInto::kRgb ? i : i + kChannels, &window);
    // Lightness and colours are on a scale of their own.
    std::vector<Keyword> keywords = frame.keywords;
    DropLevelKeywords(keywords);
    if (levelsTold || lab) SetLevelKeywords(keywords, *channel);
    WritePicture(outputs[i], *channel, keywords, command + ", " + std::string(kNames[into][i]));
  }
  return outputs;
}

}  // namespace qmr
