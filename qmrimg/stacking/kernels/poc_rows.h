// Products of two spectra, and the evaluation of a correlation peak between pixels.
#pragma once

namespace qmr {

// One row of a normalised cross spectrum, conj(a) b / |a b|, into `a`. Columns `zeroFrom` <= x < `zeroTo` become 0.
// Products are floats, the magnitude is formed in double; elements of magnitude 0 stay 0.
void CrossSpectrumRow(float* a, const float* b, int width, int zeroFrom, int zeroTo);

// One row of a deconvolution: `a` becomes a conj(o) / (|o|^2 + eps). The rows may be the same.
void DeconvolveRow(float* a, const float* o, int width, float eps);

// The real parts of one line of a correlation surface, `step` floats apart, count >= 1.
struct PeakLine {
  const float* first;
  long step;
  int count;

  // Value and distance from the centre at `k`, clamped to the line.
  double Value(long k) const;
  double Distance(long k) const;
  int Clamp(long k) const;
};

// The two sums of the peak evaluation formula (S. Nagashima, T. Aoki, T. Higuchi, K. Kobayashi: A subpixel image
// matching technique using phase-only correlation, 2006): a band-limited peak at the distance p from the centre
// satisfies PeakV = p PeakU at every n and i.
double PeakU(const PeakLine& line, double alpha, long n, int i);
double PeakV(const PeakLine& line, double alpha, long n, int i);

// Position of the peak near sample `at`, measured from the centre: a least-squares fit over that sample and its
// higher neighbour; 0 when the line is flat there.
double PeakPosition(const PeakLine& line, int at);

}  // namespace qmr
