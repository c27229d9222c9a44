// Tone curves from tables.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Takes pixels through tables on the 256-scale of this image's own levels. Entry i of a table of n holds the output,
// 1.0 for level 255, of the input i * 255 / (n - 1); inputs take the entry at or below them, without interpolation.
// The source may be this image; only pixels that both images have are written.
class QMR_API CImgToneCurve : public CVynImage {
 public:
  CImgToneCurve();
  ~CImgToneCurve() override;

  // tables[0] is the master, applied to every plane after the plane's own table tables[1..3]; a monochrome image takes
  // the master alone, and planes beyond the third stay as they are. All tables have `n` entries and stay the caller's.
  // Below LevelMin the output is LevelMin; above LevelMax the last segment goes on (see CalcToneCurve). Nothing happens
  // without a source or a table that is needed, or with n below 1. `hAlpha` only chooses the title of the report, whose
  // total is the whole image's height: on a part of the image it ends below 100.
  void Do(float** tables, int n, CVynImage* source, CRect* pRect, int bProgress, int hAlpha);
  // Lowers the dark end for H-alpha frames: 0..knee becomes 0..kneeOutput, fractions of 1.0, and the identity goes on
  // above the knee with a jump. Plane 0 of a colour image takes the curve twice, the other planes once.
  void DoHAlpha(double knee, double kneeOutput, CVynImage* source, CRect* pRect, int bProgress);
  // The levels of all planes: the least pixel of the source's plane 0, and its greatest times `factor`. CalcMinMax runs
  // on the source.
  void DoHAlphaLevel(double factor, CVynImage* source);

 protected:
  // The table's output for an input outside 0..255 on the 256-scale: 0.0 below, else a line with the slope of the last
  // segment (0 when that falls) through the level of the last entry, not through input 255. A table of one entry has a
  // flat end; 0.0 for no table or `last` below 0.
  double CalcToneCurve(float* table, int last, double v) const;
  // The output for any input; `indexFactor` is last / 255.0.
  double CalcToneNormal(double v, double indexFactor, float* table, int last) const;
};
