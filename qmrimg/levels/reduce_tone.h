// Posterisation.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Brings each plane to a few even steps of this image's own levels. The lowest is LevelMin, the highest lies one step
// below LevelMax, so that LevelMax itself is never reached. Pixels beyond the levels take the end steps, not-a-number
// stays. The source may be this image; only pixels that both images have are written.
class QMR_API CImgReduceTone : public CVynImage {
 public:
  CImgReduceTone();
  ~CImgReduceTone() override;

  // `tones` steps, limited to 1..256. Nothing happens without a source.
  void Do(int tones, CVynImage* source, CRect* pRect, int bProgress);
};
