// Row work on complex arrays of interleaved floats (real, imaginary): centring, amplitude and phase, windows,
// log-polar resampling.
#pragma once

#include <cstddef>
#include <vector>

namespace qmr {

// Exchanges the halves of a row of `width` elements; an odd last element stays.
void SwapHalves(float* row, int width);
// Exchanges two rows.
void SwapRows(float* a, float* b, int width);

// (re, im) to (amplitude, phase), computed in double. Without `phase` the imaginary places become 0.
void AmpPhaseRow(float* row, int width, bool phase);
// (amplitude, phase) to (re, im), computed in double.
void ReImRow(float* row, int width);

// Real parts v become log(v - floor + 1), computed in double.
void LogRow(float* row, int width, double floor);

// Raised cosine of the distance from the centre of a row `dy` rows off it, for the distances 0..count - 1 along the
// row: 0.5 cos(pi d / radius) + 0.5, 0 from `radius` on. Gives the number of leading weights that are not cut.
int BellWeights(int dy, int radius, int count, double* weights);
// Multiplies the elements of a row by the weights of their distance from column width / 2; `inside` distances carry
// weight, everything beyond becomes 0.
void ApplyBell(const double* weights, int inside, float* row, int width);

// One component of the array at a position: `mode` 0 nearest, 1 bilinear, 0.0 for any other. Elements beyond the
// array repeat its border.
double SampleComplex(const float* data, int width, int height, int part, int mode, double x, double y);

// Rays and circles of a log-polar grid.
struct LogPolarGrid {
  int width;
  int height;
  double centreX;
  double centreY;
  double logStart;              // of row 0
  double logStep;               // per row
  std::vector<double> cosines;  // of the columns
  std::vector<double> sines;
};
LogPolarGrid MakeLogPolarGrid(int width, int height, double logStart, double logEnd, int startAngle, int endAngle);
// Row `y` of the resampled real part; the imaginary part of `out` becomes 0.
void LogPolarRow(const LogPolarGrid& grid, const float* data, int y, float* out);

// The smallest real part of a row, never above `start`.
float MinReal(const float* row, int width, float start);
// The first maximum of the real parts strictly above `best`; -1 and `best` as it is when there is none.
int MaxReal(const float* row, int width, float* best);

}  // namespace qmr
