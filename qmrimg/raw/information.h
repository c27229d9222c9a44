// What the header of an image says of the camera.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgInformation : public CVynImage {
 public:
  CImgInformation();
  CImgInformation(const CImgInformation& src);
  ~CImgInformation() override;
  CImgInformation& operator=(const CImgInformation& src);

  // The colour filter layout of the camera from a built-in list: 1 to 4 as in tagBayerStruct, 5 for a layout that
  // this library does not develop, 11 for a honeycomb sensor. 0, with `pattern` as it was, for a camera that is not
  // in the list.
  int GetAutoCFA(int* pattern);
  // Texts for display. Without a model name a number that the header does not know leaves its text as it was; with one
  // `exposure` is emptied then, and `temperature` always.
  void GetInfoString(CString& detector, CString& exposure, CString& temperature);
};
