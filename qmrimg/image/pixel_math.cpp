// The scales and the brightness as members of the image.
#include "qmrimg/image/pixel_math.h"

#include "qmrimg/image/vyn_image.h"

double CVynImage::To256(double v, int plane) const {
  return qmr::To256(v, GetLevelMin(plane), GetLevelRange(plane));
}
float CVynImage::To256(float v, int plane) const {
  return static_cast<float>(To256(static_cast<double>(v), plane));
}
double CVynImage::ToRaw(double v, int plane) const {
  return qmr::ToRaw(v, GetLevelMin(plane), GetLevelRange(plane));
}
float CVynImage::ToRaw(float v, int plane) const {
  return static_cast<float>(ToRaw(static_cast<double>(v), plane));
}
double CVynImage::CalcBright(double r, double g, double b) {
  return qmr::Bright(r, g, b);
}
float CVynImage::CalcBright(float r, float g, float b) {
  return static_cast<float>(qmr::Bright(r, g, b));
}
