// Planes brought to a given mean and deviation.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgNormalize : public CVynImage {
 public:
  CImgNormalize();
  CImgNormalize(const CImgNormalize& src);
  ~CImgNormalize() override;
  CImgNormalize& operator=(const CImgNormalize& src);

  // Stores the source's planes, three at most, with the mean and the standard deviation (population form) of their
  // entries in `mean` and `sigma`, raw scale; a null array leaves that quantity as it is, and two do nothing. A plane
  // whose deviation comes out as 0 keeps its spread: it only moves to its mean, and with `sigma` alone it is not
  // written at all, so that this image keeps what it held. The deviation is the root of the mean square less the
  // squared mean, in double: rounding may leave a flat plane one just above 0, and the plane is then written, with its
  // rounding stretched. The source may be this image; what this image has beyond the source stays, and a null or empty
  // source does nothing.
  void Do(CVynImage* source, float* mean, float* sigma, int bProgress);

 protected:
  // Whole planes: pixel + delta, and (pixel - centre) * scale + centre, in double, stored as float.
  void NormalizeAve(CVynImage* source, CVynImage* destination, int plane, double delta);
  void NormalizeSigma(CVynImage* source, CVynImage* destination, int plane, double centre, double scale);
};
