// Pixels without a value, on their way round an operation.
#pragma once

#include <cstddef>
#include <vector>

#include "qmrimg/image/vyn_image.h"

namespace qmr {

// Takes the not-a-number pixels out of an image and puts them back afterwards, so that they spoil nothing around them.
class BlankPixels {
 public:
  // Fills each by the median of the good pixels around it, in rows and columns `step` apart, or else by that of the
  // plane; a plane of blank pixels becomes 0.
  BlankPixels(CVynImage& image, int step);
  // Makes the same pixels of another image not-a-number again: in all planes where it has another number of them.
  void Restore(CVynImage& image) const;
  std::size_t Count() const { return pixels_.size(); }

 private:
  struct Pixel {
    int x, y, plane;
  };
  int planes_;
  std::vector<Pixel> pixels_;
};

}  // namespace qmr
