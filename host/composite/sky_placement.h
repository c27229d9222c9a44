// Places by the sky coordinates in the headers.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/files/keyword.h"
#include "host/night/registration/frame_geometry.h"

namespace qmr {

// A header's way from pixels to the sky and back, in gnomonic projection ("Representations of celestial coordinates in
// FITS", Calabretta and Greisen 2002): CTYPE, CRVAL, CRPIX, and CD, or CDELT with PC or CROTA2. Distortions are left
// out.
class SkyMap {
 public:
  // Nothing when the header has no such coordinates.
  static std::optional<SkyMap> From(const std::vector<Keyword>& keywords);
  // A direction, of length 1.
  struct Direction {
    double x, y, z;
  };
  // Positions are pixels from 0.
  Direction ToSky(Point pixel) const;
  // Nothing for the other half of the sky.
  std::optional<Point> ToPixel(const Direction& direction) const;

 private:
  Direction east_{}, north_{}, centre_{};
  Point reference_;
  double cd_[4] = {};  // pixels to radians
  double inverse_[4] = {};
};

// Where a frame of this size lies on a picture, or the reason why that can't be said, as part of a sentence.
std::variant<LibraryGeometry, std::string> PlaceBySky(const std::vector<Keyword>& picture,
                                                      const std::vector<Keyword>& frame, int width, int height);

// Sky coordinates of a picture whose pixel (x, y) was at (x - columns, y - rows) of the picture with these keywords.
void MoveSkyKeywords(std::vector<Keyword>& keywords, int columns, int rows);

}  // namespace qmr
