#include "host/night/registration/registration.h"

#include "host/night/registration/matcher.h"

namespace qmr {

struct RegistrationReference::Impl {
  Impl(const CVynImage& reference, AlignMode alignMode)
      : mode(alignMode), width(reference.GetWidth()), height(reference.GetHeight()) {
    if (mode != AlignMode::kNone) matcher.emplace(Luminance(reference), mode == AlignMode::kShift);
  }

  AlignMode mode;
  int width;
  int height;
  std::optional<Matcher> matcher;
};

RegistrationReference::RegistrationReference(const CVynImage& reference, AlignMode mode)
    : impl_(std::make_unique<Impl>(reference, mode)) {}

RegistrationReference::~RegistrationReference() = default;

std::variant<Registration, std::string> RegistrationReference::Measure(const CVynImage& frame) const {
  if (frame.GetWidth() != impl_->width || frame.GetHeight() != impl_->height) {
    return std::string("its size differs from the reference's");
  }
  if (!impl_->matcher) {
    Registration identity;
    identity.peak = 1.0;
    return identity;
  }
  return impl_->matcher->Measure(Luminance(frame));
}

}  // namespace qmr
