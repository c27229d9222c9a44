// Shift and rotation of a frame against the reference of its night.
//
// Nothing is asked of the picture but contrast: stars, a nebula, a planet or the Moon's surface will do. Whole frames
// are correlated first, then a grid of tiles, then a few hundred patches are fitted by least squares and combined to
// one rigid motion. On star fields the error comes near the limit that photon noise sets.
#pragma once

#include <memory>
#include <string>
#include <variant>

#include "host/night/registration/frame_geometry.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

struct Registration {
  FrameGeometry geometry;
  double shiftError = 0.0;  // standard error at the middle of the frame, both axes together, pixels
  double thetaError = 0.0;  // standard error, degrees
  double peak = 0.0;        // correlation of the frame with the reference on the patches used, at most 1
  int tiles = 0;            // patches that the motion rests on
  double residual = 0.0;    // root mean square of what remains between the patches, pixels an axis
  double scale = 1.0;       // scale of the frame if it were free: far from 1 means other optics
};

enum class AlignMode { kNone, kShift, kRotation };

// What is kept of the reference. The image itself isn't needed after the constructor.
class RegistrationReference {
 public:
  // A monochrome image, or a colour image by its luminance. kShift keeps theta at 0; kNone answers every frame of the
  // reference's size with the identity.
  RegistrationReference(const CVynImage& reference, AlignMode mode);
  RegistrationReference(const RegistrationReference&) = delete;
  RegistrationReference& operator=(const RegistrationReference&) = delete;
  ~RegistrationReference();

  // The registration, or the reason why there is none, as part of a sentence. May run on several threads at
  // a time; to measure a night, give each thread of one parallel region its frames: within it, all work stays on the
  // calling thread. Pixels that are no finite numbers are left out.
  std::variant<Registration, std::string> Measure(const CVynImage& frame) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qmr
