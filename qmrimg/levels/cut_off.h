// Replacement of what lies at or beyond the levels.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgCutOff : public CVynImage {
 public:
  CImgCutOff();
  CImgCutOff(const CImgCutOff& src);
  ~CImgCutOff() override;
  CImgCutOff& operator=(const CImgCutOff& src);

  // Pixels at or below LevelMin of the source's plane become `lowValue`, those at or above its LevelMax `highValue`,
  // others (not-a-number too) are those of the source; raw scale. Levels are rounded to float, as pixels are: 0.1f is
  // at the level 0.1. LevelMin is asked first: where both levels are equal, a pixel at them becomes `lowValue`. The
  // source may be this image; where it has no pixel this image's stays, and a null source does nothing.
  void Do(CVynImage* source, float lowValue, float highValue, CRect* pRect, int bProgress);

 protected:
  void DoCutOff(CVynImage* source, float lowValue, float highValue, int left, int right, int top, int bottom);
};
