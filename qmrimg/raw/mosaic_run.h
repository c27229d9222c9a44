// What the developments of mosaics share: the steps before and after the interpolation. Raw scale.
#pragma once

#include <optional>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/raw/kernels/tone_rows.h"

namespace qmr {

// 2^bits - 1.
double LargestOf(int bits);

// Subtracts from plane 0, without a limit.
void SubtractBlackLevel(CImage& image, float black);

// Makes `work` an image of float pixels in the shape of plane 0 of `src`, with copies of it as its one plane, or two
// with useGain. 1, or 0 without pixels or memory.
int CopyMosaic(const CImage& src, CImage* work, int useGain);

// Gives the smallest and the largest sample.
using SampleExtremes = FunctionRef<void(double* min, double* max)>;

// Carries the samples of `srcBits` (or with `autoRange` from their smallest to their largest) to those of `dstBits` in
// all planes of the image. Both -32: the same formula, without a limit.
void ChangeSampleBits(CImage& image, int srcBits, int dstBits, int autoRange, SampleExtremes extremes);

// What happens to the samples as they are read, and the range of the result.
struct SampleRange {
  std::optional<BitScale> bits;
  float lo = 0.0f;
  float hi = 0.0f;
};

// `work` has the samples of plane 0, `object` their levels. Where the scale of bits is no positive number the samples
// are changed in place.
SampleRange RangeOfSamples(CImage& work, const CImage& object, int srcBits, int dstBits, int autoRange,
                           SampleExtremes extremes);

// Raises all planes to the power 1 / gamma within 0..2^dstBits - 1, or for -32 within the range of the pixels. The
// report of `target` advances by one unit a row and plane. 1, or 0 without pixels or memory.
int CorrectGamma(CVynImage* target, CImage* image, int dstBits, double gamma);

}  // namespace qmr
