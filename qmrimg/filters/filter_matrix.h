// Square kernels.
#pragma once

#include <vector>

#include "qmrimg/platform/export.h"

// A square kernel of floats, row by row: element (x, y), each from -radius to radius, lies at index
// (y + radius) * size + radius + x.
//
// Builders discard what the kernel held and give 0 when they fail. Where a builder takes a disc radius, a limit or
// a sigma, -1.0 stands for the kernel's own radius. A negative radius counts as 0; one whose elements can't be had
// raises the memory exception. Kernels are applied without being flipped.
class QMR_API CFilterMatrix {
 public:
  CFilterMatrix();
  CFilterMatrix(int radius, const float* values, int n);
  CFilterMatrix(int radius, const double* values, int n);
  CFilterMatrix(const CFilterMatrix&) = default;
  CFilterMatrix& operator=(const CFilterMatrix&) = default;
  virtual ~CFilterMatrix();

  // Sets the shape. 0 when `required` is non-zero and exceeds the count of elements (the new array stays), else 1.
  // New elements are 0 whatever `clear` says.
  int Alloc(int radius, int required, int clear);
  // Copies `n` values, or as many as there are elements when `n` is 0; the rest are 0. Fails when `n` exceeds the
  // count of elements or `values` is null.
  int SetValues(int radius, const float* values, int n);
  int SetValues(int radius, const double* values, int n);
  // exp(-(x^2 + y^2) / (2 sigma^2)), normalised. Sigma 0: the identity.
  int SetGaussian(int radius, double sigma);
  // The same with a radius of 2.8 sigma + 1, truncated, at least 1.
  int SetGaussianSigma(double sigma);
  // 1.0 where x^2 + y^2 <= discRadius^2, not normalised; gives the number of ones.
  int SetDisc(int radius, double discRadius);
  // `weight` on the disc, 1.0 at the centre; normalised.
  int SetWeightedDisc(int radius, double discRadius, double weight);
  // -1.0 where 0 < x^2 + y^2 <= limit, the centre the number of those cells; not normalised. The squared distance
  // is compared with the limit itself, on purpose, unlike in the discs: a limit of 2 means the 8 nearest cells.
  int SetLaplacian(int radius, double limit);
  // -weight where 0 < x^2 + y^2 <= radius (again not squared, on purpose), the centre cells * weight + 1;
  // normalised. The kernel's radius is `radius` truncated, at least 1.
  int SetSharpen(double radius, double weight);
  // A directional high-pass kernel: a line of `length` pixels at `angle` degrees, normalised. `weight` scales the
  // centre.
  int SetLine(int radius, double length, double angle, double weight);
  // Four 1.0 where the nearest samples of the same colour stand around a sample of an undeveloped frame: Bayer when
  // `bayer` is non-zero, honeycomb otherwise. `colour` 0, 1 (green) or 2. Gives 4, or 0 for another colour, and then
  // the kernel stays as it was.
  int SetCfaCross(int colour, int bayer);
  // Divides all values by their float sum, unless that is 0.
  void Normalize();

  // The element's address; null when its index lies outside the kernel. Only the index is tested: an `x` beyond
  // the radius reaches into a neighbouring row.
  float* At(int x, int y);
  // The element; 0 when out of range by the same test.
  float Get(int x, int y) const;
  float Get(int index) const;

  int GetRadius() const { return radius; }
  int GetSize() const { return size; }
  int GetCount() const { return count; }

 protected:
  std::vector<float> values;
  int radius = 0;
  int size = 0;
  int count = 0;
};
