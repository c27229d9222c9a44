// A sphere seen as a disc: where the points of a parallel lie in its picture.
#pragma once

#include <cstddef>

namespace qmr {

inline double Radians(double degrees) {
  return degrees * 3.141592653589793 / 180.0;
}

// How the sphere lies and what of it the picture shows. Axes: 0 towards the viewer, 1 to the right, 2 up.
struct SphereView {
  double turn[9];  // from the axes of the map to those of the viewer, row by row
  double polarScale;
  double centreX;
  double centreY;
  double radius;
  double lastX;  // width - 1 and height - 1 of the picture
  double lastY;
};

// The points at one latitude, their longitudes given by cosine and sine. Those on the far side, or beyond the picture,
// get x = -1.
void LocateParallel(const double* cosLongitude, const double* sinLongitude, std::size_t count, double cosLatitude,
                    double sinLatitude, const SphereView& view, double* x, double* y);

}  // namespace qmr
