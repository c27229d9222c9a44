// Brightness and contrast.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Brightness is added on the 256-scale of this image, contrast is a slope about a pivot: with the pixel t on the
// 256-scale the result is (t - average) * contrast / 256 + brightness + t, unclamped. A contrast of 256 doubles the
// distance from `average`, 0 leaves it, -256 flattens the plane to `average`. The arithmetic is in float, on the
// levels of this image, not the source's; a level range of 0 gives infinities and not-a-number.
class QMR_API CImgBright : public CVynImage {
 public:
  CImgBright();
  CImgBright(const CImgBright& src);
  ~CImgBright() override;
  CImgBright& operator=(const CImgBright& src);

  // `brightness` and `contrast` have an entry for each plane of this image; a null array stands for zeros. A plane
  // whose two entries are 0 is copied from the source bit for bit. `average` is on the 256-scale. The source may be
  // this image; where it has no pixel this image's stays, and a null source does nothing.
  void Do(float* brightness, float* contrast, double average, CVynImage* source, CRect* pRect, int bProgress);

  // One pixel: `toScale` is 255 / range and `fromScale` range / 255 of the levels, `contrastFactor` contrast / 256.
  float BrightPixel(float value, float levelMin, float toScale, float fromScale, float average, float contrastFactor,
                    float brightness) const;

 protected:
  // Plain and vector routine; the pixels are the same, the vector routine runs on all threads.
  void DoBright(float* brightness, float* contrast, float average, CVynImage* source, int left, int right, int top,
                int bottom);
  void DoBright_x(float* brightness, float* contrast, float average, CVynImage* source, int left, int right, int top,
                  int bottom);
};
