#include "host/composite/placement.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <optional>
#include <span>
#include <utility>
#include <variant>

#include "host/composite/sample_match.h"
#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "host/night/keywords.h"
#include "host/operations/picture_file.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/stacking/composit.h"

namespace qmr {
namespace {

constexpr int kBilinear = 0;
constexpr int kBicubic = 1;
constexpr int kAboutStdCtr = 1;
constexpr int kAdd = 1;
constexpr int kRaw = 0;

// What is compared is at least that wide and high, and need not be larger.
constexpr int kLeastSide = 16;
constexpr int kLargestSide = 1024;

Failure Unplaced(const LaidPicture& frame, const std::string& line) {
  return {kExitBadData, PrintablePath(frame.path) + ": can't be placed: " + line};
}

std::string Times(int width, int height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

LibraryGeometry WholeShift(const LibraryGeometry& place) {
  // A turned frame is interpolated anyhow.
  if (place.angleDegrees != 0.0) return place;
  return {std::round(place.shiftX), std::round(place.shiftY), 0.0};
}

// What picture and frame both show, by the estimate: a rectangle of the picture, and the frame's pixels in it.
struct Shared {
  CRect rect;
  std::unique_ptr<CVynImage> below;
  std::unique_ptr<CVynImage> above;
};

Shared ShareOf(const CVynImage& picture, const CoverMap& known, const LaidPicture& frame,
               const LibraryGeometry& estimate, const std::optional<CRect>& within) {
  CVynImage& image = frame.Image();
  CRect box = Intersection(CRect(0, 0, picture.GetWidth(), picture.GetHeight()),
                           FrameMap(estimate, image.GetWidth(), image.GetHeight()).Box());
  if (within) box = Intersection(box, *within);
  if (IsEmpty(box)) throw Unplaced(frame, "it shares no part with what it is to lie on, by the place given for it");
  CoverMap both = CoverOf(frame, estimate, box);
  for (int y = 0; y < both.height; ++y) {
    const std::uint8_t* below = known.Row(box.top + y) + box.left;
    std::uint8_t* row = both.Row(y);
    for (int x = 0; x < both.width; ++x) row[x] = row[x] & below[x];
  }
  CRect rect = LargestRectangle(both);
  rect = CRect(rect.left + box.left, rect.top + box.top, rect.right + box.left, rect.bottom + box.top);
  if (rect.Width() < kLeastSide || rect.Height() < kLeastSide)
    throw Unplaced(frame, "what it shares with what it is to lie on is only " + Times(rect.Width(), rect.Height()) +
                              " pixels, by the place given for it");
  return {rect, Cut(picture, rect), LayOut(image, estimate, rect, picture.GetPlanes(), kBicubic)};
}

// The frame as it lies after a motion that was measured between the two parts: what the one below shows at p stands
// in the one above at R(theta)(p - c) + c + d.
LibraryGeometry Corrected(const LibraryGeometry& place, const FrameGeometry& motion, const Shared& shared,
                          const CVynImage& frame) {
  const Point middle{(frame.GetWidth() - 1) / 2.0, (frame.GetHeight() - 1) / 2.0};
  const Point c{shared.rect.left + (shared.rect.Width() - 1) / 2.0, shared.rect.top + (shared.rect.Height() - 1) / 2.0};
  const double angle = -motion.thetaDegrees * std::numbers::pi / 180.0;
  const double sine = std::sin(angle);
  const double cosine = std::cos(angle);
  const double x = middle.x + place.shiftX - c.x - motion.dx;
  const double y = middle.y + place.shiftY - c.y - motion.dy;
  return {cosine * x - sine * y + c.x - middle.x, sine * x + cosine * y + c.y - middle.y,
          place.angleDegrees - motion.thetaDegrees};
}

// The middle of a rectangle after `margin` is taken off all its sides.
CRect MiddleOf(const CRect& rect, int margin) {
  CRect middle(rect.left + margin, rect.top + margin, rect.right - margin, rect.bottom - margin);
  if (const int more = middle.Width() - kLargestSide; more > 0) {
    middle.left += more / 2;
    middle.right = middle.left + kLargestSide;
  }
  if (const int more = middle.Height() - kLargestSide; more > 0) {
    middle.top += more / 2;
    middle.bottom = middle.top + kLargestSide;
  }
  return middle;
}

struct FoundMatch {
  LibraryGeometry place;
  double correlation;
};

FoundMatch FindMatch(const CVynImage& picture, const CoverMap& known, const LaidPicture& frame,
                     const LibraryGeometry& estimate, const PlaceSearch& search) {
  const LibraryGeometry start = WholeShift(estimate);
  const int range = search.range;
  std::optional<CRect> within;
  if (search.sample)
    within = CRect(search.sample->left - range, search.sample->top - range, search.sample->right + range,
                   search.sample->bottom + range);
  const Shared shared = ShareOf(picture, known, frame, start, within);
  // Around the part that is compared there is picture as far as the search goes, so that no place is judged by less.
  CRect part = MiddleOf(shared.rect, range);
  if (part.Width() < kLeastSide || part.Height() < kLeastSide)
    throw Unplaced(frame, "a search over " + std::to_string(range) + " pixels wants a shared part of " +
                              Times(2 * range + kLeastSide, 2 * range + kLeastSide) + " at least, and this one is " +
                              Times(shared.rect.Width(), shared.rect.Height()));
  part = CRect(part.left - shared.rect.left, part.top - shared.rect.top, part.right - shared.rect.left,
               part.bottom - shared.rect.top);
  const std::optional<SampleMatch> match = MatchSample(*shared.below, *shared.above, part, range);
  if (!match) throw Unplaced(frame, "there is nothing to compare in what it shares with what it is to lie on");
  if (std::abs(match->dx) >= range || std::abs(match->dy) >= range)
    throw Unplaced(frame, "the best place is at the end of the search; a larger --range or a better guess may help");
  return {{start.shiftX + match->dx, start.shiftY + match->dy, start.angleDegrees}, match->correlation};
}

LibraryGeometry Register(const CVynImage& picture, const CoverMap& known, const LaidPicture& frame,
                         LibraryGeometry place, AlignMode mode, const PlaceSearch& search) {
  // A place that was far off has little in common with the picture: from the better one there is more.
  constexpr int kRounds = 3;
  constexpr double kNear = 0.03;
  for (int round = 0; round < kRounds; ++round) {
    const LibraryGeometry start = WholeShift(place);
    const Shared shared = ShareOf(picture, known, frame, start, std::nullopt);
    const auto found = RegistrationReference(*shared.below, mode).Measure(*shared.above);
    if (const auto* reason = std::get_if<std::string>(&found)) {
      // In a narrow part a bad estimate leaves too little in common. Matching looks beyond it.
      if (round > 0) throw Unplaced(frame, *reason);
      try {
        place = FindMatch(picture, known, frame, place, search).place;
      } catch (const Failure&) {
        throw Unplaced(frame, *reason);
      }
      continue;
    }
    const FrameGeometry& motion = std::get<Registration>(found).geometry;
    place = Corrected(start, motion, shared, frame.Image());
    const double side = std::min(shared.rect.Width(), shared.rect.Height());
    if (std::hypot(motion.dx, motion.dy) < kNear * side && std::abs(motion.thetaDegrees) < 1.0) break;
  }
  return place;
}

void WarnOfDoubt(const LaidPicture& frame, double correlation, Steps& steps) {
  constexpr double kDoubtful = 0.2;
  if (correlation >= kDoubtful) return;
  char text[120];
  std::snprintf(text, sizeof text, ": its place is doubtful, the pictures correlate by %.2f only", correlation);
  steps.Warn(PrintablePath(frame.path) + text);
}

}  // namespace

const std::map<std::string, PlaceBy>& PlaceWays() {
  static const std::map<std::string, PlaceBy> ways = {{"none", PlaceBy::kWord},
                                                      {"shift", PlaceBy::kShift},
                                                      {"rotation", PlaceBy::kRotation},
                                                      {"matching", PlaceBy::kMatching}};
  return ways;
}

CRect Intersection(const CRect& a, const CRect& b) {
  return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
}

bool IsEmpty(const CRect& r) {
  return r.right <= r.left || r.bottom <= r.top;
}

std::unique_ptr<CVynImage> EmptyImage(int width, int height, int planes) {
  return std::make_unique<CVynImage>(-32, width, height, planes, 1.0, 0.0, 0);
}

std::unique_ptr<CVynImage> Cut(const CVynImage& image, const CRect& part) {
  auto cut = EmptyImage(part.Width(), part.Height(), image.GetPlanes());
  cut->PixelBlt(0, 0, part.Width(), part.Height(), &image, part.left, part.top, 0);
  return cut;
}

LaidPicture LoadLaidPicture(const std::string& path) {
  LaidPicture laid{path, LoadPicture(path, std::nullopt), std::nullopt, nullptr};
  if (laid.file.mosaic.kind != MosaicLayout::Kind::None)
    throw Failure(kExitBadData, PrintablePath(path) + ": holds an undeveloped mosaic (" + laid.file.mosaic.text +
                                    "); develop it first");
  CVynImage& image = laid.Image();
  image.SetStdCtr((image.GetWidth() - 1) / 2.0, (image.GetHeight() - 1) / 2.0);
  if (laid.file.blankPixels > 0) FillBlanks(laid);
  return laid;
}

void FillBlanks(LaidPicture& laid) {
  CVynImage& image = laid.Image();
  laid.blank.emplace(image, 1);
  if (!laid.valid) {
    laid.valid = EmptyImage(image.GetWidth(), image.GetHeight(), 1);
    laid.valid->SetStdCtr(image.GetStdCtr());
    ForRows(0, image.GetHeight(), [&](int y) {
      for (float& v : WriteRow(*laid.valid, y, 0, 0, image.GetWidth())) v = 1.0f;
    });
  }
  laid.blank->Restore(*laid.valid);
  ForRows(0, image.GetHeight(), [&](int y) {
    for (float& v : WriteRow(*laid.valid, y, 0, 0, image.GetWidth()))
      if (std::isnan(v)) v = 0.0f;
  });
}

void CheckRowOrder(const LaidPicture& first, const LaidPicture& second) {
  const std::vector<Keyword>& a = first.file.keywords;
  const std::vector<Keyword>& b = second.file.keywords;
  if (KeywordText(a, "ROWORDER") && KeywordText(b, "ROWORDER") && IsBottomUp(a) != IsBottomUp(b))
    throw Failure(kExitBadData,
                  PrintablePath(second.path) + ": its rows run against those of the first frame (ROWORDER)");
}

FrameMap::FrameMap(const LibraryGeometry& place, int width, int height)
    : place_(place),
      width_(width),
      height_(height),
      middle_{(width - 1) / 2.0, (height - 1) / 2.0},
      sine_(std::sin(place.angleDegrees * std::numbers::pi / 180.0)),
      cosine_(std::cos(place.angleDegrees * std::numbers::pi / 180.0)),
      // Positions along a turned row are sums, which round.
      inset_(place.angleDegrees == 0.0 ? 0.0 : 1e-6) {}

Point FrameMap::Source(Point p) const {
  const double x = p.x - place_.shiftX;
  const double y = p.y - place_.shiftY;
  if (place_.angleDegrees == 0.0) return {x, y};
  const double u = x - middle_.x;
  const double v = y - middle_.y;
  return {cosine_ * u + sine_ * v + middle_.x, cosine_ * v - sine_ * u + middle_.y};
}

Point FrameMap::Target(Point p) const {
  const double u = p.x - middle_.x;
  const double v = p.y - middle_.y;
  if (place_.angleDegrees == 0.0) return {p.x + place_.shiftX, p.y + place_.shiftY};
  return {cosine_ * u - sine_ * v + middle_.x + place_.shiftX, sine_ * u + cosine_ * v + middle_.y + place_.shiftY};
}

bool FrameMap::Covers(int x, int y) const {
  const Point p = Source({static_cast<double>(x), static_cast<double>(y)});
  return p.x >= inset_ && p.x <= width_ - 1.0 - inset_ && p.y >= inset_ && p.y <= height_ - 1.0 - inset_;
}

CRect FrameMap::Box() const {
  double left = 1e9, top = 1e9, right = -1e9, bottom = -1e9;
  for (const Point corner :
       {Point{0.0, 0.0}, {width_ - 1.0, 0.0}, {0.0, height_ - 1.0}, {width_ - 1.0, height_ - 1.0}}) {
    const Point p = Target(corner);
    left = std::min(left, p.x);
    top = std::min(top, p.y);
    right = std::max(right, p.x);
    bottom = std::max(bottom, p.y);
  }
  return {static_cast<int>(std::ceil(left)), static_cast<int>(std::ceil(top)), static_cast<int>(std::floor(right)) + 1,
          static_cast<int>(std::floor(bottom)) + 1};
}

CoverMap CoverOf(const LaidPicture& frame, const LibraryGeometry& place, const CRect& box) {
  CVynImage& image = frame.Image();
  const FrameMap map(place, image.GetWidth(), image.GetHeight());
  CoverMap cover(box.Width(), box.Height());
  std::unique_ptr<CVynImage> valid;
  if (frame.valid) valid = LayOut(*frame.valid, place, box, 1, kBilinear);
  ForRows(0, cover.height, [&](int y) {
    std::uint8_t* row = cover.Row(y);
    for (int x = 0; x < cover.width; ++x) row[x] = map.Covers(box.left + x, box.top + y) ? 1 : 0;
    if (!valid) return;
    constexpr float kWhole = 0.999f;
    const std::span<const float> known = ReadRow(*valid, y, 0, 0, cover.width);
    for (std::size_t x = 0; x < known.size(); ++x)
      if (known[x] < kWhole) row[x] = 0;
  });
  return cover;
}

CRect LargestRectangle(const CoverMap& cover) {
  CRect best(0, 0, 0, 0);
  std::int64_t area = 0;
  std::vector<int> height(static_cast<std::size_t>(cover.width) + 1, 0);
  struct Step {
    int left, height;
  };
  std::vector<Step> steps;
  for (int y = 0; y < cover.height; ++y) {
    const std::uint8_t* row = cover.Row(y);
    steps.clear();
    for (int x = 0; x <= cover.width; ++x) {
      int& high = height[static_cast<std::size_t>(x)];
      high = x < cover.width && row[x] ? high + 1 : 0;
      int left = x;
      while (!steps.empty() && steps.back().height >= high) {
        const Step step = steps.back();
        steps.pop_back();
        left = step.left;
        if (const std::int64_t a = std::int64_t{step.height} * (x - step.left); a > area) {
          area = a;
          best = CRect(step.left, y + 1 - step.height, x, y + 1);
        }
      }
      if (high > 0) steps.push_back({left, high});
    }
  }
  return best;
}

std::unique_ptr<CVynImage> LayOut(CVynImage& frame, const LibraryGeometry& place, const CRect& box, int planes,
                                  int interpolation) {
  auto laid = std::make_unique<CImgComposit>();
  laid->Swap(EmptyImage(box.Width(), box.Height(), planes).get());
  // Added to a picture of zeros, a frame is itself.
  laid->Do(laid.get(), &frame, place.shiftX - box.left, place.shiftY - box.top, place.angleDegrees, kAboutStdCtr, kAdd,
           interpolation, kRaw);
  return laid;
}

LibraryGeometry MeasurePlace(const CVynImage& picture, const CoverMap& known, const LaidPicture& frame,
                             const LibraryGeometry& estimate, const PlaceSearch& search, Steps& steps) {
  switch (search.by) {
    case PlaceBy::kWord:
      return estimate;
    case PlaceBy::kMatching: {
      const FoundMatch match = FindMatch(picture, known, frame, estimate, search);
      WarnOfDoubt(frame, match.correlation, steps);
      return match.place;
    }
    case PlaceBy::kShift:
      return Register(picture, known, frame, estimate, AlignMode::kShift, search);
    case PlaceBy::kRotation:
      return Register(picture, known, frame, estimate, AlignMode::kRotation, search);
  }
  return estimate;
}

std::string PlaceText(const LibraryGeometry& place) {
  char text[120];
  std::snprintf(text, sizeof text, "shift %+10.3f %+10.3f px  rotation %+8.4f deg", place.shiftX, place.shiftY,
                place.angleDegrees);
  return text;
}

}  // namespace qmr
