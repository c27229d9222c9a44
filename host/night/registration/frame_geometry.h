// How one frame lies to another: a rigid motion about the middle of the frame.
#pragma once

#include <optional>
#include <span>
#include <vector>

namespace qmr {

// A position or a displacement in pixels: x to the right, y down the rows, centres of pixels at integers.
struct Point {
  double x = 0.0;
  double y = 0.0;
};

// Where the reference pixel p lies in the frame: R(theta)(p - c) + c + d with c = ((width - 1) / 2,
// (height - 1) / 2), d = (dx, dy) in pixels, and R taking +x towards +y.
struct FrameGeometry {
  double dx = 0.0;
  double dy = 0.0;
  double thetaDegrees = 0.0;
};

// The same motion as CInterp and CImgMedianComposit::Store take it, for an image whose StdCtr is c and with
// useImageCenter 1: shift in pixels, angle in degrees (sine and cosine of it are what those two are given).
struct LibraryGeometry {
  double shiftX = 0.0;
  double shiftY = 0.0;
  double angleDegrees = 0.0;
};

LibraryGeometry ToLibrary(const FrameGeometry& geometry);

// A geometry with its sine and cosine at hand.
class RigidMap {
 public:
  RigidMap(const FrameGeometry& geometry, int width, int height);

  const FrameGeometry& Geometry() const { return geometry_; }
  Point Centre() const { return centre_; }
  double Cosine() const { return cosine_; }
  double Sine() const { return sine_; }
  Point Turn(Point p) const { return {cosine_ * p.x - sine_ * p.y, sine_ * p.x + cosine_ * p.y}; }
  Point operator()(Point p) const {
    const Point q = Turn({p.x - centre_.x, p.y - centre_.y});
    return {q.x + centre_.x + geometry_.dx, q.y + centre_.y + geometry_.dy};
  }

 private:
  FrameGeometry geometry_;
  Point centre_;
  double cosine_;
  double sine_;
};

// One measured displacement: what the reference shows at `at` stands in the frame by `offset` (frame pixels) away
// from where the geometry of the moment expects it. The inverse covariance of the offset is (xx, xy; xy, yy).
struct Displacement {
  Point at;
  Point offset;
  double xx = 1.0;
  double xy = 0.0;
  double yy = 1.0;
  int source = -1;  // the caller's number of it
};

// The motion that the largest weight of displacements agrees on, to be followed by FitRigid. Votes come from single
// displacements (shift alone) and, unless `shiftOnly`, from pairs; `tolerance` in pixels, `maxTurn` in degrees.
// The weight of a displacement is the larger eigenvalue of its inverse covariance, and its distance counts in full only
// along that eigenvector: an edge says nothing about motion along itself. Nothing when there are none.
struct RigidVote {
  FrameGeometry geometry;
  double share = 0.0;  // weight of the displacements within the tolerance, of all
  int count = 0;       // their number
};
std::optional<RigidVote> VoteRigid(std::span<const Displacement> displacements, const RigidMap& map, bool shiftOnly,
                                   double tolerance, double maxTurn);

// Robust least squares. `scatter` is what the displacements scatter beyond their errors, in pixels an axis; the
// standard errors contain it. `scale` is a free scale found along with the motion, as a check: 1 for equal optics.
struct RigidFit {
  FrameGeometry geometry;
  double shiftError = 0.0;  // pixels, both axes together
  double thetaError = 0.0;  // degrees
  double scatter = 0.0;
  double residual = 0.0;      // weighted root mean square of what remains, pixels an axis
  std::vector<int> agreeing;  // sources of the displacements within the scatter
  double scale = 1.0;
};
// Nothing when the displacements don't determine the motion. `looseness` is a known extra error of each displacement
// in pixels, for early rounds.
std::optional<RigidFit> FitRigid(std::span<const Displacement> displacements, const RigidMap& map, bool shiftOnly,
                                 double looseness);

}  // namespace qmr
