// The text language that replays a chain of adjustments on one image.
#pragma once

#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/text.h"

// A chain is a list of statements between line ends or semicolons; each is the name of a command, a blank or tab, which
// a command without arguments needs as well, and arguments `KEY=value` between blanks or tabs:
//
//   LEVEL MIN=100 MAX=4000
//   SHARP METHOD=UNSHARPMASK RADIUS=2.5 WEIGHT=0.8 THRESHOLD_MIN=20 THRESHOLD_MIN_BUF=10
//   BRIGHTNESSCONTRAST BRIGHTNESS=4 CONTRAST=20; HALPHA THRESHOLD=0.3 BRIGHTNESS=0.2
//
// Commands with their keys and defaults; those of SHARP also with _R, _G or _B behind them, for a single plane:
//
//   LEVEL               MIN and MAX for monochrome images, MIN_R, MAX_R, MIN_G and MAX_G for colour, raw scale: the
//                       levels of both images; by default those of the working image. Blue takes the keys of green.
//   SHARP               METHOD: STANDARD, EDGEONLY or UNSHARPMASK; RADIUS 1, limited to 0.1..50; WEIGHT 1; the limits
//                       THRESHOLD_MIN, THRESHOLD_MAX, THRESHOLD_MIN_BUF 0, THRESHOLD_MAX_BUF 0 and BRIGHTER 0, off
//                       without their keys. See CImgFilterSharp for all.
//   BRIGHTNESSCONTRAST  BRIGHTNESS 0, CONTRAST 0 and AVERAGE: see CImgBright::Do. By default the average is the mean of
//                       the image before the last step.
//   HALPHA              THRESHOLD 0 and BRIGHTNESS 0: knee and its output of CImgToneCurve::DoHAlpha.
//   HALPHAAUTOLEVEL     MAG 0: the factor of CImgToneCurve::DoHAlphaLevel, which sets levels from plane 0.
//   DIGITALDEVELOPMENT  MASK_R, MASK_G and MASK_B, which are not used: it develops nothing.
//
// Names of commands and the values of METHOD are the same in upper and lower case, keys are written in upper case. The
// value begins right behind `=`; a blank there is an empty value, and the default holds. A key is looked for from the
// left, so that one which begins another key to its left has no value (`RADIUS_R=2 RADIUS=3`); a limit of SHARP is on
// nevertheless, a threshold then at the image's level (a raw value). Numbers have a decimal point in every locale; what
// is no number is 0, and of `2.5px` the 2.5 counts.
//
// A run steps from one image to the other: every statement but LEVEL first swaps the two, then its command reads the
// temporary image, which holds the newest pixels, and writes the working image. A statement that writes no pixels (an
// unknown name or METHOD, DIGITALDEVELOPMENT, HALPHAAUTOLEVEL) therefore takes back the step before it, and a second
// one brings it forth again. On purpose: stored chains depend on it. Levels stay with their image: those that
// HALPHAAUTOLEVEL sets are the result's when no or an even number of such swaps follow, or a LEVEL right behind it.
//
// A statement without a blank behind its name, an empty one included, ends the run with 0; steps done stay done. Every
// command starts with empty convolution engines in both images.
class QMR_API CVynImageProc {
 public:
  CVynImageProc();
  CVynImageProc(const CVynImageProc& src);
  CVynImageProc& operator=(const CVynImageProc& src);
  virtual ~CVynImageProc();

  // The working image, where the result stands, and the temporary one, a copy of it; null keeps the one set before. The
  // caller owns both, and they must outlive the runs.
  void SetImagePtr(CVynImage* image, CVynImage* temp);

  // Runs the chain on the images set: 1, or 0 when a statement ended it, an image is missing or their shapes differ.
  // The engines of the last command stay in the working image and read the temporary one: ClearFilterProc before that
  // one goes.
  int Do(CString text, int bProgress);
  // The same on `image` alone, with a temporary image of its own; 0 for a null image. Engines are cleared. Afterwards
  // no temporary image is set: Do(text) gives 0 until SetImagePtr names one. Raises the memory exception, with `image`
  // as the steps before left it.
  int Do(CVynImage* image, CString text, int bProgress);

 protected:
  // Splits a statement into its name and the rest from the blank on; 0, with both as they were, when no blank or tab
  // follows the name.
  int SpritCmd(CString statement, CString& name, CString& args);
  // Equal without regard to case.
  int Same(CString a, CString b);
  // 1 when `key` stands in the arguments with `=` right behind it or one blank or tab further.
  int find(CString args, CString key);
  // The value of a key, or what stands for it when it has none.
  CString atos(CString args, CString key);
  int atoi(CString args, CString key, int def);
  double atof(CString args, CString key, double def);
  int atob(CString args, CString key, int def);

  // The commands; each gives 1.
  int Level(CString args);
  int Sharp(CString args, int bProgress);
  int DigitalDevelopment(CString args, int bProgress);
  int BrightnessContrast(CString args, int bProgress);
  int HAlpha(CString args, int bProgress);
  int HAlphaAutoLevel(CString args, int bProgress);

  CVynImage* ProcImage = nullptr;
  CVynImage* ProcTemp = nullptr;
};
