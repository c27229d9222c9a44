// RGB, XYZ and Lab.
#pragma once

#include "qmrimg/platform/export.h"

// Converts one colour between the spaces. The conversion is this library's own: channels are not linearised one by
// one, but all three by one factor from their mean (a brightness gamma of 2.2 in all), so that ratios of RGB pass
// through unchanged. White in Lab is equal energy: the reference white is 5.6508 in X, Y and Z.
//
// RGB lies near 0..1, L on 0..100.
class QMR_API CColor {
 public:
  CColor() = default;
  CColor(const CColor&) = default;
  CColor& operator=(const CColor&) = default;
  virtual ~CColor();

  double GetR() const { return R; }
  double GetG() const { return G; }
  double GetB() const { return B; }
  double GetX() const { return X; }
  double GetY() const { return Y; }
  double GetZ() const { return Z; }
  double GetL() const { return L; }
  double Geta() const { return a; }
  double Getb() const { return b; }

  // Store three values and convert nothing.
  void SetRgb(double r, double g, double b);
  void SetXyz(double x, double y, double z);
  void SetLab(double l, double a, double b);

  // These leave the linearised channels in R, G and B, not the arguments.
  void RgbToXyz(double r, double g, double b);
  void RgbToLab(double r, double g, double b);
  // Channels below 0 become 0.
  void XyzToRgb(double x, double y, double z);
  void LabToRgb(double l, double a, double b);

 private:
  double R = 0.0;
  double G = 0.0;
  double B = 0.0;
  double X = 0.0;
  double Y = 0.0;
  double Z = 0.0;
  double L = 0.0;
  double a = 0.0;
  double b = 0.0;
};
