#include "host/composite/frame_mosaic.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <span>
#include <system_error>
#include <utility>
#include <variant>

#include "host/composite/sky_placement.h"
#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "host/operations/parameters.h"
#include "host/operations/picture_file.h"
#include "qmrimg/geometry/interp.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/stacking/mosaic.h"

namespace qmr {
namespace {

constexpr int kMaxPlanes = 3;

CRect Union(const CRect& a, const CRect& b) {
  return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right), std::max(a.bottom, b.bottom)};
}

// The mosaic so far: its pixels, in those of the first frame, and which of them a frame covers.
struct Canvas {
  CRect box;
  std::unique_ptr<CVynImage> image;
  CoverMap cover;

  // A rectangle of the first frame's pixels as one of the canvas.
  CRect Inside(const CRect& r) const {
    return {r.left - box.left, r.top - box.top, r.right - box.left, r.bottom - box.top};
  }
};

void CheckSize(const CRect& box) {
  constexpr double kMost = 4e8;
  const double width = static_cast<double>(box.right) - box.left;
  const double height = static_cast<double>(box.bottom) - box.top;
  if (width * height > kMost)
    throw Failure(kExitBadData, "the mosaic would be " + NumberText(width) + " x " + NumberText(height) +
                                    " pixels, more than the 400 million that it may have; are the places right?");
}

void Grow(Canvas& canvas, const CRect& wanted, int planes) {
  const CRect box = Union(canvas.box, wanted);
  CheckSize(box);
  if (box == canvas.box && planes <= canvas.image->GetPlanes()) return;
  Canvas grown{box, nullptr, CoverMap(box.Width(), box.Height())};
  constexpr int kBilinear = 0;
  // In its own place and without a turn the old canvas is copied, to all planes where it gets more.
  grown.image = LayOut(*canvas.image, {static_cast<double>(canvas.box.left), static_cast<double>(canvas.box.top), 0.0},
                       box, std::max(planes, canvas.image->GetPlanes()), kBilinear);
  const CRect at = grown.Inside(canvas.box);
  for (int y = 0; y < canvas.cover.height; ++y)
    std::copy_n(canvas.cover.Row(y), canvas.cover.width, grown.cover.Row(at.top + y) + at.left);
  canvas = std::move(grown);
}

// Where picture and cover of a placed frame lie, and what comes of them.
struct Joint {
  CRect inCanvas;
  std::unique_ptr<CVynImage> under;
  std::unique_ptr<CVynImage> laid;
  CoverMap cover;
  std::int64_t shared = 0;  // pixels that both cover
};

Joint JointOf(const Canvas& canvas, const LaidPicture& frame, const LibraryGeometry& place, const CRect& box,
              int interpolation) {
  const CRect at = canvas.Inside(box);
  Joint joint{at, Cut(*canvas.image, at), LayOut(frame.Image(), place, box, canvas.image->GetPlanes(), interpolation),
              CoverOf(frame, place, box), 0};
  for (int y = 0; y < joint.cover.height; ++y) {
    const std::uint8_t* below = canvas.cover.Row(at.top + y) + at.left;
    const std::uint8_t* above = joint.cover.Row(y);
    for (int x = 0; x < joint.cover.width; ++x) joint.shared += below[x] & above[x];
  }
  return joint;
}

// Adds to each plane the median of what the mosaic has more than the frame where both are; returns what was added.
std::vector<float> MatchSky(const Canvas& canvas, Joint& joint) {
  // About so many pixels stand for the part.
  constexpr double kSamples = 1e6;
  const int step = std::max(1, static_cast<int>(std::sqrt(static_cast<double>(joint.shared) / kSamples)));
  std::vector<float> added;
  for (int p = 0; p < joint.laid->GetPlanes(); ++p) {
    std::vector<float> more;
    for (int y = 0; y < joint.cover.height; y += step) {
      const std::uint8_t* below = canvas.cover.Row(joint.inCanvas.top + y) + joint.inCanvas.left;
      const std::uint8_t* above = joint.cover.Row(y);
      const std::span<const float> a = ReadRow(*joint.under, y, p, 0, joint.cover.width);
      const std::span<const float> b = ReadRow(*joint.laid, y, p, 0, joint.cover.width);
      for (std::size_t x = 0; x < a.size(); x += static_cast<std::size_t>(step))
        if (below[x] & above[x]) more.push_back(a[x] - b[x]);
    }
    float offset = 0.0f;
    if (!more.empty()) {
      const auto middle = more.begin() + static_cast<std::ptrdiff_t>(more.size() / 2);
      std::nth_element(more.begin(), middle, more.end());
      offset = *middle;
    }
    added.push_back(offset);
    ForRows(0, joint.cover.height, [&](int y) {
      for (float& v : WriteRow(*joint.laid, y, p, 0, joint.cover.width)) v += offset;
    });
  }
  return added;
}

int ModeNumber(FrameOverlap overlap) {
  switch (overlap) {
    case FrameOverlap::kNewMasked:
      return 1;
    case FrameOverlap::kBrighter:
      return 2;
    case FrameOverlap::kDarker:
      return 3;
    case FrameOverlap::kBase:
      return 4;
    default:
      return 0;
  }
}

struct Mask {
  std::vector<float> colour;        // a value a plane, of three
  double black = 0.0, white = 1.0;  // levels of the first frame; a 256th of their range is no difference
};

// The part with the frame in it, as if the mosaic covered all of it.
std::unique_ptr<CVynImage> Overlaid(const FrameMosaicRequest& request, const Mask& mask, Joint& joint,
                                    const std::vector<float>& added) {
  auto joined = std::make_unique<CImgMosaic>();
  joined->Swap(EmptyImage(joint.cover.width, joint.cover.height, joint.laid->GetPlanes()).get());
  for (int p = 0; p < joined->GetPlanes(); ++p) static_cast<CImage&>(*joined).SetLevel(p, mask.black, mask.white);
  float colour[kMaxPlanes] = {};
  float outside[kMaxPlanes] = {};
  for (std::size_t p = 0; p < kMaxPlanes && p < mask.colour.size(); ++p)
    colour[p] = mask.colour[p] + (p < added.size() ? added[p] : 0.0f);
  joined->Do(joint.under.get(), 0, 0, joint.laid.get(), 0.0, 0.0, 0.0, ModeNumber(request.overlap), colour, outside, 0,
             request.overlap == FrameOverlap::kAverage ? 1 : 0, nullptr, 0);
  return joined;
}

// Share of the frame where the mosaic shows it too: 0 at the frame's edge, 1 from `feather` pixels on.
double Blend(const FrameMap& map, const CVynImage& frame, int x, int y, int feather) {
  const Point p = map.Source({static_cast<double>(x), static_cast<double>(y)});
  const double depth = std::min({p.x, p.y, frame.GetWidth() - 1.0 - p.x, frame.GetHeight() - 1.0 - p.y});
  return std::clamp((depth + 0.5) / feather, 0.0, 1.0);
}

void Join(Canvas& canvas, const FrameMosaicRequest& request, const Mask& mask, const LaidPicture& frame,
          const LibraryGeometry& place, bool first, Steps& steps) {
  const CVynImage& image = frame.Image();
  const FrameMap map(place, image.GetWidth(), image.GetHeight());
  const CRect box = map.Box();
  Grow(canvas, box, image.GetPlanes());
  Joint joint = JointOf(canvas, frame, place, box, request.interpolation);
  if (!first && joint.shared == 0)
    steps.Warn(PrintablePath(frame.path) + ": lies beside the frames before it, no pixel is shared");
  std::vector<float> added;
  if (request.matchSky && joint.shared > 0) added = MatchSky(canvas, joint);
  std::unique_ptr<CVynImage> joined;
  if (joint.shared > 0) joined = Overlaid(request, mask, joint, added);
  const bool feather = request.feather > 0 && request.overlap == FrameOverlap::kNew;
  ForRows(0, joint.cover.height, [&](int y) {
    const CRect& at = joint.inCanvas;
    std::uint8_t* below = canvas.cover.Row(at.top + y) + at.left;
    const std::uint8_t* above = joint.cover.Row(y);
    for (int p = 0; p < canvas.image->GetPlanes(); ++p) {
      const std::span<float> row = WriteRow(*canvas.image, at.top + y, p, at.left, at.right);
      const std::span<const float> alone = ReadRow(*joint.laid, y, p, 0, joint.cover.width);
      const std::span<const float> both =
          joined ? ReadRow(*joined, y, p, 0, joint.cover.width) : std::span<const float>();
      for (std::size_t x = 0; x < row.size(); ++x) {
        if (!above[x]) continue;
        if (!below[x]) {
          row[x] = alone[x];
        } else if (feather) {
          const double share = Blend(map, image, box.left + static_cast<int>(x), box.top + y, request.feather);
          row[x] = static_cast<float>((1.0 - share) * row[x] + share * both[x]);
        } else {
          row[x] = both[x];
        }
      }
    }
    for (int x = 0; x < joint.cover.width; ++x) below[x] = below[x] | above[x];
  });
}

// Pixels of the mask's colour count as without a value, so that interpolation leaves nothing of them at the borders.
void LeaveOutMasked(LaidPicture& frame, const Mask& mask) {
  CVynImage& image = frame.Image();
  const double tolerance = (mask.white - mask.black) / 256.0;
  ForRows(0, image.GetHeight(), [&](int y) {
    for (int x = 0; x < image.GetWidth(); ++x) {
      double distance = 0.0;
      for (int p = 0; p < image.GetPlanes(); ++p)
        distance +=
            std::abs(static_cast<double>(mask.colour[static_cast<std::size_t>(p)]) - image.GetPixelGrayRaw(x, y, p));
      if (!(distance < tolerance)) continue;
      for (int p = 0; p < image.GetPlanes(); ++p)
        image.SetPixelGrayRaw(x, y, std::numeric_limits<float>::quiet_NaN(), p);
    }
  });
  FillBlanks(frame);
}

LibraryGeometry GivenPlace(const FrameToJoin& asked, const LaidPicture& frame, const std::vector<Keyword>& first) {
  if (asked.place) return *asked.place;
  const CVynImage& image = frame.Image();
  const auto found = PlaceBySky(first, frame.file.keywords, image.GetWidth(), image.GetHeight());
  const std::string name = PrintablePath(asked.path);
  if (const auto* reason = std::get_if<std::string>(&found))
    throw Failure(kExitBadData, name + ": can't be placed: " + *reason + "; --at says where it lies");
  LibraryGeometry place = std::get<LibraryGeometry>(found);
  constexpr double kFarthest = 1e5;
  if (std::abs(place.shiftX) > kFarthest || std::abs(place.shiftY) > kFarthest)
    throw Failure(kExitBadData, name + ": its sky coordinates place it more than 100000 pixels from the first frame");
  return place;
}

void FillUncovered(Canvas& canvas, const std::optional<double>& background) {
  const float value = background ? static_cast<float>(*background) : std::numeric_limits<float>::quiet_NaN();
  ForRows(0, canvas.cover.height, [&](int y) {
    const std::uint8_t* known = canvas.cover.Row(y);
    for (int p = 0; p < canvas.image->GetPlanes(); ++p) {
      const std::span<float> row = WriteRow(*canvas.image, y, p, 0, canvas.cover.width);
      for (std::size_t x = 0; x < row.size(); ++x)
        if (!known[x]) row[x] = value;
    }
  });
}

std::string CommandText(const FrameMosaicRequest& request, const std::vector<LibraryGeometry>& places) {
  std::string text = "qmr mosaic";
  for (std::size_t i = 1; i < places.size(); ++i) {
    text.append(" --at ").append(NumberText(places[i].shiftX)).append(",").append(NumberText(places[i].shiftY));
    if (places[i].angleDegrees != 0.0) text.append(",").append(NumberText(places[i].angleDegrees));
  }
  text += " --interpolation " + NarrowUtf8(CInterp::GetEngString(request.interpolation).GetString());
  for (const auto& [word, value] : FrameOverlaps())
    if (value == request.overlap) text += " --overlap " + word;
  for (std::size_t i = 0; i < request.maskColour.size(); ++i)
    text.append(i == 0 ? " --mask-colour " : ",").append(NumberText(request.maskColour[i]));
  if (request.matchSky) text += " --match-sky";
  if (request.feather > 0) text += " --feather " + NumberText(request.feather);
  text.append(" --background ").append(request.background ? NumberText(*request.background) : "blank");
  return text;
}

LaidPicture Load(const std::string& path, const Mask& mask) {
  LaidPicture frame = LoadLaidPicture(path);
  if (!mask.colour.empty()) LeaveOutMasked(frame, mask);
  return frame;
}

// The mask's levels are the first frame's, in which it is not left out yet.
Mask MaskOf(const FrameMosaicRequest& request, const CVynImage& first) {
  Mask mask{{}, first.GetLevelMin(0), first.GetLevelMax(0)};
  if (request.overlap != FrameOverlap::kNewMasked) return mask;
  for (std::size_t p = 0; p < kMaxPlanes; ++p)
    mask.colour.push_back(static_cast<float>(request.maskColour[request.maskColour.size() > 1 ? p : 0]));
  return mask;
}

}  // namespace

const std::map<std::string, FrameOverlap>& FrameOverlaps() {
  static const std::map<std::string, FrameOverlap> overlaps = {
      {"new", FrameOverlap::kNew},           {"new-masked", FrameOverlap::kNewMasked},
      {"brighter", FrameOverlap::kBrighter}, {"darker", FrameOverlap::kDarker},
      {"base", FrameOverlap::kBase},         {"average", FrameOverlap::kAverage}};
  return overlaps;
}

FrameMosaicReport MakeFrameMosaic(const FrameMosaicRequest& request, Steps& steps) {
  CheckOutput(request.output, request.force);
  for (const FrameToJoin& frame : request.frames) {
    std::error_code error;
    if (!std::filesystem::exists(frame.path, error))
      throw Failure(kExitNoInput, PrintablePath(frame.path) + ": no such file");
  }
  steps.Begin("Joining", static_cast<std::int64_t>(request.frames.size()));
  LaidPicture first = LoadLaidPicture(request.frames[0].path);
  SetLevelsOfFile(first.Image(), first.file.keywords);
  const Mask mask = MaskOf(request, first.Image());
  if (!mask.colour.empty()) LeaveOutMasked(first, mask);
  std::vector<LibraryGeometry> places = {{}};
  const int width = first.Image().GetWidth();
  const int height = first.Image().GetHeight();
  Canvas canvas{CRect(0, 0, width, height), EmptyImage(width, height, first.Image().GetPlanes()),
                CoverMap(width, height)};
  Join(canvas, request, mask, first, places[0], true, steps);
  steps.Advance(1);

  FrameMosaicReport report;
  for (std::size_t i = 1; i < request.frames.size(); ++i) {
    const LaidPicture frame = Load(request.frames[i].path, mask);
    CheckRowOrder(first, frame);
    const LibraryGeometry estimate = GivenPlace(request.frames[i], frame, first.file.keywords);
    const LibraryGeometry onCanvas{estimate.shiftX - canvas.box.left, estimate.shiftY - canvas.box.top,
                                   estimate.angleDegrees};
    LibraryGeometry place = estimate;
    if (request.search.by != PlaceBy::kWord) {
      place = MeasurePlace(*canvas.image, canvas.cover, frame, onCanvas, request.search, steps);
      place.shiftX += canvas.box.left;
      place.shiftY += canvas.box.top;
    }
    Join(canvas, request, mask, frame, place, false, steps);
    places.push_back(place);
    report.lines.push_back(PlaceText(place) + "  " + PrintablePath(frame.file.name));
    steps.Advance(1);
  }
  steps.End("");
  FillUncovered(canvas, request.background);
  for (int p = 0; p < canvas.image->GetPlanes(); ++p) {
    const int from = std::min(p, first.Image().GetPlanes() - 1);
    static_cast<CImage&>(*canvas.image).SetLevel(p, first.Image().GetLevelMin(from), first.Image().GetLevelMax(from));
  }
  report.command = CommandText(request, places);
  std::vector<Keyword> keywords = first.file.keywords;
  MoveSkyKeywords(keywords, -canvas.box.left, -canvas.box.top);
  steps.Begin("Writing", 1);
  WritePicture(request.output, *canvas.image, keywords, report.command);
  steps.End("");
  return report;
}

}  // namespace qmr
