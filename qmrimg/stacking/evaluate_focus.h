// A score for the sharpness of an image.
#pragma once

#include "qmrimg/image/vyn_image.h"

// The mean difference between the object under a narrow and under a wide Gaussian, over all planes, raw scale: a
// sharper image of the same scene gives a higher score. It grows in proportion to the light, so frames of other
// exposures are to be brought to the same light first; and the noise of the narrow band adds to it.
//
// The standard deviations of the Gaussians, in pixels, are the settings `Min` (1) and `Max` (10) of section `Eval`. The
// object's engine groups 0 and 1 hold them afterwards where anything was measured; groups in use keep the kernels that
// they have. No pixel is changed. The result is the same for any number of threads.
class QMR_API CImgEvaluateFocus : public CVynImage {
 public:
  CImgEvaluateFocus();
  CImgEvaluateFocus(const CImgEvaluateFocus& src);
  ~CImgEvaluateFocus() override;
  CImgEvaluateFocus& operator=(const CImgEvaluateFocus& src);

  // The image, or the rectangle (null: the image), less a margin of `Max` pixels on each side; never closer to the
  // image's edge than that. 0.0 when nothing is left.
  double Do(int bProgress);
  double Do(CRect* pRect, int bProgress);
};
