// The progress report of an iterative restoration.
#pragma once

#include <cwchar>
#include <iterator>

#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/messages.h"

namespace qmr {

// Percentages under changing titles; the report ends with the scope, however that is left. Without an image it is
// silent and nobody cancels.
class RestorationReport {
 public:
  // `plane` counts from 1; 0 in an image of one plane.
  RestorationReport(CVynImage* image, int plane) : image_(image), plane_(plane) {}
  RestorationReport(const RestorationReport&) = delete;
  RestorationReport& operator=(const RestorationReport&) = delete;
  ~RestorationReport() {
    if (image_) image_->ShowProgressEnd(nullptr);
  }

  // The message after `message` is the same with the number of the plane in front. A number that a text has no place
  // for is left out.
  void Title(int message, int iteration = 0) {
    if (!image_) return;
    wchar_t title[256] = {};
    if (plane_)
      std::swprintf(title, std::size(title), MessageText(message + 1), plane_, iteration);
    else
      std::swprintf(title, std::size(title), MessageText(message), iteration);
    image_->ShowProgressInit(title);
  }
  // False when the user has cancelled.
  bool Show(int percent) { return !image_ || image_->ShowProgress(percent); }

 private:
  CVynImage* const image_;
  const int plane_;
};

}  // namespace qmr
