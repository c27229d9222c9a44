// What filters read when an image is filtered in place.
#pragma once

#include <memory>

#include "qmrimg/image/vyn_image.h"

namespace qmr {

// The images that a filter reads, as they were before it ran: rows near those already written are still to be read,
// so the destination stands for a copy of itself, made at the first need. Ask for images before threads fork.
class Snapshot {
 public:
  explicit Snapshot(const CVynImage& destination) : destination_(destination) {}
  CVynImage& Of(CVynImage& image) {
    if (&image != &destination_) return image;
    if (!copy_) copy_ = std::make_unique<CVynImage>(image);
    return *copy_;
  }

 private:
  const CVynImage& destination_;
  std::unique_ptr<CVynImage> copy_;
};

}  // namespace qmr
