// The road from a coarse correlation to the final fit, on plain luminance.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/night/registration/coarse_match.h"
#include "host/night/registration/fine_match.h"
#include "host/night/registration/registration.h"

namespace qmr {

class Matcher {
 public:
  Matcher(const Luminance& reference, bool shiftOnly);
  std::variant<Registration, std::string> Measure(const Luminance& frame) const;

 private:
  // One frame on its way.
  struct Course {
    const Luminance& frame;
    BinnedImage tiled;
    BinnedImage small;
  };

  std::optional<FineMatch> FollowAny(const Course& course, const std::vector<CoarseCandidate>& candidates,
                                     const PatchList& which) const;
  std::optional<FineMatch> Follow(const Course& course, const FrameGeometry& start, const PatchList& which) const;
  std::optional<FineMatch> Finish(const Course& course, const RigidMap& map, const PatchList& which,
                                  const std::vector<Displacement>& found) const;
  std::optional<FineMatch> Spread(const Course& course, const FrameGeometry& start, const PatchList& which) const;
  std::optional<FineMatch> Unpinned(const Course& course, const std::vector<CoarseCandidate>& candidates,
                                    const FineMatch& pinned) const;

  int width_;
  int height_;
  bool shiftOnly_;
  std::string refusal_;  // of the reference itself
  int tileBin_ = 1;
  int wholeBin_ = 1;
  std::optional<WholeFrame> whole_;
  std::optional<TileGrid> tiles_;
  PatchSet patches_;
  PatchList allPatches_;
};

}  // namespace qmr
