// The disc of a planet unrolled into a map.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Matrices are nine doubles, row by row; vectors three. The axes of the sphere: 0 towards the viewer, 1 to the right
// of the image, 2 up. A result may not be one of the arguments.

// Rows (1, 0, 0), (0, cos, sin), (0, -sin, cos).
QMR_API void RotateX(double degrees, double* matrix);
// Rows (cos, 0, -sin), (0, 1, 0), (sin, 0, cos).
QMR_API void RotateY(double degrees, double* matrix);
// a times b.
QMR_API void MultiplyMatrix(const double* a, const double* b, double* product);
QMR_API void MultiplyMatrixVector(const double* matrix, const double* vector, double* product);
// The unit vector of a longitude and latitude in degrees: (cos lat cos lon, cos lat sin lon, sin lat).
QMR_API void LongitudeLatitudeToVector(double longitude, double latitude, double* vector);

class QMR_API CImgExpansion : public CVynImage {
 public:
  CImgExpansion();
  CImgExpansion(const CImgExpansion& src);
  ~CImgExpansion() override;
  CImgExpansion& operator=(const CImgExpansion& src);

  // Turns the source's picture of a sphere, a disc about (discCentreX, discCentreY) of `discRadius` pixels, into a map
  // of longitude (-180 to 180 degrees from left to right) and latitude (90 to -90 downward) in the largest 2:1
  // rectangle about the middle of this image, which takes the source's levels. Beside the map stands LevelMin of plane
  // 0, in every plane; the far side of the sphere, and places beyond the source, are 0. `angleY` and `angleX` tilt the
  // sphere, in degrees; `polarScale` stretches its axis (an oblate planet has less than 1).
  //
  // `drawGrid` non-zero draws a graticule of 30 degrees: parallels with the LevelMax of plane 0 from the left to the
  // right bound of the rectangle, over it meridians with that of the plane. A line on the row or column just past the
  // rectangle is drawn too, where the image has it.
  //
  // The source may be this image, which then needs the memory of a copy and may raise the memory exception. Planes
  // that it lacks stay as they are, and a null source does nothing.
  void Do(CVynImage* source, double discCentreX, double discCentreY, double discRadius, double angleY, double angleX,
          double polarScale, int drawGrid, CRect* pRect, int bProgress);
};
