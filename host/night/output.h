// What a night leaves behind: the stack, its coverage and a picture to look at.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/files/keyword.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// Writes float pixels with the keywords; Failure with kExitCannotCreate. Rows stay in the order of memory.
void WriteStack(const std::string& path, const CVynImage& image, const std::vector<Keyword>& keywords);

// Writes how many frames cover each pixel, as a 16-bit FITS.
void WriteCoverage(const std::string& path, int width, int height, const std::vector<std::uint16_t>& coverage,
                   const std::vector<Keyword>& keywords);

// The sky of each plane, and the width of its noise (deviation below the median, mean of the planes; 1 when there is
// none), raw scale.
struct SkyLevels {
  int planes = 0;
  double sky[3] = {};
  double noise = 0.0;
};
SkyLevels MeasureSky(CVynImage& image);

// Sets display levels in which the sky is a dark, neutral grey: the mode of each plane's histogram comes to lie at a
// tenth of the range, the range is the same for all planes.
void SetNightLevels(CVynImage& image);

// Writes an 8-bit PNG through the image's levels, whole pixels averaged so that it is at most `longestSide` wide or
// high. `bottomUp` says that row 0 is the bottom of the picture.
void WritePreview(const std::string& path, const CVynImage& image, int longestSide, bool bottomUp);

}  // namespace qmr
