#include "qmrimg/colour/color.h"

#include "qmrimg/colour/kernels/lab_math.h"

CColor::~CColor() = default;

void CColor::SetRgb(double red, double green, double blue) {
  R = red;
  G = green;
  B = blue;
}

void CColor::SetXyz(double x, double y, double z) {
  X = x;
  Y = y;
  Z = z;
}

void CColor::SetLab(double l, double aStar, double bStar) {
  L = l;
  a = aStar;
  b = bStar;
}

void CColor::RgbToXyz(double red, double green, double blue) {
  const qmr::Rgb linear = qmr::Linear({red, green, blue});
  SetRgb(linear.r, linear.g, linear.b);
  const qmr::Xyz xyz = qmr::LinearToXyz(linear);
  SetXyz(xyz.x, xyz.y, xyz.z);
}

void CColor::RgbToLab(double red, double green, double blue) {
  RgbToXyz(red, green, blue);
  const qmr::Lab lab = qmr::XyzToLab({X, Y, Z});
  SetLab(lab.l, lab.a, lab.b);
}

void CColor::XyzToRgb(double x, double y, double z) {
  SetXyz(x, y, z);
  const qmr::Rgb rgb = qmr::XyzToRgb({x, y, z});
  SetRgb(rgb.r, rgb.g, rgb.b);
}

void CColor::LabToRgb(double l, double aStar, double bStar) {
  SetLab(l, aStar, bStar);
  const qmr::Xyz xyz = qmr::LabToXyz({l, aStar, bStar});
  XyzToRgb(xyz.x, xyz.y, xyz.z);
}
