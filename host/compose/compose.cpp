#include "host/compose/compose.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <new>
#include <variant>

#include "host/compose/given_levels.h"
#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "host/night/frame.h"
#include "host/night/keywords.h"
#include "host/operations/blank_pixels.h"
#include "host/operations/parameters.h"
#include "host/operations/picture_file.h"
#include "host/operations/progress_window.h"
#include "qmrimg/colour/cmy_composit.h"
#include "qmrimg/colour/lrgb_cmpst.h"
#include "qmrimg/colour/rgb_cmpst.h"
#include "qmrimg/geometry/interp.h"

namespace qmr {
namespace {

constexpr int kReport = 1;
// The frames turn about their StdCtr, which is set to the middle of the pixels.
constexpr int kAboutStdCtr = 1;

struct Source {
  const ComposeFrame& asked;
  std::string_view name;
  LightFrame file;
  LibraryGeometry place;
  bool levelsTold = false;

  CVynImage* Image() const { return file.image.get(); }
};

std::string Number(double value) {
  return NumberText(value == 0.0 ? 0.0 : value);
}

Failure AboutFile(ExitCode code, const Source& source, const std::string& line) {
  return {code, PrintablePath(source.asked.path) + ": " + line};
}

Source Load(const ComposeFrame& asked, std::string_view name, Steps& steps) {
  Source source{asked, name, LoadPicture(asked.path, std::nullopt), {}, false};
  if (source.file.mosaic.kind != MosaicLayout::Kind::None)
    throw AboutFile(kExitBadData, source,
                    "holds an undeveloped mosaic (" + source.file.mosaic.text + "); develop it first");
  CVynImage& image = *source.Image();
  if (source.file.blankPixels > 0) {
    const BlankPixels blank(image, 1);
    steps.Warn(PrintablePath(asked.path) + ": " + std::to_string(blank.Count()) +
               " pixels without a value take that of their neighbours");
  }
  source.levelsTold = GiveLevels(image, asked.levels, source.file.keywords, "--" + std::string(name) + "-levels");
  image.SetStdCtr((image.GetWidth() - 1) / 2.0, (image.GetHeight() - 1) / 2.0);
  source.place = {asked.dx, asked.dy, asked.angle};
  return source;
}

// Frames whose rows run against each other would lie upside down on each other.
void CheckRowOrder(const std::vector<Source>& sources) {
  const auto order = [](const Source& source) { return KeywordText(source.file.keywords, "ROWORDER"); };
  for (const Source& source : sources)
    if (order(source) && order(sources[0]) && IsBottomUp(source.file.keywords) != IsBottomUp(sources[0].file.keywords))
      throw AboutFile(kExitBadData, source, "its rows run against those of the first frame (ROWORDER)");
}

void Align(std::vector<Source>& sources, AlignMode mode, Steps& steps) {
  steps.Begin("Aligning", static_cast<std::int64_t>(sources.size() - 1));
  for (const Source& source : sources) {
    if (source.asked.placed)
      throw Failure(kExitUsage, "--align finds shifts and angles: --" + std::string(source.name) +
                                    "-shift and -angle can't be given with it");
    if (!SameSize(*source.Image(), *sources[0].Image()))
      throw AboutFile(kExitBadData, source,
                      "is " + SizeText(*source.Image()) + ", the first frame " + SizeText(*sources[0].Image()) +
                          "; --align wants one size");
  }
  const RegistrationReference onto(*sources[0].Image(), mode);
  for (std::size_t i = 1; i < sources.size(); ++i) {
    const std::variant<Registration, std::string> found = onto.Measure(*sources[i].Image());
    if (const auto* reason = std::get_if<std::string>(&found))
      throw AboutFile(kExitBadData, sources[i], "can't be aligned: " + *reason);
    sources[i].place = ToLibrary(std::get<Registration>(found).geometry);
    steps.Advance(1);
  }
  steps.End("");
}

// Pixels of the colour frame a pixel of the luminance.
double ColourScale(const ComposeRequest& request, const std::vector<Source>& sources) {
  if (request.colourScale) return *request.colourScale;
  const CVynImage& luminance = *sources[0].Image();
  const CVynImage& colour = *sources[1].Image();
  const double across = static_cast<double>(colour.GetWidth()) / luminance.GetWidth();
  const double down = static_cast<double>(colour.GetHeight()) / luminance.GetHeight();
  // A camera's rows and columns that binning leaves over are no other shape.
  if (std::abs(across / down - 1.0) > 0.01)
    throw AboutFile(kExitBadData, sources[1],
                    "is " + SizeText(colour) + ", the luminance " + SizeText(luminance) +
                        "; --colour-scale says how many of its pixels make one of the luminance");
  // Binning gives whole ratios, whatever it leaves over.
  const double whole = across < 1.0 ? 1.0 / std::round(1.0 / across) : std::round(across);
  return std::abs(across / whole - 1.0) < 0.01 ? whole : across;
}

// Whether the frame, read at `scale` times the size, covers the picture from edge to edge.
bool Covers(const Source& source, const CVynImage& picture, double scale) {
  const CVynImage& image = *source.Image();
  return image.GetWidth() == picture.GetWidth() * scale && image.GetHeight() == picture.GetHeight() * scale;
}

// The middle of a smaller or larger frame lies on the middle of the picture.
LibraryGeometry OnMiddle(const Source& source, const CVynImage& picture) {
  LibraryGeometry place = source.place;
  place.shiftX += (picture.GetWidth() - source.Image()->GetWidth()) / 2.0;
  place.shiftY += (picture.GetHeight() - source.Image()->GetHeight()) / 2.0;
  return place;
}

template <class Operation>
std::unique_ptr<Operation> EmptyPicture(const CVynImage& like, HWND progress) {
  constexpr int kPlanes = 3;
  auto picture = std::make_unique<Operation>();
  CVynImage& image = *picture;
  CVynImage shape(-32, like.GetWidth(), like.GetHeight(), kPlanes, 1.0, 0.0, 0);
  image.Swap(&shape);
  image.SetProgressHandle(progress);
  return picture;
}

template <class Operation>
std::unique_ptr<CVynImage> FromThree(const ComposeRequest& request, const std::vector<Source>& sources, HWND progress) {
  auto picture = EmptyPicture<Operation>(*sources[0].Image(), progress);
  LibraryGeometry at[3];
  for (std::size_t i = 0; i < 3; ++i) at[i] = OnMiddle(sources[i], *picture);
  const auto compose = [&](auto last) {
    picture->Do(sources[0].Image(), at[0].shiftX, at[0].shiftY, at[0].angleDegrees, sources[1].Image(), at[1].shiftX,
                at[1].shiftY, at[1].angleDegrees, sources[2].Image(), at[2].shiftX, at[2].shiftY, at[2].angleDegrees,
                kAboutStdCtr, request.interpolation, nullptr, last, kReport);
  };
  if constexpr (std::is_same_v<Operation, CImgRgbCmpst>)
    compose(static_cast<int*>(nullptr));
  else
    compose(0);
  return picture;
}

std::unique_ptr<CVynImage> FromLuminance(const ComposeRequest& request, const std::vector<Source>& sources,
                                         double scale, HWND progress) {
  CVynImage& luminance = *sources[0].Image();
  CVynImage& colour = *sources[1].Image();
  auto picture = EmptyPicture<CImgLrgbCmpst>(luminance, progress);
  const LibraryGeometry l = sources[0].place;
  const LibraryGeometry c = OnMiddle(sources[1], *picture);
  if (request.composition == Composition::kLrgb) {
    const unsigned blend = request.blend == ComposeBlend::kDifference ? 1
                           : request.blend == ComposeBlend::kInverse  ? 2
                                                                      : 0;
    picture->DoLrgb(&luminance, l.shiftX, l.shiftY, l.angleDegrees, &colour, c.shiftX, c.shiftY, c.angleDegrees,
                    kAboutStdCtr, scale, nullptr, request.blend != ComposeBlend::kNone, blend, kReport);
    return picture;
  }
  luminance.SetProgressHandle(progress);
  colour.SetProgressHandle(progress);
  const std::unique_ptr<CVynImage> lightness(luminance.MakeLPlane());
  const std::unique_ptr<CVynImage> ab(colour.MakeAbPlane(0));
  if (!lightness || !ab) throw std::bad_alloc();
  picture->DoLab(lightness.get(), l.shiftX, l.shiftY, l.angleDegrees, ab.get(), c.shiftX, c.shiftY, c.angleDegrees,
                 kAboutStdCtr, scale, request.interpolation, nullptr, kReport);
  return picture;
}

constexpr std::string_view kCommands[] = {"rgb", "cmy", "lrgb", "lab"};
constexpr std::string_view kBlends[] = {"none", "mean", "difference", "inverse"};

bool HasInterpolation(Composition composition) {
  return composition != Composition::kLrgb;
}
bool HasColourScale(Composition composition) {
  return composition == Composition::kLrgb || composition == Composition::kLab;
}

std::string CommandText(const ComposeRequest& request, const std::vector<Source>& sources, double scale) {
  std::string text = "qmr compose " + std::string(kCommands[static_cast<std::size_t>(request.composition)]);
  for (const Source& source : sources) {
    const std::string name = " --" + std::string(source.name);
    const LibraryGeometry& at = source.place;
    if (at.shiftX != 0.0 || at.shiftY != 0.0) text += name + "-shift " + Number(at.shiftX) + "," + Number(at.shiftY);
    if (at.angleDegrees != 0.0) text += name + "-angle " + Number(at.angleDegrees);
    text += name + "-levels " + LevelsText(*source.Image());
  }
  if (HasInterpolation(request.composition))
    text += " --interpolation " + NarrowUtf8(CInterp::GetEngString(request.interpolation).GetString());
  if (HasColourScale(request.composition)) text += " --colour-scale " + Number(scale);
  if (request.blend != ComposeBlend::kNone)
    text.append(" --blend ").append(kBlends[static_cast<std::size_t>(request.blend)]);
  return text;
}

std::string PlaceText(const Source& source) {
  char text[160];
  std::snprintf(text, sizeof text, "%-10s shift %+9.3f %+9.3f px  rotation %+8.4f deg  %s",
                std::string(source.name).c_str(), source.place.shiftX, source.place.shiftY, source.place.angleDegrees,
                PrintablePath(source.file.name).c_str());
  return text;
}

// The keywords of the first frame, as far as they hold for the picture.
std::vector<Keyword> PictureKeywords(const std::vector<Source>& sources, const CVynImage& picture) {
  std::vector<Keyword> keywords = sources[0].file.keywords;
  std::erase_if(keywords, [](const Keyword& k) { return k.name == "FILTER"; });
  if (std::any_of(sources.begin(), sources.end(), [](const Source& s) { return s.levelsTold; }))
    SetLevelKeywords(keywords, picture);
  else
    DropLevelKeywords(keywords);
  const LibraryGeometry& first = sources[0].place;
  if (first.shiftX != 0.0 || first.shiftY != 0.0 || first.angleDegrees != 0.0) DropSkyKeywords(keywords);
  return keywords;
}

}  // namespace

const std::vector<std::string_view>& FrameNames(Composition composition) {
  static const std::vector<std::string_view> names[] = {
      {"red", "green", "blue"}, {"cyan", "magenta", "yellow"}, {"luminance", "colour"}, {"luminance", "colour"}};
  return names[static_cast<std::size_t>(composition)];
}

ComposeReport Compose(ComposeRequest& request, Steps& steps) {
  CheckOutput(request.output, request.force);
  const std::vector<std::string_view>& names = FrameNames(request.composition);
  std::vector<Source> sources;
  steps.Begin("Reading", static_cast<std::int64_t>(names.size()));
  for (std::size_t i = 0; i < names.size(); ++i) {
    sources.push_back(Load(request.frames[i], names[i], steps));
    steps.Advance(1);
  }
  steps.End("");
  CheckRowOrder(sources);
  const bool luminance = HasColourScale(request.composition);
  const double scale = luminance ? ColourScale(request, sources) : 1.0;
  if (request.align != AlignMode::kNone) Align(sources, request.align, steps);

  ComposeReport report;
  report.command = CommandText(request, sources, scale);
  for (const Source& source : sources) {
    report.lines.push_back(PlaceText(source));
    if (!Covers(source, *sources[0].Image(), &source == sources.data() ? 1.0 : scale))
      steps.Warn(PrintablePath(source.asked.path) + ": is " + SizeText(*source.Image()) + ", the picture " +
                 SizeText(*sources[0].Image()) + ": their middles lie on each other");
  }

  ProgressWindow window(steps, "Composing");
  const std::unique_ptr<CVynImage> picture = luminance ? FromLuminance(request, sources, scale, &window)
                                             : request.composition == Composition::kRgb
                                                 ? FromThree<CImgRgbCmpst>(request, sources, &window)
                                                 : FromThree<CImgCmyComposit>(request, sources, &window);
  steps.Begin("Writing", 1);
  WritePicture(request.output, *picture, PictureKeywords(sources, *picture), report.command);
  steps.End("");
  return report;
}

}  // namespace qmr
