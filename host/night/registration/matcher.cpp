#include "host/night/registration/matcher.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <numeric>

namespace qmr {

namespace {

constexpr int kLeastSide = 64;
constexpr std::size_t kPatches = 320;

// What separates a match from a chance: on frames of other fields an eighth of the patches may agree by chance, with
// residuals above half a pixel; on poor frames of the same field most do.
constexpr double kResemblance = 0.3;
constexpr double kStrongResemblance = 0.5;
constexpr double kLeastShare = 0.3;
constexpr int kLeastPatches = 3;
constexpr double kLeastVotes = 0.04;  // of the patches, after the search
constexpr double kLeastAgreement = 0.25;
constexpr double kLeastCorrelation = 0.2;
constexpr double kMostResidual = 0.5;  // pixels
constexpr double kMostSeeing = 0.9;
constexpr double kLeastSpreadCorrelation = 0.65;
constexpr double kMostSpread = 2.6;  // pixels

bool IsConvincing(const FineMatch& match) {
  if (match.fit.agreeing.size() < kLeastPatches || match.correlation < kLeastCorrelation) return false;
  // Bad seeing moves parts of a planet or of the Moon by a pixel; then at least most of the patches take part.
  return match.fit.residual <= kMostResidual ? match.agreement >= kLeastAgreement
                                             : match.fit.residual <= kMostSeeing && match.agreement >= 0.5;
}

}  // namespace

Matcher::Matcher(const Luminance& reference, bool shiftOnly)
    : width_(reference.Width()), height_(reference.Height()), shiftOnly_(shiftOnly) {
  if (std::min(width_, height_) < kLeastSide) {
    refusal_ = "the reference is smaller than 64 pixels";
    return;
  }
  patches_ = ChoosePatches(reference, kPatches);
  if (patches_.Count() == 0) {
    refusal_ = "the reference shows nothing to align on";
    return;
  }
  allPatches_.resize(patches_.Count());
  std::iota(allPatches_.begin(), allPatches_.end(), 0);
  // The whole frame is binned until it fits 512 columns and rows, tiles half as much.
  while (std::max(width_, height_) / wholeBin_ > 512) wholeBin_ *= 2;
  tileBin_ = std::max(1, wholeBin_ / 2);
  BinnedImage tiled = Bin(reference, tileBin_);
  BinnedImage small = wholeBin_ > tileBin_ ? HalfSize(tiled) : tiled;
  CleanForCorrelation(tiled);
  CleanForCorrelation(small);
  tiles_.emplace(tiled);
  whole_.emplace(std::move(small));
}

std::variant<Registration, std::string> Matcher::Measure(const Luminance& frame) const {
  if (!refusal_.empty()) return refusal_;
  if (frame.Width() != width_ || frame.Height() != height_) return std::string("its size differs from the reference's");
  Course course{frame, Bin(frame, tileBin_), {}};
  course.small = wholeBin_ > tileBin_ ? HalfSize(course.tiled) : course.tiled;
  CleanForCorrelation(course.tiled);
  CleanForCorrelation(course.small);

  std::vector<CoarseCandidate> candidates = whole_->Match(course.small, 0.0, width_, height_);
  std::optional<FineMatch> match = FollowAny(course, candidates, allPatches_);
  if (!match && !shiftOnly_ && !candidates.empty()) {
    // Turned by more than the tiles bear. The angle is sought twice: its correlation fades towards a quarter turn.
    for (const bool quarter : {false, true}) {
      const double theta = quarter ? 90.0 + CoarseAngle(whole_->Image(), QuarterTurned(course.small))
                                   : CoarseAngle(whole_->Image(), course.small);
      candidates = whole_->Match(course.small, theta, width_, height_);
      match = FollowAny(course, candidates, allPatches_);
      if (match) break;
    }
  }
  if (!match) return std::string("it doesn't resemble the reference");
  if (auto other = Unpinned(course, candidates, *match)) match = std::move(other);

  const RigidFit& fit = match->fit;
  Registration r;
  r.geometry = fit.geometry;
  r.geometry.thetaDegrees -= 360.0 * std::round(r.geometry.thetaDegrees / 360.0);
  r.shiftError = fit.shiftError;
  r.thetaError = fit.thetaError;
  r.peak = match->correlation;
  r.tiles = static_cast<int>(fit.agreeing.size());
  r.residual = fit.residual;
  r.scale = fit.scale;
  return r;
}

std::optional<FineMatch> Matcher::FollowAny(const Course& course, const std::vector<CoarseCandidate>& candidates,
                                            const PatchList& which) const {
  for (const CoarseCandidate& candidate : candidates) {
    if (shiftOnly_ && candidate.geometry.thetaDegrees != 0.0) continue;
    if (auto match = Follow(course, candidate.geometry, which)) return match;
  }
  return std::nullopt;
}

std::optional<FineMatch> Matcher::Follow(const Course& course, const FrameGeometry& start,
                                         const PatchList& which) const {
  constexpr double kMostTurn = 5.0;  // degrees that a tile bears
  FrameGeometry geometry = start;
  const RigidMap coarse(geometry, width_, height_);
  const std::vector<Displacement> tiles = tiles_->Measure(course.tiled, coarse);
  if (const auto vote = VoteRigid(tiles, coarse, shiftOnly_, 1.25 * tileBin_, kMostTurn)) geometry = vote->geometry;
  const RigidMap map(geometry, width_, height_);
  return Finish(course, map, which, SearchPatches(patches_, which, course.frame, map, 4, kResemblance));
}

std::optional<FineMatch> Matcher::Finish(const Course& course, const RigidMap& map, const PatchList& which,
                                         const std::vector<Displacement>& found) const {
  const double votes = std::max<double>(kLeastPatches, kLeastVotes * static_cast<double>(which.size()));
  if (const auto vote = VoteRigid(found, map, shiftOnly_, 1.0, 1.0);
      vote && vote->share >= kLeastShare && vote->count >= votes) {
    auto match = RefineMatch(patches_, which, course.frame, vote->geometry, shiftOnly_);
    if (match && IsConvincing(*match)) return match;
  }
  const auto wide = VoteRigid(found, map, shiftOnly_, 2.5, 1.0);
  if (!wide || wide->share < 2.0 * kLeastShare || wide->count < 2.0 * votes) return std::nullopt;
  return Spread(course, wide->geometry, which);
}

// Where bad seeing moves each part of a planet by a pixel or two, only the mean over many patches tells the motion.
std::optional<FineMatch> Matcher::Spread(const Course& course, const FrameGeometry& start,
                                         const PatchList& which) const {
  constexpr int kReach = 5;
  constexpr double kSeeing = 1.0;  // pixels
  FineMatch match;
  match.fit.geometry = start;
  for (int round = 0; round < 3; ++round) {
    const RigidMap map(match.fit.geometry, width_, height_);
    const std::vector<Displacement> found =
        SearchPatches(patches_, which, course.frame, map, kReach, kStrongResemblance);
    if (static_cast<double>(found.size()) < 2.0 * kLeastVotes * static_cast<double>(which.size())) return std::nullopt;
    const auto fit = FitRigid(found, map, shiftOnly_, kSeeing);
    if (!fit || fit->agreeing.size() < kLeastPatches) return std::nullopt;
    match.fit = *fit;
    double sum = 0.0;
    for (const Displacement& d : found) {
      sum += std::sqrt(std::max(d.xx, d.yy) / patches_.strength[static_cast<std::size_t>(d.source)]);
    }
    match.correlation = sum / static_cast<double>(found.size());
  }
  if (match.correlation < kLeastSpreadCorrelation || match.fit.residual > kMostSpread) return std::nullopt;
  return match;
}

// A detector's own pattern (dead columns, glow, dust) lies to itself at exactly zero and may outweigh the sky. So a
// motion of nothing is believed only when no other is found by the patches that don't take part in it.
std::optional<FineMatch> Matcher::Unpinned(const Course& course, const std::vector<CoarseCandidate>& candidates,
                                           const FineMatch& pinned) const {
  constexpr double kNothing = 0.15;  // pixels, anywhere in the frame
  constexpr int kReach = 16;
  const FrameGeometry& g = pinned.fit.geometry;
  const double arm = std::hypot(width_, height_) / 2.0 * std::abs(g.thetaDegrees) * std::numbers::pi / 180.0;
  if (std::hypot(g.dx, g.dy) + arm > kNothing) return std::nullopt;

  PatchList rest;
  std::set_difference(allPatches_.begin(), allPatches_.end(), pinned.fit.agreeing.begin(), pinned.fit.agreeing.end(),
                      std::back_inserter(rest));
  if (rest.size() < kLeastPatches) return std::nullopt;
  const RigidMap map(FrameGeometry{}, width_, height_);
  std::vector<Displacement> moved = SearchPatches(patches_, rest, course.frame, map, kReach, kStrongResemblance);
  std::erase_if(moved, [](const Displacement& d) { return std::hypot(d.offset.x, d.offset.y) < 0.5; });
  // A few patches give no trustworthy angle.
  constexpr std::size_t kFew = 8;
  const bool few = moved.size() < kFew;
  if (const auto vote = VoteRigid(moved, map, shiftOnly_ || few, 1.0, 1.0)) {
    const RigidMap voted(vote->geometry, width_, height_);
    PatchList agreed;
    double strength = 0.0;
    for (const Displacement& d : moved) {
      const Point from = map(d.at), to = voted(d.at);
      if (std::hypot(from.x + d.offset.x - to.x, from.y + d.offset.y - to.y) > 1.0) continue;
      agreed.push_back(d.source);
      strength += std::max(d.xx, d.yy) / patches_.strength[static_cast<std::size_t>(d.source)];
    }
    // Two very clear ones suffice, where a galaxy and a star are all there is.
    if (agreed.size() >= kLeastPatches || strength >= 1.3) {
      const bool shiftOnly = shiftOnly_ || agreed.size() < kFew;
      auto match = RefineMatch(patches_, agreed, course.frame, vote->geometry, shiftOnly);
      if (match && match->fit.agreeing.size() >= 2 && match->correlation >= kStrongResemblance &&
          match->fit.residual <= kMostResidual) {
        return match;
      }
    }
  }
  for (const CoarseCandidate& candidate : candidates) {
    if (std::hypot(candidate.geometry.dx, candidate.geometry.dy) < kReach) continue;
    if (shiftOnly_ && candidate.geometry.thetaDegrees != 0.0) continue;
    if (auto match = Follow(course, candidate.geometry, rest)) return match;
  }
  return std::nullopt;
}

}  // namespace qmr
