// Keywords that tell of places in a picture, for a result whose pixels lie elsewhere.
#pragma once

#include <optional>
#include <vector>

#include "host/files/keyword.h"

namespace qmr {

// Where the middle of pixel (x, y), counted from 0, comes to lie: (xx x + xy y + dx, yx x + yy y + dy).
struct PixelMap {
  double xx = 1.0, xy = 0.0, yx = 0.0, yy = 1.0;
  double dx = 0.0, dy = 0.0;
  int binX = 1, binY = 1;  // where whole blocks of pixels became one

  bool IsShift() const { return xx == 1.0 && xy == 0.0 && yx == 0.0 && yy == 1.0; }
  double Determinant() const { return xx * yy - xy * yx; }
};

// `second` of `first`, no whole blocks any more.
PixelMap Joined(const PixelMap& first, const PixelMap& second);

// Brings what a header says of places up to date, as far as it says anything.
// - World coordinates, of the standard with its alternates and SIP distortions: CRPIX, and beyond a mere shift CD (or
//   CDELT where the axes stay what they are and it says all) and SIP. Distortions in tables can't be carried, and
//   without a map nothing can: then all world coordinates are dropped.
// - Sizes and scales of a pixel, binning, and the origin of a subframe.
// - Sections of the sensor hold no more and are dropped.
void CarryPlaceKeywords(std::vector<Keyword>& keywords, const std::optional<PixelMap>& map);

// What BAYERPAT and its like have to say of a sensor's mosaic after pixels moved one to one. `number` is the pattern
// before in the order of memory, 1 to 4; `height` is the new one.
void CarryMosaicKeywords(std::vector<Keyword>& keywords, const PixelMap& map, int number, int height);

}  // namespace qmr
